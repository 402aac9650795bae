#include "common/scratch.h"

#include <cstdint>

#if defined(__linux__)
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace qzString {
namespace {

struct StackBounds {
    std::uintptr_t low;
    std::uintptr_t high;
};

constexpr StackBounds kUnknown{0, 0};

#if defined(__linux__)

// The main thread's stack grows down from the program's arguments as far as the resource limit lets it. (The
// C library could tell, but by reading /proc, which takes a file and memory.)
StackBounds mainThreadBounds() {
    constexpr std::uintptr_t kMost = std::uintptr_t{64} << 20;  // what an unlimited stack surely has
    const auto high = static_cast<std::uintptr_t>(getauxval(AT_EXECFN));
    rlimit limit{};
    if (high == 0 || getrlimit(RLIMIT_STACK, &limit) != 0)
        return kUnknown;
    const std::uintptr_t size = limit.rlim_cur < kMost ? static_cast<std::uintptr_t>(limit.rlim_cur) : kMost;
    return {size < high ? high - size : 0, high};
}

StackBounds currentThreadBounds() {
    if (getpid() == syscall(SYS_gettid))
        return mainThreadBounds();
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return kUnknown;
    void* low = nullptr;
    std::size_t size = 0;
    const bool known = pthread_attr_getstack(&attributes, &low, &size) == 0;
    pthread_attr_destroy(&attributes);
    const auto start = reinterpret_cast<std::uintptr_t>(low);
    return known ? StackBounds{start, start + size} : kUnknown;
}

#else

StackBounds currentThreadBounds() {
    return kUnknown;
}

#endif

}  // namespace

bool stackHasRoom(std::size_t bytes) {
    constexpr std::size_t kAlwaysThere = 1024;
    constexpr std::size_t kMargin = std::size_t{64} << 10;  // for the converters, and for signal handlers
    if (bytes <= kAlwaysThere)
        return true;
    thread_local const StackBounds bounds = currentThreadBounds();
    const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    return here > bounds.low && here < bounds.high && here - bounds.low >= bytes + kMargin;
}

}  // namespace qzString
