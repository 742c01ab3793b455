// Tests of the shader "utility": its opacity, its shade modes and where colours come from.
#include "shaders/utility.h"

#include "image_tools.h"
#include "sampler.h"
#include "shader_tools.h"
#include "shaders/node_sampler.h"
#include "shaders/surface_fixture.h"

namespace {

using namespace surface_tools;
using node_tools::describe;
using node_tools::named;
using shader_tools::floatShader;

class Utilities : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        shader = named("utility", "view");
        RvNodeSetStr(shader, "shade_mode", "flat");
        context = cameraContext();
        context.state = &state;
        context.normal = context.facing_normal = { 0, 0, 1 };
        context.geometric_normal = context.facing_geometric_normal = { 0, 0, 1 };
        context.ray_dir = { 0, 0, -1 };
        context.ray_type = RV_RAY_CAMERA;
    }
    void TearDown() override
    {
        shader_tools::programs().clear();
        Surfaces::TearDown();
    }

    void setModes(const char* color_mode, const char* shade_mode)
    {
        RvNodeSetStr(shader, "color_mode", color_mode);
        RvNodeSetStr(shader, "shade_mode", shade_mode);
    }
    // What the shader makes of the context.
    RtRGB shaded()
    {
        context.out.RGB = { 7, 7, 7 };
        context.out_opacity = RV_RGB_WHITE;
        RvShaderEvaluate(shader, &context);
        return context.out.RGB;
    }
    RtRGB colorOf(const char* color_mode)
    {
        RvNodeSetStr(shader, "color_mode", color_mode);
        return shaded();
    }
    void update()
    {
        rv::RvNodeInitialize(shader);
        shader->entry->methods->Update(shader, shader->params);
    }
    static RtVector vectorOf(const json& numbers)
    {
        const std::vector<float> v = goldenFloats(numbers);
        return { v.at(0), v.at(1), v.at(2) };
    }
    static RtRGB rgbOf(const json& numbers)
    {
        const RtVector v = vectorOf(numbers);
        return { v.x, v.y, v.z };
    }
    // An object with the name of a golden vector; null for the empty one.
    static RtNode* objectNamed(const json& hex)
    {
        const std::string digits = hex.get<std::string>();
        std::string name;
        for (size_t i = 0; i < digits.size(); i += 2)
            name.push_back(char(std::stoi(digits.substr(i, 2), nullptr, 16)));
        return name.empty() ? nullptr : named("sphere", name.c_str());
    }

    RtShadingState state = {};
    RtShaderGlobals context = {};
};

// ---- Colours ----

TEST_F(Utilities, modes_show_fields_of_the_context)
{
    context.geometric_normal = { -1, 0.5f, 0 };
    context.normal = { 0, -0.5f, 1 };
    context.bary_u = 0.25f;
    context.bary_v = 2;
    context.u = -0.5f;
    context.v = 3;
    context.dPdu = { 0, -8, 0 };
    context.dPdv = { 3e20f, 0, 4e20f };
    rgb("color", 0.1f, 0.2f, 0.3f);
    const struct {
        const char* mode;
        RtRGB color;
    } rows[] = {
        { "color", { 0.1f, 0.2f, 0.3f } },
        { "ng", { 0, 0.75f, 0.5f } },
        { "n", { 0.5f, 0.25f, 1 } },
        { "bary", { 0.25f, 2, 0 } },
        { "uv", { -0.5f, 3, 0 } },
        { "u", { -0.5f, -0.5f, -0.5f } },
        { "v", { 3, 3, 3 } },
        { "dpdu", { 0.5f, 0, 0.5f } },
        { "dpdv", { 0.8f, 0.5f, 0.9f } },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        expectColor(colorOf(row.mode), row.color);
    }
    context.dPdu = context.dPdv = { 0, 0, 0 };
    expectColor(colorOf("dpdu"), { 0.5f, 0.5f, 0.5f });
    expectColor(colorOf("dpdv"), { 0.5f, 0.5f, 0.5f });
}

