// Tests of what shaders may ask about geometry: spaces, bounds, polygons and other times.
#include "rv_shaderglobals.h"

#include "camera_data.h"
#include "hit_context.h"
#include "shader_tools.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;
using shader_tools::Context;
using rv::operator-, rv::operator+, rv::operator*;

namespace {

class ShaderGeometry : public Traced {
protected:
    static RtMatrix matrixOf(const json& rows)
    {
        RtMatrix matrix;
        const std::vector<float> values = goldenFloats(rows);
        memcpy(&matrix, values.data(), sizeof matrix);
        return matrix;
    }
    static RtVector vectorOf(const json& numbers)
    {
        const std::vector<float> v = goldenFloats(numbers);
        return { v.at(0), v.at(1), v.at(2) };
    }
    static RtMatrix translation(const RtVector& by)
    {
        RtMatrix matrix;
        RvM4Translation(&matrix, &by);
        return matrix;
    }
    static RtMatrix scaling(float x, float y, float z)
    {
        const RtVector by = { x, y, z };
        RtMatrix matrix;
        RvM4Scaling(&matrix, &by);
        return matrix;
    }
    // The context of the first hit on the way down, at a time.
    static RtShaderGlobals hitAt(const RtPoint& origin, float time = 0)
    {
        const RtVector dir = { 0, 0, -1 };
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
        ray.time = time;
        RtShaderGlobals sg = {};
        EXPECT_TRUE(RvTraceProbe(&ray, &sg));
        return sg;
    }
    // A pentagon and a triangle beside it; the second key is one unit higher and twice as wide.
    static RtNode* movingPolygons()
    {
        const Points first = { { 0, 0, 0 }, { 2, 0, 0 },  { 3, 2, 0 },
                               { 1, 3, 0 }, { -1, 2, 0 }, { 4, 0, 0 } };
        Points keys = first;
        for (const RtPoint& p : first)
            keys.push_back({ p.x * 2, p.y, p.z + 1 });
        RtNode* const mesh = polygons(first, { { 0, 1, 2, 3, 4 }, { 1, 5, 2 } });
        setPoints(mesh, "vlist", keys, 2);
        return mesh;
    }
    static RtNode* camera(const char* type = "persp_camera")
    {
        RtNode* const node = node_tools::named(type, "cam");
        if (!strcmp(type, "persp_camera"))
            RvNodeSetFlt(node, "fov", 60);
        RvNodeSetPtr(options(), "camera", node);
        return node;
    }
};

} // namespace

// ---- Spaces ----

TEST_F(ShaderGeometry, spaces_are_changed_as_the_golden_vectors_say)
{
    static const struct {
        const char* name;
        RtVector (*transform)(const RtShaderGlobals*, RtVector, int);
        const char* input;
    } functions[] = {
        { "RvShaderGlobalsTransformPoint", RvShaderGlobalsTransformPoint, "p" },
        { "RvShaderGlobalsTransformVector", RvShaderGlobalsTransformVector, "v" },
        { "RvShaderGlobalsTransformNormal", RvShaderGlobalsTransformNormal, "n" },
    };
    for (const auto& function : functions)
        for (const json& v : goldenVectors("shading", function.name)) {
            const json& in = v.at("in");
            Context sg;
            sg->object_to_world = matrixOf(in.at("object_to_world"));
            sg->world_to_object = matrixOf(in.at("world_to_object"));
            const RtVector given = vectorOf(in.contains("v") ? in.at("v") : in.at(function.input));
            const RtVector got = function.transform(sg, given, in.at("space").get<int>());
            expectGoldenNumbers(v, "value", { got.x, got.y, got.z });
        }
}

TEST_F(ShaderGeometry, an_unknown_space_or_no_context_changes_nothing)
{
    Context sg;
    sg->object_to_world = translation({ 1, 2, 3 });
    for (int space : { 0, 3, -1, 1000 }) {
        EXPECT_EQ(describe(RvShaderGlobalsTransformPoint(sg, { 4, 5, 6 }, space)), "4 5 6");
        EXPECT_EQ(describe(RvShaderGlobalsTransformVector(sg, { 4, 5, 6 }, space)), "4 5 6");
        EXPECT_EQ(describe(RvShaderGlobalsTransformNormal(sg, { 4, 5, 6 }, space)), "4 5 6");
    }
    EXPECT_EQ(describe(RvShaderGlobalsTransformPoint(nullptr, { 4, 5, 6 }, RV_OBJECT_TO_WORLD)),
              "4 5 6");
}

