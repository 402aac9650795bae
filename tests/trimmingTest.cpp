// Trimming and case mapping of both classes.
#include "support.h"

using namespace support;

template <class String>
class Trimming : public ::testing::Test {};
TYPED_TEST_SUITE(Trimming, BothClasses);

TYPED_TEST(Trimming, RemovesOneRun) {
    const struct {
        std::string_view text;
        char trimmed;
        std::string_view strip, rstrip;
    } cases[] = {
        {"", 'x', "", ""},
        {"xxx", 'x', "", ""},
        {"xxaxbxx", 'x', "axbxx", "xxaxb"},
        {"abx", 'a', "bx", "abx"},
        {"bax", 'a', "bax", "bax"},
        {{"\0\0a\0", 4}, '\0', {"a\0", 2}, {"\0\0a", 3}},
        {"  a", 'x', "  a", "  a"},
    };
    for (const auto& c : cases) {
        const auto given = static_cast<Char<TypeParam>>(c.trimmed);
        TypeParam front = make<TypeParam>(c.text);
        TypeParam back = make<TypeParam>(c.text);
        EXPECT_EQ(&front.strip(given), &front);
        EXPECT_EQ(&back.rstrip(given), &back);
        EXPECT_EQ(value(front), wide<TypeParam>(c.strip));
        EXPECT_EQ(value(back), wide<TypeParam>(c.rstrip));
    }
}

TYPED_TEST(Trimming, RemovesWhiteSpace) {
    const struct {
        std::string_view text, strip, rstrip;
    } cases[] = {
        {"", "", ""},
        {" \t\n\v\f\r", "", ""},
        {" \ta b\r\n", "a b\r\n", " \ta b"},
        {"a", "a", "a"},
        {{"\0 a \0", 5}, {"\0 a \0", 5}, {"\0 a \0", 5}},
        {"\x1F a \x0E", "\x1F a \x0E", "\x1F a \x0E"},
    };
    for (const auto& c : cases) {
        TypeParam front = make<TypeParam>(c.text);
        TypeParam back = make<TypeParam>(c.text);
        EXPECT_EQ(value(front.stripSpaces()), wide<TypeParam>(c.strip));
        EXPECT_EQ(value(back.rstripSpaces()), wide<TypeParam>(c.rstrip));
        EXPECT_EQ(value(back.stripSpaces()), value(front.rstripSpaces()));
    }
}

TEST(Trimming, KnowsUnicodeWhiteSpaceInWideTextOnly) {
    EXPECT_EQ(value(IString(L"\x3000\x2003\xA0 a\x85\x2029\x1680").stripSpaces().rstripSpaces()), L"a");
    EXPECT_EQ(value(IString(L"\x200B"
                            "a\xFEFF")
                        .stripSpaces()
                        .rstripSpaces()),
              L"\x200B"
              "a\xFEFF");
    EXPECT_EQ(value(CString("\xA0"
                            "a\x85")
                        .stripSpaces()
                        .rstripSpaces()),
              "\xA0"
              "a\x85");
}

TYPED_TEST(Trimming, MapsCase) {
    TypeParam s = make<TypeParam>(std::string_view("@AZ[`az{ 09\0bY", 14));
    s.toLowerCase();
    EXPECT_EQ(value(s), wide<TypeParam>(std::string_view("@az[`az{ 09\0by", 14)));
    s.toUpperCase();
    EXPECT_EQ(value(s), wide<TypeParam>(std::string_view("@AZ[`AZ{ 09\0BY", 14)));
}

TEST(Trimming, MapsCaseBeyondAsciiInWideTextOnly) {
    IString s(L"\xC9\x3A3\x416\x10A0\x1E9E\x130");
    s.toLowerCase();
    EXPECT_EQ(value(s), L"\xE9\x3C3\x436\x2D00\xDFi");
    s = IString(L"\xE9\x3C3\x3C2\x436\xDF\x131\xFF");
    s.toUpperCase();
    EXPECT_EQ(value(s), L"\xC9\x3A3\x3A3\x416\xDFI\x178");
    CString narrow("\xC9\xE9");
    narrow.toLowerCase();
    narrow.toUpperCase();
    EXPECT_EQ(value(narrow), "\xC9\xE9");
}

// One removal per character would take minutes here.
TYPED_TEST(Trimming, IsLinear) {
    constexpr unsigned int kMany = 10'000'000;
    TypeParam s(kMany, Char<TypeParam>{' '});
    s.append(Char<TypeParam>{'x'}).append(TypeParam(kMany, Char<TypeParam>{' '}));
    expectLinear([&] { EXPECT_EQ(value(s.stripSpaces().rstripSpaces()), wide<TypeParam>("x")); });
    TypeParam t(kMany, Char<TypeParam>{'x'});
    expectLinear([&] { EXPECT_EQ(t.strip(Char<TypeParam>{'x'}).length(), 0U); });
}
