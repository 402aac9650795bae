// The hash of up to 16 bytes, inline: a call would cost a third of it. rapidhash, version 3, seed 0.
#ifndef QZSTRING_PRIMITIVES_HASHTINY_H
#define QZSTRING_PRIMITIVES_HASHTINY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

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
    if (length >= 8)
        return finishRapid(readWord<std::uint64_t>(p), readWord<std::uint64_t>(p + length - 8),
                           kRapidSeed ^ length, length);
    if (length >= 4)
        return finishRapid(readWord<std::uint32_t>(p), readWord<std::uint32_t>(p + length - 4),
                           kRapidSeed ^ length, length);
    if (length > 0)
        return finishRapid(std::uint64_t{p[0]} << 45 | p[length - 1], p[length >> 1], kRapidSeed, length);
    return finishRapid(0, 0, kRapidSeed, 0);
}

}  // namespace qz::detail

#endif
