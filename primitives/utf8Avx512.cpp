// UTF-8 in AVX-512 with VBMI2.
//
// Decoding, 64 bytes a block:
// 1. Masks of lead bytes say, shifted, where continuation bytes must stand: those places and the ones where
// they do
//    stand must agree. Two 64-entry tables check the one byte whose range depends on its lead, the second.
// 2. A character is formed at its last byte: with the block as loaded 1, 2 and 3 bytes before, every byte
// position has
//    the low, middle and high byte of the code point that would end there.
// 3. The positions at which characters do end select those bytes (vpcompressb), and a byte permutation
// spreads them over
//    32-bit lanes, 16 characters a store.
// Block edges: the masks carry what a character at the end of a block still expects; the loads before the
// block reach back to its bytes, so that it is formed in the block in which it ends. Before the text and past
// its end lanes are masked out, never read. A block with an error or without room is left to the portable
// code, from the last whole character on: the way to an exact offset, and never on the fast road.
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
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::avx512 {
namespace {

constexpr std::size_t kBlock = 64;

// ---- Decoding ----

// For each lead byte, by its low six bits, the quarters of 80..BF in which its second byte may lie, as a bit
// each. None for bytes that lead nothing: C0, C1, F5 to FF.
alignas(64) constexpr unsigned char kSecondQuarters[64] = {
    0x0, 0x0, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF,  // C0
    0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF,  // D0
    0xC, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0xF, 0x3, 0xF, 0xF,  // E0: A0..BF, ED: 80..9F
    0xE, 0xF, 0xF, 0xF, 0x1, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0,  // F0: 90..BF, F4: 80..8F
};
// The quarter of a continuation byte, by its low six bits.
alignas(64) constexpr unsigned char kQuarter[64] = {
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8,
};
// Lane j of 32 bits takes byte j, four times.
alignas(64) constexpr unsigned char kSpread[64] = {
    0,  0,  0,  0,  1,  1,  1,  1,  2,  2,  2,  2,  3,  3,  3,  3,  4,  4,  4,  4,  5,  5,
    5,  5,  6,  6,  6,  6,  7,  7,  7,  7,  8,  8,  8,  8,  9,  9,  9,  9,  10, 10, 10, 10,
    11, 11, 11, 11, 12, 12, 12, 12, 13, 13, 13, 13, 14, 14, 14, 14, 15, 15, 15, 15,
};

QZSTRING_KERNEL __m512i table(const void* entries) {
    return _mm512_load_si512(entries);
}

// What the characters begun in a block expect of the next one: bits 0 up, for those with two, three, four
// bytes.
struct Carry {
    std::uint64_t two = 0;
    std::uint64_t three = 0;
    std::uint64_t four = 0;
    [[nodiscard]] bool any() const { return (two | three | four) != 0; }
};

// One block and the same bytes seen from 1, 2 and 3 positions on. Where `first`, nothing stands before it.
struct Bytes {
    __m512i at, before1, before2, before3;
};

QZSTRING_KERNEL Bytes loadAround(const char* block, __m512i at, std::uint64_t valid, bool first) {
    if (!first && valid == ~std::uint64_t{0}) {
        return {at, _mm512_loadu_si512(block - 1), _mm512_loadu_si512(block - 2),
                _mm512_loadu_si512(block - 3)};
    }
    const std::uint64_t none = first ? ~std::uint64_t{0} : 0;  // every lane's place lies before the text
    return {at, _mm512_maskz_loadu_epi8(valid & ~(none & 1), block - 1),
            _mm512_maskz_loadu_epi8(valid & ~(none & 3), block - 2),
            _mm512_maskz_loadu_epi8(valid & ~(none & 7), block - 3)};
}

// Where the characters of a block end, and of how many bytes they are.
struct Ends {
    std::uint64_t all;
    std::uint64_t threeOrMore;  // among all
    std::uint64_t four;
    bool valid;
};

QZSTRING_KERNEL Ends classify(__m512i at, __m512i before1, std::uint64_t high, Carry& carry) {
    const std::uint64_t continuation = _mm512_cmplt_epi8_mask(at, _mm512_set1_epi8(-64));
    const std::uint64_t leads2 = high & ~continuation;  // of two bytes or more
    const std::uint64_t leads3 = _mm512_cmpge_epu8_mask(at, _mm512_set1_epi8(static_cast<char>(0xE0)));
    const std::uint64_t leads4 = _mm512_cmpge_epu8_mask(at, _mm512_set1_epi8(static_cast<char>(0xF0)));
    const std::uint64_t second = leads2 << 1 | carry.two;
    const std::uint64_t third = leads3 << 2 | carry.three;
    const std::uint64_t fourth = leads4 << 3 | carry.four;
    const std::uint64_t expected = second | third | fourth;
    carry = {leads2 >> 63, leads3 >> 62, leads4 >> 61};
    const std::uint64_t next = (carry.two | carry.three | carry.four) << 63;

    const __m512i allowed = _mm512_permutexvar_epi8(before1, table(kSecondQuarters));
    const __m512i quarter = _mm512_permutexvar_epi8(at, table(kQuarter));
    const std::uint64_t outOfRange = _mm512_mask_testn_epi8_mask(second, allowed, quarter);
    return {~(expected >> 1 | next), third | fourth, fourth, ((expected ^ continuation) | outOfRange) == 0};
}

struct CodePoints {
    __m512i low, middle, high;
};

QZSTRING_KERNEL CodePoints form(const Bytes& bytes, std::uint64_t high, const Ends& ends) {
    const __m512i lowSix = _mm512_set1_epi8(0x3F);
    const __m512i lowFour = _mm512_set1_epi8(0x0F);
    // The last byte's six bits and two of the one before; for ASCII the byte.
    const __m512i joined =
        _mm512_ternarylogic_epi32(lowSix, bytes.at, _mm512_slli_epi16(bytes.before1, 6), 0xCA);
    const __m512i low = _mm512_mask_mov_epi8(bytes.at, high, joined);
    // Four bits of the byte before, and four of the one before that where it belongs to the character.
    const __m512i upper = _mm512_maskz_mov_epi8(ends.threeOrMore, _mm512_slli_epi16(bytes.before2, 4));
    const __m512i middle = _mm512_maskz_mov_epi8(
        high, _mm512_ternarylogic_epi32(lowFour, _mm512_srli_epi16(bytes.before1, 2), upper, 0xCA));
    __m512i top = _mm512_setzero_si512();
    if (ends.four != 0) {
        const __m512i twoBits = _mm512_and_si512(_mm512_srli_epi16(bytes.before2, 4), _mm512_set1_epi8(0x03));
        const __m512i threeBits =
            _mm512_and_si512(_mm512_slli_epi16(bytes.before3, 2), _mm512_set1_epi8(0x1C));
        top = _mm512_maskz_mov_epi8(ends.four, _mm512_or_si512(twoBits, threeBits));
    }
    return {low, middle, top};
}

// The n-th group of 16 characters as 32-bit values.
QZSTRING_KERNEL __m512i group(const CodePoints& points, bool hasHigh, int n) {
    const __m512i index = _mm512_add_epi8(table(kSpread), _mm512_set1_epi8(static_cast<char>(16 * n)));
    __m512i values = _mm512_maskz_permutexvar_epi8(0x1111111111111111, index, points.low);
    values = _mm512_mask_permutexvar_epi8(values, 0x2222222222222222, index, points.middle);
    return hasHigh ? _mm512_mask_permutexvar_epi8(values, 0x4444444444444444, index, points.high) : values;
}

QZSTRING_KERNEL void store(const CodePoints& points, bool hasHigh, std::size_t count, bool roomForAll,
                           wchar_t* destination) {
    if (roomForAll) {
        // What the later groups hold beyond the count is written over by the next block.
        _mm512_storeu_si512(destination, group(points, hasHigh, 0));
        _mm512_storeu_si512(destination + 16, group(points, hasHigh, 1));
        if (count > 32)
            _mm512_storeu_si512(destination + 32, group(points, hasHigh, 2));
        if (count > 48)
            _mm512_storeu_si512(destination + 48, group(points, hasHigh, 3));
        return;
    }
    for (int n = 0; 16 * static_cast<std::size_t>(n) < count; ++n) {
        const std::size_t done = 16 * static_cast<std::size_t>(n);
        _mm512_mask_storeu_epi32(destination + done, lowLanes(count - done), group(points, hasHigh, n));
    }
}

QZSTRING_KERNEL void storeAscii(const char* source, std::size_t count, wchar_t* destination) {
    if (count == kBlock) {
        for (std::size_t i = 0; i < kBlock; i += 16) {
            const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i));
            _mm512_storeu_si512(destination + i, _mm512_cvtepu8_epi32(bytes));
        }
        return;
    }
    for (std::size_t i = 0; i < count; i += 16) {
        const __mmask16 lanes = lowLanes(count - i);
        const __m128i bytes = _mm_maskz_loadu_epi8(lanes, source + i);
        _mm512_mask_storeu_epi32(destination + i, lanes, _mm512_cvtepu8_epi32(bytes));
    }
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

// Decodes whole blocks as long as they are well-formed and fit. Returns how far it came; a character that a
// block left unfinished is not counted as read.
template <bool kStores>
QZSTRING_TARGET Progress decodeBlocks(const char* source, std::size_t length, wchar_t* destination,
                                      std::size_t capacity) {
    Carry carry;
    std::size_t at = 0;
    std::size_t written = 0;
    while (at < length) {
        const std::size_t rest = length - at;
        const std::size_t count = rest < kBlock ? rest : kBlock;
        const std::uint64_t valid = lowBits(rest);
        const __m512i bytes =
            count == kBlock ? _mm512_loadu_si512(source + at) : _mm512_maskz_loadu_epi8(valid, source + at);
        const std::uint64_t high = _mm512_movepi8_mask(bytes);
        if (high == 0 && !carry.any()) {
            if constexpr (kStores) {
                if (capacity - written < count)
                    break;
                storeAscii(source + at, count, destination + written);
                at += count;
                written += count;
            } else {
                const std::size_t run = count + asciiSteps(source + at + count, rest - count);
                at += run;
                written += run;
            }
            continue;
        }
        const Carry before = carry;
        std::size_t ended = 0;
        bool done = false;
        if constexpr (kStores) {
            const Bytes around = loadAround(source + at, bytes, valid, at == 0);
            const Ends ends = classify(bytes, around.before1, high, carry);
            const std::uint64_t all = ends.all & valid;
            ended = static_cast<std::size_t>(_mm_popcnt_u64(all));
            done = ends.valid && ended <= capacity - written;
            if (done) {
                CodePoints points = form(around, high, ends);
                const bool hasHigh = ends.four != 0;
                points.low = _mm512_maskz_compress_epi8(all, points.low);
                points.middle = _mm512_maskz_compress_epi8(all, points.middle);
                if (hasHigh)
                    points.high = _mm512_maskz_compress_epi8(all, points.high);
                // Of four bytes at least a character: 256 more bytes fill what a whole block may write too
                // much.
                const bool roomForAll = rest >= 5 * kBlock && capacity - written >= kBlock;
                store(points, hasHigh, ended, roomForAll, destination + written);
            }
        } else {
            const __m512i before1 = at == 0 ? _mm512_maskz_loadu_epi8(valid & ~std::uint64_t{1}, source - 1)
                                            : _mm512_maskz_loadu_epi8(valid, source + at - 1);
            const Ends ends = classify(bytes, before1, high, carry);
            ended = static_cast<std::size_t>(_mm_popcnt_u64(ends.all & valid));
            done = ends.valid;
        }
        if (!done) {
            carry = before;
            break;
        }
        at += count;
        written += ended;
    }
    if (carry.any()) {
        do
            --at;
        while (static_cast<unsigned char>(source[at]) < 0xC0);
    }
    _mm256_zeroupper();
    return {at, written};
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
alignas(64) constexpr int kLengths[32] = {
    1, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 3, 3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1, 1,
};

// Remembers whether any character was a surrogate or above U+10FFFF.
struct Faults {
    __m512i largest;
    __m512i nearestSurrogate;

    QZSTRING_KERNEL Faults() : largest(_mm512_setzero_si512()), nearestSurrogate(_mm512_set1_epi32(-1)) {}
    QZSTRING_KERNEL void see(__m512i characters) {
        largest = _mm512_max_epu32(largest, characters);
        nearestSurrogate =
            _mm512_min_epu32(nearestSurrogate, _mm512_xor_si512(characters, _mm512_set1_epi32(0xD800)));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        return (_mm512_cmpgt_epu32_mask(largest, _mm512_set1_epi32(0x10FFFF)) |
                _mm512_cmplt_epu32_mask(nearestSurrogate, _mm512_set1_epi32(0x800))) != 0;
    }
};

// The bytes of a block, those in use marked.
struct Encoded {
    __m512i bytes;
    std::uint64_t used;
};

QZSTRING_KERNEL Encoded encodeAny(__m512i characters) {
    const __m512i zeros = _mm512_lzcnt_epi32(characters);
    const __m512i tags = _mm512_permutex2var_epi32(table(kTags), zeros, table(kTags + 16));
    // Bytes from the bits 18, 12, 6 and 0 on, of both characters of each 64-bit lane.
    const __m512i fields = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x20262C3200060C12), characters);
    const __m512i bytes = _mm512_mask_ternarylogic_epi32(fields, _mm512_movepi32_mask(tags),
                                                         _mm512_set1_epi8(0x3F), tags, 0xEA);
    return {bytes, _mm512_movepi8_mask(tags) | 0x8888888888888888};
}

