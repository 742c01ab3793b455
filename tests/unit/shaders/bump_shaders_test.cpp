// Tests of the "bump2d" and "bump3d" shaders.
#include "shaders/bump_wrapper.h"

#include "allocation_failures.h"
#include "rv_noise.h"
#include "shader_tools.h"
#include "shaders/surface_fixture.h"
#include "texture_tools.h"

namespace {

using namespace surface_tools;
using node_tools::describe;
using node_tools::named;
using rv::operator-, rv::operator+, rv::operator*;

using Height = std::function<float(const RtShaderGlobals&)>;

class BumpShaders : public Surfaces {
protected:
    static std::string unique(const char* stem)
    {
        static int count = 0;
        return stem + std::to_string(++count);
    }
    // A bump map from a height; the middle of the scale of bump2d is 0.5.
    static RtNode* mapOf(const Height& height)
    {
        return shader_tools::shader(
            unique("map").c_str(), RV_TYPE_FLOAT,
            [height](RtNode*, RtShaderGlobals* at) { at->out.FLT = height(*at); });
    }
    // A wrapped shader that keeps the contexts it is called with.
    RtNode* witness(int type = RV_TYPE_RGB)
    {
        return shader_tools::shader(unique("witness").c_str(), type,
                                    [this](RtNode*, RtShaderGlobals* at) {
                                        seen_contexts.push_back(*at);
                                        at->out.RGBA = { 0.25f, 0.5f, 0.75f, 0.125f };
                                    });
    }
    // A bump shader with its map, its height and the witness; what is null stays unlinked.
    RtNode* bump(const char* type, RtNode* map, float height, RtNode* wrapped)
    {
        RtNode* const node = named(type, unique(type).c_str());
        RvNodeSetFlt(node, "bump_height", height);
        link(map, "bump_map", node);
        link(wrapped, "shader", node);
        return node;
    }
    RtNode* bump(const char* type, const Height& height, float scale)
    {
        return bump(type, mapOf(height), scale, witness());
    }
    static void link(RtNode* source, const char* param, RtNode* node)
    {
        RvNodeUnlink(node, param);
        if (source)
            RvNodeLink(source, param, node);
    }
    // A hit of the ray, with a private state.
    void hit(const RtPoint& origin, const RtVector& dir = { 0, 0, -1 })
    {
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
        ASSERT_TRUE(RvTraceProbe(&ray, &sg.sg));
        sg->state = &sg.state;
    }
    // The normal that the wrapped shader sees after a preparation.
    RtVector bumpedBy(RtNode* node)
    {
        seen_contexts.clear();
        RvShaderEvaluate(node, sg);
        EXPECT_EQ(seen_contexts.size(), 1u);
        return seen_contexts.empty() ? RtVector{} : seen_contexts[0].normal;
    }

