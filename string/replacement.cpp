#include <cwchar>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "primitives/character.h"
#include "primitives/conversion.h"
#include "string/IString.h"
#include "string/search.h"

namespace qzString {
namespace {

// What replacing every occurrence takes. The replacement is no part of the text; the pattern may be all of
// it, as it is not read any more once it has been replaced.
struct Substitution {
    search::WideNeedle pattern;
    std::wstring_view replacement;
};

// Replaces every occurrence from `found` on by as much or less: the text is copied forwards, over what has
// been read.
void replaceInPlace(std::wstring& text, const Substitution& what, std::size_t found) {
    wchar_t* const data = text.data();
    std::size_t read = 0;
    std::size_t write = 0;
    while (found != search::kNotFound) {
        if (write != read)
            std::wmemmove(data + write, data + read, found - read);
        write += found - read;
        read = found + what.pattern.size();
        std::wmemcpy(data + write, what.replacement.data(), what.replacement.size());
        write += what.replacement.size();
        found = what.pattern.findIn(data, text.size(), read);
    }
    if (write != read)
        std::wmemmove(data + write, data + read, text.size() - read);
    text.resize(write + (text.size() - read));
}

// Replaces every occurrence from `found` on by more, from the last to the first: what stands behind each
// moves to where it will be, over what has moved already. Returns false, the text as it was, where memory
// for that cannot be had or the text is beyond what 32 bits count.
bool replaceGrowing(std::wstring& text, const Substitution& what, std::size_t found) {
    const std::size_t growth = what.replacement.size() - what.pattern.size();
    std::size_t end = text.size();
    if (end > IString::npos)
        return false;
    std::vector<unsigned int> places;
    try {
        for (; found != search::kNotFound;
             found = what.pattern.findIn(text.data(), end, found + what.pattern.size()))
            places.push_back(static_cast<unsigned int>(found));
        text.resize(end + places.size() * growth);
    } catch (const std::exception&) {
        return false;
    }
    wchar_t* const data = text.data();
    std::size_t write = text.size();
    for (auto place = places.crbegin(); place != places.crend(); ++place) {
        const std::size_t behind = *place + what.pattern.size();
        write -= end - behind;
        std::wmemmove(data + write, data + behind, end - behind);
        write -= what.replacement.size();
        std::wmemcpy(data + write, what.replacement.data(), what.replacement.size());
        end = *place;
    }
    return true;
}

// The text with every occurrence from `found` on replaced, in storage of its own. Raises what allocation
// raises.
std::wstring rebuilt(const std::wstring& text, const Substitution& what, std::size_t found) {
    std::wstring result;
    result.reserve(2 * text.size());  // as the standard string itself grows
    std::size_t read = 0;
    while (found != search::kNotFound) {
        result.append(text, read, found - read).append(what.replacement);
        read = found + what.pattern.size();
        found = what.pattern.findIn(text.data(), text.size(), read);
    }
    result.append(text, read);
    return result;
}

// Replaces in new storage, in one pass over the text: for a text that has to move there anyway. Returns false
// where that cannot be had, the text as it was.
bool replaceInNewStorage(std::wstring& text, const Substitution& what, std::size_t found) {
    try {
        text = rebuilt(text, what, found);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// The wide character that a byte is on its own in the current locale. Returns false where it is none.
bool decodeByte(char byte, wchar_t& c) {
    const char text[] = {byte, '\0'};
    std::mbstate_t state{};
    if (std::mbrtowc(&c, text, 1, &state) <= 1 && std::mbsinit(&state) != 0)
        return true;
    // A letter that may be composed with what follows, as those of ASCII in CP1258, is kept in the state.
    return isAscii(byte) && MBStoWCS(text, 1, &c, 1, nullptr) == 1;
}

}  // namespace

IString& IString::replace(const IString& pattern, const IString& replacement) {
    if (pattern.wideText.empty())
        return *this;
    Substitution what{{pattern.wideText.data(), pattern.wideText.size()}, replacement.wideText};
    const std::size_t found = what.pattern.findIn(wideText.data(), wideText.size(), 0);
    if (found == search::kNotFound)
        return *this;

    std::wstring before;
    if (&replacement == this) {
        before = wideText;
        what.replacement = before;
    }
    if (what.replacement.size() <= what.pattern.size()) {
        replaceInPlace(wideText, what, found);
        return changed();
    }
    const std::size_t spare = wideText.capacity() - wideText.size();
    if (spare < what.replacement.size() - what.pattern.size()) {  // room for none
        if (replaceInNewStorage(wideText, what, found))
            return changed();
    } else if (replaceGrowing(wideText, what, found)) {
        return changed();
    }
    // One at a time: what has been replaced before memory runs out stays.
    for (std::size_t at = found; at != search::kNotFound;) {
        wideText.replace(at, what.pattern.size(), what.replacement);
        changed();
        at = what.pattern.findIn(wideText.data(), wideText.size(), at + what.replacement.size());
    }
    return *this;
}

IString& IString::replaceFirst(const IString& pattern, const IString& replacement) {
    const unsigned int found = find(pattern);
    if (found == npos)
        return *this;
    wideText.replace(found, pattern.wideText.size(), replacement.wideText);
    return changed();
}

IString& IString::replace(wchar_t from, wchar_t to) noexcept {
    const std::size_t found = wideText.find(from);
    if (found == std::wstring::npos)
        return *this;
    for (std::size_t i = found; i < wideText.size(); ++i)
        wideText[i] = wideText[i] == from ? to : wideText[i];
    return changed();
}

IString& IString::replace(char from, char to) {
    wchar_t wideFrom = 0;
    wchar_t wideTo = 0;
    if (decodeByte(from, wideFrom) && decodeByte(to, wideTo))
        replace(wideFrom, wideTo);
    return *this;
}

}  // namespace qzString
