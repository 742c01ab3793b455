// Tests of the "noise" shader.
#include "rv_noise.h"

#include "shader_tools.h"

#include <random>

using nlohmann::json;
using shader_tools::Context;

namespace {

class NoiseShader : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        noise = node_tools::named("noise", "noise");
    }
    float valueAt(const RtPoint& object_point, const RtPoint& point = {}) const
    {
        Context sg;
        sg->object_point = object_point;
        sg->point = point;
        RvShaderEvaluate(noise, sg);
        return sg->out.FLT;
    }
    void flt(const char* param, float value) { RvNodeSetFlt(noise, param, value); }
    void vec(const char* param, const RtVector& v) { RvNodeSetVec(noise, param, v.x, v.y, v.z); }

    RtNode* noise = nullptr;
};

RtVector goldenVector(const json& value)
{
    const std::vector<float> v = goldenFloats(value);
    return { v[0], v[1], v[2] };
}

TEST_F(NoiseShader, its_values_are_the_golden_numbers)
{
    for (const json& v : goldenVectors("shading", "noise_shader")) {
        const json& in = v.at("in");
        RvNodeSetInt(noise, "octaves", in.at("octaves"));
        for (const char* param : { "distortion", "lacunarity", "amplitude" })
            flt(param, goldenFloat(in.at(param)));
        vec("scale", goldenVector(in.at("scale")));
        vec("offset", goldenVector(in.at("offset")));
        expectGoldenNumbers(v, "value", { valueAt(goldenVector(in.at("p"))) });
    }
}

TEST_F(NoiseShader, by_default_it_is_grey_at_whole_numbers_and_never_leaves_the_range)
{
    for (float x : { -3.0f, 0.0f, 5.0f })
        EXPECT_EQ(valueAt({ x, 2 * x, -x }), 0.5f);
    std::mt19937 random(1);
    std::uniform_real_distribution<float> coordinate(-20, 20);
    float lowest = 1, highest = 0;
    for (int i = 0; i < 5000; ++i) {
        const float value = valueAt({ coordinate(random), coordinate(random), coordinate(random) });
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    EXPECT_TRUE(lowest >= 0 && lowest < 0.2f) << lowest;
    EXPECT_TRUE(highest <= 1 && highest > 0.8f) << highest;
}

TEST_F(NoiseShader, a_large_amplitude_is_cut_off)
{
    flt("amplitude", 1e6f);
    for (float x : { 0.2f, 1.3f, 2.7f, 3.6f, 4.4f, 5.5f }) {
        const RtPoint p = { x, x + 0.4f, 0.3f - x };
        EXPECT_EQ(valueAt(p), RvPerlin3(&p) < 0 ? 0 : 1) << x;
    }
}

TEST_F(NoiseShader, it_reads_the_space_of_coord_space)
{
    const RtPoint object_point = { 0.3f, 0.6f, -0.2f }, point = { 0.7f, 4.4f, 1.6f };
    EXPECT_FLOAT_EQ(valueAt(object_point, point), (RvPerlin3(&object_point) + 1) / 2);
    RvNodeSetStr(noise, "coord_space", "world");
    EXPECT_FLOAT_EQ(valueAt(object_point, point), (RvPerlin3(&point) + 1) / 2);
}

TEST_F(NoiseShader, the_point_is_scaled_and_then_moved)
{
    vec("scale", { 2, 3, 0.5f });
    vec("offset", { 0.25f, -1, 10 });
    const RtPoint moved = { 0.3f * 2 + 0.25f, 0.6f * 3 - 1, -0.2f * 0.5f + 10 };
    EXPECT_FLOAT_EQ(valueAt({ 0.3f, 0.6f, -0.2f }), (RvPerlin3(&moved) + 1) / 2);
}

TEST_F(NoiseShader, it_is_a_number_whatever_its_inputs)
{
    for (float bad : { NAN, INFINITY, -INFINITY })
        for (const char* param : { "distortion", "lacunarity", "amplitude", "scale", "offset" }) {
            RtNode* const source = shader_tools::floatShader("source", bad);
            RvNodeLink(source, param, noise);
            RvNodeSetInt(noise, "octaves", 3);
            const float value = valueAt({ 0.3f, 0.6f, -0.2f });
            EXPECT_TRUE(value >= 0 && value <= 1) << param << " " << bad;
            RvNodeUnlink(noise, param);
        }
}

} // namespace
