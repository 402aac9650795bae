// Decoding UTF-8 in AVX-512 with VBMI2 and GFNI, 64 bytes a block.
//
// 1. The block is loaded as it is and as seen from 1, 2 and 3 positions on, and checked (utf8BytesAvx512.h).
// 2. A character is formed at its last byte: from it and the bytes before, every position has the low, middle
//    and high byte of the code point that would end there. One affine transformation each moves the bits.
// 3. The positions at which characters do end, those before a byte that is no continuation, select those
//    bytes (vpcompressb); byte permutations spread them over 32-bit lanes, 16 characters a store.
//
// Block edges: a character is formed in the block in which it ends; the loads reach back to its first bytes.
// Too little room ends a conversion at once, a fault is noticed at its end: it succeeds as a whole or not at
// all.
//
// Stores: 64 bytes whole while what is still to come is sure to fill them; the last 16 characters over some
// of those before, or under a mask where there are fewer, so that nothing past the count is touched.
// (avx512.h's narrower stores would branch on how few there are.)
//
// Processors may let a load wait until the places of all stores before it are known, and these depend on the
// count of the block before: what tells the count is therefore loaded a block ahead.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/inline.h"
#include "primitives/output.h"
#include "primitives/utf8BytesAvx512.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels::avx512 {
namespace {

using output::kFailure;

// ASCII of at least this many bytes is worth widening with constants in registers (measured on Zen 5).
constexpr std::size_t kWorthWidening = 5 * kBlock;

// The matrix that copies one bit to `count` bits from `to` on.
constexpr std::uint64_t copyBit(int from, int to, int count) {
    std::uint64_t matrix = 0;
    for (int i = 0; i < count; ++i)
        matrix |= (std::uint64_t{1} << from) << 8 * (7 - (to + i));
    return matrix;
}

// The indices that take a byte to each of two lanes of 32 bits, four times.
constexpr long long spreadWord(int byte) {
    const std::uint64_t both = repeat32(0x01010101) * static_cast<unsigned>(byte) + 0x0101010100000000;
    return static_cast<long long>(both);
}

// Lane j of 32 bits takes byte kFirst + j.
template <int kFirst>
constexpr __m512i kSpread = {spreadWord(kFirst),      spreadWord(kFirst + 2), spreadWord(kFirst + 4),
                             spreadWord(kFirst + 6),  spreadWord(kFirst + 8), spreadWord(kFirst + 10),
                             spreadWord(kFirst + 12), spreadWord(kFirst + 14)};

// Where the bytes of a code point go in a lane.
struct Places {
    __mmask64 low = 0x1111111111111111;
    __mmask64 middle = 0x2222222222222222;
    __mmask64 high = 0x4444444444444444;
};

// The constants of decoding. What only few blocks need comes from memory always, as there are not registers
// for all.
struct Constants : CheckConstants {
    __m512i twoBitsUp = kFilled<moveBits(0, 6, 2)>;
    __m512i fourBitsDown = kFilled<moveBits(2, 0, 4)>;
    __m512i fourBitsUp = kFilled<moveBits(0, 4, 4)>;
    __m512i thirdMark = kFilled<copyBit(6, 4, 4)>;
    __m512i firstGroup = kSpread<0>, secondGroup = kSpread<16>, thirdGroup = kSpread<32>;
    Places places;
};
constexpr Constants kConstants;

QZSTRING_KERNEL Constants inRegisters() {
    const Constants& memory = inMemory(kConstants);
    Constants constants;
    constants.copyToRegisters(memory);
    constants.twoBitsUp = kept(memory.twoBitsUp);
    constants.fourBitsDown = kept(memory.fourBitsDown);
    constants.fourBitsUp = kept(memory.fourBitsUp);
    constants.thirdMark = kept(memory.thirdMark);
    constants.firstGroup = kept(memory.firstGroup);
    constants.secondGroup = kept(memory.secondGroup);
    constants.thirdGroup = kept(memory.thirdGroup);
    constants.places = {kept(memory.places.low), kept(memory.places.middle), kept(memory.places.high)};
    return constants;
}

// ---- Characters ----

// The bytes one place on; behind the block is zero.
QZSTRING_KERNEL __m512i nextOf(__m512i block) {
    const __m512i lanesAfter = _mm512_alignr_epi64(_mm512_setzero_si512(), block, 2);
    return _mm512_alignr_epi8(lanesAfter, block, 1);
}

// The places of a block at which a character ends: those before a byte that is no continuation. `next` are
// the bytes one place on.
QZSTRING_KERNEL __mmask64 endsBefore(__m512i next, __mmask64 valid, const Constants& constant) {
    return _mm512_mask_cmpge_epi8_mask(valid, next, constant.continuationEnd);
}

struct CodePoints {
    __m512i low, middle, high;
};

// `high` marks the bytes beyond ASCII, `four` those that would end a character of four bytes.
QZSTRING_KERNEL CodePoints form(const Bytes& bytes, __mmask64 high, __mmask64 four,
                                const Constants& constant) {
    // Two bits of the byte before, above the last byte's six: its mark 10xxxxxx is cleared in passing.
    const __m512i low = _mm512_xor_si512(
        bytes.at, _mm512_maskz_gf2p8affine_epi64_epi8(high, bytes.before1, constant.twoBitsUp, 0x80));
    // Four bits of the byte before, and four of the one before that where the former is a continuation: bit 6
    // is clear.
    const __m512i lower = _mm512_maskz_gf2p8affine_epi64_epi8(high, bytes.before1, constant.fourBitsDown, 0);
    const __m512i upper = _mm512_gf2p8affine_epi64_epi8(bytes.before2, constant.fourBitsUp, 0);
    const __m512i isThree =
        _mm512_maskz_gf2p8affine_epi64_epi8(high, bytes.before1, constant.thirdMark, 0xF0);
    const __m512i middle = _mm512_ternarylogic_epi32(lower, upper, isThree, 0xF8);
    __m512i top = _mm512_setzero_si512();
    if (four != 0) {
        const __m512i twoBits =
            _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before2, kFilled<moveBits(4, 0, 2)>, 0);
        const __m512i threeBits =
            _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before3, kFilled<moveBits(0, 2, 3)>, 0);
        top = _mm512_or_si512(twoBits, threeBits);
    }
    return {low, middle, top};
}

