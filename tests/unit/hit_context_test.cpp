// Tests of hit contexts: what a shader is told of a hit, in the space and at the time of the ray.
#include "hit_context.h"

#include "trace_tools.h"
#include "userdefs.h"

#include <random>

using namespace trace_tools;
using node_tools::describe;
using rv::operator+, rv::operator-, rv::operator*;

namespace {

class HitContexts : public Traced {
protected:
    // The context of the first hit of a ray.
    static RtShaderGlobals probed(const RtRay& ray)
    {
        RtShaderGlobals sg = {};
        EXPECT_TRUE(RvTraceProbe(&ray, &sg));
        return sg;
    }
    static RtRay towards(const RtPoint& origin, const RtVector& dir)
    {
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
        return ray;
    }

    // object_to_world and world_to_object undo each other and take the points to each other.
    static void expectConsistent(const RtShaderGlobals& sg, const std::string& what,
                                 float tolerance = 1e-4f)
    {
        RtMatrix product;
        RvM4Mult(&product, &sg.object_to_world, &sg.world_to_object);
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                EXPECT_NEAR(product.m[i][j], i == j, 1e-5) << what;
        RtPoint point;
        RvM4PointByMatrixMult(&point, &sg.object_to_world, &sg.object_point);
        expectNear(point, sg.point, tolerance, what);
        for (const RtVector& n : { sg.normal, sg.geometric_normal, sg.smooth_normal })
            EXPECT_NEAR(rv::dot(n, n), 1, 1e-5) << what;
        EXPECT_LE(rv::dot(sg.facing_normal, sg.ray_dir), 0) << what;
        EXPECT_LE(rv::dot(sg.facing_geometric_normal, sg.ray_dir), 0) << what;
    }

    // A quad in a slanted plane far from the origin, where distances are rounded.
    static RtNode* farQuad()
    {
        return polygons({ { 1000, 1000, 3000 },
                          { 1010, 1000, 3007 },
                          { 1010, 1010, 3011 },
                          { 1000, 1010, 3004 } },
                        { { 0, 1, 2, 3 } });
    }
    // How far an object-space point lies out of the plane of the hit triangle at relative time f.
    static double distanceFromPlane(const RtShaderGlobals& sg, float f)
    {
        const RtPolyMesh& mesh = *record(sg.object);
        uint32_t v[3];
        rv::triangleVertices(mesh, sg.prim_index, v);
        double p[3][3], n[3];
        for (int i = 0; i < 3; ++i) {
            const RtPoint a = mesh.vertices[v[i]];
            const RtPoint b = mesh.vertices[v[i] + (mesh.nkeys > 1 ? mesh.nvertices : 0)];
            p[i][0] = a.x + double(f) * (b.x - a.x);
            p[i][1] = a.y + double(f) * (b.y - a.y);
            p[i][2] = a.z + double(f) * (b.z - a.z);
        }
        for (int i = 0; i < 3; ++i) {
            const int j = (i + 1) % 3, k = (i + 2) % 3;
            n[i] = (p[1][j] - p[0][j]) * (p[2][k] - p[0][k]) -
                   (p[1][k] - p[0][k]) * (p[2][j] - p[0][j]);
        }
        const double length = sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        const RtPoint& q = sg.object_point;
        return fabs((q.x - p[0][0]) * n[0] + (q.y - p[0][1]) * n[1] + (q.z - p[0][2]) * n[2]) /
               length;
    }

    // The context of the first hit, with its distance changed.
    static RtShaderGlobals contextAt(const RtRay& ray, float offset)
    {
        RtHit hit = hitsOf(ray, 1).at(0);
        hit.t += offset;
        RtShaderGlobals sg;
        sg.state = nullptr;
        rv::fillHitContext(&sg, ray, hit, 0);
        return sg;
    }
};

} // namespace

// ---- From the ray ----

