// Tests of the walk over the samples around a pixel.
#include "aovs/output_tools.h"

using namespace output_tools;

struct SampleIterator : Outputs {
    // The samples of every pixel of the window at (0.25, 0.5) and (0.75, 0.5), with the value
    // 100 y + 10 x + sample.
    static void fill(const rv::PixelWindow& window)
    {
        openBucket(window);
        for (int y = window.min_y; y < window.min_y + window.height; y += window.stride)
            for (int x = window.min_x; x < window.min_x + window.width; x += window.stride)
                for (int i = 0; i < window.samples; ++i) {
                    measure(sinkAt(x, y, i), i ? 0.75f : 0.25f, 0.5f);
                    shade(sinkAt(x, y, i), [&](RtShaderGlobals* sg) {
                        return RvAOVSetFlt(sg, "v", float(100 * y + 10 * x + i));
                    });
                }
    }

    static std::vector<float> walk(RtAOVSampleIterator* it)
    {
        std::vector<float> values;
        while (RvAOVSampleIteratorGetNext(it))
            values.push_back(RvAOVSampleIteratorGetFlt(it));
        return values;
    }
};

TEST_F(SampleIterator, a_filter_of_one_pixel_visits_all_samples_of_its_own_pixel)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ -1, -1, 3, 3, 1, 2 });
    measure(sinkAt(0, 0, 0), 0, 0); // at the corner, which belongs to the footprint
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    EXPECT_EQ(walk(&it), (std::vector<float>{ 0, 1 }));
}

TEST_F(SampleIterator, neighbours_are_visited_row_by_row_within_the_radius)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ -1, -1, 3, 3, 1, 2 });
    RtAOVSampleIterator it = iteratorOf("v", 1, 1);
    // To the left the sample at 0.25 is 1.25 away, to the right the one at 0.75.
    EXPECT_EQ(walk(&it),
              (std::vector<float>{ -109, -100, -99, -90, -9, 0, 1, 10, 91, 100, 101, 110 }));
    EXPECT_FALSE(RvAOVSampleIteratorGetNext(&it)); // and stays at the end
    EXPECT_FALSE(RvAOVSampleIteratorHasValue(&it));
}

TEST_F(SampleIterator, offsets_are_from_the_centre_of_the_pixel)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ -1, -1, 3, 3, 1, 2 });
    RtAOVSampleIterator it = iteratorOf("v", 1, 1);
    ASSERT_TRUE(RvAOVSampleIteratorGetNext(&it));
    EXPECT_EQ(RvAOVSampleIteratorGetOffset(&it).x, -0.75f);
    EXPECT_EQ(RvAOVSampleIteratorGetOffset(&it).y, -1);
    EXPECT_EQ(RvAOVSampleIteratorGetDepth(&it), 0);
}

TEST_F(SampleIterator, a_reset_walks_the_same_samples_again)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ -1, -1, 3, 3, 1, 2 });
    RtAOVSampleIterator it = iteratorOf("v", 1, 1);
    const std::vector<float> first = walk(&it);
    RvAOVSampleIteratorReset(&it);
    EXPECT_EQ(walk(&it), first);
    RvAOVSampleIteratorInitPixel(&it, 1, 1);
    EXPECT_EQ(walk(&it).front(), 1.0f);
}

TEST_F(SampleIterator, samples_without_a_place_are_skipped)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 3 });
    for (int i = 0; i < 3; ++i) {
        if (i != 1)
            measure(sinkAt(0, 0, i), 0.5f, 0.5f);
        shade(sinkAt(0, 0, i), [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", float(i)); });
    }
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    EXPECT_EQ(walk(&it), (std::vector<float>{ 0, 2 }));
}

TEST_F(SampleIterator, every_pixel_of_a_stride_sees_the_sample_of_its_block)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ -4, 0, 8, 4, 4, 1 });
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    for (int x = -4; x < 4; ++x) {
        RvAOVSampleIteratorInitPixel(&it, x, 3);
        EXPECT_EQ(walk(&it), std::vector<float>{ x < 0 ? -40.0f : 0.0f }) << x;
    }
}