TEST_F(ShaderGeometry, normals_of_three_points_are_what_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("shading", "RvShaderGlobalsCalculateNormal")) {
        const json& in = v.at("in");
        set("CCW_points", in.at("CCW_points").get<bool>());
        Context sg[3];
        for (size_t i = 0; i < 3; ++i)
            sg[i]->point = vectorOf(in.at("P")[i]);
        sg[0]->normal = vectorOf(in.at("normal0"));
        const RtVector n = RvShaderGlobalsCalculateNormal(sg[0], sg[1], sg[2]);
        expectGoldenNumbers(v, "N", { n.x, n.y, n.z });
    }
}

TEST_F(ShaderGeometry, degenerate_triangles_have_the_normal_of_the_first_context)
{
    Context a, b, c;
    a->normal = { 0, 1, 0 };
    b->point = { 1, 1, 1 };
    c->point = { 2, 2, 2 };
    EXPECT_EQ(describe(RvShaderGlobalsCalculateNormal(a, b, c)), "0 1 0"); // collinear
    c->point = { std::nanf(""), 0, 0 };
    EXPECT_EQ(describe(RvShaderGlobalsCalculateNormal(a, b, c)), "0 1 0");
    EXPECT_EQ(describe(RvShaderGlobalsCalculateNormal(nullptr, b, c)), "0 0 0");
    EXPECT_EQ(describe(RvShaderGlobalsCalculateNormal(a, nullptr, c)), "0 0 0");
    EXPECT_EQ(describe(RvShaderGlobalsCalculateNormal(a, b, nullptr)), "0 0 0");
}

// ---- Bounds ----

TEST_F(ShaderGeometry, bounds_are_those_of_the_object_in_both_spaces)
{
    RtNode* const ball = sphere("ball", { 1, 2, 3 }, 0.5f);
    shape_fixture::setMatrices(ball, { scaling(2, 2, 4) });
    prepare();
    const RtShaderGlobals sg = hitAt({ 2, 4, 100 });
    const RtBBox local = RvShaderGlobalsGetBBoxLocal(&sg);
    expectNear(local.min, { 0.5f, 1.5f, 2.5f }, 1e-5f, "local min");
    expectNear(local.max, { 1.5f, 2.5f, 3.5f }, 1e-5f, "local max");
    const RtBBox world = RvShaderGlobalsGetBBoxWorld(&sg);
    expectNear(world.min, { 1, 3, 10 }, 1e-4f, "world min");
    expectNear(world.max, { 3, 5, 14 }, 1e-4f, "world max");
}

TEST_F(ShaderGeometry, without_an_object_the_bounds_are_empty)
{
    Context sg;
    for (RtShaderGlobals* at : { &sg.sg, static_cast<RtShaderGlobals*>(nullptr) })
        for (const RtBBox& box :
             { RvShaderGlobalsGetBBoxLocal(at), RvShaderGlobalsGetBBoxWorld(at) }) {
            EXPECT_EQ(box.min.x, RV_BIG);
            EXPECT_EQ(box.max.z, -RV_BIG);
        }
}

// ---- Polygons ----

TEST_F(ShaderGeometry, the_polygon_that_was_hit_is_told_at_any_key_and_at_the_time)
{
    RtNode* const mesh = movingPolygons();
    prepare();
    Context sg;
    sg->object = mesh;
    sg->time = 0.25f;
    RtPoint p[5];
    for (uint32_t prim = 0; prim < 3; ++prim) { // the fan of the pentagon
        sg->prim_index = prim;
        EXPECT_EQ(RvShaderGlobalsGetPolygon(sg, 0, nullptr), 5);
        ASSERT_EQ(RvShaderGlobalsGetPolygon(sg, 0, p), 5);
        EXPECT_EQ(describe(p[3]), "1 3 0");
        RvShaderGlobalsGetPolygon(sg, 1, p);
        EXPECT_EQ(describe(p[3]), "2 3 1");
        RvShaderGlobalsGetPolygon(sg, -1, p);
        EXPECT_EQ(describe(p[3]), "1.25 3 0.25");
        RvShaderGlobalsGetPolygon(sg, 99, p); // the last key
        EXPECT_EQ(describe(p[3]), "2 3 1");
    }
    sg->prim_index = 3;
    ASSERT_EQ(RvShaderGlobalsGetPolygon(sg, 0, p), 3);
    EXPECT_EQ(describe(p[1]), "4 0 0");
}

