#include <algorithm>
#include <string>
#include <string_view>

#include "primitives/character.h"
#include "string/CString.h"
#include "string/IString.h"
#include "string/characterSet.h"
#include "string/search.h"
#include "string/view.h"

namespace qzString {
namespace {

unsigned int position(std::size_t found) {
    return found == search::kNotFound ? CString::npos : static_cast<unsigned int>(found);
}

// An empty needle is found nowhere.
template <class Char>
unsigned int findText(std::basic_string_view<Char> text, std::basic_string_view<Char> needle,
                      unsigned int pos) {
    if (needle.empty() || pos >= text.size())
        return CString::npos;
    return position(search::findFirst(text.data(), text.size(), needle.data(), needle.size(), pos));
}

template <class Char>
unsigned int rfindText(std::basic_string_view<Char> text, std::basic_string_view<Char> needle,
                       unsigned int pos) {
    if (needle.empty() || text.empty())
        return CString::npos;
    return position(search::findLast(text.data(), text.size(), needle.data(), needle.size(), pos));
}

template <class Char>
unsigned int findAccepted(std::basic_string_view<Char> text, bool (*accepts)(Char), unsigned int pos) {
    if (pos >= text.size())
        return CString::npos;
    const auto found = std::find_if(text.begin() + pos, text.end(), accepts);
    return found == text.end() ? CString::npos : static_cast<unsigned int>(found - text.begin());
}

template <class Char>
unsigned int rfindAccepted(std::basic_string_view<Char> text, bool (*accepts)(Char), unsigned int pos) {
    if (pos < text.size())
        text = text.substr(0, pos + 1);
    const auto found = std::find_if(text.rbegin(), text.rend(), accepts);
    return found == text.rend() ? CString::npos : static_cast<unsigned int>(text.rend() - found - 1);
}

}  // namespace

// ---- CString ----

unsigned int CString::find(const CString& needle, unsigned int pos) const noexcept {
    return findText<char>(text, needle.text, pos);
}

unsigned int CString::find(const char* needle, unsigned int pos) const noexcept {
    return findText<char>(text, detail::view(needle), pos);
}

unsigned int CString::find(char needle, unsigned int pos) const noexcept {
    return position(text.find(needle, pos));
}

unsigned int CString::rfind(const CString& needle, unsigned int pos) const noexcept {
    return rfindText<char>(text, needle.text, pos);
}

unsigned int CString::rfind(const char* needle, unsigned int pos) const noexcept {
    return rfindText<char>(text, detail::view(needle), pos);
}

unsigned int CString::rfind(char needle, unsigned int pos) const noexcept {
    return rfindText<char>(text, {&needle, 1}, pos);
}

unsigned int CString::find(bool (*accepts)(char), unsigned int pos) const {
    return findAccepted<char>(text, accepts, pos);
}

unsigned int CString::rfind(bool (*accepts)(char), unsigned int pos) const {
    return rfindAccepted<char>(text, accepts, pos);
}

bool CString::isAscii() const noexcept {
    return qzString::isAscii(text.data(), text.size());
}

// ---- IString ----

unsigned int IString::find(const IString& needle, unsigned int pos) const noexcept {
    return findText<wchar_t>(wideText, needle.wideText, pos);
}

unsigned int IString::find(const wchar_t* needle, unsigned int pos) const noexcept {
    return findText<wchar_t>(wideText, detail::view(needle), pos);
}

unsigned int IString::find(wchar_t needle, unsigned int pos) const noexcept {
    return position(wideText.find(needle, pos));
}

unsigned int IString::rfind(const IString& needle, unsigned int pos) const noexcept {
    return rfindText<wchar_t>(wideText, needle.wideText, pos);
}

unsigned int IString::rfind(const wchar_t* needle, unsigned int pos) const noexcept {
    return rfindText<wchar_t>(wideText, detail::view(needle), pos);
}

unsigned int IString::rfind(wchar_t needle, unsigned int pos) const noexcept {
    return rfindText<wchar_t>(wideText, {&needle, 1}, pos);
}

unsigned int IString::find(bool (*accepts)(wchar_t), unsigned int pos) const {
    return findAccepted<wchar_t>(wideText, accepts, pos);
}

unsigned int IString::rfind(bool (*accepts)(wchar_t), unsigned int pos) const {
    return rfindAccepted<wchar_t>(wideText, accepts, pos);
}

unsigned int IString::findAny(const IString& set, unsigned int pos) const noexcept {
    return position(search::findFirstOf(wideText, set.wideText, pos));
}

unsigned int IString::rfindAny(const IString& set, unsigned int pos) const noexcept {
    return position(search::findLastOf(wideText, set.wideText, pos));
}

bool IString::isAscii() const noexcept {
    return qzString::isAscii(wideText.data(), wideText.size());
}

}  // namespace qzString
