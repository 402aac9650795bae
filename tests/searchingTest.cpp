// Searching of both classes, set search and the ASCII test.
#include <random>
#include <tuple>

#include "everyKernel.h"
#include "support.h"

using namespace support;

template <class String>
class Searching : public ::testing::Test {};
TYPED_TEST_SUITE(Searching, BothClasses);

constexpr unsigned int kNone = 0xFFFFFFFFU;

TYPED_TEST(Searching, FindsText) {
    const struct {
        std::string_view text, needle;
        unsigned int pos, find, rfind;
    } cases[] = {
        {"abcabc", "bc", 0, 1, kNone},
        {"abcabc", "bc", 2, 4, 1},
        {"abcabc", "bc", 3, 4, 1},
        {"abcabc", "bc", 4, 4, 4},
        {"abcabc", "bc", 5, kNone, 4},
        {"abcabc", "bc", 6, kNone, 4},
        {"abcabc", "bc", kNone, kNone, 4},
        {"abcabc", "abc", 3, 3, 3},
        {"abcabc", "abcabcx", 0, kNone, kNone},
        {"abcabc", "ab", 0, 0, 0},
        {"abcabc", "abcabc", 0, 0, 0},
        {"abcabc", "c", 3, 5, 2},
        {"abcabc", "a", 4, kNone, 3},
        {"abcabc", "a", 2, 3, 0},
        {"abcabc", "a", 0, 0, 0},
        {"abcabc", "c", 5, 5, 5},
        {"abcabc", "", 0, kNone, kNone},
        {"abcabc", "", 3, kNone, kNone},
        {"", "a", 0, kNone, kNone},
        {"", "", 0, kNone, kNone},
        {"", "a", kNone, kNone, kNone},
        {"aaaa", "aa", 1, 1, 1},
        {"aaaa", "aa", kNone, kNone, 2},
        {"abc", "x", 1, kNone, kNone},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.text) + '/' + std::string(c.needle) + '/' + std::to_string(c.pos));
        const TypeParam s = make<TypeParam>(c.text);
        const TypeParam needle = make<TypeParam>(c.needle);
        EXPECT_EQ(s.find(needle, c.pos), c.find);
        EXPECT_EQ(s.rfind(needle, c.pos), c.rfind);
        EXPECT_EQ(s.find(asView(needle).data(), c.pos), c.find);
        EXPECT_EQ(s.rfind(asView(needle).data(), c.pos), c.rfind);
        if (c.needle.size() == 1) {
            EXPECT_EQ(s.find(needle[0], c.pos), c.find);
            EXPECT_EQ(s.rfind(needle[0], c.pos), c.rfind);
        }
        if (c.needle.empty()) {
            EXPECT_EQ(s.find(static_cast<const Char<TypeParam>*>(nullptr), c.pos), kNone);
            EXPECT_EQ(s.rfind(static_cast<const Char<TypeParam>*>(nullptr), c.pos), kNone);
        }
    }
    const TypeParam twice = make<TypeParam>("xabab");  // all of it by default
    const TypeParam ab = make<TypeParam>("ab");
    EXPECT_EQ(std::tuple(twice.find(ab), twice.find(asView(ab).data()), twice.find(ab[0])),
              std::tuple(1U, 1U, 1U));
    EXPECT_EQ(std::tuple(twice.rfind(ab), twice.rfind(asView(ab).data()), twice.rfind(ab[0])),
              std::tuple(3U, 3U, 3U));
    const TypeParam nul = make<TypeParam>(std::string_view("a\0b", 3));
    EXPECT_EQ(nul.find(Char<TypeParam>{0}), 1U);
    EXPECT_EQ(nul.rfind(Char<TypeParam>{0}), 1U);
    EXPECT_EQ(make<TypeParam>("ab").find(Char<TypeParam>{0}), kNone);  // not the terminator
    EXPECT_EQ(nul.find(make<TypeParam>(std::string_view("\0b", 2))), 1U);
    EXPECT_EQ(nul.find(nul), 0U);
}

