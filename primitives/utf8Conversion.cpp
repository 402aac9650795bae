#include "primitives/conversion.h"

#include "primitives/inline.h"
#include "primitives/kernels.h"
#include "primitives/output.h"
#include "primitives/utf8Portable.h"

namespace qzString {
namespace {

using kernels::Progress;

constexpr wchar_t kReplacement = 0xFFFD;

// Texts of up to this many bytes are first taken for well-formed, as most are: to look for the place of a
// fault takes several times as long.
constexpr std::size_t kShort = 256;

unsigned int convertStrictly(const char* source, std::size_t length, wchar_t* destination,
                             std::size_t capacity, bool* ok) {
    const kernels::Kernels& kernel = kernels::active();
    return destination == nullptr ? kernel.decodedLength(source, length, ok)
                                  : kernel.decode(source, length, destination, capacity, ok);
}

// Decodes with U+FFFD in the place of every maximal ill-formed part; `replaced` says whether there was any.
// Returns the length, or output::kFailure where there is no room.
std::size_t decodeSubstituting(const char* source, std::size_t length, wchar_t* destination,
                               std::size_t capacity, bool& replaced) {
    const bool counts = destination == nullptr;
    const auto hasRoom = [&](const Progress& total) { return counts || total.written <= capacity; };
    Progress total{0, 0};
    for (;;) {
        const char* const rest = source + total.read;
        const kernels::Kernels& kernel =
            kernels::active();  // not once: the first call through the table replaces its row
        const Progress sound = kernel.wellFormed(rest, length - total.read);
        wchar_t* const to = counts ? nullptr : destination + total.written;
        total = {total.read + sound.read, total.written + sound.written};
        if (!hasRoom(total))
            return output::kFailure;
        if (!counts)
            kernel.decode(rest, sound.read, to, sound.written, nullptr);
        if (total.read == length)
            return total.written;
        total.read += utf8::illFormedLength(source + total.read, length - total.read);
        ++total.written;
        replaced = true;
        if (!hasRoom(total))
            return output::kFailure;
        if (!counts)
            destination[total.written - 1] = kReplacement;
    }
}

// Out of line, so that the strict path is nothing but a jump.
QZSTRING_NOINLINE unsigned int convertSubstituting(const char* source, std::size_t length,
                                                   wchar_t* destination, std::size_t capacity, bool* ok) {
    if (length <= kShort) {
        bool isSound = false;
        const unsigned int converted = convertStrictly(source, length, destination, capacity, &isSound);
        if (isSound) {
            if (ok != nullptr)
                *ok = true;
            return converted;
        }
    }
    bool replaced = false;
    const std::size_t written = decodeSubstituting(source, length, destination, capacity, replaced);
    const unsigned int converted = output::report(written, ok);
    if (ok != nullptr && replaced)
        *ok = false;
    return converted;
}

}  // namespace

unsigned int UTF8toWCS(const char* source, unsigned int sourceLength, wchar_t* destination,
                       unsigned int capacity, bool substitute, bool* ok) {
    return QZSTRING_LIKELY(!substitute)
               ? convertStrictly(source, sourceLength, destination, capacity, ok)
               : convertSubstituting(source, sourceLength, destination, capacity, ok);
}

unsigned int WCStoUTF8(const wchar_t* source, unsigned int sourceLength, char* destination,
                       unsigned int capacity, bool* ok) {
    const kernels::Kernels& kernel = kernels::active();
    return destination == nullptr ? kernel.encodedLength(source, sourceLength, ok)
                                  : kernel.encode(source, sourceLength, destination, capacity, ok);
}

unsigned int UTF8validLength(const char* text, unsigned int length) {
    if (length <= kShort) {
        bool isSound = false;
        kernels::active().decodedLength(text, length, &isSound);
        if (isSound)
            return length;
    }
    return static_cast<unsigned int>(kernels::active().wellFormed(text, length).read);
}

}  // namespace qzString
