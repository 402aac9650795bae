// Encoding UTF-8 in AVX2, 16 characters a block.
//
// Each is spread over the four bytes of a lane, lead byte first and right-aligned; for each combination of
// four lengths a table has the shuffle that moves the bytes in use to the front (utf8Shuffles.h).
// Characters below U+10000 are spread in 16-bit lanes, those below U+0800 stay in them, eight a shuffle.
// Ill-formed characters are noticed at the end. Stores are 16 bytes whole while what is still to come is
// sure to fill them, else of the bytes in use, in two words that may overlap. The last characters are
// loaded under a mask, so that nothing behind the text is read.
#include "primitives/kernels.h"

#if QZSTRING_VECTORS_X86

#include "primitives/avx2.h"
#include "primitives/output.h"
#include "primitives/utf8Kernels.h"
#include "primitives/utf8Shuffles.h"

namespace qzString::kernels::avx2 {
namespace {

constexpr std::array<shuffles::Shuffle, 256> makePairPackings() {
    std::array<shuffles::Shuffle, 256> packings{};
    for (std::size_t pairs = 0; pairs < 256; ++pairs) {
        std::size_t to = 0;
        for (std::size_t i = 0; i < 8; ++i) {
            packings[pairs][to++] = static_cast<unsigned char>(2 * i);
            if ((pairs >> i & 1) != 0)
                packings[pairs][to++] = static_cast<unsigned char>(2 * i + 1);
        }
    }
    return packings;
}
// Moves the bytes in use of eight 16-bit lanes to the front: both of those that the mask names.
constexpr std::array<shuffles::Shuffle, 256> kPairPackings = makePairPackings();

template <std::uint32_t kLimit>
QZSTRING_KERNEL bool anyFrom(__m256i characters) {
    return _mm256_testz_si256(characters, lanesOf<0 - kLimit>()) == 0;
}

// All bits where an unsigned 16-bit lane is up to the limit.
template <std::uint16_t kLimit>
QZSTRING_KERNEL __m256i unitsUpTo(__m256i units) {
    return _mm256_cmpeq_epi16(_mm256_min_epu16(units, unitsOf<kLimit>()), units);
}

// Remembers whether any character was a surrogate or above U+10FFFF.
struct EncodingFaults {
    __m256i largest, surrogates;

    QZSTRING_KERNEL EncodingFaults() : largest(_mm256_setzero_si256()), surrogates(_mm256_setzero_si256()) {}
    QZSTRING_KERNEL void see(__m256i characters) {
        largest = _mm256_max_epu32(largest, characters);
        surrogates = _mm256_or_si256(
            surrogates,
            _mm256_cmpeq_epi32(_mm256_and_si256(characters, lanesOf<0xFFFFF800>()), lanesOf<0xD800>()));
    }
    QZSTRING_KERNEL void seeUnits(__m256i units) {
        surrogates = _mm256_or_si256(
            surrogates, _mm256_cmpeq_epi16(_mm256_and_si256(units, unitsOf<0xF800>()), unitsOf<0xD800>()));
    }
    [[nodiscard]] QZSTRING_KERNEL bool any() const {
        const __m256i limit = lanesOf<0x10FFFF>();
        const __m256i tooLarge = _mm256_xor_si256(_mm256_max_epu32(largest, limit), limit);
        const __m256i all = _mm256_or_si256(tooLarge, surrogates);
        return _mm256_testz_si256(all, all) == 0;
    }
};

// Sixteen characters go to the destination, of which `taken` count; those behind them are zero.
struct Output {
    char* bytes;
    std::size_t capacity;
    std::size_t taken = 16;
    std::size_t later = 0;  // characters that follow
    std::size_t written = 0;

    // Whether none of the characters from number `begin` on counts. Where kAmply, all do.
    template <bool kAmply>
    [[nodiscard]] QZSTRING_KERNEL bool endsBefore(std::size_t begin) const {
        return !kAmply && begin >= taken;
    }

    // Stores the bytes of kCharacters characters, the first of which is number `begin` of the sixteen, and
    // counts. `count` takes in a byte for each that does not count, which is taken off here. Where kAmply,
    // there is room for 16 bytes, and as many will be written later. False where there is no room.
    template <bool kAmply, std::size_t kCharacters>
    QZSTRING_KERNEL bool put(__m128i packed, std::size_t count, std::size_t begin) {
        if (kAmply) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + written), packed);
        } else {
            const std::size_t end = begin + kCharacters;
            const std::size_t absent = end <= taken ? 0 : end - taken;
            count -= absent;
            if (count > capacity - written)
                return false;
            if (absent == 0 && later + taken - end >= 16 && capacity - written >= 16)
                _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + written), packed);
            else
                storeFirst(packed, count, bytes + written);
        }
        written += count;
        return true;
    }
};

