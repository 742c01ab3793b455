// Tests of core/src/lights/spot.cpp: the "spot_light" node.
#include "lights/spot.h"

#include "light_tools.h"
#include "lights/cone_light.h"

#include <random>

using namespace light_tools;
using rv::SpotCone;
using rv::SpotSettings;

class SpotLights : public Lit {
protected:
    // At height 10 above the origin, looking down; +x is up in its image and -y to the right.
    RtNode* lamp(float cone = 65)
    {
        RtNode* const node = spotLight({ 0, 0, 10 }, { 0, 0, 0 });
        RvNodeSetFlt(node, "cone_angle", cone);
        return node;
    }
    static const RtLightMethods& methods(const RtNode* light)
    {
        return *static_cast<const RtLightMethods*>(light->entry->kind_methods);
    }
    // Light at that angle from the axis, towards +x (or +y), on the plane z = 0.
    float lightAt(double degrees, bool along_y = false)
    {
        const float r = float(10 * tan(degrees * M_PI / 180));
        const auto all = samples(along_y ? RtPoint{ 0, r, 0 } : RtPoint{ r, 0, 0 });
        return all.empty() ? 0 : all[0].radiance.g;
    }
};

// ---- Formulas ----

static SpotSettings settingsOf(const nlohmann::json& in)
{
    return { goldenFloat(in["cone_angle"]), goldenFloat(in["penumbra_angle"]),
             goldenFloat(in["lens_radius"]), goldenFloat(in["aspect_ratio"]), 0 };
}

TEST_F(SpotLights, constants_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "spot_constants")) {
        const SpotCone cone = rv::spotCone(settingsOf(v["in"]));
        expectGoldenNumbers(v, "cone", { cone.cone });
        expectGoldenNumbers(v, "penumbra", { cone.penumbra });
        expectGoldenNumbers(v, "tan_half", { cone.tan_half });
        expectGoldenNumbers(v, "cos_half", { cone.cos_half });
        expectGoldenNumbers(v, "k", { float(cone.k) });
        expectGoldenNumbers(v, "aspect", { cone.aspect });
        expectGoldenNumbers(v, "apex_offset", { cone.apex_offset });
    }
}

TEST_F(SpotLights, falloff_agrees_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "spot_falloff")) {
        const auto& in = v["in"];
        SpotCone cone = {};
        cone.cone = goldenFloat(in["cone"]);
        cone.k = M_PI / double(cone.cone);
        cone.penumbra = goldenFloat(in["penumbra"]);
        cone.cosine_power = goldenFloat(in["cosine_power"]);
        expectGoldenNumbers(v, "value", { rv::spotFalloff(cone, goldenFloat(in["theta"])) });
    }
}

TEST_F(SpotLights, projections_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "spot_projection")) {
        const auto& in = v["in"];
        const auto lateral = goldenFloats(in["lateral"]);
        SpotCone cone = {};
        cone.tan_half = float(tan(goldenNumber(in["cone"]) / 2));
        cone.aspect = goldenFloat(in["aspect"]);
        RtPoint2 p = { 0, 0 };
        float theta = -1;
        const bool inside =
            rv::projectOnSpot(cone, lateral[0], lateral[1], goldenFloat(in["depth"]), &p, &theta);
        expectGoldenNumbers(v, "px", { p.x });
        expectGoldenNumbers(v, "py", { p.y });
        expectGolden(v, "outside", !inside);
        expectGoldenNumbers(v, "theta", { theta });
        expectGoldenNumbers(v, "u", { (p.x + 1) / 2 });
        expectGoldenNumbers(v, "v", { 1 - (p.y + 1) / 2 });
    }
}

TEST_F(SpotLights, behind_the_light_the_projection_stays_as_it_was)
{
    SpotCone cone = {};
    cone.tan_half = cone.aspect = 1;
    RtPoint2 p = { 0.25f, 0.5f };
    float theta;
    EXPECT_TRUE(rv::projectOnSpot(cone, 9, 9, -1, &p, &theta));
    EXPECT_EQ(p.x, 0.25f);
    EXPECT_EQ(p.y, 0.5f);
}

TEST_F(SpotLights, cone_angles_are_clamped)
{
    const auto degrees = [](float angle, float lens) {
        return rv::spotCone({ angle, 0, lens, 1, 0 }).cone * 180 / M_PI;
    };
    EXPECT_NEAR(degrees(200, 0), 179.9999, 1e-4);
    EXPECT_NEAR(degrees(0, 0), 0.0001, 1e-8);
    EXPECT_NEAR(degrees(0.1f, 0), 0.1, 1e-6);
    EXPECT_NEAR(degrees(0.1f, 1), 0.25, 1e-6);
    EXPECT_NEAR(degrees(200, 1), 179.9999, 1e-4);
}

