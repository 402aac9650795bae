// Substring search over plain arrays, both directions, and the scanners under all searches. Internal, not
// installed.
//
// Positions and lengths count elements. `length` is that of the text, `needleLength` that of the needle,
// which is not empty. Nothing is allocated; the time is linear in the text and the needle together.
#ifndef QZSTRING_STRING_SEARCH_H
#define QZSTRING_STRING_SEARCH_H

#include <cstddef>
#include <cstdint>

#include "common/rows.h"

namespace qzString::search {

inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// The lowest position from `from` on at which the needle stands.
std::size_t findFirst(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                      std::size_t from);
std::size_t findFirst(const wchar_t* text, std::size_t length, const wchar_t* needle,
                      std::size_t needleLength, std::size_t from);

// The two of a needle's elements that are scanned for: the rarest, and the next; in short text the first and the
// last.
struct Anchors {
    std::size_t first, second;
};

// A needle made ready to be looked for forwards, as often as one likes. It borrows its elements.
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

// The highest position up to `from` at which the needle stands.
std::size_t findLast(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                     std::size_t from);
std::size_t findLast(const wchar_t* text, std::size_t length, const wchar_t* needle, std::size_t needleLength,
                     std::size_t from);

// A bit for every wide character: those below 256 have one of their own, the others share one with those that
// are equal to them modulo 256.
struct alignas(64) SetFilter {
    static constexpr int kExact = 256;
    std::uint32_t words[2 * kExact / 32] = {};

    static constexpr bool isExact(wchar_t c) { return static_cast<std::uint32_t>(c) < kExact; }
    void add(wchar_t c) { words[wordOf(c)] |= std::uint32_t{1} << (c & 31); }
    [[nodiscard]] bool passes(wchar_t c) const { return (words[wordOf(c)] >> (c & 31) & 1) != 0; }

  private:
    static constexpr std::size_t wordOf(wchar_t c) {
        return static_cast<std::uint32_t>(c) / 32 % 8 + (isExact(c) ? 0 : 8);
    }
};

// Scans text for the places at which two elements of a needle stand where they should, and for the characters
// that a filter lets pass. One version per instruction set; the first that the processor can run is chosen at
// the first search. Tests iterate over them and may pin one.
struct Scanner {
    const char* name;
    bool (*usable)();
    // The lowest position below `count` at which `text[position + first]` is `a` and `text[position + second]`
    // is `b`, or `count`; and the highest, or kNotFound. Nothing is read but `count` elements from each of the
    // two offsets on.
    std::size_t (*nextNarrow)(const char* text, std::size_t count, std::size_t first, char a,
                              std::size_t second, char b);
    std::size_t (*nextWide)(const wchar_t* text, std::size_t count, std::size_t first, wchar_t a,
                            std::size_t second, wchar_t b);
    std::size_t (*lastNarrow)(const char* text, std::size_t count, std::size_t first, char a,
                              std::size_t second, char b);
    std::size_t (*lastWide)(const wchar_t* text, std::size_t count, std::size_t first, wchar_t a,
                            std::size_t second, wchar_t b);
    // The lowest position below `count` whose character passes, or `count`; and the highest, or kNotFound.
    std::size_t (*nextInSet)(const wchar_t* text, std::size_t count, const SetFilter& filter);
    std::size_t (*lastInSet)(const wchar_t* text, std::size_t count, const SetFilter& filter);
};

Rows<Scanner> allScanners();
void useScanner(const Scanner* pinned);

// The one in use.
const Scanner& active();

}  // namespace qzString::search

#endif
