// The AVX-512 kernels of the character runs and the hash, and the row of the table. utf8*Avx512.cpp have the
// conversions.
//
// Every loop takes whole vectors, the last one over some of the one before.
//
// Case of wide text: ASCII by arithmetic; characters between U+2E80 and U+A63F have no case; what else there
// is looks up what to add in the tables (characterTables.h), by permutations of two blocks of the table.
// Those of the last look-up stay in registers: letters of one script seldom need others. Before others are
// fetched, a bit for each tells whether they have case at all, as dozens of blocks of Hangul have not.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/avx512.h"
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

// ---- ASCII ----

template <int kBits>
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
    return isAsciiBytes<static_cast<int>(0x80808080)>(text, count);
}

QZSTRING_TARGET bool isAsciiWide(const wchar_t* text, std::size_t count) noexcept {
    return isAsciiBytes<-0x80>(reinterpret_cast<const char*>(text), count * sizeof(wchar_t));
}

// ---- Case ----

// Maps vectors of elements to one case.
template <class Case, class Char>
class Mapping;

template <class Case>
class Mapping<Case, char> {
  public:
    QZSTRING_KERNEL explicit Mapping(char) {}

    QZSTRING_KERNEL __m512i operator()(__m512i bytes) const {
        const __m512i fromFirst = _mm512_sub_epi8(bytes, _mm512_set1_epi8(Case::kFirstLetter));
        const __mmask64 letters = _mm512_cmplt_epu8_mask(fromFirst, _mm512_set1_epi8(26));
        return _mm512_mask_add_epi8(bytes, letters, bytes,
                                    _mm512_set1_epi8(Case::kFirstLetter == 'A' ? 32 : -32));
    }
};

constexpr int kPairBits = tables::kBlockBits + 1;

// Keeps two neighbouring blocks of the table, those of 128 characters. Gathers are slower.
template <class Case>
class Mapping<Case, wchar_t> {
  public:
    // Begins with the blocks around a character, which keeps a look-up out of the first vector's road.
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
        const auto first = static_cast<int>(loops::kCaseless[1][0]);
        const auto end = static_cast<int>(loops::kCaseless[1][1]);
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

template <class Char>
constexpr std::size_t kElements = 64 / sizeof(Char);

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

// ---- Comparison ----

// Where the lower-case forms of two vectors differ. In ASCII letters, bit 5 does not count. The first vector
// stands at `text`.
QZSTRING_KERNEL std::uint64_t differences(__m512i a, __m512i b, const char*) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi8(_mm512_or_si512(a, everywhere<repeat8(0x20)>()), everywhere<repeat8('a')>());
    const __mmask64 letters = _mm512_cmplt_epu8_mask(fromFirst, everywhere<repeat8(26)>());
    const __m512i inAny = everywhere<repeat8(0xFF)>();
    const __m512i inLetters = everywhere<repeat8(0xDF)>();
    return _mm512_test_epi8_mask(difference, _mm512_mask_mov_epi8(inAny, letters, inLetters));
}

QZSTRING_KERNEL std::uint64_t differences(__m512i a, __m512i b, const wchar_t* text) {
    const __m512i difference = _mm512_xor_si512(a, b);
    const __m512i fromFirst =
        _mm512_sub_epi32(_mm512_or_si512(a, _mm512_set1_epi32(0x20)), _mm512_set1_epi32('a'));
    const __mmask16 letters = _mm512_cmplt_epu32_mask(fromFirst, _mm512_set1_epi32(26));
    const __mmask16 differ = _mm512_test_epi32_mask(
        difference, _mm512_mask_mov_epi32(_mm512_set1_epi32(-1), letters, _mm512_set1_epi32(~0x20)));
    if (differ == 0)
        return 0;
    // The first character is at hand sooner than the first that differs.
    Mapping<loops::Lower, wchar_t> map(isAscii(*text) ? text[_tzcnt_u32(differ)] : *text);
    return _mm512_mask_cmpneq_epi32_mask(differ, map.mapAtHand(a), map.mapAtHand(b));
}

template <class Char>
QZSTRING_KERNEL std::uint64_t differencesAt(const Char* a, const Char* b) {
    return differences(_mm512_loadu_si512(a), _mm512_loadu_si512(b), a);
}

// The same for up to 16 bytes, in small registers: they leave nothing to clean, which pays in a call of 2 ns.
QZSTRING_KERNEL std::uint64_t shortDifferences(const char* a, const char* b, std::size_t count) {
    const __mmask16 lanes = lowLanes(count);
    const __m128i first = _mm_maskz_loadu_epi8(lanes, a);
    const __m128i difference = _mm_xor_si128(first, _mm_maskz_loadu_epi8(lanes, b));
    const __m128i fromFirst = _mm_sub_epi8(_mm_or_si128(first, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __mmask16 letters = _mm_cmplt_epu8_mask(fromFirst, _mm_set1_epi8(26));
    return _mm_test_epi8_mask(difference,
                              _mm_mask_mov_epi8(_mm_set1_epi8(-1), letters, _mm_set1_epi8(~0x20)));
}

// The order of texts at the first of the places found to differ, from `at` on, or by their lengths.
template <class Char>
QZSTRING_KERNEL int orderAt(std::size_t at, std::uint64_t found, const Char* a, std::size_t aCount,
                            const Char* b, std::size_t bCount) {
    if (found == 0)
        return loops::compareLengths(aCount, bCount);
    at += static_cast<std::size_t>(_tzcnt_u64(found));
    return loops::compareFolded(a + at, b + at);
}

// Texts equal up to `at`; narrow ones have more than 16 bytes in common.
template <class Char>
QZSTRING_KERNEL int compareFrom(std::size_t at, const Char* a, std::size_t aCount, const Char* b,
                                std::size_t bCount) {
    const std::size_t count = aCount < bCount ? aCount : bCount;
    std::uint64_t found = 0;
    while (found == 0 && count - at > kElements<Char>) {
        found = differencesAt(a + at, b + at);
        if (found == 0)
            at += kElements<Char>;
    }
    if (found == 0) {
        if (count > kElements<Char>) {
            at = count - kElements<Char>;
            found = differencesAt(a + at, b + at);
        } else {
            found = differences(loadShort(a, count * sizeof(Char)), loadShort(b, count * sizeof(Char)), a);
        }
    }
    _mm256_zeroupper();
    return orderAt(at, found, a, aCount, b, bCount);
}

// Texts that fill the first cache go along the cache lines of the first of the two, and are fetched ahead.
template <class Char>
QZSTRING_TARGET QZSTRING_NOINLINE int compareLong(const Char* a, std::size_t aCount, const Char* b,
                                                  std::size_t bCount) {
    constexpr std::size_t kAhead = loops::kPrefetched / sizeof(Char);
    const std::size_t count = aCount < bCount ? aCount : bCount;
    std::size_t at = 0;
    if (differencesAt(a, b) == 0) {
        at = kElements<Char> - reinterpret_cast<std::uintptr_t>(a) / sizeof(Char) % kElements<Char>;
        for (; count - at > kAhead && differencesAt(a + at, b + at) == 0; at += kElements<Char>) {
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
    if (sizeof(Char) == 1 && count <= 16) {
        const std::uint64_t found =
            shortDifferences(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b), count);
        return orderAt(0, found, a, aCount, b, bCount);
    }
    if (count * sizeof(Char) >= loops::kBeyondFirstCache)
        return compareLong(a, aCount, b, bCount);
    return compareFrom(0, a, aCount, b, bCount);
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
