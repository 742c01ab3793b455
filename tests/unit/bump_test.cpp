// Tests of bump: the contexts beside a point, and normals bent by a height.
#include "rv_shaderglobals.h"

#include "hit_context.h"
#include "shader_tools.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;
using shader_tools::Context;
using rv::operator-, rv::operator+, rv::operator*;

namespace {

class Bump : public Traced {
protected:
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
    using Height = std::function<float(RtShaderGlobals*)>;
    static RtVector bumped(const RtShaderGlobals& sg, Height height)
    {
        return RvShaderGlobalsEvaluateBump(
            &sg, [](RtShaderGlobals* at, void* data) { return (*static_cast<Height*>(data))(at); },
            &height);
    }
    // A square of side 2 in the plane z = 0, with texture coordinates.
    static RtNode* square()
    {
        RtNode* const mesh = polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 } },
                                      { { 0, 1, 2, 3 } });
        setUVs(mesh, { { 0, 0 }, { 1, 0 }, { 1, 1 }, { 0, 1 } });
        setIndices(mesh, "uvidxs", { 0, 1, 2, 3 });
        return mesh;
    }
    static RtVector unit(const RtVector& v) { return v * (1 / sqrtf(rv::dot(v, v))); }
};

} // namespace

// ---- Contexts beside a point ----

TEST_F(Bump, the_contexts_lie_along_the_tangents)
{
    prepare();
    Context sg;
    sg->normal = { 0, 0, 1 };
    sg->dPdu = { 3, 0, 5 }; // leans out of the plane
    sg->dPdv = { 0, -0.5f, 0 };
    sg->object_to_world = sg->world_to_object = RV_M4_IDENTITY;
    sg->world_to_object.m[3][0] = 10;
    sg->u = 0.25f;
    RtShaderGlobals du, dv;
    RvShaderGlobalsGetBumpStates(sg, &du, &dv);
    expectNear(du.point, { 1e-5f, 0, 0 }, 1e-9f, "du");
    expectNear(dv.point, { 0, -1e-5f, 0 }, 1e-9f, "dv");
    expectNear(du.object_point, { 10 + 1e-5f, 0, 0 }, 2e-6f, "du object");
    expectNear(dv.object_point, { 10, -1e-5f, 0 }, 1e-9f, "dv object");
    EXPECT_EQ(du.u, 0.25f); // everything else is a copy
    EXPECT_EQ(describe(dv.normal), "0 0 1");
}

TEST_F(Bump, the_copies_have_states_of_their_own)
{
    prepare();
    Context sg;
    RtUserDataHit* const user_data = reinterpret_cast<RtUserDataHit*>(&sg);
    sg.state.user_data = user_data;
    sg.state.loop_samples = 4;
    sg.state.pass = RV_PASS_HAIR;
    sg.state.lights.count = 3;
    RtShaderGlobals du, dv;
    RvShaderGlobalsGetBumpStates(sg, &du, &dv);
    ASSERT_TRUE(du.state && dv.state);
    EXPECT_NE(du.state, dv.state);
    EXPECT_NE(du.state, &sg.state);
    for (const RtShaderGlobals& copy : { du, dv }) {
        EXPECT_EQ(copy.state->user_data, user_data);
        EXPECT_EQ(copy.state->loop_samples, 4);
        EXPECT_EQ(copy.state->pass, RV_PASS_HAIR);
        EXPECT_EQ(copy.state->lights.count, 0);
    }
}

TEST_F(Bump, without_tangents_the_copies_stay_at_the_point)
{
    Context sg;
    sg->point = { 1, 2, 3 };
    sg->normal = { 0, 0, 1 };
    static const RtVector unusable[] = { { 0, 0, 0 }, { 0, 0, 7 }, { std::nanf(""), 0, 0 } };
    for (const RtVector& v : unusable) {
        RtShaderGlobals du, dv;
        sg->dPdu = { 1, 0, 0 };
        sg->dPdv = v;
        RvShaderGlobalsGetBumpStates(sg, &du, &dv);
        EXPECT_EQ(describe(du.point), "1 2 3");
        EXPECT_EQ(describe(dv.point), "1 2 3");
    }
    RtShaderGlobals copy;
    RvShaderGlobalsGetBumpStates(nullptr, &copy, &copy);
    RvShaderGlobalsGetBumpStates(sg, nullptr, &copy);
    RvShaderGlobalsGetBumpStates(sg, &copy, nullptr);
}

