// UTF-8 in AVX2.
//
// Decoding, 32 bytes a block, goes as in AVX-512 (utf8Avx512.cpp): the block is loaded as it is and as seen
// from 1, 2 and 3 positions on; pairs of bytes are checked by three look-ups (utf8Check.h); every position
// gets the low, middle and high byte of the code point that would end there. Selecting those positions at
// which a character does end takes a table: for each mask of eight positions, the byte shuffle that moves
// their 16-bit values to the front. Block edges: a character is formed in the block in which it ends. The
// first and the last block are copied to where zeros stand around them, so that nothing outside the text is
// read.
//
// Where a block ends characters at every third or every fourth place only, a loop of its own decodes them
// while they last: eight at a time, one in each lane, checked there by their marks and their values.
//
// Encoding, 8 characters a block: each is spread over the four bytes of its lane, lead byte first and
// right-aligned; for each combination of four lengths a table has the shuffle that moves the bytes in use to
// the front.
//
// Stores are 32 bytes (decoding) or 16 (encoding) whole while what is still to come is sure to fill them;
// near the end they go through a buffer, so that nothing past the count is touched.
#include "primitives/kernels.h"

#if QZSTRING_KERNELS_X86

#include <array>
#include <cstring>

#include "primitives/avx2.h"
#include "primitives/inline.h"
#include "primitives/utf8Check.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Portable.h"

namespace qzString::kernels::avx2 {
namespace {

constexpr std::size_t kBlock = 32;

using Shuffle = std::array<unsigned char, 16>;

// ---- Decoding ----

constexpr std::array<Shuffle, 256> makeSelections() {
    std::array<Shuffle, 256> selections{};
    for (std::size_t mask = 0; mask < 256; ++mask) {
        std::size_t to = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            if ((mask >> i & 1) != 0) {
                selections[mask][to++] = static_cast<unsigned char>(2 * i);
                selections[mask][to++] = static_cast<unsigned char>(2 * i + 1);
            }
        }
    }
    return selections;
}
// Moves the 16-bit elements of a mask to the front.
constexpr std::array<Shuffle, 256> kSelections = makeSelections();

QZSTRING_KERNEL __m256i nibbleTable(const unsigned char (&entries)[16]) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

QZSTRING_KERNEL __m256i bytesOf(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}

QZSTRING_KERNEL __m256i lanesOf(unsigned value) {
    return _mm256_set1_epi32(static_cast<int>(value));
}

// The constants of the loops. Their origin is hidden from the compiler, which would otherwise make them anew
// in every block, on the port that the shuffles need; those that find no register are read from the stack.
QZSTRING_KERNEL __m256i kept(__m256i constant) {
    asm("" : "+x"(constant));
    return constant;
}

struct DecodingConstants {
    __m256i firstHigh, firstLow, secondHigh;
    __m256i lowHalf, highHalf, third, fourth, topBit, lastContinuation, lowSix, highTwo, lowTwo, middleThree;