TEST_F(HitContexts, a_context_takes_over_what_the_ray_knows)
{
    disc("wall", 0);
    prepare();
    int output = 0;
    RtRay ray = down(RV_RAY_REFRACTED);
    ray.level = 1;
    ray.reflection_depth = 2;
    ray.refraction_depth = 3;
    ray.diffuse_depth = 4;
    ray.glossy_depth = 5;
    ray.x = -6;
    ray.y = 7;
    ray.sx = 0.5f;
    ray.sy = -0.25f;
    ray.sample_index = 50000;
    ray.tid = 9;
    ray.time = 0.375f;
    ray.aov_sink = &output;
    ray.traceset = "wall";
    ray.inclusive_traceset = false;
    ray.dDdx = { 1, 2, 3 };
    ray.dDdy = { 4, 5, 6 };
    const RtShaderGlobals sg = probed(ray);
    EXPECT_EQ(sg.ray_type, RV_RAY_REFRACTED);
    EXPECT_EQ(sg.ray_depth, 1);
    EXPECT_EQ(sg.reflection_depth, 2);
    EXPECT_EQ(sg.refraction_depth, 3);
    EXPECT_EQ(sg.diffuse_depth, 4);
    EXPECT_EQ(sg.glossy_depth, 5);
    EXPECT_EQ(sg.pixel_x, -6);
    EXPECT_EQ(sg.pixel_y, 7);
    EXPECT_EQ(sg.screen_x, 0.5f);
    EXPECT_EQ(sg.screen_y, -0.25f);
    EXPECT_EQ(sg.sample_index, 50000);
    EXPECT_EQ(sg.thread_index, 9);
    EXPECT_EQ(sg.time, 0.375f);
    EXPECT_EQ(sg.sample_output, nullptr); // such a ray writes none
    EXPECT_STREQ(sg.traceset, "wall");
    EXPECT_FALSE(sg.traceset_inclusive);
    EXPECT_EQ(describe(sg.dDdx), "1 2 3");
    EXPECT_EQ(describe(sg.dDdy), "4 5 6");
    EXPECT_EQ(describe(sg.ray_origin), "0 0 10");
    EXPECT_EQ(describe(sg.ray_dir), "0 0 -1");
    EXPECT_EQ(sg.parent, nullptr);
    ray.type = RV_RAY_CAMERA;
    EXPECT_EQ(probed(ray).sample_output, &output);
}

TEST_F(HitContexts, everything_else_starts_from_the_reset_values)
{
    disc("wall", 0);
    prepare();
    const RtShaderGlobals sg = probed(down());
    EXPECT_EQ(sg.stage, RV_STAGE_SURFACE);
    EXPECT_EQ(sg.transparency_index, 0u);
    EXPECT_EQ(describe(sg.out_opacity), "1 1 1");
    EXPECT_EQ(describe(sg.object_to_world), describe(RV_M4_IDENTITY));
    EXPECT_EQ(describe(sg.world_to_object), describe(RV_M4_IDENTITY));
    EXPECT_EQ(sg.front_hemisphere_only, 1);
    EXPECT_EQ(sg.instance, nullptr);
    EXPECT_EQ(sg.shader, nullptr);
    EXPECT_EQ(sg.shader_source, nullptr);
    EXPECT_EQ(sg.lights, nullptr);
}

TEST_F(HitContexts, the_state_continues_that_of_the_spawning_context)
{
    disc("wall", 0);
    prepare();
    RtShadingState state = {};
    state.loop_samples = 9;
    state.loop_index = 4;
    state.pass = RV_PASS_HAIR;
    state.vertex_index = 7;
    RtShaderGlobals parent = cameraContext();
    parent.state = &state;
    traced(down(RV_RAY_CAMERA, &parent));
    rv::traceShadow(down(RV_RAY_SHADOW, &parent)); // opaque: not shaded
    traced(down());
    ASSERT_EQ(shading().states.size(), 2u);
    EXPECT_EQ(shading().contexts[0].parent, &parent);
    EXPECT_EQ(shading().states[0].loop_samples, 9);
    EXPECT_EQ(shading().states[0].loop_index, 4);
    EXPECT_EQ(shading().states[0].pass, RV_PASS_HAIR);
    EXPECT_EQ(shading().states[0].vertex_index, 0u);
    EXPECT_EQ(shading().states[1].loop_samples, 0);
    EXPECT_EQ(shading().states[1].pass, RV_PASS_PIXELS);
}

