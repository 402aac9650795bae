// UTF-8 in AVX-512 with VBMI2 and GFNI.
//
// Decoding, 64 bytes a block:
// 1. The block is loaded as it is and as seen from 1, 2 and 3 positions on, so that at every byte stand the
// bytes
//    before it. The check of pairs (utf8Check.h) is three look-ups; what it finds is tested at every block.
// 2. A character is formed at its last byte: from it and the bytes before, every position has the low, middle
// and high
//    byte of the code point that would end there. A byte's bits are moved by one affine transformation each.
// 3. The positions at which characters do end, those before a byte that is no continuation, select those
// bytes
//    (vpcompressb), and a byte permutation spreads them over 32-bit lanes, 16 characters a store.
// Block edges: a character is formed in the block in which it ends; the loads reach back to its first bytes.
// Before the text and past its end lanes are masked out, never read. A block with an error or without room is
// left to the portable code, from the last whole character on: the way to an exact offset, and never on the
// fast road.
//
// Encoding, 16 characters a block: bit fields are spread over the four bytes of each lane, lead byte first
// (vpmultishiftqb), tagged by the length that the number of leading zeros gives, and the bytes in use
// compressed. Text below U+0800 goes 32 characters a block in 16-bit lanes, ASCII 64. Ill-formed characters
// are noticed at the end.
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

// ---- Decoding ----

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

QZSTRING_KERNEL __m512i table(const void* entries) {
    return _mm512_load_si512(entries);
}

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

// Where a loop keeps its constants in registers their origin is hidden from the compiler, which would
// otherwise make them anew in every block, on the port that the shuffles need.
template <bool kKept>
QZSTRING_KERNEL __m512i kept(__m512i constant) {
    if constexpr (kKept)
        asm("" : "+v"(constant));
    return constant;
}
template <bool kKept>
QZSTRING_KERNEL __mmask64 keptMask(__mmask64 constant) {
    if constexpr (kKept)
        asm("" : "+Yk"(constant));
    return constant;
}

// A constant of 64 bits in every lane. One that is kept comes from memory, which takes a load and no shuffle.
template <bool kKept, std::uint64_t kValue>
QZSTRING_KERNEL __m512i everywhere() {
    if constexpr (kKept) {
        static constexpr std::uint64_t value = kValue;
        __m512i lanes;
        asm("vpbroadcastq %1, %0" : "=v"(lanes) : "m"(value));
        return lanes;
    } else {
        return _mm512_set1_epi64(static_cast<long long>(kValue));
    }
}

constexpr std::uint64_t bytesOf(unsigned char byte) {
    return 0x0101010101010101U * byte;
}

// The constants of decoding.
template <bool kKept>
struct Constants {
    __m512i continuationEnd, topBit, third, fourth, fourLead;
    __m512i firstHigh, firstLow, secondHigh;
    __m512i highHalf, twoBitsUp, fourBitsDown, fourBitsUp, thirdMark;
    __m512i spread[4];
    __mmask64 lowBytes, middleBytes;

