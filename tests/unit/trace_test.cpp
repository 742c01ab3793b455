// Tests of traces: which objects a ray meets, what becomes of their shaded hits, and what is
// counted. Objects stand one behind the other on the z axis; rays come down from above.
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

// ---- Which objects are hit ----

TEST_F(Traces, visibility_chooses_the_ray_types_that_meet_an_object)
{
    for (const int visibility : { 0, 0x01, 0x02, 0x6C, 0xFFFE, 0xFFFF }) {
        startAnew();
        RvNodeSetInt(disc("d", 0), "visibility", visibility);
        prepare();
        for (int bit = 0; bit < 16; ++bit) {
            RtRay ray = down();
            ray.type = uint16_t(1 << bit);
            EXPECT_EQ(isHit(ray), (visibility >> bit & 1) != 0) << visibility << " " << bit;
        }
    }
}

TEST_F(Traces, one_sided_objects_are_met_from_the_side_of_their_normal)
{
    for (const bool inverted : { false, true }) {
        startAnew();
        RtNode* const object = disc("d", 0);
        RvNodeSetInt(object, "sidedness", 0xFFFF & ~RV_RAY_CAMERA);
        RvNodeSetBool(object, "invert_normals", inverted);
        RtMatrix mirror = shape_fixture::scaling(1, 1, -1);
        mirror.m[3][0] = 5;
        shape_fixture::setMatrices(object, { RV_M4_IDENTITY });
        instanceOf(object, "mirrored", mirror);
        prepare();
        for (const bool is_mirrored : { false, true })
            for (const bool from_below : { false, true })
                for (const int type : { RV_RAY_CAMERA, RV_RAY_REFLECTED }) {
                    RtRay ray = down(type);
                    ray.origin = { is_mirrored ? 5.0f : 0.0f, 0, from_below ? -10.0f : 10.0f };
                    ray.dir.z = from_below ? 1.0f : -1.0f;
                    const bool is_back = (from_below != inverted) != is_mirrored;
                    EXPECT_EQ(isHit(ray), type != RV_RAY_CAMERA || !is_back)
                        << inverted << is_mirrored << from_below << type;
                }
    }
}

TEST_F(Traces, members_of_an_instanced_list_keep_their_own_inversion)
{
    RtNode* const member = disc("d", 0);
    RvNodeSetBool(member, "invert_normals", true);
    RtNode* const group = groupOf("group", { member });
    RvNodeSetInt(group, "sidedness", 0);
    instanceOf(group, "copy", shape_fixture::translation(5, 0, 0));
    prepare();
    RtRay ray = down();
    ray.origin.x = 5;
    EXPECT_FALSE(isHit(ray));
    ray.origin.z = -10;
    ray.dir.z = 1;
    EXPECT_TRUE(isHit(ray));
    RtShaderGlobals sg;
    ASSERT_TRUE(RvTraceProbe(&ray, &sg));
    EXPECT_EQ(describe(sg.normal), "-0 -0 -1");
}

TEST_F(Traces, a_trace_set_admits_its_members_or_everybody_else)
{
    for (const json& v : goldenVectors("tracing", "trace_set_accepts")) {
        startAnew();
        const json& in = v.at("in");
        RtNode* const object = disc("d", 0);
        setTraceSets(object, in.at("object_sets").get<Names>());
        prepare();
        json hashes = json::array();
        for (size_t i = 0; i < in.at("object_sets").size(); ++i)
            hashes.push_back(rv::objectOf(object)->traceset_hashes[i]);
        expectGolden(v, "hashes", hashes);
        RtShaderGlobals sg = cameraContext();
        const std::string set =
            in.at("ray_set").is_null() ? "" : in.at("ray_set").get<std::string>();
        RvShaderGlobalsSetTraceSet(&sg, in.at("ray_set").is_null() ? nullptr : set.c_str(),
                                   in.at("inclusive"));
        expectGolden(v, "tested", isHit(down(RV_RAY_CAMERA, &sg)));
    }
}

TEST_F(Traces, an_empty_name_is_no_trace_set)
{
    setTraceSets(disc("d", 0), { "a" });
    prepare();
    RtRay ray = down();
    for (const bool inclusive : { false, true }) {
        ray.traceset = "";
        ray.inclusive_traceset = inclusive;
        EXPECT_TRUE(isHit(ray));
    }
}

