// Tests of the shader "ambient_occlusion".
#include "shaders/ambient_occlusion.h"

#include "sampler.h"
#include "shader_tools.h"
#include "shaders/node_sampler.h"
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;
using node_tools::describe;
using node_tools::named;

class AmbientOcclusion : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        shader = named("ambient_occlusion", "occlusion");
        RvNodeSetInt(shader, "samples", 30);
        flt("far_clip", 1e6f);
        context = cameraContext();
        context.state = &state;
        context.ray_type = RV_RAY_CAMERA;
        context.ray_dir = { 0, 0, -1 };
        setNormals({ 0, 0, 1 });
    }
    void TearDown() override
    {
        shader_tools::programs().clear();
        Surfaces::TearDown();
    }

    void setNormals(const RtVector& n)
    {
        context.normal = context.facing_normal = n;
        context.geometric_normal = context.facing_geometric_normal = n;
    }
    static RtNode* plane(const char* name, const RtPoint& point, const RtVector& normal)
    {
        RtNode* const node = named("plane", name);
        RvNodeSetPnt(node, "point", point.x, point.y, point.z);
        RvNodeSetVec(node, "normal", normal.x, normal.y, normal.z);
        return node;
    }
    static RtNode* ceiling(float height)
    {
        return plane("ceiling", { 0, 0, height }, { 0, 0, -1 });
    }
    void update()
    {
        rv::RvNodeInitialize(shader);
        shader->entry->methods->Update(shader, shader->params);
    }
    // Of the context, after an update.
    RtRGB shaded()
    {
        update();
        context.out.RGB = { 7, 7, 7 };
        RvShaderEvaluate(shader, &context);
        return context.out.RGB;
    }
    float occlusion() { return 1 - shaded().g; }

    RtShadingState state = {};
    RtShaderGlobals context = {};
};

TEST_F(AmbientOcclusion, cones_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "ambient_occlusion_angle"))
        expectGoldenNumbers(v, "angle", { rv::occlusionConeAngle(goldenFloat(v["in"]["spread"])) });
}

// ---- Closed forms ----

TEST_F(AmbientOcclusion, an_open_plane_is_white)
{
    setShaderOf(plane("floor", { 0, 0, 0 }, { 0, 0, 1 }), shader);
    prepare();
    expectColor(seen(), { 1, 1, 1 });
}

TEST_F(AmbientOcclusion, an_endless_wall_covers_half_of_the_sky)
{
    plane("wall", { 0.5f, 0, 0 }, { 1, 0, 0 });
    prepare();
    EXPECT_NEAR(occlusion(), 0.5, 0.01);
}

TEST_F(AmbientOcclusion, a_ceiling_covers_what_is_within_the_far_clip)
{
    ceiling(3);
    prepare();
    for (float far : { 2.9f, 4.0f, 5.0f, 12.0f, 1000.0f }) {
        flt("far_clip", far);
        // Directions whose cosine is above 3 / far.
        const double open = 9 / (double(far) * double(far));
        EXPECT_NEAR(occlusion(), std::max(0.0, 1 - open), 0.01) << far;
    }
    flt("far_clip", 1e6f);
    for (float near : { 2.0f, 4.0f, 5.0f, 12.0f }) {
        flt("near_clip", near); // hides the ceiling above
        EXPECT_NEAR(occlusion(), std::min(1.0, 9 / (double(near) * double(near))), 0.01) << near;
    }
}

TEST_F(AmbientOcclusion, a_ceiling_fades_with_a_falloff)
{
    ceiling(1);
    prepare();
    for (float falloff : { 0.1f, 0.5f, 2.0f }) {
        flt("falloff", falloff);
        double expected = 0; // of exp(-falloff / c) over the hemisphere, weighted by the cosine c
        constexpr int steps = 100000;
        for (int i = 0; i < steps; ++i) {
            const double c = (i + 0.5) / steps;
            expected += 2 * c * exp(-double(falloff) / c) / steps;
        }
        EXPECT_NEAR(occlusion(), expected, 0.01) << falloff;
    }
}

