// The multibyte cache, row by row: the sources of string/ linked against converters of the test's own, which
// record every call and answer as they are told.
#include <pthread.h>

#include <cstdarg>
#include <functional>

#include "primitives/conversion.h"
#include "support.h"

using namespace support;
using qzString::Encoding;
using qzString::kMultibyte;
using qzString::kUTF8;

namespace {

constexpr char kOutsideMark = '#';

const std::string kText(1100, 'x');
const std::wstring kWide(1100, L'x');

struct Call {
    std::string converter;
    std::size_t length;
    bool isQuery;
    unsigned int capacity;
    bool hasFlag;
};

// How the converters answer. By default they copy element by element, and succeed.
struct Converters {
    std::vector<Call> calls;
    bool querySucceeds = true;
    bool conversionSucceeds = true;  // what the flag reports
    bool conversionWrites = true;    // whether anything comes out
    unsigned int announced = 0;      // a size to announce instead of the true one
    int growth = 0;                  // of that, after every conversion
    bool touchesFlag = true;

    static Converters& now() {
        static Converters converters;
        return converters;
    }
};

template <class From, class To>
unsigned int convert(const char* name, const From* source, unsigned int length, To* destination,
                     unsigned int capacity, bool* ok) {
    Converters& now = Converters::now();
    now.calls.push_back({name, length, destination == nullptr, capacity, ok != nullptr});
    if (destination == nullptr)
        return !now.querySucceeds ? 0 : now.announced != 0 ? now.announced : length;
    if (ok != nullptr && now.touchesFlag)
        *ok = now.conversionSucceeds;
    if (!now.conversionWrites)
        return 0;
    const unsigned int written = now.announced != 0 ? now.announced : length;
    EXPECT_GT(capacity, written);
    for (unsigned int i = 0; i < written; ++i)
        destination[i] = i < length ? static_cast<To>(source[i]) : static_cast<To>(kOutsideMark);
    now.announced += static_cast<unsigned int>(now.growth);
    return written;
}

}  // namespace

unsigned int qzString::UTF8toWCS(const char* source, unsigned int length, wchar_t* destination,
                                 unsigned int capacity, bool substitute, bool* ok) {
    EXPECT_FALSE(substitute);
    return convert("UTF8toWCS", source, length, destination, capacity, ok);
}
unsigned int qzString::MBStoWCS(const char* source, unsigned int length, wchar_t* destination,
                                unsigned int capacity, bool* ok) {
    return convert("MBStoWCS", source, length, destination, capacity, ok);
}
unsigned int qzString::WCStoUTF8(const wchar_t* source, unsigned int length, char* destination,
                                 unsigned int capacity, bool* ok) {
    return convert("WCStoUTF8", source, length, destination, capacity, ok);
}
unsigned int qzString::WCStoMBS(const wchar_t* source, unsigned int length, char* destination,
                                unsigned int capacity, bool* ok) {
    return convert("WCStoMBS", source, length, destination, capacity, ok);
}

