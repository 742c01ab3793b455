// threads: threads with priorities (rv_threads.h).
#include "rv_memory.h"
#include "rv_msg.h"
#include "rv_threads.h"

#include <atomic>
#include <new>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

static const char* const module_path = "core\\src\\system\\threads";

namespace {

// Shared by the handle and the thread: the last of the two to be done frees it.
struct Thread {
    unsigned (*function)(void*);
    void* data;
    int nice_value;
    pthread_t id;
    bool joined; // by the owner of the handle
    std::atomic<int> holders;
};

char self_handle; // RvThreadSelf returns its address

int niceValue(int priority)
{
    static const int values[] = { 19, 10, 0, -5 }; // lowest, low, normal, high
    return priority >= 0 && priority < 4 ? values[priority] : values[1];
}

void letGo(Thread* thread)
{
    if (--thread->holders > 0)
        return;
    thread->~Thread();
    RvFree_func(thread);
}

void* run(void* argument)
{
    Thread* const thread = static_cast<Thread*>(argument);
    // Without the privilege to raise it the priority stays what it is.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), thread->nice_value);
    thread->function(thread->data);
    letGo(thread);
    return nullptr;
}

bool isThread(const void* handle) { return handle && handle != &self_handle; }

} // namespace

void* RvThreadCreate(unsigned int (*function)(void*), void* data, int priority)
{
    void* const memory = RvMalloc_func(sizeof(Thread), module_path, __LINE__, "RvThreadCreate");
    if (memory && function) {
        Thread* const thread =
            new (memory) Thread{ function, data, niceValue(priority), {}, false, 2 };
        if (pthread_create(&thread->id, nullptr, run, thread) == 0)
            return thread;
    }
    RvFree_func(memory);
    RvMsgError("thread creation failed");
    return nullptr;
}

void RvThreadWait(void* handle)
{
    Thread* const thread = isThread(handle) ? static_cast<Thread*>(handle) : nullptr;
    if (thread && !thread->joined && !pthread_equal(thread->id, pthread_self()))
        thread->joined = pthread_join(thread->id, nullptr) == 0;
}

void RvThreadClose(void* handle)
{
    Thread* const thread = isThread(handle) ? static_cast<Thread*>(handle) : nullptr;
    if (!thread)
        return;
    if (!thread->joined)
        pthread_detach(thread->id);
    letGo(thread);
}

void* RvThreadSelf(void) { return &self_handle; }
