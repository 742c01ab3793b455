// Tests of the "sky" shader.
#include "rv_textures.h"

#include "allocation_failures.h"
#include "image_tools.h"
#include "shader_tools.h"
#include "shaders/surface_fixture.h"
#include "texture_tools.h"

#include <random>
#include <regex>

namespace {

using namespace surface_tools;
using node_tools::describe;
using node_tools::named;
using rv::operator-, rv::operator+, rv::operator*;

constexpr const char* formats[] = { "mirrored_ball", "angular", "latlong", "cubic" };

using Mapping = void (*)(const RtVector*, float*, float*);
constexpr Mapping mappings[] = { RvMappingMirroredBall, RvMappingAngularMap, RvMappingLatLong,
                                 RvMappingCubicMap };

constexpr int single_types[] = { RV_RAY_CAMERA,    RV_RAY_SHADOW,  RV_RAY_REFLECTED,
                                 RV_RAY_REFRACTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY };

class Sky : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        sky = named("sky", "sky");
        sg->ray_type = RV_RAY_REFLECTED;
        sg->ray_dir = { 0, 0, -1 };
    }
    void light(float intensity = 1) { RvNodeSetFlt(sky, "intensity", intensity); }
    // A texture that shows where it is looked up, and keeps the context.
    void linkWitness(const char* param)
    {
        RvNodeLink(shader_tools::shader("witness", RV_TYPE_RGB,
                                        [this](RtNode*, RtShaderGlobals* at) {
                                            looked_up = *at;
                                            at->out.RGB = { at->u, at->v, 0.5f };
                                        }),
                   param, sky);
    }
    void setFormat(const char* format) { RvNodeSetStr(sky, "format", format); }
    void vec(const char* param, const RtVector& v) { RvNodeSetVec(sky, param, v.x, v.y, v.z); }
    RtRGBA seen()
    {
        RvShaderEvaluate(sky, sg);
        return sg->out.RGBA;
    }
    RtRGBA seen(const RtVector& dir)
    {
        sg->ray_dir = dir;
        return seen();
    }
    // The place in the image that a direction shows.
    void expectLookUp(const RtVector& dir, const RtVector& want_dir, int format,
                      const std::string& what)
    {
        seen(dir);
        float u, v;
        const RtVector unit_dir = rv::unit(want_dir);
        mappings[format](&unit_dir, &u, &v);
        EXPECT_NEAR(looked_up.u, u, 1e-5f) << what;
        EXPECT_NEAR(looked_up.v, v, 1e-5f) << what;
    }

    RtNode* sky = nullptr;
    shader_tools::Context sg;
    RtShaderGlobals looked_up = {};
};

RtVector randomDirection(std::mt19937& random)
{
    std::normal_distribution<float> coordinate;
    return rv::unit({ coordinate(random), coordinate(random), coordinate(random) });
}

// ---- Colour, visibility and opacity ----

TEST_F(Sky, by_default_it_is_black_and_with_an_intensity_of_1_white)
{
    prepare();
    EXPECT_EQ(describe(seen()), "0 0 0 1");
    light();
    prepare();
    std::mt19937 random(1);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(describe(seen(randomDirection(random))), "1 1 1 1");
}

TEST_F(Sky, the_intensity_scales_the_color)
{
    RvNodeSetRGB(sky, "color", 0.25f, 0.5f, 1);
    light(3);
    prepare();
    EXPECT_EQ(describe(seen()), "0.75 1.5 3 1");
}

TEST_F(Sky, it_is_black_and_transparent_to_rays_that_may_not_see_it)
{
    light();
    for (int visible : { 0, RV_RAY_CAMERA, RV_RAY_REFLECTED | RV_RAY_GLOSSY, RV_RAY_ALL }) {
        RvNodeSetInt(sky, "visibility", visible);
        prepare();
        for (int type : single_types) {
            sg->ray_type = uint16_t(type);
            sg->out_opacity = { 7, 7, 7 };
            const bool is_visible = visible & type;
            EXPECT_EQ(describe(seen()), is_visible ? "1 1 1 1" : "0 0 0 0") << visible << type;
            EXPECT_EQ(describe(sg->out_opacity), is_visible ? "1 1 1" : "0 0 0");
        }
    }
}

