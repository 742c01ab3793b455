// Tests of core/src/lights/point.cpp and cone_light.cpp: the "point_light" node.
#include "lights/cone_light.h"

#include "light_tools.h"

using namespace light_tools;

class PointLights : public Lit {
protected:
    // The light and point of a golden vector.
    RtShaderGlobals setUp(const nlohmann::json& in)
    {
        const auto p = goldenFloats(in["position"]), at = goldenFloats(in["point"]),
                   n = goldenFloats(in["facing_normal"]);
        node = pointLight({ p[0], p[1], p[2] }, goldenFloat(in["radius"]));
        RvNodeSetBool(node, "normalize", in["normalize"].get<bool>());
        RvNodeSetFlt(node, "intensity", goldenFloat(in["intensity"]));
        prepare();
        RtShaderGlobals sg = surface({ at[0], at[1], at[2] }, { n[0], n[1], n[2] });
        sg.front_hemisphere_only = in["front_hemisphere_only"].get<bool>();
        return sg;
    }
    static const rv::ConeLightPoint& pointOf(const RtShaderGlobals& sg)
    {
        return *static_cast<rv::ConeLightPoint*>(sg.state->lights.samples[0].point);
    }
    static const RtLightMethods& methods(const RtNode* light)
    {
        return *static_cast<const RtLightMethods*>(light->entry->kind_methods);
    }

    RtNode* node = nullptr;
};

// ---- Geometry ----

TEST_F(PointLights, preparation_agrees_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "point_light_prepare")) {
        RtShaderGlobals sg = setUp(v["in"]);
        const auto all = samplesAt(sg);
        expectGolden(v, "culled", all.empty());
        if (!all.empty()) {
            const rv::ConeLightPoint& point = pointOf(sg);
            const RtVector& axis = point.cone.axis;
            expectGoldenNumbers(v, "light_dist", { all[0].dist });
            expectGoldenNumbers(v, "axis", { axis.x, axis.y, axis.z });
            expectGoldenNumbers(v, "intensity", { point.intensity });
            if (v["out"].contains("one_minus_cos"))
                expectGoldenNumbers(v, "one_minus_cos", { point.cone.one_minus_cos });
        }
        startAnew();
    }
}

TEST_F(PointLights, directions_and_densities_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "point_light_sample")) {
        RtShaderGlobals sg = setUp(v["in"]["setup"]);
        ASSERT_FALSE(samplesAt(sg).empty()) << goldenId(v);
        sg.state->lights.point = sg.state->lights.samples[0].point;
        sg.state->lights.point->sample = { goldenFloat(v["in"]["u"]), goldenFloat(v["in"]["v"]) };
        methods(node).LightSample(node, &sg);
        expectGoldenNumbers(v, "light_dir", { sg.light_dir.x, sg.light_dir.y, sg.light_dir.z });
        expectGoldenNumbers(v, "pdf", { sg.state->lights.mis.pdf });
        startAnew();
    }
}

TEST_F(PointLights, surfaces_that_face_away_get_no_samples)
{
    pointLight({ 0, 0, 5 });
    prepare();
    EXPECT_EQ(samples({ 0, 0, 0 }, { 0, 0, 1 }).size(), 1u);
    EXPECT_EQ(samples({ 0, 0, 0 }, { 0, 0, -1 }).size(), 0u);
    EXPECT_EQ(samples({ 0, 0, 0 }, { 1, 0, 0 }).size(), 1u); // just on the horizon
    RtShaderGlobals sg = surface({ 0, 0, 0 }, { 0, 0, -1 });
    sg.front_hemisphere_only = 0;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(PointLights, a_sphere_is_seen_until_it_has_set)
{
    pointLight({ 5, 0, 0 }, 1);
    prepare();
    EXPECT_EQ(samples({ 0, 0, 0.9f }).size(), 1u);
    EXPECT_EQ(samples({ 0, 0, 1.1f }).size(), 0u);
}

TEST_F(PointLights, a_point_at_the_light_gets_nothing)
{
    pointLight({ 1, 2, 3 }, 0, "a");
    pointLight({ 1, 2, 3 }, 2, "b");
    prepare();
    EXPECT_TRUE(samples({ 1, 2, 3 }).empty());
    EXPECT_EQ(namesOf(samples({ 1, 2, 2 })), (Names{ "a", "b" })); // inside of the sphere
}

TEST_F(PointLights, the_position_moves_with_its_keys_and_the_matrix)
{
    RtMatrix matrices[2];
    const RtVector up = { 0, 0, 10 }, scale = { 2, 2, 2 };
    RvM4Translation(&matrices[0], &up);
    RvM4Scaling(&matrices[1], &scale);
    node = light("point_light");
    RvNodeSetArray(
        node, "position",
        RvArray(1, 3, RV_TYPE_POINT, RtPoint{ 0, 0, 1 }, RtPoint{ 0, 0, 2 }, RtPoint{ 0, 0, 3 }));
    RtArray* const array = RvArrayAllocate(1, 2, RV_TYPE_MATRIX);
    RvArraySetMtx(array, 0, &matrices[0]);
    RvArraySetMtx(array, 1, &matrices[1]);
    RvNodeSetArray(node, "matrix", array);
    RvNodeSetArray(node, "time_samples", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 3.0));
    prepare();
    // Keys: 1 + 10, 2 * 2, 3 * 2.
    const std::pair<float, float> heights[] = { { 0, 11 },   { 1, 11 }, { 1.5f, 7.5f }, { 2, 4 },
                                                { 2.5f, 5 }, { 3, 6 },  { 9, 6 } };
    for (const auto& [time, height] : heights) {
        RtShaderGlobals sg = surface();
        sg.time = time;
        const auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_NEAR(all[0].dist, height, 1e-4) << time;
    }
}

