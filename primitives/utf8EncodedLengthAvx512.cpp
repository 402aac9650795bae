// The length of encoded UTF-8 in AVX-512: a sum of the bytes that characters need beyond one each.
//
// Those are counted by comparisons in 16-bit lanes: two for text below U+10000, three for other. (Whole
// blocks of other text, where it is long, are looked up by the number of leading zeros.) The masks go to
// general registers and are counted there: lanes would have to be added up at the end, which short text
// cannot afford, and take as many instructions in a loop.
//
// Long text that has been measured from its beginning to its end has left the cache when the conversion comes
// back to its beginning, so it is measured from its last piece to its first.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/inline.h"
#include "primitives/output.h"
#include "primitives/utf8CharactersAvx512.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels::avx512 {
namespace {

using output::kFailure;

// The bytes beyond the first, by the number of leading zeros.
alignas(64) constexpr char kExtra[64] = {
    0, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 2, 2, 2, 2, 2, 1, 1, 1, 1,
};

QZSTRING_KERNEL std::size_t measureVector(const wchar_t* source, std::size_t length) {
    const __m512i characters = loadShort(source, sizeof(wchar_t) * length);
    const __mmask16 two = _mm512_cmpge_epu32_mask(characters, everywhere<repeat32(0x80)>());
    if (two == 0) {
        _mm256_zeroupper();
        return length;
    }
    const __mmask16 three = _mm512_cmpge_epu32_mask(characters, everywhere<repeat32(0x800)>());
    const __mmask16 four = _mm512_cmpge_epu32_mask(characters, everywhere<repeat32(0x10000)>());
    const bool faulty = anyIllFormed(characters);
    const std::size_t bytes =
        leaveWith(length + static_cast<std::size_t>(_mm_popcnt_u32(two) + _mm_popcnt_u32(three) +
                                                    _mm_popcnt_u32(four)));
    return faulty ? kFailure : bytes;
}

// Adds up the bytes that characters need beyond one each, 32 characters at a time. In 16-bit lanes what is
// above U+FFFF becomes that, or zero if it is a fault.
struct Measure {
    std::size_t extra = 0;
    __m512i nearestSurrogate;
    __m512i largestUpper;  // of the upper halves of characters

    QZSTRING_KERNEL Measure()
        : nearestSurrogate(_mm512_set1_epi32(-1)), largestUpper(_mm512_setzero_si512()) {}

    // Where !kBeyondUnits, of characters below U+10000.
    template <bool kBeyondUnits>
    QZSTRING_KERNEL void add(__m512i a, __m512i b) {
        const __m512i units = _mm512_packus_epi32(a, b);
        see(units);
        count(_mm512_cmpge_epu16_mask(units, everywhere<repeat16(0x80)>()));
        count(_mm512_cmpge_epu16_mask(units, everywhere<repeat16(0x800)>()));
        if (kBeyondUnits) {
            const __m512i upper = upperHalves(a, b);
            largestUpper = _mm512_max_epu16(largestUpper, upper);
            count(_mm512_test_epi16_mask(upper, upper));
        }
    }
    // Without a count. `all` is what is set in any character.
    QZSTRING_KERNEL void seeFaults(const Characters& block, __m512i all) {
        see(_mm512_packus_epi32(block.a, block.b));
        see(_mm512_packus_epi32(block.c, block.d));
        if (anyFrom<0x100000>(all)) {
            const __m512i largest =
                upperHalves(_mm512_max_epu32(block.a, block.b), _mm512_max_epu32(block.c, block.d));
            largestUpper = _mm512_max_epu16(largestUpper, largest);
        }
    }
    // What encodedLength gives where the characters, of which all have been added, need these bytes besides;
    // !kBeyondUnits where all were added so.
    template <bool kBeyondUnits>
    [[nodiscard]] QZSTRING_KERNEL std::size_t leaveWith(std::size_t besides) const {
        __mmask32 lanes = _mm512_cmplt_epu16_mask(nearestSurrogate, everywhere<repeat16(0x800)>());
        if (kBeyondUnits)
            lanes |= _mm512_cmpgt_epu16_mask(largestUpper, everywhere<repeat16(0x10)>());
        const bool faulty = lanes != 0;
        const std::size_t bytes = kernels::leaveWith(besides + extra);
        return faulty ? kFailure : bytes;
    }

