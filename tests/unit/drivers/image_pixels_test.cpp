// Tests of core/src/drivers/image_pixels.cpp.
#include "drivers/image_pixels.h"

#include "golden.h"
#include "universe_fixture.h"

#include <limits.h>

namespace {

using rv::ChannelFormat;

TEST(ImagePixels, agree_with_golden_colours)
{
    for (const nlohmann::json& v : goldenVectors("output", "file_rgba_colour")) {
        const nlohmann::json& in = v.at("in");
        const std::vector<float> rgba = goldenFloats(in.at("rgba"));
        const RtRGBA color = rv::fileColor({ rgba[0], rgba[1], rgba[2], rgba[3] },
                                           goldenFloat(in.at("gamma")), in.at("unpremult_alpha"));
        expectGoldenNumbers(v, "rgba", { color.r, color.g, color.b, color.a });
    }
}

TEST(ImagePixels, colour_without_alpha_is_lost_where_colours_are_multiplied)
{
    const RtRGBA glow = { 0.5f, 0.25f, 1, 0 };
    const RtRGBA multiplied = rv::fileColor(glow, 1, false),
                 straight = rv::fileColor(glow, 1, true);
    EXPECT_EQ(multiplied.r, 0);
    EXPECT_EQ(multiplied.b, 0);
    EXPECT_EQ(straight.r, 0.5f);
    EXPECT_EQ(straight.g, 0.25f);
}

TEST(ImagePixels, colours_with_alpha_keep_every_bit_without_gamma)
{
    for (float alpha = 0.01f; alpha < 1; alpha += 0.0137f) {
        const RtRGBA c = rv::fileColor({ 0.1f, 0.7f, 3, alpha }, 1, false);
        EXPECT_EQ(c.r, 0.1f);
        EXPECT_EQ(c.g, 0.7f);
        EXPECT_EQ(c.b, 3);
        EXPECT_EQ(c.a, alpha);
    }
}

// The channels that a pixel of up to four floats or one integer becomes.
template <class Channel>
std::vector<Channel> converted(const rv::PixelRules& rules, int type, const void* value, int count)
{
    std::vector<Channel> channels(5, Channel(77));
    rv::convertRow(rules, { 3, 4, 1, type, value, channels.data(), 5 * sizeof(Channel) });
    for (size_t i = size_t(count); i < 5; ++i)
        EXPECT_EQ(channels[i], Channel(77)) << "beyond the output's channels";
    channels.resize(size_t(count));
    return channels;
}

TEST(ImagePixels, values_are_scaled_to_the_range_of_the_format)
{
    const float half[] = { 0.5f, 2, -1 };
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 1, 0, false }, RV_TYPE_RGB, half, 3),
              (std::vector<uint8_t>{ 127, 255, 0 }));
    EXPECT_EQ(converted<uint16_t>({ ChannelFormat::uint16, 1, 0, false }, RV_TYPE_RGB, half, 3),
              (std::vector<uint16_t>{ 32767, 65535, 0 }));
    EXPECT_EQ(converted<uint32_t>({ ChannelFormat::uint32, 1, 0, false }, RV_TYPE_RGB, half, 3),
              (std::vector<uint32_t>{ 0x80000000u, UINT32_MAX, 0 }));
    for (ChannelFormat format : { ChannelFormat::float16, ChannelFormat::float32 })
        EXPECT_EQ(converted<float>({ format, 1, 0, false }, RV_TYPE_RGB, half, 3),
                  (std::vector<float>{ 0.5f, 2, -1 }));
}

TEST(ImagePixels, gamma_is_applied_to_what_lies_above_black)
{
    const float values[] = { 0.25f, -1, 4 };
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 2, 0, false }, RV_TYPE_VECTOR, values, 3),
              (std::vector<uint8_t>{ 127, 0, 255 }));
    const float nothing[] = { std::nanf(""), 1, 1 };
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 2, 0, false }, RV_TYPE_RGB, nothing, 3),
              (std::vector<uint8_t>{ 0, 255, 255 }));
}

TEST(ImagePixels, highlights_on_clear_surfaces_survive)
{
    const float glass[] = { 0.8f, 0.6f, 0.1f, 0.5f };
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 1, 0, false }, RV_TYPE_RGBA, glass, 4),
              (std::vector<uint8_t>{ 204, 153, 25, 127 }));
}

TEST(ImagePixels, dither_follows_the_place_in_the_image_and_the_channel)
{
    const float grey[] = { 0.3f, 0.3f, 0.3f, 0.3f };
    const std::vector<uint8_t> bytes =
        converted<uint8_t>({ ChannelFormat::uint8, 1, 4, true }, RV_TYPE_POINT, grey, 3);
    const std::vector<uint16_t> words =
        converted<uint16_t>({ ChannelFormat::uint16, 1, 4, true }, RV_TYPE_POINT, grey, 3);
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(bytes[size_t(c)], RvQuantize8bit(3, 4, c, 0.3f, 4));
        EXPECT_EQ(words[size_t(c)], RvQuantize16bit(3, 4, c, 0.3f, 4));
    }
}

TEST(ImagePixels, integers_are_numbers_and_whole_in_the_widest_format)
{
    const int id = 1234567, negative = -5;
    const bool yes = true, no = false;
    EXPECT_EQ(converted<uint32_t>({ ChannelFormat::uint32, 1, 1, false }, RV_TYPE_INT, &id, 1)[0],
              1234567u);
    EXPECT_EQ(
        converted<uint32_t>({ ChannelFormat::uint32, 1, 1, false }, RV_TYPE_INT, &negative, 1)[0],
        0u);
    EXPECT_EQ(converted<float>({ ChannelFormat::float32, 1, 0, false }, RV_TYPE_INT, &id, 1)[0],
              1234567.f);
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 1, 0, false }, RV_TYPE_INT, &id, 1)[0],
              255);
    EXPECT_EQ(
        converted<uint8_t>({ ChannelFormat::uint8, 1, 0, false }, RV_TYPE_BOOLEAN, &yes, 1)[0],
        255);
    EXPECT_EQ(converted<uint8_t>({ ChannelFormat::uint8, 1, 0, false }, RV_TYPE_BOOLEAN, &no, 1)[0],
              0);
}

TEST(ImagePixels, a_row_fills_its_channels_of_every_pixel)
{
    const float from[] = { 0, 1, 2, 3 }; // two pixels of POINT2
    float to[6] = { 9, 9, 9, 9, 9, 9 };
    rv::convertRow({ ChannelFormat::float32, 1, 0, false },
                   { 0, 0, 2, RV_TYPE_POINT2, from, to + 1, 3 * sizeof(float) });
    EXPECT_EQ(std::vector<float>(to, to + 6), (std::vector<float>{ 9, 0, 1, 9, 2, 3 }));
}

} // namespace
