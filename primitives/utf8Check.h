// The tables of the vector check of UTF-8: Keiser and Lemire, "Validating UTF-8 in less than one instruction
// per byte", Software: Practice and Experience 51 (2021). Internal, not installed.
//
// A bit stands for a way in which two bytes in a row can be wrong. Three tables, indexed by the high and by
// the low nibble of the first byte and by the high nibble of the second, are ANDed: the bit survives exactly
// where the two are wrong in that way. kTwoContinuations is an error except where a character of three or
// four bytes wants a continuation byte there; a byte that wants one and does not get it shows by the same
// bit.
#ifndef QZSTRING_PRIMITIVES_UTF8CHECK_H
#define QZSTRING_PRIMITIVES_UTF8CHECK_H

#include <cstddef>

#include "primitives/kernels.h"

namespace qzString::utf8 {

inline constexpr unsigned char kTooShort = 1;    // a lead byte, and no continuation
inline constexpr unsigned char kTooLong = 2;     // ASCII, then a continuation
inline constexpr unsigned char kOverlong3 = 4;   // E0 80..9F
inline constexpr unsigned char kTooLarge = 8;    // F4 90..BF, F5.. 90..BF
inline constexpr unsigned char kSurrogate = 16;  // ED A0..BF
inline constexpr unsigned char kOverlong2 = 32;  // C0, C1
// One bit for both, as their second bytes are the same and the low nibbles of their first bytes are not.
inline constexpr unsigned char kOverlong4 = 64;    // F0 80..8F
inline constexpr unsigned char kTooLargeLow = 64;  // F5.. 80..8F
inline constexpr unsigned char kTwoContinuations = 128;
inline constexpr unsigned char kAnyLow = kTooShort | kTooLong | kTwoContinuations;  // whatever the low nibble

inline constexpr unsigned char kFirstHigh[16] = {
    kTooLong,
    kTooLong,
    kTooLong,
    kTooLong,
    kTooLong,
    kTooLong,
    kTooLong,
    kTooLong,
    kTwoContinuations,
    kTwoContinuations,
    kTwoContinuations,
    kTwoContinuations,
    kTooShort | kOverlong2,
    kTooShort,
    kTooShort | kOverlong3 | kSurrogate,
    kTooShort | kTooLarge | kTooLargeLow | kOverlong4,
};
inline constexpr unsigned char kFirstLow[16] = {
    kAnyLow | kOverlong2 | kOverlong3 | kOverlong4,
    kAnyLow | kOverlong2,
    kAnyLow,
    kAnyLow,
    kAnyLow | kTooLarge,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow | kSurrogate,
    kAnyLow | kTooLarge | kTooLargeLow,
    kAnyLow | kTooLarge | kTooLargeLow,
};
// Of every continuation byte, 80..8F, 90..9F or A0..BF.
inline constexpr unsigned char kContinued = kTooLong | kOverlong2 | kTwoContinuations;
inline constexpr unsigned char kSecondHigh[16] = {
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kContinued | kOverlong3 | kTooLargeLow | kOverlong4,
    kContinued | kOverlong3 | kTooLarge,
    kContinued | kSurrogate | kTooLarge,
    kContinued | kSurrogate | kTooLarge,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
};

// Whether the text before `end` stops inside a character; `begin` bounds the look back. At most three bytes
// matter.
inline bool endsInside(const char* begin, const char* end) {
    const auto before = [end](int n) { return static_cast<unsigned char>(end[-n]); };
    const auto length = end - begin;
    return (length >= 1 && before(1) >= 0xC0) || (length >= 2 && before(2) >= 0xE0) ||
           (length >= 3 && before(3) >= 0xF0);
}

inline bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Where the last character before `end` begins; the text before it is well-formed but for where it ends, and
// not empty.
inline const char* lastCharacter(const char* end) {
    do
        --end;
    while (isContinuation(*end));
    return end;
}

// How far a check came that counts characters by their lead bytes, without the one that goes on past its end.
inline kernels::Progress withoutCutCharacter(const char* source, kernels::Progress reached) {
    const char* const at = source + reached.read;
    if (!endsInside(source, at))
        return reached;
    return {static_cast<std::size_t>(lastCharacter(at) - source), reached.written - 1};
}

}  // namespace qzString::utf8

#endif
