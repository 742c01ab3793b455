// Tests of the statistics report: sections, rows and their conditions, line by line.
#include "report_tools.h"

#include <iterator>

using namespace report_tools;

namespace {

constexpr int64_t MB = 1048576;

class StatsReport : public Reports {
protected:
    // What per-pixel and per-sample values divide by.
    void setPixels()
    {
        s.pixels = 100;
        s.samples = 400;
    }
    void setRays(RtPass pass, RtRayRow row, uint64_t rays, uint64_t hits, uint64_t max_hits)
    {
        s.rays.rows[pass][row] = { rays, hits, max_hits };
    }
    void setPackets(RtRayRow row, uint64_t packets, uint64_t rays)
    {
        s.rays.packets[row] = { packets, rays };
    }
};

// ---- The frame of the report ----

TEST_F(StatsReport, of_nothing_is_made_of_the_sections_that_are_always_there)
{
    EXPECT_EQ(print(), (Lines{
                           "",
                           separator,
                           "scene creation time:",
                           " total                        0:00.00  (100.00% machine utilization)",
                           separator,
                           "render time:",
                           " bucket rendering             0:00.00",
                           "  accel. building             0:00.00",
                           "  pixel rendering             0:00.00",
                           " total                        0:00.00  (100.00% machine utilization)",
                           separator,
                           "memory consumed in mb:",
                           " at startup                      0.00",
                           " AOV samples                     0.00",
                           " output buffers                  0.00",
                           " node overhead                   0.00",
                           " total peak                      0.00",
                           separator,
                           "geometry:                             (% hit ) (instances) (  init "
                           "mem,  final mem)",
                           separator,
                           separator,
                       }));
}

TEST_F(StatsReport, separators_hold_89_dashes)
{
    EXPECT_EQ(print()[1], std::string(89, '-'));
    EXPECT_EQ(print().back(), std::string(89, '-'));
}

TEST_F(StatsReport, leaves_the_indentation_as_it_was)
{
    report.has_image = true;
    s.rays.rows[RV_PASS_PIXELS][RV_ROW_CAMERA].rays = 1;
    s.sss_lookups = s.sss_stored.objects = 1;
    RvMsgTab(3);
    EXPECT_EQ(print().back(), "   " + separator);
    EXPECT_EQ(print()[3].substr(0, 9), "    total");
    RvMsgTab(-3);
    EXPECT_EQ(print()[1], separator);
}

TEST_F(StatsReport, lists_its_sections_in_order)
{
    s.rays.packets[RV_ROW_CAMERA].packets = s.rays.rows[RV_PASS_PIXELS][RV_ROW_CAMERA].rays = 1;
    s.lighting[RV_LIGHTING_LOOPS].primary = s.shader_calls[RV_PASS_PIXELS][RV_CALL_PRIMARY] = 1;
    s.sss_lookups = s.sss_stored.objects = s.hair_lookups = s.hair_caches = 1;
    s.rays.rows[RV_PASS_HAIR][RV_ROW_TOTAL].rays = 1;
    s.displaced_meshes = 1;
    s.polygons.total = s.unique_triangles = 1;
    s.mesh_bytes[RV_MESH_VERTICES] = s.accels[RV_ACCEL_BVH] = 1;
    s.poor_bounds_displaced = 1;
    report.textures = "textures";
    Lines titles;
    for (const std::string& line : print()) {
        const std::string text = line.substr(0, 2) == "W " ? line.substr(2) : line;
        const size_t name_end = text.find(':');
        if (!text.empty() && text[0] != ' ')
            titles.push_back(text == separator ? "--" : text.substr(0, name_end));
        else if (text.compare(0, 13, " memory use (") == 0)
            titles.push_back("(memory use)");
        else if (text.compare(0, 11, " ray counts") == 0)
            titles.push_back("(" + text.substr(1, name_end - 1) + ")");
    }
    EXPECT_EQ(titles, (Lines{ "--",
                              "scene creation time",
                              "--",
                              "render time",
                              "--",
                              "memory consumed in mb",
                              "--",
                              "ray packet counts",
                              "--",
                              "ray counts",
                              "--",
                              "lighting calculations",
                              "shader calls",
                              "--",
                              "sss lookups",
                              "(ray counts)",
                              "--",
                              "hair cache lookups",
                              "(ray counts)",
                              "displacement",
                              "--",
                              "geometry",
                              "--",
                              "geometric elements",
                              "--",
                              "triangle tesselation",
                              "(memory use)",
                              "acceleration structures",
                              "--",
                              "textures",
                              "--",
                              "performance warnings",
                              "--" }));
}

TEST_F(StatsReport, has_the_category_of_statistics_and_that_of_debugging_for_structures)
{
    s.accels[RV_ACCEL_BVH] = 1;
    s.poor_bounds_displaced = 1;
    print();
    bool is_accel = false;
    for (const LoggedMessage& m : messages()) {
        if (m.tab == 0)
            is_accel = m.text.compare(0, 12, "acceleration") == 0;
        EXPECT_EQ(m.mask, is_accel ? 0x18 : 0x10) << m.text;
        EXPECT_LE(m.severity, 1) << m.text;
    }
}

TEST_F(StatsReport, warns_in_the_lines_of_the_performance_warnings_alone)
{
    s.poor_bounds_displaced = s.identity_matrices = 1;
    size_t warnings = 0;
    print();
    for (const LoggedMessage& m : messages())
        warnings += m.severity == 1;
    EXPECT_EQ(warnings, 4u);
}

// ---- Times ----

TEST_F(StatsReport, scene_creation_lists_what_took_time)
{
    s.scene_ms = 10000;
    s.scene_user_ms = 12000;
    s.threads = 4;
    s.plugin_ms = 2510;
    s.parse_ms = 61230;
    EXPECT_EQ(
        section("scene creation time:"),
        (Lines{ "scene creation time:", " plugin loading               0:02.51",
                " .rvs parsing                 1:01.23", " system/unaccounted           0:07.00",
                " total                        0:10.00  (30.00% machine utilization)" }));
}

TEST_F(StatsReport, scene_creation_on_busy_processors_has_nothing_unaccounted)
{
    s.scene_ms = 10000;
    for (int64_t threads : { 1, 0 }) { // 0 before the first render
        s.threads = threads;
        s.scene_user_ms = 10000;
        EXPECT_EQ(rows("scene creation time:"),
                  (Lines{ " total                        0:10.00  (100.00% machine "
                          "utilization)" }));
        s.scene_user_ms = 9990;
        EXPECT_EQ(rows("scene creation time:"),
                  (Lines{ " system/unaccounted           0:00.01",
                          " total                        0:10.00  (99.90% machine utilization)" }));
    }
}

TEST_F(StatsReport, times_are_padded_to_eight_columns_before_the_fraction)
{
    static const struct {
        int64_t ms;
        const char* text;
    } cases[] = {
        { 9, "    0:00.00" },       { 2510, "    0:02.51" },      { 600000, "   10:00.00" },
        { 3600000, "  1:0:00.00" }, { 3661230, " 1:01:01.23" },   { 36061230, "10:01:01.23" },
        { -5, "    0:00.00" },      { 1LL << 40, " 5:02:47.29" }, // as far as the formatter goes
    };
    for (const auto& c : cases) {
        s.plugin_ms = c.ms;
        EXPECT_EQ(rows("scene creation time:")[0],
                  std::string(" plugin loading           ") + c.text);
    }
}

TEST_F(StatsReport, render_times_list_every_part)
{
    s.setup_ms = 1000;
    s.sanity_ms = 100;
    s.bucket_ms = 100000;
    s.subdivision_ms = 2000;
    s.displacement_ms = 3000;
    s.accel_ms = 4000;
    s.procedural_ms = 5000;
    s.sss_distribution_ms = 6000;
    s.sss_irradiance_ms = 7000;
    s.sss_octree_ms = 8000;
    s.hair_cache_ms = 9000;
    s.render_ms = 200000;
    s.render_user_ms = 150000;
    s.threads = 1;
    EXPECT_TRUE(isSeparated("render time:"));
    EXPECT_EQ(
        section("render time:"),
        (Lines{ "render time:", " node init                    0:01.00",
                "  sanity checks               0:00.10", " bucket rendering             1:40.00",
                "  subdivision                 0:02.00", "  displacement                0:03.00",
                "  accel. building             0:04.00", "  procedural expansion        0:05.00",
                "  point cloud building        0:21.00", "   sample distribution        0:06.00",
                "   irradiance caching         0:07.00", "   octree build               0:08.00",
                "  hair light caching          0:09.00", "  pixel rendering             0:56.00",
                " system/unaccounted           0:50.00",
                " total                        3:20.00  (75.00% machine utilization)" }));
}

TEST_F(StatsReport, parts_of_point_clouds_stand_together_even_when_one_took_no_time)
{
    s.sss_irradiance_ms = 10;
    const Lines lines = rows("render time:");
    ASSERT_EQ(lines.size(), 8u);
    EXPECT_EQ(lines[2], "  point cloud building        0:00.01");
    EXPECT_EQ(lines[3], "   sample distribution        0:00.00");
    EXPECT_EQ(lines[4], "   irradiance caching         0:00.01");
    EXPECT_EQ(lines[5], "   octree build               0:00.00");
}

TEST_F(StatsReport, sanity_checks_are_listed_from_21_milliseconds)
{
    s.sanity_ms = 20;
    EXPECT_FALSE(hasLine("  sanity checks"));
    s.sanity_ms = 21;
    EXPECT_TRUE(hasLine("  sanity checks               0:00.02"));
}

TEST_F(StatsReport, the_time_of_pixels_is_never_negative)
{
    s.bucket_ms = 1000;
    s.accel_ms = 1500; // on two threads
    EXPECT_TRUE(hasLine("  pixel rendering             0:00.00"));
}

TEST_F(StatsReport, the_time_of_pixels_on_several_threads_carries_a_remark)
{
    s.bucket_ms = 1000;
    s.threads = 1;
    EXPECT_EQ(rows("render time:")[2], "  pixel rendering             0:01.00");
    s.threads = 2;
    EXPECT_EQ(rows("render time:")[2],
              "  pixel rendering             0:01.00  (multi-threaded render, this value may not "
              "be reliable)");
}

TEST_F(StatsReport, the_utilization_of_a_render_is_that_of_its_threads)
{
    s.render_ms = 1000;
    s.render_user_ms = 3000;
    s.threads = 4;
    EXPECT_EQ(rows("render time:")[3], " system/unaccounted           0:00.25");
    EXPECT_EQ(rows("render time:")[4],
              " total                        0:01.00  (75.00% machine utilization)");
}

TEST_F(StatsReport, without_an_image_there_is_no_render_time)
{
    report.has_image = false;
    s.render_ms = s.bucket_ms = 1000;
    const Lines lines = print();
    EXPECT_EQ(find(lines, "render time:"), lines.size());
    const size_t memory = find(lines, "memory consumed");
    EXPECT_EQ(lines[memory - 1], separator);
    EXPECT_EQ(lines[memory - 2].substr(0, 6), " total") << "one separator";
}

// ---- Memory ----

TEST_F(StatsReport, memory_lists_what_is_used)
{
    report.startup_bytes = 1 * MB;
    s.plugin_bytes = 2 * MB;
    s.sample_bytes = 3 * MB;
    s.output_bytes = 4 * MB;
    s.node_overhead_bytes = 5 * MB;
    s.instance_overhead_bytes = 6 * MB;
    s.message_bytes = 7 * MB;
    s.pool_bytes = 8 * MB;
    s.geometry_bytes = 9 * MB;
    s.geometry[RV_GEOMETRY_POLYMESHES] = { 1, 0, 0, 10 * MB, 4 * MB, 1 * MB };
    s.geometry[RV_GEOMETRY_SUBDIVS].initial_bytes = 8 * MB;
    s.geometry[RV_GEOMETRY_NURBS].initial_bytes = 9 * MB;
    s.geometry[RV_GEOMETRY_POINTS].initial_bytes = 10 * MB;
    s.geometry[RV_GEOMETRY_CURVES].initial_bytes = 11 * MB;
    s.accel_bytes = 12 * MB;
    s.skydome_map_bytes = 13 * MB;
    s.quad_map_bytes = 14 * MB;
    s.sss_bytes = 15 * MB;
    s.hair_cache_bytes = 16 * MB;
    s.sss_pool_bytes = 17 * MB;
    s.displacement_pool_bytes = 18 * MB;
    s.hair_cache_pool_bytes = 19 * MB;
    report.string_bytes = 20 * MB;
    report.string_summary = "3 unique strings, saved 1.00 mb";
    report.texture_bytes = 21 * MB;
    s.peak_bytes = 1000 * MB;
    EXPECT_TRUE(isSeparated("memory consumed in mb:"));
    EXPECT_EQ(section("memory consumed in mb:"),
              (Lines{ "memory consumed in mb:",
                      " at startup                      1.00",
                      " plugins                         2.00",
                      " AOV samples                     3.00",
                      " output buffers                  4.00",
                      " node overhead                   5.00",
                      " instance overhead               6.00",
                      " message passing                 7.00",
                      " memory pools                    8.00",
                      " geometry                        9.00",
                      "   polymesh                      7.00",
                      "   subdivs                       8.00",
                      "   nurbs                         9.00",
                      "   points                       10.00",
                      "   curves                       11.00",
                      " accel. structs                 12.00",
                      " skydome importance map         13.00",
                      " quad importance map            14.00",
                      " sss                            15.00",
                      " hair light cache               16.00",
                      " sss memory pools               17.00",
                      " displacement memory pools      18.00",
                      " hair light cache mem. pools    19.00",
                      " string pool                    20.00 (3 unique strings, saved 1.00 mb)",
                      " texture cache                  21.00",
                      " unaccounted                   790.00",
                      " total peak                   1000.00" }));
}

TEST_F(StatsReport, nothing_is_unaccounted_when_more_is_listed_than_the_peak)
{
    s.node_overhead_bytes = 2 * MB;
    for (int64_t peak : { 1 * MB, 2 * MB }) {
        s.peak_bytes = peak;
        EXPECT_FALSE(hasLine(" unaccounted"));
    }
    s.peak_bytes = 3 * MB;
    EXPECT_TRUE(hasLine(" unaccounted                     1.00"));
}

// ---- Rays ----

TEST_F(StatsReport, packets_list_the_types_that_have_rays)
{
    setPixels();
    setPackets(RV_ROW_TOTAL, 6, 1100);
    setPackets(RV_ROW_CAMERA, 4, 1000);
    setPackets(RV_ROW_REFLECTION, 2, 100);
    s.rays.max_depth = 7;
    EXPECT_TRUE(isSeparated("ray packet counts:"));
    EXPECT_EQ(
        section("ray packet counts:"),
        (Lines{
            "ray packet counts:                    (rays/pixel, rays/sample) (% total) (avg. size) "
            "(avg. util%)",
            " camera                             4 (     10.00,        2.50) ( 66.67%) (   250.00) "
            "(    97.66%)",
            " reflection                         2 (      1.00,        0.25) ( 33.33%) (    50.00) "
            "(    19.53%)",
            " total                              6 (     11.00,        2.75) (100.00%) (   183.33) "
            "(    71.61%)",
            " max depth                          7",
        }));
}

TEST_F(StatsReport, packets_without_those_of_the_camera_are_not_told_of)
{
    setPackets(RV_ROW_TOTAL, 6, 1100);
    setPackets(RV_ROW_REFLECTION, 6, 1100);
    EXPECT_FALSE(hasSection("ray packet counts:"));
}

TEST_F(StatsReport, rays_list_every_type_in_order)
{
    static const RtRayRow order[] = { RV_ROW_CAMERA,     RV_ROW_SHADOW,     RV_ROW_VOLUME_SHADOW,
                                      RV_ROW_REFLECTION, RV_ROW_REFRACTION, RV_ROW_DIFFUSE,
                                      RV_ROW_GLOSSY,     RV_ROW_USER };
    setPixels();
    for (uint64_t i = 0; i < std::size(order); ++i)
        setRays(RV_PASS_PIXELS, order[i], 100 * (i + 1), 200 * (i + 1), i + 2);
    setRays(RV_PASS_PIXELS, RV_ROW_TOTAL, 3600, 7200, 9);
    s.rays.max_depth = 12;
    EXPECT_TRUE(isSeparated("ray counts:"));
    EXPECT_EQ(
        section("ray counts:"),
        (Lines{
            "ray counts:                           (/pixel , /sample) (% total) (avg. hits) (max "
            "hits)",
            " camera                           100 (   1.00,    0.25) (  2.78%) (     2.00) (      "
            " "
            "2)",
            " shadow                           200 (   2.00,    0.50) (  5.56%) (     2.00) (      "
            " "
            "3)",
            " volume_shadow                    300 (   3.00,    0.75) (  8.33%) (     2.00) (      "
            " "
            "4)",
            " reflection                       400 (   4.00,    1.00) ( 11.11%) (     2.00) (      "
            " "
            "5)",
            " refraction                       500 (   5.00,    1.25) ( 13.89%) (     2.00) (      "
            " "
            "6)",
            " diffuse                          600 (   6.00,    1.50) ( 16.67%) (     2.00) (      "
            " "
            "7)",
            " glossy                           700 (   7.00,    1.75) ( 19.44%) (     2.00) (      "
            " "
            "8)",
            " user                             800 (   8.00,    2.00) ( 22.22%) (     2.00) (      "
            " "
            "9)",
            " total                           3600 (  36.00,    9.00) (100.00%) (     2.00) (      "
            " "
            "9)",
            " max depth                         12",
        }));
}

TEST_F(StatsReport, a_type_without_rays_has_no_row_and_the_total_always_one)
{
    setRays(RV_PASS_PIXELS, RV_ROW_CAMERA, 64, 0, 0);
    EXPECT_EQ(rows("ray counts:"),
              (Lines{ " camera                            64 (   0.00,    0.00) (  0.00%) (     "
                      "0.00) (       0)",
                      " total                              0 (   0.00,    0.00) (  0.00%) (     "
                      "0.00) (       0)",
                      " max depth                          0" }));
}

TEST_F(StatsReport, rays_without_those_of_the_camera_are_not_told_of)
{
    setRays(RV_PASS_PIXELS, RV_ROW_TOTAL, 10, 1, 1);
    setRays(RV_PASS_PIXELS, RV_ROW_DIFFUSE, 10, 1, 1);
    setRays(RV_PASS_SSS, RV_ROW_CAMERA, 10, 1, 1);
    EXPECT_FALSE(hasSection("ray counts:"));
}

// ---- Shading ----

TEST_F(StatsReport, lighting_lists_what_was_calculated)
{
    setPixels();
    s.lighting[RV_LIGHTING_LOOPS] = { 800, 100 };
    s.lighting[RV_LIGHTING_CACHED] = { 50, 0 };
    s.lighting[RV_LIGHTING_DIFFUSE] = { 0, 20 };
    s.lighting[RV_LIGHTING_CUSTOM] = { 4, 4 };
    EXPECT_TRUE(isSeparated("lighting calculations:"));
    EXPECT_EQ(
        section("lighting calculations:"),
        (Lines{
            "lighting calculations:                (/pixel , /sample)    secondary (/pixel , "
            "/sample)",
            " light loops                      800 (   8.00,    2.00)          100 (   1.00,  "
            "  0.25)",
            "   cached                          50 (   0.50,    0.12)            0 (   0.00,  "
            "  0.00)",
            " indirect diffuse                   0 (   0.00,    0.00)           20 (   0.20,  "
            "  0.05)",
            " custom sampler                     4 (   0.04,    0.01)            4 (   0.04,  "
            "  0.01)",
        }));
}

TEST_F(StatsReport, lighting_is_told_of_for_any_primary_count_but_that_of_the_cache)
{
    static const struct {
        RtLightingRow row;
        RtLightingCount count;
        bool is_told;
    } cases[] = {
        { RV_LIGHTING_LOOPS, { 1, 0 }, true },   { RV_LIGHTING_CACHED, { 1, 0 }, false },
        { RV_LIGHTING_DIFFUSE, { 1, 0 }, true }, { RV_LIGHTING_GLOSSY, { 1, 0 }, true },
        { RV_LIGHTING_CUSTOM, { 1, 0 }, true },  { RV_LIGHTING_LOOPS, { 0, 1 }, false },
        { RV_LIGHTING_GLOSSY, { 0, 1 }, false },
    };
    for (const auto& c : cases) {
        s = {};
        s.lighting[c.row] = c.count;
        EXPECT_EQ(rows("lighting calculations:").size(), c.is_told ? 1u : 0u) << c.row;
    }
    EXPECT_FALSE(hasLine("lighting"));
}

TEST_F(StatsReport, indirect_glossy_light_has_a_row)
{
    s.lighting[RV_LIGHTING_GLOSSY] = { 7, 8 };
    EXPECT_EQ(rows("lighting calculations:")[0],
              " indirect glossy                    7 (   0.00,    0.00)            8 (   0.00,    "
              "0.00)");
}

TEST_F(StatsReport, shader_calls_list_every_kind_and_their_total)
{
    setPixels();
    const uint64_t calls[RV_CALL_ROWS] = { 600, 60, 20, 0, 100, 10, 10 };
    std::copy(std::begin(calls), std::end(calls), s.shader_calls[RV_PASS_PIXELS]);
    EXPECT_EQ(section("shader calls:"),
              (Lines{
                  "shader calls:                         (/pixel , /sample) (% total)",
                  " primary                          600 (   6.00,    1.50) ( 75.00%)",
                  " before                            60 (   0.60,    0.15) (  7.50%)",
                  " shadow                            20 (   0.20,    0.05) (  2.50%)",
                  " quickgi                            0 (   0.00,    0.00) (  0.00%)",
                  " background                       100 (   1.00,    0.25) ( 12.50%)",
                  " atmosphere                        10 (   0.10,    0.03) (  1.25%)",
                  " light_filter                      10 (   0.10,    0.03) (  1.25%)",
                  " total                            800 (   8.00,    2.00) (100.00%)",
              }));
    EXPECT_FALSE(isSeparated("shader calls:"));
}

TEST_F(StatsReport, shaders_that_were_not_called_are_not_told_of)
{
    s.shader_calls[RV_PASS_SSS][RV_CALL_PRIMARY] = 5;
    EXPECT_FALSE(hasSection("shader calls:"));
}

// ---- Caches of light ----

TEST_F(StatsReport, sss_lookups_tell_of_clouds_and_of_what_made_them)
{
    setPixels();
    s.sss_lookups = 1000;
    s.sss_computed = 300;
    s.sss_generated = 1600;
    s.sss_stored = { 1200, 200, 1000, 2 };
    setRays(RV_PASS_SSS, RV_ROW_DIFFUSE, 3200, 800, 1);
    setRays(RV_PASS_SSS, RV_ROW_TOTAL, 3200, 800, 1);
    s.shader_calls[RV_PASS_SSS][RV_CALL_PRIMARY] = 1600;
    s.shader_calls[RV_PASS_SSS][RV_CALL_SHADOW] = 400;
    EXPECT_TRUE(isSeparated("sss lookups:"));
    EXPECT_EQ(
        section("sss lookups:"),
        (Lines{
            "sss lookups:                          (/pixel , /sample)",
            " lookups                         1000 (  10.00,    2.50)",
            "   computed samples               300 ( 25.00%)",
            " point clouds                       2",
            " generated points                1600 ( 75.00% non-zero samples)",
            " stored points                   1200 (min: 200, avg: 600.00, max: 1000)",
            " ray counts:                          (/point ) (% total) (avg. hits) (max hits)",
            "  diffuse                        3200 (   2.00) (100.00%) (     0.25) (       1)",
            "  total                          3200 (   2.00) (100.00%) (     0.25) (       1)",
            " shader calls:                        (/point ) (% total)",
            "  primary                        1600 (   1.00) ( 80.00%)",
            "  before                            0 (   0.00) (  0.00%)",
            "  shadow                          400 (   0.25) ( 20.00%)",
            "  quickgi                           0 (   0.00) (  0.00%)",
            "  background                        0 (   0.00) (  0.00%)",
            "  atmosphere                        0 (   0.00) (  0.00%)",
            "  light_filter                      0 (   0.00) (  0.00%)",
            "  total                          2000 (   1.25) (100.00%)",
        }));
}

TEST_F(StatsReport, sss_lookups_in_clouds_of_an_earlier_render_tell_of_nothing_else)
{
    s.sss_lookups = 5;
    EXPECT_EQ(section("sss lookups:"),
              (Lines{ "sss lookups:                          (/pixel , /sample)",
                      " lookups                            5 (   0.00,    0.00)" }));
}

TEST_F(StatsReport, clouds_without_lookups_are_not_told_of)
{
    s.sss_stored = { 1200, 200, 1000, 2 };
    EXPECT_FALSE(hasLine("sss lookups:"));
    EXPECT_FALSE(hasLine(" point clouds"));
}

TEST_F(StatsReport, hair_cache_lookups_tell_of_caches_and_of_what_filled_them)
{
    setPixels();
    s.hair_lookups = 50;
    s.hair_caches = 3;
    s.hair_generated = 400;
    s.hair_computed = 100;
    setRays(RV_PASS_HAIR, RV_ROW_SHADOW, 800, 200, 2);
    setRays(RV_PASS_HAIR, RV_ROW_TOTAL, 800, 200, 2);
    s.shader_calls[RV_PASS_HAIR][RV_CALL_SHADOW] = 300;
    s.shader_calls[RV_PASS_HAIR][RV_CALL_LIGHT_FILTER] = 100;
    EXPECT_TRUE(isSeparated("hair cache lookups:"));
    EXPECT_EQ(
        section("hair cache lookups:"),
        (Lines{
            "hair cache lookups:                   (/pixel , /sample)",
            " lookups                           50 (   0.50,    0.12)",
            " hair caches                        3",
            " generated points                 400",
            " computed points                  100 ( 25.00%)",
            " ray counts:                          (/point ) (% total) (avg. hits) (max hits)",
            "  shadow                          800 (   2.00) (100.00%) (     0.25) (       2)",
            "  total                           800 (   2.00) (100.00%) (     0.25) (       2)",
            " shader calls:                        (/point ) (% total)",
            "  primary                           0 (   0.00) (  0.00%)",
            "  before                            0 (   0.00) (  0.00%)",
            "  shadow                          300 (   0.75) ( 75.00%)",
            "  quickgi                           0 (   0.00) (  0.00%)",
            "  background                        0 (   0.00) (  0.00%)",
            "  atmosphere                        0 (   0.00) (  0.00%)",
            "  light_filter                    100 (   0.25) ( 25.00%)",
            "  total                           400 (   1.00) (100.00%)",
        }));
}

TEST_F(StatsReport, hair_caches_that_needed_no_rays_have_no_tables)
{
    s.hair_lookups = 2;
    s.shader_calls[RV_PASS_HAIR][RV_CALL_PRIMARY] = 1;
    EXPECT_EQ(rows("hair cache lookups:"),
              (Lines{ " lookups                            2 (   0.00,    0.00)" }));
    s.hair_caches = 1;
    EXPECT_EQ(
        rows("hair cache lookups:"),
        (Lines{ " lookups                            2 (   0.00,    0.00)",
                " hair caches                        1", " generated points                   0",
                " computed points                    0 (  0.00%)" }));
    s.hair_lookups = 0;
    EXPECT_FALSE(hasLine("hair cache lookups:"));
}

TEST_F(StatsReport, displaced_meshes_are_told_of)
{
    EXPECT_FALSE(hasLine("displacement:"));
    s.displaced_meshes = 12;
    s.displacement_calls = 345678;
    EXPECT_EQ(section("displacement:"),
              (Lines{ "displacement:", " meshes                            12",
                      " shader calls                  345678" }));
    EXPECT_FALSE(isSeparated("displacement:"));
}

// ---- Geometry ----

TEST_F(StatsReport, geometry_lists_every_kind_and_their_total)
{
    for (int row = 0; row < RV_GEOMETRY_ROWS; ++row)
        s.geometry[row] = {
            uint32_t(row + 2), 1, uint64_t(10 * row), (row + 1) * MB, MB / 2, 2 * MB
        };
    EXPECT_TRUE(isSeparated("geometry:"));
    EXPECT_EQ(
        section("geometry:"),
        (Lines{
            "geometry:                             (% hit ) (instances) (  init mem,  final mem)",
            " lists                              2 ( 50.0%) (        0) (      1.00,       2.50)",
            " procs                              3 ( 33.3%) (       10) (      2.00,       3.50)",
            " polymeshes                         4 ( 25.0%) (       20) (      3.00,       4.50)",
            " subdivs                            5 ( 20.0%) (       30) (      4.00,       5.50)",
            " nurbs                              6 ( 16.7%) (       40) (      5.00,       6.50)",
            " curves                             7 ( 14.3%) (       50) (      6.00,       7.50)",
            " points                             8 ( 12.5%) (       60) (      7.00,       8.50)",
            " simple                             9 ( 11.1%) (       70) (      8.00,       9.50)",
            " total                             44 ( 18.2%) (      280) (     36.00,      48.00)",
        }));
}

TEST_F(StatsReport, kinds_without_objects_have_no_row)
{
    s.geometry[RV_GEOMETRY_POLYMESHES] = { 0, 0, 5, MB, 0, 0 };
    EXPECT_EQ(rows("geometry:"), (Lines{}));
    s.geometry[RV_GEOMETRY_SIMPLE] = { 4, 4, 0, 0, 0, 0 };
    EXPECT_EQ(rows("geometry:"),
              (Lines{ " simple                             4 (100.0%) (        0) (      0.00,     "
                      "  0.00)",
                      " total                              4 (100.0%) (        5) (      1.00,     "
                      "  1.00)" }));
}

TEST_F(StatsReport, elements_list_every_kind_that_has_some)
{
    RtElementCount* const kinds[] = { &s.list_children,  &s.procedural_children, &s.polygons,
                                      &s.subdiv_patches, &s.nurbs_patches,       &s.curve_segments,
                                      &s.points };
    for (size_t i = 0; i < std::size(kinds); ++i) {
        for (unsigned elements : { 10, 3 })
            kinds[i]->add(elements * unsigned(i + 1));
        s.geometry[i].objects = 2;
    }
    EXPECT_TRUE(isSeparated("geometric elements:"));
    EXPECT_EQ(section("geometric elements:"),
              (Lines{
                  "geometric elements:                   (      min) (       avg.) (      max)",
                  " objects (top level)               13 (        3) (        6.5) (       10)",
                  " objects (procs)                   26 (        6) (       13.0) (       20)",
                  " polygons                          39 (        9) (       19.5) (       30)",
                  " subdiv patches                    52 (       12) (       26.0) (       40)",
                  " nurbs patches                     65 (       15) (       32.5) (       50)",
                  " curve segments                    78 (       18) (       39.0) (       60)",
                  " points                            91 (       21) (       45.5) (       70)",
              }));
    for (RtElementCount* kind : kinds)
        *kind = {};
    EXPECT_FALSE(hasLine("geometric elements:"));
    s.points.add(4);
    s.geometry[RV_GEOMETRY_POINTS].objects = 0;
    EXPECT_EQ(rows("geometric elements:"),
              (Lines{ " points                             4 (        4) (        0.0) (        "
                      "4)" }));
}

TEST_F(StatsReport, simple_shapes_have_no_elements)
{
    s.geometry[RV_GEOMETRY_SIMPLE] = { 4, 4, 0, MB, 0, 0 };
    EXPECT_FALSE(hasLine("geometric elements:"));
}

TEST_F(StatsReport, triangles_list_meshes_and_what_refining_them_made)
{
    s.triangles = { 30, 10, 20, 2 };
    s.polygons = { 12, 5, 7, 2 };
    for (unsigned row = 0; row < RV_SUBDIVISION_ROWS; ++row) {
        const unsigned factor = row + 1;
        s.subdivisions[row] = { { 40 * factor, 10 * factor, 30 * factor, 2 }, 8 };
    }
    s.unique_triangles = s.visible_triangles = 1000;
    EXPECT_TRUE(isSeparated("triangle tesselation:"));
    EXPECT_EQ(section("triangle tesselation:"),
              (Lines{
                  "triangle tesselation:                 (      min) (       avg.) (      max) (/ "
                  "element) (% total)",
                  " polymeshes                        30 (       10) (       15.0) (       20) (   "
                  "  2.50)",
                  " subdivs                          600 (       10) (       60.0) (      150) (   "
                  " 15.00)",
                  "  iterations 0                     40 (       10) (       20.0) (       30) (   "
                  "  5.00) "
                  "(  4.00%)",
                  "  iterations 1                     80 (       20) (       40.0) (       60) (   "
                  " 10.00) "
                  "(  8.00%)",
                  "  iterations 2                    120 (       30) (       60.0) (       90) (   "
                  " 15.00) "
                  "( 12.00%)",
                  "  iterations 3+                   160 (       40) (       80.0) (      120) (   "
                  " 20.00) "
                  "( 16.00%)",
                  "  adaptive                        200 (       50) (      100.0) (      150) (   "
                  " 25.00) "
                  "( 20.00%)",
                  " unique triangles:               1000",
              }));
    s.visible_triangles = 4000;
    EXPECT_EQ(rows("triangle tesselation:").back(), " visible triangles:              4000");
}

TEST_F(StatsReport, triangle_rows_need_meshes_and_values_per_element_need_elements)
{
    s.unique_triangles = 10;
    s.triangles = { 10, 10, 10, 1 };
    s.subdivisions[RV_SUBDIVISION_ADAPTIVE].patches = 5;
    EXPECT_EQ(rows("triangle tesselation:"),
              (Lines{ " polymeshes                        10 (       10) (       10.0) (       10) "
                      "(     0.00)",
                      " unique triangles:                 10",
                      " visible triangles:                 0" }));
    s.unique_triangles = 0;
    EXPECT_FALSE(hasLine("triangle tesselation:"));
}

TEST_F(StatsReport, mesh_memory_lists_its_arrays_in_the_column_of_the_triangles)
{
    s.unique_triangles = 1;
    for (int row = 0; row < RV_MESH_MEMORY_ROWS; ++row)
        s.mesh_bytes[row] = (row + 1) * MB;
    s.user_data_bytes = 8 * MB; // of other shapes
    const Lines lines = rows("triangle tesselation:");
    EXPECT_EQ(Lines(lines.begin() + 2, lines.end()), (Lines{
                                                         " memory use (in mb)            144.00",
                                                         "   vertices                      1.00",
                                                         "   vertex indices                2.00",
                                                         "   polygon base offsets          3.00",
                                                         "   polygon IDs                   4.00",
                                                         "   triangulation                 5.00",
                                                         "   normals                       6.00",
                                                         "   packed normals                7.00",
                                                         "   normal indices                8.00",
                                                         "   shader indices                9.00",
                                                         "   uv coords                    10.00",
                                                         "   uv coords idxs               11.00",
                                                         "   P reference (autobump)       12.00",
                                                         "   N reference (autobump)       13.00",
                                                         "   crease data                  14.00",
                                                         "   uniform indices              15.00",
                                                         "   userdata                     24.00",
                                                     }));
}

TEST_F(StatsReport, mesh_memory_always_lists_vertices_and_their_indices)
{
    s.mesh_bytes[RV_MESH_NORMALS] = 2 * MB;
    const Lines lines = print();
    const size_t at = find(lines, " memory use");
    ASSERT_LT(at + 4, lines.size());
    EXPECT_EQ(
        Lines(lines.begin() + long(at), lines.begin() + long(at) + 5),
        (Lines{ " memory use (in mb)              2.00", "   vertices                      0.00",
                "   vertex indices                0.00", "   normals                       2.00",
                separator }));
    s.mesh_bytes[RV_MESH_NORMALS] = 0;
    s.user_data_bytes = MB;
    EXPECT_FALSE(hasLine(" memory use")) << "no mesh uses memory";
}

TEST_F(StatsReport, structures_list_the_kinds_that_were_built)
{
    EXPECT_FALSE(hasLine("acceleration structures:"));
    const uint32_t counts[RV_ACCEL_ROWS] = { 10, 20, 40, 50, 80 };
    std::copy(std::begin(counts), std::end(counts), s.accels);
    EXPECT_EQ(section("acceleration structures:"),
              (Lines{
                  "acceleration structures:              (% total)",
                  " null                              10 (  5.00%)",
                  " list                              20 ( 10.00%)",
                  " bvh                               40 ( 20.00%)",
                  " bvh motion (2 keys)               50 ( 25.00%)",
                  " bvh motion (3+ keys)              80 ( 40.00%)",
                  " total                            200 (100.00%)",
              }));
    s.accels[RV_ACCEL_LIST] = 0;
    EXPECT_FALSE(hasLine(" list "));
    EXPECT_FALSE(isSeparated("acceleration structures:"));
}

TEST_F(StatsReport, structures_need_the_category_of_debugging_too)
{
    s.accels[RV_ACCEL_BVH] = 1;
    RvMsgSetConsoleFlags(RV_LOG_STATS);
    EXPECT_FALSE(hasLine("acceleration structures:"));
    EXPECT_FALSE(hasLine(" bvh"));
    EXPECT_TRUE(hasLine("geometry:"));
    RvMsgSetConsoleFlags(RV_LOG_STATS | RV_LOG_DEBUG);
    EXPECT_TRUE(hasLine(" bvh"));
}

// ---- Textures ----

TEST_F(StatsReport, textures_tell_line_by_line_between_two_separators)
{
    report.textures = "100% of files\n\n  two\n";
    const Lines lines = print();
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()),
              (Lines{ separator, "100% of files", "", "  two", separator }));
    report.textures = "no end";
    EXPECT_EQ(*(print().end() - 2), "no end");
}