    shader_tools::Context sg;
    std::vector<RtShaderGlobals> seen_contexts;
};

constexpr const char* both[] = { "bump2d", "bump3d" };

RtVector unit(const RtVector& v) { return rv::unit(v); }

float slopeAlongX(const RtShaderGlobals& at) { return at.point.x * 0.5f; }

// ---- Golden numbers ----

TEST_F(BumpShaders, the_normals_of_bump3d_are_the_golden_numbers)
{
    surface();
    float heights[4] = {};
    int call = 0;
    RtNode* const node = bump(
        "bump3d", [&](const RtShaderGlobals&) { return heights[call++ % 4]; }, 1);
    for (const json& v : goldenVectors("shading", "bump3d_normal")) {
        const json& in = v.at("in");
        heights[0] = goldenFloat(in.at("f0"));
        const std::vector<float> beside = goldenFloats(in.at("f"));
        std::copy(beside.begin(), beside.end(), heights + 1);
        RvNodeSetFlt(node, "bump_height", goldenFloat(in.at("bump_height")));
        RvNodeSetFlt(node, "epsilon", goldenFloat(in.at("epsilon")));
        set("bump_multiplier", goldenFloat(in.at("bump_multiplier")));
        prepare();
        hit({ 0, 0, 10 });
        const std::vector<float> normal = goldenFloats(in.at("normal"));
        sg->normal = { normal[0], normal[1], normal[2] };
        const RtVector got = bumpedBy(node);
        expectGoldenNumbers(v, "normal", { got.x, got.y, got.z });
    }
}

// ---- Closed forms ----

// Waves along x: height a sin(f x), slope a f cos(f x).
constexpr float wave_height = 0.05f, wave_frequency = 9;
float wave(float x) { return wave_height * sinf(wave_frequency * x); }
float waveSlope(float x) { return wave_height * wave_frequency * cosf(wave_frequency * x); }

TEST_F(BumpShaders, waves_on_a_plane_have_the_normals_of_the_curve)
{
    static constexpr float scale = 4; // of the shader; the map is the smaller for it
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(
            type, [](const RtShaderGlobals& at) { return 0.5f + wave(at.point.x) / scale; }, scale);
        prepare();
        for (float x : { -0.8f, -0.35f, 0.0f, 0.1f, 0.3f, 0.6f }) {
            hit({ x, 0.2f, 10 });
            expectNear(bumpedBy(node), unit({ -waveSlope(x), 0, 1 }), 0.03f, type);
        }
    }
}

TEST_F(BumpShaders, waves_on_a_mesh_have_the_normals_of_the_curve)
{
    RtNode* const mesh =
        polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 } }, { { 0, 1, 2, 3 } });
    setShaderOf(mesh, shader);
    for (const char* type : both) {
        RtNode* const node = bump(
            type, [](const RtShaderGlobals& at) { return 0.5f + wave(at.object_point.x); }, 1);
        prepare();
        for (float x : { -0.8f, -0.35f, 0.0f, 0.1f, 0.3f, 0.6f }) {
            hit({ x, 0.2f, 10 });
            expectNear(bumpedBy(node), unit({ -waveSlope(x), 0, 1 }), 0.03f, type);
        }
    }
}

// Where the shape has no tangents, as the discs and boxes have none, others take their place.
TEST_F(BumpShaders, shapes_without_tangents_are_bumped_all_the_same)
{
    RtNode* const box = named("box", "box");
    RvNodeSetPnt(box, "min", -1, -1, -1);
    RvNodeSetPnt(box, "max", 1, 1, 0);
    RtNode* const node = bump("bump2d", slopeAlongX, 1);
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    ASSERT_EQ(rv::dot(sg->dPdu, sg->dPdu), 0);
    expectNear(bumpedBy(node), unit({ -0.5f, 0, 1 }), 0.03f, "box");
    for (const RtVector& bad : { RtVector{}, { NAN, NAN, NAN } }) {
        sg->normal = bad;
        EXPECT_EQ(describe(bumpedBy(node)), describe(bad * -1.0f));
    }
}

// The height a x on the unit sphere: its gradient is a (1, 0, 0), of which bump2d sees the part
// along the surface.
TEST_F(BumpShaders, a_slope_on_a_sphere_tilts_its_normals)
{
    static constexpr float a = 0.5f;
    sphere("ball", {}, 1);
    for (const char* type : both) {
        const bool is_flat = type == std::string("bump2d");
        RtNode* const node = bump(
            type, [](const RtShaderGlobals& at) { return at.point.x * a; }, 1);
        RvNodeSetFlt(node, is_flat ? "bump_height" : "epsilon", is_flat ? 1 : 1e-3f);
        prepare();
        for (const RtPoint& from :
             { RtPoint{ 0.3f, 0.2f, 10 }, { -0.6f, 0.1f, 10 }, { 0.1f, -0.7f, 10 } }) {
            hit(from);
            const RtVector n = sg->normal;
            const RtVector gradient = { a, 0, 0 };
            const RtVector along = is_flat ? gradient - n * rv::dot(gradient, n) : gradient;
            expectNear(bumpedBy(node), unit(n - along), is_flat ? 0.02f : 2e-3f, type);
        }
    }
}

