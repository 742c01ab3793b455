// Tests of core/src/lights/lights.cpp: the light data and its update.
#include "light_tools.h"
#include "lights/light_tables.h"

using namespace light_tools;

class Lights : public Lit {
protected:
    // Lines on the statistics channel since the last call.
    static Names takeStatsLines()
    {
        Names lines;
        for (const LoggedMessage& m : messages())
            if (m.mask == RV_LOG_STATS)
                lines.push_back(m.text);
        messages().clear();
        return lines;
    }
    static RtNode* decay(const char* type, float radius = 1)
    {
        RtNode* const node = named("light_decay", "decay");
        RvNodeSetStr(node, "decay_type", type);
        RvNodeSetFlt(node, "decay_radius", radius);
        return node;
    }
    static RtLightData& updated(RtNode* node)
    {
        updateLight(node);
        return dataOf(node);
    }
};

// ---- Brightness ----

TEST_F(Lights, intensity_and_exposure_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "RvLightGetIntensity")) {
        RtNode* const node = light("point_light");
        RvNodeSetFlt(node, "intensity", goldenFloat(v["in"]["intensity"]));
        RvNodeSetFlt(node, "exposure", goldenFloat(v["in"]["exposure"]));
        updateLight(node);
        expectGoldenNumbers(v, "value", { RvLightGetIntensity(node) });
        RvNodeDestroy(node);
    }
}

TEST_F(Lights, one_stop_of_exposure_doubles_the_intensity)
{
    RtNode* const node = light("distant_light");
    RvNodeSetFlt(node, "exposure", 1);
    updateLight(node);
    EXPECT_EQ(RvLightGetIntensity(node), 2);
}

TEST_F(Lights, lights_are_enabled_like_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_enabled")) {
        const auto color = goldenFloats(v["in"]["color"]);
        RtNode* const node = light("point_light");
        RvNodeSetRGB(node, "color", color[0], color[1], color[2]);
        RvNodeSetFlt(node, "intensity", goldenFloat(v["in"]["intensity"]));
        set("ignore_lights", v["in"]["ignore_lights"].get<bool>());
        expectGolden(v, "enabled", updated(node).enabled);
        RvNodeDestroy(node);
    }
}

TEST_F(Lights, a_negative_colour_is_as_good_as_a_positive_one)
{
    RtNode* const node = light("point_light");
    RvNodeSetRGB(node, "color", 0, -1, 0);
    EXPECT_TRUE(updated(node).enabled);
}

TEST_F(Lights, the_colour_is_raised_to_light_gamma)
{
    RtNode* const node = light("point_light");
    RvNodeSetRGB(node, "color", 0.5f, 0.25f, 1);
    EXPECT_EQ(text(updated(node).color), "0.5 0.25 1");
    set("light_gamma", 2.0f);
    EXPECT_EQ(text(updated(node).color), "0.25 0.0625 1");
    EXPECT_EQ(text(RvLightGetColor(node)), "0.5 0.25 1");
}

TEST_F(Lights, getters_of_anything_but_lights_are_neutral)
{
    for (RtNode* node : { static_cast<RtNode*>(nullptr), RvNode("sphere"), RvNode("lambert") }) {
        EXPECT_EQ(text(RvLightGetColor(node)), "0 0 0");
        EXPECT_EQ(RvLightGetIntensity(node), 0);
        EXPECT_FALSE(RvLightGetAffectDiffuse(node));
        EXPECT_FALSE(RvLightGetAffectSpecular(node));
        RvLightInitialize(node, 1, nullptr);
        RvLightUpdate(node, true, true);
    }
    RtNode* const fresh = light("point_light"); // without local data
    EXPECT_EQ(RvLightGetIntensity(fresh), 0);
    RvLightUpdate(fresh, true, true);
}

TEST_F(Lights, what_a_light_affects_is_read_from_its_parameters)
{
    RtNode* const node = light("spot_light");
    EXPECT_TRUE(RvLightGetAffectDiffuse(node) && RvLightGetAffectSpecular(node));
    RvNodeSetBool(node, "affect_diffuse", false);
    EXPECT_FALSE(RvLightGetAffectDiffuse(node));
    EXPECT_TRUE(RvLightGetAffectSpecular(node));
    RvNodeSetBool(node, "affect_specular", false);
    EXPECT_FALSE(RvLightGetAffectSpecular(node));
}

