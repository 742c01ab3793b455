// Tests of texture.cpp: filtered lookups.
#include "texture_tools.h"

#include <cmath>
#include <random>
#include <sys/stat.h>
#include <thread>

using namespace texture_tools;

namespace {

constexpr OIIO::TypeDesc::BASETYPE u8 = OIIO::TypeDesc::UINT8, f32 = OIIO::TypeDesc::FLOAT;

TEST(TextureParams, golden_defaults)
{
    const auto vector = goldenVectors("shading", "RvTextureParamsSetDefaults").at(0);
    RtTextureParams p;
    memset(&p, 0xff, sizeof p);
    RvTextureParamsSetDefaults(&p);
    expectGolden(vector, "single_channel", p.single_channel);
    expectGolden(vector, "flip_s", p.flip_s);
    expectGolden(vector, "flip_t", p.flip_t);
    expectGolden(vector, "swap_st", p.swap_st);
    expectGoldenNumbers(vector, "scale_s", { p.scale_s });
    expectGoldenNumbers(vector, "scale_t", { p.scale_t });
    expectGolden(vector, "filter", p.filter);
    expectGolden(vector, "mipmap_bias", p.mipmap_bias);
    expectGolden(vector, "wrap_s", p.wrap_s);
    expectGolden(vector, "wrap_t", p.wrap_t);
    RvTextureParamsSetDefaults(nullptr);
}

// ---- Arguments ----

TEST_F(Textures, an_empty_file_name_gives_the_error_color_in_silence)
{
    RvNodeSetRGB(options(), "error_color_bad_texture", 0.25f, 0.5f, 0.75f);
    const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
    const RtTextureParams params = defaults();
    for (const char* name : { static_cast<const char*>(nullptr), "" }) {
        expectColor(RvTextureAccess(&sg, name, &params), { 0.25f, 0.5f, 0.75f, 1 });
        expectColor(RvTextureAccess(nullptr, name, nullptr), { 0.25f, 0.5f, 0.75f, 1 });
        expectColor(RvTextureAccessResized(&sg, name, &params, 8, 8), { 0.25f, 0.5f, 0.75f, 1 });
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, missing_arguments_are_reported_with_the_file)
{
    const std::string text =
        "[texturesys] missing arguments in texture lookup (filename = \"a.tx\")";
    const RtShaderGlobals sg = contextAt(NAN, 0);
    const RtTextureParams params = defaults();
    expectColor(RvTextureAccess(&sg, "a.tx", nullptr), error_color);
    EXPECT_EQ(takeProblem(), text);
    expectColor(RvTextureAccess(nullptr, "a.tx", &params), error_color);
    EXPECT_EQ(takeProblem(), text);
    expectColor(RvTextureAccessResized(nullptr, "a.tx", &params, 1, 1), error_color);
    EXPECT_EQ(takeProblem(), text);
}

TEST_F(Textures, with_ignored_textures_every_lookup_is_grey)
{
    RvNodeSetBool(options(), "ignore_textures", true);
    expectColor(look("no such file.tx", 0.5f, 0.5f), { 0.5f, 0.5f, 0.5f, 1 });
    EXPECT_EQ(takeProblem(), "");
    expectColor(look("", 0.5f, 0.5f), error_color);
}

TEST(TextureAccess, without_a_universe_nothing_is_looked_up)
{
    ASSERT_FALSE(RvUniverseIsActive());
    const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
    const RtTextureParams params = defaults();
    expectColor(RvTextureAccess(&sg, "a.tx", &params), error_color);
    RvUniverseCacheFlush(1);
}

using TexturesDeathTest = Textures;

TEST_F(TexturesDeathTest, coordinates_that_are_not_numbers_end_the_process)
{
    RtNode* const ball = RvNode("sphere");
    RvNodeSetStr(ball, "name", "ball");
    RtShaderGlobals sg = contextAt(0.25f, NAN);
    sg.object = ball;
    const RtTextureParams params = defaults();
    EXPECT_DEATH(
        {
            RvMsgSetCallback([](int, int, const char* text, int) { fprintf(stderr, "%s", text); });
            RvTextureAccess(&sg, "a.tx", &params);
        },
        "\\[texturesys\\] ball invalid texture coords: 0.250000 nan");
}

TEST_F(TexturesDeathTest,
       coordinates_that_are_not_numbers_end_the_process_even_if_textures_are_ignored)
{
    RvNodeSetBool(options(), "ignore_textures", true);
    EXPECT_DEATH(
        {
            RvMsgSetCallback([](int, int, const char* text, int) { fprintf(stderr, "%s", text); });
            look("a.tx", NAN, 0.5f);
        },
        "\\[texturesys\\]  invalid texture coords: nan 0.500000");
}

TEST_F(Textures, bad_coordinates_whose_message_nobody_reads_give_the_error_color)
{
    RvMsgSetConsoleFlags(0);
    RvMsgSetLogFileFlags(0);
    expectColor(look("a.tx", NAN, 0.5f), error_color);
}

TEST_F(Textures, infinite_coordinates_are_an_error_told_once_of_every_file)
{
    const std::string file = folder.file("a.tif"), other = folder.file("b.tif");
    writeImage(file, 4, 4, 3, u8, constant({ 0.2f, 0.4f, 0.6f }));
    writeImage(other, 4, 4, 3, u8, constant({ 0.2f, 0.4f, 0.6f }));
    for (int call = 0; call < 3; ++call)
        expectColor(look(file, INFINITY, 0.5f), error_color);
    EXPECT_EQ(takeProblem(), "[texturesys]  infinite texture coords: inf 0.500000");
    RtTextureParams params = defaults();
    params.scale_t = 1e30f;
    expectColor(look(other, 0.5f, -1e30f, 0, params), error_color);
    EXPECT_EQ(takeProblem(), "[texturesys]  infinite texture coords: 0.500000 inf");
}

TEST_F(Textures, any_coordinates_and_derivatives_are_survived)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 64, 64, 4, f32, constant({ 0.2f, 0.4f, 0.6f, 0.8f }));
    static const float odd[] = { 0,     1e-30f, -1e-30f, 0.5f,     -3.25f, 1e6f,
                                 -1e9f, 1e20f,  3e38f,   INFINITY, NAN };
    std::mt19937 random(5);
    const auto any = [&] { return odd[random() % std::size(odd)]; };
    for (int i = 0; i < 3000; ++i) {
        RtShaderGlobals sg = contextAt(any(), any());
        if (!std::isfinite(sg.u) || !std::isfinite(sg.v))
            continue;
        sg.dudx = any(), sg.dudy = any(), sg.dvdx = any(), sg.dvdy = any();
        static const uint16_t rays[] = { RV_RAY_CAMERA, RV_RAY_DIFFUSE, RV_RAY_GLOSSY };
        sg.ray_type = rays[random() % 3];
        RtTextureParams params = defaults();
        params.filter = int(random() % 7) - 1;
        params.wrap_s = int(random() % 7) - 1;
        params.wrap_t = int(random() % 7) - 1;
        params.mipmap_bias = int(random() % 3) * 1000000000 - 1000000000;
        const RtRGBA c = RvTextureAccess(&sg, file.c_str(), &params);
        for (float x : { c.r, c.g, c.b, c.a })
            EXPECT_TRUE(x >= -1e-3f && x <= 1.001f) << x;
    }
    takeProblems();
}

