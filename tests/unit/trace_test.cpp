// Tests of traces: what escapes and what is refused, shadows, probes, and what is counted. Objects
// stand one behind the other on the z axis; rays come down from above.
#include "trace.h"

#include "allocation_failures.h"
#include "array.h"
#include "thread_slot.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;

namespace {

class Traces : public Traced {
protected:
    // Ray types that are traced, each with its depth at 1.
    static constexpr int ray_types[] = { RV_RAY_CAMERA,    RV_RAY_SHADOW,  RV_RAY_REFLECTED,
                                         RV_RAY_REFRACTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY };

    static void setDepths(int depth)
    {
        for (const char* option : { "GI_total_depth", "GI_diffuse_depth", "GI_glossy_depth",
                                    "GI_reflection_depth", "GI_refraction_depth" })
            set(option, depth);
    }

    static std::string countsOf(RtRayRow row, RtPass pass = RV_PASS_PIXELS, int thread = 0)
    {
        const RtRayCount& count = rayStats(thread).rows[pass][row];
        return std::to_string(count.rays) + " rays, " + std::to_string(count.hits) + " hits, " +
               std::to_string(count.max_hits) + " at most";
    }

    static RtRGB rgbOf(const json& numbers)
    {
        const std::vector<float> v = goldenFloats(numbers);
        return { v.at(0), v.at(1), v.at(2) };
    }
    static std::vector<float> numbersOf(const RtRGB& c) { return { c.r, c.g, c.b }; }

    static bool isZero(const RtScrSample& sample)
    {
        static const RtScrSample zero = {};
        return describe(sample.color) == "0 0 0" && describe(sample.opacity) == "0 0 0" &&
               sample.alpha == 0 && describe(sample.point) == "0 0 0" && sample.z == 0 &&
               sample.obj == zero.obj && sample.face == 0;
    }
};

} // namespace

// ---- Misses ----

TEST_F(Traces, a_ray_before_any_render_escapes)
{
    disc("d", 0);
    const RtRay ray = down();
    const RtScrSample sample = traced(ray, false);
    EXPECT_EQ(sample.z, ray.maxdist);
    EXPECT_FALSE(RvTraceProbe(&ray, nullptr));
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
    EXPECT_TRUE(hitsOf(ray).empty());
}

TEST_F(Traces, without_a_universe_nothing_is_hit)
{
    const RtRay ray = down();
    TearDown();
    RtScrSample sample;
    RtShaderGlobals sg;
    RtRay unmade;
    RvMakeRay(&unmade, RV_RAY_CAMERA, &ray.origin, &ray.dir, 5, nullptr);
    EXPECT_FALSE(RvTrace(&ray, &sample));
    EXPECT_FALSE(RvTraceProbe(&ray, &sg));
    RvTraceBackground(&ray, &sample);
    EXPECT_EQ(sample.z, ray.maxdist);
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
    SetUp();
}

TEST_F(Traces, null_arguments_are_refused)
{
    const RtRay ray = down();
    RtScrSample sample;
    EXPECT_FALSE(RvTrace(nullptr, &sample));
    EXPECT_FALSE(RvTrace(&ray, nullptr));
    EXPECT_FALSE(RvTraceProbe(nullptr, nullptr));
    RvTraceBackground(nullptr, &sample);
    RvTraceBackground(&ray, nullptr);
}

TEST_F(Traces, an_escaped_ray_without_a_background_is_black_at_its_far_end)
{
    sphere("aside", { 50, 0, 0 }, 1);
    prepare();
    for (const char* mode : { "always", "shadow-only", "never" }) {
        set("auto_transparency_mode", mode);
        RtRay ray = down();
        ray.maxdist = 123.5;
        const RtScrSample sample = traced(ray, false);
        EXPECT_EQ(describe(sample.color), "0 0 0") << mode;
        EXPECT_EQ(describe(sample.opacity), "0 0 0") << mode;
        EXPECT_EQ(sample.alpha, 0) << mode;
        EXPECT_EQ(describe(sample.point), describe(RtPoint{ 1e30f, 1e30f, 1e30f })) << mode;
        EXPECT_EQ(sample.z, 123.5) << mode;
        EXPECT_EQ(sample.obj, nullptr) << mode;
        EXPECT_EQ(sample.face, 0u) << mode;
    }
    EXPECT_TRUE(shading().background_contexts.empty());
}