TEST_F(Utilities, an_unknown_mode_is_grey)
{
    for (int mode : { -1, 18, 1000 }) {
        RtNode* const number =
            shader_tools::shader(("number " + std::to_string(mode)).c_str(), RV_TYPE_INT,
                                 [mode](RtNode*, RtShaderGlobals* sg) { sg->out.INT = mode; });
        RvNodeLink(number, "color_mode", shader);
        expectColor(shaded(), { 0.5f, 0.5f, 0.5f });
        RvNodeUnlink(shader, "color_mode");
        RvNodeLink(number, "shade_mode", shader);
        expectColor(shaded(), { 1, 1, 1 });
        RvNodeUnlink(shader, "shade_mode");
    }
}

TEST_F(Utilities, places_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "utility_p")) {
        RtNode* const box = named("box", "box");
        const RtPoint min = vectorOf(v["in"]["bmin"]), max = vectorOf(v["in"]["bmax"]);
        RvNodeSetPnt(box, "min", min.x, min.y, min.z);
        RvNodeSetPnt(box, "max", max.x, max.y, max.z);
        prepare();
        context.object = box;
        context.object_point = vectorOf(v["in"]["object_point"]);
        const RtRGB got = colorOf("p");
        expectGoldenNumbers(v, "rgb", { got.r, got.g, got.b });
        startAnew();
    }
}

TEST_F(Utilities, places_deliberately_grow_at_the_pace_of_x)
{
    RtNode* const box = named("box", "box");
    RvNodeSetPnt(box, "min", 0, -2, 0);
    RvNodeSetPnt(box, "max", 2, 2, 1);
    prepare();
    context.object = box;
    context.object_point = { 1, 2, 1 };
    expectColor(colorOf("p"), { 0.5f, 2, 0.5f });
    context.object = nullptr; // an empty box
    expectColor(colorOf("p"), { 0, 0, 0 });
    RtNode* const flat = polygons({ { 1, 0, 0 }, { 1, 1, 0 }, { 1, 0, 1 } }, { { 0, 1, 2 } });
    RtNode* const plane = named("plane", "plane");
    prepare();
    context.object = flat;
    expectColor(colorOf("p"), { 0, 0, 0 });
    context.object = plane;
    const RtRGB endless = colorOf("p");
    EXPECT_TRUE(isfinite(endless.r) && isfinite(endless.g) && isfinite(endless.b));
}

TEST_F(Utilities, places_in_the_thinnest_boxes_are_numbers)
{
    RtNode* const box = named("box", "box");
    RvNodeSetPnt(box, "max", 1e-40f, 1e-40f, 1e-40f);
    RvNodeSetPnt(box, "min", 0, 0, 0);
    prepare();
    context.object = box;
    context.object_point = { 0, 1e-40f, 0 };
    expectColor(colorOf("p"), { 0, 1, 0 });
}

TEST_F(Utilities, names_and_primitives_have_the_colours_of_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "utility_obj_colour")) {
        context.object = objectNamed(v["in"]["name_hex"]);
        const RtRGB got = colorOf("obj");
        expectGoldenNumbers(v, "rgb", { got.r, got.g, got.b });
        startAnew();
    }
    for (const json& v : goldenVectors("shading", "utility_prims_colour")) {
        context.object = objectNamed(v["in"]["name_hex"]);
        context.prim_index = v["in"]["prim_index"].get<uint32_t>();
        const RtRGB got = colorOf("prims");
        expectGoldenNumbers(v, "rgb", { got.r, got.g, got.b });
        startAnew();
    }
}

TEST_F(Utilities, the_carrier_of_the_shaders_gives_its_name)
{
    RtNode *const a = sphere("a", { 0, 0, 0 }, 1), *const b = sphere("b", { 0, 0, 0 }, 1);
    context.object = a;
    const RtRGB of_a = colorOf("obj"), of_face = colorOf("prims");
    context.shader_source = b;
    EXPECT_NE(describe(colorOf("obj")), describe(of_a));
    context.object = b;
    context.shader_source = a;
    EXPECT_EQ(describe(colorOf("obj")), describe(of_a));
    EXPECT_EQ(describe(colorOf("prims")), describe(of_face));
    context.prim_index = 1;
    EXPECT_NE(describe(colorOf("prims")), describe(of_face));
    // Objects of the same name have the same colour, in whatever scene and of whatever kind.
    startAnew();
    context.object = named("box", "a");
    EXPECT_EQ(describe(colorOf("obj")), describe(of_a));
    EXPECT_EQ(describe(colorOf("prims")), describe(of_face));
}

