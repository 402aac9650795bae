// The portable kernels: standard C++ only, right everywhere, and the reference for the others.
#include <algorithm>
#include <iterator>

#include "primitives/characterPortable.h"
#include "primitives/kernels.h"
#include "primitives/utf8Portable.h"
#define QZSTRING_TARGET  // the base set
#include "primitives/hashStripes.h"

namespace qzString::kernels {
namespace {

struct PortableLanes {
    std::uint64_t* lanes;

    void add(const unsigned char* stripe, const unsigned char* secret) {
        for (std::size_t i = 0; i < 8; ++i) {
            const std::uint64_t word = qz::detail::readWord<std::uint64_t>(stripe + 8 * i);
            const std::uint64_t keyed = word ^ qz::detail::readWord<std::uint64_t>(secret + 8 * i);
            lanes[i ^ 1] += word;
            lanes[i] += (keyed & 0xFFFFFFFF) * (keyed >> 32);
        }
    }
    void scramble(const unsigned char* secret) {
        for (std::size_t i = 0; i < 8; ++i)
            lanes[i] = (lanes[i] ^ lanes[i] >> 47 ^ qz::detail::readWord<std::uint64_t>(secret + 8 * i)) *
                       hashing::kPrime32[0];
    }
};

void hashLanes(std::uint64_t lanes[8], const unsigned char* input, std::size_t length) {
    std::copy(std::begin(hashing::kFirstLanes), std::end(hashing::kFirstLanes), lanes);
    PortableLanes portable{lanes};
    hashing::feed(portable, input, length);
}

}  // namespace

const Kernels kPortable = {
    "portable",
    alwaysUsable,
    utf8::Whole<utf8::decode<wchar_t>>::convert,
    utf8::Whole<utf8::decodedLength<wchar_t>>::convert,
    utf8::Whole<utf8::encode<wchar_t>>::convert,
    utf8::Whole<utf8::encodedLength<wchar_t>>::convert,
    utf8::decodedLength<wchar_t>,
    portable::isAsciiRun<char>,
    portable::isAsciiRun<wchar_t>,
    portable::mapRun<portable::Lower>,
    portable::mapRun<portable::Upper>,
    portable::mapRun<portable::Lower>,
    portable::mapRun<portable::Upper>,
    portable::compareNoCaseRun<char>,
    portable::compareNoCaseRun<wchar_t>,
    hashLanes,
};

}  // namespace qzString::kernels
