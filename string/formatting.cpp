#include <cstdarg>
#include <string>

#include "string/CString.h"
#include "string/IString.h"
#include "string/argumentList.h"
#include "string/doFormat.h"

namespace qzString {
namespace {

constexpr unsigned int kSizeHint = 256;

}  // namespace

// ---- CString ----

unsigned int CString::formatText(const char* format, va_list arguments, unsigned int sizeHint) {
    return doFormat(text, format, arguments, sizeHint) ? length() : npos;
}

unsigned int CString::vformat(const char* format, va_list arguments) {
    return formatText(format, arguments, kSizeHint);
}

unsigned int CString::format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, kSizeHint);
}

unsigned int CString::format(const CString* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format->asChar(), arguments, kSizeHint);
}

unsigned int CString::format(unsigned int sizeHint, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, sizeHint);
}

unsigned int CString::format(unsigned int sizeHint, const CString* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format->asChar(), arguments, sizeHint);
}

// ---- IString ----

unsigned int IString::formatText(const wchar_t* format, va_list arguments, unsigned int sizeHint) {
    if (!doFormat(wideText, format, arguments, sizeHint))
        return npos;
    return changed().length();
}

unsigned int IString::formatText(const char* format, va_list arguments, unsigned int sizeHint) {
    std::string narrow;
    if (!doFormat(narrow, format, arguments, sizeHint))
        return npos;
    return assign(narrow.c_str(), kMultibyte, nullptr).length();
}

unsigned int IString::vformat(const wchar_t* format, va_list arguments) {
    return formatText(format, arguments, kSizeHint);
}

unsigned int IString::vformat(const char* format, va_list arguments) {
    return formatText(format, arguments, kSizeHint);
}

unsigned int IString::format(const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, kSizeHint);
}

unsigned int IString::format(const IString* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format->asWChar(), arguments, kSizeHint);
}

unsigned int IString::format(unsigned int sizeHint, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, sizeHint);
}

unsigned int IString::format(unsigned int sizeHint, const IString* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format->asWChar(), arguments, sizeHint);
}

unsigned int IString::format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, kSizeHint);
}

unsigned int IString::format(unsigned int sizeHint, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const ListGuard ends(arguments);
    return formatText(format, arguments, sizeHint);
}

}  // namespace qzString