TEST_F(SampleIterator, pixels_outside_of_the_bucket_have_no_samples)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 2, 2, 1, 1 });
    RtAOVSampleIterator it = iteratorOf("v", 2, 2);
    for (const int far : { 100, INT_MAX, INT_MIN }) {
        RvAOVSampleIteratorInitPixel(&it, far, far);
        EXPECT_FALSE(RvAOVSampleIteratorGetNext(&it)) << far;
    }
}

TEST_F(SampleIterator, getters_of_another_type_give_zero_without_a_word)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 1, 1, 1, 2 });
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    ASSERT_TRUE(RvAOVSampleIteratorGetNext(&it));
    ASSERT_TRUE(RvAOVSampleIteratorGetNext(&it));
    takeProblems();
    EXPECT_EQ(RvAOVSampleIteratorGetFlt(&it), 1);
    EXPECT_EQ(RvAOVSampleIteratorGetInt(&it), 0);
    EXPECT_EQ(RvAOVSampleIteratorGetBool(&it), false);
    EXPECT_EQ(RvAOVSampleIteratorGetRGB(&it).r, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetRGBA(&it).a, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetVec(&it).x, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetPnt(&it).x, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetPnt2(&it).x, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetPtr(&it), nullptr);
    EXPECT_TRUE(RvAOVSampleIteratorHasValue(&it));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SampleIterator, reads_every_type_of_its_own_and_by_name)
{
    node_tools::named("closest_filter", "closest");
    ASSERT_TRUE(prepare({ "b BOOL closest drv", "i INT closest drv", "f FLOAT closest drv",
                          "c RGB closest drv", "d RGBA closest drv", "w VECTOR closest drv",
                          "p POINT closest drv", "q POINT2 closest drv", "n NODE closest drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtNode* const node = RvNodeLookUpByName("box");
    measure(sinkAt(0, 0, 0), 0.5f, 0.5f);
    EXPECT_TRUE(shade(sinkAt(0, 0, 0), [&](RtShaderGlobals* sg) {
        return RvAOVSetBool(sg, "b", true) && RvAOVSetInt(sg, "i", 2) && RvAOVSetFlt(sg, "f", 3) &&
               RvAOVSetRGB(sg, "c", { 4, 0, 0 }) && RvAOVSetRGBA(sg, "d", { 0, 0, 0, 5 }) &&
               RvAOVSetVec(sg, "w", { 6, 0, 0 }) && RvAOVSetPnt(sg, "p", { 7, 0, 0 }) &&
               RvAOVSetPnt2(sg, "q", { 0, 8 }) && RvAOVSetPtr(sg, "n", node);
    }));
    const auto at = [](const char* name) {
        RtAOVSampleIterator it = iteratorOf(name, 0.5f, 0);
        EXPECT_TRUE(RvAOVSampleIteratorGetNext(&it));
        return it;
    };
    const RtAOVSampleIterator b = at("b"), i = at("i"), f = at("f"), c = at("c"), d = at("d"),
                              w = at("w"), p = at("p"), q = at("q"), n = at("n");
    EXPECT_TRUE(RvAOVSampleIteratorGetBool(&b));
    EXPECT_EQ(RvAOVSampleIteratorGetInt(&i), 2);
    EXPECT_EQ(RvAOVSampleIteratorGetFlt(&f), 3);
    EXPECT_EQ(RvAOVSampleIteratorGetRGB(&c).r, 4);
    EXPECT_EQ(RvAOVSampleIteratorGetRGBA(&d).a, 5);
    EXPECT_EQ(RvAOVSampleIteratorGetVec(&w).x, 6);
    EXPECT_EQ(RvAOVSampleIteratorGetPnt(&p).x, 7);
    EXPECT_EQ(RvAOVSampleIteratorGetPnt2(&q).y, 8);
    EXPECT_EQ(RvAOVSampleIteratorGetPtr(&n), node);
    EXPECT_TRUE(RvAOVSampleIteratorGetAOVBool(&f, "b"));
    EXPECT_EQ(RvAOVSampleIteratorGetAOVInt(&f, "i"), 2);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVFlt(&b, "f"), 3);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVRGB(&f, "c").r, 4);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVRGBA(&f, "d").a, 5);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVVec(&f, "w").x, 6);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVPnt(&f, "p").x, 7);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVPnt2(&f, "q").y, 8);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVPtr(&f, "n"), node);
    EXPECT_TRUE(RvAOVSampleIteratorHasAOVValue(&f, "c", RV_TYPE_RGB));
    EXPECT_FALSE(RvAOVSampleIteratorHasAOVValue(&f, "Z", RV_TYPE_FLOAT));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SampleIterator, another_variable_of_another_type_is_warned_about)
{
    ASSERT_TRUE(prepare({ "Z RGB box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    RtAOVSampleIterator it = iteratorOf("Z", 0.5f, 0);
    ASSERT_TRUE(RvAOVSampleIteratorGetNext(&it));
    takeProblems();
    EXPECT_EQ(RvAOVSampleIteratorGetAOVFlt(&it, "Z"), 0);
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"Z\" (expected FLOAT, found RGB)");
    EXPECT_FALSE(RvAOVSampleIteratorHasAOVValue(&it, "Z", RV_TYPE_INT));
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"Z\" (expected INT, found RGB)");
    EXPECT_FALSE(RvAOVSampleIteratorHasAOVValue(&it, "Z", 99));
    EXPECT_EQ(takeProblem(), "RvParamGetTypeName: invalid type 99 | "
                             "[aov] type mismatch for \"Z\" (expected , found RGB)");
    EXPECT_EQ(RvAOVSampleIteratorGetAOVFlt(&it, "nobody"), 0);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVFlt(&it, nullptr), 0);
    EXPECT_FALSE(RvAOVSampleIteratorHasAOVValue(&it, "nobody", RV_TYPE_FLOAT));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SampleIterator, nothing_is_read_before_the_first_sample)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    EXPECT_FALSE(RvAOVSampleIteratorHasValue(&it));
    EXPECT_EQ(RvAOVSampleIteratorGetFlt(&it), 0);
    EXPECT_FALSE(RvAOVSampleIteratorGetNextDepth(&it));
}

