// UTF-8 in AVX2. Decoding goes by blocks of 32 bytes: utf8Blocks.h has the algorithm.
//
// Encoding, 16 characters a block: each is spread over the four bytes of its lane, lead byte first and
// right-aligned; for each combination of four lengths a table has the shuffle that moves the bytes in use to
// the front. Text below U+0800 goes in 16-bit lanes, eight a shuffle. Ill-formed characters are noticed at
// the end. Stores are 16 bytes whole while what is still to come is sure to fill them; the portable code
// writes the rest.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include "primitives/avx2.h"
#include "primitives/utf8Blocks.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels::avx2 {
namespace {

// ---- Decoding ----

QZSTRING_KERNEL __m256i nibbleTable(const unsigned char (&entries)[16]) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

QZSTRING_KERNEL __m256i bytesOf(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}

QZSTRING_KERNEL __m256i lanesOf(unsigned value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}

// The constants of the loops. Their origin is hidden from the compiler, which would otherwise make them anew
// in every block, on the port that the shuffles need; those that find no register are read from the stack.
QZSTRING_KERNEL __m256i kept(__m256i constant) {
    asm("" : "+x"(constant));
    return constant;
}

struct DecodingConstants {
    __m256i firstHigh, firstLow, secondHigh;
    __m256i lowHalf, highHalf, third, fourth, topBit, lastContinuation, lowSix, highTwo, lowTwo, middleThree;

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
          lowSix(kept(bytesOf(0x3F))),
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
    const __m256i joined =
        _mm256_or_si256(_mm256_and_si256(bytes.at, constant.lowSix),
                        _mm256_and_si256(_mm256_slli_epi16(bytes.before1, 6), constant.highTwo));
    const __m256i low = _mm256_blendv_epi8(bytes.at, joined, bytes.at);
    const __m256i isThree = _mm256_cmpgt_epi8(constant.highTwo, bytes.before1);
    const __m256i upper =
        _mm256_and_si256(_mm256_and_si256(_mm256_slli_epi16(bytes.before2, 4), constant.highHalf), isThree);
    const __m256i lower = _mm256_and_si256(_mm256_srli_epi16(bytes.before1, 2), constant.lowHalf);
    const __m256i middle = _mm256_and_si256(_mm256_or_si256(lower, upper), _mm256_cmpgt_epi8(zero, bytes.at));
    const __m256i isFour =
        _mm256_cmpeq_epi8(_mm256_max_epu8(bytes.before3, constant.highHalf), bytes.before3);
    if (_mm256_testz_si256(isFour, isFour) != 0)
        return {low, middle, zero, false};
    const __m256i high =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(bytes.before2, 4), constant.lowTwo),
                        _mm256_and_si256(_mm256_slli_epi16(bytes.before3, 2), constant.middleThree));
    return {low, middle, _mm256_and_si256(high, isFour), true};
}

// Stores those of eight characters that the mask names; up to eight elements are written.
QZSTRING_KERNEL wchar_t* storeEight(__m128i values, __m128i high, bool hasHigh, std::uint32_t mask,
                                    wchar_t* destination) {
    const __m128i selection =
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks::kSelections[mask & 0xFF].data()));
    __m256i characters = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(values, selection));
    if (hasHigh) {
        const __m256i upper = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(high, selection));
        characters = _mm256_or_si256(characters, _mm256_slli_epi32(upper, 16));
    }
    store256(destination, characters);
    return destination + _mm_popcnt_u32(mask & 0xFF);
}

