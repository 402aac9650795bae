// CString: a narrow string with value semantics, and its free functions.
//
// The value is a sequence of `char` with an explicit length; a NUL is a character like any other. The text is
// always followed by a terminating NUL, so asChar() can be handed to any C interface.
//
//     qzString::CString name("report");
//     name.append('-').append("2026");
//     name.format("%s.%03d", "page", 7);          // name is "page.007"
//     if (name.find("page") == 0) std::puts(name.asChar());
//
// What holds for every member, unless its comment says otherwise:
// - Positions, counts and lengths are `unsigned int` and count characters. `npos` as a count means up to the
//   end, as a result not found. A count that reaches past the end is cut there. Texts of 2^32 - 1 characters
//   and more are not supported, and not checked for.
// - A position equal to the length is valid where text is edited or extracted; a greater one raises
//   std::out_of_range. Nothing else is checked: at() and operator[] trust their position.
// - A null `const char*` stands for empty text. An argument may be, or point into, the string that is edited.
// - std::length_error and std::bad_alloc pass through; the string is then as it was.
// - Borrowed pointers and references are valid until the string is next changed, given more room (reserve) or
//   destroyed.
// - A member that returns a reference to a string returns the string itself.
// - Const members may run on one object from several threads at once.
#ifndef QZSTRING_STRING_CSTRING_H
#define QZSTRING_STRING_CSTRING_H

#include <cstdarg>
#include <cstdint>
#include <string>

#include "common/export.h"

namespace qzString {

enum Encoding : std::uint32_t;  // string/IString.h

class QZSTRING_EXPORT CString {
  public:
    static constexpr unsigned int npos = 0xFFFFFFFFU;

    // ---- Construction and assignment ----

    CString() = default;
    CString(const char* s);  // NUL-terminated
    // Exactly `count` characters, NULs included. A null `s` gives an empty string whatever the count; a
    // negative count otherwise raises std::length_error.
    CString(const char* s, int count);
    CString(const char* s, Encoding encoding) = delete;  // narrow text is not converted, and it is no count
    explicit CString(char c);
    CString(unsigned int count, char c);

    // Copies and moves are the compiler's; a string moved from is empty.
    CString& assign(const CString& other);
    CString& assign(const char* s);

    // ---- Length and capacity ----

    [[nodiscard]] unsigned int length() const noexcept { return static_cast<unsigned int>(text.size()); }
    [[nodiscard]] unsigned int capacity() const noexcept {
        return static_cast<unsigned int>(text.capacity());
    }
    // Makes room for at least `n` characters and returns the new capacity.
    unsigned int reserve(unsigned int n);

    // ---- Element access: unchecked; reading at the length yields the terminating NUL ----

    [[nodiscard]] char& at(unsigned int pos) QZSTRING_LIFETIMEBOUND { return text[pos]; }
    [[nodiscard]] char at(unsigned int pos) const { return text[pos]; }
    [[nodiscard]] char& operator[](unsigned int pos) QZSTRING_LIFETIMEBOUND { return text[pos]; }
    [[nodiscard]] char operator[](unsigned int pos) const { return text[pos]; }

    // ---- Borrowed text and heap copies ----

    // The string's own characters, NUL-terminated. Narrow text is its own multibyte form: nothing is
    // converted.
    [[nodiscard]] const char* asChar() const noexcept QZSTRING_LIFETIMEBOUND { return text.c_str(); }
    [[nodiscard]] const char* asMultibyte() const noexcept QZSTRING_LIFETIMEBOUND { return text.c_str(); }
    // Bytes needed to store the text with its terminator: length() + 1.
    [[nodiscard]] unsigned int asCharStoreSize() const noexcept { return length() + 1U; }
    [[nodiscard]] unsigned int asMultibyteStoreSize() const noexcept { return asCharStoreSize(); }
    // A copy of the whole text and its terminator in memory from malloc, which the caller releases with free.
    // A null pointer when malloc has no room.
    [[nodiscard]] char* copyAsChar() const;
    [[nodiscard]] char* copyAsMultibyte() const { return copyAsChar(); }

    // ---- Exchange and bounds checks ----

    // Constant time; no character is copied, nothing is allocated.
    void swap(CString& other) noexcept { text.swap(other.text); }
    // True when `pos` is below the length.
    [[nodiscard]] bool doBoundsCheck(unsigned int pos) const noexcept { return pos < length(); }
    // True when `pos` is below the length and `count` is npos or at most the whole length (not the rest after
    // `pos`).
    [[nodiscard]] bool doBoundsCheck(unsigned int pos, unsigned int count) const noexcept;

    // ---- Editing ----

    CString& append(const CString& x);
    CString& append(const char* x);
    CString& append(char x) {
        text.push_back(x);
        return *this;
    }
    CString& prepend(const CString& x);
    CString& prepend(const char* x);
    CString& prepend(char x);
    // Inserts before the character at `pos`. The position is checked even when `x` is empty.
    CString& insert(unsigned int pos, const CString& x);
    CString& insert(unsigned int pos, const char* x);
    CString& insert(unsigned int pos, char x);
    // Removes up to `count` characters from `pos` on. On an empty string nothing is done, whatever the
    // position.
    void erase(unsigned int pos, unsigned int count = npos);
    CString& remove(unsigned int pos, unsigned int count = npos);
    // Replaces up to `count` characters from `pos` on; a count of 0 inserts, an empty `x` removes.
    CString& replace(unsigned int pos, unsigned int count, const CString& x);
    CString& replace(unsigned int pos, unsigned int count, const char* x);
    CString& replace(unsigned int pos, unsigned int count, char x);
    // Up to `count` characters from `pos` on, NULs included.
    [[nodiscard]] CString substr(unsigned int pos, unsigned int count = npos) const;

