#include "fuzz/driver.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "primitives/character.h"
#include "string/view.h"

using qzString::CString;
using qzString::IString;

namespace fuzz {
namespace {

#define QZSTRING_EXPECT(condition)                                                       \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                \
        }                                                                                \
    } while (false)

// The bytes still to be interpreted; zeros when they have run out.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : at(data), end(data + size) {}
    bool empty() const { return at == end; }
    unsigned next() { return at == end ? 0 : *at++; }
    // Mostly inside a short string, sometimes far outside.
    unsigned position() {
        const unsigned byte = next();
        return byte == 0xFF ? 0xFFFFFFFFU : byte == 0xFE ? 0x80000000U : byte % 24;
    }
    // A small alphabet with NUL, so that overlap and repetition are frequent.
    template <class Char>
    Char character() {
        static constexpr char kAlphabet[] = {'a', 'b', 'A', ' ', '\t', '\0', 'z'};
        const unsigned byte = next();
        return byte >= 0xF0 ? static_cast<Char>(byte) : static_cast<Char>(kAlphabet[byte % sizeof kAlphabet]);
    }
    template <class Char>
    std::basic_string<Char> text() {
        std::basic_string<Char> result;
        for (unsigned length = next() % 12; length > 0; --length)
            result += character<Char>();
        return result;
    }

  private:
    const std::uint8_t* at;
    const std::uint8_t* end;
};

template <class String>
struct CharOf;
template <>
struct CharOf<CString> {
    using Type = char;
};
template <>
struct CharOf<IString> {
    using Type = wchar_t;
};

// A string and what it must equal.
template <class String>
struct Pair {
    using Char = typename CharOf<String>::Type;
    String string;
    std::basic_string<Char> model;
};

template <class Char>
std::basic_string<Char> untilNul(std::basic_string<Char> text) {
    return text.substr(0, text.find(Char{0}));
}

// Both raise out_of_range, or neither.
template <class Edit, class ModelEdit>
void both(Edit edit, ModelEdit modelEdit) {
    bool raised = false;
    bool expected = false;
    try {
        edit();
    } catch (const std::out_of_range&) {
        raised = true;
    }
    try {
        modelEdit();
    } catch (const std::out_of_range&) {
        expected = true;
    }
    QZSTRING_EXPECT(raised == expected);
}

template <class Char>
bool isA(Char c) {
    return c == 'a';
}

template <class String>
void search(const Pair<String>& text, const Pair<String>& needle, unsigned pos) {
    const auto& t = text.model;
    const auto& n = needle.model;
    const auto none = String::npos;
    QZSTRING_EXPECT(text.string.find(needle.string, pos) ==
                    (n.empty() ? none : static_cast<unsigned>(t.find(n, pos))));
    QZSTRING_EXPECT(text.string.rfind(needle.string, pos) ==
                    (n.empty() ? none : static_cast<unsigned>(t.rfind(n, pos))));
    QZSTRING_EXPECT(text.string.find(isA<typename Pair<String>::Char>, pos) ==
                    static_cast<unsigned>(t.find('a', pos)));
    QZSTRING_EXPECT(text.string.rfind(isA<typename Pair<String>::Char>, pos) ==
                    static_cast<unsigned>(t.rfind('a', pos)));
    const int order = text.string.compare(needle.string);
    QZSTRING_EXPECT((order < 0) == (t < n) && (order == 0) == (t == n));
    QZSTRING_EXPECT(order != 0 || hashfunction(text.string) == hashfunction(needle.string));
    auto foldedText = t;
    auto foldedNeedle = n;
    for (auto& c : foldedText)
        c = qzString::toLower(c);
    for (auto& c : foldedNeedle)
        c = qzString::toLower(c);
    const int folded = text.string.compareNoCase(needle.string);
    QZSTRING_EXPECT((folded < 0) == (foldedText < foldedNeedle) &&
                    (folded == 0) == (foldedText == foldedNeedle));
    if constexpr (std::is_same_v<String, IString>) {
        QZSTRING_EXPECT(text.string.findAny(needle.string, pos) ==
                        static_cast<unsigned>(t.find_first_of(n, pos)));
        QZSTRING_EXPECT(text.string.rfindAny(needle.string, pos) ==
                        static_cast<unsigned>(t.find_last_of(n, pos)));
    }
}

template <class Char>
void trimModel(std::basic_string<Char>& text, bool front, bool spaces, Char given) {
    const auto goes = [&](Char c) { return spaces ? qzString::isSpace(c) : c == given; };
    while (!text.empty() && goes(front ? text.front() : text.back()))
        text.erase(front ? 0 : text.size() - 1, 1);
}