// ---- Copies ----

TEST_F(Lights, an_update_copies_the_common_parameters)
{
    RtNode* const node = pointLight({ 0, 0, 1 }, 1);
    RvNodeSetRGB(node, "shadow_color", 0, 0.00009f, -0.0002f);
    RvNodeSetInt(node, "bounces", 3);
    RvNodeSetFlt(node, "bounce_factor", 0.5f);
    RvNodeSetFlt(node, "shadow_density", 0.25f);
    RvNodeSetBool(node, "affect_specular", false);
    RvNodeSetBool(node, "cast_volumetric_shadows", false);
    RtNode* const density = named("flat", "density");
    RvNodeSetPtr(node, "volume_density", density);
    set("GI_direct_lighting", false);
    const RtLightData& data = updated(node);
    EXPECT_EQ(data.node, node);
    EXPECT_EQ(data.light_type, 1);
    EXPECT_TRUE(data.sampled);
    EXPECT_TRUE(data.shadow_colored);
    EXPECT_EQ(text(data.shadow_color), text(RtRGB{ 0, 0.00009f, -0.0002f }));
    EXPECT_EQ(data.bounces, 3);
    EXPECT_EQ(data.bounce_factor, 0.5f);
    EXPECT_EQ(data.shadow_density, 0.25f);
    EXPECT_TRUE(data.affect_diffuse);
    EXPECT_FALSE(data.affect_specular);
    EXPECT_TRUE(data.affect_volumetrics);
    EXPECT_FALSE(data.volumetric_shadows);
    EXPECT_EQ(data.volume_density, density);
    EXPECT_FALSE(data.direct);
    EXPECT_TRUE(data.cast_shadows);
    EXPECT_TRUE(data.mis);
    set("ignore_shadows", true);
    RvNodeSetRGB(node, "shadow_color", 0, 0.00009f, 0);
    updateLight(node);
    EXPECT_FALSE(data.cast_shadows);
    EXPECT_FALSE(data.shadow_colored);
}

TEST_F(Lights, types_have_their_codes)
{
    const std::pair<const char*, int> rows[] = {
        { "distant_light", 0 }, { "point_light", 1 }, { "spot_light", 2 }, { "ambient_light", 6 }
    };
    for (const auto& [type, code] : rows)
        EXPECT_EQ(updated(light(type, type)).light_type, code) << type;
}

TEST_F(Lights, only_point_and_spot_lights_reach_into_volumes)
{
    for (const char* type : { "point_light", "spot_light", "distant_light", "ambient_light" }) {
        const RtLightData& data = updated(light(type, type));
        const bool reaches = !strcmp(type, "point_light") || !strcmp(type, "spot_light");
        EXPECT_EQ(data.affect_volumetrics, reaches) << type;
        EXPECT_EQ(data.volumetric_shadows, reaches) << type;
    }
}

TEST_F(Lights, samples_are_kept_in_a_byte_like_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "light_samples_byte")) {
        RtNode* const node = pointLight({ 0, 0, 1 }, v["in"]["sampled"].get<bool>() ? 1.0f : 0);
        RvNodeSetInt(node, "samples", v["in"]["samples"].get<int>());
        expectGolden(v, "samples", updated(node).samples);
        RvNodeDestroy(node);
    }
    takeProblems();
}

TEST_F(Lights, a_light_that_is_not_sampled_has_one_sample)
{
    RtNode* const node = pointLight({ 0, 0, 1 });
    RvNodeSetInt(node, "samples", 9);
    EXPECT_EQ(updated(node).samples, 1);
}

// ---- Filters, falloff and cutoff ----

TEST_F(Lights, cutoffs_agree_with_the_golden_vectors)
{
    static const char* const types[] = { "constant", "linear", "quadratic", "cubic" };
    for (const auto& v : goldenVectors("lights", "light_cutoff")) {
        const auto& in = v["in"];
        const auto color = goldenFloats(in["color"]);
        RtNode* const node = light("point_light");
        RvNodeSetRGB(node, "color", color[0], color[1], color[2]);
        RvNodeSetFlt(node, "intensity", goldenFloat(in["intensity"]));
        set("low_light_threshold", goldenFloat(in["low_light_threshold"]));
        RtNode* const filter =
            decay(types[in["decay_exponent"].get<int>()], goldenFloat(in["decay_radius"]));
        setFilters(node, { filter });
        expectGoldenNumbers(v, "cutoff_sq", { updated(node).cutoff_sq });
        RvNodeDestroy(node);
        RvNodeDestroy(filter);
    }
}

