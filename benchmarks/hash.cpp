// Hashing: throughput, and latency as a chain in which each text depends on the hash before.
#include <memory>
#include <string_view>

#include "inputs.h"
#include "primitives/hash.h"
#if defined(PEER_RAPIDHASH)
#include <rapidhash.h>
#endif
#if defined(PEER_XXHASH)
#include <xxhash.h>
#endif

namespace {

template <class Hash>
void addHash(const char* who, Hash hash) {
    for (const std::size_t size : {1, 4, 8, 16, 24, 48, 100, 256, 512, 1024, 4096, 65536}) {
        const auto text = std::make_shared<std::string>(inputs::text(inputs::kCorpora[0], size));
        const std::string input = std::to_string(size) + '/' + who;
        inputs::check(hash(text->data(), size) == hash(std::string(*text).data(), size), input);
        inputs::add("hash/throughput/" + input, size,
                    [=] { benchmark::DoNotOptimize(hash(text->data(), size)); });
        const auto last = std::make_shared<std::uint64_t>(0);
        inputs::add("hash/latency/" + input, size, [=] {
            (*text)[0] = static_cast<char>(*last);
            *last = hash(text->data(), size);
        });
    }
}

}  // namespace

int main(int argc, char** argv) {
    addHash("qzString", [](const char* text, std::size_t size) {
        return qz::hashfunction(reinterpret_cast<const unsigned char*>(text), static_cast<int>(size));
    });
    addHash("std", [](const char* text, std::size_t size) {
        return std::uint64_t{std::hash<std::string_view>()({text, size})};
    });
#if defined(PEER_RAPIDHASH)
    addHash("rapidhash", [](const char* text, std::size_t size) { return rapidhash(text, size); });
#endif
#if defined(PEER_XXHASH)
    addHash("xxh3",
            [](const char* text, std::size_t size) { return std::uint64_t{XXH3_64bits(text, size)}; });
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
