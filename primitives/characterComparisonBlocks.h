// Comparison without case over any vector: what AVX2 and NEON share, by a Platform of characterVectors.h.
// Internal, not installed.
//
// What differs beyond the case of ASCII letters is looked for, four vectors at a time until something does,
// the last vector over some of the one before. In wide text, the characters of a vector that has any are
// then mapped by the tables.
#ifndef QZSTRING_PRIMITIVES_CHARACTERCOMPARISONBLOCKS_H
#define QZSTRING_PRIMITIVES_CHARACTERCOMPARISONBLOCKS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "primitives/characterPortable.h"
#include "primitives/characterVectors.h"

namespace qzString::kernels::characters {

// The bits in which two vectors differ, but for the case of ASCII letters: an element is zero where its
// characters are equal in that sense.
template <class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> differenceOf(Vector<Char, kBytes> a, Vector<Char, kBytes> b) {
    return (a ^ b) & ~caseBits<Char, kBytes, 'a'>(a | everywhere<Char, kBytes, 0x20>());
}

template <class Char, std::size_t kBytes>
QZSTRING_KERNEL Vector<Char, kBytes> differenceAt(const Char* a, const Char* b) {
    using Whole = Vector<Char, kBytes>;
    return differenceOf<Char, kBytes>(load<Whole>(a), load<Whole>(b));
}

constexpr std::size_t kNowhere = ~std::size_t{0};

// The first position at which the lower-case forms really differ, among `count` characters of which the
// vector has the first and the last kHalf.
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
        if (portable::foldCharacter(a[i]) != portable::foldCharacter(b[i]))
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

// Whether anything differs in the two vectors from `at` on and the two up to `end`.
template <class Platform, class Char>
QZSTRING_KERNEL bool anyInFour(const Char* a, const Char* b, std::size_t at, std::size_t end) {
    constexpr std::size_t kBytes = Platform::kBytes;
    constexpr std::size_t kLength = kBytes / sizeof(Char);
    Vector<Char, kBytes> all{};
    for (const std::size_t i : {at, at + kLength, end - 2 * kLength, end - kLength})
        all |= differenceAt<Char, kBytes>(a + i, b + i);
    return Platform::any(all);
}

// The same of at least one vector of characters.
template <class Platform, class Char>
QZSTRING_KERNEL std::size_t placeInLong(const Char* a, const Char* b, std::size_t count) {
    constexpr std::size_t kBytes = Platform::kBytes;
    constexpr std::size_t kLength = kBytes / sizeof(Char);
    constexpr std::size_t kFour = 4 * kLength;
    constexpr std::size_t kAhead = portable::kPrefetched / sizeof(Char);
    if (count <= 2 * kLength)
        return placeInTwo<Platform, kBytes>(a, b, count);
    const bool isLong = count * sizeof(Char) >= portable::kBeyondFirstCache;
    std::size_t at = 0;
    for (; count - at > kFour && !anyInFour<Platform>(a, b, at, at + kFour); at += kFour) {
        if (isLong && count - at >= kAhead + kFour) {
            for (std::size_t i = kAhead; i < kAhead + kFour; i += 64 / sizeof(Char)) {
                __builtin_prefetch(a + at + i);
                __builtin_prefetch(b + at + i);
            }
        }
    }
    if (count - at <= 2 * kLength) {
        const std::size_t last = count - 2 * kLength;
        const std::size_t place = placeInTwo<Platform, kBytes>(a + last, b + last, 2 * kLength);
        return place == kNowhere ? kNowhere : last + place;
    }
    if (count - at <= kFour && !anyInFour<Platform>(a, b, at, count))
        return kNowhere;
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
    const std::size_t count = aCount < bCount ? aCount : bCount;
    const bool isShort = count < Platform::kBytes / sizeof(Char);
    const std::size_t place =
        isShort ? placeInShort<Platform>(a, b, count) : placeInLong<Platform>(a, b, count);
    if (!isShort)
        Platform::leave();
    return place == kNowhere ? portable::compareLengths(aCount, bCount)
                             : portable::compareFolded(a + place, b + place);
}

}  // namespace qzString::kernels::characters

#endif