TEST_F(AmbientOcclusion, the_spread_narrows_the_cone)
{
    RtNode* const wall = plane("wall", { 3, 0, 0 }, { 1, 0, 0 });
    ceiling(2);
    prepare();
    flt("far_clip", 4); // the ceiling within 60 degrees, and none of the wall there
    RvNodeSetBool(wall, "opaque", true);
    for (float spread : { 0.2f, 0.5f, 0.66f }) {
        flt("spread", spread);
        EXPECT_NEAR(occlusion(), 1, 1e-5) << spread;
    }
    flt("far_clip", 1.99f);
    EXPECT_EQ(occlusion(), 0);
    flt("spread", 0.5f);             // 45 degrees
    flt("far_clip", 2 / cosf(0.5f)); // the ceiling within 0.5 radians
    const double inside = sin(0.5) * sin(0.5) / 0.5;
    EXPECT_NEAR(occlusion(), inside, 0.02);
}

TEST_F(AmbientOcclusion, spreads_beyond_1_count_as_1_and_below_0_as_0)
{
    plane("wall", { 0.5f, 0, 0 }, { 1, 0, 0 });
    prepare();
    flt("spread", 1);
    const RtRGB whole = shaded();
    flt("spread", 2);
    EXPECT_EQ(describe(shaded()), describe(whole));
    flt("spread", 0);
    EXPECT_EQ(describe(shaded()), "1 1 1") << "straight along the wall";
    flt("spread", -1);
    EXPECT_EQ(describe(shaded()), "1 1 1");
}

TEST_F(AmbientOcclusion, blockers_count_by_their_opacity)
{
    RtNode* const glass = named("flat", "glass");
    RvNodeSetRGB(glass, "opacity", 0.25f, 0.5f, 0.75f);
    RtNode* const around = sphere("around", { 0, 0, 0 }, 5);
    RvNodeSetBool(around, "opaque", false);
    setShaderOf(around, glass);
    prepare();
    expectColor(shaded(), { 0.75f, 0.5f, 0.25f });
}

// ---- Normals ----

TEST_F(AmbientOcclusion, with_inverted_normals_the_other_side_counts)
{
    ceiling(1);
    prepare();
    EXPECT_NEAR(occlusion(), 1, 1e-3);
    flag("invert_normals", true);
    EXPECT_EQ(occlusion(), 0);
    setNormals({ 0, 0, -1 });
    EXPECT_NEAR(occlusion(), 1, 1e-3);
    flag("invert_normals", false);
    EXPECT_EQ(occlusion(), 0);
}

TEST_F(AmbientOcclusion, directions_below_the_surface_are_covered)
{
    prepare();
    context.facing_normal = { 0.8f, 0, 0.6f }; // bumped
    // The share of the cosine lobe around the normal that lies below the surface.
    EXPECT_NEAR(occlusion(), (1 - 0.6) / 2, 0.01);
    flag("invert_normals", true);
    EXPECT_NEAR(occlusion(), (1 - 0.6) / 2, 0.01);
}

TEST_F(AmbientOcclusion, broken_normals_are_open)
{
    ceiling(1);
    prepare();
    for (const RtVector& n : { RtVector{ 0, 0, 0 }, { NAN, 0, 1 }, { 0, INFINITY, 0 } }) {
        setNormals(n);
        expectColor(shaded(), { 1, 1, 1 });
    }
}

// ---- Colours and opacity ----

TEST_F(AmbientOcclusion, black_and_white_are_blended)
{
    rgb("black", 1, 0, 0.5f);
    rgb("white", 0, 2, 0.5f);
    plane("wall", { 0.5f, 0, 0 }, { 1, 0, 0 });
    prepare();
    expectColor(shaded(), { 0.5f, 1, 0.5f }, 0.02f);
    RvNodeLink(shader_tools::rgbShader("blue", { 0, 0, 1 }), "black", shader);
    expectColor(shaded(), { 0, 1, 0.75f }, 0.02f);
}

