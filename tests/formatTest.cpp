// The bounded formatters: what they say of output that fits, does not fit, and never can.
#include "primitives/format.h"

#include <pthread.h>

#include <cerrno>
#include <climits>
#include <clocale>

#include "support.h"

namespace {

int formatInto(char* buffer, unsigned int size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = KT_vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

int formatInto(wchar_t* buffer, unsigned int size, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = KT_vswprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

template <class Char>
class Format : public ::testing::Test {};
using BothWidths = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(Format, BothWidths);

}  // namespace

TYPED_TEST(Format, SaysHowMuchRoomIsNeeded) {
    const TypeParam five[] = {'%', '5', 'd', 0};
    const TypeParam nothing[] = {0};
    for (unsigned int size = 0; size < 9; ++size) {
        const support::Exact<TypeParam> buffer(size);
        ASSERT_EQ(formatInto(buffer.data(), size, five, 7), size > 5 ? 5 : -5) << size;
        if (size > 5) {
            EXPECT_EQ(buffer.view(6), (std::basic_string<TypeParam>{' ', ' ', ' ', ' ', '7', 0}));
        }
        ASSERT_EQ(formatInto(buffer.data(), size, nothing), size > 0 ? 0 : -1) << size;
    }
    EXPECT_EQ(formatInto(static_cast<TypeParam*>(nullptr), 0, five, 7), -5);
}

// Small buffers and large ones are filled in different ways.
TYPED_TEST(Format, FillsTheBufferToItsEnd) {
    const TypeParam padded[] = {'%', '*', 'd', 0};
    for (const int length : {1023, 1024, 4095, 4096, 16382, 16383, 16384, 65534, 65535, 65536, 90000}) {
        const auto size = static_cast<unsigned int>(length);
        const support::Exact<TypeParam> small(size);
        ASSERT_EQ(formatInto(small.data(), size, padded, length, 7), -length);
        const support::Exact<TypeParam> enough(std::basic_string<TypeParam>(size + 1, '#'));
        ASSERT_EQ(formatInto(enough.data(), size + 1, padded, length, 7), length);
        std::basic_string<TypeParam> expected(size + 1, ' ');
        expected[size - 1] = '7';
        expected[size] = 0;
        ASSERT_EQ(enough.view(size + 1), expected);
    }
}

TYPED_TEST(Format, TellsWhatCanNeverSucceed) {
    TypeParam buffer[100];
    const TypeParam unfinished[] = {'x', '%', 0};
    EXPECT_EQ(formatInto(buffer, 100, unfinished), INT_MIN);
    EXPECT_EQ(formatInto(buffer, 100, static_cast<const TypeParam*>(nullptr)), INT_MIN);
    std::setlocale(LC_ALL, "C");
    for (const unsigned int size : {0U, 1U, 100U}) {
        for (const int entry : {0, ENOMEM}) {  // the caller's, not the formatter's
            errno = entry;
            if constexpr (sizeof(TypeParam) == 1) {
                EXPECT_EQ(formatInto(buffer, size, "%ls", L"\x416"), INT_MIN);
            } else {
                EXPECT_EQ(formatInto(buffer, size, L"%s", "\xFF"), INT_MIN);
                errno = entry;
                EXPECT_EQ(formatInto(buffer, size, L"%c", 0xE9), INT_MIN);
            }
        }
    }
}

TEST(FormatLimits, WantOfMemoryIsNoWantOfRoom) {
    wchar_t buffer[10];
    for (const int which : {1, 2}) {  // the stream, and what it writes last
        errno = 0;
        support::Allocations::failAt(which);
        EXPECT_THROW(formatInto(buffer, 10, L"%*d", 20000, 7), std::bad_alloc);
    }
    support::Allocations::failAt(0);
    EXPECT_EQ(formatInto(buffer, 10, L"%*d", 20000, 7), -20000);
}

TEST(FormatLimits, TakesNoMoreStackThanThereIs) {
    const auto formatThere = [](void*) -> void* {
        char narrow[10];
        wchar_t wide[10];
        EXPECT_EQ(formatInto(narrow, 10, "%*d", 5000, 7), -5000);
        EXPECT_EQ(formatInto(wide, 10, L"%*d", 5000, 7), -5000);
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 65536);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, formatThere, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(FormatLimits, OutputBeyondIntNeverSucceeds) {
    EXPECT_EQ(formatInto(static_cast<char*>(nullptr), 0, "%*d", INT_MAX, 1), INT_MIN);
    char buffer[10];
    EXPECT_EQ(formatInto(buffer, UINT_MAX, "%5d", 7), 5);
}

TYPED_TEST(Format, MeasuresBeyondThePlatformsOwnBuffers) {
    const TypeParam precise[] = {'%', '.', '*', 'f', 0};
    TypeParam buffer[10];
    EXPECT_EQ(formatInto(buffer, 10, precise, 20000, 1.0), -20002);
}
