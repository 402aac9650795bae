// Every kernel leaves the upper halves of the vector registers clean: with something in them, the SSE
// instructions of whoever called take a hundred times as long on some processors.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include <cpuid.h>

#include <cstdint>

#include "everyKernel.h"
#include "support.h"

namespace {

// Whether XGETBV tells which parts of the vector registers are in use.
bool tellsUse() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid_count(1, 0, &a, &b, &c, &d) != 0 && (c & bit_OSXSAVE) != 0 &&
           __builtin_cpu_supports("avx") && __get_cpuid_count(0xD, 1, &a, &b, &c, &d) != 0 && (a & 4) != 0;
}

bool upperHalvesInUse() {
    std::uint32_t low = 0, high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1) : "memory");
    return (low & 0x44) != 0;  // of the registers of 256 bits and of those of 512
}

// Texts of every length that is short, and of some that are longer, of every width.
template <class Function>
void forEveryText(Function function) {
    for (const std::string seed : {"Plain ", "d\xC3\xA9j\xC3\xA0 ", "\xE6\xBC\xA2", "\xF0\x9F\x98\x80",
                                   "a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80"}) {
        for (std::size_t length = 0; length < 3000; length += length < 140 ? 1 : length / 3) {
            std::string text;
            while (text.size() + seed.size() <= length)
                text += seed;
            text.resize(length, 'Q');
            function(text);
        }
    }
}

class UpperHalves : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!tellsUse())
            GTEST_SKIP() << "the processor does not tell what is in use";
        asm volatile("vzeroupper");
        if (upperHalvesInUse())
            GTEST_SKIP() << "the processor tells more than is in use";
    }

    template <class Call>
    static void expectClean(const char* what, std::size_t length, Call call) {
        asm volatile("vzeroupper");
        call();
        const bool inUse = upperHalvesInUse();
        ASSERT_FALSE(inUse) << what << ", " << length;
    }
};

}  // namespace

TEST_F(UpperHalves, AreCleanAfterConversion) {
    support::forEveryKernel([](const support::Kernels& kernels) {
        std::vector<char> bytes(4000);
        std::vector<wchar_t> characters(4000);
        forEveryText([&](const std::string& text) {
            for (const bool faulty : {false, true}) {
                std::string utf8 = text;
                std::wstring wide = support::value(support::fromUtf8(text));
                if (faulty) {
                    utf8 += '\xE6';
                    wide += wchar_t{0xD800};
                }
                const std::size_t size = utf8.size();
                const std::size_t length = wide.size();
                bool ok = true;
                expectClean("decodedLength", size, [&] { kernels.decodedLength(utf8.data(), size, &ok); });
                expectClean("wellFormed", size, [&] { kernels.wellFormed(utf8.data(), size); });
                expectClean("encodedLength", length,
                            [&] { kernels.encodedLength(wide.data(), length, &ok); });
                for (const std::size_t part : {1U, 3U}) {  // the whole room, a third of it
                    expectClean("decode", size, [&] {
                        kernels.decode(utf8.data(), size, characters.data(), length / part, &ok);
                    });
                    expectClean("encode", length,
                                [&] { kernels.encode(wide.data(), length, bytes.data(), size / part, &ok); });
                }
            }
        });
    });
}

TEST_F(UpperHalves, AreCleanAfterCharacterRunsAndHash) {
    support::forEveryKernel([](const support::Kernels& kernels) {
        forEveryText([&](std::string text) {
            std::wstring wide = support::value(support::fromUtf8(text));
            const std::size_t size = text.size();
            const std::size_t length = wide.size();
            std::string other = text;
            std::wstring otherWide = wide;
            expectClean("isAsciiNarrow", size, [&] { kernels.isAsciiNarrow(text.data(), size); });
            expectClean("isAsciiWide", length, [&] { kernels.isAsciiWide(wide.data(), length); });
            expectClean("toLowerNarrow", size, [&] { kernels.toLowerNarrow(text.data(), size); });
            expectClean("toLowerWide", length, [&] { kernels.toLowerWide(wide.data(), length); });
            for (int i = 0; i < 2; ++i) {  // equal without case, then not
                expectClean("compareNoCaseNarrow", size,
                            [&] { kernels.compareNoCaseNarrow(text.data(), size, other.data(), size); });
                expectClean("compareNoCaseWide", length, [&] {
                    kernels.compareNoCaseWide(wide.data(), length, otherWide.data(), length);
                });
                if (size != 0) {
                    other[size / 2] = '!';
                    otherWide[length / 2] = L'!';
                }
            }
            std::uint64_t lanes[8];
            if (size > 64)
                expectClean("hashLanes", size, [&] {
                    kernels.hashLanes(lanes, reinterpret_cast<const unsigned char*>(text.data()), size);
                });
        });
    });
}

TEST_F(UpperHalves, AreCleanAfterSearching) {
    support::forEveryScanner([&](const qzString::search::Scanner& scanner) {
        forEveryText([&](const std::string& text) {
            const std::wstring wide = support::value(support::fromUtf8(text));
            for (const char first : {'Q', '!'}) {
                if (text.empty())
                    continue;
                const std::size_t end = text.size() - 1;
                const std::size_t wideEnd = wide.size() - 1;
                expectClean("nextNarrow", end,
                            [&] { scanner.nextNarrow(text.data(), end, 0, first, 1, 'Q'); });
                expectClean("lastNarrow", end,
                            [&] { scanner.lastNarrow(text.data(), end, 0, first, 1, 'Q'); });
                expectClean("nextWide", wideEnd,
                            [&] { scanner.nextWide(wide.data(), wideEnd, 0, first, 1, L'Q'); });
                expectClean("lastWide", wideEnd,
                            [&] { scanner.lastWide(wide.data(), wideEnd, 0, first, 1, L'Q'); });
                qzString::search::SetFilter filter;
                filter.add(first);
                expectClean("nextInSet", wideEnd, [&] { scanner.nextInSet(wide.data(), wideEnd, filter); });
                expectClean("lastInSet", wideEnd, [&] { scanner.lastInSet(wide.data(), wideEnd, filter); });
                const wchar_t few[] = {static_cast<wchar_t>(first), L'?'};
                expectClean("nextOfFew", wideEnd, [&] { scanner.nextOfFew(wide.data(), wideEnd, few, 2); });
                expectClean("lastOfFew", wideEnd, [&] { scanner.lastOfFew(wide.data(), wideEnd, few, 2); });
            }
        });
    });
}

#endif
