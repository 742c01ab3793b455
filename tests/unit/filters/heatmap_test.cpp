// Tests of the heat map.
#include "aovs/output_tools.h"

using namespace output_tools;

struct Heatmap : Outputs {
    static std::vector<float> pixelOf(float minimum, float maximum, int type,
                                      const std::vector<std::vector<float>>& values)
    {
        RtNode* const node = node_tools::named("heatmap_filter", "heat");
        RvNodeSetFlt(node, "minimum", minimum);
        RvNodeSetFlt(node, "maximum", maximum);
        EXPECT_TRUE(prepare(
            { node_tools::formatted("v %s heat drv", node_tools::type_names[type]).c_str() }));
        openBucket({ 0, 0, 1, 1, 1, int(values.size()) + 1 });
        for (int i = 0; i < int(values.size()); ++i) {
            measure(sinkAt(0, 0, i), 0.5f, 0.5f);
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

TEST_F(Heatmap, colours_of_means)
{
    for (const auto& v : goldenVectors("output", "heatmap_colour")) {
        const auto& in = v["in"];
        expectGoldenNumbers(v, "rgba",
                            pixelOf(goldenFloat(in["minimum"]), goldenFloat(in["maximum"]),
                                    RV_TYPE_FLOAT, { { goldenFloat(in["mean"]) } }));
    }
}

TEST_F(Heatmap, goes_from_blue_through_green_to_red)
{
    using Pixel = std::vector<float>;
    EXPECT_EQ(pixelOf(0, 1, RV_TYPE_FLOAT, { { -3 } }), (Pixel{ 0, 0, 1, 1 }));
    EXPECT_EQ(pixelOf(0, 1, RV_TYPE_FLOAT, { { 3 } }), (Pixel{ 1, 0, 0, 1 }));
    EXPECT_EQ(pixelOf(0, 1, RV_TYPE_FLOAT, { { 0.25f }, { 0.75f } }),
              (Pixel{ 0.25f, 1, 0.25f, 1 }));
    EXPECT_EQ(pixelOf(0, 1, RV_TYPE_FLOAT, {}), (Pixel{ 0, 0, 1, 1 }));
}

TEST_F(Heatmap, measures_colours_without_alpha_and_vectors_by_their_length)
{
    const auto half = pixelOf(0, 10, RV_TYPE_FLOAT, { { 5 } });
    EXPECT_EQ(pixelOf(0, 10, RV_TYPE_RGB, { { 3, 4, 0 } }), half);
    EXPECT_EQ(pixelOf(0, 10, RV_TYPE_RGBA, { { 0, 3, 4, 100 } }), half);
    EXPECT_EQ(pixelOf(0, 10, RV_TYPE_VECTOR, { { 4, 0, -3 } }), half);
    EXPECT_EQ(pixelOf(0, 10, RV_TYPE_INT, { { 5 } }), half);
}

TEST_F(Heatmap, equal_bounds_divide_by_zero)
{
    EXPECT_TRUE(std::isnan(pixelOf(1, 1, RV_TYPE_FLOAT, { { 0.5f } })[0]));
}
