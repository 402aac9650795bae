#include "primitives/conversion.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "string/IString.h"
#include "string/scratch.h"

namespace qzString {
namespace {

// Elements that scratch buffers may take on the stack, terminator included: 1 MiB each where `wchar_t` has 4
// bytes.
constexpr std::size_t kWideOnStack = 262144;
constexpr std::size_t kBytesOnStack = 1048576;

// Text of up to that many bytes goes through a buffer, which UTF-8 is sure to fit: that saves measuring it,
// and the zeroing of new storage. In other encodings what does not fit is measured after all.
constexpr std::size_t kShort = 1024;
constexpr std::size_t kMostBytes = 4;  // of a character in UTF-8
// Bytes of a cache line of the processor: where stores go across two, reading back what was just stored
// waits.
constexpr std::size_t kCacheLine = 64;

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};

void report(bool* ok, bool converted) {
    if (ok != nullptr)
        *ok = converted;
}

unsigned int toWide(Encoding encoding, const char* source, unsigned int length, wchar_t* destination,
                    unsigned int capacity, bool* ok) {
    return encoding == kUTF8 ? UTF8toWCS(source, length, destination, capacity, false, ok)
                             : MBStoWCS(source, length, destination, capacity, ok);
}

unsigned int fromWide(Encoding encoding, const wchar_t* source, unsigned int length, char* destination,
                      unsigned int capacity, bool* ok) {
    return encoding == kUTF8 ? WCStoUTF8(source, length, destination, capacity, ok)
                             : WCStoMBS(source, length, destination, capacity, ok);
}

template <class Char>
void replaceBy(std::basic_string<Char>& target, const Char* text, std::size_t length) {
    if (target.capacity() < length)
        target = std::basic_string<Char>(text, length);  // faster than to have it grow
    else
        target.assign(text, length);
}

// Makes `target` what `convert` writes into the room that it is given, of `needed` elements and one more;
// where it writes nothing, or memory runs out, `target` stays as it was. Where the target has to grow, its
// new storage is that room; else it is scratch memory, of which up to `onStack` elements are taken from the
// stack.
template <class Char, class Convert>
bool replaceByConverted(std::basic_string<Char>& target, unsigned int needed, std::size_t onStack,
                        Convert convert) {
    const std::size_t room = std::size_t{needed} + 1;
    const unsigned int capacity = needed == UINT32_MAX ? needed : needed + 1;
    if (target.capacity() < needed) {
        std::basic_string<Char> fresh(room, Char{0});
        const unsigned int written = convert(fresh.data(), capacity);
        if (written == 0)
            return false;
        fresh.resize(written);
        target.swap(fresh);
        return true;
    }
    const Scratch<Char> scratch(QZSTRING_STACK_SCRATCH(room * sizeof(Char), onStack * sizeof(Char)), room);
    const unsigned int written = convert(scratch.get(), capacity);
    if (written == 0)
        return false;
    target.assign(scratch.get(), written);
    return true;
}

// Whether text is sure to fit the buffer for short text, and not empty.
bool isSureToFit(std::size_t length, Encoding encoding) {
    return encoding == kUTF8 && length - 1 < kShort;
}

// Such text decoded; empty where it does not convert.
std::wstring decodedShort(const char* s, std::size_t length, bool* ok) {
    report(ok, false);
    alignas(kCacheLine) wchar_t buffer[kShort];
    const unsigned int written = UTF8toWCS(s, static_cast<unsigned int>(length), buffer, kShort, false, ok);
    try {
        return std::wstring(buffer, written);
    } catch (...) {
        report(ok, false);  // the converter has succeeded before
        throw;
    }
}

}  // namespace

// ---- Decoding ----

// Makes wideText the decoded text, which is not empty. Returns false where it does not convert, with
// everything as it was. The caller's flag goes to the converter itself; it is false should memory run out.
bool IString::decode(const char* s, std::size_t length, Encoding encoding, bool* ok) {
    report(ok, false);
    if (length > UINT32_MAX)
        return false;
    const auto convert = [&](wchar_t* destination, unsigned int capacity, bool* flag) {
        return toWide(encoding, s, static_cast<unsigned int>(length), destination, capacity, flag);
    };
    try {
        if (length <= kShort) {
            alignas(kCacheLine) wchar_t buffer[kShort];
            const unsigned int written = convert(buffer, kShort, ok);
            if (written != 0)
                replaceBy(wideText, buffer, written);
            if (written != 0 || encoding == kUTF8)
                return written != 0;
            // In some encodings a byte may be more than one character: the text is measured.
        }
        const unsigned int needed = convert(nullptr, 0, nullptr);
        return needed != 0 && replaceByConverted(wideText, needed, kWideOnStack,
                                                 [&](wchar_t* destination, unsigned int capacity) {
                                                     return convert(destination, capacity, ok);
                                                 });
    } catch (...) {
        report(ok, false);  // the converter may have succeeded before
        throw;
    }
}

