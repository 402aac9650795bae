#include "fuzz/driver.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::drive(data, size);
    return 0;
}
