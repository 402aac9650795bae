// Substring search over plain arrays, in both directions. Internal, not installed.
//
// Positions and lengths count elements. `length` is that of the text, `needleLength` that of the needle,
// which is not empty. Nothing is allocated; the time is linear in the text and the needle together.
#ifndef QZSTRING_STRING_SEARCH_H
#define QZSTRING_STRING_SEARCH_H

#include <cstddef>

#include "string/scanner.h"

namespace qzString::search {

// The lowest position from `from` on, which is at most `length`, at which the needle stands, or kNotFound.
std::size_t findFirst(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                      std::size_t from);
std::size_t findFirst(const wchar_t* text, std::size_t length, const wchar_t* needle,
                      std::size_t needleLength, std::size_t from);

// The two of a needle's elements that are scanned for: the rarest, and the next; in short text the first and
// the last.
struct Anchors {
    std::size_t first, second;
};

// A needle prepared once for any number of forward searches. It borrows its elements.
class WideNeedle {
  public:
    WideNeedle(const wchar_t* elements, std::size_t length);

    [[nodiscard]] std::size_t size() const { return length_; }
    // As findFirst.
    [[nodiscard]] std::size_t findIn(const wchar_t* text, std::size_t length, std::size_t from) const;

  private:
    const wchar_t* elements_;
    std::size_t length_;
    Anchors anchors_;
};

// The highest position up to `from` at which the needle stands, or kNotFound.
std::size_t findLast(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                     std::size_t from);
std::size_t findLast(const wchar_t* text, std::size_t length, const wchar_t* needle, std::size_t needleLength,
                     std::size_t from);

}  // namespace qzString::search

#endif
