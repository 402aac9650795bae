#include "string/doFormat.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <memory>

#include "primitives/format.h"
#include "string/argumentList.h"

namespace qzString {
namespace {

constexpr std::uint64_t kGrowth = 1024;
constexpr std::uint64_t kGrowthLimit = 0xFFFFFBFF;  // a size from here up is the last

// The next size after `size` in the series that is not known to be too small for `needed` characters.
std::uint64_t nextSize(std::uint64_t size, std::uint64_t needed) {
    const std::uint64_t next = size + kGrowth;
    return needed <= next ? next : next + (needed - next + kGrowth - 1) / kGrowth * kGrowth;
}

template <class Char, class Formatter>
bool grow(std::basic_string<Char>& target, const Char* format, va_list arguments, unsigned int sizeHint,
          Formatter formatter) {
    const int entry = errno;  // for the directive %m
    std::uint64_t size = sizeHint;
    for (;;) {
        const std::unique_ptr<Char[]> buffer(new Char[size]);
        va_list attempt;
        va_copy(attempt, arguments);
        const ListGuard ends(attempt);
        errno = entry;
        const int length = formatter(buffer.get(), static_cast<unsigned int>(size), format, attempt);
        if (length > 0)
            target.assign(buffer.get());
        if (length >= 0)
            return length > 0;
        if (length == INT_MIN || size >= kGrowthLimit)
            return false;
        // With its terminator, where -1 says nothing of the length.
        const std::uint64_t needed = length == -1 ? 0 : static_cast<std::uint64_t>(-std::int64_t{length}) + 1;
        size = nextSize(size, needed);
    }
}

}  // namespace

bool doFormat(std::string& target, const char* format, va_list arguments, unsigned int sizeHint) {
    return grow(target, format, arguments, sizeHint, KT_vsnprintf);
}

bool doFormat(std::wstring& target, const wchar_t* format, va_list arguments, unsigned int sizeHint) {
    return grow(target, format, arguments, sizeHint, KT_vswprintf);
}

}  // namespace qzString
