// Conversion in the locale's encoding, in locales built for the tests.
#include <clocale>
#include <thread>

#include "primitives/conversion.h"
#include "string/IString.h"
#include "support.h"

using namespace support;

// A C library that makes a surrogate of the byte 80, gives characters for no bytes where it meets 81, and
// encodes whatever it is given.
extern "C" {
std::size_t __real_mbrtowc(wchar_t* c, const char* bytes, std::size_t count, std::mbstate_t* state);
std::size_t __real_mbsnrtowcs(wchar_t* text, const char** bytes, std::size_t count, std::size_t room,
                              std::mbstate_t* state);
std::size_t __real_wcrtomb(char* bytes, wchar_t c, std::mbstate_t* state);
std::size_t __wrap_mbrtowc(wchar_t* c, const char* bytes, std::size_t count, std::mbstate_t* state);
std::size_t __wrap_mbsnrtowcs(wchar_t* text, const char** bytes, std::size_t count, std::size_t room,
                              std::mbstate_t* state);
std::size_t __wrap_wcrtomb(char* bytes, wchar_t c, std::mbstate_t* state);
}

namespace {
bool isLenient = false;
}

std::size_t __wrap_mbrtowc(wchar_t* c, const char* bytes, std::size_t count, std::mbstate_t* state) {
    if (!isLenient || (*bytes != '\x80' && *bytes != '\x81'))
        return __real_mbrtowc(c, bytes, count, state);
    *c = *bytes == '\x80' ? static_cast<wchar_t>(0xDC80) : L'x';
    return *bytes == '\x80' ? 1 : 0;
}

std::size_t __wrap_mbsnrtowcs(wchar_t* text, const char** bytes, std::size_t count, std::size_t room,
                              std::mbstate_t* state) {
    if (!isLenient)
        return __real_mbsnrtowcs(text, bytes, count, room, state);
    for (std::size_t i = 0; i < count; ++i)
        text[i] = static_cast<wchar_t>(0xDC00 + static_cast<unsigned char>((*bytes)[i]));
    *bytes += count;
    return count;
}

std::size_t __wrap_wcrtomb(char* bytes, wchar_t c, std::mbstate_t* state) {
    if (!isLenient)
        return __real_wcrtomb(bytes, c, state);
    *bytes = '?';
    return 1;
}

