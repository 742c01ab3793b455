// Tests of core/src/lights/distant.cpp: the "distant_light" node.
#include "lights/distant.h"

#include "light_tools.h"

using namespace light_tools;

class DistantLights : public Lit {
protected:
    static const RtLightMethods& methods(const RtNode* light)
    {
        return *static_cast<const RtLightMethods*>(light->entry->kind_methods);
    }
};

TEST_F(DistantLights, constants_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "distant_constants")) {
        const rv::DistantLightData data =
            rv::distantLight({ 0, 0, 1 }, goldenFloat(v["in"]["angle"]));
        expectGoldenNumbers(v, "cos_limit", { data.cos_limit });
        expectGoldenNumbers(v, "one_minus_cos", { data.cone.one_minus_cos });
        expectGoldenNumbers(v, "solid", { data.solid });
    }
}

TEST_F(DistantLights, without_an_angle_there_is_one_sample_in_the_direction)
{
    RtNode* const node = distantLight({ 0, -3, -4 });
    RvNodeSetInt(node, "samples", 5);
    RvNodeSetFlt(node, "intensity", 2);
    prepare();
    const auto all = samples();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(text(all[0].dir), text(RtVector{ 0, 0.6f, 0.8f }));
    EXPECT_EQ(all[0].dist, 1e12f);
    EXPECT_EQ(all[0].weight, 1);
    EXPECT_EQ(text(all[0].radiance), "2 2 2");
    EXPECT_NEAR(irradiance({ 100, 200, 300 }), 1.6, 1e-6);
}

TEST_F(DistantLights, the_first_matrix_turns_the_direction)
{
    RtNode* const node = distantLight({ 0, 0, -1 });
    RtMatrix turn;
    RvM4RotationX(&turn, 30);
    RtArray* const matrix = RvArrayAllocate(1, 1, RV_TYPE_MATRIX);
    RvArraySetMtx(matrix, 0, &turn);
    RvNodeSetArray(node, "matrix", matrix);
    prepare();
    RtVector want, up = { 0, 0, 1 };
    RvM4VectorByMatrixMult(&want, &turn, &up);
    const RtVector got = samples()[0].dir;
    EXPECT_NEAR(rv::dot(got, rv::unitPrecise(want)), 1, 1e-6);
}

TEST_F(DistantLights, a_sun_is_sampled_over_its_disk)
{
    RtNode* const node = distantLight({ 0, 0, -1 }, 10);
    RvNodeSetInt(node, "samples", 20);
    prepare();
    const auto all = samples();
    ASSERT_EQ(all.size(), 400u);
    float least = 1;
    for (const Sample& s : all) {
        EXPECT_EQ(s.weight, 1 / 400.0f);
        EXPECT_EQ(s.radiance.g, 1);
        least = std::min(least, s.dir.z);
    }
    EXPECT_NEAR(least, cos(5 * M_PI / 180), 3e-5);
    EXPECT_GE(least, float(cos(5 * M_PI / 180)) - 1e-6f);
}

TEST_F(DistantLights, without_normalize_the_intensity_is_that_of_each_direction)
{
    const double half = 0.5 * 30 * M_PI / 180;
    RtNode* const node = distantLight({ 0, 0, -1 }, 30);
    RvNodeSetInt(node, "samples", 100);
    RvNodeSetBool(node, "normalize", false);
    prepare();
    EXPECT_NEAR(irradiance(), M_PI * sin(half) * sin(half), 1e-3);
    startAnew();
    RvNodeSetBool(distantLight({ 0, 0, -1 }, 0), "normalize", false);
    prepare();
    EXPECT_NEAR(irradiance(), 1, 1e-6);
}

TEST_F(DistantLights, a_normalised_sun_lights_almost_like_a_direction)
{
    const double half = 0.5 * 30 * M_PI / 180;
    RvNodeSetInt(distantLight({ 0, 0, -1 }, 30), "samples", 100);
    prepare();
    EXPECT_NEAR(irradiance(), sin(half) * sin(half) / (2 * (1 - cos(half))), 1e-3);
}

TEST_F(DistantLights, surfaces_are_lit_until_the_disk_has_set)
{
    const struct {
        float angle;
        double tilt; // degrees between normal and light
        bool lit;
    } rows[] = {
        { 0, 89.9, true },
        { 0, 90.1, false },
        { 20, 99.9, true },
        { 20, 100.1, false },
    };
    for (const auto& row : rows) {
        distantLight({ 0, 0, -1 }, row.angle);
        prepare();
        const double a = row.tilt * M_PI / 180;
        const RtVector normal = { float(sin(a)), 0, float(cos(a)) };
        EXPECT_EQ(!samples({ 0, 0, 0 }, normal).empty(), row.lit) << row.angle << " " << row.tilt;
        RtShaderGlobals sg = surface({ 0, 0, 0 }, normal);
        sg.front_hemisphere_only = 0;
        EXPECT_EQ(samplesAt(sg).size(), 1u);
        startAnew();
    }
}

TEST_F(DistantLights, bounce_factor_scales_what_diffuse_rays_see)
{
    RvNodeSetFlt(distantLight({ 0, 0, -1 }), "bounce_factor", 0.25f);
    prepare();
    RtShaderGlobals sg = surface();
    sg.diffuse_depth = 1;
    EXPECT_EQ(samplesAt(sg)[0].radiance.r, 0.25f);
}

TEST_F(DistantLights, a_direction_of_no_length_shines_nowhere)
{
    for (float angle : { 0.0f, 5.0f }) {
        distantLight({ 0, 0, 0 }, angle);
        prepare();
        for (int front : { 0, 1 }) {
            RtShaderGlobals sg = surface();
            sg.front_hemisphere_only = uint8_t(front);
            EXPECT_TRUE(samplesAt(sg).empty());
        }
        startAnew();
    }
}

TEST_F(DistantLights, odd_angles_are_survived)
{
    for (float angle : { -10.0f, 360.0f, 1e30f }) {
        distantLight({ 0, 0, -1 }, angle);
        prepare();
        const auto all = samples();
        EXPECT_LE(all.size(), 1u) << angle;
        for (const Sample& s : all)
            EXPECT_NEAR(rv::dot(s.dir, s.dir), 1, 1e-5);
        startAnew();
    }
}

TEST_F(DistantLights, samples_of_a_brdf_do_not_find_them)
{
    RtNode* const node = distantLight({ 0, 0, -1 }, 20);
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    EXPECT_FALSE(sg.state->lights.mis.active);
    RtRay ray = {};
    ray.dir = { 0, 0, 1 };
    ray.maxdist = 1e30;
    RtLightBounds bounds;
    EXPECT_FALSE(methods(node).LightIntersect(node, &sg, &ray));
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
    EXPECT_EQ(text(methods(node).LightAmbient(node, &sg)), "0 0 0");
}
