// Tests of the delivery of finished buckets.
#include "aovs/output_tools.h"
#include "counters.h"
#include "render_session.h"

#include <atomic>
#include <thread>

using namespace output_tools;

struct Delivery : Outputs {
    // Every sample of the window shows its pixel: RGBA (x, y, 0, 1) and "v" 10 y + x.
    static void fill(const rv::PixelWindow& window)
    {
        openBucket(window);
        fillStore(samples(), window);
    }
    static void fillStore(RtSampleStore* store, const rv::PixelWindow& window)
    {
        for (int y = window.min_y; y < window.min_y + window.height; ++y)
            for (int x = window.min_x; x < window.min_x + window.width; ++x)
                for (int i = 0; i < window.samples; ++i) {
                    RtSampleSink sink = { store, x, y, i, 0 };
                    rv::recordMeasures(&sink, { { 0.5f, 0.5f }, 0, 0 });
                    RtSampleOutputs outputs = {};
                    outputs.color = { float(x), float(y), 0 };
                    outputs.alpha = 1;
                    rv::recordSample(&sink, 0, outputs);
                    shade(sink, [&](RtShaderGlobals* sg) {
                        return RvAOVSetFlt(sg, "v", float(10 * y + x));
                    });
                }
    }
    static void stop(RtStopRequest request) { rv::the_frame->session->abort_flag = request; }
};

TEST_F(Delivery, pixels_arrive_row_by_row_from_the_first_row)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv", "RGBA RGBA box drv" }));
    fill({ 2, 3, 3, 2, 1, 4 });
    rv::deliverBucket(samples(), 2, 3, 3, 2);
    EXPECT_EQ(pixelsOf("v"), (std::vector<float>{ 32, 33, 34, 42, 43, 44 }));
    EXPECT_EQ(pixelsOf("RGBA"), (std::vector<float>{ 2, 3, 0, 1, 3, 3, 0, 1, 4, 3, 0, 1,
                                                     2, 4, 0, 1, 3, 4, 0, 1, 4, 4, 0, 1 }));
    EXPECT_EQ(probe().events.back(), "write 2,3 3x2 to drv");
}

TEST_F(Delivery, every_driver_gets_its_outputs_once)
{
    node_tools::named("file_driver", "file");
    ASSERT_TRUE(prepare({ "v FLOAT box drv", "RGBA RGBA box file", "w RGB box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    probe().events.clear();
    rv::deliverBucket(samples(), 0, 0, 1, 1);
    EXPECT_EQ(probe().events,
              (std::vector<std::string>{ "write 0,0 1x1 to drv", "write 0,0 1x1 to file" }));
    EXPECT_EQ(probe().layers.size(), 3u);
    EXPECT_EQ(pixelsOf("w"), (std::vector<float>{ 0, 0, 0 }));
}

TEST_F(Delivery, buckets_are_announced_to_every_driver)
{
    rv::announceBucket(0, 0, 1, 1, 0); // nobody is there
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "v FLOAT box drv", "raw" }));
    probe().events.clear();
    rv::announceBucket(16, 32, 64, 48, 5);
    EXPECT_EQ(probe().events, (std::vector<std::string>{ "prepare 16,32 64x48 by 5 for drv",
                                                         "prepare 16,32 64x48 by 5 for raw" }));
}

TEST_F(Delivery, pixels_no_sample_reaches_stay_cleared_in_buffers_used_before)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 2, 1, 1, 1 });
    rv::deliverBucket(samples(), 0, 0, 2, 1);
    EXPECT_EQ(pixelsOf("v"), (std::vector<float>{ 0, 1 }));
    rv::coverWindow(samples(), { 0, 0, 2, 1, 1, 1 });
    rv::deliverBucket(samples(), 0, 0, 2, 1);
    EXPECT_EQ(pixelsOf("v"), (std::vector<float>{ 0, 0 }));
}

