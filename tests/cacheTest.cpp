// The multibyte cache, row by row: what conversions make of text, cache and flag.
#include <functional>
#include <sstream>

#include "recordingConverters.h"

using namespace support;

namespace {

// Text that a string has room for already, text that is converted in a buffer, and text that is not.
class CacheOfLength : public Cache, public ::testing::WithParamInterface<std::size_t> {
  protected:
    const std::string text = std::string(GetParam(), 'x');
    const std::wstring wide = std::wstring(GetParam(), L'x');
};
INSTANTIATE_TEST_SUITE_P(Lengths, CacheOfLength, ::testing::Values(3, 5, 20, 256, 257));

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
    {"assign, with room",
     [](const char* s, Encoding e, bool* ok) {
         IString target(L"old");
         target.reserve(2000);
         const wchar_t* const storage = target.asWChar();
         target.assign(s, e, ok);
         EXPECT_EQ(target.asWChar(), storage);
         return target;
     }},
};

}  // namespace

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

// It is decoded where the text was, but not over what is still to be read.
TEST_F(Cache, AssignsTheBytesOfItsOwnText) {
    IString s;
    s.reserve(10000);
    for (int i = 0; i < 1000; ++i)
        s.append(static_cast<wchar_t>(sizeof(wchar_t) == 4 ? 0x64636261 : 0x6261));
    const std::string bytes(reinterpret_cast<const char*>(s.asWChar()));
    s.assign(reinterpret_cast<const char*>(s.asWChar()), kUTF8);
    EXPECT_EQ(value(s), std::wstring(bytes.begin(), bytes.end()));
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

TEST_F(Cache, IsWrittenToStreams) {
    const IString s = cached(kUTF8);
    std::ostringstream out;
    out << s;
    EXPECT_EQ(out.str(), "abc");
    EXPECT_EQ(takeCalls(), 0U);
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
    for (const int growth : {0, 50}) {
        takeCalls();
        converters().announced = static_cast<unsigned int>(kText.size());
        converters().growth = growth;
        copy = failing.copyAsMultibyte(kUTF8, &ok);
        EXPECT_FALSE(ok);
        EXPECT_EQ(copy, kText);
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
