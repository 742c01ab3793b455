// strpool: the pool of interned strings. Declared by strpool.h.
//
// Open addressing with linear probing. Two things hold between calls: at least one slot has never
// been used, so that every search ends, and no slot that has never been used lies between a
// string and its home slot, so that every search finds.
//
// A table may be fifteen sixteenths full and then has long runs of used slots, all of which a
// search for an absent string must pass. So each slot has a one-byte tag, and a search compares
// sixteen tags at once; it reads a slot only when the tag agrees with that of the string.
#include "strpool.h"

#include "frame.h"
#include "hash.h"
#include "rv_msg.h"
#include "system/critical_section.h"
#include "system/memory.h"
#include "tag_group.h"

#include <algorithm>
#include <bit>
#include <new>
#include <stdio.h>
#include <string.h>

using Slot = RtStringPool::Slot;
using rv::TagGroup;
static_assert(sizeof(Slot) == 16);

static constexpr int removed_refs = -1;
static constexpr unsigned smallest_capacity = TagGroup::width;

static unsigned growThreshold(unsigned capacity) { return capacity / 16 * 15; }

// ---------------------------------------------------------------------------------- strings

namespace {

// A string to look for, measured and hashed once.
struct Key {
    explicit Key(const char* s) : text(s), length(strlen(s)), hash(rv::stringHash(s, length)) {}

    const char* text;
    size_t length;
    uint32_t hash; // chooses the home slot
};

// The slots of a pool, or those it is about to get.
struct Table {
    Slot* slots; // one block with the tags
    uint8_t* tags;
    unsigned capacity;
};

// Where a string stands, or where it belongs.
struct Place {
    unsigned index;
    bool present;
};

} // namespace

static constexpr uint8_t never_used_tag = 0;
static constexpr uint8_t removed_tag = 1;

// Tag of a string, from a hash of its own: numbered names often share the hash that chooses the
// slot, and it is just them that a search must tell apart without reading their slots.
static uint8_t liveTag(const Key& key)
{
    uint64_t mixed = key.length;
    const auto mixIn = [&](uint64_t word) {
        mixed = (mixed ^ word) * 0x9E3779B97F4A7C15u; // 2^64 over the golden ratio
        mixed ^= mixed >> 32;
    };
    const auto wordAt = [&](size_t offset, auto word) {
        memcpy(&word, key.text + offset, sizeof word);
        return uint64_t{ word };
    };
    const size_t n = key.length;
    if (n >= 8) { // whole words, the last one overlapping its predecessor
        for (size_t i = 0; i + 8 < n; i += 8)
            mixIn(wordAt(i, uint64_t{}));
        mixIn(wordAt(n - 8, uint64_t{}));
    } else if (n >= 4) {
        mixIn(wordAt(0, uint32_t{}) << 32 | wordAt(n - 4, uint32_t{}));
    } else if (n > 0) {
        mixIn(wordAt(0, uint8_t{}) << 16 | wordAt(n / 2, uint8_t{}) << 8 |
              wordAt(n - 1, uint8_t{}));
    }
    const auto tag = uint8_t(mixed >> 56);
    return tag > removed_tag ? tag : uint8_t(tag + 2);
}

// ------------------------------------------------------------------------------------ table

static Table tableOf(const RtStringPool* pool)
{
    return { pool->slots, pool->tags, pool->capacity };
}

// Without slots, after an error, when the heap is exhausted.
static Table allocateTable(uint64_t capacity)
{
    // A group that begins near the end reads the first tags again behind the last one.
    const uint64_t size = capacity * (sizeof(Slot) + sizeof(uint8_t)) + TagGroup::width;
    auto* const slots = static_cast<Slot*>(
        rv::allocateTable(size, "core\\src\\strpool", __LINE__, "RtStringPool::Resize"));
    if (!slots)
        return {};
    return { slots, reinterpret_cast<uint8_t*>(slots + capacity), unsigned(capacity) };
}

static void setTag(const Table& table, unsigned i, uint8_t tag)
{
    table.tags[i] = tag;
    if (i < TagGroup::width)
        table.tags[table.capacity + i] = tag;
}

static void setSlot(const Table& table, unsigned i, const Slot& slot, uint8_t tag)
{
    table.slots[i] = slot;
    setTag(table, i, tag);
}

// A search waits for memory rather than for arithmetic: ask early for what it will read.
static void prefetchHome(const Table& table, uint32_t hash)
{
    const unsigned home = hash & (table.capacity - 1);
    __builtin_prefetch(&table.tags[home]);
    __builtin_prefetch(&table.slots[home], 1);
}

