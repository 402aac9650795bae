// Decoding UTF-8 in AVX-512 with VBMI2 and GFNI, 64 bytes a block.
//
// 1. The block is loaded as it is and as seen from 1, 2 and 3 positions on, so that at every byte stand those
//    before it. The check of pairs (utf8Check.h) is three look-ups, tested at every block.
// 2. A character is formed at its last byte: from it and the bytes before, every position has the low, middle
//    and high byte of the code point that would end there. One affine transformation each moves the bits.
// 3. The positions at which characters do end, those before a byte that is no continuation, select those
//    bytes (vpcompressb); byte permutations spread them over 32-bit lanes, 16 characters a store.
//
// Block edges: a character is formed in the block in which it ends; the loads reach back to its first bytes.
// At the beginning of the text lanes are masked out; the last block is the text's last 64 bytes, some of
// which the block before had, too; a text of up to one block is masked on both sides. A block with an error
// or without room is left to the portable code, from the last whole character on: the way to an exact offset,
// and never on the fast road.
//
// Stores: 64 bytes whole while what is still to come is sure to fill them, else under a mask, so that nothing
// past the count is touched.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx512.h"
#include "primitives/inline.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::avx512 {
namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kWorthAligning = 16 * kBlock;

struct alignas(64) Spread {
    unsigned char indices[4][64];
};

// Group n: lane j of 32 bits takes byte 16 n + j, four times.
constexpr Spread makeSpread() {
    Spread spread{};
    for (std::size_t n = 0; n < 4; ++n) {
        for (std::size_t i = 0; i < 64; ++i)
            spread.indices[n][i] = static_cast<unsigned char>(16 * n + i / 4);
    }
    return spread;
}
constexpr Spread kSpread = makeSpread();

