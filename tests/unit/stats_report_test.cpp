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

} // namespace