TEST_F(Sky, opaque_alpha_makes_it_transparent_to_the_camera_alone)
{
    light();
    RvNodeSetBool(sky, "opaque_alpha", false);
    prepare();
    for (int type : single_types) {
        sg->ray_type = uint16_t(type);
        const bool is_camera = type == RV_RAY_CAMERA;
        EXPECT_EQ(describe(seen()), is_camera ? "1 1 1 0" : "1 1 1 1") << type;
        EXPECT_EQ(describe(sg->out_opacity), is_camera ? "0 0 0" : "1 1 1") << type;
    }
}

TEST_F(Sky, alpha_and_opacity_are_the_golden_numbers)
{
    light();
    for (const json& v : goldenVectors("misc", "sky_alpha_opacity")) {
        const json& in = v.at("in");
        RvNodeSetInt(sky, "visibility", in.at("visibility").get<int>());
        RvNodeSetBool(sky, "opaque_alpha", in.at("opaque_alpha").get<bool>());
        prepare();
        sg->ray_type = in.at("ray_type").get<uint16_t>();
        sg->out_opacity = { 7, 7, 7 };
        expectGoldenNumbers(v, "alpha", { seen().a });
        expectGoldenNumbers(v, "opacity", { sg->out_opacity.r });
        EXPECT_EQ(describe(sg->out_opacity), describe(rv::grey(sg->out_opacity.r))) << goldenId(v);
    }
}

// ---- Textures ----

TEST_F(Sky, a_texture_is_looked_up_in_the_direction_of_the_ray)
{
    light();
    linkWitness("color");
    std::mt19937 random(2);
    for (int format = 0; format < 4; ++format) {
        setFormat(formats[format]);
        prepare();
        for (int i = 0; i < 50; ++i) {
            const RtVector dir = randomDirection(random);
            expectLookUp(dir, dir, format, formats[format]);
            expectLookUp(dir * 17.0f, dir, format, std::string(formats[format]) + ", long");
            EXPECT_EQ(describe(looked_up.object_point),
                      describe(RtPoint{ looked_up.u, looked_up.v, 0 }));
            const RtRGBA color = seen(dir);
            EXPECT_EQ(color.r, looked_up.u);
            EXPECT_EQ(color.g, looked_up.v);
        }
    }
}

// The t axis of images runs downwards.
TEST_F(Sky, upwards_lies_the_top_of_a_latlong_image)
{
    linkWitness("color");
    setFormat("latlong");
    prepare();
    seen({ 0, 1, 0 });
    EXPECT_NEAR(looked_up.v, 1, 1e-6f);
    seen({ 0, -1, 0 });
    EXPECT_NEAR(looked_up.v, 0, 1e-6f);
}

TEST_F(Sky, upwards_a_linked_image_shows_its_top)
{
    const texture_tools::TextureFolder folder;
    const std::string file = folder.file("halves.png");
    // Red above, blue below.
    texture_tools::writeImage(file, 8, 16, 3, OIIO::TypeDesc::UINT8, [](int, int y, int c) {
        return (c == 0 && y < 8) || (c == 2 && y >= 8) ? 1.0f : 0.0f;
    });
    RtNode* const image = named("image", "halves");
    RvNodeSetStr(image, "filename", file.c_str());
    RvNodeLink(image, "color", sky);
    setFormat("latlong");
    light();
    prepare();
    EXPECT_EQ(describe(seen(rv::unit({ 0.1f, 1, 1 }))), "1 0 0 1");
    EXPECT_EQ(describe(seen(rv::unit({ 0.1f, -1, 1 }))), "0 0 1 1");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Sky, a_linked_intensity_is_a_texture_too)
{
    linkWitness("intensity");
    setFormat("latlong");
    prepare();
    const RtRGBA color = seen({ 0, 1, 0 });
    EXPECT_NEAR(looked_up.v, 1, 1e-6f);
    EXPECT_NEAR(color.g, (looked_up.u + looked_up.v + 0.5f) / 3, 1e-6f); // the mean, as a float
}

