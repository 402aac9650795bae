// Comparison, relations, collation and hashing of both classes.
#include <clocale>
#include <cstring>
#include <cwchar>

#include "support.h"

using namespace support;

template <class String>
class Comparison : public ::testing::Test {};
TYPED_TEST_SUITE(Comparison, BothClasses);

int sign(int value) {
    return value < 0 ? -1 : value > 0 ? 1 : 0;
}

int byElements(const char* a, const char* b, std::size_t n) {
    return std::memcmp(a, b, n);
}
int byElements(const wchar_t* a, const wchar_t* b, std::size_t n) {
    return std::wmemcmp(a, b, n);
}

// Whether the C library's memcmp values a difference alike wherever it is: that of AArch64 does not, nor that
// of x86-64 for the oldest processors.
bool valuesByDifference() {
    int (*volatile const compare)(const void*, const void*, std::size_t) = std::memcmp;
    return compare("abcd", "abzz", 4) == compare("c", "z", 1);
}

constexpr int kDiffer = 2;  // in the common beginning: the value is the C library's

struct Case {
    std::string_view a, b;
    int exact;   // -1, 0 or 1 by length, or +-kDiffer
    int folded;  // of the lower-case forms
};
const Case kCases[] = {
    {"", "", 0, 0},
    {"", "a", -1, -1},
    {"ab", "abc", -1, -1},
    {"ab", "abcdefghijkl", -1, -1},
    {"abc", "abd", -kDiffer, -kDiffer},
    {"a\xE9", "az", kDiffer, kDiffer},
    {{"a\0", 2}, "a", 1, 1},
    {{"a\0b", 3}, {"a\0c", 3}, -kDiffer, -kDiffer},
    {"AB", "abc", -kDiffer, -1},
    {"HELLO", "hello", -kDiffer, 0},
    {"A", "_", -kDiffer, kDiffer},
    {"[", "{", -kDiffer, -kDiffer},
    {"@", "`", -kDiffer, -kDiffer},
    {"Zebra", "apple", -kDiffer, kDiffer},
};

template <class String>
String raw(std::string_view bytes) {
    Std<String> text;
    for (const char c : bytes)
        text += static_cast<Char<String>>(static_cast<unsigned char>(c));
    return String(text.data(), static_cast<int>(text.size()));
}

// The exact value: of the first difference by the C library's function, else of the lengths.
template <class String>
void expectValue(int actual, int expected, const String& a, const String& b) {
    if (expected == kDiffer || expected == -kDiffer) {
        const std::size_t common = std::min(a.length(), b.length());
        EXPECT_EQ(actual, byElements(asView(a).data(), asView(b).data(), common));
        EXPECT_EQ(sign(actual), sign(expected));
    } else {
        EXPECT_EQ(actual, expected);
    }
}

TYPED_TEST(Comparison, RanksAndRelates) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.a) + '/' + std::string(c.b));
        const TypeParam a = raw<TypeParam>(c.a);
        const TypeParam b = raw<TypeParam>(c.b);
        expectValue(a.compare(b), c.exact, a, b);
        expectValue(b.compare(a), -c.exact, b, a);
        EXPECT_EQ(a.compare(a), 0);
        for (const int order : {c.exact, -c.exact}) {
            const TypeParam& x = order == c.exact ? a : b;
            const TypeParam& y = order == c.exact ? b : a;
            EXPECT_EQ(equal(x, y), order == 0);
            EXPECT_EQ(notEqual(x, y), order != 0);
            EXPECT_EQ(less(x, y), order < 0);
            EXPECT_EQ(greater(x, y), order > 0);
            EXPECT_EQ(lessEqual(x, y), order <= 0);
            EXPECT_EQ(greaterEqual(x, y), order >= 0);
        }
        if (c.exact == 0) {
            EXPECT_EQ(hashfunction(a), hashfunction(b));
        } else {
            EXPECT_NE(hashfunction(a), hashfunction(b));
        }
    }
}

