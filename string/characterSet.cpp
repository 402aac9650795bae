#include "string/characterSet.h"

#include <algorithm>
#include <cwchar>

namespace qzString::search {

CharacterSet::CharacterSet(const wchar_t* members, std::size_t count) : members_(members), count_(count) {
    for (std::size_t i = 0; i < count; ++i)
        filter_.add(members[i]);
}

// False positives of the filter come in groups, as the characters of a script do: a few characters are
// looked at one by one before the next scan.
constexpr std::size_t kOneByOne = 8;

std::size_t CharacterSet::findFirstIn(const wchar_t* text, std::size_t length, std::size_t from) const {
    std::size_t at = count_ == 0 ? length : from;
    while (at < length) {
        at += active().nextInSet(text + at, length - at, filter_);
        const std::size_t end = length - at < kOneByOne ? length : at + kOneByOne;
        for (; at < end; ++at) {
            if (contains(text[at]))
                return at;
        }
    }
    return kNotFound;
}

std::size_t CharacterSet::findLastIn(const wchar_t* text, std::size_t length, std::size_t from) const {
    std::size_t end = count_ == 0 ? 0 : from < length ? from + 1 : length;
    while (end > 0) {
        end = active().lastInSet(text, end, filter_) + 1;  // 0 where there is none
        const std::size_t begin = end < kOneByOne ? 0 : end - kOneByOne;
        for (; end > begin; --end) {
            if (contains(text[end - 1]))
                return end - 1;
        }
    }
    return kNotFound;
}

bool CharacterSet::contains(wchar_t c) const {
    constexpr std::size_t kFew = 8;  // a call costs more
    if (!filter_.passes(c) || SetFilter::isExact(c))
        return filter_.passes(c);
    return count_ <= kFew ? std::find(members_, members_ + count_, c) != members_ + count_
                          : std::wmemchr(members_, c, count_) != nullptr;
}

}  // namespace qzString::search
