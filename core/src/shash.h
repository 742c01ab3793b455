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

#endif