TEST_F(Traces, lists_do_not_hide_the_trace_sets_of_their_members)
{
    RtNode* const a = disc("a", 2);
    RtNode* const b = disc("b", 0);
    setTraceSets(a, { "tall", "x" });
    setTraceSets(b, { "short" });
    RtNode* const group = groupOf("group", { a, b });
    instanceOf(group, "copy", shape_fixture::translation(5, 0, 0));
    prepare();
    RtShaderGlobals sg;
    for (const float x : { 0.0f, 5.0f }) {
        RtRay ray = down();
        ray.origin.x = x;
        static const struct {
            const char* set;
            bool inclusive;
            const char* hit;
        } cases[] = { { "x", true, "a" },
                      { "short", true, "b" },
                      { "y", true, nullptr },
                      { "tall", false, "b" },
                      { "y", false, "a" } };
        for (const auto& c : cases) {
            ray.traceset = c.set;
            ray.inclusive_traceset = c.inclusive;
            ASSERT_EQ(RvTraceProbe(&ray, &sg), c.hit != nullptr) << c.set;
            if (c.hit) {
                EXPECT_STREQ(RvNodeGetName(sg.object), c.hit) << c.set << x;
            }
        }
    }
}

TEST_F(Traces, an_instance_may_have_trace_sets_of_its_own)
{
    RtNode* const object = disc("d", 0);
    setTraceSets(object, { "a" });
    RtNode* const instance = instanceOf(object, "i", shape_fixture::translation(5, 0, 0));
    setTraceSets(instance, { "b" });
    prepare();
    RtRay ray = down();
    ray.inclusive_traceset = true;
    for (const float x : { 0.0f, 5.0f })
        for (const char* set : { "a", "b" }) {
            ray.origin.x = x;
            ray.traceset = set;
            EXPECT_EQ(isHit(ray), (x == 0) == (*set == 'a')) << x << set;
        }
}

TEST_F(Traces, a_shadow_group_names_the_lights_an_object_hides)
{
    RtNode* const grouped = disc("d", 0);
    RtNode* const sun = node_tools::named("standard", "sun");
    RtNode* const moon = node_tools::named("standard", "moon");
    RvNodeSetBool(grouped, "use_shadow_group", true);
    RvNodeSetArray(grouped, "shadow_group", shape_fixture::nodeArray({ sun }));
    RtNode* const instance = instanceOf(grouped, "i", shape_fixture::translation(5, 0, 0));
    RvNodeSetArray(instance, "shadow_group", shape_fixture::nodeArray({ moon }));
    prepare();
    for (const float x : { 0.0f, 5.0f })
        for (RtNode* light : { sun, moon, static_cast<RtNode*>(nullptr) })
            for (const int type : { RV_RAY_SHADOW, RV_RAY_CAMERA }) {
                RtRay ray = down(type);
                ray.origin.x = x;
                ray.light_sample = light ? &light : nullptr;
                const bool is_listed = light == (x == 0 ? sun : moon);
                EXPECT_EQ(isHit(ray), type != RV_RAY_SHADOW || !light || is_listed)
                    << x << " " << (light ? RvNodeGetName(light) : "none") << " " << type;
            }
}

TEST_F(Traces, an_unused_or_empty_shadow_group_is_told_apart)
{
    RtNode* const unused = disc("d", 0);
    RtNode* const light = node_tools::named("standard", "sun");
    RvNodeSetArray(unused, "shadow_group", shape_fixture::nodeArray({ light, light }));
    RtNode* const empty = disc("e", -1);
    RvNodeSetBool(empty, "use_shadow_group", true);
    prepare();
    RtNode* const other = node_tools::named("standard", "moon");
    RtRay ray = down(RV_RAY_SHADOW);
    ray.light_sample = const_cast<RtNode**>(&other);
    EXPECT_EQ(firstHit(ray), "d");
    ray.origin.z = -0.5f;
    EXPECT_EQ(firstHit(ray), "");
    ray.type = RV_RAY_CAMERA;
    EXPECT_EQ(firstHit(ray), "e");
}

