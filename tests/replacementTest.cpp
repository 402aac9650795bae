// Replacement by content in wide text.
#include <clocale>
#include <random>

#include "support.h"

using namespace support;

namespace {

// One occurrence at a time, as the rule is told.
std::wstring replaceOneByOne(std::wstring text, const std::wstring& pattern,
                             const std::wstring& replacement) {
    std::size_t at = pattern.empty() ? std::wstring::npos : text.find(pattern);
    while (at != std::wstring::npos) {
        text.replace(at, pattern.size(), replacement);
        at = text.find(pattern, at + replacement.size());
    }
    return text;
}

TEST(Replacement, ReplacesEveryOccurrence) {
    const struct {
        const wchar_t *text, *pattern, *replacement, *expected;
    } cases[] = {
        {L"a.b.c", L".", L"--", L"a--b--c"},
        {L"aaa", L"a", L"aa", L"aaaaaa"},
        {L"aaaa", L"aa", L"a", L"aa"},
        {L"xxyy", L"xy", L"", L"xy"},
        {L"aaa", L"a", L"", L""},
        {L"aaaaa", L"aa", L"b", L"bba"},
        {L"abc", L"", L"x", L"abc"},
        {L"", L"a", L"b", L""},
        {L"abc", L"x", L"y", L"abc"},
        {L"abc", L"abcd", L"", L"abc"},
        {L"abab", L"ab", L"ba", L"baba"},
        {L"ab", L"ab", L"xyz", L"xyz"},
    };
    for (const auto& c : cases) {
        IString s(c.text);
        EXPECT_EQ(&s.replace(IString(c.pattern), IString(c.replacement)), &s);
        EXPECT_EQ(value(s), c.expected);
    }
}

TEST(Replacement, AgreesWithReplacingOneByOne) {
    std::mt19937 random(5);
    for (int round = 0; round < 20000; ++round) {
        const auto draw = [&](std::size_t most) {
            std::wstring text;
            for (std::size_t length = random() % (most + 1); length > 0; --length)
                text += static_cast<wchar_t>(random() % 4 == 0 ? 0 : 'a' + random() % 2);
            return text;
        };
        const std::wstring text = draw(round % 10 == 0 ? 200 : 20);
        const std::wstring pattern = draw(4);
        const std::wstring replacement = draw(7);
        IString s(text.data(), static_cast<int>(text.size()));
        if (round % 2 == 0)
            s.reserve(2000);
        s.replace(IString(pattern.data(), static_cast<int>(pattern.size())),
                  IString(replacement.data(), static_cast<int>(replacement.size())));
        ASSERT_EQ(value(s), replaceOneByOne(text, pattern, replacement));
    }
}

TEST(Replacement, TakesItselfAsArgument) {
    IString s;
    for (const bool hasRoom : {false, true}) {
        s = IString(L"aba");
        if (hasRoom)
            s.reserve(100);
        EXPECT_EQ(value(s.replace(s, IString(L"xyzzy"))), L"xyzzy");
        s.assign(L"aba");
        EXPECT_EQ(value(s.replace(IString(L"b"), s)), L"aabaa");
        s.assign(L"ab");
        EXPECT_EQ(value(s.replace(IString(L"a"), s)), L"abb");
        EXPECT_EQ(value(s.replace(s, s)), L"abb");
        EXPECT_EQ(value(s.replaceFirst(s, s)), L"abb");
        EXPECT_EQ(value(s.replaceFirst(IString(L"b"), s)), L"aabbb");
    }
    s = IString(40, L'b');
    s.reserve(100);  // room for one of them
    EXPECT_EQ(value(s.replace(IString(L"b"), s)), std::wstring(1600, L'b'));
    IString empty;
    EXPECT_EQ(value(empty.replace(empty, IString(L"x"))), L"");
    // Where nothing is found, nothing is copied either.
    Allocations::failAlways(true);
    EXPECT_EQ(&s.replace(IString(L'x'), s), &s);
    Allocations::failAlways(false);
}

TEST(Replacement, ReplacesTheFirstOccurrence) {
    EXPECT_EQ(value(IString(L"abcb").replaceFirst(L"b", L"XY")), L"aXYcb");
    EXPECT_EQ(value(IString(L"abcb").replaceFirst(L"b", L"")), L"acb");
    EXPECT_EQ(value(IString(L"abcb").replaceFirst(L"", L"XY")), L"abcb");
    EXPECT_EQ(value(IString(L"abcb").replaceFirst(L"x", L"XY")), L"abcb");
    EXPECT_EQ(value(IString(L"b-b\0c", 5).replaceFirst(IString(L"b\0", 2), L"x")), L"b-xc");
}

TEST(Replacement, ReplacesCharacters) {
    EXPECT_EQ(value(IString(L"banana").replace(L'a', L'b')), L"bbnbnb");
    EXPECT_EQ(value(IString(L"banana").replace(L'x', L'y')), L"banana");
    EXPECT_STREQ(IString(L"a\0b", 3).replace(L'\0', L'.').asWChar(), L"a.b");  // but not the terminator
    EXPECT_EQ(value(IString(L"a\x416").replace(L'\x416', L'\0')), std::wstring(L"a\0", 2));
    EXPECT_EQ(value(IString().replace(L'\0', L'x')), L"");
}

TEST(Replacement, DecodesNarrowCharactersInTheLocale) {
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(value(IString(L"banana").replace('a', 'o')), L"bonono");
    EXPECT_EQ(value(IString(L"a\0b", 3).replace('\0', '-')), L"a-b");
    ASSERT_NE(std::setlocale(LC_ALL, "en_US.UTF-8"), nullptr);
    EXPECT_EQ(value(IString(L"ban\xE9").replace('\xE9', 'x')), L"ban\xE9");
    EXPECT_EQ(value(IString(L"banana").replace('a', '\xC3')), L"banana");
    ASSERT_NE(std::setlocale(LC_ALL, "ru_RU.KOI8-R"), nullptr);
    EXPECT_EQ(value(IString(L"\x436\x437").replace('\xD6', 'x')), L"x\x437");  // D6 is U+0436
    ASSERT_NE(std::setlocale(LC_ALL, "ja_JP.EUC-JP"), nullptr);
    EXPECT_EQ(value(IString(L"aba").replace('a', '\xA4')),
              L"aba");  // half a character leaves no state behind
    EXPECT_EQ(value(IString(L"aba").replace('b', 'c')), L"aca");
    ASSERT_NE(std::setlocale(LC_ALL, "vi_VN.CP1258"), nullptr);
    EXPECT_EQ(value(IString(L"a-b\0", 4).replace('a', 'o')), std::wstring(L"o-b\0", 4));  // each may go on to
    EXPECT_EQ(value(IString(L"a-b\0", 4).replace('-', 'u')), std::wstring(L"aub\0", 4));  // be another letter
    std::setlocale(LC_ALL, "C");
}

// For every combination of lengths.
TEST(Replacement, IsLinear) {
    constexpr unsigned int kMany = 3'000'000;
    const struct {
        const wchar_t *pattern, *replacement;
        unsigned int length;
    } cases[] = {{L" ", L"abc", 3 * kMany},
                 {L" ", L"a", kMany},
                 {L"  ", L"a", kMany / 2},
                 {L" ", L"", 0},
                 {L"  ", L"abc", kMany / 2 * 3}};
    for (const auto& c : cases) {
        for (const bool hasRoom : {false, true}) {
            IString s(kMany, L' ');
            if (hasRoom)
                s.reserve(3 * kMany);
            expectLinear([&] { EXPECT_EQ(s.replace(c.pattern, c.replacement).length(), c.length); });
        }
    }
    IString nearMisses(kMany, L'a');
    const IString pattern = plus(IString(kMany / 3, L'a'), L"b");
    expectLinear([&] { EXPECT_EQ(nearMisses.replace(pattern, L"").length(), kMany); });
}

// A text without room moves once, to storage with room to spare, and copies nothing more.
TEST(Replacement, GrowsInOneAllocation) {
    IString s(1000, L'a');
    Allocations::failAt(0);
    const long before = Allocations::count();
    s.replace(L'a', L'b').replace(IString(L"b"), IString(L"cc"));
    EXPECT_EQ(Allocations::count() - before, 1);
    EXPECT_EQ(value(s), std::wstring(2000, L'c'));
}

TEST(Replacement, GoesOnWhereAnAllocationFails) {
    for (const bool hasRoom : {false, true}) {
        bool failed = true;
        for (long nth = 1; failed; ++nth) {
            IString s(100, L'a');
            if (hasRoom)
                s.reserve(300);
            const wchar_t* const storage = s.asWChar();
            const IString pattern(L"a");
            const IString replacement(L"aba");
            Allocations::failAt(nth);
            s.replace(pattern, replacement);
            failed = Allocations::failed();
            Allocations::failAt(0);
            EXPECT_EQ(value(s), replaceOneByOne(std::wstring(100, L'a'), L"a", L"aba"));
            EXPECT_EQ(s.asWChar() == storage, hasRoom);
        }
    }
}

// Without memory for the whole, occurrences are replaced one at a time and what has been replaced stays.
TEST(Replacement, KeepsWhatWasReplacedBeforeAFailure) {
    std::wstring text;
    for (int i = 0; i < 100; ++i)
        text += L"ab ";
    const IString replacement(L"xyz");
    IString s;  // with room for a few
    const unsigned int room = s.reserve(static_cast<unsigned int>(text.size()) + 10);
    s.append(text.c_str());
    const unsigned int fit = room - s.length();
    ASSERT_LT(fit, 100U);
    s.asUTF8();
    const auto expectOutOfMemory = [](auto operation) {
        Allocations::failAlways(true);
        bool raised = false;
        try {
            operation();
        } catch (const std::bad_alloc&) {
            raised = true;
        }
        Allocations::failAlways(false);
        EXPECT_TRUE(raised);
    };
    const IString pattern(L"ab");
    expectOutOfMemory([&] { s.replace(pattern, replacement); });
    EXPECT_EQ(s.length(), room);
    EXPECT_EQ(s.rfind(L"xyz"), (fit - 1) * 4);
    EXPECT_EQ(s.find(L"ab"), fit * 4);
    EXPECT_EQ(value(s), value(fromUtf8(s.asUTF8())));  // the cache follows

    const std::wstring before = value(s);
    const IString large(1000, L'x');
    expectOutOfMemory([&] { s.replace(pattern, s); });
    expectOutOfMemory([&] { s.replaceFirst(pattern, large); });
    EXPECT_EQ(value(s), before);
}

}  // namespace
