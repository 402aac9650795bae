// The search scan in NEON: 16 bytes or 4 wide elements a vector.
#include "string/scanners.h"

#if QZSTRING_SCANNERS_NEON

#include <arm_neon.h>

#define QZSTRING_TARGET   // in the base set of AArch64
#define QZSTRING_LEAVE()  // nothing to clean
#include "string/scanLoops.h"

namespace qzString::search {
namespace {

bool alwaysUsable() {
    return true;
}

uint8x16_t ofWords(std::uint64_t low, std::uint64_t high) {
    return vcombine_u8(vcreate_u8(low), vcreate_u8(high));
}

struct Bytes {
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

struct Wides {
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

QZSTRING_SCANNER_FUNCTIONS(Bytes, Wides)

}  // namespace

const Scanner kNeonScanner = {"neon", alwaysUsable, nextNarrow, nextWide, lastNarrow, lastWide};

}  // namespace qzString::search

#endif
