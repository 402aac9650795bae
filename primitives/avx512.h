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

#define QZSTRING_FEATURES(X)                                                                           \
    X("avx512f")                                                                                       \
    X("avx512bw") X("avx512dq") X("avx512vl") X("avx512cd") X("avx512vbmi") X("avx512vbmi2") X("gfni") \
        X("bmi") X("bmi2") X("popcnt")
#define QZSTRING_TARGET QZSTRING_TARGET_OF(QZSTRING_FEATURES)

#include "primitives/x86.h"

namespace qzString::kernels {

// The lowest `count` bits, up to 255; all of them from 64 and from 16 up.
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

// A constant that a loop keeps in a register: its origin is hidden from the compiler, which would otherwise
// make it anew in every block, on the port that the shuffles need.
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

// A byte, and an element of 16 or 32 bits, as often as 64 bits hold it.
constexpr std::uint64_t bytesOf(unsigned char byte) {
    return 0x0101010101010101U * byte;
}
constexpr std::uint64_t unitsOf(std::uint16_t unit) {
    return 0x0001000100010001U * unit;
}
constexpr std::uint64_t lanesOf(std::uint32_t lane) {
    return 0x0000000100000001U * lane;
}

}  // namespace qzString::kernels

#endif