// Four characters in 32-bit lanes, their bytes at the end of each; `lengths` is the index for kPackings.
template <bool kAmply>
QZSTRING_KERNEL bool putFour(Output& encoding, __m128i lanes, std::size_t lengths, std::size_t begin) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    const auto* const order = reinterpret_cast<const __m128i*>(shuffles::kPackings[lengths].data());
    return encoding.put<kAmply, 4>(_mm_shuffle_epi8(lanes, _mm_loadu_si128(order)),
                                   shuffles::kPackedLengths[lengths], begin);
}

// Eight characters in 16-bit lanes, two bytes each for those that the mask names.
template <bool kAmply>
QZSTRING_KERNEL bool putPairs(Output& encoding, __m128i lanes, std::size_t pairs, std::size_t begin) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    const auto* const order = reinterpret_cast<const __m128i*>(kPairPackings[pairs].data());
    return encoding.put<kAmply, 8>(_mm_shuffle_epi8(lanes, _mm_loadu_si128(order)),
                                   8 + static_cast<std::size_t>(_mm_popcnt_u64(pairs)), begin);
}

// Eight characters of any length.
template <bool kAmply>
QZSTRING_KERNEL bool encodeEight(__m256i c, std::size_t begin, Output& encoding) {
    if (encoding.endsBefore<kAmply>(begin))
        return true;
    // Signed comparisons are right for everything that is not a fault.
    const __m256i two = _mm256_cmpgt_epi32(c, lanesOf<0x7F>());
    const __m256i three = _mm256_cmpgt_epi32(c, lanesOf<0x7FF>());
    const __m256i four = _mm256_cmpgt_epi32(c, lanesOf<0xFFFF>());
    const __m256i fields =
        _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(c, 24), lanesOf<0x3F000000>()),
                                        _mm256_and_si256(_mm256_slli_epi32(c, 10), lanesOf<0x003F0000>())),
                        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(c, 4), lanesOf<0x00003F00>()),
                                        _mm256_srli_epi32(c, 18)));
    // Each longer form changes the tags of the one before.
    const __m256i tags = _mm256_xor_si256(
        lanesOf<0x80C00000>(), _mm256_xor_si256(_mm256_and_si256(three, lanesOf<0x80C00000 ^ 0x8080E000>()),
                                                _mm256_and_si256(four, lanesOf<0x8080E000 ^ 0x808080F0>())));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_slli_epi32(c, 24), _mm256_or_si256(fields, tags), two);
    // The number of bytes beyond the first, in two bits: the upper is set from three bytes on, the lower
    // where there are two or four.
    const __m256i lower = _mm256_xor_si256(two, _mm256_xor_si256(three, four));
    const std::uint32_t lengths =
        topBits(_mm256_packs_epi16(_mm256_blend_epi16(lower, three, 0xAA), _mm256_setzero_si256()));
    return putFour<kAmply>(encoding, half(bytes, 0), lengths & 0xFF, begin) &&
           putFour<kAmply>(encoding, half(bytes, 1), lengths >> 16 & 0xFF, begin + 4);
}

// Sixteen characters below U+10000, in 16-bit lanes, the first and the third four in the first half.
template <bool kAmply>
QZSTRING_KERNEL bool encodeUnits(__m256i units, Output& encoding) {
    const __m256i one = unitsUpTo<0x7F>(units);
    const __m256i upToTwo = unitsUpTo<0x7FF>(units);
    // The lead byte of three, the upper; then the byte after it, or the lead byte of two, and the last.
    const __m256i first =
        _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 4), unitsOf<0x0F00>()), unitsOf<0xE000>());
    const __m256i last = _mm256_slli_epi16(units, 8);
    const __m256i fields = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(units, 6), unitsOf<0x003F>()),
                                           _mm256_and_si256(last, unitsOf<0x3F00>()));
    const __m256i tags = _mm256_xor_si256(_mm256_and_si256(upToTwo, unitsOf<0x0040>()), unitsOf<0x8080>());
    const __m256i rest = _mm256_blendv_epi8(_mm256_or_si256(fields, tags), last, one);
    const __m256i front = _mm256_unpacklo_epi16(first, rest);
    const __m256i back = _mm256_unpackhi_epi16(first, rest);
    // A number of two bits for each: one of two bytes, two of three.
    const std::uint32_t lengths = topBits(_mm256_blendv_epi8(
        _mm256_xor_si256(one, upToTwo), _mm256_xor_si256(upToTwo, _mm256_set1_epi8(-1)), unitsOf<0xFF00>()));
    return putFour<kAmply>(encoding, half(front, 0), lengths & 0xFF, 0) &&
           putFour<kAmply>(encoding, half(front, 1), lengths >> 16 & 0xFF, 4) &&
           putFour<kAmply>(encoding, half(back, 0), lengths >> 8 & 0xFF, 8) &&
           putFour<kAmply>(encoding, half(back, 1), lengths >> 24, 12);
}

