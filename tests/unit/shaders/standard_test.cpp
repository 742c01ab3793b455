// The shader "standard".
#include "shaders/standard.h"

#include "brdf.h"
#include "rv_messages.h"
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;

class StandardSurfaces : public Surfaces {
protected:
    // Nothing but the lobe under test.
    void SetUp() override
    {
        Surfaces::SetUp();
        flt("Kd", 0);
    }
    void makeMirror(float Kr = 1)
    {
        flt("Kr", Kr);
        surface();
    }
    // A ball of glass that does not bend light.
    RtNode* makeGlassBall(float z = 0)
    {
        flt("Kt", 1);
        flt("IOR", 1);
        return ball(z, 1);
    }
};

int brdfOf(const std::string& name)
{
    return name == "stretched_phong" ? rv::stretched_phong
           : name == "ward_duer"     ? rv::ward_duer
                                     : rv::cook_torrance;
}

// ---- Pieces ----

TEST_F(StandardSurfaces, roughness_is_the_golden_one)
{
    for (const json& v : goldenVectors("brdf", "standard_roughness")) {
        const json& in = v.at("in");
        const rv::LobeRoughness lobe = rv::standardRoughness(
            brdfOf(in.at("specular_brdf")), goldenFloat(in.at("Phong_exponent")),
            goldenFloat(in.at("specular_roughness")), goldenFloat(in.at("specular_anisotropy")));
        expectGoldenNumbers(v, "rx", { lobe.x });
        expectGoldenNumbers(v, "ry", { lobe.y });
    }
}

TEST_F(StandardSurfaces, transmittance_is_the_golden_one)
{
    for (const json& v : goldenVectors("brdf", "transmittance_over_distance")) {
        const std::vector<float> t = goldenFloats(v.at("in").at("T"));
        const RtRGB factor =
            rv::Absorption({ t[0], t[1], t[2] }).over(goldenFloat(v.at("in").at("d")));
        expectGoldenNumbers(v, "factor", { factor.r, factor.g, factor.b });
    }
}

TEST_F(StandardSurfaces, the_exponent_10_stands_for_the_roughness)
{
    const rv::LobeRoughness by_roughness =
        rv::standardRoughness(rv::stretched_phong, 10, 0.3f, 0.5f);
    EXPECT_NEAR(by_roughness.x, 0.09f, 1e-6f);
    const rv::LobeRoughness by_exponent =
        rv::standardRoughness(rv::stretched_phong, 9.9f, 0.3f, 0.5f);
    EXPECT_NEAR(by_exponent.x, sqrtf(0.5f / 10.4f), 1e-6f);
    EXPECT_NEAR(rv::standardRoughness(rv::ward_duer, 9.9f, 0.3f, 0.5f).x, 0.09f, 1e-6f);
}

TEST_F(StandardSurfaces, nothing_passes_a_black_medium)
{
    expectColor(rv::Absorption({ 0, 0.5f, 1 }).over(1), { 0, 0.5f, 1 });
}

// ---- Update ----

TEST_F(StandardSurfaces, weights_of_0_switch_their_Fresnel_terms_off)
{
    flag("Fresnel", true);
    flag("specular_Fresnel", true);
    flt("Ks", 0.5f);
    surface();
    prepare();
    EXPECT_FALSE(RvNodeGetBool(shader, "Fresnel"));
    EXPECT_TRUE(RvNodeGetBool(shader, "specular_Fresnel"));
}

TEST_F(StandardSurfaces, linked_weights_leave_their_Fresnel_terms_on)
{
    flag("Fresnel", true);
    RvNodeLink(node_tools::named("flat", "weight"), "Kr", shader);
    surface();
    prepare();
    EXPECT_TRUE(RvNodeGetBool(shader, "Fresnel"));
}

// ---- Diffuse ----

TEST_F(StandardSurfaces, the_defaults_are_a_diffuse_surface)
{
    shader = node_tools::named("standard", "default");
    surface();
    distantLight(60);
    set("GI_diffuse_depth", 1);
    setBackground({ 1, 1, 1 });
    prepare();
    expectColor(seen(), rv::grey(0.7f * (0.5f * one_over_pi + 1)));
    flt("indirect_diffuse", 0.25f);
    prepare();
    expectColor(seen(), rv::grey(0.7f * (0.5f * one_over_pi + 0.25f)));
    flt("direct_diffuse", 0);
    prepare();
    expectColor(seen(), rv::grey(0.7f * 0.25f));
}

