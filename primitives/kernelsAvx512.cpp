// The AVX-512 kernels of the character runs and the hash, and the row of the table. utf8*Avx512.cpp have the
// conversions.
//
// Every loop takes whole vectors, then what is left under a mask: masked lanes are neither read nor written.
//
// Case of wide text: ASCII by arithmetic; characters between U+2E80 and U+A63F have no case; what else there
// is looks up its difference from the tables (characterTables.h), by permutations of the blocks of the table
// that its lanes need.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx512.h"
#include "primitives/characterLoops.h"
#include "primitives/hashLoops.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels {
namespace {

bool usable() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
           __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512vbmi") &&
           __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("gfni") &&
           __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
}

// ---- ASCII ----

// Whether any byte of 4 x 64, or wide element of 4 x 16, is not ASCII, by the bits that ASCII never has.
template <int kBits>
QZSTRING_KERNEL bool anyBits(__m512i vector) {
    return _mm512_test_epi32_mask(vector, _mm512_set1_epi32(kBits)) != 0;
}

template <int kBits>
QZSTRING_KERNEL bool isAsciiBytes(const char* text, std::size_t length) {
    if (length <= 64) {
        const bool ascii = !anyBits<kBits>(_mm512_maskz_loadu_epi8(lowBits(length), text));
        _mm256_zeroupper();
        return ascii;
    }
    std::size_t at = 0;
    bool ascii = true;
    if (length >= 1024) {
        // To the beginning of a cache line, which loads then never cross.
        ascii = !anyBits<kBits>(_mm512_loadu_si512(text));
        at = (0 - reinterpret_cast<std::uintptr_t>(text)) % 64 / sizeof(wchar_t) * sizeof(wchar_t);
    }
    for (; ascii && length - at >= 256; at += 256) {
        const __m512i two =
            _mm512_or_si512(_mm512_loadu_si512(text + at), _mm512_loadu_si512(text + at + 64));
        ascii = !anyBits<kBits>(_mm512_ternarylogic_epi32(two, _mm512_loadu_si512(text + at + 128),
                                                          _mm512_loadu_si512(text + at + 192), 0xFE));
    }
    for (; ascii && at < length; at += 64)
        ascii = !anyBits<kBits>(_mm512_maskz_loadu_epi8(lowBits(length - at), text + at));
    _mm256_zeroupper();
    return ascii;
}

QZSTRING_TARGET bool isAsciiNarrow(const char* text, std::size_t count) noexcept {
    return isAsciiBytes<static_cast<int>(0x80808080)>(text, count);
}

QZSTRING_TARGET bool isAsciiWide(const wchar_t* text, std::size_t count) noexcept {
    return isAsciiBytes<-0x80>(reinterpret_cast<const char*>(text), count * sizeof(wchar_t));
}

// ---- Case ----

template <class Case>
QZSTRING_KERNEL __m512i mapBytes(__m512i bytes) {
    const __m512i fromFirst = _mm512_sub_epi8(bytes, _mm512_set1_epi8(Case::kFirstLetter));
    const __mmask64 letters = _mm512_cmplt_epu8_mask(fromFirst, _mm512_set1_epi8(26));
    return _mm512_mask_add_epi8(bytes, letters, bytes,
                                _mm512_set1_epi8(Case::kFirstLetter == 'A' ? 32 : -32));
}

template <class Case>
QZSTRING_KERNEL __m512i mapAsciiLanes(__m512i characters) {
    const __m512i fromFirst = _mm512_sub_epi32(characters, _mm512_set1_epi32(Case::kFirstLetter));
    const __mmask16 letters = _mm512_cmplt_epu32_mask(fromFirst, _mm512_set1_epi32(26));
    return _mm512_mask_add_epi32(characters, letters, characters,
                                 _mm512_set1_epi32(Case::kFirstLetter == 'A' ? 32 : -32));
}

// The lanes whose characters are beyond ASCII and may have case.
QZSTRING_KERNEL __mmask16 lanesToLookUp(__m512i characters) {
    const __m512i fromCaseless = _mm512_sub_epi32(characters, _mm512_set1_epi32(0x2E80));
    return _mm512_mask_cmpge_epu32_mask(_mm512_test_epi32_mask(characters, _mm512_set1_epi32(-0x80)),
                                        fromCaseless, _mm512_set1_epi32(0xA640 - 0x2E80));
}

