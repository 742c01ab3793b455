// Tests of the statistics: how records are summed, when the report is made, and that the counters
// of a render are true.
#include "stats.h"

#include "image_tools.h"
#include "report_tools.h"
#include "test_data.h"

#include <fstream>
#include <regex>

namespace {

// ---- Summing ----

RtStats* fresh()
{
    static RtStats record;
    record = {};
    return &record;
}

TEST(Stats, no_counter_is_left_out_of_the_sum)
{
    RtStats record;
    memset(static_cast<void*>(&record), 1, sizeof record);
    RtStats* const sum = fresh();
    rv::addStats(sum, record);
    const auto* const expected = reinterpret_cast<const uint32_t*>(&record);
    const auto* const found = reinterpret_cast<const uint32_t*>(sum);
    for (size_t i = 0; i < sizeof record / sizeof *found; ++i)
        ASSERT_EQ(found[i], expected[i]) << "of the counter at byte " << i * sizeof *found;
}

TEST(Stats, counts_are_added_and_of_maxima_the_larger_stays)
{
    RtStats a = {}, b = {};
    RtRayCount& rays_a = a.rays.rows[RV_PASS_SSS][RV_ROW_GLOSSY];
    RtRayCount& rays_b = b.rays.rows[RV_PASS_SSS][RV_ROW_GLOSSY];
    rays_a = { 10, 20, 3 };
    rays_b = { 1, 2, 7 };
    a.rays.packets[RV_ROW_USER] = { 1, 100 };
    b.rays.packets[RV_ROW_USER] = { 2, 300 };
    a.rays.max_depth = 9;
    b.rays.max_depth = 4;
    a.shader_calls[RV_PASS_HAIR][RV_CALL_BEFORE] = 5;
    b.shader_calls[RV_PASS_HAIR][RV_CALL_BEFORE] = 6;
    a.lighting[RV_LIGHTING_CUSTOM] = { 1, 2 };
    b.lighting[RV_LIGHTING_CUSTOM] = { 30, 40 };
    a.threads = 4;
    a.peak_bytes = 100;
    b.peak_bytes = 300;
    a.pool_bytes = 10;
    b.pool_bytes = 20;
    a.sss_stored = { 30, 10, 20, 2 };
    b.sss_stored = { 5, 5, 5, 1 };
    a.geometry[RV_GEOMETRY_POINTS] = { 1, 1, 2, 3, 4, 5 };
    b.geometry[RV_GEOMETRY_POINTS] = { 10, 5, 20, 30, 40, 50 };
    b.polygons = { 40, 40, 40, 1 };
    a.subdivisions[RV_SUBDIVISION_2] = { { 8, 8, 8, 1 }, 2 };
    b.subdivisions[RV_SUBDIVISION_2] = { { 4, 4, 4, 1 }, 1 };
    a.mesh_bytes[RV_MESH_UVS] = 6;
    b.mesh_bytes[RV_MESH_UVS] = -2; // freed by another thread
    RtStats* const sum = fresh();
    rv::addStats(sum, a);
    rv::addStats(sum, b);
    const RtRayCount& rays = sum->rays.rows[RV_PASS_SSS][RV_ROW_GLOSSY];
    EXPECT_EQ(rays.rays, 11u);
    EXPECT_EQ(rays.hits, 22u);
    EXPECT_EQ(rays.max_hits, 7u);
    EXPECT_EQ(sum->rays.packets[RV_ROW_USER].packets, 3u);
    EXPECT_EQ(sum->rays.packets[RV_ROW_USER].rays, 400u);
    EXPECT_EQ(sum->rays.max_depth, 9u);
    EXPECT_EQ(sum->shader_calls[RV_PASS_HAIR][RV_CALL_BEFORE], 11u);
    EXPECT_EQ(sum->lighting[RV_LIGHTING_CUSTOM].primary, 31u);
    EXPECT_EQ(sum->lighting[RV_LIGHTING_CUSTOM].secondary, 42u);
    EXPECT_EQ(sum->threads, 4);
    EXPECT_EQ(sum->peak_bytes, 300);
    EXPECT_EQ(sum->pool_bytes, 30);
    EXPECT_EQ(sum->sss_stored.total, 35u);
    EXPECT_EQ(sum->sss_stored.least, 5u);
    EXPECT_EQ(sum->sss_stored.most, 20u);
    EXPECT_EQ(sum->sss_stored.objects, 3u);
    const RtGeometryCount& points = sum->geometry[RV_GEOMETRY_POINTS];
    EXPECT_EQ(points.objects, 11u);
    EXPECT_EQ(points.objects_hit, 6u);
    EXPECT_EQ(points.instances, 22u);
    EXPECT_EQ(points.bytes(), 33 - 44 + 55);
    EXPECT_EQ(sum->polygons.least, 40u) << "the record without objects has no say";
    EXPECT_EQ(sum->subdivisions[RV_SUBDIVISION_2].triangles.total, 12u);
    EXPECT_EQ(sum->subdivisions[RV_SUBDIVISION_2].triangles.least, 4u);
    EXPECT_EQ(sum->subdivisions[RV_SUBDIVISION_2].patches, 3u);
    EXPECT_EQ(sum->mesh_bytes[RV_MESH_UVS], 4);
}

// ---- The step ----

using image_tools::Image;
using image_tools::Names;

class Statistics : public Image {
protected:
    // A wall that a point light before it lights, seen by a camera through four by four pixels of
    // four samples each. One sphere is behind the camera.
    static void makeLitWall()
    {
        makeScene(4, 4);
        set("AA_samples", 2);
        RtNode* const shader = node_tools::named("lambert", "white");
        const auto wall = RvNodeLookUpByName("wall"), sphere = RvNodeLookUpByName("sphere");
        RvNodeSetVec(wall, "normal", 0, 0, 1);
        RvNodeSetArray(wall, "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
        RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 9 }));
        makeLight("light");
    }
    static void makeLight(const char* name)
    {
        RtNode* const light = node_tools::named("point_light", name);
        RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 0 }));
    }
    static RtStats sum()
    {
        RtStats all = {};
        for (const RtStats* record : rv::the_frame->stats)
            rv::addStats(&all, *record);
        return all;
    }
    static std::string rays(const RtStats& s, RtRayRow row)
    {
        const RtRayCount& count = s.rays.rows[RV_PASS_PIXELS][row];
        return std::to_string(count.rays) + " rays, " + std::to_string(count.hits) + " hits, " +
               std::to_string(count.max_hits) + " at most";
    }
    static std::string geometry(const RtStats& s, RtGeometryRow row)
    {
        const RtGeometryCount& count = s.geometry[row];
        return std::to_string(count.objects_hit) + " of " + std::to_string(count.objects) + ", " +
               std::to_string(count.instances) + " instances";
    }
    // The lines of the last report.
    static Names takeReport()
    {
        Names lines = takeLines();
        const auto begins = std::find(lines.begin(), lines.end(), "0 " + report_tools::separator);
        lines.erase(lines.begin(), begins);
        return lines;
    }
    static size_t reports(const Names& lines)
    {
        return size_t(std::count(lines.begin(), lines.end(), "0 scene creation time:"));
    }
};