// ---- Coordinates ----

// Four quadrants of one colour each: red at the top left, then green, blue and white.
void writeQuadrants(const std::string& path)
{
    writeImage(path, 16, 16, 3, u8, [](int x, int y, int c) {
        const int quadrant = (x >= 8) + 2 * (y >= 8);
        return quadrant == 3 || quadrant == c ? 1.0f : 0.0f;
    });
}

TEST_F(Textures, v_runs_upwards_and_flips_swap_and_scales_are_applied_in_order)
{
    static const RtRGBA red = { 1, 0, 0, 1 }, green = { 0, 1, 0, 1 }, blue = { 0, 0, 1, 1 },
                        white = { 1, 1, 1, 1 };
    const std::string file = folder.file("quadrants.tif");
    writeQuadrants(file);
    static const struct {
        const char* name;
        float u, v;
        bool swap, flip_s, flip_t;
        float scale_s, scale_t;
        RtRGBA wanted;
    } cases[] = {
        { "top left", 0.25f, 0.75f, false, false, false, 1, 1, red },
        { "top right", 0.75f, 0.75f, false, false, false, 1, 1, green },
        { "bottom left", 0.25f, 0.25f, false, false, false, 1, 1, blue },
        { "bottom right", 0.75f, 0.25f, false, false, false, 1, 1, white },
        { "flip s", 0.25f, 0.75f, false, true, false, 1, 1, green },
        { "flip t", 0.25f, 0.75f, false, false, true, 1, 1, blue },
        { "swap", 0.25f, 0.75f, true, false, false, 1, 1, white },
        { "swap, then flip s", 0.25f, 0.75f, true, true, false, 1, 1, blue },
        { "scale s", 0.375f, 0.75f, false, false, false, 2, 1, green },
        { "flip s, then scale s", 0.375f, 0.75f, false, true, false, 2, 1, red },
        { "scale t", 0.25f, 0.375f, false, false, false, 1, 2, red },
        { "negative scale t", 0.25f, 0.75f, false, false, false, 1, -1, blue },
        { "periodic", 3.25f, -1.25f, false, false, false, 1, 1, red },
    };
    for (const auto& c : cases) {
        RtTextureParams params = moved(c.swap, c.flip_s, c.flip_t, c.scale_s, c.scale_t);
        params.filter = 0;
        expectColor(look(file, c.u, c.v, 0, params), c.wanted, 1e-6f, c.name);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, wraps_rule_beyond_the_edges)
{
    const std::string file = folder.file("quadrants.tif");
    writeQuadrants(file);
    static const RtRGBA red = { 1, 0, 0, 1 }, green = { 0, 1, 0, 1 }, black = { 0, 0, 0, 0 };
    static const RtRGBA wanted[] = { red, black, green, green, black };
    for (int wrap = 0; wrap < 5; ++wrap) { // 4: files without a mode of their own are black
        RtTextureParams params = defaults();
        params.wrap_s = wrap;
        params.filter = 0;
        expectColor(look(file, 1.25f, 0.75f, 0, params), wanted[wrap], 1e-6f, std::to_string(wrap));
    }
}

TEST_F(Textures, the_wrap_of_the_file_is_the_one_that_it_names)
{
    const std::string file = folder.file("mirror.tif");
    writeImage(
        file, 16, 16, 3, u8, [](int x, int, int) { return x >= 8 ? 1.0f : 0.0f; },
        [](OIIO::ImageSpec& spec) { spec.attribute("wrapmodes", "mirror,mirror"); });
    RtTextureParams params = defaults();
    params.wrap_s = 4;
    params.filter = 0;
    EXPECT_EQ(look(file, 1.25f, 0.5f, 0, params).r, 1);
    params.wrap_s = 0;
    EXPECT_EQ(look(file, 1.25f, 0.5f, 0, params).r, 0);
}

TEST_F(Textures, a_resized_image_lies_at_the_top_left_of_its_file)
{
    const std::string file = folder.file("quadrants.tif");
    writeQuadrants(file);
    RtTextureParams params = defaults();
    params.filter = 0;
    for (const RtPoint2 uv : { RtPoint2{ 0.1f, 0.1f }, { 0.9f, 0.2f }, { 0.5f, 0.9f } }) {
        const RtShaderGlobals sg = contextAt(uv.x, uv.y);
        // Half the size: the red quadrant alone.
        expectColor(RvTextureAccessResized(&sg, file.c_str(), &params, 8, 8), { 1, 0, 0, 1 });
        const RtRGBA whole = look(file, uv.x, uv.y, 0, params);
        for (int side : { 16, 0, -5 })
            expectColor(RvTextureAccessResized(&sg, file.c_str(), &params, side, side), whole);
    }
    const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
    expectColor(RvTextureAccessResized(&sg, folder.file("none.tif").c_str(), &params, 8, 8),
                error_color);
    EXPECT_NE(takeProblem().find("[texturesys] "), std::string::npos);
}

TEST_F(Textures, a_resized_image_has_a_resized_footprint)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 64, 64, 3, f32, pattern);
    RtShaderGlobals sg = contextAt(0.4f, 0.7f);
    sg.dudx = 0.2f, sg.dvdx = 0.1f, sg.dudy = -0.05f, sg.dvdy = 0.15f;
    // Half as wide and a quarter as high, at the top left.
    RtShaderGlobals part = contextAt(0.2f, 1 - 0.25f * (1 - sg.v));
    part.dudx = 0.1f, part.dvdx = 0.025f, part.dudy = -0.025f, part.dvdy = 0.0375f;
    RtShaderGlobals wide = part;
    wide.dudx = sg.dudx, wide.dvdx = sg.dvdx, wide.dudy = sg.dudy, wide.dvdy = sg.dvdy;
    const RtTextureParams params = defaults();
    const RtRGBA got = RvTextureAccessResized(&sg, file.c_str(), &params, 32, 16);
    expectColor(got, RvTextureAccess(&part, file.c_str(), &params), 1e-5f);
    EXPECT_GT(fabsf(got.r - RvTextureAccess(&wide, file.c_str(), &params).r), 1e-3f);
}

