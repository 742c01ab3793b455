// Many threads ask for point clouds that nobody has built yet.
#include "frame_fixture.h"
#include "image_tools.h"
#include "sss_tools.h"

#include <random>
#include <thread>

using namespace sss_tools;

namespace {

constexpr int thread_count = 8;

class ConcurrentClouds : public Clouds {
protected:
    // Runs work(thread) as render threads do.
    template <class Work> static void asRenderThreads(Work work)
    {
        onThreads(thread_count, [&](int thread) {
            rv::stats_slot = thread;
            work(thread);
        });
    }
    static RtRGB lookUpOn(int thread, RtShaderGlobals sg)
    {
        sg.thread_index = uint8_t(thread);
        return lookUp(sg, { 0.5f, 0.5f, 0.5f });
    }

    // Two sheets that face each other and see each other's light bounce.
    static void makeFacingSheets()
    {
        RtNode* const wax = makeWax("wax", 0.5f);
        RvNodeSetFlt(wax, "Kd", 0.5f);
        RtNode* const low = makeSheet("low", 4, 6);
        RtNode* const high = makeSheet("high", 4, 6);
        const RtVector place = { 0, 0, 1 };
        RtMatrix turned, up, matrix;
        RvM4RotationX(&turned, 180);
        RvM4Translation(&up, &place);
        RvM4Mult(&matrix, &turned, &up);
        setMatrix(high, matrix);
        for (RtNode* node : { low, high }) {
            setShaderOf(node, wax);
            RvNodeSetFlt(node, "sss_sample_spacing", 0.2f);
        }
        RtNode* const lamp = node_tools::named("point_light", "lamp");
        RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 0.5f }));
        set("GI_diffuse_depth", 2);
        set("GI_diffuse_samples", 1);
    }
    // Their points, low and high.
    static std::array<RtShaderGlobals, 2> facingPoints()
    {
        const auto hit = [](float z) {
            const RtPoint origin = { 0.3f, 0.2f, 0.5f };
            const RtVector dir = { 0, 0, z };
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
            RtShaderGlobals sg;
            EXPECT_TRUE(RvTraceProbe(&ray, &sg));
            return sg;
        };
        return { hit(-1), hit(1) };
    }
};

} // namespace

TEST_F(ConcurrentClouds, concurrent_lookups_build_one_cloud)
{
    RtNode* const node = sheet(4, 0.05f);
    distantLight();
    prepare();
    const RtShaderGlobals sg = hitAt(0.3f, 0.2f);
    const std::string expected = describe(lookUpOn(0, sg));
    for (int round = 0; round < 5; ++round) {
        flushShapes();
        messages().clear();
        std::string got[thread_count];
        asRenderThreads([&](int thread) { got[thread] = describe(lookUpOn(thread, sg)); });
        for (const std::string& text : got)
            EXPECT_EQ(text, expected);
        EXPECT_EQ(cloudsDone(), 1u);
    }
    EXPECT_TRUE(node);
}

TEST_F(ConcurrentClouds, concurrent_clouds_that_see_each_other_never_wait_for_each_other)
{
    makeFacingSheets();
    prepare();
    const std::array<RtShaderGlobals, 2> points = facingPoints();
    const std::string expected[2] = { describe(lookUpOn(0, points[0])),
                                      describe(lookUpOn(0, points[1])) };
    EXPECT_EQ(cloudsDone(), 2u);
    for (int round = 0; round < 10; ++round) {
        flushShapes();
        messages().clear();
        std::string got[thread_count];
        asRenderThreads(
            [&](int thread) { got[thread] = describe(lookUpOn(thread, points[thread % 2])); });
        for (int thread = 0; thread < thread_count; ++thread)
            EXPECT_EQ(got[thread], expected[thread % 2]) << thread;
        EXPECT_EQ(cloudsDone(), 2u);
    }
}

