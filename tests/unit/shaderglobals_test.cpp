// Tests of shading contexts: their memory, the shader of a hit, stochastic opacity, trace sets,
// backgrounds and atmospheres.
#include "shaderglobals.h"

#include "hit_context.h"
#include "options.h"
#include "scene.h"
#include "shader_tools.h"
#include "thread_slot.h"
#include "trace_tools.h"

using namespace trace_tools;
using namespace shader_tools;
using node_tools::describe;
using rv::operator*;

namespace {

// Shapes with real shaders.
class ShaderGlobals : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        hooks.reset();
    }
    static void setShadersOf(RtNode* shape, const std::vector<RtNode*>& shaders)
    {
        RtArray* const array = RvArrayAllocate(unsigned(shaders.size()), 1, RV_TYPE_NODE);
        std::copy(shaders.begin(), shaders.end(), rv::elementsOf<RtNode*>(array));
        node_tools::giveArray(shape, "shader", array);
    }
    // The shader of a hit on a shape that is ready to be traced.
    static RtNode* selected(RtNode* object, uint32_t prim = 0, RtNode* instance = nullptr,
                            RtNode* source = nullptr)
    {
        Context sg;
        sg->object = object;
        sg->instance = instance;
        sg->shader_source = source;
        sg->prim_index = prim;
        return RvShaderSelect(sg);
    }
    // Two quads side by side, with shader indices given by `indices`.
    static RtNode* twoQuads(const std::vector<uint8_t>& indices,
                            const std::vector<RtNode*>& shaders)
    {
        RtNode* const mesh = polygons(
            { { 0, 0, 0 }, { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 }, { 2, 0, 0 }, { 2, 1, 0 } },
            { { 0, 1, 2, 3 }, { 1, 4, 5, 2 } });
        setShadersOf(mesh, shaders);
        if (!indices.empty())
            setBytes(mesh, "shidxs", indices);
        return mesh;
    }
    static const RtScene& scene() { return *rv::the_frame->scene; }
    static uint64_t calls(RtShaderCallRow row)
    {
        return rv::threadStats()->shader_calls[RV_PASS_PIXELS][row];
    }
};

} // namespace

// ---- Memory ----

TEST_F(ShaderGlobals, a_context_of_a_host_holds_the_reset_values)
{
    RtShaderGlobals* const sg = RvShaderGlobals();
    ASSERT_NE(sg, nullptr);
    RtShaderGlobals expected;
    expected.state = nullptr;
    rv::resetContext(&expected);
    EXPECT_EQ(memcmp(static_cast<const void*>(sg), static_cast<const void*>(&expected), sizeof *sg),
              0);
    EXPECT_TRUE(RvM4IsIdentity(&sg->object_to_world) && RvM4IsIdentity(&sg->world_to_object));
    EXPECT_EQ(describe(sg->out_opacity), "1 1 1");
    EXPECT_EQ(sg->stage, 0);
    EXPECT_EQ(sg->front_hemisphere_only, 1);
    free(sg);
}

TEST_F(ShaderGlobals, an_exhausted_heap_gives_no_context)
{
    {
        node_tools::AllocationLimit limit(0);
        EXPECT_EQ(RvShaderGlobals(), nullptr);
    }
    EXPECT_TRUE(
        node_tools::reportsFailure(takeProblem(), "core\\src\\shaderglobals", "RvShaderGlobals"));
}

TEST_F(ShaderGlobals, scratch_memory_comes_from_the_shading_pool_of_the_thread)
{
    Context sg;
    EXPECT_EQ(RvShaderGlobalsQuickAlloc(sg, 8), nullptr); // before any render
    prepare();
    EXPECT_EQ(RvShaderGlobalsQuickAlloc(sg, 0), nullptr);
    EXPECT_EQ(RvShaderGlobalsQuickAlloc(nullptr, 8), nullptr);
    const RtThreadSlot* const slots = rv::the_frame->thread_slots;
    const unsigned before = slots[3].shading_pool->alloc_count;
    sg->thread_index = 3;
    char* const first = static_cast<char*>(RvShaderGlobalsQuickAlloc(sg, 100));
    char* const second = static_cast<char*>(RvShaderGlobalsQuickAlloc(sg, 8));
    ASSERT_TRUE(first && second);
    memset(first, 1, 100);
    EXPECT_EQ(second - first, 104);
    EXPECT_EQ(slots[3].shading_pool->alloc_count, before + 2);
    sg->thread_index = 64; // there is no such thread
    EXPECT_EQ(RvShaderGlobalsQuickAlloc(sg, 8), nullptr);
}