// Against the standard string's search, at every start, with few different characters so that near misses
// abound.
TYPED_TEST(Searching, AgreesWithTheStandardString) {
    forEveryScanner([](const auto&) {
        std::mt19937 random(7);
        for (unsigned round = 0; round < 3000; ++round) {
            const auto letters = 1 + random() % 3;
            const auto draw = [&](std::size_t length) {
                Std<TypeParam> text;
                while (text.size() < length)
                    text += static_cast<Char<TypeParam>>(random() % 8 == 0 ? random() % 2 * 0xE9
                                                                           : 'a' + random() % letters);
                return text;
            };
            const auto text = draw(random() % (round % 10 == 0 ? 600 : 90));
            auto needle = draw(1 + random() % (round % 7 == 0 ? 80 : 9));
            if (round % 3 == 0 && !text.empty())
                needle = text.substr(random() % text.size(), 1 + random() % 40);
            const Exact<Char<TypeParam>> exact{std::basic_string_view<Char<TypeParam>>(text)};
            const TypeParam s(exact.data(), static_cast<int>(text.size()));
            const TypeParam n(needle.data(), static_cast<int>(needle.size()));
            for (std::size_t pos = 0; pos <= text.size(); pos += 1 + round % 5) {
                ASSERT_EQ(s.find(n, static_cast<unsigned int>(pos)),
                          static_cast<unsigned int>(text.find(needle, pos)));
                ASSERT_EQ(s.rfind(n, static_cast<unsigned int>(pos)),
                          static_cast<unsigned int>(text.rfind(needle, pos)));
            }
            ASSERT_EQ(s.rfind(n), static_cast<unsigned int>(text.rfind(needle)));
        }
    });
}

// Needles of a period, or longer than any window, that differ from the text in one character.
TYPED_TEST(Searching, FindsInRepetitiveText) {
    using C = Char<TypeParam>;
    constexpr unsigned int kText = 1'000'000;
    constexpr unsigned int kNeedle = 100'000;
    TypeParam text(kText, C{'a'});
    const TypeParam half(kNeedle / 2, C{'a'});
    TypeParam periodic;
    while (periodic.length() < kNeedle)
        periodic.append(make<TypeParam>("aab"));
    TypeParam periodicText;
    while (periodicText.length() < kText)
        periodicText.append(periodic).append(C{'a'});
    const TypeParam needles[] = {
        plus(half, plus(TypeParam(C{'b'}), half)),
        plus(TypeParam(kNeedle, C{'a'}), TypeParam(C{'b'})),
        plus(TypeParam(C{'b'}), TypeParam(kNeedle, C{'a'})),
        plus(periodic, periodic),
    };
    forEveryScanner([&](const auto&) {
        for (const TypeParam& needle : needles) {
            EXPECT_EQ(text.find(needle), kNone);
            EXPECT_EQ(text.rfind(needle), kNone);
            EXPECT_EQ(periodicText.find(needle), kNone);
            EXPECT_EQ(periodicText.rfind(needle), kNone);
        }
    });
    text.append(C{'b'});
    EXPECT_EQ(text.find(needles[1]), kText - kNeedle);
    text.prepend(C{'b'});
    EXPECT_EQ(text.rfind(needles[2]), 0U);
    EXPECT_EQ(periodicText.find(periodic, 1), periodic.length() + 1);
}

// Where near misses are dense the search changes its algorithm, and must still find what is there: needles
// of every structure, in texts that are made of their parts.
TYPED_TEST(Searching, AgreesWithTheStandardStringOnNearMisses) {
    forEveryScanner([](const auto&) {
        std::mt19937 random(11);
        for (unsigned round = 0; round < 300; ++round) {
            std::string unit;
            for (std::size_t length = 1 + random() % 12; length > 0; --length)
                unit += static_cast<char>('a' + random() % 2);
            std::string needle;
            while (needle.size() < 30 + round % 40)
                needle += unit;
            if (round % 2 == 0)
                needle[random() % needle.size()] ^= 3;  // 'a' and 'b' for each other
            std::string text;
            while (text.size() < 6000) {
                std::string part = needle.substr(random() % needle.size());
                if (random() % 4 == 0)
                    part.resize(random() % (part.size() + 1));
                text += part;
            }
            const TypeParam s = make<TypeParam>(text);
            const TypeParam n = make<TypeParam>(needle);
            for (std::size_t at = text.find(needle, 0), from = 0;; at = text.find(needle, from)) {
                ASSERT_EQ(s.find(n, static_cast<unsigned int>(from)), static_cast<unsigned int>(at));
                if (at == std::string::npos)
                    break;
                from = at + 1 + random() % 3000;
                ASSERT_EQ(s.rfind(n, static_cast<unsigned int>(from)),
                          static_cast<unsigned int>(text.rfind(needle, from)));
            }
        }
    });
}

// Where every place is a near miss to the end of a long needle, trial takes a minute, and linear search some
// milliseconds.
TYPED_TEST(Searching, StaysLinearOnNearMisses) {
    using C = Char<TypeParam>;
    const TypeParam text(4'000'000, C{'a'});
    const TypeParam needle = plus(TypeParam(1'000'000, C{'a'}), TypeParam(C{'b'}));
    expectLinear([&] {
        EXPECT_EQ(text.find(needle), kNone);
        EXPECT_EQ(text.rfind(needle), kNone);
    });
}

namespace {

std::string examined;  // by the predicates, in order

template <class C>
bool isDigit(C c) {
    examined += static_cast<char>(c);
    return c >= '0' && c <= '9';
}

template <class C>
bool acceptsNothing(C c) {
    examined += static_cast<char>(c);
    return false;
}

}  // namespace

