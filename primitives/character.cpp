#include "primitives/character.h"

#include <cstring>

#include "primitives/characterPortable.h"
#include "primitives/characterTables.h"
#include "primitives/kernels.h"

namespace qzString {

namespace detail {

bool isWideSpace(wchar_t c) noexcept {
    const auto u = static_cast<char32_t>(c);
    for (const auto& range : tables::kSpaceRanges) {
        if (u < range[0])
            return false;
        if (u <= range[1])
            return true;
    }
    return false;
}

wchar_t toWideLower(wchar_t c) noexcept {
    return portable::mapWide<portable::Lower>(c);
}

wchar_t toWideUpper(wchar_t c) noexcept {
    return portable::mapWide<portable::Upper>(c);
}

}  // namespace detail

namespace portable {

int compareFolded(const char* a, const char* b) noexcept {
    const char lowerA = toLower(*a);
    const char lowerB = toLower(*b);
    return std::memcmp(&lowerA, &lowerB, 1);
}

// 1 or -1, as wmemcmp gives in the C libraries; a call of it would wait for the two to be stored.
int compareFolded(const wchar_t* a, const wchar_t* b) noexcept {
    const wchar_t lowerA = toLower(*a);
    const wchar_t lowerB = toLower(*b);
    return static_cast<int>(lowerA > lowerB) - static_cast<int>(lowerA < lowerB);
}

}  // namespace portable

bool isAscii(const char* text, std::size_t count) noexcept {
    return kernels::active().isAsciiNarrow(text, count);
}

bool isAscii(const wchar_t* text, std::size_t count) noexcept {
    return kernels::active().isAsciiWide(text, count);
}

void toLower(char* text, std::size_t count) noexcept {
    kernels::active().toLowerNarrow(text, count);
}

void toLower(wchar_t* text, std::size_t count) noexcept {
    kernels::active().toLowerWide(text, count);
}

void toUpper(char* text, std::size_t count) noexcept {
    kernels::active().toUpperNarrow(text, count);
}

void toUpper(wchar_t* text, std::size_t count) noexcept {
    kernels::active().toUpperWide(text, count);
}

int compareNoCase(const char* a, std::size_t aCount, const char* b, std::size_t bCount) noexcept {
    return kernels::active().compareNoCaseNarrow(a, aCount, b, bCount);
}

int compareNoCase(const wchar_t* a, std::size_t aCount, const wchar_t* b, std::size_t bCount) noexcept {
    return kernels::active().compareNoCaseWide(a, aCount, b, bCount);
}

}  // namespace qzString