TEST_F(Sky, a_linked_component_of_the_color_is_a_texture_too)
{
    light();
    for (const char* component : { "color.r", "color.g" }) {
        linkWitness(component);
        setFormat("latlong");
        prepare();
        looked_up.v = 0;
        seen({ 0, 1, 0 });
        EXPECT_NEAR(looked_up.v, 1, 1e-6f) << component;
        RvNodeUnlink(sky, component);
    }
    // What stays of a link that was taken back is no texture.
    prepare();
    RtNode* const intensity = shader_tools::shader("later", RV_TYPE_FLOAT);
    RvNodeLink(intensity, "intensity", sky); // after the update
    float v = -1;
    shader_tools::programs()[intensity] = [&v](RtNode*, RtShaderGlobals* at) { v = at->v; };
    sg->v = 0.25f;
    seen({ 0, 1, 0 });
    EXPECT_EQ(v, 0.25f);
}

TEST_F(Sky, the_coordinates_of_the_context_come_back)
{
    linkWitness("color");
    prepare();
    sg->u = 1, sg->v = 2, sg->dudx = 3, sg->dudy = 4, sg->dvdx = 5, sg->dvdy = 6;
    sg->object_point = { 7, 8, 9 };
    sg->dDdx = { 0.1f, 0, 0 };
    seen({ 0, 1, 0 });
    EXPECT_NE(looked_up.u, 1);
    EXPECT_NE(looked_up.dudx, 3);
    EXPECT_NE(describe(looked_up.object_point), "7 8 9");
    EXPECT_TRUE(sg->u == 1 && sg->v == 2);
    EXPECT_TRUE(sg->dudx == 3 && sg->dudy == 4 && sg->dvdx == 5 && sg->dvdy == 6);
    EXPECT_EQ(describe(sg->object_point), "7 8 9");
}

TEST_F(Sky, without_a_texture_nothing_is_mapped)
{
    light();
    setFormat("latlong");
    prepare();
    RvNodeLink(shader_tools::shader("late", RV_TYPE_RGB,
                                    [this](RtNode*, RtShaderGlobals* at) { looked_up = *at; }),
               "color", sky); // after the preparation
    sg->u = 0.125f;
    seen({ 0, 1, 0 });
    EXPECT_EQ(looked_up.u, 0.125f);
    prepare();
    seen({ 0, 1, 0 });
    EXPECT_NE(looked_up.u, 0.125f);
}

// The golden numbers are directions of any length and their derivatives, before and after the
// scaling to unit length; textures see what the mappings make of them.
TEST_F(Sky, the_footprint_is_that_of_the_golden_directions)
{
    static constexpr decltype(&RvMappingLatLongDerivs) derivatives[] = {
        RvMappingMirroredBallDerivs, RvMappingAngularMapDerivs, RvMappingLatLongDerivs,
        RvMappingCubicMapDerivs
    };
    const auto vectorOf = [](const json& numbers) {
        const std::vector<float> v = goldenFloats(numbers);
        return RtVector{ v.at(0), v.at(1), v.at(2) };
    };
    linkWitness("color");
    for (const json& v : goldenVectors("misc", "sky_direction_derivative"))
        for (int format = 0; format < 4; ++format) {
            const RtVector dir = vectorOf(v.at("out").at("D")), dD = vectorOf(v.at("out").at("dD"));
            RtShaderGlobals want = {};
            derivatives[format](&dir, &dD, &dD, &want.u, &want.v, &want.dudx, &want.dudy,
                                &want.dvdx, &want.dvdy);
            setFormat(formats[format]);
            prepare();
            sg->dDdx = sg->dDdy = vectorOf(v.at("in").at("dD"));
            seen(vectorOf(v.at("in").at("D")));
            const std::string what = goldenId(v) + " " + formats[format];
            EXPECT_NEAR(looked_up.u, want.u, 2e-6f) << what;
            EXPECT_NEAR(looked_up.v, want.v, 2e-6f) << what;
            const float tolerance = 2e-5f * (fabsf(want.dudx) + fabsf(want.dvdx));
            EXPECT_NEAR(looked_up.dudx, want.dudx, tolerance) << what;
            EXPECT_NEAR(looked_up.dvdx, want.dvdx, tolerance) << what;
            EXPECT_NEAR(looked_up.dudy, want.dudx, tolerance) << what;
            EXPECT_NEAR(looked_up.dvdy, want.dvdx, tolerance) << what;
        }
}

