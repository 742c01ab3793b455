// work_queue: work that makes more work, shared by threads.
#include "work_queue.h"

#include "rv_threads.h"

#include <algorithm>

namespace rv {

static constexpr int normal_priority = 2;

void WorkQueue::add(uint32_t item)
{
    {
        const std::lock_guard guard(lock);
        items.push_back(item);
        ++unfinished;
    }
    changed.notify_one();
}

unsigned WorkQueue::helper(void* queue)
{
    static_cast<WorkQueue*>(queue)->work();
    return 0;
}

void WorkQueue::work()
{
    std::unique_lock guard(lock);
    for (;;) {
        changed.wait(guard, [this] { return !items.empty() || !unfinished; });
        if (items.empty())
            return;
        const uint32_t item = items.back();
        items.pop_back();
        guard.unlock();
        run(item);
        guard.lock();
        if (--unfinished == 0)
            changed.notify_all();
    }
}

void WorkQueue::process(int threads)
{
    std::vector<void*> helpers;
    for (int i = 1; i < threads; ++i)
        if (void* const thread = RvThreadCreate(helper, this, normal_priority))
            helpers.push_back(thread);
    work();
    for (void* const thread : helpers) {
        RvThreadWait(thread);
        RvThreadClose(thread);
    }
}

void inParts(int threads, size_t n, const std::function<void(size_t begin, size_t end)>& work)
{
    static constexpr size_t part = 32768;
    if (threads < 2 || n <= part)
        return work(0, n);
    WorkQueue queue([&](uint32_t i) { work(i * part, std::min(n, (i + 1) * part)); });
    for (uint32_t i = 0; i * part < n; ++i)
        queue.add(i);
    queue.process(threads);
}

} // namespace rv
