// Positional editing, substrings and concatenation of both classes.
#include <cstring>
#include <stdexcept>

#include "support.h"

using namespace support;

template <class String>
class Editing : public ::testing::Test {};
TYPED_TEST_SUITE(Editing, BothClasses);

// Runs one edit with the argument as a string, as a pointer and, where it is one character, as that: all must
// agree.
template <class String, class Edit>
void expectEdit(std::string_view text, std::string_view argument, const char* expected, Edit edit) {
    const auto run = [&](auto x) {
        String s = make<String>(text);
        if (expected == nullptr) {
            EXPECT_THROW(edit(s, x), std::out_of_range);
            EXPECT_EQ(value(s), wide<String>(text));
        } else {
            EXPECT_EQ(edit(s, x), &s);
            EXPECT_EQ(value(s), wide<String>(expected));
        }
    };
    SCOPED_TRACE(std::string(text) + " with " + std::string(argument));
    run(make<String>(argument));
    const auto characters = wide<String>(argument);
    run(characters.c_str());
    if (argument.empty())
        run(static_cast<const Char<String>*>(nullptr));
    if (argument.size() == 1)
        run(characters[0]);
}

TYPED_TEST(Editing, Inserts) {
    const struct {
        const char* text;
        unsigned int pos;
        const char* argument;
        const char* expected;  // null where the position is out of range
    } cases[] = {
        {"abc", 0, "XY", "XYabc"}, {"abc", 3, "x", "abcx"},
        {"abc", 1, "", "abc"},     {"", 0, "x", "x"},
        {"abc", 4, "x", nullptr},  {"abc", 7, "", nullptr},
        {"", 1, "", nullptr},      {"abc", TypeParam::npos, "XY", nullptr},
    };
    for (const auto& c : cases) {
        expectEdit<TypeParam>(c.text, c.argument, c.expected,
                              [&](TypeParam& s, auto x) { return &s.insert(c.pos, x); });
        if (c.pos == 0) {
            expectEdit<TypeParam>(c.text, c.argument, c.expected,
                                  [](TypeParam& s, auto x) { return &s.prepend(x); });
        }
        if (c.pos == std::strlen(c.text)) {
            expectEdit<TypeParam>(c.text, c.argument, c.expected,
                                  [](TypeParam& s, auto x) { return &s.append(x); });
        }
    }
}

TYPED_TEST(Editing, ReplacesRanges) {
    constexpr unsigned int kAll = TypeParam::npos;
    const struct {
        const char* text;
        unsigned int pos;
        unsigned int count;
        const char* argument;
        const char* expected;
    } cases[] = {
        {"abc", 1, 1, "XY", "aXYc"}, {"abc", 1, kAll, "XY", "aXY"}, {"abc", 1, 0, "XY", "aXYbc"},
        {"abc", 0, 2, "", "c"},      {"abc", 3, 5, "x", "abcx"},    {"", 0, 5, "xy", "xy"},
        {"abc", 0, 3, "x", "x"},     {"", 1, 0, "x", nullptr},      {"abc", 4, 0, "", nullptr},
    };
    for (const auto& c : cases) {
        expectEdit<TypeParam>(c.text, c.argument, c.expected,
                              [&](TypeParam& s, auto x) { return &s.replace(c.pos, c.count, x); });
    }
}

TYPED_TEST(Editing, Erases) {
    constexpr unsigned int kAll = TypeParam::npos;
    const struct {
        const char* text;
        unsigned int pos;
        unsigned int count;
        const char* expected;
    } cases[] = {
        {"abcdef", 1, kAll, "a"},   {"abcdef", 1, 2, "adef"},  {"abcdef", 6, 3, "abcdef"},
        {"abcdef", 0, 0, "abcdef"}, {"abcdef", 5, 1, "abcde"}, {"", 5, 1, ""},
        {"abc", 5, 1, nullptr},     {"abc", kAll, 0, nullptr},
    };
    for (const auto& c : cases) {
        expectEdit<TypeParam>(c.text, "", c.expected,
                              [&](TypeParam& s, auto) { return &s.remove(c.pos, c.count); });
        expectEdit<TypeParam>(c.text, "", c.expected, [&](TypeParam& s, auto) {
            s.erase(c.pos, c.count);
            return &s;
        });
    }
    TypeParam s = make<TypeParam>("abc");
    s.erase(1);  // to the end by default
    EXPECT_EQ(value(s), wide<TypeParam>("a"));
    EXPECT_EQ(value(make<TypeParam>("abc").remove(1)), wide<TypeParam>("a"));
    EXPECT_EQ(value(make<TypeParam>("abcd").substr(1)), wide<TypeParam>("bcd"));
}

TYPED_TEST(Editing, TakesItsOwnTextAsArgument) {
    const auto expectAll = [](std::string_view text, auto edit, std::string_view expected) {
        for (const unsigned int room : {0U, 1000U}) {  // with and without a new allocation
            TypeParam s = make<TypeParam>(text);
            s.reserve(room);
            edit(s);
            EXPECT_EQ(value(s), wide<TypeParam>(expected));
        }
    };
    const auto own = [](const TypeParam& s) { return asView(s).data(); };
    expectAll(
        "ab", [](auto& s) { s.append(s); }, "abab");
    expectAll(
        "ab", [](auto& s) { s.insert(1, s); }, "aabb");
    expectAll(
        "ab", [](auto& s) { s.prepend(s); }, "abab");
    expectAll(
        "abcd", [](auto& s) { s.replace(1, 2, s); }, "aabcdd");
    expectAll(
        "abcd", [&](auto& s) { s.append(own(s) + 2); }, "abcdcd");
    expectAll(
        "abcd", [&](auto& s) { s.insert(2, own(s) + 1); }, "abbcdcd");
    expectAll(
        "abcd", [&](auto& s) { s.prepend(own(s) + 3); }, "dabcd");
    expectAll(
        "abcd", [&](auto& s) { s.replace(0, 3, own(s) + 2); }, "cdd");
    expectAll(
        "a text that is not short at all", [&](auto& s) { s.replace(2, 4, own(s)); },
        "a a text that is not short at all that is not short at all");
    expectAll(
        "ab", [](auto& s) { plusEqual(s, s); }, "abab");
}