// The height a sin(m u): u grows by 1 / |dPdu| per unit of length.
TEST_F(BumpShaders, waves_in_u_on_a_sphere_tilt_normals_along_u)
{
    static constexpr float a = 0.05f, m = 40;
    sphere("ball", {}, 1);
    RtNode* const node = bump(
        "bump2d", [](const RtShaderGlobals& at) { return a * sinf(m * at.u); }, 1);
    prepare();
    for (const RtPoint& from : { RtPoint{ 0.3f, 0.2f, 10 }, { -0.6f, 0.1f, 10 } }) {
        hit(from);
        const float length = sqrtf(rv::dot(sg->dPdu, sg->dPdu));
        const float slope = a * m * cosf(m * sg->u) / length;
        expectNear(bumpedBy(node), unit(sg->normal - unit(sg->dPdu) * slope), 0.03f, "u");
    }
}

TEST_F(BumpShaders, a_linked_noise_shader_bumps_by_the_gradient_of_the_noise)
{
    static constexpr float height = 0.4f;
    surface();
    RtNode* const noise = named("noise", "noise");
    RvNodeSetVec(noise, "scale", 3, 3, 3);
    RtNode* const flat = bump("bump2d", noise, height, witness());
    RtNode* const solid = bump("bump3d", noise, height, witness());
    RvNodeSetFlt(solid, "epsilon", 1e-3f);
    prepare();
    const auto slope = [](RtPoint p, float RtPoint::*axis) {
        const auto value = [&](float step) {
            RtPoint q = p * 3;
            q.*axis += step * 3;
            return (double(RvPerlin3(&q)) + 1) / 2 * double(height);
        };
        return float((value(2e-3f) - value(-2e-3f)) / 4e-3);
    };
    for (float x : { -0.45f, 0.1f, 0.62f }) {
        hit({ x, 0.27f, 10 });
        const RtVector gradient = { slope(sg->point, &RtPoint::x), slope(sg->point, &RtPoint::y),
                                    slope(sg->point, &RtPoint::z) };
        const RtVector n = sg->normal;
        expectNear(bumpedBy(flat), unit(n - RtVector{ gradient.x, gradient.y, 0 }), 0.02f, "2d");
        expectNear(bumpedBy(solid), unit(n - gradient), 5e-3f, "3d");
    }
}

// Required: bump3d moves the point by the same amount along the same axes in both spaces.
TEST_F(BumpShaders,
       bump3d_deliberately_steps_along_the_axes_of_the_object_and_bends_along_the_worlds)
{
    RtNode* const wall = surface();
    RtMatrix scale, turn, matrix;
    const RtVector size = { 3, 3, 0.5f };
    RvM4Scaling(&scale, &size);
    RvM4RotationZ(&turn, 90);
    RvM4Mult(&matrix, &scale, &turn);
    shape_fixture::setMatrices(wall, { matrix });
    RtNode* const node = bump(
        "bump3d",
        [](const RtShaderGlobals& at) { return 0.5f * at.object_point.x + 0.25f * at.point.y; }, 1);
    RvNodeSetFlt(node, "epsilon", 1e-3f);
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    const RtVector n = sg->normal;
    expectNear(bumpedBy(node), unit(n - RtVector{ 0.5f, 0.25f, 0 }), 2e-3f, "turned and scaled");
}