// Stores the characters that end at `ends`; up to eight elements more are written.
QZSTRING_KERNEL void store(const CodePoints& points, std::uint32_t ends, wchar_t* destination) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i even = _mm256_unpacklo_epi8(points.low, points.middle);
    const __m256i odd = _mm256_unpackhi_epi8(points.low, points.middle);
    const __m256i evenHigh = _mm256_unpacklo_epi8(points.high, zero);
    const __m256i oddHigh = _mm256_unpackhi_epi8(points.high, zero);
    const bool hasHigh = points.hasHigh;
    destination = storeEight(_mm256_castsi256_si128(even), _mm256_castsi256_si128(evenHigh), hasHigh, ends,
                             destination);
    destination = storeEight(_mm256_castsi256_si128(odd), _mm256_castsi256_si128(oddHigh), hasHigh, ends >> 8,
                             destination);
    destination = storeEight(_mm256_extracti128_si256(even, 1), _mm256_extracti128_si256(evenHigh, 1),
                             hasHigh, ends >> 16, destination);
    storeEight(_mm256_extracti128_si256(odd, 1), _mm256_extracti128_si256(oddHigh, 1), hasHigh, ends >> 24,
               destination);
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
    const __m256i marks = _mm256_and_si256(lanes, lanesOf(kWidth == 3 ? 0x00F0C0C0 : 0xF8C0C0C0));
    const __m256i marked = _mm256_cmpeq_epi32(marks, lanesOf(kWidth == 3 ? 0x00E08080 : 0xF0808080));
    // Six bits and six bits, then twelve and the rest.
    const __m256i fields = _mm256_and_si256(lanes, lanesOf(kWidth == 3 ? 0x000F3F3F : 0x073F3F3F));
    const __m256i twelves = _mm256_maddubs_epi16(fields, _mm256_set1_epi16(0x4001));
    const __m256i characters = _mm256_madd_epi16(twelves, lanesOf(0x10000001));
    __m256i wrong;
    if (kWidth == 3) {
        const __m256i high = _mm256_and_si256(characters, lanesOf(0xF800));
        wrong = _mm256_or_si256(_mm256_cmpeq_epi32(high, _mm256_setzero_si256()),
                                _mm256_cmpeq_epi32(high, lanesOf(0xD800)));
    } else {
        wrong = _mm256_or_si256(_mm256_cmpgt_epi32(lanesOf(0x10000), characters),
                                _mm256_cmpgt_epi32(characters, lanesOf(0x10FFFF)));
    }
    if (topBits(_mm256_andnot_si256(wrong, marked)) != ~0U)
        return false;
    store256(destination, characters);
    return true;
}

// ---- Encoding ----

// Four bits, each in two.
constexpr unsigned char kApart[16] = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                      0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

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

QZSTRING_KERNEL unsigned laneBits(__m256i lanes) {
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

QZSTRING_KERNEL bool anyFrom(__m256i characters, unsigned limit) {
    return _mm256_testz_si256(characters, lanesOf(0 - limit)) == 0;
}

// Remembers whether any character was a surrogate or above U+10FFFF.
struct EncodingFaults {
    __m256i largest, surrogates;

    QZSTRING_KERNEL EncodingFaults() : largest(_mm256_setzero_si256()), surrogates(_mm256_setzero_si256()) {}
    QZSTRING_KERNEL void see(__m256i characters) {
        largest = _mm256_max_epu32(largest, characters);
        surrogates = _mm256_or_si256(
            surrogates,
            _mm256_cmpeq_epi32(_mm256_and_si256(characters, lanesOf(0xFFFFF800)), lanesOf(0xD800)));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        const __m256i limit = lanesOf(0x10FFFF);
        const __m256i tooLarge = _mm256_xor_si256(_mm256_max_epu32(largest, limit), limit);
        const __m256i all = _mm256_or_si256(tooLarge, surrogates);
        return _mm256_testz_si256(all, all) == 0;
    }
};

// Moves the bytes in use of half a block to the front and stores 16, of which the table knows how many count.
QZSTRING_KERNEL void storePacked(__m128i bytes, const blocks::Shuffle& packing, char* destination) {
    const __m128i order = _mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.data()));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), _mm_shuffle_epi8(bytes, order));
}

