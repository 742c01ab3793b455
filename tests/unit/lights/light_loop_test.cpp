// Tests of core/src/lights/light_loop.cpp: the samples of all lights at a point.
#include "light_tools.h"
#include "sampler.h"

using namespace light_tools;

using LightLoop = Lit;

static RtLightingCount counted(RtLightingRow row)
{
    return rv::the_frame->stats[rv::stats_slot]->lighting[row];
}

// ---- Which lights, and how often ----

TEST_F(LightLoop, lights_are_considered_like_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_considered")) {
        const auto& in = v["in"];
        RtNode* const node = pointLight({ 0, 0, 1 });
        RvNodeSetInt(node, "bounces", in["bounces"].get<int>());
        RvNodeSetFlt(node, "intensity", in["enabled"].get<bool>() ? 1.0f : 0);
        set("GI_direct_lighting", in["GI_direct_lighting"].get<bool>());
        prepare();
        RtShaderGlobals sg = surface();
        sg.diffuse_depth = in["diffuse_depth"].get<uint8_t>();
        expectGolden(v, "considered", !samplesAt(sg).empty());
        startAnew();
    }
}

TEST_F(LightLoop, bounces_and_direct_lighting_limit_the_diffuse_depth)
{
    const struct {
        int bounces;
        bool direct;
        std::vector<int> lit_depths; // of 0 to 3
    } rows[] = {
        { 0, true, { 0 } },          { 2, true, { 0, 1, 2 } }, { 999, true, { 0, 1, 2, 3 } },
        { 999, false, { 1, 2, 3 } }, { 0, false, {} },
    };
    for (const auto& row : rows) {
        RtNode* const node = pointLight({ 0, 0, 1 });
        RvNodeSetInt(node, "bounces", row.bounces);
        set("GI_direct_lighting", row.direct);
        prepare();
        std::vector<int> lit;
        for (int depth = 0; depth < 4; ++depth) {
            RtShaderGlobals sg = surface();
            sg.diffuse_depth = uint8_t(depth);
            if (!samplesAt(sg).empty())
                lit.push_back(depth);
        }
        EXPECT_EQ(lit, row.lit_depths) << row.bounces << " " << row.direct;
        startAnew();
    }
}

TEST_F(LightLoop, counts_and_weights_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_sample_count")) {
        const auto& in = v["in"];
        ASSERT_EQ(in["stage"], "surface");
        RtNode* const node = pointLight({ 0, 0, 2 }, in["sampled"].get<bool>() ? 1.0f : 0);
        RvNodeSetInt(node, "samples", in["samples"].get<int>());
        prepare();
        RtShaderGlobals sg = surface();
        sg.state->loop_samples = in["nested"].get<bool>() ? 4 : 0;
        const auto all = samplesAt(sg);
        ASSERT_FALSE(all.empty());
        expectGolden(v, "count", all.size());
        EXPECT_EQ(all[0].count, int(all.size()));
        expectGoldenNumbers(v, "weight", { all[0].weight });
        startAnew();
    }
}

TEST_F(LightLoop, all_stages_take_their_number_of_samples)
{
    RtNode* const node = pointLight({ 0, 0, 2 }, 1);
    RvNodeSetInt(node, "samples", 3);
    RvNodeSetInt(node, "sss_samples", 2);
    prepare();
    const struct {
        const char* name;
        RtShadingStage stage;
        RtPass pass;
        bool nested;
        size_t count;
    } rows[] = {
        { "surface", RV_STAGE_SURFACE, RV_PASS_PIXELS, false, 9 },
        { "nested", RV_STAGE_SURFACE, RV_PASS_PIXELS, true, 1 },
        { "point cloud", RV_STAGE_SURFACE, RV_PASS_SSS, false, 4 },
        { "nested point cloud", RV_STAGE_SURFACE, RV_PASS_SSS, true, 1 },
        { "hair", RV_STAGE_SURFACE, RV_PASS_HAIR, false, 9 },
        { "volume", RV_STAGE_VOLUME, RV_PASS_PIXELS, false, 1 },
        { "displacement", RV_STAGE_DISPLACEMENT, RV_PASS_PIXELS, false, 9 },
        { "nested displacement", RV_STAGE_DISPLACEMENT, RV_PASS_PIXELS, true, 1 },
    };
    for (const auto& row : rows) {
        RtShaderGlobals sg = surface();
        sg.stage = row.stage;
        sg.state->pass = row.pass;
        sg.state->loop_samples = row.nested ? 5 : 0;
        const auto all = samplesAt(sg);
        ASSERT_EQ(all.size(), row.count) << row.name;
        EXPECT_EQ(all[0].weight, 1.0f / float(row.count)) << row.name;
    }
}

