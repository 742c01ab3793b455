// A base for records made with `new`, which puts them on the checked heap.
#ifndef RV_SYSTEM_CHECKED_HEAP_H
#define RV_SYSTEM_CHECKED_HEAP_H

#include "system/memory.h"

namespace rv {

struct CheckedHeap {
    // Throw std::bad_alloc after the failure has been reported.
    static void* operator new(size_t bytes) { return allocateOrThrow(bytes); }
    static void* operator new[](size_t bytes) { return allocateOrThrow(bytes); }
    static void operator delete(void* block) { RvFree_func(block); }
    static void operator delete[](void* block) { RvFree_func(block); }
};

} // namespace rv

#endif