TEST_F(Utilities, the_grid_of_powers_of_two_agrees_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "utility_floatgrid")) {
        context.point = vectorOf(v["in"]["p"]);
        const RtRGB got = colorOf("floatgrid");
        expectGoldenNumbers(v, "rgb", { got.r, got.g, got.b });
    }
}

TEST_F(Utilities, regions_between_powers_of_two_are_flat)
{
    context.point = { 1, -0.5f, 100 };
    const std::string corner = describe(colorOf("floatgrid"));
    context.point = { 1.99f, -0.99f, 127 };
    EXPECT_EQ(describe(colorOf("floatgrid")), corner);
    for (const RtPoint& other :
         { RtPoint{ 2, -0.5f, 100 }, { 1, 0.5f, 100 }, { 1, -0.5f, 128 }, { 0, -0.5f, 100 } }) {
        context.point = other;
        EXPECT_NE(describe(colorOf("floatgrid")), corner) << describe(other);
    }
    context.point = { NAN, INFINITY, -INFINITY };
    const RtRGB strange = colorOf("floatgrid");
    EXPECT_TRUE(strange.r >= 0 && strange.r <= 1);
}

TEST_F(Utilities, reflected_stripes_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "utility_reflectline")) {
        context.ray_dir = vectorOf(v["in"]["ray_dir"]);
        context.normal = vectorOf(v["in"]["normal"]);
        const RtRGB got = colorOf("reflectline");
        expectGoldenNumbers(v, "grey", { got.r });
        EXPECT_EQ(got.r, got.g);
        EXPECT_EQ(got.r, got.b);
    }
}

TEST_F(Utilities, reflected_stripes_repeat_every_ten_degrees)
{
    const auto stripe = [this](double degrees) { // of the reflection from the y axis
        const double half = degrees / 2 * M_PI / 180;
        context.ray_dir = { 0, -1, 0 };
        context.normal = { float(sin(half)), float(cos(half)), 0 };
        return colorOf("reflectline").r;
    };
    for (int band = 0; band < 17; ++band) {
        EXPECT_EQ(stripe(10 * band + 1), 0) << band;
        EXPECT_EQ(stripe(10 * band + 9), 0) << band;
        EXPECT_EQ(stripe(10 * band + 5), 1) << band;
        EXPECT_NEAR(stripe(10 * band + 2.5), 0.5, 1e-3) << band;
        EXPECT_NEAR(stripe(10 * band + 7.5), 0.5, 1e-3) << band;
    }
    context.ray_dir = { 0, -1, 0 };
    context.normal = { NAN, 1, 0 };
    EXPECT_EQ(colorOf("reflectline").r, 0);
    for (const RtVector& n : { RtVector{ 0, 0, 0 }, { 0, 1, 0 } }) {
        context.normal = n;
        context.ray_dir = { 0, 0, 0 }; // nothing to mirror
        const float grey = colorOf("reflectline").r;
        EXPECT_TRUE(grey >= 0 && grey <= 1);
    }
}

TEST_F(Utilities, bad_derivatives_are_marked)
{
    const struct {
        RtVector v;
        bool is_bad;
    } rows[] = {
        { { 0, 0, 0 }, true },         { { 0.00009f, -0.00009f, 0.00009f }, true },
        { { 0.0002f, 0, 0 }, false },  { { 0, 0, -0.0002f }, false },
        { { 1, 2, NAN }, true },       { { INFINITY, 0, 0 }, true },
        { { 1, -INFINITY, 1 }, true },
    };
    for (const auto& row : rows) {
        context.dPdu = row.v;
        context.dPdv = { 1, 0, 0 };
        EXPECT_EQ(describe(colorOf("bad_uvs")), row.is_bad ? "1 0 0" : "0 0 0") << describe(row.v);
        std::swap(context.dPdu, context.dPdv);
        EXPECT_EQ(describe(colorOf("bad_uvs")), row.is_bad ? "0 0 1" : "0 0 0") << describe(row.v);
    }
    context.dPdu = context.dPdv = { 0, 0, 0 };
    EXPECT_EQ(describe(colorOf("bad_uvs")), "1 0 1");
}

