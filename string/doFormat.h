// The growth loop of formatting. Internal, not installed.
//
// Formats into a buffer of `sizeHint` characters, then of 1,024 more at each further attempt, until the
// output fits, the formatter says that it never can, or the size would pass 2^32. Sizes that the formatter
// has already shown to be too small are passed over; a formatter that says no more than that (-1) gets every
// size in turn.
//
// Returns true when the output is not empty: `target` is then what stands before its first NUL. Otherwise
// `target` is untouched. `format` may be the target's own text. `arguments` is only copied. Allocation
// failures pass through, with `target` as it was.
#ifndef QZSTRING_STRING_DOFORMAT_H
#define QZSTRING_STRING_DOFORMAT_H

#include <cstdarg>
#include <string>

#include "common/export.h"

namespace qzString {

bool doFormat(std::string& target, const char* format, va_list arguments, unsigned int sizeHint)
    QZSTRING_PRINTF(2, 0);
bool doFormat(std::wstring& target, const wchar_t* format, va_list arguments, unsigned int sizeHint);

}  // namespace qzString

#endif