TEST_F(Traces, an_empty_scene_and_a_lost_root_are_never_hit)
{
    prepare();
    EXPECT_FALSE(isHit(down()));
    RvNodeDestroy(rv::the_frame->scene->root);
    EXPECT_FALSE(isHit(down()));
    traced(down(), false);
}

// ---- The background ----

TEST_F(Traces, the_background_shows_its_output_times_its_opacity)
{
    static const struct {
        int type;
        const char* color;
        float alpha_always, alpha_never;
    } cases[] = {
        { RV_TYPE_RGB, "0.25 0.125 0.25", 0.5f, 0 },
        { RV_TYPE_RGBA, "0.25 0.125 0.25", 0.75f, 0.75f },
        { RV_TYPE_FLOAT, "0.25 0.125 0.375", 0.5f, 0 },
        { RV_TYPE_VECTOR, "0 0 0", 0.5f, 0 },
        { RV_TYPE_NONE, "0 0 0", 0.5f, 0 },
    };
    setShader("background");
    prepare();
    for (const auto& c : cases)
        for (const bool always : { true, false }) {
            set("auto_transparency_mode", always ? "always" : "never");
            shading().background = {
                { 0.5f, 0.5f, 1.0f / 3 }, { 0.5f, 0.25f, 0.75f }, 0.75f, c.type
            };
            const RtScrSample sample = traced(down(), false);
            EXPECT_EQ(describe(sample.color), c.color) << c.type;
            EXPECT_EQ(describe(sample.opacity), "0.5 0.25 0.75") << c.type;
            EXPECT_EQ(sample.alpha, always ? c.alpha_always : c.alpha_never) << c.type;
        }
}

TEST_F(Traces, only_the_ray_types_of_background_visibility_see_the_background)
{
    setShader("background");
    setDepths(2);
    prepare();
    for (const int type : ray_types)
        for (const int visibility : { 0, type, 0xFFFF & ~type, 0xFFFF }) {
            set("background_visibility", visibility);
            const bool sees = visibility & type;
            const RtScrSample sample = traced(down(type), false);
            EXPECT_EQ(describe(sample.color), sees ? "1 1 1" : "0 0 0") << type;
            EXPECT_EQ(describe(sample.opacity), sees ? "1 1 1" : "0 0 0") << type;
            EXPECT_EQ(sample.alpha, sees) << type;
        }
}

TEST_F(Traces, the_background_is_shaded_in_a_context_of_its_ray)
{
    setShader("background");
    prepare();
    RtShadingState state = {};
    state.loop_samples = 9;
    state.loop_index = 4;
    state.pass = RV_PASS_HAIR;
    state.vertex_index = 7;
    RtShaderGlobals parent = cameraContext();
    parent.state = &state;
    parent.pixel_x = 11;
    const RtRay ray = down(RV_RAY_REFLECTED, &parent);
    RtScrSample sample;
    RvTraceBackground(&ray, &sample);
    ASSERT_EQ(shading().background_contexts.size(), 1u);
    const RtShaderGlobals& sg = shading().background_contexts.front();
    EXPECT_EQ(sg.stage, RV_STAGE_BACKGROUND);
    EXPECT_EQ(sg.parent, &parent);
    EXPECT_EQ(sg.pixel_x, 11);
    EXPECT_EQ(sg.ray_type, RV_RAY_REFLECTED);
    EXPECT_EQ(describe(sg.ray_origin), "0 0 10");
    EXPECT_EQ(describe(sg.ray_dir), "0 0 -1");
    EXPECT_EQ(sg.object, nullptr);
    EXPECT_EQ(describe(sg.out_opacity), "1 1 1");
    const RtShadingState& own = shading().background_states.front();
    EXPECT_EQ(own.pass, RV_PASS_HAIR);
    EXPECT_EQ(own.loop_samples, 9);
    EXPECT_EQ(own.loop_index, 4);
    EXPECT_EQ(own.vertex_index, 0u);
}

// ---- Refused rays ----

