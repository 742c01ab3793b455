// Tests of the thirteen filters that average.
#include "aovs/output_tools.h"
#include "filters/weights.h"

using namespace output_tools;
using nlohmann::json;

struct Reconstruction : Outputs {
    using Weight = float (*)(float, float, float);

    static const std::map<std::string, Weight>& weights()
    {
        static const std::map<std::string, Weight> table = {
            { "box_filter", rv::boxWeight },
            { "triangle_filter", rv::triangleWeight },
            { "gaussian_filter", rv::gaussianWeight },
            { "cook_filter", rv::cookWeight },
            { "cone_filter", rv::coneWeight },
            { "disk_filter", rv::diskWeight },
            { "sinc_filter", rv::sincWeight },
            { "blackman_harris_filter", rv::blackmanHarrisWeight },
            { "catrom_filter", rv::catromWeight },
            { "catrom2d_filter", rv::catrom2dWeight },
            { "cubic_filter", rv::cubicWeight },
            { "mitnet_filter", rv::mitnetWeight },
            { "video_filter", rv::videoWeight },
        };
        return table;
    }

    // Sets the parameters that the type has.
    static void setParams(RtNode* node, const json& params)
    {
        for (const auto& [name, value] : params.items()) {
            if (!RvNodeEntryLookUpParameter(node->entry, name.c_str()))
                continue;
            if (value.is_boolean())
                RvNodeSetBool(node, name.c_str(), value.get<bool>());
            else
                RvNodeSetFlt(node, name.c_str(), goldenFloat(value));
        }
    }

    static std::vector<float> numbersOf(const json& value)
    {
        return value.is_boolean() ? std::vector<float>{ value.get<bool>() ? 1.0f : 0.0f }
                                  : goldenFloats(value);
    }

    // Samples around pixel (0, 0), which is then filtered.
    static void record(const json& samples_of_vector, int type)
    {
        const bool wants_depth = rv::findAOV("Z");
        std::map<std::pair<int, int>, int> counts;
        for (const json& s : samples_of_vector) {
            const int dx = s["dx"], dy = s["dy"];
            const RtSampleSink sink = sinkAt(dx, dy, counts[{ dx, dy }]++);
            measure(sink, goldenFloat(s["u"]), goldenFloat(s["v"]));
            const bool has_depth = !wants_depth || shade(sink, [&](RtShaderGlobals* sg) {
                return RvAOVSetFlt(sg, "Z", goldenFloat(s["Z"]));
            });
            const bool has_value = s["value"].is_null() || shade(sink, [&](RtShaderGlobals* sg) {
                                       return setNumbers(sg, "v", type, numbersOf(s["value"]));
                                   });
            EXPECT_TRUE(has_depth && has_value);
        }
    }

    static int visited(const RtFilterData& data)
    {
        RtAOVSampleIterator it = iteratorOf("v", data.radius, data.padding);
        int count = 0;
        while (RvAOVSampleIteratorGetNext(&it))
            ++count;
        return count;
    }

