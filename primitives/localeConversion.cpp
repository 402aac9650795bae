// Conversion in the locale's encoding, by mbrtowc and wcrtomb with a shift state of the call's own.
//
// It is more than a loop over them, for four reasons:
// - A multibyte character can stand for two wide ones or more, and two wide characters can share one
//   multibyte character (BIG5-HKSCS 88 62 is U+00CA U+0304), or can be waited for (CP1258 41 may go on to
//   U+00C0). The C functions then keep characters in the state: they take bytes and give none, or give one
//   for no bytes. So 0 means NUL only where the character is NUL, and the end of the text has to be flushed.
// - The C functions cost a call per character. Where the code set is UTF-8 the text takes the library's own
//   conversion, which is also stricter; elsewhere runs of ASCII are copied, once ASCII has been seen to mean
//   itself, and where every byte is a character the C library converts a piece at a time. (In other code sets
//   glibc's functions for that abort the program where a piece gives no character.)
// - glibc drops some characters that the encoding lacks, the tags of U+E0000, without a word.
// - Some platforms turn bytes they cannot decode into surrogates, or accept code points above U+10FFFF. Those
//   are no characters: the text does not convert.
#include <langinfo.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <string_view>

#include "primitives/character.h"
#include "primitives/conversion.h"
#include "primitives/output.h"

