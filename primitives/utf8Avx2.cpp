// UTF-8 in AVX2. Decoding goes by blocks of 32 bytes: utf8Blocks.h has the algorithm.
//
// Encoding, 16 characters a block: each is spread over the four bytes of a lane, lead byte first and
// right-aligned; for each combination of four lengths a table has the shuffle that moves the bytes in use to
// the front. Characters below U+10000 are spread in 16-bit lanes, those below U+0800 stay in them, eight a
// shuffle. Ill-formed characters are noticed at the end. Stores are 16 bytes whole while what is still to
// come is sure to fill them, else of the bytes in use, in two words that may overlap. The last characters are
// loaded under a mask, so that nothing behind the text is read.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx2.h"
#include "primitives/utf8Blocks.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels::avx2 {
namespace {

QZSTRING_KERNEL __m128i half(__m256i vector, int which) {
    return which == 0 ? _mm256_castsi256_si128(vector) : _mm256_extracti128_si256(vector, 1);
}

// ---- Stores of a few elements ----

// From the n-th place on, the indices that move the bytes from n on to the front, and zeros behind them.
constexpr std::array<unsigned char, 32> makeMoves() {
    std::array<unsigned char, 32> moves{};
    for (std::size_t i = 0; i < 32; ++i)
        moves[i] = static_cast<unsigned char>(i < 16 ? i : 0x80);
    return moves;
}
alignas(32) constexpr std::array<unsigned char, 32> kMoves = makeMoves();

QZSTRING_KERNEL __m128i moveToFront(__m128i bytes, std::size_t from) {
    return _mm_shuffle_epi8(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(kMoves.data() + from)));
}

template <class Word>
QZSTRING_KERNEL void storeWord(__m128i bytes, char* destination) {
    const auto word = static_cast<Word>(_mm_cvtsi128_si64(bytes));
    std::memcpy(destination, &word, sizeof word);
}

// The first and the last of `count` bytes, which may overlap: one to two words of them.
template <class Word>
QZSTRING_KERNEL void storeEnds(__m128i bytes, std::size_t count, char* destination) {
    const std::size_t last = count - sizeof(Word);
    storeWord<Word>(bytes, destination);
    storeWord<Word>(moveToFront(bytes, last), destination + last);
}

// Up to 16 bytes, and nothing behind them.
QZSTRING_KERNEL void storeFirst(__m128i bytes, std::size_t count, char* destination) {
    if (count == 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), bytes);
    else if (count >= 8)
        storeEnds<std::uint64_t>(bytes, count, destination);
    else if (count >= 4)
        storeEnds<std::uint32_t>(bytes, count, destination);
    else if (count >= 2)
        storeEnds<std::uint16_t>(bytes, count, destination);
    else if (count == 1)
        storeWord<std::uint8_t>(bytes, destination);
}

// Up to eight characters, and nothing behind them.
QZSTRING_KERNEL void storeFirst(__m256i characters, std::size_t count, wchar_t* destination) {
    if (count >= 8) {
        store256(destination, characters);
        return;
    }
    __m128i rest = _mm256_castsi256_si128(characters);
    if (count >= 4) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), rest);
        rest = _mm256_extracti128_si256(characters, 1);
        destination += 4;
        count -= 4;
    }
    storeFirst(rest, 4 * count, reinterpret_cast<char*>(destination));
}

// ---- Decoding ----

QZSTRING_KERNEL __m256i nibbleTable(const unsigned char (&entries)[16]) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

QZSTRING_KERNEL __m256i bytesOf(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}

// A constant in every lane, for a loop that has a register for it.
QZSTRING_KERNEL __m256i inEveryLane(unsigned value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}
// And from memory whenever it is used: a load, where the compiler would go through a general register and the
// port that the shuffles need.
template <std::uint32_t kValue>
QZSTRING_KERNEL __m256i lanesOf() {
    static constexpr std::uint32_t value = kValue;
    __m256i lanes;
    asm("vpbroadcastd %1, %0" : "=x"(lanes) : "m"(value));
    return lanes;
}
template <std::uint16_t kValue>
QZSTRING_KERNEL __m256i unitsOf() {
    return lanesOf<0x00010001U * kValue>();
}

