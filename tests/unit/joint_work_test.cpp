// Tests of work that the threads which wait for its result do together.
#include "joint_work.h"

#include "frame_fixture.h"

#include <gtest/gtest.h>
#include <utility>

// ---- One thread ----

TEST(JointWork, one_thread_does_all_the_pieces_in_order)
{
    rv::JointWork work;
    std::string done;
    for (int count : { 3, 0, 2 })
        work.lead(7, count, [&](int thread, int i) {
            done += std::to_string(thread) + ":" + std::to_string(i) + " ";
            return true;
        });
    EXPECT_EQ(done, "7:0 7:1 7:2 7:0 7:1 ");
}

TEST(JointWork, joining_without_work_returns_at_once)
{
    rv::JointWork work;
    work.join(1);
    int pieces = 0;
    work.lead(0, 5, [&](int, int) { return ++pieces > 0; });
    work.join(1);
    EXPECT_EQ(pieces, 5);
}

TEST(JointWork, a_piece_may_give_the_work_up)
{
    rv::JointWork work;
    std::string done;
    const auto upToTwo = [&](int, int i) {
        done += std::to_string(i);
        return i < 2;
    };
    EXPECT_FALSE(work.lead(0, 5, upToTwo));
    EXPECT_EQ(done, "012");
    EXPECT_TRUE(work.lead(0, 2, upToTwo)) << "which the next work does not remember";
    EXPECT_EQ(done, "01201");
}

// ---- Several threads ----

TEST(JointWork, concurrent_threads_that_join_do_every_piece_once)
{
    for (int round = 0; round < 50; ++round) {
        constexpr int count = 300, threads = 8;
        rv::JointWork work;
        int runs[count] = {}, done_by[threads] = {};
        std::atomic<bool> is_led = false;
        onThreads(threads, [&](int thread) {
            if (is_led.exchange(true)) {
                work.join(thread);
                return;
            }
            work.lead(thread, count, [&](int t, int i) {
                ++runs[i]; // every piece and every thread has its own place
                ++done_by[t];
                return true;
            });
            int all = 0; // the leader sees everything when it returns
            for (int t = 0; t < threads; ++t)
                all += done_by[t];
            EXPECT_EQ(all, count);
        });
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(runs[i], 1) << i;
    }
}

TEST(JointWork, concurrent_helpers_share_the_pieces)
{
    rv::JointWork work;
    std::atomic<int> present = 0;
    int done_by[2] = {};
    onThreads(2, [&](int thread) {
        if (thread == 1) {
            while (present == 0)
                std::this_thread::yield();
            work.join(1);
            return;
        }
        work.lead(0, 2, [&](int t, int) { // neither piece ends before both have begun
            ++done_by[t];
            for (++present; present < 2;)
                std::this_thread::yield();
            return true;
        });
    });
    EXPECT_EQ(done_by[0], 1);
    EXPECT_EQ(done_by[1], 1);
}

TEST(JointWork, concurrent_threads_wait_for_work_that_is_announced)
{
    rv::JointWork work;
    std::atomic<bool> is_announced = false;
    std::atomic<int> present = 0;
    int done_by[2] = {};
    onThreads(2, [&](int thread) {
        if (thread == 1) {
            while (!is_announced)
                std::this_thread::yield();
            work.join(1);
            return;
        }
        const rv::AnnouncedWork announced(&work);
        is_announced = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        work.lead(0, 2, [&](int t, int) { // neither piece ends before both have begun
            ++done_by[t];
            for (++present; present < 2;)
                std::this_thread::yield();
            return true;
        });
    });
    EXPECT_EQ(done_by[0], 1);
    EXPECT_EQ(done_by[1], 1);
}

TEST(JointWork, concurrent_threads_leave_when_announced_work_never_begins)
{
    rv::JointWork work;
    std::atomic<bool> is_announced = false;
    onThreads(3, [&](int thread) {
        if (thread > 0) {
            while (!is_announced)
                std::this_thread::yield();
            work.join(thread);
            return;
        }
        const rv::AnnouncedWork announced(&work);
        is_announced = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    int pieces = 0;
    work.lead(0, 2, [&](int, int) { return ++pieces > 0; });
    EXPECT_EQ(pieces, 2);
}

TEST(JointWork, concurrent_helpers_stay_for_all_steps_of_an_announcement)
{
    constexpr int steps = 20, pieces = 4;
    rv::JointWork work;
    std::atomic<bool> is_announced = false, has_left = false;
    int done_by[2][steps] = {};
    onThreads(2, [&](int thread) {
        if (thread == 1) {
            while (!is_announced)
                std::this_thread::yield();
            work.join(1);
            has_left = true;
            return;
        }
        const rv::AnnouncedWork announced(&work);
        is_announced = true;
        for (int step = 0; step < steps; ++step) {
            std::atomic<int> present = 0;
            bool has_begun[2] = {};
            work.lead(0, pieces, [&](int t, int) { // no piece ends before both have begun one
                ++done_by[t][step];
                if (!std::exchange(has_begun[t], true))
                    ++present;
                while (present < 2)
                    std::this_thread::yield();
                return true;
            });
            if (step % 4 == 0) // what the leader does alone
                std::this_thread::sleep_for(std::chrono::milliseconds(3));
            EXPECT_FALSE(has_left) << step;
        }
    });
    EXPECT_TRUE(has_left);
    for (int step = 0; step < steps; ++step) {
        EXPECT_GT(done_by[0][step], 0) << step;
        EXPECT_GT(done_by[1][step], 0) << step;
        EXPECT_EQ(done_by[0][step] + done_by[1][step], pieces) << step;
    }
}

TEST(JointWork, concurrent_steps_after_one_that_was_given_up_are_done_in_full)
{
    constexpr int threads = 4, pieces = 50;
    rv::JointWork work;
    std::atomic<bool> is_announced = false;
    std::atomic<int> runs[3] = {};
    onThreads(threads, [&](int thread) {
        if (thread > 0) {
            while (!is_announced)
                std::this_thread::yield();
            work.join(thread);
            return;
        }
        const rv::AnnouncedWork announced(&work);
        is_announced = true;
        for (int step = 0; step < 3; ++step)
            EXPECT_EQ(work.lead(0, pieces,
                                [&](int, int) {
                                    ++runs[step];
                                    return step != 1;
                                }),
                      step != 1);
    });
    EXPECT_EQ(runs[0], pieces);
    EXPECT_GE(runs[1], 1);
    EXPECT_LE(runs[1], threads) << "one by each thread at most";
    EXPECT_EQ(runs[2], pieces);
}