TEST_F(PointLights, an_array_without_positions_is_reported_by_the_array)
{
    node = light("point_light");
    RvNodeSetBool(options(), "abort_on_error", false);
    RvNodeSetArray(node, "position", RvArray(0, 1, RV_TYPE_POINT));
    takeProblems();
    updateLight(node);
    EXPECT_NE(takeProblem().find("out-of-range error"), std::string::npos);
}

// ---- Light ----

TEST_F(PointLights, light_from_a_point_does_not_fade_without_a_decay_filter)
{
    pointLight({ 0, 0, 5 });
    RvNodeSetRGB(RvNodeLookUpByName("light"), "color", 0.5f, 1, 2);
    RvNodeSetFlt(RvNodeLookUpByName("light"), "intensity", 3);
    prepare();
    for (float z : { 0.0f, 4.0f, -100.0f }) {
        const auto all = samples({ 0, 0, z });
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(text(all[0].radiance), "1.5 3 6");
        EXPECT_EQ(all[0].dist, 5 - z);
        EXPECT_EQ(text(all[0].dir), "0 0 1");
    }
    EXPECT_NEAR(irradiance({ 3, 0, 1 }), 1.5 * 0.8, 1e-6);
}

TEST_F(PointLights, quadratic_decay_gives_the_inverse_square_law)
{
    node = pointLight({ 0, 0, 5 });
    RvNodeSetFlt(node, "intensity", 8);
    RtNode* const decay = named("light_decay", "decay");
    RvNodeSetStr(decay, "decay_type", "quadratic");
    setFilters(node, { decay });
    prepare();
    for (float x : { 0.0f, 1.0f, 7.0f }) {
        const double d_sq = 25 + double(x) * x;
        EXPECT_NEAR(irradiance({ x, 0, 0 }), 8 / d_sq * 5 / sqrt(d_sq), 1e-6) << x;
    }
}

TEST_F(PointLights, a_point_has_one_sample_and_no_use_for_those_of_a_brdf)
{
    node = pointLight({ 0, 0, 5 });
    RvNodeSetInt(node, "samples", 4);
    prepare();
    RtShaderGlobals sg = surface();
    const auto all = samplesAt(sg);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].weight, 1);
    EXPECT_FALSE(sg.state->lights.mis.active);
}

TEST_F(PointLights, bounce_factor_scales_what_diffuse_rays_see)
{
    for (float radius : { 0.0f, 1.0f }) {
        node = pointLight({ 0, 0, 5 }, radius);
        RvNodeSetFlt(node, "bounce_factor", 0.25f);
        prepare();
        for (int depth : { 0, 1, 2 }) {
            RtShaderGlobals sg = surface();
            sg.diffuse_depth = uint8_t(depth);
            const auto all = samplesAt(sg);
            ASSERT_EQ(all.size(), 1u);
            EXPECT_EQ(all[0].radiance.g, depth ? 0.25f : 1) << radius;
        }
        startAnew();
    }
}

// Irradiance of a sphere of radiance 1 above the horizon (no part of it is cut off): pi times the
// square of the sine of its radius, times the cosine of its centre.
static double sphereIrradiance(double radius, double distance, double cosine)
{
    return M_PI * radius * radius / (distance * distance) * cosine;
}