// The constants of the loops. Their origin is hidden from the compiler, which would otherwise make them anew
// in every block, on the port that the shuffles need; those that find no register are read from the stack.
QZSTRING_KERNEL __m256i kept(__m256i constant) {
    asm("" : "+x"(constant));
    return constant;
}

struct DecodingConstants {
    __m256i firstHigh, firstLow, secondHigh;
    __m256i lowHalf, highHalf, third, fourth, topBit, lastContinuation, highTwo, lowTwo, middleThree;

    QZSTRING_KERNEL DecodingConstants()
        : firstHigh(kept(nibbleTable(utf8::kFirstHigh))),
          firstLow(kept(nibbleTable(utf8::kFirstLow))),
          secondHigh(kept(nibbleTable(utf8::kSecondHigh))),
          lowHalf(kept(bytesOf(0x0F))),
          highHalf(kept(bytesOf(0xF0))),
          third(kept(bytesOf(0xE0 - 0x80))),
          fourth(kept(bytesOf(0xF0 - 0x80))),
          topBit(kept(bytesOf(0x80))),
          lastContinuation(kept(bytesOf(0xBF))),
          highTwo(kept(bytesOf(0xC0))),
          lowTwo(kept(bytesOf(0x03))),
          middleThree(kept(bytesOf(0x1C))) {}
};

struct Views {
    __m256i at, before1, before2, before3;
};

// Not zero where a byte and the ones before it cannot stand in well-formed text.
QZSTRING_KERNEL __m256i faultsOf(const Views& bytes, const DecodingConstants& constant) {
    const __m256i firstHigh = _mm256_and_si256(_mm256_srli_epi16(bytes.before1, 4), constant.lowHalf);
    const __m256i secondHigh = _mm256_and_si256(_mm256_srli_epi16(bytes.at, 4), constant.lowHalf);
    const __m256i pairs = _mm256_and_si256(
        _mm256_and_si256(
            _mm256_shuffle_epi8(constant.firstHigh, firstHigh),
            _mm256_shuffle_epi8(constant.firstLow, _mm256_and_si256(bytes.before1, constant.lowHalf))),
        _mm256_shuffle_epi8(constant.secondHigh, secondHigh));
    // The top bit where the byte is the third or fourth of a character.
    const __m256i third = _mm256_subs_epu8(bytes.before2, constant.third);
    const __m256i fourth = _mm256_subs_epu8(bytes.before3, constant.fourth);
    return _mm256_xor_si256(_mm256_and_si256(_mm256_or_si256(third, fourth), constant.topBit), pairs);
}

QZSTRING_KERNEL std::uint32_t topBits(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

struct CodePoints {
    __m256i low, middle, high;
    bool hasHigh;
};

QZSTRING_KERNEL CodePoints form(const Views& bytes, const DecodingConstants& constant) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i isHigh = _mm256_cmpgt_epi8(zero, bytes.at);
    // Six bits of the last byte and two of the one before; ASCII has seven.
    const __m256i mark = _mm256_and_si256(isHigh, constant.highTwo);
    const __m256i low = _mm256_or_si256(_mm256_andnot_si256(mark, bytes.at),
                                        _mm256_and_si256(_mm256_slli_epi16(bytes.before1, 6), mark));
    const __m256i isThree = _mm256_cmpgt_epi8(constant.highTwo, bytes.before1);
    const __m256i upper =
        _mm256_and_si256(_mm256_and_si256(_mm256_slli_epi16(bytes.before2, 4), constant.highHalf), isThree);
    const __m256i lower = _mm256_and_si256(_mm256_srli_epi16(bytes.before1, 2), constant.lowHalf);
    const __m256i middle = _mm256_and_si256(_mm256_or_si256(lower, upper), isHigh);
    // The top bit where the byte would be the last of four, as in the check.
    const __m256i fourth = _mm256_subs_epu8(bytes.before3, constant.fourth);
    if (__builtin_expect(topBits(fourth) == 0, 1))
        return {low, middle, zero, false};
    const __m256i high =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(bytes.before2, 4), constant.lowTwo),
                        _mm256_and_si256(_mm256_slli_epi16(bytes.before3, 2), constant.middleThree));
    return {low, middle, _mm256_and_si256(high, _mm256_cmpgt_epi8(zero, fourth)), true};
}

