// Where converted elements go: counted only, or stored into bounded memory. A converter written as a template
// over its output is size query and conversion in one. Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_OUTPUT_H
#define QZSTRING_PRIMITIVES_OUTPUT_H

#include <cstddef>
#include <cstdint>

namespace qzString::output {

template <class Element>
struct Counter {
    std::size_t count = 0;

    [[nodiscard]] bool hasRoom(std::size_t) const { return true; }
    void put(Element) { ++count; }
    template <class Source>
    void putRun(const Source*, std::size_t length) {
        count += length;
    }
};

template <class Element>
struct Writer {
    Element* destination;
    std::size_t capacity;
    std::size_t count = 0;

    [[nodiscard]] bool hasRoom(std::size_t length) const { return capacity - count >= length; }
    void put(Element element) { destination[count++] = element; }
    template <class Source>
    void putRun(const Source* run, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i)
            destination[count + i] = static_cast<Element>(run[i]);
        count += length;
    }
};

// Stands for the length where a conversion fails.
inline constexpr std::size_t kFailure = SIZE_MAX;

// What a converter returns, and stores through `ok`: lengths that 32 bits cannot hold are failures, too.
inline unsigned int report(std::size_t written, bool* ok) {
    const bool converted = written != kFailure && written <= UINT32_MAX;
    if (ok != nullptr)
        *ok = converted;
    return converted ? static_cast<unsigned int>(written) : 0;
}

}  // namespace qzString::output

#endif
