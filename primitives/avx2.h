// What the AVX2 sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_AVX2_H
#define QZSTRING_PRIMITIVES_AVX2_H

#include <cstddef>
#include <cstdint>

#define QZSTRING_TARGET __attribute__((target("avx2,bmi,bmi2,lzcnt,popcnt")))

#include "primitives/x86.h"

namespace qzString::kernels {

QZSTRING_KERNEL __m256i load256(const void* at) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(at));
}

QZSTRING_KERNEL void store256(void* at, __m256i vector) {
    _mm256_storeu_si256(static_cast<__m256i*>(at), vector);
}

}  // namespace qzString::kernels

#endif