// A group of 16 characters as 32-bit values.
QZSTRING_KERNEL __m512i group(const CodePoints& points, bool hasHigh, __m512i index, const Places& places) {
    __m512i values = _mm512_maskz_permutexvar_epi8(places.low, index, points.low);
    values = _mm512_mask_permutexvar_epi8(values, places.middle, index, points.middle);
    return hasHigh ? _mm512_mask_permutexvar_epi8(values, places.high, index, points.high) : values;
}

// With room for whole groups, one at least; what the last one holds beyond the count is written over by the
// next block.
QZSTRING_KERNEL void storeAmply(const CodePoints& points, bool hasHigh, std::size_t count,
                                wchar_t* destination, const Constants& constant) {
    const Places places = constant.places;  // not again after every store
    _mm512_storeu_si512(destination, group(points, hasHigh, constant.firstGroup, places));
    if (count > 16)
        _mm512_storeu_si512(destination + 16, group(points, hasHigh, constant.secondGroup, places));
    if (count > 32)
        _mm512_storeu_si512(destination + 32, group(points, hasHigh, constant.thirdGroup, places));
    if (count > 48)
        _mm512_storeu_si512(destination + 48, group(points, hasHigh, kSpread<48>, places));
}

// The last group ends with the last character, over some of those stored before.
QZSTRING_KERNEL void storeExactly(const CodePoints& points, bool hasHigh, std::size_t count,
                                  wchar_t* destination, const Constants& constant) {
    const Places places = constant.places;
    if (count < 16) {
        _mm512_mask_storeu_epi32(destination, lowLanes(count),
                                 group(points, hasHigh, constant.firstGroup, places));
        return;
    }
    if (count > 16)
        _mm512_storeu_si512(destination, group(points, hasHigh, constant.firstGroup, places));
    if (count > 32)
        _mm512_storeu_si512(destination + 16, group(points, hasHigh, constant.secondGroup, places));
    if (count > 48)
        _mm512_storeu_si512(destination + 32, group(points, hasHigh, constant.thirdGroup, places));
    const std::size_t last = count - 16;
    const __m512i index = _mm512_add_epi8(constant.firstGroup, _mm512_set1_epi8(static_cast<char>(last)));
    _mm512_storeu_si512(destination + last, group(points, hasHigh, index, places));
}

QZSTRING_KERNEL void store(const CodePoints& points, bool hasHigh, std::size_t count, bool amply,
                           wchar_t* destination, const Constants& constant) {
    if (amply)
        storeAmply(points, hasHigh, count, destination, constant);
    else
        storeExactly(points, hasHigh, count, destination, constant);
}

// ---- ASCII ----

QZSTRING_KERNEL __m512i widen(const char* source) {
    return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(source)));
}

// At most a block of ASCII.
QZSTRING_KERNEL void storeAscii(const char* source, std::size_t count, wchar_t* destination) {
    if (count < 16) {
        _mm512_mask_storeu_epi32(destination, lowLanes(count),
                                 _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(lowLanes(count), source)));
        return;
    }
    for (std::size_t at = 0; at < count - 16; at += 16)
        _mm512_storeu_si512(destination + at, widen(source + at));
    _mm512_storeu_si512(destination + count - 16, widen(source + count - 16));
}

