#include "recordingConverters.h"

#include "primitives/conversion.h"

namespace {

using namespace support;

template <class From, class To>
unsigned int convert(const char* name, const From* source, unsigned int length, To* destination,
                     unsigned int capacity, bool* ok) {
    Converters& now = Converters::now();
    now.calls.push_back({name, length, destination == nullptr, capacity, ok != nullptr});
    if (destination == nullptr)
        return !now.querySucceeds ? 0 : now.announced != 0 ? now.announced : length;
    if (ok != nullptr && now.touchesFlag)
        *ok = now.conversionSucceeds;
    if (!now.conversionWrites)
        return 0;
    const unsigned int written = now.announced != 0 ? now.announced : length;
    EXPECT_GT(capacity, written);
    for (unsigned int i = 0; i < written; ++i)
        destination[i] = i < length ? static_cast<To>(source[i]) : static_cast<To>(kOutsideMark);
    now.announced += static_cast<unsigned int>(now.growth);
    return written;
}

}  // namespace

unsigned int qzString::UTF8toWCS(const char* source, unsigned int length, wchar_t* destination,
                                 unsigned int capacity, bool substitute, bool* ok) {
    EXPECT_FALSE(substitute);
    return convert("UTF8toWCS", source, length, destination, capacity, ok);
}
unsigned int qzString::MBStoWCS(const char* source, unsigned int length, wchar_t* destination,
                                unsigned int capacity, bool* ok) {
    return convert("MBStoWCS", source, length, destination, capacity, ok);
}
unsigned int qzString::WCStoUTF8(const wchar_t* source, unsigned int length, char* destination,
                                 unsigned int capacity, bool* ok) {
    return convert("WCStoUTF8", source, length, destination, capacity, ok);
}
unsigned int qzString::WCStoMBS(const wchar_t* source, unsigned int length, char* destination,
                                unsigned int capacity, bool* ok) {
    return convert("WCStoMBS", source, length, destination, capacity, ok);
}