template <class String>
void edit(Pair<String>& a, Pair<String>& b, Input& input) {
    using Char = typename Pair<String>::Char;
    const unsigned pos = input.position();
    const unsigned count = input.position();
    const Char c = input.character<Char>();
    const auto copy = b.model;  // b may be a
    const auto text = untilNul(copy);
    const Char* const pointer = asView(b.string).data();
    switch (input.next() % 17) {
        case 0:
            a.string.append(b.string), a.model += copy;
            break;
        case 1:
            a.string.append(pointer), a.model += text;
            break;
        case 2:
            a.string.append(c).prepend(c), a.model = c + a.model + c;
            break;
        case 3:
            a.string.prepend(b.string), a.model = copy + a.model;
            break;
        case 4:
            both([&] { a.string.insert(pos, b.string); }, [&] { a.model.insert(pos, copy); });
            break;
        case 5:
            both([&] { a.string.insert(pos, pointer); }, [&] { a.model.insert(pos, text); });
            break;
        case 6:
            both([&] { a.string.insert(pos, c); }, [&] { a.model.insert(pos, 1, c); });
            break;
        case 7:
            both([&] { a.string.erase(pos, count); },
                 [&] { a.model.empty() ? a.model : a.model.erase(pos, count); });
            break;
        case 8:
            both([&] { a.string.replace(pos, count, b.string); }, [&] { a.model.replace(pos, count, copy); });
            break;
        case 9:
            both([&] { a.string.replace(pos, count, pointer); }, [&] { a.model.replace(pos, count, text); });
            break;
        case 10:
            both([&] { a.string.replace(pos, count, c); }, [&] { a.model.replace(pos, count, 1, c); });
            break;
        case 11:
            a.string.strip(c), trimModel(a.model, true, false, c);
            break;
        case 12:
            a.string.rstripSpaces(), trimModel(a.model, false, true, c);
            break;
        case 13:
            a.string.stripSpaces().rstrip(c), trimModel(a.model, true, true, c),
                trimModel(a.model, false, false, c);
            break;
        case 14:
            a.string.toLowerCase();
            for (auto& element : a.model)
                element = qzString::toLower(element);
            break;
        case 15:
            both([&] { b.string = String(a.string.substr(pos, count)); },
                 [&] {
                     const auto piece = a.model.substr(pos, count);
                     b.model = std::is_same_v<String, IString> ? untilNul(piece) : piece;
                 });
            break;
        default:
            a.string.swap(b.string), a.model.swap(b.model);
            break;
    }
}

void replaceModel(std::wstring& text, const std::wstring& pattern, const std::wstring& replacement) {
    for (std::size_t at = pattern.empty() ? std::wstring::npos : text.find(pattern); at != std::wstring::npos;
         at = text.find(pattern, at + replacement.size()))
        text.replace(at, pattern.size(), replacement);
}

void replaceAll(Pair<IString>& a, Pair<IString>& b, Input& input) {
    const std::wstring pattern = input.text<wchar_t>().substr(0, 1 + input.next() % 3);
    const std::wstring replacement = b.model;
    a.string.replace(IString(pattern.data(), static_cast<int>(pattern.size())), b.string);
    replaceModel(a.model, pattern, replacement);
}

// The cached form must be that of the text, whatever happened before.
void convert(const IString& string, const std::wstring& model) {
    bool ok = false;
    const char* const bytes = string.asUTF8(&ok);
    IString back;
    bool decoded = false;
    back.assign(bytes, qzString::kUTF8, &decoded);
    QZSTRING_EXPECT(ok && decoded && asView(back) == untilNul(model));
}

template <class String>
void check(const Pair<String>& pair) {
    QZSTRING_EXPECT(asView(pair.string) == pair.model);
    QZSTRING_EXPECT(asView(pair.string).data()[pair.model.size()] == 0);
}

template <class String>
void shorten(Pair<String>& pair) {
    if (pair.model.size() > 500) {
        pair.string.erase(100);
        pair.model.erase(100);
    }
}

// Any bytes may be decoded: the result is text or empty, and encodes back to the same.
void decodeBytes(const std::uint8_t* data, std::size_t size) {
    const std::string bytes = untilNul(std::string(reinterpret_cast<const char*>(data), size));
    bool ok = false;
    const IString s(bytes.c_str(), qzString::kUTF8, &ok);
    QZSTRING_EXPECT(ok == (bytes.empty() || s.length() > 0));
    if (ok)
        QZSTRING_EXPECT(s.asUTF8() == bytes);
}

}  // namespace

void drive(const std::uint8_t* data, std::size_t size) {
    decodeBytes(data, size);
    Input input(data, size);
    Pair<CString> narrow[2];
    Pair<IString> wide[2];
    while (!input.empty()) {
        const unsigned what = input.next();
        Pair<CString>& n = narrow[what & 1];
        Pair<CString>& otherNarrow = narrow[what >> 1 & 1];
        Pair<IString>& w = wide[what & 1];
        Pair<IString>& otherWide = wide[what >> 1 & 1];
        switch (what >> 2 & 7) {
            case 0:
                n.model = input.text<char>();
                n.string = CString(n.model.data(), static_cast<int>(n.model.size()));
                break;
            case 1:
                w.model = input.text<wchar_t>();
                w.string = IString(w.model.data(), static_cast<int>(w.model.size()));
                break;
            case 2:
                edit(n, otherNarrow, input);
                break;
            case 3:
            case 4:
                edit(w, otherWide, input);
                break;
            case 5:
                replaceAll(w, otherWide, input);
                break;
            case 6:
                convert(w.string, w.model);
                break;
            default:
                search(n, otherNarrow, input.position());
                search(w, otherWide, input.position());
                break;
        }
        for (int i = 0; i < 2; ++i) {
            check(narrow[i]);
            check(wide[i]);
            shorten(narrow[i]);
            shorten(wide[i]);
        }
    }
}

}  // namespace fuzz
