// The scans of searching in NEON: 16 bytes or 4 wide elements a vector, 16 wide elements a step for a set.
#include "string/scanner.h"

#if QZSTRING_VECTORS_NEON

#include <arm_neon.h>

#define QZSTRING_TARGET  // in the base set of AArch64
#include "string/scanBlocks.h"

namespace qzString::search {
namespace {

uint8x16_t ofWords(std::uint64_t low, std::uint64_t high) {
    return vcombine_u8(vcreate_u8(low), vcreate_u8(high));
}

// What every vector of this source has.
struct Platform {
    static void leave() {}
};

struct Bytes : Platform {
    using Element = char;
    static constexpr std::size_t kLanes = 16;

    static uint8x16_t splat(char c) { return vdupq_n_u8(static_cast<unsigned char>(c)); }
    static uint8x16_t matches(const char* p, uint8x16_t wanted) {
        return vceqq_u8(vld1q_u8(reinterpret_cast<const unsigned char*>(p)), wanted);
    }
    static std::uint64_t maskOf(uint8x16_t equal) {
        const uint8x16_t places = vreinterpretq_u8_u64(vdupq_n_u64(0x8040201008040201));
        const uint8x16_t bits = vandq_u8(equal, places);
        return vaddv_u8(vget_low_u8(bits)) | std::uint64_t{vaddv_u8(vget_high_u8(bits))} << 8;
    }
    static std::uint64_t equal(const char* p, uint8x16_t wanted) { return maskOf(matches(p, wanted)); }
    static std::uint64_t equalWords(std::uint64_t low, std::uint64_t high, uint8x16_t wanted) {
        return maskOf(vceqq_u8(ofWords(low, high), wanted));
    }
    static std::uint64_t equalFirst(const char* p, std::size_t count, uint8x16_t wanted) {
        return equalShort<Bytes>(p, count, wanted);
    }
    static bool noneOfFour(const char* p, uint8x16_t wanted) {
        const uint8x16_t any = vorrq_u8(vorrq_u8(matches(p, wanted), matches(p + 16, wanted)),
                                        vorrq_u8(matches(p + 32, wanted), matches(p + 48, wanted)));
        return vmaxvq_u8(any) == 0;
    }
};

struct Wides : Platform {
    using Element = wchar_t;
    static constexpr std::size_t kLanes = 4;

    static uint32x4_t splat(wchar_t c) { return vdupq_n_u32(static_cast<std::uint32_t>(c)); }
    static uint32x4_t matches(const wchar_t* p, uint32x4_t wanted) {
        return vceqq_u32(vld1q_u32(reinterpret_cast<const std::uint32_t*>(p)), wanted);
    }
    static std::uint64_t maskOf(uint32x4_t equal) {
        constexpr std::uint32_t kPlaces[4] = {1, 2, 4, 8};
        return vaddvq_u32(vandq_u32(equal, vld1q_u32(kPlaces)));
    }
    static std::uint64_t equal(const wchar_t* p, uint32x4_t wanted) { return maskOf(matches(p, wanted)); }
    static std::uint64_t equalWords(std::uint64_t low, std::uint64_t high, uint32x4_t wanted) {
        return maskOf(vceqq_u32(vreinterpretq_u32_u8(ofWords(low, high)), wanted));
    }
    static std::uint64_t equalFirst(const wchar_t* p, std::size_t count, uint32x4_t wanted) {
        return equalShort<Wides>(p, count, wanted);
    }
    static bool noneOfFour(const wchar_t* p, uint32x4_t wanted) {
        const uint32x4_t any = vorrq_u32(vorrq_u32(matches(p, wanted), matches(p + 4, wanted)),
                                         vorrq_u32(matches(p + 8, wanted), matches(p + 12, wanted)));
        return vmaxvq_u32(any) == 0;
    }
};

// A filter in four registers, looked up byte by byte for the low bits of sixteen characters; 32 bytes on for
// those that have others.
struct Filter : Platform {
    static constexpr std::size_t kLanes = 16;
    const SetFilter& filter;
    uint8x16x4_t bits;

    explicit Filter(const SetFilter& set)
        : filter(set), bits(vld1q_u8_x4(reinterpret_cast<const unsigned char*>(set.words))) {}

    // The low bytes of sixteen lanes of 32 bits.
    static uint8x16_t lowBytes(const uint32x4_t (&lanes)[4]) {
        uint16x8_t halves[2];
        for (std::size_t n = 0; n < 2; ++n)
            halves[n] =
                vuzp1q_u16(vreinterpretq_u16_u32(lanes[2 * n]), vreinterpretq_u16_u32(lanes[2 * n + 1]));
        return vuzp1q_u8(vreinterpretq_u8_u16(halves[0]), vreinterpretq_u8_u16(halves[1]));
    }
    // All bits set where a character passes.
    [[nodiscard]] uint8x16_t test(const wchar_t* p) const {
        constexpr unsigned char kPlaces[16] = {1, 2, 4, 8, 16, 32, 64, 128};
        uint32x4_t characters[4];
        uint32x4_t shared[4];
        for (std::size_t n = 0; n < 4; ++n) {
            characters[n] = vld1q_u32(reinterpret_cast<const std::uint32_t*>(p + 4 * n));
            shared[n] = vcgtq_u32(characters[n], vdupq_n_u32(SetFilter::kExact - 1));
        }
        const uint8x16_t low = lowBytes(characters);
        const uint8x16_t index = vorrq_u8(vshrq_n_u8(low, 3), vandq_u8(lowBytes(shared), vdupq_n_u8(32)));
        const uint8x16_t place = vqtbl1q_u8(vld1q_u8(kPlaces), vandq_u8(low, vdupq_n_u8(7)));
        return vtstq_u8(vqtbl4q_u8(bits, index), place);
    }
    [[nodiscard]] std::uint64_t passing(const wchar_t* p) const { return Bytes::maskOf(test(p)); }
    [[nodiscard]] std::uint64_t passingFirst(const wchar_t* p, std::size_t count) const {
        std::uint64_t passing = 0;
        for (std::size_t i = 0; i < count; ++i)
            passing |= std::uint64_t{filter.passes(p[i])} << i;
        return passing;
    }
    [[nodiscard]] bool nonePassesOfFour(const wchar_t* p) const {
        const uint8x16_t any = vorrq_u8(vorrq_u8(test(p), test(p + kLanes)),
                                        vorrq_u8(test(p + 2 * kLanes), test(p + 3 * kLanes)));
        return vmaxvq_u8(any) == 0;
    }
};

}  // namespace

const Scanner kNeonScanner = scannerOf<Bytes, Wides, Filter>("neon", alwaysUsable);

}  // namespace qzString::search

#endif
