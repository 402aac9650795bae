// The growth loop of formatting, against formatters of the test's own: which sizes it tries, and when it
// gives up.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cwchar>

#include "primitives/format.h"
#include "string/doFormat.h"
#include "support.h"

using namespace support;

namespace {

// Sizes tried, and what the formatters say of output of `needed` characters.
std::vector<unsigned int> tried;
std::int64_t needed = 0;
bool tellsLength = false;
long blocks = 0;  // of memory, before

template <class Char>
int formatted(Char* buffer, unsigned int size, va_list arguments) {
    tried.push_back(size);
    EXPECT_EQ(va_arg(arguments, int), 7);  // every attempt starts from the first argument
    EXPECT_EQ(errno, ENOENT);              // and with the caller's errno
    errno = EBADF;
    EXPECT_EQ(Allocations::peak(), blocks + 1) << "more than one buffer at a time";
    if (needed == INT_MIN)
        return INT_MIN;
    if (needed >= size)
        return tellsLength ? static_cast<int>(-needed) : -1;
    for (std::int64_t i = 0; i < needed; ++i)
        buffer[i] = 'x';
    buffer[needed] = 0;
    return static_cast<int>(needed);
}

template <class Char>
bool run(std::basic_string<Char>& target, unsigned int hint, const Char* format, ...) {
    tried.clear();
    tried.reserve(10);
    Allocations::failAt(0);
    blocks = Allocations::live();
    errno = ENOENT;
    va_list arguments;
    va_start(arguments, format);
    const bool done = qzString::doFormat(target, format, arguments, hint);
    va_end(arguments);
    return done;
}

template <class String>
class Growth : public ::testing::Test {};
TYPED_TEST_SUITE(Growth, BothClasses);

}  // namespace

int KT_vsnprintf(char* buffer, unsigned int size, const char*, va_list arguments) {
    return formatted(buffer, size, arguments);
}
int KT_vswprintf(wchar_t* buffer, unsigned int size, const wchar_t*, va_list arguments) {
    return formatted(buffer, size, arguments);
}

TYPED_TEST(Growth, TriesTheSizesOfTheSeries) {
    using Sizes = std::vector<unsigned int>;
    const struct {
        unsigned int hint;
        std::int64_t needed;
        bool tells;
        Sizes sizes;
    } cases[] = {
        {256, 255, false, {256}},
        {256, 256, false, {256, 1280}},
        {256, 3000, false, {256, 1280, 2304, 3328}},
        {0, 2000, false, {0, 1024, 2048}},
        {256, 256, true, {256, 1280}},
        {256, 1279, true, {256, 1280}},
        {256, 1280, true, {256, 2304}},
        {256, 2303, true, {256, 2304}},
        {0, 1, true, {0, 1024}},  // -1 tells nothing
        {7, 1000000, true, {7, 1000455}},
    };
    for (const auto& c : cases) {
        Std<TypeParam> target = wide<TypeParam>("old");
        needed = c.needed;
        tellsLength = c.tells;
        EXPECT_TRUE(run(target, c.hint, wide<TypeParam>("f").c_str(), 7));
        EXPECT_EQ(tried, c.sizes);
        EXPECT_EQ(target, wide<TypeParam>(std::string(static_cast<std::size_t>(c.needed), 'x')));
    }
}

TYPED_TEST(Growth, GivesUp) {
    Std<TypeParam> target = wide<TypeParam>("old");
    needed = INT_MIN;
    EXPECT_FALSE(run(target, 256, wide<TypeParam>("f").c_str(), 7));
    EXPECT_EQ(tried.size(), 1U);
    needed = 0;
    EXPECT_FALSE(run(target, 256, wide<TypeParam>("f").c_str(), 7));
    EXPECT_EQ(tried.size(), 1U);
    EXPECT_EQ(target, wide<TypeParam>("old"));
}

// The last size is the first of the series at or above 2^32 - 1025. (Narrow only: memory that is never
// touched.)
TEST(Growth, EndsBelowThirtyTwoBits) {
    std::string target = "old";
    needed = std::int64_t{1} << 40;
    tellsLength = false;
    EXPECT_FALSE(run(target, 0xFFFFFBFEU, "f", 7));
    EXPECT_EQ(tried, (std::vector<unsigned int>{0xFFFFFBFEU, 0xFFFFFFFEU}));
    EXPECT_FALSE(run(target, 0xFFFFFBFFU, "f", 7));
    EXPECT_EQ(tried, (std::vector<unsigned int>{0xFFFFFBFFU}));
    EXPECT_EQ(target, "old");
}