// ---- Bent normals ----

TEST_F(Bump, a_slope_of_the_height_tilts_the_normal_of_a_mesh)
{
    square();
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, -0.5f, 10 });
    const float side = sg.normal.z;
    expectNear(bumped(sg, [](RtShaderGlobals* at) { return at->point.x * 0.5f; }),
               unit({ -0.5f, 0, side }), 5e-3f, "point");
    expectNear(bumped(sg, [](RtShaderGlobals* at) { return at->object_point.y * -2; }),
               unit({ 0, 2, side }), 2e-2f, "object point");
    // A full turn of u is two units long.
    expectNear(bumped(sg, [](RtShaderGlobals* at) { return at->u + 2 * at->v; }),
               unit({ -0.5f, -1, side }), 2e-2f, "texture coordinates");
}

// A height with a gradient g in the world tilts the normal by the part of g along the surface.
TEST_F(Bump, meshes_are_bumped_as_they_stand_in_the_world)
{
    using shape_fixture::scaling, shape_fixture::translation;
    const auto turned = [](float x, float y) {
        RtMatrix about_x, about_y, both;
        RvM4RotationX(&about_x, x);
        RvM4RotationY(&about_y, y);
        RvM4Mult(&both, &about_x, &about_y);
        return both;
    };
    const auto product = [](const RtMatrix& a, const RtMatrix& b) {
        RtMatrix out;
        RvM4Mult(&out, &a, &b);
        return out;
    };
    const struct {
        const char* name;
        std::vector<RtMatrix> matrices;
        float rise; // of one corner during the shutter, in object space
        float time;
    } rows[] = {
        { "still", { RV_M4_IDENTITY }, 0, 0 },
        { "scaled", { scaling(3, 0.5f, 2) }, 0, 0 },
        { "turned", { turned(20, 35) }, 0, 0 },
        { "scaled and turned", { product(scaling(3, 2, 1), turned(-25, 30)) }, 0, 0 },
        { "moving", { turned(20, 0), product(scaling(2, 2, 2), turned(20, 0)) }, 0, 0.5f },
        { "moved", { RV_M4_IDENTITY, translation(0.5f, 0, -1) }, 0, 1 },
        { "bending", { RV_M4_IDENTITY }, 0.75f, 0.5f },
    };
    const RtVector slope = { 0.5f, -0.25f, 0.75f };
    const auto tilted = [](const RtVector& n, const RtVector& gradient) {
        return unit(n - (gradient - n * rv::dot(gradient, n)));
    };
    for (const auto& row : rows) {
        RtNode* const mesh = square();
        const std::vector<RtPoint> start = {
            { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 }
        };
        std::vector<RtPoint> keys = start;
        keys.insert(keys.end(), start.begin(), start.end());
        keys[5].z = row.rise;
        setPoints(mesh, "vlist", keys, 2);
        shape_fixture::setMatrices(mesh, row.matrices);
        prepare();
        const RtShaderGlobals sg = hitAt({ 0.25f, -0.35f, 10 }, row.time);
        const RtVector in_world =
            bumped(sg, [&](RtShaderGlobals* at) { return rv::dot(at->point - sg.point, slope); });
        expectNear(in_world, tilted(sg.normal, slope), 0.01f, row.name);
        const RtVector in_object = bumped(sg, [&](RtShaderGlobals* at) {
            return rv::dot(at->object_point - sg.object_point, slope);
        });
        const RtVector gradient = RvShaderGlobalsTransformNormal(&sg, slope, RV_OBJECT_TO_WORLD);
        expectNear(in_object, tilted(sg.normal, gradient), 0.01f, row.name);
        startAnew();
    }
}