namespace qzString {
namespace {

using output::Counter;
using output::Writer;

constexpr std::size_t kIllSequence = static_cast<std::size_t>(-1);
constexpr std::size_t kIncomplete = static_cast<std::size_t>(-2);
constexpr auto kNone = static_cast<wchar_t>(-1);  // no character

bool localeIsUtf8() {
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

// Code sets of which it is known that ASCII means itself in them, whatever follows it. (Of the windows code
// pages, 1255 and 1258 compose characters.)
bool localeExtendsAscii() {
    static constexpr std::string_view kCodeSets[] = {
        "ANSI_X3.4-1968", "US-ASCII", "ASCII",  "EUC-JP", "EUC-KR", "GB2312",  "GBK",
        "GB18030",        "BIG5",     "EUC-TW", "KOI8-R", "KOI8-U", "TIS-620", "CP1250",
        "CP1251",         "CP1252",   "CP1253", "CP1254", "CP1256", "CP1257"};
    const std::string_view codeSet = nl_langinfo(CODESET);
    return codeSet.substr(0, 9) == "ISO-8859-" ||
           std::find(std::begin(kCodeSets), std::end(kCodeSets), codeSet) != std::end(kCodeSets);
}

// From which length on it pays to ask of another code set whether ASCII means itself, which takes 128 calls.
// (btowc() would be quicker, but glibc's says so of every code set.)
constexpr std::size_t kWorthAsking = 256;

// Whether each ASCII byte stands for itself in the locale, whatever follows it; and the same of characters.
bool decodesAsciiToItself() {
    for (int value = 0; value < 0x80; ++value) {
        std::mbstate_t state{};
        const auto byte = static_cast<char>(value);
        wchar_t c = 0;
        if (std::mbrtowc(&c, &byte, 1, &state) > 1 || c != static_cast<wchar_t>(value) ||
            std::mbsinit(&state) == 0)
            return false;
    }
    return true;
}

bool encodesAsciiToItself() {
    for (int value = 0; value < 0x80; ++value) {
        std::mbstate_t state{};
        char bytes[MB_LEN_MAX];
        if (std::wcrtomb(bytes, static_cast<wchar_t>(value), &state) != 1 ||
            bytes[0] != static_cast<char>(value) || std::mbsinit(&state) == 0)
            return false;
    }
    return true;
}

bool isCharacter(wchar_t c) {
    if (sizeof(wchar_t) == 2)
        return true;  // halves of pairs are what the platform makes of them
    const auto value = static_cast<char32_t>(c);
    return value <= 0x10FFFF && value - 0xD800 >= 0x800;
}

template <class Element>
std::size_t asciiRun(const Element* text, std::size_t length) {
    constexpr std::size_t kBlock = 64;
    std::size_t run = 0;
    while (length - run >= kBlock && isAscii(text + run, kBlock))
        run += kBlock;
    while (run < length && isAscii(text[run]))
        ++run;
    return run;
}

// Copies the ASCII characters from `at` on, and goes on behind them. Returns false where there is no room.
template <class Element, class Output>
bool copyAsciiRun(const Element* text, std::size_t length, std::size_t& at, Output& output) {
    const std::size_t run = asciiRun(text + at, length - at);
    if (!output.hasRoom(run))
        return false;
    output.putRun(text + at, run);
    at += run;
    return true;
}

// Where ASCII means itself and MB_CUR_MAX is 1, a byte's meaning does not depend on those before it. Up to
// kPiece characters are converted at a time; fewer than kWorthAPiece go one by one, which is faster. The
// functions return how many they have converted, at most up to a NUL; 0 where they cannot.
constexpr std::size_t kPiece = 256;
constexpr std::size_t kWorthAPiece = 8;

std::size_t decodePiece(const char* source, std::size_t length, wchar_t (&piece)[kPiece]) {
    std::mbstate_t state{};
    const std::size_t count = mbsnrtowcs(piece, &source, std::min(length, kPiece), kPiece, &state);
    return count != kIllSequence && std::all_of(piece, piece + count, isCharacter) ? count : 0;
}

std::size_t encodePiece(const wchar_t* source, std::size_t length, char (&piece)[kPiece]) {
    std::mbstate_t state{};
    const std::size_t wanted = wcsnlen(source, std::min(length, kPiece));
    const std::size_t count = wcsnrtombs(piece, &source, wanted, kPiece, &state);
    return count == wanted ? count : 0;  // fewer where some are dropped
}

// Converts a piece from `at` on, and goes on behind it; `takesPieces` then says whether it could, as it
// cannot in code sets in which characters take more bytes. Returns false where there is no room.
template <class From, class To, class Output>
bool convertPiece(const From* text, std::size_t length, std::size_t& at, Output& output, bool& takesPieces,
                  std::size_t (*convert)(const From*, std::size_t, To (&)[kPiece])) {
    To piece[kPiece];
    const std::size_t count = MB_CUR_MAX == 1 ? convert(text + at, length - at, piece) : 0;
    takesPieces = count > 0;
    if (!output.hasRoom(count))
        return false;
    output.putRun(piece, count);
    at += count;
    return true;
}

// Whether the C library makes nothing of a character, and does not keep it either. Where characters wait,
// what it writes for this one does not tell: it may be theirs.
bool isDropped(wchar_t c) {
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX * 2];
    return std::wcrtomb(bytes, c, &state) == 0 && std::mbsinit(&state) != 0;
}

// The number of bytes of a NUL, shift sequences before it included, for which the C function gives 0.
std::size_t lengthOfNul(const char* source, std::size_t length, const std::mbstate_t& before) {
    std::size_t read = 1;
    for (; read < length; ++read) {
        std::mbstate_t state = before;
        wchar_t c = kNone;
        if (std::mbrtowc(&c, source, read, &state) != kIncomplete)
            break;
    }
    return read;
}

// Each converts the whole text into the output and says whether it could.
template <class Output>
bool decodeInto(const char* source, std::size_t length, Output& output) {
    const bool extendsAscii = localeExtendsAscii();
    const bool copies = extendsAscii || (length >= kWorthAsking && decodesAsciiToItself());
    bool takesPieces = extendsAscii;
    std::mbstate_t state{};
    std::size_t at = 0;
    while (at < length || std::mbsinit(&state) == 0) {
        const bool isWaiting = std::mbsinit(&state) == 0;
        if (copies && !isWaiting) {
            if (!copyAsciiRun(source, length, at, output))
                return false;
            if (at == length)
                return true;
        }
        if (takesPieces && length - at >= kWorthAPiece) {
            if (!convertPiece(source, length, at, output, takesPieces, decodePiece))
                return false;
            continue;
        }
        // Past the end a NUL draws out what the state still holds.
        const bool flushes = at == length;
        std::mbstate_t before;
        std::memcpy(&before, &state, sizeof state);
        wchar_t c = kNone;
        std::size_t read =
            flushes ? std::mbrtowc(&c, "", 1, &state) : std::mbrtowc(&c, source + at, length - at, &state);
        if (read == kIllSequence || read == kIncomplete)
            return false;
        if (flushes && (read != 0 || c == 0))
            return false;               // the text ended inside a character or in a shift state
        if (c == kNone && read != 0) {  // it waits in the state for what follows
            at += read;
            continue;
        }
        if (!isCharacter(c) || !output.hasRoom(1))
            return false;
        if (read == 0 && c == 0) {
            read = lengthOfNul(source + at, length - at, before);
        } else if (read == 0) {
            if (!isWaiting)
                return false;  // neither bytes nor state would ever end
            // glibc gives the second character of EUC-JISX0213 again and again, and does not change the
            // state.
            if (std::memcmp(&before, &state, sizeof state) == 0)
                state = {};
        }
        output.put(c);
        at += read;
    }
    return true;
}

template <class Output>
bool encodeInto(const wchar_t* source, std::size_t length, Output& output) {
    const bool extendsAscii = localeExtendsAscii();
    const bool copies = extendsAscii || (length >= kWorthAsking && encodesAsciiToItself());
    bool takesPieces = extendsAscii;
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX * 2];
    std::size_t at = 0;
    while (at < length || std::mbsinit(&state) == 0) {
        const bool isWaiting = std::mbsinit(&state) == 0;
        if (copies && !isWaiting) {
            if (!copyAsciiRun(source, length, at, output))
                return false;
            if (at == length)
                return true;
        }
        if (takesPieces && length - at >= kWorthAPiece) {
            if (!convertPiece(source, length, at, output, takesPieces, encodePiece))
                return false;
            continue;
        }
        // Past the end a NUL, itself dropped, brings out what the state still holds.
        const bool flushes = at == length;
        if (!flushes && (!isCharacter(source[at]) || (isWaiting && isDropped(source[at]))))
            return false;
        std::size_t written = std::wcrtomb(bytes, flushes ? L'\0' : source[at], &state);
        if (written == 0 && std::mbsinit(&state) != 0)
            return false;  // dropped as well
        if (written == kIllSequence)
            return false;
        if (flushes)
            --written;
        if (!output.hasRoom(written))
            return false;
        for (std::size_t i = 0; i < written; ++i)
            output.put(bytes[i]);
        at += flushes ? 0 : 1;
    }
    return true;
}

// What `convert` makes of the text: counted where there is no destination.
template <class To, class Convert>
unsigned int run(To* destination, unsigned int capacity, bool* ok, Convert convert) {
    if (destination == nullptr) {
        Counter<To> output;
        return output::report(convert(output) ? output.count : output::kFailure, ok);
    }
    Writer<To> output{destination, capacity};
    return output::report(convert(output) ? output.count : output::kFailure, ok);
}

}  // namespace

unsigned int MBStoWCS(const char* source, unsigned int sourceLength, wchar_t* destination,
                      unsigned int capacity, bool* ok) {
    if (localeIsUtf8())
        return UTF8toWCS(source, sourceLength, destination, capacity, false, ok);
    return run(destination, capacity, ok,
               [=](auto& output) { return decodeInto(source, sourceLength, output); });
}

unsigned int WCStoMBS(const wchar_t* source, unsigned int sourceLength, char* destination,
                      unsigned int capacity, bool* ok) {
    if (localeIsUtf8())
        return WCStoUTF8(source, sourceLength, destination, capacity, ok);
    return run(destination, capacity, ok,
               [=](auto& output) { return encodeInto(source, sourceLength, output); });
}

}  // namespace qzString