// The deltas of the characters of those lanes. Two neighbouring blocks of the table, 128 characters, are
// looked up at a time, by permutations; letters of one script seldom take more. Gathers are slower.
template <class Case>
QZSTRING_KERNEL __m512i lookUp(__m512i characters, __mmask16 lanes) {
    static_assert(tables::kBlockBits == 6);
    const __m512i pairs = _mm512_srli_epi32(characters, 7);
    const __mmask16 inSecond = _mm512_test_epi32_mask(characters, _mm512_set1_epi32(64));
    __m512i deltas = _mm512_setzero_si512();
    while (lanes != 0) {
        const __m128i pair = _mm512_castsi512_si128(_mm512_maskz_compress_epi32(lanes, pairs));
        const std::uint16_t* const offsets = Case::kOffsets + 2 * _mm_cvtsi128_si32(pair);
        const std::uint16_t* const first = Case::kDeltas + offsets[0];
        const std::uint16_t* const second = Case::kDeltas + offsets[1];
        const __mmask16 found = _mm512_mask_cmpeq_epi32_mask(lanes, pairs, _mm512_broadcastd_epi32(pair));
        // The index is the low six bits of a 16-bit lane; what the high halves look up is not used.
        const __m512i ofFirst =
            _mm512_permutex2var_epi16(_mm512_loadu_si512(first), characters, _mm512_loadu_si512(first + 32));
        const __m512i ofSecond = _mm512_permutex2var_epi16(_mm512_loadu_si512(second), characters,
                                                           _mm512_loadu_si512(second + 32));
        deltas = _mm512_mask_mov_epi32(deltas, found, _mm512_mask_mov_epi32(ofFirst, inSecond, ofSecond));
        lanes = static_cast<__mmask16>(lanes & ~found);
    }
    return deltas;
}

template <class Case>
QZSTRING_KERNEL __m512i mapLanes(__m512i characters) {
    const __m512i mapped = mapAsciiLanes<Case>(characters);
    const __mmask16 inTable = _mm512_mask_cmplt_epu32_mask(lanesToLookUp(characters), characters,
                                                           _mm512_set1_epi32(static_cast<int>(Case::kLimit)));
    if (inTable == 0)
        return mapped;
    const __m512i deltas = lookUp<Case>(characters, inTable);
    return _mm512_mask_add_epi16(mapped, 0x55555555, mapped, deltas);  // in the low halves only
}

// Vectors of both widths: the first `count` elements, fewer than a vector has.
QZSTRING_KERNEL __m512i loadFirst(const char* text, std::size_t count) {
    return _mm512_maskz_loadu_epi8(lowBits(count), text);
}
QZSTRING_KERNEL __m512i loadFirst(const wchar_t* text, std::size_t count) {
    return _mm512_maskz_loadu_epi32(lowLanes(count), text);
}
QZSTRING_KERNEL void storeFirst(char* text, std::size_t count, __m512i elements) {
    _mm512_mask_storeu_epi8(text, lowBits(count), elements);
}
QZSTRING_KERNEL void storeFirst(wchar_t* text, std::size_t count, __m512i elements) {
    _mm512_mask_storeu_epi32(text, lowLanes(count), elements);
}

template <class Char>
constexpr std::size_t kElements = 64 / sizeof(Char);

template <class Case, class Char>
QZSTRING_KERNEL __m512i mapVector(__m512i elements) {
    return sizeof(Char) == 1 ? mapBytes<Case>(elements) : mapLanes<Case>(elements);
}

template <class Case, class Char>
QZSTRING_TARGET void mapRun(Char* text, std::size_t count) noexcept {
    std::size_t at = 0;
    for (; count - at >= kElements<Char>; at += kElements<Char>)
        _mm512_storeu_si512(text + at, mapVector<Case, Char>(_mm512_loadu_si512(text + at)));
    if (at < count)
        storeFirst(text + at, count - at, mapVector<Case, Char>(loadFirst(text + at, count - at)));
    _mm256_zeroupper();
}