TEST_F(Statistics, every_image_ends_with_its_report)
{
    makeLitWall();
    for (int i = 0; i < 2; ++i) {
        takeLines();
        EXPECT_EQ(shoot(), RV_SUCCESS);
        const Names lines = takeLines();
        EXPECT_EQ(reports(lines), 1u);
        EXPECT_EQ(lines.back(), "0 " + report_tools::separator);
        EXPECT_TRUE(contains(lines, "1 camera                            64 (   4.00,    1.00) "
                                    "( 50.00%) (     1.00) (       1)"))
            << "of this image alone";
    }
}

TEST_F(Statistics, preparing_a_scene_is_reported_when_the_universe_ends)
{
    makeLitWall();
    EXPECT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS);
    EXPECT_EQ(reports(takeLines()), 0u);
    RvEnd();
    const Names lines = takeLines();
    EXPECT_EQ(reports(lines), 1u);
    EXPECT_FALSE(contains(lines, "0 render time:"));
    EXPECT_TRUE(contains(lines, "0 memory consumed in mb:"));
    EXPECT_EQ(lines[0], "0 ") << "first of all";
}

TEST_F(Statistics, nothing_is_gathered_when_nobody_reads_it)
{
    makeLitWall();
    const char* const summary = rv::the_frame->strings->summary;
    rv::the_frame->strings->summary[0] = '\0';
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~RV_LOG_STATS);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(reports(takeLines()), 0u);
    EXPECT_STREQ(summary, "");
    RvMsgSetConsoleFlags(RV_LOG_STATS);
    RvMsgSetCallback(nullptr);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_STREQ(summary, "");
    RvMsgSetCallback([](int, int, const char*, int) {});
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_STRNE(summary, "");
}

