// The scans of searching over any vectors: for two elements of a needle, and for characters of a set, by its
// filter or, where it is small, by its members. Internal, not installed; included by one source per
// instruction set, which defines QZSTRING_TARGET (the attribute that lets a function use the instructions)
// and passes its vectors.
//
// Vector, of elements to compare with, has the type Element and their number kLanes, and as static functions,
// masks having one bit per element:
//   splat(element)                           a vector of it
//   mask equal(pointer, vector)              of kLanes elements
//   mask equalFirst(pointer, count, vector)  of 1 to kLanes - 1
//   bool noneOfFour(pointer, vector)         of four vectors in a row
//   void leave()                             before a scanner returns
// Filter, made of a SetFilter or of few members (Few, below), has kLanes and leave() as well, and:
//   mask passing(pointer), passingFirst(pointer, count); bool nonePassesOfFour(pointer)
//
// At every position the rarer of the two elements is looked for first, four vectors per branch; only where
// it stands is the other one compared. Blocks lie wholly among the positions asked for, so that the loads at
// the two offsets lie inside the text; the last one lies over some of the one before. Fewer positions than a
// block has are loaded under a mask, or as two halves that may overlap (equalShort).
#ifndef QZSTRING_STRING_SCANBLOCKS_H
#define QZSTRING_STRING_SCANBLOCKS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "string/scanner.h"

#ifndef QZSTRING_TARGET
#error "defined by the source, before this header"
#endif

