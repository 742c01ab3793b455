// Tests of the queue of work that makes more work.
#include "work_queue.h"

#include <atomic>
#include <gtest/gtest.h>

TEST(WorkQueue, concurrent_items_that_add_items_all_run_once)
{
    for (int threads : { 0, 1, 2, 16 }) {
        std::atomic<uint32_t> runs[1000] = {};
        rv::WorkQueue* shared = nullptr;
        rv::WorkQueue queue([&](uint32_t item) {
            ++runs[item];
            for (uint32_t child : { 2 * item + 1, 2 * item + 2 })
                if (child < 1000)
                    shared->add(child);
        });
        shared = &queue;
        queue.add(0);
        queue.process(threads);
        for (const auto& count : runs)
            EXPECT_EQ(count, 1u);
    }
}

TEST(WorkQueue, an_empty_queue_is_done_at_once)
{
    rv::WorkQueue queue([](uint32_t) { FAIL(); });
    queue.process(4);
}
