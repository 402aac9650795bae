// The run forms of the character primitives over any vector: what AVX2 and NEON share, by a Platform of
// characterVectors.h. Internal, not installed. characterComparisonBlocks.h has the comparison.
//
// A text goes vector by vector, the last one over some of the one before; wide text that is mapped has its
// last characters one by one. Where characterPortable.h's large blocks do not find a shorter way, the
// characters of a vector of wide text that has any beyond ASCII are mapped by the tables.
//
// QZSTRING_CHARACTER_RUNS(Platform) are the entries of its row of kernels.h.
#ifndef QZSTRING_PRIMITIVES_CHARACTERBLOCKS_H
#define QZSTRING_PRIMITIVES_CHARACTERBLOCKS_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "primitives/characterComparisonBlocks.h"
#include "primitives/characterPortable.h"
#include "primitives/characterVectors.h"

namespace qzString::kernels::characters {

// ---- ASCII ----

template <class Platform, class Char, std::size_t kBytes>
QZSTRING_KERNEL bool isAsciiVector(Vector<Char, kBytes> characters) {
    return !Platform::any(characters & static_cast<std::make_unsigned_t<Char>>(~0x7F));
}

template <class Platform, class Char>
QZSTRING_KERNEL bool isAsciiShort(const char* text, std::size_t bytes) {
    using Half = Vector<Char, 16>;
    if (bytes >= 16)
        return isAsciiVector<Platform, Char, 16>(load<Half>(text) | load<Half>(text + bytes - 16));
    if (bytes >= 8)
        return isAsciiVector<Platform, Char, 16>(loadFirstAndLast<Half, std::uint64_t>(text, bytes));
    if (bytes >= 4)
        return isAsciiVector<Platform, Char, 16>(loadFirstAndLast<Half, std::uint32_t>(text, bytes));
    return bytes == 0 || ((text[0] | text[bytes / 2] | text[bytes - 1]) & 0x80) == 0;
}

// A vector at least.
template <class Platform, class Char>
QZSTRING_KERNEL bool isAsciiLong(const char* text, std::size_t bytes) {
    constexpr std::size_t kBytes = Platform::kBytes;
    using Whole = Vector<Char, kBytes>;
    std::size_t at = 0;
    for (; bytes - at >= 4 * kBytes; at += 4 * kBytes) {
        const Whole two = load<Whole>(text + at) | load<Whole>(text + at + kBytes);
        const Whole four = two | load<Whole>(text + at + 2 * kBytes) | load<Whole>(text + at + 3 * kBytes);
        if (!isAsciiVector<Platform, Char, kBytes>(four))
            return false;
    }
    auto all = load<Whole>(text + bytes - kBytes);
    for (; bytes - at > kBytes; at += kBytes)
        all |= load<Whole>(text + at);
    return isAsciiVector<Platform, Char, kBytes>(all);
}

template <class Platform, class Char>
QZSTRING_TARGET bool isAscii(const Char* text, std::size_t count) noexcept {
    const auto* const bytes = reinterpret_cast<const char*>(text);
    if (count * sizeof(Char) < Platform::kBytes)
        return isAsciiShort<Platform, Char>(bytes, count * sizeof(Char));
    const bool ascii = isAsciiLong<Platform, Char>(bytes, count * sizeof(Char));
    Platform::leave();
    return ascii;
}

// ---- Case ----

// The bits in which the mapped characters differ from these.
template <class Case, class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> changes(Vector<Char, kBytes> characters) {
    return caseBits<Char, kBytes, Case::kFirstLetter>(characters);
}

template <class Platform, class Case, class Word>
QZSTRING_KERNEL void mapEnds(char* text, std::size_t count) {
    using Half = Vector<char, 16>;
    const auto ends = loadFirstAndLast<Half, Word>(text, count);
    const Half endChanges = changes<Case, char, 16>(ends);
    if (Platform::any(endChanges))
        storeFirstAndLast<Word>(text, count, ends ^ endChanges);
}

// What needs no change is not stored: short text has the case already more often than not.
template <class Platform, class Case>
QZSTRING_KERNEL void mapShort(char* text, std::size_t count) {
    using Half = Vector<char, 16>;
    if (count >= 16) {
        const auto first = load<Half>(text);
        const auto last = load<Half>(text + count - 16);
        const Half firstChanges = changes<Case, char, 16>(first);
        const Half lastChanges = changes<Case, char, 16>(last);
        if (Platform::any(firstChanges | lastChanges)) {
            store(text, first ^ firstChanges);
            store(text + count - 16, last ^ lastChanges);
        }
    } else if (count >= 8) {
        mapEnds<Platform, Case, std::uint64_t>(text, count);
    } else if (count >= 4) {
        mapEnds<Platform, Case, std::uint32_t>(text, count);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            text[i] = portable::mapAscii<Case>(text[i]);
    }
}

// Of narrow text a vector at least. The last one is loaded before the one that it overlaps is stored, or it
// would wait for that.
template <class Platform, class Case>
QZSTRING_KERNEL void mapLong(char* text, std::size_t count) {
    constexpr std::size_t kBytes = Platform::kBytes;
    using Whole = Vector<char, kBytes>;
    char* const last = text + count - kBytes;
    const auto end = load<Whole>(last);
    for (; text < last; text += kBytes) {
        const auto bytes = load<Whole>(text);
        store(text, bytes ^ changes<Case, char, kBytes>(bytes));
    }
    const Whole endChanges = changes<Case, char, kBytes>(end);
    if (Platform::any(endChanges))
        store(last, end ^ endChanges);
}

template <class Platform, class Case>
QZSTRING_KERNEL void mapLong(wchar_t* text, std::size_t count) {
    constexpr std::size_t kLength = Platform::kBytes / sizeof(wchar_t);
    using Whole = Vector<wchar_t, Platform::kBytes>;
    std::size_t at = portable::mapBlocks<Case>(text, count);
    for (; count - at >= kLength; at += kLength) {
        const auto characters = load<Whole>(text + at);
        if (isAsciiVector<Platform, wchar_t, Platform::kBytes>(characters))
            store(text + at, characters ^ changes<Case, wchar_t, Platform::kBytes>(characters));
        else
            portable::mapEach<Case>(text + at, kLength);
    }
    portable::mapEach<Case>(text + at, count - at);
}

template <class Platform, class Case, class Char>
QZSTRING_TARGET void toCase(Char* text, std::size_t count) noexcept {
    if constexpr (sizeof(Char) == 1) {
        if (count < Platform::kBytes)
            return mapShort<Platform, Case>(text, count);
    }
    mapLong<Platform, Case>(text, count);
    Platform::leave();
}

#define QZSTRING_CHARACTER_RUNS(Platform)                                                                  \
    characters::isAscii<Platform, char>, characters::isAscii<Platform, wchar_t>,                           \
        characters::toCase<Platform, portable::Lower, char>,                                               \
        characters::toCase<Platform, portable::Upper, char>,                                               \
        characters::toCase<Platform, portable::Lower, wchar_t>,                                            \
        characters::toCase<Platform, portable::Upper, wchar_t>, characters::compareNoCase<Platform, char>, \
        characters::compareNoCase<Platform, wchar_t>

}  // namespace qzString::kernels::characters

#endif
