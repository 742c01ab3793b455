// strpool: the pool of interned strings.
#include "strpool.h"

#include "frame.h"
#include "hash.h"
#include "rv_memory.h"
#include "rv_msg.h"
#include "system/memory.h"

#include <math.h>
#include <new>
#include <stdio.h>

static const char* const module_path = "core\\src\\strpool";

namespace {

constexpr unsigned min_capacity = 16;
constexpr int removed = -1; // refs of a tombstone

struct PoolGuard {
    explicit PoolGuard(RtStringPool* p) : pool(p) { RvCritSecEnter(&pool->lock); }
    ~PoolGuard() { RvCritSecLeave(&pool->lock); }
    PoolGuard(const PoolGuard&) = delete;
    PoolGuard& operator=(const PoolGuard&) = delete;
    RtStringPool* pool;
};

unsigned roundUpToPowerOfTwo(unsigned n)
{
    unsigned capacity = min_capacity;
    while (capacity < n && capacity < 1u << 31)
        capacity *= 2;
    return capacity;
}

unsigned thresholdOf(unsigned capacity)
{
    return static_cast<unsigned>(uint64_t(capacity) * 15 / 16);
}

RtStringPool::Slot* createSlots(unsigned capacity)
{
    return static_cast<RtStringPool::Slot*>(rv::allocateTable(
        capacity, sizeof(RtStringPool::Slot), module_path, __LINE__, "RtStringPool"));
}

// In a large pool the home slot is seldom in the cache: its way there overlaps with taking the
// lock. The table may be replaced meanwhile; a prefetch of freed memory is harmless.
void prefetchHome(const RtStringPool* pool, uint32_t hash)
{
    __builtin_prefetch(&pool->slots[hash & (pool->capacity - 1)]);
}

struct Probe {
    RtStringPool::Slot* found; // the live slot of the string, or null
    RtStringPool::Slot* free;  // where it would go
};

// Linear probing from the home slot to the first slot never used; there always is one.
Probe probe(const RtStringPool* pool, const char* s, uint32_t hash)
{
    const unsigned mask = pool->capacity - 1;
    RtStringPool::Slot* tombstone = nullptr;
    for (unsigned i = hash & mask;; i = (i + 1) & mask) {
        RtStringPool::Slot* const slot = &pool->slots[i];
        if (slot->refs == 0)
            return { nullptr, tombstone ? tombstone : slot };
        if (slot->refs < 0) {
            if (!tombstone)
                tombstone = slot;
        } else if (slot->hash == hash && (slot->text == s || !strcmp(slot->text, s))) {
            return { slot, nullptr };
        }
    }
}

void insertInto(RtStringPool::Slot* slots, unsigned capacity, const RtStringPool::Slot& entry)
{
    unsigned i = entry.hash & (capacity - 1);
    while (slots[i].refs != 0)
        i = (i + 1) & (capacity - 1);
    slots[i] = entry;
}

// Moves the live slots to a table of the given capacity. False when the heap is exhausted.
bool rebuild(RtStringPool* pool, unsigned capacity)
{
    RtStringPool::Slot* const slots = createSlots(capacity);
    if (!slots)
        return false;
    for (unsigned i = 0; i < pool->capacity; ++i)
        if (pool->slots[i].refs > 0)
            insertInto(slots, capacity, pool->slots[i]);
    RvFree_func(pool->slots);
    pool->slots = slots;
    pool->capacity = capacity;
    pool->grow_threshold = thresholdOf(capacity);
    pool->tombstones = 0;
    return true;
}

// Tombstones lengthen searches as live slots do, and a search for an absent string ends at a slot
// never used only: when the two together pass the threshold, the tombstones are swept out.
void sweepTombstones(RtStringPool* pool)
{
    if (pool->tombstones && pool->count + pool->tombstones > pool->grow_threshold)
        rebuild(pool, pool->capacity);
}

} // namespace

