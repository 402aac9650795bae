// Searching and replacing, narrow and wide, with needles whose first letter is rare or common in the text,
// and searching for characters of a set.
#include <cstring>
#include <memory>

#include "inputs.h"
#if defined(PEER_ABSL)
#include <absl/strings/str_replace.h>
#endif

namespace {

using qzString::CString;
using qzString::IString;

void addSearches(const char* kind, const std::string& needle) {
    constexpr std::size_t kSize = 65536;
    const std::string text = inputs::text(inputs::kCorpora[0], kSize - needle.size()) + needle;
    const auto narrow = std::make_shared<CString>(text.c_str());
    const auto narrowNeedle = std::make_shared<CString>(needle.c_str());
    const auto standard = std::make_shared<std::string>(text);
    const auto wide = std::make_shared<IString>(text.c_str(), qzString::kUTF8);
    const auto wideNeedle = std::make_shared<IString>(needle.c_str(), qzString::kUTF8);
    const auto wideStandard = std::make_shared<std::wstring>(wide->asWChar());
    const std::string name = std::string("find/") + kind;
    inputs::check(narrow->find(*narrowNeedle) == kSize - needle.size(), name);
    inputs::check(wide->find(*wideNeedle) == kSize - needle.size(), name);
    inputs::add(name + "/narrow/qzString", kSize,
                [=] { benchmark::DoNotOptimize(narrow->find(*narrowNeedle)); });
    inputs::add(name + "/narrow/strstr", kSize,
                [=] { benchmark::DoNotOptimize(std::strstr(narrow->asChar(), narrowNeedle->asChar())); });
    inputs::add(name + "/narrow/std", kSize,
                [=] { benchmark::DoNotOptimize(standard->find(narrowNeedle->asChar())); });
    inputs::add(name + "/wide/qzString", kSize * sizeof(wchar_t),
                [=] { benchmark::DoNotOptimize(wide->find(*wideNeedle)); });
    inputs::add(name + "/wide/std", kSize * sizeof(wchar_t),
                [=] { benchmark::DoNotOptimize(wideStandard->find(wideNeedle->asWChar())); });
    // Backwards, from a text that begins with the needle.
    const auto mirrored =
        std::make_shared<CString>((needle + inputs::text(inputs::kCorpora[0], kSize)).c_str());
    const auto wideMirrored = std::make_shared<IString>(mirrored->asChar(), qzString::kUTF8);
    inputs::check(mirrored->rfind(*narrowNeedle) == 0 && wideMirrored->rfind(*wideNeedle) == 0, name);
    inputs::add("r" + name + "/narrow/qzString", kSize,
                [=] { benchmark::DoNotOptimize(mirrored->rfind(*narrowNeedle)); });
    inputs::add("r" + name + "/wide/qzString", kSize * sizeof(wchar_t),
                [=] { benchmark::DoNotOptimize(wideMirrored->rfind(*wideNeedle)); });
}

// Characters that are not in the text: ASCII, or of the text's own script.
void addSetSearches(const char* kind, const inputs::Corpus& corpus, const wchar_t* characters) {
    for (const std::size_t size : {64, 4096, 65536}) {
        const auto text = std::make_shared<IString>(inputs::text(corpus, size).c_str(), qzString::kUTF8);
        const auto set = std::make_shared<IString>(characters);
        const auto standard = std::make_shared<std::wstring>(text->asWChar());
        const std::size_t bytes = standard->size() * sizeof(wchar_t);
        const std::string name = std::string("findAny/") + kind + '/' + std::to_string(size);
        inputs::check(text->findAny(*set) == IString::npos && text->rfindAny(*set) == IString::npos, name);
        inputs::add(name + "/qzString", bytes, [=] { benchmark::DoNotOptimize(text->findAny(*set)); });
        inputs::add(name + "/std", bytes,
                    [=] { benchmark::DoNotOptimize(standard->find_first_of(set->asWChar())); });
        inputs::add('r' + name + "/qzString", bytes, [=] { benchmark::DoNotOptimize(text->rfindAny(*set)); });
    }
}

void addReplaces(std::size_t length) {
    constexpr std::size_t kSize = 1 << 20;
    std::string text;
    while (text.size() < kSize)
        text += "@@@@" + std::string(60, 'x');
    const std::string replacement(length, 'y');
    const std::string name = "replace/" + std::to_string(length);
    const auto source = std::make_shared<IString>(text.c_str(), qzString::kUTF8);
    const auto pattern = std::make_shared<IString>(L"@@@@");
    const auto with = std::make_shared<IString>(replacement.c_str(), qzString::kUTF8);
    const auto work = std::make_shared<IString>();
    inputs::check(IString(*source).replace(*pattern, *with).length() == kSize / 64 * (60 + length), name);
    // A copy is part of every round, and measured alone to be taken off.
    inputs::add(name + "/copy", kSize * sizeof(wchar_t), [=] {
        *work = *source;
        benchmark::DoNotOptimize(work->asWChar());
    });
    inputs::add(name + "/qzString", kSize * sizeof(wchar_t), [=] {
        *work = *source;
        benchmark::DoNotOptimize(work->replace(*pattern, *with).length());
    });
#if defined(PEER_ABSL)
    const auto narrow = std::make_shared<std::string>(text);
    inputs::add(name + "/absl-narrow", kSize, [=] {
        benchmark::DoNotOptimize(absl::StrReplaceAll(*narrow, {{"@@@@", replacement}}).size());
    });
#endif
}

}  // namespace

int main(int argc, char** argv) {
    addSearches("rare", "Zebra#42");
    addSearches("common", "then ZZZ");
    addSetSearches("ascii", inputs::kCorpora[0], L"#;{}[]");
    addSetSearches("cjk", inputs::kCorpora[3], L"\uFF1B\uFF08\uFF09;");
    for (const std::size_t length : {2, 4, 8})
        addReplaces(length);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
