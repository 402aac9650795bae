// The AVX2 kernels of the character runs and the hash, and the row of the table. utf8*Avx2.cpp have the
// conversions. The character runs are the plain loops of characterLoops.h, compiled for the instruction set.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx2.h"
#include "primitives/characterLoops.h"
#include "primitives/hashLoops.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels {
namespace {

bool usable() {
    __builtin_cpu_init();
    QZSTRING_FEATURES(QZSTRING_REQUIRE_FEATURE)
    return true;
}

template <class Char>
QZSTRING_TARGET bool isAsciiRun(const Char* text, std::size_t count) noexcept {
    const bool ascii = loops::isAsciiRun(text, count);
    _mm256_zeroupper();
    return ascii;
}

template <class Case, class Char>
QZSTRING_TARGET void mapRun(Char* text, std::size_t count) noexcept {
    loops::mapRun<Case>(text, count);
    _mm256_zeroupper();
}

template <class Char>
QZSTRING_TARGET int compareNoCase(const Char* a, std::size_t aCount, const Char* b,
                                  std::size_t bCount) noexcept {
    const std::size_t common = aCount < bCount ? aCount : bCount;
    const std::size_t at = loops::findCaseDifference(a, b, common);
    _mm256_zeroupper();
    return at == common ? loops::compareLengths(aCount, bCount) : loops::compareFolded(a + at, b + at);
}

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
    "avx2",
    usable,
    avx2::decode,
    avx2::decodedLength,
    avx2::encode,
    avx2::encodedLength,
    avx2::wellFormed,
    isAsciiRun<char>,
    isAsciiRun<wchar_t>,
    mapRun<loops::Lower, char>,
    mapRun<loops::Upper, char>,
    mapRun<loops::Lower, wchar_t>,
    mapRun<loops::Upper, wchar_t>,
    compareNoCase<char>,
    compareNoCase<wchar_t>,
    hashLanes,
};

}  // namespace qzString::kernels

#endif