    // ---- Trimming and case: in place, no allocation, one pass ----

    // Each removes one run: of `c`, or of the six ASCII white-space characters, at the front (strip,
    // stripSpaces) or at the end (rstrip, rstripSpaces).
    CString& strip(char c) noexcept;
    CString& rstrip(char c) noexcept;
    CString& stripSpaces() noexcept;
    CString& rstripSpaces() noexcept;
    // ASCII letters only, in every locale.
    void toLowerCase() noexcept;
    void toUpperCase() noexcept;

    // ---- Searching ----

    // find: the lowest match that begins at `pos` or later. rfind: the highest that begins at `pos` or
    // earlier. npos when there is none. An empty needle (or a null pointer) is never found. No search
    // allocates; the time is linear in the text, whatever text and needle.
    [[nodiscard]] unsigned int find(const CString& needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int find(const char* needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int find(char needle, unsigned int pos = 0) const noexcept;
    [[nodiscard]] unsigned int rfind(const CString& needle, unsigned int pos = npos) const noexcept;
    [[nodiscard]] unsigned int rfind(const char* needle, unsigned int pos = npos) const noexcept;
    [[nodiscard]] unsigned int rfind(char needle, unsigned int pos = npos) const noexcept;
    // The nearest character that `accepts`, which is called once for each character examined, in the order of
    // the search, and never after its first true. It is not null, and what it throws passes through. rfind
    // from a position at or beyond the length starts at the last character.
    [[nodiscard]] unsigned int find(bool (*accepts)(char), unsigned int pos = 0) const;
    [[nodiscard]] unsigned int rfind(bool (*accepts)(char), unsigned int pos = npos) const;
    // True when every character is below 0x80.
    [[nodiscard]] bool isAscii() const noexcept;

    // ---- Comparison: negative, 0 or positive as this string ranks before, with or after the other ----

    // By unsigned bytes as memcmp ranks them; where one text begins the other exactly -1 or 1, the shorter
    // first.
    [[nodiscard]] int compare(const CString& other) const noexcept;
    [[nodiscard]] int compare(const char* other) const noexcept;
    // As compare() on lower-cased copies, without making any. (Where the C library's memcmp lets the size
    // of its value depend on more than the difference, as on AArch64 and on x86-64 without AVX2, only the
    // sign is sure to be the same.)
    [[nodiscard]] int compareNoCase(const CString& other) const noexcept;
    // In the order of the current locale, up to the first NUL of either text. collateNoCase ranks lower-cased
    // copies and may raise std::bad_alloc.
    [[nodiscard]] int collate(const CString& other) const;
    [[nodiscard]] int collateNoCase(const CString& other) const;

    // ---- Formatting ----

    // Replaces the text by printf-style output and returns the new length. Output of up to 2^31 - 2
    // characters is formatted whole; it ends at its first NUL. The string is unchanged and the result is npos
    // where nothing can be formatted: no format, or one that the C library refuses; a character that cannot
    // be converted; output that is empty or longer. The format may be this string's own text; vformat leaves
    // the caller's list where it was. `sizeHint`: characters to make room for at first, the terminator
    // included; 256 where none is given.
    unsigned int format(const char* format, ...) QZSTRING_PRINTF(2, 3);
    unsigned int vformat(const char* format, va_list arguments) QZSTRING_PRINTF(2, 0);
    unsigned int format(const CString* format, ...);  // not null
    unsigned int format(unsigned int sizeHint, const char* format, ...) QZSTRING_PRINTF(3, 4);
    unsigned int format(unsigned int sizeHint, const CString* format, ...);  // not null

  private:
    CString(const std::string& whole, std::size_t pos, std::size_t count) : text(whole, pos, count) {}
    unsigned int formatText(const char* format, va_list arguments, unsigned int sizeHint)
        QZSTRING_PRINTF(2, 0);

    std::string text;
};

// a's text followed by b's; plusEqual appends b to a and returns a.
[[nodiscard]] QZSTRING_EXPORT CString plus(const CString& a, const CString& b);
QZSTRING_EXPORT CString& plusEqual(CString& a, const CString& b);

inline void swap(CString& a, CString& b) noexcept {
    a.swap(b);
}

// The relations of a.compare(b) with 0.
[[nodiscard]] QZSTRING_EXPORT bool equal(const CString& a, const CString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool equal(const CString& a, const char* b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool notEqual(const CString& a, const CString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool less(const CString& a, const CString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool greater(const CString& a, const CString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool lessEqual(const CString& a, const CString& b) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool greaterEqual(const CString& a, const CString& b) noexcept;

// Equal strings hash alike; the value is that of qz::hashfunction over the text's bytes.
[[nodiscard]] QZSTRING_EXPORT std::uint64_t hashfunction(const CString& s) noexcept;

}  // namespace qzString

#endif