// The derivatives of a look-up against its differences along the screen.
TEST_F(Sky, the_footprint_follows_the_derivatives_of_the_ray)
{
    static constexpr float step = 2e-3f;
    linkWitness("color");
    RvNodeSetFlt(sky, "X_angle", 25);
    RvNodeSetFlt(sky, "Y_angle", -70);
    vec("X", { 2, 0, 0.5f }); // neither unit nor orthogonal
    const RtVector dDdx = { 0.3f, -0.2f, 0.1f }, dDdy = { -0.1f, 0.25f, 0.4f };
    for (const char* format : formats) {
        setFormat(format);
        prepare();
        for (const RtVector& dir : { RtVector{ 0.4f, 1.3f, -0.8f }, { -1.7f, 0.6f, 0.3f } }) {
            sg->dDdx = dDdx;
            sg->dDdy = dDdy;
            seen(dir);
            const RtShaderGlobals here = looked_up;
            const auto rates = [&](const RtVector& dD) {
                seen(dir + dD * step);
                const RtShaderGlobals ahead = looked_up;
                seen(dir - dD * step);
                return RtPoint2{ (ahead.u - looked_up.u) / (2 * step),
                                 (ahead.v - looked_up.v) / (2 * step) };
            };
            const RtPoint2 x = rates(dDdx), y = rates(dDdy);
            EXPECT_NEAR(here.dudx, x.x, 2e-4f) << format;
            EXPECT_NEAR(here.dvdx, x.y, 2e-4f) << format;
            EXPECT_NEAR(here.dudy, y.x, 2e-4f) << format;
            EXPECT_NEAR(here.dvdy, y.y, 2e-4f) << format;
        }
    }
}

TEST_F(Sky, an_unknown_format_shows_the_corner)
{
    linkWitness("color");
    RvNodeLink(shader_tools::shader("seven", RV_TYPE_INT,
                                    [](RtNode*, RtShaderGlobals* at) { at->out.INT = 7; }),
               "format", sky);
    prepare();
    sg->u = 1, sg->dvdx = 1;
    seen({ 0.5f, 0.5f, 0.5f });
    EXPECT_TRUE(looked_up.u == 0 && looked_up.v == 0 && looked_up.dudx == 0 &&
                looked_up.dudy == 0 && looked_up.dvdx == 0 && looked_up.dvdy == 0);
    EXPECT_EQ(describe(looked_up.object_point), "0 0 0");
}

TEST_F(Sky, a_ray_without_direction_does_no_harm)
{
    linkWitness("color");
    for (const char* format : formats) {
        setFormat(format);
        prepare();
        sg->dDdx = { 1, 2, 3 };
        for (const RtVector& dir : { RtVector{}, { NAN, 0, 0 } })
            EXPECT_FALSE(std::isnan(seen(dir).r)) << format;
    }
}

// ---- Orientation ----