// ---- The cone of light ----

TEST_F(SpotLights, without_penumbra_the_edge_is_hard)
{
    lamp(60);
    prepare();
    for (double degrees : { 0.0, 10.0, 29.9 })
        EXPECT_EQ(lightAt(degrees), 1) << degrees;
    for (double degrees : { 30.1, 45.0, 89.0 })
        EXPECT_EQ(lightAt(degrees), 0) << degrees;
    EXPECT_TRUE(samples({ 0, 0, 11 }, { 0, 0, -1 }).empty()); // behind the lamp
}

TEST_F(SpotLights, a_cone_of_200_degrees_is_almost_a_half_space)
{
    lamp(200);
    prepare();
    EXPECT_EQ(lightAt(89), 1);
    EXPECT_TRUE(samples({ 0, 0, 11 }, { 0, 0, -1 }).empty());
}

TEST_F(SpotLights, a_penumbra_fades_over_its_angle_to_0_at_the_edge)
{
    RvNodeSetFlt(lamp(60), "penumbra_angle", 5);
    prepare();
    EXPECT_EQ(lightAt(24.99), 1);
    EXPECT_NEAR(lightAt(27.5), 0.5, 1e-4);
    EXPECT_NEAR(lightAt(26.25), 1 - 0.0625 * 2.5, 1e-4);
    EXPECT_LT(lightAt(29.99), 1e-3);
}

TEST_F(SpotLights, cosine_power_fades_from_the_axis_and_ignores_the_penumbra)
{
    RtNode* const node = lamp(60);
    RvNodeSetFlt(node, "penumbra_angle", 20);
    for (float power : { 1.0f, 2.0f, 7.5f }) {
        RvNodeSetFlt(node, "cosine_power", power);
        prepare();
        updateLight(node);
        for (double degrees : { 0.0, 10.0, 20.0, 28.0 })
            EXPECT_NEAR(lightAt(degrees), pow(cos(degrees * 3 * M_PI / 180), power), 1e-4)
                << power << " " << degrees;
    }
}

TEST_F(SpotLights, an_aspect_ratio_and_its_inverse_squash_alike)
{
    for (float ratio : { 0.5f, 2.0f }) {
        RvNodeSetFlt(lamp(60), "aspect_ratio", ratio);
        prepare();
        // Squashed upwards in the image of the light, which is along x.
        EXPECT_EQ(lightAt(16), 1) << ratio;
        EXPECT_EQ(lightAt(17), 0) << ratio;
        EXPECT_EQ(lightAt(29, true), 1) << ratio;
        EXPECT_EQ(lightAt(31, true), 0) << ratio;
        startAnew();
    }
}

TEST_F(SpotLights, a_lens_moves_the_apex_back_and_lights_nothing_behind_it)
{
    RtNode* const node = lamp(90);
    RvNodeSetFlt(node, "lens_radius", 2); // apex at height 12
    prepare();
    const auto all = samples({ 0, 0, 0 });
    ASSERT_EQ(all.size(), 1u);
    EXPECT_NEAR(all[0].dist, 12, 1e-4);
    EXPECT_EQ(samples({ 11.9f, 0, 0 }).size(), 1u);
    EXPECT_EQ(samples({ 12.1f, 0, 0 }).size(), 0u);
    EXPECT_EQ(samples({ 0, 0, 9.9f }).size(), 1u);
    EXPECT_EQ(samples({ 0, 0, 10.1f }).size(), 0u); // between apex and lens
}

