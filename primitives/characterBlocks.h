// The run forms of the character primitives over any vector: what AVX2 and NEON share. Internal, not
// installed; included by one source per instruction set, which defines QZSTRING_TARGET and QZSTRING_KERNEL
// and passes its Platform, below.
//
// A text goes vector by vector, the last one over some of the one before; wide text that is mapped has its last
// characters one by one. Shorter text is taken as two halves that may overlap, as two vectors of 16 bytes or as
// two words in one of them, and one to three bytes as three. Nothing outside it is read.
//
// Comparison looks for what differs beyond the case of ASCII letters, four vectors at a time until something
// does; in wide text, the characters of a vector that has any are then mapped by the tables. So are those of
// text that is mapped itself, where characterLoops.h's large blocks do not find a shorter way.
//
// Platform has kBytes, the size of its vectors (16 or 32), and as static functions, the first two of vectors of
// that size and of 16 bytes:
//   bool any(vector)               whether any bit is set
//   std::uint32_t places(vector)   a bit for every byte, of bytes that are zero or all ones
//   void leave()                   before a kernel returns
// QZSTRING_CHARACTER_RUNS(Platform) are the entries of its row of kernels.h.
#ifndef QZSTRING_PRIMITIVES_CHARACTERBLOCKS_H
#define QZSTRING_PRIMITIVES_CHARACTERBLOCKS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "primitives/characterLoops.h"

namespace qzString::kernels::characters {

// ---- Vectors: those of the compiler, of unsigned elements ----

template <class Element, std::size_t kBytes>
struct VectorOf {
    typedef Element Type __attribute__((vector_size(kBytes)));
};
template <class Char, std::size_t kBytes>
using Vector = typename VectorOf<std::make_unsigned_t<Char>, kBytes>::Type;

template <class To>
QZSTRING_KERNEL To load(const void* at) {
    To vector;
    std::memcpy(&vector, at, sizeof vector);
    return vector;
}

template <class From>
QZSTRING_KERNEL void store(void* at, From vector) {
    std::memcpy(at, &vector, sizeof vector);
}

// The first and the last word of a text of one to two of them.
template <class To, class Word>
QZSTRING_KERNEL To loadFirstAndLast(const void* text, std::size_t bytes) {
    const auto* const end = static_cast<const char*>(text) + bytes;
    const typename VectorOf<Word, sizeof(To)>::Type words = {load<Word>(text),
                                                             load<Word>(end - sizeof(Word))};
    return load<To>(&words);
}

template <class Word, class From>
QZSTRING_KERNEL void storeFirstAndLast(void* text, std::size_t bytes, From vector) {
    const auto words = load<typename VectorOf<Word, sizeof(From)>::Type>(&vector);
    store<Word>(text, words[0]);
    store<Word>(static_cast<char*>(text) + bytes - sizeof(Word), words[1]);
}

// The first, the middle and the last of one to three bytes: all of them in order, some repeated where there are
// fewer.
template <class To>
QZSTRING_KERNEL To loadThree(const void* text, std::size_t bytes) {
    const auto* const byte = static_cast<const unsigned char*>(text);
    const typename VectorOf<std::uint32_t, sizeof(To)>::Type words = {
        byte[0] | std::uint32_t{byte[bytes / 2]} << 8 | std::uint32_t{byte[bytes - 1]} << 16};
    return load<To>(&words);
}

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

template <class Platform, class Char>
QZSTRING_KERNEL bool isAsciiRun(const Char* characters, std::size_t count) {
    constexpr std::size_t kBytes = Platform::kBytes;
    using Whole = Vector<Char, kBytes>;
    const auto* const text = reinterpret_cast<const char*>(characters);
    const std::size_t bytes = count * sizeof(Char);
    if (bytes < kBytes)
        return isAsciiShort<Platform, Char>(text, bytes);
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
    const bool ascii = isAsciiRun<Platform>(text, count);
    Platform::leave();
    return ascii;
}

// ---- Case ----

// The bit that makes the case of ASCII letters, where elements are letters if their distance from the first
// one says so. Compared as signed, which takes one instruction.
template <class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> caseBits(Vector<Char, kBytes> fromFirst) {
    using Signed = std::make_signed_t<Char>;
    constexpr auto kLeast = static_cast<std::make_unsigned_t<Char>>(std::numeric_limits<Signed>::min());
    const auto moved = typename VectorOf<Signed, kBytes>::Type(fromFirst + kLeast);
    const auto isLetter = moved < static_cast<Signed>(std::numeric_limits<Signed>::min() + 26);
    return Vector<Char, kBytes>(isLetter) & static_cast<std::make_unsigned_t<Char>>(0x20);
}

// The bits in which the mapped characters differ from these.
template <class Case, class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> changes(Vector<Char, kBytes> characters) {
    using Element = std::make_unsigned_t<Char>;
    return caseBits<Char, kBytes>(characters - static_cast<Element>(Case::kFirstLetter));
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
            text[i] = loops::mapAscii<Case>(text[i]);
    }
}

