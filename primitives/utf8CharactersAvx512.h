// Blocks of wide characters in AVX-512: what encoding UTF-8 and its size query share. Internal, not
// installed.
//
// A block is 64 characters in four vectors. The last characters are loaded with the text's last 16, short
// text as avx512.h says.
#ifndef QZSTRING_PRIMITIVES_UTF8CHARACTERSAVX512_H
#define QZSTRING_PRIMITIVES_UTF8CHARACTERSAVX512_H

#include "primitives/avx512.h"

namespace qzString::kernels::avx512 {

constexpr std::size_t kBlock = 64;

// ---- Blocks ----

// kPlaces in lanes of 32 bits, 16 of them: to widen those takes a cycle more than to load these.
alignas(64) constexpr int kLanes[32] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

// 64 characters, or the last of a text: lanes that hold none of it are zero, and not `valid`.
struct Characters {
    __m512i a, b, c, d;

    [[nodiscard]] QZSTRING_KERNEL __m512i all() const {
        return _mm512_or_si512(_mm512_ternarylogic_epi32(a, b, c, 0xFE), d);
    }
};

QZSTRING_KERNEL Characters loadWhole(const wchar_t* source) {
    return {_mm512_loadu_si512(source), _mm512_loadu_si512(source + 16), _mm512_loadu_si512(source + 32),
            _mm512_loadu_si512(source + 48)};
}

// The last 1 to 64 of a text of at least 16: whole vectors, then what is left of the text's last 16
// characters, at the beginning of a vector or, where !kInOrder, at its end. No load goes where the text has
// nothing, as even a masked one is slow there.
template <bool kInOrder>
QZSTRING_KERNEL Characters loadPart(const wchar_t* source, std::size_t count) {
    const std::size_t left = (count - 1) % 16 + 1;
    const wchar_t* const last16 = source + count - 16;
    const __m512i none = _mm512_setzero_si512();
    const __m512i last =
        kInOrder ? _mm512_maskz_permutexvar_epi32(lowLanes(left), _mm512_loadu_si512(kLanes + 16 - left),
                                                  _mm512_loadu_si512(last16))
                 : _mm512_maskz_loadu_epi32(static_cast<__mmask16>(0xFFFF0000 >> left), last16);
    Characters part{last, none, none, none};
    if (count > 16) {
        part.a = _mm512_loadu_si512(source);
        part.b = last;
    }
    if (count > 32) {
        part.b = _mm512_loadu_si512(source + 16);
        part.c = last;
    }
    if (count > 48) {
        part.c = _mm512_loadu_si512(source + 32);
        part.d = last;
    }
    return part;
}

// Whether any character is kLimit, a power of two, or above.
template <unsigned kLimit>
QZSTRING_KERNEL bool anyFrom(__m512i characters) {
    return _mm512_test_epi32_mask(characters, _mm512_set1_epi32(static_cast<int>(0U - kLimit))) != 0;
}

// ---- Ill-formed characters: surrogates, and what is above U+10FFFF ----

// Whether a vector has any.
QZSTRING_KERNEL bool anyIllFormed(__m512i characters) {
    const __m512i fromSurrogates = _mm512_xor_si512(characters, everywhere<repeat32(0xD800)>());
    return (_mm512_cmpgt_epu32_mask(characters, everywhere<repeat32(0x10FFFF)>()) |
            _mm512_cmplt_epu32_mask(fromSurrogates, everywhere<repeat32(0x800)>())) != 0;
}

}  // namespace qzString::kernels::avx512

#endif
