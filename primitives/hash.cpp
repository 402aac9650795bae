// Two published functions, chosen by length: short texts take rapidhash (version 3, seed 0), where its few
// dependent multiplications win; long ones XXH3 (hashLoops.h), where vector lanes do. Both pass SMHasher's
// and SMHasher3's batteries. The choice depends on the length alone, so that every kernel gives the same
// value.
#include "primitives/hash.h"

#include <cstddef>

#include "primitives/hashLoops.h"
#include "primitives/hashTiny.h"
#include "primitives/inline.h"
#include "primitives/kernels.h"

namespace {

using qz::detail::finishRapid;
using qz::detail::fold;
using qz::detail::kRapid;
using qz::detail::kRapidSeed;
using qzString::hashing::kPrime32;
using qzString::hashing::kPrime64;
using qzString::hashing::kSecret;
using qzString::hashing::read64;

// Above this many bytes the vector lanes have caught up (docs/performance.md).
constexpr std::size_t kLongestMiddle = 896;

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
    const auto take = [](std::uint64_t& chain, const unsigned char* at, std::uint64_t secret) {
        chain = fold(read64(at) ^ secret, read64(at + 8) ^ chain);
    };
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
            take(seed, p, kRapid[0]);
            take(s1, p + 16, kRapid[1]);
            take(s2, p + 32, kRapid[2]);
            take(s3, p + 48, kRapid[3]);
            take(s4, p + 64, kRapid[4]);
            take(s5, p + 80, kRapid[5]);
            take(s6, p + 96, kRapid[6]);
            p += 112;
            rest -= 112;
        } while (rest > 112);
        seed ^= s1 ^ s2 ^ s3 ^ s4 ^ s5 ^ s6;
    }
    if (rest > 16) {
        take(seed, p, kRapid[2]);
        if (rest > 32)
            take(seed, p + 16, kRapid[2]);
        if (rest > 48)
            take(seed, p + 32, kRapid[1]);
        if (rest > 64)
            take(seed, p + 48, kRapid[1]);
        if (rest > 80)
            take(seed, p + 64, kRapid[2]);
        if (rest > 96)
            take(seed, p + 80, kRapid[1]);
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

}  // namespace

std::uint64_t qz::detail::hashLonger(const unsigned char* bytes, std::size_t length) noexcept {
    if (length <= 128)
        return hashShort(bytes, length);
    return length <= kLongestMiddle ? hashMiddle(bytes, length) : hashLong(bytes, length);
}
