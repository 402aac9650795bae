// The length of encoded UTF-8 in AVX-512: a sum of the bytes that characters need beyond one each.
//
// Text below U+10000 is counted in 16-bit lanes by two comparisons, other text by the number of leading
// zeros. Long text that has been measured from its beginning to its end has left the cache when the
// conversion comes back to its beginning, so it is measured from its last piece to its first.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

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

QZSTRING_KERNEL std::size_t lanesFrom(__m512i characters, int limit) {
    return static_cast<std::size_t>(
        _mm_popcnt_u32(_mm512_cmpge_epu32_mask(characters, _mm512_set1_epi32(limit))));
}

QZSTRING_KERNEL std::size_t measureVector(const wchar_t* source, std::size_t length) {
    const __m512i characters = loadShort(source, sizeof(wchar_t) * length);
    const bool faulty = anyIllFormed(characters);
    const std::size_t bytes = leaveWith(length + lanesFrom(characters, 0x80) + lanesFrom(characters, 0x800) +
                                        lanesFrom(characters, 0x10000));
    return faulty ? kFailure : bytes;
}

// Adds up the bytes that characters need beyond one each.
struct Measure {
    Faults faults;
    __m512i sums;  // a lane grows by at most 12 a step: far from 2^32 in 2^26 steps

    QZSTRING_KERNEL Measure() : sums(_mm512_setzero_si512()) {}

    QZSTRING_KERNEL void add(const Characters& characters) {
        if (anyFrom(characters.all(), 0x80))
            addBeyondAscii(characters);
    }
    // Without a look for faults.
    QZSTRING_KERNEL void count(const Characters& block) {
        count(block.a);
        count(block.b);
        count(block.c);
        count(block.d);
    }
    // Of up to a block; no vector behind those of the first `count` holds any.
    QZSTRING_KERNEL void addBeyondAscii(const Characters& characters, std::size_t count = kBlock) {
        add(characters.a);
        add(characters.b);
        if (count > 32) {
            add(characters.c);
            add(characters.d);
        }
    }

    [[nodiscard]] QZSTRING_KERNEL std::size_t total() const {
        const __m512i wide = _mm512_add_epi64(_mm512_and_si512(sums, _mm512_set1_epi64(0xFFFFFFFF)),
                                              _mm512_srli_epi64(sums, 32));
        return static_cast<std::size_t>(_mm512_reduce_add_epi64(wide));
    }
    // What encodedLength gives of a text of one or two blocks, all of it added; their sums fit bytes.
    [[nodiscard]] QZSTRING_KERNEL std::size_t leaveWithLength(std::size_t length) const {
        const bool faulty = faults.any();
        const __m128i halves = _mm_sad_epu8(_mm512_cvtepi32_epi8(sums), _mm_setzero_si128());
        const std::size_t bytes = leaveWith(
            length + static_cast<std::size_t>(_mm_cvtsi128_si64(halves) + _mm_extract_epi64(halves, 1)));
        return faulty ? kFailure : bytes;
    }

  private:
    QZSTRING_KERNEL void add(__m512i characters) {
        faults.see(characters);
        count(characters);
    }
    QZSTRING_KERNEL void count(__m512i characters) {
        sums = _mm512_add_epi32(sums, _mm512_permutexvar_epi8(_mm512_lzcnt_epi32(characters), table(kExtra)));
    }
};

// The characters from which on it pays, as measured on Zen 5, to take blocks along cache lines.
constexpr std::size_t kWorthAligning = 4 * kBlock;

// How many characters to take first, so that those after them begin with a cache line.
QZSTRING_KERNEL std::size_t toCacheLine(const wchar_t* source) {
    return (0 - reinterpret_cast<std::uintptr_t>(source) / sizeof(wchar_t)) % 16;
}

// Characters: small beside the second cache, long beside what a hardware prefetcher takes to begin.
constexpr std::size_t kPiece = 1 << 16;
static_assert(kPiece / kBlock * 4 <= 0xFFFF, "UnitMeasure's lanes hold a piece");

// Faults of whole blocks, with half the instructions: surrogates are looked for in 16-bit lanes, where what
// is above U+FFFF becomes that (or zero), and the largest only where the block's bits say that one may be
// above U+10FFFF. The conversion gains nothing by it.
struct BlockFaults {
    __m512i largest, nearestSurrogate, surrogate;

    QZSTRING_KERNEL BlockFaults()
        : largest(_mm512_setzero_si512()),
          nearestSurrogate(_mm512_set1_epi32(-1)),
          surrogate(everywhere<repeat16(0xD800)>()) {}
    QZSTRING_KERNEL void seeSurrogates(const Characters& block) {
        see(_mm512_packus_epi32(block.a, block.b));
        see(_mm512_packus_epi32(block.c, block.d));
    }
    // `all` is what is set in any character.
    QZSTRING_KERNEL void seeSizes(const Characters& block, __m512i all) {
        if (anyFrom(all, 0x100000)) {
            const __m512i first = _mm512_max_epu32(block.a, block.b);
            const __m512i second = _mm512_max_epu32(block.c, block.d);
            largest = _mm512_max_epu32(largest, _mm512_max_epu32(first, second));
        }
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        return _mm512_cmpgt_epu32_mask(largest, _mm512_set1_epi32(0x10FFFF)) != 0 ||
               _mm512_cmplt_epu16_mask(nearestSurrogate, _mm512_set1_epi16(0x800)) != 0;
    }

