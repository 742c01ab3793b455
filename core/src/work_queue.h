// Work that makes more work, shared by threads.
#ifndef RV_WORK_QUEUE_H
#define RV_WORK_QUEUE_H

#include "system/memory.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stddef.h>
#include <stdint.h>
#include <vector>

namespace rv {

class WorkQueue {
public:
    using Run = std::function<void(uint32_t item)>;
    explicit WorkQueue(Run function) : run(std::move(function)) {}

    // Adds an item; items may add items.
    void add(uint32_t item);
    // Runs all items on the calling thread and up to threads - 1 others; returns when none is left.
    // Without threads to be had, the caller does it all. Items must not throw; adding one throws
    // std::bad_alloc when the heap is exhausted.
    void process(int threads);

private:
    static unsigned helper(void* queue);
    void work();

    Run run;
    std::mutex lock;
    std::condition_variable changed;
    std::vector<uint32_t, CheckedAllocator<uint32_t>> items;
    unsigned unfinished = 0; // waiting or running
};

// Calls work(begin, end) for the parts of [0, n), on several threads when n is large.
void inParts(int threads, size_t n, const std::function<void(size_t begin, size_t end)>& work);

} // namespace rv

#endif
