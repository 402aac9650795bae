// The UTF-8 conversions of the vector kernels, in utf8*.cpp; kernels.h has the contract. Internal, not
// installed.
#ifndef QZSTRING_PRIMITIVES_UTF8KERNELS_H
#define QZSTRING_PRIMITIVES_UTF8KERNELS_H

#include <cstddef>

#include "primitives/kernels.h"

#define QZSTRING_DECLARE_UTF8_KERNELS(set)                                                                  \
    namespace set {                                                                                         \
    unsigned int decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity, \
                        bool* ok);                                                                          \
    unsigned int decodedLength(const char* source, std::size_t length, bool* ok);                           \
    unsigned int encode(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity, \
                        bool* ok);                                                                          \
    unsigned int encodedLength(const wchar_t* source, std::size_t length, bool* ok);                        \
    Progress wellFormed(const char* source, std::size_t length);                                            \
    }

namespace qzString::kernels {

#if QZSTRING_VECTORS_X86
QZSTRING_DECLARE_UTF8_KERNELS(avx512)
QZSTRING_DECLARE_UTF8_KERNELS(avx2)
#elif QZSTRING_VECTORS_NEON
QZSTRING_DECLARE_UTF8_KERNELS(neon)
#endif

}  // namespace qzString::kernels

#undef QZSTRING_DECLARE_UTF8_KERNELS

#endif
