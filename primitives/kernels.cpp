#include "primitives/kernels.h"

#include <iterator>

namespace qzString::kernels {
namespace {

constexpr const Kernels* kBestFirst[] = {
#if QZSTRING_KERNELS_X86
    &kAvx512,
    &kAvx2,
#endif
    &kPortable,
};

}  // namespace

KernelRange allKernels() {
    return {std::begin(kBestFirst), std::end(kBestFirst)};
}

// Threads that choose at the same time choose alike, so that a relaxed store is enough.
const Kernels& chooseKernels() {
    const Kernels* best = &kPortable;
    for (const Kernels* row : kBestFirst) {
        if (row->usable()) {
            best = row;
            break;
        }
    }
    chosenKernels.store(best, std::memory_order_relaxed);
    return *best;
}

void useKernels(const Kernels* pinned) {
    chosenKernels.store(pinned, std::memory_order_relaxed);
}

}  // namespace qzString::kernels
