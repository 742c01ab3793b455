// Tests of core/src/lights/light_shadow.cpp: light filters and the shadow of a sample.
#include "light_tools.h"

using namespace light_tools;

class LightShadow : public Lit {
protected:
    // A floor at the origin, lit from above.
    void SetUp() override
    {
        Lit::SetUp();
        floor = disc("floor", 0);
    }
    RtShaderGlobals onFloor()
    {
        RtShaderGlobals sg = surface();
        sg.object = floor;
        return sg;
    }
    Sample only()
    {
        RtShaderGlobals sg = onFloor();
        const auto all = samplesAt(sg);
        EXPECT_EQ(all.size(), 1u);
        return all.empty() ? Sample{} : all[0];
    }
    static uint64_t shadowRays() { return rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].rays; }

    RtNode* floor = nullptr;
};

// ---- Arithmetic ----

TEST_F(LightShadow, combinations_agree_with_the_golden_vectors)
{
    const auto rgb = [](const nlohmann::json& v) {
        const auto c = goldenFloats(v);
        return RtRGB{ c[0], c[1], c[2] };
    };
    for (const auto& v : goldenVectors("lights", "RvLightShadow_combine")) {
        const auto& in = v["in"];
        RtLightData light = {};
        light.shadow_color = rgb(in["shadow_color"]);
        light.shadow_colored = !rv::isNegligible(light.shadow_color);
        const RtRGB shadow =
            rv::combinedShadow(rgb(in["S"]), rgb(in["O"]), goldenFloat(in["shadow_density"]));
        const RtRGB radiance = rv::shadowedLight(light, rgb(in["light_unoccluded"]), shadow);
        expectGoldenNumbers(v, "light_shadow", { shadow.r, shadow.g, shadow.b });
        expectGoldenNumbers(v, "light_radiance", { radiance.r, radiance.g, radiance.b });
    }
}

// ---- Blockers ----

TEST_F(LightShadow, an_opaque_sphere_blocks_all_light)
{
    pointLight({ 0, 0, 10 });
    sphere("ball", { 0, 0, 5 }, 1);
    prepare();
    RtShaderGlobals sg = onFloor();
    EXPECT_TRUE(samplesAt(sg).empty());
    EXPECT_EQ(shadowRays(), 1u);
    sg = onFloor();
    sg.point = { 3, 0, 0 };
    const auto beside = samplesAt(sg);
    ASSERT_EQ(beside.size(), 1u);
    EXPECT_EQ(text(beside[0].radiance), "1 1 1");
    EXPECT_EQ(text(beside[0].shadow), "0 0 0");
}

TEST_F(LightShadow, what_lies_behind_the_light_casts_no_shadow)
{
    pointLight({ 0, 0, 10 });
    disc("behind", 11);
    disc("below", -1);
    prepare();
    EXPECT_EQ(text(only().radiance), "1 1 1");
}

TEST_F(LightShadow, coloured_glass_colours_the_light)
{
    pointLight({ 0, 0, 10 });
    glass("pane", 5, { 0.25f, 0.5f, 0.75f });
    prepare();
    const Sample s = only();
    EXPECT_EQ(text(s.unoccluded), "1 1 1");
    EXPECT_EQ(text(s.shadow), "0.25 0.5 0.75");
    EXPECT_EQ(text(s.radiance), "0.75 0.5 0.25");
}

TEST_F(LightShadow, panes_of_glass_multiply)
{
    pointLight({ 0, 0, 10 });
    glass("a", 5, { 0.5f, 0.5f, 0 });
    glass("b", 6, { 0.5f, 0, 0 });
    prepare();
    EXPECT_EQ(text(only().radiance), "0.25 0.5 1");
}

TEST_F(LightShadow, shadow_density_weakens_the_shadow)
{
    RtNode* const node = pointLight({ 0, 0, 10 });
    RvNodeSetFlt(node, "shadow_density", 0.25f);
    disc("blocker", 5);
    prepare();
    EXPECT_EQ(text(only().shadow), "0.25 0.25 0.25");
    EXPECT_EQ(text(only().radiance), "0.75 0.75 0.75");
}

