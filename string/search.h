// Substring search over plain arrays, both directions. Internal, not installed.
//
// Positions and lengths count elements. `length` is that of the text, `needleLength` that of the needle,
// which is not empty. Nothing is allocated; the time is linear in the text and the needle together.
#ifndef QZSTRING_STRING_SEARCH_H
#define QZSTRING_STRING_SEARCH_H

#include <cstddef>

namespace qzString::search {

inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// The lowest position from `from` on at which the needle stands.
std::size_t findFirst(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                      std::size_t from);
std::size_t findFirst(const wchar_t* text, std::size_t length, const wchar_t* needle,
                      std::size_t needleLength, std::size_t from);

// The highest position up to `from` at which the needle stands.
std::size_t findLast(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                     std::size_t from);
std::size_t findLast(const wchar_t* text, std::size_t length, const wchar_t* needle, std::size_t needleLength,
                     std::size_t from);

}  // namespace qzString::search

#endif