TEST_F(Traces, rays_beyond_a_depth_limit_are_refused)
{
    disc("d", 0);
    prepare();
    for (const json& v : goldenVectors("tracing", "RvTrace_refused")) {
        const json& in = v.at("in");
        for (const auto& [option, value] : in.at("options").items())
            set(option.c_str(), value.get<int>());
        RtRay ray = down(in.at("type"));
        const json& depths = in.at("depths");
        ray.level = depths.at("level");
        ray.reflection_depth = depths.at("reflection");
        ray.refraction_depth = depths.at("refraction");
        ray.diffuse_depth = depths.at("diffuse");
        ray.glossy_depth = depths.at("glossy");
        const bool refused = v.at("out").at("refused");
        EXPECT_EQ(rv::exceedsDepth(ray), refused) << goldenId(v);
        const RtScrSample sample = traced(ray, !refused);
        EXPECT_EQ(isZero(sample), refused) << goldenId(v);
    }
}

// Required: a depth equal to the limit is traced.
TEST_F(Traces, every_limit_holds_for_its_own_type_of_ray_alone)
{
    disc("d", 0);
    prepare();
    static const struct {
        const char* option;
        int type;
        uint8_t RtRay::*depth;
    } limits[] = {
        { "GI_diffuse_depth", RV_RAY_DIFFUSE, &RtRay::diffuse_depth },
        { "GI_glossy_depth", RV_RAY_GLOSSY, &RtRay::glossy_depth },
        { "GI_reflection_depth", RV_RAY_REFLECTED, &RtRay::reflection_depth },
        { "GI_refraction_depth", RV_RAY_REFRACTED, &RtRay::refraction_depth },
    };
    for (const auto& limit : limits)
        for (const int type : ray_types) {
            setDepths(100);
            set(limit.option, 3);
            for (const int depth : { 3, 4 }) {
                RtRay ray = down(type);
                ray.*limit.depth = uint8_t(depth);
                traced(ray, !(type == limit.type && depth > 3));
            }
        }
    setDepths(100);
    set("GI_total_depth", 5);
    for (const int type : ray_types)
        for (const int level : { 5, 6 }) {
            RtRay ray = down(type);
            ray.level = uint8_t(level);
            traced(ray, level == 5);
        }
}

TEST_F(Traces, the_third_reflection_is_black_by_default)
{
    disc("d", 0);
    prepare();
    RtShaderGlobals sg = cameraContext();
    sg.ray_depth = sg.reflection_depth = 1;
    traced(down(RV_RAY_REFLECTED, &sg), true);
    sg.ray_depth = sg.reflection_depth = 2;
    EXPECT_EQ(down(RV_RAY_REFLECTED, &sg).reflection_depth, 3);
    EXPECT_TRUE(isZero(traced(down(RV_RAY_REFLECTED, &sg), false)));
    EXPECT_EQ(namesShaded(), Names{ "d" });
}

TEST_F(Traces, refused_rays_are_not_counted_and_see_no_background)
{
    disc("d", 0);
    setShader("background");
    prepare();
    EXPECT_TRUE(isZero(traced(down(RV_RAY_DIFFUSE), false)));
    RtShaderGlobals background = cameraContext();
    background.stage = RV_STAGE_BACKGROUND;
    EXPECT_TRUE(isZero(traced(down(RV_RAY_CAMERA, &background), false)));
    EXPECT_EQ(countsOf(RV_ROW_TOTAL), "0 rays, 0 hits, 0 at most");
    EXPECT_EQ(rayStats().max_depth, 0u);
    EXPECT_TRUE(shading().background_contexts.empty());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Traces, backgrounds_and_shadows_may_not_trace)
{
    disc("d", 0);
    prepare();
    for (int stage = RV_STAGE_SURFACE; stage <= RV_STAGE_DISPLACEMENT; ++stage) {
        RtShaderGlobals sg = cameraContext();
        sg.stage = uint8_t(stage);
        traced(down(RV_RAY_REFLECTED, &sg), stage != RV_STAGE_BACKGROUND);
    }
    RtShaderGlobals shadowed = cameraContext();
    shadowed.ray_type = RV_RAY_SHADOW;
    EXPECT_TRUE(isZero(traced(down(RV_RAY_REFLECTED, &shadowed), false)));
    const RtShaderGlobals sg = cameraContext();
    traced(down(RV_RAY_SHADOW, &sg), true);
}

