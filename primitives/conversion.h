// Code conversion between wide text and multibyte text, in UTF-8 or in the current locale's encoding.
//
// All converters share one contract:
// - Lengths and capacities count elements of their own text: bytes of multibyte text, `wchar_t` of wide text.
//   Sources need no terminator and destinations get none. A NUL is a character like any other. Source and
//   destination must not overlap. A source may be null where its length is 0.
// - With a null destination and a capacity of 0 nothing is written and the result is the length that the
//   whole text needs. With a destination the result is the number of elements written; that length suffices
//   as capacity.
// - Conversion is strict and whole. Where the text is not well-formed, has a character that the encoding
//   lacks, does not fit the capacity, or needs more than 2^32 - 1 elements, the result is 0; the destination
//   then holds nothing of use, but no element beyond the capacity is touched.
// - `*ok`, where given, becomes true when the whole text converted, else false. It alone tells an empty text
//   (0, true) from a failure (0, false).
// - No state survives a call. Nothing is allocated, but the C library may load what it needs at the first
//   conversion in a locale; where it has no memory for that, text beyond ASCII does not convert there.
//
// Well-formed UTF-8 is as in the Unicode Standard, table 3-7: no overlong forms, no surrogates, nothing above
// U+10FFFF. A byte order mark is a character. Well-formed wide text has no surrogates and nothing above
// U+10FFFF where `wchar_t` has 4 bytes, and paired surrogates only where it has 2.
#ifndef QZSTRING_PRIMITIVES_CONVERSION_H
#define QZSTRING_PRIMITIVES_CONVERSION_H

#include "common/export.h"

namespace qzString {

// `substitute`: each maximal ill-formed part becomes one U+FFFD (Unicode Standard, section 3.9, "U+FFFD
// Substitution of Maximal Subparts") and the conversion goes on; `*ok` then says that there was none: only
// (0, false) is a failure.
QZSTRING_EXPORT unsigned int UTF8toWCS(const char* source, unsigned int sourceLength, wchar_t* destination,
                                       unsigned int capacity, bool substitute, bool* ok);
QZSTRING_EXPORT unsigned int WCStoUTF8(const wchar_t* source, unsigned int sourceLength, char* destination,
                                       unsigned int capacity, bool* ok);

// The bytes of the longest well-formed beginning of `text`: `length` where all of it is well-formed, else the
// offset of the first byte of the first ill-formed part.
[[nodiscard]] QZSTRING_EXPORT unsigned int UTF8validLength(const char* text, unsigned int length);

// The encoding is that of the calling thread's current locale; where it is UTF-8, these are the two above. In
// others the text starts and ends in the initial shift state.
QZSTRING_EXPORT unsigned int MBStoWCS(const char* source, unsigned int sourceLength, wchar_t* destination,
                                      unsigned int capacity, bool* ok);
QZSTRING_EXPORT unsigned int WCStoMBS(const wchar_t* source, unsigned int sourceLength, char* destination,
                                      unsigned int capacity, bool* ok);

}  // namespace qzString

#endif
