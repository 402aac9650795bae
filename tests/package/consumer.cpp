#include <cstdio>

#include "string/IString.h"
#include "string/containers.h"
#include "string/stream.h"

int main() {
    bool ok = false;
    qzString::IString s("\xC3\xA9", qzString::kUTF8, &ok);
    s.append(L'!');
    std::puts(s.asUTF8());
    return ok && s.length() == 2 ? 0 : 1;
}
