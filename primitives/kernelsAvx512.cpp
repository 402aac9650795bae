// The AVX-512 kernels of the ASCII test and the hash, and the row of the table. character*Avx512.h have case
// mapping and comparison, utf8*Avx512.cpp the conversions.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/avx512.h"
#include "primitives/characterCaseAvx512.h"
#include "primitives/characterComparisonAvx512.h"
#include "primitives/hashStripes.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels {
namespace {

QZSTRING_DEFINE_USABLE(QZSTRING_FEATURES)

// ---- ASCII ----

// Whether a vector has any of these bits in any lane of 32.
template <std::uint32_t kBits>
QZSTRING_KERNEL bool anyBits(__m512i vector) {
    return _mm512_test_epi32_mask(vector, everywhere<repeat32(kBits)>()) != 0;
}

// The same for up to 64 bytes; up to 32 in 128-bit registers, which leave no upper halves in use. The second
// load may begin inside an element: kBits repeats for every element of the text.
template <std::uint32_t kBits>
QZSTRING_KERNEL bool anyBitsShort(const char* text, std::size_t bytes) {
    if (bytes > 32) {
        const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
        const __m256i last = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + bytes - 32));
        const __m256i bits = everywhere<repeat32(kBits), __m256i>();
        return _mm256_test_epi32_mask(_mm256_or_si256(first, last), bits) != 0;
    }
    const __m128i bits = everywhere<repeat32(kBits), __m128i>();
    if (bytes >= 16) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        const __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + bytes - 16));
        return _mm_test_epi32_mask(_mm_or_si128(first, last), bits) != 0;
    }
    return _mm_test_epi32_mask(_mm_maskz_loadu_epi8(lowLanes(bytes), text), bits) != 0;
}

template <std::uint32_t kBits>
QZSTRING_KERNEL bool isAsciiBytes(const char* text, std::size_t length) {
    if (length <= 64) {
        const bool ascii = !anyBitsShort<kBits>(text, length);
        if (length > 32)
            _mm256_zeroupper();
        return ascii;
    }
    std::size_t at = 0;
    bool ascii = true;
    if (length >= 1024) {
        // To the beginning of a cache line, which loads then never cross.
        ascii = !anyBits<kBits>(_mm512_loadu_si512(text));
        at = (0 - reinterpret_cast<std::uintptr_t>(text)) % 64;
    }
    for (; ascii && length - at >= 256; at += 256) {
        const __m512i two =
            _mm512_or_si512(_mm512_loadu_si512(text + at), _mm512_loadu_si512(text + at + 64));
        ascii = !anyBits<kBits>(_mm512_ternarylogic_epi32(two, _mm512_loadu_si512(text + at + 128),
                                                          _mm512_loadu_si512(text + at + 192), 0xFE));
    }
    if (ascii) {
        __m512i rest = _mm512_loadu_si512(text + length - 64);
        for (; length - at > 64; at += 64)
            rest = _mm512_or_si512(rest, _mm512_loadu_si512(text + at));
        ascii = !anyBits<kBits>(rest);
    }
    _mm256_zeroupper();
    return ascii;
}

QZSTRING_TARGET bool isAsciiNarrow(const char* text, std::size_t count) noexcept {
    return isAsciiBytes<0x80808080>(text, count);
}

QZSTRING_TARGET bool isAsciiWide(const wchar_t* text, std::size_t count) noexcept {
    return isAsciiBytes<~0x7FU>(reinterpret_cast<const char*>(text), count * sizeof(wchar_t));
}

// ---- Hash ----

struct Lanes {
    __m512i lanes;

    QZSTRING_KERNEL void add(const unsigned char* stripe, const unsigned char* secret) {
        const __m512i words = kept(_mm512_loadu_si512(stripe));
        const __m512i keyed = _mm512_xor_si512(words, _mm512_loadu_si512(secret));
        const __m512i product = _mm512_mul_epu32(keyed, _mm512_srli_epi64(keyed, 32));
        const __m512i swapped = _mm512_shuffle_epi32(words, _MM_PERM_BADC);
        lanes = _mm512_add_epi64(_mm512_add_epi64(product, swapped), lanes);
    }
    QZSTRING_KERNEL void scramble(const unsigned char* secret) {
        const __m512i mixed =
            _mm512_ternarylogic_epi64(lanes, _mm512_srli_epi64(lanes, 47), _mm512_loadu_si512(secret), 0x96);
        // By a factor of 32 bits; Intel's processors take twice as long for all 64 (vpmullq).
        const __m512i prime = _mm512_set1_epi64(hashing::kPrime32[0]);
        const __m512i upper = _mm512_mul_epu32(_mm512_srli_epi64(mixed, 32), prime);
        lanes = _mm512_add_epi64(_mm512_mul_epu32(mixed, prime), _mm512_slli_epi64(upper, 32));
    }
};

QZSTRING_TARGET void hashLanes(std::uint64_t result[8], const unsigned char* input, std::size_t length) {
    Lanes lanes{_mm512_load_si512(hashing::kFirstLanes)};
    hashing::feed(lanes, input, length);
    _mm512_storeu_si512(result, lanes.lanes);
    _mm256_zeroupper();
}

}  // namespace

const Kernels kAvx512 = {
    "avx512",
    usable,
    avx512::decode,
    avx512::decodedLength,
    avx512::encode,
    avx512::encodedLength,
    avx512::wellFormed,
    isAsciiNarrow,
    isAsciiWide,
    avx512::mapRun<portable::Lower, char>,
    avx512::mapRun<portable::Upper, char>,
    avx512::mapRun<portable::Lower, wchar_t>,
    avx512::mapRun<portable::Upper, wchar_t>,
    avx512::compareNoCase<char>,
    avx512::compareNoCase<wchar_t>,
    hashLanes,
};

}  // namespace qzString::kernels

#endif
