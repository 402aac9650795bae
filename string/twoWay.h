// Substring search in linear time, whatever text and needle, and without memory: the Two-Way algorithm
// (Crochemore and Perrin, "Two-way string-matching", JACM 38, 1991). Internal, not installed.
#ifndef QZSTRING_STRING_TWOWAY_H
#define QZSTRING_STRING_TWOWAY_H

#include <algorithm>
#include <cstddef>

#include "string/scanner.h"

namespace qzString::search {

// An array read from its beginning, or from its end.
template <class Char>
struct Forwards {
    const Char* elements;
    Char operator[](std::size_t i) const { return elements[i]; }
};
template <class Char>
struct Backwards {
    const Char* last;
    Char operator[](std::size_t i) const { return *(last - i); }
};

struct Factorization {
    std::size_t split;   // the needle's critical position: where its right part begins
    std::size_t period;  // of the right part
};

// The maximal suffix in one of the two orders of elements.
template <class Reader, class Before>
Factorization maximalSuffix(Reader needle, std::size_t length, Before before) {
    std::size_t suffix = 0;  // where the best so far begins
    std::size_t candidate = 1;
    std::size_t matched = 0;
    std::size_t period = 1;
    while (candidate + matched < length) {
        const auto c = needle[candidate + matched];
        const auto s = needle[suffix + matched];
        if (before(c, s)) {
            candidate += matched + 1;
            matched = 0;
            period = candidate - suffix;
        } else if (c == s) {
            if (++matched == period) {
                candidate += period;
                matched = 0;
            }
        } else {
            suffix = candidate++;
            matched = 0;
            period = 1;
        }
    }
    return {suffix, period};
}

template <class Reader>
Factorization factorize(Reader needle, std::size_t length) {
    const Factorization up = maximalSuffix(needle, length, [](auto x, auto y) { return x < y; });
    const Factorization down = maximalSuffix(needle, length, [](auto x, auto y) { return y < x; });
    return up.split > down.split ? up : down;
}

// The lowest i at which needle stands in text, or kNotFound; 0 < needleLength.
template <class Reader>
std::size_t twoWay(Reader text, std::size_t length, Reader needle, std::size_t needleLength) {
    const Factorization factors = factorize(needle, needleLength);
    const std::size_t split = factors.split;
    std::size_t period = factors.period;
    bool isPeriodic = split + period <= needleLength;
    for (std::size_t i = 0; isPeriodic && i < split; ++i)
        isPeriodic = needle[i] == needle[i + period];
    if (!isPeriodic)
        period = std::max(split, needleLength - split) + 1;

    for (std::size_t at = 0; at + needleLength <= length;) {
        std::size_t i = split;
        while (i < needleLength && needle[i] == text[at + i])
            ++i;
        if (i < needleLength) {
            at += i - split + 1;
            continue;
        }
        i = split;
        while (i > 0 && needle[i - 1] == text[at + i - 1])
            --i;
        if (i == 0)
            return at;
        // What matched need not be remembered. In a periodic needle split is below the period, so that the
        // left part matches at the next place. Where the right part then does not, both shifts together are
        // above half the needle, for less than twice its length in comparisons.
        at += period;
    }
    return kNotFound;
}

}  // namespace qzString::search

#endif
