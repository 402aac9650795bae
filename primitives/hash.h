// Hashing of element sequences.
//
// 64-bit, fast and well mixed, not keyed: for hash tables and fingerprints of trusted text, not against an
// adversary. The value depends on the elements alone: it is the same in every process and with every kernel,
// on machines of the same byte order and the same `wchar_t`. It may change with any version that may
// break compatibility.
#ifndef QZSTRING_PRIMITIVES_HASH_H
#define QZSTRING_PRIMITIVES_HASH_H

#include <cstddef>
#include <cstdint>

#include "common/export.h"
#include "primitives/hashInline.h"

namespace qz {

namespace detail {

QZSTRING_EXPORT std::uint64_t hashLonger(const unsigned char* bytes, std::size_t length) noexcept;

inline std::uint64_t hashBytes(const unsigned char* bytes, std::size_t length) noexcept {
    if (length <= 16)
        return hashTiny(bytes, length);
    if (length <= 112)
        return hashShort(bytes, length);
    return length <= 128 ? hashFourChains(bytes, length) : hashLonger(bytes, length);
}

}  // namespace detail

// Reads exactly `count` elements (0 is allowed). The count is taken as an unsigned 32-bit number, so that
// sequences of 2^31 elements and more are hashed whole. A wide sequence hashes as its bytes in memory.
[[nodiscard]] inline std::uint64_t hashfunction(const unsigned char* elements, int count) noexcept {
    return detail::hashBytes(elements, static_cast<unsigned int>(count));
}
[[nodiscard]] inline std::uint64_t hashfunction(const wchar_t* elements, int count) noexcept {
    return detail::hashBytes(reinterpret_cast<const unsigned char*>(elements),
                             std::size_t{static_cast<unsigned int>(count)} * sizeof(wchar_t));
}

}  // namespace qz

#endif
