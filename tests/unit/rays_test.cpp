// Tests of rays: what they take over from the context that spawned them, where they begin, how
// deep they are and in which rows they are counted.
#include "rays.h"

#include "trace_tools.h"

#include <limits>

using namespace trace_tools;
using node_tools::describe;
using node_tools::numbers;

namespace {

using Rays = Traced;

RtPoint pointOf(const json& numbers)
{
    const std::vector<float> v = goldenFloats(numbers);
    return { v.at(0), v.at(1), v.at(2) };
}

// Distances are doubles, and compared as such.
void expectMindist(const json& vector, double got)
{
    const double want = vector.at("out").at("mindist").get<double>();
    const json& tolerance = vector.at("tol").at("mindist");
    const double rel = tolerance.at("rel").get<double>(), abs = tolerance.at("abs").get<double>();
    EXPECT_NEAR(got, want, abs + rel * fabs(want)) << goldenId(vector);
}

RtRay made(int type, const RtPoint& origin, const RtShaderGlobals* sg)
{
    const RtVector dir = { 0, 0, 1 };
    RtRay ray;
    RvMakeRay(&ray, type, &origin, &dir, 100, sg);
    return ray;
}

} // namespace

// ---- Making rays ----

TEST_F(Rays, a_ray_begins_behind_the_rounding_of_its_origin)
{
    const RtShaderGlobals sg = cameraContext();
    for (const json& v : goldenVectors("tracing", "RvMakeRay_mindist")) {
        const RtPoint origin = pointOf(v.at("in").at("origin"));
        const int ulps = v.at("in").at("mindist_ulp_count");
        const double base = v.at("in").at("base_mindist");
        expectMindist(v, rv::guardedMindist(origin, base, ulps));
        if (base != 1e-6)
            continue;
        set("mindist_ulp_count", ulps);
        expectMindist(v, made(RV_RAY_CAMERA, origin, &sg).mindist);
    }
}

TEST_F(Rays, an_origin_beyond_all_numbers_leaves_the_least_distance_alone)
{
    const float huge = 3e38f, infinite = std::numeric_limits<float>::infinity();
    EXPECT_EQ(rv::guardedMindist({ huge, huge, 0 }, 0.5, 1), 0.5);
    EXPECT_EQ(rv::guardedMindist({ infinite, 0, 0 }, 0.5, 1), 0.5);
    EXPECT_EQ(rv::guardedMindist({ NAN, 0, 0 }, 0.5, 1), 0.5);
}

TEST_F(Rays, one_unit_in_the_last_place_is_the_default)
{
    EXPECT_EQ(made(RV_RAY_CAMERA, { 0, 0, 0 }, nullptr).mindist, 1e-6);
    EXPECT_EQ(made(RV_RAY_CAMERA, { 0, 1024, 0 }, nullptr).mindist, ldexp(1, -13));
}

TEST_F(Rays, shadow_diffuse_and_glossy_rays_leave_a_surface_by_its_bias)
{
    for (const json& v : goldenVectors("tracing", "RvMakeRay_base_mindist")) {
        startAnew();
        const json& in = v.at("in");
        RtNode* const object = disc("d", 0);
        RvNodeSetFlt(object, "ray_bias", goldenFloat(in.at("ray_bias")));
        prepare();
        RtShaderGlobals sg = contextOn(in.at("has_object").get<bool>() ? object : nullptr);
        sg.stage = uint8_t(in.at("stage").get<int>());
        expectMindist(v, made(in.at("type"), { 0, 0, 0 }, &sg).mindist);
    }
}

TEST_F(Rays, every_combination_of_stage_type_and_object_has_its_least_distance)
{
    RtNode* const object = disc("d", 0);
    RvNodeSetFlt(object, "ray_bias", 0.25f);
    prepare();
    for (const bool has_object : { false, true })
        for (int stage = RV_STAGE_SURFACE; stage <= RV_STAGE_DISPLACEMENT; ++stage)
            for (int type : { RV_RAY_CAMERA, RV_RAY_SHADOW, RV_RAY_REFLECTED, RV_RAY_REFRACTED,
                              0x10, RV_RAY_DIFFUSE, RV_RAY_GLOSSY, 0x80, RV_RAY_ALL }) {
                RtShaderGlobals sg = contextOn(has_object ? object : nullptr);
                sg.stage = uint8_t(stage);
                const bool is_biased =
                    has_object && stage == RV_STAGE_SURFACE && (type & (0x02 | 0x20 | 0x40));
                EXPECT_EQ(made(type, { 0, 0, 0 }, &sg).mindist, is_biased ? 0.25 : 1e-6)
                    << has_object << " " << stage << " " << type;
            }
}

