// What the tests of the kernels and scanners share: the versions that this processor can run, each pinned in
// turn.
#ifndef QZSTRING_TESTS_EVERYKERNEL_H
#define QZSTRING_TESTS_EVERYKERNEL_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "primitives/kernels.h"
#include "string/scanner.h"

namespace support {

using qzString::kernels::Kernels;

inline std::vector<const Kernels*> usableKernels() {
    std::vector<const Kernels*> usable;
    for (const Kernels* kernels : qzString::kernels::allKernels()) {
        if (kernels->usable())
            usable.push_back(kernels);
    }
    return usable;
}

template <class Function>
void forEveryKernel(Function function) {
    for (const Kernels* kernels : usableKernels()) {
        SCOPED_TRACE(kernels->name);
        qzString::kernels::useKernels(kernels);
        function(*kernels);
    }
    qzString::kernels::useKernels(nullptr);
}

// A body runs once for each version.
class EveryKernel : public ::testing::TestWithParam<const Kernels*> {
  protected:
    void SetUp() override { qzString::kernels::useKernels(GetParam()); }
    void TearDown() override { qzString::kernels::useKernels(nullptr); }
};

inline std::string kernelName(const ::testing::TestParamInfo<const Kernels*>& instance) {
    return instance.param->name;
}

// The same for the scanners.
template <class Function>
void forEveryScanner(Function function) {
    for (const qzString::search::Scanner* scanner : qzString::search::allScanners()) {
        if (!scanner->usable())
            continue;
        SCOPED_TRACE(scanner->name);
        qzString::search::useScanner(scanner);
        function(*scanner);
    }
    qzString::search::useScanner(nullptr);
}

}  // namespace support

#endif