// Shaders may start anew at a point, which then no longer knows that it is seen from a cloud.
TEST_F(ConcurrentClouds, concurrent_clouds_with_shaders_that_forget_the_pass_do_not_wait_either)
{
    makeFacingSheets();
    prepare();
    const std::array<RtShaderGlobals, 2> points = facingPoints();
    static std::atomic<int> nested_lookups;
    nested_lookups = 0;
    node_tools::HookOverride override;
    override.hooks.shadeSurface = [](RtShaderGlobals* sg) {
        sg->state->pass = RV_PASS_PIXELS;
        sg->out.RGB = lookUp(*sg, { 0.5f, 0.5f, 0.5f });
        EXPECT_EQ(describe(sg->out.RGB), "0 0 0");
        ++nested_lookups;
        return int(RV_TYPE_RGB);
    };
    for (int round = 0; round < 10; ++round) {
        flushShapes();
        messages().clear();
        asRenderThreads([&](int thread) { lookUpOn(thread, points[thread % 2]); });
        EXPECT_EQ(cloudsDone(), 2u);
    }
    EXPECT_GT(nested_lookups, 0);
}

// Shaders of displacement run while the structure of an object is being built, under its lock; a
// cloud may need that structure.
TEST_F(ConcurrentClouds, lookups_while_a_structure_is_built_are_black)
{
    RtNode* const node = sheet(4, 0.2f);
    distantLight();
    RvNodeInstall(RV_NODE_SHAPE, RV_TYPE_NONE, "block", nullptr, &shape_fixture::blockMethods(),
                  RV_VERSION);
    prepare();
    const RtShaderGlobals sg = hitAt(0, 0);
    RtNode* const block = node_tools::named("block", "block");
    rv::RvNodeInitialize(block);
    std::string got;
    shape_fixture::while_building = [&](RtGObject*) { got = describe(lookUpOn(0, sg)); };
    RvGObjectBuildAccel(block, 0);
    shape_fixture::while_building = {};
    EXPECT_EQ(got, "0 0 0");
    EXPECT_EQ(cloudsDone(), 0u);
    EXPECT_NE(describe(lookUpOn(0, sg)), "0 0 0");
    EXPECT_TRUE(node);
}

TEST_F(ConcurrentClouds, concurrent_waiters_go_on_when_a_build_is_stopped)
{
    sheet(4, 0.05f);
    set("GI_diffuse_depth", 1);
    setBackground(RV_RGB_WHITE);
    prepare();
    const RtShaderGlobals sg = hitAt(0.3f, 0.2f);
    for (int round = 0; round < 5; ++round) {
        std::atomic<int> stop = 0;
        rv::startPointClouds(&stop);
        std::thread host([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(round));
            stop = 1;
        });
        asRenderThreads([&](int thread) { lookUpOn(thread, sg); });
        host.join();
        rv::endPointClouds();
        flushShapes();
    }
    EXPECT_GT(lookUpOn(0, sg).r, 0);
}

// ---- Renders ----

namespace {

class ConcurrentScattering : public image_tools::Image {
protected:
    // Balls and a sheet of wax, some of them instances, under a soft light, in a bright place.
    static void makeWaxScene()
    {
        makeScene(32, 24, "RGBA RGBA");
        RtNode* const wax = makeWax("wax", 0.3f);
        RvNodeSetFlt(wax, "Kd", 0.2f);
        RvNodeSetRGB(wax, "sss_radius", 0.4f, 0.2f, 0.1f);
        RtNode* sheets[2];
        for (int i = 0; i < 2; ++i) {
            sheets[i] = makeSheet(i ? "left" : "right", 1.5f, 5);
            const RtVector place = { i ? -1.0f : 1.0f, 0, -3 };
            RtMatrix matrix, turned;
            RvM4RotationY(&turned, i ? 30 : -30);
            RvM4Translation(&matrix, &place);
            RvM4Mult(&matrix, &turned, &matrix);
            RvNodeSetArray(sheets[i], "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
        }
        RtNode* const copy = node_tools::named("ginstance", "copy");
        RvNodeSetPtr(copy, "node", sheets[0]);
        const RtVector up = { -0.5f, 1.2f, 0 };
        RtMatrix matrix;
        RvM4Translation(&matrix, &up);
        RvNodeSetArray(copy, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
        for (RtNode* sheet : sheets) {
            RvNodeSetArray(sheet, "shader", RvArray(1, 1, RV_TYPE_NODE, wax));
            RvNodeSetFlt(sheet, "sss_sample_spacing", 0.08f);
        }
        RtNode* const lamp = node_tools::named("point_light", "lamp");
        RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0.5f, 1, 0 }));
        RvNodeSetFlt(lamp, "radius", 0.5f);
        RvNodeSetFlt(lamp, "intensity", 5);
        set("AA_samples", 2);
        set("bucket_size", 8);
        set("GI_diffuse_depth", 1);
    }
};

} // namespace

