// Takes every free function once: what a shared library does not export fails to link.
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <sstream>

#include "primitives/character.h"
#include "primitives/conversion.h"
#include "primitives/format.h"
#include "primitives/hash.h"
#include "string/IString.h"
#include "string/containers.h"
#include "string/stream.h"
#include "string/view.h"

bool usesTheClassAlone();  // alone.cpp

namespace {

using qzString::CString;
using qzString::IString;

template <class String>
bool relates(const String& a) {
    String b = plus(a, a);
    plusEqual(b, a);
    swap(b, b);
    return b.length() == 3 * a.length() && equal(a, a) && !notEqual(a, a) && !less(a, a) && !greater(a, a) &&
           lessEqual(a, a) && greaterEqual(a, a) && hashfunction(a) == qzString::Hash()(a);
}

template <class Char>
bool mapsRuns(Char letter) {
    Char text[] = {letter, letter};
    const Char before[] = {letter, letter};
    qzString::toUpper(text, 2);
    const bool changed = text[0] != letter;
    qzString::toLower(text, 2);
    return changed && text[1] == letter && qzString::isAscii(text, 2) &&
           qzString::compareNoCase(text, 2, before, 2) == 0;
}

bool converts() {
    wchar_t wide[4];
    char narrow[4];
    bool ok = false;
    return qzString::UTF8toWCS("ab", 2, wide, 4, false, &ok) == 2 && ok &&
           qzString::UTF8validLength("ab", 2) == 2 && qzString::MBStoWCS("ab", 2, wide, 4, &ok) == 2 &&
           qzString::WCStoUTF8(wide, 2, narrow, 4, &ok) == 2 &&
           qzString::WCStoMBS(wide, 2, narrow, 4, &ok) == 2;
}

bool formats(int marker, ...) {
    va_list arguments;
    va_start(arguments, marker);
    char narrow[4];
    wchar_t wide[4];
    const bool formatted =
        KT_vsnprintf(narrow, 4, "ab", arguments) == 2 && KT_vswprintf(wide, 4, L"ab", arguments) == 2;
    va_end(arguments);
    return formatted;
}

bool hashes() {
    const unsigned char bytes[200] = {};
    const wchar_t wide[50] = {};
    return qz::hashfunction(bytes, 200) == qz::hashfunction(wide, 50) || sizeof(wchar_t) != 4;
}

}  // namespace

int main() {
    bool ok = false;
    IString s("\xC3\xA9", qzString::kUTF8, &ok);
    s.append(L'!');
    std::ostringstream out;
    out << s << CString("?");
    std::puts(s.asUTF8());
    const bool works = ok && s.length() == 2 && out.str() == "\xC3\xA9!?" && relates(CString("a")) &&
                       relates(IString(L"a")) && equal(CString("a"), "a") && mapsRuns('a') &&
                       mapsRuns(L'a') && qzString::toUpper(L'\xE9') == L'\xC9' &&
                       qzString::toLower(L'\xC9') == L'\xE9' && qzString::isSpace(L'\x2003') && converts() &&
                       formats(0) && hashes() && usesTheClassAlone();
    return works ? 0 : 1;
}