TEST_F(Traces, without_self_shadows_an_object_does_not_hide_the_light_from_itself)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RvNodeSetBool(ball, "self_shadows", false);
    RtNode* const left = instanceOf(ball, "left", shape_fixture::translation(0, 0, -3));
    RtNode* const right = instanceOf(ball, "right", shape_fixture::translation(0, 0, -6));
    prepare();
    const auto hit = [&](int type, RtNode* object, RtNode* instance, float z) {
        RtShaderGlobals sg = contextOn(object, instance, 1); // not the primitive itself
        RtRay ray = rayFrom(z, type, &sg);
        ray.maxdist = 1.5; // short of the next one
        return firstHit(ray);
    };
    // From the middle of each of the three.
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, nullptr, 0), "");
    EXPECT_EQ(hit(RV_RAY_REFLECTED, ball, nullptr, 0), "ball");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, left, -3), "");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, right, -6), "");
    EXPECT_EQ(hit(RV_RAY_REFRACTED, ball, right, -6), "right");
    // Another place of the same shape hides the light.
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, nullptr, -3), "left");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, left, 0), "ball");
    EXPECT_EQ(hit(RV_RAY_SHADOW, ball, right, 0), "ball");
}

TEST_F(Traces, self_shadows_matter_to_rays_from_surfaces_only)
{
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    RvNodeSetBool(ball, "self_shadows", false);
    prepare();
    for (int stage = RV_STAGE_SURFACE; stage <= RV_STAGE_DISPLACEMENT; ++stage) {
        RtShaderGlobals sg = contextOn(ball, nullptr, 1);
        sg.stage = uint8_t(stage);
        EXPECT_EQ(isHit(rayFrom(0, RV_RAY_SHADOW, &sg)), stage != RV_STAGE_SURFACE) << stage;
    }
}

TEST_F(Traces, a_ray_does_not_meet_the_primitive_it_leaves)
{
    RtNode* const object = polygons(
        { { -1, -1, 0 }, { 1, -1, 0 }, { 0, 1, 0 }, { -1, -1, -1 }, { 1, -1, -1 }, { 0, 1, -1 } },
        { { 0, 1, 2 }, { 3, 4, 5 } });
    RtNode* const copy = instanceOf(object, "copy", shape_fixture::translation(0, 0, -5));
    prepare();
    static const struct {
        bool from_copy;
        uint32_t prim;
        float z; // of the first hit
    } cases[] = { { false, 0, -1 }, { false, 1, 0 }, { true, 0, 0 }, { false, 2, 0 } };
    for (const auto& c : cases) {
        RtShaderGlobals sg = contextOn(object, c.from_copy ? copy : nullptr, c.prim);
        const std::vector<RtHit> hits = hitsOf(down(RV_RAY_REFLECTED, &sg));
        ASSERT_EQ(hits.size(), 1u);
        EXPECT_EQ(hits[0].t, 10 - c.z) << c.from_copy << c.prim;
    }
    RtShaderGlobals sg = contextOn(object, copy, 0);
    EXPECT_EQ(hitsOf(rayFrom(-4, RV_RAY_REFLECTED, &sg)).at(0).t, 2);
    sg.stage = RV_STAGE_VOLUME;
    EXPECT_EQ(hitsOf(rayFrom(-4, RV_RAY_REFLECTED, &sg)).at(0).t, 1);
}

TEST_F(Traces, an_object_that_is_hidden_after_a_render_is_missed)
{
    RtNode* const object = disc("d", 0);
    disc("e", -1);
    prepare();
    EXPECT_EQ(firstHit(down()), "d");
    RvNodeDestroy(object);
    EXPECT_EQ(firstHit(down()), "e");
}

// ---- Hits in order ----

TEST_F(Traces, transparent_hits_are_kept_up_to_the_first_opaque_one)
{
    // In an order that is not that of the distance.
    glass("b", 3, { 0.5f, 0.5f, 0.5f });
    disc("behind", -1);
    disc("wall", 0);
    glass("c", 1, { 0.5f, 0.5f, 0.5f });
    glass("hidden", -2, { 0.5f, 0.5f, 0.5f });
    glass("a", 5, { 0.5f, 0.5f, 0.5f });
    prepare();
    const Names all = { "a", "b", "c", "wall" };
    EXPECT_EQ(namesHit(down(), 11), all);
    EXPECT_EQ(namesHit(down(), 4), all);
    EXPECT_EQ(namesHit(down(), 3), (Names{ "a", "b", "c" }));
    EXPECT_EQ(namesHit(down(), 1), Names{ "a" });
}