TEST_F(Rays, a_diffuse_ray_starts_at_the_bias_unless_its_origin_is_far_out)
{
    RtNode* const object = disc("d", 0);
    RvNodeSetFlt(object, "ray_bias", 0.01f);
    prepare();
    const RtShaderGlobals sg = contextOn(object);
    EXPECT_EQ(made(RV_RAY_DIFFUSE, { 0, 0, 0 }, &sg).mindist, double(0.01f));
    EXPECT_EQ(made(RV_RAY_DIFFUSE, { 1 << 20, 0, 0 }, &sg).mindist, 0.125);
}

TEST_F(Rays, a_context_on_what_is_no_shape_has_no_bias)
{
    const RtShaderGlobals sg = contextOn(node_tools::named("standard", "s"));
    EXPECT_EQ(made(RV_RAY_DIFFUSE, { 0, 0, 0 }, &sg).mindist, 1e-6);
}

// Required: the counters wrap at 256.
TEST_F(Rays, a_bounce_is_counted_by_the_type_of_the_ray)
{
    for (const json& v : goldenVectors("tracing", "RvMakeRay_depths")) {
        const json& context = v.at("in").at("context");
        RtShaderGlobals sg = cameraContext();
        sg.ray_depth = context.at("level");
        sg.reflection_depth = context.at("reflection");
        sg.refraction_depth = context.at("refraction");
        sg.diffuse_depth = context.at("diffuse");
        sg.glossy_depth = context.at("glossy");
        const RtRay ray = made(v.at("in").at("type"), { 0, 0, 0 }, &sg);
        expectGolden(v, "depths",
                     { { "level", ray.level },
                       { "reflection", ray.reflection_depth },
                       { "refraction", ray.refraction_depth },
                       { "diffuse", ray.diffuse_depth },
                       { "glossy", ray.glossy_depth } });
    }
}

TEST_F(Rays, a_shadow_ray_does_not_raise_the_level)
{
    RtShaderGlobals sg = cameraContext();
    sg.ray_depth = 3;
    EXPECT_EQ(made(RV_RAY_SHADOW, { 0, 0, 0 }, &sg).level, 3);
    EXPECT_EQ(made(RV_RAY_DIFFUSE, { 0, 0, 0 }, &sg).level, 4);
}

TEST_F(Rays, a_ray_takes_over_what_its_context_knows)
{
    RtShaderGlobals sg = cameraContext();
    int output = 0;
    sg.pixel_x = -3;
    sg.pixel_y = 17;
    sg.screen_x = 0.25f;
    sg.screen_y = -0.5f;
    sg.sample_index = 40000;
    sg.thread_index = 5;
    sg.time = 0.75f;
    sg.sample_output = &output;
    sg.dPdx = { 1, 2, 3 };
    sg.dPdy = { 4, 5, 6 };
    sg.dDdx = { 7, 8, 9 };
    sg.dDdy = { 10, 11, 12 };
    RvShaderGlobalsSetTraceSet(&sg, "set", true);
    RtRay ray;
    memset(static_cast<void*>(&ray), 0x55, sizeof ray);
    const RtPoint origin = { 1, 1, 2 };
    const RtVector dir = { 0, 3, 4 };
    RvMakeRay(&ray, RV_RAY_GLOSSY, &origin, &dir, 77, &sg);
    EXPECT_EQ(ray.type, RV_RAY_GLOSSY);
    EXPECT_EQ(numbers({ double(ray.x), double(ray.y), ray.sx, ray.sy }), "-3 17 0.25 -0.5");
    EXPECT_EQ(ray.sample_index, 40000);
    EXPECT_EQ(ray.tid, 5);
    EXPECT_EQ(ray.time, 0.75f);
    EXPECT_EQ(ray.sg, &sg);
    EXPECT_EQ(ray.aov_sink, &output);
    EXPECT_EQ(ray.light_sample, nullptr);
    EXPECT_STREQ(ray.traceset, "set");
    EXPECT_TRUE(ray.inclusive_traceset);
    EXPECT_EQ(describe(ray.origin), "1 1 2");
    EXPECT_EQ(describe(ray.dir), "0 3 4"); // not normalised
    EXPECT_EQ(ray.maxdist, 77);
    EXPECT_EQ(ray.weight, 1);
    EXPECT_EQ(ray.spread_a, 1);
    EXPECT_EQ(ray.spread_b, 1);
    EXPECT_EQ(describe(ray.dOdx), "1 2 3");
    EXPECT_EQ(describe(ray.dOdy), "4 5 6");
    EXPECT_EQ(describe(ray.dDdx), "7 8 9");
    EXPECT_EQ(describe(ray.dDdy), "10 11 12");
}