TEST_F(Textures, a_resized_image_is_measured_against_the_display_window)
{
    const std::string file = folder.file("window.exr");
    // The left half of the display window is stored: 4 red columns, then 4 green ones.
    writeImage(
        file, 8, 16, 3, f32, [](int x, int, int c) { return c == x / 4 ? 1.0f : 0.0f; },
        [](OIIO::ImageSpec& spec) { spec.full_width = spec.full_height = 16; });
    RtTextureParams params = defaults();
    params.filter = 0;
    const RtShaderGlobals sg = contextAt(0.75f, 0.5f);
    expectColor(RvTextureAccessResized(&sg, file.c_str(), &params, 8, 16), { 0, 1, 0, 1 });
}

// ---- Footprints ----

// How much lookups with that footprint differ along a line; the second derivative is narrow and
// lies across the first.
float contrast(const std::string& file, RtPoint2 along, const RtTextureParams& params)
{
    float least = INFINITY, most = -INFINITY;
    for (int i = 0; i < 64; ++i) {
        RtShaderGlobals sg = contextAt(0.3f + float(i) / 256, 0.6f + float(i) / 1024);
        sg.dudx = along.x, sg.dvdx = along.y;
        sg.dudy = -along.y / 32, sg.dvdy = along.x / 32;
        const float value = RvTextureAccess(&sg, file.c_str(), &params).r;
        least = std::min(least, value);
        most = std::max(most, value);
    }
    return most - least;
}

// Footprints 32 times as long as wide see lines that they lie along, and blur those they lie
// across.
TEST_F(Textures, swap_flips_and_scales_turn_the_footprint_too)
{
    const std::string columns = folder.file("columns.tif"),
                      diagonals = folder.file("diagonals.tif");
    writeImage(columns, 256, 256, 1, u8, [](int x, int, int) { return float((x / 4) & 1); });
    // From the lower left to the upper right.
    writeImage(diagonals, 256, 256, 1, u8,
               [](int x, int y, int) { return float(((x + y) / 6) & 1); });
    static const RtPoint2 right = { 0.125f, 0 }, up = { 0, 0.125f }, rising = { 0.09f, 0.09f },
                          falling = { 0.09f, -0.09f };
    const struct {
        const char* name;
        const std::string& file;
        RtPoint2 along;
        bool swap, flip_s, flip_t;
        float scale_s, scale_t;
        bool is_sharp;
    } cases[] = {
        { "up a column", columns, up, false, false, false, 1, 1, true },
        { "across a column", columns, right, false, false, false, 1, 1, false },
        { "swap up", columns, up, true, false, false, 1, 1, false },
        { "swap across", columns, right, true, false, false, 1, 1, true },
        { "along a diagonal", diagonals, rising, false, false, false, 1, 1, true },
        { "across a diagonal", diagonals, falling, false, false, false, 1, 1, false },
        { "flip s along", diagonals, rising, false, true, false, 1, 1, false },
        { "flip s across", diagonals, falling, false, true, false, 1, 1, true },
        { "flip t along", diagonals, rising, false, false, true, 1, 1, false },
        { "flip t across", diagonals, falling, false, false, true, 1, 1, true },
        { "both flips along", diagonals, rising, false, true, true, 1, 1, true },
        { "both flips across", diagonals, falling, false, true, true, 1, 1, false },
        { "swap and flip s", diagonals, falling, true, true, false, 1, 1, true },
        { "negative scale s", diagonals, falling, false, false, false, -1, 1, true },
        { "negative scale t", diagonals, falling, false, false, false, 1, -1, true },
        { "small scale t", columns, up, false, false, false, 1, 0.5f, true },
    };
    for (const auto& c : cases) {
        const RtTextureParams params = moved(c.swap, c.flip_s, c.flip_t, c.scale_s, c.scale_t);
        const float seen = contrast(c.file, c.along, params);
        if (c.is_sharp)
            EXPECT_GT(seen, 0.6f) << c.name;
        else
            EXPECT_LT(seen, 0.25f) << c.name;
    }
}

