// Checked heap allocation (rv_memory.h) and per-thread bump pools.
#ifndef RV_SYSTEM_MEMORY_H
#define RV_SYSTEM_MEMORY_H

#include "rv_memory.h"

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
    int mark_top; // -1 when the stack is empty
    unsigned block_count;
    uint64_t bytes_total;    // record, headers and payloads
    unsigned block_switches; // since the last reset
    unsigned reset_count;
    unsigned alloc_count;
    unsigned max_request;
};

// Null after an error when the heap is exhausted.
RtMemPool* RvMemPoolCreate(unsigned block_size);

namespace rv {

// The slow path of RvMemPoolAlloc: serves `bytes` (a multiple of 8) from the block that follows.
void* poolAllocFromNextBlock(unsigned bytes, RtMemPool* pool);

} // namespace rv

// size bytes, aligned to 8. Null after a reported failure; the pool stays usable.
inline void* RvMemPoolAlloc(unsigned size, RtMemPool* pool)
{
    if (size > pool->max_request)
        pool->max_request = size;
    ++pool->alloc_count;
    RtMemPoolBlock* const block = pool->current;
    const uint64_t bytes = (uint64_t(size) + 7) & ~uint64_t(7);
    if (bytes < uint64_t(block->end - block->cursor)) { // Required: strict, an exact fit moves on
        char* const result = block->cursor;
        block->cursor += bytes;
        return result;
    }
    return bytes <= INT32_MAX ? rv::poolAllocFromNextBlock(unsigned(bytes), pool) : nullptr;
}

// Copy in the pool, or on the heap (for RvFree_func) without one. Null gives null.
char* RvMemPoolStrdup(const char* s, RtMemPool* pool);
void RvMemPoolReset(RtMemPool* pool);
void RvMemPoolPushMark(RtMemPool* pool);
void RvMemPoolPopMark(RtMemPool* pool);
void RvMemPoolDestroy(RtMemPool* pool);

namespace rv {

// For tests: lets `count` more checked allocations succeed and then fails every one; a negative
// count removes the limit.
void limitAllocations(long count);

// A zeroed table of `count` records on the checked heap, for RvFree_func. Large tables ask for huge
// pages, since they are read at random. Null after an error.
void* allocateTable(size_t count, size_t record_size, const char* file, int line,
                    const char* function);

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
    return static_cast<T*>(allocateOrThrow(n * sizeof(T)));
}

} // namespace rv

#endif