// ---- The shader of a hit ----

TEST_F(ShaderGlobals, an_object_is_shaded_by_its_only_shader)
{
    RtNode* const red = rgbShader("red", { 1, 0, 0 });
    RtNode* const plain = disc("plain", 5);
    RtNode* const node = disc("d", 0);
    setShadersOf(node, { red });
    prepare();
    EXPECT_EQ(selected(node, 17), red);
    EXPECT_EQ(selected(plain), scene().default_reflection_shader);
    set("ignore_shaders", true);
    EXPECT_EQ(selected(node), scene().default_reflection_shader);
}

TEST_F(ShaderGlobals, lists_without_a_usable_shader_fall_back)
{
    RtNode* const node = disc("d", 0);
    prepare();
    setShadersOf(node, {});
    EXPECT_EQ(selected(node), scene().default_reflection_shader);
    setShadersOf(node, { nullptr });
    EXPECT_EQ(selected(node), scene().default_reflection_shader);
    setShadersOf(node, { node });
    EXPECT_EQ(selected(node), scene().bad_shader);
}

TEST_F(ShaderGlobals, instances_and_sources_take_the_place_of_the_object)
{
    RtNode* const red = rgbShader("red", { 1, 0, 0 });
    RtNode* const green = rgbShader("green", { 0, 1, 0 });
    RtNode* const blue = rgbShader("blue", { 0, 0, 1 });
    RtNode *const node = disc("d", 0), *const other = disc("other", 5);
    setShadersOf(node, { red });
    setShadersOf(other, { blue });
    RtNode* const same = instanceOf(node, "same", RV_M4_IDENTITY);
    RtNode* const own = instanceOf(node, "own", RV_M4_IDENTITY);
    setShadersOf(own, { green });
    prepare();
    EXPECT_EQ(selected(node), red);
    EXPECT_EQ(selected(node, 0, same), red);
    EXPECT_EQ(selected(node, 0, own), green);
    EXPECT_EQ(selected(node, 0, same, other), blue);
    EXPECT_EQ(selected(node, 0, own, other), green); // its own shaders come first
    EXPECT_EQ(selected(node, 0, nullptr, other), blue);
}

TEST_F(ShaderGlobals, an_instance_of_an_instance_is_shaded_like_the_nearer_one)
{
    RtNode* const green = rgbShader("green", { 0, 1, 0 });
    RtNode* const node = disc("d", 0);
    RtNode* const inner = instanceOf(node, "inner", RV_M4_IDENTITY);
    setShadersOf(inner, { green });
    const RtVector up = { 0, 0, 5 };
    RtMatrix matrix;
    RvM4Translation(&matrix, &up);
    instanceOf(inner, "outer", matrix);
    prepare();
    const RtRay ray = down();
    RtShaderGlobals sg;
    ASSERT_TRUE(RvTraceProbe(&ray, &sg));
    EXPECT_STREQ(RvNodeGetName(sg.instance), "outer");
    EXPECT_EQ(sg.shader_source, inner);
    EXPECT_EQ(RvShaderSelect(&sg), green);
    EXPECT_EQ(describe(traced(ray).color), "0 1 0");
}