// ---- Channels ----

TEST_F(Textures, missing_channels_are_filled_in)
{
    static const struct {
        const char* name;
        int channels;
        std::vector<float> stored;
        RtRGBA seen;
    } cases[] = {
        { "one is grey", 1, { 0.25f }, { 0.25f, 0.25f, 0.25f, 1 } },
        { "two are red and green", 2, { 0.25f, 0.5f }, { 0.25f, 0.5f, 0, 1 } },
        { "three have no alpha", 3, { 0.25f, 0.5f, 0.75f }, { 0.25f, 0.5f, 0.75f, 1 } },
        { "four", 4, { 0.25f, 0.5f, 0.75f, 0.875f }, { 0.25f, 0.5f, 0.75f, 0.875f } },
        { "five", 5, { 0.25f, 0.5f, 0.75f, 0.875f, 1 }, { 0.25f, 0.5f, 0.75f, 0.875f } },
    };
    for (const auto& c : cases) {
        const std::string file = folder.file((std::to_string(c.channels) + ".exr").c_str());
        writeImage(file, 8, 8, c.channels, f32, constant(c.stored), [](OIIO::ImageSpec& spec) {
            if (spec.nchannels == 5)
                spec.channelnames.back() = "Z";
        });
        expectColor(look(file, 0.3f, 0.7f), c.seen, 1e-6f, c.name);
        RtTextureParams params = defaults();
        params.single_channel = true;
        const float first = c.stored[0];
        expectColor(look(file, 0.3f, 0.7f, 0, params), { first, first, first, 1 }, 1e-6f, c.name);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, grey_with_alpha_is_grey_with_alpha)
{
    for (const char* name : { "grey.png", "grey.exr", "grey.tif" }) {
        const std::string file = folder.file(name);
        writeImage(file, 8, 8, 2, strstr(name, "exr") ? f32 : u8, constant({ 0.25f, 0.75f }),
                   [](OIIO::ImageSpec& spec) {
                       spec.channelnames = { "Y", "A" };
                       spec.alpha_channel = 1;
                   });
        expectColor(look(file, 0.5f, 0.5f), { 0.25f, 0.25f, 0.25f, 0.75f }, 0.005f, name);
    }
}

TEST_F(Textures, tiny_images_are_seen)
{
    const std::string file = folder.file("dot.png");
    writeImage(file, 1, 1, 3, u8, constant({ 0.2f, 0.4f, 0.6f }));
    for (float width : { 0.0f, 0.01f, 10.0f })
        for (int filter = 0; filter < 4; ++filter) {
            RtTextureParams params = defaults();
            params.filter = filter;
            expectColor(look(file, 0.3f, 0.9f, width, params), { 0.2f, 0.4f, 0.6f, 1 }, 1e-3f);
        }
    EXPECT_EQ(takeProblem(), "");
}

// ---- Gamma ----

TEST_F(Textures, gamma_changes_the_colours_of_short_integers)
{
    using T = OIIO::TypeDesc;
    static const struct {
        const char* file;
        T::BASETYPE type;
        bool changes;
    } cases[] = {
        { "8.tif", T::UINT8, true },    { "s8.tif", T::INT8, true },
        { "16.tif", T::UINT16, true },  { "s16.tif", T::INT16, true },
        { "32.tif", T::UINT32, false }, { "h.exr", T::HALF, false },
        { "f.exr", T::FLOAT, false },   { "f.tif", T::FLOAT, false },
    };
    RvNodeSetFlt(options(), "texture_gamma", 2);
    for (const auto& c : cases) {
        writeImage(folder.file(c.file), 8, 8, 4, c.type, constant({ 0.2f, 0.4f, 0.5f, 0.6f }));
        const RtRGBA got = look(folder.file(c.file), 0.5f, 0.5f);
        const RtRGBA wanted =
            c.changes ? RtRGBA{ 0.04f, 0.16f, 0.25f, 0.6f } : RtRGBA{ 0.2f, 0.4f, 0.5f, 0.6f };
        expectColor(got, wanted, 0.01f, c.file);
    }
    writeImage(folder.file("grey.tif"), 8, 8, 1, T::UINT8, constant({ 0.5f }));
    expectColor(look(folder.file("grey.tif"), 0.5f, 0.5f), { 0.25f, 0.25f, 0.25f, 1 }, 0.003f);
    RvNodeSetFlt(options(), "texture_gamma", 1);
    expectColor(look(folder.file("8.tif"), 0.5f, 0.5f), { 0.2f, 0.4f, 0.5f, 0.6f }, 0.003f);
}

TEST_F(Textures, gamma_is_exact_for_short_integers_and_leaves_half_floats_alone)
{
    using T = OIIO::TypeDesc;
    static const struct {
        const char* file;
        T::BASETYPE type;
        float steps; // of the stored values; 0: not changed
    } cases[] = { { "8.tif", T::UINT8, 255 },
                  { "16.tif", T::UINT16, 65535 },
                  { "half.exr", T::HALF, 0 } };
    const float values[] = { 0.125f, 0.5f, 0.75f };
    RvNodeSetFlt(options(), "texture_gamma", 2.2f);
    for (const auto& c : cases) {
        writeImage(folder.file(c.file), 8, 8, 3, c.type,
                   constant({ values[0], values[1], values[2] }));
        const RtRGBA got = look(folder.file(c.file), 0.5f, 0.5f);
        const float seen[] = { got.r, got.g, got.b };
        for (size_t i = 0; i < 3; ++i) {
            const float wanted =
                c.steps > 0 ? powf(roundf(values[i] * c.steps) / c.steps, 2.2f) : values[i];
            EXPECT_NEAR(seen[i], wanted, 1e-5f) << c.file << " " << i;
        }
    }
}

TEST_F(Textures, gamma_leaves_negative_values_alone)
{
    const std::string file = folder.file("signed.tif");
    writeImage(file, 8, 8, 3, OIIO::TypeDesc::INT16, constant({ -0.5f, 0.5f, 0 }));
    RvNodeSetFlt(options(), "texture_gamma", 2.2f);
    expectColor(look(file, 0.5f, 0.5f), { -0.5f, powf(0.5f, 2.2f), 0, 1 }, 1e-4f);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Formats ----

TEST_F(Textures, jpeg_and_radiance_files_are_textures)
{
    static const struct {
        const char* file;
        OIIO::TypeDesc::BASETYPE type;
        RtRGBA stored, with_gamma;
    } cases[] = {
        { "a.jpg", u8, { 0.2f, 0.4f, 0.6f, 1 }, { 0.04f, 0.16f, 0.36f, 1 } },
        { "a.hdr", f32, { 0.5f, 4, 16, 1 }, { 0.5f, 4, 16, 1 } },
    };
    for (const auto& c : cases) {
        const std::string file = folder.file(c.file);
        // The lower half is black.
        writeImage(file, 32, 32, 3, c.type,
                   [&](int, int y, int channel) { return y < 16 ? (&c.stored.r)[channel] : 0; });
        RvNodeSetFlt(options(), "texture_gamma", 1);
        expectColor(look(file, 0.5f, 0.75f), c.stored, 0.02f, c.file);
        expectColor(look(file, 0.5f, 0.25f), { 0, 0, 0, 1 }, 0.02f, c.file);
        RvNodeSetFlt(options(), "texture_gamma", 2);
        expectColor(look(file, 0.5f, 0.75f), c.with_gamma, 0.02f, c.file);
    }
    EXPECT_EQ(takeProblem(), "");
}

// ---- The image library itself ----

// A texture system of its own, that reads plain files as ours does.
struct LibrarySystem {
    LibrarySystem() : system(OIIO::TextureSystem::create(true))
    {
        system->attribute("automip", 1);
        system->attribute("autotile", 64);
    }
    ~LibrarySystem() { OIIO::TextureSystem::destroy(system); }
    LibrarySystem(const LibrarySystem&) = delete;
    LibrarySystem& operator=(const LibrarySystem&) = delete;

    OIIO::TextureSystem* const system;
};

// What a lookup of the library depends on.
struct LibraryCoords {
    float s, t, dsdx, dtdx, dsdy, dtdy;
};

RtRGBA askLibrary(OIIO::TextureSystem& system, const std::string& file, OIIO::TextureOpt opt,
                  const LibraryCoords& at)
{
    RtRGBA c = { 0, 0, 0, 1 };
    EXPECT_TRUE(system.texture(OIIO::ustring(file), opt, at.s, at.t, at.dsdx, at.dtdx, at.dsdy,
                               at.dtdy, 4, &c.r))
        << system.geterror();
    return c;
}

// Those of a camera ray with default parameters.
OIIO::TextureOpt defaultOptions()
{
    OIIO::TextureOpt opt;
    opt.swrap = opt.twrap = OIIO::TextureOpt::WrapPeriodic;
    opt.interpmode = OIIO::TextureOpt::InterpSmartBicubic;
    opt.fill = 1;
    return opt;
}

// What the library says when it is asked directly.
RtRGBA askLibrary(OIIO::TextureSystem& system, const std::string& file, const RtShaderGlobals& sg,
                  const RtTextureParams& params, const RtOptions& options)
{
    OIIO::TextureOpt opt;
    static const OIIO::TextureOpt::Wrap wraps[] = {
        OIIO::TextureOpt::WrapPeriodic, OIIO::TextureOpt::WrapBlack, OIIO::TextureOpt::WrapClamp,
        OIIO::TextureOpt::WrapMirror, OIIO::TextureOpt::WrapDefault
    };
    opt.swrap = wraps[params.wrap_s];
    opt.twrap = wraps[params.wrap_t];
    opt.interpmode = OIIO::TextureOpt::InterpMode(params.filter);
    opt.conservative_filter = options.texture_conservative_lookups;
    opt.swidth = opt.twidth = std::pow(2.0f, float(params.mipmap_bias));
    opt.fill = 1;
    if (sg.ray_type & RV_RAY_DIFFUSE) {
        opt.mipmode = OIIO::TextureOpt::MipModeOneLevel;
        opt.interpmode = OIIO::TextureOpt::InterpClosest;
        opt.sblur = opt.tblur = options.texture_diffuse_blur;
    } else if (sg.ray_type & RV_RAY_GLOSSY) {
        opt.mipmode = OIIO::TextureOpt::MipModeTrilinear;
        opt.interpmode = OIIO::TextureOpt::InterpBilinear;
        opt.sblur = opt.tblur = options.texture_glossy_blur;
    }
    return askLibrary(system, file, opt,
                      { sg.u * params.scale_s, 1 - sg.v * params.scale_t, sg.dudx * params.scale_s,
                        -sg.dvdx * params.scale_t, sg.dudy * params.scale_s,
                        -sg.dvdy * params.scale_t });
}

TEST_F(Textures, lookups_agree_with_the_image_library)
{
    const std::string plain = folder.file("plain.tif"), tiled = folder.file("tiled.tx");
    writeImage(plain, 100, 60, 4, u8, pattern);
    OIIO::ImageBuf source(plain);
    ASSERT_TRUE(OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, source, tiled,
                                                 OIIO::ImageSpec()));
    const LibrarySystem direct;
    std::mt19937 random(11);
    std::uniform_real_distribution<float> anywhere(-1.5f, 2.5f), exponent(-10, 0);
    static const uint16_t rays[] = { RV_RAY_CAMERA, RV_RAY_SHADOW, RV_RAY_DIFFUSE, RV_RAY_GLOSSY,
                                     RV_RAY_DIFFUSE | RV_RAY_GLOSSY };
    for (bool conservative : { true, false }) {
        RvNodeSetBool(options(), "texture_conservative_lookups", conservative);
        for (const std::string& file : { plain, tiled })
            for (uint16_t ray : rays)
                for (int filter = 0; filter < 4; ++filter)
                    for (int wrap = 0; wrap < 5; ++wrap) {
                        RtShaderGlobals sg = contextAt(anywhere(random), anywhere(random));
                        sg.ray_type = ray;
                        sg.dudx = exp2f(exponent(random)), sg.dvdx = -exp2f(exponent(random));
                        sg.dudy = exp2f(exponent(random)), sg.dvdy = exp2f(exponent(random));
                        RtTextureParams params = defaults();
                        params.filter = filter;
                        params.wrap_s = wrap;
                        params.wrap_t = (wrap + filter) % 5;
                        params.mipmap_bias = int(random() % 5) - 2;
                        params.scale_s = 1.5f;
                        params.scale_t = 0.75f;
                        const RtRGBA got = RvTextureAccess(&sg, file.c_str(), &params);
                        const RtRGBA wanted =
                            askLibrary(*direct.system, file, sg, params, *rv::render_options);
                        EXPECT_EQ(memcmp(&got, &wanted, sizeof got), 0)
                            << file << " " << ray << " " << filter << " " << wrap;
                    }
    }
    EXPECT_EQ(takeProblem(), "");
}

// The numbers that golden vectors give for a lookup, handed to the library, show the same colour.
TEST_F(Textures, golden_coordinates)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 64, 64, 4, u8, pattern);
    const LibrarySystem direct;
    const OIIO::TextureOpt opt = defaultOptions();
    for (const auto& vector : goldenVectors("shading", "texture_coordinates")) {
        const auto& in = vector.at("in");
        const auto& out = vector.at("out");
        RtShaderGlobals sg = contextAt(in.at("u"), in.at("v"));
        const auto rates = goldenFloats(in.at("dst")); // of s, then of t
        sg.dudx = rates[0], sg.dudy = rates[1], sg.dvdx = rates[2], sg.dvdy = rates[3];
        const RtTextureParams params = moved(in.at("swap_st"), in.at("flip_s"), in.at("flip_t"),
                                             in.at("scale_s"), in.at("scale_t"));
        const auto ds = goldenFloats(out.at("ds")), dt = goldenFloats(out.at("dt"));
        expectColor(RvTextureAccess(&sg, file.c_str(), &params),
                    askLibrary(*direct.system, file, opt,
                               { out.at("s"), out.at("t"), ds[0], dt[0], ds[1], dt[1] }),
                    1e-3f, vector.at("id").get<std::string>());
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, golden_filter_widths)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 64, 64, 4, u8, pattern);
    const LibrarySystem direct;
    OIIO::TextureOpt opt = defaultOptions();
    for (const auto& vector : goldenVectors("shading", "mipmap_bias_width")) {
        RtTextureParams params = defaults();
        params.mipmap_bias = vector.at("in").at("mipmap_bias");
        opt.swidth = opt.twidth = vector.at("out").at("width");
        RtShaderGlobals sg = contextAt(0.3f, 0.6f);
        sg.dudx = sg.dvdy = 0.05f;
        expectColor(RvTextureAccess(&sg, file.c_str(), &params),
                    askLibrary(*direct.system, file, opt, { 0.3f, 0.4f, 0.05f, 0, 0, -0.05f }),
                    1e-3f, vector.at("id").get<std::string>());
    }
}

