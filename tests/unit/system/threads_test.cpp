// Threads.
#include "rv_threads.h"

#include "frame_fixture.h"

#include <condition_variable>
#include <pthread.h>
#include <sys/resource.h>

class Threads : public BareFrame {
protected:
    // A flag on which a thread can be held and released.
    struct Gate {
        void open()
        {
            const std::lock_guard<std::mutex> guard(lock);
            is_open = true;
            opened.notify_all();
        }
        void pass()
        {
            std::unique_lock<std::mutex> guard(lock);
            opened.wait(guard, [this] { return is_open; });
        }
        std::mutex lock;
        std::condition_variable opened;
        bool is_open = false;
    };
};

static unsigned setTo42(void* data)
{
    *static_cast<int*>(data) = 42;
    return 7;
}

TEST_F(Threads, run_the_function_with_its_data_before_wait_returns)
{
    int result = 0;
    void* const thread = RvThreadCreate(setTo42, &result, 2);
    ASSERT_NE(thread, nullptr);
    RvThreadWait(thread);
    EXPECT_EQ(result, 42);
    RvThreadClose(thread);
}

// The nice value that a thread gets which asks for `nice_value`, with this user's privileges.
static int reachableNice(int nice_value)
{
    int reached = 0;
    std::thread([&] {
        setpriority(PRIO_PROCESS, id_t(gettid()), nice_value);
        reached = getpriority(PRIO_PROCESS, id_t(gettid()));
    }).join();
    return reached;
}

TEST_F(Threads, priorities_map_to_nice_values_and_unknown_ones_are_low)
{
    static const struct {
        int priority, nice_value;
    } cases[] = { { 0, 19 }, { 1, 10 },  { 2, 0 },   { 3, -5 },       { 7, 10 },
                  { 4, 10 }, { -1, 10 }, { 99, 10 }, { INT_MIN, 10 }, { INT_MAX, 10 } };
    for (const auto& c : cases) {
        int nice_value = 1000;
        void* const thread = RvThreadCreate(
            [](void* out) {
                *static_cast<int*>(out) = getpriority(PRIO_PROCESS, id_t(gettid()));
                return 0u;
            },
            &nice_value, c.priority);
        RvThreadWait(thread);
        RvThreadClose(thread);
        EXPECT_EQ(nice_value, reachableNice(c.nice_value)) << c.priority;
    }
    EXPECT_EQ(takeProblem(), ""); // lacking the privilege is silent
}

TEST_F(Threads, leave_the_priority_of_others_alone)
{
    const int before = getpriority(PRIO_PROCESS, id_t(gettid()));
    int result = 0;
    void* const thread = RvThreadCreate(setTo42, &result, 0);
    RvThreadWait(thread);
    RvThreadClose(thread);
    EXPECT_EQ(getpriority(PRIO_PROCESS, id_t(gettid())), before);
}

TEST_F(Threads, have_a_stack_for_deep_recursion)
{
    size_t stack_bytes = 0;
    void* const thread = RvThreadCreate(
        [](void* out) {
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, static_cast<size_t*>(out));
            pthread_attr_destroy(&attributes);
            return 0u;
        },
        &stack_bytes, 2);
    RvThreadWait(thread);
    RvThreadClose(thread);
    EXPECT_GE(stack_bytes, size_t{ 8 } << 20);
}

TEST_F(Threads, may_be_waited_for_again)
{
    int result = 0;
    void* const thread = RvThreadCreate(setTo42, &result, 2);
    RvThreadWait(thread);
    RvThreadWait(thread);
    RvThreadClose(thread);
    EXPECT_EQ(result, 42);
}

TEST_F(Threads, go_on_when_their_handle_is_closed)
{
    struct Shared {
        Gate begin, end;
    } shared;
    void* const thread = RvThreadCreate(
        [](void* data) {
            static_cast<Shared*>(data)->begin.pass();
            static_cast<Shared*>(data)->end.open();
            return 0u;
        },
        &shared, 2);
    RvThreadClose(thread);
    shared.begin.open();
    shared.end.pass();
}

static long addressSpaceKilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmSize:", 0) == 0)
            return std::stol(line.substr(7));
    return 0;
}

TEST_F(Threads, give_their_stack_back_in_whichever_way_they_are_closed)
{
    constexpr int count = 100;
    constexpr long stack_kilobytes = 8192;
    for (const bool waits : { false, true }) {
        const long before = addressSpaceKilobytes();
        ASSERT_GT(before, 0);
        std::atomic<int> ended = 0;
        for (int i = 0; i < count; ++i) {
            void* const thread = RvThreadCreate(
                [](void* data) {
                    ++*static_cast<std::atomic<int>*>(data);
                    return 0u;
                },
                &ended, 2);
            if (waits)
                RvThreadWait(thread);
            RvThreadClose(thread);
            while (ended <= i)
                std::this_thread::yield();
        }
        EXPECT_LT(addressSpaceKilobytes() - before, count * stack_kilobytes / 2) << waits;
    }
}