TEST_F(PointLights, spheres_light_as_the_closed_form_says)
{
    const struct {
        RtPoint center;
        float radius;
        bool normalize;
    } rows[] = {
        { { 0, 0, 5 }, 1, false },   { { 3, 0, 4 }, 2, false },    { { 3, 0, 4 }, 2, true },
        { { 0, 4, 3 }, 0.1f, true }, { { 0, 0, 2 }, 1.9f, false },
    };
    for (const auto& row : rows) {
        node = pointLight(row.center, row.radius);
        RvNodeSetBool(node, "normalize", row.normalize);
        RvNodeSetBool(node, "mis", false);
        RvNodeSetInt(node, "samples", 250);
        prepare();
        const double d = sqrt(double(rv::dot(row.center, row.center)));
        double want = sphereIrradiance(row.radius, d, row.center.z / d);
        if (row.normalize) // the light is spread over the angle that the sphere covers
            want /= 2 * M_PI * (1 - sqrt(1 - row.radius * row.radius / (d * d)));
        double sum = 0;
        constexpr int rounds = 16; // 10^6 samples
        for (int i = 0; i < rounds; ++i) {
            RtShaderGlobals sg = surface();
            sg.ray_depth = 1; // a rotation for each pixel
            sg.pixel_x = i;
            for (const Sample& s : samplesAt(sg))
                sum += double(s.radiance.r) * s.weight * std::max(0.0f, s.dir.z);
            endSample();
        }
        EXPECT_NEAR(sum / rounds, want, want * 1e-3) << row.radius;
        startAnew();
    }
}

// ---- Multiple importance sampling ----

TEST_F(PointLights, only_spheres_that_look_large_enough_are_combined_with_samples_of_a_brdf)
{
    const struct {
        const char* name;
        float radius;
        bool mis, active;
    } rows[] = {
        { "sphere", 1, true, true },
        { "mis off", 1, false, false },
        { "point", 0, true, false },
        { "0.000126 steradians", 0.0317f, true, true },
        { "0.000079 steradians", 0.025f, true, false },
    };
    for (const auto& row : rows) {
        node = pointLight({ 0, 0, 5 }, row.radius);
        RvNodeSetBool(node, "mis", row.mis);
        prepare();
        RtShaderGlobals sg = surface();
        RvLightsPrepare(&sg);
        ASSERT_TRUE(RvLightsGetSample(&sg)) << row.name;
        EXPECT_EQ(sg.state->lights.mis.active, row.active) << row.name;
        startAnew();
    }
}

TEST_F(PointLights, the_radiance_of_a_sphere_is_that_of_its_surface)
{
    for (bool normalize : { true, false }) {
        node = pointLight({ 0, 0, 5 }, 1);
        RvNodeSetFlt(node, "intensity", 3);
        RvNodeSetInt(node, "samples", 3);
        RvNodeSetBool(node, "normalize", normalize);
        prepare();
        RtShaderGlobals sg = surface();
        RvLightsPrepare(&sg);
        const double extent = 2 * M_PI * (1 - sqrt(1 - 1 / 25.0));
        const double radiance = normalize ? 3 / extent : 3;
        for (uint32_t i = 0; i < 9; ++i) {
            ASSERT_TRUE(RvLightsGetSample(&sg));
            const RtLightMIS& mis = sg.state->lights.mis;
            EXPECT_EQ(mis.sample_index, i);
            EXPECT_NEAR(mis.radiance.g, radiance, radiance * 1e-5);
            EXPECT_NEAR(mis.pdf, 9 / extent, 9 / extent * 1e-5);
        }
        startAnew();
    }
}

TEST_F(PointLights, samples_without_light_are_kept_where_a_brdf_may_find_some)
{
    for (bool mis : { true, false }) {
        node = pointLight({ 0, 0, 5 }, 1);
        RvNodeSetBool(node, "mis", mis);
        disc("blocker", 2);
        RtNode* const floor = disc("floor", 0);
        prepare();
        RtShaderGlobals sg = surface();
        sg.object = floor;
        EXPECT_EQ(samplesAt(sg).size(), mis ? 1u : 0u);
        startAnew();
    }
}

