// Tests of the access of shaders to output variables.
#include "aovs/output_tools.h"

#include <limits>

using namespace output_tools;

struct AOV : Outputs {
    void SetUp() override
    {
        Outputs::SetUp();
        node_tools::named("closest_filter", "closest");
    }

    // One pixel with one sample.
    static void openSample() { openBucket({ 0, 0, 1, 1, 1, 1 }); }
    static void prepareFloat()
    {
        ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
        openSample();
    }
    // Variables "v" and "Z" that are kept at all depths, and "flat" that is not.
    static void prepareDeep()
    {
        RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
        RvNodeSetStr(farthest, "domain", "all_hits");
        ASSERT_TRUE(prepare({ "v FLOAT farthest drv", "flat FLOAT box drv" }));
        openSample();
    }

    static bool put(int depth, const char* name, float value)
    {
        return shade(sinkAt(0, 0, 0, depth),
                     [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, name, value); });
    }
    // The value, or a number that no test writes.
    static float get(int depth, const char* name)
    {
        float value = -77;
        shade(sinkAt(0, 0, 0, depth),
              [&](RtShaderGlobals* sg) { return RvAOVGetFlt(sg, name, &value); });
        return value;
    }
    static constexpr float nothing = -77;

    template <class T, class Set, class Get>
    static void expectRoundTrip(int type, Set set, Get get_value, T value)
    {
        ASSERT_TRUE(prepare(
            { node_tools::formatted("v %s closest drv", node_tools::type_names[type]).c_str() }));
        openSample();
        RtSampleSink sink = sinkAt(0, 0, 0);
        RtShaderGlobals sg = {};
        sg.sample_output = &sink;
        T read = {};
        EXPECT_FALSE(get_value(&sg, "v", &read)) << type;
        EXPECT_TRUE(set(&sg, "v", value)) << type;
        EXPECT_TRUE(get_value(&sg, "v", &read)) << type;
        EXPECT_EQ(memcmp(&read, &value, sizeof value), 0) << type;
        EXPECT_FALSE(get_value(&sg, "v", nullptr)) << type;
        EXPECT_FALSE(get_value(&sg, "w", &read)) << type;
    }
};

TEST_F(AOV, values_of_every_type_are_read_back)
{
    int pointee = 0;
    expectRoundTrip(RV_TYPE_BOOLEAN, RvAOVSetBool, RvAOVGetBool, true);
    expectRoundTrip(RV_TYPE_INT, RvAOVSetInt, RvAOVGetInt, -5);
    expectRoundTrip(RV_TYPE_FLOAT, RvAOVSetFlt, RvAOVGetFlt, 0.25f);
    expectRoundTrip(RV_TYPE_RGB, RvAOVSetRGB, RvAOVGetRGB, RtRGB{ 1, 2, 3 });
    expectRoundTrip(RV_TYPE_RGBA, RvAOVSetRGBA, RvAOVGetRGBA, RtRGBA{ 1, 2, 3, 4 });
    expectRoundTrip(RV_TYPE_VECTOR, RvAOVSetVec, RvAOVGetVec, RtVector{ 1, 2, 3 });
    expectRoundTrip(RV_TYPE_POINT, RvAOVSetPnt, RvAOVGetPnt, RtPoint{ 1, 2, 3 });
    expectRoundTrip(RV_TYPE_POINT2, RvAOVSetPnt2, RvAOVGetPnt2, RtPoint2{ 1, 2 });
    expectRoundTrip(RV_TYPE_POINTER, RvAOVSetPtr, RvAOVGetPtr, static_cast<void*>(&pointee));
    // Nodes have no accessors of their own.
    expectRoundTrip(RV_TYPE_NODE, RvAOVSetPtr, RvAOVGetPtr, static_cast<void*>(&pointee));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AOV, only_camera_samples_of_a_render_take_values)
{
    RtShaderGlobals sg = {};
    EXPECT_FALSE(RvAOVSetFlt(&sg, "v", 1)); // no render
    EXPECT_FALSE(RvAOVSetFlt(nullptr, "v", 1));
    prepareFloat();
    EXPECT_FALSE(RvAOVSetFlt(&sg, "v", 1)); // no camera sample
    EXPECT_FALSE(RvAOVSetFlt(nullptr, "v", 1));
    RtSampleSink sinks[] = { { nullptr, 0, 0, 0, 0 },    { samples(), 1, 0, 0, 0 },
                             { samples(), 0, -1, 0, 0 }, { samples(), 0, 0, 1, 0 },
                             { samples(), 0, 0, -1, 0 }, { samples(), 0, 0, 0, -1 } };
    for (const RtSampleSink& sink : sinks) {
        float value = 0;
        EXPECT_FALSE(shade(sink, [&](RtShaderGlobals* s) { return RvAOVSetFlt(s, "v", 1); }));
        EXPECT_FALSE(shade(sink, [&](RtShaderGlobals* s) { return RvAOVGetFlt(s, "v", &value); }));
    }
    EXPECT_FALSE(put(0, nullptr, 1));
    EXPECT_EQ(get(0, "v"), nothing);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AOV, unknown_names_are_refused_without_a_word)
{
    prepareFloat();
    EXPECT_FALSE(put(0, "w", 1));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AOV, setting_another_type_is_warned_about)
{
    prepareFloat();
    EXPECT_FALSE(shade(sinkAt(0, 0, 0), [](RtShaderGlobals* sg) {
        return RvAOVSetRGB(sg, "v", { 1, 2, 3 });
    }));
    EXPECT_EQ(takeProblem(), "[aov] type mismatch for \"v\" (expected RGB, found FLOAT)");
    RtRGB value;
    EXPECT_FALSE(shade(sinkAt(0, 0, 0), [&](RtShaderGlobals* sg) {
        return put(0, "v", 1) && RvAOVGetRGB(sg, "v", &value);
    }));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AOV, colours_that_are_not_finite_are_refused)
{
    const float inf = std::numeric_limits<float>::infinity(), nan = NAN;
    ASSERT_TRUE(prepare({ "c RGB box drv", "d RGBA box drv" }));
    openBucket({ 3, 4, 1, 1, 1, 1 });
    takeProblems();
    const RtSampleSink sink = sinkAt(3, 4, 0);
    EXPECT_FALSE(shade(sink, [&](RtShaderGlobals* sg) {
        return RvAOVSetRGB(sg, "c", { 1, inf, 2 });
    }));
    EXPECT_EQ(messages().back().mask & RV_LOG_NAN, RV_LOG_NAN);
    EXPECT_EQ(takeProblem(), "ignoring infinity/NaN aov sample in pixel (3,4), "
                             "rgb=(1.000000,inf,2.000000), aov='c'");
    EXPECT_FALSE(shade(sink, [&](RtShaderGlobals* sg) {
        return RvAOVSetRGBA(sg, "d", { 1, 2, 3, nan });
    }));
    EXPECT_EQ(takeProblem(), "ignoring infinity/NaN aov sample in pixel (3,4), "
                             "rgba=(1.000000,2.000000,3.000000,nan), aov='d'");
    RtRGB c;
    EXPECT_FALSE(shade(sink, [&](RtShaderGlobals* sg) { return RvAOVGetRGB(sg, "c", &c); }));
}

