// threads: the threads of rv_threads.h over those of the platform.
//
// A handle is a record in a list of open handles, and every call looks its handle up there first.
// So a handle that was closed already, a null one and the pseudo-handle of RvThreadSelf need no
// rule of their own: they are not in the list, and the call does nothing.
#include "system/threads.h"
#include "rv_memory.h"
#include "rv_msg.h"
#include "rv_threads.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

// Workers trace and shade recursively, and a message takes 65 KiB of stack.
static constexpr size_t minimum_stack_bytes = size_t{ 8 } << 20;

namespace {

struct Thread {
    unsigned (*function)(void*);
    void* data;
    int priority;
    pthread_t id;
    // The rest is guarded by `lock`.
    Thread* next_open;
    bool joining;
    bool joined;
    bool closed;
    int users; // calls that use the record; the last one frees a closed record
};

} // namespace

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t thread_joined = PTHREAD_COND_INITIALIZER;
static Thread* open_threads;

namespace {

struct Guard {
    Guard() { pthread_mutex_lock(&lock); }
    ~Guard() { pthread_mutex_unlock(&lock); }
};

} // namespace

// The link that points to the record of an open handle, or null. Called under the lock.
static Thread** linkTo(const void* handle)
{
    for (Thread** link = &open_threads; *link; link = &(*link)->next_open)
        if (*link == handle)
            return link;
    return nullptr;
}

// Called under the lock.
static void releaseRecord(Thread* thread)
{
    if (--thread->users == 0 && thread->closed)
        RvFree_func(thread);
}

// Nice values of the priorities 0 to 3; every other priority counts as low. A value that the
// process may not take leaves the thread as it is.
static void applyPriority(int priority)
{
    static const int nice_values[] = { 19, 10, 0, -5 };
    const int nice_value = priority >= 0 && priority <= 3 ? nice_values[priority] : nice_values[1];
    setpriority(PRIO_PROCESS, id_t(gettid()), nice_value); // on this platform: of one thread
}

static void* threadMain(void* argument)
{
    auto* const thread = static_cast<Thread*>(argument);
    unsigned (*const function)(void*) = thread->function;
    void* const data = thread->data;
    applyPriority(thread->priority);
    {
        const Guard guard;
        releaseRecord(thread); // the handle may be closed, and the record gone, before the end
    }
    function(data);
    return nullptr;
}

static bool startThread(Thread* thread)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    size_t stack_bytes = 0;
    pthread_attr_getstacksize(&attributes, &stack_bytes);
    if (stack_bytes < minimum_stack_bytes)
        pthread_attr_setstacksize(&attributes, minimum_stack_bytes);
    const int error = pthread_create(&thread->id, &attributes, threadMain, thread);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

void* rv::tryCreateThread(unsigned (*function)(void*), void* data, int priority)
{
    auto* const thread = static_cast<Thread*>(
        RvMalloc_func(sizeof(Thread), "core\\src\\system\\threads", __LINE__, "RvThreadCreate"));
    if (thread)
        *thread = { .function = function,
                    .data = data,
                    .priority = priority,
                    .id = {},
                    .next_open = nullptr,
                    .joining = false,
                    .joined = false,
                    .closed = false,
                    .users = 1 }; // the thread, until it has read its orders
    if (!thread || !function || !startThread(thread)) {
        RvFree_func(thread);
        return nullptr;
    }
    const Guard guard;
    thread->next_open = open_threads;
    open_threads = thread;
    return thread;
}

void* RvThreadCreate(unsigned (*function)(void*), void* data, int priority)
{
    void* const thread = rv::tryCreateThread(function, data, priority);
    if (!thread)
        RvMsgError("thread creation failed");
    return thread;
}

void RvThreadWait(void* handle)
{
    const Guard guard;
    Thread** const link = linkTo(handle);
    if (!link || pthread_equal((*link)->id, pthread_self()))
        return;
    Thread* const thread = *link;
    ++thread->users;
    if (!thread->joining) {
        thread->joining = true;
        pthread_mutex_unlock(&lock);
        pthread_join(thread->id, nullptr);
        pthread_mutex_lock(&lock);
        thread->joined = true;
        pthread_cond_broadcast(&thread_joined);
    }
    while (!thread->joined)
        pthread_cond_wait(&thread_joined, &lock);
    releaseRecord(thread);
}

void RvThreadClose(void* handle)
{
    const Guard guard;
    Thread** const link = linkTo(handle);
    if (!link)
        return;
    Thread* const thread = *link;
    *link = thread->next_open;
    thread->closed = true;
    if (!thread->joining)
        pthread_detach(thread->id);
    ++thread->users;
    releaseRecord(thread);
}

void* RvThreadSelf(void)
{
    static char pseudo_handle;
    return &pseudo_handle;
}