TEST_F(Textures, a_bias_widens_the_filter_by_powers_of_two)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 128, 128, 3, u8, pattern);
    RtTextureParams biased = defaults();
    for (int bias : { -2, -1, 1, 2 }) {
        biased.mipmap_bias = bias;
        expectColor(look(file, 0.3f, 0.4f, 0.05f, biased),
                    look(file, 0.3f, 0.4f, 0.05f * exp2f(float(bias))), 0.01f);
    }
}

TEST_F(Textures, diffuse_rays_are_blurred_by_their_option)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 256, 256, 1, u8, [](int x, int y, int) { return float((x + y) & 1); });
    RtShaderGlobals sg = contextAt(51.5f / 256, 51.5f / 256);
    const RtTextureParams params = defaults();
    static const struct {
        uint16_t ray;
        const char* option;
        float RtOptions::*field;
    } cases[] = { { RV_RAY_DIFFUSE, "texture_diffuse_blur", &RtOptions::texture_diffuse_blur },
                  { RV_RAY_GLOSSY, "texture_glossy_blur", &RtOptions::texture_glossy_blur } };
    for (const auto& c : cases) {
        sg.ray_type = c.ray;
        RvNodeSetFlt(options(), c.option, 0.25f);
        EXPECT_NEAR(RvTextureAccess(&sg, file.c_str(), &params).r, 0.5f, 0.02f) << c.option;
        RvNodeSetFlt(options(), c.option, 0);
        const float sharp = RvTextureAccess(&sg, file.c_str(), &params).r;
        EXPECT_GT(std::fabs(sharp - 0.5f), 0.2f) << c.option;
        for (float odd : { -1.0f, 1e30f }) {
            RvNodeSetFlt(options(), c.option, odd);
            RvTextureAccess(&sg, file.c_str(), &params);
        }
        RvNodeSetFlt(options(), c.option, 0);
        float& blur = rv::render_options->*c.field; // past the setters, which refuse such values
        blur = NAN;
        EXPECT_EQ(RvTextureAccess(&sg, file.c_str(), &params).r, sharp) << c.option;
        blur = 0;
    }
}

