// The algorithm is chosen by the length alone, so that every kernel gives the same value:
//
// - up to 128 bytes: inline (hashInline.h).
// - up to 512: as those from 113 on, four chains, each of which takes 16 bytes of every 64.
// - above: XXH3 in vector lanes (hashStripes.h).
//
// docs/performance.md has the times, and what SMHasher3 says of the whole.
#include "primitives/hash.h"

#include <cstddef>

#include "primitives/hashInline.h"
#include "primitives/inline.h"
#include "primitives/kernels.h"
#define QZSTRING_TARGET  // the base set
#include "primitives/hashStripes.h"

namespace {

using qz::detail::fold;
using qz::detail::kSecret;

// Where the vector lanes have caught up, if nothing waits for the value.
constexpr std::size_t kLongestChains = 512;

// The end of XXH3.
constexpr std::uint64_t avalanche(std::uint64_t hash) {
    hash ^= hash >> 37;
    hash *= 0x165667919E3779F9;
    return hash ^ (hash >> 32);
}

QZSTRING_NOINLINE std::uint64_t hashLong(const unsigned char* input, std::size_t length) {
    alignas(64) std::uint64_t lanes[8];
    qzString::kernels::active().hashLanes(lanes, input, length);
    std::uint64_t hash = length * qzString::hashing::kPrime64[0];
    const unsigned char* const secret = kSecret + qzString::hashing::kMergeSecret;
    const auto read = [](const unsigned char* at) { return qz::detail::readWord<std::uint64_t>(at); };
    for (std::size_t i = 0; i < 8; i += 2)
        hash += fold(lanes[i] ^ read(secret + 8 * i), lanes[i + 1] ^ read(secret + 8 * i + 8));
    return avalanche(hash);
}

}  // namespace

std::uint64_t qz::detail::hashLonger(const unsigned char* p, std::size_t length) noexcept {
    if (length > kLongestChains)
        return hashLong(p, length);
    std::uint64_t a = kRapidSeed;
    std::uint64_t b = kRapidSeed;
    std::uint64_t c = kRapidSeed;
    std::uint64_t d = kRapidSeed;
    const unsigned char* secret = nullptr;
    std::size_t rest = length;
    do {
        secret = qzString::hashing::freshSecret();
        a = link(a, p, secret);
        b = link(b, p + 16, secret + 8);
        c = link(c, p + 32, secret + 16);
        d = link(d, p + 48, secret + 24);
        p += 64;
        rest -= 64;
    } while (rest > 64);
    if (rest > 16) {
        a = link(a, p, secret + 32);
        if (rest > 32)
            b = link(b, p + 16, secret + 40);
        if (rest > 48)
            c = link(c, p + 32, secret + 48);
    }
    return finishLinks(p + rest, a ^ b ^ c ^ d, qz::detail::kRapid[1] ^ length, length);
}
