// A tour of the library over a text in UTF-8: decoding, the cache, the locale's encoding, and the usual
// edits.
//
//     tour [FILE]
#include <langinfo.h>

#include <clocale>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "primitives/conversion.h"
#include "string/IString.h"

using qzString::IString;

namespace {

bool readFile(const char* path, std::string& bytes) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    return !file.bad();
}

// Where a text stops being UTF-8, as people look for it: byte offset, line, and column in bytes.
void reportInvalid(const char* path, const std::string& bytes) {
    const unsigned int offset =
        qzString::UTF8validLength(bytes.data(), static_cast<unsigned int>(bytes.size()));
    unsigned int line = 1;
    unsigned int column = 1;
    for (unsigned int i = 0; i < offset; ++i) {
        ++column;
        if (bytes[i] == '\n') {
            ++line;
            column = 1;
        }
    }
    std::fprintf(stderr, "%s: not UTF-8 at byte %u (line %u, column %u): 0x%02X\n", path, offset, line,
                 column, static_cast<unsigned char>(bytes[offset]));
}

unsigned int codeUnits16(const IString& text) {
    unsigned int units = 0;
    for (unsigned int i = 0; i < text.length(); ++i)
        units += static_cast<char32_t>(text.at(i)) > 0xFFFF ? 2 : 1;
    return units;
}

void showCache(const IString& text) {
    const char* const first = text.asUTF8();
    const char* const second = text.asUTF8();
    std::printf("cache: the first request converted %u bytes, the second %s\n", text.asUTF8StoreSize() - 1,
                first == second ? "returned the same ones" : "converted again");
}

void showLocale(const IString& text) {
    bool encoded = false;
    const char* const bytes = text.asMultibyte(qzString::kMultibyte, &encoded);
    if (!encoded) {
        std::printf("locale: %s lacks a character of this text\n", nl_langinfo(CODESET));
        return;
    }
    bool decoded = false;
    const IString back(bytes, qzString::kMultibyte, &decoded);
    std::printf("locale: %u bytes in %s, and back: %s\n", text.asMultibyteStoreSize(qzString::kMultibyte) - 1,
                nl_langinfo(CODESET), decoded && equal(back, text) ? "the same text" : "another text");
}

// Build, append, search, encode, measure for nothing, reformat; the string releases what it holds at the end.
void showUse() {
    IString title("Crème brûlée", qzString::kUTF8);
    title.append(L" — €4");
    const unsigned int price = title.find(L"€");
    std::printf("use: \"%s\" has the price at %u and takes %u bytes\n", title.asUTF8(), price,
                title.asUTF8StoreSize());
    title.toUpperCase();
    title.replace(L" — ", L": ");
    std::printf("use: \"%s\"\n", title.asUTF8());
    const unsigned int length = title.format(L"%05d|%-8ls|", 42, L"wide");
    std::printf("use: \"%s\" is %u characters\n", title.asUTF8(), length);
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    const char* const path = argc > 1 ? argv[1] : QZSTRING_TOUR_TEXT;
    std::string bytes;
    if (argc > 2 || !readFile(path, bytes)) {
        std::fprintf(stderr, argc > 2 ? "usage: tour [FILE]\n" : "%s: cannot be read\n", path);
        return 2;
    }
    if (bytes.find('\0') != std::string::npos) {
        std::fprintf(stderr, "%s: holds a NUL at byte %zu\n", path, bytes.find('\0'));
        return 1;
    }
    bool ok = false;
    const IString text(bytes.c_str(), qzString::kUTF8, &ok);
    if (!ok) {
        reportInvalid(path, bytes);
        return 1;
    }
    std::printf("text: %u characters, %zu bytes of UTF-8, %u units of UTF-16\n", text.length(), bytes.size(),
                codeUnits16(text));
    showCache(text);
    showLocale(text);
    showUse();
    return 0;
}