class TracesDeath : public Traces {
protected:
    // Death tests look at the standard error stream.
    static void showFatalMessages()
    {
        RvMsgSetCallback([](int, int severity, const char* text, int) {
            if (severity == 3)
                fprintf(stderr, "fatal: %s\n", text);
        });
    }
};

TEST_F(TracesDeath, a_direction_that_is_not_finite_is_fatal)
{
    RtNode* const object = disc("d", 0);
    prepare();
    showFatalMessages();
    RtShaderGlobals sg = contextOn(object);
    sg.shader = node_tools::named("standard", "red");
    sg.pixel_x = 7;
    sg.pixel_y = -8;
    sg.ray_depth = 2;
    static const char* const stages[] = { "surface", "volume", "background", "displacement" };
    for (const float bad : { NAN, INFINITY, -INFINITY })
        for (float RtVector::*axis : { &RtVector::x, &RtVector::y, &RtVector::z })
            for (int stage = 0; stage<4; stage += bad> 0 ? 1 : 4) {
                sg.stage = uint8_t(stage);
                RtRay ray = down(RV_RAY_GLOSSY, &sg);
                ray.dir.*axis = bad;
                RtScrSample sample;
                EXPECT_DEATH(RvTrace(&ray, &sample),
                             std::string("fatal: corrupt ray! type=64, level=3, pixel=\\(7,-8\\), "
                                         "node=d, shader=red: ") +
                                 stages[stage]);
            }
}

TEST_F(TracesDeath, the_message_leaves_out_what_the_ray_does_not_know)
{
    prepare();
    showFatalMessages();
    RtRay ray = down();
    ray.dir.x = NAN;
    RtScrSample sample;
    const char* const message =
        "fatal: corrupt ray! type=1, level=1, pixel=\\(0,0\\), node=, shader=: ";
    EXPECT_DEATH(RvTrace(&ray, &sample), message);
    EXPECT_DEATH(RvTraceProbe(&ray, nullptr), message);
    EXPECT_DEATH(rv::traceShadow(ray), message);
}

TEST_F(Traces, a_corrupt_ray_hits_nothing_when_errors_are_shown_nowhere)
{
    disc("d", 0);
    prepare();
    RvMsgSetConsoleFlags(0);
    RtRay ray = down();
    ray.dir = { NAN, NAN, NAN };
    EXPECT_TRUE(isZero(traced(ray, false)));
    EXPECT_FALSE(isHit(ray));
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0 0 0");
    EXPECT_EQ(countsOf(RV_ROW_TOTAL), "0 rays, 0 hits, 0 at most");
}

TEST_F(Traces, rays_with_odd_distances_hit_nothing_they_should_not)
{
    disc("d", 0);
    prepare();
    RtRay ray = down();
    static const struct {
        double mindist, maxdist;
        bool hit;
    } cases[] = { { 0, 10.5, true },    { 0, 9.5, false },    { 10.5, 1e30, false },
                  { 9.5, 1e300, true }, { 0, -5, false },     { NAN, 1e30, false },
                  { 0, NAN, false },    { 0, INFINITY, true } };
    for (const auto& c : cases) {
        ray.mindist = c.mindist;
        ray.maxdist = c.maxdist;
        EXPECT_EQ(isHit(ray), c.hit) << c.mindist << " " << c.maxdist;
    }
    ray = down();
    ray.dir = { 0, 0, 0 };
    EXPECT_FALSE(isHit(ray));
    ray = down();
    ray.origin = { NAN, 0, 0 };
    EXPECT_FALSE(isHit(ray));
}

// ---- Shadows ----

TEST_F(Traces, shadows_add_up_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("tracing", "shadow_composite")) {
        startAnew();
        const json& in = v.at("in");
        for (size_t i = 0; i < in.at("opacities").size(); ++i) {
            const std::string name = std::to_string(i);
            glass(name.c_str(), float(-int(i)), rgbOf(in.at("opacities")[i]));
            RvNodeSetBool(RvNodeLookUpByName(name.c_str()), "opaque", in.at("opaque")[i]);
        }
        set("auto_transparency_threshold", goldenFloat(in.at("threshold")));
        prepare();
        const RtShaderGlobals sg = cameraContext();
        for (const RtShaderGlobals* context : { static_cast<const RtShaderGlobals*>(nullptr), &sg })
            expectGoldenNumbers(v, "opacity",
                                numbersOf(rv::traceShadow(down(RV_RAY_SHADOW, context))));
    }
}

