// Character classes and case mapping: rules of the Unicode Character Database over all code points, and the
// run forms of every kernel against the one-character forms.
#include "primitives/character.h"

#include <iterator>
#include <random>

#include "everyKernel.h"
#include "support.h"

using support::forEveryKernel;
using support::Kernels;

namespace {

constexpr std::uint32_t kEnd = 0x110000;

}  // namespace

TEST(Character, NarrowRulesAreThoseOfAscii) {
    static_assert(qzString::isSpace('\t') && qzString::toLower('A') == 'a' && qzString::isAscii('\x7F'));
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        EXPECT_EQ(qzString::isAscii(c), byte < 128);
        EXPECT_EQ(qzString::isSpace(c), byte == ' ' || (byte >= 9 && byte <= 13));
        EXPECT_EQ(qzString::toLower(c), byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : c);
        EXPECT_EQ(qzString::toUpper(c), byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : c);
    }
}

TEST(Character, WhiteSpaceIsThePropertyAndNothingElse) {
    std::wstring spaces;
    for (std::uint32_t c = 0; c < kEnd; ++c) {
        EXPECT_EQ(qzString::isAscii(static_cast<wchar_t>(c)), c < 128);
        if (qzString::isSpace(static_cast<wchar_t>(c)))
            spaces += static_cast<wchar_t>(c);
    }
    EXPECT_EQ(spaces,
              L"\t\n\v\f\r \x85\xA0\x1680\x2000\x2001\x2002\x2003\x2004\x2005\x2006\x2007\x2008\x2009\x200A"
              L"\x2028\x2029\x202F\x205F\x3000");
    EXPECT_FALSE(qzString::isSpace(static_cast<wchar_t>(-1)));
}

// Counts over all mappings catch a table that was cut; the pairs say what they mean.
TEST(Character, CaseMappingIsUnicodes) {
    const struct {
        std::uint32_t upper, lower;
    } pairs[] = {{'A', 'a'},       {0xC9, 0xE9},       {0x178, 0xFF},     {0x3A3, 0x3C3},
                 {0x410, 0x430},   {0x531, 0x561},     {0x10A0, 0x2D00},  {0x13A0, 0xAB70},
                 {0x1E9E, 0xDF},   {0x1F08, 0x1F00},   {0x2160, 0x2170},  {0xA64A, 0xA64B},
                 {0xFF21, 0xFF41}, {0x10400, 0x10428}, {0x1E921, 0x1E943}};
    for (const auto& pair : pairs) {
        EXPECT_EQ(qzString::toLower(static_cast<wchar_t>(pair.upper)), static_cast<wchar_t>(pair.lower));
        EXPECT_EQ(qzString::toLower(static_cast<wchar_t>(pair.lower)), static_cast<wchar_t>(pair.lower));
        if (pair.upper != 0x1E9E) {  // U+00DF has no simple upper-case form
            EXPECT_EQ(qzString::toUpper(static_cast<wchar_t>(pair.lower)), static_cast<wchar_t>(pair.upper));
        }
    }
    EXPECT_EQ(qzString::toLower(L'\x130'), L'i');
    EXPECT_EQ(qzString::toUpper(L'\xDF'), L'\xDF');
    EXPECT_EQ(qzString::toUpper(L'\x3C2'), L'\x3A3');
    EXPECT_EQ(qzString::toUpper(L'\x1C5'), L'\x1C4');

    std::uint32_t lowered = 0;
    std::uint32_t raised = 0;
    for (std::uint32_t c = 0; c < kEnd; ++c) {
        const wchar_t lower = qzString::toLower(static_cast<wchar_t>(c));
        const wchar_t upper = qzString::toUpper(static_cast<wchar_t>(c));
        lowered += lower != static_cast<wchar_t>(c);
        raised += upper != static_cast<wchar_t>(c);
        EXPECT_EQ(qzString::toLower(lower), lower) << c;
        EXPECT_EQ(qzString::toUpper(upper), upper) << c;
    }
    EXPECT_EQ(lowered, 1508U);
    EXPECT_EQ(raised, 1525U);
    for (const std::uint32_t beyond : {kEnd, 0x7FFFFFFFU, 0xFFFFFFFFU})
        EXPECT_EQ(qzString::toLower(static_cast<wchar_t>(beyond)), static_cast<wchar_t>(beyond));
}

