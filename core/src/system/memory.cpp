// memory: the checked heap behind rv_memory.h and the bump pools of system/memory.h.
//
// Every block of the library's own data passes through here, so that a failure is reported with
// the place that asked, and so that tests can make any allocation fail.
#include "system/memory.h"

#include "rv_msg.h"

#include <atomic>
#include <new>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

// Allocations that may still succeed; negative: no limit.
static std::atomic<long> allocations_left{ -1 };

// Takes one allocation from the limit; false when none is left.
static bool grantAllocation()
{
    long left = allocations_left.load(std::memory_order_relaxed);
    while (left > 0)
        if (allocations_left.compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
            return true;
    return left < 0;
}

static void reportFailure(const char* verb, size_t size, const char* file, int line,
                          const char* function)
{
    RvMsgError("can't %s %lu bytes in %s:%s():%d", verb, size, file, function, line);
}

// The three ways to get memory differ only in the call that fetches it.
template <class Fetch>
static void* checked(const char* verb, size_t size, const char* file, int line,
                     const char* function, Fetch fetch)
{
    void* block = nullptr;
    if (size <= UINT32_MAX && grantAllocation())
        block = fetch();
    if (!block)
        reportFailure(verb, size, file, line, function);
    return block;
}

void* RvMalloc_func(unsigned size, const char* file, int line, const char* function)
{
    return rv::allocate(size, file, line, function);
}

void* RvRealloc_func(void* block, unsigned size, const char* file, int line, const char* function)
{
    if (size == 0) {
        RvFree_func(block);
        return nullptr;
    }
    return checked("reallocate", size, file, line, function, [&] { return realloc(block, size); });
}

void RvFree_func(void* block) { free(block); }

namespace rv {

void limitAllocations(long count) { allocations_left.store(count, std::memory_order_relaxed); }

void* allocate(size_t size, const char* file, int line, const char* function)
{
    if (size == 0)
        return nullptr;
    return checked("allocate", size, file, line, function, [&] { return malloc(size); });
}

static void adviseHugePages(void* block, size_t size)
{
    constexpr size_t huge_page = size_t{ 2 } << 20;
    const uintptr_t begin = (uintptr_t(block) + huge_page - 1) & ~(huge_page - 1);
    const uintptr_t end = (uintptr_t(block) + size) & ~(huge_page - 1);
    if (begin < end) // only a wish: a refusal costs speed, nothing else
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

void reportAllocationFailure(size_t size, const char* file, int line, const char* function)
{
    reportFailure("allocate", size, file, line, function);
}

void* allocateTable(size_t size, const char* file, int line, const char* function)
{
    if (size == 0)
        return nullptr;
    // calloc takes big blocks fresh from the system and does not touch them, so the advice still
    // comes before the first page exists.
    void* const table =
        checked("allocate", size, file, line, function, [&] { return calloc(size, 1); });
    if (table)
        adviseHugePages(table, size);
    return table;
}

void* allocateOrThrow(size_t bytes)
{
    // Containers may ask for nothing and still need a pointer of their own.
    void* const block =
        allocate(bytes ? bytes : 1, "core\\src\\system\\memory", __LINE__, "allocateOrThrow");
    if (!block)
        throw std::bad_alloc();
    return block;
}

} // namespace rv

// A block with an empty payload of `payload` bytes, counted in the pool; null after an error.
static RtMemPoolBlock* appendBlock(RtMemPool* pool, RtMemPoolBlock* last, size_t payload)
{
    const size_t size = payload + sizeof(RtMemPoolBlock);
    auto* const block = static_cast<RtMemPoolBlock*>(
        rv::allocate(size, "core\\src\\system\\memory", __LINE__, "AllocHdr"));
    if (!block)
        return nullptr;
    block->next = nullptr;
    block->start = block->cursor = reinterpret_cast<char*>(block + 1);
    block->end = block->start + payload;
    if (last)
        last->next = block;
    ++pool->block_count;
    pool->bytes_total += size;
    return block;
}

// Gives the block after `previous` a payload of `payload` bytes; null, with the chain unchanged,
// after an error.
static RtMemPoolBlock* growNextBlock(RtMemPool* pool, RtMemPoolBlock* previous, size_t payload)
{
    RtMemPoolBlock* const old = previous->next;
    const size_t old_payload = size_t(old->end - old->start);
    const size_t size = payload + sizeof(RtMemPoolBlock);
    if (size > UINT32_MAX) {
        reportFailure("reallocate", size, "core\\src\\system\\memory", __LINE__, "Alloc");
        return nullptr;
    }
    // A mark left from before a reset may point into the block, which can move. It falls back to
    // the end of the block in front.
    for (int i = 0; i <= pool->mark_top; ++i)
        if (pool->marks[i].block == old)
            pool->marks[i] = { previous, previous->end };
    auto* const block = static_cast<RtMemPoolBlock*>(
        RvRealloc_func(old, unsigned(size), "core\\src\\system\\memory", __LINE__, "Alloc"));
    if (!block)
        return nullptr;
    block->start = reinterpret_cast<char*>(block + 1);
    block->end = block->start + payload;
    previous->next = block;
    pool->bytes_total += payload - old_payload;
    return block;
}

RtMemPool* RvMemPoolCreate(unsigned block_size)
{
    void* const memory =
        RvMalloc_func(sizeof(RtMemPool), "core\\src\\system\\memory", __LINE__, "AllocInit");
    if (!memory)
        return nullptr;
    auto* const pool = new (memory) RtMemPool{};
    pool->block_size = block_size;
    pool->mark_top = -1;
    pool->bytes_total = sizeof(RtMemPool);
    pool->first = pool->current = appendBlock(pool, nullptr, block_size);
    if (!pool->first) {
        RvFree_func(pool);
        return nullptr;
    }
    return pool;
}

void* rv::poolAllocFromNextBlock(size_t bytes, RtMemPool* pool)
{
    RtMemPoolBlock* const exhausted = pool->current;
    RtMemPoolBlock* block = exhausted->next;
    if (!block)
        block = appendBlock(pool, exhausted, bytes > pool->block_size ? bytes : pool->block_size);
    else if (size_t(block->end - block->start) < bytes)
        block = growNextBlock(pool, exhausted, bytes);
    if (!block)
        return nullptr;
    block->cursor = block->start + bytes;
    pool->current = block;
    ++pool->block_switches;
    return block->start;
}

char* RvMemPoolStrdup(const char* s, RtMemPool* pool)
{
    if (!s)
        return nullptr;
    const size_t size = strlen(s) + 1;
    void* copy;
    if (!pool)
        copy = rv::allocate(size, "core\\src\\system\\memory", __LINE__, "strdup_pool");
    else if (size <= UINT32_MAX)
        copy = RvMemPoolAlloc(unsigned(size), pool);
    else
        copy = nullptr;
    return copy ? static_cast<char*>(memcpy(copy, s, size)) : nullptr;
}

void RvMemPoolReset(RtMemPool* pool)
{
    if (!pool)
        return;
    pool->current = pool->first;
    pool->current->cursor = pool->current->start;
    pool->block_switches = 0;
    ++pool->reset_count;
}

void RvMemPoolPushMark(RtMemPool* pool)
{
    if (pool->mark_top + 1 < RtMemPool::mark_capacity) {
        pool->marks[++pool->mark_top] = { pool->current, pool->current->cursor };
        return;
    }
    ++pool->refused_marks;
    if (!pool->overflow_reported) {
        pool->overflow_reported = true;
        RvMsgWarning("memory pool: more than %d marks are nested", RtMemPool::mark_capacity);
    }
}

void RvMemPoolPopMark(RtMemPool* pool)
{
    if (pool->refused_marks > 0) {
        --pool->refused_marks;
        return;
    }
    if (pool->mark_top < 0)
        return;
    const RtMemPool::Mark& mark = pool->marks[pool->mark_top--];
    pool->current = mark.block;
    pool->current->cursor = mark.cursor;
}

void RvMemPoolDestroy(RtMemPool* pool)
{
    if (!pool)
        return;
    for (RtMemPoolBlock* block = pool->first; block;) {
        RtMemPoolBlock* const next = block->next;
        RvFree_func(block);
        block = next;
    }
    RvFree_func(pool);
}