TEST_F(PointLights, a_ray_of_a_brdf_hits_the_sphere_or_not)
{
    const struct {
        const char* name;
        double degrees; // from the centre of the light
        bool hit;
    } rows[] = { { "centre", 0, true },
                 { "just inside", 11.4, true },
                 { "just outside", 11.7, false },
                 { "behind", 180, false } };
    for (bool normalize : { true, false })
        for (const auto& row : rows) {
            node = pointLight({ 0, 0, 5 }, 1); // 11.537 degrees
            RvNodeSetBool(node, "normalize", normalize);
            RvNodeSetFlt(node, "intensity", 2);
            RvNodeSetFlt(node, "bounce_factor", 0.5f);
            prepare();
            RtShaderGlobals sg = surface();
            sg.diffuse_depth = 1;
            RvLightsPrepare(&sg);
            ASSERT_TRUE(RvLightsGetSample(&sg));
            const double angle = row.degrees * M_PI / 180;
            RtRay ray = {};
            ray.dir = { float(sin(angle)), 0, float(cos(angle)) };
            ASSERT_EQ(methods(node).LightIntersect(node, &sg, &ray), row.hit) << row.name;
            if (row.hit) {
                const double extent = 2 * M_PI * (1 - sqrt(1 - 1 / 25.0));
                EXPECT_NEAR(sg.light_dist, 5 / cos(angle), 1e-4) << row.name;
                EXPECT_EQ(text(sg.light_dir), text(ray.dir));
                EXPECT_NEAR(sg.state->lights.mis.radiance.r, normalize ? 1 / extent : 1, 1e-4);
                EXPECT_NEAR(sg.state->lights.mis.pdf, 1 / extent, 1e-3);
            }
            startAnew();
        }
}

// ---- Volumes ----

TEST_F(PointLights, in_volumes_the_light_is_aimed_at_for_each_sample)
{
    for (float radius : { 0.0f, 1.0f }) {
        node = pointLight({ 0, 0, 5 }, radius);
        RvNodeSetInt(node, "samples", 3);
        prepare();
        RtShaderGlobals sg = surface({ 0, 0, 1 }, { 0, 0, -1 }); // facing does not matter
        sg.stage = RV_STAGE_VOLUME;
        auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].dist, 4);
        EXPECT_EQ(all[0].weight, 1);
        sg.point = { 0, 0, 7 };
        all = samplesAt(sg);
        ASSERT_EQ(all.size(), 1u);
        EXPECT_EQ(all[0].dist, 2);
        EXPECT_LT(all[0].dir.z, -0.8f);
        startAnew();
    }
}

TEST_F(PointLights, bounds_agree_with_the_golden_vectors)
{
    const auto vector = [](const nlohmann::json& v) {
        const auto c = goldenFloats(v);
        return RtVector{ c[0], c[1], c[2] };
    };
    node = pointLight({ 0, 0, 0 });
    prepare();
    for (const auto& v : goldenVectors("lights", "point_light_bounds")) {
        const auto& in = v["in"];
        const RtPoint center = vector(in["centre"]);
        RvNodeSetArray(node, "position", RvArray(1, 1, RV_TYPE_POINT, center));
        updateLight(node);
        dataOf(node).cutoff_sq = goldenFloat(in["cutoff_sq"]);
        RtRay ray = {};
        ray.origin = vector(in["O"]);
        ray.dir = vector(in["D"]);
        ray.maxdist = goldenNumber(in["maxdist"]);
        RtLightBounds bounds;
        const bool hit = methods(node).LightBounds(node, &bounds, &ray);
        expectGolden(v, "hit", hit);
        if (hit) {
            expectGoldenNumbers(v, "t0", { bounds.t0 });
            expectGoldenNumbers(v, "t1", { bounds.t1 });
            EXPECT_EQ(text(bounds.center), text(center));
            EXPECT_EQ(bounds.extent, sqrtf(dataOf(node).cutoff_sq));
        }
    }
}

TEST_F(PointLights, lights_that_leave_volumes_alone_have_no_bounds)
{
    RtRay ray = {};
    ray.dir = { 0, 0, 1 };
    ray.maxdist = 1e30;
    RtLightBounds bounds;
    node = pointLight({ 0, 0, 0 });
    prepare();
    EXPECT_TRUE(methods(node).LightBounds(node, &bounds, &ray));
    RvNodeSetBool(node, "affect_volumetrics", false);
    updateLight(node);
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
    RvNodeSetBool(node, "affect_volumetrics", true);
    RvNodeSetFlt(node, "intensity", 0);
    updateLight(node);
    EXPECT_FALSE(methods(node).LightBounds(node, &bounds, &ray));
}

TEST_F(PointLights, point_lights_give_no_ambient_light)
{
    node = pointLight({ 0, 0, 1 });
    prepare();
    RtShaderGlobals sg = surface();
    EXPECT_EQ(text(methods(node).LightAmbient(node, &sg)), "0 0 0");
}