    QZSTRING_KERNEL Constants()
        : continuationEnd(everywhere<kKept, bytesOf(0xC0)>()),
          topBit(everywhere<kKept, bytesOf(0x80)>()),
          third(everywhere<kKept, bytesOf(0xE0 - 0x80)>()),
          fourth(everywhere<kKept, bytesOf(0xF0 - 0x80)>()),
          fourLead(everywhere<kKept, bytesOf(0xF0)>()),
          firstHigh(kept<kKept>(nibbleTable(utf8::kFirstHigh))),
          firstLow(kept<kKept>(nibbleTable(utf8::kFirstLow))),
          secondHigh(kept<kKept>(nibbleTable(utf8::kSecondHigh))),
          highHalf(everywhere<kKept, moveBits(4, 0, 4)>()),
          twoBitsUp(everywhere<kKept, moveBits(0, 6, 2)>()),
          fourBitsDown(everywhere<kKept, moveBits(2, 0, 4)>()),
          fourBitsUp(everywhere<kKept, moveBits(0, 4, 4)>()),
          thirdMark(everywhere<kKept, copyBit(6, 4, 4)>()),
          spread{kept<kKept>(table(kSpread.indices[0])), kept<kKept>(table(kSpread.indices[1])),
                 kept<kKept>(table(kSpread.indices[2])), kept<kKept>(table(kSpread.indices[3]))},
          lowBytes(keptMask<kKept>(0x1111111111111111)),
          middleBytes(keptMask<kKept>(0x2222222222222222)) {}
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
template <class Constant>
QZSTRING_KERNEL __m512i faultsOf(const Bytes& bytes, const Constant& constant) {
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

template <class Constant>
QZSTRING_KERNEL std::uint64_t continuations(__m512i bytes, const Constant& constant) {
    return _mm512_cmplt_epi8_mask(bytes, constant.continuationEnd);
}

struct CodePoints {
    __m512i low, middle, high;
};

// `high` marks the bytes beyond ASCII, `four` those that would end a character of four bytes.
template <class Constant>
QZSTRING_KERNEL CodePoints form(const Bytes& bytes, __mmask64 high, __mmask64 four,
                                const Constant& constant) {
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
        const __m512i moveTwo = everywhere<true, moveBits(4, 0, 2)>();
        const __m512i moveThree = everywhere<true, moveBits(0, 2, 3)>();
        const __m512i twoBits = _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before2, moveTwo, 0);
        const __m512i threeBits = _mm512_maskz_gf2p8affine_epi64_epi8(four, bytes.before3, moveThree, 0);
        top = _mm512_or_si512(twoBits, threeBits);
    }
    return {low, middle, top};
}

// The n-th group of 16 characters as 32-bit values.
template <class Constant>
QZSTRING_KERNEL __m512i group(const CodePoints& points, bool hasHigh, int n, const Constant& constant) {
    const __m512i index = constant.spread[n];
    __m512i values = _mm512_maskz_permutexvar_epi8(constant.lowBytes, index, points.low);
    values = _mm512_mask_permutexvar_epi8(values, constant.middleBytes, index, points.middle);
    return hasHigh ? _mm512_mask_permutexvar_epi8(values, 0x4444444444444444, index, points.high) : values;
}