TEST_F(StandardSurfaces, light_from_behind_counts_by_Kb)
{
    flt("Kd", 1);
    surface();
    RvNodeSetVec(distantLight(), "direction", 0, 0, 1);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
    flt("Kb", 0.5f);
    prepare();
    expectColor(seen(), rv::grey(0.5f * one_over_pi));
}

TEST_F(StandardSurfaces, indirect_light_from_behind_counts_by_Kb)
{
    flt("Kd", 1);
    flt("Kb", 0.5f);
    surface();
    emitter("below", -0.001f, { 1, 0, 0 });
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 4);
    setBackground({ 0, 1, 0 });
    prepare();
    const RtRGB color = seen();
    EXPECT_NEAR(color.g, 1, 1e-5);
    EXPECT_NEAR(color.r, 0.5f, 0.01);
}

TEST_F(StandardSurfaces, rough_diffuse_reflection_follows_Oren_and_Nayar)
{
    flt("Kd", 1);
    flt("diffuse_roughness", 0.5f);
    surface();
    distantLight();
    prepare();
    const float s = 0.25f * std::numbers::pi_v<float> * std::numbers::pi_v<float>;
    expectColor(seen(), rv::grey(one_over_pi * (1 - 0.5f * s / (s + 0.33f))));
}

// ---- Emission ----

TEST_F(StandardSurfaces, emission_needs_no_light)
{
    flt("emission", 2);
    rgb("emission_color", 0.1f, 0.2f, 0.3f);
    surface();
    prepare();
    expectColor(seen(), { 0.2f, 0.4f, 0.6f });
}

TEST_F(StandardSurfaces, a_bounce_factor_of_0_hides_the_object_from_bounced_rays_alone)
{
    flt("emission", 1);
    flt("bounce_factor", 0);
    surface();
    set("GI_diffuse_depth", 1);
    set("GI_glossy_depth", 1);
    prepare();
    expectColor(seen(), RV_RGB_WHITE);
    expectColor(seen(RV_RAY_DIFFUSE), RV_RGB_BLACK);
    expectColor(seen(RV_RAY_GLOSSY), RV_RGB_BLACK);
    flt("bounce_factor", 0.25f);
    prepare();
    expectColor(seen(RV_RAY_DIFFUSE), rv::grey(0.25f));
}

// ---- Specular ----

TEST_F(StandardSurfaces, direct_specular_light_is_the_lobe_times_its_weight)
{
    flt("Ks", 0.5f);
    flt("specular_roughness", 0.5f);
    surface();
    distantLight();
    prepare();
    // Straight down: c^n (n + 2) / 2 / pi with c = 1.
    const float n = 0.5f / (0.25f * 0.25f) - 0.5f;
    expectColor(seen(), rv::grey(0.5f * (n + 2) / 2 * one_over_pi), 1e-4f);
    flt("direct_specular", 0);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
}

TEST_F(StandardSurfaces, lights_may_leave_out_specular_reflection)
{
    flt("Ks", 0.5f);
    surface();
    RvNodeSetBool(distantLight(), "affect_specular", false);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
}

TEST_F(StandardSurfaces, glossy_rays_see_the_surroundings)
{
    flt("Ks", 1);
    flt("specular_roughness", 0.1f);
    surface();
    set("GI_glossy_depth", 1);
    set("GI_glossy_samples", 4);
    setBackground({ 1, 0.5f, 0.25f });
    for (const char* brdf : { "stretched_phong", "ward_duer", "cook_torrance" }) {
        RvNodeSetStr(shader, "specular_brdf", brdf);
        prepare();
        const RtRGB color = seen();
        EXPECT_NEAR(color.r, 1, 0.05) << brdf;
        EXPECT_NEAR(color.g, color.r / 2, 1e-5) << brdf;
    }
    flt("indirect_specular", 0);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
}

TEST_F(StandardSurfaces, lobes_behind_a_diffuse_bounce_need_caustics)
{
    flt("Ks", 1);
    flt("specular_roughness", 0.5f);
    surface();
    distantLight();
    set("GI_diffuse_depth", 1);
    prepare();
    expectColor(seen(RV_RAY_DIFFUSE), RV_RGB_BLACK);
    flag("enable_glossy_caustics", true);
    prepare();
    EXPECT_GT(seen(RV_RAY_DIFFUSE).r, 0);
}

