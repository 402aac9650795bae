// Borrowed views of the strings, for interfaces that take std::string_view or std::wstring_view.
//
// A view covers the whole text, NULs included, and is valid until the string is next changed or destroyed.
// Making one costs nothing, allocates nothing and leaves the cache of an IString alone.
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

}  // namespace qzString

#endif
