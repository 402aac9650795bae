// IString: a wide string with value semantics that converts from and to multibyte text, and its free
// functions.
//
// The value is a sequence of `wchar_t` with an explicit length; a NUL is a character like any other. It is
// taken from and given back as multibyte text in UTF-8 or in the encoding of the current locale. The last
// multibyte form made is kept beside the text: asking for it again converts nothing. Every change of the text
// marks that cache invalid.
//
//     bool ok = false;
//     qzString::IString title("Привет, мир", qzString::kUTF8, &ok);     // ok: the text was valid UTF-8
//     title.append(L"!");
//     std::puts(title.asUTF8());                                         // converts
//     std::fwrite(title.asUTF8(), 1, title.asUTF8StoreSize() - 1, f);    // does not convert again
//
// Positions, counts, errors, null pointers, aliasing and borrowed pointers are as CString.h describes,
// counted in `wchar_t` elements. What differs:
// - There is no writable element access.
// - The multibyte members, though const, write the cache: an IString may be read from several threads only
//   while none of them asks for a multibyte form.
// - A `char` given where a `wchar_t` is asked for is converted by the language, not decoded: use it for ASCII
//   only.
#ifndef QZSTRING_STRING_ISTRING_H
#define QZSTRING_STRING_ISTRING_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "common/export.h"
#include "string/CString.h"

namespace qzString {

namespace detail {
struct CachedForm;
}

// The encodings of multibyte text. Any value but kUTF8 asks for that of the current locale. kNoEncoding marks
// a cache that holds nothing valid. Do not ask for it: every request would convert again.
enum Encoding : std::uint32_t { kMultibyte = 0, kUTF8 = 1, kNoEncoding = 3 };

class QZSTRING_EXPORT IString {
  public:
    static constexpr unsigned int npos = CString::npos;

    // ---- Construction and assignment from wide text ----

    IString() = default;
    IString(const wchar_t* s);  // NUL-terminated
    // Exactly `count` characters, NULs included. A null `s` gives an empty string whatever the count; a
    // negative count otherwise raises std::length_error.
    IString(const wchar_t* s, int count);
    // Wide text has no encoding, and that is no count.
    template <class Wide, class = std::enable_if_t<std::is_convertible_v<const Wide&, const wchar_t*> &&
                                                   !std::is_null_pointer_v<Wide>>>
    IString(const Wide& s, Encoding encoding) = delete;
    explicit IString(wchar_t c);
    IString(unsigned int count, wchar_t c);

    // Copies carry the cache along. Copy assignment succeeds or leaves the string as it was, and reuses its
    // storage. A string moved from is empty, its cache invalid; one moved to itself stays.
    IString(const IString& other) = default;
    IString(IString&& other) noexcept;
    IString& operator=(const IString& other);
    IString& operator=(IString&& other) noexcept;
    ~IString() = default;
    IString& assign(const IString& other);
    IString& assign(const wchar_t* s);

    // ---- Construction and assignment from multibyte text ----

    // The text decoded, up to its first NUL. Text that is not well-formed in the encoding gives an empty
    // string: never part of it, never the old value. `*ok`, where given, says whether the text converted
    // (empty text and a null pointer do); it is false where std::bad_alloc is raised. After assign the cache
    // is empty and invalid. The text may be what asMultibyte() returned.
    IString(const char* s, Encoding encoding, bool* ok = nullptr);
    IString(const CString& s, Encoding encoding, bool* ok = nullptr);
    IString(char c, Encoding encoding, bool* ok = nullptr);
    IString(unsigned int count, char c, Encoding encoding, bool* ok = nullptr);
    IString& assign(const char* s, Encoding encoding, bool* ok = nullptr);
    IString& assign(const CString& s, Encoding encoding, bool* ok = nullptr);
    // As assign, but text that does not convert leaves the string and its cache as they were. `s` is not
    // null. Where it is the string's own cached text, whole, the cache stays and is valid for `encoding`.
    void convertFromMultibyte(const char* s, Encoding encoding, bool* ok = nullptr);

    // ---- Multibyte text, through the cache ----

