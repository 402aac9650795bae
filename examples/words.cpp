// The most frequent words of texts in UTF-8, whatever their scripts.
//
//     words [-n COUNT] [-s SEPARATORS] [-i refuse|skip] [FILE...]
//
// Words are what stands between white space and separators, in lower case. Equal counts are ordered as the
// locale collates. Without files, or for "-", standard input is read. Memory is that of the different words,
// whatever the length of the input.
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "primitives/character.h"
#include "primitives/conversion.h"
#include "string/IString.h"
#include "string/containers.h"

using qzString::CString;
using qzString::IString;

namespace {

const char kDefaultSeparators[] = ".,;:!?\"'`()[]{}<>/\\|*#=+~_-–—…«»‹›„“”‚‘’。、，；：！？「」『』（）・،؛؟";

struct Options {
    unsigned long count = 10;
    const char* separators = kDefaultSeparators;
    bool skipsInvalid = false;
    std::vector<const char*> files;
};

[[noreturn]] void usage() {
    std::fputs("usage: words [-n COUNT] [-s SEPARATORS] [-i refuse|skip] [FILE...]\n", stderr);
    std::exit(2);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int c; (c = getopt(argc, argv, "n:s:i:")) != -1;) {
        char* end = nullptr;
        if (c == 'n' && *optarg >= '0' && *optarg <= '9') {
            options.count = std::strtoul(optarg, &end, 10);
            if (*end != '\0')
                usage();
        } else if (c == 's') {
            options.separators = optarg;
        } else if (c == 'i' && (std::strcmp(optarg, "skip") == 0 || std::strcmp(optarg, "refuse") == 0)) {
            options.skipsInvalid = std::strcmp(optarg, "skip") == 0;
        } else {
            usage();
        }
    }
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty())
        options.files.push_back("-");
    return options;
}

// Counts the words of text that comes in pieces.
class Counter {
  public:
    explicit Counter(const IString& given) : separators(given) {
        for (wchar_t c = 0; c <= 0x3000; ++c) {
            if (qzString::isSpace(c))
                separators.append(c);
        }
        separators.append(L'\0');
    }

    // A word may go on in the next piece.
    void add(IString piece) {
        piece.toLowerCase();
        unsigned int start = 0;
        for (unsigned int end; (end = piece.findAny(separators, start)) != IString::npos; start = end + 1) {
            piece.substr(word, start, end - start);
            pending.append(word);
            endWord();
        }
        piece.substr(word, start);
        pending.append(word);
    }

    void endWord() {
        if (pending.length() == 0)
            return;
        ++counts[pending];
        ++total;
        pending.erase(0);
    }

    void print(unsigned long count) const {
        using Entry = std::pair<const IString, unsigned long>;
        std::vector<const Entry*> entries;
        for (const Entry& entry : counts)
            entries.push_back(&entry);
        const std::size_t shown = std::min<std::size_t>(count, entries.size());
        const auto last = entries.begin() + static_cast<std::ptrdiff_t>(shown);
        std::partial_sort(entries.begin(), last, entries.end(), [](const Entry* a, const Entry* b) {
            if (a->second != b->second)
                return a->second > b->second;
            const int order = a->first.collate(b->first);
            return order != 0 ? order < 0 : less(a->first, b->first);
        });
        CString line;
        for (auto entry = entries.begin(); entry != last; ++entry) {
            line.format("%8lu  %s", (*entry)->second, (*entry)->first.asUTF8());
            std::puts(line.asChar());
        }
        line.format("%8lu  words, %zu different", total, counts.size());
        std::puts(line.asChar());
    }

  private:
    IString separators;
    IString word;
    IString pending;
    std::unordered_map<IString, unsigned long, qzString::Hash, qzString::Equal> counts;
    unsigned long total = 0;
};

// Shows how much has been read, on a terminal and for long input only.
class Progress {
  public:
    explicit Progress(const char* name) : file(name), isShown(isatty(STDERR_FILENO) != 0) {}
    ~Progress() {
        if (wasShown)
            std::fputs("\r\x1B[K", stderr);
    }
    void update(unsigned long long bytes) {
        if (!isShown || bytes < next)
            return;
        std::fprintf(stderr, "\r%s: %llu MB", file, bytes >> 20);
        next = bytes + (8U << 20);
        wasShown = true;
    }

  private:
    const char* file;
    bool isShown;
    bool wasShown = false;
    unsigned long long next = 16U << 20;
};

// The ill-formed part at the beginning of `bytes`: a byte, and continuation bytes after it.
std::size_t invalidLength(const char* bytes, std::size_t length) {
    std::size_t i = 1;
    while (i < length && (static_cast<unsigned char>(bytes[i]) & 0xC0) == 0x80)
        ++i;
    return i;
}

// Reads the file to its end in pieces. Returns false where it cannot be read, or is not UTF-8 and that is
// refused.
bool countFile(const char* path, const Options& options, Counter& counter) {
    constexpr std::size_t kPiece = 64 << 10;
    constexpr std::size_t kLongestCharacter = 4;
    const bool isStandardInput = std::strcmp(path, "-") == 0;
    const char* const name = isStandardInput ? "standard input" : path;
    std::FILE* const file = isStandardInput ? stdin : std::fopen(path, "rb");
    if (file == nullptr) {
        std::perror(name);
        return false;
    }
    Progress progress(name);
    std::string buffer;
    unsigned long long offset = 0;  // of the buffer in the file
    unsigned long invalid = 0;
    bool isRead = true;
    for (bool ended = false; !ended && isRead;) {
        const std::size_t kept = buffer.size();
        buffer.resize(kept + kPiece);
        const std::size_t got = std::fread(&buffer[kept], 1, kPiece, file);
        buffer.resize(kept + got);
        ended = got < kPiece;
        std::replace(buffer.begin(), buffer.end(), '\0', ' ');
        std::size_t at = 0;
        while (at < buffer.size()) {
            const char* const rest = buffer.data() + at;
            const std::size_t length = buffer.size() - at;
            const std::size_t valid = qzString::UTF8validLength(rest, static_cast<unsigned int>(length));
            if (valid > 0)
                counter.add(IString(std::string(rest, valid).c_str(), qzString::kUTF8));
            at += valid;
            if (valid == length || (!ended && length - valid < kLongestCharacter))
                break;  // all, or what may be the beginning of a character
            if (++invalid <= 10 || !options.skipsInvalid)
                std::fprintf(stderr, "%s: not UTF-8 at byte %llu: 0x%02X\n", name, offset + at,
                             static_cast<unsigned char>(buffer[at]));
            if (!options.skipsInvalid) {
                isRead = false;
                break;
            }
            counter.endWord();
            at += invalidLength(buffer.data() + at, buffer.size() - at);
        }
        buffer.erase(0, at);
        offset += at;
        progress.update(offset);
    }
    counter.endWord();
    if (invalid > 10)
        std::fprintf(stderr, "%s: not UTF-8 in %lu places, skipped\n", name, invalid);
    if (std::ferror(file) != 0) {
        std::perror(name);
        isRead = false;
    }
    if (!isStandardInput)
        std::fclose(file);
    return isRead;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    const Options options = parse(argc, argv);
    bool ok = false;
    const IString separators(options.separators, qzString::kUTF8, &ok);
    if (!ok) {
        std::fputs("words: the separators are not UTF-8\n", stderr);
        return 2;
    }
    Counter counter(separators);
    bool allRead = true;
    for (const char* const file : options.files)
        allRead = countFile(file, options, counter) && allRead;
    if (!allRead && !options.skipsInvalid)
        return 1;
    counter.print(options.count);
    return allRead ? 0 : 1;
}