TEST_F(Statistics, a_log_file_is_a_reader)
{
    makeLitWall();
    const std::string path = ::testing::TempDir() + "statistics.log";
    RvMsgSetConsoleFlags(0);
    RvMsgSetLogFileName(path.c_str());
    RvMsgSetLogFileFlags(RV_LOG_STATS);
    RvMsgResetCallback();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    std::ifstream file(path);
    Names lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    EXPECT_TRUE(contains(lines, "        | scene creation time:"));
    EXPECT_EQ(lines.back(), "        | " + report_tools::separator);
    remove(path.c_str());
}

TEST_F(Statistics, a_report_tells_of_the_time_since_the_last_one)
{
    makeLitWall();
    for (const int flags : { int(RV_LOG_ALL), 0 }) { // printed or not
        RvMsgSetConsoleFlags(flags);
        rv::hostStats()->plugin_ms = 100000;
        rv::hostStats()->parse_ms = 200000;
        rv::hostStats()->scene_ms = 300000;
        rv::hostStats()->scene_user_ms = 1000;
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(contains(takeLines(), "1 plugin loading               1:40.00"), flags != 0);
        const RtStats s = sum();
        EXPECT_EQ(s.plugin_ms + s.parse_ms + s.scene_ms + s.scene_user_ms, 0);
    }
}

TEST_F(Statistics, a_render_that_fails_has_no_report_and_loses_no_time)
{
    rv::hostStats()->parse_ms = 5000;
    EXPECT_EQ(shoot(), RV_ERROR_NO_CAMERA);
    EXPECT_EQ(reports(takeLines()), 0u);
    makeLitWall();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_TRUE(contains(takeLines(), "1 .rvs parsing                 0:05.00"));
}

TEST_F(Statistics, the_remark_on_several_threads_depends_on_their_number)
{
    makeLitWall();
    for (const int threads : { 1, 2 }) {
        set("threads", threads);
        takeLines();
        EXPECT_EQ(shoot(), RV_SUCCESS);
        size_t remarks = 0;
        for (const std::string& line : takeLines())
            remarks += line.find("(multi-threaded render") != std::string::npos;
        EXPECT_EQ(remarks, threads == 2 ? 1u : 0u);
    }
}

TEST_F(Statistics, memory_tells_of_the_start_the_strings_and_the_peak)
{
    makeLitWall();
    rv::the_frame->start_memory = 77 * 1048576;
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const Names lines = takeReport();
    EXPECT_TRUE(contains(lines, "1 at startup                     77.00"));
    const auto line = [&](const char* label) {
        const std::string start = std::string("1 ") + label;
        for (const std::string& l : lines)
            if (l.compare(0, start.size(), start) == 0)
                return l;
        return std::string("none");
    };
    const std::string pattern =
        std::string("1 string pool {17} +[0-9.]+ \\(") + rv::the_frame->strings->summary + "\\)";
    EXPECT_TRUE(matches(line("string pool"), pattern)) << line("string pool");
    EXPECT_GT(std::stod(line("total peak").substr(30)), 5);
    EXPECT_NE(line("message passing"), "none");
    EXPECT_NE(line("memory pools"), "none");
    EXPECT_EQ(line("plugins"), "none");
}

TEST_F(Statistics, the_peak_is_measured_without_buckets_too)
{
    RvRender(RV_RENDER_MODE_SETUP);
    RvEnd();
    double peak = 0;
    for (const std::string& line : takeLines())
        if (line.compare(0, 12, "1 total peak") == 0)
            peak = std::stod(line.substr(30));
    EXPECT_GT(peak, 1);
}

// ---- True counts ----

