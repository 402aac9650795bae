// UTF-8 in NEON. Decoding and its size query go by blocks of 16 bytes: utf8DecodingBlocks.h and
// utf8DecodedLengthBlocks.h have the algorithms.
//
// Encoding, 4 characters a block, ASCII 16: each is spread over the four bytes of its lane, lead byte first
// and right-aligned; for each combination of four lengths a table has the shuffle that moves the bytes in use
// to the front. Stores are 16 bytes whole while what is still to come is sure to fill them; the portable code
// writes the rest.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_NEON

#include "primitives/neon.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8DecodedLengthBlocks.h"
#include "primitives/utf8DecodingBlocks.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"
#include "primitives/utf8Shuffles.h"

namespace qzString::kernels::neon {
namespace {

// ---- Decoding ----

struct Views {
    uint8x16_t at, before1, before2, before3;
};

struct Tables {
    uint8x16_t firstHigh = load128(utf8::kFirstHigh);
    uint8x16_t firstLow = load128(utf8::kFirstLow);
    uint8x16_t secondHigh = load128(utf8::kSecondHigh);
};

QZSTRING_KERNEL uint8x16_t isContinuation(uint8x16_t bytes) {
    return vcltq_s8(vreinterpretq_s8_u8(bytes), vdupq_n_s8(-0x40));
}

struct CodePoints {
    uint8x16_t low, middle, high;
    bool hasHigh;
};

QZSTRING_KERNEL CodePoints form(const Views& bytes) {
    const uint8x16_t isHigh = vcgeq_u8(bytes.at, vdupq_n_u8(0x80));
    // Two bits of the byte before, above the last byte's six: its mark 10xxxxxx is cleared in passing.
    const uint8x16_t twoBits = veorq_u8(vshlq_n_u8(bytes.before1, 6), vdupq_n_u8(0x80));
    const uint8x16_t low = veorq_u8(bytes.at, vandq_u8(twoBits, isHigh));
    const uint8x16_t upper = vandq_u8(vshlq_n_u8(bytes.before2, 4), isContinuation(bytes.before1));
    const uint8x16_t lower = vandq_u8(vshrq_n_u8(bytes.before1, 2), vdupq_n_u8(0x0F));
    const uint8x16_t middle = vandq_u8(vorrq_u8(lower, upper), isHigh);
    const uint8x16_t isFour = vcgeq_u8(bytes.before3, vdupq_n_u8(0xF0));
    if (vmaxvq_u8(isFour) == 0)
        return {low, middle, vdupq_n_u8(0), false};
    const uint8x16_t high = vorrq_u8(vandq_u8(vshrq_n_u8(bytes.before2, 4), vdupq_n_u8(0x03)),
                                     vandq_u8(vshlq_n_u8(bytes.before3, 2), vdupq_n_u8(0x1C)));
    return {low, middle, vandq_u8(high, isFour), true};
}

QZSTRING_KERNEL void storeLanes(uint32x4_t lanes, wchar_t* destination) {
    vst1q_u32(reinterpret_cast<std::uint32_t*>(destination), lanes);
}

// Stores those of eight characters that the mask names; eight elements are written.
QZSTRING_KERNEL void storeSelected(uint8x16_t values, uint8x16_t high, bool hasHigh, std::uint32_t mask,
                                   wchar_t* destination) {
    const uint8x16_t selection = load128(shuffles::kSelections[mask].data());
    const uint16x8_t selected = vreinterpretq_u16_u8(vqtbl1q_u8(values, selection));
    uint32x4_t first = vmovl_u16(vget_low_u16(selected));
    uint32x4_t second = vmovl_high_u16(selected);
    if (hasHigh) {
        const uint16x8_t upper = vreinterpretq_u16_u8(vqtbl1q_u8(high, selection));
        first = vorrq_u32(first, vshll_n_u16(vget_low_u16(upper), 16));
        second = vorrq_u32(second, vshll_high_n_u16(upper, 16));
    }
    storeLanes(first, destination);
    storeLanes(second, destination + 4);
}

// ---- Encoding ----

QZSTRING_KERNEL uint32x4_t loadCharacters(const wchar_t* source) {
    return vld1q_u32(reinterpret_cast<const std::uint32_t*>(source));
}

QZSTRING_KERNEL bool isAscii(uint32x4_t characters) {
    return vmaxvq_u32(characters) < 0x80;
}

// Lanes that hold a surrogate or what is above U+10FFFF.
QZSTRING_KERNEL bool anyIllFormed(uint32x4_t characters) {
    const uint32x4_t tooLarge = vcgtq_u32(characters, vdupq_n_u32(0x10FFFF));
    const uint32x4_t surrogate = vceqq_u32(vshrq_n_u32(characters, 11), vdupq_n_u32(0xD800 >> 11));
    return vmaxvq_u32(vorrq_u32(tooLarge, surrogate)) != 0;
}

// The bytes beyond the first that each character takes.
QZSTRING_KERNEL uint32x4_t extraBytes(uint32x4_t characters) {
    const uint32x4_t sum = vaddq_u32(
        vcgtq_u32(characters, vdupq_n_u32(0x7F)),
        vaddq_u32(vcgtq_u32(characters, vdupq_n_u32(0x7FF)), vcgtq_u32(characters, vdupq_n_u32(0xFFFF))));
    return vreinterpretq_u32_s32(vnegq_s32(vreinterpretq_s32_u32(sum)));  // of true lanes, which are -1
}

// The bytes of four characters, right-aligned in their lanes: lead byte first.
QZSTRING_KERNEL uint8x16_t spread(uint32x4_t c) {
    const uint32x4_t two = vcgtq_u32(c, vdupq_n_u32(0x7F));
    const uint32x4_t three = vcgtq_u32(c, vdupq_n_u32(0x7FF));
    const uint32x4_t four = vcgtq_u32(c, vdupq_n_u32(0xFFFF));
    const uint32x4_t fields =
        vorrq_u32(vorrq_u32(vandq_u32(vshlq_n_u32(c, 24), vdupq_n_u32(0x3F000000)),
                            vandq_u32(vshlq_n_u32(c, 10), vdupq_n_u32(0x003F0000))),
                  vorrq_u32(vandq_u32(vshrq_n_u32(c, 4), vdupq_n_u32(0x00003F00)), vshrq_n_u32(c, 18)));
    const uint32x4_t tags = vbslq_u32(four, vdupq_n_u32(0x808080F0),
                                      vbslq_u32(three, vdupq_n_u32(0x8080E000), vdupq_n_u32(0x80C00000)));
    return vreinterpretq_u8_u32(vbslq_u32(two, vorrq_u32(fields, tags), vshlq_n_u32(c, 24)));
}

constexpr std::uint32_t kLengthPlaces[4] = {1, 4, 16, 64};

// As far as vectors go, and the rest in portable code.
Progress encodeBlocks(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity) {
    const uint32x4_t places = vld1q_u32(kLengthPlaces);
    std::size_t at = 0;
    std::size_t written = 0;
    // What is left after a block of 4 fills at least the 16 bytes that it may write too much.
    while (length - at >= 4 + 16 && capacity - written >= 16) {
        auto* const to = reinterpret_cast<unsigned char*>(destination + written);
        const uint32x4_t a = loadCharacters(source + at);
        if (isAscii(a)) {
            const uint32x4_t b = loadCharacters(source + at + 4);
            const uint32x4_t c = loadCharacters(source + at + 8);
            const uint32x4_t d = loadCharacters(source + at + 12);
            if (isAscii(vorrq_u32(b, vorrq_u32(c, d)))) {
                const uint16x8_t first = vcombine_u16(vmovn_u32(a), vmovn_u32(b));
                const uint16x8_t second = vcombine_u16(vmovn_u32(c), vmovn_u32(d));
                vst1q_u8(to, vcombine_u8(vmovn_u16(first), vmovn_u16(second)));
                at += 16;
                written += 16;
                continue;
            }
        }
        if (anyIllFormed(a))
            break;
        const std::uint32_t lengths = vaddvq_u32(vmulq_u32(extraBytes(a), places));
        vst1q_u8(to, vqtbl1q_u8(spread(a), load128(shuffles::kPackings[lengths].data())));
        at += 4;
        written += shuffles::kPackedLengths[lengths];
    }
    return Progress{at, written} +
           utf8::encode(source + at, length - at, destination + written, capacity - written);
}

Progress measureBlocks(const wchar_t* source, std::size_t length) {
    std::size_t at = 0;
    std::size_t bytes = 0;
    for (; length - at >= 4; at += 4) {
        const uint32x4_t characters = loadCharacters(source + at);
        if (anyIllFormed(characters))
            break;
        bytes += 4 + vaddvq_u32(extraBytes(characters));
    }
    return Progress{at, bytes} + utf8::encodedLength(source + at, length - at);
}

// What the block loops work on.
struct Vector {
    static constexpr std::size_t kBlock = 16;
    using Constants = Tables;
    using Block = uint8x16_t;
    using Bytes = Views;
    using Faults = uint8x16_t;

