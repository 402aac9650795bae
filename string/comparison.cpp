#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>

#include "primitives/character.h"
#include "primitives/hash.h"
#include "string/CString.h"
#include "string/IString.h"
#include "string/view.h"

namespace qzString {
namespace {

int compareElements(const char* a, const char* b, std::size_t count) {
    return std::memcmp(a, b, count);
}

int compareElements(const wchar_t* a, const wchar_t* b, std::size_t count) {
    return std::wmemcmp(a, b, count);
}

int collateElements(const char* a, const char* b) {
    return std::strcoll(a, b);
}

int collateElements(const wchar_t* a, const wchar_t* b) {
    return std::wcscoll(a, b);
}

template <class Char>
std::basic_string<Char> lowered(std::basic_string<Char> text) {
    toLower(text.data(), text.size());
    return text;
}

int compareLengths(std::size_t a, std::size_t b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

// The exact order: the first difference decides, as the C library values it; without one the lengths do.
template <class Char>
int exactOrder(std::basic_string_view<Char> a, std::basic_string_view<Char> b) {
    const std::size_t common = std::min(a.size(), b.size());
    const int difference = common == 0 ? 0 : compareElements(a.data(), b.data(), common);
    return difference != 0 ? difference : compareLengths(a.size(), b.size());
}

}  // namespace

// ---- CString ----

int CString::compare(const CString& other) const noexcept {
    return exactOrder<char>(text, other.text);
}

int CString::compare(const char* other) const noexcept {
    return exactOrder<char>(text, detail::view(other));
}

int CString::compareNoCase(const CString& other) const noexcept {
    return qzString::compareNoCase(text.data(), text.size(), other.text.data(), other.text.size());
}

int CString::collate(const CString& other) const {
    return collateElements(asChar(), other.asChar());
}

int CString::collateNoCase(const CString& other) const {
    return collateElements(lowered(text).c_str(), lowered(other.text).c_str());
}

// ---- IString ----

int IString::compare(const IString& other) const noexcept {
    return exactOrder<wchar_t>(wideText, other.wideText);
}

int IString::compareNoCase(const IString& other) const noexcept {
    return qzString::compareNoCase(wideText.data(), wideText.size(), other.wideText.data(),
                                   other.wideText.size());
}

int IString::collate(const IString& other) const {
    return collateElements(asWChar(), other.asWChar());
}

int IString::collateNoCase(const IString& other) const {
    return collateElements(lowered(wideText).c_str(), lowered(other.wideText).c_str());
}

// ---- Relations and hashing, of both classes ----

bool equal(const CString& a, const char* b) noexcept {
    return a.compare(b) == 0;
}

std::uint64_t hashfunction(const CString& s) noexcept {
    return qz::hashfunction(reinterpret_cast<const unsigned char*>(s.asChar()), static_cast<int>(s.length()));
}

std::uint64_t hashfunction(const IString& s) noexcept {
    return qz::hashfunction(s.asWChar(), static_cast<int>(s.length()));
}

#define QZSTRING_RELATION(name, isTrue)                      \
    bool name(const CString& a, const CString& b) noexcept { \
        return isTrue;                                       \
    }                                                        \
    bool name(const IString& a, const IString& b) noexcept { \
        return isTrue;                                       \
    }

// Texts of different lengths need not be read.
QZSTRING_RELATION(equal, a.length() == b.length() && a.compare(b) == 0)
QZSTRING_RELATION(notEqual, !equal(a, b))
QZSTRING_RELATION(less, a.compare(b) < 0)
QZSTRING_RELATION(greater, a.compare(b) > 0)
QZSTRING_RELATION(lessEqual, a.compare(b) <= 0)
QZSTRING_RELATION(greaterEqual, a.compare(b) >= 0)

#undef QZSTRING_RELATION

}  // namespace qzString
