// From a pixel sample to the ray in the world.
#include "camera_tools.h"
#include "sampling.h"
#include "shader_tools.h"
#include "system/memory.h"

#include <limits>

using namespace camera_tools;
using namespace node_tools;

namespace {

RtPixelSample sampleOf(const json& in)
{
    RtPixelSample sample = {};
    sample.x = in.at("x");
    sample.y = in.at("y");
    sample.offset_u = goldenFloat(in.at("ox"));
    sample.offset_v = goldenFloat(in.at("oy"));
    if (in.contains("time_sample"))
        sample.time_sample = goldenFloat(in.at("time_sample"));
    if (in.contains("lens_u")) {
        sample.input.lens_u = goldenFloat(in.at("lens_u"));
        sample.input.lens_v = goldenFloat(in.at("lens_v"));
    }
    return sample;
}

RtPixelSample centreOf(int x, int y)
{
    RtPixelSample sample = {};
    sample.x = x;
    sample.y = y;
    sample.offset_u = sample.offset_v = 0.5f;
    return sample;
}

void setAASamples(int samples) { RvNodeSetInt(RvUniverseGetOptions(), "AA_samples", samples); }

RtRay rayOf(RtNode* camera, const RtPixelSample& sample)
{
    RtRay ray;
    memset(static_cast<void*>(&ray), 0xA5, sizeof ray);
    rv::rayOfSample(camera, sample, 3, nullptr, &ray);
    return ray;
}

} // namespace

TEST_F(Cameras, golden_screen_positions)
{
    RtNode* const camera = make("persp_camera");
    for (const json& v : goldenVectors("cameras", "pixel_to_screen")) {
        applyWindow(camera, v.at("in"));
        setAASamples(v.at("in").at("AA_samples"));
        RtPixelSample sample = sampleOf(v.at("in"));
        rv::placeOnScreen(rv::cameraParams(camera), &sample);
        expectGoldenNumbers(v, "raw_x", { sample.raw_x });
        expectGoldenNumbers(v, "raw_y", { sample.raw_y });
        expectGoldenNumbers(v, "screen_x", { sample.input.screen_x });
        expectGoldenNumbers(v, "screen_y", { sample.input.screen_y });
        expectGoldenNumbers(v, "screen_dx", { sample.input.screen_dx });
        expectGoldenNumbers(v, "screen_dy", { sample.input.screen_dy });
    }
}

TEST_F(Cameras, golden_world_rays)
{
    for (const json& v : goldenVectors("cameras", "RvCameraMakeRay")) {
        const json& in = v.at("in");
        RtNode* const camera = make(in.at("camera").get<std::string>().c_str());
        applyWindow(camera, in);
        applyClip(camera, in);
        applyShutter(camera, in);
        applyTimes(camera, in);
        applyLens(camera, in);
        setAASamples(in.at("AA_samples"));
        if (in.at("camera") == "persp_camera")
            RvNodeSetBool(camera, "plane_distance", in.at("planar"));
        prepared(camera);
        EXPECT_EQ(rv::cameraData(camera)->planar_clip, in.at("planar").get<bool>()) << goldenId(v);
        const RtRay ray = rayOf(camera, sampleOf(in));
        expectGoldenNumbers(v, "origin", floats(ray.origin));
        expectGoldenNumbers(v, "dir", floats(ray.dir));
        expectGoldenNumbers(v, "weight", { ray.weight });
        expectGoldenNumbers(v, "time", { ray.time });
        expectGoldenNumbers(v, "mindist", { float(ray.mindist) });
        expectGoldenNumbers(v, "maxdist", { float(ray.maxdist) });
        expectGoldenNumbers(v, "sx", { ray.sx });
        expectGoldenNumbers(v, "sy", { ray.sy });
        if (v.at("out").contains("dDdx")) {
            expectGoldenNumbers(v, "dDdx", floats(ray.dDdx));
            expectGoldenNumbers(v, "dDdy", floats(ray.dDdy));
        }
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, a_camera_ray_starts_with_every_field_filled)
{
    setImage(10, 10);
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "near_clip", 0.5f);
    RvNodeSetFlt(camera, "far_clip", 100);
    RvNodeSetBool(camera, "plane_distance", false);
    prepared(camera);
    RtPixelSample sample = centreOf(7, 2);
    sample.sample_index = 11;
    sample.input.lens_u = 0.25f;
    sample.input.lens_v = 0.75f;
    RtRay ray;
    memset(static_cast<void*>(&ray), 0xA5, sizeof ray);
    int sink = 0;
    rv::rayOfSample(camera, sample, 5, &sink, &ray);
    EXPECT_EQ(ray.type, RV_RAY_CAMERA);
    EXPECT_EQ(ray.tid, 5);
    EXPECT_EQ(ray.level, 0) << "the camera ray itself has depth 0";
    EXPECT_EQ(ray.diffuse_depth + ray.glossy_depth + ray.reflection_depth + ray.refraction_depth,
              0);
    EXPECT_EQ(ray.x, 7);
    EXPECT_EQ(ray.y, 2);
    EXPECT_FLOAT_EQ(ray.sx, 0.5f);
    EXPECT_FLOAT_EQ(ray.sy, 0.5f);
    EXPECT_EQ(ray.mindist, 0.5);
    EXPECT_EQ(ray.maxdist, 100);
    EXPECT_FALSE(ray.sg);
    EXPECT_FALSE(ray.light_sample);
    EXPECT_EQ(ray.aov_sink, &sink);
    EXPECT_EQ(ray.weight, 1);
    EXPECT_EQ(ray.time, 0);
    EXPECT_EQ(ray.spread_a, 1);
    EXPECT_EQ(ray.spread_b, 1);
    EXPECT_FALSE(ray.traceset);
    EXPECT_FALSE(ray.inclusive_traceset);
    EXPECT_EQ(ray.sample_index, 11);
    EXPECT_EQ(ray.offset_u, 0.5f);
    EXPECT_EQ(ray.offset_v, 0.5f);
    EXPECT_EQ(ray.lens_u, 0.25f);
    EXPECT_EQ(ray.lens_v, 0.75f);
    EXPECT_EQ(describe(ray.dOdx), "0 0 0");
    EXPECT_EQ(describe(ray.dOdy), "0 0 0");
}