    QZSTRING_KERNEL static Bytes loadAround(const char* block) {
        return {load128(block), load128(block - 1), load128(block - 2), load128(block - 3)};
    }
    QZSTRING_KERNEL static Block loadShort(const char* source, std::size_t length) {
        const blocks::Words words = blocks::loadWords(source, length);
        return vreinterpretq_u8_u64(vcombine_u64(vcreate_u64(words.first), vcreate_u64(words.second)));
    }
    QZSTRING_KERNEL static Bytes loadFirst(const char* block) { return fromZeros(load128(block)); }
    QZSTRING_KERNEL static Bytes fromZeros(Block at) {
        const uint8x16_t zero = vdupq_n_u8(0);
        return {at, vextq_u8(zero, at, 15), vextq_u8(zero, at, 14), vextq_u8(zero, at, 13)};
    }
    QZSTRING_KERNEL static Faults noFaults() { return vdupq_n_u8(0); }
    // Not zero where a byte and the ones before it cannot stand in well-formed text.
    QZSTRING_KERNEL static Faults faultsOf(const Bytes& bytes, const Constants& constant) {
        const uint8x16_t first = vqtbl1q_u8(constant.firstHigh, vshrq_n_u8(bytes.before1, 4));
        const uint8x16_t firstLow = vqtbl1q_u8(constant.firstLow, vandq_u8(bytes.before1, vdupq_n_u8(0x0F)));
        const uint8x16_t second = vqtbl1q_u8(constant.secondHigh, vshrq_n_u8(bytes.at, 4));
        const uint8x16_t pairs = vandq_u8(vandq_u8(first, firstLow), second);
        // The top bit where the byte is the third or fourth of a character.
        const uint8x16_t third = vqsubq_u8(bytes.before2, vdupq_n_u8(0xE0 - 0x80));
        const uint8x16_t fourth = vqsubq_u8(bytes.before3, vdupq_n_u8(0xF0 - 0x80));
        return veorq_u8(vandq_u8(vorrq_u8(third, fourth), vdupq_n_u8(0x80)), pairs);
    }
    QZSTRING_KERNEL static Faults either(Faults a, Faults b) { return vorrq_u8(a, b); }
    QZSTRING_KERNEL static bool any(Faults faults) { return vmaxvq_u8(faults) != 0; }
    QZSTRING_KERNEL static std::uint32_t starts(Block block, const Constants&) {
        return maskOf(vmvnq_u8(isContinuation(block)));
    }
    QZSTRING_KERNEL static std::uint32_t starts(const char* block, const Constants& constant) {
        return starts(load128(block), constant);
    }
    QZSTRING_KERNEL static std::size_t count(std::uint32_t mask) {
        return static_cast<std::size_t>(__builtin_popcount(mask));
    }
    QZSTRING_KERNEL static bool isAscii(Block block) { return vmaxvq_u8(block) < 0x80; }
    QZSTRING_KERNEL static bool isAscii(const char* block) { return isAscii(load128(block)); }
    QZSTRING_KERNEL static bool isAsciiFour(const char* block) {
        return vmaxvq_u8(vorrq_u8(vorrq_u8(load128(block), load128(block + 16)),
                                  vorrq_u8(load128(block + 32), load128(block + 48)))) < 0x80;
    }
    QZSTRING_KERNEL static void widen(const char* block, wchar_t* destination) {
        const uint8x16_t bytes = load128(block);
        const uint16x8_t first = vmovl_u8(vget_low_u8(bytes));
        const uint16x8_t second = vmovl_high_u8(bytes);
        storeLanes(vmovl_u16(vget_low_u16(first)), destination);
        storeLanes(vmovl_high_u16(first), destination + 4);
        storeLanes(vmovl_u16(vget_low_u16(second)), destination + 8);
        storeLanes(vmovl_high_u16(second), destination + 12);
    }
    QZSTRING_KERNEL static void widenShort(const char* source, std::size_t length, wchar_t* destination) {
        for (std::size_t i = 0; i < length; ++i)
            destination[i] = static_cast<wchar_t>(source[i]);
    }
    QZSTRING_KERNEL static void store(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                      const Constants&) {
        const CodePoints points = form(bytes);
        const uint8x16_t zero = vdupq_n_u8(0);
        const std::uint32_t firstEnds = ends & 0xFF;
        storeSelected(vzip1q_u8(points.low, points.middle), vzip1q_u8(points.high, zero), points.hasHigh,
                      firstEnds, destination);
        storeSelected(vzip2q_u8(points.low, points.middle), vzip2q_u8(points.high, zero), points.hasHigh,
                      ends >> 8, destination + count(firstEnds));
    }
    QZSTRING_KERNEL static void storeExactly(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                             std::size_t count, const Constants& constant) {
        wchar_t buffer[kBlock + 8];
        store(bytes, ends, buffer, constant);
        std::memcpy(destination, buffer, count * sizeof(wchar_t));
    }
    template <std::size_t kWidth>
    QZSTRING_KERNEL static bool storeEight(const char* source, wchar_t* destination) {
        const Lanes first = decodeFour<kWidth>(source);
        const Lanes second = decodeFour<kWidth>(source + 4 * kWidth);
        if (vminvq_u32(vandq_u32(first.valid, second.valid)) != ~std::uint32_t{0})
            return false;
        storeLanes(first.characters, destination);
        storeLanes(second.characters, destination + 4);
        return true;
    }