TEST_F(HitContexts, user_data_of_the_shape_is_at_hand)
{
    RtNode* const object = polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 } }, { { 0, 1, 2 } });
    declare<float>(object, "heat", "varying FLOAT", RV_TYPE_FLOAT, { 0, 4, 8 });
    RtNode* const plain = disc("plain", -5);
    prepare();
    hooks->hooks.shadeSurface = [](RtShaderGlobals* sg) -> int {
        const RtUserDataHit* const data = sg->state->user_data;
        const RtUserParamEntry* const param = data ? &data->node->user_params[0] : nullptr;
        sg->out.FLT = -1;
        if (data)
            data->read(data, param, RV_TYPE_FLOAT, &sg->out.FLT);
        return RV_TYPE_FLOAT;
    };
    RtRay ray = down();
    ray.origin.y = -0.5f;
    EXPECT_NEAR(traced(ray).color.r, 0.375f * 0 + 0.375f * 4 + 0.25f * 8, 1e-5f);
    RvNodeSetInt(object, "visibility", 0);
    EXPECT_EQ(traced(ray).obj, plain);
    EXPECT_EQ(traced(ray).color.r, -1);
}

// ---- Geometry ----

TEST_F(HitContexts, a_hit_is_told_with_its_place_and_normals)
{
    RtNode* const ball = sphere("ball", { 1, 2, 3 }, 2);
    prepare();
    const RtShaderGlobals sg = probed(towards({ 1, 2, 13 }, { 0, 0, -2 }));
    EXPECT_EQ(sg.object, ball);
    EXPECT_EQ(sg.ray_length, 4);
    expectNear(sg.point, { 1, 2, 5 }, 1e-6f, "point");
    expectNear(sg.object_point, { 1, 2, 5 }, 1e-6f, "object point");
    expectNear(sg.normal, { 0, 0, 1 }, 1e-6f, "normal");
    EXPECT_EQ(sg.prim_index, 0u);
    EXPECT_NEAR(sg.u, 0.75f, 1e-6);
    EXPECT_NEAR(sg.v, 0.5f, 1e-6);
    EXPECT_EQ(sg.bary_u, sg.u);
    EXPECT_EQ(sg.bary_v, sg.v);
    expectConsistent(sg, "ball");
}

TEST_F(HitContexts, facing_normals_look_back_along_the_ray)
{
    for (const bool inverted : { false, true }) {
        startAnew();
        RvNodeSetBool(sphere("ball", { 0, 0, 0 }, 1), "invert_normals", inverted);
        prepare();
        const float outside = inverted ? -1.0f : 1.0f;
        const RtShaderGlobals from_above = probed(down()), from_inside = probed(rayFrom(0));
        for (const RtVector& n :
             { from_above.normal, from_above.geometric_normal, from_above.smooth_normal })
            expectNear(n, { 0, 0, outside }, 1e-6f, "above");
        expectNear(from_above.facing_normal, { 0, 0, 1 }, 1e-6f, "above");
        expectNear(from_above.facing_geometric_normal, { 0, 0, 1 }, 1e-6f, "above");
        for (const RtVector& n :
             { from_inside.normal, from_inside.geometric_normal, from_inside.smooth_normal })
            expectNear(n, { 0, 0, -outside }, 1e-6f, "inside");
        expectNear(from_inside.facing_normal, { 0, 0, 1 }, 1e-6f, "inside");
        expectNear(from_inside.facing_geometric_normal, { 0, 0, 1 }, 1e-6f, "inside");
    }
}

