// Formatting into a string: output of several lengths, narrow and wide. The peers give a fresh standard
// string; the C library's needs two calls for that, one to measure.
#include <cstdio>
#include <cwchar>
#include <memory>

#include "inputs.h"
#if defined(PEER_FMT)
#include <fmt/printf.h>
#include <fmt/xchar.h>
#endif

namespace {

using qzString::CString;
using qzString::IString;

// A line of `length` characters of text with numbers around it.
void addFormats(std::size_t length) {
    const auto word = std::make_shared<std::string>(length, 'w');
    const std::string name = "format/narrow/" + std::to_string(length);
    const std::string expected = "[" + *word + "] 42 of 1000, 0x2a";
    const auto text = std::make_shared<CString>();
    const auto format = [=] { return text->format("[%s] %d of %u, 0x%x", word->c_str(), 42, 1000U, 42U); };
    inputs::check(format() == expected.size() && text->asChar() == expected, name);
    inputs::add(name + "/qzString", expected.size(), [=] { benchmark::DoNotOptimize(format()); });
    inputs::add(name + "/snprintf", expected.size(), [=] {
        const auto print = [&](char* to, std::size_t size) {
            return std::snprintf(to, size, "[%s] %d of %u, 0x%x", word->c_str(), 42, 1000U, 42U);
        };
        std::string result(static_cast<std::size_t>(print(nullptr, 0)), '\0');
        print(result.data(), result.size() + 1);
        benchmark::DoNotOptimize(result.data());
    });
#if defined(PEER_FMT)
    inputs::add(name + "/fmt", expected.size(), [=] {
        benchmark::DoNotOptimize(fmt::sprintf("[%s] %d of %u, 0x%x", word->c_str(), 42, 1000U, 42U).size());
    });
#endif
}

void addWideFormats(std::size_t length) {
    const auto word = std::make_shared<std::wstring>(length, L'w');
    const std::string name = "format/wide/" + std::to_string(length);
    const std::wstring expected = L"[" + *word + L"] 42 of 1000, 0x2a";
    const auto text = std::make_shared<IString>();
    const auto format = [=] { return text->format(L"[%ls] %d of %u, 0x%x", word->c_str(), 42, 1000U, 42U); };
    inputs::check(format() == expected.size() && text->asWChar() == expected, name);
    const std::size_t bytes = expected.size() * sizeof(wchar_t);
    inputs::add(name + "/qzString", bytes, [=] { benchmark::DoNotOptimize(format()); });
    // Wide output cannot be measured: the peer is told that it will fit.
    inputs::add(name + "/swprintf", bytes, [=] {
        std::wstring result(length + 64, L'\0');
        const int written = std::swprintf(result.data(), result.size(), L"[%ls] %d of %u, 0x%x",
                                          word->c_str(), 42, 1000U, 42U);
        result.resize(static_cast<std::size_t>(written));
        benchmark::DoNotOptimize(result.data());
    });
#if defined(PEER_FMT)
    inputs::add(name + "/fmt", bytes, [=] {
        benchmark::DoNotOptimize(fmt::sprintf(L"[%ls] %d of %u, 0x%x", word->c_str(), 42, 1000U, 42U).size());
    });
#endif
}

}  // namespace

int main(int argc, char** argv) {
    for (const std::size_t length : {10, 200, 1000, 10000}) {
        addFormats(length);
        addWideFormats(length);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
