// A table of versions of the same functions, one row per instruction set, best first. Internal, not
// installed.
#ifndef QZSTRING_COMMON_ROWS_H
#define QZSTRING_COMMON_ROWS_H

#include <cstddef>

namespace qzString {

template <class Row>
struct Rows {
    const Row* const* first;
    const Row* const* last;
    [[nodiscard]] const Row* const* begin() const { return first; }
    [[nodiscard]] const Row* const* end() const { return last; }
};

// `usable` of the portable row, and of instructions that every processor of the architecture has.
inline bool alwaysUsable() {
    return true;
}

// The first row that this processor can run; the last one always can.
template <class Row, std::size_t kCount>
const Row& firstUsable(const Row* const (&bestFirst)[kCount]) {
    std::size_t i = 0;
    while (i + 1 < kCount && !bestFirst[i]->usable())
        ++i;
    return *bestFirst[i];
}

}  // namespace qzString

#endif
