// Tests of the shader "hair".
#include "shaders/hair.h"

#include "rv_gi.h"
#include "shader_tools.h"
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;
using node_tools::describe;
using node_tools::named;
using shader_tools::rgbShader;
using rv::operator*;

// A strand along y at the origin, seen from above, with root and tip in plain colours.
class Strands : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        startStrand();
    }
    void TearDown() override
    {
        shader_tools::programs().clear();
        Surfaces::TearDown();
    }
    void startStrand()
    {
        shader = named("hair", "hair");
        rgb("rootcolor", 1, 0, 0);
        rgb("tipcolor", 0, 1, 0);
        flt("spec", 0);
        context = cameraContext();
        state = {};
        context.state = &state;
        context.ray_type = RV_RAY_CAMERA;
        context.ray_dir = { 0, 0, -1 };
        context.dPdv = { 0, 3, 0 };
        context.normal = context.facing_normal = { 0, 0, 1 };
        context.geometric_normal = context.facing_geometric_normal = { 0, 0, 1 };
    }

    // Light of radiance 1 that comes from a direction.
    static RtNode* lightFrom(const RtVector& dir, const char* name = "sun")
    {
        RtNode* const light = named("distant_light", name);
        RvNodeSetVec(light, "direction", -dir.x, -dir.y, -dir.z);
        return light;
    }
    // Prepares the scene and shades the context.
    RtRGB shaded()
    {
        prepare();
        return shadedAgain();
    }
    RtRGB shadedAgain()
    {
        state.lights = {};
        context.lights = RvUniverseGetLights();
        context.light_count = RvUniverseGetNumLights();
        context.front_hemisphere_only = 1;
        context.out.RGB = { 7, 7, 7 };
        context.out_opacity = RV_RGB_WHITE;
        RvShaderEvaluate(shader, &context);
        return context.out.RGB;
    }
    static RtVector vectorOf(const json& numbers)
    {
        const std::vector<float> v = goldenFloats(numbers);
        return { v.at(0), v.at(1), v.at(2) };
    }

    RtShadingState state = {};
    RtShaderGlobals context = {};
};

// ---- Lobes ----

TEST_F(Strands, lobes_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "hair_lobes")) {
        const json& in = v["in"];
        const RtVector T = vectorOf(in["T"]), L = vectorOf(in["light_dir"]), V = vectorOf(in["V"]);
        expectGoldenNumbers(v, "diffuse", { rv::hairDiffuse(T, L, goldenFloat(in["ambdiff"])) });
        expectGoldenNumbers(v, "specular", { rv::hairSpecular(T, L, V, goldenFloat(in["gloss"])) });
    }
}

TEST_F(Strands, lobes_never_exceed_1)
{
    for (double a = 0; a < 6.3; a += 0.3)
        for (double b = -1.5; b < 1.6; b += 0.3) {
            const RtVector L = { float(cos(a) * cos(b)), float(sin(b)), float(sin(a) * cos(b)) };
            for (float ambdiff : { 0.0f, 0.3f, 1.0f }) {
                const float diffuse = rv::hairDiffuse({ 0, 1, 0 }, L, ambdiff);
                EXPECT_GE(diffuse, 1 - ambdiff - 1e-6f);
                EXPECT_LE(diffuse, 1 + 1e-6f);
            }
            for (float gloss : { 0.0f, 1.0f, 10.0f, 1000.0f }) {
                const float specular = rv::hairSpecular({ 0, 1, 0 }, L, { 0, 0, 1 }, gloss);
                EXPECT_GE(specular, 0);
                EXPECT_LE(specular, 1);
            }
        }
}

TEST_F(Strands, the_mean_of_the_diffuse_lobe_has_a_closed_form)
{
    // Over the sphere the sine of the angle with the strand has the mean pi / 4.
    for (float ambdiff : { 0.0f, 0.6f, 1.0f }) {
        double sum = 0;
        constexpr int steps = 2000;
        for (int i = 0; i < steps; ++i) {
            const float c = float(-1 + 2 * (i + 0.5) / steps);
            sum += double(rv::hairDiffuse({ 0, 1, 0 }, { sqrtf(1 - c * c), c, 0 }, ambdiff));
        }
        const double expected = double(ambdiff) * std::numbers::pi / 4 + 1 - double(ambdiff);
        EXPECT_NEAR(sum / steps, expected, 1e-4) << ambdiff;
    }
}

// ---- Direct light ----

