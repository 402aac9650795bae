// Conversion: the whole flow (size query, then conversion) by the library and its peers, and through the
// class.
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <vector>

#include "inputs.h"
#include "primitives/conversion.h"
#if defined(PEER_ICU)
#include <unicode/ustring.h>
#endif
#if defined(PEER_SIMDUTF)
#include <simdutf.h>
#endif
#if defined(PEER_UTF8CPP)
#include <utf8.h>
#endif

namespace {

using qzString::IString;

void addDecoders(const std::string& name, const std::string& bytes) {
    const auto source = std::make_shared<std::string>(bytes);
    const auto size = static_cast<unsigned int>(bytes.size());
    std::wstring expected(size, L'\0');
    expected.resize(std::mbstowcs(expected.data(), bytes.c_str(), size));
    const auto room = std::make_shared<std::vector<wchar_t>>(size + 1);
    const auto decode = [=] {
        bool ok = false;
        const unsigned int needed = qzString::UTF8toWCS(source->data(), size, nullptr, 0, false, nullptr);
        benchmark::DoNotOptimize(
            qzString::UTF8toWCS(source->data(), size, room->data(), needed + 1, false, &ok));
    };
    decode();
    inputs::check(std::wstring(room->data(), expected.size()) == expected, name);
    inputs::add(name + "/qzString", size, decode);
    inputs::add(name + "/class", size, [=] {
        const IString s(source->c_str(), qzString::kUTF8);
        benchmark::DoNotOptimize(s.asWChar());
    });
    inputs::add(name + "/locale", size, [=] {
        bool ok = false;
        const unsigned int needed = qzString::MBStoWCS(source->data(), size, nullptr, 0, nullptr);
        benchmark::DoNotOptimize(qzString::MBStoWCS(source->data(), size, room->data(), needed + 1, &ok));
    });
    inputs::add(name + "/mbsrtowcs", size, [=] {
        std::mbstate_t state{};
        const char* from = source->c_str();
        const std::size_t needed = std::mbsrtowcs(nullptr, &from, 0, &state);
        from = source->c_str();
        benchmark::DoNotOptimize(std::mbsrtowcs(room->data(), &from, needed + 1, &state));
    });
#if defined(PEER_ICU)
    inputs::add(name + "/icu", size, [=] {
        UErrorCode error = U_ZERO_ERROR;
        std::int32_t length = 0;
        u_strFromUTF8(nullptr, 0, &length, source->data(), static_cast<std::int32_t>(size), &error);
        error = U_ZERO_ERROR;
        u_strFromUTF8(reinterpret_cast<UChar*>(room->data()), length, &length, source->data(),
                      static_cast<std::int32_t>(size), &error);
        benchmark::DoNotOptimize(length);
    });
#endif
#if defined(PEER_SIMDUTF)
    inputs::add(name + "/simdutf", size, [=] {
        benchmark::DoNotOptimize(simdutf::utf32_length_from_utf8(source->data(), size));
        benchmark::DoNotOptimize(
            simdutf::convert_utf8_to_utf32(source->data(), size, reinterpret_cast<char32_t*>(room->data())));
    });
#endif
#if defined(PEER_UTF8CPP)
    inputs::add(name + "/utf8cpp", size, [=] {
        benchmark::DoNotOptimize(utf8::distance(source->begin(), source->end()));
        benchmark::DoNotOptimize(utf8::utf8to32(source->begin(), source->end(), room->begin()));
    });
#endif
}

void addEncoders(const std::string& name, const std::string& bytes) {
    const auto source = std::make_shared<std::wstring>(inputs::wide(bytes));
    const auto length = static_cast<unsigned int>(source->size());
    const auto room = std::make_shared<std::vector<char>>(bytes.size() + 1);
    const auto encode = [=] {
        bool ok = false;
        const unsigned int needed = qzString::WCStoUTF8(source->data(), length, nullptr, 0, nullptr);
        benchmark::DoNotOptimize(qzString::WCStoUTF8(source->data(), length, room->data(), needed + 1, &ok));
    };
    encode();
    inputs::check(std::string(room->data(), bytes.size()) == bytes, name);
    inputs::add(name + "/qzString", bytes.size(), encode);
    inputs::add(name + "/class", bytes.size(), [=] {
        IString s(source->data(), static_cast<int>(length));
        benchmark::DoNotOptimize(s.asUTF8());
    });
    inputs::add(name + "/wcsrtombs", bytes.size(), [=] {
        std::mbstate_t state{};
        const wchar_t* from = source->c_str();
        const std::size_t needed = std::wcsrtombs(nullptr, &from, 0, &state);
        from = source->c_str();
        benchmark::DoNotOptimize(std::wcsrtombs(room->data(), &from, needed + 1, &state));
    });
#if defined(PEER_ICU)
    inputs::add(name + "/icu", bytes.size(), [=] {
        UErrorCode error = U_ZERO_ERROR;
        static thread_local std::vector<UChar> units;
        units.resize(2 * source->size() + 1);
        std::int32_t count = 0;
        u_strFromUTF32(units.data(), static_cast<std::int32_t>(units.size()), &count,
                       reinterpret_cast<const UChar32*>(source->data()), static_cast<std::int32_t>(length),
                       &error);
        u_strToUTF8(room->data(), static_cast<std::int32_t>(room->size()), &count, units.data(), count,
                    &error);
        benchmark::DoNotOptimize(count);
    });
#endif
#if defined(PEER_SIMDUTF)
    inputs::add(name + "/simdutf", bytes.size(), [=] {
        const auto* const characters = reinterpret_cast<const char32_t*>(source->data());
        benchmark::DoNotOptimize(simdutf::utf8_length_from_utf32(characters, length));
        benchmark::DoNotOptimize(simdutf::convert_utf32_to_utf8(characters, length, room->data()));
    });
#endif
#if defined(PEER_UTF8CPP)
    inputs::add(name + "/utf8cpp", bytes.size(), [=] {
        benchmark::DoNotOptimize(utf8::utf32to8(source->begin(), source->end(), room->begin()));
    });
#endif
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "C.UTF-8");
    for (const std::size_t size : inputs::kSizes) {
        for (const inputs::Corpus& corpus : inputs::kCorpora) {
            const std::string bytes = inputs::text(corpus, size);
            const std::string input = std::string(corpus.name) + '/' + std::to_string(size);
            addDecoders("decode/" + input, bytes);
            addEncoders("encode/" + input, bytes);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