TEST_F(LightLoop, without_sss_samples_the_point_cloud_pass_takes_the_ordinary_number)
{
    RtNode* const node = pointLight({ 0, 0, 2 }, 1);
    RvNodeSetInt(node, "samples", 3);
    prepare();
    RtShaderGlobals sg = surface();
    sg.state->pass = RV_PASS_SSS;
    EXPECT_EQ(samplesAt(sg).size(), 9u);
}

TEST_F(LightLoop, sss_samples_beyond_the_limit_of_a_loop_are_cut)
{
    RtNode* const node = pointLight({ 0, 0, 2 }, 1);
    RvNodeSetInt(node, "sss_samples", 100000);
    prepare();
    RtShaderGlobals sg = surface();
    sg.state->pass = RV_PASS_SSS;
    EXPECT_EQ(samplesAt(sg).size(), 65025u);
}

// ---- Where the samples lie ----

// The points of the unit square that a light was sampled at, by a plug-in light that shows them.
static std::vector<RtPoint2>& seenPoints()
{
    static std::vector<RtPoint2> all;
    return all;
}

static void installProbe()
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode* node, void*) { RvLightInitialize(node, 9, nullptr); },
        .Update = [](RtNode* node, void*) { RvLightUpdate(node, true, true); },
        .Finish = nullptr,
    };
    static const RtLightMethods methods = {
        .LightPrepare = nullptr,
        .LightSample =
            [](RtNode*, RtShaderGlobals* sg) {
                seenPoints().push_back(sg->state->lights.point->sample);
                return false;
            },
        .LightAmbient = nullptr,
        .LightIntersect = nullptr,
        .LightBounds = nullptr,
    };
    static const RtNodeMethods all = { &common, &methods };
    seenPoints().clear();
    RvNodeInstall(RV_NODE_LIGHT, RV_TYPE_NONE, "probe", "", &all, RV_VERSION);
}

static std::vector<float> numbers(const std::vector<RtPoint2>& points)
{
    std::vector<float> all;
    for (const RtPoint2& p : points)
        for (float x : { p.x, p.y })
            all.push_back(x);
    return all;
}

TEST_F(LightLoop, samples_are_the_block_of_the_camera_sample_in_the_table_of_the_pass)
{
    installProbe();
    RtNode* const node = light("probe");
    RvNodeSetInt(node, "samples", 3);
    RvNodeSetInt(node, "sss_samples", 2);
    set("AA_samples", 2);
    prepare();
    const RtLightData& data = dataOf(node);
    const struct {
        RtPass pass;
        const RtSampleTable* table;
        int sample_index, start, count;
    } rows[] = {
        { RV_PASS_PIXELS, data.pixel_table, 0, 0, 9 },
        { RV_PASS_PIXELS, data.pixel_table, 3, 27, 9 },
        { RV_PASS_SSS, data.sss_table, 3, 0, 4 },
        { RV_PASS_HAIR, data.cache_table, 2, 0, 9 },
    };
    for (const auto& row : rows)
        for (int depth : { 0, 1 }) { // where rotations differ
            RtShaderGlobals sg = surface();
            sg.state->pass = row.pass;
            sg.sample_index = uint16_t(row.sample_index);
            sg.ray_depth = uint8_t(depth);
            sg.pixel_x = 17;
            seenPoints().clear();
            samplesAt(sg);
            const RtPoint2 rotation = RvSamplerRotation(&sg);
            EXPECT_EQ(depth > 0, rotation.x > 0);
            std::vector<RtPoint2> want;
            for (int i = 0; i < row.count; ++i) {
                const RtPoint2& p = row.table->points[row.start + i];
                const float x = p.x + rotation.x, y = p.y + rotation.y;
                want.push_back({ x - std::floor(x), y - std::floor(y) });
            }
            EXPECT_EQ(numbers(seenPoints()), numbers(want)) << int(row.pass);
        }
}

