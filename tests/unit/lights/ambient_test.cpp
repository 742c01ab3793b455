// Tests of core/src/lights/ambient.cpp: the "ambient_light" node.
#include "light_tools.h"

using namespace light_tools;

class AmbientLights : public Lit {
protected:
    RtRGB ambient(RtNode* node, const RtVector& normal = { 0, 0, 1 })
    {
        RtShaderGlobals sg = surface({ 0, 0, 0 }, normal);
        return static_cast<const RtLightMethods*>(node->entry->kind_methods)
            ->LightAmbient(node, &sg);
    }
};

TEST_F(AmbientLights, ambient_terms_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "ambient_light")) {
        const auto& in = v["in"];
        const auto c = goldenFloats(in["color"]), d = goldenFloats(in["direction"]),
                   n = goldenFloats(in["normal"]);
        RtNode* const node = light("ambient_light");
        RvNodeSetRGB(node, "color", c[0], c[1], c[2]);
        RvNodeSetFlt(node, "intensity", goldenFloat(in["intensity"]));
        RvNodeSetBool(node, "use_direction", in["use_direction"].get<bool>());
        RvNodeSetVec(node, "direction", d[0], d[1], d[2]);
        updateLight(node);
        const RtRGB got = ambient(node, { n[0], n[1], n[2] });
        expectGoldenNumbers(v, "value", { got.r, got.g, got.b });
        RvNodeDestroy(node);
    }
}

// Required: the colour as it is stored.
TEST_F(AmbientLights, light_gamma_does_not_apply)
{
    set("light_gamma", 2.2f);
    RtNode* const node = light("ambient_light");
    RvNodeSetRGB(node, "color", 0.5f, 0.25f, 1);
    updateLight(node);
    EXPECT_EQ(text(ambient(node)), "0.5 0.25 1");
}

TEST_F(AmbientLights, the_direction_turns_with_the_first_matrix)
{
    RtNode* const node = light("ambient_light");
    RvNodeSetBool(node, "use_direction", true);
    RtMatrix turn;
    RvM4RotationX(&turn, 90);
    RtArray* const matrix = RvArrayAllocate(1, 1, RV_TYPE_MATRIX);
    RvArraySetMtx(matrix, 0, &turn);
    RvNodeSetArray(node, "matrix", matrix);
    updateLight(node);
    RtVector side, up = { 0, 0, 1 };
    RvM4VectorByMatrixMult(&side, &turn, &up);
    EXPECT_NEAR(ambient(node, side).r, 1, 1e-6);
    EXPECT_NEAR(ambient(node, up).r, 0, 1e-6);
}

TEST_F(AmbientLights, a_zero_direction_is_reported_and_lights_uniformly)
{
    RtNode* const node = light("ambient_light", "sky");
    RvNodeSetBool(node, "use_direction", true);
    RvNodeSetVec(node, "direction", 0, 9e-11f, 0);
    updateLight(node);
    EXPECT_EQ(takeProblem(), "[ambient_light: \"sky\"] zero-vector passed in as direction -- "
                             "disabling direction");
    EXPECT_EQ(text(ambient(node, { 0, 0, -1 })), "1 1 1");
    RvNodeSetBool(node, "use_direction", false);
    updateLight(node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AmbientLights, ambient_lights_never_appear_in_the_loop)
{
    light("ambient_light");
    prepare();
    RtShaderGlobals sg = surface();
    sg.light_dist = 5;
    EXPECT_TRUE(samplesAt(sg).empty());
    EXPECT_EQ(sg.light_dist, 0);
    EXPECT_EQ(text(sg.light_unoccluded), "0 0 0");
}
