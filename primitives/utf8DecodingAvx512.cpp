// Decoding UTF-8 in AVX-512 with VBMI2 and GFNI, 64 bytes a block.
//
// 1. The block is loaded as it is and as seen from 1, 2 and 3 positions on, so that at every byte stand those
//    before it. The check of pairs (utf8Check.h) is three look-ups.
// 2. A character is formed at its last byte: from it and the bytes before, every position has the low, middle
//    and high byte of the code point that would end there. One affine transformation each moves the bits.
// 3. The positions at which characters do end, those before a byte that is no continuation, select those
//    bytes (vpcompressb); byte permutations spread them over 32-bit lanes, 16 characters a store.
//
// Block edges: a character is formed in the block in which it ends; the loads reach back to its first bytes.
// The first block has zeros before it; the last one is the text's last 64 bytes, some of which the block
// before had, too. A text of up to one block has zeros on both sides, and what it lacks at its end shows
// there. Too little room ends a conversion at once, a fault is noticed at its end: it succeeds as a whole or
// not at all. Only the query for the well-formed beginning goes on in portable code, which finds the place.
//
// Stores: 64 bytes whole while what is still to come is sure to fill them; the last 16 characters over some
// of those before, or under a mask where there are fewer, so that nothing past the count is touched.
// (avx512.h's narrower stores would branch on how few there are.)
//
// Processors may let a load wait until the places of all stores before it are known, and these depend on the
// count of the block before: what tells the count is therefore loaded a block ahead.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx512.h"
#include "primitives/inline.h"
#include "primitives/output.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::avx512 {
namespace {

using output::kFailure;

constexpr std::size_t kBlock = 64;
constexpr __mmask64 kAll = ~__mmask64{0};
// The bytes from which on it pays, as measured on Zen 5, to take blocks along cache lines, in the conversion
// and in the query of ASCII, and to widen ASCII with constants in registers.
constexpr std::size_t kWorthAligning = 16 * kBlock;
constexpr std::size_t kWorthAligningAscii = 8 * kBlock;
constexpr std::size_t kWorthWidening = 5 * kBlock;

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

// The eight bytes from `at` on of a table of 16.
constexpr long long tableWord(const unsigned char (&entries)[16], int at) {
    std::uint64_t word = 0;
    for (int i = 0; i < 8; ++i)
        word |= std::uint64_t{entries[at + i]} << 8 * i;
    return static_cast<long long>(word);
}

// The indices that take a byte to each of two lanes of 32 bits, four times.
constexpr long long spreadWord(int byte) {
    const std::uint64_t both = repeat32(0x01010101) * static_cast<unsigned>(byte) + 0x0101010100000000;
    return static_cast<long long>(both);
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

// The constants of decoding. A loop copies them to registers, a text of one block takes them from memory; and
// so does every text what only few blocks need, as there are not registers for all.
struct Constants {
    __m512i continuationEnd = kFilled<repeat8(0xC0)>;
    __m512i topBit = kFilled<repeat8(0x80)>;
    __m512i third = kFilled<repeat8(0xE0 - 0x80)>;
    __m512i fourth = kFilled<repeat8(0xF0 - 0x80)>;
    __m512i firstHigh = kNibbles<utf8::kFirstHigh>;
    __m512i firstLow = kNibbles<utf8::kFirstLow>;
    __m512i secondHigh = kNibbles<utf8::kSecondHigh>;
    __m512i highHalf = kFilled<moveBits(4, 0, 4)>;
    __m512i twoBitsUp = kFilled<moveBits(0, 6, 2)>;
    __m512i fourBitsDown = kFilled<moveBits(2, 0, 4)>;
    __m512i fourBitsUp = kFilled<moveBits(0, 4, 4)>;
    __m512i thirdMark = kFilled<copyBit(6, 4, 4)>;
    __m512i firstGroup = kSpread<0>, secondGroup = kSpread<16>, thirdGroup = kSpread<32>;
    Places places;
};
constexpr Constants kConstants;

// The greatest bytes that may end a text, four and a whole block: a lead byte needs room for its character.
constexpr std::uint32_t kLastFour = 0xBFDFEFFF;
constexpr __m512i kLastBytes = {
    -1, -1, -1, -1, -1, -1, -1, static_cast<long long>(std::uint64_t{kLastFour} << 32 | 0xFFFFFFFF)};

// The constants behind a pointer of unknown origin: the compiler would make some of them anew.
QZSTRING_KERNEL const Constants& inMemory() {
    const Constants* constants = &kConstants;
    asm("" : "+r"(constants));
    return *constants;
}

// One by one: as a whole they would go through the stack.
QZSTRING_KERNEL Constants inRegisters() {
    const Constants& memory = inMemory();
    Constants constants;
    constants.continuationEnd = kept(memory.continuationEnd);
    constants.topBit = kept(memory.topBit);
    constants.third = kept(memory.third);
    constants.fourth = kept(memory.fourth);
    constants.firstHigh = kept(memory.firstHigh);
    constants.firstLow = kept(memory.firstLow);
    constants.secondHigh = kept(memory.secondHigh);
    constants.highHalf = kept(memory.highHalf);
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

// The bytes one place on; behind the block is zero.
QZSTRING_KERNEL __m512i nextOf(__m512i block) {
    const __m512i lanesAfter = _mm512_alignr_epi64(_mm512_setzero_si512(), block, 2);
    return _mm512_alignr_epi8(lanesAfter, block, 1);
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

QZSTRING_KERNEL std::size_t countContinuations(__m512i bytes, __mmask64 valid, const Constants& constant) {
    return static_cast<std::size_t>(
        _mm_popcnt_u64(_mm512_mask_cmplt_epi8_mask(valid, bytes, constant.continuationEnd)));
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

QZSTRING_KERNEL bool isAsciiBlock(const char* block) {
    return _mm512_movepi8_mask(_mm512_loadu_si512(block)) == 0;
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

// How many bytes to take first, so that the blocks after them begin with a cache line: loads across two cost
// twice. At least four: that far look those blocks back, and a character ends in four.
QZSTRING_KERNEL std::size_t toCacheLine(const char* source) {
    const std::size_t part = kBlock - reinterpret_cast<std::uintptr_t>(source) % kBlock;
    return part < 4 ? kBlock : part;
}

// The length of the ASCII text at the beginning, counted in steps of four blocks; in long text these begin
// with a cache line.
QZSTRING_KERNEL std::size_t asciiSteps(const char* text, std::size_t length) {
    std::size_t at = 0;
    if (length >= kWorthAligningAscii) {
        if (!isAsciiBlock(text))
            return 0;
        at = toCacheLine(text);
    }
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

// Whether a text of two to four blocks is ASCII.
QZSTRING_KERNEL bool isAsciiFour(const char* source, std::size_t length) {
    const char* const last = source + length - kBlock;
    const char* const third = length < 3 * kBlock ? last : source + 2 * kBlock;
    const __m512i two = _mm512_or_si512(_mm512_loadu_si512(source), _mm512_loadu_si512(source + kBlock));
    return _mm512_movepi8_mask(_mm512_ternarylogic_epi32(two, _mm512_loadu_si512(third),
                                                         _mm512_loadu_si512(last), 0xFE)) == 0;
}

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

// How many bytes to take first of a text.
QZSTRING_KERNEL std::size_t firstPart(const char* source, std::size_t length) {
    return length < kWorthAligning ? kBlock : toCacheLine(source);
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

// Checks and counts a text of more than one block, from `at` on, before which all is ASCII. Four blocks in a
// row are checked at once, and so is what is left after them; before a fault it returns how far it came.
QZSTRING_TARGET QZSTRING_NOINLINE Progress measureLong(const char* source, std::size_t length,
                                                       std::size_t at) {
    const Constants constant = inRegisters();
    Progress checked{at, at};
    __m512i faults = _mm512_setzero_si512();
    std::size_t continued = 0;  // continuation bytes since `checked`
    if (at == 0) {
        at = firstPart(source, length);
        const Bytes bytes = loadFirst(_mm512_loadu_si512(source));
        faults = faultsOf(bytes, constant);
        continued = countContinuations(bytes.at, lowBits(at), constant);
    }
    // Tested before a run of ASCII is skipped: substitution asks anew behind every fault.
    bool sound = !anyFault(faults);
    while (sound && length - at >= 4 * kBlock) {
        __m512i blocks[4];
        for (std::size_t n = 0; n < 4; ++n)
            blocks[n] = kept(_mm512_loadu_si512(source + at + n * kBlock));
        const __m512i all =
            _mm512_ternarylogic_epi32(_mm512_or_si512(blocks[0], blocks[1]), blocks[2], blocks[3], 0xFE);
        if (_mm512_movepi8_mask(all) == 0) {
            faults = _mm512_or_si512(faults, incompleteBefore(source + at));
            at += 4 * kBlock;
        } else {
            for (std::size_t n = 0; n < 4; ++n, at += kBlock) {
                const char* const block = source + at;
                const Bytes bytes{blocks[n], _mm512_loadu_si512(block - 1), _mm512_loadu_si512(block - 2),
                                  _mm512_loadu_si512(block - 3)};
                faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
                continued += countContinuations(bytes.at, kAll, constant);
            }
        }
        sound = !anyFault(faults);
        if (sound) {
            checked = {at, checked.written + (at - checked.read) - continued};
            continued = 0;
        }
    }
    if (sound) {
        for (; length - at > kBlock; at += kBlock) {
            const Bytes bytes = loadWhole(source + at);
            faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
            continued += countContinuations(bytes.at, kAll, constant);
        }
        const Bytes bytes = loadLast(source, length);
        faults =
            _mm512_ternarylogic_epi32(faults, faultsOf(bytes, constant), incompleteAtEnd(bytes.at), 0xFE);
        continued += countContinuations(bytes.at, ~lowBits(kBlock - (length - at)), constant);
        sound = !anyFault(faults);
    }
    _mm256_zeroupper();
    if (sound)
        return {length, checked.written + (length - checked.read) - continued};
    return utf8::withoutCutCharacter(source, checked);
}

// ---- Decoding up to one block ----

// Whether a text is ASCII: by one vector, which is faster for 49 to 64 bytes, or by its first and its last
// 32, fewer of them twice.
QZSTRING_KERNEL bool isAsciiVector(const char* source, std::size_t length) {
    return _mm512_movepi8_mask(_mm512_maskz_loadu_epi8(lowBits(length), source)) == 0;
}
QZSTRING_KERNEL bool isAsciiHalves(const char* source, std::size_t length) {
    const auto valid = static_cast<__mmask32>(lowBits(length));
    const char* const last = source + (length > 32 ? length - 32 : 0);
    return _mm256_movemask_epi8(_mm256_or_si256(_mm256_maskz_loadu_epi8(valid, source),
                                                _mm256_maskz_loadu_epi8(valid, last))) == 0;
}

QZSTRING_KERNEL std::size_t decodeShort(const char* source, std::size_t length, wchar_t* destination,
                                        std::size_t capacity) {
    // Apart to the end: a jump more, or a longer loop, costs a tenth of the call.
    if (length > 48) {
        if (isAsciiVector(source, length) && length <= capacity) {
            storeAscii(source, length, destination);
            _mm256_zeroupper();
            return length;
        }
    } else if (length <= capacity && isAsciiHalves(source, length)) {
        storeAscii(source, length, destination);
        _mm256_zeroupper();
        return length;
    }
    const Bytes bytes = loadFirst(loadShort(source, length));
    const Constants& constant = inMemory();
    const __m512i faults = _mm512_or_si512(faultsOf(bytes, constant), incompleteAtEnd(bytes.at));
    std::size_t count = kFailure;
    if (!anyFault(faults))
        count = decodeBlock(bytes, _mm512_movepi8_mask(bytes.at),
                            endsBefore(nextOf(bytes.at), lowBits(length), constant), destination, capacity,
                            false, constant);
    _mm256_zeroupper();
    return count;
}

QZSTRING_KERNEL std::size_t measureShort(const char* source, std::size_t length) {
    const bool ascii = length > 48 ? isAsciiVector(source, length) : isAsciiHalves(source, length);
    if (ascii) {
        _mm256_zeroupper();
        return length;
    }
    const Bytes bytes = loadFirst(loadShort(source, length));
    const Constants& constant = inMemory();
    const bool faulty = anyFault(_mm512_or_si512(faultsOf(bytes, constant), incompleteAtEnd(bytes.at)));
    const std::size_t characters = leaveWith(length - countContinuations(bytes.at, kAll, constant));
    return faulty ? kFailure : characters;
}

// ---- Decoding more than a block, beginning with what is ASCII: that takes no constants ----

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
        if (length > capacity || !isAsciiFour(source, length))
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

// What is left of a text's check when all but its last block has been seen: `continued` are the continuation
// bytes so far, `faults` what was wrong.
QZSTRING_KERNEL unsigned int finishMeasuring(const char* source, std::size_t length, __m512i faults,
                                             std::size_t continued, const Constants& constant, bool* ok) {
    const Bytes last = loadLast(source, length);
    const bool faulty =
        anyFault(_mm512_ternarylogic_epi32(faults, faultsOf(last, constant), incompleteAtEnd(last.at), 0xFE));
    continued += countContinuations(last.at, ~lowBits((0 - length) % kBlock), constant);
    const std::size_t characters = leaveWith(length - continued);
    return output::report(faulty ? kFailure : characters, ok);
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureTwoBlocks(const char* source, std::size_t length,
                                                                bool* ok) {
    const __m512i front = _mm512_loadu_si512(source);
    if (_mm512_movepi8_mask(_mm512_or_si512(front, _mm512_loadu_si512(source + length - kBlock))) == 0) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    const Constants& constant = inMemory();
    return finishMeasuring(source, length, faultsOf(loadFirst(front), constant),
                           countContinuations(front, kAll, constant), constant, ok);
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureFourBlocks(const char* source, std::size_t length,
                                                                 bool* ok) {
    if (isAsciiFour(source, length)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    const Constants& constant = inMemory();
    const Bytes first = loadFirst(_mm512_loadu_si512(source));
    const Bytes second = loadWhole(source + kBlock);
    __m512i faults = _mm512_or_si512(faultsOf(first, constant), faultsOf(second, constant));
    std::size_t continued =
        countContinuations(first.at, kAll, constant) + countContinuations(second.at, kAll, constant);
    if (length > 3 * kBlock) {
        const Bytes third = loadWhole(source + 2 * kBlock);
        faults = _mm512_or_si512(faults, faultsOf(third, constant));
        continued += countContinuations(third.at, kAll, constant);
    }
    return finishMeasuring(source, length, faults, continued, constant, ok);
}

QZSTRING_NOINLINE unsigned int measureFrom(const char* source, std::size_t length, std::size_t at, bool* ok) {
    const Progress checked = measureLong(source, length, at);
    return output::report(checked.read == length ? checked.written : kFailure, ok);
}

// More than four blocks.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureBlocks(const char* source, std::size_t length,
                                                             bool* ok) {
    const std::size_t ascii = asciiSteps(source, length);
    if (length - ascii < 4 * kBlock && isAsciiToEnd(source, ascii, length)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    return measureFrom(source, length, ascii, ok);
}

}  // namespace

// Texts of one block, and queries of up to four, take no stack: what they cost is the calls. The kernels of
// longer text report themselves and are jumped to: where it calls one, g++ 12 has an entry align its stack
// for vectors first, short text or not.

QZSTRING_TARGET unsigned int decode(const char* source, std::size_t length, wchar_t* destination,
                                    std::size_t capacity, bool* ok) {
    return length <= kBlock ? output::report(decodeShort(source, length, destination, capacity), ok)
                            : decodeBlocks(source, length, destination, capacity, ok);
}

QZSTRING_TARGET unsigned int decodedLength(const char* source, std::size_t length, bool* ok) {
    if (length <= kBlock)
        return output::report(measureShort(source, length), ok);
    if (length <= 2 * kBlock)
        return measureTwoBlocks(source, length, ok);
    return length <= 4 * kBlock ? measureFourBlocks(source, length, ok) : measureBlocks(source, length, ok);
}

// The portable code finds the place of a fault.
Progress wellFormed(const char* source, std::size_t length) {
    const Progress checked = length <= kBlock ? Progress{0, 0} : measureLong(source, length, 0);
    return checked + utf8::decodedLength<wchar_t>(source + checked.read, length - checked.read);
}

}  // namespace qzString::kernels::avx512

#endif