  private:
    QZSTRING_KERNEL static __m512i upperHalves(__m512i a, __m512i b) {
        return _mm512_packus_epi32(_mm512_srli_epi32(a, 16), _mm512_srli_epi32(b, 16));
    }
    QZSTRING_KERNEL void see(__m512i units) {
        const __m512i fromSurrogates = _mm512_xor_si512(units, everywhere<repeat16(0xD800)>());
        nearestSurrogate = _mm512_min_epu16(nearestSurrogate, fromSurrogates);
    }
    QZSTRING_KERNEL void count(__mmask32 lanes) { extra += static_cast<std::size_t>(_mm_popcnt_u32(lanes)); }
};

// ---- Up to two blocks ----

// Of up to one block.
template <bool kBeyondUnits>
QZSTRING_KERNEL std::size_t measureOne(const Characters& part, std::size_t length) {
    Measure measure;
    measure.add<kBeyondUnits>(part.a, part.b);
    if (length > 32)
        measure.add<kBeyondUnits>(part.c, part.d);
    return measure.leaveWith<kBeyondUnits>(length);
}

QZSTRING_KERNEL std::size_t measurePart(const wchar_t* source, std::size_t length) {
    const Characters part = loadPart<false>(source, length);
    const __m512i all = part.all();
    if (!anyFrom<0x80>(all)) {
        _mm256_zeroupper();
        return length;
    }
    return anyFrom<0x10000>(all) ? measureOne<true>(part, length) : measureOne<false>(part, length);
}

// Of one to two blocks.
template <bool kBeyondUnits>
QZSTRING_KERNEL std::size_t measureTwo(const Characters& first, const Characters& last, std::size_t length) {
    Measure measure;
    measure.add<kBeyondUnits>(first.a, first.b);
    measure.add<kBeyondUnits>(first.c, first.d);
    measure.add<kBeyondUnits>(last.a, last.b);
    if (length > kBlock + 32)
        measure.add<kBeyondUnits>(last.c, last.d);
    return measure.leaveWith<kBeyondUnits>(length);
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureTwoBlocks(const wchar_t* source, std::size_t length,
                                                                bool* ok) {
    const Characters first = loadWhole(source);
    const Characters last = loadPart<false>(source + kBlock, length - kBlock);
    const __m512i all = _mm512_or_si512(first.all(), last.all());
    if (!anyFrom<0x80>(all)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    return output::report(anyFrom<0x10000>(all) ? measureTwo<true>(first, last, length)
                                                : measureTwo<false>(first, last, length),
                          ok);
}

// ---- Longer text ----

// Texts of at least this many characters are worth taking along cache lines (measured on Zen 5).
constexpr std::size_t kWorthAligning = 4 * kBlock;

// How many characters to take first, so that those after them begin with a cache line.
QZSTRING_KERNEL std::size_t toCacheLine(const wchar_t* source) {
    return (0 - reinterpret_cast<std::uintptr_t>(source) / sizeof(wchar_t)) % 16;
}

// Characters: small beside the second cache, long beside what a hardware prefetcher takes to begin.
constexpr std::size_t kPiece = 1 << 16;

// The sums of a block's bytes beyond one a character, by leading zeros: where some are above U+FFFF that
// takes fewer instructions. A lane grows by at most 12 a block: far from 2^32 in 2^26 blocks.
QZSTRING_KERNEL __m512i addByZeros(__m512i sums, const Characters& block) {
    const __m512i parts[] = {block.a, block.b, block.c, block.d};
    for (const __m512i characters : parts)
        sums = _mm512_add_epi32(sums, _mm512_permutexvar_epi8(_mm512_lzcnt_epi32(characters), table(kExtra)));
    return sums;
}

QZSTRING_KERNEL std::size_t total(__m512i sums) {
    const __m512i wide =
        _mm512_add_epi64(_mm512_and_si512(sums, _mm512_set1_epi64(0xFFFFFFFF)), _mm512_srli_epi64(sums, 32));
    return static_cast<std::size_t>(_mm512_reduce_add_epi64(wide));
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureBlocks(const wchar_t* source, std::size_t length,
                                                             bool* ok) {
    Measure measure;
    __m512i sums = _mm512_setzero_si512();
    bool hasSums = false;
    std::size_t bytes = length;
    if (length >= kWorthAligning) {
        const std::size_t part = toCacheLine(source);
        const __m512i first = _mm512_maskz_loadu_epi32(lowLanes(part), source);
        if (anyFrom<0x80>(first))
            measure.add<true>(first, _mm512_setzero_si512());
        source += part;
        length -= part;
    }
    std::size_t end = length;
    while (end > 0) {
        const std::size_t begin = (end - 1) & ~(kPiece - 1);
        std::size_t at = begin;
        while (end - at >= kBlock) {
            const Characters block = loadWhole(source + at);
            const __m512i all = block.all();
            at += kBlock;
            if (anyFrom<0x10000>(all)) {
                sums = addByZeros(sums, block);
                hasSums = true;
                measure.seeFaults(block, all);
            } else if (anyFrom<0x80>(all)) {
                measure.add<false>(block.a, block.b);
                measure.add<false>(block.c, block.d);
            } else {
                while (end - at >= kBlock && !anyFrom<0x80>(loadWhole(source + at).all()))
                    at += kBlock;
            }
        }
        if (at < end) {
            const Characters part = loadPart<false>(source + at, end - at);
            if (anyFrom<0x80>(part.all())) {
                measure.add<true>(part.a, part.b);
                measure.add<true>(part.c, part.d);
            }
        }
        end = begin;
    }
    if (hasSums)
        bytes += total(sums);
    return output::report(measure.leaveWith<true>(bytes), ok);
}

}  // namespace

// An entry, as avx512.h describes them.
QZSTRING_TARGET unsigned int encodedLength(const wchar_t* source, std::size_t length, bool* ok) {
    if (length <= 16)
        return output::report(measureVector(source, length), ok);
    if (length <= kBlock)
        return output::report(measurePart(source, length), ok);
    return length <= 2 * kBlock ? measureTwoBlocks(source, length, ok) : measureBlocks(source, length, ok);
}

}  // namespace qzString::kernels::avx512

#endif
