#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "string/CString.h"
#include "string/IString.h"
#include "string/view.h"

namespace qzString {
namespace {

// A negative count widens to a length beyond any string's, which the standard string refuses.
template <class Char>
std::basic_string<Char> counted(const Char* s, int count) {
    if (s == nullptr)
        return {};
    return std::basic_string<Char>(s, static_cast<std::size_t>(count));
}

template <class Char>
Char* heapCopy(const std::basic_string<Char>& text) {
    const std::size_t bytes = (text.size() + 1) * sizeof(Char);
    void* const copy = std::malloc(bytes);
    if (copy != nullptr)
        std::memcpy(copy, text.c_str(), bytes);
    return static_cast<Char*>(copy);
}

bool isRangeWithin(unsigned int length, unsigned int pos, unsigned int count) {
    return pos < length && (count == CString::npos || count <= length);
}

// Makes room for the given number of elements in both strings, of which the cache lacks it. Where memory runs
// out, both stay as they were; else the cache is emptied, and so is the text where it had no room.
void makeRoom(std::wstring& text, std::size_t characters, std::string& cache, std::size_t bytes) {
    std::string cacheRoom;
    cacheRoom.reserve(bytes);
    if (characters > text.capacity()) {
        std::wstring textRoom;
        textRoom.reserve(characters);
        text.swap(textRoom);
    }
    cache.swap(cacheRoom);
}

}  // namespace

// ---- CString ----

CString::CString(const char* s) : text(detail::view(s)) {}

CString::CString(const char* s, int count) : text(counted(s, count)) {}

CString::CString(char c) : text(1, c) {}

CString::CString(unsigned int count, char c) : text(count, c) {}

CString& CString::assign(const CString& other) {
    text = other.text;
    return *this;
}

CString& CString::assign(const char* s) {
    text.assign(detail::view(s));
    return *this;
}

unsigned int CString::reserve(unsigned int n) {
    text.reserve(n);
    return capacity();
}

char* CString::copyAsChar() const {
    return heapCopy(text);
}

bool CString::doBoundsCheck(unsigned int pos, unsigned int count) const noexcept {
    return isRangeWithin(length(), pos, count);
}

// ---- IString ----

IString::IString(const wchar_t* s) : wideText(detail::view(s)) {}

IString::IString(const wchar_t* s, int count) : wideText(counted(s, count)) {}

IString::IString(wchar_t c) : wideText(1, c) {}

IString::IString(unsigned int count, wchar_t c) : wideText(count, c) {}

IString::IString(IString&& other) noexcept
    : wideText(std::move(other.wideText)),
      multibyteCache(std::move(other.multibyteCache)),
      cacheEncoding(other.cacheEncoding) {
    other.wideText.clear();
    other.multibyteCache.clear();
    other.changed();
}

IString& IString::operator=(const IString& other) {
    return assign(other);
}

IString& IString::operator=(IString&& other) noexcept {
    if (this != &other) {
        wideText = std::move(other.wideText);
        multibyteCache = std::move(other.multibyteCache);
        cacheEncoding = other.cacheEncoding;
        other.wideText.clear();
        other.multibyteCache.clear();
        other.changed();
    }
    return *this;
}

// Only the first copy can fail, so that text and cache never part: by then the cache has room.
IString& IString::assign(const IString& other) {
    if (this != &other) {
        if (other.multibyteCache.size() > multibyteCache.capacity())
            makeRoom(wideText, other.wideText.size(), multibyteCache, other.multibyteCache.size());
        wideText.assign(other.wideText);
        multibyteCache.assign(other.multibyteCache);
        cacheEncoding = other.cacheEncoding;
    }
    return *this;
}

IString& IString::assign(const wchar_t* s) {
    if (s == nullptr && wideText.empty())
        return *this;
    wideText.assign(detail::view(s));
    return changed();
}

unsigned int IString::reserve(unsigned int n) {
    wideText.reserve(n);
    return capacity();
}

wchar_t* IString::copyAsWChar() const {
    return heapCopy(wideText);
}

void IString::swap(IString& other) noexcept {
    wideText.swap(other.wideText);
    changed();
    other.changed();
}

bool IString::doBoundsCheck(unsigned int pos, unsigned int count) const noexcept {
    return isRangeWithin(length(), pos, count);
}

}  // namespace qzString
