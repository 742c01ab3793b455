// Tests of the samples of a bucket and of what the renderer records itself.
#include "aovs/output_tools.h"
#include "counters.h"

#include <limits>

using namespace output_tools;
using nlohmann::json;

struct SampleStore : Outputs {
    static RtSampleOutputs hitOf(RtNode* object)
    {
        return { .color = { 0.25f, 0.5f, 0.75f },
                 .alpha = 0.5f,
                 .opacity = { 0.5f, 0.25f, 1 },
                 .z = 7,
                 .object = object,
                 .shader = RvNodeLookUpByName("box"),
                 .point = { 1, 2, 3 },
                 .normal = { 0, 0, 1 } };
    }

    // Numbers of a variable of the sample, or none.
    static std::vector<float> numbersOf(const char* name, const RtSampleSink& sink)
    {
        const RtAOV& aov = *rv::findAOV(name);
        const int slot = samples()->slotOf(sink.x, sink.y, sink.sample_index);
        const char* value = samples()->value(slot, aov);
        if (sink.depth) {
            const auto* const record = samples()->deep.find(uint32_t(slot), uint32_t(sink.depth));
            value = record ? samples()->deep.value(*record, aov) : nullptr;
        }
        std::vector<float> numbers;
        for (int i = 0; value && i < rv::numberCount(aov.type); ++i)
            numbers.push_back(rv::loadAs<float>(value + size_t(i) * sizeof(float)));
        return numbers;
    }
    template <class T> static T read(const char* name, const RtSampleSink& sink)
    {
        const RtAOV& aov = *rv::findAOV(name);
        return rv::loadOrZero<T>(
            samples()->value(samples()->slotOf(sink.x, sink.y, sink.sample_index), aov));
    }
};

// ---- Image samples ----

TEST_F(SampleStore, image_samples_are_repaired_and_converted)
{
    for (const auto& v : goldenVectors("render", "record_image_sample")) {
        const json& in = v["in"];
        RtNode* const options = RvUniverseGetOptions();
        const std::vector<float> error = goldenFloats(in["error_color_bad_pixel"]);
        const std::vector<float> rgb = goldenFloats(in["rgb"]);
        RvNodeSetFlt(options, "AA_sample_clamp", goldenFloat(in["AA_sample_clamp"]));
        RvNodeSetRGB(options, "error_color_bad_pixel", error[0], error[1], error[2]);
        const int x = in["pixel"][0], y = in["pixel"][1];
        for (const auto& [type, stored] : v["out"]["stored"].items()) {
            std::vector<std::string> statements;
            for (const char* name : { "RGB", "RGBA", "A" })
                statements.push_back(node_tools::formatted("%s %s box drv", name, type.c_str()));
            ASSERT_TRUE(
                prepare({ statements[0].c_str(), statements[1].c_str(), statements[2].c_str() }));
            openBucket({ x, y, 1, 1, 1, 1 });
            takeProblems();
            RtSampleSink sink = sinkAt(x, y, 0);
            RtSampleOutputs outputs = {};
            outputs.color = { rgb[0], rgb[1], rgb[2] };
            outputs.alpha = goldenFloat(in["alpha"]);
            rv::recordSample(&sink, 0, outputs);

            std::vector<std::string> problems = takeProblems();
            for (std::string& problem : problems)
                if (problem.rfind("ignoring infinity/NaN image sample in pixel (3,4), rgba=", 0) ==
                    0)
                    problem = "nan";
            expectGolden(v, "messages", problems);
            json one = { { "id", goldenId(v) + " " + type },
                         { "out", { { "stored", stored } } },
                         { "tol", { { "stored", v["tol"]["stored"] } } } };
            std::vector<float> got;
            for (const char* name : { "RGB", "RGBA", "A" })
                for (float number : numbersOf(name, sink))
                    got.push_back(number);
            expectGoldenNumbers(one, "stored", got);
        }
    }
}