    QZSTRING_KERNEL DecodingConstants()
        : firstHigh(kept(nibbleTable(utf8::kFirstHigh))),
          firstLow(kept(nibbleTable(utf8::kFirstLow))),
          secondHigh(kept(nibbleTable(utf8::kSecondHigh))),
          lowHalf(kept(bytesOf(0x0F))),
          highHalf(kept(bytesOf(0xF0))),
          third(kept(bytesOf(0xE0 - 0x80))),
          fourth(kept(bytesOf(0xF0 - 0x80))),
          topBit(kept(bytesOf(0x80))),
          lastContinuation(kept(bytesOf(0xBF))),
          lowSix(kept(bytesOf(0x3F))),
          highTwo(kept(bytesOf(0xC0))),
          lowTwo(kept(bytesOf(0x03))),
          middleThree(kept(bytesOf(0x1C))) {}
};

struct Bytes {
    __m256i at, before1, before2, before3;
};

QZSTRING_KERNEL Bytes loadAround(const char* block) {
    return {load256(block), load256(block - 1), load256(block - 2), load256(block - 3)};
}

// Not zero where a byte and the ones before it cannot stand in well-formed text.
QZSTRING_KERNEL __m256i faultsOf(const Bytes& bytes, const DecodingConstants& constant) {
    const __m256i firstHigh = _mm256_and_si256(_mm256_srli_epi16(bytes.before1, 4), constant.lowHalf);
    const __m256i secondHigh = _mm256_and_si256(_mm256_srli_epi16(bytes.at, 4), constant.lowHalf);
    const __m256i pairs = _mm256_and_si256(
        _mm256_and_si256(
            _mm256_shuffle_epi8(constant.firstHigh, firstHigh),
            _mm256_shuffle_epi8(constant.firstLow, _mm256_and_si256(bytes.before1, constant.lowHalf))),
        _mm256_shuffle_epi8(constant.secondHigh, secondHigh));
    // The top bit where the byte is the third or fourth of a character.
    const __m256i third = _mm256_subs_epu8(bytes.before2, constant.third);
    const __m256i fourth = _mm256_subs_epu8(bytes.before3, constant.fourth);
    return _mm256_xor_si256(_mm256_and_si256(_mm256_or_si256(third, fourth), constant.topBit), pairs);
}

QZSTRING_KERNEL bool anyFault(__m256i faults) {
    return _mm256_testz_si256(faults, faults) == 0;
}

QZSTRING_KERNEL std::uint32_t topBits(__m256i bytes) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

// Bytes that are no continuation.
QZSTRING_KERNEL std::uint32_t starts(__m256i bytes, const DecodingConstants& constant) {
    return topBits(_mm256_cmpgt_epi8(bytes, constant.lastContinuation));
}

struct CodePoints {
    __m256i low, middle, high;
    bool hasHigh;
};

QZSTRING_KERNEL CodePoints form(const Bytes& bytes, const DecodingConstants& constant) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i joined =
        _mm256_or_si256(_mm256_and_si256(bytes.at, constant.lowSix),
                        _mm256_and_si256(_mm256_slli_epi16(bytes.before1, 6), constant.highTwo));
    const __m256i low = _mm256_blendv_epi8(bytes.at, joined, bytes.at);
    const __m256i isThree = _mm256_cmpgt_epi8(constant.highTwo, bytes.before1);
    const __m256i upper =
        _mm256_and_si256(_mm256_and_si256(_mm256_slli_epi16(bytes.before2, 4), constant.highHalf), isThree);
    const __m256i lower = _mm256_and_si256(_mm256_srli_epi16(bytes.before1, 2), constant.lowHalf);
    const __m256i middle = _mm256_and_si256(_mm256_or_si256(lower, upper), _mm256_cmpgt_epi8(zero, bytes.at));
    const __m256i isFour =
        _mm256_cmpeq_epi8(_mm256_max_epu8(bytes.before3, constant.highHalf), bytes.before3);
    if (_mm256_testz_si256(isFour, isFour) != 0)
        return {low, middle, zero, false};
    const __m256i high =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(bytes.before2, 4), constant.lowTwo),
                        _mm256_and_si256(_mm256_slli_epi16(bytes.before3, 2), constant.middleThree));
    return {low, middle, _mm256_and_si256(high, isFour), true};
}

// Stores those of eight characters that the mask names; up to eight elements are written.
QZSTRING_KERNEL wchar_t* storeEight(__m128i values, __m128i high, bool hasHigh, std::uint32_t mask,
                                    wchar_t* destination) {
    const __m128i selection =
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(kSelections[mask & 0xFF].data()));
    __m256i characters = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(values, selection));
    if (hasHigh) {
        const __m256i upper = _mm256_cvtepu16_epi32(_mm_shuffle_epi8(high, selection));
        characters = _mm256_or_si256(characters, _mm256_slli_epi32(upper, 16));
    }
    store256(destination, characters);
    return destination + _mm_popcnt_u32(mask & 0xFF);
}