TEST_F(ShaderGlobals, faces_choose_among_several_shaders)
{
    RtNode* const red = rgbShader("red", { 1, 0, 0 });
    RtNode* const green = rgbShader("green", { 0, 1, 0 });
    RtNode* const mesh = twoQuads({ 1, 0 }, { red, green });
    prepare();
    RtNode* const expected[] = { green, green, red, red }; // two triangles for each quad
    for (uint32_t prim = 0; prim < 4; ++prim)
        EXPECT_EQ(selected(mesh, prim), expected[prim]) << prim;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ShaderGlobals, an_index_beyond_the_shaders_is_reported_once_in_a_render)
{
    RtNode* const red = rgbShader("red", { 1, 0, 0 });
    set("abort_on_error", false);
    set("mesh_sanity", false);
    RtNode* const mesh = twoQuads({ 5, 5 }, { red, red });
    prepare();
    takeProblems();
    record(mesh)->shidxs[0] = record(mesh)->shidxs[1] = 5;
    for (uint32_t prim = 0; prim < 4; ++prim)
        EXPECT_EQ(selected(mesh, prim), scene().bad_shader);
    EXPECT_EQ(takeProblem(), "m: shader index 5 is out-of-range (object has 2 shaders)");
    prepare(); // another render
    selected(mesh);
    selected(mesh);
    EXPECT_EQ(takeProblem(), "m: shader index 5 is out-of-range (object has 2 shaders)");
}

TEST_F(ShaderGlobals, several_shaders_without_indices_are_reported_once_in_a_render)
{
    RtNode* const red = rgbShader("red", { 1, 0, 0 });
    RtNode* const green = rgbShader("green", { 0, 1, 0 });
    RtNode* const node = disc("d", 0);
    setShadersOf(node, { red, green });
    prepare();
    takeProblems();
    EXPECT_EQ(selected(node), red);
    EXPECT_EQ(selected(node), red);
    EXPECT_EQ(takeProblem(), "d: no shader indices (object has 2 shaders)");
    prepare();
    selected(node);
    EXPECT_EQ(takeProblem(), "d: no shader indices (object has 2 shaders)");
}

// ---- Shading hits ----

TEST_F(ShaderGlobals, hits_run_the_shader_of_their_object)
{
    RtNode* const node = disc("d", 0);
    RtShaderGlobals seen;
    setShadersOf(node, { shader("s", RV_TYPE_RGBA, [&](RtNode*, RtShaderGlobals* sg) {
                     seen = *sg;
                     sg->out.RGBA = { 0.25f, 0.5f, 1, 0.125f };
                 }) });
    prepare();
    const RtScrSample sample = traced(down());
    EXPECT_EQ(describe(sample.color), "0.25 0.5 1");
    EXPECT_EQ(sample.alpha, 0.125f);
    EXPECT_STREQ(RvNodeGetName(seen.shader), "s");
    EXPECT_EQ(seen.object, node);
    EXPECT_EQ(seen.ray_length, 10);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 1u);
}

TEST_F(ShaderGlobals, facing_mirrors_go_as_deep_as_the_options_allow)
{
    RtNode* const mirror = shader("mirror", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
        const RtVector back = sg->ray_dir * -1.0f;
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_REFLECTED, &sg->point, &back, 1e30, sg);
        RtScrSample sample;
        RvTrace(&ray, &sample);
        sg->out.RGB = sample.color;
        sg->out.RGB.g = 1;
    });
    setShadersOf(disc("floor", 0), { mirror });
    setShadersOf(disc("ceiling", 20), { mirror });
    set("GI_total_depth", 1000);
    set("GI_reflection_depth", 1000);
    prepare();
    takeProblems();
    EXPECT_EQ(describe(traced(down()).color), "0 1 0");
    EXPECT_EQ(calls(RV_CALL_PRIMARY), uint64_t(RvNodeGetInt(options(), "GI_total_depth")));
    EXPECT_EQ(takeProblem(), ""); // the shader is its own neighbour, and no circle
}

TEST_F(ShaderGlobals, shadows_count_their_shader_calls_apart)
{
    RtNode* const node = glass("d", 0, RV_RGB_WHITE);
    setShadersOf(node, { shader("s", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
                     sg->out_opacity = { 0.25f, 0.5f, 0.75f };
                 }) });
    prepare();
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "0.25 0.5 0.75");
    EXPECT_EQ(calls(RV_CALL_SHADOW), 1u);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 0u);
}

