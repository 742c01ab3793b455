// Light transport against closed forms, through the built-in shaders.
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;

class LightTransport : public Surfaces {
protected:
    // A hollow ball around the origin, seen from its centre.
    void makeHollowBall(float albedo)
    {
        flt("Kd", albedo);
        setShaderOf(sphere("ball", { 0, 0, 0 }, 2), shader);
    }
    static float seenFromWithin() { return traced(rayFrom(0)).color.g; }
    static void setBounces(int depth, int samples)
    {
        set("GI_diffuse_depth", depth);
        set("GI_diffuse_samples", samples);
    }
};

float geometricSum(float ratio, int last)
{
    float sum = 0, power = 1;
    for (int i = 0; i <= last; ++i, power *= ratio)
        sum += power;
    return sum;
}

// ---- White furnace ----

TEST_F(LightTransport, a_white_diffuse_surface_in_a_white_environment_cannot_be_seen)
{
    flt("Kd", 1);
    surface();
    setBackground(RV_RGB_WHITE);
    setBounces(1, 4);
    prepare();
    expectColor(seen(), RV_RGB_WHITE);
}

TEST_F(LightTransport, a_white_diffuse_ball_in_a_white_environment_cannot_be_seen)
{
    flt("Kd", 1);
    setShaderOf(sphere("ball", { 0, 0, 0 }, 1), shader);
    setBackground(RV_RGB_WHITE);
    setBounces(1, 4);
    prepare();
    for (float x : { 0.0f, 0.3f, 0.6f, 0.9f, 0.99f }) {
        RtRay ray = down();
        ray.origin.x = x;
        EXPECT_NEAR(traced(ray).color.g, 1, 1e-4) << x;
    }
}

// ---- Diffuse inter-reflection ----

TEST_F(LightTransport, a_glowing_hollow_ball_is_brightened_by_each_bounce)
{
    makeHollowBall(0.6f);
    flt("emission", 0.5f);
    for (int depth : { 0, 1, 2, 3, 8 }) {
        setBounces(depth, 2);
        prepare();
        EXPECT_NEAR(seenFromWithin(), 0.5f * geometricSum(0.6f, depth), 1e-4) << depth;
    }
}

TEST_F(LightTransport, a_light_in_the_middle_of_a_hollow_ball_is_brightened_by_each_bounce)
{
    makeHollowBall(0.8f);
    RvNodeSetFlt(node_tools::named("point_light", "lamp"), "intensity", 3);
    for (int depth : { 0, 1, 2, 3 }) {
        setBounces(depth, 2);
        prepare();
        const float direct = 0.8f * one_over_pi * 3;
        EXPECT_NEAR(seenFromWithin(), direct * geometricSum(0.8f, depth), 1e-4) << depth;
    }
}

// ---- Media ----

TEST_F(LightTransport, a_slab_dims_light_by_its_thickness_along_the_ray)
{
    flt("Kd", 0);
    flt("Kt", 1);
    flt("IOR", 1);
    rgb("transmittance", 0.5f, 0.25f, 1);
    RtNode* const slab = node_tools::named("box", "slab");
    RvNodeSetPnt(slab, "min", -20, -20, -1);
    RvNodeSetPnt(slab, "max", 20, 20, 1);
    RvNodeSetBool(slab, "opaque", false);
    setShaderOf(slab, shader);
    setBackground(RV_RGB_WHITE);
    prepare();
    for (float degrees : { 0.0f, 30.0f, 60.0f }) {
        const float angle = degrees * std::numbers::pi_v<float> / 180;
        RtRay ray = rayFrom(2);
        ray.dir = { sinf(angle), 0, -cosf(angle) };
        const float way = 2 / cosf(angle);
        expectColor(traced(ray).color, { powf(0.5f, way), powf(0.25f, way), 1 }, 1e-3f);
    }
}

} // namespace