TEST_F(Statistics, of_a_lit_wall_are_those_of_four_samples_a_pixel)
{
    makeLitWall();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(s.pixels, 16u);
    EXPECT_EQ(s.samples, 64u);
    EXPECT_EQ(s.threads, 1);
    EXPECT_EQ(rays(s, RV_ROW_CAMERA), "64 rays, 64 hits, 1 at most");
    EXPECT_EQ(rays(s, RV_ROW_SHADOW), "64 rays, 0 hits, 0 at most");
    EXPECT_EQ(rays(s, RV_ROW_TOTAL), "128 rays, 64 hits, 1 at most");
    EXPECT_EQ(rays(s, RV_ROW_DIFFUSE), "0 rays, 0 hits, 0 at most");
    EXPECT_EQ(s.rays.max_depth, 0u);
    const auto& calls = s.shader_calls[RV_PASS_PIXELS];
    EXPECT_EQ(calls[RV_CALL_PRIMARY], 64u);
    EXPECT_EQ(calls[RV_CALL_SHADOW] + calls[RV_CALL_BEFORE] + calls[RV_CALL_BACKGROUND], 0u);
    EXPECT_EQ(s.lighting[RV_LIGHTING_LOOPS].primary, 64u);
    EXPECT_EQ(s.lighting[RV_LIGHTING_LOOPS].secondary, 0u);
    EXPECT_EQ(s.lighting[RV_LIGHTING_CACHED].primary, 0u);
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "1 of 2, 0 instances");
}

TEST_F(Statistics, are_the_same_on_several_threads)
{
    makeLitWall();
    set("bucket_size", 1);
    set("threads", 3);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(s.threads, 3);
    EXPECT_EQ(s.pixels, 16u);
    EXPECT_EQ(rays(s, RV_ROW_TOTAL), "128 rays, 64 hits, 1 at most");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "1 of 2, 0 instances");
}

TEST_F(Statistics, start_anew_with_every_image_but_for_the_scene)
{
    makeLitWall();
    shoot();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(s.samples, 64u);
    EXPECT_EQ(rays(s, RV_ROW_TOTAL), "128 rays, 64 hits, 1 at most");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "1 of 2, 0 instances") << "not hit twice";
}

TEST_F(Statistics, of_two_lights_and_a_background_are_told_apart)
{
    makeLitWall();
    makeLight("other");
    RvNodeDestroy(RvNodeLookUpByName("wall"));
    RtNode* const sphere = RvNodeLookUpByName("sphere");
    RtNode* const white = RvNodeLookUpByName("white");
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, -6 }));
    RvNodeSetFlt(sphere, "radius", 2);
    RvNodeSetArray(sphere, "shader", RvArray(1, 1, RV_TYPE_NODE, white));
    RvNodeSetPtr(options(), "background", node_tools::named("flat", "sky"));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    const uint64_t hits = s.rays.rows[RV_PASS_PIXELS][RV_ROW_CAMERA].hits;
    EXPECT_GT(hits, 0u);
    EXPECT_LT(hits, 64u);
    EXPECT_EQ(s.shader_calls[RV_PASS_PIXELS][RV_CALL_PRIMARY], hits);
    EXPECT_EQ(s.shader_calls[RV_PASS_PIXELS][RV_CALL_BACKGROUND], 64 - hits);
    EXPECT_EQ(s.lighting[RV_LIGHTING_LOOPS].primary, hits);
    EXPECT_EQ(s.rays.rows[RV_PASS_PIXELS][RV_ROW_SHADOW].rays, 2 * hits);
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "1 of 1, 0 instances");
}

TEST_F(Statistics, of_indirect_light_count_its_rays_and_where_they_go)
{
    makeLitWall();
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 2);
    RtNode* const standard = node_tools::named("standard", "standard");
    RvNodeSetArray(RvNodeLookUpByName("wall"), "shader", RvArray(1, 1, RV_TYPE_NODE, standard));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(s.lighting[RV_LIGHTING_DIFFUSE].primary, 64u);
    EXPECT_EQ(s.rays.rows[RV_PASS_PIXELS][RV_ROW_DIFFUSE].rays, 64u * 4);
    EXPECT_EQ(s.rays.max_depth, 1u);
}

