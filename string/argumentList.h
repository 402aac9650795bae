// A variable argument list that ends with its scope, also when an exception leaves it. Internal, not
// installed.
#ifndef QZSTRING_STRING_ARGUMENTLIST_H
#define QZSTRING_STRING_ARGUMENTLIST_H

#include <cstdarg>

namespace qzString {

// Made right after va_start or va_copy of `list`, in the same function.
class ListGuard {
  public:
    explicit ListGuard(va_list& started) : list(started) {}
    ~ListGuard() { va_end(list); }
    ListGuard(const ListGuard&) = delete;
    ListGuard& operator=(const ListGuard&) = delete;

  private:
    va_list& list;
};

}  // namespace qzString

#endif