template <class Constant>
QZSTRING_KERNEL void store(const CodePoints& points, bool hasHigh, std::size_t count, bool roomForAll,
                           wchar_t* destination, const Constant& constant) {
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

template <class Constant>
QZSTRING_KERNEL std::size_t decodeBlock(const Bytes& bytes, std::uint64_t high, std::uint64_t ends,
                                        wchar_t* destination, std::size_t room, bool muchFollows,
                                        const Constant& constant) {
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

// Decodes blocks as long as they are well-formed and fit; more than one.
QZSTRING_TARGET QZSTRING_NOINLINE Progress decodeLong(const char* source, std::size_t length,
                                                      wchar_t* destination, std::size_t capacity) {
    const Constants<true> constant;
    std::size_t at = storeAsciiRun(source, length, destination, capacity);
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
    const Constants<true> constant;
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
    if (at < length || utf8::endsInside(source, source + length)) {
        // Characters were counted by their lead bytes: not so the one that goes on past this place.
        if (utf8::endsInside(source, source + at)) {
            at = static_cast<std::size_t>(utf8::lastCharacter(source + at) - source);
            --characters;
        }
    }
    _mm256_zeroupper();
    return at == length ? Progress{at, characters} : finishLength(source, length, {at, characters});
}

// ---- Decoding up to one block ----

QZSTRING_TARGET QZSTRING_NOINLINE Progress decodeShort(const char* source, std::size_t length,
                                                       wchar_t* destination, std::size_t capacity) {
    const Constants<false> constant;
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
    const Constants<false> constant;
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

// ---- Encoding ----

// The tags of characters by the number of leading zeros of their 32 bits: lead and continuation marks in the
// bytes in use, which are the last of the lane. 32 zeros look up entry 0.
constexpr int kTag2 = static_cast<int>(0x80C00000);
constexpr int kTag3 = static_cast<int>(0x8080E000);
constexpr int kTag4 = static_cast<int>(0x808080F0);
alignas(64) constexpr int kTags[32] = {
    0,     kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4,
    kTag4, kTag4, kTag4, kTag4, kTag4, kTag3, kTag3, kTag3, kTag3, kTag3, kTag2,
    kTag2, kTag2, kTag2, 0,     0,     0,     0,     0,     0,     0,
};
// The bytes beyond the first, by the number of leading zeros.
alignas(64) constexpr int kExtra[32] = {
    0, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 2, 2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0,
};

// The constants of encoding.
template <bool kKept>
struct EncodingConstants {
    __m512i beyondAscii, beyondTwo, surrogate, lowSix, twoUnit, sixBits, pairTag;

    QZSTRING_KERNEL EncodingConstants()
        : beyondAscii(kept<kKept>(_mm512_set1_epi32(-0x80))),
          beyondTwo(kept<kKept>(_mm512_set1_epi32(-0x800))),
          surrogate(kept<kKept>(_mm512_set1_epi32(0xD800))),
          lowSix(kept<kKept>(_mm512_set1_epi8(0x3F))),
          twoUnit(kept<kKept>(_mm512_set1_epi16(0x80))),
          sixBits(kept<kKept>(_mm512_set1_epi16(0x3F00))),
          pairTag(kept<kKept>(_mm512_set1_epi16(static_cast<short>(0x80C0)))) {}
};

// Remembers whether any character was a surrogate or above U+10FFFF.
struct Faults {
    __m512i largest;
    __m512i nearestSurrogate;
    __m512i nearestUnit;

    QZSTRING_KERNEL Faults()
        : largest(_mm512_setzero_si512()),
          nearestSurrogate(_mm512_set1_epi32(-1)),
          nearestUnit(_mm512_set1_epi32(-1)) {}
    QZSTRING_KERNEL void see(__m512i characters, __m512i surrogate = _mm512_set1_epi32(0xD800)) {
        largest = _mm512_max_epu32(largest, characters);
        nearestSurrogate = _mm512_min_epu32(nearestSurrogate, _mm512_xor_si512(characters, surrogate));
    }
    // Characters below U+10000 in 16-bit lanes.
    QZSTRING_KERNEL void seeUnits(__m512i units) {
        const __m512i surrogate = _mm512_set1_epi16(static_cast<short>(0xD800));
        nearestUnit = _mm512_min_epu16(nearestUnit, _mm512_xor_si512(units, surrogate));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        return (_mm512_cmpgt_epu32_mask(largest, _mm512_set1_epi32(0x10FFFF)) |
                _mm512_cmplt_epu32_mask(nearestSurrogate, _mm512_set1_epi32(0x800))) != 0 ||
               _mm512_cmplt_epu16_mask(nearestUnit, _mm512_set1_epi16(0x800)) != 0;
    }
};

// The bytes of a block, those in use marked.
struct Encoded {
    __m512i bytes;
    std::uint64_t used;
};

QZSTRING_KERNEL Encoded encodeAny(__m512i characters, __m512i lowSix) {
    const __m512i zeros = _mm512_lzcnt_epi32(characters);
    const __m512i tags = _mm512_permutex2var_epi32(table(kTags), zeros, table(kTags + 16));
    // Bytes from the bits 18, 12, 6 and 0 on, of both characters of each 64-bit lane.
    const __m512i fields = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x20262C3200060C12), characters);
    const __m512i bytes =
        _mm512_mask_ternarylogic_epi32(fields, _mm512_movepi32_mask(tags), lowSix, tags, 0xEA);
    return {bytes, _mm512_movepi8_mask(tags) | 0x8888888888888888};
}

// 32 characters below U+0800, in 16-bit lanes; those that are not `valid` are zero and take no byte.
template <class Constant>
QZSTRING_KERNEL Encoded encodeTwoByte(__m512i first, __m512i second, std::uint32_t valid,
                                      const Constant& constant) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    const __m512i units = _mm512_permutexvar_epi64(order, _mm512_packus_epi32(first, second));
    const __mmask32 two = _mm512_cmpge_epu16_mask(units, constant.twoUnit);
    const __m512i sixBits = _mm512_and_si512(_mm512_slli_epi16(units, 8), constant.sixBits);
    const __m512i pairs =
        _mm512_ternarylogic_epi32(_mm512_srli_epi16(units, 6), sixBits, constant.pairTag, 0xFE);
    return {_mm512_mask_mov_epi16(units, two, pairs),
            _pdep_u64(valid, 0x5555555555555555) | _pdep_u64(two, 0xAAAAAAAAAAAAAAAA)};
}

