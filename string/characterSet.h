// A set of wide characters, to look for in text. Internal, not installed.
//
// Most of a text is told from the set's members by a filter of 512 bits, 8 or 16 characters at a time; what
// the filter lets pass and is not below 256 is looked up among the members. Nothing is allocated.
#ifndef QZSTRING_STRING_CHARACTERSET_H
#define QZSTRING_STRING_CHARACTERSET_H

#include <cstddef>

#include "string/scanner.h"

namespace qzString::search {

// Borrows its members.
class CharacterSet {
  public:
    CharacterSet(const wchar_t* members, std::size_t count);

    // The lowest position of a member from `from` on, and the highest up to `from`, or kNotFound; positions
    // and lengths as in search.h.
    [[nodiscard]] std::size_t findFirstIn(const wchar_t* text, std::size_t length, std::size_t from) const;
    [[nodiscard]] std::size_t findLastIn(const wchar_t* text, std::size_t length, std::size_t from) const;

  private:
    [[nodiscard]] bool contains(wchar_t c) const;

    SetFilter filter_;
    const wchar_t* members_;
    std::size_t count_;
};

}  // namespace qzString::search

#endif