static Place search(const Table& table, const Key& key, uint8_t tag)
{
    const unsigned mask = table.capacity - 1;
    unsigned first_removed = 0;
    bool removed_seen = false;
    for (unsigned i = key.hash & mask;; i = (i + TagGroup::width) & mask) {
        const auto indexOf = [&](unsigned bits) {
            return (i + unsigned(std::countr_zero(bits))) & mask;
        };
        const TagGroup group(&table.tags[i]);
        const unsigned unused = group.equalTo(never_used_tag);
        const unsigned in_run = unused ? (unused & -unused) - 1 : ~0u; // the slots before it
        for (unsigned same = group.equalTo(tag) & in_run; same; same &= same - 1) {
            const unsigned index = indexOf(same);
            const Slot& slot = table.slots[index];
            if (slot.hash == key.hash &&
                (slot.text == key.text || strcmp(slot.text, key.text) == 0))
                return { index, true };
        }
        if (const unsigned removed = group.equalTo(removed_tag) & in_run;
            removed && !removed_seen) {
            removed_seen = true;
            first_removed = indexOf(removed);
        }
        if (unused)
            return { removed_seen ? first_removed : indexOf(unused), false };
    }
}

// The first slot from the home of `hash` on that has never been used.
static unsigned firstUnused(const Table& table, uint32_t hash)
{
    const unsigned mask = table.capacity - 1;
    for (unsigned i = hash & mask;; i = (i + TagGroup::width) & mask)
        if (const unsigned unused = TagGroup(&table.tags[i]).equalTo(never_used_tag))
            return (i + unsigned(std::countr_zero(unused))) & mask;
}

// Moves the strings to an empty table of twice the capacity.
static void growInto(RtStringPool* pool, const Table& grown)
{
    for (unsigned i = 0; i < pool->capacity; ++i) {
        const Slot& slot = pool->slots[i];
        if (slot.refs > 0)
            setSlot(grown, firstUnused(grown, slot.hash), slot, pool->tags[i]);
    }
    RvFree_func(pool->slots);
    pool->slots = grown.slots;
    pool->tags = grown.tags;
    pool->capacity = grown.capacity;
    pool->grow_threshold = growThreshold(grown.capacity);
    pool->tombstones = 0;
    ++pool->resize_count;
}

// Makes every removed slot usable again, in place, so that it cannot fail. Starting behind a slot
// that was never used, every string is taken out and put back in order. Its home lies between the
// start and itself, so it only ever moves towards its home, into room that its predecessors left.
static void sweepRemoved(RtStringPool* pool)
{
    const Table table = tableOf(pool);
    const unsigned start = firstUnused(table, 0);
    for (unsigned i = 0; i < table.capacity; ++i)
        if (table.tags[i] == removed_tag)
            setSlot(table, i, {}, never_used_tag);
    for (unsigned step = 1; step < table.capacity; ++step) {
        const unsigned from = (start + step) & (table.capacity - 1);
        const Slot slot = table.slots[from];
        const uint8_t tag = table.tags[from];
        if (tag == never_used_tag)
            continue;
        setSlot(table, from, {}, never_used_tag);
        setSlot(table, firstUnused(table, slot.hash), slot, tag);
    }
    pool->tombstones = 0;
}

// Renaming one node in a loop leaves a removed slot each time. Without a sweep they would use up
// the unused slots, and with the last one every search for an absent string would never end.
// A sweep visits the whole table, so it waits until half of what is not live was removed; then a
// table full to the threshold is not swept at every call.
static bool needsSweep(const RtStringPool* pool)
{
    return pool->count + pool->tombstones >= pool->grow_threshold &&
           pool->tombstones >= (pool->capacity - pool->count) / 2;
}

// ------------------------------------------------------------------------------- operations

RtStringPool* RtStringPool::create(unsigned requested_capacity)
{
    const uint64_t capacity =
        std::bit_ceil(uint64_t{ std::max(requested_capacity, smallest_capacity) });
    void* const memory =
        RvMalloc_func(sizeof(RtStringPool), "core\\src\\strpool", __LINE__, "RtStringPool::create");
    if (RtStringPool* const pool = memory ? new (memory) RtStringPool{} : nullptr) {
        const Table table = allocateTable(capacity);
        if (table.slots)
            RvCritSecInitRecursive(&pool->lock);
        if (pool->lock.handle) {
            pool->slots = table.slots;
            pool->tags = table.tags;
            pool->capacity = table.capacity;
            pool->grow_threshold = growThreshold(table.capacity);
            return pool;
        }
        RvFree_func(table.slots);
        RvFree_func(pool);
    }
    RvMsgError("could not allocate string pool");
    return nullptr;
}