TEST_F(Sky, each_angle_turns_the_directions_about_its_axis)
{
    linkWitness("color");
    setFormat("latlong");
    static constexpr struct {
        const char* param;
        void (*rotation)(RtMatrix*, float);
    } turns[] = { { "X_angle", RvM4RotationX },
                  { "Y_angle", RvM4RotationY },
                  { "Z_angle", RvM4RotationZ } };
    std::mt19937 random(3);
    for (const auto& turn : turns) {
        RvNodeSetFlt(sky, turn.param, 40);
        prepare();
        RtMatrix matrix;
        turn.rotation(&matrix, 40);
        for (int i = 0; i < 10; ++i) {
            const RtVector dir = randomDirection(random);
            RtVector turned;
            RvM4VectorByMatrixMult(&turned, &matrix, &dir);
            expectLookUp(dir, turned, 2, turn.param);
        }
        RvNodeSetFlt(sky, turn.param, 0);
    }
}

TEST_F(Sky, the_axes_say_where_the_sides_of_the_map_lie)
{
    linkWitness("color");
    setFormat("latlong");
    vec("Y", { 0, 0, 1 }); // a world whose z axis points up
    vec("Z", { 0, -1, 0 });
    prepare();
    expectLookUp({ 0, 0, 1 }, { 0, 1, 0 }, 2, "up");
    expectLookUp({ 0, 1, 0 }, { 0, 0, -1 }, 2, "north");
    expectLookUp({ 1, 0, 0 }, { 1, 0, 0 }, 2, "east");
    // "Y_angle" turns about what points up now: the height in the image stays.
    for (float angle : { 30.0f, 200.0f }) {
        RvNodeSetFlt(sky, "Y_angle", angle);
        prepare();
        seen(rv::unit({ 0.6f, -0.3f, 0.5f }));
        const float v = looked_up.v;
        EXPECT_NEAR(v, 1 - acosf(rv::unit({ 0.6f, -0.3f, 0.5f }).z) * one_over_pi, 1e-5f);
    }
}

TEST_F(Sky, the_angles_turn_in_order_in_the_frame_of_the_axes)
{
    linkWitness("color");
    setFormat("angular");
    vec("X", { 0, 1, 0 });
    vec("Y", { -1, 0, 0 });
    RtMatrix expected, turn;
    const RtVector X = { 0, 1, 0 }, Y = { -1, 0, 0 }, Z = { 0, 0, 1 };
    RvM4Frame(&expected, &RV_V3_ZERO, &X, &Y, &Z);
    void (*const rotations[])(RtMatrix*, float) = { RvM4RotationX, RvM4RotationY, RvM4RotationZ };
    const char* const params[] = { "X_angle", "Y_angle", "Z_angle" };
    for (int i = 0; i < 3; ++i) {
        RvNodeSetFlt(sky, params[i], 20.0f * float(i + 1));
        rotations[i](&turn, 20.0f * float(i + 1));
        RvM4Mult(&expected, &expected, &turn);
    }
    prepare();
    const RtVector dir = rv::unit({ 0.6f, -0.3f, 0.5f });
    RtVector want;
    RvM4VectorByMatrixMult(&want, &expected, &dir);
    expectLookUp(dir, want, 1, "order");
}

// ---- As a background ----

TEST_F(Sky, rays_that_leave_the_scene_see_it)
{
    light(2);
    RvNodeSetPtr(options(), "background", sky);
    prepare();
    const RtScrSample sample = traced(down(), false);
    EXPECT_EQ(describe(sample.color), "2 2 2");
    EXPECT_EQ(sample.alpha, 1);
    RvNodeSetBool(sky, "opaque_alpha", false);
    prepare();
    const RtScrSample hidden = traced(down(), false);
    EXPECT_EQ(describe(hidden.color), "0 0 0");
    EXPECT_EQ(hidden.alpha, 0);
    EXPECT_EQ(describe(traced(down(RV_RAY_REFLECTED), false).color), "2 2 2");
}

TEST_F(Sky, mirrors_show_a_sky_that_the_camera_does_not_see)
{
    surface();
    flt("Kd", 0);
    flt("Kr", 1);
    light(2);
    RvNodeSetInt(sky, "visibility", RV_RAY_REFLECTED);
    RvNodeSetPtr(options(), "background", sky);
    prepare();
    EXPECT_EQ(describe(traced(rayFrom(-1), false).color), "0 0 0");
    expectColor(traced(down()).color, { 2, 2, 2 }, 1e-4f);
}

