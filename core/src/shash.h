// Two hash tables from strings: RtSimpleHash, thread-safe with removal, and RtHashNoDel, a
// generic map without removal.
#ifndef RV_SHASH_H
#define RV_SHASH_H

#include "hash.h"
#include "rv_threads.h"
#include "system/memory.h"

#include <stdint.h>
#include <string.h>

// From strings to non-null pointers. Open addressing with triangular probing.
struct RtSimpleHash {
    struct Slot {
        uint32_t hash;
        const char* key; // null with a value: a removed entry
        void* value;     // null: an empty slot
    };

    unsigned count;
    unsigned capacity; // a power of two
    Slot* slots;
    RtCritSec lock;      // guards everything in the record
    bool intern_keys;    // keys are held in the string pool; otherwise they belong to the caller
    unsigned tombstones; // removed slots not used again yet
};

RtSimpleHash* simpleHash_new();
// Sets or replaces. False, with the table unchanged, when the heap is exhausted or value is null.
bool simpleHash_insert(RtSimpleHash* table, const char* key, void* value);
void* simpleHash_lookup(RtSimpleHash* table, const char* key);
// The same without the lock, for a table that no longer changes.
void* simpleHash_lookupFrozen(const RtSimpleHash* table, const char* key);
void simpleHash_remove(RtSimpleHash* table, const char* key);
void simpleHash_destroy(RtSimpleHash* table);

// A map from strings to values of pointer size, without removal. Open addressing with triangular
// probing; full at three quarters. Keys are owned copies. Not thread-safe.
template <class Value> class RtHashNoDel {
public:
    struct Pair {
        char* key;
        Value value;
    };

    // Visits the occupied slots in slot order.
    class Iterator {
    public:
        Iterator(const RtHashNoDel* m, uint64_t s) : map(m), slot(s) { skipUnoccupied(); }
        Pair& operator*() const { return map->slots[slot]; }
        Pair* operator->() const { return &map->slots[slot]; }
        Iterator& operator++()
        {
            ++slot;
            skipUnoccupied();
            return *this;
        }
        bool operator==(const Iterator& other) const { return slot == other.slot; }

    private:
        void skipUnoccupied()
        {
            while (slot < map->slot_count && !map->occupied[slot])
                ++slot;
        }
        const RtHashNoDel* map;
        uint64_t slot;
    };

    RtHashNoDel() = default;
    RtHashNoDel(const RtHashNoDel&) = delete;
    RtHashNoDel& operator=(const RtHashNoDel&) = delete;
    ~RtHashNoDel()
    {
        for (Pair& pair : *this)
            RvFree_func(pair.key);
        RvFree_func(slots);
        RvFree_func(occupied);
    }

    uint64_t size() const { return count; }
    uint64_t capacity() const { return slot_count; }
    Iterator begin() const { return { this, 0 }; }
    Iterator end() const { return { this, slot_count }; }

    Iterator find(const char* key) const
    {
        if (!count)
            return end();
        const uint64_t slot = slotOf(key);
        return occupied[slot] ? Iterator(this, slot) : end();
    }
    bool contains(const char* key) const { return !(find(key) == end()); }

    // The value of the key, zero when it is new; null when the heap is exhausted.
    Value* lookUpOrInsert(const char* key)
    {
        if (const Iterator found = find(key); !(found == end()))
            return &found->value;
        if (4 * count >= 3 * slot_count && !grow())
            return nullptr;
        char* const copy = RvMemPoolStrdup(key, nullptr);
        if (!copy)
            return nullptr;
        const uint64_t slot = slotOf(key);
        slots[slot] = { copy, Value() };
        occupied[slot] = 1;
        ++count;
        return &slots[slot].value;
    }
    // As lookUpOrInsert, which must not fail.
    Value& operator[](const char* key) { return *lookUpOrInsert(key); }
    // False when the key is there already, whose value stays, or when the heap is exhausted.
    bool insert(const char* key, const Value& value)
    {
        if (contains(key))
            return false;
        Value* const place = lookUpOrInsert(key);
        if (place)
            *place = value;
        return place != nullptr;
    }

private:
    static_assert(sizeof(Value) <= sizeof(void*));

    // The slot that holds the key, or the unoccupied one where its search ends.
    uint64_t slotOf(const char* key) const
    {
        uint64_t slot = rv::stringHash(key) & (slot_count - 1);
        for (uint64_t step = 1; occupied[slot] && strcmp(slots[slot].key, key) != 0; ++step)
            slot = (slot + step) & (slot_count - 1);
        return slot;
    }

    bool grow()
    {
        const uint64_t wanted = count + 1 > 2 * slot_count ? count + 1 : 2 * slot_count;
        uint64_t capacity_wanted = slot_count > 32 ? slot_count : 32;
        while (capacity_wanted < wanted)
            capacity_wanted *= 2;
        return rebuild(capacity_wanted);
    }

    bool rebuild(uint64_t new_capacity)
    {
        Pair* const new_slots = static_cast<Pair*>(rv::allocateTable(
            new_capacity, sizeof(Pair), "core\\src\\shash", __LINE__, "RtHashNoDel"));
        uint8_t* const new_occupied = static_cast<uint8_t*>(
            rv::allocateTable(new_capacity, 1, "core\\src\\shash", __LINE__, "RtHashNoDel"));
        if (!new_slots || !new_occupied) {
            RvFree_func(new_slots);
            RvFree_func(new_occupied);
            return false;
        }
        Pair* const old_slots = slots;
        uint8_t* const old_occupied = occupied;
        const uint64_t old_capacity = slot_count;
        slots = new_slots;
        occupied = new_occupied;
        slot_count = new_capacity;
        for (uint64_t i = 0; i < old_capacity; ++i)
            if (old_occupied[i]) {
                const uint64_t slot = slotOf(old_slots[i].key);
                slots[slot] = old_slots[i];
                occupied[slot] = 1;
            }
        RvFree_func(old_slots);
        RvFree_func(old_occupied);
        return true;
    }

    Pair* slots = nullptr;
    uint8_t* occupied = nullptr; // 1 where a slot holds an entry
    uint64_t count = 0;
    uint64_t slot_count = 0; // a power of two, or 0
};

#endif