TYPED_TEST(Editing, TakesSubstrings) {
    constexpr unsigned int kAll = TypeParam::npos;
    const struct {
        const char* text;
        unsigned int pos;
        unsigned int count;
        const char* expected;
    } cases[] = {
        {"abcd", 1, 2, "bc"},
        {"abcd", 4, 2, ""},
        {"abcd", 0, kAll, "abcd"},
        {"abcd", 2, 0, ""},
        {"", 0, 1, ""},
        {"abcd", 5, 0, nullptr},
        {"", 1, kAll, nullptr},
        {"abcd", kAll, kAll, nullptr},
    };
    for (const auto& c : cases) {
        const TypeParam s = make<TypeParam>(c.text);
        if (c.expected != nullptr) {
            EXPECT_EQ(value(s.substr(c.pos, c.count)), wide<TypeParam>(c.expected));
        } else {
            EXPECT_THROW((void)s.substr(c.pos, c.count), std::out_of_range);
        }
    }
}

TEST(Editing, WideSubstringsEndBeforeNul) {
    const char narrow[] = {'a', 0, 'b', 0};
    EXPECT_EQ(value(CString(narrow, 3).substr(0, 3)), std::string(narrow, 3));
    const IString s(L"a\0bc", 4);
    EXPECT_EQ(value(s.substr(0, 3)), L"a");
    EXPECT_EQ(value(s.substr(1)), L"");
    EXPECT_EQ(value(s.substr(2)), L"bc");
    IString out(L"old");
    s.substr(out, 0);
    EXPECT_EQ(value(out), L"a");
    EXPECT_THROW(s.substr(out, 5), std::out_of_range);
    EXPECT_EQ(value(out), L"a");
    out = IString(L"abcd");
    out.substr(out, 1, 2);
    EXPECT_EQ(value(out), L"bc");
}

TYPED_TEST(Editing, KeepsNuls) {
    TypeParam s = make<TypeParam>("abc");
    s.append(Char<TypeParam>{0}).append(make<TypeParam>(std::string_view("\0x", 2)));
    EXPECT_EQ(value(s), wide<TypeParam>(std::string_view("abc\0\0x", 6)));
}

TYPED_TEST(Editing, Concatenates) {
    const TypeParam a = make<TypeParam>("ab");
    const TypeParam b = make<TypeParam>(std::string_view("c\0d", 3));
    EXPECT_EQ(value(plus(a, b)), wide<TypeParam>(std::string_view("abc\0d", 5)));
    EXPECT_EQ(value(plus(a, a)), wide<TypeParam>("abab"));
    EXPECT_EQ(value(a), wide<TypeParam>("ab"));
    TypeParam c = a;
    EXPECT_EQ(&plusEqual(c, b), &c);
    EXPECT_EQ(value(c), value(plus(a, b)));
}

// Whatever allocation fails, the string is as it was and nothing leaks.
TYPED_TEST(Editing, SurvivesFailingAllocations) {
    const TypeParam full = make<TypeParam>("exactly as long as its storage has room for it");
    const auto prepare = [&] {
        TypeParam s;
        s.reserve(full.length());
        s.append(full);
        return s;
    };
    const auto unchanged = [&](const TypeParam& s) { EXPECT_EQ(value(s), value(full)); };
    const auto characters = value(full);
    const std::vector<std::function<void(TypeParam&)>> edits = {
        [&](TypeParam& s) { s.append(full); },
        [&](TypeParam& s) { s.append(characters.c_str()); },
        [&](TypeParam& s) { s.append(characters[0]); },
        [&](TypeParam& s) { s.append(s); },
        [&](TypeParam& s) { s.prepend(full); },
        [&](TypeParam& s) { s.prepend(characters[0]); },
        [&](TypeParam& s) { s.insert(3, full); },
        [&](TypeParam& s) { s.insert(3, characters.c_str()); },
        [&](TypeParam& s) { s.insert(3, characters[0]); },
        [&](TypeParam& s) { s.replace(3, 2, full); },
        [&](TypeParam& s) { s.replace(3, 2, characters.c_str()); },
        [&](TypeParam& s) { s.replace(3, 0, characters[0]); },
        [&](TypeParam& s) { plusEqual(s, full); },
        [&](TypeParam& s) { s.assign(plus(s, s)); },
        [&](TypeParam& s) { s = plus(full, full).substr(1); },
        [&](TypeParam& s) { s.assign((characters + characters).c_str()); },
        [&](TypeParam& s) { s.reserve(1000); },
    };
    for (std::size_t i = 0; i < edits.size(); ++i) {
        SCOPED_TRACE("edit " + std::to_string(i));
        failEveryAllocation(prepare, edits[i], unchanged);
    }
}