TEST_F(Sky, a_wall_under_a_sky_is_lit_by_its_upper_half)
{
    // An image of 0.5 everywhere above the horizon of the wall, and 8 below.
    light();
    RvNodeLink(shader_tools::shader("halves", RV_TYPE_RGB,
                                    [](RtNode*, RtShaderGlobals* at) {
                                        const float c = at->v > 0.5f ? 0.5f : 8.0f;
                                        at->out.RGB = { c, c, c };
                                    }),
               "color", sky);
    setFormat("latlong");
    RvNodeSetFlt(sky, "X_angle", -90); // +z becomes up
    RvNodeSetPtr(options(), "background", sky);
    surface();
    flt("Kd", 1);
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 4);
    prepare();
    RtVector up;
    RtMatrix turn;
    RvM4RotationX(&turn, -90);
    const RtVector z = { 0, 0, 1 };
    RvM4VectorByMatrixMult(&up, &turn, &z);
    const float expected = up.y > 0 ? 0.5f : 8.0f;
    expectColor(traced(down()).color, { expected, expected, expected }, 1e-3f);
}

// ---- Local data ----

TEST_F(Sky, without_memory_for_its_map_it_is_plain)
{
    light();
    linkWitness("color");
    takeProblems();
    withAllocations(0, [&] { rv::RvNodeInitialize(sky); });
    const std::string problem = withoutLines(takeProblem());
    static const std::regex report(
        R"(can't allocate \d+ bytes in core\\src\\shaders\\sky:Initialize\(\))");
    EXPECT_TRUE(std::regex_match(problem, report)) << problem;
    prepare();
    sg->u = 0.125f;
    EXPECT_EQ(seen({ 0, 1, 0 }).r, 0.125f);
}

// ---- In whole images ----

class SkyImage : public image_tools::Image {
protected:
    // A picture of 8 by 8 pixels whose background is a sky, around a small ball.
    RtNode* makeSky()
    {
        makeScene(8, 8);
        RtNode* const sky = named("sky", "sky");
        RvNodeSetFlt(sky, "intensity", 0.5f);
        RvNodeSetPtr(options(), "background", sky);
        RvNodeSetPnt(RvNodeLookUpByName("wall"), "point", 0, 0, 50); // behind the camera
        set("AA_samples", 1);
        return sky;
    }
    static const RtRGBA& corner() { return image_tools::film().pixels.front(); }
    static const RtRGBA& middle() { return image_tools::film().pixels[4 * 8 + 4]; }
};

TEST_F(SkyImage, the_background_of_a_picture_has_the_alpha_that_opaque_alpha_asks_for)
{
    RtNode* const sky = makeSky();
    for (bool is_opaque : { true, false }) {
        RvNodeSetBool(sky, "opaque_alpha", is_opaque);
        ASSERT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(describe(corner()), is_opaque ? "0.5 0.5 0.5 1" : "0 0 0 0");
        EXPECT_EQ(middle().a, 1);
    }
}

TEST_F(SkyImage, a_sky_that_the_camera_may_not_see_leaves_no_trace)
{
    RtNode* const sky = makeSky();
    RvNodeSetInt(sky, "visibility", RV_RAY_ALL & ~RV_RAY_CAMERA);
    ASSERT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(describe(corner()), "0 0 0 0");
}

TEST_F(SkyImage, the_picture_does_not_depend_on_threads)
{
    RtNode* const sky = makeSky();
    RvNodeSetStr(sky, "format", "latlong");
    RtNode* const noise = named("noise", "noise");
    RvNodeSetVec(noise, "scale", 20, 20, 20);
    RvNodeLink(noise, "color", sky);
    const std::vector<RtRGBA> single = imageOf(1);
    EXPECT_NE(describe(single.front()), describe(single.back()));
    EXPECT_TRUE(areSame(single, imageOf(3)));
}

} // namespace
