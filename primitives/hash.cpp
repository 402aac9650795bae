// What is fastest changes with the length, and nothing else decides, so that every kernel gives the same
// value:
//
// - up to 16 bytes, and 225 to 384: rapidhash (version 3, seed 0).
// - 17 to 224: a sum over what XXH3 makes of 16 bytes each, and as XXH3 does. But where that takes parts from
//   both ends and so some bytes twice, here only the last 16 overlap: up to a third fewer multiplications.
// - above: XXH3 in vector lanes (hashLoops.h).
//
// docs/performance.md has the times, and what SMHasher3 says of the whole.
#include "primitives/hash.h"

#include <cstddef>

#include "primitives/hashInline.h"
#include "primitives/hashLoops.h"
#include "primitives/inline.h"
#include "primitives/kernels.h"

namespace {

using qz::detail::avalanche;
using qz::detail::finishRapid;
using qz::detail::fold;
using qz::detail::kPrime64;
using qz::detail::kRapid;
using qz::detail::kRapidSeed;
using qz::detail::kSecret;
using qz::detail::mix;
using qz::detail::mixAll;

// Two times 112 bytes suit rapidhash, and above 384 the vector lanes have caught up.
constexpr std::size_t kLongestParts = 224;
constexpr std::size_t kLongestMiddle = 384;

std::uint64_t read64(const unsigned char* at) {
    return qz::detail::readWord<std::uint64_t>(at);
}

// The end of XXH64. With many parts in the sum, that of XXH3 leaves too few different low bits between the
// hashes of similar texts (SMHasher3, "Permutation", with blocks of 8 bytes, which XXH3 itself fails).
std::uint64_t avalancheXxh64(std::uint64_t hash) {
    hash ^= hash >> 33;
    hash *= kPrime64[1];
    hash ^= hash >> 29;
    hash *= kPrime64[2];
    return hash ^ (hash >> 32);
}

// 129 to 224 bytes; where in the secret is as XXH3 has it for 129 to 240. In one run of branches: told that
// the first ones are not taken, g++ 12 computes all products first and keeps them on the stack.
QZSTRING_NOINLINE std::uint64_t hashParts(const unsigned char* p, std::size_t length) {
    const std::uint64_t first = mix(p, kSecret);
    std::uint64_t sum = length * kPrime64[0] + mix(p + length - 16, kSecret + 119);
    sum = mixAll<16, 128>(p, length, kSecret, sum, 0);
    return avalancheXxh64(length > 144 ? mixAll<0, 80>(p + 128, length - 128, kSecret + 3, sum, first)
                                       : sum + first);
}

// 225 to 384 bytes.
QZSTRING_NOINLINE std::uint64_t hashMiddle(const unsigned char* p, std::size_t length) {
    const auto take = [](std::uint64_t& chain, const unsigned char* at, std::uint64_t secret) {
        chain = fold(read64(at) ^ secret, read64(at + 8) ^ chain);
    };
    // Seven chains side by side, 16 bytes each, while more than that is left.
    std::uint64_t seed = kRapidSeed;
    std::uint64_t s1 = seed;
    std::uint64_t s2 = seed;
    std::uint64_t s3 = seed;
    std::uint64_t s4 = seed;
    std::uint64_t s5 = seed;
    std::uint64_t s6 = seed;
    std::size_t rest = length;
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
    alignas(64) std::uint64_t lanes[8];
    qzString::kernels::active().hashLanes(lanes, input, length);
    std::uint64_t hash = length * kPrime64[0];
    const unsigned char* const secret = kSecret + qzString::hashing::kMergeSecret;
    for (std::size_t i = 0; i < 8; i += 2)
        hash += fold(lanes[i] ^ read64(secret + 8 * i), lanes[i + 1] ^ read64(secret + 8 * i + 8));
    return avalanche(hash);
}

}  // namespace

std::uint64_t qz::detail::hashLonger(const unsigned char* bytes, std::size_t length) noexcept {
    if (length <= kLongestParts)
        return hashParts(bytes, length);
    return length <= kLongestMiddle ? hashMiddle(bytes, length) : hashLong(bytes, length);
}