TEST_F(Strands, diffuse_light_falls_with_the_angle_between_light_and_strand)
{
    const struct {
        const char* name;
        RtVector light;
        float ambdiff, expected;
    } rows[] = {
        { "across", { 0, 0, 1 }, 1, 1 },
        { "slanted", { 0, 0.6f, 0.8f }, 1, 0.8f },
        { "slanted, half", { 0, 0.6f, 0.8f }, 0.5f, 0.9f },
        { "along", { 0, 1, 0 }, 1, 0 },
        { "along, in part", { 0, -1, 0 }, 0.75f, 0.25f },
        { "along, whatever the angle", { 0, 1, 0 }, 0, 1 },
        { "from behind", { 0, 0, -1 }, 1, 1 },
    };
    for (const auto& row : rows) {
        lightFrom(row.light);
        flt("ambdiff", row.ambdiff);
        const RtRGB color = shaded();
        EXPECT_NEAR(color.r, row.expected, 1e-5) << row.name;
        EXPECT_EQ(color.g, 0) << row.name;
        startAnew();
    }
}

TEST_F(Strands, the_highlight_lies_around_the_strand)
{
    const struct {
        const char* name;
        RtVector light, view;
        float gloss, expected;
    } rows[] = {
        { "mirrored", { 0, 0.6f, 0.8f }, { 0, -0.6f, 0.8f }, 10, 1 },
        { "from the side", { 0.6f, 0, 0.8f }, { -0.8f, 0, 0.6f }, 10, 1 },
        { "slanted", { 0, 0.6f, 0.8f }, { 0, 0.6f, 0.8f }, 4, 0.4096f },
        { "slanted, without gloss", { 0, 0.6f, 0.8f }, { 0, 0.6f, 0.8f }, 0, 1 },
        { "along", { 0, 1, 0 }, { 0, 1, 0 }, 10, 0 },
        { "from the opposite side", { 0, 0, -1 }, { 0, 0, 1 }, 10, 1 },
    };
    for (const auto& row : rows) {
        lightFrom(row.light);
        context.ray_dir = row.view * -1.0f;
        rgb("rootcolor", 0, 0, 0);
        rgb("tipcolor", 0, 0, 0);
        rgb("spec_color", 1, 0.5f, 0.25f);
        flt("spec", 0.5f);
        flt("gloss", row.gloss);
        const RtRGB color = shaded();
        EXPECT_NEAR(color.r, row.expected * 0.5f, 1e-5) << row.name;
        EXPECT_NEAR(color.g, row.expected * 0.25f, 1e-5) << row.name;
        EXPECT_NEAR(color.b, row.expected * 0.125f, 1e-5) << row.name;
        startAnew();
    }
}

TEST_F(Strands, a_highlight_of_negative_gloss_stays_a_number)
{
    lightFrom({ 0, 0.6f, 0.8f });
    context.ray_dir = { 0, -0.6f, -0.8f };
    rgb("rootcolor", 0, 0, 0);
    rgb("tipcolor", 0, 0, 0);
    rgb("spec_color", 1, 0, 0);
    flt("spec", 1);
    flt("gloss", -2);
    EXPECT_NEAR(shaded().r, 1 / 0.64f, 1e-5); // falls away from the strand
    flt("gloss", -1e30f);
    const RtRGB color = shadedAgain();
    EXPECT_TRUE(isfinite(color.r) && color.r > 1e6f);
    EXPECT_EQ(color.g, 0);
}

TEST_F(Strands, lights_choose_what_they_shine_on)
{
    flt("spec", 1);
    rgb("spec_color", 0, 0, 1);
    for (bool diffuse : { false, true })
        for (bool specular : { false, true }) {
            RtNode* const light = lightFrom({ 0, 0, 1 });
            RvNodeSetBool(light, "affect_diffuse", diffuse);
            RvNodeSetBool(light, "affect_specular", specular);
            flt("spec", 1);
            rgb("spec_color", 0, 0, 1);
            const RtRGB color = shaded();
            EXPECT_EQ(color.r, diffuse ? 1 : 0);
            EXPECT_EQ(color.b, specular ? 1 : 0);
            startAnew();
        }
}

TEST_F(Strands, without_spec_there_is_no_highlight)
{
    lightFrom({ 0, 0, 1 });
    rgb("spec_color", 1e30f, 1e30f, 1e30f);
    for (float spec : { 0.0f, -1.0f }) {
        flt("spec", spec);
        EXPECT_EQ(describe(shaded()), "1 0 0") << spec;
    }
}