// Stores those of eight characters that the mask names; eight elements are written, or where kExactly those
// up to `end`.
template <bool kExactly, bool kHigh>
QZSTRING_KERNEL wchar_t* storeEight(__m128i values, __m128i high, std::uint32_t mask, wchar_t* destination,
                                    const wchar_t* end) {
    const __m128i selection =
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks::kSelections[mask & 0xFF].data()));
    __m256i characters = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(values, selection));
    if (kHigh) {
        const __m256i upper = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(high, selection));
        characters = _mm256_or_si256(characters, _mm256_slli_epi32(upper, 16));
    }
    if (kExactly)
        storeFirst(characters, static_cast<std::size_t>(end - destination), destination);
    else
        store256(destination, characters);
    return destination + _mm_popcnt_u32(mask & 0xFF);
}

// Stores the characters that end at `ends`; up to eight elements more are written, or where kExactly those up
// to `end`.
template <bool kExactly, bool kHigh>
QZSTRING_KERNEL void storeAll(const CodePoints& points, std::uint32_t ends, wchar_t* destination,
                              const wchar_t* end) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i values[] = {_mm256_unpacklo_epi8(points.low, points.middle),
                              _mm256_unpackhi_epi8(points.low, points.middle)};
    const __m256i high[] = {_mm256_unpacklo_epi8(points.high, zero), _mm256_unpackhi_epi8(points.high, zero)};
    for (int i = 0; i < 4; ++i) {
        destination = storeEight<kExactly, kHigh>(half(values[i % 2], i / 2), half(high[i % 2], i / 2),
                                                  ends >> 8 * i, destination, end);
    }
}
template <bool kExactly>
QZSTRING_KERNEL void store(const CodePoints& points, std::uint32_t ends, wchar_t* destination,
                           const wchar_t* end) {
    if (__builtin_expect(points.hasHigh, 0))
        storeAll<kExactly, true>(points, ends, destination, end);
    else
        storeAll<kExactly, false>(points, ends, destination, end);
}

// Eight characters of three or of four bytes, one in each lane. Returns false where they cannot be that.
template <std::size_t kWidth>
QZSTRING_KERNEL bool decodeEight(const char* source, wchar_t* destination) {
    static_assert(kWidth == 3 || kWidth == 4);
    const auto half = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const __m256i bytes =
        _mm256_inserti128_si256(_mm256_castsi128_si256(half(source)), half(source + 4 * kWidth), 1);
    // The last byte first in every lane.
    const __m256i order =
        kWidth == 3
            ? _mm256_broadcastsi128_si256(_mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1))
            : _mm256_broadcastsi128_si256(
                  _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
    const __m256i lanes = _mm256_shuffle_epi8(bytes, order);
    const __m256i marks = _mm256_and_si256(lanes, inEveryLane(kWidth == 3 ? 0x00F0C0C0 : 0xF8C0C0C0));
    const __m256i marked = _mm256_cmpeq_epi32(marks, inEveryLane(kWidth == 3 ? 0x00E08080 : 0xF0808080));
    // Six bits and six bits, then twelve and the rest.
    const __m256i fields = _mm256_and_si256(lanes, inEveryLane(kWidth == 3 ? 0x000F3F3F : 0x073F3F3F));
    const __m256i twelves = _mm256_maddubs_epi16(fields, _mm256_set1_epi16(0x4001));
    const __m256i characters = _mm256_madd_epi16(twelves, inEveryLane(0x10000001));
    __m256i wrong;
    if (kWidth == 3) {
        const __m256i high = _mm256_and_si256(characters, inEveryLane(0xF800));
        wrong = _mm256_or_si256(_mm256_cmpeq_epi32(high, _mm256_setzero_si256()),
                                _mm256_cmpeq_epi32(high, inEveryLane(0xD800)));
    } else {
        wrong = _mm256_or_si256(_mm256_cmpgt_epi32(inEveryLane(0x10000), characters),
                                _mm256_cmpgt_epi32(characters, inEveryLane(0x10FFFF)));
    }
    if (topBits(_mm256_andnot_si256(wrong, marked)) != ~0U)
        return false;
    store256(destination, characters);
    return true;
}

// ---- Encoding ----