TEST_F(Traces, an_opaque_object_in_front_is_the_only_hit)
{
    disc("wall", 5);
    glass("a", 3, { 0.5f, 0.5f, 0.5f });
    glass("b", 1, { 0.5f, 0.5f, 0.5f });
    prepare();
    EXPECT_EQ(namesHit(down()), Names{ "wall" });
}

TEST_F(Traces, the_mode_and_depth_of_transparency_limit_the_hits)
{
    for (int i = 0; i < 14; ++i)
        glass(node_tools::formatted("g%d", i).c_str(), float(-i), { 0.01f, 0.01f, 0.01f });
    prepare();
    static const struct {
        const char* mode;
        int depth;
        uint64_t seen, shadowed;
    } cases[] = {
        { "always", 10, 11, 11 },
        { "always", 0, 1, 1 },
        { "always", -5, 1, 1 },
        { "always", 2, 3, 3 },
        { "never", 10, 1, 1 },
        { "shadow-only", 10, 1, 11 },
        { "always", 0x7FFFFFFF, 14, 14 },
        { "always", 100000000, 14, 14 },
    };
    for (const auto& c : cases) {
        set("auto_transparency_mode", c.mode);
        set("auto_transparency_depth", c.depth);
        rayStats() = {};
        traced(down());
        EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_CAMERA].hits, c.seen) << c.mode << c.depth;
        rv::traceShadow(down(RV_RAY_SHADOW));
        EXPECT_EQ(rayStats().rows[RV_PASS_PIXELS][RV_ROW_SHADOW].hits, c.shadowed)
            << c.mode << c.depth;
    }
}

TEST_F(Traces, opaque_objects_first_finds_what_one_pass_finds)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    disc("wall", 0);
    glass("hidden", -2, { 0.5f, 0.5f, 0.5f });
    RtNode* const inner_glass = glass("inner", 3, { 0.5f, 0.5f, 0.5f });
    RtNode* const inner_wall = disc("inner_wall", -1);
    groupOf("group", { inner_glass, inner_wall });
    RtNode* const group = RvNodeLookUpByName("group");
    RvNodeSetBool(group, "opaque", false); // lists are always entered
    prepare();
    for (const uint32_t capacity : { 1u, 2u, 3u, 11u }) {
        set("trace_opaque_first", false);
        const Names want = namesHit(down(), capacity);
        set("trace_opaque_first", true);
        EXPECT_EQ(namesHit(down(), capacity), want) << capacity;
    }
    EXPECT_EQ(namesHit(down()), (Names{ "front", "inner", "wall" }));
}

TEST_F(Traces, shadow_rays_that_met_an_opaque_object_need_no_second_pass)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    disc("wall", 0);
    prepare();
    set("trace_opaque_first", true);
    RtShaderGlobals sg = cameraContext();
    EXPECT_EQ(namesHit(down(RV_RAY_SHADOW, &sg)), Names{ "wall" });
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW, &sg))), "1 1 1");
    EXPECT_TRUE(shading().contexts.empty()) << "the glass is not even shaded";
    RtRay short_ray = down(RV_RAY_SHADOW, &sg);
    short_ray.maxdist = 8;
    EXPECT_EQ(namesHit(short_ray), Names{ "front" });
    EXPECT_EQ(describe(rv::traceShadow(short_ray)), "0.5 0.5 0.5");
}

TEST_F(Traces, a_probe_meets_glass_with_opaque_objects_first)
{
    glass("front", 5, { 0.5f, 0.5f, 0.5f });
    prepare();
    set("trace_opaque_first", true);
    EXPECT_TRUE(isHit(down()));
    EXPECT_EQ(describe(traced(down()).opacity), "0.5 0.5 0.5");
}

// ---- Compositing ----

