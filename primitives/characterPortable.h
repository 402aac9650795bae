// The run forms of the character primitives as plain loops: the portable kernel's, and what the others do
// with text for which they have nothing better. They are left to the compiler to vectorise. Internal, not
// installed.
//
// The loops work a block at a time, with one decision per block, so that the inner loops have a fixed length
// and no exit: that is what vectorises. What is left after the last whole block goes character by character.
#ifndef QZSTRING_PRIMITIVES_CHARACTERPORTABLE_H
#define QZSTRING_PRIMITIVES_CHARACTERPORTABLE_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "primitives/character.h"
#include "primitives/characterTables.h"
#include "primitives/inline.h"

namespace qzString::portable {

template <class Char>
inline constexpr std::size_t kBlock = 128 / sizeof(Char);

struct Lower {
    static constexpr char kFirstLetter = 'A';
    static constexpr char32_t kLimit = tables::kLowerLimit;
    static constexpr const std::uint16_t* kOffsets = tables::kLowerOffsets;
    static constexpr const std::uint16_t* kDeltas = tables::kLowerDeltas;
    static constexpr const std::uint32_t* kCased = tables::kLowerCased;
};

struct Upper {
    static constexpr char kFirstLetter = 'a';
    static constexpr char32_t kLimit = tables::kUpperLimit;
    static constexpr const std::uint16_t* kOffsets = tables::kUpperOffsets;
    static constexpr const std::uint16_t* kDeltas = tables::kUpperDeltas;
    static constexpr const std::uint32_t* kCased = tables::kUpperCased;
};

template <class Case>
QZSTRING_INLINE wchar_t mapWide(wchar_t c) {
    const auto u = static_cast<char32_t>(c);
    if (u >= Case::kLimit)
        return c;
    const unsigned inBlock = u & ((1U << tables::kBlockBits) - 1);
    const std::uint16_t delta = Case::kDeltas[Case::kOffsets[u >> tables::kBlockBits] + inBlock];
    return static_cast<wchar_t>((u & ~char32_t{0xFFFF}) | ((u + delta) & 0xFFFF));
}

// Ranges without case in which much text is written, the first character and the one behind the last: Hebrew
// to Myanmar, CJK to Yi, Hangul with what follows it.
inline constexpr char32_t kCaseless[][2] = {{0x590, 0x10A0}, {0x2E80, 0xA640}, {0xABC0, 0xFF21}};

// No branches, which lets loops of it be vectorised.
template <class Case>
QZSTRING_INLINE bool mayHaveCase(wchar_t c) {
    const auto u = static_cast<std::uint32_t>(c);
    unsigned may = static_cast<unsigned>(u >= 0x80) & static_cast<unsigned>(u < Case::kLimit);
    for (const auto& run : kCaseless)
        may &= static_cast<unsigned>(u - run[0] >= run[1] - run[0]);
    return may != 0;
}

template <class Case>
QZSTRING_INLINE bool mayHaveCaseBlock(const wchar_t* text) {
    unsigned any = 0;
    for (std::size_t i = 0; i < kBlock<wchar_t>; ++i)
        any |= static_cast<unsigned>(mayHaveCase<Case>(text[i]));
    return any != 0;
}

template <class Case, class Char>
QZSTRING_INLINE Char mapAscii(Char c) {
    return detail::flipAsciiCase<Char, Case::kFirstLetter>(c);
}

template <class Char>
QZSTRING_INLINE bool isAsciiBlock(const Char* text) {
    std::make_unsigned_t<Char> all = 0;
    for (std::size_t i = 0; i < kBlock<Char>; ++i)
        all |= static_cast<std::make_unsigned_t<Char>>(text[i]);
    return all < 0x80;
}

template <class Char>
QZSTRING_INLINE bool isAsciiRun(const Char* text, std::size_t count) noexcept {
    std::size_t at = 0;
    for (; count - at >= kBlock<Char>; at += kBlock<Char>) {
        if (!isAsciiBlock(text + at))
            return false;
    }
    std::make_unsigned_t<Char> all = 0;
    for (; at < count; ++at)
        all |= static_cast<std::make_unsigned_t<Char>>(text[at]);
    return all < 0x80;
}

template <class Case>
QZSTRING_INLINE void mapRun(char* text, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i)
        text[i] = mapAscii<Case>(text[i]);
}

