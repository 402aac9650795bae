// The multibyte cache and memory: where scratch memory comes from, and what is left where memory runs out.
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>

#include "common/scratch.h"
#include "recordingConverters.h"

using namespace support;

// Up to the limits scratch memory is the stack's, above them the heap's; and on a thread whose stack has no
// room.
TEST_F(Cache, TakesScratchMemoryFromTheStackUpToItsLimits) {
    constexpr unsigned int kWideLimit = 262144;
    constexpr unsigned int kByteLimit = 1048576;
    static const auto decodeAllocations = [](unsigned int length) {
        const std::string text(length, 'x');
        IString s;
        s.reserve(length);
        Allocations::failAt(0);
        s.convertFromMultibyte(text.c_str(), kUTF8);
        EXPECT_EQ(s.length(), length);
        return Allocations::count();
    };
    static const auto encodeAllocations = [](unsigned int length) {
        IString s(length, L'x');
        s.asMultibyte(kUTF8);  // the cache has its room
        Allocations::failAt(0);
        s.asMultibyte(kMultibyte);
        return Allocations::count();
    };
    takeCalls();
    decodeAllocations(1);  // the first call learns the bounds of the stack, which may take memory
    encodeAllocations(10000);
    converters().calls.reserve(100);
    EXPECT_EQ(decodeAllocations(kWideLimit - 1), 0);
    EXPECT_EQ(decodeAllocations(kWideLimit), 1);
    EXPECT_EQ(encodeAllocations(kByteLimit - 1), 0);
    EXPECT_EQ(encodeAllocations(kByteLimit), 1);

    // A stack of 256 KiB has no room for the 800 KB that decoding takes, nor for the 200 KB of encoding.
    static long allocations = 0;
    for (const std::size_t stackSize : {std::size_t{256} << 10, std::size_t{8} << 20}) {
        allocations = stackSize < (1 << 20) ? 1 : 0;
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, stackSize);
        pthread_t thread;
        const auto convertThere = [](void*) -> void* {
            decodeAllocations(1);
            EXPECT_EQ(decodeAllocations(200000), allocations);
            EXPECT_EQ(encodeAllocations(200000), allocations);
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, &attributes, convertThere, nullptr), 0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }
}

#if !defined(__SANITIZE_THREAD__)  // which knows no contexts

// A coroutine's stack is not the thread's: neither one below it nor one above has room.
TEST(Scratch, IsOfTheThreadsOwnStack) {
    constexpr std::size_t kPart = std::size_t{1} << 20;
    static char* parts = nullptr;
    parts = static_cast<char*>(
        mmap(nullptr, 3 * kPart, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(parts, MAP_FAILED);
    static bool hasRoom[3];
    static int part = 0;
    static const auto ask = [] { hasRoom[part] = qzString::stackHasRoom(200000); };
    const auto onTheMiddlePart = [](void*) -> void* {
        part = 1;
        ask();
        for (part = 0; part < 3; part += 2) {
            ucontext_t here;
            ucontext_t there;
            getcontext(&there);
            there.uc_stack.ss_sp = parts + static_cast<std::size_t>(part) * kPart;
            there.uc_stack.ss_size = kPart;
            there.uc_link = &here;
            makecontext(&there, ask, 0);
            swapcontext(&here, &there);
        }
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, parts + kPart, kPart);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, onTheMiddlePart, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    munmap(parts, 3 * kPart);
    EXPECT_FALSE(hasRoom[0]);
    EXPECT_TRUE(hasRoom[1]);
    EXPECT_FALSE(hasRoom[2]);
}

#endif

// Memory that runs out leaves text, cache and tag as they were, and the flag false.
TEST_F(Cache, SurvivesFailingAllocations) {
    converters().calls.reserve(1000);
    bool ok = true;
    for (const std::size_t length : {20U, 300000U}) {
        const std::string text(length, 'x');
        const auto isAsBefore = [&](IString& s) {
            EXPECT_FALSE(ok);
            EXPECT_EQ(value(s), L"abc");
            EXPECT_TRUE(isValid(s, kUTF8));
        };
        failEveryAllocation([] { return cached(kUTF8); },
                            [&](IString& s) { s.convertFromMultibyte(text.c_str(), kUTF8, &(ok = true)); },
                            isAsBefore);
        failEveryAllocation([] { return cached(kUTF8); },
                            [&](IString& s) { s.assign(text.c_str(), kUTF8, &(ok = true)); }, isAsBefore);
    }
    for (const unsigned int length : {100U, 1100000U}) {
        failEveryAllocation(
            [length] {
                converters().announced = 0;
                IString s(length, L'x');
                s.asMultibyte(kMultibyte);
                Allocations::failAt(0);
                return s;
            },
            [&](IString& s) {
                converters().announced = 2 * length;  // more than the cache has room for
                s.asMultibyte(kUTF8, &(ok = true));
            },
            [&](IString& s) {
                EXPECT_FALSE(ok);
                EXPECT_TRUE(isValid(s, kMultibyte));
            });
    }
    converters().announced = 0;
    Allocations::failAt(1);
    EXPECT_THROW(IString(100, 'x', kUTF8, &(ok = true)), std::bad_alloc);
    EXPECT_FALSE(ok);
    Allocations::failAt(1);
    EXPECT_THROW(IString("longer than what an object holds", kUTF8, &(ok = true)), std::bad_alloc);
    EXPECT_FALSE(ok);
    const IString fresh(kWide.c_str());
    Allocations::failAt(1);
    EXPECT_THROW((void)fresh.copyAsMultibyte(kUTF8, &(ok = true)), std::bad_alloc);
    EXPECT_FALSE(ok);
    Allocations::failAt(0);
    // Copies take text and cache, or nothing.
    IString source(L"a text that is too long to be kept inside the string object");
    source.asUTF8();
    const wchar_t* borrowed = nullptr;
    failEveryAllocation([] { return cached(kMultibyte); },
                        [&](IString& s) {
                            borrowed = s.asWChar();
                            s = source;
                        },
                        [&](IString& s) {
                            EXPECT_EQ(value(s), L"abc");
                            EXPECT_EQ(s.asWChar(), borrowed);
                            EXPECT_TRUE(isValid(s, kMultibyte));
                            EXPECT_STREQ(s.asMultibyte(kMultibyte), "abc");
                        });
    failEveryAllocation([] { return 0; }, [&](int) { const IString copy(source); }, [](int) {});
    IString target;
    target = source;
    const long before = Allocations::count();
    target = source;
    EXPECT_EQ(Allocations::count(), before);

    void (*const changes[])(IString&, const IString&) = {
        [](IString& s, const IString& x) { s.append(x); },
        [](IString& s, const IString& x) { s.append(x.asWChar()); },
        [](IString& s, const IString& x) { s.prepend(x); },
        [](IString& s, const IString& x) { s.insert(1, x.asWChar()); },
        [](IString& s, const IString& x) { s.replace(1, 1, x); },
        [](IString& s, const IString& x) { s.assign(x.asWChar()); },
        [](IString& s, const IString& x) { s.replaceFirst(L"b", x); },
        [](IString& s, const IString& x) { x.substr(s, 1); },
        [](IString& s, const IString& x) { plusEqual(s, x); },
        [](IString& s, const IString& x) { s.format(L"%ls", x.asWChar()); },
    };
    for (const auto& change : changes) {
        failEveryAllocation([] { return cached(kUTF8); }, [&](IString& s) { change(s, source); },
                            [](IString& s) {
                                EXPECT_EQ(value(s), L"abc");
                                EXPECT_TRUE(isValid(s, kUTF8));
                            });
    }
}
