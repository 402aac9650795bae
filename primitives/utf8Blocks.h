// Decoding UTF-8 in blocks, over any vector: what AVX2 and NEON share. Internal, not installed; included by
// one source per instruction set, which defines QZSTRING_TARGET and QZSTRING_KERNEL (the attributes that let
// a function use the instructions, and that make it a part of a kernel) and passes its Vector, below.
//
// A block is loaded as it is and as seen from 1, 2 and 3 positions on; pairs of bytes are checked by three
// look-ups (utf8Check.h); every position gets the low, middle and high byte of the code point that would end
// there. Selecting those positions at which a character does end takes a table: for each mask of eight
// positions, the byte shuffle that moves their 16-bit values to the front. Where a block ends characters at
// every third or every fourth place only, a loop of its own decodes them while they last: eight at a time,
// one in each lane, checked there by their marks and their values.
//
// Block edges: a character is formed in the block in which it ends; the loads reach back to its first bytes.
// The first block has zeros before it; the last one is the text's last bytes, some of which the block before
// had, too. Too little room ends a conversion at once, a fault is noticed at its end: it succeeds as a
// whole or not at all. The size query stops at a fault, which the portable code finds the place of. Stores
// are whole vectors while what is still to come is sure to fill them; near the end they are of the
// characters that count. A text of up to a block has zeros on both sides, a very short one is the portable
// code's.
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

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "primitives/inline.h"
#include "primitives/kernels.h"
#include "primitives/output.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::blocks {

// ---- Tables ----

using Shuffle = std::array<unsigned char, 16>;

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
// Moves the 16-bit elements of a mask to the front.
inline constexpr std::array<Shuffle, 256> kSelections = makeSelections();

// ---- Decoding ----

// Stores the `count` characters that end in a block. Returns false where there is no room. Where enough
// follows, what is stored too much will be written over.
template <class Vector>
QZSTRING_KERNEL bool store(const typename Vector::Bytes& bytes, std::uint32_t ends, std::size_t count,
                           wchar_t* destination, std::size_t room, bool muchFollows,
                           const typename Vector::Constants& constant) {
    if (muchFollows && room >= count + 8)
        Vector::store(bytes, ends, destination, constant);
    else if (room >= count)
        Vector::storeExactly(bytes, ends, destination, count, constant);
    else
        return false;
    return true;
}

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

// Widens whole blocks of ASCII while they last and fit, and returns how many bytes that were. Long runs are
// brought to the destination's cache lines behind the first block: a store across two lines costs twice.
template <class Vector>
QZSTRING_KERNEL std::size_t storeAsciiRun(const char* source, std::size_t length, wchar_t* destination,
                                          std::size_t room) {
    const std::size_t most = length < room ? length : room;
    std::size_t at = 0;
    std::size_t first = 0;
    if (most >= 8 * Vector::kBlock && Vector::isAscii(source)) {
        Vector::widen(source, destination);
        first = Vector::kBlock;
        at = (0 - reinterpret_cast<std::uintptr_t>(destination) / sizeof(wchar_t)) % 16;
    }
    for (; most - at >= Vector::kBlock && Vector::isAscii(source + at); at += Vector::kBlock)
        Vector::widen(source + at, destination + at);
    return at < first ? first : at;
}

// The length of the ASCII text at the beginning, counted in steps of four blocks.
template <class Vector>
QZSTRING_KERNEL std::size_t asciiSteps(const char* text, std::size_t length) {
    std::size_t at = 0;
    while (length - at >= 4 * Vector::kBlock && Vector::isAsciiFour(text + at))
        at += 4 * Vector::kBlock;
    return at;
}

// Whether what is behind `at` is ASCII; in a text of a block or more.
template <class Vector>
QZSTRING_KERNEL bool isAsciiToEnd(const char* source, std::size_t at, std::size_t length) {
    for (; length - at > Vector::kBlock; at += Vector::kBlock) {
        if (!Vector::isAscii(source + at))
            return false;
    }
    return Vector::isAscii(source + length - Vector::kBlock);
}

