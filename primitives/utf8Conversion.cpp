#include "primitives/conversion.h"

#include "primitives/inline.h"
#include "primitives/kernels.h"
#include "primitives/output.h"
#include "primitives/utf8Portable.h"

namespace qzString {
namespace {

using kernels::Progress;

constexpr wchar_t kReplacement = 0xFFFD;

unsigned int whole(const Progress& progress, std::size_t length, bool* ok) {
    return output::report(progress.read == length, progress.written, ok);
}

// Decodes with U+FFFD in the place of every maximal ill-formed part; `replaced` says whether there was any.
Progress decodeSubstituting(const char* source, std::size_t length, wchar_t* destination,
                            std::size_t capacity, bool& replaced) {
    const kernels::Kernels& kernel = kernels::active();
    const bool counts = destination == nullptr;
    Progress total{0, 0};
    for (;;) {
        const char* const rest = source + total.read;
        const std::size_t restLength = length - total.read;
        const Progress progress =
            counts ? kernel.decodedLength(rest, restLength)
                   : kernel.decode(rest, restLength, destination + total.written, capacity - total.written);
        total.read += progress.read;
        total.written += progress.written;
        if (total.read == length)
            return total;
        const utf8::Decoded stop = utf8::decodeCharacter(source + total.read, length - total.read);
        if (stop.valid || (!counts && total.written == capacity))
            return total;  // no room
        if (!counts)
            destination[total.written] = kReplacement;
        total.read += stop.length;
        ++total.written;
        replaced = true;
    }
}

// Out of line, so that the strict road stays short.
QZSTRING_NOINLINE unsigned int convertSubstituting(const char* source, std::size_t length,
                                                   wchar_t* destination, std::size_t capacity, bool* ok) {
    bool replaced = false;
    const Progress progress = decodeSubstituting(source, length, destination, capacity, replaced);
    const unsigned int converted = whole(progress, length, ok);
    if (ok != nullptr && replaced)
        *ok = false;
    return converted;
}

}  // namespace

unsigned int UTF8toWCS(const char* source, unsigned int sourceLength, wchar_t* destination,
                       unsigned int capacity, bool substitute, bool* ok) {
    if (substitute)
        return convertSubstituting(source, sourceLength, destination, capacity, ok);
    const kernels::Kernels& kernel = kernels::active();
    const Progress progress = destination == nullptr
                                  ? kernel.decodedLength(source, sourceLength)
                                  : kernel.decode(source, sourceLength, destination, capacity);
    return whole(progress, sourceLength, ok);
}

unsigned int WCStoUTF8(const wchar_t* source, unsigned int sourceLength, char* destination,
                       unsigned int capacity, bool* ok) {
    const kernels::Kernels& kernel = kernels::active();
    const Progress progress = destination == nullptr
                                  ? kernel.encodedLength(source, sourceLength)
                                  : kernel.encode(source, sourceLength, destination, capacity);
    return whole(progress, sourceLength, ok);
}

unsigned int UTF8validLength(const char* text, unsigned int length) {
    return static_cast<unsigned int>(kernels::active().decodedLength(text, length).read);
}

}  // namespace qzString