TEST_F(BumpShaders, a_linked_image_bumps_along_its_slopes)
{
    // As wide as the square, with levels that rise by as much from each column to the next.
    static constexpr int width = 64;
    const texture_tools::TextureFolder folder;
    const std::string file = folder.file("ramp.png");
    texture_tools::writeImage(file, width, 4, 3, OIIO::TypeDesc::UINT8,
                              [](int x, int, int c) { return c == 0 ? float(4 * x) / 255 : 0.5f; });
    RtNode* const mesh =
        polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 } }, { { 0, 1, 2, 3 } });
    setUVs(mesh, { { 0, 0 }, { 1, 0 }, { 1, 1 }, { 0, 1 } });
    setIndices(mesh, "uvidxs", { 0, 1, 2, 3 });
    RtNode* const image = named("image", "ramp");
    RvNodeSetStr(image, "filename", file.c_str());
    RvNodeSetStr(image, "filter", "bilinear");
    RtNode* const node = bump("bump2d", image, 0.5f, witness());
    prepare();
    const float slope = 4.0f * width / 255 / 2 * 0.5f; // u goes from 0 to 1 on two units
    for (float x : { -0.4f, 0.3f, 0.7f }) {
        hit({ x, 0.2f, 10 });
        expectNear(bumpedBy(node), unit({ -slope, 0, 1 }), 0.03f, "image");
    }
    EXPECT_EQ(takeProblem(), "");
}

// ---- What scales the bump ----

TEST_F(BumpShaders, a_multiplier_of_0_switches_bumps_off)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        set("bump_multiplier", 0.0f);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal)) << type;
        set("bump_multiplier", 2.0f);
        expectNear(bumpedBy(node), unit({ -1, 0, 1 }), 0.03f, type);
    }
}

// Required: the defaults differ.
TEST_F(BumpShaders, by_default_bump2d_is_flat_and_bump3d_bumps)
{
    surface();
    RtNode* const nodes[] = { named("bump2d", "2d"), named("bump3d", "3d") };
    for (RtNode* node : nodes) {
        link(mapOf(slopeAlongX), "bump_map", node);
        link(witness(), "shader", node);
    }
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    EXPECT_EQ(describe(bumpedBy(nodes[0])), describe(sg->normal));
    expectNear(bumpedBy(nodes[1]), unit({ -0.5f, 0, 1 }), 0.03f, "3d");
}

TEST_F(BumpShaders, heights_below_a_ten_thousandth_do_not_count_in_bump2d)
{
    surface();
    int calls = 0;
    RtNode* const node = bump(
        "bump2d", [&](const RtShaderGlobals&) { return float(++calls); }, 0.00009f);
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    bumpedBy(node);
    EXPECT_EQ(calls, 0);
    RvNodeSetFlt(node, "bump_height", -0.00011f);
    bumpedBy(node);
    EXPECT_EQ(calls, 4);
}

TEST_F(BumpShaders, a_constant_map_changes_nothing)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(
            type, [](const RtShaderGlobals&) { return 0.7f; }, 3);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal)) << type;
    }
}

TEST_F(BumpShaders, the_height_of_a_map_is_its_red)
{
    surface();
    RtNode* const map =
        shader_tools::shader(unique("map").c_str(), RV_TYPE_RGBA, [](RtNode*, RtShaderGlobals* at) {
            at->out.RGBA = { at->point.x * 0.5f, at->point.y, 7, 1 };
        });
    for (const char* type : both) {
        RtNode* const node = bump(type, map, 1, witness());
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        expectNear(bumpedBy(node), unit({ -0.5f, 0, 1 }), 0.03f, type);
    }
}

// ---- What the wrapped shader sees ----