TEST_F(SpotLights, surfaces_that_face_away_are_not_lit)
{
    lamp();
    prepare();
    EXPECT_EQ(samples({ 0, 0, 0 }, { 0, 0, -1 }).size(), 0u);
    RtShaderGlobals sg = surface({ 0, 0, 0 }, { 0, 0, -1 });
    sg.front_hemisphere_only = 0;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(SpotLights, irradiance_falls_with_the_cosine_and_a_decay_filter)
{
    RtNode* const node = lamp(60);
    RtNode* const decay = named("light_decay", "decay");
    RvNodeSetStr(decay, "decay_type", "quadratic");
    setFilters(node, { decay });
    RvNodeSetFlt(node, "intensity", 100);
    prepare();
    for (float x : { 0.0f, 3.0f, 5.0f }) {
        const double d_sq = 100 + double(x) * x;
        EXPECT_NEAR(irradiance({ x, 0, 0 }), 100 / d_sq * 10 / sqrt(d_sq), 1e-5);
    }
    EXPECT_EQ(irradiance({ 6, 0, 0 }), 0);
}

// ---- Disks ----

TEST_F(SpotLights, a_radius_spreads_the_light_over_the_cone_of_a_disk)
{
    for (bool normalize : { true, false }) {
        RtNode* const node = lamp(60);
        RvNodeSetFlt(node, "radius", 2);
        RvNodeSetInt(node, "samples", 30);
        RvNodeSetBool(node, "normalize", normalize);
        RvNodeSetFlt(node, "penumbra_angle", 10);
        prepare();
        const double extent = 2 * M_PI * (1 - cos(atan(0.2)));
        RtShaderGlobals sg = surface();
        const auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), 900u);
        float least = 1;
        for (const Sample& s : all) {
            least = std::min(least, s.dir.z);
            EXPECT_NEAR(s.radiance.g, normalize ? 1 : extent, 1e-5);
            EXPECT_EQ(s.dist, 10);
        }
        EXPECT_NEAR(least, cos(atan(0.2)), 1e-3);
        startAnew();
    }
}

TEST_F(SpotLights, both_techniques_see_the_same_radiance)
{
    for (bool normalize : { true, false })
        for (double degrees : { 0.0, 24.0 }) { // the second in the penumbra
            RtNode* const node = lamp(60);
            RvNodeSetFlt(node, "radius", 1);
            RvNodeSetFlt(node, "penumbra_angle", 10);
            RvNodeSetBool(node, "normalize", normalize);
            RvNodeSetFlt(node, "intensity", 3);
            prepare();
            RtShaderGlobals sg = surface({ float(10 * tan(degrees * M_PI / 180)), 0, 0 });
            RvLightsPrepare(&sg);
            ASSERT_TRUE(RvLightsGetSample(&sg));
            const RtLightMIS from_light = sg.state->lights.mis;
            EXPECT_TRUE(from_light.active);
            RtRay ray = {};
            ray.dir = sg.light_dir;
            ASSERT_TRUE(methods(node).LightIntersect(node, &sg, &ray));
            const RtLightMIS& from_brdf = sg.state->lights.mis;
            EXPECT_NEAR(from_brdf.radiance.g / from_light.radiance.g, 1, 1e-5);
            EXPECT_NEAR(from_brdf.pdf / from_light.pdf, 1, 1e-6);
            startAnew();
        }
}

// ---- Frames ----

TEST_F(SpotLights, keys_must_agree_in_number)
{
    RtNode* const node = light("spot_light", "s");
    RvNodeSetBool(options(), "abort_on_error", false);
    RvNodeSetArray(node, "position",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 0, 0, 10 }, RtPoint{ 0, 0, 20 }));
    updateLight(node);
    EXPECT_EQ(takeProblem(),
              "s: position, look_at and up must have the same number of motion keys");
}

TEST_F(SpotLights, the_light_moves_with_its_keys_and_its_matrix)
{
    RtNode* const node = light("spot_light");
    RvNodeSetArray(node, "position",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 0, 0, 0 }, RtPoint{ 4, 0, 0 }));
    RvNodeSetArray(node, "look_at",
                   RvArray(1, 2, RV_TYPE_POINT, RtPoint{ 0, 0, -1 }, RtPoint{ 4, 0, -1 }));
    RvNodeSetArray(node, "up",
                   RvArray(1, 2, RV_TYPE_VECTOR, RtVector{ 0, 1, 0 }, RtVector{ 0, 1, 0 }));
    RvNodeSetFlt(node, "cone_angle", 10);
    RtMatrix lift;
    const RtVector up = { 0, 0, 10 };
    RvM4Translation(&lift, &up);
    RtArray* const matrix = RvArrayAllocate(1, 1, RV_TYPE_MATRIX);
    RvArraySetMtx(matrix, 0, &lift);
    RvNodeSetArray(node, "matrix", matrix);
    prepare();
    for (float time : { 0.0f, 0.25f, 0.5f, 0.75f })
        for (float x : { 0.0f, 1.0f, 2.0f, 3.0f }) {
            RtShaderGlobals sg = surface({ x, 0, 0 });
            sg.time = time;
            const auto all = samplesAt(sg);
            EXPECT_EQ(all.size(), x == 4 * time ? 1u : 0u) << time << " " << x;
            for (const Sample& one : all)
                EXPECT_NEAR(one.dist, 10, 1e-4);
        }
}

