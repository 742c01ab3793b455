// The text of durations.
#include "duration.h"

#include "frame_fixture.h"

TEST(DurationText, agrees_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("foundation", "RvDurationString"))
        EXPECT_EQ(RvDurationString(v["in"]["milliseconds"]), v["out"]["value"].get<std::string>())
            << v["id"];
}

TEST(DurationText, of_whole_hours_has_a_single_digit_for_the_minutes)
{
    EXPECT_STREQ(RvDurationString(3600000), "1:0:00.00");
    EXPECT_STREQ(RvDurationString(3660000), "1:01:00.00");
    EXPECT_STREQ(RvDurationString(60000), "1:00.00");
}

TEST(DurationText, wraps_the_hours_at_99)
{
    EXPECT_STREQ(RvDurationString(98u * 3600000), "98:0:00.00");
    EXPECT_STREQ(RvDurationString(99u * 3600000), "0:00.00");
    EXPECT_STREQ(RvDurationString(100u * 3600000 + 5 * 60000), "1:05:00.00");
}

TEST(DurationText, of_the_longest_duration_fits)
{
    EXPECT_STREQ(RvDurationString(UINT32_MAX), "5:02:47.29");
}

TEST(DurationText, is_overwritten_by_the_next_call)
{
    const char* const first = RvDurationString(1000);
    EXPECT_STREQ(first, "0:01.00");
    EXPECT_EQ(RvDurationString(2000), first);
    EXPECT_STREQ(first, "0:02.00");
}

TEST(DurationText, concurrent_texts_do_not_mix)
{
    onThreads(4, [](int thread) {
        const std::string expected = "0:0" + std::to_string(thread) + ".00";
        for (int i = 0; i < 2000; ++i)
            EXPECT_EQ(RvDurationString(uint32_t(thread) * 1000), expected);
    });
}
