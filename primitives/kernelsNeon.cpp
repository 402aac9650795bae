// The NEON kernels of the character runs, by characterBlocks.h, and of the hash, and the row of the table.
// utf8Neon.cpp has the conversions.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_NEON

#include "primitives/neon.h"
// After the header that defines QZSTRING_TARGET.
#include "primitives/characterBlocks.h"
#include "primitives/hashStripes.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels {
namespace {

// ---- Character runs ----

struct Platform {
    static constexpr std::size_t kBytes = 16;

    template <class Vector>
    QZSTRING_KERNEL static bool any(Vector vector) {
        return vmaxvq_u32(uint32x4_t(vector)) != 0;
    }
    template <class Vector>
    QZSTRING_KERNEL static std::uint32_t places(Vector vector) {
        return maskOf(uint8x16_t(vector));
    }
    QZSTRING_KERNEL static void leave() {}
};

// ---- Hash ----

QZSTRING_KERNEL uint64x2_t load64s(const unsigned char* at) {
    return vreinterpretq_u64_u8(load128(at));
}

struct Lanes {
    uint64x2_t pairs[4];

    QZSTRING_KERNEL void add(const unsigned char* stripe, const unsigned char* secret) {
        for (std::size_t i = 0; i < 4; ++i) {
            const uint64x2_t words = load64s(stripe + 16 * i);
            const uint64x2_t keyed = veorq_u64(words, load64s(secret + 16 * i));
            const uint64x2_t sum = vaddq_u64(pairs[i], vextq_u64(words, words, 1));
            pairs[i] = vmlal_u32(sum, vmovn_u64(keyed), vshrn_n_u64(keyed, 32));
        }
    }
    QZSTRING_KERNEL void scramble(const unsigned char* secret) {
        const uint32x2_t prime = vdup_n_u32(hashing::kPrime32[0]);
        for (std::size_t i = 0; i < 4; ++i) {
            const uint64x2_t mixed =
                veorq_u64(veorq_u64(pairs[i], vshrq_n_u64(pairs[i], 47)), load64s(secret + 16 * i));
            // A 64-bit product from two of 32 bits.
            const uint64x2_t high = vshlq_n_u64(vmull_u32(vshrn_n_u64(mixed, 32), prime), 32);
            pairs[i] = vmlal_u32(high, vmovn_u64(mixed), prime);
        }
    }
};

void hashLanes(std::uint64_t result[8], const unsigned char* input, std::size_t length) {
    Lanes lanes;
    for (std::size_t i = 0; i < 4; ++i)
        lanes.pairs[i] = vld1q_u64(hashing::kFirstLanes + 2 * i);
    hashing::feed(lanes, input, length);
    for (std::size_t i = 0; i < 4; ++i)
        vst1q_u64(result + 2 * i, lanes.pairs[i]);
}

}  // namespace

const Kernels kNeon = {
    "neon",       alwaysUsable,        neon::decode,     neon::decodedLength,
    neon::encode, neon::encodedLength, neon::wellFormed, QZSTRING_CHARACTER_RUNS(Platform),
    hashLanes,
};

}  // namespace qzString::kernels

#endif
