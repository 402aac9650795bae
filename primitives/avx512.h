// What the AVX-512 sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_AVX512_H
#define QZSTRING_PRIMITIVES_AVX512_H

#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"  // in GCC's own header
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#define QZSTRING_TARGET    \
    __attribute__((target( \
        "avx512f,avx512bw,avx512dq,avx512vl,avx512cd,avx512vbmi,avx512vbmi2,gfni,bmi,bmi2,lzcnt,popcnt")))
// A part of a kernel: always inlined into it.
#define QZSTRING_KERNEL QZSTRING_TARGET __attribute__((always_inline)) inline

namespace qzString::kernels {

// The lowest `count` bits, up to 255; all of them from 64 and from 16 up.
QZSTRING_KERNEL std::uint64_t lowBits(std::size_t count) {
    return _bzhi_u64(~std::uint64_t{0}, count);
}

QZSTRING_KERNEL __mmask16 lowLanes(std::size_t count) {
    return static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned>(count)));
}

}  // namespace qzString::kernels

#endif
