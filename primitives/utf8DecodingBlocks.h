// Decoding UTF-8 in blocks, over a Vector of utf8Blocks.h. Internal, not installed.
//
// Every position of a block gets the low, middle and high byte of the code point that would end there.
// Selecting those positions at which a character does end takes a table (utf8Shuffles.h). Where a block ends
// characters at every third or every fourth place only, a loop of its own decodes them while they last:
// eight at a time, one in each lane, checked there by their marks and their values.
//
// Too little room ends a conversion at once, a fault is noticed at its end: it succeeds as a whole or not at
// all. Stores are whole vectors while what is still to come is sure to fill them; near the end they are of
// the characters that count.
#ifndef QZSTRING_PRIMITIVES_UTF8DECODINGBLOCKS_H
#define QZSTRING_PRIMITIVES_UTF8DECODINGBLOCKS_H

#include <cstddef>
#include <cstdint>

#include "primitives/inline.h"
#include "primitives/kernels.h"
#include "primitives/output.h"
#include "primitives/utf8Blocks.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::blocks {

// ---- Blocks ----

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

// ---- Runs of characters of one width ----

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

// Whether a run begins at the block's first byte, or right behind the end of one character that began before
// the block: what stands before it is then whole and written, and nothing of the run is. The text before
// must have no fault: lastCharacter() would step past it otherwise.
QZSTRING_KERNEL bool beginsAt(const Run& run, const char* source, const char* block) {
    if (run.start == 0)
        return !utf8::isContinuation(*block) && !utf8::endsInside(source, block);
    return utf8::isContinuation(*block) && utf8::lastCharacter(block) == block + run.start;
}

// ---- Texts ----

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

// Stores nothing where the text is ill-formed or does not fit.
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
std::size_t decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity) {
    if (length > Vector::kBlock)
        return decodeVectors<Vector>(source, length, destination, capacity);
    if (length > kPortable)
        return decodeShort<Vector>(source, length, destination, capacity);
    const Progress reached = utf8::decode(source, length, destination, capacity);
    return reached.read == length ? reached.written : output::kFailure;
}

}  // namespace qzString::kernels::blocks

// The function that utf8Kernels.h declares for an instruction set.
#define QZSTRING_DEFINE_UTF8_DECODE(Vector)                                                                 \
    unsigned int decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity, \
                        bool* ok) {                                                                         \
        return output::report(blocks::decode<Vector>(source, length, destination, capacity), ok);           \
    }

#endif
