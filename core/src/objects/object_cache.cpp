// object_cache: frees caches of objects that nobody reads any longer. Declared by object_cache.h.
#include "objects/object_cache.h"

#include "frame.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace rv {

namespace {

// On a line of its own, for every lookup of a render thread changes it.
struct alignas(64) ReaderCount {
    std::atomic<int> count = 0;
};

} // namespace

static ReaderCount readers[worker_slot_count];

static std::mutex retired_lock;
static std::atomic<RtObjectCache*> retired; // a list; changed under the lock

static bool isRead()
{
    return std::any_of(readers, readers + worker_slot_count,
                       [](const ReaderCount& reader) { return reader.count != 0; });
}

// Who reads a retired cache counted itself before it found it, and so before it was retired. Who
// retires one looks for readers afterwards, and a reader looks for retired ones after it is done:
// one of the two frees it.
static void freeUnread()
{
    RtObjectCache* list = nullptr;
    {
        const std::lock_guard<std::mutex> guard(retired_lock);
        if (!isRead())
            list = retired.exchange(nullptr);
    }
    while (RtObjectCache* const cache = list) {
        list = cache->next_retired;
        delete cache;
    }
}

void retireCache(RtObjectCache* cache)
{
    if (!cache)
        return;
    {
        const std::lock_guard<std::mutex> guard(retired_lock);
        cache->next_retired = retired;
        retired = cache;
    }
    freeUnread();
}

CacheReader::CacheReader(int thread) : slot(thread) { ++readers[slot].count; }

CacheReader::~CacheReader()
{
    --readers[slot].count;
    if (retired)
        freeUnread();
}

} // namespace rv
