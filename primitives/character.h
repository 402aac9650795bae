// Character classes and case mapping: one character a call, or a run of them.
//
// None depends on the locale. For `char` they know ASCII only: a byte from 0x80 up is no white space and has
// no case. For `wchar_t` they follow the Unicode Character Database: the property White_Space and the simple
// case mappings (one character to one character), of Unicode 18.0.
//
// The one-character forms answer for ASCII inline, so that loops over them compile to vector code. The run
// forms do the same to `count` characters by the vector kernel that fits the processor; ASCII and scripts
// without case are the fastest.
#ifndef QZSTRING_PRIMITIVES_CHARACTER_H
#define QZSTRING_PRIMITIVES_CHARACTER_H

#include <cstddef>
#include <type_traits>

#include "common/export.h"

namespace qzString {

namespace detail {

// The rules beyond ASCII, from the tables.
[[nodiscard]] QZSTRING_EXPORT bool isWideSpace(wchar_t c) noexcept;
[[nodiscard]] QZSTRING_EXPORT wchar_t toWideLower(wchar_t c) noexcept;
[[nodiscard]] QZSTRING_EXPORT wchar_t toWideUpper(wchar_t c) noexcept;

// The ASCII rules, once for both character types. Unsigned differences fold each range test into one
// comparison.
template <class Char>
constexpr bool isAsciiCharacter(Char c) noexcept {
    return static_cast<std::make_unsigned_t<Char>>(c) < 0x80;
}

template <class Char>
constexpr bool isAsciiSpace(Char c) noexcept {
    using Unsigned = std::make_unsigned_t<Char>;
    return c == ' ' || static_cast<Unsigned>(static_cast<Unsigned>(c) - '\t') < 5;
}

template <class Char, char kFirst>
constexpr Char flipAsciiCase(Char c) noexcept {
    using Unsigned = std::make_unsigned_t<Char>;
    const auto unsignedC = static_cast<Unsigned>(c);
    const bool isLetter = static_cast<Unsigned>(unsignedC - kFirst) < 26;
    return static_cast<Char>(unsignedC ^ static_cast<Unsigned>(isLetter ? 0x20 : 0));
}

}  // namespace detail

// True below 0x80.
[[nodiscard]] constexpr bool isAscii(char c) noexcept {
    return detail::isAsciiCharacter(c);
}
[[nodiscard]] constexpr bool isAscii(wchar_t c) noexcept {
    return detail::isAsciiCharacter(c);
}

// White space: tab, line feed, vertical tab, form feed, carriage return and space; for `wchar_t` also those
// beyond ASCII (U+0085, U+00A0, U+1680, U+2000 to U+200A, U+2028, U+2029, U+202F, U+205F, U+3000).
[[nodiscard]] constexpr bool isSpace(char c) noexcept {
    return detail::isAsciiSpace(c);
}
[[nodiscard]] inline bool isSpace(wchar_t c) noexcept {
    return isAscii(c) ? detail::isAsciiSpace(c) : detail::isWideSpace(c);
}

// The lower-case or upper-case form; the character itself where it has none.
[[nodiscard]] constexpr char toLower(char c) noexcept {
    return detail::flipAsciiCase<char, 'A'>(c);
}
[[nodiscard]] constexpr char toUpper(char c) noexcept {
    return detail::flipAsciiCase<char, 'a'>(c);
}
[[nodiscard]] inline wchar_t toLower(wchar_t c) noexcept {
    return isAscii(c) ? detail::flipAsciiCase<wchar_t, 'A'>(c) : detail::toWideLower(c);
}
[[nodiscard]] inline wchar_t toUpper(wchar_t c) noexcept {
    return isAscii(c) ? detail::flipAsciiCase<wchar_t, 'a'>(c) : detail::toWideUpper(c);
}

// True when all `count` characters are ASCII; stops soon behind the first that is not.
[[nodiscard]] QZSTRING_EXPORT bool isAscii(const char* text, std::size_t count) noexcept;
[[nodiscard]] QZSTRING_EXPORT bool isAscii(const wchar_t* text, std::size_t count) noexcept;

// Maps `count` characters in place.
QZSTRING_EXPORT void toLower(char* text, std::size_t count) noexcept;
QZSTRING_EXPORT void toLower(wchar_t* text, std::size_t count) noexcept;
QZSTRING_EXPORT void toUpper(char* text, std::size_t count) noexcept;
QZSTRING_EXPORT void toUpper(wchar_t* text, std::size_t count) noexcept;

// The order of the lower-case forms of two texts: at the first place where they differ, as `memcmp` or
// `wmemcmp` value that difference; where none does, -1, 0 or 1 by the counts.
[[nodiscard]] QZSTRING_EXPORT int compareNoCase(const char* a, std::size_t aCount, const char* b,
                                                std::size_t bCount) noexcept;
[[nodiscard]] QZSTRING_EXPORT int compareNoCase(const wchar_t* a, std::size_t aCount, const wchar_t* b,
                                                std::size_t bCount) noexcept;

}  // namespace qzString

#endif