RtStringPool* RtStringPool::create(unsigned requested_capacity)
{
    void* const memory = RvMalloc_func(sizeof(RtStringPool), module_path, __LINE__, "RtStringPool");
    RtStringPool* const pool = memory ? new (memory) RtStringPool{} : nullptr;
    if (!pool) {
        RvMsgError("could not allocate string pool");
        return nullptr;
    }
    pool->capacity = roundUpToPowerOfTwo(requested_capacity);
    pool->grow_threshold = thresholdOf(pool->capacity);
    pool->slots = createSlots(pool->capacity);
    RvCritSecInit(&pool->lock);
    if (pool->slots && pool->lock.handle)
        return pool;
    destroy(pool);
    return nullptr;
}

void RtStringPool::destroy(RtStringPool* pool)
{
    int leaked = 0;
    for (unsigned i = 0; pool->slots && i < pool->capacity; ++i) {
        const Slot& slot = pool->slots[i];
        if (slot.refs <= 0)
            continue;
        if (++leaked == 1)
            RvMsgWarning("[strpool] String \"%s\" still has %d reference%s", slot.text, slot.refs,
                         slot.refs > 1 ? "s" : "");
    }
    // Required: a single leaked string gets no second line, and leaked copies are not freed.
    if (leaked > 1)
        RvMsgWarning("[strpool] %d strings have not been properly released", leaked);
    RvCritSecClose(&pool->lock);
    RvFree_func(pool->slots);
    RvFree_func(pool);
}

const char* RtStringPool::Add(const char* s)
{
    if (!s)
        return nullptr;
    const size_t length = strlen(s);
    if (length >= INT32_MAX)
        return nullptr;
    const uint32_t hash = rv::stringHash(s, length);
    prefetchHome(this, hash);
    const PoolGuard guard(this);
    if (count + tombstones + 1 >= capacity && !rebuild(this, capacity * 2))
        return nullptr; // growth has failed before: the last slot never used ends the searches
    const Probe at = probe(this, s, hash);
    if (at.found) {
        ++at.found->refs;
        ++hits;
        return at.found->text;
    }
    char* const copy = static_cast<char*>(RvMalloc_func(
        static_cast<unsigned>(length) + 1, module_path, __LINE__, "RtStringPool::Add"));
    if (!copy)
        return nullptr;
    memcpy(copy, s, length + 1);
    if (at.free->refs < 0)
        --tombstones;
    *at.free = { 1, hash, copy };
    if (++count > max_count)
        max_count = count;
    if (count <= grow_threshold)
        sweepTombstones(this);
    else if (rebuild(this, capacity * 2))
        ++resize_count;
    return copy;
}

void RtStringPool::Remove(const char* s)
{
    if (!s)
        return;
    const uint32_t hash = rv::stringHash(s);
    prefetchHome(this, hash);
    const PoolGuard guard(this);
    Slot* const slot = probe(this, s, hash).found;
    if (!slot) {
        RvMsgWarning("RtStringPool: out of sync?  could not find entry `%s' to remove", s);
        return;
    }
    if (--slot->refs > 0)
        return;
    RvFree_func(slot->text);
    *slot = { removed, 0, nullptr };
    --count;
    ++tombstones;
}

const char* RtStringPool::Summary()
{
    const PoolGuard guard(this);
    double saved = -(double(capacity) * sizeof(Slot) + sizeof(RtStringPool));
    for (unsigned i = 0; i < capacity; ++i)
        if (slots[i].refs > 0)
            saved += double(slots[i].refs - 1) * double(strlen(slots[i].text) + 1);
    snprintf(summary, sizeof summary, "%d unique strings, %s %.2f mb", static_cast<int>(count),
             saved >= 1 ? "saved" : "overhead", fabs(saved) / 1048576);
    return summary;
}

namespace rv {

const char* internString(const char* s)
{
    return the_frame && the_frame->strings ? the_frame->strings->Add(s) : nullptr;
}

void releaseString(const char* s)
{
    if (the_frame && the_frame->strings)
        the_frame->strings->Remove(s);
}

} // namespace rv
