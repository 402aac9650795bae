// UTF-8 conversion: every kernel that the processor has, against a reference written from the Unicode
// Standard's table of well-formed byte sequences.
#include "primitives/conversion.h"

#include <algorithm>
#include <random>

#include "everyKernel.h"
#include "primitives/output.h"
#include "primitives/utf8Portable.h"
#include "support.h"

using namespace support;

namespace {

// Table 3-7, row by row: ranges of the first, second, third and fourth byte.
struct Row {
    unsigned char ranges[4][2];
    unsigned length;
};
constexpr Row kTable[] = {
    {{{0x00, 0x7F}}, 1},
    {{{0xC2, 0xDF}, {0x80, 0xBF}}, 2},
    {{{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}, 3},
    {{{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}}, 3},
    {{{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}}, 3},
    {{{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}, 3},
    {{{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}, 4},
    {{{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}, 4},
    {{{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}, 4},
};

struct Reference {
    std::wstring text;         // of the well-formed beginning
    std::size_t valid = 0;     // its length
    std::wstring substituted;  // the whole, with U+FFFD for every maximal ill-formed part
    bool wellFormed = true;
};

Reference decodeByTable(const std::string& bytes) {
    Reference result;
    std::size_t at = 0;
    while (at < bytes.size()) {
        std::size_t longest = 1;
        bool found = false;
        for (const Row& row : kTable) {
            std::size_t matched = 0;
            while (matched < row.length && at + matched < bytes.size()) {
                const auto byte = static_cast<unsigned char>(bytes[at + matched]);
                if (byte < row.ranges[matched][0] || byte > row.ranges[matched][1])
                    break;
                ++matched;
            }
            longest = std::max(longest, matched);
            if (matched == row.length) {
                static constexpr unsigned kLeadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
                std::uint32_t c = static_cast<unsigned char>(bytes[at]) & kLeadBits[row.length];
                for (std::size_t i = 1; i < row.length; ++i)
                    c = c * 64 + (static_cast<unsigned char>(bytes[at + i]) & 0x3F);
                result.substituted += static_cast<wchar_t>(c);
                found = true;
                break;
            }
        }
        if (!found) {
            if (result.wellFormed) {
                result.text = result.substituted;
                result.valid = at;
            }
            result.wellFormed = false;
            result.substituted += L'\xFFFD';
        }
        at += longest;
    }
    if (result.wellFormed) {
        result.text = result.substituted;
        result.valid = bytes.size();
    }
    return result;
}

std::string encodeByArithmetic(std::wstring_view text) {
    std::string bytes;
    for (const wchar_t wide : text) {
        const auto c = static_cast<std::uint32_t>(wide);
        if (c < 0x80) {
            bytes += static_cast<char>(c);
        } else if (c < 0x800) {
            bytes += {static_cast<char>(0xC0 + c / 64), static_cast<char>(0x80 + c % 64)};
        } else if (c < 0x10000) {
            bytes += {static_cast<char>(0xE0 + c / 4096), static_cast<char>(0x80 + c / 64 % 64),
                      static_cast<char>(0x80 + c % 64)};
        } else {
            bytes += {static_cast<char>(0xF0 + c / 262144), static_cast<char>(0x80 + c / 4096 % 64),
                      static_cast<char>(0x80 + c / 64 % 64), static_cast<char>(0x80 + c % 64)};
        }
    }
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(Utf8, EveryKernel, ::testing::ValuesIn(usableKernels()), kernelName);

// Everything the converters owe for one text: the query, the conversion at the exact capacity, one element
// less, and the offset of what is ill-formed.
void expectDecodes(const std::string& bytes, const Reference& expected) {
    const Exact<char> source{std::string_view(bytes)};
    const std::size_t wanted = expected.wellFormed ? expected.text.size() : 0;
    bool ok = !expected.wellFormed;
    ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), nullptr, 0, false, &ok), wanted);
    ASSERT_EQ(ok, expected.wellFormed);
    ASSERT_EQ(qzString::UTF8validLength(source.data(), source.size()), expected.valid);

    const Exact<wchar_t> exact(wanted);
    ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), exact.data(), exact.size(), false, &ok),
              wanted);
    ASSERT_EQ(ok, expected.wellFormed);
    if (!expected.wellFormed) {
        // Room enough for what is well-formed does not make the rest convert.
        const Exact<wchar_t> room(bytes.size());
        ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), room.data(), room.size(), false, &ok),
                  0U);
        ASSERT_FALSE(ok);
        return;
    }
    ASSERT_EQ(exact.view(wanted), expected.text);
    if (wanted > 0) {
        const Exact<wchar_t> small(wanted - 1);
        ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), small.data(), small.size(), false, &ok),
                  0U);
        ASSERT_FALSE(ok);
    }
}

