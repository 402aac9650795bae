// Hashing of element sequences.
//
// 64-bit, fast and well mixed, not keyed: for hash tables and fingerprints of trusted text, not against an
// adversary. The value depends on the elements alone: it is the same in every process and with every kernel,
// on machines of the same byte order and the same `wchar_t`. It may change with a major version of the
// library.
#ifndef QZSTRING_PRIMITIVES_HASH_H
#define QZSTRING_PRIMITIVES_HASH_H

#include <cstdint>

#include "common/export.h"

namespace qz {

// Reads exactly `count` elements (0 is allowed). The count is taken as an unsigned 32-bit number, so that
// sequences of 2^31 elements and more are hashed whole. A wide sequence hashes as its bytes in memory.
[[nodiscard]] QZSTRING_EXPORT std::uint64_t hashfunction(const unsigned char* elements, int count) noexcept;
[[nodiscard]] QZSTRING_EXPORT std::uint64_t hashfunction(const wchar_t* elements, int count) noexcept;

}  // namespace qz

#endif
