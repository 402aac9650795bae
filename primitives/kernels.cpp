#include "primitives/kernels.h"

#include <iterator>

namespace qzString::kernels {
namespace {

constexpr const Kernels* kBestFirst[] = {
#if QZSTRING_VECTORS_X86
    &kAvx512,
    &kAvx2,
#elif QZSTRING_VECTORS_NEON
    &kNeon,
#endif
    &kPortable,
};

// Threads that choose at the same time choose alike, so that a relaxed store is enough.
const Kernels& choose() {
    const Kernels& best = firstUsable(kBestFirst);
    chosenKernels.store(&best, std::memory_order_relaxed);
    return best;
}

// The entry that chooses a row and calls the row's own.
template <auto kEntry>
struct Choosing;
template <class Result, class... Arguments, bool kNoexcept,
          Result (*Kernels::*kEntry)(Arguments...) noexcept(kNoexcept)>
struct Choosing<kEntry> {
    static Result call(Arguments... arguments) noexcept(kNoexcept) {
        return (choose().*kEntry)(arguments...);
    }
};

bool neverUsable() {
    return false;
}

}  // namespace

const Kernels kChoosing = {
    "choosing",
    neverUsable,
    Choosing<&Kernels::decode>::call,
    Choosing<&Kernels::decodedLength>::call,
    Choosing<&Kernels::encode>::call,
    Choosing<&Kernels::encodedLength>::call,
    Choosing<&Kernels::wellFormed>::call,
    Choosing<&Kernels::isAsciiNarrow>::call,
    Choosing<&Kernels::isAsciiWide>::call,
    Choosing<&Kernels::toLowerNarrow>::call,
    Choosing<&Kernels::toUpperNarrow>::call,
    Choosing<&Kernels::toLowerWide>::call,
    Choosing<&Kernels::toUpperWide>::call,
    Choosing<&Kernels::compareNoCaseNarrow>::call,
    Choosing<&Kernels::compareNoCaseWide>::call,
    Choosing<&Kernels::hashLanes>::call,
};

Rows<Kernels> allKernels() {
    return {std::begin(kBestFirst), std::end(kBestFirst)};
}

void useKernels(const Kernels* pinned) {
    chosenKernels.store(pinned != nullptr ? pinned : &kChoosing, std::memory_order_relaxed);
}

}  // namespace qzString::kernels