TEST_F(Threads, waiting_for_a_closed_handle_does_nothing)
{
    struct Shared {
        Gate begin, end;
    } shared;
    void* const thread = RvThreadCreate(
        [](void* data) {
            static_cast<Shared*>(data)->begin.pass();
            static_cast<Shared*>(data)->end.open();
            return 0u;
        },
        &shared, 2);
    RvThreadClose(thread);
    RvThreadWait(thread); // would never return if it waited
    RvThreadClose(thread);
    shared.begin.open();
    shared.end.pass();
}

TEST_F(Threads, handle_of_the_calling_thread_is_ignored_by_wait_and_close)
{
    void* const self = RvThreadSelf();
    EXPECT_NE(self, nullptr);
    EXPECT_EQ(RvThreadSelf(), self);
    RvThreadWait(self);
    RvThreadClose(self);
}

TEST_F(Threads, waiting_for_oneself_returns)
{
    struct Shared {
        Gate handle_known;
        void* handle;
    } shared;
    shared.handle = RvThreadCreate(
        [](void* data) {
            auto* const s = static_cast<Shared*>(data);
            s->handle_known.pass();
            RvThreadWait(s->handle);
            return 0u;
        },
        &shared, 2);
    shared.handle_known.open();
    RvThreadWait(shared.handle);
    RvThreadClose(shared.handle);
}

TEST_F(Threads, null_handles_are_ignored)
{
    RvThreadWait(nullptr);
    RvThreadClose(nullptr);
}

TEST_F(Threads, creation_without_a_function_fails)
{
    EXPECT_EQ(RvThreadCreate(nullptr, nullptr, 2), nullptr);
    EXPECT_EQ(takeProblem(), "thread creation failed");
}

TEST_F(Threads, creation_reports_an_exhausted_heap)
{
    rv::limitAllocations(0);
    int unused = 0;
    EXPECT_EQ(RvThreadCreate(setTo42, &unused, 2), nullptr);
    const std::string problem = takeProblemWithoutLines();
    EXPECT_NE(problem.find(" bytes in core\\src\\system\\threads:RvThreadCreate(): | thread "
                           "creation failed"),
              std::string::npos)
        << problem;
}

TEST_F(Threads, creation_reports_a_system_without_threads_to_give)
{
    // No address space is large enough for such a stack.
    pthread_attr_t attributes, defaults;
    pthread_attr_init(&attributes);
    pthread_getattr_default_np(&defaults);
    pthread_attr_setstacksize(&attributes, size_t{ 1 } << 60);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    int unused = 0;
    void* const thread = RvThreadCreate(setTo42, &unused, 2);
    pthread_setattr_default_np(&defaults);
    pthread_attr_destroy(&attributes);
    pthread_attr_destroy(&defaults);
    EXPECT_EQ(thread, nullptr);
    EXPECT_EQ(takeProblem(), "thread creation failed");
}

TEST_F(Threads, concurrent_waits_all_return_after_the_end)
{
    for (int round = 0; round < 20; ++round) {
        struct Shared {
            Gate begin;
            int result = 0;
        } shared;
        void* const thread = RvThreadCreate(
            [](void* data) {
                auto* const s = static_cast<Shared*>(data);
                s->begin.pass();
                s->result = 42;
                return 0u;
            },
            &shared, 2);
        onThreads(4, [&](int waiter) {
            if (waiter == 3)
                shared.begin.open();
            RvThreadWait(thread);
            EXPECT_EQ(shared.result, 42);
        });
        RvThreadClose(thread);
    }
}

TEST_F(Threads, concurrent_creation_waiting_and_closing_in_every_order)
{
    std::atomic<int> ended = 0;
    constexpr int per_thread = 20;
    onThreads(4, [&](int caller) {
        for (int i = 0; i < per_thread; ++i) {
            void* const thread = RvThreadCreate(
                [](void* data) {
                    ++*static_cast<std::atomic<int>*>(data);
                    return 0u;
                },
                &ended, i % 4);
            if ((i + caller) % 2)
                RvThreadWait(thread);
            RvThreadClose(thread);
            if ((i + caller) % 3)
                RvThreadWait(thread);
        }
    });
    while (ended < 4 * per_thread)
        std::this_thread::yield();
}
