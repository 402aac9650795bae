// The long-text hash: the constants of XXH3 (xxHash 0.8, "XXH3 64-bit, long inputs", default secret, seed 0)
// and its reading loop in portable code. Internal, not installed.
//
// Eight 64-bit lanes take in a stripe of 64 bytes at a time: with the stripe's word w and the secret's word
// s, lane i adds the product of the two halves of w ^ s, and its neighbour i ^ 1 adds w. The n-th stripe of a
// block starts at byte 8 n of the secret. After 16 stripes the secret is used up: the lanes are scrambled and
// a new block begins. The last 64 bytes of the text are one more stripe, which may overlap the one before and
// is never followed by a scramble.
#ifndef QZSTRING_PRIMITIVES_HASHSTRIPES_H
#define QZSTRING_PRIMITIVES_HASHSTRIPES_H

#include <cstddef>
#include <cstdint>

#include "primitives/hashInline.h"
#include "primitives/inline.h"

#ifndef QZSTRING_TARGET
#error "defined by the source, before this header: the attribute that lets a kernel use its instructions"
#endif

namespace qzString::hashing {

using qz::detail::kSecret;

inline constexpr std::uint64_t kPrime64[] = {0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9,
                                             0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5};
inline constexpr std::uint32_t kPrime32[] = {0x9E3779B1, 0x85EBCA77, 0xC2B2AE3D};

alignas(64) inline constexpr std::uint64_t kFirstLanes[8] = {
    kPrime32[2], kPrime64[0], kPrime64[1], kPrime64[2], kPrime64[3], kPrime32[1], kPrime64[4], kPrime32[0]};

inline constexpr std::size_t kStripe = 64;
inline constexpr std::size_t kStripesPerBlock = 16;
inline constexpr std::size_t kScrambleSecret = 128;    // where in the secret the scramble begins
inline constexpr std::size_t kLastStripeSecret = 121;  // and the last stripe
inline constexpr std::size_t kMergeSecret = 11;        // and the final merge

// The secret, hidden from the compiler in every block: it would load all of it before the first one, and
// spill it to the stack.
QZSTRING_INLINE const unsigned char* freshSecret() {
    const unsigned char* secret = kSecret;
    asm("" : "+r"(secret));
    return secret;
}

// `Lanes` holds the eight lanes in whatever the instruction set has and offers add(stripe, secret) and
// scramble(secret). `length` is above kStripe.
template <class Lanes>
QZSTRING_TARGET QZSTRING_INLINE void feed(Lanes& lanes, const unsigned char* input, std::size_t length) {
    constexpr std::size_t kBlock = kStripe * kStripesPerBlock;
    const unsigned char* const lastStripe = input + length - kStripe;
    for (; length > kBlock; length -= kBlock) {
        const unsigned char* const secret = freshSecret();
        for (std::size_t n = 0; n < kStripesPerBlock; ++n)
            lanes.add(input + n * kStripe, secret + n * 8);
        lanes.scramble(secret + kScrambleSecret);
        input += kBlock;
    }
    for (std::size_t n = 0; n < (length - 1) / kStripe; ++n)
        lanes.add(input + n * kStripe, kSecret + n * 8);
    lanes.add(lastStripe, kSecret + kLastStripeSecret);
}

}  // namespace qzString::hashing

#endif
