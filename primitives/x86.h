// What the AVX2 and AVX-512 sources share, each included through avx2.h or avx512.h. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_X86_H
#define QZSTRING_PRIMITIVES_X86_H

#include <immintrin.h>

#include <cstddef>

#ifndef QZSTRING_TARGET
#error "include avx2.h or avx512.h"
#endif
// A part of a kernel: always inlined into it.
#define QZSTRING_KERNEL QZSTRING_TARGET __attribute__((always_inline)) inline

namespace qzString::kernels {

// Ends a kernel that returns a number counted in vectors: clears their upper halves, as _mm256_zeroupper(),
// but not before the number is in a general register. Where only one branch returns it, compilers would count
// behind the clearing.
QZSTRING_KERNEL static std::size_t leaveWith(std::size_t number) {
    asm volatile("" : "+r"(number));
    _mm256_zeroupper();
    return number;
}

// A constant that instructions read from memory. Internal linkage keeps its name out of the archive.
template <class Word, Word kValue>
static constexpr Word kInMemory = kValue;

}  // namespace qzString::kernels

#endif
