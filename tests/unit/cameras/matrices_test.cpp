// The matrix queries of cameras, and screen motion.
#include "camera_tools.h"

#include <limits>

using namespace camera_tools;
using namespace node_tools;

TEST_F(Cameras, golden_matrices_between_keys)
{
    for (const json& v : goldenVectors("cameras", "RvCameraToWorldMatrix")) {
        RtNode* const camera = make("persp_camera");
        applyTimes(camera, v.at("in"));
        prepared(camera);
        expectGoldenNumbers(v, "matrix",
                            floats(cameraToWorld(camera, goldenFloat(v.at("in").at("time")))));
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, golden_projections)
{
    for (const json& v : goldenVectors("cameras", "RvWorldToScreenMatrix")) {
        const json& in = v.at("in");
        RtNode* const camera = make(in.at("camera").get<std::string>().c_str());
        applyTimes(camera, in);
        applyWindow(camera, in);
        applyClip(camera, in);
        if (in.at("camera") == "persp_camera")
            setFloatKeys(camera, "fov", in, "fov");
        prepared(camera);
        EXPECT_EQ(rv::cameraData(camera)->kind, in.at("kind").get<int>()) << goldenId(v);
        expectGoldenNumbers(v, "matrix", floats(worldToScreen(camera, goldenFloat(in.at("time")))));
        RvNodeDestroy(camera);
    }
}

TEST_F(Cameras, matrices_of_what_is_no_prepared_camera_are_the_identity)
{
    for (const RtNode* node : { static_cast<RtNode*>(nullptr), RvNode("sphere"),
                                RvNode("persp_camera"), RvUniverseGetOptions() }) {
        for (auto* query :
             { RvCameraToWorldMatrix, RvWorldToCameraMatrix, RvWorldToScreenMatrix }) {
            RtMatrix matrix = RV_M4_ZERO;
            query(node, 0.5f, &matrix);
            EXPECT_TRUE(RvM4IsIdentity(&matrix));
            query(node, 0.5f, nullptr);
        }
    }
}

TEST_F(Cameras, a_time_beyond_the_last_sample_does_not_reach_the_last_key)
{
    // Required: the weight of the last key is 0.999999.
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(0, 0, 0), translation(1, 0, 0) }));
    prepared(camera);
    EXPECT_EQ(cameraToWorld(camera, 1).m[3][0], 0.999999f);
    EXPECT_EQ(cameraToWorld(camera, 50).m[3][0], 0.999999f);
    EXPECT_EQ(cameraToWorld(camera, 0).m[3][0], 0);
    EXPECT_EQ(cameraToWorld(camera, -50).m[3][0], 0);
}

TEST_F(Cameras, a_camera_of_255_keys_is_blended_inside_its_keys)
{
    RtNode* const camera = make("persp_camera");
    std::vector<RtMatrix> keys;
    for (int i = 0; i < 255; ++i)
        keys.push_back(translation(float(i), 0, 0));
    RvNodeSetArray(camera, "matrix", matrixKeys(keys));
    prepared(camera);
    EXPECT_NEAR(cameraToWorld(camera, 0.5f).m[3][0], 127, 1e-4);
    EXPECT_NEAR(cameraToWorld(camera, 1).m[3][0], 254, 1e-3);
}

TEST_F(Cameras, a_query_at_no_time_is_survived)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(
        camera, "matrix",
        matrixKeys({ translation(0, 0, 0), translation(1, 0, 0), translation(2, 0, 0) }));
    prepared(camera);
    for (float time :
         { std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
           -std::numeric_limits<float>::infinity() }) {
        const float x = cameraToWorld(camera, time).m[3][0];
        EXPECT_TRUE(x >= 0 && x <= 2) << time;
        worldToScreen(camera, time);
    }
}

