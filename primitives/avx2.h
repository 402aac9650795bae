// What the AVX2 sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_AVX2_H
#define QZSTRING_PRIMITIVES_AVX2_H

#include <cstddef>
#include <cstdint>

#include "common/features.h"

#define QZSTRING_FEATURES(X) X("avx2") X("bmi") X("bmi2") X("popcnt")
#define QZSTRING_TARGET QZSTRING_TARGET_OF(QZSTRING_FEATURES)

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