QZSTRING_KERNEL __m512i packAscii(__m512i a, __m512i b, __m512i c, __m512i d) {
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    return _mm512_permutexvar_epi32(
        order, _mm512_packus_epi16(_mm512_packus_epi32(a, b), _mm512_packus_epi32(c, d)));
}

QZSTRING_KERNEL bool anyFrom(__m512i characters, int limit) {
    return _mm512_test_epi32_mask(characters, _mm512_set1_epi32(-limit)) != 0;
}

struct Destination {
    char* bytes;
    std::size_t capacity;
    std::size_t written = 0;

    // `later` more bytes at least will be written after these. Returns false where there is no room.
    QZSTRING_KERNEL bool put(const Encoded& encoded, std::size_t later) {
        const auto count = static_cast<std::size_t>(_mm_popcnt_u64(encoded.used));
        const std::size_t room = capacity - written;
        if (count > room)
            return false;
        const __m512i packed = _mm512_maskz_compress_epi8(encoded.used, encoded.bytes);
        if (room >= kBlock && later >= kBlock)
            _mm512_storeu_si512(bytes + written, packed);
        else
            _mm512_mask_storeu_epi8(bytes + written, lowBits(count), packed);
        written += count;
        return true;
    }

    QZSTRING_KERNEL bool putAscii(__m512i packed, std::size_t count) {
        if (count > capacity - written)
            return false;
        if (count == kBlock)
            _mm512_storeu_si512(bytes + written, packed);
        else
            _mm512_mask_storeu_epi8(bytes + written, lowBits(count), packed);
        written += count;
        return true;
    }
};

// 64 characters, or the last of a text: lanes past its end are zero, and not `valid`.
struct Characters {
    __m512i a, b, c, d;

    [[nodiscard]] QZSTRING_KERNEL __m512i all() const {
        return _mm512_or_si512(_mm512_ternarylogic_epi32(a, b, c, 0xFE), d);
    }
};

QZSTRING_KERNEL Characters loadWhole(const wchar_t* source) {
    return {_mm512_loadu_si512(source), _mm512_loadu_si512(source + 16), _mm512_loadu_si512(source + 32),
            _mm512_loadu_si512(source + 48)};
}

// `count` below 64. No load goes where the text has nothing: even a masked one is slow across the edge of a
// page that is not there.
QZSTRING_KERNEL Characters loadPart(const wchar_t* source, std::size_t count) {
    const __m512i none = _mm512_setzero_si512();
    Characters part{none, none, none, none};
    part.a = _mm512_maskz_loadu_epi32(lowLanes(count), source);
    if (count > 16)
        part.b = _mm512_maskz_loadu_epi32(lowLanes(count - 16), source + 16);
    if (count > 32)
        part.c = _mm512_maskz_loadu_epi32(lowLanes(count - 32), source + 32);
    if (count > 48)
        part.d = _mm512_maskz_loadu_epi32(lowLanes(count - 48), source + 48);
    return part;
}

// Encodes up to 64 characters, of which `count` are valid; `later` more follow. Returns false where there is
// no room. Where not kWhole, fewer than 64.
template <bool kWhole, class Constant>
QZSTRING_KERNEL bool encodeCharacters(const Characters& characters, std::size_t count, std::size_t later,
                                      Destination& destination, Faults& faults, const Constant& constant) {
    const __m512i all = characters.all();
    if (_mm512_test_epi32_mask(all, constant.beyondAscii) == 0) {
        return destination.putAscii(packAscii(characters.a, characters.b, characters.c, characters.d), count);
    }
    const std::uint64_t valid = lowBits(count);
    if (_mm512_test_epi32_mask(all, constant.beyondTwo) == 0) {
        return destination.put(
                   encodeTwoByte(characters.a, characters.b, static_cast<std::uint32_t>(valid), constant),
                   later) &&
               (count <= 32 ||
                destination.put(encodeTwoByte(characters.c, characters.d,
                                              static_cast<std::uint32_t>(valid >> 32), constant),
                                later));
    }
    const __m512i parts[] = {characters.a, characters.b, characters.c, characters.d};
    for (std::size_t i = 0; i < 4 && (kWhole || 16 * i < count); ++i) {
        faults.see(parts[i], constant.surrogate);
        Encoded encoded = encodeAny(parts[i], constant.lowSix);
        if (!kWhole)
            encoded.used &= lowBits(4 * (count - 16 * i));
        if (!destination.put(encoded, later))
            return false;
    }
    return true;
}