TEST_F(Strands, without_spec_not_even_an_endless_highlight_is_worked_out)
{
    RvNodeSetFlt(lightFrom({ 0, 0.6f, 0.8f }), "intensity", 1e30f);
    context.ray_dir = { 0, -0.6f, -0.8f };
    rgb("rootcolor", 0, 0, 0);
    flt("gloss", -1e30f);
    flt("spec", 1);
    ASSERT_FALSE(isfinite(shaded().r)) << "a highlight beyond all numbers";
    flt("spec", 0); // which times 0 would be no number
    EXPECT_EQ(describe(shadedAgain()), "0 0 0");
}

TEST_F(Strands, light_from_all_sides_is_asked_for)
{
    lightFrom({ 0, 0, -1 });
    shaded();
    EXPECT_EQ(context.front_hemisphere_only, 0);
}

TEST_F(Strands, several_lights_add_up)
{
    lightFrom({ 0, 0, 1 }, "one");
    lightFrom({ 1, 0, 0 }, "two");
    EXPECT_NEAR(shaded().r, 2, 1e-5);
}

TEST_F(Strands, the_length_of_a_strand_does_not_matter)
{
    lightFrom({ 0, 0.6f, 0.8f });
    flt("ambdiff", 1);
    prepare();
    for (float length : { 1e-30f, 1e-5f, 1.0f, 1e30f }) {
        context.dPdv = { 0, length, 0 };
        EXPECT_NEAR(shadedAgain().r, 0.8f, 1e-5f) << length;
    }
}

TEST_F(Strands, a_strand_without_direction_is_lit_from_everywhere)
{
    context.dPdv = { 0, 0, 0 };
    lightFrom({ 0, 1, 0 });
    flt("spec", 1);
    const RtRGB color = shaded();
    EXPECT_EQ(describe(color), "2 1 1");
}

// ---- Colours ----

TEST_F(Strands, the_colour_runs_from_root_to_tip)
{
    lightFrom({ 0, 0, 1 });
    prepare();
    for (float v : { 0.0f, 0.25f, 1.0f }) {
        context.v = v;
        expectColor(shadedAgain(), { 1 - v, v, 0 });
    }
}

TEST_F(Strands, user_data_stands_in_for_texture_coordinates)
{
    RtNode* const object = disc("disc", 0);
    for (const char* name : { "s", "t" }) {
        RvNodeDeclare(object, name, "constant FLOAT");
        RvNodeSetFlt(object, name, *name == 's' ? 0.125f : 0.75f);
    }
    RvNodeDeclare(object, "number", "constant INT");
    RvNodeDeclare(object, "numbers", "uniform INT");
    RvNodeSetArray(object, "numbers", RvArray(1, 1, RV_TYPE_INT, 7));
    RvNodeDeclare(object, "list", "constant ARRAY FLOAT");
    RvNodeSetArray(object, "list", RvArray(1, 1, RV_TYPE_FLOAT, 7.0));
    RvNodeDeclare(object, "each", "uniform FLOAT");
    RvNodeSetArray(object, "each", RvArray(1, 1, RV_TYPE_FLOAT, 0.625));
    RvNodeLink(shader_tools::shader("coordinates", RV_TYPE_RGB,
                                    [](RtNode*, RtShaderGlobals* sg) {
                                        sg->out.RGB = { sg->u, sg->v, 0 };
                                    }),
               "rootcolor", shader);
    rgb("tipcolor", 0, 0, 1);
    lightFrom({ 0, 0, 1 });
    RvNodeSetBool(RvNodeLookUpByName("sun"), "cast_shadows", false);
    prepare();
    const struct {
        const char *uparam, *vparam;
        RtRGB root;
    } rows[] = {
        { "", "", { 0.5f, 0.25f, 0 } },          { "s", "", { 0.125f, 0.25f, 0 } },
        { "", "t", { 0.5f, 0.75f, 0 } },         { "s", "t", { 0.125f, 0.75f, 0 } },
        { "missing", "t", { 0.5f, 0.75f, 0 } },  { "t", "s", { 0.75f, 0.125f, 0 } },
        { "number", "t", { 0.5f, 0.75f, 0 } },   { "numbers", "list", { 0.5f, 0.25f, 0 } },
        { "s", "number", { 0.125f, 0.25f, 0 } }, { "each", "each", { 0.625f, 0.625f, 0 } },
    };
    context.object = object;
    context.u = 0.5f;
    context.v = 0.25f;
    for (const auto& row : rows) {
        RvNodeSetStr(shader, "uparam", row.uparam);
        RvNodeSetStr(shader, "vparam", row.vparam);
        // Between root and tip the context's own v decides.
        const RtRGB color = shadedAgain();
        expectColor(color, { 0.75f * row.root.r, 0.75f * row.root.g, 0.25f });
        EXPECT_EQ(context.u, 0.5f);
        EXPECT_EQ(context.v, 0.25f);
        EXPECT_EQ(takeProblem(), "") << row.uparam << " " << row.vparam;
    }
}

