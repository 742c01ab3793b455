// The pool of interned, reference-counted strings behind every stored string of the universe.
#ifndef RV_STRPOOL_H
#define RV_STRPOOL_H

#include "rv_threads.h"

#include <stdint.h>

struct RtStringPool {
    struct Slot {
        int refs; // 0 never used, -1 removed, otherwise the number of holders
        uint32_t hash;
        char* text; // the pool's own copy
    };

    char summary[1024];
    unsigned count; // distinct strings held
    unsigned max_count;
    unsigned resize_count;
    unsigned grow_threshold; // floor(capacity * 15 / 16)
    unsigned hits;           // additions that found the string present
    RtCritSec lock;          // guards everything above and below
    Slot* slots;
    uint8_t* tags;       // one byte per slot, by which searches pass slots without reading them
    unsigned capacity;   // a power of two, at least 16
    unsigned tombstones; // removed slots not used again yet

    // Null, after an error, when the heap is exhausted.
    static RtStringPool* create(unsigned requested_capacity);
    static void destroy(RtStringPool* pool);

    // The pooled copy, with one reference more; null for null.
    const char* Add(const char* s);
    // Drops one reference.
    void Remove(const char* s);
    // One line about the saving, in `summary`.
    const char* Summary();
    // What the pool itself and the strings in it take.
    int64_t bytes();
};

namespace rv {

// Add and Remove on the pool of the universe. Without a pool nothing is kept: null.
const char* internString(const char* s);
void releaseString(const char* s);

} // namespace rv

#endif
