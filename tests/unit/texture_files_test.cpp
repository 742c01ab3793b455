// Tests of texture_files.cpp: what threads share of a file, and sets of tiles.
#include "texture.h"

#include "texture_tools.h"

#include <thread>

using namespace texture_tools;

namespace {

constexpr OIIO::TypeDesc::BASETYPE u8 = OIIO::TypeDesc::UINT8, f32 = OIIO::TypeDesc::FLOAT;

// ---- Records ----

TEST_F(Textures, what_is_said_once_is_said_once_for_all_threads_and_again_in_the_next_render)
{
    const std::string file = folder.file("nan.exr");
    writeImage(file, 16, 16, 4, f32, [](int, int, int) { return NAN; });
    const std::string text = "[texturesys] \"" + file + "\" holds pixels that are not a number";
    for (int render = 0; render < 3; ++render) {
        rv::applyTextureOptions();
        for (int thread = 0; thread < 3; ++thread)
            std::thread([&] {
                for (int call = 0; call < 3; ++call)
                    expectColor(look(file, 0.5f, 0.5f), error_color);
            }).join();
        EXPECT_EQ(takeProblems(), std::vector<std::string>{ text }) << render;
    }
}

TEST_F(Textures, one_thing_said_of_a_file_does_not_hide_another)
{
    const std::string file = folder.file("nan.exr");
    writeImage(file, 16, 16, 4, f32, [](int, int, int) { return NAN; });
    look(file, INFINITY, 0.5f);
    look(file, 0.5f, 0.5f);
    EXPECT_EQ(takeProblems().size(), 2u);
}

// Names are remembered by their addresses.
TEST_F(Textures, more_names_than_a_thread_remembers_are_found_and_reported_once)
{
    const std::string files[] = { folder.file("red.exr"), folder.file("green.exr"),
                                  folder.file("nan.exr") };
    writeImage(files[0], 4, 4, 3, f32, constant({ 1, 0, 0 }));
    writeImage(files[1], 4, 4, 3, f32, constant({ 0, 1, 0 }));
    writeImage(files[2], 4, 4, 3, f32, [](int, int, int) { return NAN; });
    static const RtRGBA colors[] = { { 1, 0, 0, 1 }, { 0, 1, 0, 1 }, error_color };
    std::vector<std::string> names;
    for (size_t i = 0; i < 20000; ++i)
        names.push_back(files[i % 3]);
    int wrong = 0;
    for (int round = 0; round < 2; ++round)
        for (size_t i = 0; i < names.size(); ++i) {
            const RtRGBA c = look(names[i], 0.5f, 0.5f);
            wrong += memcmp(&c, &colors[i % 3], sizeof c) != 0;
        }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(takeProblems().size(), 1u);
}

// ---- Sets of tiles ----

// A tile that tells its code in red, its upper half in green and its right half in blue.
void writeTile(const std::string& path, float code)
{
    writeImage(path, 16, 16, 3, f32, [=](int x, int y, int c) {
        return c == 0 ? code : c == 1 ? float(y < 8) : float(x >= 8);
    });
}

class TileSet : public Textures {
protected:
    void SetUp() override
    {
        Textures::SetUp();
        for (const char* number : { "1001", "1002", "1011", "1012", "1020" })
            writeTile(folder.file((std::string("t.") + number + ".exr").c_str()),
                      float(atoi(number)));
        set = folder.file("t.<UDIM>.exr");
    }
    RtRGBA closest(float u, float v, RtTextureParams params = defaults()) const
    {
        params.filter = 0;
        return look(set, u, v, 0, params);
    }