// A square of two triangles in front of the wall, and instances of it.
class StatisticsOfObjects : public Statistics {
protected:
    template <class T>
    static void setArray(RtNode* node, const char* param, int type, std::vector<T> values)
    {
        RvNodeSetArray(node, param,
                       RvArrayConvert(int(values.size()), 1, type, values.data(), true));
    }
    static RtNode* makeSquare(const char* name, float z)
    {
        RtNode* const mesh = node_tools::named("polymesh", name);
        setArray<unsigned>(mesh, "nsides", RV_TYPE_UINT, { 4 });
        setArray<unsigned>(mesh, "vidxs", RV_TYPE_UINT, { 0, 1, 2, 3 });
        setArray<RtPoint>(mesh, "vlist", RV_TYPE_POINT,
                          { { -9, -9, z }, { 9, -9, z }, { 9, 9, z }, { -9, 9, z } });
        return mesh;
    }
    static RtNode* makeInstance(const char* name, RtNode* of, float x, float z)
    {
        RtNode* const instance = node_tools::named("ginstance", name);
        RvNodeSetPtr(instance, "node", of);
        RtMatrix matrix;
        RvM4Identity(&matrix);
        matrix.m[3][0] = x;
        matrix.m[3][2] = z;
        setArray<RtMatrix>(instance, "matrix", RV_TYPE_MATRIX, { matrix });
        return instance;
    }
    // The square hides the wall, an instance stands beside the view and another behind the square.
    static void makeSquares()
    {
        makeLitWall();
        RtNode* const square = makeSquare("square", -3);
        RvNodeSetArray(square, "shader", RvArray(1, 1, RV_TYPE_NODE, RvNodeLookUpByName("white")));
        makeInstance("beside", square, 1000, 0);
        makeInstance("behind", square, 0, -1);
    }
};

TEST_F(StatisticsOfObjects, count_objects_instances_elements_and_structures)
{
    makeSquares();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(rays(s, RV_ROW_CAMERA), "64 rays, 64 hits, 1 at most");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_POLYMESHES), "1 of 1, 2 instances");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "0 of 2, 0 instances");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_LISTS), "2 of 2, 0 instances");
    EXPECT_EQ(s.list_children.total, 6u) << "the wall and the rest of the scene, four in that";
    EXPECT_EQ(s.list_children.least, 2u);
    EXPECT_EQ(s.list_children.most, 4u);
    EXPECT_EQ(s.polygons.total, 1u);
    EXPECT_EQ(s.triangles.total, 2u);
    EXPECT_EQ(s.unique_triangles, 2u);
    EXPECT_EQ(s.visible_triangles, 6u);
    EXPECT_EQ(s.geometry[RV_GEOMETRY_POLYMESHES].initial_bytes,
              s.geometry[RV_GEOMETRY_POLYMESHES].bytes());
    EXPECT_GT(s.mesh_bytes[RV_MESH_VERTICES], 0);
    EXPECT_GT(s.accel_bytes, 0);
    EXPECT_GT(s.message_bytes, 0);
    EXPECT_EQ(s.identity_matrices, 0u);
}

TEST_F(StatisticsOfObjects, hits_on_an_instance_are_hits_on_its_shape)
{
    makeLitWall();
    RtNode* const hidden = makeSquare("square", -3);
    RvNodeSetInt(hidden, "visibility", 0);
    RtNode* const instance = makeInstance("instance", hidden, 0, 0);
    RvNodeSetInt(instance, "visibility", RV_RAY_ALL);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(geometry(s, RV_GEOMETRY_POLYMESHES), "1 of 1, 1 instances");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "0 of 2, 0 instances");
    EXPECT_EQ(s.unique_triangles, 2u);
    EXPECT_EQ(s.visible_triangles, 2u) << "those of the instance alone";
}

TEST_F(StatisticsOfObjects, hits_of_shadow_rays_count_too)
{
    makeLitWall();
    RtNode* const sphere = RvNodeLookUpByName("sphere");
    RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 2 }));
    RvNodeSetArray(RvNodeLookUpByName("light"), "position",
                   RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 9 }));
    EXPECT_EQ(geometry(sum(), RV_GEOMETRY_SIMPLE), "0 of 0, 0 instances");
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_GT(s.rays.rows[RV_PASS_PIXELS][RV_ROW_SHADOW].hits, 0u);
    EXPECT_EQ(geometry(s, RV_GEOMETRY_SIMPLE), "2 of 2, 0 instances");
}