constexpr std::array<blocks::Shuffle, 256> makePairPackings() {
    std::array<blocks::Shuffle, 256> packings{};
    for (std::size_t pairs = 0; pairs < 256; ++pairs) {
        std::size_t to = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            packings[pairs][to++] = static_cast<unsigned char>(2 * i);
            if ((pairs >> i & 1) != 0)
                packings[pairs][to++] = static_cast<unsigned char>(2 * i + 1);
        }
    }
    return packings;
}
// Moves the bytes in use of eight 16-bit lanes to the front: both of those that the mask names.
constexpr std::array<blocks::Shuffle, 256> kPairPackings = makePairPackings();

template <std::uint32_t kLimit>
QZSTRING_KERNEL bool anyFrom(__m256i characters) {
    return _mm256_testz_si256(characters, lanesOf<0 - kLimit>()) == 0;
}

// All bits where an unsigned 16-bit lane is up to the limit.
template <std::uint16_t kLimit>
QZSTRING_KERNEL __m256i unitsUpTo(__m256i units) {
    return _mm256_cmpeq_epi16(_mm256_min_epu16(units, unitsOf<kLimit>()), units);
}

// Remembers whether any character was a surrogate or above U+10FFFF.
struct EncodingFaults {
    __m256i largest, surrogates;

    QZSTRING_KERNEL EncodingFaults() : largest(_mm256_setzero_si256()), surrogates(_mm256_setzero_si256()) {}
    QZSTRING_KERNEL void see(__m256i characters) {
        largest = _mm256_max_epu32(largest, characters);
        surrogates = _mm256_or_si256(
            surrogates,
            _mm256_cmpeq_epi32(_mm256_and_si256(characters, lanesOf<0xFFFFF800>()), lanesOf<0xD800>()));
    }
    QZSTRING_KERNEL void seeUnits(__m256i units) {
        surrogates = _mm256_or_si256(
            surrogates, _mm256_cmpeq_epi16(_mm256_and_si256(units, unitsOf<0xF800>()), unitsOf<0xD800>()));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        const __m256i limit = lanesOf<0x10FFFF>();
        const __m256i tooLarge = _mm256_xor_si256(_mm256_max_epu32(largest, limit), limit);
        const __m256i all = _mm256_or_si256(tooLarge, surrogates);
        return _mm256_testz_si256(all, all) == 0;
    }
};

// Sixteen characters go to the destination, of which `taken` count; those behind them are zero.
struct Encoding {
    char* bytes;
    std::size_t capacity;
    std::size_t taken = 16;
    std::size_t later = 0;  // characters that follow
    std::size_t written = 0;

    // Whether none of the characters from number `begin` on counts. Where kAmply, all do.
    template <bool kAmply>
    [[nodiscard]] QZSTRING_KERNEL bool endsBefore(std::size_t begin) const {
        return !kAmply && begin >= taken;
    }

    // Stores the bytes of kCharacters characters, the first of which is number `begin` of the sixteen, and
    // counts. `count` takes in a byte for each that does not count, which is taken off here. Where kAmply,
    // there is room for 16 bytes, and as many will be written later. False where there is no room.
    template <bool kAmply, std::size_t kCharacters>
    QZSTRING_KERNEL bool put(__m128i packed, std::size_t count, std::size_t begin) {
        if (kAmply) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + written), packed);
        } else {
            const std::size_t end = begin + kCharacters;
            const std::size_t absent = end <= taken ? 0 : end - taken;
            count -= absent;
            if (count > capacity - written)
                return false;
            if (absent == 0 && later + taken - end >= 16 && capacity - written >= 16)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + written), packed);
            else
                storeFirst(packed, count, bytes + written);
        }
        written += count;
        return true;
    }
};

// Four characters in 32-bit lanes, their bytes at the end of each; `lengths` is the index for kPackings.
template <bool kAmply>
QZSTRING_KERNEL bool putFour(Encoding& encoding, __m128i lanes, std::size_t lengths, std::size_t begin) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    const auto* const order = reinterpret_cast<const __m128i*>(blocks::kPackings[lengths].data());
    return encoding.put<kAmply, 4>(_mm_shuffle_epi8(lanes, _mm_loadu_si128(order)),
                                   blocks::kPackedLengths[lengths], begin);
}

