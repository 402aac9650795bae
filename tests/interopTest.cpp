// The headers for interoperation: containers, views, streams and test output.
#include <clocale>
#include <map>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "string/containers.h"
#include "string/stream.h"
#include "string/view.h"
#include "support.h"

using namespace support;

template <class String>
class Interop : public ::testing::Test {};
TYPED_TEST_SUITE(Interop, BothClasses);

TYPED_TEST(Interop, KeysContainers) {
    static_assert(!noexcept(qzString::Hash()(TypeParam())));  // or libstdc++ keeps no hashes
    std::unordered_map<TypeParam, int, qzString::Hash, qzString::Equal> exact;
    std::unordered_map<TypeParam, int, qzString::HashNoCase, qzString::EqualNoCase> folded;
    std::map<TypeParam, int, qzString::Less> ordered;
    std::map<TypeParam, int, qzString::LessNoCase> orderedNoCase;
    for (const char* const key : {"Key", "key", "KEY", "other"}) {
        const TypeParam k = make<TypeParam>(key);
        ++exact[k];
        ++folded[k];
        ++ordered[k];
        ++orderedNoCase[k];
    }
    EXPECT_EQ(exact.size(), 4U);
    EXPECT_EQ(folded.size(), 2U);
    EXPECT_EQ(folded[make<TypeParam>("kEy")], 3);
    EXPECT_EQ(ordered.size(), 4U);
    EXPECT_EQ(value(ordered.begin()->first), wide<TypeParam>("KEY"));
    EXPECT_EQ(orderedNoCase.size(), 2U);
    const auto text = wide<TypeParam>("keY");
    EXPECT_EQ(orderedNoCase.find(text.c_str())->second, 3);  // no temporary string
    EXPECT_EQ(orderedNoCase.count(std::basic_string_view<Char<TypeParam>>(text)), 1U);
    EXPECT_EQ(ordered.count(text), 0U);
}

TYPED_TEST(Interop, FunctionObjectsAgreeWithTheMembers) {
    const char* const texts[] = {"", "a", "A", "ab", "B", "_"};
    for (const char* const x : texts) {
        for (const char* const y : texts) {
            const TypeParam a = make<TypeParam>(x);
            const TypeParam b = make<TypeParam>(y);
            EXPECT_EQ(qzString::Equal()(a, b), equal(a, b));
            EXPECT_EQ(qzString::Less()(a, b), less(a, b));
            EXPECT_EQ(qzString::EqualNoCase()(a, b), a.compareNoCase(b) == 0);
            EXPECT_EQ(qzString::LessNoCase()(a, b), a.compareNoCase(b) < 0);
            if (qzString::EqualNoCase()(a, b)) {
                EXPECT_EQ(qzString::HashNoCase()(a), qzString::HashNoCase()(b));
            }
        }
        EXPECT_EQ(qzString::Hash()(make<TypeParam>(x)), hashfunction(make<TypeParam>(x)));
    }
    // Every block of a long text counts, and their order does.
    std::unordered_set<std::size_t> hashes;
    for (const char first : {'a', 'b'}) {
        for (const char second : {'a', 'b'}) {
            TypeParam text = make<TypeParam>(std::string(256, first) + std::string(256, second));
            const std::size_t hash = qzString::HashNoCase()(text);
            hashes.insert(hash);
            text.toUpperCase();
            EXPECT_EQ(qzString::HashNoCase()(text), hash);
        }
    }
    EXPECT_EQ(hashes.size(), 4U);
    const Char<TypeParam>* const null = nullptr;
    EXPECT_TRUE(qzString::Equal()(null, TypeParam()));
    EXPECT_EQ(qzString::Hash()(null), qzString::Hash()(TypeParam()));
}

TEST(Interop, LessRanksNarrowTextByUnsignedBytes) {
    EXPECT_TRUE(qzString::Less()(CString("z"), CString("\xE9")));
    EXPECT_TRUE(qzString::LessNoCase()(CString("Z"), CString("\xE9")));
}

TEST(Interop, WritesToStreams) {
    const CString narrow("a\0b", 3);
    std::ostringstream out;
    out.width(5);
    out << narrow << '|' << fromUtf8("\xD0\x96\xF0\x9F\x98\x80");
    EXPECT_EQ(out.str(), std::string("  a\0b|\xD0\x96\xF0\x9F\x98\x80", 12));
    std::wostringstream wideOut;
    wideOut << IString(L"a\0\x416", 3);
    EXPECT_EQ(wideOut.str(), std::wstring(L"a\0\x416", 3));
    std::ostringstream failing;
    failing << IString(L"x\xD800");
    EXPECT_EQ(failing.rdstate(), std::ios_base::failbit);
    EXPECT_EQ(failing.str(), "");
    const IString wide(L"a\0b", 3);
    for (const char* const state : {"not cached", "cached"}) {
        SCOPED_TRACE(state);
        out.str("");
        out.width(5);
        out << wide;
        EXPECT_EQ(out.str(), std::string("  a\0b", 5));
        wide.asUTF8();
    }
}

TEST(Interop, WritingLeavesTheCacheInTheLocale) {
    ASSERT_NE(std::setlocale(LC_ALL, "en_US.ISO-8859-1"), nullptr);
    const IString s(L"\xE9");
    const char* const cached = s.asMultibyte(qzString::kMultibyte);
    std::ostringstream out;
    out << s;
    EXPECT_EQ(out.str(), "\xC3\xA9");
    EXPECT_STREQ(cached, "\xE9");
    std::setlocale(LC_ALL, "C");
}

TEST(Interop, PrintsInTests) {
    EXPECT_EQ(::testing::PrintToString(CString("a\"\\\0\xE9", 5)), "\"a\\\"\\\\\\x{0}\\x{E9}\"");
    EXPECT_EQ(::testing::PrintToString(CString(" \x1F~\x7F")), "\" \\x{1F}~\\x{7F}\"");
    EXPECT_EQ(::testing::PrintToString(IString(L"a\x416\x1F600\xFFFFFFFF")),
              "L\"a\\x{416}\\x{1F600}\\x{FFFFFFFF}\"");
}
