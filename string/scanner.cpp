// The portable scanner, and the choice of one.
#include "string/scanner.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

namespace qzString::search {
namespace {

template <class Char>
std::size_t nextPortable(const Char* text, std::size_t count, std::size_t first, Char a, std::size_t second,
                         Char b) {
    for (std::size_t at = 0; at < count; ++at) {
        const Char* const found = std::char_traits<Char>::find(text + at + first, count - at, a);
        if (found == nullptr)
            break;
        at = static_cast<std::size_t>(found - text) - first;
        if (text[at + second] == b)
            return at;
    }
    return count;
}

template <class Char>
std::size_t lastPortable(const Char* text, std::size_t count, std::size_t first, Char a, std::size_t second,
                         Char b) {
    for (std::size_t at = count; at-- > 0;) {
        if (text[at + first] == a && text[at + second] == b)
            return at;
    }
    return kNotFound;
}

std::size_t nextInSetPortable(const wchar_t* text, std::size_t count, const SetFilter& filter) {
    std::size_t at = 0;
    while (at < count && !filter.passes(text[at]))
        ++at;
    return at;
}

std::size_t lastInSetPortable(const wchar_t* text, std::size_t count, const SetFilter& filter) {
    std::size_t end = count;
    while (end > 0 && !filter.passes(text[end - 1]))
        --end;
    return end - 1;
}

std::size_t nextOfFewPortable(const wchar_t* text, std::size_t count, const wchar_t* members,
                              std::size_t memberCount) {
    const wchar_t* const end = text + count;
    return static_cast<std::size_t>(std::find_first_of(text, end, members, members + memberCount) - text);
}

std::size_t lastOfFewPortable(const wchar_t* text, std::size_t count, const wchar_t* members,
                              std::size_t memberCount) {
    return std::wstring_view(text, count).find_last_of({members, memberCount});
}

const Scanner kPortableScanner = {
    "portable",         alwaysUsable,          nextPortable<char>, nextPortable<wchar_t>,
    lastPortable<char>, lastPortable<wchar_t>, nextInSetPortable,  lastInSetPortable,
    nextOfFewPortable,  lastOfFewPortable};

const Scanner* const kBestFirst[] = {
#if QZSTRING_VECTORS_X86
    &kAvx512Scanner,
    &kAvx2Scanner,
#elif QZSTRING_VECTORS_NEON
    &kNeonScanner,
#endif
    &kPortableScanner,
};

}  // namespace

const Scanner& chooseScanner() {
    const Scanner& best = firstUsable(kBestFirst);
    chosenScanner.store(&best, std::memory_order_relaxed);
    return best;
}

Rows<Scanner> allScanners() {
    return {std::begin(kBestFirst), std::end(kBestFirst)};
}

void useScanner(const Scanner* pinned) {
    chosenScanner.store(pinned, std::memory_order_relaxed);
}

}  // namespace qzString::search