void expectSubstitutes(const std::string& bytes, const Reference& expected) {
    const Exact<char> source{std::string_view(bytes)};
    bool ok = !expected.wellFormed;
    ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), nullptr, 0, true, &ok),
              expected.substituted.size());
    ASSERT_EQ(ok, expected.wellFormed);
    const Exact<wchar_t> exact(expected.substituted.size());
    ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), exact.data(), exact.size(), true, &ok),
              expected.substituted.size());
    ASSERT_EQ(ok, expected.wellFormed);
    ASSERT_EQ(exact.view(exact.size()), expected.substituted);
    if (exact.size() > 0) {
        const Exact<wchar_t> small(exact.size() - 1);
        ASSERT_EQ(qzString::UTF8toWCS(source.data(), source.size(), small.data(), small.size(), true, &ok),
                  0U);
        ASSERT_FALSE(ok);
    }
}

// `expected` is null where the text cannot be encoded.
void expectEncodes(std::wstring_view text, const std::string* expected) {
    const Exact<wchar_t> source{text};
    const std::size_t wanted = expected != nullptr ? expected->size() : 0;
    bool ok = expected == nullptr;
    ASSERT_EQ(qzString::WCStoUTF8(source.data(), source.size(), nullptr, 0, &ok), wanted);
    ASSERT_EQ(ok, expected != nullptr);
    const Exact<char> exact(wanted);
    ASSERT_EQ(qzString::WCStoUTF8(source.data(), source.size(), exact.data(), exact.size(), &ok), wanted);
    ASSERT_EQ(ok, expected != nullptr);
    if (expected == nullptr) {
        const Exact<char> room(4 * text.size());
        ASSERT_EQ(qzString::WCStoUTF8(source.data(), source.size(), room.data(), room.size(), &ok), 0U);
        ASSERT_FALSE(ok);
        return;
    }
    ASSERT_EQ(exact.view(wanted), *expected);
    if (wanted > 0) {
        const Exact<char> small(wanted - 1);
        ASSERT_EQ(qzString::WCStoUTF8(source.data(), source.size(), small.data(), small.size(), &ok), 0U);
        ASSERT_FALSE(ok);
    }
}

const char* const kSeeds[] = {
    "plain ASCII",
    "\xC3\xA9t\xC3\xA9 \xC3\xA7\xC3\xA0 \xE2\x80\x99",
    "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82",
    "\xE6\xBC\xA2\xE5\xAD\x97\xE3\x81\x8B\xEF\xBF\xBD",
    "\xF0\x9F\x98\x80\xF0\x9F\x8E\x89",
    "a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80z",
    "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
};

}  // namespace

TEST(Utf8, HasKernels) {
    ASSERT_FALSE(usableKernels().empty());
    EXPECT_STREQ(usableKernels().back()->name, "portable");
    EXPECT_EQ(qzString::UTF8validLength("", 0), 0U);  // the first call chooses
    EXPECT_EQ(&qzString::kernels::active(), usableKernels().front());
}

TEST_P(EveryKernel, ConvertsAllCodePointsBothWays) {
    // In runs of prime length, so that every character meets every place in a block.
    constexpr std::uint32_t kRun = 8191;
    for (std::uint32_t first = 0; first <= 0x10FFFF; first += kRun) {
        std::wstring text;
        for (std::uint32_t c = first; c < first + kRun && c <= 0x10FFFF; ++c) {
            if (c < 0xD800 || c > 0xDFFF)
                text += static_cast<wchar_t>(c);
        }
        const std::string bytes = encodeByArithmetic(text);
        Reference expected;
        expected.text = text;
        expected.valid = bytes.size();
        ASSERT_NO_FATAL_FAILURE(expectDecodes(bytes, expected));
        ASSERT_NO_FATAL_FAILURE(expectEncodes(text, &bytes));
    }
}

