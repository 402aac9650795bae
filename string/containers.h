// Function objects to keep the strings in the standard containers, with and without regard to case.
//
//     std::unordered_map<qzString::IString, int, qzString::Hash, qzString::Equal> counts;
//     std::map<qzString::CString, int, qzString::LessNoCase> headers;
//     headers.find("content-type");                   // no temporary string
//
// All are transparent: they take either class, a standard string or view of the same character type, or a
// pointer to NUL-terminated text (null stands for empty text), and compare narrow with narrow, wide with
// wide. None allocates or raises anything. (The hashes do not say so by noexcept: libstdc++ then keeps every
// element's hash, and neither hashes nor compares the other elements of a bucket when it looks one up.)
//
// - Hash, Equal, Less: by exact elements; Less is the order of compare(), Hash the value of hashfunction().
// - HashNoCase, EqualNoCase, LessNoCase: by lower-case forms; LessNoCase is the order of compareNoCase().
#ifndef QZSTRING_STRING_CONTAINERS_H
#define QZSTRING_STRING_CONTAINERS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "primitives/character.h"
#include "primitives/hash.h"
#include "string/view.h"

namespace qzString {

namespace detail {

inline std::uint64_t hashView(std::string_view s) noexcept {
    return qz::hashfunction(reinterpret_cast<const unsigned char*>(s.data()), static_cast<int>(s.size()));
}
inline std::uint64_t hashView(std::wstring_view s) noexcept {
    return qz::hashfunction(s.data(), static_cast<int>(s.size()));
}

// Folds a block at a time; the blocks' hashes are chained by an odd multiplier, so that their order counts.
template <class Char>
std::uint64_t hashViewNoCase(std::basic_string_view<Char> s) noexcept {
    constexpr std::size_t kBlock = 256;
    Char block[kBlock];
    std::uint64_t hash = 0;
    do {
        const std::size_t count = s.copy(block, kBlock);
        toLower(block, count);
        hash = hash * 0x9E3779B97F4A7C15U + hashView(std::basic_string_view<Char>(block, count));
        s.remove_prefix(count);
    } while (!s.empty());
    return hash;
}

template <class Char>
bool equalNoCase(std::basic_string_view<Char> a, std::basic_string_view<Char> b) noexcept {
    return a.size() == b.size() && compareNoCase(a.data(), a.size(), b.data(), b.size()) == 0;
}

template <class Char>
bool lessNoCase(std::basic_string_view<Char> a, std::basic_string_view<Char> b) noexcept {
    return compareNoCase(a.data(), a.size(), b.data(), b.size()) < 0;
}

}  // namespace detail

struct Hash {
    using is_transparent = void;
    template <class String>
    std::size_t operator()(const String& s) const {
        return static_cast<std::size_t>(detail::hashView(detail::view(s)));
    }
};

struct Equal {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return detail::view(a) == detail::view(b);
    }
};

struct Less {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return detail::view(a) < detail::view(b);
    }
};

struct HashNoCase {
    using is_transparent = void;
    template <class String>
    std::size_t operator()(const String& s) const {
        return static_cast<std::size_t>(detail::hashViewNoCase(detail::view(s)));
    }
};

struct EqualNoCase {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return detail::equalNoCase(detail::view(a), detail::view(b));
    }
};

struct LessNoCase {
    using is_transparent = void;
    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept {
        return detail::lessNoCase(detail::view(a), detail::view(b));
    }
};

}  // namespace qzString

#endif