// ---- Bad files ----

TEST_F(Textures, pipes_and_devices_are_not_opened)
{
    const std::string pipe = folder.file("pipe.tx");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& file : { pipe, std::string("/dev/zero") }) {
        for (int call = 0; call < 3; ++call)
            expectColor(look(file, 0.5f, 0.5f), error_color);
        std::thread([&] { expectColor(look(file, 0.5f, 0.5f), error_color); }).join();
        EXPECT_EQ(takeProblem(), "[texturesys] \"" + file + "\" is not a regular file");
        int width, height;
        EXPECT_FALSE(RvTextureGetResolution(file.c_str(), &width, &height));
        EXPECT_EQ(takeProblem(),
                  "[texturesys] RvTextureGetResolution / get_texture_info failed on " + file +
                      ": is not a regular file");
    }
}

TEST_F(Textures, names_that_need_no_file_are_refused)
{
    static const struct {
        const char* name;
        const char* reason;
    } cases[] = {
        { "x.null", "is not an image file" },
        { "x.nul", "is not an image file" },
        { "x.null?RES=64x64", "is not an image file" },
        { "http://localhost:1/x.mp4", "does not exist" },
    };
    for (const auto& c : cases) {
        expectColor(look(c.name, 0.5f, 0.5f), error_color);
        EXPECT_EQ(takeProblem(), std::string("[texturesys] \"") + c.name + "\" " + c.reason);
        int bits;
        EXPECT_FALSE(RvTextureGetBitDepth(c.name, &bits));
        EXPECT_NE(takeProblem().find(c.reason), std::string::npos);
    }
    const std::string file = folder.file("with:colon.tif");
    writeImage(file, 4, 4, 3, u8, constant({ 0, 1, 0 }));
    expectColor(look(file, 0.5f, 0.5f), { 0, 1, 0, 1 });
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, huge_images_are_seen_if_they_are_tiled_and_have_smaller_sizes)
{
    const std::string plain = folder.file("plain.ppm"), round = folder.file("round.hdr");
    std::ofstream(plain) << "P6\n200000 200000\n255\nshort";
    std::ofstream(round) << "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 300000 +X 300000\nshort";
    for (const std::string& file : { plain, round }) {
        for (int call = 0; call < 3; ++call)
            expectColor(look(file, 0.5f, 0.5f, 0.5f), error_color);
        std::thread([&] { expectColor(look(file, 0.5f, 0.5f), error_color); }).join();
        EXPECT_EQ(takeProblem(), "[texturesys] \"" + file +
                                     "\" is too large for a file without tiles and smaller sizes");
        int width = 0, height = 0;
        EXPECT_TRUE(RvTextureGetResolution(file.c_str(), &width, &height));
        EXPECT_GE(width, 200000);
    }
    // Of the largest size nothing is stored but its first tiles.
    const std::string made = folder.file("made.tif");
    OIIO::ImageSpec spec(20000, 20000, 1, u8);
    spec.tile_width = spec.tile_height = 64;
    spec.attribute("textureformat", "Plain Texture"); // so that parts are sizes
    const auto output = OIIO::ImageOutput::create(made);
    ASSERT_TRUE(output && output->open(made, spec));
    const std::vector<unsigned char> pixels(64 * 64, 255);
    for (bool is_largest : { true, false }) {
        ASSERT_TRUE(is_largest || output->open(made, spec, OIIO::ImageOutput::AppendSubimage))
            << output->geterror();
        ASSERT_TRUE(output->write_tile(0, 0, 0, OIIO::TypeUInt8, pixels.data()));
        spec.width = spec.height = spec.full_width = spec.full_height = 64;
    }
    ASSERT_TRUE(output->close());
    expectColor(look(made, 0.5f, 0.5f, 1), { 1, 1, 1, 1 });
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, unreadable_files_give_the_error_color_and_a_message_for_every_call)
{
    writeImage(folder.file("whole.exr"), 64, 64, 3, f32, pattern);
    std::filesystem::copy_file(folder.file("whole.exr"), folder.file("truncated.exr"));
    std::filesystem::resize_file(folder.file("truncated.exr"), 600);
    std::filesystem::copy_file(folder.file("whole.exr"), folder.file("cut header.exr"));
    std::filesystem::resize_file(folder.file("cut header.exr"), 20);
    std::ofstream(folder.file("empty.tif")).flush();
    std::ofstream(folder.file("text.exr")) << "This is a text and no picture at all.\n";
    std::ofstream(folder.file("none.ppm")) << "P6\n0 0\n255\n";
    std::filesystem::create_directory(folder.file("folder.tif"));
    RvNodeSetRGB(options(), "error_color_bad_texture", 0.5f, 0, 0.25f);
    for (const char* name : { "missing.tif", "truncated.exr", "cut header.exr", "empty.tif",
                              "text.exr", "none.ppm", "folder.tif", "." }) {
        for (int call = 0; call < 2; ++call) {
            RvUniverseCacheFlush(1);
            expectColor(look(folder.file(name), 0.5f, 0.5f), { 0.5f, 0, 0.25f, 1 }, 1e-6f, name);
            const auto problems = takeProblems();
            EXPECT_FALSE(problems.empty()) << name;
            for (const std::string& text : problems) {
                EXPECT_EQ(text.find("[texturesys] "), 0u) << text;
                EXPECT_GT(text.size(), 13u);
                EXPECT_EQ(text.find('\n'), std::string::npos) << text;
            }
        }
    }
}

