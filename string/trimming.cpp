#include <algorithm>
#include <string>

#include "primitives/character.h"
#include "string/CString.h"
#include "string/IString.h"

namespace qzString {
namespace {

// Each measures the run whose characters pass the test, then removes it at once. Returns whether there was
// one.

template <class Char, class Test>
bool trimFront(std::basic_string<Char>& text, Test isTrimmed) {
    const auto end = std::find_if_not(text.begin(), text.end(), isTrimmed);
    const bool any = end != text.begin();
    text.erase(text.begin(), end);
    return any;
}

template <class Char, class Test>
bool trimBack(std::basic_string<Char>& text, Test isTrimmed) {
    const auto begin = std::find_if_not(text.rbegin(), text.rend(), isTrimmed).base();
    const bool any = begin != text.end();
    text.erase(begin, text.end());
    return any;
}

template <class Char>
auto is(Char given) {
    return [given](Char c) { return c == given; };
}

template <class Char>
bool isWhite(Char c) {
    return isSpace(c);
}

}  // namespace

// ---- CString ----

CString& CString::strip(char c) noexcept {
    trimFront(text, is(c));
    return *this;
}

CString& CString::rstrip(char c) noexcept {
    trimBack(text, is(c));
    return *this;
}

CString& CString::stripSpaces() noexcept {
    trimFront(text, isWhite<char>);
    return *this;
}

CString& CString::rstripSpaces() noexcept {
    trimBack(text, isWhite<char>);
    return *this;
}

void CString::toLowerCase() noexcept {
    toLower(text.data(), text.size());
}

void CString::toUpperCase() noexcept {
    toUpper(text.data(), text.size());
}

// ---- IString ----

IString& IString::strip(wchar_t c) noexcept {
    return trimFront(wideText, is(c)) ? changed() : *this;
}

IString& IString::rstrip(wchar_t c) noexcept {
    return trimBack(wideText, is(c)) ? changed() : *this;
}

IString& IString::stripSpaces() noexcept {
    return trimFront(wideText, isWhite<wchar_t>) ? changed() : *this;
}

IString& IString::rstripSpaces() noexcept {
    return trimBack(wideText, isWhite<wchar_t>) ? changed() : *this;
}

void IString::toLowerCase() noexcept {
    toLower(wideText.data(), wideText.size());
    changed();
}

void IString::toUpperCase() noexcept {
    toUpper(wideText.data(), wideText.size());
    changed();
}

}  // namespace qzString
