// Tests of core/src/objects/object_cache.cpp: when caches of objects are freed.
#include "objects/object_cache.h"

#include "frame_fixture.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

std::atomic<int> live;

struct Cache : RtObjectCache {
    Cache() { ++live; }
    ~Cache() override
    {
        is_whole = false;
        --live;
    }
    bool is_whole = true;
};

} // namespace

TEST(ObjectCache, what_nobody_reads_is_freed_at_once)
{
    rv::retireCache(nullptr);
    rv::retireCache(new Cache);
    EXPECT_EQ(live, 0);
    {
        const rv::CacheReader earlier(0);
    }
    rv::retireCache(new Cache);
    EXPECT_EQ(live, 0);
}

TEST(ObjectCache, what_is_read_goes_with_the_last_reader)
{
    auto first = std::make_unique<rv::CacheReader>(0);
    auto second = std::make_unique<rv::CacheReader>(0); // one inside the other
    auto last = std::make_unique<rv::CacheReader>(rv::worker_slot_count - 1);
    for (int i = 1; i <= 3; ++i) {
        rv::retireCache(new Cache);
        EXPECT_EQ(live, i);
    }
    second.reset();
    EXPECT_EQ(live, 3);
    first.reset();
    EXPECT_EQ(live, 3);
    last.reset();
    EXPECT_EQ(live, 0);
}

TEST(ObjectCache, concurrent_readers_find_whole_caches_only)
{
    constexpr int threads = 6, rounds = 3000;
    std::atomic<Cache*> place = nullptr;
    onThreads(threads, [&](int thread) {
        for (int i = 0; i < rounds; ++i) {
            if (thread < 2) {
                rv::retireCache(place.exchange(new Cache));
                continue;
            }
            const rv::CacheReader reader(thread);
            const Cache* const cache = place;
            EXPECT_TRUE(!cache || cache->is_whole);
        }
    });
    EXPECT_EQ(live, 1);
    rv::retireCache(place.exchange(nullptr));
    EXPECT_EQ(live, 0) << "none was forgotten";
}