    // A bucket of one pixel around which filters of up to that padding see `n` samples a pixel.
    static void openPixel(int padding, int n)
    {
        openBucket({ -padding, -padding, 2 * padding + 1, 2 * padding + 1, 1, n });
    }
    static bool prepareFilter(const char* filter, const char* type)
    {
        return prepare({ node_tools::formatted("v %s %s drv", type, filter).c_str() });
    }
    static void put(float u, float v, int sample, float value)
    {
        measure(sinkAt(0, 0, sample), u, v);
        shade(sinkAt(0, 0, sample),
              [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", value); });
    }
};

TEST_F(Reconstruction, weights_are_exact)
{
    for (const auto& v : goldenVectors("output", "filter_weight")) {
        const json& in = v["in"];
        const Weight weight = weights().at(in["filter"].get<std::string>());
        expectGoldenNumbers(
            v, "weight",
            { weight(goldenFloat(in["x"]), goldenFloat(in["y"]), goldenFloat(in["width"])) });
    }
}

TEST_F(Reconstruction, golden_pixels_of_every_filter)
{
    for (const auto& v : goldenVectors("output", "filter_pixel")) {
        const json& in = v["in"];
        const std::string filter = in["filter"], type = in["type"];
        RtNode* const node = node_tools::named(filter.c_str(), "under_test");
        setParams(node, in["params"]);
        ASSERT_TRUE(prepareFilter("under_test", type.c_str())) << goldenId(v);
        openPixel(6, 4);
        record(in["samples"], node_tools::typeCode(type));
        expectGoldenNumbers(v, "value", filteredPixel());
        expectGolden(v, "visited", visited(*rv::filterData(node)));
        closeOutputs();
        RvNodeDestroy(node);
        EXPECT_EQ(takeProblem(), "") << goldenId(v);
    }
}

TEST_F(Reconstruction, gaussian_is_one_at_the_centre_and_nothing_beyond_its_width)
{
    EXPECT_EQ(rv::gaussianWeight(0, 0, 2), 1);
    EXPECT_FLOAT_EQ(rv::gaussianWeight(1, 0, 2), expf(-2));
    EXPECT_EQ(rv::gaussianWeight(1, 0.01f, 2), 0);
}

TEST_F(Reconstruction, sinc_is_one_at_the_centre)
{
    EXPECT_EQ(rv::sincWeight(0, 0, 6), 1);
    EXPECT_EQ(rv::sincWeight(1e-6f, -1e-6f, 6), 1);
}

TEST_F(Reconstruction, a_footprint_of_no_width_weighs_nothing_that_is_not_a_number)
{
    for (const auto& [name, weight] : weights())
        EXPECT_FALSE(std::isnan(weight(0, 0, 0))) << name;
}

TEST_F(Reconstruction, a_single_sample_is_the_pixel_whatever_its_weight)
{
    for (const auto& [filter, weight] : weights()) {
        RtNode* const node = node_tools::named(filter.c_str(), "under_test");
        ASSERT_TRUE(prepareFilter("under_test", "FLOAT"));
        openPixel(3, 1);
        put(0.75f, 0.375f, 0, 5);
        EXPECT_FLOAT_EQ(filteredPixel()[0], 5) << filter;
        closeOutputs();
        RvNodeDestroy(node);
    }
}

TEST_F(Reconstruction, samples_of_no_weight_leave_a_black_pixel)
{
    RtNode* const node = node_tools::named("disk_filter", "disk");
    RvNodeSetFlt(node, "width", 1);
    ASSERT_TRUE(prepareFilter("disk", "FLOAT"));
    openPixel(0, 2);
    put(0, 0.5f, 0, 5); // on the rim
    put(0.5f, 0, 1, 7);
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 0 });
}

TEST_F(Reconstruction, box_averages_exactly_the_samples_of_the_pixel)
{
    ASSERT_TRUE(prepareFilter("box", "FLOAT"));
    openPixel(1, 2);
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            for (int i = 0; i < 2; ++i) {
                const RtSampleSink sink = sinkAt(dx, dy, i);
                measure(sink, 0.25f + 0.5f * float(i), 0.5f);
                const float value = dx || dy ? 1000 : float(1 + 2 * i);
                shade(sink, [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", value); });
            }
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 2 });
}

TEST_F(Reconstruction, samples_without_a_value_pull_the_average_towards_zero)
{
    ASSERT_TRUE(prepareFilter("box", "FLOAT"));
    openPixel(0, 2);
    put(0.25f, 0.5f, 0, 8);
    measure(sinkAt(0, 0, 1), 0.75f, 0.5f); // Required: counted, though it shows nothing
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 4 });
}

TEST_F(Reconstruction, integers_become_floats)
{
    ASSERT_TRUE(prepareFilter("box", "INT"));
    openPixel(0, 2);
    for (int i = 0; i < 2; ++i) {
        measure(sinkAt(0, 0, i), 0.5f, 0.5f);
        shade(sinkAt(0, 0, i), [&](RtShaderGlobals* sg) { return RvAOVSetInt(sg, "v", 3 + i); });
    }
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 3.5f });
    EXPECT_EQ(probe().layers.at("v").type, RV_TYPE_FLOAT);
}

TEST_F(Reconstruction, a_null_iterator_value_type_of_another_variable_reads_as_nothing)
{
    ASSERT_TRUE(prepareFilter("box", "FLOAT"));
    openPixel(0, 1);
    put(0.5f, 0.5f, 0, 5);
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    RtNode* const node = RvNodeLookUpByName("box");
    const auto& methods = *static_cast<const RtFilterMethods*>(node->entry->kind_methods);
    RtRGB pixel = {};
    methods.FilterPixel(node, node->params, &it, &pixel, RV_TYPE_RGB);
    EXPECT_EQ(pixel.r, 0);
    methods.FilterPixel(node, node->params, &it, &pixel, RV_TYPE_STRING); // writes nothing
    EXPECT_EQ(pixel.r, 0);
}
