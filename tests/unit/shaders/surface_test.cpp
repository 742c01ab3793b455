// The shaders "flat" and "lambert", and what all surface shaders have in common.
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;

class FlatSurfaces : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        shader = node_tools::named("flat", "flat");
        rgb("color", 0.1f, 0.5f, 0.9f);
    }
};

class LambertSurfaces : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        shader = node_tools::named("lambert", "lambert");
    }
    static uint64_t lightLoops() { return rv::threadStats()->lighting[RV_LIGHTING_LOOPS].primary; }
};

// ---- flat ----

TEST_F(FlatSurfaces, show_their_color_without_light)
{
    surface();
    prepare();
    expectColor(seen(), { 0.1f, 0.5f, 0.9f });
}

TEST_F(FlatSurfaces, let_through_what_their_opacity_leaves)
{
    RvNodeSetBool(surface(), "opaque", false);
    rgb("opacity", 1, 0.5f, 0);
    setBackground({ 1, 1, 1 });
    prepare();
    expectColor(seen(), { 0.1f, 0.75f, 1 });
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 1, 0.5f, 0 });
}

TEST_F(FlatSurfaces, leave_the_result_alone_where_they_cannot_be_seen)
{
    rgb("opacity", 0.00009f, 0, -0.00009f);
    RtShaderGlobals sg = cameraContext();
    sg.out.RGB = { 7, 7, 7 };
    RvShaderEvaluate(shader, &sg);
    expectColor(sg.out.RGB, { 7, 7, 7 });
    expectColor(sg.out_opacity, { 0.00009f, 0, -0.00009f });
    rgb("opacity", 0.0002f, 0, 0);
    RvShaderEvaluate(shader, &sg);
    expectColor(sg.out.RGB, { 0.1f, 0.5f, 0.9f });
}

TEST_F(FlatSurfaces, have_no_color_for_shadow_rays)
{
    RtShaderGlobals sg = cameraContext();
    sg.ray_type = RV_RAY_SHADOW;
    sg.out.RGB = { 7, 7, 7 };
    RvShaderEvaluate(shader, &sg);
    expectColor(sg.out.RGB, { 7, 7, 7 });
}

// ---- lambert ----

TEST_F(LambertSurfaces, reflect_light_by_the_cosine_of_its_angle)
{
    surface();
    distantLight(60);
    rgb("Kd_color", 1, 0.5f, 0.25f);
    prepare();
    const float expected = 0.7f * 0.5f * one_over_pi;
    expectColor(seen(), { expected, expected / 2, expected / 4 });
}

TEST_F(LambertSurfaces, are_brighter_by_pi_when_not_physically_based)
{
    surface();
    distantLight();
    set("physically_based", false);
    prepare();
    expectColor(seen(), rv::grey(0.7f));
}

TEST_F(LambertSurfaces, are_black_without_a_light_loop_when_the_weight_is_0)
{
    surface();
    distantLight();
    flt("Kd", 0);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
    EXPECT_EQ(lightLoops(), 0u);
    flt("Kd", 0.5f);
    prepare();
    EXPECT_GT(seen().r, 0);
    EXPECT_EQ(lightLoops(), 1u);
}

TEST_F(LambertSurfaces, take_no_light_that_is_not_meant_for_diffuse_reflection)
{
    surface();
    RvNodeSetBool(distantLight(), "affect_diffuse", false);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
}

TEST_F(LambertSurfaces, gather_indirect_light)
{
    surface();
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 3);
    setBackground({ 1, 2, 3 });
    prepare();
    expectColor(seen(), { 0.7f, 1.4f, 2.1f });
}

TEST_F(LambertSurfaces, let_shadow_rays_see_their_opacity_alone)
{
    RvNodeSetBool(surface(), "opaque", false);
    rgb("opacity", 0.25f, 0.5f, 0.75f);
    distantLight();
    prepare();
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 0.25f, 0.5f, 0.75f });
    EXPECT_EQ(lightLoops(), 0u);
}

} // namespace
