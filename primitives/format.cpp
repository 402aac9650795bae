#include "primitives/format.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <new>
#include <string>

#include "common/scratch.h"

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

// The length of a whole output; where it is negative, what went wrong.
struct Measured {
    int length;
    int error;
};

// By a stream that grows in memory, which has room for anything. `entry` is errno as the directive %m is to
// see it.
Measured measureWide(const wchar_t* format, va_list arguments, int entry) {
    wchar_t* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_wmemstream(&text, &size);
    if (stream == nullptr)
        return {-1, ENOMEM};
    errno = entry;
    Measured measured{std::vfwprintf(stream, format, arguments), errno};
    if (std::fclose(stream) != 0 && measured.length >= 0)
        measured = {-1, errno};
    std::free(text);
    return measured;
}

// The length of the whole wide output, or what failed() says. vswprintf does not tell: it fails alike for
// want of room and for good.
int wideLength(const wchar_t* format, va_list arguments, int entry) {
    va_list again;
    va_copy(again, arguments);
    Measured measured = measureWide(format, arguments, entry);
    // An ENOMEM that was there before may still be the caller's: glibc leaves errno alone where it cannot
    // convert a character.
    if (measured.length < 0 && measured.error == ENOMEM && entry == ENOMEM)
        measured = measureWide(format, again, 0);
    va_end(again);
    return measured.length >= 0 ? measured.length : failed(measured.error);
}

// No output is longer than INT_MAX, and some platforms refuse a larger size.
std::size_t usableSize(unsigned int size) {
    return size > INT_MAX ? INT_MAX : size;
}

// Where output goes that may not fit: what does not is formatted ten times slower, as the C library goes on
// counting, or a stream has to. A small buffer is therefore tried in one that most output fits.
constexpr std::size_t kAmple = 65536;  // bytes, where the stack has them
constexpr std::size_t kSpare = 4096;

std::size_t ampleBytes() {
    return qzString::stackHasRoom(kAmple) ? kAmple : kSpare;
}

template <class Char>
class Room {
  public:
    Room(Char* buffer, unsigned int size, void* ample, std::size_t bytes)
        : buffer_(buffer),
          size_(usableSize(size)),
          ample_(static_cast<Char*>(ample)),
          ampleSize_(bytes / sizeof(Char)) {}

    [[nodiscard]] Char* begin() { return isSmall() ? ample_ : buffer_; }
    [[nodiscard]] std::size_t size() const { return isSmall() ? ampleSize_ : size_; }

    // The result for output of that length, which is in the room where it fits there.
    [[nodiscard]] int take(int length) {
        if (length == INT_MAX)
            return kNever;  // a size of more is not usable
        const auto count = static_cast<std::size_t>(length);
        if (count >= size_)
            return doesNotFit(length);
        if (isSmall())
            std::char_traits<Char>::copy(buffer_, ample_, count + 1);
        return length;
    }

  private:
    [[nodiscard]] bool isSmall() const { return size_ < ampleSize_; }

    Char* buffer_;
    std::size_t size_;
    Char* ample_;
    std::size_t ampleSize_;
};

}  // namespace

int KT_vsnprintf(char* buffer, unsigned int size, const char* format, va_list arguments) {
    if (format == nullptr)
        return kNever;
    const int entry = errno;
    const std::size_t ample = ampleBytes();
    Room<char> room(buffer, size, __builtin_alloca(ample), ample);
    errno = entry;
    const int length = std::vsnprintf(room.begin(), room.size(), format, arguments);
    if (length < 0)
        return failed(errno);
    errno = entry;
    return room.take(length);
}

int KT_vswprintf(wchar_t* buffer, unsigned int size, const wchar_t* format, va_list arguments) {
    if (format == nullptr)
        return kNever;
    const int entry = errno;
    const std::size_t ample = ampleBytes();
    Room<wchar_t> room(buffer, size, __builtin_alloca(ample), ample);
    errno = entry;
    va_list first;
    va_copy(first, arguments);
    int length = std::vswprintf(room.begin(), room.size(), format, first);
    const int error = errno;
    va_end(first);
    if (length < 0) {
        length = wideLength(format, arguments, entry);
        if (length < 0)
            return length;
        // Output that would have fitted failed for another reason.
        if (static_cast<std::size_t>(length) < room.size())
            return failed(error);
    }
    errno = entry;
    return room.take(length);
}