    // Makes the cache hold the text, NULs included, in the encoding. Converts only where the cache is not
    // valid for it already: a change of the locale does not make it invalid. `*ok` says whether the text
    // could be encoded whole; a failure is not cached.
    void convertToMultibyte(Encoding encoding, bool* ok = nullptr) const;
    // The cached form, NUL-terminated and never null; empty where the text could not be encoded. Valid
    // until the string changes or another encoding is asked for; asking again for the same one returns the
    // same pointer.
    const char* asMultibyte(Encoding encoding, bool* ok = nullptr) const QZSTRING_LIFETIMEBOUND;
    const char* asUTF8(bool* ok = nullptr) const QZSTRING_LIFETIMEBOUND;
    // Bytes needed to store that form with its terminator; 1 after a failure.
    unsigned int asMultibyteStoreSize(Encoding encoding) const;
    unsigned int asUTF8StoreSize() const;
    // A copy of that form and its terminator in memory from malloc, which the caller releases with free. A
    // null pointer when malloc has no room for the copy, whatever `*ok` says of the form; std::bad_alloc
    // when the conversion has none.
    [[nodiscard]] char* copyAsMultibyte(Encoding encoding, bool* ok = nullptr) const;
    // The locale's form up to its first NUL.
    [[nodiscard]] CString convertToCString() const;

    // ---- Length and capacity: as CString; reserve leaves the cache as it is ----

    [[nodiscard]] unsigned int length() const noexcept { return static_cast<unsigned int>(wideText.size()); }
    [[nodiscard]] unsigned int capacity() const noexcept {
        return static_cast<unsigned int>(wideText.capacity());
    }
    unsigned int reserve(unsigned int n);

    // ---- Element access: unchecked; reading at the length yields the terminating NUL ----

    [[nodiscard]] wchar_t at(unsigned int pos) const { return wideText[pos]; }
    [[nodiscard]] wchar_t operator[](unsigned int pos) const { return wideText[pos]; }

    // ---- Borrowed text and heap copies ----

    [[nodiscard]] const wchar_t* asWChar() const noexcept QZSTRING_LIFETIMEBOUND { return wideText.c_str(); }
    // length() + 1 wide characters in memory from malloc; a null pointer when malloc has no room.
    [[nodiscard]] wchar_t* copyAsWChar() const;

    // ---- Exchange and bounds checks: as CString ----

    // Exchanges the texts in constant time; both caches become invalid.
    void swap(IString& other) noexcept;
    [[nodiscard]] bool doBoundsCheck(unsigned int pos) const noexcept { return pos < length(); }
    [[nodiscard]] bool doBoundsCheck(unsigned int pos, unsigned int count) const noexcept;

    // ---- Editing: as CString; the cache becomes invalid even where no character changed, but for erase and
    // remove on an empty string ----

    IString& append(const IString& x);
    IString& append(const wchar_t* x);
    IString& append(wchar_t x) {
        wideText.push_back(x);
        return changed();
    }
    IString& prepend(const IString& x);
    IString& prepend(const wchar_t* x);
    IString& prepend(wchar_t x);
    IString& insert(unsigned int pos, const IString& x);
    IString& insert(unsigned int pos, const wchar_t* x);
    IString& insert(unsigned int pos, wchar_t x);
    void erase(unsigned int pos, unsigned int count = npos);
    IString& remove(unsigned int pos, unsigned int count = npos);
    IString& replace(unsigned int pos, unsigned int count, const IString& x);
    IString& replace(unsigned int pos, unsigned int count, const wchar_t* x);
    IString& replace(unsigned int pos, unsigned int count, wchar_t x);
    // Unlike CString's, the result ends before the first NUL of the range. `out` may be this string.
    [[nodiscard]] IString substr(unsigned int pos, unsigned int count = npos) const;
    void substr(IString& out, unsigned int pos, unsigned int count = npos) const;

    // ---- Replacement by content: where nothing is found, text and cache stay as they are ----

    // Every occurrence of `pattern`, from left to right and without overlap, or the first one only; inserted
    // text is not searched again. Linear in the text. Where the text grows, replacing every occurrence takes
    // up to twelve bytes each for their places, besides new storage where there is no room. Should memory
    // run out, they are replaced one at a time, what is behind moving each time; if even that fails, the
    // replacements made so far stay. Either argument may be this string.
    IString& replace(const IString& pattern, const IString& replacement);
    IString& replaceFirst(const IString& pattern, const IString& replacement);
    // Every occurrence of a character; the cache becomes invalid even where both are equal. Narrow ones are
    // decoded in the locale first; where either is not a whole character there, nothing changes. (Beyond
    // ASCII, a byte that the next one may modify does not count as a character.)
    IString& replace(wchar_t from, wchar_t to) noexcept;
    IString& replace(char from, char to);

    // ---- Trimming and case: as CString. White space is Unicode's White_Space, case its simple case mapping,
    // in every locale. Trimming that removes nothing keeps the cache valid; case mapping never does ----

