// Comparison without case in AVX-512. Internal, not installed.
//
// Whole vectors are compared but for the case of ASCII letters; in wide text, those that differ are mapped
// and compared again. The last vector lies over some of the one before.
#ifndef QZSTRING_PRIMITIVES_CHARACTERCOMPARISONAVX512_H
#define QZSTRING_PRIMITIVES_CHARACTERCOMPARISONAVX512_H

#include <cstddef>
#include <cstdint>

#include "primitives/avx512.h"
#include "primitives/characterCaseAvx512.h"
#include "primitives/characterPortable.h"
#include "primitives/inline.h"

namespace qzString::kernels::avx512 {

// Where the lower-case forms of two vectors, which stand at `textA` and `textB`, differ; the first such place
// is always right, those behind it may differ in case only. In ASCII letters, bit 5 does not count.
// `hasDiffered`: whether a vector before had a pair that is not equal as it stands.
QZSTRING_KERNEL std::uint64_t differences(__m512i a, __m512i b, const char*, const char*, bool&) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi8(_mm512_or_si512(a, everywhere<repeat8(0x20)>()), everywhere<repeat8('a')>());
    const __mmask64 letters = _mm512_cmplt_epu8_mask(fromFirst, everywhere<repeat8(26)>());
    const __m512i inAny = everywhere<repeat8(0xFF)>();
    const __m512i inLetters = everywhere<repeat8(0xDF)>();
    return _mm512_test_epi8_mask(difference, _mm512_mask_mov_epi8(inAny, letters, inLetters));
}

QZSTRING_KERNEL std::uint64_t differences(__m512i a, __m512i b, const wchar_t* textA, const wchar_t* textB,
                                          bool& hasDiffered) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi32(_mm512_or_si512(a, everywhere<repeat32(0x20)>()), everywhere<repeat32('a')>());
    const __mmask16 letters = _mm512_cmplt_epu32_mask(fromFirst, everywhere<repeat32(26)>());
    const __m512i inAny = everywhere<repeat32(0xFFFFFFFF)>();
    const __m512i inLetters = everywhere<repeat32(0xFFFFFFDF)>();
    const __mmask16 differ =
        _mm512_test_epi32_mask(difference, _mm512_mask_mov_epi32(inAny, letters, inLetters));
    if (differ == 0)
        return 0;
    // The first such pair tells what texts are: mostly different there, or the same in another case
    // throughout. It is looked up unless it is 32 apart, as most pairs of letters are.
    const std::size_t first = _tzcnt_u32(differ);
    if (!hasDiffered) {
        const auto apart =
            static_cast<std::uint32_t>(textA[first]) - static_cast<std::uint32_t>(textB[first]);
        if (((apart + 32) & ~64U) != 0 &&
            portable::foldCharacter(textA[first]) != portable::foldCharacter(textB[first]))
            return differ;
        hasDiffered = true;
    }
    // The first character is at hand sooner than the first that differs.
    Mapping<portable::Lower, wchar_t> map(isAscii(*textA) ? textA[first] : *textA);
    return _mm512_mask_cmpneq_epi32_mask(differ, map.mapAtHand(a), map.mapAtHand(b));
}

template <class Char>
QZSTRING_KERNEL std::uint64_t differencesAt(const Char* a, const Char* b, bool& hasDiffered) {
    return differences(_mm512_loadu_si512(a), _mm512_loadu_si512(b), a, b, hasDiffered);
}