// 32 characters below U+0800, in 16-bit lanes.
QZSTRING_KERNEL Encoded encodeTwoByte(__m512i first, __m512i second) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    const __m512i units = _mm512_permutexvar_epi64(order, _mm512_packus_epi32(first, second));
    const __mmask32 two = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x80));
    const __m512i sixBits = _mm512_and_si512(_mm512_slli_epi16(units, 8), _mm512_set1_epi16(0x3F00));
    const __m512i pairs = _mm512_ternarylogic_epi32(_mm512_srli_epi16(units, 6), sixBits,
                                                    _mm512_set1_epi16(static_cast<short>(0x80C0)), 0xFE);
    return {_mm512_mask_mov_epi16(units, two, pairs),
            0x5555555555555555 | _pdep_u64(two, 0xAAAAAAAAAAAAAAAA)};
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
};

// Encodes as long as there is room. Returns false where any character was ill-formed.
QZSTRING_TARGET bool encodeBlocks(const wchar_t* source, std::size_t length, Destination& destination,
                                  std::size_t& read) {
    Faults faults;
    std::size_t at = 0;
    bool fits = true;
    while (length - at >= 32 && fits) {
        const __m512i a = _mm512_loadu_si512(source + at);
        const __m512i b = _mm512_loadu_si512(source + at + 16);
        const __m512i both = _mm512_or_si512(a, b);
        const std::size_t rest = length - at;
        if (!anyFrom(both, 0x80)) {
            if (rest >= 64) {
                const __m512i c = _mm512_loadu_si512(source + at + 32);
                const __m512i d = _mm512_loadu_si512(source + at + 48);
                if (!anyFrom(_mm512_or_si512(c, d), 0x80)) {
                    fits = destination.capacity - destination.written >= kBlock;
                    if (fits) {
                        _mm512_storeu_si512(destination.bytes + destination.written, packAscii(a, b, c, d));
                        destination.written += kBlock;
                        at += kBlock;
                    }
                    continue;
                }
            }
            fits = destination.capacity - destination.written >= 32;
            if (fits) {
                const __m512i packed = packAscii(a, b, a, b);
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(destination.bytes + destination.written),
                                    _mm512_castsi512_si256(packed));
                destination.written += 32;
                at += 32;
            }
        } else if (!anyFrom(both, 0x800)) {
            fits = destination.put(encodeTwoByte(a, b), rest - 32);
            at += fits ? 32 : 0;
        } else {
            faults.see(a);
            faults.see(b);
            fits = destination.put(encodeAny(a), rest - 16);
            at += fits ? 16 : 0;
            if (fits) {
                fits = destination.put(encodeAny(b), rest - 32);
                at += fits ? 16 : 0;
            }
        }
    }
    while (at < length && fits) {
        const std::size_t count = length - at < 16 ? length - at : 16;
        const __m512i characters = _mm512_maskz_loadu_epi32(lowLanes(count), source + at);
        faults.see(characters);
        Encoded encoded = encodeAny(characters);
        encoded.used &= lowBits(4 * count);
        fits = destination.put(encoded, 0);
        at += fits ? count : 0;
    }
    read = at;
    const bool faulty = faults.any();
    _mm256_zeroupper();
    return !faulty;
}