TEST_F(SpotLights, a_bad_up_vector_is_replaced)
{
    const struct {
        const char* name;
        RtVector up;
        bool set;
    } rows[] = {
        { "parallel by default", { 0, 1, 0 }, false },
        { "parallel", { 0, 1, 0 }, true },
        { "opposite", { 0, -3, 0 }, true },
        { "zero", { 0, 0, 0 }, true },
    };
    for (const auto& row : rows) {
        RtNode* const node = light("spot_light", "s");
        RvNodeSetArray(node, "look_at", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 5, 0 }));
        if (row.set)
            RvNodeSetArray(node, "up", RvArray(1, 1, RV_TYPE_VECTOR, row.up));
        takeProblems();
        updateLight(node);
        const auto problems = takeProblems();
        ASSERT_EQ(problems.size(), row.set ? 2u : 1u) << row.name;
        if (row.set) {
            EXPECT_EQ(problems[0], "s: bad UP vector, will use a random vector instead");
        }
        // (1.468, -1.134, 0.7802) without its share along y.
        const double length = sqrt(1.468 * 1.468 + 0.7802 * 0.7802);
        double x, y, z;
        ASSERT_EQ(sscanf(problems.back().c_str(), "s: bad UP vector using %lf %lf %lf", &x, &y, &z),
                  3)
            << problems.back();
        EXPECT_NEAR(x, 1.468 / length, 1e-12);
        EXPECT_NEAR(y, 0, 1e-12);
        EXPECT_NEAR(z, 0.7802 / length, 1e-12);
        RvNodeDestroy(node);
    }
}

TEST_F(SpotLights, a_good_up_vector_is_not_reported)
{
    RtNode* const node = lamp();
    RvNodeSetArray(node, "up", RvArray(1, 1, RV_TYPE_VECTOR, RtVector{ 1e-4f, 0, 5 }));
    updateLight(node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SpotLights, a_light_that_looks_at_itself_is_survived)
{
    spotLight({ 0, 0, 10 }, { 0, 0, 10 });
    prepare();
    EXPECT_EQ(samples().size(), 1u); // looks down -z
}

// ---- Filters ----

namespace {
std::vector<RtShaderGlobals> seen;
}

TEST_F(SpotLights, filters_see_the_projection_of_the_point)
{
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = [](RtNode*, RtShaderGlobals* sg) {
        seen.push_back(*sg);
    } };
    static const RtNodeMethods all = { &common, &shader };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_NONE, "watcher", "", &all, RV_VERSION);
    for (float aspect : { 1.0f, 2.0f }) {
        RtNode* const node = lamp(90); // as wide as high: [-10, 10] at the origin
        RvNodeSetFlt(node, "aspect_ratio", aspect);
        setFilters(node, { named("watcher", "w") });
        prepare();
        seen.clear();
        RtShaderGlobals sg = surface({ 2, -5, 0 });
        sg.u = 0.11f;
        sg.v = 0.22f;
        sg.dudx = 1;
        sg.dudy = 2;
        sg.dvdx = 3;
        sg.dvdy = 4;
        sg.dPdx = { 0.1f, 0, 0.2f };
        sg.dPdy = { 0, 0.3f, 0 };
        samplesAt(sg);
        ASSERT_EQ(seen.size(), 1u);
        const RtShaderGlobals& at = seen[0];
        // Right is -y, up is x.
        const auto u = [](double, double y, double depth) { return (-y / depth + 1) / 2; };
        const auto v = [aspect](double x, double, double depth) {
            return 1 - (aspect * x / depth + 1) / 2;
        };
        EXPECT_NEAR(at.u, u(2, -5, 10), 1e-5);
        EXPECT_NEAR(at.v, v(2, -5, 10), 1e-5);
        // Depth is 10 - z.
        const double h = 1e-4;
        EXPECT_NEAR(at.dudx, (u(2 + 0.1 * h, -5, 10 - 0.2 * h) - u(2, -5, 10)) / h, 1e-4);
        EXPECT_NEAR(at.dvdx, (v(2 + 0.1 * h, -5, 10 - 0.2 * h) - v(2, -5, 10)) / h, 1e-4);
        EXPECT_NEAR(at.dudy, (u(2, -5 + 0.3 * h, 10) - u(2, -5, 10)) / h, 1e-4);
        EXPECT_NEAR(at.dvdy, 0, 1e-5);
        // Everything comes back afterwards.
        EXPECT_EQ(sg.u, 0.11f);
        EXPECT_EQ(sg.v, 0.22f);
        EXPECT_EQ(sg.dudx, 1);
        EXPECT_EQ(sg.dudy, 2);
        EXPECT_EQ(sg.dvdx, 3);
        EXPECT_EQ(sg.dvdy, 4);
        RvNodeUninstall("watcher");
        startAnew();
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_NONE, "watcher", "", &all, RV_VERSION);
    }
}

