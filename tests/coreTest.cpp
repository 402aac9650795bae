// Construction, assignment, access, copies, exchange and bounds checks of both classes.
#include <climits>
#include <stdexcept>
#include <type_traits>

#include "support.h"

using namespace support;

template <class String>
class Core : public ::testing::Test {};
TYPED_TEST_SUITE(Core, BothClasses);

template <class Element>
std::unique_ptr<Element, decltype(&std::free)> owned(Element* memory) {
    return {memory, &std::free};
}

char* heapCopy(const CString& s) {
    return s.copyAsChar();
}
wchar_t* heapCopy(const IString& s) {
    return s.copyAsWChar();
}

const char* borrowed(const CString& s) {
    return s.asChar();
}
const wchar_t* borrowed(const IString& s) {
    return s.asWChar();
}

TYPED_TEST(Core, Constructs) {
    using String = TypeParam;
    using C = Char<String>;
    const C text[] = {'a', 'b', 0, 'c', 'd', 0};
    const struct {
        String made;
        Std<String> expected;
    } cases[] = {
        {String(), {}},
        {String(text), {text, 2}},
        {String(static_cast<const C*>(nullptr)), {}},
        {String(text, 5), {text, 5}},
        {String(text, 0), {}},
        {String(static_cast<const C*>(nullptr), 5), {}},
        {String(static_cast<const C*>(nullptr), -1), {}},
        {String(C{0}), Std<String>(1, C{0})},
        {String(C{'x'}), Std<String>(1, C{'x'})},
        {String(3, C{'x'}), Std<String>(3, C{'x'})},
        {String(0, C{'x'}), {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(value(c.made), c.expected);
        EXPECT_EQ(c.made.length(), c.expected.size());
        EXPECT_EQ(borrowed(c.made)[c.expected.size()], C{0});
        EXPECT_EQ(std::as_const(c.made).at(c.made.length()), C{0});
    }
    EXPECT_THROW(String(text, -1), std::length_error);
    EXPECT_THROW(String(text, INT_MIN), std::length_error);
}

TYPED_TEST(Core, CopiesMovesAndAssigns) {
    using String = TypeParam;
    using C = Char<String>;
    static_assert(std::is_nothrow_move_constructible_v<String> && std::is_nothrow_move_assignable_v<String>);
    static_assert(std::is_convertible_v<const C*, String> && !std::is_convertible_v<C, String>);
    static_assert(!std::is_polymorphic_v<String>);
    static_assert(!std::is_constructible_v<String, const C*, qzString::Encoding>);  // no count
    static_assert(String::npos == 0xFFFFFFFFU);
    const String original = make<String>(std::string_view("a\0b", 3));

    String copy(original);
    EXPECT_EQ(value(copy), value(original));
    EXPECT_NE(borrowed(copy), borrowed(original));
    EXPECT_EQ(&copy.assign(copy), &copy);
    EXPECT_EQ(&(copy = std::as_const(copy)), &copy);
    EXPECT_EQ(value(copy), value(original));
    if constexpr (std::is_same_v<String, IString>) {  // of a CString as the standard string has it
        String& itself = copy;
        copy = std::move(itself);
        EXPECT_EQ(value(copy), value(original));
    }

    String moved(std::move(copy));
    EXPECT_EQ(value(moved), value(original));
    EXPECT_EQ(copy.length(), 0U);  // NOLINT(bugprone-use-after-move): empty by contract
    copy = std::move(moved);
    EXPECT_EQ(value(copy), value(original));
    EXPECT_EQ(moved.length(), 0U);  // NOLINT(bugprone-use-after-move)

    String target = make<String>("old text, longer than what any string keeps inside itself");
    EXPECT_EQ(&target.assign(original), &target);
    EXPECT_EQ(value(target), value(original));
    const Std<String> terminated = wide<String>("new");
    EXPECT_EQ(&target.assign(terminated.c_str()), &target);
    EXPECT_EQ(value(target), terminated);
    target.assign(borrowed(target) + 1);  // a part of itself
    EXPECT_EQ(value(target), wide<String>("ew"));
    EXPECT_EQ(&target.assign(static_cast<const C*>(nullptr)), &target);
    EXPECT_EQ(target.length(), 0U);
}

TYPED_TEST(Core, ReservesAndReadsElements) {
    TypeParam s = make<TypeParam>("abc");
    const unsigned int capacity = s.reserve(100);
    EXPECT_GE(capacity, 100U);
    EXPECT_EQ(capacity, s.capacity());
    const auto* const storage = borrowed(s);
    s.assign(make<TypeParam>(std::string(100, 'x')));
    EXPECT_EQ(borrowed(s), storage);
    EXPECT_EQ(std::as_const(s).at(99), Char<TypeParam>{'x'});
    EXPECT_EQ(std::as_const(s)[0], Char<TypeParam>{'x'});
}

TEST(Core, NarrowElementsAreWritable) {
    CString s("abc");
    s.at(0) = 'x';
    s[2] = '\0';
    EXPECT_EQ(value(s), std::string("xb\0", 3));
    static_assert(std::is_same_v<decltype(s.at(0)), char&>);
    static_assert(std::is_same_v<decltype(std::declval<IString&>().at(0)), wchar_t>);
    EXPECT_EQ(s.asMultibyte(), s.asChar());
    EXPECT_EQ(s.asCharStoreSize(), 4U);
    EXPECT_EQ(s.asMultibyteStoreSize(), 4U);
    EXPECT_STREQ(owned(s.copyAsMultibyte()).get(), "xb");
}

TYPED_TEST(Core, CopiesToTheHeap) {
    for (const std::string_view text : {std::string_view("a\0b", 3), std::string_view()}) {
        const TypeParam s = make<TypeParam>(text);
        const auto copy = owned(heapCopy(s));
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(Std<TypeParam>(copy.get(), s.length() + 1), value(s) + Char<TypeParam>{0});
    }
    const TypeParam s = make<TypeParam>("abc");
    Allocations::failAt(1);
    EXPECT_EQ(heapCopy(s), nullptr);
    Allocations::failAt(0);
}

TYPED_TEST(Core, Swaps) {
    TypeParam a = make<TypeParam>("short");
    TypeParam b = make<TypeParam>("a text that is too long to be kept inside the string object");
    const auto before = value(b);
    const auto* const storage = borrowed(b);
    Allocations::failAt(1);
    a.swap(b);
    EXPECT_FALSE(Allocations::failed());
    Allocations::failAt(0);
    EXPECT_EQ(value(a), before);
    EXPECT_EQ(borrowed(a), storage);
    EXPECT_EQ(value(b), wide<TypeParam>("short"));
    swap(a, b);
    EXPECT_EQ(value(b), before);
    b.swap(b);
    EXPECT_EQ(value(b), before);
}

TYPED_TEST(Core, ChecksBounds) {
    constexpr unsigned int kAll = TypeParam::npos;
    const struct {
        const char* text;
        unsigned int pos;
        unsigned int count;
        bool position;
        bool range;
    } cases[] = {
        {"abcde", 0, 5, true, true},      {"abcde", 3, 4, true, true},         {"abcde", 4, 5, true, true},
        {"abcde", 1, 6, true, false},     {"abcde", 4, kAll, true, true},      {"abcde", 5, 0, false, false},
        {"abcde", kAll, 0, false, false}, {"abcde", 4, kAll - 1, true, false}, {"", 0, 0, false, false},
        {"", 0, kAll, false, false},
    };
    for (const auto& c : cases) {
        const TypeParam s = make<TypeParam>(c.text);
        EXPECT_EQ(s.doBoundsCheck(c.pos), c.position) << c.text << c.pos;
        EXPECT_EQ(s.doBoundsCheck(c.pos, c.count), c.range) << c.text << c.pos << ' ' << c.count;
    }
}
