// Substring search in two stages.
//
// The scan: of the needle's elements the two that are likely to be the rarest in text are chosen, and the
// scanner looks for places where both stand at their distance. Each such place is compared with the whole
// needle. On most text this runs at the speed of reading it.
//
// The guard: on repetitive text there may be a place to compare at every position. Each failed comparison is
// charged with the length of the needle; when the charges exceed a multiple of the way gone, the search goes
// on by the Two-Way algorithm (twoWay.h), linear in every case.
#include "string/search.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "string/scanner.h"
#include "string/twoWay.h"

namespace qzString::search {
namespace {

// ---- The choice of the two elements ----

// How common an element is in text, roughly: the order of letters in English for ASCII, and one rank each for
// the bytes that begin characters of other scripts, for those that go on with them, and for other wide
// characters.
constexpr char kCommonestFirst[] = " etaoinsrhldcumfpg\nwybv,.k01-2'\"3xjqz";
constexpr unsigned kUncommon = 0;
constexpr unsigned kLeadByte = 60;
constexpr unsigned kOtherCharacter = 20;

struct Ranks {
    constexpr Ranks() : of() {
        unsigned rank = 2 * (sizeof kCommonestFirst - 1);
        for (const char* c = kCommonestFirst; *c != 0; ++c, rank -= 2)
            of[static_cast<unsigned char>(*c)] = static_cast<unsigned char>(rank);
        for (unsigned byte = 0x80; byte < 0x100; ++byte)
            of[byte] = byte < 0xC0 ? kOtherCharacter : kLeadByte;
    }
    unsigned char of[256];
};
constexpr Ranks kRanks;

unsigned rank(char c) {
    return kRanks.of[static_cast<unsigned char>(c)];
}

unsigned rank(wchar_t c) {
    const auto value = static_cast<std::uint32_t>(c);
    return value < 0x80 ? kRanks.of[value] : value < 0x100 ? kUncommon : kOtherCharacter;
}

// Of the first elements of the needle, which has at least two: a match is often near, and looking at more
// would take longer than reaching it.
template <class Char>
Anchors chooseAnchors(const Char* needle, std::size_t length) {
    constexpr std::size_t kLooksAt = 8;
    Anchors anchors{0, 1};
    if (rank(needle[1]) < rank(needle[0]))
        anchors = {1, 0};
    for (std::size_t i = 2; i < std::min(length, kLooksAt); ++i) {
        if (rank(needle[i]) < rank(needle[anchors.first]))
            anchors = {i, anchors.first};
        else if (rank(needle[i]) < rank(needle[anchors.second]))
            anchors.second = i;
    }
    return anchors;
}

// ---- The search ----

// What comparisons in vain may cost, counted in elements: each at most the needle's length, and the call.
// The scan gives way when they have cost eight for every element gone, which is more than Two-Way takes, and
// 4,096 more: text with a few such places is not worth preparing Two-Way.
class Budget {
  public:
    explicit Budget(std::size_t needleLength) : each(needleLength + kCall) {}
    bool isSpent(std::size_t way) {
        total += each;
        return total > 8 * way + 4096 + each;
    }

  private:
    static constexpr std::size_t kCall = 16;
    std::size_t each;
    std::size_t total = 0;
};

// Where both anchors stand: they are all of a needle of two.
template <class Char>
bool standsAt(const Char* place, const Char* needle, std::size_t needleLength) {
    return needleLength <= 2 || std::char_traits<Char>::compare(place, needle, needleLength) == 0;
}

// With this few places, choosing the rarest elements takes longer than it saves.
constexpr std::size_t kShort = 64;

// `choose` gives the anchors of a needle of at least two elements.
template <class Char, class Next, class Choose>
std::size_t findForwards(const Char* text, std::size_t length, const Char* needle, std::size_t needleLength,
                         std::size_t from, Next next, Choose choose) {
    if (length - from < needleLength)
        return kNotFound;
    if (needleLength == 1) {
        const Char* const found = std::char_traits<Char>::find(text + from, length - from, *needle);
        return found == nullptr ? kNotFound : static_cast<std::size_t>(found - text);
    }
    const std::size_t end = length - needleLength + 1;
    const Anchors anchors = end - from <= kShort ? Anchors{0, needleLength - 1} : choose();
    Budget budget(needleLength);
    for (std::size_t at = from;; ++at) {
        at += next(text + at, end - at, anchors.first, needle[anchors.first], anchors.second,
                   needle[anchors.second]);
        if (at == end)
            return kNotFound;
        if (standsAt(text + at, needle, needleLength))
            return at;
        if (budget.isSpent(at - from)) {
            const std::size_t found =
                twoWay(Forwards<Char>{text + at}, length - at, Forwards<Char>{needle}, needleLength);
            return found == kNotFound ? kNotFound : at + found;
        }
    }
}

template <class Char, class Last>
std::size_t findBackwards(const Char* text, std::size_t length, const Char* needle, std::size_t needleLength,
                          std::size_t from, Last last) {
    if (length < needleLength)
        return kNotFound;
    const std::size_t highest = std::min(from, length - needleLength);
    if (needleLength == 1)
        return last(text, highest + 1, 0, *needle, 0, *needle);
    const Anchors anchors =
        highest < kShort ? Anchors{0, needleLength - 1} : chooseAnchors(needle, needleLength);
    Budget budget(needleLength);
    for (std::size_t end = highest + 1;;) {
        const std::size_t at =
            last(text, end, anchors.first, needle[anchors.first], anchors.second, needle[anchors.second]);
        if (at == kNotFound || standsAt(text + at, needle, needleLength))
            return at;
        end = at;
        if (budget.isSpent(highest - at)) {
            // The same search in the mirror: of the text that ends where the needle would at the next lower
            // position.
            const std::size_t rest = end + needleLength - 1;
            const std::size_t found = twoWay(Backwards<Char>{text + rest - 1}, rest,
                                             Backwards<Char>{needle + needleLength - 1}, needleLength);
            return found == kNotFound ? kNotFound : rest - found - needleLength;
        }
    }
}

}  // namespace

std::size_t findFirst(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                      std::size_t from) {
    return findForwards(text, length, needle, needleLength, from, active().nextNarrow,
                        [=] { return chooseAnchors(needle, needleLength); });
}

std::size_t findFirst(const wchar_t* text, std::size_t length, const wchar_t* needle,
                      std::size_t needleLength, std::size_t from) {
    return findForwards(text, length, needle, needleLength, from, active().nextWide,
                        [=] { return chooseAnchors(needle, needleLength); });
}

WideNeedle::WideNeedle(const wchar_t* elements, std::size_t length)
    : elements_(elements),
      length_(length),
      anchors_(length < 2 ? Anchors{0, 0} : chooseAnchors(elements, length)) {}

std::size_t WideNeedle::findIn(const wchar_t* text, std::size_t length, std::size_t from) const {
    return findForwards(text, length, elements_, length_, from, active().nextWide,
                        [this] { return anchors_; });
}

std::size_t findLast(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                     std::size_t from) {
    return findBackwards(text, length, needle, needleLength, from, active().lastNarrow);
}

std::size_t findLast(const wchar_t* text, std::size_t length, const wchar_t* needle, std::size_t needleLength,
                     std::size_t from) {
    return findBackwards(text, length, needle, needleLength, from, active().lastWide);
}

}  // namespace qzString::search