TEST_F(Delivery, raw_drivers_walk_the_samples_of_any_pixel)
{
    static const char* required[] = { "FLOAT v", nullptr };
    probe().required_aovs = required;
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "raw" }));
    fill({ 0, 0, 2, 2, 1, 3 });
    std::vector<float> seen;
    probe().on_samples = [&](RtAOVSampleIterator* it) {
        for (int x = 0; x < 2; ++x) {
            RvAOVSampleIteratorInitPixel(it, x, 1);
            while (RvAOVSampleIteratorGetNext(it)) {
                seen.push_back(RvAOVSampleIteratorGetAOVFlt(it, "v"));
                EXPECT_EQ(RvAOVSampleIteratorGetFlt(it), 0); // there is no variable of its own
                EXPECT_FALSE(RvAOVSampleIteratorHasValue(it));
            }
        }
    };
    rv::deliverBucket(samples(), 0, 0, 2, 2);
    EXPECT_EQ(seen, (std::vector<float>{ 10, 10, 10, 11, 11, 11 }));
    EXPECT_TRUE(probe().layers.empty());
}

TEST_F(Delivery, raw_drivers_get_nothing_of_an_interrupted_render)
{
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "raw", "v FLOAT box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    static const struct {
        RtStopRequest request;
        std::vector<std::string> events;
    } rows[] = {
        { RV_STOP_NONE, { "write 0,0 1x1 to raw", "write 0,0 1x1 to drv" } },
        { RV_STOP_INTERRUPT, { "write 0,0 1x1 to drv" } },
        { RV_STOP_ABORT, { "write 0,0 1x1 to raw", "write 0,0 1x1 to drv" } },
    };
    for (const auto& row : rows) {
        probe().events.clear();
        stop(row.request);
        rv::deliverBucket(samples(), 0, 0, 1, 1);
        EXPECT_EQ(probe().events, row.events) << row.request;
    }
    stop(RV_STOP_NONE);
}

TEST_F(Delivery, empty_buckets_and_missing_stores_are_ignored)
{
    rv::deliverBucket(nullptr, 0, 0, 1, 1);
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    probe().events.clear();
    rv::deliverBucket(nullptr, 0, 0, 1, 1);
    rv::deliverBucket(samples(), 0, 0, 0, 1);
    rv::deliverBucket(samples(), 0, 0, 1, -1);
    EXPECT_TRUE(probe().events.empty());
}