TEST_F(Traces, a_shadow_ends_where_no_light_is_left)
{
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    glass("b", 4, { 0.985f, 0.985f, 0.985f });
    glass("c", 3, { 0.5f, 0.5f, 0.5f });
    prepare();
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "1 1 1"); // beyond 0.99
    EXPECT_EQ(namesShaded(), (Names{ "a", "b" }));
    shading().contexts.clear();
    shading().looks["a"].opacity = { 1, 1, 1 };
    set("auto_transparency_threshold", 2.0f);
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "1 1 1");
    EXPECT_EQ(namesShaded(), Names{ "a" }) << "full opacity ends it whatever the threshold";
}

TEST_F(Traces, only_the_first_hit_casts_a_shadow_without_transparency)
{
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    disc("wall", 4);
    prepare();
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "1 1 1");
    set("auto_transparency_mode", "never");
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "0.5 0.5 0.5");
}

TEST_F(Traces, shadow_rays_have_no_depth_limit)
{
    disc("wall", 4);
    prepare();
    RtRay ray = down(RV_RAY_SHADOW);
    ray.level = 200;
    EXPECT_EQ(describe(rv::traceShadow(ray)), "1 1 1");
    EXPECT_EQ(rayStats().max_depth, 200u);
}

// ---- Probes ----

TEST_F(Traces, a_probe_describes_the_nearest_hit_without_shading_it)
{
    glass("glass", 5, { 0, 0, 0 });
    disc("wall", 0);
    prepare();
    const RtRay ray = down(RV_RAY_DIFFUSE);
    EXPECT_TRUE(RvTraceProbe(&ray, nullptr));
    RtShaderGlobals sg;
    memset(static_cast<void*>(&sg), 0x55, sizeof sg); // nothing of it may be believed
    EXPECT_TRUE(RvTraceProbe(&ray, &sg));
    EXPECT_STREQ(RvNodeGetName(sg.object), "glass");
    EXPECT_EQ(sg.ray_length, 5);
    EXPECT_EQ(describe(sg.point), "0 0 5");
    EXPECT_EQ(describe(sg.normal), "0 0 1");
    EXPECT_EQ(describe(sg.out_opacity), "1 1 1");
    EXPECT_EQ(sg.state, nullptr);
    EXPECT_EQ(sg.stage, RV_STAGE_SURFACE);
    EXPECT_TRUE(shading().contexts.empty());
    RtRay miss = down();
    miss.dir.z = 1;
    sg.pixel_x = 99;
    EXPECT_FALSE(RvTraceProbe(&miss, &sg));
    EXPECT_EQ(sg.pixel_x, 99) << "a miss writes nothing";
}

TEST_F(Traces, a_probe_may_write_into_the_context_its_ray_comes_from)
{
    disc("wall", 0);
    prepare();
    RtShaderGlobals camera = cameraContext();
    RtShadingState state = {};
    state.pass = RV_PASS_SSS;
    RtShaderGlobals sg = contextOn(RvNodeLookUpByName("wall"));
    sg.parent = &camera;
    sg.state = &state;
    sg.prim_index = 5;
    const RtRay ray = down(RV_RAY_CAMERA, &sg);
    ASSERT_TRUE(RvTraceProbe(&ray, &sg));
    EXPECT_EQ(sg.parent, &camera) << "not itself";
    ASSERT_NE(sg.state, nullptr);
    EXPECT_NE(sg.state, &state);
    EXPECT_EQ(sg.state->pass, RV_PASS_SSS);
    EXPECT_EQ(describe(sg.point), "0 0 0");
}

TEST_F(Traces, depth_limits_and_stages_do_not_concern_probes)
{
    disc("wall", 0);
    prepare();
    setDepths(0);
    RtShaderGlobals sg = cameraContext();
    sg.stage = RV_STAGE_BACKGROUND;
    sg.ray_depth = 100;
    EXPECT_TRUE(isHit(down(RV_RAY_REFLECTED, &sg)));
    EXPECT_EQ(rayStats().max_depth, 0u) << "that of traced rays";
}

