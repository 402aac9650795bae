// Failing and counted allocations: replaces the global operator new, and wraps malloc, free, open_wmemstream
// and fclose at link time (-Wl,--wrap), which catches the library's own calls.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "support.h"

extern "C" {
void* __real_malloc(std::size_t size);
void __real_free(void* memory);
void* __wrap_malloc(std::size_t size);
void __wrap_free(void* memory);
std::FILE* __real_open_wmemstream(wchar_t** text, std::size_t* size);
std::FILE* __wrap_open_wmemstream(wchar_t** text, std::size_t* size);
int __real_fclose(std::FILE* stream);
int __wrap_fclose(std::FILE* stream);
}

namespace {

thread_local long countdown = 0;
thread_local bool always = false;
thread_local long counted = 0;
thread_local bool hasFailed = false;
thread_local long liveBlocks = 0;
thread_local long mostBlocks = 0;

}  // namespace

void* __wrap_malloc(std::size_t size) {
    ++counted;
    if (always || (countdown > 0 && --countdown == 0)) {
        hasFailed = true;
        return nullptr;
    }
    void* const memory = __real_malloc(size);
    if (memory != nullptr && ++liveBlocks > mostBlocks)
        mostBlocks = liveBlocks;
    return memory;
}

void __wrap_free(void* memory) {
    if (memory != nullptr)
        --liveBlocks;
    __real_free(memory);
}

// A stream in memory, whose own allocations are out of sight.
std::FILE* __wrap_open_wmemstream(wchar_t** text, std::size_t* size) {
    if (always || (countdown > 0 && --countdown == 0)) {
        hasFailed = true;
        errno = ENOMEM;
        return nullptr;
    }
    return __real_open_wmemstream(text, size);
}

// What is written last may take memory.
int __wrap_fclose(std::FILE* stream) {
    const int result = __real_fclose(stream);
    if (!always && (countdown <= 0 || --countdown != 0))
        return result;
    hasFailed = true;
    errno = ENOMEM;
    return EOF;
}

void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace support {

void Allocations::failAt(long nth) {
    countdown = nth;
    counted = 0;
    hasFailed = false;
    mostBlocks = liveBlocks;
}

void Allocations::failAlways(bool on) {
    always = on;
}

bool Allocations::failed() {
    return hasFailed;
}

long Allocations::count() {
    return counted;
}

long Allocations::live() {
    return liveBlocks;
}

long Allocations::peak() {
    return mostBlocks;
}

}  // namespace support