// The runs of a text against its characters one by one, and a difference at one place, alone and before one
// at the end that says the opposite.
template <class Char>
void expectRuns(const std::basic_string<Char>& text, std::size_t at) {
    std::basic_string<Char> lower;
    std::basic_string<Char> upper;
    bool ascii = true;
    for (const Char c : text) {
        lower += qzString::toLower(c);
        upper += qzString::toUpper(c);
        ascii = ascii && qzString::isAscii(c);
    }
    const std::size_t length = text.size();
    const support::Exact<Char> source{std::basic_string_view<Char>(text)};
    const support::Exact<Char> lowered{std::basic_string_view<Char>(text)};
    const support::Exact<Char> raised{std::basic_string_view<Char>(text)};
    qzString::toLower(lowered.data(), length);
    ASSERT_EQ(lowered.view(length), lower);
    qzString::toUpper(raised.data(), length);
    ASSERT_EQ(raised.view(length), upper);
    ASSERT_EQ(qzString::isAscii(source.data(), length), ascii);
    const auto order = [&](std::size_t count, std::size_t otherCount) {
        return qzString::compareNoCase(source.data(), count, lowered.data(), otherCount);
    };
    ASSERT_EQ(order(length, length), 0);
    if (length == 0)
        return;
    using Traits = std::char_traits<Char>;
    constexpr auto kGreatest = static_cast<Char>(sizeof(Char) == 1 ? 0xFF : 0x7FFFFFFF);
    for (unsigned bits = 1; bits < 0x100; bits *= 2) {
        Char& other = lowered.data()[at];
        other = static_cast<Char>(static_cast<unsigned>(lower[at]) ^ bits);
        const Char otherLower = qzString::toLower(other);
        const int expected = Traits::compare(&lower[at], &otherLower, 1);
        const Char opposite = expected < 0 ? Char{0} : kGreatest;
        for (const Char end : {lower.back(), expected == 0 ? lower.back() : opposite}) {
            if (at < length - 1)
                lowered.data()[length - 1] = end;
            ASSERT_EQ(order(length, length) < 0, expected < 0) << length << ' ' << at;
            ASSERT_EQ(order(length, length) > 0, expected > 0) << length << ' ' << at;
        }
        ASSERT_EQ(order(at, length), -1);
        ASSERT_EQ(order(length, at), 1);
    }
}

template <class Char>
void expectRuns(const std::basic_string<Char>& text) {
    expectRuns(text, text.size() * 5 % 7 * text.size() / 7);
}

// All code points in runs that shift against the blocks, mixtures of scripts, and all bytes at all lengths.
TEST(Character, RunsMapAsCharactersDo) {
    std::vector<std::wstring> texts;
    for (std::uint32_t first = 0; first < 0x30000; first += 997) {
        std::wstring text;
        for (std::uint32_t c = first; c < first + 997; ++c)
            text += static_cast<wchar_t>(c);
        texts.push_back(text);
    }
    // The only one with case among many without.
    for (std::uint32_t c = 0x80; c < 0x20000; ++c) {
        const auto character = static_cast<wchar_t>(c);
        if (qzString::toLower(character) != character || qzString::toUpper(character) != character) {
            texts.emplace_back(40, L'\u4E00');
            texts.back()[c % 40] = character;
        }
    }
    texts.push_back(L'\u4E00' + std::wstring(40, L'A'));
    for (std::size_t length = 0; length < 70; ++length)
        texts.emplace_back(length, L'\u0410');
    std::mt19937 random(3);
    for (int round = 0; round < 500; ++round) {
        static constexpr std::uint32_t kFirst[] = {0,       0,       0xC0,       0x400,     0x510,
                                                   0x1040,  0x3040,  0xA640,     0xAB40,    0xFEC0,
                                                   0x1E000, 0x1E900, 0x7FFFFF00, 0xFFFFFF00};
        const std::uint32_t script = kFirst[random() % std::size(kFirst)];
        std::wstring text;
        for (std::size_t length = random() % 200; length > 0; --length)
            text += static_cast<wchar_t>(random() % 5 == 0 ? random() % 0x300 : script + random() % 0x100);
        texts.push_back(text);
    }
    forEveryKernel([&](const Kernels&) {
        for (const std::wstring& text : texts)
            ASSERT_NO_FATAL_FAILURE(expectRuns(text));
        for (std::size_t length = 0; length < 400; ++length) {
            std::string text;
            for (std::size_t i = 0; i < length; ++i)
                text += static_cast<char>(i * 7 + length);
            ASSERT_NO_FATAL_FAILURE(expectRuns(text));
        }
        for (std::size_t length = 1; length < 330; length += length < 70 ? 1 : 23) {
            for (std::size_t at = 0; at < length; ++at) {
                std::string text(length, 'q');
                text[at] = 'Q';
                ASSERT_NO_FATAL_FAILURE(expectRuns(text, at));
            }
        }
    });
}

