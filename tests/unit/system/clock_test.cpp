// Clocks.
#include "system/clock.h"

#include "frame_fixture.h"

#include <chrono>

TEST(Clocks, run_forward_at_the_stated_rates)
{
    const uint32_t wall = rv::wallMilliseconds();
    const uint64_t counter = rv::highResolutionCounter();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_GE(rv::wallMilliseconds() - wall, 50u);
    EXPECT_GE(rv::highResolutionCounter() - counter, rv::counterFrequency() / 20);
    EXPECT_LT(rv::wallMilliseconds() - wall, 30000u);
}

TEST(Clocks, counter_never_runs_backwards)
{
    uint64_t last = rv::highResolutionCounter();
    for (int i = 0; i < 1000; ++i) {
        const uint64_t now = rv::highResolutionCounter();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Clocks, user_time_grows_with_work_and_not_with_sleep)
{
    const uint32_t before = rv::processUserMilliseconds();
    const uint32_t begin = rv::wallMilliseconds();
    while (rv::processUserMilliseconds() - before < 30)
        ASSERT_LT(rv::wallMilliseconds() - begin, 30000u);
    const uint32_t worked = rv::processUserMilliseconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(rv::processUserMilliseconds() - worked, 100u);
}

TEST(Clocks, thread_time_grows_with_the_work_of_the_thread_alone)
{
    const uint64_t before = rv::threadProcessorNanoseconds();
    uint64_t of_worker = 0;
    std::thread([&] {
        const uint32_t begin = rv::wallMilliseconds();
        while ((of_worker = rv::threadProcessorNanoseconds()) < 50'000'000)
            if (rv::wallMilliseconds() - begin > 30000)
                break;
    }).join();
    EXPECT_GE(of_worker, 50'000'000u);
    EXPECT_LT(rv::threadProcessorNanoseconds() - before, 40'000'000u);
}

TEST(Clocks, local_time_has_the_form_of_ctime_without_its_newline)
{
    char text[26];
    rv::localTimeText(text);
    EXPECT_EQ(strlen(text), 24u);
    EXPECT_TRUE(matches(text, ctime_pattern)) << text;
}