TEST_F(Lights, quadratic_decay_gives_a_cutoff_unless_the_threshold_is_0)
{
    RtNode* const node = light("point_light");
    setFilters(node, { decay("quadratic") });
    EXPECT_NEAR(updated(node).cutoff_sq, 1000, 0.01); // 1 / d^2 = 0.001
    EXPECT_EQ(dataOf(node).decay_exponent, 2);
    set("low_light_threshold", 0.0f);
    EXPECT_EQ(updated(node).cutoff_sq, 1e12f);
}

TEST_F(Lights, the_first_decay_filter_decides)
{
    RtNode* const node = light("point_light");
    setFilters(node, { named("light_blocker", "b"), decay("cubic"), decay("linear") });
    EXPECT_EQ(updated(node).decay_exponent, 3);
    setFilters(node, { named("light_blocker", "c") });
    EXPECT_EQ(updated(node).decay_exponent, 0);
    EXPECT_EQ(dataOf(node).cutoff_sq, 1e12f);
}

TEST_F(Lights, missing_filters_are_reported_up_to_the_decay_filter)
{
    RtNode* const node = light("spot_light", "s");
    RtNode* const blocker = named("light_blocker", "b");
    setFilters(node, { nullptr, blocker, nullptr, decay("linear"), nullptr });
    takeProblems();
    updateLight(node);
    const auto problems = takeProblems();
    EXPECT_EQ(problems, (Names{ "[spot_light] s is missing light-filter 0",
                                "[spot_light] s is missing light-filter 2" }));
}

TEST_F(Lights, a_negative_decay_exponent_is_reported_and_becomes_constant)
{
    RtNode* const node = light("point_light", "p");
    EXPECT_EQ(rv::usableDecay(node, 2), 2);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(rv::usableDecay(node, -1), 0);
    EXPECT_EQ(takeProblem(), "[point_light] p:  light decay exponent less than zero found -- "
                             "resetting falloff to constant");
}

// ---- Time samples ----

TEST_F(Lights, time_samples_that_do_not_rise_are_repaired)
{
    const std::vector<std::vector<double>> bad = { { 0.5 }, { 0, 0 }, { 1, 0 }, { 0, 0.5, 0.5 } };
    for (const auto& times : bad) {
        RtNode* const node = light("distant_light", "d");
        RtArray* const array = RvArrayAllocate(unsigned(times.size()), 1, RV_TYPE_FLOAT);
        for (unsigned i = 0; i < times.size(); ++i)
            RvArraySetFlt(array, i, float(times[i]));
        RvNodeSetArray(node, "time_samples", array);
        updateLight(node);
        EXPECT_EQ(takeProblem(), "invalid time sample specification on: d - resetting to default");
        EXPECT_EQ(node_tools::describe(RvNodeGetArray(node, "time_samples")), "FLOAT 2x1: 0, 1");
        RvNodeDestroy(node);
    }
}

TEST_F(Lights, time_samples_that_rise_are_left_alone)
{
    RtNode* const node = light("point_light");
    RvNodeSetArray(node, "time_samples", RvArray(3, 1, RV_TYPE_FLOAT, -1.0, 0.25, 7.0));
    updateLight(node);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(node_tools::describe(RvNodeGetArray(node, "time_samples")), "FLOAT 3x1: -1, 0.25, 7");
}

// ---- Information lines ----

TEST_F(Lights, an_update_says_what_became_of_the_light)
{
    const struct {
        float intensity;
        int samples;
        bool shadows;
        std::string line;
    } rows[] = {
        { 1, 1, true, "L: 1 samples, raytraced" },
        { 1, 4, false, "L: 4 samples, no shadows" },
        { 1, -3, true, "L: -3 samples, raytraced" }, // Required: the parameter as it is
        { 0, 4, true, "L: disabled" },
    };
    for (const auto& row : rows) {
        RtNode* const node = light("point_light", "L");
        RvNodeSetFlt(node, "intensity", row.intensity);
        RvNodeSetInt(node, "samples", row.samples);
        RvNodeSetBool(node, "cast_shadows", row.shadows);
        takeStatsLines();
        updateLight(node);
        EXPECT_EQ(takeStatsLines(), Names{ row.line });
        RvNodeDestroy(node);
    }
}