TEST_F(StatisticsOfObjects, objects_behind_others_are_not_hit)
{
    makeLitWall();
    makeSquare("near", -3);
    makeSquare("far", -4);
    RvNodeDestroy(RvNodeLookUpByName("light"));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const RtStats s = sum();
    EXPECT_EQ(geometry(s, RV_GEOMETRY_POLYMESHES), "1 of 2, 0 instances");
    EXPECT_EQ(geometry(s, RV_GEOMETRY_LISTS), "2 of 2, 0 instances");
}

TEST_F(StatisticsOfObjects, identical_keys_and_identity_are_issues)
{
    makeLitWall();
    RtMatrix identity, moved;
    RvM4Identity(&identity);
    moved = identity;
    moved.m[3][0] = 1;
    setArray<RtMatrix>(makeSquare("a", -3), "matrix", RV_TYPE_MATRIX, { identity });
    RtMatrix keys[2] = { moved, moved };
    RvNodeSetArray(makeSquare("b", -4), "matrix", RvArrayConvert(1, 2, RV_TYPE_MATRIX, keys, true));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(sum().identity_matrices, 1u);
    EXPECT_EQ(sum().identical_motion_matrices, 1u);
}

TEST_F(StatisticsOfObjects, memory_of_an_edited_mesh_is_freed_and_added_not_initial)
{
    makeSquares();
    shoot();
    const RtGeometryCount& row = rv::hostStats()->geometry[RV_GEOMETRY_POLYMESHES];
    const int64_t initial = row.initial_bytes, before = row.bytes();
    EXPECT_GT(initial, 0);
    RtNode* const square = RvNodeLookUpByName("square");
    setArray<RtPoint>(square, "vlist", RV_TYPE_POINT,
                      { { -9, -9, -4 }, { 9, -9, -4 }, { 9, 9, -4 }, { -9, 9, -4 }, {} });
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(row.initial_bytes, initial);
    EXPECT_EQ(row.bytes(), before + int64_t(sizeof(RtPoint)));
    RvNodeDestroy(square);
    EXPECT_EQ(row.bytes(), 0);
}

TEST_F(StatisticsOfObjects, memory_of_a_list_is_freed_with_it)
{
    makeSquares();
    shoot();
    const RtGeometryCount& row = rv::hostStats()->geometry[RV_GEOMETRY_LISTS];
    // Children of both lists, and once more the list that is a child of the other.
    EXPECT_EQ(row.bytes(), int64_t(7 * sizeof(void*)));
    RvNodeDestroy(scene()->bounded_root);
    EXPECT_EQ(row.bytes(), int64_t(3 * sizeof(void*)));
}

// ---- A stored report ----

// What machines and moments change becomes "#"; lines that are there only at times are left out.
std::string masked(const Names& report)
{
    static const std::regex at_times(
        "1 +(node init|sanity checks|system/unaccounted|unaccounted|texture cache) .*");
    static const std::regex time(" +[0-9]+:[0-9:]*\\.[0-9]{2}"), share("\\( *[0-9.]+% machine");
    static const std::regex bytes(" +[0-9]+\\.[0-9]{2}( \\(.*\\))?$");
    std::string lines;
    bool is_memory = false, is_texture = false;
    for (std::string line : report) {
        if (line.rfind("0 ---", 0) == 0) {
            is_texture = false;
        } else if (line.rfind("0 OpenImageIO", 0) == 0) { // the image library's own account
            is_texture = true;
            lines += "0 OpenImageIO #\n";
        }
        if (is_texture)
            continue;
        if (line[0] == '0')
            is_memory = line == "0 memory consumed in mb:";
        if (std::regex_match(line, at_times))
            continue;
        line = std::regex_replace(line, time, " #");
        line = std::regex_replace(line, share, "(#% machine");
        lines += (is_memory ? std::regex_replace(line, bytes, " #") : line) + "\n";
    }
    return lines;
}

TEST_F(StatisticsOfObjects, of_a_small_scene_print_the_stored_report)
{
    makeSquares();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    std::ifstream file(std::string(testData()) + "/reports/squares.txt");
    const std::string stored(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(masked(takeReport()), stored);
}

} // namespace