// ---- Performance warnings ----

TEST_F(StatsReport, more_than_2000_rays_per_pixel_are_warned_of)
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

TEST_F(StatsReport, poor_bounds_are_warned_of_in_the_right_number)
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

TEST_F(StatsReport, long_renders_that_leave_processors_idle_are_warned_of)
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

TEST_F(StatsReport, long_creation_of_the_scene_is_warned_of)
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

TEST_F(StatsReport, issues_of_scene_creation_are_listed_beside_other_warnings)
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

TEST_F(StatsReport, only_the_issues_that_occurred_are_listed)
{
    s.poor_bounds_displaced = s.static_motion_points = 1;
    EXPECT_EQ(rows("W performance warnings:").size(), 3u);
    s.static_motion_points = 0;
    EXPECT_EQ(rows("W performance warnings:").size(), 1u);
}

// Required: nothing is said of them by themselves.
TEST_F(StatsReport, issues_of_scene_creation_alone_open_no_warnings)
{
    s.identity_matrices = 100000;
    s.static_motion_meshes = 5;
    EXPECT_FALSE(hasLine("W performance warnings:"));
    const Lines lines = print();
    EXPECT_EQ(lines[lines.size() - 2], separator);
    EXPECT_NE(lines[lines.size() - 3], separator);
}

TEST_F(StatsReport, warnings_are_given_in_order)
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
