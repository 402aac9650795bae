// What the NEON sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_NEON_H
#define QZSTRING_PRIMITIVES_NEON_H

#include <arm_neon.h>

#include <cstddef>
#include <cstdint>

#define QZSTRING_TARGET  // in the base set of AArch64
// A part of a kernel: always inlined into it.
#define QZSTRING_KERNEL __attribute__((always_inline)) inline

namespace qzString::kernels {

QZSTRING_KERNEL uint8x16_t load128(const void* at) {
    return vld1q_u8(static_cast<const unsigned char*>(at));
}

// A constant in every lane.
template <std::uint32_t kValue, class Vector>
QZSTRING_KERNEL Vector lanesOf() {
    return Vector(vdupq_n_u32(kValue));
}

// The bits of 16 bytes that are all ones or all zeros each.
QZSTRING_KERNEL std::uint32_t maskOf(uint8x16_t bytes) {
    const uint64x2_t places = vdupq_n_u64(0x8040201008040201);
    uint8x16_t sums = vandq_u8(bytes, vreinterpretq_u8_u64(places));
    sums = vpaddq_u8(sums, sums);
    sums = vpaddq_u8(sums, sums);
    sums = vpaddq_u8(sums, sums);
    return vgetq_lane_u16(vreinterpretq_u16_u8(sums), 0);
}

}  // namespace qzString::kernels

#endif
