// Formatting of both classes.
#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstring>

#include "support.h"

using namespace support;

namespace {

constexpr unsigned int kNone = 0xFFFFFFFFU;

template <class String>
class Formatting : public ::testing::Test {};
TYPED_TEST_SUITE(Formatting, BothClasses);

// A literal as narrow or wide text.
template <class Char>
struct Literal {
    template <std::size_t kSize>
    explicit Literal(const char (&ascii)[kSize]) : text(ascii, ascii + kSize - 1) {}
    operator const Char*() const { return text.c_str(); }
    std::basic_string<Char> text;
};

unsigned int formatList(CString& s, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const unsigned int first = s.vformat(format, arguments);
    const std::string once = value(s);
    EXPECT_EQ(s.vformat(format, arguments), first);  // the list is where it was
    EXPECT_EQ(value(s), once);
    va_end(arguments);
    return first;
}

unsigned int formatList(IString& s, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const unsigned int first = s.vformat(format, arguments);
    const std::wstring once = value(s);
    EXPECT_EQ(s.vformat(format, arguments), first);
    EXPECT_EQ(value(s), once);
    va_end(arguments);
    return first;
}

unsigned int formatNarrowList(IString& s, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const unsigned int first = s.vformat(format, arguments);
    EXPECT_EQ(s.vformat(format, arguments), first);
    va_end(arguments);
    return first;
}

// All members of a class give the same text for the same format, whatever the hint.
TYPED_TEST(Formatting, FormatsThroughEveryMember) {
    using C = Char<TypeParam>;
    const Literal<C> format("%d-%s|%5.2f|%c");
    const auto expected = wide<TypeParam>("42-text| 3.14|x");
    const auto expectFormatted = [&](auto run) {
        TypeParam s = make<TypeParam>("old");
        EXPECT_EQ(run(s), expected.size());
        EXPECT_EQ(value(s), expected);
    };
    const TypeParam object(format);
    expectFormatted([&](TypeParam& s) { return s.format(format, 42, "text", 3.14159, 'x'); });
    expectFormatted([&](TypeParam& s) { return s.format(&object, 42, "text", 3.14159, 'x'); });
    expectFormatted([&](TypeParam& s) { return formatList(s, format, 42, "text", 3.14159, 'x'); });
    for (const unsigned int hint : {0U, 1U, 15U, 16U, 100000U}) {
        expectFormatted([&](TypeParam& s) { return s.format(hint, format, 42, "text", 3.14159, 'x'); });
        expectFormatted([&](TypeParam& s) { return s.format(hint, &object, 42, "text", 3.14159, 'x'); });
    }
}

TYPED_TEST(Formatting, FormatsAnyLength) {
    const Literal<Char<TypeParam>> format("%*d");
    for (const int width : {1, 255, 256, 257, 300, 1279, 1280, 1281, 5000, 1'000'000}) {
        TypeParam s;
        ASSERT_EQ(s.format(format, width, 7), static_cast<unsigned int>(width));
        ASSERT_EQ(value(s), wide<TypeParam>(std::string(static_cast<std::size_t>(width) - 1, ' ') + '7'));
        ASSERT_EQ(s.format(1, format, width, 7), static_cast<unsigned int>(width));
    }
    // A megabyte takes a handful of attempts, not a thousand.
    TypeParam s;
    Allocations::failAt(0);
    const long before = Allocations::count();
    s.format(format, 1'000'000, 7);
    EXPECT_LT(Allocations::count() - before, 100);
}

// What fits the hint, 256 characters unless given, takes one attempt and so one allocation.
TYPED_TEST(Formatting, BeginsWithTheHint) {
    using C = Char<TypeParam>;
    const Literal<C> format("%*d");
    const TypeParam object(format);
    TypeParam s;
    s.reserve(2000);
    const auto attempts = [&](auto run) {
        const long before = Allocations::count();
        run();
        return Allocations::count() - before;
    };
    EXPECT_EQ(attempts([&] { s.format(format, 255, 7); }), 1);
    EXPECT_EQ(attempts([&] { s.format(format, 256, 7); }), 2);
    EXPECT_EQ(attempts([&] { s.format(&object, 255, 7); }), 1);
    EXPECT_EQ(attempts([&] { s.format(&object, 256, 7); }), 2);
    EXPECT_EQ(attempts([&] { s.format(500, format, 499, 7); }), 1);
    EXPECT_EQ(attempts([&] { s.format(500, format, 500, 7); }), 2);
    EXPECT_EQ(attempts([&] { s.format(500, &object, 499, 7); }), 1);
    // It formats twice: an attempt more each.
    EXPECT_EQ(attempts([&] { formatList(s, format, 256, 7); }),
              attempts([&] { formatList(s, format, 255, 7); }) + 2);
    if constexpr (std::is_same_v<TypeParam, IString>) {  // narrow output is decoded from a string of its own
        EXPECT_EQ(attempts([&] { s.format("%*d", 255, 7); }), 2);
        EXPECT_EQ(attempts([&] { s.format("%*d", 256, 7); }), 3);
        EXPECT_EQ(attempts([&] { s.format(500, "%*d", 499, 7); }), 2);
        EXPECT_EQ(attempts([&] { formatNarrowList(s, "%*d", 256, 7); }),
                  attempts([&] { formatNarrowList(s, "%*d", 255, 7); }) + 2);
    }
}

TYPED_TEST(Formatting, LeavesTheStringWhereNothingIsFormatted) {
    using C = Char<TypeParam>;
    TypeParam s = make<TypeParam>("old");
    EXPECT_EQ(s.format(Literal<C>(""), 0), kNone);
    EXPECT_EQ(s.format(Literal<C>("%s"), ""), kNone);
    EXPECT_EQ(s.format(0, Literal<C>("%s"), ""), kNone);
    EXPECT_EQ(s.format(static_cast<const C*>(nullptr)), kNone);
    EXPECT_EQ(s.format(3, static_cast<const C*>(nullptr)), kNone);
    EXPECT_EQ(value(s), wide<TypeParam>("old"));
    EXPECT_EQ(s.format(Literal<C>("ab%cd"), 0), 2U);  // output ends at its first NUL
    EXPECT_EQ(value(s), wide<TypeParam>("ab"));
    EXPECT_EQ(s.format(Literal<C>("%cd"), 0), 0U);
    EXPECT_EQ(s.length(), 0U);
}

TYPED_TEST(Formatting, TakesItsOwnTextAsFormat) {
    TypeParam s = make<TypeParam>("<%d>");
    EXPECT_EQ(s.format(&s, 7), 3U);
    EXPECT_EQ(value(s), wide<TypeParam>("<7>"));
    s = make<TypeParam>("<%400d>");
    EXPECT_EQ(s.format(1, asView(s).data(), 7), 402U);
}

// A format that can never succeed ends at once: growing until memory ends would take hours.
TYPED_TEST(Formatting, GivesUpOnWhatCanNeverSucceed) {
    using C = Char<TypeParam>;
    TypeParam s = make<TypeParam>("old");
    EXPECT_EQ(s.format(Literal<C>("unfinished %"), 0), kNone);
    std::setlocale(LC_ALL, "C");
    if constexpr (sizeof(C) == 1) {
        EXPECT_EQ(s.format("%ls", L"\x416"), kNone);
    } else {
        EXPECT_EQ(s.format(L"%s", "\xFF\xFE"), kNone);
    }
    EXPECT_EQ(value(s), wide<TypeParam>("old"));
}

// The directive %m sees the caller's errno at every attempt, and formatting leaves it alone.
TYPED_TEST(Formatting, KeepsErrno) {
    const auto expected = wide<TypeParam>(std::strerror(ENOENT));
    for (const unsigned int hint : {0U, 1U, 256U}) {
        TypeParam s;
        errno = ENOENT;
        EXPECT_EQ(s.format(hint, Literal<Char<TypeParam>>("%m%.0s"), ""), expected.size());
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(value(s), expected);
    }
}

TEST(Formatting, DecodesNarrowOutputIntoWideText) {
    std::setlocale(LC_ALL, "en_US.UTF-8");
    IString s(L"old");
    EXPECT_EQ(s.format("%s-%d", "\xC3\xA9t\xC3\xA9", 7), 5U);  // characters, not bytes
    EXPECT_EQ(value(s), L"\xE9t\xE9-7");
    EXPECT_EQ(s.format(2U, "%300d|%s", 1, "\xC3\xA9"), 302U);
    EXPECT_EQ(formatNarrowList(s, "%d", 42), 2U);
    EXPECT_EQ(value(s), L"42");
    EXPECT_EQ(s.format("%s", ""), kNone);
    EXPECT_EQ(s.format(static_cast<const char*>(nullptr)), kNone);
    EXPECT_EQ(value(s), L"42");
    EXPECT_EQ(s.format("%s", "\xFF"), 0U);
    EXPECT_EQ(s.length(), 0U);
    std::setlocale(LC_ALL, "C");
}

TEST(Formatting, DecodesNarrowOutputInTheLocale) {
    ASSERT_NE(std::setlocale(LC_ALL, "en_US.ISO-8859-1"), nullptr);
    IString s;
    EXPECT_EQ(s.format("%s", "\xC3\xA9"), 2U);
    EXPECT_EQ(value(s), L"\xC3\xA9");
    std::setlocale(LC_ALL, "C");
}

TYPED_TEST(Formatting, SurvivesFailingAllocations) {
    const Literal<Char<TypeParam>> format("%400d");
    const auto expectUnchanged = [](TypeParam& s) { EXPECT_EQ(value(s), wide<TypeParam>("old")); };
    const auto prepare = [] { return make<TypeParam>("old"); };
    failEveryAllocation(
        prepare, [&](TypeParam& s) { s.format(format, 1); }, expectUnchanged);
    if constexpr (std::is_same_v<TypeParam, IString>)
        failEveryAllocation(
            prepare, [](IString& s) { s.format("%400d", 1); }, expectUnchanged);
}

}  // namespace
