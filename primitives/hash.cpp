// Two published functions, chosen by length: short texts take rapidhash (version 3, seed 0), where its few
// dependent multiplications win; long ones XXH3 (hashLoops.h), where vector lanes do. Both pass SMHasher's
// and SMHasher3's batteries. The choice depends on the length alone, so that every kernel gives the same
// value.
#include "primitives/hash.h"

#include <cstddef>

#include "primitives/hashLoops.h"
#include "primitives/inline.h"
#include "primitives/kernels.h"

namespace {

using qzString::hashing::kPrime32;
using qzString::hashing::kPrime64;
using qzString::hashing::kSecret;
using qzString::hashing::read64;

// Above this many bytes the vector lanes have caught up (docs/performance.md).
constexpr std::size_t kLongestMiddle = 896;

struct Product {
    std::uint64_t low;
    std::uint64_t high;
};

constexpr Product multiply(std::uint64_t a, std::uint64_t b) {
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

constexpr std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    const Product product = multiply(a, b);
    return product.low ^ product.high;
}

constexpr std::uint64_t kRapid[] = {0x2d358dccaa6c78a5, 0x8bb84b93962eacc9, 0x4b33a62ed433d4a3,
                                    0x4d5a2da51de1aa47, 0xa0761d6478bd642f, 0xe7037ed1a0b428db,
                                    0x90ed1765281c388c, 0xaaaaaaaaaaaaaaaa};
constexpr std::uint64_t kRapidSeed = fold(kRapid[2], kRapid[1]);

std::uint64_t read32(const unsigned char* at) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

std::uint64_t finishRapid(std::uint64_t a, std::uint64_t b, std::uint64_t seed, std::size_t rest) {
    const Product product = multiply(a ^ kRapid[1], b ^ seed);
    return fold(product.low ^ kRapid[7], product.high ^ kRapid[1] ^ rest);
}

// Up to 16 bytes.
QZSTRING_INLINE std::uint64_t hashTiny(const unsigned char* p, std::size_t length) {
    if (length >= 8)
        return finishRapid(read64(p), read64(p + length - 8), kRapidSeed ^ length, length);
    if (length >= 4)
        return finishRapid(read32(p), read32(p + length - 4), kRapidSeed ^ length, length);
    if (length > 0)
        return finishRapid(std::uint64_t{p[0]} << 45 | p[length - 1], p[length >> 1], kRapidSeed, length);
    return finishRapid(0, 0, kRapidSeed, 0);
}

std::uint64_t avalanche(std::uint64_t hash) {
    hash ^= hash >> 37;
    hash *= 0x165667919E3779F9;
    return hash ^ (hash >> 32);
}

// 17 to 128 bytes: pairs of 16 bytes from both ends inwards, which may overlap in the middle.
QZSTRING_NOINLINE std::uint64_t hashShort(const unsigned char* p, std::size_t length) {
    const auto mix = [](const unsigned char* bytes, std::size_t secret) {
        return fold(read64(bytes) ^ read64(kSecret + secret),
                    read64(bytes + 8) ^ read64(kSecret + secret + 8));
    };
    const unsigned char* const end = p + length;
    std::uint64_t hash = length * kPrime64[0] + mix(p, 0) + mix(end - 16, 16);
    if (length > 32)
        hash += mix(p + 16, 32) + mix(end - 32, 48);
    if (length > 64)
        hash += mix(p + 32, 64) + mix(end - 48, 80);
    if (length > 96)
        hash += mix(p + 48, 96) + mix(end - 64, 112);
    return avalanche(hash);
}

// 129 to 896 bytes.
QZSTRING_NOINLINE std::uint64_t hashMiddle(const unsigned char* p, std::size_t length) {
    std::uint64_t seed = kRapidSeed;

    // Seven chains side by side, 16 bytes each, while more than that is left.
    std::size_t rest = length;
    if (rest > 112) {
        std::uint64_t s1 = seed;
        std::uint64_t s2 = seed;
        std::uint64_t s3 = seed;
        std::uint64_t s4 = seed;
        std::uint64_t s5 = seed;
        std::uint64_t s6 = seed;
        do {
            seed = fold(read64(p) ^ kRapid[0], read64(p + 8) ^ seed);
            s1 = fold(read64(p + 16) ^ kRapid[1], read64(p + 24) ^ s1);
            s2 = fold(read64(p + 32) ^ kRapid[2], read64(p + 40) ^ s2);
            s3 = fold(read64(p + 48) ^ kRapid[3], read64(p + 56) ^ s3);
            s4 = fold(read64(p + 64) ^ kRapid[4], read64(p + 72) ^ s4);
            s5 = fold(read64(p + 80) ^ kRapid[5], read64(p + 88) ^ s5);
            s6 = fold(read64(p + 96) ^ kRapid[6], read64(p + 104) ^ s6);
            p += 112;
            rest -= 112;
        } while (rest > 112);
        seed ^= s1 ^ s2 ^ s3 ^ s4 ^ s5 ^ s6;
    }
    if (rest > 16) {
        seed = fold(read64(p) ^ kRapid[2], read64(p + 8) ^ seed);
        if (rest > 32)
            seed = fold(read64(p + 16) ^ kRapid[2], read64(p + 24) ^ seed);
        if (rest > 48)
            seed = fold(read64(p + 32) ^ kRapid[1], read64(p + 40) ^ seed);
        if (rest > 64)
            seed = fold(read64(p + 48) ^ kRapid[1], read64(p + 56) ^ seed);
        if (rest > 80)
            seed = fold(read64(p + 64) ^ kRapid[2], read64(p + 72) ^ seed);
        if (rest > 96)
            seed = fold(read64(p + 80) ^ kRapid[1], read64(p + 88) ^ seed);
    }
    return finishRapid(read64(p + rest - 16) ^ rest, read64(p + rest - 8), seed, rest);
}

QZSTRING_NOINLINE std::uint64_t hashLong(const unsigned char* input, std::size_t length) {
    alignas(64) std::uint64_t lanes[8] = {kPrime32[2], kPrime64[0], kPrime64[1], kPrime64[2],
                                          kPrime64[3], kPrime32[1], kPrime64[4], kPrime32[0]};
    qzString::kernels::active().hashLanes(lanes, input, length);
    std::uint64_t hash = length * kPrime64[0];
    const unsigned char* const secret = kSecret + qzString::hashing::kMergeSecret;
    for (std::size_t i = 0; i < 8; i += 2)
        hash += fold(lanes[i] ^ read64(secret + 8 * i), lanes[i + 1] ^ read64(secret + 8 * i + 8));
    return avalanche(hash);
}

// The longer ones out of line, so that the shortest need no stack.
QZSTRING_INLINE std::uint64_t hashBytes(const unsigned char* bytes, std::size_t length) {
    if (length <= 16)
        return hashTiny(bytes, length);
    if (length <= 128)
        return hashShort(bytes, length);
    return length <= kLongestMiddle ? hashMiddle(bytes, length) : hashLong(bytes, length);
}

}  // namespace

std::uint64_t qz::hashfunction(const unsigned char* elements, int count) noexcept {
    return hashBytes(elements, static_cast<unsigned int>(count));
}

std::uint64_t qz::hashfunction(const wchar_t* elements, int count) noexcept {
    return hashBytes(reinterpret_cast<const unsigned char*>(elements),
                     std::size_t{static_cast<unsigned int>(count)} * sizeof(wchar_t));
}