TEST_F(ShaderGeometry, the_triangle_that_was_hit_is_told_likewise)
{
    RtNode* const mesh = movingPolygons();
    prepare();
    Context sg;
    sg->object = mesh;
    sg->time = 0.5f;
    const std::vector<Indices> all = triangles(record(mesh));
    for (uint32_t prim = 0; prim < all.size(); ++prim) {
        sg->prim_index = prim;
        RtPoint p[3];
        ASSERT_TRUE(RvShaderGlobalsGetTriangle(sg, 0, p));
        for (size_t i = 0; i < 3; ++i)
            EXPECT_EQ(describe(p[i]), describe(record(mesh)->vertices[all[prim][i]]));
        ASSERT_TRUE(RvShaderGlobalsGetTriangle(sg, -1, p));
        EXPECT_FLOAT_EQ(p[0].z, 0.5f);
    }
    EXPECT_TRUE(RvShaderGlobalsGetTriangle(sg, 0, nullptr));
}

TEST_F(ShaderGeometry, only_meshes_have_polygons)
{
    RtNode *const ball = sphere("ball", {}, 1), *const mesh = movingPolygons();
    camera();
    prepare();
    Context sg;
    RtPoint p[3];
    for (RtNode* object : { ball, static_cast<RtNode*>(nullptr) }) {
        sg->object = object;
        EXPECT_EQ(RvShaderGlobalsGetPolygon(sg, 0, p), 0);
        EXPECT_FALSE(RvShaderGlobalsGetTriangle(sg, 0, p));
        EXPECT_EQ(RvShaderGlobalsEdgeLength(sg), 0);
    }
    sg->object = mesh;
    sg->prim_index = 1000; // there is no such triangle
    EXPECT_EQ(RvShaderGlobalsGetPolygon(sg, 0, p), 0);
    EXPECT_EQ(RvShaderGlobalsGetPolygon(nullptr, 0, p), 0);
    EXPECT_FALSE(RvShaderGlobalsGetTriangle(nullptr, 0, p));
    EXPECT_EQ(RvShaderGlobalsEdgeLength(nullptr), 0);
}

// ---- Edges in pixels ----

TEST_F(ShaderGeometry, the_longest_edge_is_measured_in_pixels)
{
    // A rectangle of 4 by 3, straight below the camera; fov 60 over 320 pixels.
    RtNode* const mesh =
        polygons({ { -2, -1, 0 }, { 2, -1, 0 }, { 2, 2, 0 }, { -2, 2, 0 } }, { { 0, 1, 2, 3 } });
    shape_fixture::setMatrices(mesh, { translation({ 0, 0, -5 }) });
    camera();
    set("xres", 320);
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.5f, 0.5f, 10 });
    const double scale = 1 / (60 * 0.017453292 * (1.0 / 320));
    // The near edge of length 4 comes as near as (0, -1, -5), the others not.
    EXPECT_NEAR(RvShaderGlobalsEdgeLength(&sg), 4 / sqrt(26.0) * scale, 0.01);
    RvNodeSetPnt(RvUniverseGetCamera(), "position", 0, 0, 5);
    prepare();
    EXPECT_NEAR(RvShaderGlobalsEdgeLength(&sg), 4 / sqrt(101.0) * scale, 0.01);
}

TEST_F(ShaderGeometry, an_edge_counts_from_its_nearest_point)
{
    polygons({ { 10, -1, 0 }, { 30, -1, 0 }, { 20, 5, 0 } }, { { 0, 1, 2 } });
    camera();
    set("xres", 320);
    prepare();
    const RtShaderGlobals sg = hitAt({ 20, 1, 10 });
    const double scale = 1 / (60 * 0.017453292 * (1.0 / 320));
    EXPECT_NEAR(RvShaderGlobalsEdgeLength(&sg), 20 / sqrt(101.0) * scale, 0.05); // the end
}

TEST_F(ShaderGeometry, only_perspective_cameras_measure_edges)
{
    polygons({ { -2, -1, 0 }, { 2, -1, 0 }, { 2, 2, 0 } }, { { 0, 1, 2 } });
    camera("ortho_camera");
    prepare();
    const RtShaderGlobals sg = hitAt({ 1, 0, 10 });
    EXPECT_EQ(RvShaderGlobalsEdgeLength(&sg), 0);
    RvNodeSetPtr(options(), "camera", nullptr);
    EXPECT_EQ(RvShaderGlobalsEdgeLength(&sg), 0);
}

// ---- Other times ----

TEST_F(ShaderGeometry, a_moving_object_takes_its_points_along)
{
    RtNode* const ball = sphere("ball", {}, 1);
    shape_fixture::setMatrices(ball, { RV_M4_IDENTITY, translation({ 10, 0, 0 }) });
    prepare();
    const RtShaderGlobals sg = hitAt({ 5, 0, 10 }, 0.5f);
    RtVector n, ng;
    for (float time : { 0.0f, 0.25f, 0.5f, 1.0f }) {
        const RtPoint p = RvShaderGlobalsGetPositionAtTime(&sg, time, &n, &ng);
        expectNear(p, { 10 * time, 0, 1 }, 1e-4f, std::to_string(time));
        expectNear(n, { 0, 0, 1 }, 1e-5f, "normal");
        expectNear(ng, { 0, 0, 1 }, 1e-5f, "geometric normal");
    }
}

