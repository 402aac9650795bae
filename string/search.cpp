#include "string/search.h"

#include <string_view>

namespace qzString::search {
namespace {

template <class Char>
using View = std::basic_string_view<Char>;

}  // namespace

std::size_t findFirst(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                      std::size_t from) {
    return View<char>(text, length).find(needle, from, needleLength);
}

std::size_t findFirst(const wchar_t* text, std::size_t length, const wchar_t* needle,
                      std::size_t needleLength, std::size_t from) {
    return View<wchar_t>(text, length).find(needle, from, needleLength);
}

std::size_t findLast(const char* text, std::size_t length, const char* needle, std::size_t needleLength,
                     std::size_t from) {
    return View<char>(text, length).rfind(needle, from, needleLength);
}

std::size_t findLast(const wchar_t* text, std::size_t length, const wchar_t* needle, std::size_t needleLength,
                     std::size_t from) {
    return View<wchar_t>(text, length).rfind(needle, from, needleLength);
}

}  // namespace qzString::search