// All strings of 1 and 2 bytes, those of 3 with every lead, and of 4 by lead and second: alone, and across
// the edge of a block.
TEST_P(EveryKernel, DecodesAllShortStrings) {
    std::vector<std::string> strings;
    const auto add = [&](std::initializer_list<int> bytes) {
        std::string s;
        for (const int b : bytes)
            s += static_cast<char>(b);
        strings.push_back(s);
    };
    constexpr int kEdges[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC2, 0xE0, 0xF0, 0xFF};
    for (int a = 0; a < 256; ++a) {
        add({a});
        for (int b = 0; b < 256; ++b) {
            add({a, b});
            for (const int c : kEdges) {
                add({a, b, c});
                if (a >= 0xE0)
                    add({a, b, c, 0xBF});
            }
            if (a >= 0xEF)
                add({a, b, 0x80, 0x41});
        }
    }
    std::size_t number = 0;
    for (const std::string& s : strings) {
        const Reference expected = decodeByTable(s);
        ASSERT_NO_FATAL_FAILURE(expectDecodes(s, expected)) << ::testing::PrintToString(s);
        ASSERT_NO_FATAL_FAILURE(expectSubstitutes(s, expected)) << ::testing::PrintToString(s);
        if (++number % 8 != 0)
            continue;
        const std::string padded = std::string(62, 'x') + s + std::string(67, 'y');
        ASSERT_NO_FATAL_FAILURE(expectDecodes(padded, decodeByTable(padded))) << ::testing::PrintToString(s);
    }
}

// Each seed behind 0 to 130 bytes of padding, and behind itself: whole, cut at every length, and with every
// byte replaced in turn.
TEST_P(EveryKernel, CrossesBlockEdges) {
    for (const std::string seed : kSeeds) {
        for (std::size_t padding = 0; padding <= 130; ++padding) {
            std::string repeated;
            while (repeated.size() < padding)
                repeated += seed;
            for (const std::string& text :
                 {std::string(padding, '.') + seed + std::string(padding % 7, '.'), repeated + seed}) {
                const Reference expected = decodeByTable(text);
                ASSERT_NO_FATAL_FAILURE(expectDecodes(text, expected));
                ASSERT_NO_FATAL_FAILURE(expectEncodes(expected.text, &text));
                for (std::size_t cut = text.size() - seed.size(); cut < text.size(); ++cut) {
                    const std::string shorter = text.substr(0, cut);
                    ASSERT_NO_FATAL_FAILURE(expectDecodes(shorter, decodeByTable(shorter)));
                }
            }
        }
    }
}