// Eight characters in 16-bit lanes, two bytes each for those that the mask names.
template <bool kAmply>
QZSTRING_KERNEL bool putPairs(Encoding& encoding, __m128i lanes, std::size_t pairs, std::size_t begin) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    const auto* const order = reinterpret_cast<const __m128i*>(kPairPackings[pairs].data());
    return encoding.put<kAmply, 8>(_mm_shuffle_epi8(lanes, _mm_loadu_si128(order)),
                                   8 + static_cast<std::size_t>(_mm_popcnt_u64(pairs)), begin);
}

// Eight characters of any length.
template <bool kAmply>
QZSTRING_KERNEL bool encodeEight(__m256i c, std::size_t begin, Encoding& encoding) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    // Signed comparisons are right for everything that is not a fault.
    const __m256i two = _mm256_cmpgt_epi32(c, lanesOf<0x7F>());
    const __m256i three = _mm256_cmpgt_epi32(c, lanesOf<0x7FF>());
    const __m256i four = _mm256_cmpgt_epi32(c, lanesOf<0xFFFF>());
    const __m256i fields =
        _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(c, 24), lanesOf<0x3F000000>()),
                                        _mm256_and_si256(_mm256_slli_epi32(c, 10), lanesOf<0x003F0000>())),
                        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(c, 4), lanesOf<0x00003F00>()),
                                        _mm256_srli_epi32(c, 18)));
    // Each longer form changes the tags of the one before.
    const __m256i tags = _mm256_xor_si256(
        lanesOf<0x80C00000>(), _mm256_xor_si256(_mm256_and_si256(three, lanesOf<0x80C00000 ^ 0x8080E000>()),
                                                _mm256_and_si256(four, lanesOf<0x8080E000 ^ 0x808080F0>())));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_slli_epi32(c, 24), _mm256_or_si256(fields, tags), two);
    // The number of bytes beyond the first, in two bits: the upper is set from three bytes on, the lower
    // where there are two or four.
    const __m256i lower = _mm256_xor_si256(two, _mm256_xor_si256(three, four));
    const std::uint32_t lengths =
        topBits(_mm256_packs_epi16(_mm256_blend_epi16(lower, three, 0xAA), _mm256_setzero_si256()));
    return putFour<kAmply>(encoding, half(bytes, 0), lengths & 0xFF, begin) &&
           putFour<kAmply>(encoding, half(bytes, 1), lengths >> 16 & 0xFF, begin + 4);
}

// Sixteen characters below U+10000, in 16-bit lanes, the first and the third four in the first half.
template <bool kAmply>
QZSTRING_KERNEL bool encodeUnits(__m256i units, Encoding& encoding) {
    const __m256i one = unitsUpTo<0x7F>(units);
    const __m256i upToTwo = unitsUpTo<0x7FF>(units);
    // The lead byte of three, the upper; then the byte after it, or the lead byte of two, and the last.
    const __m256i first =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 4), unitsOf<0x0F00>()), unitsOf<0xE000>());
    const __m256i last = _mm256_slli_epi16(units, 8);
    const __m256i fields = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 6), unitsOf<0x003F>()),
                                           _mm256_and_si256(last, unitsOf<0x3F00>()));
    const __m256i tags = _mm256_xor_si256(_mm256_and_si256(upToTwo, unitsOf<0x0040>()), unitsOf<0x8080>());
    const __m256i rest = _mm256_blendv_epi8(_mm256_or_si256(fields, tags), last, one);
    const __m256i front = _mm256_unpacklo_epi16(first, rest);
    const __m256i back = _mm256_unpackhi_epi16(first, rest);
    // A number of two bits for each: one of two bytes, two of three.
    const std::uint32_t lengths = topBits(_mm256_blendv_epi8(
        _mm256_xor_si256(one, upToTwo), _mm256_xor_si256(upToTwo, _mm256_set1_epi8(-1)), unitsOf<0xFF00>()));
    return putFour<kAmply>(encoding, half(front, 0), lengths & 0xFF, 0) &&
           putFour<kAmply>(encoding, half(front, 1), lengths >> 16 & 0xFF, 4) &&
           putFour<kAmply>(encoding, half(back, 0), lengths >> 8 & 0xFF, 8) &&
           putFour<kAmply>(encoding, half(back, 1), lengths >> 24, 12);
}