TEST_F(LightLoop, nested_loops_sample_at_the_rotation)
{
    installProbe();
    RvNodeSetInt(light("probe"), "samples", 3);
    prepare();
    RtShaderGlobals sg = surface();
    sg.state->loop_samples = 4;
    sg.ray_depth = 2;
    samplesAt(sg);
    EXPECT_EQ(numbers(seenPoints()), numbers({ RvSamplerRotation(&sg) }));
}

TEST_F(LightLoop, off_surfaces_samples_lie_at_the_random_numbers_of_the_ray)
{
    installProbe();
    light("probe");
    prepare();
    for (RtShadingStage stage : { RV_STAGE_VOLUME, RV_STAGE_DISPLACEMENT, RV_STAGE_BACKGROUND }) {
        RtShaderGlobals sg = surface();
        sg.stage = stage;
        sg.state->random[0] = 0.25f;
        sg.state->random[1] = 0.75f;
        seenPoints().clear();
        samplesAt(sg);
        EXPECT_EQ(numbers(seenPoints()), (std::vector<float>{ 0.25f, 0.75f })) << int(stage);
    }
}

TEST_F(LightLoop, a_camera_sample_beyond_the_table_starts_over)
{
    installProbe();
    RvNodeSetInt(light("probe"), "samples", 2);
    prepare();
    for (int index : { 1, 999, 65535 }) {
        RtShaderGlobals sg = surface();
        sg.sample_index = uint16_t(index);
        samplesAt(sg);
    }
    EXPECT_EQ(seenPoints().size(), 12u);
}

// ---- The walk ----

TEST_F(LightLoop, samples_come_in_the_order_of_the_lights)
{
    pointLight({ 0, 0, 1 }, 0, "a");
    RvNodeSetInt(pointLight({ 0, 0, 2 }, 1, "b"), "samples", 2);
    pointLight({ 0, 0, -1 }, 0, "behind");
    pointLight({ 0, 0, 3 }, 0, "c");
    prepare();
    RtShaderGlobals sg = surface();
    EXPECT_EQ(namesOf(samplesAt(sg)), (Names{ "a", "b", "b", "b", "b", "c" }));
    EXPECT_FALSE(RvLightsGetSample(&sg));
    RvLightsPrepare(&sg); // rewinds
    EXPECT_EQ(walk(sg).size(), 6u);
}

TEST_F(LightLoop, the_sample_count_of_the_context_is_restored)
{
    RvNodeSetInt(pointLight({ 0, 0, 2 }, 1), "samples", 3);
    prepare();
    RtShaderGlobals sg = surface();
    sg.light_sample_count = 77;
    RvLightsPrepare(&sg);
    EXPECT_EQ(sg.light_sample_count, 77);
    ASSERT_TRUE(RvLightsGetSample(&sg));
    EXPECT_EQ(sg.light_sample_count, 9);
    RtShaderGlobals volume = surface();
    volume.stage = RV_STAGE_VOLUME;
    volume.light_sample_count = 77;
    RvLightsPrepare(&volume);
    ASSERT_TRUE(RvLightsGetSample(&volume));
    EXPECT_EQ(volume.light_sample_count, 77); // belongs to the volume shader
}

