// The multibyte cache, operation by operation: what keeps it valid.
#include <cstdarg>
#include <functional>

#include "recordingConverters.h"

using namespace support;

namespace {

bool acceptsNone(wchar_t) {
    return false;
}

void vformatInto(IString& s, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    s.vformat(format, arguments);
    va_end(arguments);
}

}  // namespace

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
}