// Required: only the first leaked string is named, a single one gets no second line, and the
// leaked copies stay allocated for those who still point to them.
void RtStringPool::destroy(RtStringPool* pool)
{
    if (!pool)
        return;
    int leaked_count = 0;
    for (unsigned i = 0; i < pool->capacity; ++i) {
        const Slot& slot = pool->slots[i];
        if (slot.refs <= 0)
            continue;
        if (leaked_count++ == 0)
            RvMsgWarning("[strpool] String \"%s\" still has %d reference%s", slot.text, slot.refs,
                         slot.refs > 1 ? "s" : "");
    }
    if (leaked_count > 1)
        RvMsgWarning("[strpool] %d strings have not been properly released", leaked_count);
    RvCritSecClose(&pool->lock);
    RvFree_func(pool->slots);
    RvFree_func(pool);
}

static char* copyOf(const Key& key)
{
    void* const copy =
        rv::allocate(key.length + 1, "core\\src\\strpool", __LINE__, "RtStringPool::Add");
    return copy ? static_cast<char*>(memcpy(copy, key.text, key.length + 1)) : nullptr;
}

// Adds a string that is absent and whose place is `index`. All memory comes first: a failure
// leaves the table as it was.
static const char* addNew(RtStringPool* pool, const Key& key, uint8_t tag, unsigned index)
{
    const bool grows = pool->count + 1 > pool->grow_threshold;
    const Table grown = grows ? allocateTable(uint64_t{ pool->capacity } * 2) : Table{};
    if (grows && !grown.slots)
        return nullptr;
    char* const text = copyOf(key);
    if (!text) {
        RvFree_func(grown.slots);
        return nullptr;
    }
    if (pool->tags[index] == removed_tag) {
        --pool->tombstones;
    } else if (!grows && needsSweep(pool)) {
        sweepRemoved(pool);
        index = firstUnused(tableOf(pool), key.hash);
    }
    setSlot(tableOf(pool), index, { .refs = 1, .hash = key.hash, .text = text }, tag);
    ++pool->count;
    pool->max_count = std::max(pool->max_count, pool->count);
    if (grows)
        growInto(pool, grown);
    return text;
}

const char* RtStringPool::Add(const char* s)
{
    if (!s)
        return nullptr;
    const Key key(s);
    const rv::CritSecLock guard(&lock);
    const Table table = tableOf(this);
    prefetchHome(table, key.hash);
    const uint8_t tag = liveTag(key);
    const Place place = search(table, key, tag);
    if (!place.present) {
        __builtin_prefetch(&table.slots[place.index], 1);
        return addNew(this, key, tag, place.index);
    }
    Slot& slot = table.slots[place.index];
    ++slot.refs;
    ++hits;
    return slot.text;
}

// Drops one reference; false when the string is not in the pool. *unused becomes the copy when
// nobody holds it any more.
static bool dropReference(RtStringPool* pool, const Key& key, char** unused)
{
    const rv::CritSecLock guard(&pool->lock);
    const Table table = tableOf(pool);
    prefetchHome(table, key.hash);
    const Place place = search(table, key, liveTag(key));
    if (!place.present)
        return false;
    Slot& slot = table.slots[place.index];
    if (--slot.refs > 0)
        return true;
    *unused = slot.text;
    setSlot(table, place.index, { .refs = removed_refs, .hash = 0, .text = nullptr }, removed_tag);
    --pool->count;
    ++pool->tombstones;
    return true;
}

void RtStringPool::Remove(const char* s)
{
    char* unused = nullptr;
    if (s && !dropReference(this, Key(s), &unused))
        RvMsgWarning("RtStringPool: out of sync?  could not find entry `%s' to remove", s);
    RvFree_func(unused);
}

const char* RtStringPool::Summary()
{
    const rv::CritSecLock guard(&lock);
    int64_t saving = -int64_t(capacity * sizeof(Slot) + sizeof(RtStringPool));
    for (unsigned i = 0; i < capacity; ++i) {
        const Slot& slot = slots[i];
        if (slot.refs > 1)
            saving += int64_t(slot.refs - 1) * int64_t(strlen(slot.text) + 1);
    }
    const bool saved = saving >= 1;
    snprintf(summary, sizeof summary, "%d unique strings, %s %.2f mb", int(count),
             saved ? "saved" : "overhead", double(saved ? saving : -saving) / 1048576);
    return summary;
}

int64_t RtStringPool::bytes()
{
    const rv::CritSecLock guard(&lock);
    size_t sum = sizeof(RtStringPool) + capacity * (sizeof(Slot) + sizeof *tags);
    for (unsigned i = 0; i < capacity; ++i)
        if (slots[i].refs > 0 && slots[i].text)
            sum += strlen(slots[i].text) + 1;
    return int64_t(sum);
}

namespace rv {

static RtStringPool* poolOfUniverse() { return the_frame ? the_frame->strings : nullptr; }

const char* internString(const char* s)
{
    RtStringPool* const pool = poolOfUniverse();
    return pool ? pool->Add(s) : nullptr;
}

void releaseString(const char* s)
{
    if (RtStringPool* const pool = poolOfUniverse())
        pool->Remove(s);
}

} // namespace rv