TEST_F(BumpShaders, the_bump_lasts_for_the_wrapped_shader_alone)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        const RtShaderGlobals before = sg.sg;
        const RtVector bumped = bumpedBy(node);
        expectNear(bumped, unit({ -0.5f, 0, 1 }), 0.03f, type);
        EXPECT_EQ(describe(seen_contexts.at(0).facing_normal), describe(bumped)) << type;
        for (auto normal : { &RtShaderGlobals::smooth_normal, &RtShaderGlobals::geometric_normal,
                             &RtShaderGlobals::facing_geometric_normal, &RtShaderGlobals::point,
                             &RtShaderGlobals::object_point, &RtShaderGlobals::dPdu })
            EXPECT_EQ(describe(seen_contexts.at(0).*normal), describe(before.*normal)) << type;
        EXPECT_EQ(describe(sg->normal), describe(before.normal)) << type;
        EXPECT_EQ(describe(sg->facing_normal), describe(before.facing_normal)) << type;
        EXPECT_EQ(describe(sg->point), describe(before.point)) << type;
        EXPECT_EQ(describe(sg->object_point), describe(before.object_point)) << type;
    }
}

TEST_F(BumpShaders, a_map_leaves_no_trace_in_the_context)
{
    surface();
    RtNode* const map = shader_tools::shader(unique("map").c_str(), RV_TYPE_FLOAT,
                                             [](RtNode*, RtShaderGlobals* at) {
                                                 at->out.RGBA = { at->point.x * 0.5f, 8, 9, 10 };
                                                 at->u = at->v = 5;
                                                 at->out_opacity = RV_RGB_BLACK;
                                             });
    for (const char* type : both) {
        RtNode* const node = bump(type, map, 1, witness());
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        const float u = sg->u;
        bumpedBy(node);
        EXPECT_EQ(seen_contexts.at(0).u, u) << type;
        EXPECT_EQ(describe(seen_contexts.at(0).out_opacity), "1 1 1") << type;
        EXPECT_EQ(describe(seen_contexts.at(0).out.RGBA), "0 0 0 1") << type;
    }
}

TEST_F(BumpShaders, only_wrapped_shaders_with_alpha_keep_theirs)
{
    surface();
    for (const char* type : both)
        for (int output : { RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_FLOAT }) {
            RtNode* const node = bump(type, nullptr, 1, witness(output));
            prepare();
            hit({ 0.3f, 0.2f, 10 });
            RvShaderEvaluate(node, sg);
            EXPECT_EQ(describe(sg->out.RGBA),
                      output == RV_TYPE_RGBA ? "0.25 0.5 0.75 0.125" : "0.25 0.5 0.75 1")
                << type << " " << output;
        }
}

TEST_F(BumpShaders, without_a_wrapped_shader_the_result_is_black)
{
    surface();
    for (const char* type : both)
        for (RtNode* map : { mapOf(slopeAlongX), static_cast<RtNode*>(nullptr) }) {
            RtNode* const node = bump(type, map, 1, nullptr);
            prepare();
            hit({ 0.3f, 0.2f, 10 });
            RvShaderEvaluate(node, sg);
            EXPECT_EQ(describe(sg->out.RGBA), "0 0 0 1") << type;
        }
}

// ---- Facing ----

TEST_F(BumpShaders, a_bumped_normal_stays_on_the_side_of_the_normal)
{
    surface();
    // The height grows along the normal, much faster than the normal is long.
    RtNode* const node = bump(
        "bump3d", [](const RtShaderGlobals& at) { return at.point.z * 5; }, 1);
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    expectNear(bumpedBy(node), { 0, 0, 1 }, 1e-5f, "along");
    for (const char* type : both) {
        RtNode* const steep = bump(
            type, [](const RtShaderGlobals& at) { return at.point.x * 50; }, 1);
        prepare();
        EXPECT_GT(rv::dot(bumpedBy(steep), sg->normal), 0) << type;
    }
}

TEST_F(BumpShaders, the_facing_normal_turns_with_the_geometric_one)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, -10 }, { 0, 0, 1 }); // from behind
        ASSERT_GT(rv::dot(sg->geometric_normal, sg->ray_dir), 0);
        const RtVector n = bumpedBy(node);
        expectNear(n, unit({ -0.5f, 0, 1 }), 0.03f, type);
        EXPECT_EQ(describe(seen_contexts.at(0).facing_normal), describe(n * -1.0f)) << type;
    }
}

