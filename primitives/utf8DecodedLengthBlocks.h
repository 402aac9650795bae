// The size query of decoding UTF-8 in blocks, over a Vector of utf8Blocks.h. Internal, not installed.
//
// Blocks are checked as in decoding, and the characters that begin in them counted. The query stops at a
// fault, and portable code finds the place of it.
#ifndef QZSTRING_PRIMITIVES_UTF8DECODEDLENGTHBLOCKS_H
#define QZSTRING_PRIMITIVES_UTF8DECODEDLENGTHBLOCKS_H

#include <cstddef>
#include <cstdint>

#include "primitives/inline.h"
#include "primitives/kernels.h"
#include "primitives/output.h"
#include "primitives/utf8Blocks.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::blocks {

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

// Four blocks in a row are checked at once.
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

// Nothing read and written where the text is ill-formed.
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

// The functions that utf8Kernels.h declares for an instruction set.
#define QZSTRING_DEFINE_UTF8_DECODED_LENGTH(Vector)                                     \
    unsigned int decodedLength(const char* source, std::size_t length, bool* ok) {      \
        return utf8::Whole<blocks::decodedLength<Vector>>::convert(source, length, ok); \
    }                                                                                   \
    Progress wellFormed(const char* source, std::size_t length) {                       \
        return blocks::decodedLength<Vector>(source, length);                           \
    }

#endif