TEST_F(SampleIterator, depths_are_walked_from_front_to_back)
{
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv", "flat FLOAT box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 2 });
    for (int i = 0; i < 2; ++i) {
        measure(sinkAt(0, 0, i), 0.5f, 0.5f);
        for (int depth : { 0, 1, 3 })
            shade(sinkAt(0, 0, i, depth), [&](RtShaderGlobals* sg) {
                return RvAOVSetFlt(sg, "v", float(10 * i + depth)) | RvAOVSetFlt(sg, "flat", 5);
            });
    }
    RtAOVSampleIterator it = iteratorOf("v", 0.5f, 0);
    std::string seen;
    while (RvAOVSampleIteratorGetNext(&it))
        do
            seen += node_tools::formatted(
                "%d:%g%s%s ", RvAOVSampleIteratorGetDepth(&it),
                double(RvAOVSampleIteratorGetFlt(&it)), RvAOVSampleIteratorHasValue(&it) ? "" : "-",
                RvAOVSampleIteratorHasAOVValue(&it, "flat", RV_TYPE_FLOAT) ? "f" : "");
        while (RvAOVSampleIteratorGetNextDepth(&it));
    EXPECT_EQ(seen, "0:0f 1:1 2:0- 3:3 0:10f 1:11 2:0- 3:13 ");
}

TEST_F(SampleIterator, null_is_harmless)
{
    RvAOVSampleIteratorInitPixel(nullptr, 0, 0);
    RvAOVSampleIteratorReset(nullptr);
    EXPECT_FALSE(RvAOVSampleIteratorGetNext(nullptr));
    EXPECT_FALSE(RvAOVSampleIteratorGetNextDepth(nullptr));
    EXPECT_EQ(RvAOVSampleIteratorGetDepth(nullptr), 0);
    EXPECT_EQ(RvAOVSampleIteratorGetOffset(nullptr).x, 0);
    EXPECT_EQ(RvAOVSampleIteratorGetFlt(nullptr), 0);
    EXPECT_EQ(RvAOVSampleIteratorGetAOVFlt(nullptr, "v"), 0);
    EXPECT_FALSE(RvAOVSampleIteratorHasValue(nullptr));
    EXPECT_FALSE(RvAOVSampleIteratorHasAOVValue(nullptr, "v", RV_TYPE_FLOAT));
}
