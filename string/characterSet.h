// Search for the characters of a set. Internal, not installed.
//
// Positions and lengths count characters; nothing is allocated. Text near where the search begins, all of a
// short one if the set is small, is compared with every member. Most of the rest is told from the members by
// a filter of 512 bits; what that lets pass and is not below 256 is looked up among the members.
#ifndef QZSTRING_STRING_CHARACTERSET_H
#define QZSTRING_STRING_CHARACTERSET_H

#include <cstddef>
#include <string_view>

#include "string/scanner.h"

namespace qzString::search {

// The lowest position of a member from `from` on, and the highest up to `from`, or kNotFound.
std::size_t findFirstOf(std::wstring_view text, std::wstring_view members, std::size_t from);
std::size_t findLastOf(std::wstring_view text, std::wstring_view members, std::size_t from);

}  // namespace qzString::search

#endif