TEST_F(HitContexts, a_smooth_mesh_has_two_normals_and_texture_coordinates)
{
    RtNode* const mesh = polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 } }, { { 0, 1, 2 } });
    const float h = sqrtf(0.5f);
    RvNodeSetBool(mesh, "smoothing", true);
    setPoints(mesh, "nlist", { { -h, 0, h }, { h, 0, h }, { 0, h, h } });
    setIndices(mesh, "nidxs", { 0, 1, 2 });
    setUVs(mesh, { { 0, 0 }, { 1, 0 }, { 0, 1 } });
    setIndices(mesh, "uvidxs", { 0, 1, 2 });
    prepare();
    RtRay ray = down();
    ray.origin.y = 0.5f;
    const RtShaderGlobals sg = probed(ray);
    expectNear(sg.geometric_normal, { 0, 0, 1 }, 1e-6f, "Ng");
    const float y = 0.75f * h, z = h, length = sqrtf(y * y + z * z);
    expectNear(sg.normal, { 0, y / length, z / length }, 2e-3f, "N");
    expectNear(sg.smooth_normal, sg.normal, 0, "smooth");
    EXPECT_NEAR(sg.bary_u, 0.125f, 1e-6);
    EXPECT_NEAR(sg.bary_v, 0.75f, 1e-6);
    EXPECT_NEAR(sg.u, 0.125f, 1e-4);
    EXPECT_NEAR(sg.v, 0.75f, 1e-4);
    expectNear(sg.dPdu, { 2, 0, 0 }, 1e-3f, "dPdu");
    expectNear(sg.dPdv, { 1, 2, 0 }, 1e-3f, "dPdv");
}

TEST_F(HitContexts, normals_of_the_smallest_triangles_are_unit_vectors)
{
    const float s = 1e-10f;
    polygons({ { -s, -s, 0 }, { s, -s, 0 }, { 0, s, 0 } }, { { 0, 1, 2 } });
    prepare();
    expectNear(probed(rayFrom(1e-3f)).geometric_normal, { 0, 0, 1 }, 1e-6f, "Ng");
}

// ---- Transforms ----

TEST_F(HitContexts, normals_and_tangents_follow_the_transform_of_the_object)
{
    RtMatrix matrix = shape_fixture::scaling(2, 1, 1);
    matrix.m[3][0] = 7;
    shape_fixture::setMatrices(sphere("ball", { 0, 0, 0 }, 1), { matrix });
    prepare();
    // A point at 45 degrees on the ball is at (sqrt 2, ., sqrt 1/2) in the world.
    const float h = sqrtf(0.5f);
    RtRay ray = down();
    ray.origin.x = 7 + 2 * h;
    const RtShaderGlobals sg = probed(ray);
    expectNear(sg.point, { 7 + 2 * h, 0, h }, 1e-5f, "point");
    expectNear(sg.object_point, { h, 0, h }, 1e-5f, "object point");
    const float length = sqrtf(h * h / 4 + h * h);
    expectNear(sg.normal, { h / 2 / length, 0, h / length }, 1e-5f, "normal");
    expectNear(sg.dPdu, { 2 * h, 0, -h }, 1e-5f, "dPdu keeps its length");
    EXPECT_EQ(describe(sg.object_to_world), describe(matrix));
    expectConsistent(sg, "scaled");
}

