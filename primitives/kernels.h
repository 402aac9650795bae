// The kernels: the loops over text that are worth a version of their own per instruction set. Internal, not
// installed.
//
// Each version is one row of a table, best first, the portable one last and always usable. The first row
// that the processor can run is chosen at the first call of an entry, and for good; there is no static
// initialiser. Tests and benchmarks iterate over allKernels() and may pin one with useKernels().
//
// Contract of every kernel: nothing is read outside the source, whatever the alignment, and nothing written
// past the capacity nor, where the whole text converts, past the count returned; on return the upper halves
// of the vector registers are clean (the caller's scalar and SSE code would otherwise pay for them). The
// public functions do nothing but jump to an entry of the table, so that a short text costs one call.
#ifndef QZSTRING_PRIMITIVES_KERNELS_H
#define QZSTRING_PRIMITIVES_KERNELS_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/rows.h"
#include "common/vectors.h"

namespace qzString::kernels {

// How far a conversion came: read == length means that the whole text converted.
struct Progress {
    std::size_t read;     // source elements
    std::size_t written;  // destination elements, or those it would take
};
constexpr Progress operator+(const Progress& a, const Progress& b) {
    return {a.read + b.read, a.written + b.written};
}

struct Kernels {
    const char* name;
    bool (*usable)();

    // The strict conversions of primitives/conversion.h, with their flag; the length forms are those without
    // a destination.
    unsigned int (*decode)(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity,
                           bool* ok);
    unsigned int (*decodedLength)(const char* source, std::size_t length, bool* ok);
    unsigned int (*encode)(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity,
                           bool* ok);
    unsigned int (*encodedLength)(const wchar_t* source, std::size_t length, bool* ok);
    // The longest well-formed beginning of UTF-8, in bytes and in characters.
    Progress (*wellFormed)(const char* source, std::size_t length);

    // The run forms of primitives/character.h; noexcept as those are, which lets them jump here.
    bool (*isAsciiNarrow)(const char* text, std::size_t count) noexcept;
    bool (*isAsciiWide)(const wchar_t* text, std::size_t count) noexcept;
    void (*toLowerNarrow)(char* text, std::size_t count) noexcept;
    void (*toUpperNarrow)(char* text, std::size_t count) noexcept;
    void (*toLowerWide)(wchar_t* text, std::size_t count) noexcept;
    void (*toUpperWide)(wchar_t* text, std::size_t count) noexcept;
    int (*compareNoCaseNarrow)(const char* a, std::size_t aCount, const char* b, std::size_t bCount) noexcept;
    int (*compareNoCaseWide)(const wchar_t* a, std::size_t aCount, const wchar_t* b,
                             std::size_t bCount) noexcept;

    // The part of the long-text hash that reads the text: hashStripes.h has the algorithm. The lanes are
    // results only; `length` is above 64.
    void (*hashLanes)(std::uint64_t lanes[8], const unsigned char* input, std::size_t length);
};

// Every version compiled in, usable here or not.
Rows<Kernels> allKernels();

// Pins a usable version; null chooses anew. For tests and benchmarks: not while other threads are in the
// library.
void useKernels(const Kernels* pinned);

// The version in use: at first a row whose entries choose one and go on in it. To ask in every call whether
// one is chosen would cost the shortest a tenth. What is kept of active() over several calls may be that
// first row, which chooses again each time.
extern const Kernels kChoosing;
inline std::atomic<const Kernels*> chosenKernels{&kChoosing};
inline const Kernels& active() {
    return *chosenKernels.load(std::memory_order_relaxed);
}

// The rows, each in the file of its name; compiled in where the architecture has the instructions.
extern const Kernels kPortable;
#if QZSTRING_VECTORS_X86
extern const Kernels kAvx2;
extern const Kernels kAvx512;
#elif QZSTRING_VECTORS_NEON
extern const Kernels kNeon;
#endif

}  // namespace qzString::kernels

#endif