TEST_F(ShaderGlobals, the_background_runs_its_shader)
{
    RvNodeSetPtr(options(), "background", rgbShader("sky", { 0.25f, 0.5f, 1 }));
    prepare();
    EXPECT_EQ(describe(traced(down(), false).color), "0.25 0.5 1");
    EXPECT_EQ(calls(RV_CALL_BACKGROUND), 1u);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 0u);
    Context displaced;
    displaced->stage = RV_STAGE_DISPLACEMENT;
    EXPECT_EQ(describe(traced(down(RV_RAY_CAMERA, displaced), false).color), "0.25 0.5 1");
    EXPECT_EQ(calls(RV_CALL_BACKGROUND), 1u); // not counted from there
    RvNodeSetPtr(options(), "background", disc("no shader", 1e6f));
    EXPECT_EQ(describe(traced(rayFrom(-5), false).color), "0 0 0");
}

// ---- The atmosphere ----

TEST_F(ShaderGlobals, the_atmosphere_sees_the_segment_and_the_colour_that_arrives)
{
    RtNode* const node = disc("d", 4);
    setShadersOf(node, { rgbShader("s", { 0.5f, 0.25f, 1 }) });
    RtNode* const light = node_tools::named("point_light", "l");
    RtShaderGlobals seen;
    RvNodeSetPtr(options(), "atmosphere",
                 shader("fog", RV_TYPE_RGB, [&](RtNode*, RtShaderGlobals* sg) {
                     seen = *sg;
                     sg->out.RGB = { sg->out.RGB.r / 2, sg->out.RGB.g, 0 };
                 }));
    prepare();
    EXPECT_EQ(describe(traced(down()).color), "0.25 0.25 0");
    EXPECT_EQ(seen.stage, RV_STAGE_VOLUME);
    EXPECT_EQ(describe(seen.out.RGB), "0.5 0.25 1");
    EXPECT_EQ(seen.ray_length, 6);
    EXPECT_EQ(describe(seen.ray_origin), "0 0 10");
    EXPECT_EQ(seen.object, nullptr);
    ASSERT_EQ(seen.light_count, 1);
    EXPECT_EQ(seen.lights[0], light);
    EXPECT_EQ(calls(RV_CALL_ATMOSPHERE), 1u);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 1u);
}

TEST_F(ShaderGlobals, the_atmosphere_darkens_shadows_of_lights_that_allow_it)
{
    glass("d", 4, RV_RGB_BLACK);
    setShadersOf(RvNodeLookUpByName("d"),
                 { shader("s", RV_TYPE_RGB,
                          [](RtNode*, RtShaderGlobals* sg) { sg->out_opacity = RV_RGB_BLACK; }) });
    RvNodeSetPtr(options(), "atmosphere",
                 shader("fog", RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
                     sg->out.RGB = { sg->out.RGB.r / 2, sg->out.RGB.g, sg->out.RGB.b * 3 };
                 }));
    RtNode* const light = node_tools::named("point_light", "l");
    RtNode* const sun = node_tools::named("distant_light", "sun"); // has no say in volumes
    prepare();
    Context from;
    RtRay ray = down(RV_RAY_SHADOW, from);
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0"); // of no light
    ray.light_sample = const_cast<RtNode**>(&light);
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0.75 0 0"); // before and behind the disc
    ASSERT_TRUE(RvMessageSetBoolFunc(from, "volumetrics_off", true));
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
    ASSERT_TRUE(RvMessageSetBoolFunc(from, "volumetrics_off", false));
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0.75 0 0");
    RvNodeSetBool(light, "cast_volumetric_shadows", false);
    prepare();
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
    ray.light_sample = const_cast<RtNode**>(&sun);
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
}

// ---- Opacity ----

TEST_F(ShaderGlobals, opacity_is_decided_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("shading", "RvShaderGlobalsApplyOpacity")) {
        const json& in = v.at("in");
        set("auto_transparency_probabilistic",
            in.at("auto_transparency_probabilistic").get<bool>());
        set("auto_transparency_depth", in.at("auto_transparency_depth").get<int>());
        Context sg;
        const float accumulated = goldenFloat(in.at("accumulated"));
        sg.state.accumulated_opacity = { accumulated, accumulated, accumulated };
        sg.state.random[0] = goldenFloat(in.at("r1"));
        sg.state.random[1] = goldenFloat(in.at("r2"));
        sg->ray_type = in.at("ray_type").get<uint16_t>();
        sg->transparency_index = in.at("transparency_index").get<uint32_t>();
        const std::vector<float> o = goldenFloats(in.at("opacity"));
        expectGolden(v, "value", RvShaderGlobalsApplyOpacity(sg, { o[0], o[1], o[2] }));
        expectGoldenNumbers(v, "out_opacity",
                            { sg->out_opacity.r, sg->out_opacity.g, sg->out_opacity.b });
        expectGoldenNumbers(v, "r1", { sg.state.random[0] });
        expectGoldenNumbers(v, "r2", { sg.state.random[1] });
    }
}