TEST_F(Traces, hits_are_put_together_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("tracing", "trace_composite")) {
        startAnew();
        const json& in = v.at("in");
        const json& hits = in.at("hits");
        for (size_t i = 0; i < hits.size(); ++i) {
            const std::string name = std::to_string(i);
            RvNodeSetBool(disc(name.c_str(), float(-int(i))), "opaque", in.at("opaque")[i]);
            const float alpha = goldenFloat(hits[i][2]);
            shading().looks[name] = { rgbOf(hits[i][0]), rgbOf(hits[i][1]), alpha,
                                      alpha < 0 ? RV_TYPE_RGB : RV_TYPE_RGBA };
        }
        set("auto_transparency_mode", in.at("auto_transparency_mode").get<std::string>().c_str());
        set("auto_transparency_depth", in.at("auto_transparency_depth").get<int>());
        set("auto_transparency_threshold", goldenFloat(in.at("auto_transparency_threshold")));
        setShader("background");
        const json& background = in.at("background");
        shading().background = { rgbOf(background.at("color")), rgbOf(background.at("opacity")),
                                 goldenFloat(background.at("alpha")), RV_TYPE_RGBA };
        prepare();
        const RtScrSample sample = traced(down());
        expectGoldenNumbers(v, "color", numbersOf(sample.color));
        expectGoldenNumbers(v, "opacity", numbersOf(sample.opacity));
        expectGoldenNumbers(v, "alpha", { sample.alpha });
        expectGolden(v, "background", !shading().background_contexts.empty());
        json first;
        if (sample.obj)
            first = std::stoi(RvNodeGetName(sample.obj));
        expectGolden(v, "first", first);
        EXPECT_EQ(sample.z, sample.obj ? 10.0 + first.get<int>() : 1e30) << goldenId(v);
        json kept = json::array(); // the shaded ones that are not clear; the mode keeps all
        const bool always = in.at("auto_transparency_mode") == "always";
        for (const RtShaderGlobals& sg : shading().contexts) {
            const int i = std::stoi(RvNodeGetName(sg.object));
            if (!always || describe(rgbOf(hits[size_t(i)][1])) != "0 0 0")
                kept.push_back(i);
        }
        expectGolden(v, "kept", kept);
    }
}

TEST_F(Traces, outputs_of_every_type_become_a_colour)
{
    static const struct {
        int type;
        const char* color;
        float alpha;
    } cases[] = {
        { RV_TYPE_FLOAT, "0.5 0.5 0.5", 0.375f },  { RV_TYPE_RGB, "0.5 0.25 0.125", 0.375f },
        { RV_TYPE_RGBA, "0.5 0.25 0.125", 0.25f }, { RV_TYPE_VECTOR, "0 0 0", 0.375f },
        { RV_TYPE_NONE, "0 0 0", 0.375f },
    };
    glass("g", 0, { 0.25f, 0.25f, 0.625f });
    prepare();
    set("auto_transparency_mode", "never");
    for (const auto& c : cases) {
        Look& look = shading().looks["g"];
        look.color = { 0.5f, 0.25f, 0.125f };
        look.alpha = 0.25f;
        look.type = c.type;
        const RtScrSample sample = traced(down());
        EXPECT_EQ(describe(sample.color), c.color) << c.type;
        EXPECT_EQ(describe(sample.opacity), "0.25 0.25 0.625") << c.type;
        EXPECT_EQ(sample.alpha, c.alpha) << c.type;
    }
}

TEST_F(Traces, an_alpha_that_is_none_is_replaced)
{
    glass("g", 0, { 0.5f, 0.5f, 0.5f });
    prepare();
    for (const bool always : { true, false }) {
        set("auto_transparency_mode", always ? "always" : "never");
        for (const float alpha : { -1.0f, -0.001f, NAN, INFINITY }) {
            shading().looks["g"].alpha = alpha;
            shading().looks["g"].type = RV_TYPE_RGBA;
            EXPECT_EQ(traced(down()).alpha, 0.5f) << alpha;
        }
        shading().looks["g"].alpha = 0.25f;
        EXPECT_EQ(traced(down()).alpha, always ? 0.125f : 0.25f);
        shading().looks["g"].alpha = 0;
        EXPECT_EQ(traced(down()).alpha, 0);
    }
}