TEST_F(HitContexts, an_instance_is_told_with_the_shape_behind_it)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    shape_fixture::setMatrices(ball, { shape_fixture::scaling(2, 2, 2) });
    RtNode* const copy = instanceOf(ball, "copy", shape_fixture::translation(10, 0, 0));
    instanceOf(copy, "again", shape_fixture::translation(0, 20, 0));
    prepare();
    static const struct {
        float x, y;
        const char* instance;
    } cases[] = { { 0, 0, nullptr }, { 10, 0, "copy" }, { 10, 20, "again" } };
    for (const auto& c : cases) {
        const RtShaderGlobals sg = probed(towards({ c.x, c.y, 10 }, { 0, 0, -1 }));
        EXPECT_EQ(sg.object, ball);
        EXPECT_EQ(sg.instance, c.instance ? RvNodeLookUpByName(c.instance) : nullptr);
        expectNear(sg.point, { c.x, c.y, 2 }, 1e-5f, "point");
        expectNear(sg.object_point, { 0, 0, 1 }, 1e-5f, "object point");
        RtMatrix matrix = shape_fixture::scaling(2, 2, 2);
        matrix.m[3][0] = c.x;
        matrix.m[3][1] = c.y;
        EXPECT_EQ(describe(sg.object_to_world), describe(matrix));
        expectConsistent(sg, "instance");
    }
}

TEST_F(HitContexts, transforms_of_lists_and_members_are_put_together)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RvNodeSetInt(ball, "visibility", 0xFFFF & ~RV_RAY_REFLECTED);
    RtNode* const inner = instanceOf(ball, "inner", shape_fixture::scaling(2, 2, 2));
    RtNode* const group = groupOf("group", { inner });
    instanceOf(group, "outer", shape_fixture::translation(0, 30, 0));
    RtNode* const group_of_groups = groupOf("groups", { RvNodeLookUpByName("outer") });
    instanceOf(group_of_groups, "outermost", shape_fixture::translation(40, 0, 0));
    prepare();
    const RtShaderGlobals sg = probed(towards({ 40, 30, 10 }, { 0, 0, -1 }));
    EXPECT_EQ(sg.object, ball);
    ASSERT_TRUE(sg.instance);
    EXPECT_STREQ(RvNodeGetName(sg.instance), "outermost");
    expectNear(sg.point, { 40, 30, 2 }, 1e-5f, "point");
    expectNear(sg.object_point, { 0, 0, 1 }, 1e-5f, "object point");
    RtMatrix matrix = shape_fixture::scaling(2, 2, 2);
    matrix.m[3][0] = 40;
    matrix.m[3][1] = 30;
    EXPECT_EQ(describe(sg.object_to_world), describe(matrix));
    expectConsistent(sg, "nested");
}

TEST_F(HitContexts, moving_objects_are_hit_where_they_are_at_the_time_of_the_ray)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RtMatrix last = shape_fixture::scaling(2, 2, 2);
    last.m[3][0] = 100;
    shape_fixture::setMatrices(
        ball, { shape_fixture::translation(0, 0, 0), shape_fixture::translation(10, 0, 0), last });
    RvNodeSetArray(ball, "transform_time_samples", shape_fixture::floats({ 0.25f, 0.5f, 0.75f }));
    RtNode* const copy = node_tools::named("ginstance", "copy");
    RvNodeSetPtr(copy, "node", ball);
    shape_fixture::setMatrices(copy, { shape_fixture::translation(0, 50, 0) });
    prepare();
    static const struct {
        float time, x, scale;
    } cases[] = {
        { 0, 0, 1 },          { 0.25f, 0, 1 },   { 0.375f, 5, 1 }, { 0.5f, 10, 1 },
        { 0.625f, 55, 1.5f }, { 0.75f, 100, 2 }, { 1, 100, 2 },
    };
    for (const auto& c : cases)
        for (const float y : { 0.0f, 50.0f }) {
            const std::string what = std::to_string(c.time) + " " + std::to_string(y);
            RtRay ray = towards({ c.x, y, 10 }, { 0, 0, -1 });
            ray.time = c.time;
            const RtShaderGlobals sg = probed(ray);
            EXPECT_EQ(sg.instance, y > 0 ? copy : nullptr) << what;
            expectNear(sg.point, { c.x, y, c.scale }, 1e-3f, what);
            expectNear(sg.object_point, { 0, 0, 1 }, 1e-3f, what);
            EXPECT_NEAR(sg.object_to_world.m[0][0], c.scale, 1e-4) << what;
            EXPECT_NEAR(sg.object_to_world.m[3][0], c.x, 1e-3) << what;
            EXPECT_NEAR(sg.object_to_world.m[3][1], y, 1e-4) << what;
            expectConsistent(sg, what);
            ray.time = c.time < 0.5f ? 1 : 0;
            EXPECT_FALSE(RvTraceProbe(&ray, nullptr)) << what;
        }
}

