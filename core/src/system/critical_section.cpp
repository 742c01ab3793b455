// critical_section: the lock primitive of the library, always recursive. Declared by rv_threads.h.
#include "rv_memory.h"
#include "rv_threads.h"

#include <mutex>
#include <new>

static std::recursive_mutex* mutexOf(const RtCritSec* cs)
{
    return cs ? static_cast<std::recursive_mutex*>(cs->handle) : nullptr;
}

void RvCritSecInit(RtCritSec* cs)
{
    if (!cs)
        return;
    void* const memory =
        RvMalloc_func(sizeof(std::recursive_mutex), "core\\src\\system\\critical_section", __LINE__,
                      "RvCritSecInit");
    cs->handle = memory ? new (memory) std::recursive_mutex : nullptr;
}

void RvCritSecInitRecursive(RtCritSec* cs) { RvCritSecInit(cs); }

void RvCritSecEnter(RtCritSec* cs)
{
    if (std::recursive_mutex* const mutex = mutexOf(cs))
        mutex->lock();
}

void RvCritSecLeave(RtCritSec* cs)
{
    if (std::recursive_mutex* const mutex = mutexOf(cs))
        mutex->unlock();
}

void RvCritSecClose(RtCritSec* cs)
{
    std::recursive_mutex* const mutex = mutexOf(cs);
    if (!mutex)
        return;
    cs->handle = nullptr;
    mutex->~recursive_mutex();
    RvFree_func(mutex);
}