TEST_F(StandardSurfaces, lobes_seen_through_a_blurred_one_are_blurred_too)
{
    flt("Ks", 1);
    flt("specular_roughness", 0.1f); // 0.01 squared
    surface();
    distantLight();
    set("GI_glossy_depth", 1);
    prepare();
    const float sharp = seen().r;
    RtShaderGlobals sg = cameraContext();
    EXPECT_NEAR(seenFrom(sg, RV_RAY_GLOSSY).r, sharp, sharp * 1e-5);
    ASSERT_TRUE(RvMessageSetFltFunc(&sg, "previous_roughness", 0.2f));
    const float n = 0.5f / (0.18f * 0.18f) - 0.5f;
    EXPECT_NEAR(seenFrom(sg, RV_RAY_GLOSSY).r, (n + 2) / 2 * one_over_pi, 0.01f);
}

// ---- Reflection ----

TEST_F(StandardSurfaces, mirrors_show_what_is_above)
{
    makeMirror(0.5f);
    emitter("lamp", 20, { 1, 0.5f, 0 });
    prepare();
    expectColor(seen(), { 0.5f, 0.25f, 0 });
}

TEST_F(StandardSurfaces, Fresnel_dims_reflection_by_Schlicks_formula)
{
    makeMirror();
    setBackground({ 1, 1, 1 });
    flag("Fresnel", true);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
    flt("Krn", 0.3f);
    prepare();
    expectColor(seen(), rv::grey(0.3f));
    // Nearly along the surface.
    const RtPoint origin = { -1, 0, 0.01f };
    const RtVector dir = { 0.99995f, 0, -0.01f };
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
    EXPECT_GT(traced(ray).color.r, 0.95f);
}

TEST_F(StandardSurfaces, reflection_at_the_depth_limit_is_the_exit_color)
{
    makeMirror();
    emitter("lamp", 20, RV_RGB_WHITE);
    setBackground({ 1, 0.5f, 0.25f });
    set("GI_reflection_depth", 0);
    rgb("reflection_exit_color", 0.8f, 0.4f, 0.2f);
    prepare();
    expectColor(seen(), { 0.8f, 0.4f, 0.2f });
    flag("reflection_exit_use_environment", true);
    prepare();
    expectColor(seen(), { 0.8f, 0.2f, 0.05f });
}

TEST_F(StandardSurfaces, mirrors_behind_a_diffuse_bounce_need_caustics)
{
    makeMirror();
    emitter("lamp", 20, RV_RGB_WHITE);
    set("GI_diffuse_depth", 1);
    prepare();
    expectColor(seen(RV_RAY_DIFFUSE), RV_RGB_BLACK);
    flag("enable_reflective_caustics", true);
    prepare();
    expectColor(seen(RV_RAY_DIFFUSE), RV_RGB_WHITE);
}

TEST_F(StandardSurfaces, reflections_inside_refractive_objects_can_be_switched_off)
{
    makeMirror();
    emitter("lamp", 20, RV_RGB_WHITE);
    prepare();
    expectColor(seen(RV_RAY_REFRACTED), RV_RGB_WHITE);
    flag("enable_internal_reflections", false);
    prepare();
    expectColor(seen(RV_RAY_REFRACTED), RV_RGB_BLACK);
    expectColor(seen(RV_RAY_CAMERA), RV_RGB_WHITE);
}

// ---- Refraction ----

TEST_F(StandardSurfaces, glass_shows_what_is_behind)
{
    makeGlassBall();
    rgb("Kt_color", 0.5f, 1, 1);
    emitter("floor", -5, { 1, 0.5f, 0.25f });
    prepare();
    expectColor(seen(), { 0.25f, 0.5f, 0.25f }); // through two sides
}

TEST_F(StandardSurfaces, glass_absorbs_by_the_way_inside)
{
    makeGlassBall();
    rgb("transmittance", 0.5f, 1, 0);
    emitter("floor", -5, RV_RGB_WHITE);
    prepare();
    expectColor(seen(), { 0.25f, 1, 0 }, 1e-4f);
}