TEST_F(Strands, the_look_sees_user_data_and_what_comes_before_and_after_does_not)
{
    RtNode* const object = disc("disc", 0);
    RvNodeDeclare(object, "s", "constant FLOAT");
    RvNodeSetFlt(object, "s", 0.125f);
    RvNodeSetStr(shader, "uparam", "s");
    set("GI_diffuse_depth", 1); // asks for kd_ind
    const struct {
        const char* param;
        float u;
    } rows[] = {
        { "ambdiff", 0.125f },    { "gloss", 0.125f },     { "spec", 0.125f },
        { "spec_color", 0.125f }, { "rootcolor", 0.125f }, { "tipcolor", 0.125f },
        { "opacity", 0.5f },      { "kd_ind", 0.5f },
    };
    std::map<std::string, float> seen_by;
    for (const auto& row : rows)
        RvNodeLink(shader_tools::shader(row.param, RV_TYPE_FLOAT,
                                        [&seen_by, &row](RtNode*, RtShaderGlobals* sg) {
                                            seen_by[row.param] = sg->u;
                                            sg->out.FLT = *row.param == 'k' ? 0.0f : 1.0f;
                                        }),
                   row.param, shader);
    context.object = object;
    context.u = 0.5f;
    shaded();
    for (const auto& row : rows) {
        ASSERT_TRUE(seen_by.contains(row.param)) << row.param;
        EXPECT_EQ(seen_by[row.param], row.u) << row.param;
    }
}

TEST_F(Strands, inputs_may_be_linked)
{
    lightFrom({ 0, 1, 0 });
    RvNodeLink(shader_tools::floatShader("quarter", 0.25f), "ambdiff", shader);
    RvNodeLink(rgbShader("white", RV_RGB_WHITE), "rootcolor", shader);
    expectColor(shaded(), { 0.75f, 0.75f, 0.75f });
}

// ---- Opacity ----

TEST_F(Strands, opacity_is_thinned_by_user_data)
{
    RtNode* const object = disc("disc", 0);
    rgb("opacity", 1, 0.5f, 0.25f);
    context.object = object;
    shaded();
    EXPECT_EQ(describe(context.out_opacity), "1 0.5 0.25");
    RvNodeDeclare(object, "geo_opacity", "constant FLOAT");
    RvNodeSetFlt(object, "geo_opacity", 0.5f);
    shaded();
    EXPECT_EQ(describe(context.out_opacity), "0.5 0.25 0.125");
}

TEST_F(Strands, data_of_another_type_is_no_opacity_and_not_complained_about)
{
    RtNode* const object = disc("disc", 0);
    RvNodeDeclare(object, "geo_opacity", "uniform INT");
    RvNodeSetArray(object, "geo_opacity", RvArray(1, 1, RV_TYPE_INT, 7));
    context.object = object;
    shaded();
    EXPECT_EQ(describe(context.out_opacity), "1 1 1");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Strands, what_cannot_be_seen_is_not_shaded)
{
    lightFrom({ 0, 0, 1 });
    prepare();
    context.ray_type = RV_RAY_SHADOW;
    EXPECT_EQ(describe(shadedAgain()), "7 7 7");
    EXPECT_EQ(describe(context.out_opacity), "1 1 1");
    context.ray_type = RV_RAY_CAMERA;
    rgb("opacity", 0.00009f, 0.00009f, 0.00009f);
    EXPECT_EQ(describe(shadedAgain()), "7 7 7");
    rgb("opacity", 0, 0, 0.0002f);
    EXPECT_EQ(describe(shadedAgain()), "1 0 0");
    set("auto_transparency_probabilistic", true);
    rgb("opacity", 0.5f, 0.5f, 0.5f);
    state.accumulated_opacity = { 0.5f, 0.5f, 0.5f };
    state.random[0] = 0.1f;
    state.random[1] = 0.75f; // lets it pass
    EXPECT_EQ(describe(shadedAgain()), "7 7 7");
}