// ---- Reuse ----

static std::string textOf(const std::vector<Sample>& samples)
{
    std::string all;
    for (const Sample& s : samples)
        all += text(s.radiance) + " / " + text(s.dir) + " / " + std::to_string(s.dist) + "\n";
    return all;
}

TEST_F(LightLoop, a_second_preparation_at_the_point_gives_the_same_samples)
{
    RvNodeSetInt(pointLight({ 1, 0, 2 }, 1), "samples", 3);
    prepare();
    RtShaderGlobals sg = surface();
    const auto first = samplesAt(sg);
    const RtLightSample* const list = sg.state->lights.samples;
    EXPECT_EQ(textOf(samplesAt(sg)), textOf(first));
    EXPECT_EQ(sg.state->lights.samples, list);
}

TEST_F(LightLoop, samples_are_reused_only_where_nothing_changed)
{
    pointLight({ 1, 0, 2 });
    prepare();
    const std::pair<const char*, void (*)(RtShaderGlobals*)> changes[] = {
        { "nothing", [](RtShaderGlobals*) {} },
        { "point", [](RtShaderGlobals* sg) { sg->point.x = 0.5f; } },
        { "sign of zero", [](RtShaderGlobals* sg) { sg->point.x = -0.0f; } }, // bit for bit
        { "normal",
          [](RtShaderGlobals* sg) {
              sg->normal = { 0, 1, 0 };
          } },
        { "facing normal",
          [](RtShaderGlobals* sg) {
              sg->facing_normal = { 0, 1, 0 };
          } },
        { "hemisphere", [](RtShaderGlobals* sg) { sg->front_hemisphere_only = 0; } },
        { "shadows", [](RtShaderGlobals* sg) { sg->skip_shadows = 1; } },
        { "trace set", [](RtShaderGlobals* sg) { RvShaderGlobalsSetTraceSet(sg, "b", false); } },
        { "kind of trace set",
          [](RtShaderGlobals* sg) { RvShaderGlobalsSetTraceSet(sg, "a", true); } },
        { "no trace set", [](RtShaderGlobals* sg) { RvShaderGlobalsUnsetTraceSet(sg); } },
        { "same name elsewhere",
          [](RtShaderGlobals* sg) {
              static char name[] = "a";
              RvShaderGlobalsSetTraceSet(sg, name, false);
          } },
        { "stage", [](RtShaderGlobals* sg) { sg->stage = RV_STAGE_DISPLACEMENT; } },
    };
    for (const auto& [what, change] : changes) {
        RtShaderGlobals sg = surface();
        RvShaderGlobalsSetTraceSet(&sg, "a", false);
        RvLightsPrepare(&sg);
        const uint64_t before = counted(RV_LIGHTING_CACHED).primary;
        change(&sg);
        RvLightsPrepare(&sg);
        const bool reused = counted(RV_LIGHTING_CACHED).primary > before;
        const bool same = !strcmp(what, "nothing") || !strcmp(what, "same name elsewhere");
        EXPECT_EQ(reused, same) << what;
    }
}