// Sixteen characters below U+0800, in 16-bit lanes.
template <bool kAmply>
QZSTRING_KERNEL bool encodePairs(__m256i units, Output& encoding) {
    const __m256i two = _mm256_cmpgt_epi16(units, unitsOf<0x7F>());
    const __m256i last = _mm256_and_si256(_mm256_slli_epi16(units, 8), unitsOf<0x3F00>());
    const __m256i pairs =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi16(units, 6), last), unitsOf<0x80C0>());
    const __m256i bytes = _mm256_blendv_epi8(units, pairs, two);
    const std::uint32_t mask = topBits(_mm256_packs_epi16(two, two));
    return putPairs<kAmply>(encoding, half(bytes, 0), mask & 0xFF, 0) &&
           putPairs<kAmply>(encoding, half(bytes, 1), mask >> 16 & 0xFF, 8);
}

QZSTRING_KERNEL __m128i packAscii(__m256i a, __m256i b) {
    const __m256i units = _mm256_packus_epi32(a, b);
    const __m256i packed = _mm256_packus_epi16(units, units);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5);
    return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(packed, order));
}

// Sixteen characters, of which any may be beyond ASCII.
template <bool kAmply>
QZSTRING_KERNEL bool encodeBeyondAscii(__m256i a, __m256i b, Output& encoding, EncodingFaults& faults) {
    const __m256i all = _mm256_or_si256(a, b);
    const __m256i units = _mm256_packus_epi32(a, b);
    if (!anyFrom<0x800>(all))
        return encodePairs<kAmply>(_mm256_permute4x64_epi64(units, 0xD8), encoding);
    if (!anyFrom<0x10000>(all)) {
        faults.seeUnits(units);
        return encodeUnits<kAmply>(units, encoding);
    }
    faults.see(a);
    faults.see(b);
    return encodeEight<kAmply>(a, 0, encoding) && encodeEight<kAmply>(b, 8, encoding);
}

template <bool kAmply>
QZSTRING_KERNEL bool encodeSixteen(__m256i a, __m256i b, Output& encoding, EncodingFaults& faults) {
    if (!anyFrom<0x80>(_mm256_or_si256(a, b)))
        return encoding.put<kAmply, 16>(packAscii(a, b), 16, 0);
    return encodeBeyondAscii<kAmply>(a, b, encoding, faults);
}

// Eight characters from `at` on, or what the text still has of them and zeros.
QZSTRING_KERNEL __m256i loadFirst(const wchar_t* source, std::size_t at, std::size_t length) {
    if (at >= length)
        return _mm256_setzero_si256();
    if (length - at >= 8)
        return load256(source + at);
    const __m256i places = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i valid = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(length - at)), places);
    return _mm256_maskload_epi32(reinterpret_cast<const int*>(source + at), valid);
}

// Adds up the bytes that characters need beyond one each, sixteen characters at a time. In 16-bit lanes what
// is above U+FFFF becomes that, or zero if it is a fault.
struct Measure {
    EncodingFaults faults;
    __m256i sums16;  // minus the bytes, in lanes of 16 bits
    __m256i sums32;  // the bytes, in lanes of 32, far from their limits

    QZSTRING_KERNEL Measure() : sums16(_mm256_setzero_si256()), sums32(_mm256_setzero_si256()) {}

