// Tests of core/src/drivers/quantize.cpp.
#include "golden.h"
#include "universe_fixture.h"

namespace {

template <int (*quantize)(int, int, int, float, float)> void expectGoldenSteps(const char* fn)
{
    for (const nlohmann::json& v : goldenVectors("output", fn)) {
        const nlohmann::json& in = v.at("in");
        expectGolden(v, "value",
                     quantize(in.at("x"), in.at("y"), in.at("channel"), goldenFloat(in.at("value")),
                              goldenFloat(in.at("dither_amplitude"))));
    }
}

TEST(Quantize, agrees_with_golden_8_bit_steps)
{
    expectGoldenSteps<RvQuantize8bit>("RvQuantize8bit");
}

TEST(Quantize, agrees_with_golden_16_bit_steps)
{
    expectGoldenSteps<RvQuantize16bit>("RvQuantize16bit");
}

TEST(Quantize, truncates_and_clamps)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    static const struct {
        const char* name;
        float value;
        int expected8, expected16;
    } cases[] = {
        { "full scale", 1, 255, 65535 },
        { "a half is cut off", 0.5f, 127, 32767 },
        { "negative", -0.1f, 0, 0 },
        { "too big for an integer", 1e30f, 255, 65535 },
        { "too small for an integer", -1e30f, 0, 0 },
        { "infinity", infinity, 255, 65535 },
        { "less than everything", -infinity, 0, 0 },
        { "no number", std::nanf(""), 0, 0 },
    };
    for (const auto& c : cases) {
        EXPECT_EQ(RvQuantize8bit(3, 5, 0, c.value, 0), c.expected8) << c.name;
        EXPECT_EQ(RvQuantize16bit(3, 5, 0, c.value, 0), c.expected16) << c.name;
        EXPECT_EQ(RvQuantize8bit(3, 5, 0, c.value, -1), c.expected8) << c.name;
    }
}

TEST(Quantize, dithers_neighbours_apart_within_one_step)
{
    constexpr float value = 100.25f / 255;
    bool seen[3] = {};
    for (int y = -8; y < 8; ++y)
        for (int x = -8; x < 8; ++x)
            for (int channel = 0; channel < 4; ++channel) {
                const int step = RvQuantize8bit(x, y, channel, value, 0.5f);
                EXPECT_EQ(step, RvQuantize8bit(x, y, channel, value, 0.5f));
                ASSERT_GE(step, 99);
                ASSERT_LE(step, 101);
                seen[step - 99] = true;
            }
    EXPECT_TRUE(seen[0] && seen[1]);
    EXPECT_FALSE(seen[2]) << "100.25 and half a step never reach 101";
}

} // namespace