// Sixteen characters below U+0800, in 16-bit lanes.
template <bool kAmply>
QZSTRING_KERNEL bool encodePairs(__m256i units, Encoding& encoding) {
    const __m256i two = _mm256_cmpgt_epi16(units, unitsOf<0x7F>());
    const __m256i last = _mm256_and_si256(_mm256_slli_epi16(units, 8), unitsOf<0x3F00>());
    const __m256i pairs =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(units, 6), last), unitsOf<0x80C0>());
    const __m256i bytes = _mm256_blendv_epi8(units, pairs, two);
    const std::uint32_t mask = topBits(_mm256_packs_epi16(two, two));
    return putPairs<kAmply>(encoding, half(bytes, 0), mask & 0xFF, 0) &&
           putPairs<kAmply>(encoding, half(bytes, 1), mask >> 16 & 0xFF, 8);
}

QZSTRING_KERNEL __m128i packAscii(__m256i a, __m256i b) {
    const __m256i units = _mm256_packus_epi32(a, b);
    const __m256i packed = _mm256_packus_epi16(units, units);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5);
    return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(packed, order));
}

// Sixteen characters, of which any may be beyond ASCII.
template <bool kAmply>
QZSTRING_KERNEL bool encodeBeyondAscii(__m256i a, __m256i b, Encoding& encoding, EncodingFaults& faults) {
    const __m256i all = _mm256_or_si256(a, b);
    const __m256i units = _mm256_packus_epi32(a, b);
    if (!anyFrom<0x800>(all))
        return encodePairs<kAmply>(_mm256_permute4x64_epi64(units, 0xD8), encoding);
    if (!anyFrom<0x10000>(all)) {
        faults.seeUnits(units);
        return encodeUnits<kAmply>(units, encoding);
    }
    faults.see(a);
    faults.see(b);
    return encodeEight<kAmply>(a, 0, encoding) && encodeEight<kAmply>(b, 8, encoding);
}

template <bool kAmply>
QZSTRING_KERNEL bool encodeSixteen(__m256i a, __m256i b, Encoding& encoding, EncodingFaults& faults) {
    if (!anyFrom<0x80>(_mm256_or_si256(a, b)))
        return encoding.put<kAmply, 16>(packAscii(a, b), 16, 0);
    return encodeBeyondAscii<kAmply>(a, b, encoding, faults);
}

// Eight characters from `at` on, or what the text still has of them and zeros.
QZSTRING_KERNEL __m256i loadFirst(const wchar_t* source, std::size_t at, std::size_t length) {
    if (at >= length)
        return _mm256_setzero_si256();
    if (length - at >= 8)
        return load256(source + at);
    const __m256i places = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i valid = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(length - at)), places);
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(source + at), valid);
}

// Where any character was ill-formed nothing counts, and the portable code finds it; where the last
// characters do not fit, it writes those that do.
QZSTRING_TARGET Progress encodeBlocks(const wchar_t* source, std::size_t length, char* destination,
                                      std::size_t capacity) {
    EncodingFaults faults;
    Encoding encoding{destination, capacity};
    std::size_t at = 0;
    // Two blocks at a time: where some are ASCII and some not, one question is answered alike more often.
    // What is left after a block fills at least the 16 bytes that its last store may write too much.
    for (; length - at >= 32 + 16 && capacity - encoding.written >= 32 * 4 + 16; at += 32) {
        const __m256i a = load256(source + at);
        const __m256i b = load256(source + at + 8);
        const __m256i c = load256(source + at + 16);
        const __m256i d = load256(source + at + 24);
        if (!anyFrom<0x80>(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)))) {
            encoding.put<true, 16>(packAscii(a, b), 16, 0);
            encoding.put<true, 16>(packAscii(c, d), 16, 0);
        } else {
            encodeBeyondAscii<true>(a, b, encoding, faults);
            encodeBeyondAscii<true>(c, d, encoding, faults);
        }
    }
    std::size_t written = encoding.written;
    while (at < length) {
        const std::size_t rest = length - at;
        encoding.taken = rest < 16 ? rest : 16;
        encoding.later = rest - encoding.taken;
        if (!encodeSixteen<false>(loadFirst(source, at, length), loadFirst(source, at + 8, length), encoding,
                                  faults))
            break;
        at += encoding.taken;
        written = encoding.written;
    }
    const bool faulty = faults.any();
    _mm256_zeroupper();
    return faulty ? Progress{0, 0} : Progress{at, written};
}