namespace qzString::search {

constexpr std::uint64_t lowBits(std::size_t count) {
    return (std::uint64_t{1} << count) - 1;
}

template <class Word>
std::uint64_t loadWord(const char* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// The mask of fewer elements than a vector has, one at least, where there is no load under a mask. Of 16
// bytes, Vector has equalWords(low, high, vector) and, where it is larger itself, equalHalf(pointer,
// vector).
template <class Vector, class Wanted>
QZSTRING_TARGET inline std::uint64_t equalShort(const typename Vector::Element* p, std::size_t count,
                                                Wanted wanted) {
    constexpr std::size_t kSize = sizeof *p;
    constexpr std::size_t kHalf = 16 / kSize;
    if constexpr (kHalf < Vector::kLanes) {
        if (count >= kHalf)
            return Vector::equalHalf(p, wanted) | Vector::equalHalf(p + count - kHalf, wanted)
                                                      << (count - kHalf);
    }
    const std::size_t bytes = count * kSize;
    const auto* const text = reinterpret_cast<const char*>(p);
    // The first and the last word, of as many elements each, or the first, middle and last of three bytes.
    std::size_t each = 0;
    std::uint64_t equal = 0;
    if (bytes >= 8) {
        each = 8 / kSize;
        equal = Vector::equalWords(loadWord<std::uint64_t>(text), loadWord<std::uint64_t>(text + bytes - 8),
                                   wanted);
    } else if (bytes >= 4) {
        each = 4 / kSize;
        equal = Vector::equalWords(
            loadWord<std::uint32_t>(text) | loadWord<std::uint32_t>(text + bytes - 4) << 32, 0, wanted);
    } else {
        return lowBits(count) & Vector::equalWords(loadWord<unsigned char>(text) |
                                                       loadWord<unsigned char>(text + bytes / 2) << 8 |
                                                       loadWord<unsigned char>(text + bytes - 1) << 16,
                                                   0, wanted);
    }
    return (equal & lowBits(each)) | (equal >> each & lowBits(each)) << (count - each);
}

// ---- Two elements ----

template <class Vector>
QZSTRING_TARGET inline std::size_t next(const typename Vector::Element* text, std::size_t count,
                                        std::size_t first, typename Vector::Element a, std::size_t second,
                                        typename Vector::Element b) {
    constexpr std::size_t kLanes = Vector::kLanes;
    const auto wantedA = Vector::splat(a);
    const auto wantedB = Vector::splat(b);
    std::size_t at = 0;
    if (count >= 16 * kLanes) {
        // After one block, to the beginning of a cache line, which the loads for the rarer element then never
        // cross.
        const std::uint64_t both =
            Vector::equal(text + first, wantedA) & Vector::equal(text + second, wantedB);
        if (both != 0)
            return static_cast<std::size_t>(__builtin_ctzll(both));
        at = kLanes - reinterpret_cast<std::uintptr_t>(text + first) / sizeof(*text) % kLanes;
    }
    while (count - at >= kLanes) {
        std::size_t stop = count - kLanes + 1;
        if (count - at >= 4 * kLanes) {
            stop = at + 4 * kLanes;
            if (Vector::noneOfFour(text + at + first, wantedA)) {
                at = stop;
                continue;
            }
        }
        for (; at < stop; at += kLanes) {
            const std::uint64_t both =
                Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
            if (both != 0)
                return at + static_cast<std::size_t>(__builtin_ctzll(both));
        }
    }
    const std::size_t rest = count - at;
    if (rest == 0)
        return count;
    std::uint64_t both = 0;
    if (count >= kLanes) {  // some of which were no such place before
        at = count - kLanes;
        both = Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
    } else {
        both = Vector::equalFirst(text + first, rest, wantedA) &
               Vector::equalFirst(text + second, rest, wantedB);
    }
    return both == 0 ? count : at + static_cast<std::size_t>(__builtin_ctzll(both));
}

template <class Vector>
QZSTRING_TARGET inline std::size_t last(const typename Vector::Element* text, std::size_t count,
                                        std::size_t first, typename Vector::Element a, std::size_t second,
                                        typename Vector::Element b) {
    constexpr std::size_t kLanes = Vector::kLanes;
    const auto wantedA = Vector::splat(a);
    const auto wantedB = Vector::splat(b);
    std::size_t end = count;
    if (count >= 16 * kLanes) {
        const std::size_t at = count - kLanes;
        const std::uint64_t both =
            Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
        if (both != 0)
            return at + 63 - static_cast<std::size_t>(__builtin_clzll(both));
        end -= reinterpret_cast<std::uintptr_t>(text + end + first) / sizeof(*text) % kLanes;
    }
    while (end >= kLanes) {
        std::size_t stop = kLanes - 1;
        if (end >= 4 * kLanes) {
            stop = end - 4 * kLanes;
            if (Vector::noneOfFour(text + stop + first, wantedA)) {
                end = stop;
                continue;
            }
        }
        for (; end > stop; end -= kLanes) {
            const std::size_t at = end - kLanes;
            const std::uint64_t both =
                Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
            if (both != 0)
                return at + 63 - static_cast<std::size_t>(__builtin_clzll(both));
        }
    }
    if (end == 0)
        return kNotFound;
    std::uint64_t both = 0;
    if (count >= kLanes) {
        both = Vector::equal(text + first, wantedA) & Vector::equal(text + second, wantedB);
    } else {
        both =
            Vector::equalFirst(text + first, end, wantedA) & Vector::equalFirst(text + second, end, wantedB);
    }
    return both == 0 ? kNotFound : 63 - static_cast<std::size_t>(__builtin_clzll(both));
}

// ---- Characters of a set: kLanes at a time, four times as many per branch ----

template <class Filter>
QZSTRING_TARGET inline std::size_t nextPassing(const wchar_t* text, std::size_t count, const Filter& filter) {
    constexpr std::size_t kLanes = Filter::kLanes;
    std::size_t at = 0;
    while (count - at >= 4 * kLanes && filter.nonePassesOfFour(text + at))
        at += 4 * kLanes;
    for (; count - at >= kLanes; at += kLanes) {
        const std::uint64_t passing = filter.passing(text + at);
        if (passing != 0)
            return at + static_cast<std::size_t>(__builtin_ctzll(passing));
    }
    if (at == count)
        return count;
    std::uint64_t passing = 0;
    if (count >= kLanes) {  // some of which did not pass before
        at = count - kLanes;
        passing = filter.passing(text + at);
    } else {
        passing = filter.passingFirst(text, count);
    }
    return passing == 0 ? count : at + static_cast<std::size_t>(__builtin_ctzll(passing));
}

template <class Filter>
QZSTRING_TARGET inline std::size_t lastPassing(const wchar_t* text, std::size_t count, const Filter& filter) {
    constexpr std::size_t kLanes = Filter::kLanes;
    std::size_t end = count;
    while (end >= 4 * kLanes && filter.nonePassesOfFour(text + end - 4 * kLanes))
        end -= 4 * kLanes;
    for (; end >= kLanes; end -= kLanes) {
        const std::uint64_t passing = filter.passing(text + end - kLanes);
        if (passing != 0)
            return end - kLanes + 63 - static_cast<std::size_t>(__builtin_clzll(passing));
    }
    if (end == 0)
        return kNotFound;
    const std::uint64_t passing = count >= kLanes ? filter.passing(text) : filter.passingFirst(text, end);
    return passing == 0 ? kNotFound : 63 - static_cast<std::size_t>(__builtin_clzll(passing));
}

// A set of few members, as a Filter.
template <class Vector>
struct Few {
    static constexpr std::size_t kLanes = Vector::kLanes;
    const wchar_t* members;
    std::size_t count;

    QZSTRING_TARGET std::uint64_t passing(const wchar_t* p) const {
        std::uint64_t passing = 0;
        for (std::size_t i = 0; i < count; ++i)
            passing |= Vector::equal(p, Vector::splat(members[i]));
        return passing;
    }
    QZSTRING_TARGET std::uint64_t passingFirst(const wchar_t* p, std::size_t length) const {
        std::uint64_t passing = 0;
        for (std::size_t i = 0; i < count; ++i)
            passing |= Vector::equalFirst(p, length, Vector::splat(members[i]));
        return passing;
    }
    QZSTRING_TARGET bool nonePassesOfFour(const wchar_t* p) const {
        for (std::size_t i = 0; i < count; ++i) {
            if (!Vector::noneOfFour(p, Vector::splat(members[i])))
                return false;
        }
        return true;
    }
    QZSTRING_TARGET static void leave() { Vector::leave(); }
};

// ---- The entries of a row ----

template <class Vector>
QZSTRING_TARGET std::size_t scanNext(const typename Vector::Element* text, std::size_t count,
                                     std::size_t first, typename Vector::Element a, std::size_t second,
                                     typename Vector::Element b) {
    const std::size_t found = next<Vector>(text, count, first, a, second, b);
    Vector::leave();
    return found;
}

template <class Vector>
QZSTRING_TARGET std::size_t scanLast(const typename Vector::Element* text, std::size_t count,
                                     std::size_t first, typename Vector::Element a, std::size_t second,
                                     typename Vector::Element b) {
    const std::size_t found = last<Vector>(text, count, first, a, second, b);
    Vector::leave();
    return found;
}

// `set` is what a Filter is made of.
template <class Filter, class... Set>
QZSTRING_TARGET std::size_t scanNextPassing(const wchar_t* text, std::size_t count, Set... set) {
    const std::size_t found = nextPassing(text, count, Filter{set...});
    Filter::leave();
    return found;
}

template <class Filter, class... Set>
QZSTRING_TARGET std::size_t scanLastPassing(const wchar_t* text, std::size_t count, Set... set) {
    const std::size_t found = lastPassing(text, count, Filter{set...});
    Filter::leave();
    return found;
}

// A row, of the vectors for narrow elements, for wide ones and for a filter.
template <class Narrow, class Wide, class Filter>
constexpr Scanner scannerOf(const char* name, bool (*usable)()) {
    return {name,
            usable,
            scanNext<Narrow>,
            scanNext<Wide>,
            scanLast<Narrow>,
            scanLast<Wide>,
            scanNextPassing<Filter, const SetFilter&>,
            scanLastPassing<Filter, const SetFilter&>,
            scanNextPassing<Few<Wide>, const wchar_t*, std::size_t>,
            scanLastPassing<Few<Wide>, const wchar_t*, std::size_t>};
}

}  // namespace qzString::search

#endif