// Eight characters. Returns how many bytes they take; up to 16 more are written.
QZSTRING_KERNEL std::size_t encodeEight(__m256i c, char* destination) {
    // Signed comparisons are right for everything that is not a fault.
    const __m256i two = _mm256_cmpgt_epi32(c, lanesOf(0x7F));
    const __m256i three = _mm256_cmpgt_epi32(c, lanesOf(0x7FF));
    const __m256i four = _mm256_cmpgt_epi32(c, lanesOf(0xFFFF));
    const __m256i fields =
        _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(c, 24), lanesOf(0x3F000000)),
                                        _mm256_and_si256(_mm256_slli_epi32(c, 10), lanesOf(0x003F0000))),
                        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(c, 4), lanesOf(0x00003F00)),
                                        _mm256_srli_epi32(c, 18)));
    // Each longer form changes the tags of the one before.
    const __m256i tags = _mm256_xor_si256(
        lanesOf(0x80C00000), _mm256_xor_si256(_mm256_and_si256(three, lanesOf(0x80C00000 ^ 0x8080E000)),
                                              _mm256_and_si256(four, lanesOf(0x8080E000 ^ 0x808080F0))));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_slli_epi32(c, 24), _mm256_or_si256(fields, tags), two);
    // The bytes beyond the first in two bits: the upper from three bytes on, the lower of two and of four.
    const unsigned upper = laneBits(three);
    const unsigned lower = laneBits(_mm256_xor_si256(two, _mm256_xor_si256(three, four)));
    const std::size_t first = kApart[lower & 15] + 2U * kApart[upper & 15];
    const std::size_t second = kApart[lower >> 4] + 2U * kApart[upper >> 4];
    const std::size_t firstCount = blocks::kPackedLengths[first];
    storePacked(_mm256_castsi256_si128(bytes), blocks::kPackings[first], destination);
    storePacked(_mm256_extracti128_si256(bytes, 1), blocks::kPackings[second], destination + firstCount);
    return firstCount + blocks::kPackedLengths[second];
}

// Sixteen characters below U+0800, in 16-bit lanes.
QZSTRING_KERNEL std::size_t encodePairs(__m256i a, __m256i b, char* destination) {
    const __m256i units = _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8);
    const __m256i two = _mm256_cmpgt_epi16(units, _mm256_set1_epi16(0x7F));
    const __m256i last = _mm256_and_si256(_mm256_slli_epi16(units, 8), _mm256_set1_epi16(0x3F00));
    const __m256i pairs = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(units, 6), last),
                                          _mm256_set1_epi16(static_cast<short>(0x80C0)));
    const __m256i bytes = _mm256_blendv_epi8(units, pairs, two);
    const std::uint32_t mask = topBits(_mm256_packs_epi16(two, two));
    const std::size_t first = mask & 0xFF;
    const std::size_t second = mask >> 16 & 0xFF;
    const std::size_t firstCount = 8 + static_cast<std::size_t>(_mm_popcnt_u64(first));
    storePacked(_mm256_castsi256_si128(bytes), kPairPackings[first], destination);
    storePacked(_mm256_extracti128_si256(bytes, 1), kPairPackings[second], destination + firstCount);
    return firstCount + 8 + static_cast<std::size_t>(_mm_popcnt_u64(second));
}

QZSTRING_KERNEL void encodeAscii(__m256i a, __m256i b, char* destination) {
    const __m256i units = _mm256_packus_epi32(a, b);
    const __m256i packed = _mm256_packus_epi16(units, units);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(destination),
                     _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(packed, order)));
}

// Sixteen characters. Returns how many bytes they take; up to 16 more are written.
QZSTRING_KERNEL std::size_t encodeSixteen(__m256i a, __m256i b, char* destination, EncodingFaults& faults) {
    const __m256i all = _mm256_or_si256(a, b);
    if (!anyFrom(all, 0x80)) {
        encodeAscii(a, b, destination);
        return 16;
    }
    if (!anyFrom(all, 0x800))
        return encodePairs(a, b, destination);
    faults.see(a);
    faults.see(b);
    const std::size_t first = encodeEight(a, destination);
    return first + encodeEight(b, destination + first);
}

// The first of eight characters, where the text has no more; zeros for the others.
QZSTRING_KERNEL __m256i loadFirst(const wchar_t* source, std::size_t count) {
    const __m256i places = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i valid = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count)), places);
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(source), valid);
}

