#include "string/characterSet.h"

#include <algorithm>
#include <cwchar>

namespace qzString::search {
namespace {

// Sets of up to this many members are first compared member by member with the characters nearest to where
// the search begins, or, where they are few, with all of a text so short that to make the filter, which takes
// a nanosecond a member, would take longer.
constexpr std::size_t kSomeMembers = 64;

std::size_t nearby(std::size_t length, std::size_t members) {
    constexpr std::size_t kFewMembers = 16;
    constexpr std::size_t kShort = 48;
    constexpr std::size_t kNear = 16;
    if (members <= kFewMembers && length <= kShort)
        return length;
    return std::min(length, kNear);
}

// False positives of the filter come in groups, as the characters of a script do: a few characters are
// looked at one by one before the next scan.
constexpr std::size_t kOneByOne = 8;

class FilteredSet {
  public:
    explicit FilteredSet(std::wstring_view members) : members_(members) {
        for (const wchar_t c : members)
            filter_.add(c);
    }

    [[nodiscard]] std::size_t findFirstIn(std::wstring_view text, std::size_t from) const {
        std::size_t at = from;
        while (at < text.size()) {
            at += active().nextInSet(text.data() + at, text.size() - at, filter_);
            const std::size_t end = std::min(text.size(), at + kOneByOne);
            for (; at < end; ++at) {
                if (contains(text[at]))
                    return at;
            }
        }
        return kNotFound;
    }

    // In all of the text.
    [[nodiscard]] std::size_t findLastIn(std::wstring_view text) const {
        std::size_t end = text.size();
        while (end > 0) {
            end = active().lastInSet(text.data(), end, filter_) + 1;  // 0 where there is none
            const std::size_t begin = end < kOneByOne ? 0 : end - kOneByOne;
            for (; end > begin; --end) {
                if (contains(text[end - 1]))
                    return end - 1;
            }
        }
        return kNotFound;
    }

  private:
    [[nodiscard]] bool contains(wchar_t c) const {
        constexpr std::size_t kFew = 8;  // a call costs more
        if (!filter_.passes(c) || SetFilter::isExact(c))
            return filter_.passes(c);
        return members_.size() <= kFew ? std::find(members_.begin(), members_.end(), c) != members_.end()
                                       : std::wmemchr(members_.data(), c, members_.size()) != nullptr;
    }

    SetFilter filter_;
    std::wstring_view members_;
};

// Out of line: where the nearest characters decide, a filter's place on the stack would cost a fifth.
[[gnu::noinline]] std::size_t findFirstFiltered(std::wstring_view text, std::wstring_view members,
                                                std::size_t from) {
    return FilteredSet(members).findFirstIn(text, from);
}

[[gnu::noinline]] std::size_t findLastFiltered(std::wstring_view text, std::wstring_view members) {
    return FilteredSet(members).findLastIn(text);
}

}  // namespace

std::size_t findFirstOf(std::wstring_view text, std::wstring_view members, std::size_t from) {
    if (from >= text.size() || members.empty())
        return kNotFound;
    if (members.size() <= kSomeMembers) {
        const std::size_t near = nearby(text.size() - from, members.size());
        const std::size_t found =
            active().nextOfFew(text.data() + from, near, members.data(), members.size());
        from += found;
        if (found < near)
            return from;
        if (from == text.size())
            return kNotFound;
    }
    return findFirstFiltered(text, members, from);
}

std::size_t findLastOf(std::wstring_view text, std::wstring_view members, std::size_t from) {
    if (text.empty() || members.empty())
        return kNotFound;
    std::size_t end = std::min(from, text.size() - 1) + 1;
    if (members.size() <= kSomeMembers) {
        const std::size_t far = end - nearby(end, members.size());
        const std::size_t found =
            active().lastOfFew(text.data() + far, end - far, members.data(), members.size());
        if (found != kNotFound)
            return far + found;
        end = far;
        if (end == 0)
            return kNotFound;
    }
    return findLastFiltered(text.substr(0, end), members);
}

}  // namespace qzString::search