TEST_F(LightShadow, shadowed_light_turns_into_the_shadow_colour)
{
    RtNode* const node = pointLight({ 0, 0, 10 });
    RvNodeSetRGB(node, "color", 2, 2, 2);
    RvNodeSetRGB(node, "shadow_color", 0.5f, 0.25f, 0);
    disc("blocker", 5);
    prepare();
    EXPECT_EQ(text(only().radiance), "1 0.5 0");
}

TEST_F(LightShadow, shadows_reach_from_distant_lights)
{
    distantLight({ 0, 0, -1 });
    glass("pane", 1000, { 0.5f, 0.5f, 0.5f });
    prepare();
    EXPECT_EQ(text(only().radiance), "0.5 0.5 0.5");
}

// ---- Who casts and who receives ----

TEST_F(LightShadow, shadows_are_traced_for_lights_that_cast_and_objects_that_receive_them)
{
    const struct {
        const char* name;
        bool cast, receive, self, ignore;
        bool shadowed;
    } rows[] = {
        { "all on", true, true, true, false, true },
        { "light casts none", false, true, true, false, false },
        { "receives no others", true, false, true, false, true },
        { "receives others only", true, true, false, false, true },
        { "receives none", true, false, false, false, false },
        { "ignored", true, true, true, true, false },
    };
    for (const auto& row : rows) {
        startAnew();
        RvNodeSetBool(pointLight({ 0, 0, 10 }), "cast_shadows", row.cast);
        RvNodeSetBool(floor, "receive_shadows", row.receive);
        RvNodeSetBool(floor, "self_shadows", row.self);
        set("ignore_shadows", row.ignore);
        disc("blocker", 5);
        prepare();
        RtShaderGlobals sg = onFloor();
        EXPECT_EQ(samplesAt(sg).empty(), row.shadowed) << row.name;
    }
}

TEST_F(LightShadow, without_a_surface_the_shadows_are_those_of_volumes)
{
    for (bool volumetric : { true, false })
        for (RtShadingStage stage : { RV_STAGE_VOLUME, RV_STAGE_SURFACE }) { // no object
            startAnew();
            RvNodeSetBool(pointLight({ 0, 0, 10 }), "cast_volumetric_shadows", volumetric);
            disc("blocker", 5);
            prepare();
            RtShaderGlobals sg = surface({ 0, 0, 1 });
            sg.stage = stage;
            EXPECT_EQ(samplesAt(sg).empty(), volumetric) << int(stage);
        }
}

TEST_F(LightShadow, skip_shadows_traces_none)
{
    pointLight({ 0, 0, 10 });
    disc("blocker", 5);
    prepare();
    RtShaderGlobals sg = onFloor();
    sg.skip_shadows = 1;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    EXPECT_EQ(shadowRays(), 0u);
}

TEST_F(LightShadow, shadow_groups_find_the_light)
{
    RtNode* const a = pointLight({ 0, 0, 10 }, 0, "a");
    pointLight({ 0, 0, 10 }, 0, "b");
    RtNode* const blocker = disc("blocker", 5);
    RvNodeSetBool(blocker, "use_shadow_group", true);
    RtArray* const group = RvArrayAllocate(1, 1, RV_TYPE_NODE);
    RvArraySetPtr(group, 0, a);
    RvNodeSetArray(blocker, "shadow_group", group);
    prepare();
    RtShaderGlobals sg = onFloor();
    EXPECT_EQ(namesOf(samplesAt(sg)), Names{ "b" });
}

TEST_F(LightShadow, trace_sets_of_the_context_hold_for_shadows)
{
    pointLight({ 0, 0, 10 });
    setTraceSets(disc("blocker", 5), { "left_out" });
    prepare();
    RtShaderGlobals sg = onFloor();
    RvShaderGlobalsSetTraceSet(&sg, "left_out", false);
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    RvShaderGlobalsSetTraceSet(&sg, "left_out", true);
    EXPECT_TRUE(samplesAt(sg).empty());
}

TEST_F(LightShadow, a_point_that_is_shaded_for_its_shadow_traces_none)
{
    pointLight({ 0, 0, 10 });
    disc("blocker", 5);
    prepare();
    RtShaderGlobals sg = onFloor();
    sg.ray_type = RV_RAY_SHADOW;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    EXPECT_EQ(shadowRays(), 0u);
}

// ---- The ray ----