QZSTRING_KERNEL __m512i nibbleTable(const unsigned char (&entries)[16]) {
    return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

// The matrix of the affine transformation whose result has, for i from 0 on, in bit `to + i` the bit `from +
// i` of the byte. Row 7 - n of the matrix, as its bytes go, makes bit n.
constexpr std::uint64_t moveBits(int from, int to, int count) {
    std::uint64_t matrix = 0;
    for (int i = 0; i < count; ++i)
        matrix |= (std::uint64_t{1} << (from + i)) << 8 * (7 - (to + i));
    return matrix;
}

// The matrix that copies one bit to `count` bits from `to` on.
constexpr std::uint64_t copyBit(int from, int to, int count) {
    std::uint64_t matrix = 0;
    for (int i = 0; i < count; ++i)
        matrix |= (std::uint64_t{1} << from) << 8 * (7 - (to + i));
    return matrix;
}

// The constants of decoding.
struct Constants {
    __m512i continuationEnd, topBit, third, fourth, fourLead;
    __m512i firstHigh, firstLow, secondHigh;
    __m512i highHalf, twoBitsUp, fourBitsDown, fourBitsUp, thirdMark;
    __m512i spread[4];
    __mmask64 lowBytes, middleBytes;

    QZSTRING_KERNEL Constants()
        : continuationEnd(everywhere<bytesOf(0xC0)>()),
          topBit(everywhere<bytesOf(0x80)>()),
          third(everywhere<bytesOf(0xE0 - 0x80)>()),
          fourth(everywhere<bytesOf(0xF0 - 0x80)>()),
          fourLead(everywhere<bytesOf(0xF0)>()),
          firstHigh(kept(nibbleTable(utf8::kFirstHigh))),
          firstLow(kept(nibbleTable(utf8::kFirstLow))),
          secondHigh(kept(nibbleTable(utf8::kSecondHigh))),
          highHalf(everywhere<moveBits(4, 0, 4)>()),
          twoBitsUp(everywhere<moveBits(0, 6, 2)>()),
          fourBitsDown(everywhere<moveBits(2, 0, 4)>()),
          fourBitsUp(everywhere<moveBits(0, 4, 4)>()),
          thirdMark(everywhere<copyBit(6, 4, 4)>()),
          spread{kept(table(kSpread.indices[0])), kept(table(kSpread.indices[1])),
                 kept(table(kSpread.indices[2])), kept(table(kSpread.indices[3]))},
          lowBytes(kept(0x1111111111111111)),
          middleBytes(kept(0x2222222222222222)) {}
};

// A block, and the bytes that stand 1, 2 and 3 positions before each of its bytes.
struct Bytes {
    __m512i at, before1, before2, before3;
};

QZSTRING_KERNEL Bytes loadWhole(const char* block) {
    return {_mm512_loadu_si512(block), _mm512_loadu_si512(block - 1), _mm512_loadu_si512(block - 2),
            _mm512_loadu_si512(block - 3)};
}

// The lanes of a block at `at` from which one can look `distance` bytes back without leaving the text.
QZSTRING_KERNEL std::uint64_t canLookBack(std::size_t at, unsigned distance) {
    return at >= distance ? ~std::uint64_t{0} : ~std::uint64_t{0} << (distance - at);
}

// At the beginning of the text: lanes that are not `valid`, or whose place lies before the text, are zero.
QZSTRING_KERNEL Bytes loadPart(const char* source, std::size_t at, std::uint64_t valid) {
    const char* const block = source + at;
    return {_mm512_maskz_loadu_epi8(valid, block),
            _mm512_maskz_loadu_epi8(valid & canLookBack(at, 1), block - 1),
            _mm512_maskz_loadu_epi8(valid & canLookBack(at, 2), block - 2),
            _mm512_maskz_loadu_epi8(valid & canLookBack(at, 3), block - 3)};
}

// At the end of a text of more than one block: its last 64 bytes, some of which the block before had, too.
QZSTRING_KERNEL Bytes loadLast(const char* source, std::size_t length) {
    const std::size_t at = length - kBlock;
    return at >= 3 ? loadWhole(source + at) : loadPart(source, at, ~std::uint64_t{0});
}

// Not zero where a byte and the ones before it cannot stand in well-formed text.
QZSTRING_KERNEL __m512i faultsOf(const Bytes& bytes, const Constants& constant) {
    const __m512i first = _mm512_shuffle_epi8(
        constant.firstHigh, _mm512_gf2p8affine_epi64_epi8(bytes.before1, constant.highHalf, 0));
    const __m512i firstLow = _mm512_permutexvar_epi8(bytes.before1, constant.firstLow);
    const __m512i second = _mm512_shuffle_epi8(constant.secondHigh,
                                               _mm512_gf2p8affine_epi64_epi8(bytes.at, constant.highHalf, 0));
    const __m512i pairs = _mm512_ternarylogic_epi32(first, firstLow, second, 0x80);
    // The top bit where the byte is the third or fourth of a character.
    const __m512i third = _mm512_subs_epu8(bytes.before2, constant.third);
    const __m512i fourth = _mm512_subs_epu8(bytes.before3, constant.fourth);
    return _mm512_xor_si512(_mm512_ternarylogic_epi32(third, fourth, constant.topBit, 0xA8), pairs);
}

QZSTRING_KERNEL bool anyFault(__m512i faults) {
    return _mm512_test_epi32_mask(faults, faults) != 0;
}

QZSTRING_KERNEL std::uint64_t continuations(__m512i bytes, const Constants& constant) {
    return _mm512_cmplt_epi8_mask(bytes, constant.continuationEnd);
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
        const __m512i moveTwo = everywhere<moveBits(4, 0, 2)>();
        const __m512i moveThree = everywhere<moveBits(0, 2, 3)>();
        const __m512i twoBits = _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before2, moveTwo, 0);
        const __m512i threeBits = _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before3, moveThree, 0);
        top = _mm512_or_si512(twoBits, threeBits);
    }
    return {low, middle, top};
}

// The n-th group of 16 characters as 32-bit values.
QZSTRING_KERNEL __m512i group(const CodePoints& points, bool hasHigh, int n, const Constants& constant) {
    const __m512i index = constant.spread[n];
    __m512i values = _mm512_maskz_permutexvar_epi8(constant.lowBytes, index, points.low);
    values = _mm512_mask_permutexvar_epi8(values, constant.middleBytes, index, points.middle);
    return hasHigh ? _mm512_mask_permutexvar_epi8(values, 0x4444444444444444, index, points.high) : values;
}