// Widens blocks of ASCII, each loaded once: permutations take what more loads would, and cross fewer lines.
struct Widening {
    __m512i spread[4];
    __mmask64 low;

    QZSTRING_KERNEL Widening()
        : spread{kept(kSpread<0>), kept(kSpread<16>), kept(kSpread<32>), kept(kSpread<48>)},
          low(kept(Places{}.low)) {}

    QZSTRING_KERNEL void store(__m512i block, wchar_t* destination) const {
        for (std::size_t n = 0; n < 4; ++n)
            _mm512_storeu_si512(destination + 16 * n, _mm512_maskz_permutexvar_epi8(low, spread[n], block));
    }
};

// Widens blocks of ASCII while they last and fit, and returns how many bytes that were. Long runs are brought
// to the destination's cache lines first, by up to 15 characters that may be all: a store across two lines
// costs twice.
QZSTRING_KERNEL std::size_t storeAsciiRun(const char* source, std::size_t length, wchar_t* destination,
                                          std::size_t room) {
    const std::size_t most = length < room ? length : room;
    std::size_t at = 0;
    if (most < kWorthWidening) {
        for (; most - at >= kBlock && isAsciiBlock(source + at); at += kBlock)
            storeAscii(source + at, kBlock, destination + at);
    } else if (isAsciiBlock(source)) {
        const Widening widening;
        _mm512_storeu_si512(destination, widen(source));
        at = (0 - reinterpret_cast<std::uintptr_t>(destination) / sizeof(wchar_t)) % 16;
        for (; most - at >= kBlock; at += kBlock) {
            const __m512i block = kept(_mm512_loadu_si512(source + at));
            if (_mm512_movepi8_mask(block) != 0)
                break;
            widening.store(block, destination + at);
        }
    }
    return at;
}

// ---- Blocks ----

// Decodes one block into `destination` where it fits. Returns the number of characters that end in it, or
// kFailure. `ends` are the places before a byte that is no continuation. The block may be ill-formed.
QZSTRING_KERNEL std::size_t decodeBlock(const Bytes& bytes, __mmask64 high, __mmask64 ends,
                                        wchar_t* destination, std::size_t room, bool muchFollows,
                                        const Constants& constant) {
    const auto count = static_cast<std::size_t>(_mm_popcnt_u64(ends));
    if (count > room)
        return kFailure;
    // As in the check: the top bit where the byte would be the last of four.
    const __mmask64 four = _mm512_movepi8_mask(_mm512_subs_epu8(bytes.before3, constant.fourth));
    CodePoints points = form(bytes, high, four, constant);
    points.low = _mm512_maskz_compress_epi8(ends, points.low);
    points.middle = _mm512_maskz_compress_epi8(ends, points.middle);
    const bool roomForAll = muchFollows && room >= (count | 15) + 1;
    if (four != 0) {
        points.high = _mm512_maskz_compress_epi8(ends, points.high);
        store(points, true, count, roomForAll, destination, constant);
    } else {
        store(points, false, count, roomForAll, destination, constant);
    }
    return count;
}

// Decodes a text of more than one block, from `at` on, before which all is ASCII and written.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int decodeLong(const char* source, std::size_t length,
                                                          wchar_t* destination, std::size_t capacity,
                                                          std::size_t at, bool* ok) {
    const Constants constant = inRegisters();
    std::size_t written = at;
    std::size_t count = 0;
    __m512i faults = _mm512_setzero_si512();
    if (at < 4) {  // too near to the beginning for blocks that look back: anew
        at = firstPart(source, length);
        const Bytes bytes = loadFirst(_mm512_loadu_si512(source));
        const __mmask64 ends = endsBefore(_mm512_loadu_si512(source + 1), lowBits(at), constant);
        faults = faultsOf(bytes, constant);
        count = decodeBlock(bytes, _mm512_movepi8_mask(bytes.at), ends, destination, capacity,
                            length - at >= kBlock, constant);
        written = count;
    }
    // Not used where that is the last block.
    __m512i next = length - at > kBlock ? kept(_mm512_loadu_si512(source + at + 1)) : faults;
    while (count != kFailure && length - at > kBlock) {
        const std::size_t room = capacity - written;
        const Bytes bytes = loadWhole(source + at);
        const __mmask64 high = _mm512_movepi8_mask(bytes.at);
        if (high == 0 && room >= kBlock) {
            // What comes before was decoded up to its last byte: a character that is not complete is noticed
            // here, as its next byte is passed over.
            faults = _mm512_or_si512(faults, incompleteBefore(source + at));
            const std::size_t run = storeAsciiRun(source + at, length - at, destination + written, room);
            at += run;
            written += run;
            if (length - at > kBlock)
                next = kept(_mm512_loadu_si512(source + at + 1));
            continue;
        }
        const __mmask64 ends = endsBefore(next, kAll, constant);
        if (length - at > 2 * kBlock)
            next = kept(_mm512_loadu_si512(source + at + kBlock + 1));
        faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
        // At least a character of every four bytes: a block more fills the last group of 16 that this one
        // writes.
        count =
            decodeBlock(bytes, high, ends, destination + written, room, length - at >= 2 * kBlock, constant);
        at += kBlock;
        written += count;
    }
    if (count != kFailure && at < length) {
        const Bytes bytes = loadLast(source, length);
        faults =
            _mm512_ternarylogic_epi32(faults, faultsOf(bytes, constant), incompleteAtEnd(bytes.at), 0xFE);
        count = decodeBlock(bytes, _mm512_movepi8_mask(bytes.at),
                            endsBefore(nextOf(bytes.at), ~lowBits(kBlock - (length - at)), constant),
                            destination + written, capacity - written, false, constant);
        written += count;
    }
    const bool converted = count != kFailure && !anyFault(faults);
    _mm256_zeroupper();
    return output::report(converted ? written : kFailure, ok);
}

