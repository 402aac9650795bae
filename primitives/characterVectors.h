// Vectors of characters, those of the compiler: what the character runs of AVX2 and NEON are made of.
// Internal, not installed; included by one source per instruction set, which defines QZSTRING_TARGET and
// QZSTRING_KERNEL.
//
// Shorter text than a vector is taken as two halves that may overlap, as two vectors of 16 bytes or as two
// words in one of them, and one to three bytes as three. Nothing outside it is read.
//
// The sources also pass a Platform. It has kBytes, the size of its vectors (16 or 32), and as static
// functions, the first two of vectors of that size and of 16 bytes:
//   bool any(vector)               whether any bit is set
//   std::uint32_t places(vector)   a bit for every byte, of bytes that are zero or all ones
//   void leave()                   before a kernel returns that has used vectors of more than 16 bytes
#ifndef QZSTRING_PRIMITIVES_CHARACTERVECTORS_H
#define QZSTRING_PRIMITIVES_CHARACTERVECTORS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#ifndef QZSTRING_TARGET
#error "included after avx2.h or neon.h"
#endif

namespace qzString::kernels::characters {

// Of unsigned elements.
template <class Element, std::size_t kBytes>
struct VectorOf {
    typedef Element Type __attribute__((vector_size(kBytes)));
};
template <class Char, std::size_t kBytes>
using Vector = typename VectorOf<std::make_unsigned_t<Char>, kBytes>::Type;

template <class To>
QZSTRING_KERNEL To load(const void* at) {
    To vector;
    std::memcpy(&vector, at, sizeof vector);
    return vector;
}

template <class From>
QZSTRING_KERNEL void store(void* at, From vector) {
    std::memcpy(at, &vector, sizeof vector);
}

// The first and the last word of a text of one to two of them.
template <class To, class Word>
QZSTRING_KERNEL To loadFirstAndLast(const void* text, std::size_t bytes) {
    const auto* const end = static_cast<const char*>(text) + bytes;
    const typename VectorOf<Word, sizeof(To)>::Type words = {load<Word>(text),
                                                             load<Word>(end - sizeof(Word))};
    return load<To>(&words);
}

template <class Word, class From>
QZSTRING_KERNEL void storeFirstAndLast(void* text, std::size_t bytes, From vector) {
    const auto words = load<typename VectorOf<Word, sizeof(From)>::Type>(&vector);
    store<Word>(text, words[0]);
    store<Word>(static_cast<char*>(text) + bytes - sizeof(Word), words[1]);
}

// The first, the middle and the last of one to three bytes: all of them in order, some repeated where there
// are fewer.
template <class To>
QZSTRING_KERNEL To loadThree(const void* text, std::size_t bytes) {
    const auto* const byte = static_cast<const unsigned char*>(text);
    const typename VectorOf<std::uint32_t, sizeof(To)>::Type words = {
        byte[0] | std::uint32_t{byte[bytes / 2]} << 8 | std::uint32_t{byte[bytes - 1]} << 16};
    return load<To>(&words);
}

// A vector of this element.
template <class Char, std::size_t kBytes, std::make_unsigned_t<Char> kValue>
QZSTRING_KERNEL Vector<Char, kBytes> everywhere() {
    constexpr std::uint32_t kOnes = sizeof(Char) == 1 ? 0x01010101 : sizeof(Char) == 2 ? 0x00010001 : 1;
    return lanesOf<kOnes * kValue, Vector<Char, kBytes>>();
}

// The bit that makes the case of ASCII letters, where elements are those from kFirst on: moved to the lowest
// values of signed elements, they take one comparison.
template <class Char, std::size_t kBytes, char kFirst>
QZSTRING_KERNEL Vector<Char, kBytes> caseBits(Vector<Char, kBytes> elements) {
    using Element = std::make_unsigned_t<Char>;
    using Signed = typename VectorOf<std::make_signed_t<Char>, kBytes>::Type;
    constexpr auto kLowest = static_cast<Element>(std::numeric_limits<std::make_signed_t<Char>>::min());
    const auto moved = elements + everywhere<Char, kBytes, static_cast<Element>(kLowest - kFirst)>();
    const auto isLetter =
        Signed(moved) < Signed(everywhere<Char, kBytes, static_cast<Element>(kLowest + 26)>());
    return Vector<Char, kBytes>(isLetter) & everywhere<Char, kBytes, 0x20>();
}

}  // namespace qzString::kernels::characters

#endif