TEST_F(ShaderGeometry, a_deforming_mesh_takes_its_points_along)
{
    movingPolygons();
    prepare();
    const RtShaderGlobals sg = hitAt({ 1.5f, 1, 10 }, 0.5f); // x is stretched by 1.5
    RtVector n;
    expectNear(RvShaderGlobalsGetPositionAtTime(&sg, 0, &n, nullptr), { 1, 1, 0 }, 1e-4f, "at 0");
    EXPECT_NEAR(fabsf(n.z), 1, 1e-5);
    expectNear(RvShaderGlobalsGetPositionAtTime(&sg, 1, nullptr, nullptr), { 2, 1, 1 }, 1e-4f,
               "at 1");
    expectNear(RvShaderGlobalsGetPositionAtTime(&sg, 0.5f, nullptr, nullptr), sg.point, 1e-4f,
               "now");
}

TEST_F(ShaderGeometry, instances_and_lists_move_what_is_inside)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RtNode* const group = groupOf("g", { ball });
    RtNode* const instance = instanceOf(group, "i", RV_M4_IDENTITY);
    shape_fixture::setMatrices(instance, { translation({ 0, 20, 0 }), translation({ 0, 30, 0 }) });
    RtNode* const direct = instanceOf(ball, "d", RV_M4_IDENTITY);
    shape_fixture::setMatrices(direct, { translation({ 0, -20, 0 }), translation({ 0, -30, 0 }) });
    prepare();
    for (float sign : { 1.0f, -1.0f }) {
        const RtShaderGlobals sg = hitAt({ 0, sign * 25, 10 }, 0.5f);
        ASSERT_NE(sg.instance, nullptr);
        for (float time : { 0.0f, 1.0f })
            expectNear(RvShaderGlobalsGetPositionAtTime(&sg, time, nullptr, nullptr),
                       { 0, sign * (20 + 10 * time), 1 }, 1e-4f, RvNodeGetName(sg.instance));
    }
}

TEST_F(ShaderGeometry, what_does_not_move_stays)
{
    RtNode* const ball = sphere("ball", { 1, 0, 0 }, 1);
    shape_fixture::setMatrices(ball, { translation({ 1, 2, 3 }) });
    prepare();
    const RtShaderGlobals sg = hitAt({ 2, 2, 10 });
    expectNear(RvShaderGlobalsGetPositionAtTime(&sg, 0.7f, nullptr, nullptr), sg.point, 1e-5f, "");
    EXPECT_EQ(describe(RvShaderGlobalsGetPositionAtTime(nullptr, 0, nullptr, nullptr)), "0 0 0");
}

TEST_F(ShaderGeometry, normals_of_turning_objects_turn)
{
    RtNode* const node = disc("d", 0);
    RtMatrix turned;
    RvM4RotationX(&turned, 90);
    shape_fixture::setMatrices(node, { RV_M4_IDENTITY, turned });
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.5f, 0, 10 }, 0);
    RtVector n, ng;
    RvShaderGlobalsGetPositionAtTime(&sg, 1, &n, &ng);
    expectNear(n, { 0, -1, 0 }, 1e-4f, "normal");
    expectNear(ng, { 0, -1, 0 }, 1e-4f, "geometric normal");
}

TEST_F(ShaderGeometry, motion_on_the_screen_is_told_in_pixels)
{
    RtNode* const ball = sphere("ball", {}, 1);
    shape_fixture::setMatrices(ball, { RV_M4_IDENTITY, translation({ 2, 0, 0 }) });
    RtNode* const cam = camera();
    RvNodeSetPnt(cam, "position", 0, 0, 11);
    RvNodeSetFlt(cam, "fov", 90);
    set("xres", 400);
    set("yres", 200);
    prepare();
    const RtShaderGlobals sg = hitAt({ 1, 0, 11 }, 0.5f);
    const RtPoint2 motion = RvShaderGlobalsGetPixelMotionVector(&sg, 0, 1);
    EXPECT_NEAR(motion.x, 400 * 0.5 * (2.0 / 10), 0.05); // at a depth of 10
    EXPECT_NEAR(motion.y, 0, 1e-3);
    const RtPoint2 none = RvShaderGlobalsGetPixelMotionVector(nullptr, 0, 1);
    EXPECT_EQ(none.x, 0);
    EXPECT_EQ(none.y, 0);
}