// Adds up the bytes that characters need beyond one each: two, less one for each of U+007F and U+07FF that
// they do not exceed, and one more above U+FFFF.
struct Measure {
    EncodingFaults faults;
    std::size_t twos = 0;
    __m256i minusSaved16;  // minus the ones less, in lanes of 16 bits
    __m256i saved32;       // the ones less, and minus the ones more, in lanes of 32, far from their limits

    QZSTRING_KERNEL Measure() : minusSaved16(_mm256_setzero_si256()), saved32(_mm256_setzero_si256()) {}

    // In 16 bits, what is above U+FFFF is U+FFFF, or zero if it is a fault. At most 2^14 times without
    // carry().
    QZSTRING_KERNEL void add(__m256i a, __m256i b) {
        const __m256i units = _mm256_packus_epi32(a, b);
        faults.largest = _mm256_max_epu32(faults.largest, _mm256_max_epu32(a, b));
        faults.seeUnits(units);
        twos += 16;
        minusSaved16 =
            _mm256_add_epi16(minusSaved16, _mm256_add_epi16(unitsUpTo<0x7F>(units), unitsUpTo<0x7FF>(units)));
        saved32 = _mm256_add_epi32(saved32, _mm256_add_epi32(_mm256_cmpgt_epi32(a, lanesOf<0xFFFF>()),
                                                             _mm256_cmpgt_epi32(b, lanesOf<0xFFFF>())));
    }
    QZSTRING_KERNEL void carry() {
        saved32 = _mm256_sub_epi32(saved32, _mm256_madd_epi16(minusSaved16, unitsOf<1>()));
        minusSaved16 = _mm256_setzero_si256();
    }
    [[nodiscard]] QZSTRING_KERNEL std::size_t total() const {
        const __m256i wide = _mm256_add_epi64(_mm256_cvtepi32_epi64(half(saved32, 0)),
                                              _mm256_cvtepi32_epi64(half(saved32, 1)));
        const __m128i two = _mm_add_epi64(half(wide, 0), half(wide, 1));
        return 2 * twos - static_cast<std::size_t>(_mm_cvtsi128_si64(two) + _mm_extract_epi64(two, 1));
    }
};

QZSTRING_TARGET Progress measureEncoded(const wchar_t* source, std::size_t length) {
    constexpr std::size_t kMostSteps = std::size_t{1} << 14;
    Measure measure;
    std::size_t at = 0;
    while (length - at >= 32) {
        const std::size_t whole = (length - at) / 32 * 32;
        const std::size_t end = at + (whole < 16 * kMostSteps ? whole : 16 * kMostSteps);
        for (; at < end; at += 32) {
            const __m256i a = load256(source + at);
            const __m256i b = load256(source + at + 8);
            const __m256i c = load256(source + at + 16);
            const __m256i d = load256(source + at + 24);
            if (!anyFrom<0x80>(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d))))
                continue;
            measure.add(a, b);
            measure.add(c, d);
        }
        measure.carry();
    }
    for (; at < length; at += 16) {
        const __m256i a = loadFirst(source, at, length);
        const __m256i b = loadFirst(source, at + 8, length);
        if (anyFrom<0x80>(_mm256_or_si256(a, b)))
            measure.add(a, b);
    }
    measure.carry();
    const bool faulty = measure.faults.any();
    const std::size_t bytes = leaveWith(length + measure.total());
    return faulty ? Progress{0, 0} : Progress{length, bytes};
}

// What the block loops work on.
struct Vector {
    static constexpr std::size_t kBlock = 32;
    using Constants = DecodingConstants;
    using Block = __m256i;
    using Bytes = Views;
    using Faults = __m256i;