TEST_F(Cameras, clip_planes_are_farther_away_at_the_edge_of_the_frame)
{
    setImage(101, 101);
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "fov", 90);
    RvNodeSetFlt(camera, "near_clip", 1);
    RvNodeSetFlt(camera, "far_clip", 1000);
    prepared(camera);
    const RtRay centre = rayOf(camera, centreOf(50, 50)), edge = rayOf(camera, centreOf(100, 50));
    EXPECT_DOUBLE_EQ(centre.maxdist, 1000);
    EXPECT_NEAR(edge.maxdist, 1000 / -edge.dir.z, 1e-3);
    EXPECT_NEAR(edge.mindist, 1 / -edge.dir.z, 1e-6);
    EXPECT_GT(edge.maxdist, 1400);
    RvNodeSetBool(camera, "plane_distance", false);
    update(camera);
    EXPECT_EQ(rayOf(camera, centreOf(100, 50)).maxdist, 1000);
}

TEST_F(Cameras, the_direction_keeps_the_length_that_the_matrix_gives_it)
{
    RtNode* const camera = make("ortho_camera");
    RtMatrix twice;
    const RtVector s = { 2, 2, 2 };
    RvM4Scaling(&twice, &s);
    RvNodeSetArray(camera, "matrix", matrixKeys({ twice }));
    prepared(camera);
    setImage(3, 3);
    EXPECT_EQ(describe(rayOf(camera, centreOf(1, 1)).dir), "0 0 -2");
}

TEST_F(Cameras, one_sample_of_a_block_of_pixels_goes_to_its_centre)
{
    setImage(8, 8);
    setAASamples(-2); // 4 x 4 pixels
    RtNode* const camera = make("ortho_camera");
    RtPixelSample sample = centreOf(4, 0);
    rv::placeOnScreen(rv::cameraParams(camera), &sample);
    EXPECT_EQ(sample.raw_x, 0.5f);
    EXPECT_EQ(sample.raw_y, 0.5f);
}

TEST_F(Cameras, absurd_options_are_survived)
{
    RtNode* const camera = preparedCamera("persp_camera");
    for (int samples :
         { std::numeric_limits<int>::min(), -1000, 0, std::numeric_limits<int>::max() })
        for (int size : { std::numeric_limits<int>::min(), 0, std::numeric_limits<int>::max() }) {
            setAASamples(samples);
            setImage(size, size, 0);
            rayOf(camera, centreOf(size, size));
            worldToScreen(camera);
        }
    setImage(10, 10);
    RvNodeSetPnt2(camera, "screen_window_min", 1, 1); // no extent
    EXPECT_TRUE(std::isfinite(rayOf(camera, centreOf(3, 3)).dir.x));
}

