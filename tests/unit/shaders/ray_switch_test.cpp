// Tests of the "ray_switch" shader.
#include "rv_rays.h"

#include "shader_tools.h"

using nlohmann::json;
using node_tools::describe;
using shader_tools::Context;

namespace {

constexpr const char* inputs[] = { "camera",     "shadow",  "reflection",
                                   "refraction", "diffuse", "glossy" };

class RaySwitch : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        ray_switch = node_tools::named("ray_switch", "switch");
    }
    RtRGBA seenBy(int ray_type) const
    {
        Context sg;
        sg->ray_type = uint16_t(ray_type);
        RvShaderEvaluate(ray_switch, sg);
        return sg->out.RGBA;
    }

    RtNode* ray_switch = nullptr;
};

TEST_F(RaySwitch, it_is_white_by_default)
{
    EXPECT_EQ(describe(seenBy(RV_RAY_CAMERA)), "1 1 1 1");
    EXPECT_EQ(describe(seenBy(RV_RAY_GLOSSY)), "1 1 1 1");
}

TEST_F(RaySwitch, each_ray_type_has_an_input_of_its_own)
{
    for (int i = 0; i < 6; ++i)
        RvNodeSetRGBA(ray_switch, inputs[i], float(i), 0.5f, 0.25f, 0.125f);
    for (const json& v : goldenVectors("shading", "ray_switch")) {
        const json& param = v.at("out").at("parameter");
        RtRGBA want = {}; // Required: combinations of types are black, alpha included.
        for (int i = 0; i < 6; ++i)
            if (!param.is_null() && param.get<std::string>() == inputs[i])
                want = { float(i), 0.5f, 0.25f, 0.125f };
        EXPECT_EQ(describe(seenBy(v.at("in").at("ray_type"))), describe(want)) << goldenId(v);
    }
    for (int type : { 0, 16, 128, RV_RAY_CAMERA | RV_RAY_GLOSSY, RV_RAY_ALL })
        EXPECT_EQ(describe(seenBy(type)), "0 0 0 0") << type;
}

TEST_F(RaySwitch, only_the_selected_input_is_evaluated)
{
    static constexpr int types[] = { RV_RAY_CAMERA,    RV_RAY_SHADOW,  RV_RAY_REFLECTED,
                                     RV_RAY_REFRACTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY };
    std::string evaluated;
    for (const char* input : inputs)
        RvNodeLink(
            shader_tools::shader(input, RV_TYPE_RGBA,
                                 [&, input](RtNode*, RtShaderGlobals*) { evaluated += input; }),
            input, ray_switch);
    for (int i = 0; i < 6; ++i) {
        evaluated.clear();
        seenBy(types[i]);
        EXPECT_EQ(evaluated, inputs[i]);
    }
    evaluated.clear();
    seenBy(3);
    EXPECT_EQ(evaluated, "");
}

} // namespace
