// Tests of the performance warnings that end the statistics report.
#include "report_tools.h"

#include <iterator>

using namespace report_tools;

namespace {

using StatsWarnings = Reports;

TEST_F(StatsWarnings, more_than_2000_rays_per_pixel_are_warned_of)
{
    s.pixels = 10;
    s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays = 20010;
    EXPECT_TRUE(isSeparated("W performance warnings:"));
    EXPECT_EQ(section("W performance warnings:"),
              (Lines{ "W performance warnings:",
                      " W You are tracing 2001 rays per pixel. You may want to double check your "
                      "sampling settings." }));
    s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays = 20006;
    EXPECT_TRUE(hasLine(" W You are tracing 2001 rays per pixel.")) << "rounded";
    s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays = 20000;
    EXPECT_FALSE(hasLine("W performance warnings:"));
    s.pixels = 0;
    EXPECT_FALSE(hasLine("W performance warnings:"));
}

TEST_F(StatsWarnings, poor_bounds_are_warned_of_in_the_right_number)
{
    static const char displaced[] =
        " very poor bounds. This can severely affect ray tracing performance. You should check the "
        "\"height\" parameter on your displaced objects.";
    static const char procedural[] =
        " very poor bounds. This can severely affect ray tracing performance. You should check the "
        "bounds being passed from the host application.";
    s.poor_bounds_displaced = 1;
    s.poor_bounds_procedural = 2;
    EXPECT_EQ(rows("W performance warnings:"),
              (Lines{ std::string(" W 1 displaced object has") + displaced,
                      std::string(" W 2 on-demand procedurals have") + procedural }));
    s.poor_bounds_displaced = 3;
    s.poor_bounds_procedural = 0;
    EXPECT_EQ(rows("W performance warnings:"),
              (Lines{ std::string(" W 3 displaced objects have") + displaced }));
    s.poor_bounds_displaced = 0;
    s.poor_bounds_procedural = 1;
    EXPECT_EQ(rows("W performance warnings:"),
              (Lines{ std::string(" W 1 on-demand procedural has") + procedural }));
}

TEST_F(StatsWarnings, long_renders_that_leave_processors_idle_are_warned_of)
{
    static const struct {
        int64_t wall_ms, user_ms;
        bool is_warned_of;
    } cases[] = {
        { 1200001, 1190000, true },  // 49.6 percent of two threads
        { 1200000, 1190000, false }, // 20 minutes
        { 1300000, 1300000, false }, // 50 percent
    };
    s.threads = 2;
    for (const auto& c : cases) {
        s.render_ms = c.wall_ms;
        s.render_user_ms = c.user_ms;
        EXPECT_EQ(rows("W performance warnings:"),
                  c.is_warned_of ? (Lines{ " W Rendering utilization was only 50%. Your render may "
                                           "be bound by a single threaded process or I/O." })
                                 : Lines{})
            << c.wall_ms;
    }
}

TEST_F(StatsWarnings, long_creation_of_the_scene_is_warned_of)
{
    static const struct {
        int64_t scene_ms, render_ms;
        const char* percentage;
    } cases[] = {
        { 600001, 600001, "50" },     { 600000, 600000, nullptr }, // 10 minutes
        { 700000, 2800000, nullptr },                              // 20 percent
        { 700001, 2800000, "20" },    { 900000, 0, "100" },
    };
    for (const auto& c : cases) {
        s.scene_ms = s.scene_user_ms = c.scene_ms;
        s.render_ms = s.render_user_ms = c.render_ms;
        EXPECT_EQ(rows("W performance warnings:"),
                  c.percentage
                      ? (Lines{ std::string(" W Scene creation was a significant amount of total "
                                            "time (") +
                                c.percentage + "%). Consider optimizing this process first." })
                      : Lines{})
            << c.scene_ms;
    }
}

TEST_F(StatsWarnings, issues_of_scene_creation_are_listed_beside_other_warnings)
{
    s.poor_bounds_displaced = 1;
    s.identical_motion_matrices = 1;
    s.identity_matrices = 2;
    s.static_motion_meshes = 3;
    s.static_motion_curves = 4;
    s.static_motion_points = 5;
    s.curves_with_motion_radius = 6;
    Lines lines = rows("W performance warnings:");
    ASSERT_EQ(lines.size(), 8u);
    lines.erase(lines.begin());
    EXPECT_EQ(
        lines,
        (Lines{
            " W Scene creation time could be reduced by fixing the following issues:",
            " W 1 matrices were motion blurred even though they were identical.",
            " W 2 matrices were identity - skipping these will save some memory allocations and "
            "reduce fragmentation",
            " W 3 meshes were motion blurred even though they were static",
            " W 4 curves objects were motion blurred even though they were static",
            " W 5 points objects were motion blurred even though they were static",
            " W 6 curves objects had motion blurred radius information which is not supported and "
            "ignored",
        }));
}

TEST_F(StatsWarnings, only_the_issues_that_occurred_are_listed)
{
    s.poor_bounds_displaced = s.static_motion_points = 1;
    EXPECT_EQ(rows("W performance warnings:").size(), 3u);
    s.static_motion_points = 0;
    EXPECT_EQ(rows("W performance warnings:").size(), 1u);
}

// Required: nothing is said of them by themselves.
TEST_F(StatsWarnings, issues_of_scene_creation_alone_open_no_warnings)
{
    s.identity_matrices = 100000;
    s.static_motion_meshes = 5;
    EXPECT_FALSE(hasLine("W performance warnings:"));
    const Lines lines = print();
    EXPECT_EQ(lines[lines.size() - 2], separator);
    EXPECT_NE(lines[lines.size() - 3], separator);
}

TEST_F(StatsWarnings, warnings_are_given_in_order)
{
    s.pixels = 1;
    s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays = 5000;
    s.poor_bounds_displaced = s.poor_bounds_procedural = 1;
    s.render_ms = s.scene_ms = 2000000;
    s.identity_matrices = 1;
    const Lines lines = rows("W performance warnings:");
    ASSERT_EQ(lines.size(), 7u);
    static const char* const beginnings[] = {
        " W You are",   " W 1 displaced",        " W 1 on-demand",
        " W Rendering", " W Scene creation was", " W Scene creation time",
        " W 1 matrices"
    };
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].substr(0, strlen(beginnings[i])), beginnings[i]);
}

} // namespace
