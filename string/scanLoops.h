// The scan for two elements of a needle, over any vector type. Internal, not installed; included by one
// source per instruction set, which defines QZSTRING_TARGET (the attribute that lets a function use the
// instructions) and passes its vector: Element, kLanes, splat(element), equal(pointer, vector),
// equalFirst(pointer, count, vector) for fewer than kLanes elements, and noneOfFour(pointer, vector) for four
// vectors in a row. Masks have one bit per element.
//
// At every position the rarer of the two elements is looked for first, four vectors per branch; only where it
// stands is the other one compared. Blocks lie wholly inside [from, end), so that the loads at the two
// offsets lie inside the text; what is left is loaded element by element under a mask, or not at all.
#ifndef QZSTRING_STRING_SCANLOOPS_H
#define QZSTRING_STRING_SCANLOOPS_H

#include <cstddef>
#include <cstdint>

#include "string/search.h"

namespace qzString::search {

// The mask of fewer than a vector's elements.
template <class Element>
QZSTRING_TARGET inline std::uint64_t equalOneByOne(const Element* p, std::size_t count, Element wanted) {
    std::uint64_t mask = 0;
    for (std::size_t i = 0; i < count; ++i)
        mask |= std::uint64_t{p[i] == wanted} << i;
    return mask;
}

template <class Vector>
QZSTRING_TARGET inline std::size_t next(const typename Vector::Element* text, std::size_t from,
                                        std::size_t end, std::size_t first, typename Vector::Element a,
                                        std::size_t second, typename Vector::Element b) {
    constexpr std::size_t kLanes = Vector::kLanes;
    const auto wantedA = Vector::splat(a);
    const auto wantedB = Vector::splat(b);
    std::size_t at = from;
    if (end - at >= 16 * kLanes) {
        // After one block, to the beginning of a cache line, which the loads for the rarer element then never
        // cross.
        const std::uint64_t both =
            Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
        if (both != 0)
            return at + static_cast<std::size_t>(__builtin_ctzll(both));
        at += kLanes - reinterpret_cast<std::uintptr_t>(text + at + first) / sizeof(*text) % kLanes;
    }
    while (end - at >= kLanes) {
        if (end - at >= 4 * kLanes && Vector::noneOfFour(text + at + first, wantedA)) {
            at += 4 * kLanes;
            continue;
        }
        const std::size_t stop = end - at >= 4 * kLanes ? at + 4 * kLanes : at + kLanes;
        for (; at < stop; at += kLanes) {
            const std::uint64_t both =
                Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
            if (both != 0)
                return at + static_cast<std::size_t>(__builtin_ctzll(both));
        }
    }
    const std::size_t rest = end - at;
    if (rest != 0) {
        const std::uint64_t both = Vector::equalFirst(text + at + first, rest, wantedA) &
                                   Vector::equalFirst(text + at + second, rest, wantedB);
        if (both != 0)
            return at + static_cast<std::size_t>(__builtin_ctzll(both));
    }
    return end;
}

template <class Vector>
QZSTRING_TARGET inline std::size_t last(const typename Vector::Element* text, std::size_t from,
                                        std::size_t end, std::size_t first, typename Vector::Element a,
                                        std::size_t second, typename Vector::Element b) {
    constexpr std::size_t kLanes = Vector::kLanes;
    const auto wantedA = Vector::splat(a);
    const auto wantedB = Vector::splat(b);
    if (end - from >= 16 * kLanes) {
        const std::size_t at = end - kLanes;
        const std::uint64_t both =
            Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
        if (both != 0)
            return at + 63 - static_cast<std::size_t>(__builtin_clzll(both));
        end -= reinterpret_cast<std::uintptr_t>(text + end + first) / sizeof(*text) % kLanes;
    }
    while (end - from >= kLanes) {
        if (end - from >= 4 * kLanes && Vector::noneOfFour(text + end - 4 * kLanes + first, wantedA)) {
            end -= 4 * kLanes;
            continue;
        }
        const std::size_t stop = end - from >= 4 * kLanes ? end - 4 * kLanes : end - kLanes;
        for (; end > stop; end -= kLanes) {
            const std::size_t at = end - kLanes;
            const std::uint64_t both =
                Vector::equal(text + at + first, wantedA) & Vector::equal(text + at + second, wantedB);
            if (both != 0)
                return at + 63 - static_cast<std::size_t>(__builtin_clzll(both));
        }
    }
    const std::size_t rest = end - from;
    if (rest != 0) {
        const std::uint64_t both = Vector::equalFirst(text + from + first, rest, wantedA) &
                                   Vector::equalFirst(text + from + second, rest, wantedB);
        if (both != 0)
            return from + 63 - static_cast<std::size_t>(__builtin_clzll(both));
    }
    return kNotFound;
}

}  // namespace qzString::search

#endif