// Encodes as long as there is room. Where any character was ill-formed the portable code finds it. `kLong`:
// more than one block.
template <bool kLong>
QZSTRING_KERNEL Progress encodeBlocks(const wchar_t* source, std::size_t length, char* destination,
                                      std::size_t capacity) {
    const EncodingConstants<kLong> constant;
    Destination to{destination, capacity};
    Faults faults;
    std::size_t at = 0;
    bool fits = true;
    for (; fits && length - at >= 64; at += fits ? 64 : 0)
        fits = encodeCharacters<true>(loadWhole(source + at), 64, length - at - 64, to, faults, constant);
    if (fits && at < length) {
        fits =
            encodeCharacters<false>(loadPart(source + at, length - at), length - at, 0, to, faults, constant);
        at = fits ? length : at;
    }
    const bool faulty = faults.any();
    _mm256_zeroupper();
    return faulty ? utf8::encode(source, length, destination, capacity) : Progress{at, to.written};
}

QZSTRING_TARGET QZSTRING_NOINLINE Progress encodeShort(const wchar_t* source, std::size_t length,
                                                       char* destination, std::size_t capacity) {
    return encodeBlocks<false>(source, length, destination, capacity);
}

QZSTRING_TARGET QZSTRING_NOINLINE Progress encodeLong(const wchar_t* source, std::size_t length,
                                                      char* destination, std::size_t capacity) {
    return encodeBlocks<true>(source, length, destination, capacity);
}

// ---- Encoding up to 16 characters ----

QZSTRING_KERNEL bool anyIllFormed(__m512i characters) {
    const __m512i fromSurrogates = _mm512_xor_si512(characters, _mm512_set1_epi32(0xD800));
    return (_mm512_cmpgt_epu32_mask(characters, _mm512_set1_epi32(0x10FFFF)) |
            _mm512_cmplt_epu32_mask(fromSurrogates, _mm512_set1_epi32(0x800))) != 0;
}

QZSTRING_TARGET QZSTRING_NOINLINE Progress encodeVector(const wchar_t* source, std::size_t length,
                                                        char* destination, std::size_t capacity) {
    const __m512i characters = _mm512_maskz_loadu_epi32(lowLanes(length), source);
    std::size_t written = kRefused;
    if (!anyFrom(characters, 0x80)) {
        if (length <= capacity) {
            written = length;
            _mm_mask_storeu_epi8(destination, lowLanes(length), _mm512_cvtepi32_epi8(characters));
        }
    } else if (!anyIllFormed(characters)) {
        const Encoded encoded = encodeAny(characters, _mm512_set1_epi8(0x3F));
        const std::uint64_t used = encoded.used & lowBits(4 * length);
        const auto count = static_cast<std::size_t>(_mm_popcnt_u64(used));
        if (count <= capacity) {
            written = count;
            _mm512_mask_storeu_epi8(destination, lowBits(count),
                                    _mm512_maskz_compress_epi8(used, encoded.bytes));
        }
    }
    _mm256_zeroupper();
    return written != kRefused ? Progress{length, written}
                               : utf8::encode(source, length, destination, capacity);
}

QZSTRING_KERNEL std::size_t lanesFrom(__m512i characters, int limit) {
    return static_cast<std::size_t>(
        _mm_popcnt_u32(_mm512_cmpge_epu32_mask(characters, _mm512_set1_epi32(limit))));
}