// ---- Statistics ----

TEST_F(Traces, rays_of_every_kind_are_counted_with_their_hits)
{
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    glass("b", 4, { 0.5f, 0.5f, 0.5f });
    prepare();
    setDepths(10);
    EXPECT_EQ(countsOf(RV_ROW_TOTAL), "0 rays, 0 hits, 0 at most");
    traced(down(RV_RAY_CAMERA));
    traced(down(RV_RAY_GLOSSY));
    RtRay miss = down(RV_RAY_GLOSSY);
    miss.dir.z = 1;
    traced(miss, false);
    isHit(down(RV_RAY_DIFFUSE));
    isHit(down(RV_RAY_DIFFUSE));
    rv::traceShadow(down(RV_RAY_SHADOW));
    RtShaderGlobals sg = cameraContext();
    sg.stage = RV_STAGE_VOLUME;
    rv::traceShadow(down(RV_RAY_SHADOW, &sg));
    EXPECT_EQ(countsOf(RV_ROW_CAMERA), "1 rays, 2 hits, 2 at most");
    EXPECT_EQ(countsOf(RV_ROW_GLOSSY), "2 rays, 2 hits, 2 at most");
    EXPECT_EQ(countsOf(RV_ROW_DIFFUSE), "2 rays, 2 hits, 1 at most");
    EXPECT_EQ(countsOf(RV_ROW_SHADOW), "1 rays, 2 hits, 2 at most");
    EXPECT_EQ(countsOf(RV_ROW_VOLUME_SHADOW), "1 rays, 2 hits, 2 at most");
    EXPECT_EQ(countsOf(RV_ROW_REFLECTION), "0 rays, 0 hits, 0 at most");
    EXPECT_EQ(countsOf(RV_ROW_TOTAL), "7 rays, 10 hits, 2 at most");
}

TEST_F(Traces, rays_are_counted_for_the_pass_and_thread_they_come_from)
{
    disc("wall", 0);
    prepare();
    RtShadingState state = {};
    state.pass = RV_PASS_SSS;
    RtShaderGlobals sg = cameraContext();
    sg.state = &state;
    sg.thread_index = 2;
    traced(down(RV_RAY_CAMERA, &sg));
    EXPECT_EQ(countsOf(RV_ROW_TOTAL, RV_PASS_SSS, 2), "1 rays, 1 hits, 1 at most");
    EXPECT_EQ(countsOf(RV_ROW_TOTAL, RV_PASS_PIXELS, 2), "0 rays, 0 hits, 0 at most");
    EXPECT_EQ(countsOf(RV_ROW_TOTAL, RV_PASS_SSS, 0), "0 rays, 0 hits, 0 at most");
}

TEST_F(Traces, the_deepest_traced_level_is_noted)
{
    disc("wall", 0);
    prepare();
    for (const int level : { 3, 7, 5 }) {
        RtRay ray = down();
        ray.level = uint8_t(level);
        traced(ray);
    }
    EXPECT_EQ(rayStats().max_depth, 7u);
}

// ---- Robustness ----

TEST_F(Traces, threads_beyond_the_slots_trace_in_the_last_one)
{
    RtNode* const object = glass("g", 0, { 0.5f, 0.5f, 0.5f });
    shape_fixture::setMatrices(
        object, { shape_fixture::translation(0, 0, -1), shape_fixture::translation(0, 0, 1) });
    prepare();
    for (const int tid : { 63, 64, 255 }) {
        RtRay ray = down();
        ray.tid = uint8_t(tid);
        traced(ray);
        EXPECT_EQ(shading().contexts.back().thread_index, 63);
        ray.type = RV_RAY_SHADOW;
        rv::traceShadow(ray);
        EXPECT_TRUE(isHit(ray));
    }
    EXPECT_EQ(countsOf(RV_ROW_TOTAL, RV_PASS_PIXELS, 63), "9 rays, 9 hits, 1 at most");
}