TEST_F(Utilities, wires_are_one_pixel_wide)
{
    RtNode* const square =
        polygons({ { -1, -1, 0 }, { 1, -1, 0 }, { 1, 1, 0 }, { -1, 1, 0 } }, { { 0, 1, 2, 3 } });
    prepare();
    context.object = square;
    context.dDdx = { 0.01f, 0, 0 };
    context.dDdy = { 0, 0.01f, 0 };
    context.ray_length = 10; // 0.1 to a pixel
    const struct {
        RtPoint point;
        const char *wire, *polywire;
    } rows[] = {
        { { 0, 0, 0 }, "0 0 0", "1 1 1" },
        { { 0, -0.96f, 0 }, "0 0 0", "0 0 0" },
        { { 0.3f, -0.94f, 0 }, "1 1 1", "1 1 1" },
    };
    for (const auto& row : rows) {
        context.point = row.point;
        EXPECT_EQ(describe(colorOf("wire")), row.wire) << describe(row.point);
        EXPECT_EQ(describe(colorOf("polywire")), row.polywire) << describe(row.point);
    }
    context.object = nullptr;
    EXPECT_EQ(describe(colorOf("wire")), "1 1 1");
}

// ---- Edge lengths ----

TEST_F(Utilities, edge_lengths_agree_with_the_golden_vectors)
{
    for (const json& v : goldenVectors("shading", "utility_edgelength")) {
        const RtRGB got = rv::edgeLengthColor(goldenFloat(v["in"]["L"]), goldenFloat(v["in"]["e"]));
        expectGoldenNumbers(v, "rgb", { got.r, got.g, got.b });
    }
}

TEST_F(Utilities, edge_lengths_run_from_red_over_green_to_blue)
{
    const struct {
        float length;
        RtRGB color;
    } rows[] = {
        { 0, { 1, 0, 0 } },         { 1, { 1, 0, 0 } },       { 1.5f, { 1, 0.5f, 0 } },
        { 2, { 1, 1, 0 } },         { 3, { 0.5f, 1, 0 } },    { 4, { 0, 1, 0 } },
        { 6, { 0, 0.75f, 0.05f } }, { 8, { 0, 0.5f, 0.1f } }, { 12, { 0, 0.25f, 0.55f } },
        { 16, { 0, 0, 1 } },        { 1000, { 0, 0, 1 } },    { INFINITY, { 0, 0, 1 } },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length);
        expectColor(rv::edgeLengthColor(row.length, 4), row.color);
    }
    for (float error : { -4.0f, NAN, INFINITY, 1e-40f })
        for (float length : { 0.0f, 1.0f, NAN }) {
            const RtRGB color = rv::edgeLengthColor(length, error);
            EXPECT_TRUE(color.r >= 0 && color.g >= 0 && color.b >= 0) << error << " " << length;
        }
}

