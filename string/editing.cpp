#include <string>
#include <string_view>

#include "string/CString.h"
#include "string/IString.h"
#include "string/view.h"

namespace qzString {
namespace {

// The standard strings' own range operations do the edits: they check the position, cut the count, leave the
// string as it was where they fail, and accept characters of the string itself. What is added here: erasing
// from an empty string is never an error.

// Returns false where there was nothing to erase from.
template <class Char>
bool eraseRange(std::basic_string<Char>& text, unsigned int pos, unsigned int count) {
    if (text.empty())
        return false;
    text.erase(pos, count);
    return true;
}

// With room for both at once: otherwise appending the second would copy the first again.
template <class String>
String concatenation(const String& a, const String& b) {
    String both;
    both.reserve(a.length() + b.length());
    both.append(a).append(b);
    return both;
}

// The piece of a wide text ends with its first NUL.
std::wstring_view pieceOf(const std::wstring& text, unsigned int pos, unsigned int count) {
    const std::wstring_view range = std::wstring_view(text).substr(pos, count);
    return range.substr(0, range.find(L'\0'));
}

}  // namespace

// ---- CString ----

CString& CString::append(const CString& x) {
    text.append(x.text);
    return *this;
}

CString& CString::append(const char* x) {
    text.append(detail::view(x));
    return *this;
}

CString& CString::prepend(const CString& x) {
    return insert(0, x);
}

CString& CString::prepend(const char* x) {
    return insert(0, x);
}

CString& CString::prepend(char x) {
    return insert(0, x);
}

CString& CString::insert(unsigned int pos, const CString& x) {
    text.insert(pos, x.text);
    return *this;
}

CString& CString::insert(unsigned int pos, const char* x) {
    text.insert(pos, detail::view(x));
    return *this;
}

CString& CString::insert(unsigned int pos, char x) {
    text.insert(pos, 1, x);
    return *this;
}

void CString::erase(unsigned int pos, unsigned int count) {
    eraseRange(text, pos, count);
}

CString& CString::remove(unsigned int pos, unsigned int count) {
    eraseRange(text, pos, count);
    return *this;
}

CString& CString::replace(unsigned int pos, unsigned int count, const CString& x) {
    text.replace(pos, count, x.text);
    return *this;
}

CString& CString::replace(unsigned int pos, unsigned int count, const char* x) {
    text.replace(pos, count, detail::view(x));
    return *this;
}

CString& CString::replace(unsigned int pos, unsigned int count, char x) {
    text.replace(pos, count, 1, x);
    return *this;
}

CString CString::substr(unsigned int pos, unsigned int count) const {
    return CString(text, pos, count);
}

CString plus(const CString& a, const CString& b) {
    return concatenation(a, b);
}

CString& plusEqual(CString& a, const CString& b) {
    return a.append(b);
}

// ---- IString: the same, and the cache is invalid once the edit has succeeded ----

IString& IString::append(const IString& x) {
    wideText.append(x.wideText);
    return changed();
}

IString& IString::append(const wchar_t* x) {
    wideText.append(detail::view(x));
    return changed();
}

IString& IString::prepend(const IString& x) {
    return insert(0, x);
}

IString& IString::prepend(const wchar_t* x) {
    return insert(0, x);
}

IString& IString::prepend(wchar_t x) {
    return insert(0, x);
}

IString& IString::insert(unsigned int pos, const IString& x) {
    wideText.insert(pos, x.wideText);
    return changed();
}

IString& IString::insert(unsigned int pos, const wchar_t* x) {
    wideText.insert(pos, detail::view(x));
    return changed();
}

IString& IString::insert(unsigned int pos, wchar_t x) {
    wideText.insert(pos, 1, x);
    return changed();
}

void IString::erase(unsigned int pos, unsigned int count) {
    remove(pos, count);
}

IString& IString::remove(unsigned int pos, unsigned int count) {
    return eraseRange(wideText, pos, count) ? changed() : *this;
}

IString& IString::replace(unsigned int pos, unsigned int count, const IString& x) {
    wideText.replace(pos, count, x.wideText);
    return changed();
}

IString& IString::replace(unsigned int pos, unsigned int count, const wchar_t* x) {
    wideText.replace(pos, count, detail::view(x));
    return changed();
}

IString& IString::replace(unsigned int pos, unsigned int count, wchar_t x) {
    wideText.replace(pos, count, 1, x);
    return changed();
}

IString IString::substr(unsigned int pos, unsigned int count) const {
    return IString(wideText, pos, pieceOf(wideText, pos, count).size());
}

// The piece is assigned straight from this text, which may be out's own.
void IString::substr(IString& out, unsigned int pos, unsigned int count) const {
    out.wideText.assign(pieceOf(wideText, pos, count));
    out.changed();
}

IString plus(const IString& a, const IString& b) {
    return concatenation(a, b);
}

IString& plusEqual(IString& a, const IString& b) {
    return a.append(b);
}

}  // namespace qzString
