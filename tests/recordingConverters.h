// Converters of the tests' own, which record every call and answer as they are told, in place of the
// library's; and the fixture of the tests of the multibyte cache.
#ifndef QZSTRING_TESTS_RECORDINGCONVERTERS_H
#define QZSTRING_TESTS_RECORDINGCONVERTERS_H

#include "support.h"

namespace support {

using qzString::Encoding;
using qzString::kMultibyte;
using qzString::kUTF8;

// Longer than what is converted in a buffer.
inline const std::string kText(1100, 'x');
inline const std::wstring kWide(1100, L'x');
constexpr char kOutsideMark = '#';  // what is written beyond the text's own characters

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

}  // namespace support

#endif
