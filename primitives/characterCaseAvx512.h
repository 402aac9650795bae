// Case mapping in AVX-512. Internal, not installed.
//
// Every loop takes whole vectors, the last one over some of the one before.
//
// In wide text ASCII goes by arithmetic; characters between U+2E80 and U+A63F have no case; what else there
// is looks up what to add in the tables (characterTables.h), by permutations of two blocks of the table.
// Those of the last look-up stay in registers: letters of one script seldom need others. Before others are
// fetched, a bit for each tells whether they have case at all, as dozens of blocks of Hangul have not.
#ifndef QZSTRING_PRIMITIVES_CHARACTERCASEAVX512_H
#define QZSTRING_PRIMITIVES_CHARACTERCASEAVX512_H

#include <cstddef>
#include <cstdint>

#include "primitives/avx512.h"
#include "primitives/characterPortable.h"

namespace qzString::kernels::avx512 {

// The elements of a vector.
template <class Char>
constexpr std::size_t kElements = 64 / sizeof(Char);

// Maps vectors of elements to one case.
template <class Case, class Char>
class Mapping;

template <class Case>
class Mapping<Case, char> {
  public:
    QZSTRING_KERNEL explicit Mapping(char) {}

    QZSTRING_KERNEL __m512i operator()(__m512i bytes) const {
        const __m512i fromFirst = _mm512_sub_epi8(bytes, everywhere<repeat8(Case::kFirstLetter)>());
        const __mmask64 letters = _mm512_cmplt_epu8_mask(fromFirst, everywhere<repeat8(26)>());
        return _mm512_mask_add_epi8(bytes, letters, bytes,
                                    everywhere<repeat8(Case::kFirstLetter == 'A' ? 32 : 256 - 32)>());
    }
};

constexpr int kPairBits = tables::kBlockBits + 1;

// Keeps two neighbouring blocks of the table, those of 128 characters. Gathers are slower.
template <class Case>
class Mapping<Case, wchar_t> {
  public:
    // Begins with the blocks around a character, which keeps a look-up out of the first vector's path.
    QZSTRING_KERNEL explicit Mapping(wchar_t first) {
        const auto u = static_cast<char32_t>(first);
        choose(u < Case::kLimit ? static_cast<int>(u >> kPairBits) : 0);
    }

    QZSTRING_KERNEL __m512i operator()(__m512i characters) {
        const __m512i mapped = mapAscii(characters);
        const __mmask16 others = mayHaveCase(characters);
        return others == 0 ? mapped : addLow(mapped, deltas(characters, others));
    }

    // The same where the characters beyond ASCII are likely in the blocks at hand, as they are where two
    // texts in one script differ: whether they have case is asked only where they are not.
    QZSTRING_KERNEL __m512i mapAtHand(__m512i characters) {
        const __mmask16 beyondAscii = _mm512_test_epi32_mask(characters, _mm512_set1_epi32(-0x80));
        const __mmask16 found =
            _mm512_mask_cmpeq_epi32_mask(beyondAscii, _mm512_srli_epi32(characters, kPairBits), pair);
        if (found != beyondAscii)
            return (*this)(characters);
        return addLow(mapAscii(characters), _mm512_maskz_mov_epi32(found, lookUp(characters)));
    }

  private:
    QZSTRING_KERNEL static __m512i mapAscii(__m512i characters) {
        const __m512i fromFirst = _mm512_sub_epi32(characters, _mm512_set1_epi32(Case::kFirstLetter));
        const __mmask16 letters = _mm512_cmplt_epu32_mask(fromFirst, _mm512_set1_epi32(26));
        return _mm512_mask_add_epi32(characters, letters, characters,
                                     _mm512_set1_epi32(Case::kFirstLetter == 'A' ? 32 : -32));
    }

    // Adds to the low halves of the lanes.
    QZSTRING_KERNEL static __m512i addLow(__m512i characters, __m512i deltas) {
        return _mm512_mask_add_epi16(characters, 0x55555555, characters, deltas);
    }