TEST_F(Textures, a_file_that_could_not_be_read_once_stays_broken_for_all_threads)
{
    const std::string file = folder.file("truncated.exr");
    writeImage(file, 64, 64, 3, f32, pattern);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    expectColor(look(file, 0.5f, 0.1f), error_color);
    EXPECT_NE(takeProblems().front().find("end of file"), std::string::npos);
    expectColor(look(file, 0.5f, 0.1f), error_color);
    std::thread([&] { expectColor(look(file, 0.5f, 0.9f), error_color); }).join();
    EXPECT_EQ(takeProblem(),
              "[texturesys] \"" + file + "\" failed again; its errors are no longer listed");
    writeImage(file, 64, 64, 3, f32, constant({ 0, 1, 0 }));
    RvUniverseCacheFlush(1);
    expectColor(look(file, 0.5f, 0.1f), { 0, 1, 0, 1 });
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, a_file_that_fails_forever_stays_an_error_but_not_forever_a_message)
{
    const std::string file = folder.file("missing.tif");
    for (int call = 0; call < 1000; ++call)
        expectColor(look(file, 0.5f, 0.5f), error_color);
    const auto problems = takeProblems();
    EXPECT_LT(problems.size(), 150u);
    EXPECT_EQ(problems.back(),
              "[texturesys] \"" + file + "\" failed again; its errors are no longer listed");
}