// Texts longer than the first cache, at every place in a cache line, that differ at one place.
template <class Char>
void expectDifferencesFound() {
    constexpr std::size_t kLength = 24600;
    std::basic_string<Char> text(kLength + 64, 'Q');
    const std::basic_string<Char> other(kLength, 'q');
    for (std::size_t place = 0; place < 64; ++place) {
        const Char* const a = text.data() + place;
        ASSERT_EQ(qzString::compareNoCase(a, kLength, other.data(), kLength), 0);
        ASSERT_EQ(qzString::compareNoCase(a, kLength, other.data(), kLength - 1), 1);
        for (std::size_t at : {std::size_t{0}, 63 - place, 64 - place, std::size_t{64}, kLength - 1000,
                               kLength - 250, kLength - 1}) {
            text[place + at] = 'R';
            ASSERT_GT(qzString::compareNoCase(a, kLength, other.data(), kLength), 0) << place << ' ' << at;
            text[place + kLength - 1] = 'A';  // which is behind, or the same
            ASSERT_EQ(qzString::compareNoCase(a, kLength, other.data(), kLength) > 0, at < kLength - 1);
            text[place + kLength - 1] = text[place + at] = 'Q';
        }
    }
}

TEST(Character, ComparesLongTextAtEveryPlace) {
    forEveryKernel([](const Kernels&) {
        expectDifferencesFound<char>();
        expectDifferencesFound<wchar_t>();
    });
}

// The row that the process begins with has every function choose a version and do its own work.
TEST(Character, TheFirstCallChooses) {
    const auto first = [](auto operation) {
        qzString::kernels::useKernels(nullptr);
        return operation();
    };
    std::string narrow = "aZ";
    std::wstring wide = L"aZ";
    first([&] { qzString::toLower(narrow.data(), 2); });
    first([&] { qzString::toLower(wide.data(), 2); });
    EXPECT_TRUE(narrow == "az" && wide == L"az");
    first([&] { qzString::toUpper(narrow.data(), 2); });
    first([&] { qzString::toUpper(wide.data(), 2); });
    EXPECT_TRUE(narrow == "AZ" && wide == L"AZ");
    EXPECT_LT(first([] { return qzString::compareNoCase("aB", 2, "Ac", 2); }), 0);
    EXPECT_LT(first([] { return qzString::compareNoCase(L"aB", 2, L"Ac", 2); }), 0);
    EXPECT_FALSE(first([] { return qzString::isAscii("\x80", 1); }));
    EXPECT_FALSE(first([] { return qzString::isAscii(L"\x80", 1); }));
    EXPECT_NE(&qzString::kernels::active(), &qzString::kernels::kChoosing);
}

TEST(Character, AsciiTestSeesEveryPlace) {
    forEveryKernel([](const Kernels& kernels) {
        for (std::size_t length = 0; length < 600; length += 1 + length / 50) {
            const support::Exact<char> narrow(length);
            const support::Exact<wchar_t> wide(length);
            ASSERT_TRUE(kernels.isAsciiNarrow(narrow.data(), length));
            ASSERT_TRUE(kernels.isAsciiWide(wide.data(), length));
            for (std::size_t at = 0; at < length; ++at) {
                narrow.data()[at] = '\x80';
                wide.data()[at] = at % 2 == 0 ? 0x80 : static_cast<wchar_t>(0x80000000U);
                ASSERT_FALSE(kernels.isAsciiNarrow(narrow.data(), length)) << length << ' ' << at;
                ASSERT_FALSE(kernels.isAsciiWide(wide.data(), length)) << length << ' ' << at;
                narrow.data()[at] = '\x7F';
                wide.data()[at] = 0x7F;
            }
        }
    });
}
