// Bounded printf-style formatting that tells output that does not fit from a format that can never succeed.
//
// The directives are those of the platform's vsnprintf and vswprintf. `size` counts characters of the buffer,
// the terminating NUL included; 0 is allowed, then with any pointer. The list is consumed.
//
// Returns
// - 0 or more: the number of characters written before the terminating NUL;
// - a negative number other than INT_MIN: the output does not fit. It is minus the output's length without
//   the terminator, or -1 where that length is 0. The buffer's content means nothing;
// - INT_MIN: no buffer would do. The format is null or the platform refuses it, a character cannot be
//   converted, or the output has INT_MAX characters or more.
// Raises std::bad_alloc where the platform's formatter runs out of memory. Output that is formatted, or does
// not fit, leaves errno as it was.
//
// Complexity: one pass over the output. Uses up to 64 KiB of stack, 4 where the thread has no room for that;
// it asks once in each thread, which may take memory. What fits neither that nor the buffer is formatted ten
// times slower, and wide output takes a second pass then, and memory for all of it.
#ifndef QZSTRING_PRIMITIVES_FORMAT_H
#define QZSTRING_PRIMITIVES_FORMAT_H

#include <cstdarg>

#include "common/export.h"

QZSTRING_EXPORT int KT_vsnprintf(char* buffer, unsigned int size, const char* format, va_list arguments)
    QZSTRING_PRINTF(3, 0);
QZSTRING_EXPORT int KT_vswprintf(wchar_t* buffer, unsigned int size, const wchar_t* format,
                                 va_list arguments);

#endif