  private:
    QZSTRING_KERNEL void see(__m512i units) {
        nearestSurrogate = _mm512_min_epu16(nearestSurrogate, _mm512_xor_si512(units, surrogate));
    }
};

// Measures characters below U+10000 in 16-bit lanes: that takes half the instructions.
struct UnitMeasure {
    __m512i sums;  // a lane grows by at most four a block
    __m512i one, beyondAscii, beyondTwo;

    QZSTRING_KERNEL UnitMeasure()
        : sums(_mm512_setzero_si512()),
          one(everywhere<repeat16(1)>()),
          beyondAscii(everywhere<repeat16(0x80)>()),
          beyondTwo(everywhere<repeat16(0x800)>()) {}

    QZSTRING_KERNEL void add(const Characters& block) {
        add(_mm512_packus_epi32(block.a, block.b));
        add(_mm512_packus_epi32(block.c, block.d));
    }
    // Gives the sums in 32-bit lanes, and begins anew.
    QZSTRING_KERNEL __m512i takeSums() {
        const __m512i taken = sums;
        sums = _mm512_setzero_si512();
        return _mm512_add_epi32(_mm512_and_si512(taken, _mm512_set1_epi32(0xFFFF)),
                                _mm512_srli_epi32(taken, 16));
    }

  private:
    QZSTRING_KERNEL void add(__m512i units) {
        count(_mm512_cmpge_epu16_mask(units, beyondAscii));
        count(_mm512_cmpge_epu16_mask(units, beyondTwo));
    }
    QZSTRING_KERNEL void count(__mmask32 lanes) { sums = _mm512_mask_add_epi16(sums, lanes, sums, one); }
};

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureBlocks(const wchar_t* source, std::size_t length,
                                                             bool* ok) {
    Measure measure;
    std::size_t bytes = length;
    if (length >= kWorthAligning) {
        const __m512i none = _mm512_setzero_si512();
        const std::size_t part = toCacheLine(source);
        measure.add({_mm512_maskz_loadu_epi32(lowLanes(part), source), none, none, none});
        source += part;
        length -= part;
    }
    UnitMeasure units;
    BlockFaults faults;
    std::size_t end = length;
    while (end > 0) {
        const std::size_t begin = (end - 1) & ~(kPiece - 1);
        std::size_t at = begin;
        while (end - at >= kBlock) {
            const Characters block = loadWhole(source + at);
            const __m512i all = block.all();
            at += kBlock;
            if (anyFrom(all, 0x10000)) {
                measure.count(block);
                faults.seeSurrogates(block);
                faults.seeSizes(block, all);
            } else if (anyFrom(all, 0x80)) {
                units.add(block);
                faults.seeSurrogates(block);
            } else {
                while (end - at >= kBlock && !anyFrom(loadWhole(source + at).all(), 0x80))
                    at += kBlock;
            }
        }
        measure.sums = _mm512_add_epi32(measure.sums, units.takeSums());
        if (at < end)
            measure.add(loadPart<false>(source + at, end - at));
        end = begin;
    }
    const bool faulty = measure.faults.any() || faults.any();
    bytes = leaveWith(bytes + measure.total());
    return output::report(faulty ? kFailure : bytes, ok);
}

// Of up to one block.
QZSTRING_KERNEL std::size_t measurePart(const wchar_t* source, std::size_t length) {
    const Characters part = loadPart<false>(source, length);
    if (!anyFrom(part.all(), 0x80)) {
        _mm256_zeroupper();
        return length;
    }
    Measure measure;
    measure.addBeyondAscii(part, length);
    return measure.leaveWithLength(length);
}

// Of one to two blocks.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureTwoBlocks(const wchar_t* source, std::size_t length,
                                                                bool* ok) {
    const Characters first = loadWhole(source);
    const Characters last = loadPart<false>(source + kBlock, length - kBlock);
    if (!anyFrom(_mm512_or_si512(first.all(), last.all()), 0x80)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    Measure measure;
    measure.addBeyondAscii(first);
    measure.addBeyondAscii(last, length - kBlock);
    return output::report(measure.leaveWithLength(length), ok);
}

}  // namespace

// Short text takes no stack: what it costs is the call. The kernels of longer text report themselves and are
// jumped to: where it calls one, g++ 12 has an entry align its stack for vectors first, short text or not.
QZSTRING_TARGET unsigned int encodedLength(const wchar_t* source, std::size_t length, bool* ok) {
    if (length <= 16)
        return output::report(measureVector(source, length), ok);
    if (length <= kBlock)
        return output::report(measurePart(source, length), ok);
    return length <= 2 * kBlock ? measureTwoBlocks(source, length, ok) : measureBlocks(source, length, ok);
}

}  // namespace qzString::kernels::avx512

#endif
