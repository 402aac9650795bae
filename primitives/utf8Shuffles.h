// The byte shuffles of UTF-8, each the entry of a table: what AVX2 and NEON share. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_UTF8SHUFFLES_H
#define QZSTRING_PRIMITIVES_UTF8SHUFFLES_H

#include <array>
#include <cstddef>

namespace qzString::kernels::shuffles {

using Shuffle = std::array<unsigned char, 16>;

// ---- Decoding: keeps some of eight 16-bit elements; the index is the mask of those kept ----

constexpr std::array<Shuffle, 256> makeSelections() {
    std::array<Shuffle, 256> selections{};
    for (std::size_t mask = 0; mask < 256; ++mask) {
        std::size_t to = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            if ((mask >> i & 1) != 0) {
                selections[mask][to++] = static_cast<unsigned char>(2 * i);
                selections[mask][to++] = static_cast<unsigned char>(2 * i + 1);
            }
        }
    }
    return selections;
}
// Moves the elements of a mask to the front.
inline constexpr std::array<Shuffle, 256> kSelections = makeSelections();

// ---- Encoding: four characters in lanes of 32 bits, their bytes at the end of each, lead byte first. Their
// lengths are the index: the number of bytes beyond the first, two bits each, from the first lane on ----

constexpr std::array<Shuffle, 256> makePackings() {
    std::array<Shuffle, 256> packings{};
    for (std::size_t lengths = 0; lengths < 256; ++lengths) {
        std::size_t to = 0;
        for (std::size_t lane = 0; lane < 4; ++lane) {
            const std::size_t more = lengths >> 2 * lane & 3;
            for (std::size_t byte = 3 - more; byte < 4; ++byte)
                packings[lengths][to++] = static_cast<unsigned char>(4 * lane + byte);
        }
    }
    return packings;
}
// Moves the bytes in use to the front.
inline constexpr std::array<Shuffle, 256> kPackings = makePackings();

constexpr std::array<unsigned char, 256> makePackedLengths() {
    std::array<unsigned char, 256> lengths{};
    for (std::size_t i = 0; i < 256; ++i)
        lengths[i] = static_cast<unsigned char>(4 + (i & 3) + (i >> 2 & 3) + (i >> 4 & 3) + (i >> 6));
    return lengths;
}
inline constexpr std::array<unsigned char, 256> kPackedLengths = makePackedLengths();

}  // namespace qzString::kernels::shuffles

#endif