void IString::convertFromMultibyte(const char* s, Encoding encoding, bool* ok) {
    const std::size_t length = std::strlen(s);
    if (length == 0) {
        wideText.clear();
        changed();
        report(ok, true);
        return;
    }
    // Text decoded from the string's own cache leaves the cache as its multibyte form, unless a NUL ended it
    // early.
    const bool isWholeCache = s == multibyteCache.data() && length == multibyteCache.size();
    if (decode(s, length, encoding, ok))
        cacheEncoding = isWholeCache ? encoding : kNoEncoding;
}

IString& IString::assign(const char* s, Encoding encoding, bool* ok) {
    const std::size_t length = s == nullptr ? 0 : std::strlen(s);
    if (length == 0)
        report(ok, true);
    if (length == 0 || !decode(s, length, encoding, ok))
        wideText.clear();
    multibyteCache.clear();
    return changed();
}

IString& IString::assign(const CString& s, Encoding encoding, bool* ok) {
    return assign(s.asChar(), encoding, ok);
}

// Short UTF-8 is decoded where it stays: a string that is moved in costs a seventh more.
IString::IString(Encoding encoding, const char* s, std::size_t length, bool* ok)
    : wideText(isSureToFit(length, encoding) ? decodedShort(s, length, ok) : std::wstring()) {
    if (!isSureToFit(length, encoding))
        assign(s, encoding, ok);
}

IString::IString(const char* s, Encoding encoding, bool* ok)
    : IString(encoding, s, s == nullptr ? 0 : std::strlen(s), ok) {}

IString::IString(const CString& s, Encoding encoding, bool* ok) : IString(s.asChar(), encoding, ok) {}

IString::IString(char c, Encoding encoding, bool* ok) {
    const char text[] = {c, '\0'};
    assign(text, encoding, ok);
}

IString::IString(unsigned int count, char c, Encoding encoding, bool* ok) {
    report(ok, false);  // should there be no memory for the text
    assign(std::string(count, c).c_str(), encoding, ok);
}

// ---- Encoding ----

// Apart from the conversion, whose buffer costs three times what this does.
void IString::convertToMultibyte(Encoding encoding, bool* ok) const {
    if (isCachedIn(encoding)) {
        report(ok, true);
    } else if (wideText.empty()) {
        multibyteCache.clear();
        cacheEncoding = encoding;
        report(ok, true);
    } else {
        encode(encoding, ok);
    }
}

// Makes the cache the encoded text, which is not empty.
void IString::encode(Encoding encoding, bool* ok) const {
    report(ok, false);
    bool converted = false;
    const auto convert = [&](char* destination, unsigned int capacity) {
        converted = false;
        return fromWide(encoding, wideText.data(), length(), destination, capacity, &converted);
    };
    unsigned int written = 0;
    if (wideText.size() <= kShort / kMostBytes) {
        alignas(kCacheLine) char buffer[kShort];
        written = convert(buffer, kShort);
        if (written != 0)
            replaceBy(multibyteCache, buffer, written);
    }
    if (written == 0) {
        const unsigned int needed = wideText.size() > UINT32_MAX
                                        ? 0
                                        : fromWide(encoding, wideText.data(), length(), nullptr, 0, nullptr);
        if (needed == 0) {
            multibyteCache.clear();
            cacheEncoding = kNoEncoding;
            return;
        }
        if (!replaceByConverted(multibyteCache, needed, kBytesOnStack, convert))
            return;
    }
    cacheEncoding = converted ? encoding : kNoEncoding;
    report(ok, converted);
}

const char* IString::asMultibyte(Encoding encoding, bool* ok) const {
    if (isCachedIn(encoding))  // asked for over and over: not by way of another call
        report(ok, true);
    else
        convertToMultibyte(encoding, ok);
    return multibyteCache.c_str();
}

const char* IString::asUTF8(bool* ok) const {
    return asMultibyte(kUTF8, ok);
}

unsigned int IString::asMultibyteStoreSize(Encoding encoding) const {
    convertToMultibyte(encoding);
    return static_cast<unsigned int>(multibyteCache.size()) + 1U;
}

unsigned int IString::asUTF8StoreSize() const {
    return asMultibyteStoreSize(kUTF8);
}

char* IString::copyAsMultibyte(Encoding encoding, bool* ok) const {
    convertToMultibyte(encoding);
    const std::size_t size = multibyteCache.size();
    std::unique_ptr<char, Free> copy(static_cast<char*>(std::malloc(size + 1)));
    convertToMultibyte(encoding, ok);
    if (copy) {
        // A conversion that failed has run again, and could have yielded another length.
        const std::size_t length = multibyteCache.size() < size ? multibyteCache.size() : size;
        std::memcpy(copy.get(), multibyteCache.data(), length);
        copy.get()[length] = '\0';
    }
    return copy.release();
}

CString IString::convertToCString() const {
    return CString(asMultibyte(kMultibyte));
}

}  // namespace qzString