TEST_F(Cameras, a_ray_without_a_direction_in_the_world_is_not_traced)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ RV_M4_IDENTITY }));
    prepared(camera);
    setImage(3, 3);
    EXPECT_EQ(rayOf(camera, centreOf(1, 1)).weight, 1);
    RtMatrix broken = RV_M4_IDENTITY;
    broken.m[2][1] = std::numeric_limits<float>::quiet_NaN();
    RvArraySetMtx(RvNodeGetArray(camera, "matrix"), 0, &broken);
    EXPECT_EQ(rayOf(camera, centreOf(1, 1)).weight, 0);
    broken.m[2][1] = std::numeric_limits<float>::infinity();
    RvArraySetMtx(RvNodeGetArray(camera, "matrix"), 0, &broken);
    EXPECT_EQ(rayOf(camera, centreOf(1, 1)).weight, 0);
}

TEST_F(Cameras, without_a_prepared_camera_the_ray_has_no_weight)
{
    for (RtNode* node : { static_cast<RtNode*>(nullptr), RvNode("sphere"), RvNode("cyl_camera") }) {
        const RtRay ray = rayOf(node, centreOf(1, 1));
        EXPECT_EQ(ray.weight, 0);
        EXPECT_EQ(ray.type, RV_RAY_CAMERA);
        EXPECT_EQ(describe(ray.dir), "0 0 -1");
    }
}

TEST_F(Cameras, a_filter_map_scales_the_weight_by_the_first_channel_of_its_result)
{
    RtNode* const camera = preparedCamera("persp_camera");
    setImage(4, 2);
    RtShaderGlobals seen;
    const auto program = [&](RtNode*, RtShaderGlobals* sg) {
        seen = *sg;
        sg->out.RGBA = { 0.25f, 0.5f, 0.75f, 1 };
    };
    for (int type : { RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA }) {
        RtNode* const map = shader_tools::shader("map", type, program);
        RvNodeSetPtr(camera, "filtermap", map);
        update(camera);
        EXPECT_EQ(rayOf(camera, centreOf(3, 0)).weight, 0.25f) << type;
        EXPECT_EQ(seen.pixel_x, 3);
        EXPECT_EQ(seen.pixel_y, 0);
        EXPECT_FLOAT_EQ(seen.u, 0.875f); // from left to right
        EXPECT_FLOAT_EQ(seen.v, 0.75f);  // from the bottom to the top
        RvNodeSetPtr(camera, "filtermap", nullptr);
        RvNodeDestroy(map);
    }
}

TEST_F(Cameras, a_filter_map_without_a_colour_keeps_the_weight)
{
    RtNode* const camera = preparedCamera("persp_camera");
    setImage(3, 3);
    for (RtNode* map :
         { RvNode("sphere"), RvNode("gobo"), shader_tools::shader("text", RV_TYPE_STRING) }) {
        RvNodeSetPtr(camera, "filtermap", map);
        update(camera);
        EXPECT_EQ(rayOf(camera, centreOf(1, 1)).weight, 1) << RvNodeGetName(map);
    }
}

TEST_F(Cameras, the_ray_of_a_sample_takes_offset_time_and_lens_from_the_sampling_pattern)
{
    setImage(16, 16);
    setAASamples(1);
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "shutter_end", 1);
    RvNodeSetFlt(camera, "aperture_size", 0.1f);
    prepared(camera);
    constexpr int x = 5, y = 9, thread = 0;
    RvSamplingBeginPixel(thread, x, y, 1);
    RtPoint2 offset;
    float time;
    RvPixelSampleOffset(x, y, 0, thread, 1, &offset, &time);
    const RtPoint2 lens = RvPixelLensSample(x, y, 0, thread, 1);
    RtRay ray;
    int sink = 0;
    RvCameraMakeRay(camera, { x, y, 0, 1, thread, &sink }, &ray);
    EXPECT_EQ(ray.offset_u, offset.x);
    EXPECT_EQ(ray.offset_v, offset.y);
    EXPECT_EQ(ray.lens_u, lens.x);
    EXPECT_EQ(ray.lens_v, lens.y);
    EXPECT_EQ(ray.time, time);
    EXPECT_EQ(ray.aov_sink, &sink);
    EXPECT_NE(ray.origin.x, 0);
    rv::releasePixelSampling();
}

TEST_F(Cameras, making_a_ray_allocates_nothing)
{
    setImage(16, 16);
    for (const char* type : camera_types) {
        RtNode* const camera = preparedCamera(type);
        RvNodeSetPtr(camera, "filtermap", RvNode("image"));
        RvSamplingBeginPixel(0, 1, 1, 1);
        const size_t before = heapBytes();
        {
            const AllocationLimit limit(0);
            RtRay ray;
            RvCameraMakeRay(camera, { 1, 1, 0, 1, 0, nullptr }, &ray);
            EXPECT_TRUE(std::isfinite(ray.dir.x));
        }
        EXPECT_EQ(heapBytes(), before) << type;
        EXPECT_EQ(takeProblem(), "") << type;
        RvNodeDestroy(camera);
    }
    rv::releasePixelSampling();
}