TEST_F(Utilities, only_meshes_for_subdivision_have_edge_lengths)
{
    RtNode* const camera = named("persp_camera", "camera");
    RvNodeSetPtr(options(), "camera", camera);
    RtNode* const mesh =
        polygons({ { -1, -1, -10 }, { 1, -1, -10 }, { 0, 1, -10 } }, { { 0, 1, 2 } });
    RtNode* const ball = sphere("ball", { 0, 0, 0 }, 1);
    prepare();
    const auto isUnknown = [this](RtNode* object) {
        context.object = object;
        return describe(colorOf("edgelength")) == "0.699999988 0.699999988 0.699999988";
    };
    EXPECT_TRUE(isUnknown(nullptr));
    EXPECT_TRUE(isUnknown(ball));
    EXPECT_TRUE(isUnknown(mesh)) << "is not subdivided";
    rv::PolyMesh& params = rv::polymeshParams(mesh);
    params.subdiv_type = 1;
    params.subdiv_pixel_error = 0;
    EXPECT_TRUE(isUnknown(mesh)) << "to no length";
    context.object = mesh;
    const float length = RvShaderGlobalsEdgeLength(&context);
    ASSERT_GT(length, 0);
    params.subdiv_pixel_error = length / 3;
    EXPECT_FALSE(isUnknown(mesh));
    expectColor(colorOf("edgelength"), { 0, 0.25f, 0.55f });
    params.subdiv_type = 0;
}

// ---- Opacity ----

TEST_F(Utilities, only_objects_that_are_not_opaque_may_be_seen_through)
{
    RtNode *const glass = sphere("glass", { 0, 0, 0 }, 1), *const wall = sphere("wall", {}, 1);
    RvNodeSetBool(glass, "opaque", false);
    set("auto_transparency_depth", 3);
    flt("opacity", 0.25f);
    prepare();
    const struct {
        const char* name;
        RtNode *object, *source;
        uint32_t transparency_index;
        float opacity;
    } rows[] = {
        { "nothing", nullptr, nullptr, 0, 1 },
        { "opaque", wall, nullptr, 0, 1 },
        { "not opaque", glass, nullptr, 0, 0.25f },
        { "not opaque by its source", wall, glass, 0, 0.25f },
        { "opaque by its source", glass, wall, 0, 1 },
        { "behind others", glass, nullptr, 2, 0.25f },
        { "last hit", glass, nullptr, 3, 1 },
        { "beyond", glass, nullptr, 4, 0.25f },
        { "no shape", shader, nullptr, 0, 1 },
        { "source without object", nullptr, glass, 0, 1 },
    };
    for (const auto& row : rows) {
        context.object = row.object;
        context.shader_source = row.source;
        context.transparency_index = row.transparency_index;
        EXPECT_EQ(shaded().g, row.opacity) << row.name;
        EXPECT_EQ(describe(context.out_opacity), describe(rv::grey(row.opacity))) << row.name;
    }
    context.object = glass;
    context.transparency_index = 0;
    RvNodeLink(floatShader("half", 0.5f), "opacity", shader);
    EXPECT_EQ(shaded().g, 0.5f);
}

TEST_F(Utilities, opaque_objects_keep_the_opacity_that_they_have)
{
    context.object = sphere("wall", {}, 1);
    prepare();
    context.out_opacity = { 0.25f, 0.5f, 0.75f }; // of a shader before this one
    RvShaderEvaluate(shader, &context);
    EXPECT_EQ(describe(context.out_opacity), "0.25 0.5 0.75");
}

TEST_F(Utilities, lit_modes_tell_shadow_rays_their_opacity_alone)
{
    RtNode* const glass = sphere("glass", { 0, 0, 0 }, 1);
    RvNodeSetBool(glass, "opaque", false);
    flt("opacity", 0.25f);
    prepare();
    context.object = glass;
    context.ray_type = RV_RAY_SHADOW;
    for (const char* mode : { "lambert", "ambocc", "flat", "ndoteye" }) {
        RvNodeSetStr(shader, "shade_mode", mode);
        const bool is_lit = !strcmp(mode, "lambert") || !strcmp(mode, "ambocc");
        EXPECT_EQ(describe(shaded()), is_lit ? "7 7 7" : "0.25 0.25 0.25") << mode;
        EXPECT_EQ(describe(context.out_opacity), "0.25 0.25 0.25") << mode;
    }
}

TEST_F(Utilities, rays_pass_through_by_the_opacity)
{
    RvNodeSetBool(surface(), "opaque", false);
    rgb("color", 1, 0.5f, 0);
    flt("opacity", 0.25f);
    setBackground({ 0, 0, 1 });
    prepare();
    expectColor(seen(), { 0.25f * 0.25f, 0.125f * 0.25f, 0.75f });
    expectColor(shadowOf(down(RV_RAY_SHADOW)), { 0.25f, 0.25f, 0.25f });
}

