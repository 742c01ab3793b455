// shash: the simple hash from strings to pointers.
#include "shash.h"

#include "rv_msg.h"
#include "strpool.h"

#include <new>

static const char* const module_path = "core\\src\\shash";

namespace {

constexpr unsigned initial_capacity = 512;

struct TableGuard {
    explicit TableGuard(RtSimpleHash* t) : table(t) { RvCritSecEnter(&table->lock); }
    ~TableGuard() { RvCritSecLeave(&table->lock); }
    TableGuard(const TableGuard&) = delete;
    TableGuard& operator=(const TableGuard&) = delete;
    RtSimpleHash* table;
};

RtSimpleHash::Slot* createSlots(unsigned capacity, const char* location)
{
    return static_cast<RtSimpleHash::Slot*>(
        rv::allocateTable(capacity, sizeof(RtSimpleHash::Slot), module_path, __LINE__, location));
}

struct Probe {
    RtSimpleHash::Slot* found; // the live slot of the key, or null
    RtSimpleHash::Slot* free;  // where it would go
};

// Steps of 1, 2, 3, ... visit every slot of a table whose size is a power of two. The search ends
// at an empty slot; there always is one.
Probe probe(const RtSimpleHash* table, const char* key, uint32_t hash)
{
    const unsigned mask = table->capacity - 1;
    RtSimpleHash::Slot* tombstone = nullptr;
    unsigned i = hash & mask;
    for (unsigned step = 1;; i = (i + step++) & mask) {
        RtSimpleHash::Slot* const slot = &table->slots[i];
        if (!slot->value)
            return { nullptr, tombstone ? tombstone : slot };
        if (!slot->key) {
            if (!tombstone)
                tombstone = slot;
        } else if (slot->hash == hash && !strcmp(slot->key, key)) {
            return { slot, nullptr };
        }
    }
}

void insertInto(RtSimpleHash::Slot* slots, unsigned capacity, const RtSimpleHash::Slot& entry)
{
    const unsigned mask = capacity - 1;
    unsigned i = entry.hash & mask;
    for (unsigned step = 1; slots[i].value; i = (i + step++) & mask) {
    }
    slots[i] = entry;
}

// Moves the live entries to a table of the given capacity. False when the heap is exhausted.
bool rebuild(RtSimpleHash* table, unsigned capacity)
{
    RtSimpleHash::Slot* const slots = createSlots(capacity, "resize");
    if (!slots)
        return false;
    for (unsigned i = 0; i < table->capacity; ++i)
        if (table->slots[i].value && table->slots[i].key)
            insertInto(slots, capacity, table->slots[i]);
    RvFree_func(table->slots);
    table->slots = slots;
    table->capacity = capacity;
    table->tombstones = 0;
    return true;
}

// Live entries alone decide about growth. Tombstones end no search, so when the two together fill
// three quarters of the table, the tombstones are swept out.
void keepSearchesShort(RtSimpleHash* table)
{
    if (table->capacity < 2 * uint64_t(table->count))
        rebuild(table, table->capacity * 2);
    else if ((table->count + table->tombstones) * uint64_t(4) > table->capacity * uint64_t(3))
        rebuild(table, table->capacity);
}

// Whether one more entry leaves an empty slot, after growth has failed too.
bool hasRoom(RtSimpleHash* table)
{
    return table->count + table->tombstones + 1 < table->capacity ||
           rebuild(table, table->capacity * 2);
}

} // namespace

RtSimpleHash* simpleHash_new()
{
    void* const memory =
        RvMalloc_func(sizeof(RtSimpleHash), module_path, __LINE__, "simpleHash_new");
    if (!memory)
        return nullptr;
    RtSimpleHash* const table = new (memory) RtSimpleHash{};
    table->capacity = initial_capacity;
    table->slots = createSlots(initial_capacity, "simpleHash_new");
    RvCritSecInit(&table->lock);
    if (table->slots && table->lock.handle)
        return table;
    simpleHash_destroy(table);
    return nullptr;
}

bool simpleHash_insert(RtSimpleHash* table, const char* key, void* value)
{
    if (!table || !key || !value)
        return false;
    const uint32_t hash = rv::stringHash(key);
    const TableGuard guard(table);
    const Probe at = probe(table, key, hash);
    if (at.found) {
        at.found->value = value;
        return true;
    }
    if (!hasRoom(table))
        return false;
    const char* const kept = table->intern_keys ? rv::internString(key) : key;
    if (!kept)
        return false;
    RtSimpleHash::Slot* const slot = probe(table, key, hash).free;
    if (slot->value)
        --table->tombstones;
    *slot = { hash, kept, value };
    ++table->count;
    keepSearchesShort(table);
    return true;
}

void* simpleHash_lookup(RtSimpleHash* table, const char* key)
{
    if (!table || !key)
        return nullptr;
    const uint32_t hash = rv::stringHash(key);
    const TableGuard guard(table);
    const RtSimpleHash::Slot* const slot = probe(table, key, hash).found;
    return slot ? slot->value : nullptr;
}

void* simpleHash_lookupFrozen(const RtSimpleHash* table, const char* key)
{
    const RtSimpleHash::Slot* const slot = probe(table, key, rv::stringHash(key)).found;
    return slot ? slot->value : nullptr;
}

void simpleHash_remove(RtSimpleHash* table, const char* key)
{
    if (!table || !key)
        return;
    const uint32_t hash = rv::stringHash(key);
    const TableGuard guard(table);
    RtSimpleHash::Slot* const slot = probe(table, key, hash).found;
    if (!slot)
        return;
    if (table->intern_keys)
        rv::releaseString(slot->key);
    slot->key = nullptr;
    --table->count;
    ++table->tombstones;
}

void simpleHash_destroy(RtSimpleHash* table)
{
    if (!table)
        return;
    for (unsigned i = 0; table->slots && table->intern_keys && i < table->capacity; ++i)
        if (table->slots[i].value && table->slots[i].key)
            rv::releaseString(table->slots[i].key);
    RvCritSecClose(&table->lock);
    RvFree_func(table->slots);
    RvFree_func(table);
}