// Where any character was ill-formed nothing counts, and the portable code finds it; where the last
// characters do not fit, it writes those that do.
QZSTRING_TARGET Progress encodeBlocks(const wchar_t* source, std::size_t length, char* destination,
                                      std::size_t capacity) {
    EncodingFaults faults;
    std::size_t at = 0;
    std::size_t written = 0;
    // What is left after a block fills at least the 16 bytes that its last store may write too much.
    for (; length - at >= 16 + 16 && capacity - written >= 16 * 4 + 16; at += 16)
        written +=
            encodeSixteen(load256(source + at), load256(source + at + 8), destination + written, faults);
    while (at < length) {
        const std::size_t rest = length - at;
        const std::size_t taken = rest < 16 ? rest : 16;
        const __m256i a = taken < 8 ? loadFirst(source + at, taken) : load256(source + at);
        const __m256i b = taken > 8 ? loadFirst(source + at + 8, taken - 8) : _mm256_setzero_si256();
        char buffer[16 * 4 + 16];
        const std::size_t count = encodeSixteen(a, b, buffer, faults) - (16 - taken);  // a byte for each zero
        if (count > capacity - written)
            break;
        std::memcpy(destination + written, buffer, count);
        at += taken;
        written += count;
    }
    const bool faulty = faults.any();
    _mm256_zeroupper();
    return faulty ? Progress{0, 0} : Progress{at, written};
}

// Adds up the bytes that characters need beyond one each: one more for every limit that they reach.
struct Measure {
    EncodingFaults faults;
    __m256i lanes;  // each grows by at most 3 a vector: far from 2^32 in 2^29 vectors

    QZSTRING_KERNEL Measure() : lanes(_mm256_setzero_si256()) {}
    QZSTRING_KERNEL void add(__m256i c) {
        faults.see(c);
        const __m256i reached = _mm256_add_epi32(
            _mm256_cmpgt_epi32(c, lanesOf(0x7F)),
            _mm256_add_epi32(_mm256_cmpgt_epi32(c, lanesOf(0x7FF)), _mm256_cmpgt_epi32(c, lanesOf(0xFFFF))));
        lanes = _mm256_sub_epi32(lanes, reached);
    }
    [[nodiscard]] QZSTRING_KERNEL std::size_t total() const {
        alignas(32) std::uint32_t parts[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(parts), lanes);
        std::size_t sum = 0;
        for (const std::uint32_t part : parts)
            sum += part;
        return sum;
    }
};

QZSTRING_TARGET Progress measureEncoded(const wchar_t* source, std::size_t length) {
    Measure measure;
    std::size_t at = 0;
    for (; length - at >= 32; at += 32) {
        const __m256i a = load256(source + at);
        const __m256i b = load256(source + at + 8);
        const __m256i c = load256(source + at + 16);
        const __m256i d = load256(source + at + 24);
        if (!anyFrom(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)), 0x80))
            continue;
        measure.add(a);
        measure.add(b);
        measure.add(c);
        measure.add(d);
    }
    for (; length - at >= 8; at += 8)
        measure.add(load256(source + at));
    if (at < length)
        measure.add(loadFirst(source + at, length - at));
    const std::size_t bytes = length + measure.total();
    const bool faulty = measure.faults.any();
    _mm256_zeroupper();
    return faulty ? Progress{0, 0} : Progress{length, bytes};
}

// What the block loops work on.
struct Vector {
    static constexpr std::size_t kBlock = 32;
    using Constants = DecodingConstants;
    using Bytes = Views;
    using Faults = __m256i;

    QZSTRING_KERNEL static Bytes loadAround(const char* block) {
        return {load256(block), load256(block - 1), load256(block - 2), load256(block - 3)};
    }
    QZSTRING_KERNEL static Bytes loadFirst(const char* block) {
        const __m256i at = load256(block);
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
    QZSTRING_KERNEL static std::uint32_t starts(const char* block, const Constants& constant) {
        return topBits(_mm256_cmpgt_epi8(load256(block), constant.lastContinuation));
    }
    QZSTRING_KERNEL static std::size_t count(std::uint32_t mask) {
        return static_cast<std::size_t>(_mm_popcnt_u32(mask));
    }
    QZSTRING_KERNEL static bool isAscii(const char* block) { return topBits(load256(block)) == 0; }
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
    QZSTRING_KERNEL static void store(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                      const Constants& constant) {
        avx2::store(form(bytes, constant), ends, destination);
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