    // The lanes whose characters are beyond ASCII, below the table's limit, and not among those in its middle
    // that have no case.
    QZSTRING_KERNEL static __mmask16 mayHaveCase(__m512i characters) {
        const auto first = static_cast<int>(portable::kCaseless[1][0]);
        const auto end = static_cast<int>(portable::kCaseless[1][1]);
        const __m512i fromCaseless = _mm512_sub_epi32(characters, _mm512_set1_epi32(first));
        const __mmask16 others =
            _mm512_mask_cmpge_epu32_mask(_mm512_test_epi32_mask(characters, _mm512_set1_epi32(-0x80)),
                                         fromCaseless, _mm512_set1_epi32(end - first));
        return _mm512_mask_cmplt_epu32_mask(others, characters,
                                            _mm512_set1_epi32(static_cast<int>(Case::kLimit)));
    }

    QZSTRING_KERNEL void choose(int chosen) {
        const std::uint16_t* const offsets = Case::kOffsets + 2 * chosen;
        for (int block = 0; block < 2; ++block) {
            for (int half = 0; half < 2; ++half)
                blocks[block][half] = _mm512_loadu_si512(Case::kDeltas + offsets[block] + 32 * half);
        }
        pair = _mm512_set1_epi32(chosen);
    }

    // The deltas of the characters of those lanes, zero in the others.
    QZSTRING_KERNEL __m512i deltas(__m512i characters, __mmask16 lanes) {
        const __m512i pairs = _mm512_srli_epi32(characters, kPairBits);
        __mmask16 found = _mm512_mask_cmpeq_epi32_mask(lanes, pairs, pair);
        __m512i result = _mm512_maskz_mov_epi32(found, lookUp(characters));
        if (lanes == found)
            return result;
        lanes = cased(pairs, static_cast<__mmask16>(lanes & ~found));
        while (lanes != 0) {
            choose(_mm_cvtsi128_si32(_mm512_castsi512_si128(_mm512_maskz_compress_epi32(lanes, pairs))));
            found = _mm512_mask_cmpeq_epi32_mask(lanes, pairs, pair);
            result = _mm512_mask_mov_epi32(result, found, lookUp(characters));
            lanes = static_cast<__mmask16>(lanes & ~found);
        }
        return result;
    }

    // Those of the lanes whose blocks have case at all. Most scripts have none, and some have dozens of
    // blocks.
    QZSTRING_KERNEL static __mmask16 cased(__m512i pairs, __mmask16 lanes) {
        const __m512i words =
            _mm512_permutex2var_epi32(_mm512_load_si512(Case::kCased), _mm512_srli_epi32(pairs, 5),
                                      _mm512_load_si512(Case::kCased + 16));
        // Rotations, unlike shifts, go by the number modulo 32.
        const __m512i bits = _mm512_rolv_epi32(_mm512_set1_epi32(1), pairs);
        return _mm512_mask_test_epi32_mask(lanes, words, bits);
    }

    // The index is the low six bits of a 16-bit lane; what the high halves look up is not used.
    QZSTRING_KERNEL __m512i lookUp(__m512i characters) const {
        static_assert(tables::kBlockBits == 6);
        const __mmask16 inSecond = _mm512_test_epi32_mask(characters, _mm512_set1_epi32(64));
        return _mm512_mask_mov_epi32(_mm512_permutex2var_epi16(blocks[0][0], characters, blocks[0][1]),
                                     inSecond,
                                     _mm512_permutex2var_epi16(blocks[1][0], characters, blocks[1][1]));
    }

    __m512i pair;
    __m512i blocks[2][2];
};

// The last vector, over some of the one before, is loaded before that is stored. It is stored only where it
// changes: short texts have the case already more often than not.
template <class Case, class Char>
QZSTRING_TARGET void mapRun(Char* text, std::size_t count) noexcept {
    if (count == 0)
        return;
    Mapping<Case, Char> map(*text);
    const bool isLong = count > kElements<Char>;
    Char* const end = text + count;
    const __m512i last =
        isLong ? _mm512_loadu_si512(end - kElements<Char>) : loadShort(text, count * sizeof(Char));
    for (; static_cast<std::size_t>(end - text) > kElements<Char>; text += kElements<Char>)
        _mm512_storeu_si512(text, map(_mm512_loadu_si512(text)));
    const __m512i mapped = map(last);
    if (_mm512_cmpneq_epi32_mask(last, mapped) != 0) {
        if (isLong)
            _mm512_storeu_si512(end - kElements<Char>, mapped);
        else
            storeShort(text, count, mapped);
    }
    _mm256_zeroupper();
}

}  // namespace qzString::kernels::avx512

#endif