// Stores the characters that end at `ends`; up to eight elements more are written.
QZSTRING_KERNEL void store(const CodePoints& points, std::uint32_t ends, wchar_t* destination) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i even = _mm256_unpacklo_epi8(points.low, points.middle);
    const __m256i odd = _mm256_unpackhi_epi8(points.low, points.middle);
    const __m256i evenHigh = _mm256_unpacklo_epi8(points.high, zero);
    const __m256i oddHigh = _mm256_unpackhi_epi8(points.high, zero);
    const bool hasHigh = points.hasHigh;
    destination = storeEight(_mm256_castsi256_si128(even), _mm256_castsi256_si128(evenHigh), hasHigh, ends,
                             destination);
    destination = storeEight(_mm256_castsi256_si128(odd), _mm256_castsi256_si128(oddHigh), hasHigh, ends >> 8,
                             destination);
    destination = storeEight(_mm256_extracti128_si256(even, 1), _mm256_extracti128_si256(evenHigh, 1),
                             hasHigh, ends >> 16, destination);
    storeEight(_mm256_extracti128_si256(odd, 1), _mm256_extracti128_si256(oddHigh, 1), hasHigh, ends >> 24,
               destination);
}

constexpr std::size_t kRefused = static_cast<std::size_t>(-1);

// Decodes one block where it is well-formed and fits. Returns the number of characters that end in it, or
// kRefused.
QZSTRING_KERNEL std::size_t decodeBlock(const Bytes& bytes, std::uint32_t ends, wchar_t* destination,
                                        std::size_t room, bool muchFollows,
                                        const DecodingConstants& constant) {
    const auto count = static_cast<std::size_t>(_mm_popcnt_u32(ends));
    if (anyFault(faultsOf(bytes, constant)) || count > room)
        return kRefused;
    const CodePoints points = form(bytes, constant);
    if (muchFollows && room >= count + 8) {
        store(points, ends, destination);
    } else {
        wchar_t buffer[kBlock + 8];
        store(points, ends, buffer);
        std::memcpy(destination, buffer, count * sizeof(wchar_t));
    }
    return count;
}

// A block at the beginning or the end of the text, with the bytes around it, and zeros where the text has
// none.
struct Part {
    char bytes[3 + kBlock + 1] = {};
    std::size_t count;

    Part(const char* source, std::size_t at, std::size_t length) {
        const std::size_t before = at < 3 ? at : 3;
        const std::size_t rest = length - at;
        std::memcpy(bytes + 3 - before, source + at - before,
                    before + (rest < kBlock + 1 ? rest : kBlock + 1));
        count = rest < kBlock ? rest : kBlock;
    }
    [[nodiscard]] const char* block() const { return bytes + 3; }
    [[nodiscard]] std::uint32_t valid() const { return count == kBlock ? ~0U : (1U << count) - 1; }
};

QZSTRING_KERNEL __m256i widen(const char* source) {
    return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(source)));
}

// Widens whole blocks of ASCII while they last and fit, and returns how many bytes that were.
QZSTRING_KERNEL std::size_t storeAsciiRun(const char* source, std::size_t length, wchar_t* destination,
                                          std::size_t room) {
    const std::size_t most = length < room ? length : room;
    std::size_t at = 0;
    for (; most - at >= kBlock && topBits(load256(source + at)) == 0; at += kBlock) {
        for (std::size_t i = at; i < at + kBlock; i += 8)
            store256(destination + i, widen(source + i));
    }
    return at;
}

// ---- Runs of one length ----

// Eight characters of three or four bytes in a row, one in each lane, or what cannot be that.
struct Lanes {
    __m256i characters;
    bool valid;
};

