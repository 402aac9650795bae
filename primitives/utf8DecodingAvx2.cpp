// Decoding UTF-8 and its size query in AVX2, 32 bytes a block: utf8DecodingBlocks.h and
// utf8DecodedLengthBlocks.h have the algorithms.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/avx2.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8DecodedLengthBlocks.h"
#include "primitives/utf8DecodingBlocks.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Shuffles.h"

namespace qzString::kernels::avx2 {
namespace {

// Up to eight characters, and nothing behind them.
QZSTRING_KERNEL void storeCharacters(__m256i characters, std::size_t count, wchar_t* destination) {
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

// A constant in every lane, for a loop that has a register for it.
QZSTRING_KERNEL __m256i inEveryLane(unsigned value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}
QZSTRING_KERNEL __m256i nibbleTable(const unsigned char (&entries)[16]) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

template <unsigned char kValue>
QZSTRING_KERNEL __m256i bytesOf() {
    return lanesOf<0x01010101U * kValue>();
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
          lowHalf(bytesOf<0x0F>()),
          highHalf(bytesOf<0xF0>()),
          third(bytesOf<0xE0 - 0x80>()),
          fourth(bytesOf<0xF0 - 0x80>()),
          topBit(bytesOf<0x80>()),
          lastContinuation(bytesOf<0xBF>()),
          highTwo(bytesOf<0xC0>()),
          lowTwo(bytesOf<0x03>()),
          middleThree(bytesOf<0x1C>()) {}
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
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(shuffles::kSelections[mask & 0xFF].data()));
    __m256i characters = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(values, selection));
    if (kHigh) {
        const __m256i upper = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(high, selection));
        characters = _mm256_or_si256(characters, _mm256_slli_epi32(upper, 16));
    }
    if (kExactly)
        storeCharacters(characters, static_cast<std::size_t>(end - destination), destination);
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
    const auto load128 = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const __m256i bytes =
        _mm256_inserti128_si256(_mm256_castsi128_si256(load128(source)), load128(source + 4 * kWidth), 1);
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
    QZSTRING_KERNEL static void leave() { _mm256_zeroupper(); }
};

}  // namespace

QZSTRING_DEFINE_UTF8_DECODE(Vector)
QZSTRING_DEFINE_UTF8_DECODED_LENGTH(Vector)

}  // namespace qzString::kernels::avx2

#endif