TEST_F(Cameras, a_singular_matrix_gives_numbers_of_no_use_and_no_crash)
{
    RtNode* const camera = make("persp_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ RV_M4_ZERO }));
    prepared(camera);
    RtMatrix inverse = RV_M4_IDENTITY;
    RvWorldToCameraMatrix(camera, 0, &inverse);
    EXPECT_FALSE(std::isfinite(inverse.m[0][0]));
    worldToScreen(camera);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Cameras, a_window_or_clip_range_without_extent_is_survived)
{
    for (const char* type : camera_types) {
        RtNode* const camera = RvNode(type);
        RvNodeSetPnt2(camera, "screen_window_min", 1, 1);
        RvNodeSetFlt(camera, "near_clip", 2);
        RvNodeSetFlt(camera, "far_clip", 2);
        prepared(camera);
        EXPECT_FALSE(std::isfinite(worldToScreen(camera).m[0][0])) << type;
        EXPECT_FALSE(std::isfinite(worldToScreen(camera).m[3][2])) << type;
    }
    EXPECT_EQ(takeProblem(), "");
}

// ---- The size of the image ----

TEST_F(Cameras, the_image_of_the_running_render_wins_over_the_options)
{
    RtNode* const camera = preparedCamera("ortho_camera");
    setImage(100, 100);
    EXPECT_EQ(worldToScreen(camera).m[1][1], 1);
    const rv::ImageGeometry image = rv::wholeImage(200, 100);
    rv::image_geometry = &image;
    EXPECT_EQ(worldToScreen(camera).m[1][1], 2);
    rv::image_geometry = nullptr;
    EXPECT_EQ(worldToScreen(camera).m[1][1], 1);
}

TEST(ImageGeometry, a_whole_image_knows_its_inverse_sizes_and_region)
{
    const rv::ImageGeometry image = rv::wholeImage(320, 240);
    EXPECT_EQ(image.image_width, 320);
    EXPECT_EQ(image.image_height, 240);
    EXPECT_EQ(image.inv_width, 1.0f / 320);
    EXPECT_EQ(image.inv_height, 1.0f / 240);
    EXPECT_FLOAT_EQ(image.frame_aspect, 0.75f);
    EXPECT_EQ(image.region_min_x, 0);
    EXPECT_EQ(image.region_min_y, 0);
    EXPECT_EQ(image.region_max_x, 319);
    EXPECT_EQ(image.region_max_y, 239);
}

TEST(ImageGeometry, sizes_below_1_count_as_1)
{
    const rv::ImageGeometry image = rv::wholeImage(0, -7);
    EXPECT_EQ(image.image_width, 1);
    EXPECT_EQ(image.image_height, 1);
    EXPECT_EQ(image.frame_aspect, 1);
}

// ---- Screen motion ----

TEST_F(Cameras, screen_motion_is_in_pixels_with_y_upward)
{
    setImage(200, 100);
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "fov", 90);
    prepared(camera);
    // At depth 10 the frame is 20 wide and 10 high.
    const RtPoint2 motion = rv::pixelMotion({ 0, 0, -10 }, 0, { 2, 1, -10 }, 1);
    EXPECT_NEAR(motion.x, 20, 1e-4);
    EXPECT_NEAR(motion.y, 10, 1e-4);
}

TEST_F(Cameras, screen_motion_includes_that_of_the_camera)
{
    setImage(100, 100);
    RtNode* const camera = make("ortho_camera");
    RvNodeSetArray(camera, "matrix", matrixKeys({ translation(0, 0, 0), translation(1, 0, 0) }));
    prepared(camera);
    const RtPoint2 motion = rv::pixelMotion({ 0, 0, -1 }, 0, { 0, 0, -1 }, 1);
    EXPECT_NEAR(motion.x, -50, 1e-3);
    EXPECT_EQ(motion.y, 0);
}

TEST_F(Cameras, screen_motion_next_to_the_camera_plane_is_bounded)
{
    setImage(2, 2);
    RtNode* const camera = make("persp_camera");
    RvNodeSetFlt(camera, "fov", 90);
    prepared(camera);
    EXPECT_NEAR(rv::pixelMotion({ 0, 0, 0 }, 0, { 1, 0, 0 }, 0).x, 1000, 0.1);
}

TEST_F(Cameras, screen_motion_without_a_camera_is_that_in_the_world)
{
    setImage(100, 50);
    const RtPoint2 motion = rv::pixelMotion({ 0, 0, 0 }, 0, { 1, 2, 0 }, 1);
    EXPECT_EQ(motion.x, 50);
    EXPECT_EQ(motion.y, 50);
}