TEST_F(Delivery, an_exhausted_heap_loses_the_bucket_and_says_so)
{
    ASSERT_TRUE(prepare({ "v FLOAT box drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    probe().events.clear();
    {
        node_tools::AllocationLimit limit(0);
        rv::deliverBucket(samples(), 0, 0, 1, 1);
    }
    EXPECT_TRUE(node_tools::reportsFailure(takeProblem(), "core\\src\\aovs\\output_store",
                                           "deliverBucket"));
    EXPECT_TRUE(probe().events.empty());
    rv::deliverBucket(samples(), 0, 0, 1, 1);
    EXPECT_EQ(probe().events.size(), 1u);
}

TEST_F(Delivery, pixel_buffers_are_counted_and_kept)
{
    ASSERT_TRUE(prepare({ "RGBA RGBA box drv", "v FLOAT box drv" }));
    fill({ 0, 0, 8, 8, 1, 1 });
    rv::the_frame->stats[0]->output_bytes = 0;
    rv::deliverBucket(samples(), 0, 0, 8, 8);
    const char* const buffer = samples()->buffers.pixels;
    EXPECT_EQ(rv::the_frame->stats[0]->output_bytes, 64 * (16 + 4));
    rv::deliverBucket(samples(), 0, 0, 4, 8);
    EXPECT_EQ(samples()->buffers.pixels, buffer);
    EXPECT_EQ(rv::the_frame->stats[0]->output_bytes, 64 * (16 + 4));
}

TEST_F(Delivery, workers_deliver_at_once_and_drivers_see_one_call_at_a_time)
{
    static const char* nothing[] = { nullptr };
    probe().required_aovs = nothing;
    node_tools::named("raw_driver", "raw");
    ASSERT_TRUE(prepare({ "raw", "v FLOAT box drv" }));
    std::atomic<int> inside = 0, most = 0;
    probe().on_samples = [&](RtAOVSampleIterator*) {
        most = std::max(most.load(), ++inside);
        std::this_thread::yield();
        --inside;
    };
    probe().events.reserve(10000);
    std::vector<std::thread> workers;
    // Both drivers note events in one list, so only one of them is given buckets.
    rv::closeOutputs(nullptr);
    ASSERT_TRUE(prepare({ "raw" }));
    probe().events.clear();
    for (int thread = 0; thread < 4; ++thread)
        workers.emplace_back([thread] {
            const rv::PixelWindow window = { 8 * thread, 0, 8, 8, 1, 2 };
            RtSampleStore* const store = rv::createSampleStore(64, 2, thread);
            for (int i = 0; i < 50; ++i) {
                rv::announceBucket(8 * thread, 0, 8, 8, thread);
                rv::coverWindow(store, window);
                fillStore(store, window);
                rv::deliverBucket(store, 8 * thread, 0, 8, 8);
            }
            rv::destroySampleStore(store);
        });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(most, 1);
    EXPECT_EQ(probe().events.size(), 4u * 50 * 2);
}

// ---- Filters of plug-ins ----

namespace {

// The sum of the samples' values at all depths.
int sumType(RtNode*, int input_type)
{
    return input_type == RV_TYPE_FLOAT ? RV_TYPE_FLOAT : RV_TYPE_NONE;
}
void sumPixel(RtNode*, void* params, RtAOVSampleIterator* it, void* output, int)
{
    const float scale = static_cast<RtParamValue*>(params)[0].FLT;
    float sum = 0;
    while (RvAOVSampleIteratorGetNext(it))
        do
            sum += RvAOVSampleIteratorGetFlt(it) * scale;
        while (RvAOVSampleIteratorGetNextDepth(it));
    *static_cast<float*>(output) = sum;
}

void installSumFilter()
{
    static const RtCommonMethods common = {
        .Parameters = [](RtList* params,
                         RtMetaDataStore*) { RvNodeParamFLT(params, -1, "scale", 1); },
        .Initialize = [](RtNode* node, void*) { RvFilterInitialize(node, true, nullptr, nullptr); },
        .Update = [](RtNode* node, void*) { RvFilterUpdate(node, 1); },
        .Finish = RvFilterDestroy,
    };
    static const RtFilterMethods filter = { .FilterOutputType = sumType, .FilterPixel = sumPixel };
    static const RtNodeMethods methods = { &common, &filter };
    RvNodeInstall(RV_NODE_FILTER, RV_TYPE_NONE, "sum_filter", "", &methods, RV_VERSION);
}

void installEmptyFilter(const char* name, const RtFilterMethods* filter)
{
    static const RtCommonMethods common = {};
    static RtNodeMethods methods[2];
    RtNodeMethods& mine = methods[filter ? 1 : 0];
    mine = { &common, filter };
    RvNodeInstall(RV_NODE_FILTER, RV_TYPE_NONE, name, "", &mine, RV_VERSION);
}

} // namespace

TEST_F(Delivery, filters_of_plug_ins_walk_samples_and_depths)
{
    installSumFilter();
    RvNodeSetFlt(node_tools::named("sum_filter", "sum"), "scale", 2);
    ASSERT_TRUE(prepare({ "v FLOAT sum drv" }));
    EXPECT_TRUE(rv::findAOV("v")->deep);
    openBucket({ 0, 0, 1, 1, 1, 2 });
    for (int i = 0; i < 2; ++i) {
        measure(sinkAt(0, 0, i), 0.5f, 0.5f);
        for (int depth = 0; depth <= i; ++depth)
            shade(sinkAt(0, 0, i, depth),
                  [&](RtShaderGlobals* sg) { return RvAOVSetFlt(sg, "v", float(1 + depth)); });
    }
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 2 * (1 + 1 + 2) });
}

TEST_F(Delivery, filters_without_methods_filter_nothing)
{
    static const RtFilterMethods only_type = { .FilterOutputType = sumType,
                                               .FilterPixel = nullptr };
    installEmptyFilter("null_filter", nullptr);
    installEmptyFilter("type_filter", &only_type);
    node_tools::named("null_filter", "null");
    node_tools::named("type_filter", "typed");
    EXPECT_FALSE(prepare({ "v FLOAT null drv" }));
    EXPECT_EQ(takeProblem(), "[aov] output references a non-filter node: null | "
                             "[aov] no valid outputs - can't continue");
    ASSERT_TRUE(prepare({ "v FLOAT typed drv" }));
    fill({ 0, 0, 1, 1, 1, 1 });
    EXPECT_EQ(filteredPixel(), std::vector<float>{ 0 });
}