// ---- Shade modes ----

TEST_F(Utilities, ndoteye_is_the_cosine_to_the_viewer_from_either_side)
{
    setModes("color", "ndoteye");
    rgb("color", 1, 0.5f, 0.25f);
    context.ray_dir = { 0.8f, 0, -0.6f };
    expectColor(shaded(), { 0.6f, 0.3f, 0.15f });
    context.normal = { 0, 0, -1 };
    expectColor(shaded(), { 0.6f, 0.3f, 0.15f });
}

TEST_F(Utilities, ndoteye_is_the_default)
{
    EXPECT_EQ(RvNodeGetInt(named("utility", "fresh"), "shade_mode"), 0);
    EXPECT_EQ(RvNodeGetInt(named("utility", "another"), "color_mode"), 0);
}

TEST_F(Utilities, lambert_shows_direct_and_indirect_light)
{
    setModes("color", "lambert");
    rgb("color", 1, 0.5f, 0.25f);
    for (bool physically_based : { false, true })
        for (float sky : { 0.0f, 0.5f }) {
            surface();
            distantLight(60);
            setBackground({ sky, sky, sky });
            set("physically_based", physically_based);
            set("GI_diffuse_depth", 1);
            prepare();
            const float light = 0.5f * (physically_based ? one_over_pi : 1) + sky;
            expectColor(seen(), { 0.7f * light, 0.35f * light, 0.175f * light }, 1e-4f);
            startAnew();
            shader = named("utility", "view");
            setModes("color", "lambert");
            rgb("color", 1, 0.5f, 0.25f);
        }
}

TEST_F(Utilities, lambert_leaves_out_lights_that_do_not_shine_on_diffuse_surfaces)
{
    setModes("color", "lambert");
    surface();
    RvNodeSetBool(distantLight(), "affect_diffuse", false);
    prepare();
    expectColor(seen(), { 0, 0, 0 });
}

TEST_F(Utilities, the_side_that_faces_the_viewer_is_lit)
{
    distantLight();
    setModes("color", "lambert");
    prepare();
    context.lights = RvUniverseGetLights();
    context.light_count = RvUniverseGetNumLights();
    context.normal = context.geometric_normal = { 0, 0, -1 };
    expectColor(shaded(), rv::grey(0.7f * one_over_pi));
    context.normal = context.geometric_normal = { 0, 0, 1 };
    context.facing_normal = context.facing_geometric_normal = { 0, 0, -1 };
    state.lights = {};
    expectColor(shaded(), { 0, 0, 0 });
}

TEST_F(Utilities, black_is_not_lit)
{
    surface();
    distantLight();
    rgb("color", 0.00009f, -0.00009f, 0);
    for (const char* mode : { "lambert", "ambocc" }) {
        setModes("color", mode);
        prepare();
        const uint64_t loops = rv::threadStats()->lighting[RV_LIGHTING_LOOPS].primary;
        const uint64_t own = rv::threadStats()->lighting[RV_LIGHTING_CUSTOM].primary;
        const RtRGB color = seen();
        EXPECT_EQ(color.r, 0.00009f) << mode;
        EXPECT_EQ(color.g, -0.00009f) << mode;
        EXPECT_EQ(rv::threadStats()->lighting[RV_LIGHTING_LOOPS].primary, loops) << mode;
        EXPECT_EQ(rv::threadStats()->lighting[RV_LIGHTING_CUSTOM].primary, own) << mode;
    }
}

// ---- Occlusion ----

TEST_F(Utilities, ambocc_darkens_what_is_covered)
{
    setModes("color", "ambocc");
    rgb("color", 1, 0.5f, 0.25f);
    set("GI_diffuse_samples", 20);
    RtNode* const cover = sphere("around", { 0, 0, 0 }, 101); // beyond the reach of 100
    prepare();
    update();
    expectColor(shaded(), { 1, 0.5f, 0.25f });
    RvNodeSetArray(cover, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 99.0));
    prepare();
    expectColor(shaded(), { 0, 0, 0 });
}

