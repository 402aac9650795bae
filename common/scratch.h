// Scratch memory for one call: the caller's stack where that has room, else the heap. Internal, not
// installed.
#ifndef QZSTRING_COMMON_SCRATCH_H
#define QZSTRING_COMMON_SCRATCH_H

#include <cstddef>
#include <cstdlib>
#include <new>

namespace qzString {

// Whether the calling thread's stack has room for that many bytes and a fair margin. False where the platform
// does not tell, or where the thread runs on a stack elsewhere. (One that a coroutine has carved from the
// thread's own is taken for all of it, and of the main thread's limit what it was at the first call.)
bool stackHasRoom(std::size_t bytes);

// Room for `count` elements: at `onStack`, or from malloc where that is null. Raises std::bad_alloc.
template <class Element>
class Scratch {
  public:
    Scratch(void* onStack, std::size_t count)
        : fromHeap(onStack == nullptr ? std::malloc(count * sizeof(Element)) : nullptr),
          elements(static_cast<Element*>(onStack == nullptr ? fromHeap : onStack)) {
        if (elements == nullptr)
            throw std::bad_alloc();
    }
    ~Scratch() { std::free(fromHeap); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    [[nodiscard]] Element* get() const { return elements; }

  private:
    void* fromHeap;
    Element* elements;
};

}  // namespace qzString

// Bytes on the stack of the function that this stands in, or null where they exceed `limit` or the stack's
// room.
#define QZSTRING_STACK_SCRATCH(bytes, limit) \
    ((bytes) <= (limit) && ::qzString::stackHasRoom(bytes) ? __builtin_alloca(bytes) : nullptr)

#endif
