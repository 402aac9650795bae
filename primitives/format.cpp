#include "primitives/format.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <new>

namespace {

constexpr int kNever = INT_MIN;

// The result for output that is `length` characters long and did not fit.
int doesNotFit(int length) {
    return length == 0 ? -1 : -length;
}

// The result where the platform's formatter failed for another reason than the room.
int failed(int error) {
    if (error == ENOMEM)
        throw std::bad_alloc();
    return kNever;
}

// The length of the whole wide output, or what failed() says. vswprintf does not tell: it fails alike for
// want of room and for good. A stream that grows in memory has room for anything. `entry` is errno as the
// directive %m is to see it.
int wideLength(const wchar_t* format, va_list arguments, int entry) {
    wchar_t* text = nullptr;
    std::size_t length = 0;
    std::FILE* const stream = open_wmemstream(&text, &length);
    if (stream == nullptr)
        return failed(ENOMEM);
    errno = entry;
    int written = std::vfwprintf(stream, format, arguments);
    int error = errno;
    if (std::fclose(stream) != 0 && written >= 0) {
        written = -1;
        error = errno;
    }
    std::free(text);
    return written >= 0 ? written : failed(error);
}

// No output is longer than INT_MAX, and some platforms refuse a larger size.
std::size_t usableSize(unsigned int size) {
    return size > INT_MAX ? INT_MAX : size;
}

}  // namespace

// Output that is formatted, or does not fit, leaves errno as it was.

int KT_vsnprintf(char* buffer, unsigned int size, const char* format, va_list arguments) {
    if (format == nullptr)
        return kNever;
    const int entry = errno;
    const std::size_t usable = usableSize(size);
    const int length = std::vsnprintf(buffer, usable, format, arguments);
    if (length < 0)
        return failed(errno);
    errno = entry;
    return static_cast<std::size_t>(length) < usable ? length : doesNotFit(length);
}

int KT_vswprintf(wchar_t* buffer, unsigned int size, const wchar_t* format, va_list arguments) {
    if (format == nullptr)
        return kNever;
    const int entry = errno;
    const std::size_t usable = usableSize(size);
    int error = 0;
    if (usable > 0) {
        va_list first;
        va_copy(first, arguments);
        const int length = std::vswprintf(buffer, usable, format, first);
        error = errno;
        errno = entry;
        va_end(first);
        if (length >= 0 && static_cast<std::size_t>(length) < usable)
            return length;
    }
    const int length = wideLength(format, arguments, entry);
    if (length < 0)
        return length;
    errno = entry;
    // Output that would have fitted failed for another reason.
    return static_cast<std::size_t>(length) < usable ? failed(error) : doesNotFit(length);
}