QZSTRING_TARGET bool measureBlocks(const wchar_t* source, std::size_t length, std::size_t& bytes) {
    Faults faults;
    std::size_t at = 0;
    bytes = 0;
    // A lane's sum grows by at most 4 a step: far from 2^32 in the 2^28 steps of the longest text.
    __m512i sums = _mm512_setzero_si512();
    const bool hasBlocks = length >= 16;
    while (length - at >= 16) {
        if (length - at >= 64) {
            const __m512i a = _mm512_loadu_si512(source + at);
            const __m512i b = _mm512_loadu_si512(source + at + 16);
            const __m512i c = _mm512_loadu_si512(source + at + 32);
            const __m512i d = _mm512_loadu_si512(source + at + 48);
            if (!anyFrom(_mm512_or_si512(_mm512_ternarylogic_epi32(a, b, c, 0xFE), d), 0x80)) {
                bytes += 64;
                at += 64;
                continue;
            }
        }
        const std::size_t stop = length - at >= 64 ? at + 64 : at + 16;
        for (; at < stop; at += 16) {
            const __m512i characters = _mm512_loadu_si512(source + at);
            faults.see(characters);
            sums = _mm512_add_epi32(sums,
                                    _mm512_permutex2var_epi32(table(kLengths), _mm512_lzcnt_epi32(characters),
                                                              table(kLengths + 16)));
        }
    }
    if (hasBlocks) {
        const __m512i wideSums = _mm512_add_epi64(_mm512_and_si512(sums, _mm512_set1_epi64(0xFFFFFFFF)),
                                                  _mm512_srli_epi64(sums, 32));
        bytes += static_cast<std::size_t>(_mm512_reduce_add_epi64(wideSums));
    }
    if (at < length) {
        const __m512i characters = _mm512_maskz_loadu_epi32(lowLanes(length - at), source + at);
        faults.see(characters);
        const unsigned two = _mm512_cmpge_epu32_mask(characters, _mm512_set1_epi32(0x80));
        const unsigned three = _mm512_cmpge_epu32_mask(characters, _mm512_set1_epi32(0x800));
        const unsigned four = _mm512_cmpge_epu32_mask(characters, _mm512_set1_epi32(0x10000));
        bytes += length - at +
                 static_cast<std::size_t>(
                     _mm_popcnt_u64(two | std::uint64_t{three} << 16 | std::uint64_t{four} << 32));
    }
    const bool faulty = faults.any();
    _mm256_zeroupper();
    return !faulty;
}

}  // namespace

Progress decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity) {
    const Progress blocks = decodeBlocks<true>(source, length, destination, capacity);
    if (blocks.read == length)
        return blocks;
    const Progress rest = utf8::decode(source + blocks.read, length - blocks.read,
                                       destination + blocks.written, capacity - blocks.written);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress decodedLength(const char* source, std::size_t length) {
    const Progress blocks = decodeBlocks<false>(source, length, nullptr, 0);
    if (blocks.read == length)
        return blocks;
    const Progress rest = utf8::decodedLength<wchar_t>(source + blocks.read, length - blocks.read);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress encode(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity) {
    Destination to{destination, capacity};
    std::size_t read = 0;
    if (!encodeBlocks(source, length, to, read))
        return utf8::encode(source, length, destination, capacity);
    return {read, to.written};
}

Progress encodedLength(const wchar_t* source, std::size_t length) {
    std::size_t bytes = 0;
    if (!measureBlocks(source, length, bytes))
        return utf8::encodedLength(source, length);
    return {length, bytes};
}

}  // namespace qzString::kernels::avx512

#endif
