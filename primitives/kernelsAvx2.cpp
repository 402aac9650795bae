// The AVX2 kernels of the character runs, by characterBlocks.h, and of the hash, and the row of the table.
// utf8*Avx2.cpp have the conversions.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/avx2.h"
#include "primitives/characterBlocks.h"
#include "primitives/hashStripes.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels {
namespace {

QZSTRING_DEFINE_USABLE(QZSTRING_FEATURES)

// ---- Character runs ----

struct Platform {
    static constexpr std::size_t kBytes = 32;

    template <class Vector>
    QZSTRING_KERNEL static bool any(Vector vector) {
        if constexpr (sizeof vector == 16)
            return _mm_testz_si128(__m128i(vector), __m128i(vector)) == 0;
        else
            return _mm256_testz_si256(__m256i(vector), __m256i(vector)) == 0;
    }
    template <class Vector>
    QZSTRING_KERNEL static std::uint32_t places(Vector vector) {
        if constexpr (sizeof vector == 16)
            return static_cast<std::uint32_t>(_mm_movemask_epi8(__m128i(vector)));
        else
            return topBits(__m256i(vector));
    }
    QZSTRING_KERNEL static void leave() { _mm256_zeroupper(); }
};

// ---- Hash ----

struct Lanes {
    __m256i half[2];

    QZSTRING_KERNEL void add(const unsigned char* stripe, const unsigned char* secret) {
        for (std::size_t i = 0; i < 2; ++i) {
            const __m256i words = load256(stripe + 32 * i);
            const __m256i keyed = _mm256_xor_si256(words, load256(secret + 32 * i));
            const __m256i product = _mm256_mul_epu32(keyed, _mm256_srli_epi64(keyed, 32));
            const __m256i swapped = _mm256_shuffle_epi32(words, _MM_SHUFFLE(1, 0, 3, 2));
            half[i] = _mm256_add_epi64(half[i], _mm256_add_epi64(product, swapped));
        }
    }
    QZSTRING_KERNEL void scramble(const unsigned char* secret) {
        const __m256i prime = _mm256_set1_epi32(static_cast<int>(hashing::kPrime32[0]));
        for (std::size_t i = 0; i < 2; ++i) {
            const __m256i mixed = _mm256_xor_si256(_mm256_xor_si256(half[i], _mm256_srli_epi64(half[i], 47)),
                                                   load256(secret + 32 * i));
            // A 64-bit product from two of 32 bits.
            const __m256i high = _mm256_mul_epu32(_mm256_srli_epi64(mixed, 32), prime);
            half[i] = _mm256_add_epi64(_mm256_mul_epu32(mixed, prime), _mm256_slli_epi64(high, 32));
        }
    }
};

QZSTRING_TARGET void hashLanes(std::uint64_t result[8], const unsigned char* input, std::size_t length) {
    Lanes lanes{{load256(hashing::kFirstLanes), load256(hashing::kFirstLanes + 4)}};
    hashing::feed(lanes, input, length);
    store256(result, lanes.half[0]);
    store256(result + 4, lanes.half[1]);
    _mm256_zeroupper();
}

}  // namespace

const Kernels kAvx2 = {
    "avx2",           usable,
    avx2::decode,     avx2::decodedLength,
    avx2::encode,     avx2::encodedLength,
    avx2::wellFormed, QZSTRING_CHARACTER_RUNS(Platform),
    hashLanes,
};

}  // namespace qzString::kernels

#endif