// ---- Differentials ----

TEST_F(HitContexts, differentials_land_on_the_surface)
{
    // Neighbouring rays, intersected by hand, say where the differentials must point.
    RtNode* const mesh = polygons({ { -5, -5, -2 }, { 5, -5, 2 }, { 5, 5, 3 }, { -5, 5, -1 } },
                                  { { 0, 1, 2 }, { 0, 2, 3 } });
    setUVs(mesh, { { 0, 0 }, { 1, 0 }, { 1, 1 }, { 0, 1 } });
    setIndices(mesh, "uvidxs", { 0, 1, 2, 0, 2, 3 });
    prepare();
    RtRay ray = towards({ 0.5f, -1, 10 }, { 0.125f, 0.25f, -1 });
    const RtShaderGlobals at = probed(ray);
    const float step = 1.0f / 64;
    ray.dOdx = { 0.5f, 0, 0 };
    ray.dDdx = { 0, 0.125f, 0 };
    ray.dOdy = { 0, 0.25f, 0 };
    ray.dDdy = { 0.0625f, 0, 0.125f };
    const RtShaderGlobals sg = probed(ray);
    RtRay beside = ray;
    beside.origin = ray.origin + ray.dOdx * step;
    beside.dir = ray.dir + ray.dDdx * step;
    const RtShaderGlobals at_x = probed(beside);
    beside.origin = ray.origin + ray.dOdy * step;
    beside.dir = ray.dir + ray.dDdy * step;
    const RtShaderGlobals at_y = probed(beside);
    expectNear(sg.dPdx, (at_x.point - at.point) * (1 / step), 2e-2f, "dPdx");
    expectNear(sg.dPdy, (at_y.point - at.point) * (1 / step), 2e-2f, "dPdy");
    EXPECT_NEAR(sg.dudx, (at_x.u - at.u) / step, 2e-3);
    EXPECT_NEAR(sg.dvdx, (at_x.v - at.v) / step, 2e-3);
    EXPECT_NEAR(sg.dudy, (at_y.u - at.u) / step, 2e-3);
    EXPECT_NEAR(sg.dvdy, (at_y.v - at.v) / step, 2e-3);
}

TEST_F(HitContexts, differentials_of_camera_rays_reach_the_neighbouring_rays)
{
    // One shape at a time before the camera, seen along neighbouring rays.
    static const struct {
        const char* type;
        float tolerance;
    } cases[] = { { "sphere", 1e-3f }, { "cylinder", 1e-3f }, { "cone", 1e-3f },
                  { "disc", 1e-4f },   { "plane", 1e-4f },    { "box", 1e-4f } };
    const RtVector tilt = { 0.005f, 0.015f, -1 };
    for (const auto& row : cases) {
        RtNode* const node = node_tools::named(row.type, row.type);
        RtMatrix turn, squeeze, matrix;
        const RtVector scale = { 2, 1.5f, 1 };
        RvM4RotationX(&turn, 55);
        RvM4Scaling(&squeeze, &scale);
        RvM4Mult(&matrix, &turn, &squeeze);
        shape_fixture::setMatrices(node, { matrix });
        prepare();
        RtRay ray = towards({ 0.1f, 0.2f, 10 }, tilt);
        ray.dDdx = { 1, 0, 0 };
        ray.dDdy = { 0, 1, 0 };
        const RtShaderGlobals sg = probed(ray);
        ASSERT_EQ(sg.object, node) << row.type;
        const float h = 1e-3f;
        const auto beside = [&](float dx, float dy) {
            return probed(towards({ 0.1f, 0.2f, 10 }, { tilt.x + dx, tilt.y + dy, tilt.z }));
        };
        const RtShaderGlobals east = beside(h, 0), west = beside(-h, 0), north = beside(0, h),
                              south = beside(0, -h);
        const float scaled = 1 / (2 * h), far = 20 * row.tolerance;
        expectNear(sg.dPdx, (east.point - west.point) * scaled, far, row.type);
        expectNear(sg.dPdy, (north.point - south.point) * scaled, far, row.type);
        const float size = sqrtf(rv::dot(sg.dNdx, sg.dNdx)) + 1;
        expectNear(sg.dNdx, (east.normal - west.normal) * scaled, 2e-2f * size, row.type);
        expectNear(sg.dNdy, (north.normal - south.normal) * scaled, 2e-2f * size, row.type);
        startAnew();
    }
}