    // Where !beyondUnits, of characters below U+10000. At most 2^14 times without carry().
    QZSTRING_KERNEL void add(__m256i a, __m256i b, bool beyondUnits) {
        const __m256i units = _mm256_packus_epi32(a, b);
        faults.seeUnits(units);
        const __m256i ordered = _mm256_xor_si256(units, unitsOf<0x8000>());  // as signed numbers
        sums16 = _mm256_add_epi16(sums16, _mm256_add_epi16(_mm256_cmpgt_epi16(ordered, unitsOf<0x807F>()),
                                                           _mm256_cmpgt_epi16(ordered, unitsOf<0x87FF>())));
        if (beyondUnits) {
            faults.largest = _mm256_max_epu32(faults.largest, _mm256_max_epu32(a, b));
            sums32 = _mm256_sub_epi32(sums32, _mm256_add_epi32(_mm256_cmpgt_epi32(a, lanesOf<0xFFFF>()),
                                                               _mm256_cmpgt_epi32(b, lanesOf<0xFFFF>())));
        }
    }
    QZSTRING_KERNEL void carry() {
        sums32 = _mm256_sub_epi32(sums32, _mm256_madd_epi16(sums16, unitsOf<1>()));
        sums16 = _mm256_setzero_si256();
    }
    [[nodiscard]] QZSTRING_KERNEL std::size_t total() const {
        const __m256i wide =
            _mm256_add_epi64(_mm256_cvtepi32_epi64(half(sums32, 0)), _mm256_cvtepi32_epi64(half(sums32, 1)));
        const __m128i two = _mm_add_epi64(half(wide, 0), half(wide, 1));
        return static_cast<std::size_t>(_mm_cvtsi128_si64(two) + _mm_extract_epi64(two, 1));
    }
};

}  // namespace

QZSTRING_TARGET unsigned int encode(const wchar_t* source, std::size_t length, char* destination,
                                    std::size_t capacity, bool* ok) {
    EncodingFaults faults;
    Output encoding{destination, capacity};
    std::size_t at = 0;
    // Two blocks at a time: where some are ASCII and some not, one question is answered alike more often.
    // What is left after a block fills at least the 16 bytes that its last store may write too much.
    for (; length - at >= 32 + 16 && capacity - encoding.written >= 128; at += 32) {
        const __m256i a = load256(source + at);
        const __m256i b = load256(source + at + 8);
        const __m256i c = load256(source + at + 16);
        const __m256i d = load256(source + at + 24);
        if (!anyFrom<0x80>(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)))) {
            encoding.put<true, 16>(packAscii(a, b), 16, 0);
            encoding.put<true, 16>(packAscii(c, d), 16, 0);
        } else {
            encodeBeyondAscii<true>(a, b, encoding, faults);
            encodeBeyondAscii<true>(c, d, encoding, faults);
        }
    }
    bool fits = true;
    for (; fits && at < length; at += encoding.taken) {
        const std::size_t rest = length - at;
        encoding.taken = rest < 16 ? rest : 16;
        encoding.later = rest - encoding.taken;
        fits = encodeSixteen<false>(loadFirst(source, at, length), loadFirst(source, at + 8, length),
                                    encoding, faults);
    }
    const bool converted = fits && !faults.any();
    _mm256_zeroupper();
    return output::report(converted ? encoding.written : output::kFailure, ok);
}

QZSTRING_TARGET unsigned int encodedLength(const wchar_t* source, std::size_t length, bool* ok) {
    constexpr std::size_t kMostSteps = std::size_t{1} << 14;
    Measure measure;
    bool isAscii = true;
    std::size_t at = 0;
    while (length - at >= 32) {
        const std::size_t whole = (length - at) / 32 * 32;
        const std::size_t end = at + (whole < 16 * kMostSteps ? whole : 16 * kMostSteps);
        for (; at < end; at += 32) {
            const __m256i a = load256(source + at);
            const __m256i b = load256(source + at + 8);
            const __m256i c = load256(source + at + 16);
            const __m256i d = load256(source + at + 24);
            const __m256i all = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
            if (!anyFrom<0x80>(all))
                continue;
            isAscii = false;
            const bool beyondUnits = anyFrom<0x10000>(all);
            measure.add(a, b, beyondUnits);
            measure.add(c, d, beyondUnits);
        }
        measure.carry();
    }
    for (; at < length; at += 16) {
        const __m256i a = loadFirst(source, at, length);
        const __m256i b = loadFirst(source, at + 8, length);
        if (anyFrom<0x80>(_mm256_or_si256(a, b))) {
            isAscii = false;
            measure.add(a, b, true);
        }
    }
    if (isAscii) {
        _mm256_zeroupper();
        return output::report(length, ok);
    }
    measure.carry();
    const bool faulty = measure.faults.any();
    const std::size_t bytes = leaveWith(length + measure.total());
    return output::report(faulty ? output::kFailure : bytes, ok);
}

}  // namespace qzString::kernels::avx2

#endif