TEST_F(Lights, the_line_speaks_of_the_parameter_even_when_shadows_are_ignored)
{
    set("ignore_shadows", true);
    RtNode* const node = light("point_light", "L");
    updateLight(node);
    EXPECT_EQ(takeStatsLines(), Names{ "L: 1 samples, raytraced" });
}

TEST_F(Lights, lights_that_are_black_dark_or_ignored_are_disabled_and_give_no_samples)
{
    for (const char* reason : { "color", "intensity", "ignore_lights" }) {
        startAnew();
        RtNode* const node = pointLight({ 0, 0, 1 }, 0, "L");
        if (!strcmp(reason, "color"))
            RvNodeSetRGB(node, "color", 0, 0, 0);
        else if (!strcmp(reason, "intensity"))
            RvNodeSetFlt(node, "intensity", 0);
        else
            set("ignore_lights", true);
        prepare();
        EXPECT_EQ(takeStatsLines(), Names{ "L: disabled" }) << reason;
        RtShaderGlobals sg = surface();
        sg.lights = &node;
        sg.light_count = 1;
        EXPECT_TRUE(samplesAt(sg).empty()) << reason;
    }
}

TEST_F(Lights, rendering_an_unchanged_scene_again_says_nothing)
{
    RtNode* const node = light("point_light", "L");
    prepare();
    EXPECT_EQ(takeStatsLines(), Names{ "L: 1 samples, raytraced" });
    prepare();
    updateLight(node);
    EXPECT_EQ(takeStatsLines(), Names{});
    RvNodeSetInt(node, "samples", 2);
    updateLight(node);
    EXPECT_EQ(takeStatsLines(), Names{ "L: 2 samples, raytraced" });
}

// ---- Sample tables ----

static std::vector<float> numbers(const RtPoint2* points, int count)
{
    std::vector<float> all;
    for (int i = 0; i < count; ++i)
        for (float x : { points[i].x, points[i].y })
            all.push_back(x);
    return all;
}

static void expectTable(const RtSampleTable* table, int seed, int side, int shuffled_blocks,
                        int block, int pattern)
{
    ASSERT_TRUE(table);
    ASSERT_EQ(table->count, side * side);
    RtPoint2* const want = RvSamplingPattern(seed, side, pattern);
    if (shuffled_blocks)
        RvShufflePoints(seed + 1, shuffled_blocks, block, pattern, want);
    EXPECT_EQ(numbers(table->points, table->count), numbers(want, side * side)) << seed;
    RvFree_func(want);
}

TEST_F(Lights, sample_tables_hold_one_block_for_each_camera_sample)
{
    for (int pattern : { RV_PATTERN_MULTI_JITTERED, RV_PATTERN_SCHLICK })
        for (int sss_samples : { -1, 2 }) {
            RtNode* const node = pointLight({ 0, 0, 1 }, 1);
            set("AA_samples", 4);
            set("GI_hemi_pattern", pattern);
            RvNodeSetInt(node, "samples", 3);
            RvNodeSetInt(node, "sss_samples", sss_samples);
            const RtLightData& data = updated(node);
            expectTable(data.pixel_table, 8 * 3 - 2, 12, 16, 9, pattern);
            expectTable(data.mis_table, 10 * 3 - 2, 12, 16, 9, pattern);
            expectTable(data.sss_table, 3, sss_samples > 0 ? sss_samples : 3, 0, 0, pattern);
            expectTable(data.cache_table, 3, 3, 0, 0, pattern);
            RvNodeSetBool(node, "mis", false);
            EXPECT_FALSE(updated(node).mis_table);
            RvNodeDestroy(node);
        }
}

TEST_F(Lights, negative_camera_samples_count_as_one)
{
    RtNode* const node = pointLight({ 0, 0, 1 }, 1);
    set("AA_samples", -3);
    RvNodeSetInt(node, "samples", 2);
    expectTable(updated(node).pixel_table, 14, 2, 1, 4, rv::render_options->GI_hemi_pattern);
}

