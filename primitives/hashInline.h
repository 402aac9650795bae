// The hash of up to 128 bytes, inline because a call would add a tenth to a third to its time. Included by
// hash.h; do not include it directly.
//
// Up to 16 bytes it is rapidhash (version 3, seed 0). Longer text is mixed as rapidhash does: every 16 bytes
// are multiplied with what the 16 before them gave. But the chains that this makes are three, from 113 bytes
// on four, side by side, of two links at most; and the last 16 bytes, which may overlap those before, are
// multiplied without waiting for any. That takes as many multiplications as one chain, half the time of it
// where something waits.
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

// Hides where a value comes from. Compilers regroup exclusive ors otherwise, so that what is known last
// waits for two of them, or keep both halves of every product in registers, of which there are not enough.
inline std::uint64_t keptWhole(std::uint64_t value) noexcept {
    asm("" : "+r"(value));
    return value;
}

// Up to 16 bytes.
inline std::uint64_t hashTiny(const unsigned char* p, std::size_t length) noexcept {
    const std::uint64_t end = keptWhole(kRapid[1] ^ length);
    const auto finish = [end](std::uint64_t a, std::uint64_t b, std::uint64_t seed) {
        const Product product = multiply(a ^ kRapid[1], b ^ seed);
        return fold(product.low ^ kRapid[7], product.high ^ end);
    };
    if (length >= 4) {
        const bool isLong = length >= 8;
        const std::uint64_t a = isLong ? readWord<std::uint64_t>(p) : readWord<std::uint32_t>(p);
        const std::uint64_t b =
            isLong ? readWord<std::uint64_t>(p + length - 8) : readWord<std::uint32_t>(p + length - 4);
        return finish(a, b, keptWhole(kRapidSeed ^ length));
    }
    if (length > 0)
        return finish(std::uint64_t{p[0]} << 45 | p[length - 1], p[length >> 1], kRapidSeed);
    return finish(0, 0, kRapidSeed);
}

// The default secret of XXH3.
QZSTRING_EXPORT extern const unsigned char kSecret[192];

// A chain with the 16 bytes at `p`.
inline std::uint64_t link(std::uint64_t chain, const unsigned char* p, const unsigned char* secret) noexcept {
    return fold(readWord<std::uint64_t>(p) ^ readWord<std::uint64_t>(secret),
                readWord<std::uint64_t>(p + 8) ^ chain);
}

// The last 16 bytes, and what the chains made of those before. The length goes into both products: from the
// second alone, a text and one longer by zeros would get hashes of known differences; from the first alone,
// the same ones where the words make up for it. `first` is kRapid[1] ^ length.
inline std::uint64_t finishLinks(const unsigned char* end, std::uint64_t chains, std::uint64_t first,
                                 std::size_t length) noexcept {
    const std::uint64_t second = keptWhole(kRapid[6] ^ length);
    const Product last =
        multiply(readWord<std::uint64_t>(end - 16) ^ first, readWord<std::uint64_t>(end - 8) ^ kRapid[3]);
    return fold(last.low ^ chains, last.high ^ second);
}

// The same for short text, where registers are free. The result is hidden from the compiler, which would
// else merge this end with that of other lengths, at the cost of moves and a jump.
inline std::uint64_t finishShort(const unsigned char* end, std::uint64_t chains,
                                 std::size_t length) noexcept {
    return keptWhole(finishLinks(end, chains, keptWhole(kRapid[1] ^ length), length));
}

// 17 to 112 bytes.
inline std::uint64_t hashShort(const unsigned char* p, std::size_t length) noexcept {
    std::uint64_t a = link(kRapidSeed, p, kSecret);
    if (length > 32) {
        std::uint64_t b = link(kRapidSeed, p + 16, kSecret + 8);
        if (length > 48) {
            std::uint64_t c = link(kRapidSeed, p + 32, kSecret + 16);
            if (length > 64) {
                a = link(a, p + 48, kSecret + 24);
                if (length > 80) {
                    b = link(b, p + 64, kSecret + 32);
                    if (length > 96)
                        c = link(c, p + 80, kSecret + 40);
                }
            }
            a ^= c;
        }
        a ^= b;
    }
    return finishShort(p + length, a, length);
}

// 113 to 128 bytes: the four chains of longer text, without its loop.
inline std::uint64_t hashFourChains(const unsigned char* p, std::size_t length) noexcept {
    std::uint64_t a = keptWhole(link(kRapidSeed, p, kSecret));
    std::uint64_t b = keptWhole(link(kRapidSeed, p + 16, kSecret + 8));
    std::uint64_t c = keptWhole(link(kRapidSeed, p + 32, kSecret + 16));
    a = keptWhole(link(a, p + 64, kSecret + 32) ^ link(kRapidSeed, p + 48, kSecret + 24));
    b = keptWhole(link(b, p + 80, kSecret + 40));
    c = link(c, p + 96, kSecret + 48);
    return finishLinks(p + length, a ^ b ^ c, kRapid[1] ^ length, length);
}

}  // namespace qz::detail

#endif