TYPED_TEST(Searching, FindsByPredicate) {
    using C = Char<TypeParam>;
    const struct {
        std::string_view text;
        bool forward;
        unsigned int pos, found;
        const char* examined;
    } cases[] = {
        {"a1b2", true, 0, 1, "a1"},       {"a1b2", true, 1, 1, "1"},
        {"a1b2", true, 2, 3, "b2"},       {"a1b2", true, 4, kNone, ""},
        {"a1b2", true, kNone, kNone, ""}, {"", true, 0, kNone, ""},
        {"a1b2", false, kNone, 3, "2"},   {"a1b2", false, 3, 3, "2"},
        {"a1b2", false, 2, 1, "b1"},      {"a1b2", false, 0, kNone, "a"},
        {"a1b2", false, 4, 3, "2"},       {"a1b2", false, 0x80000000U, 3, "2"},
        {"", false, kNone, kNone, ""},
    };
    for (const auto& c : cases) {
        examined.clear();
        const TypeParam s = make<TypeParam>(c.text);
        EXPECT_EQ(c.forward ? s.find(isDigit<C>, c.pos) : s.rfind(isDigit<C>, c.pos), c.found);
        EXPECT_EQ(examined, c.examined);
    }
    const TypeParam s = make<TypeParam>("abc");
    examined.clear();
    EXPECT_EQ(s.find(acceptsNothing<C>), kNone);
    EXPECT_EQ(s.rfind(acceptsNothing<C>), kNone);
    EXPECT_EQ(examined, "abccba");
}

TEST(Searching, FindsAnyOfASet) {
    const IString s(L"a,b;c");
    for (const wchar_t* const set : {L";,", L",;", L",;;,"}) {
        const struct {
            unsigned int pos, find, rfind;
        } cases[] = {{0, 1, kNone}, {1, 1, 1},     {2, 3, 1},       {3, 3, 3},
                     {4, kNone, 3}, {5, kNone, 3}, {100, kNone, 3}, {kNone, kNone, 3}};
        for (const auto& c : cases) {
            EXPECT_EQ(s.findAny(set, c.pos), c.find);
            EXPECT_EQ(s.rfindAny(set, c.pos), c.rfind);
        }
    }
    EXPECT_EQ(s.findAny(L";,"), 1U);
    EXPECT_EQ(s.rfindAny(L";,"), 3U);
    EXPECT_EQ(s.findAny(L""), kNone);
    EXPECT_EQ(s.rfindAny(L""), kNone);
    EXPECT_EQ(IString().findAny(L"a"), kNone);
    EXPECT_EQ(IString().rfindAny(L"a"), kNone);
}

// Against the standard string's search, at every start, with characters that agree in their low bits.
TEST(Searching, FindsAnyOfASetWithEveryScanner) {
    constexpr wchar_t kAlphabet[] = {L'a',
                                     L'b',
                                     0,
                                     0xE1,
                                     0xFF,
                                     0x100,
                                     0x161,
                                     0x1E1,
                                     0x101,
                                     0x4E61,
                                     0x1F661,
                                     0x10FF61,
                                     static_cast<wchar_t>(-0x9F)};
    forEveryScanner([&](const auto&) {
        std::mt19937 random(17);
        const auto draw = [&](std::size_t length, unsigned from) {
            std::wstring text;
            while (text.size() < length)
                text += kAlphabet[from + random() % (std::size(kAlphabet) - from)];
            return text;
        };
        for (unsigned round = 0; round < 400; ++round) {
            std::wstring text(random() % (round % 10 == 0 ? 400 : 80), L'x');
            for (std::size_t at = random() % 60; at < text.size(); at += 1 + random() % 60)
                text[at] = draw(1, 0)[0];
            const std::wstring set = draw(round % 3 == 0 ? 17 : 1 + random() % 4, round % 8);
            const IString s(Exact<wchar_t>(text).data(), static_cast<int>(text.size()));
            const IString members(set.data(), static_cast<int>(set.size()));
            for (unsigned pos = 0; pos <= text.size(); ++pos) {
                ASSERT_EQ(s.findAny(members, pos), static_cast<unsigned>(text.find_first_of(set, pos)));
                ASSERT_EQ(s.rfindAny(members, pos), static_cast<unsigned>(text.find_last_of(set, pos)));
            }
        }
    });
}

TYPED_TEST(Searching, TestsForAscii) {
    using C = Char<TypeParam>;
    EXPECT_TRUE(TypeParam().isAscii());
    TypeParam s(100, C{0x7F});
    EXPECT_TRUE(s.isAscii());
    EXPECT_FALSE(s.append(static_cast<C>(0x80)).isAscii());
}
