// UTF-8 in blocks, over any vector: what decoding (utf8DecodingBlocks.h) and its size query
// (utf8DecodedLengthBlocks.h) in AVX2 and NEON share. Internal, not installed; included by one source per
// instruction set, which defines QZSTRING_TARGET and QZSTRING_KERNEL (the attributes that let a function use
// the instructions, and that make it a part of a kernel) and passes its Vector, below.
//
// A block is loaded as it is and as seen from 1, 2 and 3 positions on; pairs of bytes are checked by three
// look-ups (utf8Check.h).
//
// Block edges: a character belongs to the block in which it ends; the loads reach back to its first bytes.
// The first block has zeros before it; the last one is the text's last bytes, some of which the block before
// had, too. A text of up to a block has zeros on both sides, a very short one is the portable code's.
//
// Vector has the block's size kBlock (16 or 32) and the types Constants (of a loop), Block (in a register),
// Bytes (a block and its three views) and Faults, and as static functions, masks having a bit for every byte
// of a block:
//   Block loadShort(source, length)                  9 bytes up to a block, and zeros
//   Bytes loadAround(block)                          reads from 3 bytes before the block on
//   Bytes loadFirst(block), fromZeros(Block)         takes what is before the block for zeros
//   Faults noFaults(), faultsOf(bytes, constants), either(faults, faults); bool any(faults)
//   std::uint32_t starts(block, constants)           the bytes that are no continuation; of a Block as well
//   bool isAscii(block), isAsciiFour(block)          of one block, or a Block; of four in a row
//   void widen(block, destination)                   a block of ASCII
//   void widenShort(source, length, destination)     of 9 bytes up to that
//   void store(bytes, ends, destination, constants)  the characters that end there, up to 8 elements more
//   void storeExactly(bytes, ends, destination, count, constants)  `count` characters, and no element more
//   std::size_t count(mask)
//   bool storeEight<width>(source, destination)      8 characters of that width, or false and nothing; reads
//                                                    32 bytes at most
//   void leave()                                     before the kernel returns
#ifndef QZSTRING_PRIMITIVES_UTF8BLOCKS_H
#define QZSTRING_PRIMITIVES_UTF8BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "primitives/inline.h"

#ifndef QZSTRING_TARGET
#error "included after avx2.h or neon.h"
#endif

namespace qzString::kernels::blocks {

// ---- Long text ----

// The last block: the last kBlock bytes of the text, of which only the `rest` that no block has had yet are
// valid. A text that is hardly longer than a block is copied to where zeros stand before it.
template <class Vector>
struct Last {
    typename Vector::Bytes bytes;
    std::uint32_t starts;
    std::uint32_t valid;

    QZSTRING_KERNEL Last(const char* source, std::size_t rest, std::size_t length,
                         const typename Vector::Constants& constant) {
        constexpr std::size_t kBlock = Vector::kBlock;
        constexpr auto kAll = static_cast<std::uint32_t>((std::uint64_t{1} << kBlock) - 1);
        char copy[3 + kBlock + 2] = {};  // zeros to look back on, and the longest such text
        const char* block = source + length - kBlock;
        if (length < kBlock + 3) {
            block = copy + sizeof copy - kBlock;
            std::memcpy(copy + sizeof copy - length, source, length);
        }
        bytes = Vector::loadAround(block);
        starts = Vector::starts(block, constant);
        valid = kAll << (kBlock - rest) & kAll;
    }
};

// ---- Short text ----

// Up to that many bytes, constants in vectors cost more than they save.
constexpr std::size_t kPortable = 8;

// The bytes of a text of 9 to 16, and zeros behind them.
struct Words {
    std::uint64_t first, second;
};

inline Words loadWords(const char* text, std::size_t length) {
    Words words;
    std::memcpy(&words.first, text, 8);
    std::memcpy(&words.second, text + length - 8, 8);
    words.second >>= 8 * (16 - length);
    return words;
}

// A text of up to a block, in a vector with zeros behind it.
template <class Vector>
struct Short {
    std::uint32_t valid;
    typename Vector::Block block;

    QZSTRING_KERNEL Short(const char* source, std::size_t length)
        : valid(static_cast<std::uint32_t>((std::uint64_t{1} << length) - 1)),
          block(Vector::loadShort(source, length)) {}
};

}  // namespace qzString::kernels::blocks

#endif
