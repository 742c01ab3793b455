// Tests of texture_queries.cpp: what image files say about themselves.
#include "texture_tools.h"

using namespace texture_tools;

namespace {

using T = OIIO::TypeDesc;

TEST_F(Textures, queries_tell_of_size_channels_and_pixel_type)
{
    static const struct {
        const char* file;
        T::BASETYPE type;
        int bits, value_type;
    } cases[] = {
        { "u8.tif", T::UINT8, 8, RV_TYPE_UINT },
        { "i8.tif", T::INT8, 8, RV_TYPE_INT },
        { "u16.png", T::UINT16, 16, RV_TYPE_UINT },
        { "i16.tif", T::INT16, 16, RV_TYPE_INT },
        { "u32.tif", T::UINT32, 32, RV_TYPE_UINT },
        { "i32.tif", T::INT32, 32, RV_TYPE_INT },
        { "half.exr", T::HALF, 16, RV_TYPE_FLOAT },
        { "float.exr", T::FLOAT, 32, RV_TYPE_FLOAT },
        { "double.tif", T::DOUBLE, 64, RV_TYPE_FLOAT },
    };
    for (const auto& c : cases) {
        const std::string file = folder.file(c.file);
        writeImage(file, 12, 7, 3, c.type, constant({ 0.1f, 0.2f, 0.3f }));
        int width = 0, height = 0, channels = 0, bits = 0, type = -1;
        EXPECT_TRUE(RvTextureGetResolution(file.c_str(), &width, &height));
        EXPECT_TRUE(RvTextureGetNumChannels(file.c_str(), &channels));
        EXPECT_TRUE(RvTextureGetBitDepth(file.c_str(), &bits)) << c.file;
        EXPECT_TRUE(RvTextureGetFormat(file.c_str(), &type)) << c.file;
        EXPECT_EQ(width, 12);
        EXPECT_EQ(height, 7);
        EXPECT_EQ(channels, 3);
        EXPECT_EQ(bits, c.bits) << c.file;
        EXPECT_EQ(type, c.value_type) << c.file;
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, queries_on_unreadable_files_name_themselves_and_change_nothing)
{
    int a = 7, b = 8;
    RtMatrix m = RV_M4_IDENTITY, n = RV_M4_IDENTITY;
    const struct {
        const char* name;
        std::function<bool(const char*)> ask;
    } cases[] = {
        { "RvTextureGetResolution",
          [&](const char* f) { return RvTextureGetResolution(f, &a, &b); } },
        { "RvTextureGetNumChannels",
          [&](const char* f) { return RvTextureGetNumChannels(f, &a); } },
        { "RvTextureGetBitDepth", [&](const char* f) { return RvTextureGetBitDepth(f, &a); } },
        { "RvTextureGetFormat", [&](const char* f) { return RvTextureGetFormat(f, &a); } },
        { "RvTextureGetMatrices", [&](const char* f) { return RvTextureGetMatrices(f, &m, &n); } },
    };
    std::ofstream(folder.file("text.exr")) << "no picture";
    for (const char* file : { "missing.tif", "text.exr", "." })
        for (const auto& c : cases) {
            const std::string path = folder.file(file);
            EXPECT_FALSE(c.ask(path.c_str()));
            const std::string text = takeProblem();
            const std::string start = std::string("[texturesys] ") + c.name +
                                      " / get_texture_info failed on " + path + ": ";
            EXPECT_EQ(text.substr(0, start.size()), start);
            EXPECT_GT(text.size(), start.size());
            EXPECT_NE(text.back(), '\n');
        }
    for (const auto& c : cases) {
        EXPECT_FALSE(c.ask(nullptr));
        EXPECT_FALSE(c.ask(""));
    }
    EXPECT_EQ(a, 7);
    EXPECT_EQ(b, 8);
    EXPECT_EQ(memcmp(&m, &RV_M4_IDENTITY, sizeof m), 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, queries_without_a_place_for_the_answer_fail)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 2, 2, 1, T::UINT8, constant({ 1 }));
    int value;
    RtMatrix m;
    EXPECT_FALSE(RvTextureGetResolution(file.c_str(), nullptr, &value));
    EXPECT_FALSE(RvTextureGetResolution(file.c_str(), &value, nullptr));
    EXPECT_FALSE(RvTextureGetNumChannels(file.c_str(), nullptr));
    EXPECT_FALSE(RvTextureGetBitDepth(file.c_str(), nullptr));
    EXPECT_FALSE(RvTextureGetFormat(file.c_str(), nullptr));
    EXPECT_FALSE(RvTextureGetMatrices(file.c_str(), &m, nullptr));
    EXPECT_FALSE(RvTextureGetMatrices(file.c_str(), nullptr, &m));
}

TEST_F(Textures, matrices_are_those_of_the_file)
{
    const std::string file = folder.file("shot.exr");
    float screen[16], camera[16];
    for (int i = 0; i < 16; ++i) {
        screen[i] = float(i);
        camera[i] = float(100 + i);
    }
    writeImage(file, 2, 2, 1, T::FLOAT, constant({ 1 }), [&](OIIO::ImageSpec& spec) {
        spec.attribute("worldtoscreen", OIIO::TypeMatrix, screen);
        spec.attribute("worldtocamera", OIIO::TypeMatrix, camera);
    });
    RtMatrix got_screen, got_camera;
    ASSERT_TRUE(RvTextureGetMatrices(file.c_str(), &got_screen, &got_camera));
    EXPECT_EQ(memcmp(&got_screen, screen, sizeof screen), 0);
    EXPECT_EQ(memcmp(&got_camera, camera, sizeof camera), 0);
}

TEST_F(Textures, matrices_are_found_under_their_other_names)
{
    float screen[16], camera[16];
    for (int i = 0; i < 16; ++i) {
        screen[i] = float(i);
        camera[i] = float(100 + i);
    }
    static const struct {
        const char* screen_key;
        const char* camera_key;
        bool is_found;
    } cases[] = {
        { "worldToNDC", "worldToCamera", true }, { "worldtoscreen", "worldToCamera", true },
        { "worldToNDC", "worldtocamera", true }, { "worldToNDC", "other", false },
        { "other", "worldToCamera", false },
    };
    for (const auto& c : cases) {
        OIIO::ImageSpec spec(2, 2, 1, T::UINT8);
        spec.attribute(c.screen_key, OIIO::TypeMatrix, screen);
        spec.attribute(c.camera_key, OIIO::TypeMatrix, camera);
        const std::string file = folder.file("shot.invented");
        InventedInput::write(file, spec);
        RvUniverseCacheFlush(1);
        RtMatrix got_screen = RV_M4_IDENTITY, got_camera = RV_M4_IDENTITY;
        EXPECT_EQ(RvTextureGetMatrices(file.c_str(), &got_screen, &got_camera), c.is_found)
            << c.screen_key << " " << c.camera_key;
        const void* const wanted_screen = c.is_found ? screen : &RV_M4_IDENTITY.m[0][0];
        const void* const wanted_camera = c.is_found ? camera : &RV_M4_IDENTITY.m[0][0];
        EXPECT_EQ(memcmp(&got_screen, wanted_screen, sizeof screen), 0) << c.screen_key;
        EXPECT_EQ(memcmp(&got_camera, wanted_camera, sizeof camera), 0) << c.camera_key;
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST(TextureQueries, files_can_be_asked_about_without_a_universe)
{
    ASSERT_FALSE(RvUniverseIsActive());
    const TextureFolder folder;
    const std::string file = folder.file("a.png");
    writeImage(file, 12, 7, 3, T::UINT16, constant({ 0, 1, 0 }));
    int width = 0, height = 0, bits = 0;
    EXPECT_TRUE(RvTextureGetResolution(file.c_str(), &width, &height));
    EXPECT_EQ(width, 12);
    EXPECT_EQ(height, 7);
    EXPECT_TRUE(RvTextureGetBitDepth(file.c_str(), &bits));
    EXPECT_EQ(bits, 16);
    EXPECT_FALSE(RvTextureGetResolution(folder.file("none.png").c_str(), &width, &height));
}

TEST_F(Textures, a_file_without_matrices_has_none_and_that_is_no_error)
{
    const std::string file = folder.file("plain.exr");
    writeImage(file, 2, 2, 1, T::FLOAT, constant({ 1 }));
    RtMatrix screen = RV_M4_IDENTITY, camera = RV_M4_IDENTITY;
    EXPECT_FALSE(RvTextureGetMatrices(file.c_str(), &screen, &camera));
    EXPECT_EQ(memcmp(&screen, &RV_M4_IDENTITY, sizeof screen), 0);
    EXPECT_EQ(takeProblem(), "");
}

} // namespace
