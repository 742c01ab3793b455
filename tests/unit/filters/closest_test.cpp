// Tests of the filters that pick a sample by its depth.
#include "aovs/output_tools.h"

using namespace output_tools;

struct Closest : Outputs {
    struct Sample {
        float z, value;
    };
    // Samples of pixel (0, 0) in order.
    static void record(const std::vector<Sample>& row)
    {
        openBucket({ 0, 0, 1, 1, 1, int(row.size()) });
        for (int i = 0; i < int(row.size()); ++i) {
            measure(sinkAt(0, 0, i), 0.5f, 0.5f);
            hit(i, 0, row[size_t(i)]);
        }
    }
    static void hit(int sample, int depth, Sample s)
    {
        shade(sinkAt(0, 0, sample, depth), [&](RtShaderGlobals* sg) {
            return RvAOVSetFlt(sg, "Z", s.z) && RvAOVSetFlt(sg, "v", s.value);
        });
    }
};

TEST_F(Closest, picks_by_depth_and_keeps_the_first_of_equals)
{
    node_tools::named("closest_filter", "closest");
    node_tools::named("farthest_filter", "farthest");
    static const struct {
        const char* filter;
        std::vector<Sample> samples;
        float expected;
    } rows[] = {
        { "closest", { { 5, 1 }, { 3, 2 }, { 4, 3 } }, 2 },
        { "closest", { { 3, 1 }, { 3, 2 } }, 1 },
        { "farthest", { { 4, 1 }, { 5, 2 }, { 3, 3 } }, 2 },
        { "farthest", { { 5, 1 }, { 5, 2 } }, 1 },
    };
    for (const auto& row : rows) {
        ASSERT_TRUE(prepare({ node_tools::formatted("v FLOAT %s drv", row.filter).c_str() }));
        record(row.samples);
        EXPECT_EQ(filteredPixel(), std::vector<float>{ row.expected }) << row.filter;
    }
}

TEST_F(Closest, requires_the_depth_variable)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "v FLOAT closest drv" }));
    ASSERT_TRUE(rv::findAOV("Z"));
    EXPECT_EQ(rv::findAOV("Z")->type, RV_TYPE_FLOAT);
    EXPECT_FALSE(rv::findAOV("Z")->deep);
    EXPECT_FALSE(rv::findAOV("v")->deep);
}

TEST_F(Closest, a_sample_without_depth_counts_as_depth_zero)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "v FLOAT closest drv" }));
    record({ { 5, 1 }, { 6, 2 } });
    closeBucket();
    openBucket({ 0, 0, 1, 1, 1, 2 });
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    hit(0, 0, { 5, 1 });
    measure(sinkAt(0, 0, 1), 0.5f, 0.5f);
    shade(sinkAt(0, 0, 1), [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", 9); });
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 9 });
}

TEST_F(Closest, the_winner_without_a_value_makes_zero)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "v FLOAT closest drv" }));
    record({ { 5, 1 }, { 6, 2 } });
    closeBucket();
    openBucket({ 0, 0, 1, 1, 1, 2 });
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    hit(0, 0, { 5, 1 });
    measure(sinkAt(0, 0, 1), 0.5f, 0.5f);
    shade(sinkAt(0, 0, 1), [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "Z", 2); });
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 0 });
}

TEST_F(Closest, the_farthest_of_all_hits_is_found_behind_the_first_ones)
{
    RtNode* const node = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(node, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    EXPECT_TRUE(rv::findAOV("Z")->deep);
    EXPECT_TRUE(rv::findAOV("v")->deep);
    record({ { 5, 1 }, { 6, 2 } });
    hit(0, 1, { 7, 3 });
    hit(0, 2, { 9, 4 });
    hit(1, 1, { 8, 5 });
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 4 });
}

TEST_F(Closest, the_domain_may_change_between_renders)
{
    RtNode* const node = node_tools::named("farthest_filter", "farthest");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    EXPECT_FALSE(rv::findAOV("Z")->deep);
    RvNodeSetStr(node, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    EXPECT_TRUE(rv::findAOV("Z")->deep);
    RvNodeSetStr(node, "domain", "first_hit");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    EXPECT_FALSE(rv::findAOV("Z")->deep);
}

TEST_F(Closest, nodes_pass_through)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "v NODE closest drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    RtNode* const node = RvNodeLookUpByName("box");
    EXPECT_TRUE(
        shade(sinkAt(0, 0, 0), [&](RtShaderGlobals* sg) { return RvAOVSetPtr(sg, "v", node); }));
    rv::deliverBucket(samples(), 0, 0, 1, 1);
    EXPECT_EQ(rv::loadAs<RtNode*>(probe().layers.at("v").pixels.data()), node);
}

TEST_F(Closest, a_depth_variable_of_another_type_is_warned_about_and_counts_as_zero)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "Z RGB box drv", "v FLOAT closest drv" }));
    takeProblems();
    openBucket({ 0, 0, 1, 1, 1, 1 });
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    shade(sinkAt(0, 0, 0), [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", 3); });
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 3 });
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"Z\" (expected FLOAT, found RGB)");
}