TEST_F(LightShadow, shadow_bias_ends_the_ray_in_front_of_the_light)
{
    pointLight({ 0, 0, 10 });
    disc("near the light", 9.9f);
    prepare();
    RtShaderGlobals sg = onFloor();
    EXPECT_TRUE(samplesAt(sg).empty());
    set("shadow_bias", 0.2f);
    sg = onFloor();
    EXPECT_EQ(samplesAt(sg).size(), 1u);
    set("shadow_bias", 20.0f); // nothing is left of the ray
    sg = onFloor();
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(LightShadow, ray_bias_skips_what_is_close_to_the_surface)
{
    pointLight({ 0, 0, 10 });
    disc("close", 0.05f);
    RvNodeSetFlt(floor, "ray_bias", 0.1f);
    prepare();
    EXPECT_EQ(text(only().radiance), "1 1 1");
}

TEST_F(LightShadow, shaders_of_the_blockers_see_the_ray)
{
    pointLight({ 3, 0, 4 });
    glass("pane", 2, { 0.5f, 0.5f, 0.5f });
    RvNodeSetFlt(RvNodeLookUpByName("pane"), "radius", 10);
    prepare();
    RtShaderGlobals sg = onFloor();
    sg.pixel_x = 7;
    sg.pixel_y = 8;
    sg.sample_index = 3;
    sg.time = 0.5f;
    sg.ray_depth = 2;
    sg.diffuse_depth = 1;
    sg.glossy_depth = 1;
    RvShaderGlobalsSetTraceSet(&sg, "none", false);
    samplesAt(sg);
    ASSERT_EQ(shading().contexts.size(), 1u);
    const RtShaderGlobals& seen = shading().contexts[0];
    EXPECT_EQ(seen.ray_type, RV_RAY_SHADOW);
    EXPECT_EQ(seen.pixel_x, 7);
    EXPECT_EQ(seen.pixel_y, 8);
    EXPECT_EQ(seen.sample_index, 3);
    EXPECT_EQ(seen.time, 0.5f);
    EXPECT_EQ(seen.ray_depth, 2);
    EXPECT_EQ(seen.diffuse_depth, 1);
    EXPECT_EQ(seen.glossy_depth, 1);
    EXPECT_STREQ(seen.traceset, "none");
    EXPECT_EQ(text(seen.ray_dir), text(RtVector{ 0.6f, 0, 0.8f }));
    EXPECT_NEAR(seen.ray_length, 2.5, 1e-5);
}

// ---- Shadows that cannot matter ----

TEST_F(LightShadow, light_like_its_shadow_needs_no_ray)
{
    const struct {
        RtRGB color, shadow;
        float threshold;
        uint64_t rays;
    } rows[] = {
        { { 1, 1, 1 }, { 0, 0, 0 }, 0.001f, 1 },
        { { 0.0009f, 0.0009f, 0.0009f }, { 0, 0, 0 }, 0.001f, 0 },
        { { 0, 0, 0.0011f }, { 0, 0, 0 }, 0.001f, 1 },
        { { 0.5f, 0.5f, 0.5f }, { 0.5f, 0.5f, 0.5f }, 0.001f, 0 },
        { { 0.5f, 0.5f, 0.5f }, { 0.5f, 0.6f, 0.5f }, 0.001f, 1 },
        { { 0.5f, 0.5f, 0.5f }, { 0.5f, 0.6f, 0.5f }, 0.2f, 0 },
    };
    for (const auto& row : rows) {
        startAnew();
        RtNode* const node = pointLight({ 0, 0, 10 });
        RvNodeSetRGB(node, "color", row.color.r, row.color.g, row.color.b);
        RvNodeSetRGB(node, "shadow_color", row.shadow.r, row.shadow.g, row.shadow.b);
        set("low_light_threshold", row.threshold);
        prepare();
        RtShaderGlobals sg = onFloor();
        samplesAt(sg);
        EXPECT_EQ(shadowRays(), row.rays) << text(row.color) << " " << text(row.shadow);
    }
}

// ---- Light filters ----

namespace {

struct FilterTest {
    RtRGB shadow = { 0, 0, 0 };
    RtRGB factor = { 1, 1, 1 };
    std::vector<RtShaderGlobals> contexts;
    Names names;
};
FilterTest filter_test;

} // namespace

static void installFilter()
{
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = [](RtNode* node, RtShaderGlobals* sg) {
        filter_test.contexts.push_back(*sg);
        filter_test.names.push_back(RvNodeGetName(node));
        sg->light_shadow = filter_test.shadow;
        sg->light_unoccluded.r *= filter_test.factor.r;
        sg->light_unoccluded.g *= filter_test.factor.g;
        sg->light_unoccluded.b *= filter_test.factor.b;
        sg->out.FLT = 99;
    } };
    static const RtNodeMethods all = { &common, &shader };
    filter_test = {};
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_FLOAT, "filter", "", &all, RV_VERSION);
}

