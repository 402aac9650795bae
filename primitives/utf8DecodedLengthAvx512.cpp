// The length of decoded UTF-8 in AVX-512: the check of every block (utf8BytesAvx512.h), and a count of the
// bytes that begin a character. Of longer text four blocks are checked at once, and ASCII is passed over
// four blocks at a time. The portable code finds the place of a fault, for the query for the well-formed
// beginning.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/inline.h"
#include "primitives/output.h"
#include "primitives/utf8BytesAvx512.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::avx512 {
namespace {

using output::kFailure;

// ASCII of at least this many bytes is worth taking along cache lines (measured on Zen 5).
constexpr std::size_t kWorthAligningAscii = 8 * kBlock;

constexpr CheckConstants kConstants;

QZSTRING_KERNEL CheckConstants inRegisters() {
    CheckConstants constants;
    constants.copyToRegisters(inMemory(kConstants));
    return constants;
}

QZSTRING_KERNEL std::size_t countContinuations(__m512i bytes, __mmask64 valid,
                                               const CheckConstants& constant) {
    return static_cast<std::size_t>(
        _mm_popcnt_u64(_mm512_mask_cmplt_epi8_mask(valid, bytes, constant.continuationEnd)));
}

// The length of the ASCII text at the beginning, counted in steps of four blocks; in long text these begin
// with a cache line.
QZSTRING_KERNEL std::size_t asciiSteps(const char* text, std::size_t length) {
    std::size_t at = 0;
    if (length >= kWorthAligningAscii) {
        if (!isAsciiBlock(text))
            return 0;
        at = toCacheLine(text);
    }
    for (; length - at >= 4 * kBlock; at += 4 * kBlock) {
        const __m512i two =
            _mm512_or_si512(_mm512_loadu_si512(text + at), _mm512_loadu_si512(text + at + kBlock));
        const __m512i all = _mm512_ternarylogic_epi32(two, _mm512_loadu_si512(text + at + 2 * kBlock),
                                                      _mm512_loadu_si512(text + at + 3 * kBlock), 0xFE);
        if (_mm512_movepi8_mask(all) != 0)
            break;
    }
    return at;
}

// Checks and counts a text of more than one block, from `at` on, before which all is ASCII. Four blocks in a
// row are checked at once, and so is what is left after them; before a fault it returns how far it came.
QZSTRING_TARGET QZSTRING_NOINLINE Progress measureLong(const char* source, std::size_t length,
                                                       std::size_t at) {
    const CheckConstants constant = inRegisters();
    Progress checked{at, at};
    __m512i faults = _mm512_setzero_si512();
    std::size_t continued = 0;  // continuation bytes since `checked`
    if (at == 0) {
        at = firstPart(source, length);
        const Bytes bytes = loadFirst(_mm512_loadu_si512(source));
        faults = faultsOf(bytes, constant);
        continued = countContinuations(bytes.at, lowBits(at), constant);
    }
    // Tested before a run of ASCII is skipped: substitution asks anew behind every fault.
    bool sound = !anyFault(faults);
    while (sound && length - at >= 4 * kBlock) {
        __m512i blocks[4];
        for (std::size_t n = 0; n < 4; ++n)
            blocks[n] = kept(_mm512_loadu_si512(source + at + n * kBlock));
        const __m512i all =
            _mm512_ternarylogic_epi32(_mm512_or_si512(blocks[0], blocks[1]), blocks[2], blocks[3], 0xFE);
        if (_mm512_movepi8_mask(all) == 0) {
            faults = _mm512_or_si512(faults, incompleteBefore(source + at));
            at += 4 * kBlock;
        } else {
            for (std::size_t n = 0; n < 4; ++n, at += kBlock) {
                const char* const block = source + at;
                const Bytes bytes{blocks[n], _mm512_loadu_si512(block - 1), _mm512_loadu_si512(block - 2),
                                  _mm512_loadu_si512(block - 3)};
                faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
                continued += countContinuations(bytes.at, kAll, constant);
            }
        }
        sound = !anyFault(faults);
        if (sound) {
            checked = {at, checked.written + (at - checked.read) - continued};
            continued = 0;
        }
    }
    if (sound) {
        for (; length - at > kBlock; at += kBlock) {
            const Bytes bytes = loadWhole(source + at);
            faults = _mm512_or_si512(faults, faultsOf(bytes, constant));
            continued += countContinuations(bytes.at, kAll, constant);
        }
        const Bytes bytes = loadLast(source, length);
        faults =
            _mm512_ternarylogic_epi32(faults, faultsOf(bytes, constant), incompleteAtEnd(bytes.at), 0xFE);
        continued += countContinuations(bytes.at, ~lowBits(kBlock - (length - at)), constant);
        sound = !anyFault(faults);
    }
    _mm256_zeroupper();
    if (sound)
        return {length, checked.written + (length - checked.read) - continued};
    return utf8::withoutCutCharacter(source, checked);
}

// A text of up to a block, of which the first and only one is at hand.
QZSTRING_KERNEL std::size_t measureOnly(__m512i block, std::size_t length) {
    const Bytes bytes = loadFirst(block);
    const CheckConstants& constant = inMemory(kConstants);
    const bool faulty = anyFault(_mm512_or_si512(faultsOf(bytes, constant), incompleteAtEnd(bytes.at)));
    const std::size_t characters = leaveWith(length - countContinuations(bytes.at, kAll, constant));
    return faulty ? kFailure : characters;
}

// From 49 bytes on the text is loaded before it is asked for ASCII, which saves the two loads of that
// question.
QZSTRING_KERNEL std::size_t measureShort(const char* source, std::size_t length) {
    if (length > 48) {
        const __m512i block = loadUpTo64(source, length);
        if (QZSTRING_LIKELY(_mm512_movepi8_mask(block) == 0)) {
            _mm256_zeroupper();
            return length;
        }
        return measureOnly(block, length);
    }
    if (QZSTRING_LIKELY(isAsciiShort(source, length))) {
        _mm256_zeroupper();
        return length;
    }
    return measureOnly(loadUpTo48(source, length), length);
}

// What is left of a text's check when all but its last block has been seen: `continued` are the continuation
// bytes so far, `faults` what was wrong.
QZSTRING_KERNEL unsigned int finishMeasuring(const char* source, std::size_t length, __m512i faults,
                                             std::size_t continued, const CheckConstants& constant,
                                             bool* ok) {
    const Bytes last = loadLast(source, length);
    const bool faulty =
        anyFault(_mm512_ternarylogic_epi32(faults, faultsOf(last, constant), incompleteAtEnd(last.at), 0xFE));
    continued += countContinuations(last.at, ~lowBits((0 - length) % kBlock), constant);
    const std::size_t characters = leaveWith(length - continued);
    return output::report(faulty ? kFailure : characters, ok);
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureTwoBlocks(const char* source, std::size_t length,
                                                                bool* ok) {
    const __m512i front = _mm512_loadu_si512(source);
    if (_mm512_movepi8_mask(_mm512_or_si512(front, _mm512_loadu_si512(source + length - kBlock))) == 0) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    const CheckConstants& constant = inMemory(kConstants);
    return finishMeasuring(source, length, faultsOf(loadFirst(front), constant),
                           countContinuations(front, kAll, constant), constant, ok);
}

QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureFourBlocks(const char* source, std::size_t length,
                                                                 bool* ok) {
    if (isAsciiUpToFour(source, length)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    const CheckConstants& constant = inMemory(kConstants);
    const Bytes first = loadFirst(_mm512_loadu_si512(source));
    const Bytes second = loadWhole(source + kBlock);
    __m512i faults = _mm512_or_si512(faultsOf(first, constant), faultsOf(second, constant));
    std::size_t continued =
        countContinuations(first.at, kAll, constant) + countContinuations(second.at, kAll, constant);
    if (length > 3 * kBlock) {
        const Bytes third = loadWhole(source + 2 * kBlock);
        faults = _mm512_or_si512(faults, faultsOf(third, constant));
        continued += countContinuations(third.at, kAll, constant);
    }
    return finishMeasuring(source, length, faults, continued, constant, ok);
}

QZSTRING_NOINLINE unsigned int measureFrom(const char* source, std::size_t length, std::size_t at, bool* ok) {
    const Progress checked = measureLong(source, length, at);
    return output::report(checked.read == length ? checked.written : kFailure, ok);
}

// More than four blocks.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int measureBlocks(const char* source, std::size_t length,
                                                             bool* ok) {
    const std::size_t ascii = asciiSteps(source, length);
    if (length - ascii < 4 * kBlock && isAsciiToEnd(source, ascii, length)) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    return measureFrom(source, length, ascii, ok);
}

}  // namespace

// An entry, as avx512.h describes them.
QZSTRING_TARGET unsigned int decodedLength(const char* source, std::size_t length, bool* ok) {
    if (QZSTRING_LIKELY(length <= kBlock))
        return output::report(measureShort(source, length), ok);
    if (length <= 2 * kBlock)
        return measureTwoBlocks(source, length, ok);
    return length <= 4 * kBlock ? measureFourBlocks(source, length, ok) : measureBlocks(source, length, ok);
}

// The portable code finds the place of a fault.
Progress wellFormed(const char* source, std::size_t length) {
    const Progress checked = length <= kBlock ? Progress{0, 0} : measureLong(source, length, 0);
    return checked + utf8::decodedLength<wchar_t>(source + checked.read, length - checked.read);
}

}  // namespace qzString::kernels::avx512

#endif
