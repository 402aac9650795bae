// Encoding UTF-8 in AVX-512 with VBMI2.
//
// Of 16 characters, bit fields are spread over the four bytes of each lane, lead byte first
// (vpmultishiftqb), tagged by the length that the number of leading zeros gives, and the bytes in use
// compressed. Text below U+0800 goes 32 characters at a time in 16-bit lanes, ASCII 64. Ill-formed characters
// are noticed at the end, in text of up to 16 before anything is stored.
//
// Stores: 64 bytes whole while what is still to come is sure to fill them, else no more than the count.
//
// Two things that cost more than they show: instructions that make or test masks share two ports, so the
// bytes in use come from one comparison; and processors may let a load wait until the places of all stores
// before it are known, and these depend on the lengths, so the loop loads a block ahead.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/inline.h"
#include "primitives/output.h"
#include "primitives/utf8CharactersAvx512.h"
#include "primitives/utf8Kernels.h"

namespace qzString::kernels::avx512 {
namespace {

constexpr __mmask64 kAll = ~__mmask64{0};
using output::kFailure;

// The tags of characters by the number of leading zeros of their 32 bits: lead and continuation marks in the
// bytes in use, which are the last of the lane, and the seventh bit of ASCII, which the others' six lack. 32
// zeros look up entry 0.
constexpr int kSeventhBit = 0x40000000;
constexpr int kTag2 = static_cast<int>(0x80C00000);
constexpr int kTag3 = static_cast<int>(0x8080E000);
constexpr int kTag4 = static_cast<int>(0x808080F0);
alignas(64) constexpr int kTags[32] = {
    0,     kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4, kTag4,
    kTag4, kTag4, kTag4, kTag3, kTag3, kTag3, kTag3, kTag3, kTag2, kTag2, kTag2, kTag2, kSeventhBit,
};
// Where the bytes of both characters of a 64-bit lane begin: at their bits 18, 12, 6 and 0.
constexpr std::uint64_t kFields = 0x20262C3200060C12;

// The constants of encoding.
struct Constants {
    __m512i beyondAscii, beyondTwo, surrogate, lowSix, fields, tags, moreTags, leastUsed, twoUnit, sixBits,
        pairTag;

    QZSTRING_KERNEL Constants()
        : beyondAscii(everywhere<repeat32(0U - 0x80)>()),
          beyondTwo(everywhere<repeat32(0U - 0x800)>()),
          surrogate(everywhere<repeat32(0xD800)>()),
          lowSix(everywhere<repeat8(0x3F)>()),
          fields(everywhere<kFields>()),
          tags(kept(table(kTags))),
          moreTags(kept(table(kTags + 16))),
          leastUsed(everywhere<repeat32(0x00808080)>()),
          twoUnit(everywhere<repeat16(0x80)>()),
          sixBits(everywhere<repeat16(0x3F00)>()),
          pairTag(everywhere<repeat16(0x80C0)>()) {}
};

// Remembers whether there was an ill-formed character.
struct Faults {
    __m512i largest;
    __m512i nearestSurrogate;

    QZSTRING_KERNEL Faults() : largest(_mm512_setzero_si512()), nearestSurrogate(_mm512_set1_epi32(-1)) {}
    QZSTRING_KERNEL void see(__m512i characters, __m512i surrogate = _mm512_set1_epi32(0xD800)) {
        largest = _mm512_max_epu32(largest, characters);
        nearestSurrogate = _mm512_min_epu32(nearestSurrogate, _mm512_xor_si512(characters, surrogate));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        return (_mm512_cmpgt_epu32_mask(largest, everywhere<repeat32(0x10FFFF)>()) |
                _mm512_cmplt_epu32_mask(nearestSurrogate, everywhere<repeat32(0x800)>())) != 0;
    }
};

// The bytes of a block, those in use marked.
struct Encoded {
    __m512i bytes;
    __mmask64 used;
};

// Every character takes the last byte of its lane, and those before it that are marked.
QZSTRING_KERNEL Encoded encodeAny(__m512i characters, __mmask64 valid, const Constants& constant) {
    const __m512i zeros = _mm512_lzcnt_epi32(characters);
    const __m512i tags = _mm512_permutex2var_epi32(constant.tags, zeros, constant.moreTags);
    const __m512i fields = _mm512_multishift_epi64_epi8(constant.fields, characters);
    return {_mm512_ternarylogic_epi32(fields, constant.lowSix, tags, 0xEA),
            _mm512_mask_cmpge_epu8_mask(valid, tags, constant.leastUsed)};
}

// 32 characters below U+0800, in 16-bit lanes; those that are not `valid` are zero and take no byte.
QZSTRING_KERNEL Encoded encodeTwoByte(__m512i first, __m512i second, std::uint32_t valid,
                                      const Constants& constant) {
    const __m512i order = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7);
    const __m512i units = _mm512_permutexvar_epi64(order, _mm512_packus_epi32(first, second));
    const __mmask32 two = _mm512_cmpge_epu16_mask(units, constant.twoUnit);
    const __m512i sixBits = _mm512_and_si512(_mm512_slli_epi16(units, 8), constant.sixBits);
    const __m512i pairs =
        _mm512_ternarylogic_epi32(_mm512_srli_epi16(units, 6), sixBits, constant.pairTag, 0xFE);
    return {_mm512_mask_mov_epi16(units, two, pairs),
            _pdep_u64(valid, 0x5555555555555555) | _pdep_u64(two, 0xAAAAAAAAAAAAAAAA)};
}

QZSTRING_KERNEL __m512i packAscii(__m512i a, __m512i b, __m512i c, __m512i d) {
    const __m512i order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    return _mm512_permutexvar_epi32(
        order, _mm512_packus_epi16(_mm512_packus_epi32(a, b), _mm512_packus_epi32(c, d)));
}

struct Destination {
    char* bytes;
    std::size_t capacity;
    std::size_t written = 0;