    QZSTRING_KERNEL static void leave() {}

  private:
    struct Lanes {
        uint32x4_t characters, valid;
    };

    // Four characters of three or of four bytes, one in each lane.
    template <std::size_t kWidth>
    QZSTRING_KERNEL static Lanes decodeFour(const char* source) {
        static_assert(kWidth == 3 || kWidth == 4);
        // The last byte first in every lane; what is not in the table is zero.
        constexpr unsigned char kOrder[2][16] = {{2, 1, 0, 16, 5, 4, 3, 16, 8, 7, 6, 16, 11, 10, 9, 16},
                                                 {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12}};
        const uint32x4_t lanes =
            vreinterpretq_u32_u8(vqtbl1q_u8(load128(source), load128(kOrder[kWidth - 3])));
        const uint32x4_t marks = vandq_u32(lanes, vdupq_n_u32(kWidth == 3 ? 0x00F0C0C0 : 0xF8C0C0C0));
        const uint32x4_t marked = vceqq_u32(marks, vdupq_n_u32(kWidth == 3 ? 0x00E08080 : 0xF0808080));
        uint32x4_t characters = vandq_u32(lanes, vdupq_n_u32(0x3F));
        characters = vorrq_u32(characters, vandq_u32(vshrq_n_u32(lanes, 2), vdupq_n_u32(0x3F << 6)));
        characters = vorrq_u32(
            characters, vandq_u32(vshrq_n_u32(lanes, 4), vdupq_n_u32(kWidth == 3 ? 0x0F << 12 : 0x3F << 12)));
        if (kWidth == 4)
            characters = vorrq_u32(characters, vandq_u32(vshrq_n_u32(lanes, 6), vdupq_n_u32(0x07 << 18)));
        const uint32x4_t longEnough = vcgtq_u32(characters, vdupq_n_u32(kWidth == 3 ? 0x7FF : 0xFFFF));
        const uint32x4_t wrong = kWidth == 3
                                     ? vceqq_u32(vshrq_n_u32(characters, 11), vdupq_n_u32(0xD800 >> 11))
                                     : vcgtq_u32(characters, vdupq_n_u32(0x10FFFF));
        return {characters, vbicq_u32(vandq_u32(marked, longEnough), wrong)};
    }
};

}  // namespace

QZSTRING_DEFINE_UTF8_DECODE(Vector)
QZSTRING_DEFINE_UTF8_DECODED_LENGTH(Vector)

unsigned int encode(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity,
                    bool* ok) {
    return utf8::Whole<encodeBlocks>::convert(source, length, destination, capacity, ok);
}

unsigned int encodedLength(const wchar_t* source, std::size_t length, bool* ok) {
    return utf8::Whole<measureBlocks>::convert(source, length, ok);
}

}  // namespace qzString::kernels::neon

#endif