// ---- Volumes ----

TEST_F(SpotLights, in_volumes_the_cone_is_tested_for_each_sample)
{
    lamp(60);
    prepare();
    RtShaderGlobals sg = surface({ 0, 0, 5 });
    sg.stage = RV_STAGE_VOLUME;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    sg.point = { 5, 0, 5 };
    EXPECT_EQ(samplesAt(sg).size(), 0u);
}

TEST_F(SpotLights, the_reach_of_a_spot_is_a_cone_within_a_ball)
{
    const struct {
        const char* name;
        RtPoint origin;
        RtVector dir;
        double maxdist;
        bool hit;
        float t0, t1;
    } rows[] = {
        // 90 degrees from (0, 0, 10) downwards, ball of radius 5.
        { "across", { -10, 0, 7 }, { 1, 0, 0 }, 1e30, true, 7, 13 },
        { "across, cut short", { -10, 0, 7 }, { 1, 0, 0 }, 9, true, 7, 9 },
        { "too short", { -10, 0, 7 }, { 1, 0, 0 }, 6, false, 0, 0 },
        { "above", { -10, 0, 13 }, { 1, 0, 0 }, 1e30, false, 0, 0 },
        { "below the ball", { -10, 0, 4 }, { 1, 0, 0 }, 1e30, false, 0, 0 },
        { "up the axis", { 0, 0, 0 }, { 0, 0, 1 }, 1e30, true, 5, 10 },
        { "down the axis", { 0, 0, 20 }, { 0, 0, -1 }, 1e30, true, 10, 15 },
        { "starts inside", { 0, 0, 8 }, { 0, 0, -1 }, 1e30, true, -2, 3 },
        { "moves away", { 10, 0, 7 }, { 1, 0, 0 }, 1e30, false, 0, 0 },
        { "along a generator", { 1, 0, 10 }, { 1, 0, -1 }, 1e30, false, 0, 0 },
        { "into the other half only", { -10, 0, 12 }, { 1, 0, 0 }, 1e30, false, 0, 0 },
    };
    RtNode* const node = lamp(90);
    prepare();
    dataOf(node).cutoff_sq = 25;
    for (const auto& row : rows) {
        RtRay ray = {};
        ray.origin = row.origin;
        ray.dir = row.dir;
        ray.maxdist = row.maxdist;
        RtLightBounds bounds;
        ASSERT_EQ(methods(node).LightBounds(node, &bounds, &ray), row.hit) << row.name;
        if (row.hit) {
            EXPECT_NEAR(bounds.t0, row.t0, 1e-4) << row.name;
            EXPECT_NEAR(bounds.t1, row.t1, 1e-4) << row.name;
            EXPECT_EQ(text(bounds.center), "0 0 10");
            EXPECT_EQ(bounds.extent, 5);
        }
    }
}

TEST_F(SpotLights, every_lit_point_of_a_ray_lies_within_the_bounds_and_no_other)
{
    RtNode* const node = lamp(50);
    RvNodeSetFlt(node, "aspect_ratio", 1.7f);
    prepare();
    std::mt19937 random(3);
    std::uniform_real_distribution<float> unit(-1, 1);
    int hits = 0;
    for (int i = 0; i < 3000; ++i) {
        RtRay ray = {};
        ray.origin = { 8 * unit(random), 8 * unit(random), 10 + 8 * unit(random) };
        ray.dir = { unit(random), unit(random), unit(random) };
        ray.maxdist = 20;
        RtLightBounds bounds;
        const bool hit = methods(node).LightBounds(node, &bounds, &ray);
        hits += hit;
        for (float t = 0.05f; t < 20; t += 0.37f) {
            RtShaderGlobals sg = surface(ray.origin + ray.dir * t);
            sg.stage = RV_STAGE_VOLUME;
            sg.skip_shadows = 1;
            const bool lit = !samplesAt(sg).empty();
            const bool near_edge =
                hit && std::min(fabsf(t - bounds.t0), fabsf(t - bounds.t1)) < 1e-3f;
            if (!near_edge) {
                EXPECT_EQ(lit, hit && t > bounds.t0 && t < bounds.t1) << i << " " << t;
            }
        }
        states.clear();
        endSample();
    }
    EXPECT_GT(hits, 200);
}
