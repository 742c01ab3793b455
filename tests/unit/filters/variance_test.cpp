// Tests of the variance filter.
#include "aovs/output_tools.h"

using namespace output_tools;

struct Variance : Outputs {
    static std::vector<float> pixelOf(bool scalar_mode, int type,
                                      const std::vector<std::vector<float>>& values)
    {
        RtNode* const node = node_tools::named("variance_filter", "var");
        RvNodeSetFlt(node, "width", 1);
        RvNodeSetBool(node, "scalar_mode", scalar_mode);
        EXPECT_TRUE(prepare(
            { node_tools::formatted("v %s var drv", node_tools::type_names[type]).c_str() }));
        openBucket({ 0, 0, 1, 1, 1, int(values.size()) + 1 });
        for (int i = 0; i < int(values.size()); ++i) {
            measure(sinkAt(0, 0, i), 0.25f, 0.5f);
            shade(sinkAt(0, 0, i), [&](RtShaderGlobals* sg) {
                return setNumbers(sg, "v", type, values[size_t(i)]);
            });
        }
        const std::vector<float> pixel = filteredPixel();
        closeOutputs();
        RvNodeDestroy(node);
        return pixel;
    }
};

TEST_F(Variance, of_identical_samples_is_zero_and_of_one_sample_is_none)
{
    EXPECT_EQ(pixelOf(false, RV_TYPE_FLOAT, { { 3 }, { 3 }, { 3 } }), std::vector<float>{ 0 });
    EXPECT_TRUE(std::isnan(pixelOf(false, RV_TYPE_FLOAT, { { 3 } })[0])); // Required
    const float none = pixelOf(false, RV_TYPE_FLOAT, {})[0];
    EXPECT_TRUE(none == 0 && std::signbit(none)); // Required
}

TEST_F(Variance, divides_by_one_less_than_the_samples)
{
    using Pixel = std::vector<float>;
    EXPECT_EQ(pixelOf(false, RV_TYPE_FLOAT, { { 1 }, { 3 } }), Pixel{ 2 });
    EXPECT_EQ(pixelOf(false, RV_TYPE_INT, { { 1 }, { 3 } }), Pixel{ 2 });
    EXPECT_EQ(pixelOf(false, RV_TYPE_BOOLEAN, { { 0 }, { 1 } }), Pixel{ 0.5f });
    EXPECT_EQ(pixelOf(false, RV_TYPE_POINT2, { { 1, 5 }, { 3, 9 } }), (Pixel{ 2, 8 }));
    EXPECT_EQ(pixelOf(false, RV_TYPE_RGBA, { { 1, 0, 2, 0 }, { 3, 0, 6, 1 } }),
              (Pixel{ 2, 0, 8, 1 })); // Required: alpha is 1
}

TEST_F(Variance, is_one_number_in_scalar_mode)
{
    using Pixel = std::vector<float>;
    EXPECT_EQ(pixelOf(true, RV_TYPE_FLOAT, { { 1 }, { 3 } }), Pixel{ 2 });
    EXPECT_EQ(pixelOf(true, RV_TYPE_RGB, { { 0, 0, 0 }, { 2, 2, 2 } })[0], sqrtf(12));
    EXPECT_EQ(pixelOf(true, RV_TYPE_RGBA, { { 0, 0, 0, 0 }, { 2, 2, 2, 2 } }), Pixel{ 4 });
    EXPECT_EQ(pixelOf(true, RV_TYPE_POINT2, { { 0, 0 }, { 2, 0 } }), Pixel{ 2 });
}

TEST_F(Variance, scalar_mode_takes_every_type)
{
    RtNode* const node = node_tools::named("variance_filter", "var");
    ASSERT_FALSE(prepare({ "v STRING var drv" }));
    EXPECT_EQ(takeProblem(), "[aov] filter \"var\" does not support STRING inputs | "
                             "[aov] no valid outputs - can't continue");
    RvNodeSetBool(node, "scalar_mode", true);
    ASSERT_TRUE(prepare({ "v STRING var drv" }));
    EXPECT_EQ(rv::output_store->outputs[0].pixel_type, RV_TYPE_FLOAT);
    openBucket({ 0, 0, 1, 1, 1, 2 });
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    measure(sinkAt(0, 0, 1), 0.5f, 0.5f);
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 0 });
}
