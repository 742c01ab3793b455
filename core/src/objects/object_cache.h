// What is kept with objects for later renders, and for how long it stays when it is dropped.
//
// Any thread of the host may drop caches while others read them, also between renders. A thread
// says when it reads, and what is dropped meanwhile is freed when the last reader is done.
#ifndef RV_OBJECT_CACHE_H
#define RV_OBJECT_CACHE_H

// Its owner derives its own record.
struct RtObjectCache {
    virtual ~RtObjectCache() = default;

    RtObjectCache* next_retired = nullptr; // among those that are to be freed
};

namespace rv {

// For the length of a scope in which a thread, by its worker slot, finds and reads caches of
// objects: none that it may have found is freed.
class CacheReader {
public:
    explicit CacheReader(int thread);
    ~CacheReader();
    CacheReader(const CacheReader&) = delete;
    CacheReader& operator=(const CacheReader&) = delete;

private:
    const int slot;
};

// Frees a cache that was taken from its object, now or when the last reader is done. Null is fine.
void retireCache(RtObjectCache* cache);

} // namespace rv

#endif