// Decodes eight characters of that many bytes at a time while they last, fit and are well-formed. Returns how
// many characters that were.
template <class Vector, std::size_t kWidth>
QZSTRING_KERNEL std::size_t storeRun(const char* source, std::size_t length, wchar_t* destination,
                                     std::size_t room) {
    std::size_t count = 0;
    while (room - count >= 8 && length - kWidth * count >= 32 &&
           Vector::template storeEight<kWidth>(source + kWidth * count, destination + count))
        count += 8;
    return count;
}

// A block that, by the places where its characters end, has only such of three or only such of four bytes:
// where the first of them begins, counted from the block, and their width; else 0.
struct Run {
    int start;
    int width;
};

template <std::size_t kBlock>
QZSTRING_KERNEL Run findRun(std::uint32_t ends) {
    constexpr auto kAll = static_cast<std::uint32_t>((std::uint64_t{1} << kBlock) - 1);
    const unsigned first = ends == 0 ? 0 : static_cast<unsigned>(__builtin_ctz(ends)) & 3;
    // Every third bit, or every fourth.
    const int width = ends == (0x49249249U << first & kAll)   ? 3
                      : ends == (0x11111111U << first & kAll) ? 4
                                                              : 0;
    return {static_cast<int>(first) + 1 - width, width};
}

// Whether what stands before the run is whole and written, and nothing of the run is: it begins with the
// block, or with the one character that has begun before the block and goes on in it. The text before the
// block has no fault: the last character would else be looked for beyond it.
QZSTRING_KERNEL bool beginsAt(const Run& run, const char* source, const char* block) {
    if (run.start == 0)
        return !utf8::isContinuation(*block) && !utf8::endsInside(source, block);
    return utf8::isContinuation(*block) && utf8::lastCharacter(block) == block + run.start;
}

// How far decoding has come.
struct Decoding {
    std::size_t at = 0;
    std::size_t written = 0;
    bool failed = false;

    QZSTRING_KERNEL void advance(std::size_t bytes, std::size_t characters) {
        at += bytes;
        written += characters;
    }
};

// Decodes up to a run of characters of one width, which is looked for from `runsFrom` on: goes back to where
// it begins, and returns that width; else 0, at the end of the text or without success. Faults are noticed
// when it returns: each block would wait for the answer.
template <class Vector>
QZSTRING_TARGET QZSTRING_NOINLINE int decodeBlocks(const char* source, std::size_t length,
                                                   wchar_t* destination, std::size_t capacity,
                                                   std::size_t runsFrom, Decoding& decoding) {
    constexpr std::size_t kBlock = Vector::kBlock;
    const typename Vector::Constants constant;
    Decoding now = decoding;
    auto faults = Vector::noFaults();
    int width = 0;
    while (now.at < length) {
        const char* const block = source + now.at;
        const std::size_t rest = length - now.at;
        const std::size_t room = capacity - now.written;
        if (rest >= kBlock && Vector::isAscii(block) && !utf8::endsInside(source, block)) {
            const std::size_t run = storeAsciiRun<Vector>(block, rest, destination + now.written, room);
            now.failed = run == 0;
            if (now.failed)
                break;
            now.advance(run, run);
            continue;
        }
        typename Vector::Bytes bytes;
        std::uint32_t ends = 0;
        if (now.at >= 3 && rest > kBlock) {
            ends = Vector::starts(block + 1, constant);
            // Of such a run few characters end in a block: the count, needed anyway, spares looking for one.
            if (Vector::count(ends) <= kBlock / 3 + 1 && now.at >= runsFrom) {
                const Run run = findRun<kBlock>(ends);
                if (run.width != 0 && !Vector::any(faults) && beginsAt(run, source, block)) {
                    now.at += static_cast<std::size_t>(run.start);
                    width = run.width;
                    break;
                }
            }
            bytes = Vector::loadAround(block);
        } else if (rest > kBlock) {  // the first block
            ends = Vector::starts(block + 1, constant);
            bytes = Vector::loadFirst(block);
        } else {
            const Last<Vector> last(source, rest, length, constant);
            ends = (last.starts >> 1 | std::uint32_t{1} << (kBlock - 1)) & last.valid;
            bytes = last.bytes;
            now.failed = utf8::endsInside(source, source + length);
        }
        faults = Vector::either(faults, Vector::faultsOf(bytes, constant));
        // At least a character of every four bytes: 32 more hold the eight that a block may store too much.
        const std::size_t count = Vector::count(ends);
        if (!store<Vector>(bytes, ends, count, destination + now.written, room, rest >= kBlock + 32,
                           constant)) {
            now.failed = true;
            break;
        }
        now.advance(rest < kBlock ? rest : kBlock, count);
    }
    now.failed = now.failed || Vector::any(faults);
    decoding = now;
    Vector::leave();
    return width;
}

