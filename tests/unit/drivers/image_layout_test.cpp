// Tests of core/src/drivers/image_layout.cpp.
#include "drivers/image_layout.h"

#include "drivers/image_reader.h"
#include "golden.h"
#include "universe_fixture.h"

namespace {

using Names = std::vector<std::string>;

TEST(ImageLayout, agrees_with_golden_channel_names)
{
    for (const nlohmann::json& v : goldenVectors("output", "channel_names")) {
        const nlohmann::json& in = v.at("in");
        const std::string aov = in.at("aov"), type_name = in.at("type");
        int type = RV_TYPE_BYTE;
        while (type_name != RvParamGetTypeName(type))
            ASSERT_LT(++type, RV_TYPE_NONE) << type_name;
        const Names names = rv::channelNames(aov.c_str(), type, in.at("layer_names"));
        expectGolden(v, "names", names.empty() ? nlohmann::json() : nlohmann::json(names));
    }
}

TEST(ImageLayout, channels_take_the_names_of_the_variable_only_with_the_flag)
{
    static const struct {
        const char* aov;
        int type;
        Names names;
    } cases[] = {
        { "Z", RV_TYPE_FLOAT, { "Z" } },
        { "id", RV_TYPE_INT, { "id" } },
        { "uv", RV_TYPE_POINT2, { "uv.x", "uv.y" } },
        { "N", RV_TYPE_VECTOR, { "N.r", "N.g", "N.b" } },
        { "spec", RV_TYPE_RGBA, { "spec.r", "spec.g", "spec.b", "spec.a" } },
        { "RGB", RV_TYPE_RGB, {} },
        { "RGBA", RV_TYPE_RGBA, {} },
        { "RGBA", RV_TYPE_FLOAT, {} },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(rv::channelNames(c.aov, c.type, true), c.names) << c.aov;
        EXPECT_EQ(rv::channelNames(c.aov, c.type, false), Names()) << c.aov;
    }
}

TEST(ImageLayout, a_single_output_takes_the_names_of_the_library)
{
    static const struct {
        int type, alpha;
    } cases[] = { { RV_TYPE_FLOAT, -1 },  { RV_TYPE_POINT2, -1 }, { RV_TYPE_RGB, -1 },
                  { RV_TYPE_VECTOR, -1 }, { RV_TYPE_POINT, -1 },  { RV_TYPE_RGBA, 3 } };
    for (const auto& c : cases) {
        rv::ImageLayout layout;
        EXPECT_TRUE(rv::addLayer(&layout, "some", c.type, false));
        EXPECT_EQ(layout.names, libraryChannelNames(rv::channelCount(c.type))) << c.type;
        EXPECT_EQ(layout.alpha_channel, c.alpha) << c.type;
    }
}

TEST(ImageLayout, several_outputs_never_share_a_name)
{
    rv::ImageLayout layout;
    EXPECT_TRUE(rv::addLayer(&layout, "Z", RV_TYPE_FLOAT, false));
    EXPECT_TRUE(rv::addLayer(&layout, "N", RV_TYPE_VECTOR, false));
    EXPECT_TRUE(rv::addLayer(&layout, "RGBA", RV_TYPE_RGBA, false));
    EXPECT_TRUE(rv::addLayer(&layout, "RGB", RV_TYPE_RGB, false));
    EXPECT_FALSE(rv::addLayer(&layout, "N", RV_TYPE_POINT, false));
    rv::skipLayer(&layout, RV_TYPE_STRING);
    EXPECT_TRUE(rv::addLayer(&layout, "A", RV_TYPE_FLOAT, false) == false)
        << "A is the alpha of RGBA";
    EXPECT_EQ(layout.names,
              (Names{ "Y", "N.r", "N.g", "N.b", "R", "G", "B", "A", "RGB.r", "RGB.g", "RGB.b" }));
    EXPECT_EQ(layout.alpha_channel, 7);
    static const struct {
        int first, count;
    } layers[] = { { 0, 1 }, { 1, 3 }, { 4, 4 }, { 8, 3 }, { 11, 0 }, { 11, 0 }, { 11, 0 } };
    ASSERT_EQ(layout.layers.size(), std::size(layers));
    for (size_t i = 0; i < std::size(layers); ++i) {
        EXPECT_EQ(layout.layers[i].first, layers[i].first) << i;
        EXPECT_EQ(layout.layers[i].count, layers[i].count) << i;
    }
}

TEST(ImageLayout, types_without_pixels_have_no_channels)
{
    for (int type : { RV_TYPE_STRING, RV_TYPE_POINTER, RV_TYPE_NODE, RV_TYPE_ARRAY, RV_TYPE_MATRIX,
                      RV_TYPE_ENUM, RV_TYPE_NONE, -1 })
        EXPECT_EQ(rv::channelCount(type), 0) << type;
}

} // namespace