TEST_F(LightLoop, what_was_taken_in_a_volume_is_never_reused)
{
    pointLight({ 1, 0, 2 });
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    sg.stage = RV_STAGE_VOLUME;
    sg.lights = nullptr;
    RvLightsPrepare(&sg);
    EXPECT_TRUE(walk(sg).empty());
    sg.stage = RV_STAGE_SURFACE;
    sg.lights = RvUniverseGetLights();
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(LightLoop, preparations_and_reuses_are_counted)
{
    pointLight({ 1, 0, 2 });
    prepare();
    RtShaderGlobals sg = surface();
    RvLightsPrepare(&sg);
    RvLightsPrepare(&sg);
    EXPECT_EQ(counted(RV_LIGHTING_LOOPS).primary, 2u);
    EXPECT_EQ(counted(RV_LIGHTING_CACHED).primary, 1u);
    sg.state->loop_samples = 3;
    RvLightsPrepare(&sg);
    EXPECT_EQ(counted(RV_LIGHTING_LOOPS).secondary, 1u);
    EXPECT_EQ(counted(RV_LIGHTING_CACHED).secondary, 1u);
    for (RtPass pass : { RV_PASS_SSS, RV_PASS_HAIR }) {
        sg.state->pass = pass;
        RvLightsPrepare(&sg);
    }
    sg.stage = RV_STAGE_VOLUME;
    sg.state->pass = RV_PASS_PIXELS;
    RvLightsPrepare(&sg);
    EXPECT_EQ(counted(RV_LIGHTING_LOOPS).primary, 2u);
    EXPECT_EQ(counted(RV_LIGHTING_LOOPS).secondary, 1u);
}

TEST_F(LightLoop, tracing_between_two_walks_does_not_disturb_what_lights_know)
{
    RvNodeSetInt(pointLight({ 1, 0, 2 }, 1), "samples", 2);
    prepare();
    RtShaderGlobals sg = surface(), elsewhere = surface({ 5, 5, 0 });
    const auto first = samplesAt(sg);
    samplesAt(elsewhere); // by the same thread
    RvLightsPrepare(&sg);
    EXPECT_EQ(textOf(walk(sg)), textOf(first));
}

// ---- Shadow matte ----

TEST_F(LightLoop, the_shadow_matte_is_the_largest_shadow_of_a_light)
{
    const auto blocked = [this](const RtRGB& opacity) {
        pointLight({ 0, 0, 10 }, 0, "a");
        pointLight({ 30, 0, 10 }, 0, "b"); // passes the blocker
        glass("blocker", 5, opacity);
        RtNode* const floor = disc("floor", 0);
        prepare();
        RtShaderGlobals sg = surface();
        sg.object = floor;
        return sg;
    };
    RtShaderGlobals sg = blocked({ 0.25f, 0.5f, 1 });
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "0.25 0.5 1");
    // Required: black after a reuse, which does not compute it again.
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "0 0 0");
    EXPECT_EQ(walk(sg).size(), 2u);
}

TEST_F(LightLoop, the_shadow_matte_is_clamped)
{
    RtNode* const node = pointLight({ 0, 0, 10 });
    RvNodeSetFlt(node, "shadow_density", 3);
    disc("blocker", 5);
    RtNode* const floor = disc("floor", 0);
    prepare();
    RtShaderGlobals sg = surface();
    sg.object = floor;
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "1 1 1");
}

// ---- Contexts and lists that give nothing ----

TEST_F(LightLoop, contexts_that_cannot_hold_samples_get_none)
{
    pointLight({ 0, 0, 1 });
    RtShaderGlobals early = surface();
    EXPECT_TRUE(samplesAt(early).empty()); // before there are threads and updates
    prepare();
    RvLightsPrepare(nullptr);
    EXPECT_FALSE(RvLightsGetSample(nullptr));
    EXPECT_EQ(text(RvLightsGetShadowMatte(nullptr)), "0 0 0");
    RtShaderGlobals sg = surface();
    sg.state = nullptr;
    EXPECT_TRUE(samplesAt(sg).empty());
    EXPECT_EQ(text(RvLightsGetShadowMatte(&sg)), "0 0 0");
    for (int thread : { 64, 255 }) {
        sg = surface();
        sg.thread_index = uint8_t(thread);
        EXPECT_TRUE(samplesAt(sg).empty());
    }
    sg = surface();
    sg.thread_index = 63;
    EXPECT_EQ(samplesAt(sg).size(), 1u);
}

