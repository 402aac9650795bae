// Output of the strings to streams, and how GoogleTest prints them.
//
// The whole text is written, NULs included, with the stream's width and fill. An IString goes to a wide
// stream as it is and to a narrow one as UTF-8; one that cannot be encoded sets the stream's failbit and
// writes nothing. The cache of the string is not touched. std::bad_alloc passes through where the text is
// encoded; where the stream's own buffer has no room, the stream's state tells, as for std::string.
#ifndef QZSTRING_STRING_STREAM_H
#define QZSTRING_STRING_STREAM_H

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "primitives/conversion.h"
#include "string/view.h"

namespace qzString {

inline std::ostream& operator<<(std::ostream& out, const CString& s) {
    return out << asView(s);
}

inline std::wostream& operator<<(std::wostream& out, const IString& s) {
    return out << asView(s);
}

namespace detail {

struct CachedForm {
    // Null where there is none.
    static const std::string* inUTF8(const IString& s) {
        return s.isCachedIn(kUTF8) ? &s.multibyteCache : nullptr;
    }
};

}  // namespace detail

inline std::ostream& operator<<(std::ostream& out, const IString& s) {
    if (const std::string* const cached = detail::CachedForm::inUTF8(s))
        return out << *cached;
    // Beside the cache, so that printing leaves the cached form and the pointers into it as they are.
    bool ok = false;
    std::string bytes(WCStoUTF8(s.asWChar(), s.length(), nullptr, 0, nullptr), '\0');
    WCStoUTF8(s.asWChar(), s.length(), bytes.data(), static_cast<unsigned int>(bytes.size()), &ok);
    if (ok)
        out << bytes;
    else
        out.setstate(std::ios_base::failbit);
    return out;
}

namespace detail {

// Quoted; what is not printable ASCII as \x{hexadecimal}, so that no two texts look alike.
template <class Char>
void printQuoted(std::basic_string_view<Char> text, std::ostream& out) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    out << '"';
    for (const Char c : text) {
        const auto value = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<Char>>(c));
        if (value == '"' || value == '\\') {
            out << '\\' << static_cast<char>(value);
        } else if (value >= 0x20 && value < 0x7F) {
            out << static_cast<char>(value);
        } else {
            out << "\\x{";
            int shift = 28;
            while (shift > 0 && value >> shift == 0)
                shift -= 4;
            for (; shift >= 0; shift -= 4)
                out << kDigits[value >> shift & 0xF];
            out << '}';
        }
    }
    out << '"';
}

}  // namespace detail

// Found by GoogleTest.
inline void PrintTo(const CString& s, std::ostream* out) {
    detail::printQuoted(asView(s), *out);
}
inline void PrintTo(const IString& s, std::ostream* out) {
    *out << 'L';
    detail::printQuoted(asView(s), *out);
}

}  // namespace qzString

#endif