TEST_F(LightShadow, filters_run_in_order_and_nulls_are_skipped)
{
    installFilter();
    RtNode* const node = pointLight({ 0, 0, 10 });
    setFilters(node, { named("filter", "a"), nullptr, named("filter", "b") });
    filter_test.factor = { 0.5f, 1, 2 };
    prepare();
    takeProblems();
    EXPECT_EQ(text(only().radiance), "0.25 1 4");
    EXPECT_EQ(filter_test.names, (Names{ "a", "b" }));
    EXPECT_EQ(takeProblem(), "");
    const RtShaderGlobals& seen = filter_test.contexts[0];
    EXPECT_EQ(seen.light, node);
    EXPECT_EQ(text(seen.light_dir), "0 0 1");
    EXPECT_EQ(seen.light_dist, 10);
    EXPECT_EQ(text(seen.light_unoccluded), "1 1 1");
    EXPECT_EQ(text(seen.light_shadow), "0 0 0");
}

TEST_F(LightShadow, filters_leave_the_result_of_the_shader_alone)
{
    installFilter();
    setFilters(pointLight({ 0, 0, 10 }), { named("filter", "a") });
    prepare();
    RtShaderGlobals sg = onFloor();
    sg.out.RGBA = { 1, 2, 3, 4 };
    samplesAt(sg);
    EXPECT_EQ(text(sg.out.RGB), "1 2 3");
}

TEST_F(LightShadow, filters_are_counted_as_light_filters)
{
    installFilter();
    RtNode* const node = pointLight({ 0, 0, 2 }, 1);
    RvNodeSetInt(node, "samples", 2);
    RtNode* const filter = named("filter", "a");
    RvNodeLink(named("flat", "before"), "@before", filter);
    setFilters(node, { filter });
    prepare();
    RtShaderGlobals sg = onFloor();
    samplesAt(sg);
    const auto& calls = rv::the_frame->stats[rv::stats_slot]->shader_calls[RV_PASS_PIXELS];
    EXPECT_EQ(calls[RV_CALL_LIGHT_FILTER], 8u); // those in front of them, too
    EXPECT_EQ(calls[RV_CALL_BEFORE], 4u);
    EXPECT_EQ(calls[RV_CALL_PRIMARY], 0u);
}

TEST_F(LightShadow, shadows_of_filters_combine_with_those_of_objects)
{
    installFilter();
    filter_test.shadow = { 0.5f, 0, 1 };
    setFilters(pointLight({ 0, 0, 10 }), { named("filter", "a") });
    glass("pane", 5, { 0.5f, 0.5f, 0.5f });
    prepare();
    EXPECT_EQ(text(only().shadow), "0.75 0.5 1");
    EXPECT_EQ(text(only().radiance), "0.25 0.5 0");
}

TEST_F(LightShadow, light_that_filters_stop_entirely_needs_no_ray)
{
    installFilter();
    filter_test.shadow = { 1, 1, 1 };
    setFilters(pointLight({ 0, 0, 10 }), { named("filter", "a") });
    prepare();
    RtShaderGlobals sg = onFloor();
    EXPECT_TRUE(samplesAt(sg).empty());
    EXPECT_EQ(shadowRays(), 0u);
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "0 0 0"); // reused
    sg = onFloor();
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "1 1 1");
}

TEST_F(LightShadow, filters_that_were_replaced_since_the_update_are_not_run)
{
    installFilter();
    RtNode* const node = pointLight({ 0, 0, 10 });
    setFilters(node, { named("filter", "old") });
    prepare();
    setFilters(node, { named("filter", "new") });
    only();
    EXPECT_EQ(filter_test.names, Names{ "new" });
}
