// Tests of the queue of work that makes more work.
#include "work_queue.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vector>

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

// 64 workers that build many structures at once share the helpers of the process.
TEST(WorkQueue, concurrent_queues_share_a_budget_of_threads)
{
    std::atomic<int> running = 0, most = 0;
    const auto processAQueue = [&] {
        rv::WorkQueue queue([&](uint32_t) {
            const int now = ++running;
            for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            --running;
        });
        for (uint32_t i = 0; i < 100; ++i)
            queue.add(i);
        queue.process(64);
    };
    std::vector<std::thread> hosts;
    for (int i = 0; i < 8; ++i)
        hosts.emplace_back(processAQueue);
    for (std::thread& host : hosts)
        host.join();
    EXPECT_LE(most, 8 + 63);
    EXPECT_GT(most, 8);
    processAQueue(); // the helpers were given back
    EXPECT_EQ(running, 0);
}

// Parts of 32768 are what threads share.
TEST(InParts, concurrent_parts_cover_everything_once)
{
    for (const size_t n :
         { 0u, 1u, 1000u, 32767u, 32768u, 32769u, 65535u, 65536u, 98304u, 100000u })
        for (const int threads : { 0, 1, 2, 5 }) {
            std::mutex lock;
            std::vector<std::pair<size_t, size_t>> parts;
            rv::inParts(threads, n, [&](size_t begin, size_t end) {
                const std::lock_guard guard(lock);
                parts.emplace_back(begin, end);
            });
            std::sort(parts.begin(), parts.end());
            size_t covered = 0;
            for (const auto& [begin, end] : parts) {
                EXPECT_EQ(begin, covered) << n << " " << threads;
                EXPECT_TRUE(begin < end || n == 0) << n << " " << threads;
                covered = end;
            }
            EXPECT_EQ(covered, n) << threads;
            EXPECT_EQ(parts.size() > 1, threads > 1 && n > 32768) << n << " " << threads;
        }
}
