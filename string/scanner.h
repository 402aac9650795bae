// The inner loops of all searches: they find the few places of a text that are worth a closer look.
// Internal, not installed.
//
// One version per instruction set, each a row of a table and in the file of its name; the first that the
// processor can run is chosen at the first search. scanBlocks.h has what the versions share.
#ifndef QZSTRING_STRING_SCANNER_H
#define QZSTRING_STRING_SCANNER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/rows.h"
#include "common/vectors.h"

namespace qzString::search {

inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// A bit for every wide character: those below 256 have one of their own, the others share one with those that
// are equal to them modulo 256.
struct alignas(64) SetFilter {
    static constexpr int kExact = 256;
    std::uint32_t words[2 * kExact / 32] = {};

    static constexpr bool isExact(wchar_t c) { return static_cast<std::uint32_t>(c) < kExact; }
    void add(wchar_t c) { words[wordOf(c)] |= std::uint32_t{1} << (c & 31); }
    [[nodiscard]] bool passes(wchar_t c) const { return (words[wordOf(c)] >> (c & 31) & 1) != 0; }

  private:
    static constexpr std::size_t wordOf(wchar_t c) {
        return static_cast<std::uint32_t>(c) / 32 % 8 + (isExact(c) ? 0 : 8);
    }
};

// Scans text for the places at which two elements of a needle stand where they should, and for the characters
// of a set, as far as its filter tells, or for the members of a small one.
struct Scanner {
    const char* name;
    bool (*usable)();
    // The lowest position below `count` at which `text[position + first]` is `a` and `text[position +
    // second]` is `b`, or `count`; and the highest, or kNotFound. Nothing is read but `count` elements from
    // each of the two offsets on.
    std::size_t (*nextNarrow)(const char* text, std::size_t count, std::size_t first, char a,
                              std::size_t second, char b);
    std::size_t (*nextWide)(const wchar_t* text, std::size_t count, std::size_t first, wchar_t a,
                            std::size_t second, wchar_t b);
    std::size_t (*lastNarrow)(const char* text, std::size_t count, std::size_t first, char a,
                              std::size_t second, char b);
    std::size_t (*lastWide)(const wchar_t* text, std::size_t count, std::size_t first, wchar_t a,
                            std::size_t second, wchar_t b);
    // The lowest position below `count` whose character passes, or `count`; and the highest, or kNotFound.
    std::size_t (*nextInSet)(const wchar_t* text, std::size_t count, const SetFilter& filter);
    std::size_t (*lastInSet)(const wchar_t* text, std::size_t count, const SetFilter& filter);
    // The same for a small set given by its members: every character is compared with every member.
    std::size_t (*nextOfFew)(const wchar_t* text, std::size_t count, const wchar_t* members,
                             std::size_t memberCount);
    std::size_t (*lastOfFew)(const wchar_t* text, std::size_t count, const wchar_t* members,
                             std::size_t memberCount);
};

// The one in use, chosen at the first search.
inline std::atomic<const Scanner*> chosenScanner{nullptr};
const Scanner& chooseScanner();
inline const Scanner& active() {
    const Scanner* const chosen = chosenScanner.load(std::memory_order_relaxed);
    return chosen != nullptr ? *chosen : chooseScanner();
}

// Every version compiled in, usable here or not.
Rows<Scanner> allScanners();

// Pins a usable version; null chooses anew. For tests: not while other threads are searching.
void useScanner(const Scanner* pinned);

#if QZSTRING_VECTORS_X86
extern const Scanner kAvx2Scanner;
extern const Scanner kAvx512Scanner;
#elif QZSTRING_VECTORS_NEON
extern const Scanner kNeonScanner;
#endif

}  // namespace qzString::search

#endif