namespace {

class Locale : public ::testing::Test {
  protected:
    void TearDown() override {
        isLenient = false;
        std::setlocale(LC_ALL, "C");
    }
};

void expectBothWays(const std::string& bytes, const std::wstring& text) {
    const Exact<char> source{std::string_view(bytes)};
    const Exact<wchar_t> wide(text.size());
    bool ok = false;
    EXPECT_EQ(qzString::MBStoWCS(source.data(), source.size(), nullptr, 0, nullptr), text.size());
    EXPECT_EQ(qzString::MBStoWCS(source.data(), source.size(), wide.data(), wide.size(), &ok), text.size());
    EXPECT_TRUE(ok);
    EXPECT_EQ(wide.view(text.size()), text);
    const Exact<wchar_t> wideSource{std::wstring_view(text)};
    const Exact<char> narrow(bytes.size());
    EXPECT_EQ(qzString::WCStoMBS(wideSource.data(), wideSource.size(), nullptr, 0, nullptr), bytes.size());
    EXPECT_EQ(
        qzString::WCStoMBS(wideSource.data(), wideSource.size(), narrow.data(), narrow.size(), &(ok = false)),
        bytes.size());
    EXPECT_TRUE(ok);
    EXPECT_EQ(narrow.view(bytes.size()), bytes);
    if (!text.empty()) {
        EXPECT_EQ(qzString::MBStoWCS(source.data(), source.size(), wide.data(), wide.size() - 1, &ok), 0U);
        EXPECT_FALSE(ok);
        EXPECT_EQ(
            qzString::WCStoMBS(wideSource.data(), wideSource.size(), narrow.data(), narrow.size() - 1, &ok),
            0U);
        EXPECT_FALSE(ok);
    }
}

void expectNoText(const std::string& bytes) {
    bool ok = true;
    EXPECT_EQ(qzString::MBStoWCS(bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr, 0, &ok), 0U)
        << bytes;
    EXPECT_FALSE(ok);
    wchar_t room[600];
    ASSERT_LT(bytes.size(), 600U);
    EXPECT_EQ(
        qzString::MBStoWCS(bytes.data(), static_cast<unsigned int>(bytes.size()), room, 600, &(ok = true)),
        0U);
    EXPECT_FALSE(ok);
}

void expectNoBytes(const std::wstring& text) {
    bool ok = true;
    EXPECT_EQ(qzString::WCStoMBS(text.data(), static_cast<unsigned int>(text.size()), nullptr, 0, &ok), 0U);
    EXPECT_FALSE(ok);
}

TEST_F(Locale, ConvertsInEveryCodeSet) {
    const struct {
        const char* locale;
        std::string bytes;
        std::wstring text;
        std::vector<std::string> noText;
        std::vector<std::wstring> noBytes;
    } cases[] = {
        {"C", "plain", L"plain", {"\x80", "a\xFF"}, {L"\xE9", L"\x416", L"\xDF80"}},
        {"en_US.ISO-8859-1", "\xE9t\xE9 \xFF", L"\xE9t\xE9 \xFF", {}, {L"\x20AC", L"\x100", L"a\x416"}},
        {"ru_RU.KOI8-R", "\xD6\xCF\xD0\xC1", L"\x436\x43E\x43F\x430", {}, {L"\xE9", L"\x4E00"}},
        {"ru_RU.CP1251", "\xCF\xF0\xE8 \x88", L"\x41F\x440\x438 \x20AC", {"\x98"}, {L"\xE9", L"\x451\x98"}},
        {"ja_JP.EUC-JP",
         "\xC6\xFC\xCB\xDC a \x8E\xB1\x8F\xB0\xA1",
         L"\x65E5\x672C a \xFF71\x4E02",
         {"\xC6", "a\xC6\xFC\xCB", "\xC6\x41", "\xFF"},
         {L"\x20AC", L"\x1F600"}},
        {"zh_CN.GB18030",
         "\xD6\xD0\xCE\xC4\x81\x30\x84\x36 x",
         L"\x4E2D\x6587\xA5 x",
         {"\xD6", "\x81\x30", "\xFF"},
         {}},
        {"zh_HK.BIG5-HKSCS", "\xA4\xA4\xA4\xE5 x", L"\x4E2D\x6587 x", {"\xA4", "\xFF"}, {L"\x20AC\x304"}},
        {"en_US.UTF-8",
         "\xC3\xA9\xE4\xB8\x80\xF0\x9F\x98\x80",
         L"\xE9\x4E00\x1F600",
         {"\xC3", "\xF4\x90\x80\x80", "\xED\xA0\x80", "\xC0\x80"},
         {L"\xD800", std::wstring(1, 0x110000)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.locale);
        ASSERT_NE(std::setlocale(LC_ALL, c.locale), nullptr);
        expectBothWays("", L"");
        expectBothWays(c.bytes, c.text);
        // NUL is a character; long runs of ASCII take another way.
        const std::string run(300, 'r');
        const std::wstring wideRun(300, L'r');
        expectBothWays(c.bytes + '\0' + c.bytes, c.text + L'\0' + c.text);
        expectBothWays(run + c.bytes + run + '\0' + c.bytes, wideRun + c.text + wideRun + L'\0' + c.text);
        std::string many;
        std::wstring wideMany;
        while (many.size() < 500) {
            many += c.bytes;
            wideMany += c.text;
        }
        expectBothWays(many, wideMany);
        expectBothWays(many + '\0' + many + '\0', wideMany + L'\0' + wideMany + L'\0');
        for (const std::string& bad : c.noText) {
            for (const std::string& before : {std::string(), c.bytes, run, many})
                expectNoText(before + bad);
        }
        for (const std::wstring& bad : c.noBytes) {
            for (const std::wstring& before : {std::wstring(), wideRun, wideMany})
                expectNoBytes(before + bad);
        }
        expectNoBytes(L"a" + std::wstring(1, 0xD800));
    }
}

// One multibyte character for two wide ones, which the C functions deliver in two steps.
TEST_F(Locale, ConvertsCharactersThatStandForTwo) {
    ASSERT_NE(std::setlocale(LC_ALL, "zh_HK.BIG5-HKSCS"), nullptr);
    for (const std::string& padding : {std::string(), std::string(300, 'r')}) {
        const std::wstring widePadding(padding.begin(), padding.end());
        expectBothWays(padding + "\x88\x62", widePadding + L"\xCA\x304");
        expectBothWays(padding + "\x88\x62\x88\x64z", widePadding + L"\xCA\x304\xCA\x30Cz");
        expectBothWays(padding + "\x88\x66", widePadding + L"\xCA");
        expectBothWays(padding + "\x88\x66\x88\x66", widePadding + L"\xCA\xCA");
        expectBothWays(padding + "\x88\x66z", widePadding + L"\xCAz");
        expectBothWays(padding + std::string("\x88\x62\0\x88\x66\0", 6),
                       widePadding + std::wstring(L"\xCA\x304\0\xCA\0", 5));
    }
}

// Characters that may go on in the next byte, or come in several steps; ASCII that means something else; a
// byte besides zero that is NUL. Not the other way: of two forms with one meaning only one is written.
TEST_F(Locale, DecodesCharactersThatWait) {
    const struct {
        const char* locale;
        std::string bytes;
        std::wstring text;
    } cases[] = {
        {"ja_JP.EUC-JISX0213", "\xA4\xF7", L"\x304B\x309A"},
        {"ja_JP.EUC-JISX0213", "\xA4\xF7\xA4\xF7z", L"\x304B\x309A\x304B\x309Az"},
        {"vi_VN.CP1258", "A", L"A"},
        {"vi_VN.CP1258", "A\xCC", L"\xC0"},
        {"vi_VN.CP1258", std::string("A\0A\xCCz", 5), std::wstring(L"A\0\xC0z", 4)},
        {"vi_VN.TCVN5712-1", "AB", L"AB"},
        {"he_IL.CP1255", "\xE0", L"\x5D0"},
        {"en_US.TSCII", "\x82", L"\xBB8\xBCD\xBB0\xBC0"},
        {"en_US.TSCII", "\x87z", L"\xB95\xBCD\xBB7z"},
        {"en_US.ISIRI-3342",
         "a\x80"
         "bcd",
         std::wstring(L"a\0bcd", 5)},
        {"ja_JP.SHIFT_JIS", "\\", L"\xA5"},
        {"ko_KR.JOHAB", "\\", L"\x20A9"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.locale);
        ASSERT_NE(std::setlocale(LC_ALL, c.locale), nullptr);
        for (const std::size_t times : {std::size_t{1}, std::size_t{300}}) {
            std::string bytes;
            std::wstring text;
            for (std::size_t n = 0; n < times; ++n) {
                bytes += c.bytes;
                text += c.text;
            }
            const auto length = static_cast<unsigned int>(bytes.size());
            std::wstring decoded(text.size(), L'?');
            bool ok = false;
            EXPECT_EQ(qzString::MBStoWCS(bytes.data(), length, nullptr, 0, nullptr), text.size());
            EXPECT_EQ(qzString::MBStoWCS(bytes.data(), length, decoded.data(),
                                         static_cast<unsigned int>(decoded.size()), &ok),
                      text.size());
            EXPECT_TRUE(ok);
            EXPECT_EQ(decoded, text);
        }
    }
    ASSERT_NE(std::setlocale(LC_ALL, "ko_KR.JOHAB"), nullptr);
    expectNoBytes(std::wstring(300, L'\\'));
    ASSERT_NE(std::setlocale(LC_ALL, "en_US.IBM037"), nullptr);
    expectBothWays(std::string(300, '\xC1'), std::wstring(300, L'A'));
}

// The C library drops tags that the encoding lacks; GB 18030 has them.
TEST_F(Locale, DropsNoCharacters) {
    for (const char* const locale : {"C", "en_US.ISO-8859-1", "ja_JP.EUC-JP", "zh_HK.BIG5-HKSCS"}) {
        SCOPED_TRACE(locale);
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
        for (const wchar_t* const text : {L"a\U000E0041z", L"\U000E0020", L"z\U000E007F"}) {
            expectNoBytes(text);
            expectNoBytes(std::wstring(20, L'\xE9') + text);
        }
    }
    expectNoBytes(L"\xCA\U000E0041");  // behind one that waits
    ASSERT_NE(std::setlocale(LC_ALL, "zh_CN.GB18030"), nullptr);
    expectBothWays("a\xD3\x36\x9C\x33z", qzString::IString("a\xF3\xA0\x81\x81z", qzString::kUTF8).asWChar());
}

TEST_F(Locale, IsStricterThanTheCLibrary) {
    isLenient = true;
    expectNoText("a\x80");
    expectNoText("a\x81");
    expectNoText(std::string(20, '\x80'));
    for (const unsigned c : {0xD800U, 0xDFFFU, 0x110000U, 0xFFFFFFFFU})
        expectNoBytes({L'a', static_cast<wchar_t>(c)});
}

// Where the room ends, the run of ASCII that does not fit is not looked at again for every character of it.
TEST_F(Locale, StaysLinearWithoutRoom) {
    constexpr unsigned int kLength = 2'000'000;
    const std::string bytes(kLength, 'a');
    const std::wstring text(kLength, L'a');
    std::wstring decoded(kLength, L'?');
    std::string encoded(kLength, '?');
    bool ok = true;
    support::expectLinear([&] {
        EXPECT_EQ(qzString::MBStoWCS(bytes.data(), kLength, decoded.data(), kLength - 1, &ok), 0U);
        EXPECT_FALSE(ok);
        EXPECT_EQ(qzString::WCStoMBS(text.data(), kLength, encoded.data(), kLength - 1, &(ok = true)), 0U);
        EXPECT_FALSE(ok);
    });
}

TEST_F(Locale, LeavesNoStateBehind) {
    ASSERT_NE(std::setlocale(LC_ALL, "ja_JP.EUC-JP"), nullptr);
    expectNoText("a\xC6");
    expectBothWays("\xC6\xFC", L"\x65E5");
    ASSERT_NE(std::setlocale(LC_ALL, "zh_HK.BIG5-HKSCS"), nullptr);
    expectNoBytes(L"\xCA\x20AC\x304");
    expectBothWays("z", L"z");
}

TEST_F(Locale, FollowsTheThreadsLocale) {
    // (Not by newlocale, of which glibc 2.36 forgets the path that it has read from LOCPATH.)
    ASSERT_NE(std::setlocale(LC_ALL, "ru_RU.KOI8-R"), nullptr);
    const locale_t own = duplocale(LC_GLOBAL_LOCALE);
    ASSERT_NE(own, nullptr);
    std::setlocale(LC_ALL, "C");
    std::thread([own] {
        uselocale(own);
        expectBothWays("\xD6", L"\x436");
    }).join();
    expectNoText("\xD6");
    freelocale(own);
}

// The cache remembers that its form was the locale's, not which locale it was.
TEST_F(Locale, StringsConvertThroughTheLocale) {
    ASSERT_NE(std::setlocale(LC_ALL, "ru_RU.KOI8-R"), nullptr);
    bool ok = false;
    const IString s("\xD6", qzString::kMultibyte, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ(value(s), L"\x436");
    EXPECT_STREQ(s.asUTF8(), "\xD0\xB6");
    EXPECT_EQ(value(s.convertToCString()), "\xD6");
    std::setlocale(LC_ALL, "C");
    EXPECT_STREQ(s.asMultibyte(qzString::kMultibyte, &ok), "\xD6");
    EXPECT_TRUE(ok);
    IString other(L"\x436");
    EXPECT_STREQ(other.asMultibyte(qzString::kMultibyte, &ok), "");
    EXPECT_FALSE(ok);
}

}  // namespace