TEST_F(SampleStore, bad_image_samples_are_masked_as_such)
{
    ASSERT_TRUE(prepare({ "RGBA RGBA box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    takeProblems();
    RtSampleSink sink = sinkAt(0, 0, 0);
    RtSampleOutputs outputs = {};
    outputs.color = { 1, NAN, 2 };
    outputs.alpha = 1;
    rv::recordSample(&sink, 0, outputs);
    EXPECT_EQ(messages().back().mask & RV_LOG_NAN, RV_LOG_NAN);
    EXPECT_EQ(takeProblem(), "ignoring infinity/NaN image sample in pixel (0,0), "
                             "rgba=(1.000000,nan,2.000000,1.000000)");
    RvMsgSetConsoleFlags(RV_LOG_ALL & ~RV_LOG_NAN);
    outputs.alpha = std::numeric_limits<float>::infinity();
    rv::recordSample(&sink, 0, outputs);
}

TEST_F(SampleStore, types_without_a_conversion_take_no_image_sample)
{
    node_tools::named("closest_filter", "pick");
    ASSERT_TRUE(prepare({ "RGBA INT pick drv", "raycount INT box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    rv::recordSample(&sink, 0, hitOf(nullptr));
    measure(sink, 0.5f, 0.5f, 0, 5);
    for (const char* name : { "RGBA", "raycount" })
        EXPECT_EQ(samples()->value(0, *rv::findAOV(name)), nullptr) << name;
}

// ---- What a hit shows ----

static const std::vector<const char*> hit_outputs = {
    "Z FLOAT pick drv",     "opacity RGB pick drv", "ID INT pick drv",  "object NODE pick drv",
    "shader NODE pick drv", "P POINT pick drv",     "N VECTOR pick drv"
};

TEST_F(SampleStore, hits_fill_the_built_in_variables)
{
    node_tools::named("closest_filter", "pick");
    RtNode* const sphere = node_tools::named("sphere", "ball");
    RvNodeSetInt(sphere, "id", 42);
    ASSERT_TRUE(prepare(hit_outputs));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    rv::recordSample(&sink, 0, hitOf(sphere));
    EXPECT_EQ(numbersOf("Z", sink), std::vector<float>{ 7 });
    EXPECT_EQ(numbersOf("opacity", sink), (std::vector<float>{ 0.5f, 0.25f, 1 }));
    EXPECT_EQ(read<int>("ID", sink), 42);
    EXPECT_EQ(read<RtNode*>("object", sink), sphere);
    EXPECT_EQ(read<RtNode*>("shader", sink), RvNodeLookUpByName("box"));
    EXPECT_EQ(numbersOf("P", sink), (std::vector<float>{ 1, 2, 3 }));
    EXPECT_EQ(numbersOf("N", sink), (std::vector<float>{ 0, 0, 1 }));
}

TEST_F(SampleStore, without_a_hit_only_depth_and_opacity_are_known)
{
    node_tools::named("closest_filter", "pick");
    ASSERT_TRUE(prepare(hit_outputs));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    rv::recordSample(&sink, 0, hitOf(nullptr));
    for (const RtAOV& aov : rv::output_store->aovs)
        EXPECT_EQ(samples()->value(0, aov) != nullptr,
                  !strcmp(aov.name, "Z") || !strcmp(aov.name, "opacity"))
            << aov.name;
}

TEST_F(SampleStore, a_mistyped_built_in_stays_empty)
{
    ASSERT_TRUE(prepare({ "Z RGB box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    rv::recordSample(&sink, 0, hitOf(nullptr));
    EXPECT_EQ(numbersOf("Z", sink), std::vector<float>{});
    takeProblems();
}

TEST_F(SampleStore, hits_behind_the_first_fill_deep_variables_only)
{
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "RGBA RGBA farthest drv", "A FLOAT box drv", "P POINT box drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    rv::recordSample(&sink, 1, hitOf(node_tools::named("sphere", "ball")));
    EXPECT_EQ(numbersOf("RGBA", sink), std::vector<float>{});
    EXPECT_EQ(numbersOf("A", sink), std::vector<float>{});
    sink.depth = 1;
    EXPECT_EQ(numbersOf("RGBA", sink), (std::vector<float>{ 0.25f, 0.5f, 0.75f, 0.5f }));
    EXPECT_EQ(numbersOf("Z", sink), std::vector<float>{ 7 });
    EXPECT_EQ(numbersOf("A", sink), std::vector<float>{});
    EXPECT_EQ(numbersOf("P", sink), std::vector<float>{});
}

// ---- Measures ----

TEST_F(SampleStore, measures_are_converted_to_the_declared_type)
{
    static const struct {
        const char* type;
        std::vector<float> offset, rays;
    } rows[] = {
        { "FLOAT", { 0.25f }, { 6 } },
        { "RGB", { 0.25f, 0.75f, 0 }, { 6, 6, 6 } },
        { "RGBA", { 0.25f, 0.75f, 0, 1 }, { 6, 6, 6, 1 } },
        { "VECTOR", { 0.25f, 0.75f, 0 }, { 6, 6, 6 } },
        { "POINT", { 0.25f, 0.75f, 0 }, { 6, 6, 6 } },
        { "POINT2", { 0.25f, 0.75f }, { 6, 6 } },
    };
    for (const auto& row : rows) {
        std::vector<std::string> statements;
        for (const char* name : { "AA_offset", "raycount", "cputime" })
            statements.push_back(node_tools::formatted("%s %s box drv", name, row.type));
        ASSERT_TRUE(
            prepare({ statements[0].c_str(), statements[1].c_str(), statements[2].c_str() }));
        openBucket({ 0, 0, 1, 1, 1, 1 });
        measure(sinkAt(0, 0, 0), 0.25f, 0.75f, 6, 6);
        EXPECT_EQ(numbersOf("AA_offset", sinkAt(0, 0, 0)), row.offset) << row.type;
        EXPECT_EQ(numbersOf("raycount", sinkAt(0, 0, 0)), row.rays) << row.type;
        EXPECT_EQ(numbersOf("cputime", sinkAt(0, 0, 0)), row.rays) << row.type;
        RtAOVSampleIterator it = iteratorOf("raycount", 0.5f, 0);
        ASSERT_TRUE(RvAOVSampleIteratorGetNext(&it)) << row.type;
        EXPECT_EQ(RvAOVSampleIteratorGetOffset(&it).x, -0.25f) << row.type;
        EXPECT_EQ(RvAOVSampleIteratorGetOffset(&it).y, 0.25f) << row.type;
    }
}

TEST_F(SampleStore, processor_time_is_wanted_when_there_is_such_an_output)
{
    EXPECT_FALSE(rv::wantsProcessorTime());
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    EXPECT_FALSE(rv::wantsProcessorTime());
    ASSERT_TRUE(prepare({ "cputime FLOAT box drv" }));
    EXPECT_TRUE(rv::wantsProcessorTime());
}

// ---- The store ----

TEST_F(SampleStore, covering_a_window_forgets_all_samples)
{
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    openBucket({ 0, 0, 2, 2, 1, 2 });
    for (int depth = 0; depth < 3; ++depth)
        shade(sinkAt(1, 1, 1, depth), [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", 1); });
    rv::coverWindow(samples(), { 0, 0, 2, 2, 1, 2 });
    float value = 0;
    for (int depth = 0; depth < 3; ++depth)
        EXPECT_FALSE(shade(sinkAt(1, 1, 1, depth),
                           [&](RtShaderGlobals* sg) { return RvAOVGetFlt(sg, "v", &value); }));
}

TEST_F(SampleStore, pixels_of_a_stride_share_their_samples)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    openBucket({ -8, -4, 12, 8, 4, 2 }); // of 3 x 2 pixels that are stored
    const RtSampleStore& store = *samples();
    static const struct {
        int x, y, first_slot;
    } rows[] = {
        { -8, -4, 0 }, { -5, -1, 0 }, { -4, -4, 2 },      { 3, -1, 4 },
        { -8, 0, 6 },  { 3, 3, 10 },  { -9, 0, -1 },      { 4, 0, -1 },
        { 0, 4, -1 },  { 0, -5, -1 }, { INT_MAX, 0, -1 },
    };
    for (const auto& row : rows)
        EXPECT_EQ(store.firstSlot(row.x, row.y), row.first_slot) << row.x << "," << row.y;
    EXPECT_EQ(store.slotOf(3, 3, 1), 11);
    EXPECT_EQ(store.slotOf(3, 3, 2), -1);
    EXPECT_EQ(store.slotOf(3, 3, -1), -1);
}

TEST_F(SampleStore, windows_that_do_not_fit_keep_nothing)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    openBucket({ 0, 0, 4, 4, 1, 2 });
    static const rv::PixelWindow windows[] = {
        { 0, 0, 5, 4, 1, 2 },
        { 0, 0, 4, 4, 1, 3 },
        { 0, 0, 0, 4, 1, 1 },
        { 0, 0, 4, -1, 1, 1 },
        { 0, 0, 4, 4, 0, 1 },
        { 0, 0, 4, 4, 1, 0 },
        { 0, 0, INT_MAX, INT_MAX, 1, INT_MAX },
    };
    for (const rv::PixelWindow& window : windows) {
        rv::coverWindow(samples(), window);
        EXPECT_EQ(samples()->slotOf(0, 0, 0), -1) << window.width << " " << window.samples;
        EXPECT_FALSE(
            shade(sinkAt(0, 0, 0), [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", 1); }));
        rv::deliverBucket(samples(), 0, 0, 2, 2);
    }
    rv::coverWindow(samples(), { 5, 5, 2, 2, 1, 8 }); // fewer pixels with more samples fit
    EXPECT_EQ(samples()->slotOf(6, 6, 7), 31);
    rv::coverWindow(nullptr, { 0, 0, 1, 1, 1, 1 });
}

TEST_F(SampleStore, needs_a_render_and_sizes_that_make_sense)
{
    EXPECT_EQ(rv::createSampleStore(4, 4, 0), nullptr); // no outputs
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    EXPECT_EQ(rv::createSampleStore(-1, 4, 0), nullptr);
    EXPECT_EQ(rv::createSampleStore(4, -1, 0), nullptr);
    EXPECT_EQ(rv::createSampleStore(4, 4, -1), nullptr);
    EXPECT_EQ(rv::createSampleStore(4, 4, rv::worker_slot_count), nullptr);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(rv::createSampleStore(INT_MAX, INT_MAX, 0), nullptr);
    EXPECT_NE(takeProblem().find("can't allocate"), std::string::npos);
    rv::destroySampleStore(nullptr);
}

TEST_F(SampleStore, an_exhausted_heap_gives_no_store)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    const auto problems = node_tools::problemsOfFailingHeap(
        [] { rv::destroySampleStore(rv::createSampleStore(16, 4, 0)); }, takeProblems);
    EXPECT_TRUE(node_tools::anyReportsFailure(problems, "core\\src\\aovs\\output_store",
                                              "createSampleStore"));
    EXPECT_TRUE(
        node_tools::anyReportsFailure(problems, "core\\src\\aovs\\output_store", "RtSampleStore"));
}

TEST_F(SampleStore, its_memory_is_counted_for_the_worker)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    const int64_t before = rv::the_frame->stats[3]->sample_bytes;
    rv::destroySampleStore(rv::createSampleStore(100, 4, 3));
    // "AA_offset", the value and one word of presence bits
    EXPECT_EQ(rv::the_frame->stats[3]->sample_bytes - before, 400 * (8 + 4 + 4));
}

TEST_F(SampleStore, more_than_32_variables_are_told_apart)
{
    std::vector<std::string> statements;
    for (int i = 0; i < 70; ++i)
        statements.push_back(node_tools::formatted("v%d FLOAT box drv", i));
    std::vector<const char*> texts;
    for (const std::string& statement : statements)
        texts.push_back(statement.c_str());
    ASSERT_TRUE(prepare(texts));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    RtSampleSink sink = sinkAt(0, 0, 0);
    for (int i = 0; i < 70; i += 3)
        shade(sink, [&](RtShaderGlobals* sg) {
            return RvAOVSetFlt(sg, node_tools::formatted("v%d", i).c_str(), float(i));
        });
    for (int i = 0; i < 70; ++i)
        EXPECT_EQ(numbersOf(node_tools::formatted("v%d", i).c_str(), sink),
                  i % 3 ? std::vector<float>{} : std::vector<float>{ float(i) });
}

// ---- Deep samples ----

TEST_F(SampleStore, deep_samples_grow_and_are_found_again)
{
    rv::DeepSamples deep(1, 4, 0);
    RtAOV aov = {};
    aov.deep = true;
    const auto put = [&](uint32_t slot, uint32_t depth, float value) {
        auto* const record = deep.findOrAdd(slot, depth);
        ASSERT_TRUE(record);
        memcpy(deep.values(record), &value, sizeof value);
        rv::setPresent(record->presence(), aov);
    };
    for (int round = 0; round < 2; ++round) {
        for (uint32_t slot = 0; slot < 3000; ++slot)
            put(slot * 7, 1 + slot % 5, float(slot));
        for (uint32_t slot = 0; slot < 3000; ++slot) {
            const uint32_t depth = 1 + slot % 5;
            const auto* const record = deep.find(slot * 7, depth);
            ASSERT_TRUE(record);
            EXPECT_EQ(rv::loadAs<float>(deep.value(*record, aov)), float(slot));
            EXPECT_EQ(deep.find(slot * 7, depth + 1), nullptr);
            for (uint32_t d = 1; d < depth; ++d) { // no gaps, and no values in them
                const auto* const between = deep.find(slot * 7, d);
                ASSERT_TRUE(between);
                EXPECT_EQ(deep.value(*between, aov), nullptr);
            }
        }
        deep.clear();
        EXPECT_EQ(deep.find(7, 1), nullptr);
    }
}

TEST_F(SampleStore, an_exhausted_heap_loses_deep_samples_and_says_so_once)
{
    RtNode* const farthest = node_tools::named("farthest_filter", "farthest");
    RvNodeSetStr(farthest, "domain", "all_hits");
    ASSERT_TRUE(prepare({ "v FLOAT farthest drv" }));
    openBucket({ 0, 0, 1, 1, 1, 1 });
    const auto put = [](int depth) {
        return shade(sinkAt(0, 0, 0, depth),
                     [](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", 1); });
    };
    {
        node_tools::AllocationLimit limit(0);
        EXPECT_FALSE(put(1));
        EXPECT_FALSE(put(2));
    }
    EXPECT_EQ(takeProblems().size(), 1u);
    rv::coverWindow(samples(), { 0, 0, 1, 1, 1, 1 });
    {
        node_tools::AllocationLimit limit(1);
        EXPECT_FALSE(put(1));
    }
    EXPECT_EQ(takeProblems().size(), 1u);
    rv::coverWindow(samples(), { 0, 0, 1, 1, 1, 1 });
    EXPECT_TRUE(put(1));
}