    // `later` more bytes at least will be written after these. Returns false where there is no room.
    QZSTRING_KERNEL bool put(const Encoded& encoded, std::size_t later) {
        const auto count = static_cast<std::size_t>(_mm_popcnt_u64(encoded.used));
        const std::size_t room = capacity - written;
        if (count > room)
            return false;
        const __m512i packed = _mm512_maskz_compress_epi8(encoded.used, encoded.bytes);
        if (room >= kBlock && later >= kBlock)
            _mm512_storeu_si512(bytes + written, packed);
        else
            storeShort(bytes + written, count, packed);
        written += count;
        return true;
    }

    // The same without a question: there is room for 64 bytes, and as many will be written later.
    QZSTRING_KERNEL void putAmply(const Encoded& encoded) {
        _mm512_storeu_si512(bytes + written, _mm512_maskz_compress_epi8(encoded.used, encoded.bytes));
        written += static_cast<std::size_t>(_mm_popcnt_u64(encoded.used));
    }

    QZSTRING_KERNEL bool putAscii(__m512i packed, std::size_t count) {
        if (count > capacity - written)
            return false;
        if (count == kBlock)
            _mm512_storeu_si512(bytes + written, packed);
        else
            storeShort(bytes + written, count, packed);
        written += count;
        return true;
    }
};

// Encodes up to 64 characters, of which `count` are valid; `later` more follow. Returns false where there is
// no room. Where kWhole, of 64, with a loop's constants; else with those that it needs, made anew.
template <bool kWhole>
QZSTRING_KERNEL bool encodeCharacters(const Characters& characters, std::size_t count, std::size_t later,
                                      Destination& destination, Faults& faults, const Constants* known) {
    const __m512i all = characters.all();
    if (kWhole ? _mm512_test_epi32_mask(all, known->beyondAscii) == 0 : !anyFrom<0x80>(all))
        return destination.putAscii(packAscii(characters.a, characters.b, characters.c, characters.d), count);
    const std::uint64_t valid = lowBits(count);
    if (kWhole ? _mm512_test_epi32_mask(all, known->beyondTwo) == 0 : !anyFrom<0x800>(all)) {
        const Constants constant = kWhole ? *known : Constants();
        return destination.put(
                   encodeTwoByte(characters.a, characters.b, static_cast<std::uint32_t>(valid), constant),
                   later + (count > 32 ? count - 32 : 0)) &&
               (count <= 32 ||
                destination.put(encodeTwoByte(characters.c, characters.d,
                                              static_cast<std::uint32_t>(valid >> 32), constant),
                                later));
    }
    const Constants constant = kWhole ? *known : Constants();
    const __m512i parts[] = {characters.a, characters.b, characters.c, characters.d};
    if (kWhole && later >= kBlock && destination.capacity - destination.written >= 4 * kBlock) {
        for (const __m512i part : parts) {
            faults.see(part, constant.surrogate);
            destination.putAmply(encodeAny(part, kAll, constant));
        }
        return true;
    }
    for (std::size_t i = 0; i < 4 && (kWhole || 16 * i < count); ++i) {
        faults.see(parts[i], constant.surrogate);
        const __mmask64 part = kWhole || count - 16 * i >= 16 ? kAll : lowBits(4 * (count - 16 * i));
        const std::size_t behind = count > 16 * (i + 1) ? count - 16 * (i + 1) : 0;
        if (!destination.put(encodeAny(parts[i], part, constant), later + behind))
            return false;
    }
    return true;
}

unsigned int encodeAsciiBlocks(const wchar_t* source, std::size_t length, char* destination,
                               std::size_t capacity, bool* ok);

// Encodes a text of more than a block from `at` on, at least a block, before which all is ASCII and written.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int encodeBlocks(const wchar_t* source, std::size_t length,
                                                            char* destination, std::size_t capacity,
                                                            std::size_t at, bool* ok) {
    Characters next = loadWhole(source + at);
    if (at == 0 && capacity >= kBlock && !anyFrom<0x80>(next.all()))
        return encodeAsciiBlocks(source, length, destination, capacity, ok);
    const Constants constant;
    Destination to{destination, capacity, at};
    Faults faults;
    bool fits = true;
    do {
        const Characters now = next;
        at += kBlock;
        const std::size_t later = length - at;
        if (later >= kBlock)
            next = loadWhole(source + at);
        fits = encodeCharacters<true>(now, kBlock, later, to, faults, &constant);
    } while (fits && length - at >= kBlock);
    const std::size_t rest = length - at;
    if (fits && rest > 16) {
        fits = encodeCharacters<false>(loadPart<true>(source + at, rest), rest, 0, to, faults, nullptr);
    } else if (fits && rest > 0) {  // whatever it is, with the constants at hand
        const __m512i last = loadPart<true>(source + at, rest).a;
        faults.see(last, constant.surrogate);
        fits = to.put(encodeAny(last, lowBits(4 * rest), constant), 0);
    }
    const bool converted = fits && !faults.any();
    _mm256_zeroupper();
    return output::report(converted ? to.written : kFailure, ok);
}

