// UTF-8 in portable code, for any width of wide element: the reference for the kernels, which use it to find
// the place of a fault, and some of them for very short texts and for ends. Internal, not installed.
//
// Counting and converting are one template over an output: a Counter adds up, a Writer stores as far as its
// room goes. Runs of ASCII go eight bytes at a time; every other character is checked against the Unicode
// Standard's table 3-7.
#ifndef QZSTRING_PRIMITIVES_UTF8PORTABLE_H
#define QZSTRING_PRIMITIVES_UTF8PORTABLE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "primitives/kernels.h"
#include "primitives/output.h"

namespace qzString::utf8 {

using kernels::Progress;
using output::Counter;
using output::Writer;

// The bytes at the beginning of ill-formed text that one U+FFFD replaces: those that could begin a character,
// or a single one. Only the second byte's range depends on the first.
inline std::size_t illFormedLength(const char* text, std::size_t available) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    const unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (lead < 0xE0 || lead > 0xF4 || available < 2 || byte(1) < lowest || byte(1) > highest)
        return 1;
    return lead < 0xF0 || available < 3 || (byte(2) & 0xC0) != 0x80 ? 2 : 3;
}

// Every length has a branch and an exit of its own: a length that is computed would make each character wait
// for the one before.
template <class Element, class Output>
Progress decodeInto(const char* source, std::size_t length, Output& output) {
    // What a continuation byte contributes; above 63 where it is none.
    const auto six = [source](std::size_t i) {
        return static_cast<char32_t>(static_cast<unsigned char>(source[i]) ^ 0x80U);
    };
    std::size_t at = 0;
    while (at < length) {
        const std::size_t rest = length - at;
        const char32_t lead = static_cast<unsigned char>(source[at]);
        if (lead < 0x80) {
            std::uint64_t eight = ~std::uint64_t{0};
            if (rest >= 8)
                std::memcpy(&eight, source + at, 8);
            if ((eight & 0x8080808080808080U) == 0 && output.hasRoom(8)) {
                output.putRun(source + at, 8);
                at += 8;
                continue;
            }
            if (!output.hasRoom(1))
                break;
            output.put(static_cast<Element>(lead));
            at += 1;
        } else if (lead < 0xE0) {
            if (lead < 0xC2 || rest < 2 || six(at + 1) > 0x3F || !output.hasRoom(1))
                break;
            output.put(static_cast<Element>((lead & 0x1F) << 6 | six(at + 1)));
            at += 2;
        } else if (lead < 0xF0) {
            if (rest < 3 || (six(at + 1) | six(at + 2)) > 0x3F || !output.hasRoom(1))
                break;
            const char32_t value = (lead & 0x0F) << 12 | six(at + 1) << 6 | six(at + 2);
            if (value < 0x800 || value - 0xD800 < 0x800)
                break;
            output.put(static_cast<Element>(value));
            at += 3;
        } else {
            if (lead > 0xF4 || rest < 4 || (six(at + 1) | six(at + 2) | six(at + 3)) > 0x3F)
                break;
            const char32_t value = (lead & 0x07) << 18 | six(at + 1) << 12 | six(at + 2) << 6 | six(at + 3);
            if (value - 0x10000 > 0xFFFFF || !output.hasRoom(sizeof(Element) == 2 ? 2 : 1))
                break;
            if (sizeof(Element) == 2) {
                output.put(static_cast<Element>(0xD7C0 + (value >> 10)));
                output.put(static_cast<Element>(0xDC00 + (value & 0x3FF)));
            } else {
                output.put(static_cast<Element>(value));
            }
            at += 4;
        }
    }
    return {at, output.count};
}

template <class Element>
Progress decode(const char* source, std::size_t length, Element* destination, std::size_t capacity) {
    Writer<Element> output{destination, capacity};
    return decodeInto<Element>(source, length, output);
}

template <class Element>
Progress decodedLength(const char* source, std::size_t length) {
    Counter<Element> output;
    return decodeInto<Element>(source, length, output);
}

template <class Element, class Output>
Progress encodeInto(const Element* source, std::size_t length, Output& output) {
    const auto unit = [source](std::size_t i) -> char32_t {
        if constexpr (sizeof(Element) == 2)
            return static_cast<std::uint16_t>(source[i]);
        else
            return static_cast<char32_t>(source[i]);
    };
    std::size_t at = 0;
    while (at < length) {
        while (length - at >= 8 && output.hasRoom(8)) {
            char32_t all = 0;
            for (std::size_t i = 0; i < 8; ++i)
                all |= unit(at + i);
            if (all >= 0x80)
                break;
            output.putRun(source + at, 8);
            at += 8;
        }
        if (at == length)
            break;
        char32_t c = unit(at);
        std::size_t units = 1;
        if (sizeof(Element) == 2 && c - 0xD800 < 0x400 && length - at > 1 && unit(at + 1) - 0xDC00 < 0x400) {
            c = 0x10000 + ((c - 0xD800) << 10) + (unit(at + 1) - 0xDC00);
            units = 2;
        }
        if (c - 0xD800 < 0x800 || c > 0x10FFFF)
            break;
        const unsigned bytes = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (!output.hasRoom(bytes))
            break;
        if (bytes == 1) {
            output.put(static_cast<char>(c));
        } else {
            // 110xxxxx, 1110xxxx or 11110xxx, then six bits a byte.
            output.put(static_cast<char>((0xF00U >> bytes & 0xFF) | c >> 6 * (bytes - 1)));
            for (unsigned shift = 6 * (bytes - 1); shift != 0; shift -= 6)
                output.put(static_cast<char>(0x80 | (c >> (shift - 6) & 0x3F)));
        }
        at += units;
    }
    return {at, output.count};
}

template <class Element>
Progress encode(const Element* source, std::size_t length, char* destination, std::size_t capacity) {
    Writer<char> output{destination, capacity};
    return encodeInto<Element>(source, length, output);
}

template <class Element>
Progress encodedLength(const Element* source, std::size_t length) {
    Counter<char> output;
    return encodeInto<Element>(source, length, output);
}

// A conversion that tells how far it came, as an entry of a row of kernels.h.
template <auto kConvert>
struct Whole;
template <class Element, class... To, Progress (*kConvert)(const Element*, std::size_t, To...)>
struct Whole<kConvert> {
    static unsigned int convert(const Element* source, std::size_t length, To... to, bool* ok) {
        const Progress progress = kConvert(source, length, to...);
        return output::report(progress.read == length ? progress.written : output::kFailure, ok);
    }
};

}  // namespace qzString::utf8

#endif