QZSTRING_KERNEL void store(const CodePoints& points, bool hasHigh, std::size_t count, bool roomForAll,
                           wchar_t* destination, const Constants& constant) {
    if (roomForAll) {
        // What the last group holds beyond the count is written over by the next block.
        _mm512_storeu_si512(destination, group(points, hasHigh, 0, constant));
        if (count > 16)
            _mm512_storeu_si512(destination + 16, group(points, hasHigh, 1, constant));
        if (count > 32)
            _mm512_storeu_si512(destination + 32, group(points, hasHigh, 2, constant));
        if (count > 48)
            _mm512_storeu_si512(destination + 48, group(points, hasHigh, 3, constant));
        return;
    }
    for (int n = 0; 16 * static_cast<std::size_t>(n) < count; ++n) {
        const std::size_t done = 16 * static_cast<std::size_t>(n);
        _mm512_mask_storeu_epi32(destination + done, lowLanes(count - done),
                                 group(points, hasHigh, n, constant));
    }
}

QZSTRING_KERNEL __m512i widen(const char* source) {
    return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(source)));
}

// At most a block of ASCII.
QZSTRING_KERNEL void storeAscii(const char* source, std::size_t count, wchar_t* destination) {
    if (count < 16) {
        const __mmask16 lanes = lowLanes(count);
        _mm512_mask_storeu_epi32(destination, lanes,
                                 _mm512_cvtepu8_epi32(_mm_maskz_loadu_epi8(lanes, source)));
        return;
    }
    for (std::size_t at = 0; at < count - 16; at += 16)
        _mm512_storeu_si512(destination + at, widen(source + at));
    _mm512_storeu_si512(destination + count - 16, widen(source + count - 16));
}

QZSTRING_KERNEL bool isAsciiBlock(const char* block) {
    return _mm512_movepi8_mask(_mm512_loadu_si512(block)) == 0;
}

// Widens whole blocks of ASCII while they last and fit, and returns how many bytes that were. Long runs are
// brought to the destination's cache lines first: a store across two lines costs twice.
QZSTRING_KERNEL std::size_t storeAsciiRun(const char* source, std::size_t length, wchar_t* destination,
                                          std::size_t room) {
    const std::size_t most = length < room ? length : room;
    std::size_t at = 0;
    if (most >= 4 * kBlock && isAsciiBlock(source)) {
        _mm512_storeu_si512(destination, widen(source));
        at = (0 - reinterpret_cast<std::uintptr_t>(destination) / sizeof(wchar_t)) % 16;
    }
    for (; most - at >= kBlock && isAsciiBlock(source + at); at += kBlock) {
        for (std::size_t i = at; i < at + kBlock; i += 16)
            _mm512_storeu_si512(destination + i, widen(source + i));
    }
    return at;
}

// The length of the ASCII text at the beginning, counted in steps of four blocks.
QZSTRING_KERNEL std::size_t asciiSteps(const char* text, std::size_t length) {
    std::size_t at = 0;
    for (; length - at >= 4 * kBlock; at += 4 * kBlock) {
        const __m512i two =
            _mm512_or_si512(_mm512_loadu_si512(text + at), _mm512_loadu_si512(text + at + kBlock));
        const __m512i all = _mm512_ternarylogic_epi32(two, _mm512_loadu_si512(text + at + 2 * kBlock),
                                                      _mm512_loadu_si512(text + at + 3 * kBlock), 0xFE);
        if (_mm512_movepi8_mask(all) != 0)
            break;
    }
    return at;
}

// Whether the last 64 bytes of a text and what is between `at` and them is ASCII.
QZSTRING_KERNEL bool isAsciiToEnd(const char* source, std::size_t at, std::size_t length) {
    __m512i all = _mm512_loadu_si512(source + length - kBlock);
    for (; length - at > kBlock; at += kBlock)
        all = _mm512_or_si512(all, _mm512_loadu_si512(source + at));
    return _mm512_movepi8_mask(all) == 0;
}

// Decodes one block into `destination` where it is well-formed and fits. Returns the number of characters
// that end in it, or kRefused. `ends` are the places before a byte that is no continuation.
constexpr std::size_t kRefused = static_cast<std::size_t>(-1);

QZSTRING_KERNEL std::size_t decodeBlock(const Bytes& bytes, std::uint64_t high, std::uint64_t ends,
                                        wchar_t* destination, std::size_t room, bool muchFollows,
                                        const Constants& constant) {
    const auto count = static_cast<std::size_t>(_mm_popcnt_u64(ends));
    if (anyFault(faultsOf(bytes, constant)) || count > room)
        return kRefused;
    const __mmask64 four = _mm512_cmpge_epu8_mask(bytes.before3, constant.fourLead);
    CodePoints points = form(bytes, high, four, constant);
    points.low = _mm512_maskz_compress_epi8(ends, points.low);
    points.middle = _mm512_maskz_compress_epi8(ends, points.middle);
    const bool roomForAll = muchFollows && room >= (count + 15) / 16 * 16;
    if (four != 0) {
        points.high = _mm512_maskz_compress_epi8(ends, points.high);
        store(points, true, count, roomForAll, destination, constant);
    } else {
        store(points, false, count, roomForAll, destination, constant);
    }
    return count;
}