TEST_F(Traces, a_trace_leaves_the_scratch_memory_as_it_found_it)
{
    RtNode* const object = glass("g", 0, { 0.5f, 0.5f, 0.5f });
    shape_fixture::setMatrices(
        object, { shape_fixture::translation(0, 0, -1), shape_fixture::translation(0, 0, 1) });
    prepare();
    const RtMemPool& pool = *rv::the_frame->thread_slots[0].pools[0];
    const RtMemPool& shading_pool = *rv::the_frame->thread_slots[0].shading_pool;
    traced(down());
    const char* const cursor = pool.current->cursor;
    const char* const shading_cursor = shading_pool.current->cursor;
    RtShaderGlobals sg;
    RtRay miss = down();
    miss.dir.z = 1;
    for (int i = 0; i < 10; ++i) {
        traced(down());
        traced(miss, false);
        traced(down(RV_RAY_DIFFUSE), false);
        rv::traceShadow(down(RV_RAY_SHADOW));
        const RtRay ray = down();
        RvTraceProbe(&ray, &sg);
    }
    EXPECT_EQ(pool.current->cursor, cursor);
    EXPECT_EQ(pool.mark_top, -1);
    EXPECT_EQ(shading_pool.current->cursor, shading_cursor);
}

TEST_F(Traces, a_shader_may_trace_on)
{
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    glass("b", 4, { 0.5f, 0.5f, 0.5f });
    disc("wall", 0);
    prepare();
    setDepths(6);
    static std::vector<int> levels;
    levels.clear();
    hooks->hooks.shadeSurface = [](RtShaderGlobals* sg) -> int {
        levels.push_back(sg->ray_depth);
        const RtRay ray = down(RV_RAY_REFLECTED, sg);
        RtScrSample sample;
        sg->out.RGB = RvTrace(&ray, &sample) ? sample.color : RV_RGB_WHITE;
        sg->out_opacity = { 0.5f, 0.5f, 0.5f };
        return RV_TYPE_RGB;
    };
    RtShaderGlobals camera = cameraContext();
    RtRay ray = down(RV_RAY_CAMERA, &camera);
    const float color = traced(ray).color.r;
    EXPECT_TRUE(color > 0.25f && color < 1) << color; // the wall sees black beyond the glass
    EXPECT_EQ(*std::max_element(levels.begin(), levels.end()), 6);
    EXPECT_EQ(rv::the_frame->thread_slots[0].pools[0]->mark_top, -1);
}

TEST_F(Traces, without_scratch_memory_rays_escape)
{
    for (int i = 0; i < 3; ++i)
        glass(node_tools::formatted("g%d", i).c_str(), float(-i), { 0.5f, 0.5f, 0.5f });
    prepare();
    traced(down()); // what is built once is there
    set("auto_transparency_depth", 1 << 20);
    RtMemPool* const pool = rv::the_frame->thread_slots[0].pools[0];
    pool->current->end = pool->current->cursor; // full, and no more to be had
    withAllocations(0, [&] { traced(down(), false); });
    EXPECT_NE(takeProblem().find("allocate"), std::string::npos);
}

TEST_F(Traces, several_threads_may_trace_at_once)
{
    RtNode* const object = glass("g", 0, { 0.5f, 0.5f, 0.5f });
    shape_fixture::setMatrices(
        object, { shape_fixture::translation(0, 0, -1), shape_fixture::translation(0, 0, 1) });
    disc("wall", -5);
    prepare();
    hooks->hooks.shadeSurface = [](RtShaderGlobals* sg) -> int {
        sg->out.FLT = float(sg->ray_length);
        sg->out_opacity = { 0.5f, 0.5f, 0.5f };
        return RV_TYPE_FLOAT;
    };
    std::vector<float> results(8);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < results.size(); ++t)
        threads.emplace_back([&results, t] {
            RtRay ray = down();
            ray.tid = uint8_t(t);
            for (int i = 0; i < 200; ++i) {
                ray.time = float(i % 10) / 10;
                RtScrSample sample;
                RvTrace(&ray, &sample);
                results[t] += sample.color.r;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (unsigned t = 0; t < results.size(); ++t) {
        EXPECT_EQ(results[t], results[0]);
        EXPECT_EQ(countsOf(RV_ROW_TOTAL, RV_PASS_PIXELS, int(t)), "200 rays, 400 hits, 2 at most");
    }
}
