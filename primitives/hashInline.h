// The hash of up to 128 bytes, inline: a call would cost a tenth to a third of it. Up to 16 bytes it is
// rapidhash (version 3, seed 0), above that a sum over XXH3's mixes of 16 bytes.
#ifndef QZSTRING_PRIMITIVES_HASHINLINE_H
#define QZSTRING_PRIMITIVES_HASHINLINE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/export.h"

namespace qz::detail {

struct Product {
    std::uint64_t low;
    std::uint64_t high;
};

constexpr Product multiply(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return {static_cast<std::uint64_t>(product), static_cast<std::uint64_t>(product >> 64)};
#else
    const std::uint64_t lowLow = (a & 0xFFFFFFFF) * (b & 0xFFFFFFFF);
    const std::uint64_t highLow = (a >> 32) * (b & 0xFFFFFFFF);
    const std::uint64_t lowHigh = (a & 0xFFFFFFFF) * (b >> 32);
    const std::uint64_t middle = (lowLow >> 32) + (highLow & 0xFFFFFFFF) + lowHigh;
    return {(middle << 32) | (lowLow & 0xFFFFFFFF), (a >> 32) * (b >> 32) + (highLow >> 32) + (middle >> 32)};
#endif
}

// Not by way of multiply(): g++ 12 would send the halves of several products through the stack.
constexpr std::uint64_t fold(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const Product product = multiply(a, b);
    return product.low ^ product.high;
#endif
}

// The secret of rapidhash, and what it makes of seed 0.
inline constexpr std::uint64_t kRapid[] = {0x2d358dccaa6c78a5, 0x8bb84b93962eacc9, 0x4b33a62ed433d4a3,
                                           0x4d5a2da51de1aa47, 0xa0761d6478bd642f, 0xe7037ed1a0b428db,
                                           0x90ed1765281c388c, 0xaaaaaaaaaaaaaaaa};
inline constexpr std::uint64_t kRapidSeed = fold(kRapid[2], kRapid[1]);

template <class Word>
std::uint64_t readWord(const unsigned char* at) noexcept {
    Word value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

constexpr std::uint64_t finishRapid(std::uint64_t a, std::uint64_t b, std::uint64_t seed,
                                    std::size_t rest) noexcept {
    const Product product = multiply(a ^ kRapid[1], b ^ seed);
    return fold(product.low ^ kRapid[7], product.high ^ (kRapid[1] ^ rest));
}

// Up to 16 bytes.
inline std::uint64_t hashTiny(const unsigned char* p, std::size_t length) noexcept {
    if (length >= 4) {
        const bool isLong = length >= 8;
        const std::uint64_t a = isLong ? readWord<std::uint64_t>(p) : readWord<std::uint32_t>(p);
        const std::uint64_t b =
            isLong ? readWord<std::uint64_t>(p + length - 8) : readWord<std::uint32_t>(p + length - 4);
        return finishRapid(a, b, kRapidSeed ^ length, length);
    }
    if (length > 0)
        return finishRapid(std::uint64_t{p[0]} << 45 | p[length - 1], p[length >> 1], kRapidSeed, length);
    return finishRapid(0, 0, kRapidSeed, 0);
}

// The primes and the default secret of XXH3.
inline constexpr std::uint64_t kPrime64[] = {0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9,
                                             0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5};
QZSTRING_EXPORT extern const unsigned char kSecret[192];

// The end of XXH3.
constexpr std::uint64_t avalanche(std::uint64_t hash) noexcept {
    hash ^= hash >> 37;
    hash *= 0x165667919E3779F9;
    return hash ^ (hash >> 32);
}

inline std::uint64_t mix(const unsigned char* p, const unsigned char* secret) noexcept {
    return fold(readWord<std::uint64_t>(p) ^ readWord<std::uint64_t>(secret),
                readWord<std::uint64_t>(p + 8) ^ readWord<std::uint64_t>(secret + 8));
}

// Adds the mixes of 16 bytes at kAt, kAt + 16 and so on, before kEnd, while more than 16 bytes are left; then
// `last`, which nothing waits for before that.
template <std::size_t kAt, std::size_t kEnd>
std::uint64_t mixAll(const unsigned char* p, std::size_t length, const unsigned char* secret,
                     std::uint64_t sum, std::uint64_t last) noexcept {
    sum += mix(p + kAt, secret + kAt);
    if constexpr (kAt + 16 < kEnd) {
        if (length > kAt + 32)
            return mixAll<kAt + 16, kEnd>(p, length, secret, sum, last);
    }
    return sum + last;
}

// 17 to 128 bytes: the last 16 may overlap those before. The first are added last, as in XXH3: where they are
// the last to be known, one addition waits for them instead of all.
inline std::uint64_t hashShort(const unsigned char* p, std::size_t length) noexcept {
    const std::uint64_t first = mix(p, kSecret);
    const std::uint64_t sum = length * kPrime64[0] + mix(p + length - 16, kSecret + 16);
    return avalanche(length > 32 ? mixAll<16, 112>(p, length, kSecret + 16, sum, first) : sum + first);
}

}  // namespace qz::detail

#endif