TEST_F(Lights, a_sample_count_that_truncates_to_0_leaves_one_point)
{
    RtNode* const node = pointLight({ 0, 0, 1 }, 1);
    RvNodeSetInt(node, "samples", 256);
    const RtLightData& data = updated(node);
    for (const RtSampleTable* table :
         { data.pixel_table, data.sss_table, data.cache_table, data.mis_table })
        EXPECT_EQ(table->count, 1);
    prepare();
    EXPECT_EQ(samples().size(), 1u);
}

TEST_F(Lights, tables_beyond_any_memory_are_refused_and_the_light_shines_on)
{
    RtNode* const node = pointLight({ 0, 0, 1 }, 1);
    RvNodeSetInt(node, "samples", 255);
    RvNodeSetBool(options(), "abort_on_error", false);
    set("AA_samples", 64);
    updateLight(node);
    const auto problems = takeProblems();
    ASSERT_EQ(problems.size(), 2u); // pixel and mis table
    for (const std::string& problem : problems)
        EXPECT_EQ(problem.rfind("can't allocate", 0), 0u) << problem;
    EXPECT_FALSE(dataOf(node).pixel_table);
    prepare();
    EXPECT_EQ(samples().size(), 65025u);
}

TEST_F(Lights, lights_with_equal_sampling_share_their_tables)
{
    const int before = rv::lightTableCount();
    for (const char* name : { "a", "b", "c" })
        updateLight(pointLight({ 0, 0, 1 }, 1, name));
    RtNode* const other = pointLight({ 0, 0, 1 }, 1, "other");
    RvNodeSetInt(other, "samples", 2);
    EXPECT_EQ(rv::lightTableCount() - before, 3); // sss and cache tables are the same
    updateLight(other);
    EXPECT_EQ(rv::lightTableCount() - before, 6);
    updateLight(other);
    EXPECT_EQ(rv::lightTableCount() - before, 6);
    RvNodeDestroy(other);
    EXPECT_EQ(rv::lightTableCount() - before, 3);
}

TEST_F(Lights, tables_go_with_the_last_light)
{
    TearDown();
    EXPECT_EQ(rv::lightTableCount(), 0);
    SetUp();
    updateLight(pointLight({ 0, 0, 1 }, 1));
    EXPECT_GT(rv::lightTableCount(), 0);
    TearDown();
    EXPECT_EQ(rv::lightTableCount(), 0);
    SetUp();
}

// ---- Life ----

TEST_F(Lights, a_light_is_initialised_once)
{
    RtNode* const node = light("point_light");
    rv::RvNodeInitialize(node);
    void* const data = node->local_data;
    int other;
    RvLightInitialize(node, 3, &other);
    EXPECT_EQ(node->local_data, data);
    EXPECT_EQ(dataOf(node).light_type, 1);
}

TEST_F(Lights, local_data_is_freed_with_the_light)
{
    const auto use = [] {
        for (const char* type : { "point_light", "spot_light", "distant_light", "ambient_light" }) {
            RtNode* const node = light(type);
            updateLight(node);
            updateLight(node);
            RvNodeDestroy(node);
        }
        messages().clear();
    };
    use();
    EXPECT_FALSE(node_tools::leaksMemory(use));
}

TEST_F(Lights, an_exhausted_heap_leaves_lights_dark)
{
    const auto texts = node_tools::problemsOfFailingHeap(
        [] {
            for (const char* type :
                 { "point_light", "spot_light", "distant_light", "ambient_light" })
                if (RtNode* const node = RvNode(type)) {
                    RvNodeSetBool(RvUniverseGetOptions(), "abort_on_error", false);
                    updateLight(node);
                    RvNodeDestroy(node);
                }
        },
        takeProblems);
    EXPECT_TRUE(
        node_tools::anyReportsFailure(texts, "core.src.lights.lights", "RvLightInitialize"));
    EXPECT_TRUE(node_tools::anyReportsFailure(texts, "core.src.lights.point", "Initialize"));
    EXPECT_TRUE(node_tools::anyReportsFailure(texts, "core.src.lights.spot", "Update"));
}

// ---- Lights of plug-ins ----

namespace {

struct PluginCalls {
    int prepared = 0, sampled = 0;
    int finished = 0;
};
PluginCalls plugin;

} // namespace

