// shash: the simple hash. Declared by shash.h.
//
// At most half of the slots are live and at most three quarters live or removed, so every search
// meets an empty slot and ends.
#include "shash.h"

#include "strpool.h"
#include "system/critical_section.h"

#include <new>

using Slot = RtSimpleHash::Slot;

static constexpr unsigned first_capacity = 512;

static bool isEmpty(const Slot& slot) { return !slot.value; }
static bool isRemoved(const Slot& slot) { return slot.value && !slot.key; }
static bool isLive(const Slot& slot) { return slot.value && slot.key; }

namespace {

// Visits the slots of a hash value: steps of 1, 2, 3 and so on reach every slot of a table whose
// capacity is a power of two.
struct Probe {
    Probe(const RtSimpleHash* t, uint32_t hash) : Probe(t->slots, t->capacity, hash) {}
    Probe(Slot* s, unsigned capacity, uint32_t hash) : slots(s), mask(capacity - 1), i(hash & mask)
    {
    }
    Slot* slot() const { return &slots[i]; }
    void next() { i = (i + ++step) & mask; }

    Slot* slots;
    unsigned mask, i, step = 0;
};

} // namespace

RtSimpleHash* simpleHash_new()
{
    void* const memory =
        RvMalloc_func(sizeof(RtSimpleHash), "core\\src\\shash", __LINE__, "simpleHash_new");
    if (!memory)
        return nullptr;
    auto* const table = new (memory) RtSimpleHash{};
    table->capacity = first_capacity;
    table->slots = static_cast<Slot*>(rv::allocateTable(
        first_capacity * sizeof(Slot), "core\\src\\shash", __LINE__, "simpleHash_new"));
    if (table->slots)
        RvCritSecInitRecursive(&table->lock);
    if (!table->lock.handle) {
        RvFree_func(table->slots);
        RvFree_func(table);
        return nullptr;
    }
    return table;
}

// The live slot of the key, or null; then *vacant is the slot where it belongs.
static Slot* search(const RtSimpleHash* table, const char* key, uint32_t hash, Slot** vacant)
{
    Slot* first_removed = nullptr;
    for (Probe probe(table, hash);; probe.next()) {
        Slot* const slot = probe.slot();
        if (isEmpty(*slot)) {
            *vacant = first_removed ? first_removed : slot;
            return nullptr;
        }
        if (isRemoved(*slot)) {
            if (!first_removed)
                first_removed = slot;
        } else if (slot->hash == hash && (slot->key == key || strcmp(slot->key, key) == 0)) {
            return slot;
        }
    }
}

static Slot* firstEmpty(Slot* slots, unsigned capacity, uint32_t hash)
{
    Probe probe(slots, capacity, hash);
    while (!isEmpty(*probe.slot()))
        probe.next();
    return probe.slot();
}

static void moveInto(RtSimpleHash* table, Slot* slots, unsigned capacity)
{
    for (unsigned i = 0; i < table->capacity; ++i)
        if (isLive(table->slots[i]))
            *firstEmpty(slots, capacity, table->slots[i].hash) = table->slots[i];
    RvFree_func(table->slots);
    table->slots = slots;
    table->capacity = capacity;
    table->tombstones = 0;
}

// Puts the entry of slots[i] where its probing first meets a slot that is not settled. An entry
// that stood there comes back to slots[i]. Returns whether slots[i] has an entry left to settle.
static bool settleEntry(RtSimpleHash* table, unsigned i)
{
    Probe probe(table, table->slots[i].hash);
    while (probe.slot()->settled)
        probe.next();
    Slot* const target = probe.slot();
    std::swap(*target, table->slots[i]);
    target->settled = true;
    return isLive(table->slots[i]) && !table->slots[i].settled;
}

// Makes every removed slot usable again, in place, so that it cannot fail. Settled entries do not
// move any more, and all slots that a settled entry has passed are settled: no search breaks off.
static void sweepRemoved(RtSimpleHash* table)
{
    for (unsigned i = 0; i < table->capacity; ++i)
        if (isRemoved(table->slots[i]))
            table->slots[i] = {};
    for (unsigned i = 0; i < table->capacity; ++i)
        if (isLive(table->slots[i]) && !table->slots[i].settled)
            while (settleEntry(table, i)) {
            }
    for (unsigned i = 0; i < table->capacity; ++i)
        table->slots[i].settled = false;
    table->tombstones = 0;
}

// Renaming one node in a loop leaves a removed slot each time. Without a sweep they would use up
// the empty slots, and with the last one a search for an absent key would never end.
static bool needsSweep(const RtSimpleHash* table)
{
    return table->count + table->tombstones >= table->capacity / 4 * 3;
}

bool simpleHash_insert(RtSimpleHash* table, const char* key, void* value)
{
    if (!table || !key || !value)
        return false;
    const uint32_t hash = rv::stringHash(key);
    const rv::CritSecLock guard(&table->lock);
    Slot* vacant;
    if (Slot* const present = search(table, key, hash, &vacant)) {
        present->value = value;
        return true;
    }
    // All memory first: a failure leaves the table as it was.
    Slot* grown = nullptr;
    const uint64_t needed = 2 * uint64_t{ table->count } + 2;
    if (table->capacity < needed) {
        grown = static_cast<Slot*>(rv::allocateTable(uint64_t{ table->capacity } * 2 * sizeof(Slot),
                                                     "core\\src\\shash", __LINE__, "resize"));
        if (!grown)
            return false;
    }
    const char* const stored_key = table->intern_keys ? rv::internString(key) : key;
    if (!stored_key) {
        RvFree_func(grown);
        return false;
    }
    if (isRemoved(*vacant)) {
        --table->tombstones;
    } else if (!grown && needsSweep(table)) {
        sweepRemoved(table);
        vacant = firstEmpty(table->slots, table->capacity, hash);
    }
    *vacant = { .hash = hash, .settled = false, .key = stored_key, .value = value };
    ++table->count;
    if (grown)
        moveInto(table, grown, table->capacity * 2);
    return true;
}

void* simpleHash_lookupFrozen(const RtSimpleHash* table, const char* key)
{
    if (!table || !key)
        return nullptr;
    Slot* vacant;
    const Slot* const slot = search(table, key, rv::stringHash(key), &vacant);
    return slot ? slot->value : nullptr;
}

void* simpleHash_lookup(RtSimpleHash* table, const char* key)
{
    if (!table || !key)
        return nullptr;
    const rv::CritSecLock guard(&table->lock);
    return simpleHash_lookupFrozen(table, key);
}

void simpleHash_remove(RtSimpleHash* table, const char* key)
{
    if (!table || !key)
        return;
    const uint32_t hash = rv::stringHash(key);
    const rv::CritSecLock guard(&table->lock);
    Slot* vacant;
    Slot* const slot = search(table, key, hash, &vacant);
    if (!slot)
        return;
    const char* const stored_key = slot->key;
    slot->key = nullptr;
    --table->count;
    ++table->tombstones;
    if (table->intern_keys)
        rv::releaseString(stored_key);
}

void simpleHash_destroy(RtSimpleHash* table)
{
    if (!table)
        return;
    for (unsigned i = 0; table->intern_keys && i < table->capacity; ++i)
        if (isLive(table->slots[i]))
            rv::releaseString(table->slots[i].key);
    RvCritSecClose(&table->lock);
    RvFree_func(table->slots);
    RvFree_func(table);
}
