// memory: checked heap allocation (rv_memory.h) and bump pools.
#include "system/memory.h"

#include "rv_msg.h"

#include <atomic>
#include <new>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

static const char* const module_path = "core\\src\\system\\memory";

namespace rv {

// Allocations that may still succeed; negative: no limit.
static std::atomic<long> allocations_left{ -1 };

void limitAllocations(long count) { allocations_left = count; }

static bool mayAllocate()
{
    if (allocations_left.load(std::memory_order_relaxed) < 0)
        return true;
    long left = allocations_left.load();
    while (left > 0 && !allocations_left.compare_exchange_weak(left, left - 1)) {
    }
    return left != 0;
}

void* allocateOrThrow(size_t bytes)
{
    void* const memory = bytes <= UINT32_MAX ? RvMalloc_func(static_cast<unsigned>(bytes),
                                                             module_path, __LINE__, "allocate")
                                             : nullptr;
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

static void reportFailure(size_t size, const char* file, int line, const char* function)
{
    RvMsgError("can't allocate %lu bytes in %s:%s():%d", static_cast<unsigned long>(size),
               file ? file : "", function ? function : "", line);
}

static constexpr size_t huge_page = size_t(2) << 20;

static void adviseHugePages(void* block, size_t size)
{
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + huge_page - 1) & ~(huge_page - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) & ~(huge_page - 1);
    if (begin < end)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

void* allocateTable(size_t count, size_t record_size, const char* file, int line,
                    const char* function)
{
    void* const block = mayAllocate() ? calloc(count, record_size) : nullptr;
    if (block)
        adviseHugePages(block, count * record_size);
    else
        reportFailure(count * record_size, file, line, function);
    return block;
}

} // namespace rv

void* RvMalloc_func(unsigned int size, const char* file, int line, const char* function)
{
    if (!size)
        return nullptr;
    void* const block = rv::mayAllocate() ? malloc(size) : nullptr;
    if (!block)
        rv::reportFailure(size, file, line, function);
    return block;
}

void* RvRealloc_func(void* block, unsigned int size, const char* file, int line,
                     const char* function)
{
    if (!size) {
        free(block);
        return nullptr;
    }
    void* const resized = rv::mayAllocate() ? realloc(block, size) : nullptr;
    if (!resized)
        RvMsgError("can't reallocate %lu bytes in %s:%s():%d", static_cast<unsigned long>(size),
                   file ? file : "", function ? function : "", line);
    return resized;
}

void RvFree_func(void* block) { free(block); }

// ---- Pools ----

static constexpr unsigned header_size = sizeof(RtMemPoolBlock);
static_assert(header_size == 32);

static RtMemPoolBlock* createBlock(RtMemPool* pool, unsigned payload)
{
    if (payload > UINT32_MAX - header_size)
        return nullptr;
    RtMemPoolBlock* const block = static_cast<RtMemPoolBlock*>(
        RvMalloc_func(payload + header_size, module_path, __LINE__, "AllocHdr"));
    if (!block)
        return nullptr;
    char* const start = reinterpret_cast<char*>(block + 1);
    *block = { nullptr, start, start, start + payload };
    ++pool->block_count;
    pool->bytes_total += payload + header_size;
    return block;
}

RtMemPool* RvMemPoolCreate(unsigned block_size)
{
    RtMemPool* const pool = static_cast<RtMemPool*>(
        RvMalloc_func(sizeof(RtMemPool), module_path, __LINE__, "AllocInit"));
    if (!pool)
        return nullptr;
    memset(pool, 0, sizeof *pool);
    pool->bytes_total = sizeof(RtMemPool);
    pool->block_size = block_size;
    pool->mark_top = -1;
    pool->first = pool->current = createBlock(pool, block_size);
    if (pool->first)
        return pool;
    RvFree_func(pool);
    return nullptr;
}

// The successor of the current block, grown to hold `bytes`; null when the heap is exhausted.
static RtMemPoolBlock* growNextBlock(RtMemPool* pool, unsigned bytes)
{
    RtMemPoolBlock* const next = pool->current->next;
    const size_t capacity = static_cast<size_t>(next->end - next->start);
    if (capacity >= bytes)
        return next;
    RtMemPoolBlock* const grown = static_cast<RtMemPoolBlock*>(
        RvRealloc_func(next, bytes + header_size, module_path, __LINE__, "Alloc"));
    if (!grown)
        return nullptr;
    grown->start = reinterpret_cast<char*>(grown + 1);
    grown->end = grown->start + bytes;
    pool->bytes_total += bytes - capacity;
    pool->current->next = grown;
    return grown;
}

namespace rv {

void* poolAllocFromNextBlock(unsigned bytes, RtMemPool* pool)
{
    RtMemPoolBlock* const exhausted = pool->current;
    RtMemPoolBlock* next = nullptr;
    if (exhausted->next)
        next = growNextBlock(pool, bytes);
    else
        next = exhausted->next =
            createBlock(pool, bytes > pool->block_size ? bytes : pool->block_size);
    if (!next)
        return nullptr;
    next->cursor = next->start + bytes;
    pool->current = next;
    ++pool->block_switches;
    return next->start;
}

} // namespace rv

char* RvMemPoolStrdup(const char* s, RtMemPool* pool)
{
    if (!s)
        return nullptr;
    const size_t size = strlen(s) + 1;
    if (size > INT32_MAX)
        return nullptr;
    const unsigned bytes = static_cast<unsigned>(size);
    void* const copy = pool ? RvMemPoolAlloc(bytes, pool)
                            : RvMalloc_func(bytes, module_path, __LINE__, "strdup_pool");
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
    if (pool->mark_top + 1 < RtMemPool::mark_capacity)
        pool->marks[pool->mark_top + 1] = { pool->current, pool->current->cursor };
    else if (pool->mark_top + 1 == RtMemPool::mark_capacity)
        RvMsgError("memory pool: more than %d nested marks", RtMemPool::mark_capacity);
    ++pool->mark_top; // marks beyond the capacity are counted, so that pops stay paired
}

void RvMemPoolPopMark(RtMemPool* pool)
{
    if (pool->mark_top < 0)
        return;
    if (pool->mark_top < RtMemPool::mark_capacity) {
        const RtMemPool::Mark& mark = pool->marks[pool->mark_top];
        pool->current = mark.block;
        pool->current->cursor = mark.cursor;
    }
    --pool->mark_top;
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