TEST_F(HitContexts, normals_of_smooth_meshes_have_differentials)
{
    for (bool smooth : { true, false })
        for (bool inverted : { false, true }) {
            RtNode* const mesh =
                polygons({ { -2, -2, 0 }, { 2, -2, 0.5f }, { 0, 3, 1 } }, { { 0, 1, 2 } });
            RvNodeSetBool(mesh, "invert_normals", inverted);
            if (smooth) {
                RvNodeSetBool(mesh, "smoothing", true);
                setPoints(mesh, "nlist", { { -0.5f, 0, 1 }, { 0.5f, 0, 1 }, { 0, 0.75f, 1 } });
                setIndices(mesh, "nidxs", { 0, 1, 2 });
            }
            prepare();
            RtRay ray = towards({ 0.1f, 0.2f, 10 }, { 0, 0, -1 });
            ray.dDdx = { 1, 0, 0 };
            ray.dDdy = { 0, 1, 0 };
            const RtShaderGlobals sg = probed(ray);
            const float h = 1e-3f;
            const RtShaderGlobals x = probed(towards({ 0.1f, 0.2f, 10 }, { h, 0, -1 }));
            const RtShaderGlobals y = probed(towards({ 0.1f, 0.2f, 10 }, { 0, h, -1 }));
            expectNear(sg.dNdx, (x.normal - sg.normal) * (1 / h), 3e-2f, "x");
            expectNear(sg.dNdy, (y.normal - sg.normal) * (1 / h), 3e-2f, "y");
            EXPECT_EQ(sg.dNdx.x == 0, !smooth);
            startAnew();
        }
}

// ---- Lights ----

TEST_F(HitContexts, a_hit_is_lit_by_the_scene_or_by_the_group_of_its_object)
{
    RtNode* const red = node_tools::named("point_light", "red");
    RtNode* const blue = node_tools::named("distant_light", "blue");
    const auto lightsAt = [](const RtRay& ray) {
        const RtShaderGlobals sg = probed(ray);
        Names names;
        for (int i = 0; i < sg.light_count; ++i)
            names.push_back(RvNodeGetName(sg.lights[i]));
        return names;
    };
    const auto setGroup = [](RtNode* node, const std::vector<RtNode*>& lights) {
        RtArray* const group = RvArrayAllocate(unsigned(lights.size()), 1, RV_TYPE_NODE);
        std::copy(lights.begin(), lights.end(), rv::elementsOf<RtNode*>(group));
        RvNodeSetBool(node, "use_light_group", true);
        node_tools::giveArray(node, "light_group", group);
    };
    RtNode* const plain = disc("plain", 0);
    RtNode* const grouped = disc("grouped", 10);
    setGroup(grouped, { nullptr, blue });
    setGroup(disc("dark", 20), {});
    const RtVector up = { 0, 0, 30 };
    RtMatrix matrix;
    RvM4Translation(&matrix, &up);
    setGroup(instanceOf(plain, "instance", matrix), { red });
    prepare();
    EXPECT_EQ(lightsAt(rayFrom(5)), (Names{ "red", "blue" }));
    EXPECT_EQ(lightsAt(rayFrom(15)), Names{ "blue" });
    EXPECT_EQ(lightsAt(rayFrom(25)), Names{});
    EXPECT_EQ(lightsAt(rayFrom(35)), Names{ "red" });
    setGroup(grouped, { blue, plain, nullptr, red }); // a host may put anything into it
    EXPECT_EQ(lightsAt(rayFrom(15)), (Names{ "blue", "red" }));
    set("ignore_lights", true);
    for (float z : { 5.0f, 15.0f, 35.0f })
        EXPECT_EQ(lightsAt(rayFrom(z)), Names{});
}

