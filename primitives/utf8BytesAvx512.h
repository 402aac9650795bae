// Blocks of UTF-8 in AVX-512, and their check: what decoding and its size query share. Internal, not
// installed.
//
// A block of 64 bytes is loaded as it is and as seen from 1, 2 and 3 positions on, so that at every byte
// stand those before it. The check of pairs (utf8Check.h) is three look-ups.
//
// The first block has zeros before it; the last one is the text's last 64 bytes, some of which the block
// before had, too. A text of up to one block has zeros on both sides, and what it lacks at its end shows
// there.
#ifndef QZSTRING_PRIMITIVES_UTF8BYTESAVX512_H
#define QZSTRING_PRIMITIVES_UTF8BYTESAVX512_H

#include "primitives/avx512.h"
#include "primitives/utf8Check.h"

namespace qzString::kernels::avx512 {

constexpr std::size_t kBlock = 64;
constexpr __mmask64 kAll = ~__mmask64{0};
// Texts of at least this many bytes are worth taking along cache lines (measured on Zen 5).
constexpr std::size_t kWorthAligning = 16 * kBlock;

// ---- Constants ----

// The matrix of the affine transformation whose result has, for i from 0 on, in bit `to + i` the bit `from +
// i` of the byte. Row 7 - n of the matrix, as its bytes go, makes bit n.
constexpr std::uint64_t moveBits(int from, int to, int count) {
    std::uint64_t matrix = 0;
    for (int i = 0; i < count; ++i)
        matrix |= (std::uint64_t{1} << (from + i)) << 8 * (7 - (to + i));
    return matrix;
}

// The eight bytes from `at` on of a table of 16.
constexpr long long tableWord(const unsigned char (&entries)[16], int at) {
    std::uint64_t word = 0;
    for (int i = 0; i < 8; ++i)
        word |= std::uint64_t{entries[at + i]} << 8 * i;
    return static_cast<long long>(word);
}

// Vectors in memory, as variables: functions could not return them outside a kernel.
template <std::uint64_t kWord>
constexpr __m512i kFilled = {static_cast<long long>(kWord), static_cast<long long>(kWord),
                             static_cast<long long>(kWord), static_cast<long long>(kWord),
                             static_cast<long long>(kWord), static_cast<long long>(kWord),
                             static_cast<long long>(kWord), static_cast<long long>(kWord)};
template <const unsigned char (&kEntries)[16]>
constexpr __m512i kNibbles = {tableWord(kEntries, 0), tableWord(kEntries, 8), tableWord(kEntries, 0),
                              tableWord(kEntries, 8), tableWord(kEntries, 0), tableWord(kEntries, 8),
                              tableWord(kEntries, 0), tableWord(kEntries, 8)};

// The constants of the check. A loop copies them to registers, a text of few blocks takes them from memory.
struct CheckConstants {
    __m512i continuationEnd = kFilled<repeat8(0xC0)>;
    __m512i topBit = kFilled<repeat8(0x80)>;
    __m512i third = kFilled<repeat8(0xE0 - 0x80)>;
    __m512i fourth = kFilled<repeat8(0xF0 - 0x80)>;
    __m512i firstHigh = kNibbles<utf8::kFirstHigh>;
    __m512i firstLow = kNibbles<utf8::kFirstLow>;
    __m512i secondHigh = kNibbles<utf8::kSecondHigh>;
    __m512i highHalf = kFilled<moveBits(4, 0, 4)>;

