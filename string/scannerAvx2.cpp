// The scans of searching in AVX2: 32 bytes or 8 wide elements a vector.
#include "string/scanner.h"

#if QZSTRING_VECTORS_X86

#include <immintrin.h>

#include "common/features.h"

#define QZSTRING_FEATURES(X) X("avx2") X("bmi")
#define QZSTRING_TARGET QZSTRING_TARGET_OF(QZSTRING_FEATURES)
#include "string/scanBlocks.h"

namespace qzString::search {
namespace {

QZSTRING_DEFINE_USABLE(QZSTRING_FEATURES)

QZSTRING_TARGET inline __m256i load(const void* p) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

QZSTRING_TARGET inline __m128i loadHalf(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

QZSTRING_TARGET inline __m128i halfOf(std::uint64_t low, std::uint64_t high) {
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

// What every vector of this source has.
struct Platform {
    QZSTRING_TARGET static void leave() { _mm256_zeroupper(); }
};

struct Bytes : Platform {
    using Element = char;
    static constexpr std::size_t kLanes = 32;

    QZSTRING_TARGET static __m256i splat(char c) { return _mm256_set1_epi8(c); }
    QZSTRING_TARGET static __m256i matches(const char* p, __m256i wanted) {
        return _mm256_cmpeq_epi8(load(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equal(const char* p, __m256i wanted) {
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(matches(p, wanted)));
    }
    QZSTRING_TARGET static std::uint64_t equalHalf(__m128i bytes, __m256i wanted) {
        const __m128i equal = _mm_cmpeq_epi8(bytes, _mm256_castsi256_si128(wanted));
        return static_cast<std::uint32_t>(_mm_movemask_epi8(equal));
    }
    QZSTRING_TARGET static std::uint64_t equalHalf(const char* p, __m256i wanted) {
        return equalHalf(loadHalf(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalWords(std::uint64_t low, std::uint64_t high, __m256i wanted) {
        return equalHalf(halfOf(low, high), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalFirst(const char* p, std::size_t count, __m256i wanted) {
        return equalShort<Bytes>(p, count, wanted);
    }
    QZSTRING_TARGET static bool noneOfFour(const char* p, __m256i wanted) {
        const __m256i any =
            _mm256_or_si256(_mm256_or_si256(matches(p, wanted), matches(p + 32, wanted)),
                            _mm256_or_si256(matches(p + 64, wanted), matches(p + 96, wanted)));
        return _mm256_testz_si256(any, any) != 0;
    }
};

struct Wides : Platform {
    using Element = wchar_t;
    static constexpr std::size_t kLanes = 8;

    QZSTRING_TARGET static __m256i splat(wchar_t c) { return _mm256_set1_epi32(static_cast<int>(c)); }
    QZSTRING_TARGET static __m256i matches(const wchar_t* p, __m256i wanted) {
        return _mm256_cmpeq_epi32(load(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equal(const wchar_t* p, __m256i wanted) {
        return static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(matches(p, wanted))));
    }
    QZSTRING_TARGET static std::uint64_t equalHalf(__m128i characters, __m256i wanted) {
        const __m128i equal = _mm_cmpeq_epi32(characters, _mm256_castsi256_si128(wanted));
        return static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(equal)));
    }
    QZSTRING_TARGET static std::uint64_t equalHalf(const wchar_t* p, __m256i wanted) {
        return equalHalf(loadHalf(p), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalWords(std::uint64_t low, std::uint64_t high, __m256i wanted) {
        return equalHalf(halfOf(low, high), wanted);
    }
    QZSTRING_TARGET static std::uint64_t equalFirst(const wchar_t* p, std::size_t count, __m256i wanted) {
        return equalShort<Wides>(p, count, wanted);
    }
    QZSTRING_TARGET static bool noneOfFour(const wchar_t* p, __m256i wanted) {
        const __m256i any =
            _mm256_or_si256(_mm256_or_si256(matches(p, wanted), matches(p + 8, wanted)),
                            _mm256_or_si256(matches(p + 16, wanted), matches(p + 24, wanted)));
        return _mm256_testz_si256(any, any) != 0;
    }
};

// A filter in two registers: of a character's bit, permutation finds the word and a shift the place.
struct Filter : Platform {
    static constexpr std::size_t kLanes = 8;
    __m256i exact, shared;

    QZSTRING_TARGET explicit Filter(const SetFilter& filter)
        : exact(load(filter.words)), shared(load(filter.words + 8)) {}

    // The lanes of the characters that pass have their top bits set.
    QZSTRING_TARGET __m256i test(__m256i characters) const {
        const __m256i index = _mm256_srli_epi32(characters, 5);
        const __m256i words = _mm256_blendv_epi8(
            _mm256_permutevar8x32_epi32(exact, index), _mm256_permutevar8x32_epi32(shared, index),
            _mm256_cmpgt_epi32(index, _mm256_set1_epi32(SetFilter::kExact / 32 - 1)));
        // As many places up as there are behind the bit.
        return _mm256_sllv_epi32(words, _mm256_andnot_si256(characters, _mm256_set1_epi32(31)));
    }
    QZSTRING_TARGET std::uint64_t passing(__m256i characters) const {
        return static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(test(characters))));
    }
    QZSTRING_TARGET std::uint64_t passing(const wchar_t* p) const { return passing(load(p)); }
    QZSTRING_TARGET std::uint64_t passingFirst(const wchar_t* p, std::size_t count) const {
        const __m256i places = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
        const __m256i valid = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count)), places);
        return passing(_mm256_maskload_epi32(reinterpret_cast<const int*>(p), valid)) & lowBits(count);
    }
    QZSTRING_TARGET bool nonePassesOfFour(const wchar_t* p) const {
        const __m256i any =
            _mm256_or_si256(_mm256_or_si256(test(load(p)), test(load(p + kLanes))),
                            _mm256_or_si256(test(load(p + 2 * kLanes)), test(load(p + 3 * kLanes))));
        return _mm256_movemask_ps(_mm256_castsi256_ps(any)) == 0;
    }
};

}  // namespace

const Scanner kAvx2Scanner = scannerOf<Bytes, Wides, Filter>("avx2", usable);

}  // namespace qzString::search

#endif