TEST_F(Utilities, ambocc_beside_a_wall_is_half_covered)
{
    setModes("color", "ambocc");
    set("GI_diffuse_samples", 30);
    RtNode* const wall = named("plane", "wall");
    RvNodeSetPnt(wall, "point", 0.001f, 0, 0);
    RvNodeSetVec(wall, "normal", 1, 0, 0);
    prepare();
    update();
    expectColor(shaded(), { 0.5f, 0.5f, 0.5f }, 0.01f);
}

TEST_F(Utilities, ambocc_is_measured_on_the_side_that_faces_the_viewer)
{
    setModes("color", "ambocc");
    disc("ceiling", 0.001f); // close above
    prepare();
    update();
    context.normal = context.geometric_normal = { 0, 0, -1 };
    expectColor(shaded(), { 0, 0, 0 }, 0.01f);
    context.normal = context.geometric_normal = { 0, 0, 1 };
    context.facing_normal = context.facing_geometric_normal = { 0, 0, -1 };
    expectColor(shaded(), { 1, 1, 1 }, 0.01f);
}

TEST_F(Utilities, only_ambocc_has_a_sampler_which_updates_replace)
{
    const struct {
        const char* mode;
        int samples, count;
    } rows[] = {
        { "ambocc", 3, 9 }, { "flat", 3, 0 },    { "ambocc", 0, 1 },  { "ambocc", -5, 1 },
        { "ambocc", 2, 4 }, { "lambert", 2, 0 }, { "ndoteye", 2, 0 },
    };
    for (const auto& row : rows) {
        RvNodeSetStr(shader, "shade_mode", row.mode);
        set("GI_diffuse_samples", row.samples);
        update();
        const RtSampler* const sampler = rv::nodeSampler(shader);
        EXPECT_EQ(sampler ? sampler->count : 0, row.count) << row.mode << " " << row.samples;
    }
}

TEST_F(Utilities, without_a_sampler_nothing_is_covered)
{
    sphere("around", { 0, 0, 0 }, 5);
    setModes("color", "ambocc");
    prepare();
    {
        const node_tools::AllocationLimit limit(0);
        update();
    }
    EXPECT_EQ(rv::nodeSampler(shader), nullptr);
    EXPECT_NE(takeProblem(), "");
    expectColor(shaded(), { 1, 1, 1 });
}

// ---- In whole images ----

struct MeshMaker : Meshes {
    using Meshes::polygons;
};

class UtilityImage : public image_tools::Image {};

TEST_F(UtilityImage, faces_keep_their_colours_from_render_to_render)
{
    makeScene(8, 8);
    RtNode* const prims = named("utility", "prims");
    RvNodeSetStr(prims, "color_mode", "prims");
    RvNodeSetStr(prims, "shade_mode", "flat");
    RtNode* const mesh = MeshMaker::polygons(
        { { -3, -3, -4 }, { 0, -3, -4 }, { 3, -3, -4 }, { 3, 3, -4 }, { 0, 3, -4 }, { -3, 3, -4 } },
        { { 0, 1, 4 }, { 0, 4, 5 }, { 1, 2, 3 }, { 1, 3, 4 } });
    RvNodeSetArray(mesh, "shader", RvArray(1, 1, RV_TYPE_NODE, prims));
    RvNodeDestroy(RvNodeLookUpByName("sphere"));
    set("AA_samples", 1);
    const std::vector<RtRGBA> first = imageOf(1);
    Names colors;
    for (const RtRGBA& pixel : first)
        colors.push_back(describe(pixel));
    std::sort(colors.begin(), colors.end());
    colors.erase(std::unique(colors.begin(), colors.end()), colors.end());
    EXPECT_EQ(colors.size(), 4u) << "one colour for each face";
    EXPECT_TRUE(areSame(imageOf(1), first));
    EXPECT_TRUE(areSame(imageOf(3), first));
}

} // namespace
