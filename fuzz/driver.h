// Drives both classes from a sequence of bytes, and a plain model of standard strings beside them. The body
// of the libFuzzer target, and of the tests that replay its corpus and random sequences.
#ifndef QZSTRING_FUZZ_DRIVER_H
#define QZSTRING_FUZZ_DRIVER_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

// Interprets the bytes as operations on a few strings. Ends the process, with a message, where a string and
// its model part.
void drive(const std::uint8_t* data, std::size_t size);

}  // namespace fuzz

#endif