TEST_F(Strands, strands_let_light_through_by_their_opacity)
{
    RvNodeSetBool(surface(), "opaque", false);
    rgb("opacity", 1, 0.5f, 0);
    setBackground({ 0, 0, 1 });
    prepare();
    EXPECT_NEAR(seen().b, 1, 1e-5);
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 1, 0.5f, 0 });
}

// ---- Indirect light and the cache ----

TEST_F(Strands, indirect_light_comes_from_around_the_view)
{
    // A lit wall behind the viewer and a dark world elsewhere.
    emitter("wall", 1, { 1, 1, 1 });
    flt("kd_ind", 0.5f);
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 40);
    // The disc of radius 1 at distance 1 fills half of a cosine-weighted hemisphere.
    EXPECT_NEAR(shaded().r, 0.25, 0.01);
    // Required: the normal does not matter, only what is above the surface.
    context.normal = context.facing_normal = { 1, 0, 0 };
    state.indirect = {};
    EXPECT_NEAR(shadedAgain().r, 0.25, 0.01);
    context.ray_dir = { 0, 0, 1 }; // the view from below sees nothing above the surface
    state.indirect = {};
    EXPECT_EQ(shadedAgain().r, 0);
}

TEST_F(Strands, indirect_light_ends_at_the_diffuse_depth_and_without_kd_ind)
{
    setBackground({ 1, 1, 1 });
    const struct {
        float kd_ind;
        int depth, diffuse_depth;
        float expected;
    } rows[] = { { 0, 1, 0, 0 }, { -1, 1, 0, 0 }, { 1, 0, 0, 0 },
                 { 1, 1, 1, 0 }, { 1, 1, 0, 1 },  { 2, 2, 1, 2 } };
    for (const auto& row : rows) {
        flt("kd_ind", row.kd_ind);
        set("GI_diffuse_depth", row.depth);
        context.diffuse_depth = uint8_t(row.diffuse_depth);
        state.indirect = {};
        EXPECT_NEAR(shaded().r, row.expected, 1e-5) << row.kd_ind << " " << row.depth;
    }
}

TEST_F(Strands, kd_ind_is_evaluated_only_above_the_diffuse_depth)
{
    int evaluations = 0;
    RvNodeLink(shader_tools::shader("counter", RV_TYPE_FLOAT,
                                    [&](RtNode*, RtShaderGlobals*) { ++evaluations; }),
               "kd_ind", shader);
    set("GI_diffuse_depth", 1);
    context.diffuse_depth = 1;
    shaded();
    EXPECT_EQ(evaluations, 0);
    context.diffuse_depth = 0;
    shadedAgain();
    EXPECT_EQ(evaluations, 1);
}

TEST_F(Strands, the_cache_of_direct_light_is_black_on_what_is_no_curve)
{
    context.object = disc("disc", 0);
    lightFrom({ 0, 0, 1 });
    prepare();
    for (const RtShaderGlobals* sg : { static_cast<const RtShaderGlobals*>(&context),
                                       static_cast<const RtShaderGlobals*>(nullptr) }) {
        RtRGB light = { 7, 7, 7 };
        RvHairDirectDiffuseCache(&light, sg);
        EXPECT_EQ(describe(light), "0 0 0");
    }
    RvHairDirectDiffuseCache(nullptr, &context);
}

TEST_F(Strands, diffuse_rays_find_no_cached_light_on_other_objects)
{
    lightFrom({ 0, 0, 1 });
    flag("diffuse_cache", true);
    prepare();
    const uint64_t loops = rv::threadStats()->lighting[RV_LIGHTING_LOOPS].primary;
    context.ray_type = RV_RAY_DIFFUSE;
    EXPECT_EQ(describe(shadedAgain()), "0 0 0");
    EXPECT_EQ(rv::threadStats()->lighting[RV_LIGHTING_LOOPS].primary, loops);
    context.ray_type = RV_RAY_CAMERA;
    EXPECT_EQ(describe(shadedAgain()), "1 0 0");
    flag("diffuse_cache", false);
    context.ray_type = RV_RAY_DIFFUSE;
    EXPECT_EQ(describe(shadedAgain()), "1 0 0");
}

} // namespace