TEST_F(ShaderGlobals, a_hit_is_kept_as_opaque_as_often_as_it_is_opaque)
{
    set("auto_transparency_probabilistic", true);
    int kept = 0, skipped = 0;
    for (int i = 0; i < 1000; ++i) {
        Context sg;
        sg.state.accumulated_opacity = RV_RGB_WHITE;
        sg.state.random[0] = 0.5f;
        sg.state.random[1] = (float(i) + 0.5f) / 1000;
        const bool is_skipped = RvShaderGlobalsApplyOpacity(sg, { 0.3f, 0.2f, 0.4f });
        EXPECT_EQ(describe(sg->out_opacity), is_skipped ? "0 0 0" : "1 1 1");
        (is_skipped ? skipped : kept) += 1;
        EXPECT_TRUE(sg.state.random[1] >= 0 && sg.state.random[1] < 1);
    }
    EXPECT_EQ(kept, 300);
    EXPECT_EQ(skipped, 700);
}

TEST_F(ShaderGlobals, opacity_is_just_set_where_nothing_is_decided)
{
    set("auto_transparency_probabilistic", true);
    Context sg;
    sg.state.accumulated_opacity = RV_RGB_WHITE;
    sg.state.random[1] = 0.9f;
    EXPECT_TRUE(RvShaderGlobalsApplyOpacity(sg, { 0.5f, 0.5f, 0.5f }));
    sg->ray_type = RV_RAY_SHADOW;
    EXPECT_FALSE(RvShaderGlobalsApplyOpacity(sg, { 0.5f, 0.5f, 0.5f }));
    EXPECT_EQ(describe(sg->out_opacity), "0.5 0.5 0.5");
    sg->ray_type = RV_RAY_CAMERA;
    EXPECT_FALSE(RvShaderGlobalsApplyOpacity(sg, { 1, 1, 1 }));
    set("auto_transparency_probabilistic", false);
    EXPECT_FALSE(RvShaderGlobalsApplyOpacity(sg, { 0.5f, 0.5f, 0.5f }));
    set("auto_transparency_probabilistic", true);
    sg->state = nullptr;
    EXPECT_FALSE(RvShaderGlobalsApplyOpacity(sg, { 0.5f, 0.5f, 0.5f }));
    EXPECT_FALSE(RvShaderGlobalsApplyOpacity(nullptr, { 0.5f, 0.5f, 0.5f }));
}

// ---- Trace sets and passes ----

TEST_F(ShaderGlobals, a_trace_set_stays_with_the_context_until_it_is_unset)
{
    Context sg;
    RvShaderGlobalsSetTraceSet(sg, "set", true);
    EXPECT_STREQ(sg->traceset, "set");
    EXPECT_TRUE(sg->traceset_inclusive);
    RvShaderGlobalsUnsetTraceSet(sg);
    EXPECT_EQ(sg->traceset, nullptr);
    EXPECT_TRUE(sg->traceset_inclusive); // the name alone goes
    RvShaderGlobalsSetTraceSet(nullptr, "set", true);
    RvShaderGlobalsUnsetTraceSet(nullptr);
}

TEST_F(ShaderGlobals, the_pass_of_point_clouds_is_told)
{
    Context sg;
    EXPECT_FALSE(RvShaderGlobalsFromSSS(sg));
    sg.state.pass = RV_PASS_SSS;
    EXPECT_TRUE(RvShaderGlobalsFromSSS(sg));
    sg.state.pass = RV_PASS_HAIR;
    EXPECT_FALSE(RvShaderGlobalsFromSSS(sg));
    sg->state = nullptr;
    EXPECT_FALSE(RvShaderGlobalsFromSSS(sg));
    EXPECT_FALSE(RvShaderGlobalsFromSSS(nullptr));
}