// The last vector is loaded before the one that it overlaps is stored, or it would wait for that.
template <class Platform, class Case>
QZSTRING_KERNEL void mapRun(char* text, std::size_t count) {
    constexpr std::size_t kBytes = Platform::kBytes;
    using Whole = Vector<char, kBytes>;
    if (count < kBytes)
        return mapShort<Platform, Case>(text, count);
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
QZSTRING_KERNEL void mapRun(wchar_t* text, std::size_t count) {
    constexpr std::size_t kLength = Platform::kBytes / sizeof(wchar_t);
    using Whole = Vector<wchar_t, Platform::kBytes>;
    std::size_t at = loops::mapBlocks<Case>(text, count);
    for (; count - at >= kLength; at += kLength) {
        const auto characters = load<Whole>(text + at);
        if (isAsciiVector<Platform, wchar_t, Platform::kBytes>(characters))
            store(text + at, characters ^ changes<Case, wchar_t, Platform::kBytes>(characters));
        else
            loops::mapEach<Case>(text + at, kLength);
    }
    loops::mapEach<Case>(text + at, count - at);
}

template <class Platform, class Case, class Char>
QZSTRING_TARGET void toCase(Char* text, std::size_t count) noexcept {
    mapRun<Platform, Case>(text, count);
    Platform::leave();
}

// ---- Comparison ----

// In what two vectors differ where ASCII letters may differ in case: nothing, or any bits of an element.
template <class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> differenceOf(Vector<Char, kBytes> a, Vector<Char, kBytes> b) {
    using Element = std::make_unsigned_t<Char>;
    const auto fromFirst = (a | static_cast<Element>(0x20)) - static_cast<Element>('a');
    return (a ^ b) & ~caseBits<Char, kBytes>(fromFirst);
}

template <class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> differenceAt(const Char* a, const Char* b) {
    using Whole = Vector<Char, kBytes>;
    return differenceOf<Char, kBytes>(load<Whole>(a), load<Whole>(b));
}

constexpr std::size_t kNowhere = ~std::size_t{0};

// The first place at which the lower-case forms of `count` characters differ in truth, of which a vector has
// the first and the last kHalf.
template <class Platform, class Char, std::size_t kBytes, std::size_t kHalf>
QZSTRING_KERNEL std::size_t placeOf(Vector<Char, kBytes> difference, const Char* a, const Char* b,
                                    std::size_t count) {
    if (!Platform::any(difference))
        return kNowhere;
    if constexpr (sizeof(Char) == 1) {
        const auto place =
            static_cast<std::size_t>(__builtin_ctz(Platform::places(Vector<Char, kBytes>(difference != 0))));
        return place < kHalf ? place : place + count - 2 * kHalf;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (loops::foldCharacter(a[i]) != loops::foldCharacter(b[i]))
            return i;
    }
    return kNowhere;
}

// The same of as many characters as a vector has, from `at` on.
template <class Platform, std::size_t kBytes, class Char>
QZSTRING_KERNEL std::size_t placeAt(std::size_t at, const Char* a, const Char* b) {
    constexpr std::size_t kLength = kBytes / sizeof(Char);
    const std::size_t place = placeOf<Platform, Char, kBytes, kLength / 2>(
        differenceAt<Char, kBytes>(a + at, b + at), a + at, b + at, kLength);
    return place == kNowhere ? kNowhere : at + place;
}

template <class Platform, class Word, class Char>
QZSTRING_KERNEL std::size_t placeInEnds(const Char* a, const Char* b, std::size_t count) {
    using Half = Vector<Char, 16>;
    const std::size_t bytes = count * sizeof(Char);
    return placeOf<Platform, Char, 16, sizeof(Word) / sizeof(Char)>(
        differenceOf<Char, 16>(loadFirstAndLast<Half, Word>(a, bytes),
                               loadFirstAndLast<Half, Word>(b, bytes)),
        a, b, count);
}

// The same of one to two vectors of characters, of which equal ones take one question.
template <class Platform, std::size_t kBytes, class Char>
QZSTRING_KERNEL std::size_t placeInTwo(const Char* a, const Char* b, std::size_t count) {
    const std::size_t last = count - kBytes / sizeof(Char);
    if (!Platform::any(differenceAt<Char, kBytes>(a, b) | differenceAt<Char, kBytes>(a + last, b + last)))
        return kNowhere;
    const std::size_t place = placeAt<Platform, kBytes>(0, a, b);
    return place != kNowhere || last == 0 ? place : placeAt<Platform, kBytes>(last, a, b);
}

template <class Platform, class Char>
QZSTRING_KERNEL std::size_t placeInShort(const Char* a, const Char* b, std::size_t count) {
    using Half = Vector<Char, 16>;
    const std::size_t bytes = count * sizeof(Char);
    if (bytes >= 16)
        return placeInTwo<Platform, 16>(a, b, count);
    if (bytes >= 8)
        return placeInEnds<Platform, std::uint64_t>(a, b, count);
    if (bytes >= 4)
        return placeInEnds<Platform, std::uint32_t>(a, b, count);
    return bytes == 0 ? kNowhere
                      : placeOf<Platform, Char, 16, 16>(
                            differenceOf<Char, 16>(loadThree<Half>(a, bytes), loadThree<Half>(b, bytes)), a,
                            b, count);
}

template <class Platform, class Char>
QZSTRING_KERNEL std::size_t placeOfDifference(const Char* a, const Char* b, std::size_t count) {
    constexpr std::size_t kBytes = Platform::kBytes;
    constexpr std::size_t kLength = kBytes / sizeof(Char);
    if (count < kLength)
        return placeInShort<Platform>(a, b, count);
    if (count <= 2 * kLength)
        return placeInTwo<Platform, kBytes>(a, b, count);
    constexpr std::size_t kAhead = loops::kPrefetched / sizeof(Char);
    const bool isLong = count * sizeof(Char) >= loops::kBeyondFirstCache;
    std::size_t at = 0;
    for (; count - at >= 4 * kLength; at += 4 * kLength) {
        Vector<Char, kBytes> all{};
        for (std::size_t i = 0; i < 4 * kLength; i += kLength)
            all |= differenceAt<Char, kBytes>(a + at + i, b + at + i);
        if (Platform::any(all))
            break;
        if (isLong && count - at >= kAhead + 4 * kLength) {
            for (std::size_t i = kAhead; i < kAhead + 4 * kLength; i += 64 / sizeof(Char)) {
                __builtin_prefetch(a + at + i);
                __builtin_prefetch(b + at + i);
            }
        }
    }
    for (; count - at > kLength; at += kLength) {
        const std::size_t place = placeAt<Platform, kBytes>(at, a, b);
        if (place != kNowhere)
            return place;
    }
    return placeAt<Platform, kBytes>(count - kLength, a, b);
}

template <class Platform, class Char>
QZSTRING_TARGET int compareNoCase(const Char* a, std::size_t aCount, const Char* b,
                                  std::size_t bCount) noexcept {
    const std::size_t place = placeOfDifference<Platform>(a, b, aCount < bCount ? aCount : bCount);
    Platform::leave();
    return place == kNowhere ? loops::compareLengths(aCount, bCount)
                             : loops::compareFolded(a + place, b + place);
}

#define QZSTRING_CHARACTER_RUNS(Platform)                                                                   \
    characters::isAscii<Platform, char>, characters::isAscii<Platform, wchar_t>,                            \
        characters::toCase<Platform, loops::Lower, char>, characters::toCase<Platform, loops::Upper, char>, \
        characters::toCase<Platform, loops::Lower, wchar_t>,                                                \
        characters::toCase<Platform, loops::Upper, wchar_t>, characters::compareNoCase<Platform, char>,     \
        characters::compareNoCase<Platform, wchar_t>

}  // namespace qzString::kernels::characters

#endif