template <int kWidth>
QZSTRING_KERNEL Lanes decodeEight(const char* source) {
    static_assert(kWidth == 3 || kWidth == 4);
    const auto half = [](const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
    const __m256i bytes =
        _mm256_inserti128_si256(_mm256_castsi128_si256(half(source)), half(source + 4 * kWidth), 1);
    // The last byte first in every lane.
    const __m256i order =
        kWidth == 3
            ? _mm256_broadcastsi128_si256(_mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1))
            : _mm256_broadcastsi128_si256(
                  _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
    const __m256i lanes = _mm256_shuffle_epi8(bytes, order);
    const __m256i marks = _mm256_and_si256(lanes, lanesOf(kWidth == 3 ? 0x00F0C0C0 : 0xF8C0C0C0));
    const __m256i marked = _mm256_cmpeq_epi32(marks, lanesOf(kWidth == 3 ? 0x00E08080 : 0xF0808080));
    // Six bits and six bits, then twelve and the rest.
    const __m256i fields = _mm256_and_si256(lanes, lanesOf(kWidth == 3 ? 0x000F3F3F : 0x073F3F3F));
    const __m256i twelves = _mm256_maddubs_epi16(fields, _mm256_set1_epi16(0x4001));
    const __m256i characters = _mm256_madd_epi16(twelves, lanesOf(0x10000001));
    __m256i wrong;
    if (kWidth == 3) {
        const __m256i high = _mm256_and_si256(characters, lanesOf(0xF800));
        wrong = _mm256_or_si256(_mm256_cmpeq_epi32(high, _mm256_setzero_si256()),
                                _mm256_cmpeq_epi32(high, lanesOf(0xD800)));
    } else {
        wrong = _mm256_or_si256(_mm256_cmpgt_epi32(lanesOf(0x10000), characters),
                                _mm256_cmpgt_epi32(characters, lanesOf(0x10FFFF)));
    }
    return {characters, topBits(_mm256_andnot_si256(wrong, marked)) == ~0U};
}

// Decodes eight characters of that many bytes at a time while they last, fit and are well-formed. Returns how
// many characters that were.
template <int kWidth>
QZSTRING_KERNEL std::size_t storeRun(const char* source, std::size_t length, wchar_t* destination,
                                     std::size_t room) {
    std::size_t count = 0;
    for (; room - count >= 8 && length - kWidth * count >= kBlock; count += 8) {
        const Lanes eight = decodeEight<kWidth>(source + kWidth * count);
        if (!eight.valid)
            break;
        store256(destination + count, eight.characters);
    }
    return count;
}

// A block that has none but characters of three or none but characters of four bytes, to judge by the places
// where they end: where the first of them begins, counted from the block, and their width; else 0.
struct Run {
    int start;
    int width;
};

QZSTRING_KERNEL Run findRun(std::uint32_t ends) {
    const int first = static_cast<int>(_tzcnt_u32(ends)) & 3;
    const int width = ends == 0x49249249U << first ? 3 : ends == 0x11111111U << first ? 4 : 0;
    return {first + 1 - width, width};
}

// Whether what stands before the run is whole and written, and nothing of the run is: it begins with the
// block, or with the one character that has begun before the block and goes on in it.
QZSTRING_KERNEL bool beginsAt(const Run& run, const char* source, const char* block) {
    if (run.start == 0)
        return !utf8::isContinuation(*block) && !utf8::endsInside(source, block);
    return utf8::isContinuation(*block) && utf8::lastCharacter(block) == block + run.start;
}

// How far decoding has come.
struct Decoding {
    std::size_t at = 0;
    std::size_t written = 0;
    bool afterWhole = true;  // whole characters, all of them written, up to `at`

    QZSTRING_KERNEL void advance(std::size_t bytes, std::size_t characters, bool whole) {
        at += bytes;
        written += characters;
        afterWhole = whole;
    }
};

// Decodes as long as blocks are well-formed and fit, up to a run of characters of one width: goes back to
// where it begins, and returns that width; else 0.
QZSTRING_TARGET QZSTRING_NOINLINE int decodeBlocks(const char* source, std::size_t length,
                                                   wchar_t* destination, std::size_t capacity,
                                                   Decoding& decoding) {
    const DecodingConstants constant;
    Decoding now = decoding;
    int width = 0;
    while (now.at < length) {
        const char* const block = source + now.at;
        const std::size_t rest = length - now.at;
        const std::size_t room = capacity - now.written;
        if (rest >= kBlock && topBits(load256(block)) == 0 &&
            (now.afterWhole || !utf8::endsInside(source, block))) {
            const std::size_t run = storeAsciiRun(block, rest, destination + now.written, room);
            if (run == 0)
                break;
            now.advance(run, run, true);
            continue;
        }
        // At least a character of every four bytes: 32 more fill what a whole block may write too much.
        const bool muchFollows = rest >= 2 * kBlock;
        std::size_t count = kRefused;
        if (now.at >= 3 && rest > kBlock) {
            const std::uint32_t ends = starts(load256(block + 1), constant);
            const Run run = findRun(ends);
            if (run.width != 0 && beginsAt(run, source, block)) {
                now.at += static_cast<std::size_t>(run.start);
                now.afterWhole = true;
                width = run.width;
                break;
            }
            count =
                decodeBlock(loadAround(block), ends, destination + now.written, room, muchFollows, constant);
        } else if (rest > kBlock || !utf8::endsInside(source, source + length)) {
            const Part part(source, now.at, length);
            count = decodeBlock(loadAround(part.block()),
                                starts(load256(part.block() + 1), constant) & part.valid(),
                                destination + now.written, room, muchFollows, constant);
        }
        if (count == kRefused)
            break;
        now.advance(rest < kBlock ? rest : kBlock, count, false);
    }
    decoding = now;
    _mm256_zeroupper();
    return width;
}

// Where a run decodes nothing, the text is ill-formed there, or does not fit.
QZSTRING_TARGET Progress decodeVectors(const char* source, std::size_t length, wchar_t* destination,
                                       std::size_t capacity) {
    Decoding decoding;
    while (const int width = decodeBlocks(source, length, destination, capacity, decoding)) {
        const char* const from = source + decoding.at;
        const std::size_t rest = length - decoding.at;
        wchar_t* const to = destination + decoding.written;
        const std::size_t room = capacity - decoding.written;
        const std::size_t run =
            width == 3 ? storeRun<3>(from, rest, to, room) : storeRun<4>(from, rest, to, room);
        if (run == 0)
            break;
        decoding.advance(run * static_cast<std::size_t>(width), run, true);
    }
    _mm256_zeroupper();
    const Progress reached{decoding.at, decoding.written};
    return decoding.at == length ? reached : utf8::wholeCharacters(source, reached, decoding.afterWhole);
}

// The same without the stores. Four blocks in a row are checked at once.
QZSTRING_TARGET Progress measureDecoded(const char* source, std::size_t length) {
    const DecodingConstants constant;
    std::size_t at = 0;
    std::size_t characters = 0;
    while (at < length) {
        const std::size_t rest = length - at;
        __m256i faults = _mm256_setzero_si256();
        std::size_t count = rest < kBlock ? rest : kBlock;
        std::size_t begun = 0;
        if (at >= 3 && rest >= kBlock) {
            count = rest >= 4 * kBlock ? 4 * kBlock : kBlock;
            if (count > kBlock && !utf8::endsInside(source, source + at)) {
                const __m256i all = _mm256_or_si256(
                    _mm256_or_si256(load256(source + at), load256(source + at + kBlock)),
                    _mm256_or_si256(load256(source + at + 2 * kBlock), load256(source + at + 3 * kBlock)));
                if (topBits(all) == 0) {
                    at += count;
                    characters += count;
                    continue;
                }
            }
            for (std::size_t i = at; i < at + count; i += kBlock) {
                const Bytes bytes = loadAround(source + i);
                faults = _mm256_or_si256(faults, faultsOf(bytes, constant));
                begun += static_cast<std::size_t>(_mm_popcnt_u32(starts(bytes.at, constant)));
            }
        } else {
            const Part part(source, at, length);
            const Bytes bytes = loadAround(part.block());
            faults = faultsOf(bytes, constant);
            begun = static_cast<std::size_t>(_mm_popcnt_u32(starts(bytes.at, constant) & part.valid()));
        }
        if (anyFault(faults))
            break;
        at += count;
        characters += begun;
    }
    if (at != 0 && utf8::endsInside(source, source + at)) {
        // Characters were counted by their lead bytes: not so the one that goes on past this place.
        at = static_cast<std::size_t>(utf8::lastCharacter(source + at) - source);
        --characters;
    }
    _mm256_zeroupper();
    return {at, characters};
}

// ---- Encoding ----

constexpr std::array<Shuffle, 256> makePackings() {
    std::array<Shuffle, 256> packings{};
    for (std::size_t lengths = 0; lengths < 256; ++lengths) {
        std::size_t to = 0;
        for (std::size_t lane = 0; lane < 4; ++lane) {
            const std::size_t more = lengths >> 2 * lane & 3;
            for (std::size_t byte = 3 - more; byte < 4; ++byte)
                packings[lengths][to++] = static_cast<unsigned char>(4 * lane + byte);
        }
    }
    return packings;
}
// By the number of bytes beyond the first of four lanes, two bits each: moves the bytes in use to the front.
constexpr std::array<Shuffle, 256> kPackings = makePackings();
// Four bits, each in two.
constexpr unsigned char kApart[16] = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                      0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

QZSTRING_KERNEL unsigned laneBits(__m256i lanes) {
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

// Lanes above a limit; signed, which is right for everything that is not a fault.
QZSTRING_KERNEL __m256i above(__m256i characters, int limit) {
    return _mm256_cmpgt_epi32(characters, _mm256_set1_epi32(limit));
}

// Not zero in lanes that hold a surrogate or what is above U+10FFFF.
QZSTRING_KERNEL __m256i illFormed(__m256i characters) {
    const __m256i tooLarge = _mm256_xor_si256(_mm256_min_epu32(characters, lanesOf(0x10FFFF)), characters);
    const __m256i surrogate =
        _mm256_cmpeq_epi32(_mm256_and_si256(characters, lanesOf(0xFFFFF800)), lanesOf(0xD800));
    return _mm256_or_si256(tooLarge, surrogate);
}

QZSTRING_KERNEL bool isAscii(__m256i characters) {
    return _mm256_testz_si256(characters, lanesOf(0xFFFFFF80)) != 0;
}

QZSTRING_TARGET Progress encodeBlocks(const wchar_t* source, std::size_t length, char* destination,
                                      std::size_t capacity) {
    const __m256i field1 = kept(lanesOf(0x3F000000));
    const __m256i field2 = kept(lanesOf(0x003F0000));
    const __m256i field3 = kept(lanesOf(0x00003F00));
    const __m256i tag2 = kept(lanesOf(0x80C00000));
    const __m256i tag3 = kept(lanesOf(0x80C00000 ^ 0x8080E000));
    const __m256i tag4 = kept(lanesOf(0x8080E000 ^ 0x808080F0));
    const __m256i last1 = kept(lanesOf(0x7F));  // of the characters that take one, two, three bytes
    const __m256i last2 = kept(lanesOf(0x7FF));
    const __m256i last3 = kept(lanesOf(0xFFFF));
    std::size_t at = 0;
    std::size_t written = 0;
    // What is left after a block of 8 fills at least the 16 bytes that its second half may write too much.
    while (length - at >= 8 + 16 && capacity - written >= 8 * 4 + 16) {
        const __m256i a = load256(source + at);
        if (isAscii(a) && length - at >= 32) {
            const __m256i b = load256(source + at + 8);
            const __m256i c = load256(source + at + 16);
            const __m256i d = load256(source + at + 24);
            if (isAscii(_mm256_or_si256(b, _mm256_or_si256(c, d)))) {
                const __m256i packed =
                    _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
                const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
                store256(destination + written, _mm256_permutevar8x32_epi32(packed, order));
                at += 32;
                written += 32;
                continue;
            }
        }
        const __m256i faults = illFormed(a);
        if (_mm256_testz_si256(faults, faults) == 0)
            break;
        const __m256i two = _mm256_cmpgt_epi32(a, last1);
        const __m256i three = _mm256_cmpgt_epi32(a, last2);
        const __m256i four = _mm256_cmpgt_epi32(a, last3);
        const __m256i fields = _mm256_or_si256(
            _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(a, 24), field1),
                            _mm256_and_si256(_mm256_slli_epi32(a, 10), field2)),
            _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(a, 4), field3), _mm256_srli_epi32(a, 18)));
        const __m256i tags =
            _mm256_xor_si256(_mm256_and_si256(two, tag2),
                             _mm256_xor_si256(_mm256_and_si256(three, tag3), _mm256_and_si256(four, tag4)));
        const __m256i bytes =
            _mm256_blendv_epi8(_mm256_slli_epi32(a, 24), _mm256_or_si256(fields, tags), two);
        const unsigned twos = laneBits(two);
        const unsigned threes = laneBits(three);
        const unsigned fours = laneBits(four);
        for (int half = 0; half < 2; ++half) {
            const unsigned x = twos >> 4 * half & 15;
            const unsigned y = threes >> 4 * half & 15;
            const unsigned z = fours >> 4 * half & 15;
            const auto& packing = kPackings[static_cast<std::size_t>(kApart[x] + kApart[y] + kApart[z])];
            const __m128i lanes =
                half == 0 ? _mm256_castsi256_si128(bytes) : _mm256_extracti128_si256(bytes, 1);
            const __m128i packed =
                _mm_shuffle_epi8(lanes, _mm_loadu_si128(reinterpret_cast<const __m128i*>(packing.data())));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(destination + written), packed);
            written += 4 + static_cast<std::size_t>(_mm_popcnt_u32(x | y << 4 | z << 8));
        }
        at += 8;
    }
    _mm256_zeroupper();
    return {at, written};
}

