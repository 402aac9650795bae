// Every kernel on memory between two pages that nobody may touch: one element read or written outside ends
// the program, through masked instructions too, which sanitizers do not see.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "everyKernel.h"
#include "primitives/hash.h"
#include "primitives/utf8Portable.h"
#include "string/characterSet.h"
#include "string/search.h"
#include "support.h"

using namespace support;

namespace {

// Room for elements that begin right behind a forbidden page, or end right before one.
template <class Element>
class Fenced {
  public:
    explicit Fenced(std::size_t most)
        : page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          size((most * sizeof(Element) + page - 1) / page * page),
          memory(static_cast<char*>(
              mmap(nullptr, size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        EXPECT_EQ(mprotect(memory + page, size, PROT_READ | PROT_WRITE), 0);
    }
    ~Fenced() { munmap(memory, size + 2 * page); }
    Fenced(const Fenced&) = delete;
    Fenced& operator=(const Fenced&) = delete;

    // Room for `count`, filled with `filler` to the other page.
    Element* place(bool atEnd, std::size_t count, Element filler) {
        auto* const first = reinterpret_cast<Element*>(memory + page);
        Element* const end = first + size / sizeof(Element);
        std::fill(first, end, filler);
        return atEnd ? end - count : first;
    }
    Element* put(bool atEnd, std::basic_string_view<Element> text, Element filler) {
        Element* const placed = place(atEnd, text.size(), filler);
        std::copy(text.begin(), text.end(), placed);
        return placed;
    }

  private:
    std::size_t page, size;
    char* memory;
};

constexpr std::size_t kMost = 1100;

struct Seed {
    std::string text;
    std::size_t most = kMost;  // repetitions
};
const Seed kSeeds[] = {
    {"Plain ASCII text, KEPT LONG. "},
    {"D\xC3\xA8s No\xC3\xABl, o\xC3\xB9 un z\xC3\xA9phyr ha\xC3\xAF "},
    {"\xD0\xA1\xD1\x8A\xD0\xB5\xD1\x88\xD1\x8C"},
    {"\xE6\xBC\xA2\xE5\xAD\x97\xE3\x81\x8B"},
    {"\xF0\x9F\x98\x80\xF0\x9F\x8E\x89"},
    {"a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80z"},
    // What follows is as short as it can be.
    {"\xC3\xA9", 1},
    {"\xF0\x9F\x98\x80\xE6\xBC\xA2", 1},
};

// Texts of every number of repetitions and every remainder of ASCII; of long ones so many that they begin at
// every place in a cache line.
template <class Function>
void forEveryText(Function function) {
    for (const Seed& seed : kSeeds) {
        for (std::size_t length = 0; length <= kMost; length = length == 300 ? kMost - 70 : length + 1) {
            std::string text;
            for (std::size_t n = 0; n < seed.most && text.size() + seed.text.size() <= length; ++n)
                text += seed.text;
            text.resize(length, 'Q');
            function(text);
        }
    }
}

class Fence : public EveryKernel {
  protected:
    Fenced<char> bytes{kMost}, otherBytes{kMost};
    Fenced<wchar_t> characters{kMost}, otherCharacters{kMost};
};

INSTANTIATE_TEST_SUITE_P(Kernels, Fence, ::testing::ValuesIn(usableKernels()), kernelName);

}  // namespace

TEST_P(Fence, HoldsConversion) {
    const Kernels& kernels = *GetParam();
    forEveryText([&](const std::string& text) {
        const std::wstring wideText = value(fromUtf8(text));
        for (const bool atEnd : {false, true}) {
            // What stands before the text would lead a character in it, what stands behind would go on with
            // it.
            const char* const source = bytes.put(atEnd, text, atEnd ? '\xF0' : '\xBF');
            ASSERT_EQ(kernels.decodedLength(source, text.size(), nullptr), wideText.size());
            ASSERT_EQ(kernels.wellFormed(source, text.size()).read, text.size());
            wchar_t* const decoded = characters.place(atEnd, wideText.size(), L'#');
            ASSERT_EQ(kernels.decode(source, text.size(), decoded, atEnd ? wideText.size() : kMost, nullptr),
                      wideText.size());
            ASSERT_EQ(std::wstring_view(decoded, wideText.size()), wideText);
            ASSERT_EQ(kernels.encodedLength(decoded, wideText.size(), nullptr), text.size());
            char* const encoded = otherBytes.place(atEnd, text.size(), '#');
            ASSERT_EQ(kernels.encode(decoded, wideText.size(), encoded, atEnd ? text.size() : kMost, nullptr),
                      text.size());
            ASSERT_EQ(std::string_view(encoded, text.size()), text);
            // With room to spare, nothing is written behind what is returned either.
            if (!atEnd && text.size() < kMost) {
                ASSERT_EQ(encoded[text.size()], '#');
                ASSERT_EQ(decoded[wideText.size()], L'#');
            }
            // Where none, less than half or nine tenths of the text fit, nothing is written behind that.
            for (const std::size_t percent : {0U, 45U, 90U}) {
                const std::size_t characterRoom = wideText.size() * percent / 100;
                const std::size_t byteRoom = text.size() * percent / 100;
                bool ok = !text.empty();
                kernels.decode(source, text.size(), otherCharacters.place(true, characterRoom, L'#'),
                               characterRoom, &ok);
                ASSERT_EQ(ok, text.empty());
                kernels.encode(decoded, wideText.size(), otherBytes.place(true, byteRoom, '#'), byteRoom,
                               &ok);
                ASSERT_EQ(ok, text.empty());
            }
        }
    });
}

// Ill-formed text may be stored before it is found to be that: continuation bytes in a row end no
// character, and lead bytes in a row one each.
TEST_P(Fence, HoldsIllFormedText) {
    const Kernels& kernels = *GetParam();
    std::mt19937 random(9);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        for (const std::size_t length = random() % 200; text.size() < length;)
            text.append(1 + random() % 12, "a\x80\xBF\xC3\xE2\xF0\xFF"[random() % 7]);
        const qzString::kernels::Progress valid =
            qzString::utf8::decodedLength<wchar_t>(text.data(), text.size());
        const char* const source = bytes.put(round % 2 == 0, text, 'Q');
        ASSERT_EQ(kernels.wellFormed(source, text.size()).read, valid.read);
        for (std::size_t room = 0; room <= text.size(); ++room) {
            bool ok = false;
            kernels.decode(source, text.size(), characters.place(true, room, L'#'), room, &ok);
            ASSERT_EQ(ok, valid.read == text.size() && valid.written <= room);
        }
    }
}

TEST_P(Fence, HoldsCharacterRunsAndHash) {
    const Kernels& kernels = *GetParam();
    forEveryText([&](const std::string& text) {
        const std::wstring wideText = value(fromUtf8(text));
        const std::size_t length = wideText.size();
        for (const bool atEnd : {false, true}) {
            char* const narrow = bytes.put(atEnd, text, 'Q');
            const char* const same = otherBytes.put(!atEnd, text, 'Q');
            kernels.isAsciiNarrow(narrow, text.size());
            kernels.toLowerNarrow(narrow, text.size());
            ASSERT_EQ(kernels.compareNoCaseNarrow(narrow, text.size(), same, text.size()), 0);
            ASSERT_TRUE(atEnd || text.size() == kMost || narrow[text.size()] == 'Q');
            wchar_t* const wide = characters.put(atEnd, wideText, L'Q');
            const wchar_t* const sameWide = otherCharacters.put(!atEnd, wideText, L'Q');
            kernels.isAsciiWide(wide, length);
            kernels.toLowerWide(wide, length);
            ASSERT_EQ(kernels.compareNoCaseWide(wide, length, sameWide, length), 0);
            ASSERT_TRUE(atEnd || length == kMost || wide[length] == L'Q');
            ASSERT_EQ(
                qz::hashfunction(reinterpret_cast<const unsigned char*>(same), static_cast<int>(text.size())),
                qz::hashfunction(reinterpret_cast<const unsigned char*>(text.data()),
                                 static_cast<int>(text.size())));
        }
    });
}

TEST(Fence, HoldsSearching) {
    Fenced<char> bytes(kMost);
    Fenced<wchar_t> characters(kMost);
    support::forEveryScanner([&](const auto&) {
        forEveryText([&](const std::string& text) {
            const std::wstring wideText = value(fromUtf8(text));
            for (const bool atEnd : {false, true}) {
                const char* const narrow = bytes.put(atEnd, text, 'Q');
                ASSERT_EQ(qzString::search::findFirst(narrow, text.size(), "QR", 2, 0),
                          qzString::search::kNotFound);
                ASSERT_EQ(qzString::search::findLast(narrow, text.size(), "RQ", 2, text.size()),
                          qzString::search::kNotFound);
                const wchar_t* const wide = characters.put(atEnd, wideText, L'Q');
                ASSERT_EQ(qzString::search::findFirst(wide, wideText.size(), L"QR", 2, 0),
                          qzString::search::kNotFound);
                ASSERT_EQ(qzString::search::findLast(wide, wideText.size(), L"RQ", 2, wideText.size()),
                          qzString::search::kNotFound);
                for (const std::size_t members : {2U, 20U}) {
                    const std::wstring set(members, L'R');
                    const std::wstring_view view(wide, wideText.size());
                    ASSERT_EQ(qzString::search::findFirstOf(view, set, 0), qzString::search::kNotFound);
                    ASSERT_EQ(qzString::search::findLastOf(view, set, view.size()),
                              qzString::search::kNotFound);
                }
            }
        });
    });
}