TEST_F(Traces, without_compositing_a_clear_object_is_still_the_hit)
{
    glass("clear", 1, { 0, 0, 0 });
    disc("wall", 0);
    shading().looks["clear"].color = { 0.5f, 0.5f, 0.5f };
    prepare();
    for (const char* mode : { "never", "shadow-only" }) {
        set("auto_transparency_mode", mode);
        const RtScrSample sample = traced(down());
        EXPECT_STREQ(RvNodeGetName(sample.obj), "clear") << mode;
        EXPECT_EQ(describe(sample.color), "0.5 0.5 0.5") << mode;
        EXPECT_EQ(describe(sample.opacity), "0 0 0") << mode;
        EXPECT_EQ(sample.alpha, 0) << mode;
    }
}

TEST_F(Traces, clear_hits_are_skipped_until_the_last_that_counts)
{
    glass("clear", 2, { 0, 0, 0 });
    glass("nan", 1, { NAN, 0, 0 });
    glass("clear too", 0, { 0, 0, 0 });
    prepare();
    EXPECT_STREQ(RvNodeGetName(traced(down()).obj), "nan");
    set("auto_transparency_depth", 0);
    const RtScrSample sample = traced(down());
    EXPECT_STREQ(RvNodeGetName(sample.obj), "clear");
    EXPECT_EQ(describe(sample.opacity), "1 1 1");
}

TEST_F(Traces, a_ray_through_clear_objects_alone_is_a_hit_that_shows_the_background)
{
    glass("clear", 2, { 0, 0, 0 });
    setShader("background");
    shading().background.color = { 0.25f, 0.5f, 0.75f };
    prepare();
    const RtRay ray = down();
    const RtScrSample sample = traced(ray);
    EXPECT_EQ(describe(sample.color), "0.25 0.5 0.75");
    EXPECT_EQ(sample.obj, nullptr);
    EXPECT_EQ(sample.z, ray.maxdist);
    EXPECT_EQ(sample.alpha, 1);
    ASSERT_EQ(shading().background_contexts.size(), 1u);
    EXPECT_EQ(describe(shading().background_contexts[0].ray_origin), "0 0 2");
    EXPECT_EQ(describe(ray.origin), "0 0 10");
}

TEST_F(Traces, the_sample_tells_of_the_first_hit_that_counts)
{
    glass("clear", 5, { 0, 0, 0 });
    RtNode* const mesh = polygons(
        { { 0, 0, 3 }, { 1, 0, 3 }, { 1, 1, 3 }, { -1, -1, 3 }, { 1, -1, 3 }, { 0, 1, 3 } },
        { { 0, 1, 2 }, { 3, 4, 5 } });
    RvNodeSetBool(mesh, "opaque", false);
    shading().looks["m"].opacity = { 0.5f, 0.5f, 0.5f };
    disc("wall", 0);
    prepare();
    for (const char* mode : { "always", "never" }) {
        set("auto_transparency_mode", mode);
        RvNodeSetInt(RvNodeLookUpByName("clear"), "visibility", 0);
        RtRay ray = down();
        ray.origin.y = -0.5f;
        const RtScrSample sample = traced(ray);
        EXPECT_EQ(sample.obj, mesh) << mode;
        EXPECT_EQ(sample.z, 7) << mode;
        EXPECT_EQ(describe(sample.point), "0 -0.5 3") << mode;
        EXPECT_EQ(sample.face, 1u) << mode;
    }
}

TEST_F(Traces, the_flag_of_the_instance_decides_whether_a_hit_is_opaque)
{
    RtNode* const object = disc("d", 0);
    RtNode* const instance = instanceOf(object, "i", shape_fixture::translation(5, 0, 0));
    RvNodeSetBool(instance, "opaque", false);
    shading().looks["i"].opacity = shading().looks["d"].opacity = { 0.5f, 0.5f, 0.5f };
    prepare();
    EXPECT_EQ(describe(traced(down()).opacity), "1 1 1");
    EXPECT_EQ(describe(rv::traceShadow(down(RV_RAY_SHADOW))), "1 1 1");
    RtRay ray = down();
    ray.origin.x = 5;
    const RtScrSample sample = traced(ray);
    EXPECT_EQ(describe(sample.opacity), "0.5 0.5 0.5");
    EXPECT_EQ(sample.obj, object);
    ray.type = RV_RAY_SHADOW;
    EXPECT_EQ(describe(rv::traceShadow(ray)), "0.5 0.5 0.5");
}

