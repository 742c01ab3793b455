// work_queue: work that makes more work, shared by threads.
#include "work_queue.h"

#include "rv_threads.h"

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

} // namespace rv
