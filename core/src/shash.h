// Two hash tables from strings: RtSimpleHash, thread-safe with removal, and RtHashNoDel, a
// generic map without removal.
#ifndef RV_SHASH_H
#define RV_SHASH_H

#include "hash.h"
#include "rv_threads.h"
#include "system/memory.h"

#include <new>
#include <stdint.h>
#include <string.h>
#include <type_traits>
#include <utility>

// From strings to non-null pointers. Open addressing with triangular probing.
struct RtSimpleHash {
    struct Slot {
        uint32_t hash;
        bool settled;    // only used while removed entries are swept out
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

// From strings to values, without removal. Keys are copied, values are small plain data. Open
// addressing with triangular probing; at most three quarters of the slots are occupied, so that
// every search ends. Not thread-safe.
template <class Value> class RtHashNoDel {
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    struct Slot {
        char* key;
        Value value;
    };

    // Over the occupied slots in slot order. Valid until the next insertion.
    class Iterator {
    public:
        std::pair<const char*, Value&> operator*() const
        {
            return { map->slots[index].key, map->slots[index].value };
        }
        const char* key() const { return map->slots[index].key; }
        Value& value() const { return map->slots[index].value; }
        Iterator& operator++()
        {
            ++index;
            skipUnoccupied();
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        friend RtHashNoDel;
        Iterator(const RtHashNoDel* m, uint64_t i) : map(m), index(i) {}
        void skipUnoccupied()
        {
            while (index < map->slot_count && !map->occupied[index])
                ++index;
        }

        const RtHashNoDel* map;
        uint64_t index;
    };

    RtHashNoDel() = default;
    RtHashNoDel(const RtHashNoDel&) = delete;
    RtHashNoDel& operator=(const RtHashNoDel&) = delete;
    ~RtHashNoDel();

    uint64_t size() const { return count; }
    uint64_t capacity() const { return slot_count; } // a power of two, or 0 before the first key

    Iterator begin() const
    {
        Iterator first(this, 0);
        first.skipUnoccupied();
        return first;
    }
    Iterator end() const { return Iterator(this, slot_count); }

    Iterator find(const char* key) const;
    bool contains(const char* key) const { return find(key) != end(); }

    // Adds the key unless it is present, and tells whether it was added. An exhausted heap, or a
    // null key, adds nothing and gives end().
    std::pair<Iterator, bool> insert(const char* key, const Value& value);

    // The value of the key, which is added with a zero value when absent. When it cannot be added
    // the value belongs to no key and is forgotten by the next failure.
    Value& operator[](const char* key);

private:
    static constexpr uint64_t first_capacity = 32;

    // Where the key stands, or the unoccupied slot where its search ends. The table has slots.
    uint64_t slotFor(const char* key, uint32_t hash) const;
    bool grow();

    Slot* slots = nullptr;
    uint8_t* occupied = nullptr; // per slot: 1 where it holds an entry
    uint64_t count = 0;
    uint64_t slot_count = 0;
    Value unplaced{}; // what operator[] gives when the heap is exhausted
};

template <class Value> RtHashNoDel<Value>::~RtHashNoDel()
{
    for (uint64_t i = 0; i < slot_count; ++i)
        if (occupied[i])
            RvFree_func(slots[i].key);
    RvFree_func(slots);
    RvFree_func(occupied);
}

template <class Value> uint64_t RtHashNoDel<Value>::slotFor(const char* key, uint32_t hash) const
{
    uint64_t i = hash & (slot_count - 1);
    for (uint64_t step = 1; occupied[i] && strcmp(slots[i].key, key) != 0; ++step)
        i = (i + step) & (slot_count - 1);
    return i;
}

template <class Value>
typename RtHashNoDel<Value>::Iterator RtHashNoDel<Value>::find(const char* key) const
{
    if (!key || count == 0)
        return end();
    const uint64_t i = slotFor(key, rv::stringHash(key));
    return occupied[i] ? Iterator(this, i) : end();
}

// Doubles the table. False, with the table unchanged, when the heap is exhausted.
template <class Value> bool RtHashNoDel<Value>::grow()
{
    const uint64_t wanted = count + 1 > 2 * slot_count ? count + 1 : 2 * slot_count;
    uint64_t new_capacity = slot_count > first_capacity ? slot_count : first_capacity;
    while (new_capacity < wanted)
        new_capacity *= 2;

    RtHashNoDel grown;
    grown.slots = static_cast<Slot*>(
        rv::allocateTable(new_capacity * sizeof(Slot), "core\\src\\shash", __LINE__, "resize"));
    grown.occupied = static_cast<uint8_t*>(
        grown.slots ? rv::allocateTable(new_capacity, "core\\src\\shash", __LINE__, "resize")
                    : nullptr);
    if (!grown.occupied)
        return false;
    grown.slot_count = new_capacity;
    for (uint64_t i = 0; i < slot_count; ++i)
        if (occupied[i]) {
            const uint64_t to = grown.slotFor(slots[i].key, rv::stringHash(slots[i].key));
            grown.slots[to] = slots[i];
            grown.occupied[to] = 1;
            occupied[i] = 0; // the key has moved
        }
    std::swap(slots, grown.slots);
    std::swap(occupied, grown.occupied);
    std::swap(slot_count, grown.slot_count);
    return true;
}

template <class Value>
std::pair<typename RtHashNoDel<Value>::Iterator, bool>
RtHashNoDel<Value>::insert(const char* key, const Value& value)
{
    if (!key)
        return { end(), false };
    if (const Iterator present = find(key); present != end())
        return { present, false };
    const Value kept = value; // it may live in the table that grows
    if (4 * count >= 3 * slot_count && !grow())
        return { end(), false };
    const size_t length = strlen(key);
    char* const copy = static_cast<char*>(
        rv::allocate(length + 1, "core\\src\\shash", __LINE__, "RtHashNoDel::insert"));
    if (!copy)
        return { end(), false };
    const uint64_t i = slotFor(key, rv::stringHash(key, length));
    slots[i] = { static_cast<char*>(memcpy(copy, key, length + 1)), kept };
    occupied[i] = 1;
    ++count;
    return { Iterator(this, i), true };
}

template <class Value> Value& RtHashNoDel<Value>::operator[](const char* key)
{
    const Iterator placed = insert(key, Value{}).first;
    if (placed != end())
        return placed.value();
    unplaced = Value{};
    return unplaced;
}

#endif
