// What the AVX-512 sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_AVX512_H
#define QZSTRING_PRIMITIVES_AVX512_H

#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"  // in GCC's own header
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <cstddef>
#include <cstdint>

#include "common/features.h"

// clang-format off
#define QZSTRING_FEATURES(X) \
    X("avx512f") X("avx512bw") X("avx512dq") X("avx512vl") X("avx512cd") X("avx512vbmi") X("avx512vbmi2") \
    X("gfni") X("bmi") X("bmi2") X("popcnt")
// clang-format on
#define QZSTRING_TARGET QZSTRING_TARGET_OF(QZSTRING_FEATURES)

#include "primitives/x86.h"

namespace qzString::kernels {

// A mask of the lowest `count` bits, or lanes: of all where there are fewer. `count` is up to 255.
QZSTRING_KERNEL std::uint64_t lowBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, count);
}

QZSTRING_KERNEL __mmask16 lowLanes(std::size_t count) {
    return static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned>(count)));
}

// Of 64 bytes at a 64-byte boundary.
QZSTRING_KERNEL __m512i table(const void* entries) {
    return _mm512_load_si512(entries);
}

// A value whose origin is hidden from the compiler. It would otherwise make a loop's constant anew in every
// block, on the port that the shuffles need, and load again what several instructions take.
QZSTRING_KERNEL __m512i kept(__m512i constant) {
    asm("" : "+v"(constant));
    return constant;
}
QZSTRING_KERNEL __mmask64 kept(__mmask64 constant) {
    asm("" : "+Yk"(constant));
    return constant;
}

// A constant of 64 bits in every lane, from memory, which takes a load and no shuffle.
template <std::uint64_t kValue>
QZSTRING_KERNEL __m512i everywhere() {
    static constexpr std::uint64_t value = kValue;
    __m512i lanes;
    asm("vpbroadcastq %1, %0" : "=v"(lanes) : "m"(value));
    return lanes;
}

// A value of 8, 16 or 32 bits, repeated to fill 64.
constexpr std::uint64_t repeat8(unsigned char byte) {
    return 0x0101010101010101U * byte;
}
constexpr std::uint64_t repeat16(std::uint16_t unit) {
    return 0x0001000100010001U * unit;
}
constexpr std::uint64_t repeat32(std::uint32_t lane) {
    return 0x0000000100000001U * lane;
}

}  // namespace qzString::kernels

#endif