// Decodes blocks, and runs of characters of one width between them. Returns the number of characters, or
// kFailure.
template <class Vector>
QZSTRING_TARGET std::size_t decodeVectors(const char* source, std::size_t length, wchar_t* destination,
                                          std::size_t capacity) {
    // What is ASCII at the beginning, and all of a text of ASCII, without constants.
    Decoding decoding;
    const std::size_t ascii = storeAsciiRun<Vector>(source, length, destination, capacity);
    decoding.advance(ascii, ascii);
    if (ascii != 0 && length - ascii < Vector::kBlock && length <= capacity) {
        const std::size_t last = length - Vector::kBlock;
        if (Vector::isAscii(source + last)) {
            Vector::widen(source + last, destination + last);
            Vector::leave();
            return length;
        }
    }
    // Not in Decoding, of which what is stored here in parts would be loaded as a whole, and wait.
    std::size_t runsFrom = 0;
    while (const int width =
               decodeBlocks<Vector>(source, length, destination, capacity, runsFrom, decoding)) {
        const char* const from = source + decoding.at;
        const std::size_t rest = length - decoding.at;
        wchar_t* const to = destination + decoding.written;
        const std::size_t room = capacity - decoding.written;
        const std::size_t run = width == 3 ? storeRun<Vector, 3>(from, rest, to, room)
                                           : storeRun<Vector, 4>(from, rest, to, room);
        // None of fewer than eight, or where the text is ill-formed, or too near to the end for the loads and
        // stores of eight: the block that looked like one is decoded as any, with what goes on behind it.
        if (run == 0)
            runsFrom = decoding.at + 2 * Vector::kBlock;
        decoding.advance(run * static_cast<std::size_t>(width), run);
    }
    Vector::leave();
    return decoding.failed ? output::kFailure : decoding.written;
}

// What has been seen of a text that is measured.
template <class Vector>
struct Measure {
    typename Vector::Constants constant;
    typename Vector::Faults faults;
    std::size_t begun;  // characters

    QZSTRING_KERNEL explicit Measure(std::size_t ascii) : faults(Vector::noFaults()), begun(ascii) {}
    QZSTRING_KERNEL void add(const typename Vector::Bytes& bytes, std::uint32_t starts) {
        faults = Vector::either(faults, Vector::faultsOf(bytes, constant));
        begun += Vector::count(starts);
    }
    QZSTRING_KERNEL void add(const char* block) {
        add(Vector::loadAround(block), Vector::starts(block, constant));
    }
};

// The same without the stores. Four blocks in a row are checked at once.
template <class Vector>
QZSTRING_TARGET Progress measureVectors(const char* source, std::size_t length) {
    constexpr std::size_t kBlock = Vector::kBlock;
    std::size_t at = asciiSteps<Vector>(source, length);
    if (length >= kBlock && length - at < 4 * kBlock && isAsciiToEnd<Vector>(source, at, length)) {
        Vector::leave();
        return {length, length};
    }
    Measure<Vector> measure(at);
    Progress checked{at, at};
    while (at < length) {
        const std::size_t rest = length - at;
        if (at >= 3 && rest >= 4 * kBlock) {
            if (Vector::isAsciiFour(source + at) && !utf8::endsInside(source, source + at)) {
                const std::size_t run = asciiSteps<Vector>(source + at, rest);
                at += run;
                measure.begun += run;
            } else {
                QZSTRING_KEEP_LOOP
                for (std::size_t n = 0; n < 4; ++n, at += kBlock)
                    measure.add(source + at);
            }
        } else if (at >= 3 && rest >= kBlock) {
            measure.add(source + at);
            at += kBlock;
        } else if (rest >= kBlock) {  // the first block
            measure.add(Vector::loadFirst(source), Vector::starts(source, measure.constant));
            at += kBlock;
        } else {
            const Last<Vector> last(source, rest, length, measure.constant);
            measure.add(last.bytes, last.starts & last.valid);
            at = length;
        }
        if (Vector::any(measure.faults))
            break;
        checked = {at, measure.begun};
    }
    Vector::leave();
    return utf8::withoutCutCharacter(source, checked);
}