// The same of a text that begins with a block of ASCII and has room for it: ASCII takes no constants, and the
// last characters are taken with some of those before.
QZSTRING_TARGET QZSTRING_NOINLINE unsigned int encodeAsciiBlocks(const wchar_t* source, std::size_t length,
                                                                 char* destination, std::size_t capacity,
                                                                 bool* ok) {
    const std::size_t last = length - kBlock;
    Characters block = loadWhole(source);
    for (std::size_t at = 0;;) {
        _mm512_storeu_si512(destination + at, packAscii(block.a, block.b, block.c, block.d));
        if (at == last)
            break;
        at = at + kBlock < last ? at + kBlock : last;
        block = loadWhole(source + at);
        if (capacity - at < kBlock || anyFrom<0x80>(block.all()))
            return encodeBlocks(source, length, destination, capacity, at, ok);
    }
    _mm256_zeroupper();
    return output::report(length, ok);
}

// Encodes 17 to 64 characters.
QZSTRING_KERNEL std::size_t encodeShort(const wchar_t* source, std::size_t length, char* destination,
                                        std::size_t capacity) {
    Destination to{destination, capacity};
    const Characters part = loadPart<true>(source, length);
    if (!anyFrom<0x80>(part.all())) {  // apart to the end: there are no faults to look for
        const bool fits = to.putAscii(packAscii(part.a, part.b, part.c, part.d), length);
        _mm256_zeroupper();
        return fits ? length : kFailure;
    }
    Faults faults;
    const bool fits = encodeCharacters<false>(part, length, 0, to, faults, nullptr);
    const bool converted = fits && !faults.any();
    _mm256_zeroupper();
    return converted ? to.written : kFailure;
}

// ---- Up to 16 characters ----

QZSTRING_KERNEL std::size_t encodeVector(const wchar_t* source, std::size_t length, char* destination,
                                         std::size_t capacity) {
    const __m512i characters = loadShort(source, sizeof(wchar_t) * length);
    std::size_t written = kFailure;
    if (!anyFrom<0x80>(characters)) {
        if (length <= capacity) {
            written = length;
            _mm_mask_storeu_epi8(destination, lowLanes(length), _mm512_cvtepi32_epi8(characters));
        }
    } else if (!anyIllFormed(characters)) {
        const Encoded encoded = encodeAny(characters, lowBits(4 * length), Constants());
        const auto count = static_cast<std::size_t>(_mm_popcnt_u64(encoded.used));
        if (count <= capacity) {
            written = count;
            storeShort(destination, count, _mm512_maskz_compress_epi8(encoded.used, encoded.bytes));
        }
    }
    _mm256_zeroupper();
    return written;
}

}  // namespace

// An entry, as avx512.h describes them.
QZSTRING_TARGET unsigned int encode(const wchar_t* source, std::size_t length, char* destination,
                                    std::size_t capacity, bool* ok) {
    if (length <= 16)
        return output::report(encodeVector(source, length, destination, capacity), ok);
    if (length <= kBlock)
        return output::report(encodeShort(source, length, destination, capacity), ok);
    return encodeBlocks(source, length, destination, capacity, 0, ok);
}

}  // namespace qzString::kernels::avx512

#endif
