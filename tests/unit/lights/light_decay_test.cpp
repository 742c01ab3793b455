// Tests of core/src/lights/light_decay.cpp: the "light_decay" light filter.
#include "light_tools.h"
#include "shader_tools.h"

#include <float.h>

using namespace light_tools;

class LightDecay : public Lit {
protected:
    void TearDown() override
    {
        shader_tools::programs().clear();
        Lit::TearDown();
    }
    // What the filter makes of light 1 at that distance.
    float factor(RtNode* filter, RtNode* lamp, float distance)
    {
        RtShaderGlobals sg = surface();
        sg.light = lamp;
        sg.light_dist = distance;
        sg.light_unoccluded = { 1, 2, 4 };
        sg.light_shadow = { 0.5f, 0.5f, 0.5f };
        sg.out.RGBA = { 1, 2, 3, 4 };
        RvShaderEvaluate(filter, &sg);
        EXPECT_EQ(sg.light_unoccluded.g, 2 * sg.light_unoccluded.r);
        EXPECT_EQ(sg.light_unoccluded.b, 4 * sg.light_unoccluded.r);
        EXPECT_EQ(text(sg.light_shadow), "0.5 0.5 0.5");
        EXPECT_EQ(sg.out.RGBA.a, 4);
        return sg.light_unoccluded.r;
    }
};

TEST_F(LightDecay, factors_agree_with_the_golden_vectors)
{
    RtNode* const filter = named("light_decay", "decay");
    RtNode* const lamp = light("point_light");
    updateLight(lamp);
    for (const auto& v : goldenVectors("lights", "light_decay")) {
        const auto& in = v["in"];
        for (const char* name : { "use_near_atten", "use_far_atten", "decay_clamp" })
            RvNodeSetBool(filter, name, in[name].get<bool>());
        for (const char* name :
             { "near_start", "near_end", "far_start", "far_end", "decay_radius" })
            RvNodeSetFlt(filter, name, goldenFloat(in[name]));
        RvNodeSetStr(filter, "decay_type", in["decay_type"].get<std::string>().c_str());
        RtLightData& data = dataOf(lamp);
        data.sampled = in["sampled"].get<bool>();
        data.light_type = in["light_type"].get<uint8_t>();
        data.normalize = in["normalize"].get<bool>();
        expectGoldenNumbers(v, "factor", { factor(filter, lamp, goldenFloat(in["light_dist"])) });
    }
}

TEST_F(LightDecay, far_attenuation_ends_at_its_end)
{
    RtNode* const filter = named("light_decay", "decay");
    RvNodeSetBool(filter, "use_far_atten", true);
    RvNodeSetFlt(filter, "far_start", 10);
    RvNodeSetFlt(filter, "far_end", 20);
    EXPECT_EQ(factor(filter, nullptr, 10), 1);
    EXPECT_EQ(factor(filter, nullptr, 15), 0.5f);
    EXPECT_EQ(factor(filter, nullptr, 20.5f), 0);
    RvNodeSetFlt(filter, "far_end", 10);
    EXPECT_EQ(factor(filter, nullptr, 10), 1);
    EXPECT_EQ(factor(filter, nullptr, 10.5f), 0);
}

TEST_F(LightDecay, near_attenuation_starts_dark)
{
    RtNode* const filter = named("light_decay", "decay");
    RvNodeSetBool(filter, "use_near_atten", true);
    RvNodeSetFlt(filter, "near_start", 1);
    RvNodeSetFlt(filter, "near_end", 3);
    EXPECT_EQ(factor(filter, nullptr, 0.5f), 0);
    EXPECT_EQ(factor(filter, nullptr, 2), 0.5f);
    EXPECT_EQ(factor(filter, nullptr, 3), 1);
    RvNodeSetFlt(filter, "near_end", 1);
    EXPECT_EQ(factor(filter, nullptr, 1), 1);
}