// ---- The kernels ----

// The query goes on in portable code before a fault; that has very short texts, too.

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

// A text of up to a block, in a vector with zeros before and behind it; a character that is cut off at the
// end is asked for. Where the text is ill-formed or does not fit, nothing is done.
template <class Vector>
struct Short {
    std::uint32_t valid;
    typename Vector::Block block;

    QZSTRING_KERNEL Short(const char* source, std::size_t length)
        : valid(static_cast<std::uint32_t>((std::uint64_t{1} << length) - 1)),
          block(Vector::loadShort(source, length)) {}
};

template <class Vector>
QZSTRING_TARGET std::size_t decodeShort(const char* source, std::size_t length, wchar_t* destination,
                                        std::size_t capacity) {
    const Short<Vector> text(source, length);
    std::size_t written = output::kFailure;
    if (Vector::isAscii(text.block)) {
        if (length <= capacity) {
            Vector::widenShort(source, length, destination);
            written = length;
        }
    } else if (!utf8::endsInside(source, source + length)) {
        const typename Vector::Constants constant;
        const typename Vector::Bytes bytes = Vector::fromZeros(text.block);
        const std::uint32_t starts = Vector::starts(text.block, constant);
        const std::uint32_t ends = (starts >> 1 | std::uint32_t{1} << (length - 1)) & text.valid;
        const std::size_t count = Vector::count(ends);
        if (!Vector::any(Vector::faultsOf(bytes, constant)) &&
            store<Vector>(bytes, ends, count, destination, capacity, false, constant))
            written = count;
    }
    Vector::leave();
    return written;
}

template <class Vector>
QZSTRING_TARGET Progress measureShort(const char* source, std::size_t length) {
    const Short<Vector> text(source, length);
    std::size_t count = output::kFailure;
    if (Vector::isAscii(text.block)) {
        count = length;
    } else if (!utf8::endsInside(source, source + length)) {
        const typename Vector::Constants constant;
        if (!Vector::any(Vector::faultsOf(Vector::fromZeros(text.block), constant)))
            count = Vector::count(Vector::starts(text.block, constant) & text.valid);
    }
    Vector::leave();
    return count == output::kFailure ? Progress{0, 0} : Progress{length, count};
}

template <class Vector>
std::size_t decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity) {
    if (length > Vector::kBlock)
        return decodeVectors<Vector>(source, length, destination, capacity);
    if (length > kPortable)
        return decodeShort<Vector>(source, length, destination, capacity);
    const Progress reached = utf8::decode(source, length, destination, capacity);
    return reached.read == length ? reached.written : output::kFailure;
}

template <class Vector>
Progress decodedLength(const char* source, std::size_t length) {
    Progress blocks{0, 0};
    if (length > Vector::kBlock)
        blocks = measureVectors<Vector>(source, length);
    else if (length > kPortable)
        blocks = measureShort<Vector>(source, length);
    if (blocks.read == length)
        return blocks;
    return blocks + utf8::decodedLength<wchar_t>(source + blocks.read, length - blocks.read);
}

}  // namespace qzString::kernels::blocks

// The functions that utf8Kernels.h declares for an instruction set, but for the encoders.
#define QZSTRING_DEFINE_UTF8_DECODERS(Vector)                                                               \
    unsigned int decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity, \
                        bool* ok) {                                                                         \
        return output::report(blocks::decode<Vector>(source, length, destination, capacity), ok);           \
    }                                                                                                       \
    unsigned int decodedLength(const char* source, std::size_t length, bool* ok) {                          \
        return utf8::Whole<blocks::decodedLength<Vector>>::convert(source, length, ok);                     \
    }                                                                                                       \
    Progress wellFormed(const char* source, std::size_t length) {                                           \
        return blocks::decodedLength<Vector>(source, length);                                               \
    }

#endif