// One by one: the vectors of look-ups (gathers) that compilers would make of this take longer.
template <class Case>
QZSTRING_INLINE void mapEach(wchar_t* text, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i) {
        text[i] = mapWide<Case>(text[i]);
        QZSTRING_ONE_BY_ONE;
    }
}

// Eight at a time take half as long as one loop for all.
inline constexpr std::size_t kUnrolled = 8;

// Maps whole blocks; returns the number of characters mapped.
template <class Case>
QZSTRING_INLINE std::size_t mapBlocks(wchar_t* text, std::size_t count) noexcept {
    constexpr std::size_t kLength = kBlock<wchar_t>;
    std::size_t at = 0;
    for (; count - at >= kLength; at += kLength) {
        // The first character tells of most blocks which question is worth asking of all.
        const bool isPlain = isAscii(text[at])             ? isAsciiBlock(text + at)
                             : mayHaveCase<Case>(text[at]) ? false
                                                           : !mayHaveCaseBlock<Case>(text + at);
        if (isPlain) {
            for (std::size_t i = 0; i < kLength; ++i)
                text[at + i] = mapAscii<Case>(text[at + i]);
        } else {
            for (std::size_t i = 0; i < kLength; i += kUnrolled)
                mapEach<Case>(text + at + i, kUnrolled);
        }
    }
    return at;
}

template <class Case>
QZSTRING_INLINE void mapRun(wchar_t* text, std::size_t count) noexcept {
    const std::size_t at = mapBlocks<Case>(text, count);
    mapEach<Case>(text + at, count - at);
}

QZSTRING_INLINE char foldCharacter(char c) {
    return mapAscii<Lower>(c);
}
QZSTRING_INLINE wchar_t foldCharacter(wchar_t c) {
    return mapWide<Lower>(c);
}

// The order of two characters that differ in more than case, out of line.
int compareFolded(const char* a, const char* b) noexcept;
int compareFolded(const wchar_t* a, const wchar_t* b) noexcept;

// The order of texts of which the shorter one ends first.
QZSTRING_INLINE int compareLengths(std::size_t a, std::size_t b) {
    return static_cast<int>(a > b) - static_cast<int>(a < b);
}

// Two texts that fill the first cache together are fetched so many bytes ahead where they are compared: left
// to the processor, that takes a quarter to a half longer.
inline constexpr std::size_t kBeyondFirstCache = 24576;
inline constexpr std::size_t kPrefetched = 1024;

// The first of `count` positions at which the lower-case forms differ; `count` where none does.
template <class Char>
QZSTRING_INLINE std::size_t findCaseDifference(const Char* a, const Char* b, std::size_t count) {
    using Unsigned = std::make_unsigned_t<Char>;
    std::size_t at = 0;
    for (; count - at >= kBlock<Char>; at += kBlock<Char>) {
        // Both folded as if ASCII; beyond ASCII that changes nothing, so that equal results are equal in
        // truth.
        Unsigned difference = 0;
        for (std::size_t i = at; i < at + kBlock<Char>; ++i)
            difference |= static_cast<Unsigned>(mapAscii<Lower>(a[i]) ^ mapAscii<Lower>(b[i]));
        if (difference == 0)
            continue;
        for (std::size_t i = at; i < at + kBlock<Char>; ++i) {
            if (foldCharacter(a[i]) != foldCharacter(b[i]))
                return i;
        }
    }
    for (; at < count; ++at) {
        if (foldCharacter(a[at]) != foldCharacter(b[at]))
            return at;
    }
    return count;
}

template <class Char>
QZSTRING_INLINE int compareNoCaseRun(const Char* a, std::size_t aCount, const Char* b,
                                     std::size_t bCount) noexcept {
    const std::size_t common = aCount < bCount ? aCount : bCount;
    const std::size_t at = findCaseDifference(a, b, common);
    return at == common ? compareLengths(aCount, bCount) : compareFolded(a + at, b + at);
}

}  // namespace qzString::portable

#endif