TEST_F(BumpShaders, along_the_surface_the_facing_normal_is_the_normal)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        sg->ray_dir = { 1, 0, 0 };
        ASSERT_EQ(rv::dot(sg->geometric_normal, sg->ray_dir), 0);
        const RtVector n = bumpedBy(node);
        EXPECT_EQ(describe(seen_contexts.at(0).facing_normal), describe(n)) << type;
    }
}

// ---- Where there is no bump ----

TEST_F(BumpShaders, diffuse_rays_see_the_wrapped_shader_without_a_bump)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        sg->ray_type = RV_RAY_DIFFUSE;
        EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal)) << type;
        EXPECT_EQ(describe(sg->out.RGBA), "0.25 0.5 0.75 1") << type;
        link(nullptr, "shader", node);
        prepare();
        RvShaderEvaluate(node, sg);
        EXPECT_EQ(describe(sg->out.RGBA), "0 0 0 1") << type;
    }
}

// Required: the difference between the two.
TEST_F(BumpShaders, shadow_rays_see_what_bump2d_wraps_and_nothing_of_bump3d)
{
    surface();
    for (const char* type : both) {
        const bool is_seen = type == std::string("bump2d");
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        sg->ray_type = RV_RAY_SHADOW;
        seen_contexts.clear();
        RvShaderEvaluate(node, sg);
        ASSERT_EQ(seen_contexts.size(), is_seen ? 1u : 0u) << type;
        for (const RtShaderGlobals& seen : seen_contexts)
            EXPECT_EQ(describe(seen.normal), describe(sg->normal));
        EXPECT_EQ(describe(sg->out.RGBA), is_seen ? "0.25 0.5 0.75 1" : "0 0 0 1") << type;
    }
}

TEST_F(BumpShaders, without_geometry_there_is_nothing_to_bump)
{
    RtNode* const wall = surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        for (RtNode* object : { static_cast<RtNode*>(nullptr), options(), wall }) {
            sg->object = object;
            seen_contexts.clear();
            RvShaderEvaluate(node, sg);
            EXPECT_EQ(seen_contexts.size(), object == wall ? 1u : 0u) << type;
            EXPECT_EQ(describe(sg->out.RGBA), object == wall ? "0.25 0.5 0.75 1" : "0 0 0 1")
                << type;
        }
    }
}

// Required: bump2d needs a shape only where it bumps, unlike bump3d.
TEST_F(BumpShaders, without_geometry_and_height_bump2d_is_what_it_wraps)
{
    surface();
    for (const char* type : both)
        for (RtNode* map : { mapOf(slopeAlongX), static_cast<RtNode*>(nullptr) }) {
            RtNode* const node = bump(type, map, 0, witness());
            prepare();
            sg->object = nullptr;
            RvShaderEvaluate(node, sg);
            const bool is_flat = type == std::string("bump2d");
            EXPECT_EQ(describe(sg->out.RGBA), is_flat ? "0.25 0.5 0.75 1" : "0 0 0 1") << type;
        }
}

TEST_F(BumpShaders, without_options_nothing_is_bumped)
{
    surface();
    RtNode* const nodes[] = { bump("bump2d", slopeAlongX, 1), bump("bump3d", slopeAlongX, 1) };
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    RvNodeDestroy(options());
    for (RtNode* node : nodes)
        EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal)) << RvNodeGetName(node);
}

TEST_F(BumpShaders, what_is_no_number_does_not_bump)
{
    surface();
    for (const char* type : both)
        for (float bad : { NAN, INFINITY }) {
            int calls = 0;
            RtNode* const node = bump(
                type, [&](const RtShaderGlobals&) { return calls++ ? bad : 0.0f; }, 1);
            prepare();
            hit({ 0.3f, 0.2f, 10 });
            EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal)) << type << " " << bad;
        }
    RtNode* const node = bump("bump3d", slopeAlongX, 1);
    RvNodeSetFlt(node, "epsilon", 0);
    prepare();
    EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal));
}