TEST_F(Rays, without_origin_or_direction_the_ray_keeps_its_own)
{
    const RtShaderGlobals sg = cameraContext();
    for (const RtShaderGlobals* context : { static_cast<const RtShaderGlobals*>(nullptr), &sg }) {
        RtRay ray = made(RV_RAY_CAMERA, { 1, 2, 3 }, nullptr);
        const RtPoint origin = { 1 << 20, 0, 0 };
        const RtVector dir = { 1, 0, 0 };
        RvMakeRay(&ray, RV_RAY_CAMERA, nullptr, &dir, 1, context);
        EXPECT_EQ(describe(ray.origin) + " to " + describe(ray.dir), "1 2 3 to 1 0 0");
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, nullptr, 1, context);
        EXPECT_EQ(describe(ray.origin) + " to " + describe(ray.dir), "1048576 0 0 to 1 0 0");
        RvMakeRay(&ray, RV_RAY_CAMERA, nullptr, nullptr, 1, context);
        EXPECT_EQ(ray.mindist, 0.125) << "that of the kept origin";
    }
}

TEST_F(Rays, a_ray_without_a_context_starts_from_nothing)
{
    RtRay ray;
    memset(static_cast<void*>(&ray), 0x55, sizeof ray);
    const RtPoint origin = { 0, 0, 0 };
    const RtVector dir = { 0, 0, 1 };
    RvMakeRay(&ray, RV_RAY_REFLECTED, &origin, &dir, 5, nullptr);
    EXPECT_EQ(ray.level, 1);
    EXPECT_EQ(ray.reflection_depth, 1);
    EXPECT_EQ(ray.diffuse_depth + ray.glossy_depth + ray.refraction_depth + ray.tid, 0);
    EXPECT_EQ(ray.sg, nullptr);
    EXPECT_EQ(ray.aov_sink, nullptr);
    EXPECT_EQ(ray.light_sample, nullptr);
    EXPECT_EQ(ray.traceset, nullptr);
    EXPECT_EQ(ray.time, 0);
    EXPECT_EQ(ray.weight, 1);
    RvMakeRay(nullptr, RV_RAY_CAMERA, &origin, &dir, 5, nullptr);
}

TEST_F(Rays, rays_carry_the_trace_set_of_their_context)
{
    RtShaderGlobals sg = cameraContext();
    RvShaderGlobalsSetTraceSet(&sg, "hair", true);
    EXPECT_STREQ(made(RV_RAY_DIFFUSE, { 0, 0, 0 }, &sg).traceset, "hair");
    RvShaderGlobalsUnsetTraceSet(&sg);
    EXPECT_EQ(made(RV_RAY_DIFFUSE, { 0, 0, 0 }, &sg).traceset, nullptr);
}

// ---- Random numbers ----

TEST_F(Rays, camera_rays_draw_their_numbers_by_pixel_and_place_within_it)
{
    RtRay ray = made(RV_RAY_CAMERA, { 0, 0, 0 }, nullptr);
    ray.x = 3;
    ray.y = 4;
    float at_corner[2], moved[2], beside[2];
    rv::randomNumbers(ray, at_corner);
    EXPECT_NE(at_corner[0], at_corner[1]);
    ray.dir = { 1, 2, 3 }; // the direction has no say
    ray.offset_u = 0.75f;
    ray.offset_v = 0.5f;
    rv::randomNumbers(ray, moved);
    for (int i = 0; i < 2; ++i) {
        const float sum = at_corner[i] + (i ? 0.5f : 0.75f);
        EXPECT_NEAR(moved[i], sum < 1 ? sum : sum - 1, 1e-6);
        EXPECT_TRUE(moved[i] >= 0 && moved[i] < 1);
    }
    ray.x = 5;
    rv::randomNumbers(ray, beside);
    EXPECT_NE(beside[0], moved[0]);
    EXPECT_NE(beside[1], moved[1]);
}

