// Borrowed views of the strings, for interfaces that take std::string_view or std::wstring_view.
//
// A view covers the whole text, NULs included, and is valid until the string is next changed, given more room
// or destroyed. Making one costs nothing, allocates nothing and leaves the cache of an IString alone.
#ifndef QZSTRING_STRING_VIEW_H
#define QZSTRING_STRING_VIEW_H

#include <string_view>

#include "common/export.h"
#include "string/CString.h"
#include "string/IString.h"

namespace qzString {

[[nodiscard]] inline std::string_view asView(const CString& s QZSTRING_LIFETIMEBOUND) noexcept {
    return {s.asChar(), s.length()};
}
[[nodiscard]] inline std::wstring_view asView(const IString& s QZSTRING_LIFETIMEBOUND) noexcept {
    return {s.asWChar(), s.length()};
}

namespace detail {

// The text of a string, a view or a pointer (up to its NUL; empty where it is null).
inline std::string_view view(const CString& s) noexcept {
    return asView(s);
}
inline std::wstring_view view(const IString& s) noexcept {
    return asView(s);
}
inline std::string_view view(std::string_view s) noexcept {
    return s;
}
inline std::wstring_view view(std::wstring_view s) noexcept {
    return s;
}
inline std::string_view view(const char* s) noexcept {
    return s == nullptr ? std::string_view() : std::string_view(s);
}
inline std::wstring_view view(const wchar_t* s) noexcept {
    return s == nullptr ? std::wstring_view() : std::wstring_view(s);
}

}  // namespace detail

}  // namespace qzString

#endif