// ---- Chains ----

TEST_F(BumpShaders, bumps_under_bumps_add_up)
{
    surface();
    RtNode* const inner = bump("bump3d", slopeAlongX, 1);
    RtNode* const across =
        shader_tools::shader("across", RV_TYPE_FLOAT, [](RtNode*, RtShaderGlobals* at) {
            at->out.FLT = at->point.y * 0.25f;
        });
    RtNode* const outer = bump("bump2d", across, 1, inner);
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    const RtVector first = unit({ 0, -0.25f, 1 });
    expectNear(bumpedBy(outer), unit(first - RtVector{ 0.5f, 0, 0 }), 0.03f, "both");
    expectNear(sg->normal, { 0, 0, 1 }, 1e-6f, "after");
}

// Required: without a wrapped shader the normal stays bumped.
TEST_F(BumpShaders, a_bump_before_a_shader_bumps_that_shader)
{
    surface();
    for (const char* type : both) {
        RtNode* const node = bump(type, mapOf(slopeAlongX), 1, nullptr);
        RtNode* const after = witness();
        RvNodeLink(node, "@before", after);
        prepare();
        hit({ 0.3f, 0.2f, 10 });
        expectNear(bumpedBy(after), unit({ -0.5f, 0, 1 }), 0.03f, type);
        EXPECT_EQ(describe(sg->out.RGB), "0.25 0.5 0.75") << type;
        RvNodeUnlink(after, "@before");
    }
}

TEST_F(BumpShaders, a_linked_node_is_found_again_before_each_render)
{
    surface();
    RtNode* const node = bump("bump2d", nullptr, 1, witness());
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    EXPECT_EQ(describe(bumpedBy(node)), describe(sg->normal));
    link(mapOf(slopeAlongX), "bump_map", node);
    prepare();
    expectNear(bumpedBy(node), unit({ -0.5f, 0, 1 }), 0.03f, "linked");
}

// ---- In the light ----

TEST_F(BumpShaders, light_falls_on_the_bumped_surface)
{
    RtNode* const wall = surface();
    flt("Kd", 1);
    distantLight();
    set("GI_diffuse_depth", 1); // for the diffuse ray
    prepare();
    const float flat_light = seen().g;
    ASSERT_GT(flat_light, 0);
    for (const char* type : both) {
        RtNode* const node = bump(type, mapOf(slopeAlongX), 1, shader);
        setShaderOf(wall, node);
        prepare();
        EXPECT_NEAR(seen().g, flat_light / sqrtf(1.25f), 0.01f * flat_light) << type;
        EXPECT_NEAR(seen(RV_RAY_DIFFUSE).g, flat_light, 1e-5f) << type;
        EXPECT_NEAR(traced(down()).alpha, 1, 1e-6f) << type;
    }
}

// ---- Local data ----

TEST_F(BumpShaders, without_memory_or_preparation_they_are_black_and_do_no_harm)
{
    surface();
    prepare();
    hit({ 0.3f, 0.2f, 10 });
    for (const char* type : both) {
        RtNode* const node = bump(type, slopeAlongX, 1);
        RvShaderEvaluate(node, sg); // not prepared yet
        EXPECT_EQ(describe(sg->out.RGBA), "0 0 0 1") << type;
        takeProblems();
        withAllocations(0, [&] { rv::RvNodeInitialize(node); });
        EXPECT_EQ(withoutLines(takeProblem()),
                  "can't allocate " + std::to_string(sizeof(rv::BumpLinks)) +
                      " bytes in core\\src\\shaders\\" + type + ":Initialize()");
        prepare();
        RvShaderEvaluate(node, sg);
        EXPECT_EQ(describe(sg->out.RGBA), "0 0 0 1") << type;
    }
}

} // namespace