QZSTRING_TARGET QZSTRING_NOINLINE Progress measureVector(const wchar_t* source, std::size_t length) {
    const __m512i characters = _mm512_maskz_loadu_epi32(lowLanes(length), source);
    const bool faulty = anyIllFormed(characters);
    const std::size_t bytes =
        length + lanesFrom(characters, 0x80) + lanesFrom(characters, 0x800) + lanesFrom(characters, 0x10000);
    _mm256_zeroupper();
    return faulty ? utf8::encodedLength(source, length) : Progress{length, bytes};
}

// ---- The length of encoded text ----

QZSTRING_KERNEL std::size_t countFrom(__m512i units, short limit) {
    return static_cast<std::size_t>(_mm_popcnt_u32(_mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(limit))));
}

// Adds up the bytes that characters need beyond one each: one more for every limit that they reach.
struct Measure {
    Faults faults;
    std::size_t bytes = 0;
    __m512i sums;  // a lane grows by at most 12 a step: far from 2^32 in 2^26 steps
    bool hasSums = false;

    QZSTRING_KERNEL Measure() : sums(_mm512_setzero_si512()) {}

    QZSTRING_KERNEL void add(const Characters& characters) {
        const __m512i all = characters.all();
        if (!anyFrom(all, 0x80))
            return;
        if (anyFrom(all, 0x10000)) {
            addAny(characters.a);
            addAny(characters.b);
            addAny(characters.c);
            addAny(characters.d);
            hasSums = true;
            return;
        }
        // In 16-bit lanes, in whatever order.
        const __m512i ab = _mm512_packus_epi32(characters.a, characters.b);
        const __m512i cd = _mm512_packus_epi32(characters.c, characters.d);
        bytes += countFrom(ab, 0x80) + countFrom(cd, 0x80);
        if (anyFrom(all, 0x800)) {
            bytes += countFrom(ab, 0x800) + countFrom(cd, 0x800);
            faults.seeUnits(ab);
            faults.seeUnits(cd);
        }
    }

    [[nodiscard]] QZSTRING_KERNEL std::size_t total() const {
        if (!hasSums)
            return bytes;
        const __m512i wide = _mm512_add_epi64(_mm512_and_si512(sums, _mm512_set1_epi64(0xFFFFFFFF)),
                                              _mm512_srli_epi64(sums, 32));
        return bytes + static_cast<std::size_t>(_mm512_reduce_add_epi64(wide));
    }

  private:
    QZSTRING_KERNEL void addAny(__m512i characters) {
        faults.see(characters);
        sums = _mm512_add_epi32(sums, _mm512_permutex2var_epi32(table(kExtra), _mm512_lzcnt_epi32(characters),
                                                                table(kExtra + 16)));
    }
};

QZSTRING_TARGET QZSTRING_NOINLINE Progress measureEncoded(const wchar_t* source, std::size_t length) {
    Measure measure;
    std::size_t at = 0;
    for (; length - at >= 64; at += 64)
        measure.add(loadWhole(source + at));
    if (at < length)
        measure.add(loadPart(source + at, length - at));
    const std::size_t bytes = length + measure.total();
    const bool faulty = measure.faults.any();
    _mm256_zeroupper();
    return faulty ? utf8::encodedLength(source, length) : Progress{length, bytes};
}

}  // namespace

// Texts of one block take no loop, and ASCII no stack: what they cost is the calls.

QZSTRING_TARGET Progress decode(const char* source, std::size_t length, wchar_t* destination,
                                std::size_t capacity) {
    if (length > kBlock)
        return decodeLong(source, length, destination, capacity);
    const bool fits = length <= capacity;
    if (!isAsciiPart(source, length) || !fits) {
        _mm256_zeroupper();
        return length == 0 ? Progress{0, 0} : decodeShort(source, length, destination, capacity);
    }
    storeAscii(source, length, destination);
    _mm256_zeroupper();
    return {length, length};
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

Progress encode(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity) {
    return (length <= 16    ? encodeVector
            : length <= 128 ? encodeShort
                            : encodeLong)(source, length, destination, capacity);
}

Progress encodedLength(const wchar_t* source, std::size_t length) {
    return (length <= 16 ? measureVector : measureEncoded)(source, length);
}

}  // namespace qzString::kernels::avx512

#endif