    // One by one: as a whole they would go through the stack.
    QZSTRING_KERNEL void copyToRegisters(const CheckConstants& memory) {
        continuationEnd = kept(memory.continuationEnd);
        topBit = kept(memory.topBit);
        third = kept(memory.third);
        fourth = kept(memory.fourth);
        firstHigh = kept(memory.firstHigh);
        firstLow = kept(memory.firstLow);
        secondHigh = kept(memory.secondHigh);
        highHalf = kept(memory.highHalf);
    }
};

// Constants behind a pointer of unknown origin: the compiler would make some of them anew.
template <class Constants>
QZSTRING_KERNEL const Constants& inMemory(const Constants& constants) {
    const Constants* hidden = &constants;
    asm("" : "+r"(hidden));
    return *hidden;
}

// The greatest bytes that may end a text, four and a whole block: a lead byte needs room for its character.
constexpr std::uint32_t kLastFour = 0xBFDFEFFF;
constexpr __m512i kLastBytes = {
    -1, -1, -1, -1, -1, -1, -1, static_cast<long long>(std::uint64_t{kLastFour} << 32 | 0xFFFFFFFF)};

// ---- Blocks ----

// A block, and the bytes that stand 1, 2 and 3 positions before each of its bytes.
struct Bytes {
    __m512i at, before1, before2, before3;
};

QZSTRING_KERNEL Bytes loadWhole(const char* block) {
    return {kept(_mm512_loadu_si512(block)), kept(_mm512_loadu_si512(block - 1)),
            kept(_mm512_loadu_si512(block - 2)), kept(_mm512_loadu_si512(block - 3))};
}

// The block at the beginning of the text. Moving the bytes costs less than to load them again under masks.
QZSTRING_KERNEL Bytes loadFirst(__m512i at) {
    const __m512i lanesBefore = _mm512_alignr_epi64(at, _mm512_setzero_si512(), 6);
    return {at, _mm512_alignr_epi8(at, lanesBefore, 15), _mm512_alignr_epi8(at, lanesBefore, 14),
            _mm512_alignr_epi8(at, lanesBefore, 13)};
}

// The last 64 bytes of a longer text, some of which the block before had, too.
QZSTRING_KERNEL Bytes loadLast(const char* source, std::size_t length) {
    const std::size_t at = length - kBlock;
    const char* const block = source + at;
    if (at >= 3)
        return loadWhole(block);
    return {_mm512_loadu_si512(block), _mm512_loadu_si512(block - 1),
            _mm512_maskz_loadu_epi8(kAll << (2 - at), block - 2),
            _mm512_maskz_loadu_epi8(kAll << (3 - at), block - 3)};
}

// How many bytes to take first, so that the blocks after them begin with a cache line: loads across two cost
// twice. At least four: that far look those blocks back, and incompleteBefore, and a character ends in four.
QZSTRING_KERNEL std::size_t toCacheLine(const char* source) {
    const std::size_t part = kBlock - reinterpret_cast<std::uintptr_t>(source) % kBlock;
    return part < 4 ? kBlock : part;
}

// The same, of texts long enough for that.
QZSTRING_KERNEL std::size_t firstPart(const char* source, std::size_t length) {
    return length < kWorthAligning ? kBlock : toCacheLine(source);
}

// ---- The check ----

// Not zero where a byte and the ones before it cannot stand in well-formed text.
QZSTRING_KERNEL __m512i faultsOf(const Bytes& bytes, const CheckConstants& constant) {
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

// Not zero where a text that ends with these bytes ends inside a character.
QZSTRING_KERNEL __m512i incompleteAtEnd(__m512i last) {
    return _mm512_subs_epu8(last, kLastBytes);
}

// The same of the text before a place, at least four bytes on.
QZSTRING_KERNEL __m512i incompleteBefore(const char* place) {
    return _mm512_zextsi128_si512(
        _mm_subs_epu8(_mm_loadu_si32(place - 4), _mm_cvtsi32_si128(static_cast<int>(kLastFour))));
}

QZSTRING_KERNEL bool anyFault(__m512i faults) {
    return _mm512_test_epi32_mask(faults, faults) != 0;
}

// ---- ASCII ----

QZSTRING_KERNEL bool isAsciiBlock(const char* block) {
    return _mm512_movepi8_mask(_mm512_loadu_si512(block)) == 0;
}

// Whether the last 64 bytes of a text and what is between `at` and them is ASCII.
QZSTRING_KERNEL bool isAsciiToEnd(const char* source, std::size_t at, std::size_t length) {
    __m512i all = _mm512_loadu_si512(source + length - kBlock);
    for (; length - at > kBlock; at += kBlock)
        all = _mm512_or_si512(all, _mm512_loadu_si512(source + at));
    return _mm512_movepi8_mask(all) == 0;
}

// Whether a text of two to four blocks is ASCII.
QZSTRING_KERNEL bool isAsciiUpToFour(const char* source, std::size_t length) {
    const char* const last = source + length - kBlock;
    const char* const third = length < 3 * kBlock ? last : source + 2 * kBlock;
    const __m512i two = _mm512_or_si512(_mm512_loadu_si512(source), _mm512_loadu_si512(source + kBlock));
    return _mm512_movepi8_mask(_mm512_ternarylogic_epi32(two, _mm512_loadu_si512(third),
                                                         _mm512_loadu_si512(last), 0xFE)) == 0;
}

// Whether a text of up to 48 bytes is ASCII: by its first and its last 32, fewer of them twice.
QZSTRING_KERNEL bool isAsciiShort(const char* source, std::size_t length) {
    const auto valid = static_cast<__mmask32>(lowBits(length));
    const char* const last = source + (length > 32 ? length - 32 : 0);
    return _mm256_movemask_epi8(_mm256_or_si256(_mm256_maskz_loadu_epi8(valid, source),
                                                _mm256_maskz_loadu_epi8(valid, last))) == 0;
}

}  // namespace qzString::kernels::avx512

#endif