TEST_F(ConcurrentScattering, concurrent_renders_scatter_the_same_light_bit_for_bit)
{
    std::vector<RtRGBA> images[2];
    for (const bool subpixel_cache : { false, true }) {
        std::vector<RtRGBA>& image = images[subpixel_cache];
        for (const int threads : { 1, 2, 3, 8 }) {
            startAnew();
            makeWaxScene();
            setFlag("sss_subpixel_cache", subpixel_cache);
            setText("bucket_scanning", threads == 3 ? "random" : "top");
            const std::vector<RtRGBA> now = imageOf(threads);
            if (threads == 1) {
                image = now;
                continue;
            }
            EXPECT_TRUE(areSame(now, image)) << threads << " " << subpixel_cache;
            const int64_t lookups = sumOf([](const RtStats& s) { return s.sss_lookups; });
            const int64_t computed = sumOf([](const RtStats& s) { return s.sss_computed; });
            EXPECT_GT(lookups, 100);
            EXPECT_EQ(computed > 0, subpixel_cache);
            EXPECT_LE(computed, lookups);
            EXPECT_EQ(sumOf([](const RtStats& s) { return s.sss_stored.objects; }), 2);
            takeLines();
            EXPECT_TRUE(areSame(imageOf(threads), image)) << "again";
            EXPECT_EQ(sumOf([](const RtStats& s) { return s.sss_stored.objects; }), 0);
        }
    }
    EXPECT_FALSE(areSame(images[0], images[1]));
    double sums[2] = {};
    for (int i = 0; i < 2; ++i)
        for (const RtRGBA& pixel : images[i])
            sums[i] += double(pixel.r);
    EXPECT_NEAR(sums[1], sums[0], 0.05 * sums[0]);
}

TEST_F(ConcurrentScattering, concurrent_stops_leave_no_half_a_cloud_behind)
{
    makeWaxScene();
    const std::vector<RtRGBA> image = imageOf(2);
    std::mt19937 random(1);
    std::uniform_int_distribution<int> delay(0, 20000);
    for (int i = 0; i < 10; ++i) {
        RvUniverseCacheFlush(0x2);
        set("threads", 4);
        std::thread host([microseconds = delay(random)] {
            std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
            RvRenderInterrupt();
        });
        const int result = shoot();
        host.join();
        EXPECT_TRUE(result == RV_SUCCESS || result == RV_INTERRUPT) << result;
        EXPECT_TRUE(areSame(imageOf(3), image)) << i;
        takeLines();
    }
}

TEST_F(ConcurrentScattering, flushing_while_a_render_runs_leaves_clouds_alone)
{
    makeWaxScene();
    const std::vector<RtRGBA> image = imageOf(2);
    RvUniverseCacheFlush(0x2);
    image_tools::film().on_write = [] { RvUniverseCacheFlush(0x2); };
    EXPECT_TRUE(areSame(imageOf(3), image));
    EXPECT_EQ(sumOf([](const RtStats& s) { return s.sss_stored.objects; }), 2);
}