TEST_F(AOV, floats_and_vectors_may_be_infinite)
{
    prepareFloat();
    EXPECT_TRUE(put(0, "v", std::numeric_limits<float>::infinity()));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(AOV, colours_are_clamped_when_the_option_says_so)
{
    for (const bool affects : { false, true }) {
        RvNodeSetFlt(RvUniverseGetOptions(), "AA_sample_clamp", 2);
        RvNodeSetBool(RvUniverseGetOptions(), "AA_sample_clamp_affects_aovs", affects);
        ASSERT_TRUE(prepare({ "c RGB box drv", "d RGBA box drv", "v VECTOR box drv" }));
        openSample();
        RtRGB c = {};
        RtRGBA d = {};
        RtVector v = {};
        shade(sinkAt(0, 0, 0), [&](RtShaderGlobals* sg) {
            return RvAOVSetRGB(sg, "c", { 1, 5, -5 }) && RvAOVSetRGBA(sg, "d", { 5, 1, 5, 3 }) &&
                   RvAOVSetVec(sg, "v", { 5, 5, 5 }) && RvAOVGetRGB(sg, "c", &c) &&
                   RvAOVGetRGBA(sg, "d", &d) && RvAOVGetVec(sg, "v", &v);
        });
        const float most = affects ? 2 : 5;
        EXPECT_EQ(c.g, most);
        EXPECT_EQ(c.b, -5);
        EXPECT_EQ(d.r, most);
        EXPECT_EQ(d.b, most);
        EXPECT_EQ(d.a, 3);
        EXPECT_EQ(v.x, 5);
    }
}

TEST_F(AOV, the_value_of_the_nearest_hit_stays_in_whatever_order_hits_are_shaded)
{
    prepareFloat();
    EXPECT_TRUE(put(1, "v", 1)); // the first hit says nothing
    EXPECT_EQ(get(1, "v"), 1);
    EXPECT_TRUE(put(1, "v", 2)); // the same hit adds to it
    EXPECT_FALSE(put(2, "v", 3));
    EXPECT_EQ(get(2, "v"), 2);
    EXPECT_TRUE(put(0, "v", 4));
    EXPECT_FALSE(put(1, "v", 5));
    EXPECT_TRUE(put(0, "v", 6));
    EXPECT_EQ(get(0, "v"), 6);
}

TEST_F(AOV, the_nearest_hit_is_known_by_sample_and_variable)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv", "w FLOAT box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 2 });
    const auto putAt = [](int sample, int depth, const char* name, float value) {
        return shade(sinkAt(0, 0, sample, depth),
                     [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, name, value); });
    };
    EXPECT_TRUE(putAt(0, 3, "v", 1));
    EXPECT_TRUE(putAt(0, 2, "w", 1));
    EXPECT_TRUE(putAt(0, 2, "v", 1));
    EXPECT_FALSE(putAt(0, 3, "w", 1));
    EXPECT_TRUE(putAt(1, 5, "v", 1));  // another sample
    EXPECT_FALSE(putAt(0, 1, "v", 1)); // Required: the first sample is over and counts as settled
}

TEST_F(AOV, deep_variables_keep_the_value_of_every_depth)
{
    prepareDeep();
    EXPECT_TRUE(put(0, "v", 10));
    EXPECT_TRUE(put(1, "v", 11));
    EXPECT_EQ(get(3, "v"), nothing);
    EXPECT_TRUE(put(3, "v", 13));
    EXPECT_EQ(get(0, "v"), 10);
    EXPECT_EQ(get(1, "v"), 11);
    EXPECT_EQ(get(2, "v"), nothing);
    EXPECT_EQ(get(3, "v"), 13);
    EXPECT_TRUE(put(1, "v", 21));
    EXPECT_EQ(get(1, "v"), 21);
    EXPECT_TRUE(put(1, "flat", 5));
    EXPECT_EQ(get(0, "flat"), 5);
}

TEST_F(AOV, deep_values_alone_leave_the_first_hit_without_one)
{
    prepareDeep();
    EXPECT_TRUE(put(1, "v", 11));
    EXPECT_EQ(get(0, "v"), nothing);
}