// Required: what shines through carries the weight twice.
TEST_F(Traces, the_weight_of_the_ray_scales_the_colour)
{
    glass("g", 0, { 0.5f, 0.5f, 0.5f });
    setShader("background");
    prepare();
    RtRay ray = down();
    ray.weight = 0.5f;
    EXPECT_EQ(describe(traced(ray).color), "0.375 0.375 0.375");
    EXPECT_EQ(describe(traced(ray).opacity), "1 1 1");
    set("auto_transparency_mode", "never");
    EXPECT_EQ(describe(traced(ray).color), "0.5 0.5 0.5");
    EXPECT_EQ(describe(traced(ray).opacity), "0.5 0.5 0.5");
    ray.dir.z = 1;
    EXPECT_EQ(describe(traced(ray, false).color), "0.5 0.5 0.5");
    ray.weight = 0;
    EXPECT_EQ(describe(traced(ray, false).color), "0 0 0");
}

TEST_F(Traces, hits_know_how_many_transparent_ones_came_before)
{
    glass("a", 2, { 0.5f, 0.5f, 0.5f });
    glass("clear", 1, { 0, 0, 0 });
    disc("wall", 0);
    prepare();
    traced(down());
    rv::traceShadow(down(RV_RAY_SHADOW));
    std::vector<uint32_t> indices;
    for (const RtShaderGlobals& sg : shading().contexts)
        indices.push_back(sg.transparency_index);
    EXPECT_EQ(indices, (std::vector<uint32_t>{ 0, 1, 2, 0, 1 }));
}

// ---- The atmosphere ----

TEST_F(Traces, the_atmosphere_lies_before_every_hit)
{
    glass("a", 8, { 0.5f, 0.5f, 0.5f });
    glass("clear", 4, { 0, 0, 0 });
    glass("b", 2, { 0.5f, 0.5f, 0.5f });
    glass("clear too", 0, { 0, 0, 0 });
    setShader("background");
    setShader("atmosphere");
    prepare();
    RtRay ray = down();
    ray.maxdist = 100;
    const RtScrSample sample = traced(ray);
    const auto& segments = shading().segments;
    ASSERT_EQ(segments.size(), 4u); // from the far end on
    EXPECT_EQ(segments[0].origin_z, 0);
    EXPECT_EQ(segments[0].length, 100);
    EXPECT_EQ(segments[1].origin_z, 2);
    EXPECT_EQ(segments[1].length, 2);
    EXPECT_EQ(segments[1].end_z, 0);
    EXPECT_EQ(segments[2].origin_z, 8);
    EXPECT_EQ(segments[2].length, 6);
    EXPECT_EQ(segments[2].end_z, 2);
    EXPECT_EQ(segments[3].origin_z, 10);
    EXPECT_EQ(segments[3].length, 2);
    EXPECT_EQ(segments[3].end_z, 8);
    // 1 becomes 50.5, 26.25, 13.625 behind b, 9.8125, 5.40625 behind a, and 3.703125.
    EXPECT_EQ(sample.color.r, 3.703125f);
    EXPECT_EQ(sample.color.g, 1);
    EXPECT_EQ(sample.z, 2);
    EXPECT_EQ(describe(sample.point), "0 0 8");
}

TEST_F(Traces, the_atmosphere_is_also_before_a_single_hit_and_the_background)
{
    disc("wall", 4);
    setShader("atmosphere");
    prepare();
    for (const char* mode : { "always", "never" }) {
        set("auto_transparency_mode", mode);
        EXPECT_EQ(traced(down()).color.r, 3.5f) << mode;
        EXPECT_EQ(traced(down()).z, 6) << mode;
    }
    RtRay miss = down();
    miss.dir.z = 1;
    miss.maxdist = 8;
    EXPECT_EQ(traced(miss, false).color.r, 4);
    set("skip_background_atmosphere", true);
    EXPECT_EQ(traced(miss, false).color.r, 0);
    EXPECT_EQ(traced(down()).color.r, 3.5f);
}

TEST_F(Traces, without_an_atmosphere_none_is_asked)
{
    glass("a", 8, { 0.5f, 0.5f, 0.5f });
    prepare();
    traced(down());
    EXPECT_TRUE(shading().segments.empty());
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