TEST_F(Rays, other_rays_draw_their_numbers_by_direction)
{
    double sum[2] = {};
    constexpr int count = 1000;
    RtRay ray = made(RV_RAY_REFLECTED, { 0, 0, 0 }, nullptr);
    for (int i = 0; i < count; ++i) {
        float numbers[2], again[2];
        ray.dir = { float(i), 1, -2 };
        ray.x = i;
        rv::randomNumbers(ray, numbers);
        ray.x = ray.y = 77;
        ray.offset_u = 0.5f;
        rv::randomNumbers(ray, again);
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(numbers[k], again[k]); // the pixel has no say
            EXPECT_TRUE(numbers[k] >= 0 && numbers[k] < 1);
            sum[k] += double(numbers[k]);
        }
    }
    for (double s : sum)
        EXPECT_NEAR(s / count, 0.5, 0.05);
}

// ---- Statistics ----

TEST_F(Rays, a_ray_counts_in_every_row_its_type_matches)
{
    static const char* const names[] = { "total",         "camera",     "shadow",
                                         "volume_shadow", "reflection", "refraction",
                                         "diffuse",       "glossy",     "user" };
    for (const json& v : goldenVectors("tracing", "ray_statistics_rows")) {
        const unsigned rows = rv::rayRows(v.at("in").at("type"), v.at("in").at("volume_context"));
        json got = json::array();
        for (unsigned i = 0; i < RV_ROW_COUNT; ++i)
            if (rows >> i & 1)
                got.push_back(names[i]);
        expectGolden(v, "rows", got);
    }
    for (unsigned bit = 0; bit < 16; ++bit) {
        const bool is_user = bit == 4 || bit >= 7;
        EXPECT_EQ(rv::rayRows(1u << bit, false) >> RV_ROW_USER & 1, is_user) << bit;
    }
    EXPECT_EQ(rv::rayRows(RV_RAY_SHADOW, true), 1u << RV_ROW_TOTAL | 1u << RV_ROW_VOLUME_SHADOW);
    EXPECT_EQ(rv::rayRows(RV_RAY_ALL, false), 0x1FFu & ~(1u << RV_ROW_VOLUME_SHADOW));
}

TEST_F(Rays, rays_and_hits_are_counted_for_their_thread_and_pass)
{
    for (const RtPass pass : { RV_PASS_PIXELS, RV_PASS_SSS, RV_PASS_HAIR }) {
        RtShadingState state = {};
        state.pass = pass;
        RtShaderGlobals sg = cameraContext();
        sg.state = &state;
        sg.thread_index = 3;
        sg.stage = RV_STAGE_VOLUME;
        const RtRay ray = made(RV_RAY_SHADOW, { 0, 0, 0 }, &sg);
        rv::countRay(ray);
        rv::countHits(ray, 4);
        rv::countRay(ray);
        rv::countHits(ray, 2);
        for (const RtRayRow row : { RV_ROW_TOTAL, RV_ROW_VOLUME_SHADOW }) {
            const RtRayCount& count = rayStats(3).rows[pass][row];
            EXPECT_EQ(count.rays, 2u) << pass;
            EXPECT_EQ(count.hits, 6u) << pass;
            EXPECT_EQ(count.max_hits, 4u) << pass;
        }
        EXPECT_EQ(rayStats(3).rows[pass][RV_ROW_SHADOW].rays, 0u);
    }
    EXPECT_EQ(rayStats(0).rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays, 0u);
}

TEST_F(Rays, threads_without_a_slot_share_the_last_one)
{
    RtRay ray = made(RV_RAY_CAMERA, { 0, 0, 0 }, nullptr);
    for (const int tid : { 63, 64, 255 }) {
        ray.tid = uint8_t(tid);
        rv::countRay(ray);
    }
    EXPECT_EQ(rayStats(63).rows[RV_PASS_PIXELS][RV_ROW_CAMERA].rays, 3u);
    EXPECT_EQ(rayStats(rv::host_stats_slot).rows[RV_PASS_PIXELS][RV_ROW_CAMERA].rays, 0u);
}
