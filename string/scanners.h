// The rows of the scanner table, and what each source needs to make one from its vectors. Internal, not
// installed.
#ifndef QZSTRING_STRING_SCANNERS_H
#define QZSTRING_STRING_SCANNERS_H

#include "common/vectors.h"
#include "string/search.h"

namespace qzString::search {

#if QZSTRING_VECTORS_X86
extern const Scanner kAvx2Scanner;
extern const Scanner kAvx512Scanner;
#elif QZSTRING_VECTORS_NEON
extern const Scanner kNeonScanner;
#endif

// One function of the table: runs the loop, and QZSTRING_LEAVE() what the instruction set wants at the end.
#define QZSTRING_SCANNER_FUNCTION(name, loop, Vector)                                                   \
    QZSTRING_TARGET std::size_t name(const Vector::Element* text, std::size_t count, std::size_t first, \
                                     Vector::Element a, std::size_t second, Vector::Element b) {        \
        const std::size_t found = loop<Vector>(text, count, first, a, second, b);                       \
        QZSTRING_LEAVE();                                                                               \
        return found;                                                                                   \
    }
#define QZSTRING_SCANNER_FUNCTIONS(Narrow, Wide)        \
    QZSTRING_SCANNER_FUNCTION(nextNarrow, next, Narrow) \
    QZSTRING_SCANNER_FUNCTION(nextWide, next, Wide)     \
    QZSTRING_SCANNER_FUNCTION(lastNarrow, last, Narrow) \
    QZSTRING_SCANNER_FUNCTION(lastWide, last, Wide)

#define QZSTRING_SET_FUNCTION(name, loop, Vector)                                                       \
    QZSTRING_TARGET std::size_t name(const wchar_t* text, std::size_t count, const SetFilter& filter) { \
        const std::size_t found = loop(text, count, Vector(filter));                                    \
        QZSTRING_LEAVE();                                                                               \
        return found;                                                                                   \
    }
#define QZSTRING_SET_FUNCTIONS(Vector)                    \
    QZSTRING_SET_FUNCTION(nextInSet, nextPassing, Vector) \
    QZSTRING_SET_FUNCTION(lastInSet, lastPassing, Vector)

}  // namespace qzString::search

#endif