TEST_F(Bump, a_slope_of_the_height_tilts_the_normal_of_other_shapes)
{
    Context sg;
    sg->normal = { 0, 0, 1 };
    sg->dPdu = { 2, 0, 0 };
    sg->dPdv = { 1, 4, 0 };
    const RtVector by_point = bumped(*&sg.sg, [](RtShaderGlobals* at) { return at->point.x; });
    // The tangents are (1, 0, 0) and (1, 4, 0) / sqrt(17).
    expectNear(by_point, unit({ -1, 0, 1 }), 1e-4f, "point");
    const RtVector by_u = bumped(sg.sg, [](RtShaderGlobals* at) { return 2 * at->u; });
    // u grows by 1/2 per unit of x and falls by 1/8 per unit of y
    expectNear(by_u, unit({ -1, 0.25f, 1 }), 1e-3f, "u");
}

TEST_F(Bump, four_contexts_lie_around_the_point)
{
    square();
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, -0.5f, 10 });
    std::vector<RtShaderGlobals> seen;
    bumped(sg, [&](RtShaderGlobals* at) {
        seen.push_back(*at);
        return 0.0f;
    });
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_NEAR(seen[0].bary_u - seen[1].bary_u, 2e-5, 2e-7);
    EXPECT_EQ(seen[0].bary_v, sg.bary_v);
    EXPECT_NEAR(seen[2].bary_v - seen[3].bary_v, 2e-5, 2e-7);
    EXPECT_EQ(seen[2].bary_u, sg.bary_u);
}

TEST_F(Bump, normals_beside_a_point_of_a_smooth_mesh_are_interpolated)
{
    RtNode* const mesh = triangle();
    RvNodeSetBool(mesh, "smoothing", true);
    setPoints(mesh, "nlist", { { 0, 0, 1 }, { 1, 0, 0 }, { 0, 1, 0 } });
    setIndices(mesh, "nidxs", { 0, 1, 2 });
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, 0.25f, 10 });
    std::vector<RtVector> normals;
    const RtVector n = bumped(sg, [&](RtShaderGlobals* at) {
        normals.push_back(at->smooth_normal);
        return 1.0f;
    });
    EXPECT_GT(normals.at(0).x, normals.at(1).x);
    EXPECT_EQ(describe(n), describe(sg.normal)); // smooth, although the facet is flat
}

TEST_F(Bump, a_constant_height_changes_nothing)
{
    square();
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, -0.5f, 10 });
    EXPECT_EQ(describe(bumped(sg, [](RtShaderGlobals*) { return 3.0f; })), describe(sg.normal));
}

TEST_F(Bump, a_height_that_is_no_number_changes_nothing)
{
    square();
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, -0.5f, 10 });
    for (float bad : { std::nanf(""), INFINITY }) {
        int calls = 0;
        EXPECT_EQ(describe(bumped(sg, [&](RtShaderGlobals*) { return calls++ ? bad : 0.0f; })),
                  describe(sg.normal));
    }
    EXPECT_EQ(describe(RvShaderGlobalsEvaluateBump(&sg, nullptr, nullptr)), describe(sg.normal));
    EXPECT_EQ(describe(RvShaderGlobalsEvaluateBump(nullptr, nullptr, nullptr)), "0 0 0");
}

TEST_F(Bump, the_bent_normal_stays_on_the_side_of_the_normal)
{
    RtNode* const mesh = square();
    RvNodeSetBool(mesh, "invert_normals", true);
    prepare();
    const RtShaderGlobals sg = hitAt({ 0.25f, -0.5f, 10 });
    const RtVector n = bumped(sg, [](RtShaderGlobals* at) { return at->point.x * 0.5f; });
    EXPECT_GT(rv::dot(n, sg.normal), 0);
    EXPECT_NEAR(rv::dot(n, n), 1, 1e-5);
}
