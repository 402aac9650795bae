// The scans of searching in AVX-512: 64 bytes or 16 wide elements a vector, the rest of a range under a mask.
#include "string/scanner.h"

#if QZSTRING_VECTORS_X86

#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // GCC's own header, under sanitizers
#endif
#include <immintrin.h>

#include "common/features.h"

#define QZSTRING_FEATURES(X) X("avx512f") X("avx512bw") X("avx512vl") X("bmi") X("bmi2")
#define QZSTRING_TARGET QZSTRING_TARGET_OF(QZSTRING_FEATURES)
#include "string/scanBlocks.h"

namespace qzString::search {
namespace {

QZSTRING_DEFINE_USABLE(QZSTRING_FEATURES)

// What every vector of this source has.
struct Platform {
    QZSTRING_TARGET static void leave() { _mm256_zeroupper(); }
};

struct Bytes : Platform {
    using Element = char;
    static constexpr std::size_t kLanes = 64;

    QZSTRING_TARGET static __m512i splat(char c) { return _mm512_set1_epi8(c); }
    QZSTRING_TARGET static __m512i load(const char* p) { return _mm512_loadu_si512(p); }
    QZSTRING_TARGET static std::uint64_t equal(const char* p, __m512i wanted) {
        return _mm512_cmpeq_epi8_mask(load(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalFirst(const char* p, std::size_t count, __m512i wanted) {
        const __mmask64 valid = _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
        return _mm512_mask_cmpeq_epi8_mask(valid, _mm512_maskz_loadu_epi8(valid, p), wanted);
    }
    // The smallest of four differences is zero where any is.
    QZSTRING_TARGET static bool noneOfFour(const char* p, __m512i wanted) {
        const __m512i x = _mm512_xor_si512(load(p), wanted);
        const __m512i y = _mm512_xor_si512(load(p + 64), wanted);
        const __m512i z = _mm512_min_epu8(x, _mm512_xor_si512(load(p + 128), wanted));
        const __m512i all = _mm512_min_epu8(z, _mm512_min_epu8(y, _mm512_xor_si512(load(p + 192), wanted)));
        return _mm512_testn_epi8_mask(all, all) == 0;
    }
};

struct Wides : Platform {
    using Element = wchar_t;
    static constexpr std::size_t kLanes = 16;

    QZSTRING_TARGET static __m512i splat(wchar_t c) { return _mm512_set1_epi32(static_cast<int>(c)); }
    QZSTRING_TARGET static __m512i load(const wchar_t* p) { return _mm512_loadu_si512(p); }
    QZSTRING_TARGET static std::uint64_t equal(const wchar_t* p, __m512i wanted) {
        return _mm512_cmpeq_epi32_mask(load(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalFirst(const wchar_t* p, std::size_t count, __m512i wanted) {
        const __mmask16 valid = static_cast<__mmask16>((1U << count) - 1);
        return _mm512_mask_cmpeq_epi32_mask(valid, _mm512_maskz_loadu_epi32(valid, p), wanted);
    }
    QZSTRING_TARGET static bool noneOfFour(const wchar_t* p, __m512i wanted) {
        const __m512i x = _mm512_xor_si512(load(p), wanted);
        const __m512i y = _mm512_xor_si512(load(p + 16), wanted);
        const __m512i z = _mm512_min_epu32(x, _mm512_xor_si512(load(p + 32), wanted));
        const __m512i all = _mm512_min_epu32(z, _mm512_min_epu32(y, _mm512_xor_si512(load(p + 48), wanted)));
        return _mm512_testn_epi32_mask(all, all) == 0;
    }
};

// A filter in one register: of a character's bit, permutation finds the word and rotation the place.
struct Filter : Platform {
    static constexpr std::size_t kLanes = 16;
    __m512i words;

    QZSTRING_TARGET explicit Filter(const SetFilter& filter) : words(_mm512_load_si512(filter.words)) {}

    QZSTRING_TARGET static __m512i load(const wchar_t* p) { return _mm512_loadu_si512(p); }
    QZSTRING_TARGET __m512i wordsOf(__m512i characters) const {
        const __m512i index = _mm512_srli_epi32(characters, 5);
        const __mmask16 shared =
            _mm512_cmpgt_epu32_mask(index, _mm512_set1_epi32(SetFilter::kExact / 32 - 1));
        return _mm512_permutexvar_epi32(
            _mm512_mask_or_epi32(index, shared, index, _mm512_set1_epi32(SetFilter::kExact / 32)), words);
    }
    QZSTRING_TARGET static __m512i placeOf(__m512i characters) {
        return _mm512_rolv_epi32(_mm512_set1_epi32(1), characters);
    }
    QZSTRING_TARGET std::uint64_t passing(__m512i characters) const {
        return _mm512_test_epi32_mask(wordsOf(characters), placeOf(characters));
    }
    QZSTRING_TARGET std::uint64_t passing(const wchar_t* p) const { return passing(load(p)); }
    QZSTRING_TARGET std::uint64_t passingFirst(const wchar_t* p, std::size_t count) const {
        const __mmask16 valid = static_cast<__mmask16>((1U << count) - 1);
        return passing(_mm512_maskz_loadu_epi32(valid, p)) & valid;
    }
    QZSTRING_TARGET bool nonePassesOfFour(const wchar_t* p) const {
        __m512i any = _mm512_setzero_si512();
        for (std::size_t n = 0; n < 4; ++n) {
            const __m512i characters = load(p + n * kLanes);
            any = _mm512_ternarylogic_epi32(any, wordsOf(characters), placeOf(characters), 0xF8);
        }
        return _mm512_test_epi32_mask(any, any) == 0;
    }
};

}  // namespace

const Scanner kAvx512Scanner = scannerOf<Bytes, Wides, Filter>("avx512", usable);

}  // namespace qzString::search

#endif