// How many bytes to take first, so that the blocks after them begin with a cache line: loads across two cost
// twice.
QZSTRING_KERNEL std::size_t firstPart(const char* source, std::size_t length) {
    if (length < kWorthAligning)
        return kBlock;
    return kBlock - reinterpret_cast<std::uintptr_t>(source) % kBlock;
}

// Each goes on in portable code where the blocks end: before a fault, or where there is no room.

Progress finishDecode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity,
                      Progress blocks) {
    const Progress rest = utf8::decode(source + blocks.read, length - blocks.read,
                                       destination + blocks.written, capacity - blocks.written);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress finishLength(const char* source, std::size_t length, Progress blocks) {
    const Progress rest = utf8::decodedLength<wchar_t>(source + blocks.read, length - blocks.read);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

// Decodes blocks as long as they are well-formed and fit, from `at` on, before which all is ASCII and
// written; in a text of more than one block.
QZSTRING_TARGET QZSTRING_NOINLINE Progress decodeLong(const char* source, std::size_t length,
                                                      wchar_t* destination, std::size_t capacity,
                                                      std::size_t at) {
    const Constants constant;
    std::size_t written = at;
    bool afterAscii = true;
    while (at < length) {
        const std::size_t rest = length - at;
        const std::size_t room = capacity - written;
        std::size_t taken = kBlock;
        Bytes bytes;
        std::uint64_t ends;
        if (rest <= kBlock) {
            if (utf8::endsInside(source, source + length))
                break;
            taken = rest;
            bytes = loadLast(source, length);
            const std::uint64_t starts = ~continuations(bytes.at, constant);
            ends = (starts >> 1 | std::uint64_t{1} << 63) & ~std::uint64_t{0} << (kBlock - rest);
        } else {
            ends = ~continuations(_mm512_loadu_si512(source + at + 1), constant);
            if (at >= 3) {
                bytes = loadWhole(source + at);
            } else {
                taken = at == 0 ? firstPart(source, length) : kBlock;
                bytes = loadPart(source, at, lowBits(taken));
                ends &= lowBits(taken);
            }
        }
        const std::uint64_t high = _mm512_movepi8_mask(bytes.at);
        if (high == 0 && (afterAscii || !utf8::endsInside(source, source + at))) {
            std::size_t run = storeAsciiRun(source + at, rest, destination + written, room);
            if (run == 0) {
                if (taken > room)
                    break;
                storeAscii(source + at, taken, destination + written);
                run = taken;
            }
            at += run;
            written += run;
            afterAscii = true;
            continue;
        }
        // At least a character of every four bytes: a block more fills the last group of 16 that this one
        // writes.
        const std::size_t count =
            decodeBlock(bytes, high, ends, destination + written, room, rest >= 2 * kBlock, constant);
        if (count == kRefused)
            break;
        at += taken;
        written += count;
        afterAscii = false;
    }
    _mm256_zeroupper();
    if (at == length)
        return {at, written};
    return finishDecode(source, length, destination, capacity,
                        utf8::wholeCharacters(source, {at, written}, afterAscii));
}

// The same without the stores, from `at` on, before which all is ASCII. Four blocks in a row are checked at
// once.
QZSTRING_TARGET QZSTRING_NOINLINE Progress measureLong(const char* source, std::size_t length,
                                                       std::size_t at) {
    const Constants constant;
    std::size_t characters = at;
    while (at < length) {
        const std::size_t rest = length - at;
        __m512i faults = _mm512_setzero_si512();
        std::size_t taken = rest;
        std::size_t continued = 0;
        if (at >= 3 && rest >= kBlock) {
            if (!utf8::endsInside(source, source + at)) {
                const std::size_t run = asciiSteps(source + at, rest);
                at += run;
                characters += run;
                if (run != 0)
                    continue;
            }
            taken = rest >= 4 * kBlock ? 4 * kBlock : kBlock;
            for (std::size_t i = at; i < at + taken; i += kBlock) {
                const Bytes bytes = loadWhole(source + i);
                faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
                continued += static_cast<std::size_t>(_mm_popcnt_u64(continuations(bytes.at, constant)));
            }
        } else {
            Bytes bytes;
            std::uint64_t counted = ~std::uint64_t{0};
            if (rest < kBlock) {
                bytes = loadLast(source, length);
                counted <<= kBlock - rest;
            } else {
                taken = at == 0 ? firstPart(source, length) : kBlock;
                bytes = loadPart(source, at, lowBits(taken));
            }
            faults = faultsOf(bytes, constant);
            continued = static_cast<std::size_t>(_mm_popcnt_u64(continuations(bytes.at, constant) & counted));
        }
        if (anyFault(faults))
            break;
        at += taken;
        characters += taken - continued;
    }
    if (utf8::endsInside(source, source + at)) {
        // Characters were counted by their lead bytes: not so the one that goes on past this place.
        at = static_cast<std::size_t>(utf8::lastCharacter(source + at) - source);
        --characters;
    }
    _mm256_zeroupper();
    return at == length ? Progress{at, characters} : finishLength(source, length, {at, characters});
}

// ---- Decoding up to one block ----

QZSTRING_TARGET QZSTRING_NOINLINE Progress decodeShort(const char* source, std::size_t length,
                                                       wchar_t* destination, std::size_t capacity) {
    const Constants constant;
    const std::uint64_t valid = lowBits(length);
    const Bytes bytes = loadPart(source, 0, valid);
    const std::uint64_t high = _mm512_movepi8_mask(bytes.at);
    const std::uint64_t starts = ~continuations(bytes.at, constant);
    const std::uint64_t ends = (starts >> 1 | std::uint64_t{1} << (length - 1)) & valid;
    const std::size_t written = utf8::endsInside(source, source + length)
                                    ? kRefused
                                    : decodeBlock(bytes, high, ends, destination, capacity, false, constant);
    _mm256_zeroupper();
    return written != kRefused ? Progress{length, written}
                               : finishDecode(source, length, destination, capacity, {0, 0});
}

QZSTRING_TARGET QZSTRING_NOINLINE Progress measureShort(const char* source, std::size_t length) {
    const Constants constant;
    const Bytes bytes = loadPart(source, 0, lowBits(length));
    const bool refused = anyFault(faultsOf(bytes, constant)) || utf8::endsInside(source, source + length);
    const std::size_t characters =
        length - static_cast<std::size_t>(_mm_popcnt_u64(continuations(bytes.at, constant)));
    _mm256_zeroupper();
    return refused ? finishLength(source, length, {0, 0}) : Progress{length, characters};
}

QZSTRING_KERNEL bool isAsciiPart(const char* source, std::size_t length) {
    return _mm512_movepi8_mask(_mm512_maskz_loadu_epi8(lowBits(length), source)) == 0;
}

}  // namespace

// ASCII takes no constants and no stack, and texts of one block no loop: what they cost is the calls.

QZSTRING_TARGET Progress decode(const char* source, std::size_t length, wchar_t* destination,
                                std::size_t capacity) {
    const std::size_t ascii = length > kBlock ? storeAsciiRun(source, length, destination, capacity) : 0;
    const std::size_t rest = length - ascii;
    const bool fits = rest <= kBlock && rest <= capacity - ascii;
    if (fits && (rest == 0 || isAsciiPart(source + ascii, rest))) {
        if (rest != 0)
            storeAscii(source + ascii, rest, destination + ascii);
        _mm256_zeroupper();
        return {length, length};
    }
    _mm256_zeroupper();
    return length <= kBlock ? decodeShort(source, length, destination, capacity)
                            : decodeLong(source, length, destination, capacity, ascii);
}

QZSTRING_TARGET Progress decodedLength(const char* source, std::size_t length) {
    const std::size_t ascii = length > kBlock ? asciiSteps(source, length) : 0;
    const bool isAscii = length <= kBlock
                             ? isAsciiPart(source, length)
                             : length - ascii < 4 * kBlock && isAsciiToEnd(source, ascii, length);
    _mm256_zeroupper();
    if (isAscii)
        return {length, length};
    return length <= kBlock ? measureShort(source, length) : measureLong(source, length, ascii);
}

}  // namespace qzString::kernels::avx512

#endif