TEST_F(Textures, pixels_that_are_no_numbers_are_an_error)
{
    const std::string file = folder.file("nan.exr");
    writeImage(file, 16, 16, 4, f32, [](int, int, int) { return NAN; });
    for (int call = 0; call < 3; ++call)
        expectColor(look(file, 0.5f, 0.5f), error_color);
    EXPECT_EQ(takeProblem(), "[texturesys] \"" + file + "\" holds pixels that are not a number");
}

TEST_F(Textures, an_image_without_pixels_is_an_error_told_once)
{
    const std::string file = folder.file("none.invented");
    OIIO::ImageSpec spec(0, 0, 3, u8);
    InventedInput::write(file, spec);
    for (int call = 0; call < 3; ++call)
        std::thread([&] { expectColor(look(file, 0.5f, 0.5f), error_color); }).join();
    EXPECT_EQ(takeProblem(), "[texturesys] \"" + file + "\" has no pixels");
}

TEST_F(Textures, infinite_pixels_are_seen)
{
    const std::string file = folder.file("sun.exr");
    writeImage(file, 16, 16, 3, f32, constant({ INFINITY, 1, -INFINITY }));
    RtTextureParams params = defaults();
    params.filter = 0;
    const RtRGBA c = look(file, 0.5f, 0.5f, 0, params);
    EXPECT_EQ(c.r, INFINITY);
    EXPECT_EQ(c.b, -INFINITY);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Names ----

TEST_F(Textures, a_name_is_known_by_its_text)
{
    writeImage(folder.file("a.tif"), 4, 4, 3, u8, constant({ 1, 0, 0 }));
    writeImage(folder.file("b.tif"), 4, 4, 3, u8, constant({ 0, 1, 0 }));
    std::string name = folder.file("a.tif");
    const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
    const RtTextureParams params = defaults();
    EXPECT_EQ(RvTextureAccess(&sg, name.c_str(), &params).r, 1);
    name[name.size() - 5] = 'b'; // at the same address
    EXPECT_EQ(RvTextureAccess(&sg, name.c_str(), &params).g, 1);
    EXPECT_EQ(RvTextureAccess(&sg, std::string(name).c_str(), &params).g, 1);
}

TEST_F(Textures, many_files_and_threads_find_their_pixels)
{
    std::vector<std::string> files;
    for (int i = 0; i < 300; ++i) {
        files.push_back(folder.file(("f" + std::to_string(i) + ".tif").c_str()));
        writeImage(files.back(), 2, 2, 1, f32, constant({ float(i) }));
    }
    RvNodeSetInt(options(), "texture_max_open_files", 5);
    std::atomic<int> wrong = 0;
    const auto work = [&](int start) {
        for (int n = 0; n < 900; ++n) {
            const int i = (start + n * 7) % 300;
            wrong += look(files[size_t(i)], 0.5f, 0.5f).g != float(i);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(work, t * 31);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(takeProblem(), "");
}

} // namespace
