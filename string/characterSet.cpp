#include "string/characterSet.h"

#include <algorithm>
#include <cwchar>

namespace qzString::search {

CharacterSet::CharacterSet(const wchar_t* members, std::size_t count) : members_(members), count_(count) {
    for (std::size_t i = 0; i < count; ++i)
        filter_.add(members[i]);
}

std::size_t CharacterSet::findFirstIn(const wchar_t* text, std::size_t length, std::size_t from) const {
    for (std::size_t at = from; at < length; ++at) {
        at += active().nextInSet(text + at, length - at, filter_);
        if (at < length && contains(text[at]))
            return at;
    }
    return kNotFound;
}

std::size_t CharacterSet::findLastIn(const wchar_t* text, std::size_t length, std::size_t from) const {
    std::size_t at = from < length ? from + 1 : length;
    do
        at = active().lastInSet(text, at, filter_);
    while (at != kNotFound && !contains(text[at]));
    return at;
}

// Of what the filter lets pass.
bool CharacterSet::contains(wchar_t c) const {
    return SetFilter::isExact(c) || std::wmemchr(members_, c, count_) != nullptr;
}

}  // namespace qzString::search
