// What the AVX2 sources share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_AVX2_H
#define QZSTRING_PRIMITIVES_AVX2_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

QZSTRING_KERNEL __m128i half(__m256i vector, int which) {
    return which == 0 ? _mm256_castsi256_si128(vector) : _mm256_extracti128_si256(vector, 1);
}

// The top bit of every byte.
QZSTRING_KERNEL std::uint32_t topBits(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

// A constant in every lane, from memory whenever it is used: a load, where the compiler would go through a
// general register and the port that the shuffles need.
template <std::uint32_t kValue, class Vector = __m256i>
QZSTRING_KERNEL Vector lanesOf() {
    Vector lanes;
    asm("vpbroadcastd %1, %0" : "=x"(lanes) : "m"(kInMemory<std::uint32_t, kValue>));
    return lanes;
}
template <std::uint16_t kValue>
QZSTRING_KERNEL __m256i unitsOf() {
    return lanesOf<0x00010001U * kValue>();
}

// From the n-th place on, the indices that move the bytes from n on to the front, and zeros behind them.
constexpr std::array<unsigned char, 32> makeMoves() {
    std::array<unsigned char, 32> moves{};
    for (std::size_t i = 0; i < 32; ++i)
        moves[i] = static_cast<unsigned char>(i < 16 ? i : 0x80);
    return moves;
}
alignas(32) constexpr std::array<unsigned char, 32> kMoves = makeMoves();

QZSTRING_KERNEL __m128i moveToFront(__m128i bytes, std::size_t from) {
    return _mm_shuffle_epi8(bytes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(kMoves.data() + from)));
}

template <class Word>
QZSTRING_KERNEL void storeWord(__m128i bytes, char* destination) {
    const auto word = static_cast<Word>(_mm_cvtsi128_si64(bytes));
    std::memcpy(destination, &word, sizeof word);
}

// The first and the last of `count` bytes, which may overlap: one to two words of them.
template <class Word>
QZSTRING_KERNEL void storeEnds(__m128i bytes, std::size_t count, char* destination) {
    const std::size_t last = count - sizeof(Word);
    storeWord<Word>(bytes, destination);
    storeWord<Word>(moveToFront(bytes, last), destination + last);
}

// Up to 16 bytes, and nothing behind them.
QZSTRING_KERNEL void storeFirst(__m128i bytes, std::size_t count, char* destination) {
    if (count == 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(destination), bytes);
    else if (count >= 8)
        storeEnds<std::uint64_t>(bytes, count, destination);
    else if (count >= 4)
        storeEnds<std::uint32_t>(bytes, count, destination);
    else if (count >= 2)
        storeEnds<std::uint16_t>(bytes, count, destination);
    else if (count == 1)
        storeWord<std::uint8_t>(bytes, destination);
}

}  // namespace qzString::kernels

#endif