// What a character lacks shows behind ASCII of any length, at the end and before more.
TEST_P(EveryKernel, FindsCharactersCutAmongOthers) {
    std::string tails[] = {"", std::string(400, 'b'), "", ""};  // and runs of one width
    for (int i = 0; i < 60; ++i) {
        tails[2] += "\xE6\xBC\xA2";
        tails[3] += "\xF0\x9F\x98\x80";
    }
    for (const std::string cut : {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
        for (std::size_t padding = 0; padding <= 132; ++padding) {
            for (const std::string& tail : tails) {
                const std::string text = std::string(padding, 'a') + cut + tail;
                ASSERT_NO_FATAL_FAILURE(expectDecodes(text, decodeByTable(text))) << padding;
            }
        }
    }
}

// ASCII of every length around the blocks' and then other text, at every place in a cache line; what stands
// around the source would go on with it.
TEST_P(EveryKernel, ConvertsAtEveryPlace) {
    std::string tail;
    while (tail.size() < 500)
        tail += kSeeds[5];
    for (std::size_t prefix = 0; prefix <= 260; prefix += prefix % 32 == 1 ? 29 : 1) {
        const std::string bytes = std::string(prefix, 'a') + tail;
        const std::wstring text = decodeByTable(bytes).text;
        for (std::size_t place = 0; place < 64; ++place) {
            alignas(64) char narrow[1024];
            alignas(64) wchar_t wide[1024];
            std::fill(std::begin(narrow), std::end(narrow), '\xBF');
            std::fill(std::begin(wide), std::end(wide), L'#');
            std::fill_n(narrow, place + 64, '\xF0');
            char* const source = narrow + 64 + place;
            wchar_t* const decoded = wide + place % 16;
            const auto length = static_cast<unsigned>(bytes.size());
            std::copy(bytes.begin(), bytes.end(), source);
            ASSERT_EQ(qzString::UTF8toWCS(source, length, nullptr, 0, false, nullptr), text.size()) << place;
            ASSERT_EQ(qzString::UTF8validLength(source, length), length);
            ASSERT_EQ(qzString::UTF8toWCS(source, length, decoded, 1000, false, nullptr), text.size());
            ASSERT_EQ(std::wstring_view(decoded, text.size()), text) << prefix << ' ' << place;
            ASSERT_EQ(decoded[text.size()], L'#');
            const auto count = static_cast<unsigned>(text.size());
            ASSERT_EQ(qzString::WCStoUTF8(decoded, count, nullptr, 0, nullptr), bytes.size());
            ASSERT_EQ(qzString::WCStoUTF8(decoded, count, source, length + 1, nullptr), bytes.size());
            ASSERT_EQ(std::string_view(source, length), bytes);
            ASSERT_EQ(source[length], '\xBF');
        }
    }
}

// A kernel may take long text piece by piece, in any order: what is not ASCII, or cannot be encoded, counts
// wherever it stands.
TEST_P(EveryKernel, MeasuresEveryPieceOfLongText) {
    constexpr std::size_t kLength = 3 * 65536 + 5;
    for (const std::size_t at : {std::size_t{0}, std::size_t{65535}, std::size_t{65536}, kLength - 1}) {
        std::wstring text(kLength, L'a');
        text[at] = static_cast<wchar_t>(0x1F600);
        const std::string bytes =
            std::string(at, 'a') + "\xF0\x9F\x98\x80" + std::string(kLength - 1 - at, 'a');
        ASSERT_NO_FATAL_FAILURE(expectEncodes(text, &bytes)) << at;
        ASSERT_NO_FATAL_FAILURE(expectDecodes(bytes, {text, bytes.size(), text, true})) << at;
        text[at] = static_cast<wchar_t>(0xD800);
        ASSERT_NO_FATAL_FAILURE(expectEncodes(text, nullptr)) << at;
    }
    // Counts in lanes of 16 bits would overflow.
    const std::wstring text(20 * 65536, L'\u6F22');
    const std::string bytes = encodeByArithmetic(text);
    ASSERT_NO_FATAL_FAILURE(expectEncodes(text, &bytes));
}

TEST_P(EveryKernel, FindsEveryCorruption) {
    constexpr unsigned char kWrong[] = {0x00, 0x41, 0x80, 0x9F, 0xA0, 0xBF, 0xC0,
                                        0xC3, 0xE0, 0xED, 0xF0, 0xF4, 0xF8};
    for (const std::string seed : kSeeds) {
        for (const std::size_t length : {50U, 100U, 200U}) {
            std::string text;
            while (text.size() < length)
                text += seed;
            for (std::size_t at = 0; at < text.size(); ++at) {
                for (const unsigned char wrong : kWrong) {
                    std::string corrupt = text;
                    corrupt[at] = static_cast<char>(wrong);
                    const Reference expected = decodeByTable(corrupt);
                    ASSERT_NO_FATAL_FAILURE(expectDecodes(corrupt, expected)) << at << ' ' << int{wrong};
                    ASSERT_NO_FATAL_FAILURE(expectSubstitutes(corrupt, expected)) << at << ' ' << int{wrong};
                }
            }
        }
    }
    for (const wchar_t wrong : {0xD800, 0xDBFF, 0xDC00, 0xDFFF, 0x110000, 0x7FFFFFFF, -1}) {
        for (const std::string seed : kSeeds) {
            std::wstring text = decodeByTable(seed).text;
            while (text.size() < 100)
                text += text;
            for (const std::size_t length : {std::size_t{9}, std::size_t{40}, std::size_t{70}, text.size()}) {
                for (std::size_t at = 0; at < length; ++at) {
                    std::wstring corrupt = text.substr(0, length);
                    corrupt[at] = wrong;
                    ASSERT_NO_FATAL_FAILURE(expectEncodes(corrupt, nullptr)) << at << ' ' << wrong;
                }
            }
        }
    }
}

// Random mixtures, so that every combination of character lengths meets in a block; with random damage half
// the time.
TEST_P(EveryKernel, AgreesWithTheReferenceOnRandomText) {
    std::mt19937 random(20260101);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 4000; ++round) {
        std::wstring text;
        const unsigned widths = 1 + below(15);
        const std::size_t length = below(400);
        while (text.size() < length) {
            static constexpr std::uint32_t kFirst[] = {0, 0x80, 0x800, 0x10000};
            static constexpr std::uint32_t kCount[] = {0x80, 0x780, 0xD000, 0x100000};
            const unsigned width = below(4);
            if ((widths >> width & 1) != 0)
                text += std::wstring(1 + below(12),
                                     static_cast<wchar_t>(kFirst[width] + random() % kCount[width]));
        }
        std::string bytes = encodeByArithmetic(text);
        ASSERT_NO_FATAL_FAILURE(expectEncodes(text, &bytes));
        if (round % 2 == 0 && !bytes.empty())
            bytes[below(static_cast<unsigned>(bytes.size()))] = static_cast<char>(below(256));
        const Reference expected = decodeByTable(bytes);
        ASSERT_NO_FATAL_FAILURE(expectDecodes(bytes, expected));
        ASSERT_NO_FATAL_FAILURE(expectSubstitutes(bytes, expected));
    }
}