QZSTRING_TARGET Progress measureEncoded(const wchar_t* source, std::size_t length) {
    std::size_t at = 0;
    std::size_t bytes = 0;
    for (; length - at >= 8; at += 8) {
        const __m256i characters = load256(source + at);
        const __m256i faults = illFormed(characters);
        if (_mm256_testz_si256(faults, faults) == 0)
            break;
        const unsigned more = laneBits(above(characters, 0x7F)) | laneBits(above(characters, 0x7FF)) << 8 |
                              laneBits(above(characters, 0xFFFF)) << 16;
        bytes += 8 + static_cast<std::size_t>(_mm_popcnt_u32(more));
    }
    _mm256_zeroupper();
    return {at, bytes};
}

}  // namespace

// Each goes on in portable code where the blocks end: at the end of the text, of the room, or before a fault.

Progress decode(const char* source, std::size_t length, wchar_t* destination, std::size_t capacity) {
    const Progress blocks = decodeVectors(source, length, destination, capacity);
    if (blocks.read == length)
        return blocks;
    const Progress rest = utf8::decode(source + blocks.read, length - blocks.read,
                                       destination + blocks.written, capacity - blocks.written);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress decodedLength(const char* source, std::size_t length) {
    const Progress blocks = measureDecoded(source, length);
    if (blocks.read == length)
        return blocks;
    const Progress rest = utf8::decodedLength<wchar_t>(source + blocks.read, length - blocks.read);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress encode(const wchar_t* source, std::size_t length, char* destination, std::size_t capacity) {
    const Progress blocks = encodeBlocks(source, length, destination, capacity);
    const Progress rest = utf8::encode(source + blocks.read, length - blocks.read,
                                       destination + blocks.written, capacity - blocks.written);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

Progress encodedLength(const wchar_t* source, std::size_t length) {
    const Progress blocks = measureEncoded(source, length);
    const Progress rest = utf8::encodedLength(source + blocks.read, length - blocks.read);
    return {blocks.read + rest.read, blocks.written + rest.written};
}

}  // namespace qzString::kernels::avx2

#endif
