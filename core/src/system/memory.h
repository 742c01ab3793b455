// Checked heap allocation (rv_memory.h) and per-thread bump pools.
#ifndef RV_SYSTEM_MEMORY_H
#define RV_SYSTEM_MEMORY_H

#include "rv_memory.h"

#include <stddef.h>
#include <stdint.h>

// A block of a pool; the payload follows the header.
struct RtMemPoolBlock {
    RtMemPoolBlock* next;
    char* start;  // first payload byte
    char* cursor; // next free payload byte
    char* end;    // one past the last payload byte
};

// A bump allocator over a chain of blocks, with a stack of marks. Owned by one thread at a time.
struct RtMemPool {
    static constexpr int mark_capacity = 1024;
    struct Mark {
        RtMemPoolBlock* block;
        char* cursor;
    };

    RtMemPoolBlock* first;
    RtMemPoolBlock* current;
    unsigned block_size; // payload of a new block
    Mark marks[mark_capacity];
    int mark_top;           // -1 when the stack is empty
    unsigned refused_marks; // pushes beyond the capacity that still await their pop
    bool overflow_reported; // a refused push is reported once per pool
    unsigned block_count;
    uint64_t bytes_total;    // record, headers and payloads
    unsigned block_switches; // since the last reset
    unsigned reset_count;
    unsigned alloc_count;
    unsigned max_request;
};

// Null after an error when the heap is exhausted.
RtMemPool* RvMemPoolCreate(unsigned block_size);
// size bytes, aligned to 8. Null after a reported failure, which leaves the pool as it was.
inline void* RvMemPoolAlloc(unsigned size, RtMemPool* pool);
// Copy in the pool, or on the heap (for RvFree_func) without one. Null gives null.
char* RvMemPoolStrdup(const char* s, RtMemPool* pool);
void RvMemPoolReset(RtMemPool* pool);
// A mark that no longer fits is refused, with a warning; its pop gives nothing back, so that the
// outer marks stay paired. Popping an empty stack does nothing.
void RvMemPoolPushMark(RtMemPool* pool);
void RvMemPoolPopMark(RtMemPool* pool);
void RvMemPoolDestroy(RtMemPool* pool);

namespace rv {

// RvMalloc_func for a size computed in 64 bits: what 32 bits cannot express fails and is reported
// like an exhausted heap.
void* allocate(size_t size, const char* file, int line, const char* function);

// Reports an allocation that was refused before it reached the heap, in the words of a failed one.
void reportAllocationFailure(size_t size, const char* file, int line, const char* function);

// Zeroed memory for a table with random access; big ones ask for huge pages, which spare most of
// the address translation that such tables cost.
void* allocateTable(size_t size, const char* file, int line, const char* function);

// RvMemPoolAlloc when the current block is exhausted.
void* poolAllocFromNextBlock(size_t bytes, RtMemPool* pool);

// For tests: lets `count` more checked allocations succeed and then fails every one; a negative
// count removes the limit.
void limitAllocations(long count);

// Standard allocator over the checked heap, for the few containers that outlive a call.
template <class T> struct CheckedAllocator {
    using value_type = T;
    CheckedAllocator() = default;
    template <class U> CheckedAllocator(const CheckedAllocator<U>&) noexcept {}
    T* allocate(size_t n);
    void deallocate(T* p, size_t) noexcept { RvFree_func(p); }
    template <class U> bool operator==(const CheckedAllocator<U>&) const noexcept { return true; }
};

// Throws std::bad_alloc when the heap is exhausted or the size exceeds 32 bits.
void* allocateOrThrow(size_t bytes);

template <class T> T* CheckedAllocator<T>::allocate(size_t n)
{
    if (n > SIZE_MAX / sizeof(T))
        n = SIZE_MAX / sizeof(T); // too much in any case; keeps the product from wrapping
    return static_cast<T*>(allocateOrThrow(n * sizeof(T)));
}

} // namespace rv

inline void* RvMemPoolAlloc(unsigned size, RtMemPool* pool)
{
    if (size > pool->max_request)
        pool->max_request = size;
    ++pool->alloc_count;
    const size_t bytes = (size_t{ size } + 7) & ~size_t{ 7 };
    RtMemPoolBlock* const block = pool->current;
    char* const result = block->cursor;
    // Required: strict, so that a request which would fill the block exactly moves on.
    if (bytes < size_t(block->end - result)) {
        block->cursor += bytes;
        return result;
    }
    return rv::poolAllocFromNextBlock(bytes, pool);
}

#endif