// A light that shines 5 from above, whose parameters lie wherever the library puts them.
static const RtNodeMethods& pluginMethods()
{
    static int data;
    static const RtCommonMethods common = {
        .Parameters = [](RtList* params,
                         RtMetaDataStore*) { RvNodeParamFLT(params, -1, "power", 5); },
        .Initialize = [](RtNode* node, void*) { RvLightInitialize(node, 77, &data); },
        .Update = [](RtNode* node, void*) { RvLightUpdate(node, false, true); },
        .Finish = [](RtNode*) { ++plugin.finished; },
    };
    static const RtLightMethods methods = {
        .LightPrepare = [](RtNode*, RtShaderGlobals*) { ++plugin.prepared; },
        .LightSample =
            [](RtNode* node, RtShaderGlobals* sg) {
                ++plugin.sampled;
                const float power = RvNodeGetFlt(node, "power");
                sg->light_radiance = sg->light_unoccluded = { power, power, power };
                sg->light_dir = { 0, 0, 1 };
                sg->light_dist = 10;
                return true;
            },
        .LightAmbient = nullptr,
        .LightIntersect = nullptr,
        .LightBounds = nullptr,
    };
    static const RtNodeMethods all = { &common, &methods };
    return all;
}

TEST_F(Lights, lights_of_plug_ins_are_walked_like_built_in_ones)
{
    plugin = {};
    RvNodeInstall(RV_NODE_LIGHT, RV_TYPE_NONE, "lamp", "", &pluginMethods(), RV_VERSION);
    RtNode* const lamp = named("lamp", "lamp");
    RvNodeSetFlt(lamp, "exposure", 2);
    RvNodeSetRGB(lamp, "color", 0.25f, 0.5f, 1);
    pointLight({ 0, 0, 1 });
    prepare();
    EXPECT_EQ(RvLightGetIntensity(lamp), 4);
    EXPECT_EQ(text(RvLightGetColor(lamp)), "0.25 0.5 1");
    EXPECT_EQ(dataOf(lamp).light_type, 77);
    EXPECT_TRUE(dataOf(lamp).affect_volumetrics);
    RtShaderGlobals sg = surface();
    const auto all = samplesAt(sg);
    ASSERT_EQ(namesOf(all), (Names{ "lamp", "light" }));
    EXPECT_EQ(text(all[0].radiance), "5 5 5");
    EXPECT_EQ(all[0].weight, 1);
    EXPECT_EQ(plugin.prepared, 1);
    EXPECT_EQ(plugin.sampled, 1);
    // The samples are taken again, but the light is told of the point anew.
    EXPECT_EQ(samplesAt(sg).size(), 2u);
    EXPECT_EQ(plugin.prepared, 2);
    EXPECT_EQ(plugin.sampled, 1);
    RvNodeDestroy(lamp);
    EXPECT_EQ(plugin.finished, 1);
}

TEST_F(Lights, the_library_frees_the_data_of_lights_of_plug_ins)
{
    RvNodeInstall(RV_NODE_LIGHT, RV_TYPE_NONE, "lamp", "", &pluginMethods(), RV_VERSION);
    const auto use = [] {
        RtNode* const node = light("lamp");
        updateLight(node);
        RvNodeDestroy(node);
        messages().clear();
    };
    use();
    EXPECT_FALSE(node_tools::leaksMemory(use));
}

TEST_F(Lights, absent_methods_of_plug_ins_do_nothing)
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode* node, void*) { RvLightInitialize(node, 9, nullptr); },
        .Update = [](RtNode* node, void*) { RvLightUpdate(node, true, true); },
        .Finish = nullptr,
    };
    static const RtLightMethods none = {};
    static const RtNodeMethods empty = { &common, &none }, missing = { &common, nullptr };
    RvNodeInstall(RV_NODE_LIGHT, RV_TYPE_NONE, "dull", "", &empty, RV_VERSION);
    RvNodeInstall(RV_NODE_LIGHT, RV_TYPE_NONE, "duller", "", &missing, RV_VERSION);
    named("dull", "a");
    named("duller", "b");
    prepare();
    EXPECT_TRUE(samples().empty());
    EXPECT_EQ(takeProblem(), "");
}