TEST_P(EveryKernel, TellsEmptyTextFromFailure) {
    bool ok = false;
    wchar_t wide = L'?';
    char narrow = '?';
    EXPECT_EQ(qzString::UTF8toWCS("", 0, &wide, 1, false, &ok), 0U);
    EXPECT_TRUE(ok);
    EXPECT_EQ(qzString::WCStoUTF8(L"", 0, &narrow, 1, &(ok = false)), 0U);
    EXPECT_TRUE(ok);
    EXPECT_EQ(wide, L'?');
    EXPECT_EQ(narrow, '?');
    EXPECT_EQ(qzString::UTF8toWCS("a\0b", 3, nullptr, 0, false, nullptr), 3U);
}

TEST(Utf8, RefusesLengthsBeyond32Bits) {
    const std::size_t most = UINT32_MAX;
    bool ok = false;
    EXPECT_EQ(qzString::output::report(most, &ok), UINT32_MAX);
    EXPECT_TRUE(ok);
    EXPECT_EQ(qzString::output::report(most + 1, &ok), 0U);
    EXPECT_FALSE(ok);
}

// Both widths of wide text, on any platform.
TEST(Utf8, ConvertsSixteenBitText) {
    namespace utf8 = qzString::utf8;
    const std::u16string text = u"a\u00E9\u6F22\U0001F600z eight more ASCII";
    const std::string bytes = "a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80z eight more ASCII";
    std::u16string wide(text.size(), u'?');
    EXPECT_EQ(utf8::decodedLength<char16_t>(bytes.data(), bytes.size()).written, text.size());
    EXPECT_EQ(utf8::decode(bytes.data(), bytes.size(), wide.data(), wide.size()).read, bytes.size());
    EXPECT_EQ(wide, text);
    EXPECT_LT(utf8::decode(bytes.data(), 10, wide.data(), 4).read, 10U);  // half a pair is not written
    std::string back(bytes.size(), '?');
    EXPECT_EQ(utf8::encodedLength(text.data(), text.size()).written, bytes.size());
    EXPECT_EQ(utf8::encode(text.data(), text.size(), back.data(), back.size()).read, text.size());
    EXPECT_EQ(back, bytes);
    for (const std::u16string& lone :
         {std::u16string{u'a', char16_t{0xD800}}, std::u16string{char16_t{0xD800}, u'a'},
          std::u16string{char16_t{0xDC00}, char16_t{0xD800}}}) {
        EXPECT_LT(utf8::encodedLength(lone.data(), lone.size()).read, lone.size());
    }
    const std::u32string wider = U"\U0010FFFF\uD7FF";
    EXPECT_EQ(utf8::encodedLength(wider.data(), wider.size()).written, 7U);
}