    QZSTRING_KERNEL static Bytes loadAround(const char* block) {
        return {load256(block), load256(block - 1), load256(block - 2), load256(block - 3)};
    }
    QZSTRING_KERNEL static Block loadShort(const char* source, std::size_t length) {
        if (length <= 16) {
            const blocks::Words words = blocks::loadWords(source, length);
            return _mm256_set_epi64x(0, 0, static_cast<long long>(words.second),
                                     static_cast<long long>(words.first));
        }
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
        const __m128i last = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + length - 16));
        return _mm256_set_m128i(moveToFront(last, 32 - length), first);
    }
    QZSTRING_KERNEL static Bytes loadFirst(const char* block) { return fromZeros(load256(block)); }
    QZSTRING_KERNEL static Bytes fromZeros(Block at) {
        const __m256i halfBefore = _mm256_permute2x128_si256(at, at, 0x08);  // zeros, then the lower half
        return {at, _mm256_alignr_epi8(at, halfBefore, 15), _mm256_alignr_epi8(at, halfBefore, 14),
                _mm256_alignr_epi8(at, halfBefore, 13)};
    }
    QZSTRING_KERNEL static Faults noFaults() { return _mm256_setzero_si256(); }
    QZSTRING_KERNEL static Faults faultsOf(const Bytes& bytes, const Constants& constant) {
        return avx2::faultsOf(bytes, constant);
    }
    QZSTRING_KERNEL static Faults either(Faults a, Faults b) { return _mm256_or_si256(a, b); }
    QZSTRING_KERNEL static bool any(Faults faults) { return _mm256_testz_si256(faults, faults) == 0; }
    QZSTRING_KERNEL static std::uint32_t starts(Block block, const Constants& constant) {
        return topBits(_mm256_cmpgt_epi8(block, constant.lastContinuation));
    }
    QZSTRING_KERNEL static std::uint32_t starts(const char* block, const Constants& constant) {
        return starts(load256(block), constant);
    }
    QZSTRING_KERNEL static std::size_t count(std::uint32_t mask) {
        return static_cast<std::size_t>(_mm_popcnt_u32(mask));
    }
    QZSTRING_KERNEL static bool isAscii(Block block) { return topBits(block) == 0; }
    QZSTRING_KERNEL static bool isAscii(const char* block) { return isAscii(load256(block)); }
    QZSTRING_KERNEL static bool isAsciiFour(const char* block) {
        return topBits(_mm256_or_si256(
                   _mm256_or_si256(load256(block), load256(block + kBlock)),
                   _mm256_or_si256(load256(block + 2 * kBlock), load256(block + 3 * kBlock)))) == 0;
    }
    // 16 bytes go to both halves of a vector as they are loaded, which takes no shuffle, and one shuffle
    // spreads four of them over each half.
    QZSTRING_KERNEL static void widen(const char* block, wchar_t* destination) {
        const __m256i low = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int>(0x80808000)),
                                             _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        const __m256i high = _mm256_add_epi32(low, _mm256_set1_epi32(8));
        for (std::size_t i = 0; i < kBlock; i += 16) {
            const __m256i both =
                _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i)));
            store256(destination + i, _mm256_shuffle_epi8(both, low));
            store256(destination + i + 8, _mm256_shuffle_epi8(both, high));
        }
    }
    QZSTRING_KERNEL static void widenShort(const char* source, std::size_t length, wchar_t* destination) {
        const auto eight = [source](std::size_t at) {
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(source + at));
        };
        for (std::size_t at = 0; at < length - 8; at += 8)
            store256(destination + at, _mm256_cvtepu8_epi32(eight(at)));
        store256(destination + length - 8, _mm256_cvtepu8_epi32(eight(length - 8)));
    }
    QZSTRING_KERNEL static void store(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                      const Constants& constant) {
        avx2::store<false>(form(bytes, constant), ends, destination, nullptr);
    }
    QZSTRING_KERNEL static void storeExactly(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                             std::size_t count, const Constants& constant) {
        avx2::store<true>(form(bytes, constant), ends, destination, destination + count);
    }
    template <std::size_t kWidth>
    QZSTRING_KERNEL static bool storeEight(const char* source, wchar_t* destination) {
        return decodeEight<kWidth>(source, destination);
    }
    static Progress encode(const wchar_t* source, std::size_t length, char* destination,
                           std::size_t capacity) {
        return encodeBlocks(source, length, destination, capacity);
    }
    static Progress measureEncoded(const wchar_t* source, std::size_t length) {
        return avx2::measureEncoded(source, length);
    }
    QZSTRING_KERNEL static void leave() { _mm256_zeroupper(); }
};

}  // namespace

QZSTRING_DEFINE_UTF8_KERNELS(Vector)

}  // namespace qzString::kernels::avx2

#endif