TEST_F(LightDecay, quadratic_decay_may_be_clamped_near_the_light)
{
    RtNode* const filter = named("light_decay", "decay");
    RvNodeSetStr(filter, "decay_type", "quadratic");
    EXPECT_EQ(factor(filter, nullptr, 2), 0.25f);
    EXPECT_EQ(factor(filter, nullptr, 0.5f), 4);
    EXPECT_EQ(factor(filter, nullptr, 0), 1);
    RvNodeSetBool(filter, "decay_clamp", true);
    EXPECT_EQ(factor(filter, nullptr, 2), 0.25f);
    EXPECT_EQ(factor(filter, nullptr, 0.5f), 1);
}

TEST_F(LightDecay, parameters_may_be_linked)
{
    RtNode* const filter = named("light_decay", "decay");
    RvNodeSetStr(filter, "decay_type", "linear");
    RvNodeLink(shader_tools::floatShader("three", 3), "decay_radius", filter);
    EXPECT_EQ(factor(filter, nullptr, 6), 0.5f);
}

TEST_F(LightDecay, only_what_counts_is_evaluated)
{
    int evaluations = 0;
    RtNode* const counter =
        shader_tools::shader("counter", RV_TYPE_FLOAT, [&](RtNode*, RtShaderGlobals* sg) {
            ++evaluations;
            sg->out.FLT = 1;
        });
    RtNode* const filter = named("light_decay", "decay");
    for (const char* param : { "near_start", "near_end", "far_start", "far_end", "decay_radius" })
        RvNodeLink(counter, param, filter);
    factor(filter, nullptr, 1);
    EXPECT_EQ(evaluations, 0);
    RvNodeSetStr(filter, "decay_type", "linear");
    factor(filter, nullptr, 1);
    EXPECT_EQ(evaluations, 1);
    RvNodeSetBool(filter, "use_near_atten", true);
    factor(filter, nullptr, 1);
    EXPECT_EQ(evaluations, 4);
}

TEST_F(LightDecay, an_unknown_type_does_not_decay)
{
    RtNode* const filter = named("light_decay", "decay");
    for (int type : { 7, 4, -1, INT_MIN }) {
        RvNodeLink(
            shader_tools::shader("type", RV_TYPE_INT,
                                 [type](RtNode*, RtShaderGlobals* sg) { sg->out.INT = type; }),
            "decay_type", filter);
        EXPECT_EQ(factor(filter, nullptr, 2), 1) << type;
        RvNodeDestroy(RvNodeLookUpByName("type"));
    }
}

// The light of one channel alone.
TEST_F(LightDecay, black_stays_black_and_light_a_number_at_any_distance)
{
    RtNode* const filter = named("light_decay", "decay");
    RvNodeSetFlt(filter, "decay_radius", 1e30f);
    RtNode* const lamp = light("point_light");
    updateLight(lamp);
    dataOf(lamp).normalize = false;
    for (const char* type : { "constant", "linear", "quadratic", "cubic" })
        for (bool sampled : { false, true })
            for (float distance : { FLT_TRUE_MIN, 1e-10f, 1e30f, FLT_MAX, INFINITY }) {
                RvNodeSetStr(filter, "decay_type", type);
                dataOf(lamp).sampled = sampled;
                RtShaderGlobals sg = surface();
                sg.light = lamp;
                sg.light_dist = distance;
                sg.light_unoccluded = { 1, 0, 0 };
                RvShaderEvaluate(filter, &sg);
                EXPECT_TRUE(isfinite(sg.light_unoccluded.r)) << type << " " << distance;
                EXPECT_EQ(sg.light_unoccluded.g, 0) << type << " " << distance;
            }
    // The squares cancel each other where neither is a float.
    RvNodeSetStr(filter, "decay_type", "quadratic");
    RvNodeSetFlt(filter, "decay_radius", 1);
    EXPECT_FLOAT_EQ(factor(filter, lamp, 1e25f), 1);
}