TEST_F(StandardSurfaces, glass_bends_light_by_Snells_law)
{
    flt("Kt", 1);
    flt("IOR", 1.5f);
    RvNodeSetBool(surface(), "opaque", false);
    // At 45 degrees through the plane z = 0, the way goes on with sin = sin 45 / 1.5.
    const float sine = sqrtf(0.5f) / 1.5f, x = 2 * sine / sqrtf(1 - sine * sine);
    RtNode* const target = emitter("target", -2, RV_RGB_WHITE);
    RvNodeSetPnt(target, "center", x, 0, -2);
    RvNodeSetFlt(target, "radius", 0.001f);
    prepare();
    const RtPoint origin = { -1, 0, 1 };
    const RtVector dir = { sqrtf(0.5f), 0, -sqrtf(0.5f) };
    RtRay ray;
    RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
    expectColor(traced(ray).color, RV_RGB_WHITE);
}

TEST_F(StandardSurfaces, light_that_cannot_leave_glass_is_reflected)
{
    flt("Kt", 1);
    flt("IOR", 1.5f);
    RvNodeSetBool(surface(), "opaque", false);
    setBackground({ 0, 1, 0 }); // everything but the lamp
    RtNode* const lamp = emitter("lamp", -3, { 1, 0, 0 });
    RvNodeSetPnt(lamp, "center", 3, 0, -3);
    prepare();
    const auto fromInside = [](float degrees) {
        const float angle = degrees * std::numbers::pi_v<float> / 180;
        const RtPoint origin = { -sinf(angle), 0, -cosf(angle) };
        const RtVector dir = { sinf(angle), 0, cosf(angle) };
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
        return traced(ray).color;
    };
    expectColor(fromInside(41.7f), { 0, 1, 0 }); // critical angle: 41.81
    expectColor(fromInside(45), { 1, 0, 0 });
}

TEST_F(StandardSurfaces, refraction_at_the_depth_limit_is_the_exit_color)
{
    makeGlassBall();
    set("GI_refraction_depth", 0);
    setBackground({ 1, 0.5f, 0.25f });
    rgb("refraction_exit_color", 0.8f, 0.4f, 0.2f);
    prepare();
    expectColor(seen(), { 0.8f, 0.4f, 0.2f });
    flag("refraction_exit_use_environment", true);
    prepare();
    expectColor(seen(), { 0.8f, 0.2f, 0.05f });
}

TEST_F(StandardSurfaces, rough_glass_of_no_refraction_shows_what_is_straight_behind)
{
    makeGlassBall();
    flt("refraction_roughness", 0.3f);
    set("GI_refraction_samples", 4);
    setBackground({ 1, 1, 1 });
    prepare();
    const RtRGB color = seen();
    EXPECT_GT(color.r, 0.8f);
    EXPECT_LT(color.r, 1.2f);
}

TEST_F(StandardSurfaces, the_Fresnel_terms_always_dim_refraction_and_diffuse_light_by_choice)
{
    makeGlassBall();
    flt("Kr", 1);
    flag("Fresnel", true);
    flt("Krn", 0.25f);
    flt("Kd", 1);
    flag("Fresnel_affect_diff", false);
    set("GI_reflection_depth", 0);
    set("GI_refraction_depth", 0);
    rgb("refraction_exit_color", 0, 1, 0);
    RvNodeSetVec(distantLight(), "direction", 0, 0, -1);
    prepare();
    expectColor(seen(), { one_over_pi, one_over_pi + 0.75f, one_over_pi }, 1e-4f);
    flag("Fresnel_affect_diff", true);
    prepare();
    expectColor(seen(), { 0.75f * one_over_pi, 0.75f * (one_over_pi + 1), 0.75f * one_over_pi },
                1e-4f);
}

// ---- Shadows ----

TEST_F(StandardSurfaces, white_glass_throws_no_shadow)
{
    makeGlassBall();
    prepare();
    expectColor(shadowOf(down(RV_RAY_SHADOW)), RV_RGB_BLACK);
}

TEST_F(StandardSurfaces, shadows_keep_what_the_medium_lets_through)
{
    makeGlassBall();
    rgb("transmittance", 0.5f, 0.5f, 1);
    prepare();
    RtShaderGlobals sg = cameraContext();
    expectColor(shadowOf(down(RV_RAY_SHADOW, &sg)), { 0.75f, 0.75f, 0 }, 1e-4f);
}

TEST_F(StandardSurfaces, colored_glass_colors_the_light_behind_it)
{
    makeGlassBall();
    rgb("Kt_color", 0.5f, 0.25f, 1);
    prepare();
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 0.75f, 0.9375f, 0 }); // two sides
}

} // namespace