TYPED_TEST(Comparison, IgnoresCase) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(std::string(c.a) + '/' + std::string(c.b));
        const TypeParam a = raw<TypeParam>(c.a);
        const TypeParam b = raw<TypeParam>(c.b);
        TypeParam lowerA = a;
        TypeParam lowerB = b;
        lowerA.toLowerCase();
        lowerB.toLowerCase();
        EXPECT_EQ(sign(a.compareNoCase(b)), sign(c.folded));
        EXPECT_EQ(sign(b.compareNoCase(a)), -sign(c.folded));
        if (valuesByDifference()) {
            expectValue(a.compareNoCase(b), c.folded, lowerA, lowerB);
            EXPECT_EQ(a.compareNoCase(b), lowerA.compare(lowerB));
        }
        EXPECT_EQ(a.compareNoCase(a), 0);
        EXPECT_EQ(value(a), value(raw<TypeParam>(c.a)));
    }
    Allocations::failAt(0);
    const TypeParam a = make<TypeParam>(std::string(10000, 'X'));
    const long before = Allocations::count();
    EXPECT_EQ(a.compareNoCase(a), 0);
    EXPECT_EQ(Allocations::count(), before);
}

TEST(Comparison, FoldsWideTextBeyondAscii) {
    EXPECT_EQ(IString(L"\x41F\x420\x418 \xC9\x10400").compareNoCase(L"\x43F\x440\x438 \xE9\x10428"), 0);
    EXPECT_NE(IString(L"\x41F\x420\x418\x412").compareNoCase(L"\x43F\x440\x438\x433"), 0);
    EXPECT_EQ(CString("\xC9").compareNoCase("\xE9"), CString("\xC9").compare("\xE9"));
    EXPECT_EQ(IString(L"\x212A").compareNoCase(L"k"), 0);               // the Kelvin sign
    EXPECT_LT(IString(L"\xC9Ka").compareNoCase(L"\xE9\x212A\x62"), 0);  // it is equal, and a comes before b
    EXPECT_LT(IString(L"\xE9\x212A\x61").compareNoCase(L"\xC9Kb"), 0);
}

TEST(Comparison, ComparesNarrowWithPointers) {
    EXPECT_EQ(CString("ab").compare("ab"), 0);
    EXPECT_EQ(CString("a\0", 2).compare("a"), 1);
    EXPECT_FALSE(equal(CString("a\0", 2), "a"));
    EXPECT_TRUE(equal(CString("a"), "a"));
    EXPECT_EQ(CString().compare(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(CString("a").compare(static_cast<const char*>(nullptr)), 1);
    EXPECT_TRUE(equal(CString(), static_cast<const char*>(nullptr)));
}

TEST(Comparison, HashIgnoresTheCache) {
    const IString plain(L"\x416\x4E00");
    const IString cached = fromUtf8("\xD0\x96\xE4\xB8\x80");
    cached.asUTF8();
    EXPECT_EQ(cached.compare(plain), 0);
    EXPECT_EQ(hashfunction(cached), hashfunction(plain));
}

TYPED_TEST(Comparison, Collates) {
    for (const char* const locale : {"C", "en_US.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
        const TypeParam apple = make<TypeParam>("apple");
        const TypeParam zebra = make<TypeParam>("Zebra");
        const bool isC = std::strcmp(locale, "C") == 0;
        EXPECT_EQ(sign(apple.collate(zebra)), isC ? 1 : -1);
        EXPECT_EQ(sign(apple.collateNoCase(zebra)), -1);
        EXPECT_EQ(sign(zebra.collateNoCase(apple)), 1);
        EXPECT_EQ(make<TypeParam>("HELLO").collateNoCase(make<TypeParam>("hello")), 0);
        const TypeParam a = make<TypeParam>(std::string_view("a\0b", 3));
        const TypeParam b = make<TypeParam>(std::string_view("a\0c", 3));
        EXPECT_EQ(a.collate(b), 0);  // up to the first NUL
        EXPECT_EQ(a.collateNoCase(b), 0);
        EXPECT_EQ(TypeParam().collate(TypeParam()), 0);
    }
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(sign(make<TypeParam>("A").collateNoCase(make<TypeParam>("_"))), 1);  // by lower case
    const TypeParam text = make<TypeParam>("A text that is too long to be kept inside the string object");
    failEveryAllocation([] { return 0; }, [&](int) { (void)text.collateNoCase(text); }, [](int) {});
}
