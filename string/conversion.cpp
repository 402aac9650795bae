#include "primitives/conversion.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "common/scratch.h"
#include "string/IString.h"
#include "string/view.h"

namespace qzString {
namespace {

// Elements that scratch buffers may take on the stack, terminator included: 1 MiB each where `wchar_t` has 4
// bytes.
constexpr std::size_t kWideOnStack = 262144;
constexpr std::size_t kBytesOnStack = 1048576;

// Up to this many elements are converted in a buffer on the stack and copied: storage of a string's own
// would be zeroed first.
constexpr std::size_t kShort = 256;
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

// One element more than a text needs.
unsigned int roomFor(unsigned int needed) {
    return needed == UINT32_MAX ? needed : needed + 1;
}

// The string of what `convert` writes into the room that it is given, of `needed` elements and one more.
template <class Char, class Convert>
std::basic_string<Char> converted(unsigned int needed, const Convert& convert) {
    if (needed <= kShort) {
        alignas(kCacheLine) Char buffer[kShort + 1];
        return std::basic_string<Char>(buffer, convert(buffer, needed + 1));
    }
    std::basic_string<Char> text(std::size_t{needed} + 1, Char{0});
    text.resize(convert(text.data(), roomFor(needed)));
    return text;
}

// Makes `target` that text; where nothing is written, or memory runs out, it stays as it was. Where it has
// room, the text comes from scratch memory, of which up to `onStack` elements are taken from the stack.
template <class Char, class Convert>
bool replaceByConverted(std::basic_string<Char>& target, unsigned int needed, std::size_t onStack,
                        const Convert& convert) {
    if (target.capacity() < needed) {
        std::basic_string<Char> text = converted<Char>(needed, convert);
        if (text.empty())
            return false;
        target = std::move(text);
        return true;
    }
    const std::size_t room = std::size_t{needed} + 1;
    const Scratch<Char> scratch(QZSTRING_STACK_SCRATCH(room * sizeof(Char), onStack * sizeof(Char)), room);
    const unsigned int written = convert(scratch.get(), roomFor(needed));
    if (written == 0)
        return false;
    target.assign(scratch.get(), written);
    return true;
}

// ---- Decoding ----

// A text that is not empty. The caller's flag goes to the converter itself.
struct Decoder {
    Encoding encoding;
    const char* text;
    unsigned int length;
    bool* ok;

    [[nodiscard]] unsigned int measure() const { return toWide(encoding, text, length, nullptr, 0, nullptr); }
    unsigned int operator()(wchar_t* destination, unsigned int capacity) const {
        return toWide(encoding, text, length, destination, capacity, ok);
    }
};

// What `convert` makes of the text; false or empty text where the size query fails. The flag is false there,
// and where memory runs out; otherwise the converter sets it.
template <class Result, class Convert>
Result decodeBy(Convert convert, const char* s, std::size_t length, Encoding encoding, bool* ok) {
    report(ok, false);
    if (length > UINT32_MAX)
        return Result();
    const Decoder decoder{encoding, s, static_cast<unsigned int>(length), ok};
    const unsigned int needed = decoder.measure();
    if (needed == 0)
        return Result();
    try {
        return convert(needed, decoder);
    } catch (...) {
        report(ok, false);  // the converter may have succeeded before
        throw;
    }
}

// Whether the text lies in a string's own storage.
bool isWithin(const std::wstring& target, const char* s, std::size_t length) {
    const auto* const begin = reinterpret_cast<const char*>(target.data());
    const auto* const end = begin + target.capacity() * sizeof(wchar_t);
    return std::less<>()(s, end) && std::less<>()(begin, s + length);
}

// Decodes into `target`, long text where it is to stay. Returns false, or leaves it empty, where the text
// does not convert; the old text may be lost.
bool overwriteByDecoded(std::wstring& target, unsigned int needed, const Decoder& decoder) {
    if (needed <= kShort)
        return replaceByConverted(target, needed, kWideOnStack, decoder);
    if (target.capacity() <= needed || isWithin(target, decoder.text, decoder.length)) {
        target = converted<wchar_t>(needed, decoder);
    } else {
        target.resize(std::size_t{needed} + 1);
        target.resize(decoder(target.data(), roomFor(needed)));
    }
    return true;
}

// A new string's text; empty where there is none or it does not convert.
std::wstring decoded(const char* s, Encoding encoding, bool* ok) {
    const std::size_t length = detail::view(s).size();
    if (length == 0) {
        report(ok, true);
        return {};
    }
    return decodeBy<std::wstring>(converted<wchar_t, Decoder>, s, length, encoding, ok);
}

}  // namespace

// Makes wideText the decoded text, which is not empty. Returns false where it does not convert, with
// everything as it was.
bool IString::decode(const char* s, std::size_t length, Encoding encoding, bool* ok) {
    const auto replace = [this](unsigned int needed, const Decoder& decoder) {
        return replaceByConverted(wideText, needed, kWideOnStack, decoder);
    };
    return decodeBy<bool>(replace, s, length, encoding, ok);
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
    const std::size_t length = detail::view(s).size();
    const auto overwrite = [this](unsigned int needed, const Decoder& decoder) {
        return overwriteByDecoded(wideText, needed, decoder);
    };
    if (length == 0)
        report(ok, true);
    if (length == 0 || !decodeBy<bool>(overwrite, s, length, encoding, ok))
        wideText.clear();
    multibyteCache.clear();
    return changed();
}

IString& IString::assign(const CString& s, Encoding encoding, bool* ok) {
    return assign(s.asChar(), encoding, ok);
}

IString::IString(const char* s, Encoding encoding, bool* ok) : wideText(decoded(s, encoding, ok)) {}

IString::IString(const CString& s, Encoding encoding, bool* ok)
    : wideText(decoded(s.asChar(), encoding, ok)) {}

IString::IString(char c, Encoding encoding, bool* ok) : IString(1U, c, encoding, ok) {}

IString::IString(unsigned int count, char c, Encoding encoding, bool* ok) {
    report(ok, false);  // should there be no memory for the text
    wideText = decoded(std::string(count, c).c_str(), encoding, ok);
}

// ---- Encoding ----

// The cheap cases stay out of encode(), whose buffer on the stack costs three times what they do.
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
    const unsigned int needed =
        wideText.size() > UINT32_MAX ? 0 : fromWide(encoding, wideText.data(), length(), nullptr, 0, nullptr);
    if (needed == 0) {
        multibyteCache.clear();
        cacheEncoding = kNoEncoding;
        return;
    }
    bool isConverted = false;
    const auto convert = [&](char* destination, unsigned int capacity) {
        return fromWide(encoding, wideText.data(), length(), destination, capacity, &isConverted);
    };
    if (!replaceByConverted(multibyteCache, needed, kBytesOnStack, convert))
        return;
    cacheEncoding = isConverted ? encoding : kNoEncoding;
    report(ok, isConverted);
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
    report(ok, false);  // should memory run out
    convertToMultibyte(encoding);
    const std::size_t size = multibyteCache.size();
    std::unique_ptr<char, Free> copy(static_cast<char*>(std::malloc(size + 1)));
    convertToMultibyte(encoding, ok);
    if (copy) {
        // A conversion that failed has run again, and could have yielded another length.
        const std::size_t length = std::min(multibyteCache.size(), size);
        std::memcpy(copy.get(), multibyteCache.data(), length);
        copy.get()[length] = '\0';
    }
    return copy.release();
}

CString IString::convertToCString() const {
    return CString(asMultibyte(kMultibyte));
}

}  // namespace qzString
