// work_queue: work that makes more work, shared by threads.
#include "work_queue.h"

#include "rv_threads.h"
#include "system/threads.h"

#include <algorithm>
#include <atomic>

namespace rv {

static constexpr int normal_priority = 2;

// Helpers that all queues of the process may still start. Workers that build many structures at
// once would otherwise each ask for as many threads as there are workers.
static constexpr int most_helpers = 63;
static std::atomic<int> helpers_left{ most_helpers };

// Takes up to `wanted` helpers from the budget; returns how many it got.
static int takeHelpers(int wanted)
{
    int left = helpers_left;
    int taken;
    do
        taken = std::clamp(wanted, 0, left);
    while (!helpers_left.compare_exchange_weak(left, left - taken));
    return taken;
}

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
    void* helpers[most_helpers];
    const int budget = takeHelpers(threads - 1);
    int started = 0;
    for (; started < budget; ++started)
        if (!(helpers[started] = tryCreateThread(helper, this, normal_priority)))
            break;
    work();
    for (int i = 0; i < started; ++i) {
        RvThreadWait(helpers[i]);
        RvThreadClose(helpers[i]);
    }
    helpers_left += budget;
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
