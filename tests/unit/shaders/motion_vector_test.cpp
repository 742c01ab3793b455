// Tests of the "motion_vector" shader.
#include "shader_tools.h"
#include "trace_tools.h"

using namespace trace_tools;
using shader_tools::Context;

namespace {

// Without a camera the screen is the plane of x and y; an image of 2 by 2 pixels makes a unit of it
// a pixel.
class MotionVector : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        set("xres", 2);
        set("yres", 2);
        motion_vector = node_tools::named("motion_vector", "motion");
    }
    // At a point that moves that way from time 0 to time 1.
    RtRGB colorOf(const RtVector& way)
    {
        RtNode* const ball =
            RvNodeLookUpByName("ball") ? RvNodeLookUpByName("ball") : sphere("ball", {}, 1);
        RtMatrix moved;
        RvM4Translation(&moved, &way);
        shape_fixture::setMatrices(ball, { RV_M4_IDENTITY, moved });
        prepare();
        RvNodeSetPtr(options(), "camera", nullptr);
        Context sg;
        sg->object = ball;
        RvShaderEvaluate(motion_vector, sg);
        return sg->out.RGB;
    }
    void setLongest(float pixels) { RvNodeSetFlt(motion_vector, "max_displace", pixels); }

    RtNode* motion_vector = nullptr;
};

TEST_F(MotionVector, its_colors_are_the_golden_numbers)
{
    for (const json& v : goldenVectors("shading", "motion_vector_colour")) {
        const json& in = v.at("in");
        setLongest(goldenFloat(in.at("max_displace")));
        const RtRGB got = colorOf({ goldenFloat(in.at("x")), goldenFloat(in.at("y")), 0 });
        expectGoldenNumbers(v, "out", { got.r, got.g, got.b });
    }
}

TEST_F(MotionVector, a_still_point_is_half_red_and_half_green)
{
    const RtRGB color = colorOf({});
    EXPECT_EQ(color.r, 0.5f);
    EXPECT_EQ(color.g, 0.5f);
    EXPECT_EQ(color.b, 0);
}

TEST_F(MotionVector, short_motions_keep_their_length)
{
    setLongest(6);
    const RtRGB right = colorOf({ 3, 0, 0 });
    EXPECT_NEAR(right.r, 0.75f, 1e-5f);
    EXPECT_NEAR(right.g, 0.5f, 1e-5f);
    const RtRGB down = colorOf({ 0, -1.5f, 0 });
    EXPECT_NEAR(down.r, 0.5f, 1e-5f);
    EXPECT_NEAR(down.g, 0.375f, 1e-5f);
}

TEST_F(MotionVector, long_motions_show_their_direction_alone)
{
    for (float longest : { 0.0f, 4.0f, -2.0f }) {
        setLongest(longest);
        const RtRGB color = colorOf({ -30, 40, 0 });
        EXPECT_NEAR(color.r, 0.2f, 1e-5f);
        EXPECT_NEAR(color.g, 0.9f, 1e-5f);
        EXPECT_EQ(color.b, 0);
    }
}

TEST_F(MotionVector, motions_beyond_what_can_be_measured_are_none)
{
    for (float pixels : { 1e-40f, 1e-30f, 1e25f })
        for (float longest : { 0.0f, 4.0f }) {
            setLongest(longest);
            EXPECT_EQ(node_tools::describe(colorOf({ pixels, -pixels, 0 })), "0.5 0.5 0")
                << pixels << " " << longest;
        }
}

TEST_F(MotionVector, the_times_choose_the_part_of_the_motion)
{
    setLongest(8);
    RvNodeSetFlt(motion_vector, "time0", 0.25f);
    RvNodeSetFlt(motion_vector, "time1", 0.75f);
    EXPECT_NEAR(colorOf({ 8, 0, 0 }).r, 0.75f, 1e-4f);
    RvNodeSetFlt(motion_vector, "time1", 0);
    EXPECT_NEAR(colorOf({ 8, 0, 0 }).r, 0.375f, 1e-4f); // backwards
}

} // namespace