// The same for up to 32 bytes. Up to 16 are loaded as 16: what stands behind a short string is often the
// length of the next, just written, and a wider load would wait for it.
QZSTRING_KERNEL std::uint64_t shortDifferences(const char* a, const char* b, std::size_t count) {
    if (count <= 16) {
        const __mmask16 lanes = lowLanes(count);
        const __m128i first = _mm_maskz_loadu_epi8(lanes, a);
        const __m128i difference = _mm_xor_si128(first, _mm_maskz_loadu_epi8(lanes, b));
        const __m128i fromFirst = _mm_sub_epi8(_mm_or_si128(first, everywhere<repeat8(0x20), __m128i>()),
                                               everywhere<repeat8('a'), __m128i>());
        const __m128i letterCount = everywhere<repeat8(26), __m128i>();
        const __mmask16 letters = _mm_cmplt_epu8_mask(fromFirst, letterCount);
        const __m128i inAny = everywhere<repeat8(0xFF), __m128i>();
        const __m128i inLetters = everywhere<repeat8(0xDF), __m128i>();
        return _mm_test_epi8_mask(difference, _mm_mask_mov_epi8(inAny, letters, inLetters));
    }
    const __mmask32 lanes = static_cast<__mmask32>(lowBits(count));
    const __m256i first = _mm256_maskz_loadu_epi8(lanes, a);
    const __m256i difference = _mm256_xor_si256(first, _mm256_maskz_loadu_epi8(lanes, b));
    const __m256i fromFirst = _mm256_sub_epi8(_mm256_or_si256(first, everywhere<repeat8(0x20), __m256i>()),
                                              everywhere<repeat8('a'), __m256i>());
    const __m256i letterCount = everywhere<repeat8(26), __m256i>();
    const __mmask32 letters = _mm256_cmplt_epu8_mask(fromFirst, letterCount);
    const __m256i inAny = everywhere<repeat8(0xFF), __m256i>();
    const __m256i inLetters = everywhere<repeat8(0xDF), __m256i>();
    const std::uint64_t found =
        _mm256_test_epi8_mask(difference, _mm256_mask_mov_epi8(inAny, letters, inLetters));
    _mm256_zeroupper();
    return found;
}

// The order of texts at the first of the places found to differ, from `at` on, or by their lengths.
template <class Char>
QZSTRING_KERNEL int orderAt(std::size_t at, std::uint64_t found, const Char* a, std::size_t aCount,
                            const Char* b, std::size_t bCount) {
    if (found == 0)
        return portable::compareLengths(aCount, bCount);
    at += static_cast<std::size_t>(_tzcnt_u64(found));
    return portable::compareFolded(a + at, b + at);
}

// Texts equal up to `at`; narrow ones have more than 32 bytes in common.
template <class Char>
QZSTRING_KERNEL int compareFrom(std::size_t at, const Char* a, std::size_t aCount, const Char* b,
                                std::size_t bCount) {
    const std::size_t count = aCount < bCount ? aCount : bCount;
    std::uint64_t found = 0;
    bool hasDiffered = false;
    while (found == 0 && count - at > kElements<Char>) {
        found = differencesAt(a + at, b + at, hasDiffered);
        if (found == 0)
            at += kElements<Char>;
    }
    if (found == 0) {
        if (count > kElements<Char>) {
            at = count - kElements<Char>;
            found = differencesAt(a + at, b + at, hasDiffered);
        } else {
            found = differences(loadShort(a, count * sizeof(Char)), loadShort(b, count * sizeof(Char)), a, b,
                                hasDiffered);
        }
    }
    _mm256_zeroupper();
    return orderAt(at, found, a, aCount, b, bCount);
}

// Texts that fill the first cache go along the cache lines of the first of the two, and are fetched ahead.
template <class Char>
QZSTRING_TARGET QZSTRING_NOINLINE int compareLong(const Char* a, std::size_t aCount, const Char* b,
                                                  std::size_t bCount) {
    constexpr std::size_t kAhead = portable::kPrefetched / sizeof(Char);
    const std::size_t count = aCount < bCount ? aCount : bCount;
    std::size_t at = 0;
    bool hasDiffered = false;
    if (differencesAt(a, b, hasDiffered) == 0) {
        at = kElements<Char> - reinterpret_cast<std::uintptr_t>(a) / sizeof(Char) % kElements<Char>;
        for (; count - at > kAhead && differencesAt(a + at, b + at, hasDiffered) == 0;
             at += kElements<Char>) {
            _mm_prefetch(reinterpret_cast<const char*>(a + at + kAhead), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(b + at + kAhead), _MM_HINT_T0);
        }
    }
    return compareFrom(at, a, aCount, b, bCount);
}

template <class Char>
QZSTRING_TARGET int compareNoCase(const Char* a, std::size_t aCount, const Char* b,
                                  std::size_t bCount) noexcept {
    const std::size_t count = aCount < bCount ? aCount : bCount;
    if (sizeof(Char) == 1 && count <= 32) {
        const std::uint64_t found =
            shortDifferences(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b), count);
        return orderAt(0, found, a, aCount, b, bCount);
    }
    if (count * sizeof(Char) >= portable::kBeyondFirstCache)
        return compareLong(a, aCount, b, bCount);
    return compareFrom(0, a, aCount, b, bCount);
}

}  // namespace qzString::kernels::avx512

#endif
