// Characters: the ASCII test, case mapping and comparison without case, through the classes.
#include <strings.h>

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <cwctype>
#include <memory>

#include "inputs.h"
#include "string/CString.h"
#if defined(PEER_ABSL)
#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#endif

namespace {

using qzString::CString;
using qzString::IString;

void addNarrow(std::size_t size) {
    const std::string suffix = "/ascii/" + std::to_string(size);
    const std::string text = inputs::text(inputs::kCorpora[0], size);
    const auto s = std::make_shared<CString>(text.c_str());
    inputs::check(s->isAscii(), "isAscii");
    inputs::add("isAscii" + suffix + "/qzString", size, [=] { benchmark::DoNotOptimize(s->isAscii()); });
    inputs::add("isAscii" + suffix + "/plain", size, [=] {
        const char* const begin = s->asChar();
        benchmark::DoNotOptimize(
            std::all_of(begin, begin + size, [](char c) { return static_cast<unsigned char>(c) < 0x80; }));
    });
    inputs::add("toLower" + suffix + "/qzString", size, [=] {
        s->toLowerCase();
        benchmark::DoNotOptimize(s->asChar());
    });
    const auto upper = std::make_shared<CString>(*s);
    upper->toUpperCase();
    inputs::check(upper->compareNoCase(*s) == 0, "compareNoCase");
    inputs::add("compareNoCase" + suffix + "/qzString", size,
                [=] { benchmark::DoNotOptimize(s->compareNoCase(*upper)); });
    inputs::add("compareNoCase" + suffix + "/strcasecmp", size,
                [=] { benchmark::DoNotOptimize(strcasecmp(s->asChar(), upper->asChar())); });
#if defined(PEER_ABSL)
    const auto copy = std::make_shared<std::string>(text);
    inputs::add("toLower" + suffix + "/absl", size, [=] {
        absl::AsciiStrToLower(copy.get());
        benchmark::DoNotOptimize(copy->data());
    });
    inputs::add("compareNoCase" + suffix + "/absl", size, [=] {
        benchmark::DoNotOptimize(absl::EqualsIgnoreCase({s->asChar(), size}, {upper->asChar(), size}));
    });
#endif
}

void addWide(const inputs::Corpus& corpus, std::size_t size) {
    const std::string suffix = std::string("Wide/") + corpus.name + '/' + std::to_string(size);
    const auto s = std::make_shared<IString>(inputs::text(corpus, size).c_str(), qzString::kUTF8);
    const std::size_t bytes = s->length() * sizeof(wchar_t);
    inputs::add("toLower" + suffix + "/qzString", bytes, [=] {
        s->toLowerCase();
        benchmark::DoNotOptimize(s->asWChar());
    });
    const auto copy = std::make_shared<std::wstring>(s->asWChar());
    inputs::add("toLower" + suffix + "/towlower", bytes, [=] {
        for (wchar_t& c : *copy)
            c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
        benchmark::DoNotOptimize(copy->data());
    });
    const auto upper = std::make_shared<IString>(*s);
    upper->toUpperCase();
    inputs::check(upper->compareNoCase(*s) == 0, "compareNoCase");
    inputs::add("compareNoCase" + suffix + "/qzString", bytes,
                [=] { benchmark::DoNotOptimize(s->compareNoCase(*upper)); });
    inputs::add("compareNoCase" + suffix + "/wcscasecmp", bytes,
                [=] { benchmark::DoNotOptimize(wcscasecmp(s->asWChar(), upper->asWChar())); });
    inputs::add("isAscii" + suffix + "/qzString", bytes, [=] { benchmark::DoNotOptimize(s->isAscii()); });
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "C.UTF-8");
    for (const std::size_t size : {16, 64, 4096, 65536}) {
        addNarrow(size);
        for (const inputs::Corpus& corpus : inputs::kCorpora)
            addWide(corpus, size);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