TEST_F(AmbientOcclusion, opacity_is_that_of_the_surface)
{
    RvNodeSetBool(surface(), "opaque", false);
    rgb("opacity", 1, 0.5f, 0);
    setBackground({ 0, 0, 1 });
    prepare();
    expectColor(seen(), { 1, 0.5f, 1 });
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 1, 0.5f, 0 });
}

TEST_F(AmbientOcclusion, is_not_worked_out_where_nobody_asks)
{
    prepare();
    const auto loops = [] { return rv::threadStats()->lighting[RV_LIGHTING_CUSTOM].primary; };
    const struct {
        const char* name;
        int ray_type;
        RtRGB opacity;
        const char* color;
        uint64_t loops;
    } rows[] = {
        { "seen", RV_RAY_CAMERA, RV_RGB_WHITE, "1 1 1", 1 },
        { "mirrored", RV_RAY_REFLECTED, RV_RGB_WHITE, "1 1 1", 1 },
        { "shadow", RV_RAY_SHADOW, RV_RGB_WHITE, "7 7 7", 0 },
        { "transparent", RV_RAY_CAMERA, { 0.00009f, 0, 0 }, "7 7 7", 0 },
        { "diffuse", RV_RAY_DIFFUSE, RV_RGB_WHITE, "0 0 0", 0 },
    };
    for (const auto& row : rows) {
        context.ray_type = uint16_t(row.ray_type);
        rgb("opacity", row.opacity.r, row.opacity.g, row.opacity.b);
        const uint64_t before = loops();
        EXPECT_EQ(describe(shaded()), row.color) << row.name;
        EXPECT_EQ(loops() - before, row.loops) << row.name;
        EXPECT_EQ(describe(context.out_opacity), describe(row.opacity)) << row.name;
    }
}

TEST_F(AmbientOcclusion, a_hit_that_chance_lets_pass_is_not_shaded)
{
    set("auto_transparency_probabilistic", true);
    rgb("opacity", 0.5f, 0.5f, 0.5f);
    prepare();
    state.accumulated_opacity = { 0.5f, 0.5f, 0.5f };
    for (float chance : { 0.25f, 0.75f }) {
        state.random[0] = 0.1f;
        state.random[1] = chance;
        EXPECT_EQ(describe(shaded()), chance < 0.5f ? "1 1 1" : "7 7 7") << chance;
        EXPECT_EQ(describe(context.out_opacity), chance < 0.5f ? "1 1 1" : "0 0 0") << chance;
    }
}

// ---- Samplers ----

TEST_F(AmbientOcclusion, updates_replace_the_sampler)
{
    for (const auto& [samples, count] :
         { std::pair{ 3, 9 }, { 5, 25 }, { 0, 0 }, { -2, 0 }, { 1, 1 } }) {
        RvNodeSetInt(shader, "samples", samples);
        update();
        const RtSampler* const sampler = rv::nodeSampler(shader);
        EXPECT_EQ(sampler ? sampler->count : 0, count) << samples;
        EXPECT_EQ(sampler ? sampler->total : 0, count * RvNodeGetInt(options(), "AA_samples") *
                                                    RvNodeGetInt(options(), "AA_samples"))
            << samples;
    }
}

TEST_F(AmbientOcclusion, without_samples_nothing_is_covered)
{
    ceiling(1);
    prepare();
    for (int samples : { 0, -7 }) {
        RvNodeSetInt(shader, "samples", samples);
        expectColor(shaded(), { 1, 1, 1 });
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AmbientOcclusion, more_samples_than_fit_are_reported_and_survived)
{
    ceiling(1);
    prepare();
    RvNodeSetInt(shader, "samples", INT_MAX);
    expectColor(shaded(), { 1, 1, 1 });
    EXPECT_NE(takeProblem(), "");
}

} // namespace
