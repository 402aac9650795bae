#include <algorithm>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "string/IString.h"
#include "string/search.h"

namespace qzString {
namespace {

// Spare room of less than this part of a text hardly takes what a growing replacement adds to it.
constexpr std::size_t kSpareFraction = 8;

// What replacing every occurrence takes. Pattern and replacement are not parts of the text.
struct Substitution {
    std::wstring_view pattern;
    std::wstring_view replacement;

    [[nodiscard]] std::size_t findIn(const wchar_t* text, std::size_t length, std::size_t from) const {
        return search::findFirst(text, length, pattern.data(), pattern.size(), from);
    }
};

// Copies the text from `read` on to `write`, which is at or before it, with every occurrence replaced;
// `found` is the first. Returns where the result ends. What has not been read yet is never written over: the
// caller has seen to it that the growth of all the occurrences to come fits between the two.
std::size_t rewrite(std::wstring& text, const Substitution& what, std::size_t read, std::size_t write,
                    std::size_t found) {
    wchar_t* const data = text.data();
    const std::size_t end = text.size();
    while (found != search::kNotFound) {
        if (write != read)
            std::wmemmove(data + write, data + read, found - read);
        write += found - read;
        read = found + what.pattern.size();
        std::wmemcpy(data + write, what.replacement.data(), what.replacement.size());
        write += what.replacement.size();
        found = what.findIn(data, end, read);
    }
    if (write != read)
        std::wmemmove(data + write, data + read, end - read);
    return write + (end - read);
}

std::size_t countFrom(const std::wstring& text, const Substitution& what, std::size_t found) {
    std::size_t count = 0;
    for (; found != search::kNotFound; ++count)
        found = what.findIn(text.data(), text.size(), found + what.pattern.size());
    return count;
}

// Makes room at the end for the growth of every occurrence from `found` on. Returns false where that cannot
// be had, the text as it was.
bool growForAll(std::wstring& text, const Substitution& what, std::size_t found) {
    const std::size_t growth = what.replacement.size() - what.pattern.size();
    const std::size_t count = countFrom(text, what, found);
    if (growth > (text.max_size() - text.size()) / count)
        return false;
    try {
        text.resize(text.size() + count * growth);
    } catch (const std::bad_alloc&) {
        return false;
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
        found = what.findIn(text.data(), text.size(), read);
    }
    return result.append(text, read);
}

// Replaces in new storage, in one pass over the text: for a text without room to spare, which would move to
// new storage anyway. Returns false where that cannot be had, the text as it was.
bool replaceInNewStorage(std::wstring& text, const Substitution& what, std::size_t found) {
    try {
        text = rebuilt(text, what, found);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

// The wide character that a byte is on its own in the current locale. Returns false where it is none.
bool decodeByte(char byte, wchar_t& c) {
    const char text[] = {byte, '\0'};
    std::mbstate_t initial{};
    return std::mbrtowc(&c, text, 1, &initial) <= 1;
}

}  // namespace

IString& IString::replace(const IString& pattern, const IString& replacement) {
    if (&replacement == this)
        return replace(pattern, IString(*this));
    if (&pattern == this)
        return wideText.empty() ? *this : replaceFirst(pattern, replacement);
    if (pattern.wideText.empty())
        return *this;
    const Substitution what{pattern.wideText, replacement.wideText};
    const std::size_t length = wideText.size();
    const std::size_t found = what.findIn(wideText.data(), length, 0);
    if (found == search::kNotFound)
        return *this;

    if (what.replacement.size() <= what.pattern.size()) {
        wideText.resize(rewrite(wideText, what, 0, 0, found));
        return changed();
    }
    const bool isNearlyFull = wideText.capacity() - length < length / kSpareFraction;
    if (isNearlyFull && replaceInNewStorage(wideText, what, found))
        return changed();
    if (growForAll(wideText, what, found)) {
        // The text from the first occurrence on moves to the end, and is rewritten from there.
        const std::size_t growth = wideText.size() - length;
        wchar_t* const data = wideText.data();
        std::wmemmove(data + found + growth, data + found, length - found);
        rewrite(wideText, what, found + growth, found, found + growth);
        return changed();
    }
    // One at a time: what has been replaced before memory runs out stays.
    for (std::size_t at = found; at != search::kNotFound;) {
        wideText.replace(at, what.pattern.size(), what.replacement);
        changed();
        at = what.findIn(wideText.data(), wideText.size(), at + what.replacement.size());
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