namespace {

class Cache : public ::testing::Test {
  protected:
    void SetUp() override { Converters::now() = Converters(); }
    static Converters& converters() { return Converters::now(); }
    static std::size_t takeCalls() {
        const std::size_t calls = converters().calls.size();
        converters().calls.clear();
        return calls;
    }
    // Whether the cache is valid for the encoding: then asking converts nothing. (Of an empty text that says
    // nothing.)
    static bool isValid(const IString& s, Encoding encoding) {
        takeCalls();
        s.asMultibyte(encoding);
        return takeCalls() == 0;
    }
    static IString cached(Encoding encoding = kUTF8) {
        IString s(L"abc");
        s.convertToMultibyte(encoding);
        takeCalls();
        return s;
    }
};

// Text that a string has room for already, text that is converted in a buffer, and text that is not.
class CacheOfLength : public Cache, public ::testing::WithParamInterface<std::size_t> {
  protected:
    const std::string text = std::string(GetParam(), 'x');
    const std::wstring wide = std::wstring(GetParam(), L'x');
};
INSTANTIATE_TEST_SUITE_P(Lengths, CacheOfLength, ::testing::Values(3, 5, 20, 1024, 1025));

struct Decoding {
    const char* name;
    std::function<IString(const char*, Encoding, bool*)> decode;
};

const Decoding kDecodings[] = {
    {"constructor", [](const char* s, Encoding e, bool* ok) { return IString(s, e, ok); }},
    {"assign",
     [](const char* s, Encoding e, bool* ok) {
         IString target(L"old");
         target.asMultibyte(e == kUTF8 ? kMultibyte : kUTF8);
         Converters::now().calls.clear();
         return target.assign(s, e, ok);
     }},
};

// Every row of what constructors and assign make of a text, in both encodings.
TEST_P(CacheOfLength, DecodesIntoNewValue) {
    const struct {
        const char* name;
        const char* text;
        bool query, conversion, writes;
        std::wstring value;
        bool ok;
        std::size_t calls;
    } cases[] = {
        {"null", nullptr, true, true, true, L"", true, 0},
        {"empty", "", true, true, true, L"", true, 0},
        {"query fails", text.c_str(), false, true, true, L"", false, 1},
        {"conversion fails", text.c_str(), true, false, false, L"", false, 2},
        {"reports success, writes nothing", text.c_str(), true, true, false, L"", true, 2},
        {"reports failure, writes", text.c_str(), true, false, true, wide, false, 2},
        {"converts", text.c_str(), true, true, true, wide, true, 2},
    };
    for (const Encoding encoding : {kUTF8, kMultibyte}) {
        for (const auto& decoding : kDecodings) {
            for (const auto& c : cases) {
                SCOPED_TRACE(std::string(decoding.name) + ", " + c.name);
                SetUp();
                converters().querySucceeds = c.query;
                converters().conversionSucceeds = c.conversion;
                converters().conversionWrites = c.writes;
                bool ok = !c.ok;
                IString s = decoding.decode(c.text, encoding, &ok);
                EXPECT_EQ(ok, c.ok);
                EXPECT_EQ(value(s), c.value);
                ASSERT_EQ(converters().calls.size(), c.calls);
                for (std::size_t i = 0; i < c.calls; ++i) {
                    const Call& call = converters().calls[i];
                    EXPECT_EQ(call.converter, encoding == kUTF8 ? "UTF8toWCS" : "MBStoWCS");
                    EXPECT_EQ(call.length, text.size());
                    EXPECT_EQ(call.isQuery, i == 0);
                    EXPECT_EQ(call.capacity, i == 0 ? 0U : text.size() + 1);
                    EXPECT_EQ(call.hasFlag, i == 1);
                }
                SetUp();
                EXPECT_FALSE(isValid(s, kUTF8) && !value(s).empty());
                decoding.decode(c.text, encoding, nullptr);  // a null flag is allowed throughout
            }
        }
    }
}

// The flag that a converter gets is false before: in decoding the caller's, in encoding another.
TEST_P(CacheOfLength, ReportsWhatTheConverterReports) {
    converters().touchesFlag = false;
    bool ok = true;
    const IString s(text.c_str(), kUTF8, &ok);
    EXPECT_EQ(s.length(), text.size());
    EXPECT_FALSE(ok);
    EXPECT_EQ(s.asMultibyte(kMultibyte, &(ok = true)), text);
    EXPECT_FALSE(ok);
    EXPECT_FALSE(isValid(s, kMultibyte));
}

TEST_F(Cache, DecodesCharactersAndNarrowStrings) {
    bool ok = false;
    EXPECT_EQ(value(IString(CString("ab\0cd", 5), kUTF8, &ok)), L"ab");
    EXPECT_EQ(value(IString().assign(CString("ab\0cd", 5), kMultibyte, &ok)), L"ab");
    EXPECT_EQ(converters().calls.front().converter, "UTF8toWCS");
    EXPECT_EQ(converters().calls.back().converter, "MBStoWCS");
    EXPECT_EQ(value(IString('x', kUTF8, &ok)), L"x");
    EXPECT_EQ(converters().calls.back().converter, "UTF8toWCS");
    EXPECT_EQ(value(IString(3, 'x', kMultibyte, &ok)), L"xxx");
    EXPECT_EQ(converters().calls.back().converter, "MBStoWCS");
    EXPECT_EQ(value(IString(3, 'x', kUTF8, &ok)), L"xxx");
    EXPECT_EQ(converters().calls.back().converter, "UTF8toWCS");
    takeCalls();
    for (const IString& empty : {IString('\0', kUTF8, &(ok = false)), IString(0, 'x', kUTF8, &(ok = false)),
                                 IString(4, '\0', kMultibyte, &(ok = false))}) {
        EXPECT_EQ(empty.length(), 0U);
    }
    EXPECT_TRUE(ok);
    EXPECT_EQ(takeCalls(), 0U);
}

// Every row of what convertFromMultibyte does to a string with a valid cache.
TEST_P(CacheOfLength, DecodesInPlace) {
    const struct {
        const char* name;
        const char* text;
        bool query, writes;
        std::wstring value;
        bool keepsCache, ok;
    } cases[] = {
        {"empty", "", true, true, L"", false, true},
        {"query fails", text.c_str(), false, true, L"abc", true, false},
        {"conversion fails", text.c_str(), true, false, L"abc", true, false},
        {"converts", text.c_str(), true, true, wide, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        IString s = cached(kUTF8);
        converters().querySucceeds = c.query;
        converters().conversionWrites = converters().conversionSucceeds = c.writes;
        bool ok = !c.ok;
        s.convertFromMultibyte(c.text, kUTF8, &ok);
        EXPECT_EQ(ok, c.ok);
        EXPECT_EQ(value(s), c.value);
        SetUp();
        s = cached(kUTF8);
        converters().querySucceeds = c.query;
        converters().conversionWrites = c.writes;
        s.convertFromMultibyte(c.text, kUTF8, nullptr);
        EXPECT_EQ(converters().calls.size(), c.text[0] == 0 ? 0U : c.query ? 2U : 1U);
        SetUp();
        if (s.length() > 0) {
            EXPECT_EQ(isValid(s, kUTF8), c.keepsCache);
        } else {
            EXPECT_STREQ(s.asUTF8(), "");
        }
    }
}

TEST_F(Cache, DecodesItsOwnCachedText) {
    IString s = cached(kUTF8);
    const char* const own = s.asUTF8();
    s.convertFromMultibyte(own, kMultibyte);
    EXPECT_TRUE(isValid(s, kMultibyte));  // the bytes are now the text in the encoding they were read in
    EXPECT_EQ(s.asMultibyte(kMultibyte), own);

    s.convertFromMultibyte(s.asMultibyte(kMultibyte) + 1, kMultibyte);
    EXPECT_EQ(value(s), L"bc");
    EXPECT_FALSE(isValid(s, kMultibyte));

    // A NUL ends the text before the cached bytes end: they are not its form.
    IString nul(L"a\0b", 3);
    nul.convertFromMultibyte(nul.asUTF8(), kUTF8);
    EXPECT_EQ(value(nul), L"a");
    EXPECT_FALSE(isValid(nul, kUTF8));
    EXPECT_STREQ(nul.asUTF8(), "a");

    s = cached(kUTF8);
    s.convertFromMultibyte("xyz", kUTF8);  // as long, and not its own
    EXPECT_STREQ(s.asUTF8(), "xyz");

    s = cached(kUTF8);
    s.assign(s.asUTF8(), kUTF8);
    EXPECT_EQ(value(s), L"abc");
    EXPECT_FALSE(isValid(s, kUTF8));
}

// Every row of what a request for a form does, from an invalid cache and from one valid for the other
// encoding.
TEST_P(CacheOfLength, Encodes) {
    const struct {
        const char* name;
        std::wstring text;
        bool query, conversion, writes;
        const char* shown;  // by asMultibyte; null stands for what the cache held before
        bool valid, ok;
        std::size_t calls;
    } cases[] = {
        {"empty", L"", true, true, true, "", true, true, 0},
        {"query fails", wide, false, true, true, "", false, false, 1},
        {"converts", wide, true, true, true, text.c_str(), true, true, 2},
        {"writes, reports failure", wide, true, false, true, text.c_str(), false, false, 2},
        {"writes nothing, reports failure", wide, true, false, false, nullptr, false, false, 2},
        {"writes nothing, reports success", wide, true, true, false, nullptr, false, false, 2},
    };
    for (const Encoding encoding : {kUTF8, kMultibyte}) {
        const Encoding other = encoding == kUTF8 ? kMultibyte : kUTF8;
        for (const bool fromValid : {false, true}) {
            for (const auto& c : cases) {
                SCOPED_TRACE(std::string(c.name) + (fromValid ? ", other valid" : ""));
                SetUp();
                IString s(c.text.c_str());
                std::string held;
                if (fromValid)
                    held = s.asMultibyte(other);
                takeCalls();
                converters().querySucceeds = c.query;
                converters().conversionSucceeds = c.conversion;
                converters().conversionWrites = c.writes;
                bool ok = !c.ok;
                EXPECT_STREQ(s.asMultibyte(encoding, &ok), c.shown != nullptr ? c.shown : held.c_str());
                EXPECT_EQ(ok, c.ok);
                ASSERT_EQ(converters().calls.size(), c.calls);
                for (std::size_t i = 0; i < c.calls; ++i) {
                    const Call& call = converters().calls[i];
                    EXPECT_EQ(call.converter, encoding == kUTF8 ? "WCStoUTF8" : "WCStoMBS");
                    EXPECT_EQ(call.length, wide.size());
                    EXPECT_EQ(call.isQuery, i == 0);
                    EXPECT_EQ(call.capacity, i == 0 ? 0U : wide.size() + 1);
                    EXPECT_EQ(call.hasFlag, i == 1);
                }
                // Where nothing was written, what was valid stays so.
                EXPECT_EQ(c.shown == nullptr && fromValid ? isValid(s, other) : isValid(s, encoding),
                          c.valid || (c.shown == nullptr && fromValid));
                EXPECT_EQ(value(s), c.text);
            }
        }
    }
}

TEST_F(Cache, ConvertsOnlyWhenItMust) {
    const IString s = cached(kUTF8);
    bool ok = false;
    const char* const first = s.asUTF8(&ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(s.asUTF8StoreSize(), 4U);
    EXPECT_STREQ(first, "abc");
    EXPECT_EQ(s.asUTF8(), first);
    EXPECT_EQ(takeCalls(), 0U);
    s.asMultibyte(kMultibyte);
    s.asUTF8();
    EXPECT_EQ(takeCalls(), 4U);  // one form at a time

    converters().querySucceeds = false;
    const IString failing(kWide.c_str());
    for (int i = 0; i < 2; ++i) {
        failing.asUTF8(&(ok = true));
        EXPECT_FALSE(ok);
    }
    EXPECT_EQ(takeCalls(), 2U);  // a failure is not cached
    EXPECT_EQ(failing.asUTF8StoreSize(), 1U);
}

// A failed form takes the one that was valid with it.
TEST_F(Cache, AFailureInOneEncodingIsNoHitInAnother) {
    const IString s = cached(kUTF8);
    converters().querySucceeds = false;
    s.asMultibyte(kMultibyte);
    converters().querySucceeds = true;
    EXPECT_STREQ(s.asUTF8(), "abc");
}

// Any other value asks for the locale's, and is what the cache is then valid for.
TEST_F(Cache, TakesAnyValueForAnEncoding) {
    static_assert(kMultibyte == 0 && kUTF8 == 1 && qzString::kNoEncoding == 3);
    constexpr auto kOther = static_cast<Encoding>(7);
    const IString s("abc", kOther);
    s.asMultibyte(kOther);
    for (const Call& call : converters().calls)
        EXPECT_EQ(call.converter, call.converter[0] == 'M' ? "MBStoWCS" : "WCStoMBS");
    EXPECT_EQ(takeCalls(), 4U);
    EXPECT_TRUE(isValid(s, kOther));
    EXPECT_FALSE(isValid(s, kMultibyte));
}

// A request for no encoding never passes off stale bytes as the text.
TEST_F(Cache, NoEncodingIsNeverAHit) {
    IString s = cached(kUTF8);
    s.append(L'd');
    EXPECT_STREQ(s.asMultibyte(qzString::kNoEncoding), "abcd");
    EXPECT_FALSE(isValid(s, kUTF8));
}

TEST_F(Cache, CopiesTheForm) {
    IString s(L"a\0b", 3);
    bool ok = false;
    char* copy = s.copyAsMultibyte(kUTF8, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(std::string(copy, 4), std::string("a\0b\0", 4));
    std::free(copy);
    EXPECT_EQ(takeCalls(), 2U);
    EXPECT_EQ(s.asUTF8StoreSize(), 4U);
    EXPECT_EQ(value(s.convertToCString()), "a");

    copy = IString().copyAsMultibyte(kMultibyte, &(ok = false));
    EXPECT_TRUE(ok);
    EXPECT_STREQ(copy, "");
    std::free(copy);

    // A failed conversion runs again; the copy holds what fits the buffer measured first.
    converters().conversionSucceeds = false;
    IString failing(kWide.c_str());
    for (const int growth : {0, 50, -50}) {
        takeCalls();
        converters().announced = static_cast<unsigned int>(kText.size());
        converters().growth = growth;
        copy = failing.copyAsMultibyte(kUTF8, &ok);
        EXPECT_FALSE(ok);
        EXPECT_EQ(copy, kText.substr(growth < 0 ? 50 : 0));
        EXPECT_EQ(takeCalls(), 4U);
        std::free(copy);
    }

    converters().querySucceeds = false;
    copy = failing.copyAsMultibyte(kMultibyte, &(ok = true));
    EXPECT_FALSE(ok);
    EXPECT_STREQ(copy, "");
    EXPECT_EQ(takeCalls(), 2U);
    std::free(copy);

    SetUp();
    const IString unlucky = cached(kUTF8);
    Allocations::failAt(1);
    EXPECT_EQ(unlucky.copyAsMultibyte(kUTF8, &(ok = false)), nullptr);
    Allocations::failAt(0);
    EXPECT_TRUE(ok);  // of the form
}

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

bool acceptsNone(wchar_t) {
    return false;
}

void vformatInto(IString& s, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    s.vformat(format, arguments);
    va_end(arguments);
}

// What every operation does to a valid cache.
TEST_F(Cache, FollowsEveryOperation) {
    const struct {
        const char* name;
        std::function<void(IString&)> operation;
        bool keeps;
    } cases[] = {
        {"reserve", [](IString& s) { s.reserve(1000); }, true},
        {"assign wide", [](IString& s) { s.assign(L"new"); }, false},
        {"assign null", [](IString& s) { s.assign(static_cast<const wchar_t*>(nullptr)); }, false},
        {"swap",
         [](IString& s) {
             IString other;
             s.swap(other);
             s.swap(other);
         },
         false},
        {"swap itself", [](IString& s) { s.swap(s); }, false},
        {"append nothing", [](IString& s) { s.append(L""); }, false},
        {"append string", [](IString& s) { s.append(IString()); }, false},
        {"append character", [](IString& s) { s.append(L'x'); }, false},
        {"prepend", [](IString& s) { s.prepend(static_cast<const wchar_t*>(nullptr)); }, false},
        {"prepend character", [](IString& s) { s.prepend(L'x'); }, false},
        {"prepend string", [](IString& s) { s.prepend(IString()); }, false},
        {"insert", [](IString& s) { s.insert(1, L""); }, false},
        {"insert string", [](IString& s) { s.insert(1, IString()); }, false},
        {"insert character", [](IString& s) { s.insert(1, L'x'); }, false},
        {"erase nothing", [](IString& s) { s.erase(3, 5); }, false},
        {"remove", [](IString& s) { s.remove(1, 0); }, false},
        {"replace range", [](IString& s) { s.replace(1, 0, L""); }, false},
        {"replace range by string", [](IString& s) { s.replace(1, 0, IString()); }, false},
        {"replace range by character", [](IString& s) { s.replace(1, 1, L'b'); }, false},
        {"plusEqual", [](IString& s) { plusEqual(s, IString()); }, false},
        {"substr into itself", [](IString& s) { s.substr(s, 0); }, false},
        {"insert out of range", [](IString& s) { EXPECT_THROW(s.insert(4, L""), std::out_of_range); }, true},
        {"erase out of range", [](IString& s) { EXPECT_THROW(s.erase(4), std::out_of_range); }, true},
        {"replace out of range", [](IString& s) { EXPECT_THROW(s.replace(4, 0, L""), std::out_of_range); },
         true},
        {"substr out of range", [](IString& s) { EXPECT_THROW(IString().substr(s, 1), std::out_of_range); },
         true},
        {"strip nothing", [](IString& s) { s.strip(L'x').rstrip(L'x').stripSpaces().rstripSpaces(); }, true},
        {"strip", [](IString& s) { s.strip(L'a'); }, false},
        {"rstrip", [](IString& s) { s.rstrip(L'c'); }, false},
        {"toLowerCase", [](IString& s) { s.toLowerCase(); }, false},
        {"toUpperCase", [](IString& s) { s.toUpperCase(); }, false},
        {"replace absent pattern", [](IString& s) { s.replace(L"x", L"y"); }, true},
        {"replace empty pattern", [](IString& s) { s.replace(L"", L"y").replaceFirst(L"", L"y"); }, true},
        {"replace pattern by itself", [](IString& s) { s.replace(L"b", L"b"); }, false},
        {"replaceFirst", [](IString& s) { s.replaceFirst(L"b", L"b"); }, false},
        {"replace absent character", [](IString& s) { s.replace(L'x', L'y'); }, true},
        {"replace character by itself", [](IString& s) { s.replace(L'b', L'b'); }, false},
        {"replace narrow character", [](IString& s) { s.replace('b', 'b'); }, false},
        {"replace byte that is no character", [](IString& s) { s.replace('b', '\xFF'); }, true},
        {"format", [](IString& s) { s.format(L"%ls", L"abc"); }, false},
        {"format narrow", [](IString& s) { s.format("%s", "abc"); }, false},
        {"format nothing", [](IString& s) { s.format(L"%ls", L""); }, true},
        {"format nothing narrow", [](IString& s) { s.format("%s", ""); }, true},
        {"vformat", [](IString& s) { vformatInto(s, L"%d", 1); }, false},
        {"const members",
         [](IString& s) {
             const IString set(L"c");
             (void)(s.find(set) + s.rfind(L"b") + s.find(acceptsNone) + s.findAny(set) + s.rfindAny(set));
             (void)(s.isAscii() && s.compare(set) && s.compareNoCase(set) && s.collate(set) &&
                    s.collateNoCase(set));
             (void)(equal(s, set) || hashfunction(s) == 0 || s.substr(1).length() == 0 ||
                    plus(s, s).length() == 0);
             std::free(s.copyAsWChar());
         },
         true},
    };
    for (const auto& c : cases) {
        IString s = cached(kUTF8);
        c.operation(s);
        if (s.length() > 0) {
            EXPECT_EQ(isValid(s, kUTF8), c.keeps) << c.name;
        }
        EXPECT_EQ(std::wstring(s.asUTF8(), s.asUTF8() + s.asUTF8StoreSize() - 1), value(s)) << c.name;
    }
    // On an empty string erasing and trimming are no changes, case mapping is.
    IString empty;
    empty.asUTF8();
    empty.erase(5, 1);
    empty.remove(5).stripSpaces().rstripSpaces().strip(L'x').rstrip(L'x');
    empty.convertToMultibyte(kUTF8);
    takeCalls();
    empty.asUTF8();
    EXPECT_EQ(takeCalls(), 0U);
}

// What stays in an invalid cache shows through a conversion that writes nothing: it is left in place by every
// change of the text, and emptied by assigning multibyte text.
TEST_F(Cache, KeepsOrDropsItsBytes) {
    const struct {
        const char* name;
        std::function<void(IString&)> operation;
        const char* left;
    } cases[] = {
        {"append", [](IString& s) { s.append(L'd'); }, "abc"},
        {"assign wide", [](IString& s) { s.assign(L"new"); }, "abc"},
        {"convertFromMultibyte", [](IString& s) { s.convertFromMultibyte("xy", kUTF8); }, "abc"},
        {"convertFromMultibyte, empty",
         [](IString& s) {
             s.convertFromMultibyte("", kUTF8);
             s.append(L'd');
         },
         "abc"},
        {"assign", [](IString& s) { s.assign("xy", kUTF8); }, ""},
        {"assign CString", [](IString& s) { s.assign(CString("xy"), kMultibyte); }, ""},
        {"assign null", [](IString& s) { s.assign(static_cast<const char*>(nullptr), kUTF8).append(L'd'); },
         ""},
        {"assign what fails",
         [](IString& s) {
             Converters::now().querySucceeds = false;
             s.assign("xy", kUTF8).append(L'd');
             Converters::now().querySucceeds = true;
         },
         ""},
        {"swap",
         [](IString& s) {
             IString other(L"xyz");
             other.asUTF8();
             swap(s, other);
         },
         "abc"},
    };
    for (const auto& c : cases) {
        SetUp();
        IString s = cached(kUTF8);
        c.operation(s);
        converters().conversionWrites = false;
        EXPECT_STREQ(s.asUTF8(), c.left) << c.name;
    }
}

TEST_F(Cache, SwapsTextsAndInvalidatesBoth) {
    IString a = cached(kUTF8);
    IString b(L"xyz");
    b.asUTF8();
    swap(a, b);
    EXPECT_STREQ(a.asUTF8(), "xyz");
    EXPECT_STREQ(b.asUTF8(), "abc");
}

TEST_F(Cache, TravelsWithCopies) {
    const IString source = cached(kUTF8);
    IString assigned(L"old");
    assigned = source;
    IString copy(source);
    IString moved(std::move(copy));
    for (const IString* s :
         {&source, static_cast<const IString*>(&assigned), static_cast<const IString*>(&moved)}) {
        EXPECT_TRUE(isValid(*s, kUTF8));
        EXPECT_STREQ(s->asUTF8(), "abc");
    }
    copy.append(L'x');  // NOLINT(bugprone-use-after-move): empty by contract
    EXPECT_STREQ(copy.asUTF8(), "x");
    const IString sum = plus(source, IString());
    EXPECT_FALSE(isValid(sum, kUTF8));
    assigned = IString(L"new");
    EXPECT_STREQ(assigned.asUTF8(), "new");
    const char* const storage = assigned.asUTF8();
    assigned = source;
    EXPECT_EQ(assigned.asUTF8(), storage);  // reused
}

}  // namespace
