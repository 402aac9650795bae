// The inputs of the benchmarks as data, and how a measurement is registered: each checks its result before it
// is timed.
#ifndef QZSTRING_BENCHMARKS_INPUTS_H
#define QZSTRING_BENCHMARKS_INPUTS_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "string/IString.h"

namespace inputs {

struct Corpus {
    const char* name;
    const char* text;
};

inline constexpr Corpus kCorpora[] = {
    {"ascii", "The quick brown fox jumps over the lazy dog, and then some more plain text follows. "},
    {"french",
     "Dès Noël, où un zéphyr haï me vêt de glaçons, je dîne d’exquis rôtis de bœuf au kir, à l’aÿ. "},
    {"cyrillic", "Съешь же ещё этих мягких французских булок, да выпей чаю. Широкая электрификация. "},
    {"cjk", "いろはにほへとちりぬるを、我輩は猫である。名前はまだ無い。天地玄黃宇宙洪荒。"},
    {"emoji", "😀😃😄😁😆😅🤣😂🙂🙃😉😊😇🥰😍🤩"},
    {"mixed", "Hello, мир! 漢字かな 😀 naïve café — déjà vu; Ελληνικά 🎉 ok. "},
};

inline constexpr std::size_t kSizes[] = {1, 4, 16, 64, 1024, 65536, 1048576};

// The corpus repeated to that many bytes, cut at a character and filled with ASCII.
inline std::string text(const Corpus& corpus, std::size_t size) {
    std::string bytes;
    while (bytes.size() < size)
        bytes += corpus.text;
    std::size_t end = size;
    while (end > 0 && (static_cast<unsigned char>(bytes[end]) & 0xC0) == 0x80)
        --end;
    bytes.resize(end);
    bytes.resize(size, 'x');
    return bytes;
}

inline std::wstring wide(const std::string& utf8) {
    const qzString::IString s(utf8.c_str(), qzString::kUTF8);
    return {s.asWChar(), s.length()};
}

inline void check(bool right, const std::string& name) {
    if (!right) {
        std::fprintf(stderr, "%s: wrong result\n", name.c_str());
        std::exit(1);
    }
}

// Registers `run` under family/operation/input/size/who; `bytes` are what the rate counts.
template <class Run>
void add(const std::string& name, std::size_t bytes, Run run) {
    benchmark::RegisterBenchmark(name.c_str(), [bytes, run](benchmark::State& state) {
        for (auto _ : state)
            run();
        state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    });
}

}  // namespace inputs

#endif