    IString& strip(wchar_t c) noexcept;
    IString& rstrip(wchar_t c) noexcept;
    IString& stripSpaces() noexcept;
    IString& rstripSpaces() noexcept;
    void toLowerCase() noexcept;
    void toUpperCase() noexcept;

    // ---- Searching: as CString; the cache is not touched ----

    [[nodiscard]] unsigned int find(const IString& needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int find(const wchar_t* needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int find(wchar_t needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int rfind(const IString& needle, unsigned int pos = npos) const noexcept;
    [[nodiscard]] unsigned int rfind(const wchar_t* needle, unsigned int pos = npos) const noexcept;
    [[nodiscard]] unsigned int rfind(wchar_t needle, unsigned int pos = npos) const noexcept;
    [[nodiscard]] unsigned int find(bool (*accepts)(wchar_t), unsigned int pos = 0) const;
    [[nodiscard]] unsigned int rfind(bool (*accepts)(wchar_t), unsigned int pos = npos) const;
    // The nearest character that is a member of `set`, at `pos` or later (findAny), at `pos` or earlier
    // (rfindAny, from the last character where `pos` is beyond it). npos when there is none. Linear in the
    // text where the set is below U+0100; else at most in the text times the set.
    [[nodiscard]] unsigned int findAny(const IString& set, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int rfindAny(const IString& set, unsigned int pos = npos) const noexcept;
    [[nodiscard]] bool isAscii() const noexcept;

    // ---- Comparison: as CString, by `wchar_t` values as wmemcmp ranks them; caches play no part ----

    [[nodiscard]] int compare(const IString& other) const noexcept;
    [[nodiscard]] int compareNoCase(const IString& other) const noexcept;
    [[nodiscard]] int collate(const IString& other) const;
    [[nodiscard]] int collateNoCase(const IString& other) const;

    // ---- Formatting: as CString. Narrow output is decoded in the locale: where that fails the string
    // becomes empty and the result is 0. In a wide format `%s` takes narrow text in the locale's encoding and
    // `%ls` wide text; the compiler cannot check the arguments ----

    unsigned int format(const wchar_t* format, ...);
    unsigned int vformat(const wchar_t* format, va_list arguments);
    unsigned int format(const IString* format, ...);  // not null
    unsigned int format(unsigned int sizeHint, const wchar_t* format, ...);
    unsigned int format(unsigned int sizeHint, const IString* format, ...);  // not null
    unsigned int format(const char* format, ...) QZSTRING_PRINTF(2, 3);
    unsigned int vformat(const char* format, va_list arguments) QZSTRING_PRINTF(2, 0);
    unsigned int format(unsigned int sizeHint, const char* format, ...) QZSTRING_PRINTF(3, 4);

  private:
    friend struct detail::CachedForm;  // for output to streams, which leaves the cache alone

    IString& changed() noexcept {
        cacheEncoding = kNoEncoding;
        return *this;
    }
    [[nodiscard]] bool isCachedIn(Encoding encoding) const noexcept {
        return cacheEncoding == encoding && encoding != kNoEncoding;
    }
    IString(const std::wstring& whole, std::size_t pos, std::size_t count) : wideText(whole, pos, count) {}
    bool decode(const char* s, std::size_t length, Encoding encoding, bool* ok);
    void encode(Encoding encoding, bool* ok) const;
    unsigned int formatText(const wchar_t* format, va_list arguments, unsigned int sizeHint);
    unsigned int formatText(const char* format, va_list arguments, unsigned int sizeHint)
        QZSTRING_PRINTF(2, 0);

    std::wstring wideText;
    // The multibyte form of wideText in cacheEncoding; means nothing while that is kNoEncoding.
    mutable std::string multibyteCache;
    mutable Encoding cacheEncoding = kNoEncoding;
};

[[nodiscard]] QZSTRING_EXPORT IString plus(const IString& a, const IString& b);
QZSTRING_EXPORT IString& plusEqual(IString& a, const IString& b);

inline void swap(IString& a, IString& b) noexcept {
    a.swap(b);
}

// The relations of a.compare(b) with 0.
[[nodiscard]] QZSTRING_EXPORT bool equal(const IString& a, const IString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool notEqual(const IString& a, const IString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool less(const IString& a, const IString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool greater(const IString& a, const IString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool lessEqual(const IString& a, const IString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool greaterEqual(const IString& a, const IString& b) noexcept;

// Equal strings hash alike, whatever their caches; the value is that of qz::hashfunction over the wide text.
[[nodiscard]] QZSTRING_EXPORT std::uint64_t hashfunction(const IString& s) noexcept;

}  // namespace qzString

#endif
