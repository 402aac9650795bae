// A unit that prints strings in no way: without string/stream.h there is nothing that could.
#include <ostream>
#include <type_traits>
#include <utility>

#include "string/IString.h"

namespace {

template <class String, class = void>
struct Prints : std::false_type {};
template <class String>
struct Prints<String, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<const String&>())>>
    : std::true_type {};
static_assert(!Prints<qzString::IString>() && !Prints<qzString::CString>());

}  // namespace

bool usesTheClassAlone() {
    return qzString::IString(nullptr, qzString::kUTF8).length() == 0;
}
