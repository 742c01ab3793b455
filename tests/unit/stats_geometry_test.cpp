// Tests of the sections of the statistics report on geometry, its triangles, memory and structures.
#include "report_tools.h"

#include <iterator>

using namespace report_tools;

namespace {

constexpr int64_t MB = 1048576;

using StatsGeometry = Reports;

// ---- Geometry ----

TEST_F(StatsGeometry, geometry_lists_every_kind_and_their_total)
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

TEST_F(StatsGeometry, kinds_without_objects_have_no_row)
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

TEST_F(StatsGeometry, elements_list_every_kind_that_has_some)
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

TEST_F(StatsGeometry, simple_shapes_have_no_elements)
{
    s.geometry[RV_GEOMETRY_SIMPLE] = { 4, 4, 0, MB, 0, 0 };
    EXPECT_FALSE(hasLine("geometric elements:"));
}

TEST_F(StatsGeometry, triangles_list_meshes_and_what_refining_them_made)
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

TEST_F(StatsGeometry, triangle_rows_need_meshes_and_values_per_element_need_elements)
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

TEST_F(StatsGeometry, mesh_memory_lists_its_arrays_in_the_column_of_the_triangles)
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

TEST_F(StatsGeometry, mesh_memory_always_lists_vertices_and_their_indices)
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

TEST_F(StatsGeometry, structures_list_the_kinds_that_were_built)
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

TEST_F(StatsGeometry, structures_need_the_category_of_debugging_too)
{
    s.accels[RV_ACCEL_BVH] = 1;
    RvMsgSetConsoleFlags(RV_LOG_STATS);
    EXPECT_FALSE(hasLine("acceleration structures:"));
    EXPECT_FALSE(hasLine(" bvh"));
    EXPECT_TRUE(hasLine("geometry:"));
    RvMsgSetConsoleFlags(RV_LOG_STATS | RV_LOG_DEBUG);
    EXPECT_TRUE(hasLine(" bvh"));
}

} // namespace
