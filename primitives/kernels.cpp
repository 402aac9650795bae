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
    const Kernels* const* row = kBestFirst;
    while (!(*row)->usable())
        ++row;
    chosenKernels.store(*row, std::memory_order_relaxed);
    return **row;
}

void useKernels(const Kernels* pinned) {
    chosenKernels.store(pinned, std::memory_order_relaxed);
}

}  // namespace qzString::kernels
