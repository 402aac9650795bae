// What the tests share: one vocabulary for both classes, exact-size memory, and failing allocations.
#ifndef QZSTRING_TESTS_SUPPORT_H
#define QZSTRING_TESTS_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "string/stream.h"
#include "string/view.h"

namespace support {

using qzString::CString;
using qzString::IString;

// The character type and standard string of a class, and text in it from ASCII.
template <class String>
struct Kind;
template <>
struct Kind<CString> {
    using Char = char;
};
template <>
struct Kind<IString> {
    using Char = wchar_t;
};
template <class String>
using Char = typename Kind<String>::Char;
template <class String>
using Std = std::basic_string<Char<String>>;

template <class String>
Std<String> wide(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

template <class String>
String make(std::string_view ascii) {
    return String(wide<String>(ascii).data(), static_cast<int>(ascii.size()));
}

// The value as a standard string: what is compared in most expectations.
template <class String>
Std<String> value(const String& s) {
    return Std<String>(asView(s));
}

inline IString fromUtf8(const std::string& text) {
    bool ok = false;
    IString s(text.c_str(), qzString::kUTF8, &ok);
    EXPECT_TRUE(ok) << text;
    return s;
}

using BothClasses = ::testing::Types<CString, IString>;

// A copy in a block of exactly its size, so that the address sanitizer sees one element too far.
template <class Element>
class Exact {
  public:
    explicit Exact(std::basic_string_view<Element> text)
        : elements(new Element[text.size()]), count(text.size()) {
        std::copy(text.begin(), text.end(), elements.get());
    }
    explicit Exact(std::size_t size) : elements(new Element[size]()), count(size) {}
    [[nodiscard]] Element* data() const { return elements.get(); }
    [[nodiscard]] unsigned int size() const { return static_cast<unsigned int>(count); }
    [[nodiscard]] std::basic_string_view<Element> view(std::size_t length) const {
        return {elements.get(), length};
    }

  private:
    std::unique_ptr<Element[]> elements;
    std::size_t count;
};

// Memory from `new` and `malloc`, of the library and the test alike, on the calling thread.
struct Allocations {
    static void failAt(long nth);  // 1 is the next one; 0 none
    static void failAlways(bool on);
    static bool failed();  // since failAt
    static long count();   // since failAt
    static long live();    // blocks not released yet
    static long peak();    // the most of them since failAt
};

// Runs `operation` with the first, second, ... allocation failing, until it succeeds. After each failure
// `check` runs: the operation must have raised std::bad_alloc, and nothing may have leaked. `prepare` makes
// what the operation works on, anew for every round.
template <class Prepare, class Operation, class Check>
void failEveryAllocation(Prepare prepare, Operation operation, Check check) {
    for (long nth = 1;; ++nth) {
        ASSERT_LT(nth, 100) << "never succeeds";
        const long before = Allocations::live();
        bool raised = false;
        bool failed = false;
        {
            auto subject = prepare();
            Allocations::failAt(nth);
            try {
                operation(subject);
            } catch (const std::bad_alloc&) {
                raised = true;
            }
            failed = Allocations::failed();
            Allocations::failAt(0);
            if (failed)
                check(subject);
        }
        if (!failed)
            return;
        // Fewer where the library released what the C library had taken, which is not counted.
        EXPECT_LE(Allocations::live(), before) << "leaked after failed allocation " << nth;
        EXPECT_TRUE(raised) << "after failed allocation " << nth;
    }
}

// Runs what takes well below a second where it is linear, and minutes where it is not.
template <class Body>
void expectLinear(Body body) {
    const auto begin = std::chrono::steady_clock::now();
    body();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace support

#endif