// ---- Refinement ----

TEST_F(HitContexts, refined_points_of_meshes_lie_in_their_triangle)
{
    for (const bool is_moving : { false, true }) {
        startAnew();
        RtNode* const mesh = farQuad();
        if (is_moving) {
            const RtPoint* const p = rv::elementsOf<RtPoint>(rv::polymeshParams(mesh).vlist);
            Points keys(p, p + 4);
            for (int i = 0; i < 4; ++i)
                keys.push_back(p[i] + RtVector{ 0, 0, float(2 * i) });
            setPoints(mesh, "vlist", keys, 2);
        }
        RtMatrix matrix = shape_fixture::scaling(2, 2, 2);
        matrix.m[3][2] = -6000;
        shape_fixture::setMatrices(mesh, { matrix });
        prepare();
        RtRay ray = towards({ 2006, 2011, 500 }, { 0.015625f, -0.03125f, -3 });
        ray.time = is_moving ? 0.75f : 0;
        for (const float offset : { 0.0f, 0.5f, -3.0f }) {
            set("enable_hit_refinement", false);
            const RtShaderGlobals plain = contextAt(ray, offset);
            set("enable_hit_refinement", true);
            const RtShaderGlobals refined = contextAt(ray, offset);
            const float f = ray.time;
            if (offset != 0) {
                EXPECT_GT(distanceFromPlane(plain, f), 0.1) << offset;
            }
            EXPECT_LT(distanceFromPlane(refined, f), 2e-3) << offset;
            expectConsistent(refined, "refined", 5e-3f);
            // Along the ray, and by what the distance was wrong.
            EXPECT_NEAR(refined.ray_length, plain.ray_length - double(offset), 2e-3) << offset;
            expectNear(refined.point - plain.point, ray.dir * -offset, 2e-3f, "step");
            EXPECT_EQ(describe(refined.normal), describe(plain.normal));
        }
    }
}

TEST_F(HitContexts, refinement_is_off_by_default_and_a_matter_of_meshes)
{
    EXPECT_FALSE(rv::render_options->enable_hit_refinement);
    sphere("ball", { 0, 0, 0 }, 1);
    prepare();
    const RtShaderGlobals before = contextAt(down(), 0.25f);
    set("enable_hit_refinement", true);
    const RtShaderGlobals after = contextAt(down(), 0.25f);
    EXPECT_EQ(describe(before.point), "0 0 0.75");
    EXPECT_EQ(describe(after.point), "0 0 0.75");
}

TEST_F(HitContexts, refinement_changes_nothing_along_the_triangle)
{
    polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 } }, { { 0, 1, 2 } });
    prepare();
    set("enable_hit_refinement", true);
    RtRay ray = down();
    RtHit hit = hitsOf(ray, 1).at(0);
    ray.origin = { 0, 0, 0.5f };
    ray.dir = { 1, 0, 0 };
    hit.t = 0.25f;
    RtShaderGlobals sg;
    sg.state = nullptr;
    rv::fillHitContext(&sg, ray, hit, 0);
    EXPECT_EQ(describe(sg.point), "0.25 0 0.5");
}
