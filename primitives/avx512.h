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

// A constant of 64 bits in every lane, from memory: a load, where compilers would go through a general
// register and the port of shuffles and comparisons.
template <std::uint64_t kValue, class Vector = __m512i>
QZSTRING_KERNEL Vector everywhere() {
    Vector lanes;
    asm("vpbroadcastq %1, %0" : "=v"(lanes) : "m"(kInMemory<std::uint64_t, kValue>));
    return lanes;
}

// The number of each place, to take from a vector what stands from one on.
alignas(64) constexpr unsigned char kPlaces[64] = {
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
    22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
    44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};

// The entries of the conversions have the code for short text in themselves and take no stack: what short
// text costs is the call. The kernels of longer text report their results themselves and are jumped to:
// where an entry calls one, g++ 12 aligns its stack for vectors first, short text or not. Where short text
// is loaded in several ways, each has the code behind it to itself, as a jump more costs a tenth of the
// call.

// Short text and its neighbours in memory: a load waits for stores under way to any byte of its range, masked
// or not, and nothing that a masked store has in its range is handed to a load early. What stands behind a
// text is often what was written just before, or is read next: the next string of a container. So accesses to
// short text reach as little beyond it as its length allows without more branches: lengths are often random,
// and a branch missed costs as much.

// Up to 48 bytes, or up to 64, and zeros behind them. The range of the loads is 32 bytes, that of longer text
// ends at most 15 behind it; what is behind the text is masked.
QZSTRING_KERNEL __m512i loadUpTo48(const void* text, std::size_t bytes) {
    const auto* const first = static_cast<const __m256i*>(text);
    const std::uint64_t valid = lowBits(bytes);
    if (bytes <= 32)
        return _mm512_zextsi256_si512(_mm256_maskz_loadu_epi8(static_cast<__mmask32>(valid), text));
    return _mm512_inserti32x4(_mm512_zextsi256_si512(_mm256_loadu_si256(first)),
                              _mm_maskz_loadu_epi8(static_cast<__mmask16>(valid >> 32), first + 1), 2);
}
QZSTRING_KERNEL __m512i loadUpTo64(const void* text, std::size_t bytes) {
    return _mm512_maskz_loadu_epi8(lowBits(bytes), text);
}
QZSTRING_KERNEL __m512i loadShort(const void* text, std::size_t bytes) {
    return bytes <= 48 ? loadUpTo48(text, bytes) : loadUpTo64(text, bytes);
}

// Stores 33 to 64 bytes: the halves, the second over some of the first.
QZSTRING_KERNEL void storeHalves(char* text, std::size_t bytes, __m512i vector) {
    const auto* const places = reinterpret_cast<const __m256i*>(kPlaces + bytes - 32);
    const __m512i last = _mm512_permutexvar_epi8(_mm512_castsi256_si512(_mm256_loadu_si256(places)), vector);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), _mm512_castsi512_si256(vector));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text + bytes - 32), _mm512_castsi512_si256(last));
}

// Stores up to 64 bytes, fewer than 16 under a mask, in a range of 16.
QZSTRING_KERNEL void storeShort(char* text, std::size_t bytes, __m512i vector) {
    if (bytes > 32) {
        storeHalves(text, bytes, vector);
    } else if (bytes >= 16) {
        const auto* const places = reinterpret_cast<const __m128i*>(kPlaces + bytes - 16);
        const __m256i last = _mm256_permutexvar_epi8(_mm256_castsi128_si256(_mm_loadu_si128(places)),
                                                     _mm512_castsi512_si256(vector));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(text), _mm512_castsi512_si128(vector));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(text + bytes - 16), _mm256_castsi256_si128(last));
    } else {
        _mm_mask_storeu_epi8(text, lowLanes(bytes), _mm512_castsi512_si128(vector));
    }
}

// Stores up to 16 wide characters, up to 8 under a mask, in a range of 8.
QZSTRING_KERNEL void storeShort(wchar_t* text, std::size_t count, __m512i vector) {
    if (count > 8)
        storeHalves(reinterpret_cast<char*>(text), sizeof(wchar_t) * count, vector);
    else
        _mm256_mask_storeu_epi32(text, static_cast<__mmask8>(lowLanes(count)),
                                 _mm512_castsi512_si256(vector));
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

}  // namespace qzString::kernels

#endif