// ---- Up to one block ----

// A text of up to a block, of which the first and only one is at hand.
QZSTRING_KERNEL std::size_t decodeOnly(__m512i block, std::size_t length, wchar_t* destination,
                                       std::size_t capacity) {
    const Bytes bytes = loadFirst(block);
    const Constants& constant = inMemory(kConstants);
    const __m512i faults = _mm512_or_si512(faultsOf(bytes, constant), incompleteAtEnd(bytes.at));
    std::size_t count = kFailure;
    if (!anyFault(faults))
        count = decodeBlock(bytes, _mm512_movepi8_mask(bytes.at),
                            endsBefore(nextOf(bytes.at), lowBits(length), constant), destination, capacity,
                            false, constant);
    _mm256_zeroupper();
    return count;
}

// From 49 bytes on the text is loaded before it is asked for ASCII, which saves the two loads of that
// question.
QZSTRING_KERNEL std::size_t decodeShort(const char* source, std::size_t length, wchar_t* destination,
                                        std::size_t capacity) {
    if (length > 48) {
        const __m512i block = loadUpTo64(source, length);
        if (QZSTRING_LIKELY(length <= capacity && _mm512_movepi8_mask(block) == 0)) {
            storeAscii(source, length, destination);
            _mm256_zeroupper();
            return length;
        }
        return decodeOnly(block, length, destination, capacity);
    }
    if (QZSTRING_LIKELY(length <= capacity && isAsciiShort(source, length))) {
        storeAscii(source, length, destination);
        _mm256_zeroupper();
        return length;
    }
    return decodeOnly(loadUpTo48(source, length), length, destination, capacity);
}

// ---- More than a block, beginning with what is ASCII: that takes no constants ----

// Widens the ASCII at the beginning: all of the text, or what storeAsciiRun takes, of up to four blocks
// nothing.
QZSTRING_KERNEL std::size_t storeFirstAscii(const char* source, std::size_t length, wchar_t* destination,
                                            std::size_t capacity) {
    const std::size_t last = length - kBlock;
    if (length <= 2 * kBlock) {
        if (length > capacity || !isAsciiToEnd(source, 0, length))
            return 0;
        storeAscii(source, kBlock, destination);
        storeAscii(source + last, kBlock, destination + last);
        return length;
    }
    if (length <= 4 * kBlock) {
        if (length > capacity || !isAsciiUpToFour(source, length))
            return 0;
        storeAscii(source, kBlock, destination);
        storeAscii(source + kBlock, kBlock, destination + kBlock);
        if (length > 3 * kBlock)
            storeAscii(source + 2 * kBlock, kBlock, destination + 2 * kBlock);
        storeAscii(source + last, kBlock, destination + last);
        return length;
    }
    const std::size_t ascii = storeAsciiRun(source, length, destination, capacity);
    if (ascii < last || length > capacity || !isAsciiBlock(source + last))
        return ascii;
    if (ascii < length)
        storeAscii(source + last, kBlock, destination + last);
    return length;
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int decodeBlocks(const char* source, std::size_t length,
                                                            wchar_t* destination, std::size_t capacity,
                                                            bool* ok) {
    const std::size_t ascii = storeFirstAscii(source, length, destination, capacity);
    if (ascii != length)
        return decodeLong(source, length, destination, capacity, ascii, ok);
    _mm256_zeroupper();
    return output::report(length, ok);
}

}  // namespace

// An entry, as avx512.h describes them.
QZSTRING_TARGET unsigned int decode(const char* source, std::size_t length, wchar_t* destination,
                                    std::size_t capacity, bool* ok) {
    return QZSTRING_LIKELY(length <= kBlock)
               ? output::report(decodeShort(source, length, destination, capacity), ok)
               : decodeBlocks(source, length, destination, capacity, ok);
}

}  // namespace qzString::kernels::avx512

#endif