TEST_F(LightLoop, odd_lists_of_lights_are_survived)
{
    RtNode* const good = pointLight({ 0, 0, 1 });
    RtNode* const other = named("lambert", "no light");
    prepare();
    RtNode* const unprepared = pointLight({ 0, 0, 1 }, 0, "unprepared");
    RtNode* const odd[] = { nullptr, other, unprepared, good, nullptr };
    RtShaderGlobals sg = surface();
    sg.lights = odd;
    sg.light_count = 5;
    EXPECT_EQ(namesOf(samplesAt(sg)), Names{ "light" });
    sg = surface();
    sg.light_count = -5;
    EXPECT_TRUE(samplesAt(sg).empty());
    sg = surface();
    sg.lights = nullptr;
    sg.light_count = 5;
    EXPECT_TRUE(samplesAt(sg).empty());
}

TEST_F(LightLoop, points_that_are_not_finite_are_survived)
{
    pointLight({ 0, 0, 1 }, 0, "a");
    pointLight({ 0, 0, 1 }, 0.5f, "b");
    spotLight({ 0, 0, 5 }, { 0, 0, 0 });
    distantLight({ 0, 0, -1 }, 5);
    RtNode* const floor = disc("floor", 0);
    prepare();
    for (float x : { NAN, INFINITY, 1e38f, 3e38f })
        for (const RtVector& normal : { RtVector{ 0, 0, 1 }, RtVector{ NAN, 0, 0 } }) {
            RtShaderGlobals sg = surface({ x, 0, 0 }, normal);
            sg.object = floor;
            samplesAt(sg);
        }
}

// ---- Many lights ----

TEST_F(LightLoop, a_scene_may_have_65536_lights)
{
    constexpr int n = 65536;
    const size_t before = node_tools::heapBytes();
    for (int i = 0; i < n; ++i) {
        RtNode* const node = RvNode("point_light");
        RvNodeSetArray(node, "position",
                       RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 1 + float(i) }));
        RvNodeSetFlt(node, "radius", 0.1f);
        RvNodeSetInt(node, "samples", 2);
    }
    set("AA_samples", 8);
    prepare();
    EXPECT_LT((node_tools::heapBytes() - before) / n, 5000u); // bytes of a light, its node included
    EXPECT_EQ(samples().size(), size_t(4 * n));
    endSample();
}

TEST_F(LightLoop, more_samples_than_memory_can_hold_are_cut)
{
    constexpr int n = 200;
    std::vector<RtNode*> lights;
    for (int i = 0; i < n; ++i) {
        lights.push_back(RvNode("distant_light"));
        RvNodeSetFlt(lights.back(), "angle", 1);
        RvNodeSetInt(lights.back(), "samples", 255);
        RvNodeSetFlt(lights.back(), "intensity", i ? 0 : 1);
    }
    prepare();
    for (RtNode* node : lights) // counted, without the time it takes to sample them all
        dataOf(node).enabled = true;
    for (RtNode* node : lights)
        dataOf(node).bounces = node == lights[0] ? 999 : -1;
    EXPECT_EQ(samples().size(), 65025u);
    endSample();
}

// ---- Light filters that run loops of their own ----

static int filter_runs;

static void installLoopingFilter()
{
    static const RtShaderMethods shader = { .Evaluate = [](RtNode*, RtShaderGlobals* sg) {
        ++filter_runs;
        RvLightsPrepare(sg);
        EXPECT_FALSE(RvLightsGetSample(sg));
        RvLightsGetShadowMatte(sg);
        const auto eval = [](const void*, const RtVector*) { return 1.0f; };
        RvEvaluateLightSample(sg, nullptr, nullptr, eval, eval);
    } };
    static const RtCommonMethods none = {};
    static const RtNodeMethods all = { &none, &shader };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_NONE, "looper", "", &all, RV_VERSION);
}

TEST_F(LightLoop, a_filter_that_starts_the_loop_anew_does_not_get_far)
{
    installLoopingFilter();
    filter_runs = 0;
    RtNode* const node = pointLight({ 0, 0, 1 });
    setFilters(node, { named("looper", "f") });
    prepare();
    EXPECT_EQ(samples().size(), 1u);
    EXPECT_EQ(filter_runs, 1);
}