    std::string set;
};

TEST_F(TileSet, rows_go_upwards_and_the_picture_in_a_tile_is_upright)
{
    static const struct {
        float u, v;
        float code;
        bool is_up, is_right;
    } cases[] = {
        { 0.25f, 0.25f, 1001, false, false }, { 0.75f, 0.75f, 1001, true, true },
        { 1.25f, 0.75f, 1002, true, false },  { 1.75f, 0.25f, 1002, false, true },
        { 0.25f, 1.25f, 1011, false, false }, { 0.75f, 1.75f, 1011, true, true },
        { 1.75f, 1.25f, 1012, false, true },  { 9.25f, 1.75f, 1020, true, false },
    };
    for (const auto& c : cases)
        expectColor(closest(c.u, c.v), { c.code, float(c.is_up), float(c.is_right), 1 }, 0,
                    std::to_string(c.u) + " " + std::to_string(c.v));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, the_tile_is_that_of_the_swapped_flipped_and_scaled_coordinates)
{
    static const struct {
        const char* name;
        float u, v;
        bool swap, flip_s, flip_t;
        float scale_s, scale_t;
        RtRGBA wanted;
    } cases[] = {
        { "swap", 0.25f, 1.75f, true, false, false, 1, 1, { 1002, 0, 1, 1 } },
        { "flip s", -0.25f, 0.25f, false, true, false, 1, 1, { 1002, 0, 0, 1 } },
        { "flip t", 0.25f, -0.75f, false, false, true, 1, 1, { 1011, 1, 0, 1 } },
        { "scale s", 0.875f, 0.25f, false, false, false, 2, 1, { 1002, 0, 1, 1 } },
        { "scale t", 0.25f, 0.625f, false, false, false, 1, 2, { 1011, 0, 0, 1 } },
    };
    for (const auto& c : cases) {
        const RtTextureParams params = moved(c.swap, c.flip_s, c.flip_t, c.scale_s, c.scale_t);
        expectColor(closest(c.u, c.v, params), c.wanted, 0, c.name);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, the_edge_between_a_tile_and_none_belongs_to_the_tile)
{
    expectColor(closest(1, 0.75f), { 1002, 1, 0, 1 }, 0, "between two");
    expectColor(closest(0.75f, 1), { 1011, 0, 1, 1 }, 0, "between two");
    expectColor(closest(2, 0.25f), { 1002, 0, 1, 1 }, 0, "right");
    expectColor(closest(0.25f, 2), { 1011, 1, 0, 1 }, 0, "top");
    expectColor(closest(2, 2), { 1012, 1, 1, 1 }, 0, "corner");
    expectColor(closest(10, 2), { 1020, 1, 1, 1 }, 0, "last column");
    expectColor(closest(9, 1.25f), { 1020, 0, 0, 1 }, 0, "left");
    expectColor(closest(0, 0), { 1001, 0, 0, 1 }, 0, "origin");
    EXPECT_EQ(takeProblem(), "");
}

// As interpolation over a face gives them.
TEST_F(TileSet, coordinates_that_rounding_takes_over_the_edge_stay_in_the_tile)
{
    const float beyond = 3e-6f;
    expectColor(closest(2 + beyond, 0.25f), { 1002, 0, 1, 1 }, 0, "right");
    expectColor(closest(0.25f, 2 + beyond), { 1011, 1, 0, 1 }, 0, "top");
    expectColor(closest(2 + beyond, 2 + beyond), { 1012, 1, 1, 1 }, 0, "corner");
    expectColor(closest(10 + beyond, 2 + beyond), { 1020, 1, 1, 1 }, 0, "last column");
    expectColor(closest(9 - beyond, 1.25f), { 1020, 0, 0, 1 }, 0, "left");
    expectColor(closest(-beyond, -beyond), { 1001, 0, 0, 1 }, 0, "origin");
    EXPECT_EQ(takeProblem(), "");
    for (const auto& [u, v] : { std::pair(2.001f, 0.25f), { -0.001f, 0.25f }, { 8.999f, 1.25f } })
        expectColor(look(set, u, v), error_color, 0, std::to_string(u));
    EXPECT_NE(takeProblem(), "");
}

TEST_F(TileSet, a_footprint_does_not_reach_around_a_tile)
{
    for (int wrap = 0; wrap < 5; ++wrap) {
        RtTextureParams params = defaults();
        params.wrap_s = params.wrap_t = wrap;
        const RtRGBA c = look(set, 1.0001f, 0.0001f, 1.0f / 32, params);
        expectColor(c, { 1002, 0, 0, 1 }, 1e-3f, std::to_string(wrap));
    }
}

TEST_F(TileSet, missing_tiles_show_the_error_color_and_are_told_once_each)
{
    for (int render = 0; render < 2; ++render) {
        rv::applyTextureOptions();
        for (int thread = 0; thread < 2; ++thread)
            std::thread([&] {
                for (float place : { 0.25f, 0.5f, 0.75f }) {
                    expectColor(look(set, 2 + place, place), error_color);
                    expectColor(look(set, place, 99 + place), error_color);
                }
            }).join();
        EXPECT_EQ(takeProblems(),
                  (std::vector<std::string>{
                      "[texturesys] \"" + folder.file("t.1003.exr") + "\" does not exist",
                      "[texturesys] \"" + folder.file("t.1991.exr") + "\" does not exist" }))
            << render;
    }
}

TEST_F(TileSet, coordinates_that_can_have_no_tile_are_told_once)
{
    for (const RtPoint2 uv : { RtPoint2{ -0.25f, 0.5f },
                               { 0.5f, -0.25f },
                               { 10.5f, 0.5f },
                               { 0.5f, 100.5f },
                               { INFINITY, 0.5f },
                               { 0.5f, -INFINITY },
                               { 1e30f, 1e30f } })
        expectColor(closest(uv.x, uv.y), error_color);
    EXPECT_EQ(takeProblem(),
              "[texturesys] \"" + set + "\" has no tile for the coordinates -0.250000 0.500000");
    RtTextureParams params = defaults();
    params.scale_s = 0;
    expectColor(closest(INFINITY, 0.5f, params), error_color, 0, "not a number");
}

TEST_F(TileSet, a_tile_that_comes_later_is_seen_by_the_next_render)
{
    expectColor(closest(2.25f, 0.25f), error_color);
    takeProblems();
    writeTile(folder.file("t.1003.exr"), 3);
    expectColor(closest(2.25f, 0.25f), error_color);
    rv::applyTextureOptions();
    expectColor(closest(2.25f, 0.25f), { 3, 0, 0, 1 }, 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, tiles_are_found_along_the_search_path)
{
    set = "t.<UDIM>.exr";
    expectColor(closest(1.25f, 1.25f), error_color);
    EXPECT_EQ(takeProblem(), "[texturesys] \"t.1012.exr\" does not exist");
    RvNodeSetStr(options(), "texture_searchpath", folder.path().c_str());
    expectColor(closest(1.25f, 1.25f), { 1012, 0, 0, 1 }, 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, every_mark_names_its_tile)
{
    writeTile(folder.file("w_u2_v3.exr"), 23);
    static const struct {
        const char* set;
        float u, v;
        float code;
    } cases[] = {
        { "t.%(UDIM)d.exr", 1.25f, 1.25f, 1012 },
        { "w_<UVTILE>.exr", 1.25f, 2.25f, 23 },
        { "w_<uvtile>.exr", 2.25f, 3.25f, 23 },
    };
    for (const auto& c : cases) {
        set = folder.file(c.set);
        expectColor(closest(c.u, c.v), { c.code, 0, 0, 1 }, 0, c.set);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, every_tile_has_channels_and_pixels_of_its_own_kind)
{
    set = folder.file("mixed_<UDIM>.tif");
    writeImage(folder.file("mixed_1001.tif"), 8, 8, 1, u8, constant({ 0.5f }));
    writeImage(folder.file("mixed_1002.tif"), 16, 4, 4, f32, constant({ 0.5f, 0, 0.5f, 0.25f }));
    RvNodeSetFlt(options(), "texture_gamma", 2);
    expectColor(closest(0.5f, 0.5f), { 0.25f, 0.25f, 0.25f, 1 }, 0.01f);
    expectColor(closest(1.5f, 0.5f), { 0.5f, 0, 0.5f, 0.25f });
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(TileSet, a_resized_image_lies_at_the_top_left_of_every_tile)
{
    RtTextureParams params = defaults();
    params.filter = 0;
    const RtShaderGlobals sg = contextAt(1.75f, 1.25f); // the lower right quarter
    expectColor(RvTextureAccessResized(&sg, set.c_str(), &params, 8, 8), { 1012, 1, 0, 1 }, 0);
}

TEST_F(TileSet, a_bad_tile_is_no_worse_than_a_bad_file)
{
    std::ofstream(folder.file("t.1003.exr")) << "no picture";
    expectColor(closest(2.25f, 0.25f), error_color);
    EXPECT_NE(takeProblem().find("t.1003.exr"), std::string::npos);
    expectColor(closest(1.25f, 0.25f), { 1002, 0, 0, 1 }, 0);
}

TEST_F(TileSet, queries_tell_of_the_first_tile)
{
    std::filesystem::remove(folder.file("t.1001.exr"));
    int width = 0, height = 0, channels = 0, bits = 0, type = 0;
    EXPECT_TRUE(RvTextureGetResolution(set.c_str(), &width, &height));
    EXPECT_TRUE(RvTextureGetNumChannels(set.c_str(), &channels));
    EXPECT_TRUE(RvTextureGetBitDepth(set.c_str(), &bits));
    EXPECT_TRUE(RvTextureGetFormat(set.c_str(), &type));
    EXPECT_EQ(width, 16);
    EXPECT_EQ(height, 16);
    EXPECT_EQ(channels, 3);
    EXPECT_EQ(bits, 32);
    EXPECT_EQ(type, RV_TYPE_FLOAT);
    EXPECT_EQ(takeProblem(), "");
    const std::string none = folder.file("none_<UDIM>.exr");
    EXPECT_FALSE(RvTextureGetBitDepth(none.c_str(), &bits));
    EXPECT_EQ(takeProblem(), "[texturesys] RvTextureGetBitDepth / get_texture_info failed on " +
                                 none + ": has no tiles");
}

} // namespace