// Where the elements differ by more than the case of ASCII letters: equal but for bit 5, and a letter with
// it.
QZSTRING_KERNEL __mmask64 differences(__m512i a, __m512i b) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi8(_mm512_or_si512(a, _mm512_set1_epi8(0x20)), _mm512_set1_epi8('a'));
    const __mmask64 otherCase = _mm512_mask_cmplt_epu8_mask(
        _mm512_cmpeq_epi8_mask(difference, _mm512_set1_epi8(0x20)), fromFirst, _mm512_set1_epi8(26));
    return _mm512_test_epi8_mask(difference, difference) & ~otherCase;
}

// The same, and beyond ASCII where the lower-case forms differ.
QZSTRING_KERNEL __mmask16 wideDifferences(__m512i a, __m512i b) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi32(_mm512_or_si512(a, _mm512_set1_epi32(0x20)), _mm512_set1_epi32('a'));
    const __mmask16 otherCase = _mm512_mask_cmplt_epu32_mask(
        _mm512_cmpeq_epi32_mask(difference, _mm512_set1_epi32(0x20)), fromFirst, _mm512_set1_epi32(26));
    const auto differ = static_cast<__mmask16>(_mm512_test_epi32_mask(difference, difference) & ~otherCase);
    if (differ == 0)
        return 0;
    return _mm512_mask_cmpneq_epi32_mask(differ, mapLanes<loops::Lower>(a), mapLanes<loops::Lower>(b));
}

template <class Char>
QZSTRING_KERNEL std::uint64_t differencesOf(__m512i a, __m512i b) {
    return sizeof(Char) == 1 ? differences(a, b) : wideDifferences(a, b);
}

template <class Char>
QZSTRING_TARGET std::size_t findCaseDifference(const Char* a, const Char* b, std::size_t count) noexcept {
    std::size_t at = 0;
    std::uint64_t found = 0;
    for (; found == 0 && count - at >= kElements<Char>; at += kElements<Char>)
        found = differencesOf<Char>(_mm512_loadu_si512(a + at), _mm512_loadu_si512(b + at));
    if (found != 0)
        at -= kElements<Char>;
    else if (at < count)
        found = differencesOf<Char>(loadFirst(a + at, count - at), loadFirst(b + at, count - at));
    _mm256_zeroupper();
    return found == 0 ? count : at + static_cast<std::size_t>(_tzcnt_u64(found));
}

// ---- Hash ----

struct Lanes {
    __m512i lanes;

    QZSTRING_KERNEL void add(const unsigned char* stripe, const unsigned char* secret) {
        const __m512i words = _mm512_loadu_si512(stripe);
        const __m512i keyed = _mm512_xor_si512(words, _mm512_loadu_si512(secret));
        const __m512i product = _mm512_mul_epu32(keyed, _mm512_srli_epi64(keyed, 32));
        const __m512i swapped = _mm512_shuffle_epi32(words, _MM_PERM_BADC);
        lanes = _mm512_add_epi64(_mm512_add_epi64(product, swapped), lanes);
    }
    QZSTRING_KERNEL void scramble(const unsigned char* secret) {
        const __m512i mixed =
            _mm512_ternarylogic_epi64(lanes, _mm512_srli_epi64(lanes, 47), _mm512_loadu_si512(secret), 0x96);
        lanes = _mm512_mullo_epi64(mixed, _mm512_set1_epi64(hashing::kPrime32[0]));
    }
};

QZSTRING_TARGET void hashLanes(std::uint64_t state[8], const unsigned char* input, std::size_t length) {
    Lanes lanes{_mm512_loadu_si512(state)};
    hashing::feed(lanes, input, length);
    _mm512_storeu_si512(state, lanes.lanes);
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
    isAsciiNarrow,
    isAsciiWide,
    mapRun<loops::Lower, char>,
    mapRun<loops::Upper, char>,
    mapRun<loops::Lower, wchar_t>,
    mapRun<loops::Upper, wchar_t>,
    findCaseDifference<char>,
    findCaseDifference<wchar_t>,
    hashLanes,
};

}  // namespace qzString::kernels

#endif
