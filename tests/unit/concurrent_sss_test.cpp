// Many threads ask for point clouds that nobody has built yet.
#include "frame_fixture.h"
#include "image_tools.h"
#include "rv_procedural.h"
#include "shader_tools.h"
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
    sheet(4, 0.05f);
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
}

namespace {

std::atomic<int> begun_builds, helping_threads;
std::atomic<bool> has_helped[thread_count];

void waitFor(const std::atomic<int>& count, int wanted)
{
    for (int ms = 0; count < wanted && ms < 5000; ++ms)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace

TEST_F(ConcurrentClouds, concurrent_threads_that_wait_for_a_cloud_light_its_points)
{
    sheet(4, 0.03f); // more pieces than threads
    set("GI_diffuse_depth", 1);
    set("GI_diffuse_samples", 1);
    setBackground(RV_RGB_WHITE);
    prepare();
    const RtShaderGlobals sg = hitAt(0.3f, 0.2f);
    begun_builds = helping_threads = 0;
    for (std::atomic<bool>& helped : has_helped)
        helped = false;
    node_tools::HookOverride override;
    override.hooks.shadeBackground = [](RtShaderGlobals* context) {
        if (!has_helped[context->thread_index].exchange(true)) {
            ++helping_threads;
            waitFor(helping_threads, thread_count); // no piece ends before all have begun one
        }
        context->out.RGB = RV_RGB_WHITE;
        return int(RV_TYPE_RGB);
    };
    RvMsgSetCallback([](int, int, const char* message, int) {
        if (!strstr(message, "[sss] generating"))
            return;
        ++begun_builds; // those that come from now on find the first one here
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    });
    std::string got[thread_count];
    asRenderThreads([&](int thread) {
        if (thread > 0)
            waitFor(begun_builds, 1);
        got[thread] = describe(lookUpOn(thread, sg));
    });
    EXPECT_EQ(begun_builds, 1);
    EXPECT_EQ(helping_threads, thread_count);
    for (const std::string& text : got)
        EXPECT_EQ(text, got[0]);
    EXPECT_NE(got[0], "0 0 0");
}

TEST_F(ConcurrentClouds, concurrent_flushes_do_no_harm_to_threads_that_look_up_between_renders)
{
    sheet(4, 0.2f);
    distantLight();
    prepare();
    const RtShaderGlobals sg = hitAt(0.3f, 0.2f);
    const std::string expected = describe(lookUpOn(0, sg));
    asRenderThreads([&](int thread) {
        for (int round = 0; round < 40; ++round) {
            if (thread == 0)
                flushShapes();
            EXPECT_EQ(describe(lookUpOn(thread, sg)), expected) << thread;
        }
    });
    flushShapes();
    int64_t bytes = 0;
    for (const RtStats* record : rv::the_frame->stats)
        bytes += record->sss_bytes;
    EXPECT_EQ(bytes, 0);
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
    sheet(4, 0.2f);
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

namespace {

// The colour of what a ray sees that comes down onto wax, and a little of its own.
void colorByWax(RtNode* light, const char* name)
{
    RtNode* const shader =
        shader_tools::shader(name, RV_TYPE_RGB, [](RtNode*, RtShaderGlobals* sg) {
            const RtPoint origin = { 0.3f, 0.2f, 0.5f };
            const RtVector dir = { 0, 0, -1 };
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
            ray.tid = sg->thread_index;
            RtScrSample seen;
            RvTrace(&ray, &seen);
            const float own = 0.5f + 0.4f * sg->normal.x + 0.2f * sg->u;
            sg->out.RGB = seen.color + RtRGB{ own, own, 0.3f };
        });
    RvNodeLink(shader, "color", light);
}

// Tables of both kinds whose colours need the wax, and the wax needs the tables.
void addLightsThatSeeWax()
{
    RtNode* const sky = node_tools::named("skydome_light", "sky");
    RtNode* const quad = node_tools::named("quad_light", "quad");
    RtMatrix up;
    const RtVector height = { 0, 0, 2 };
    RvM4Translation(&up, &height);
    RvNodeSetArray(quad, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &up));
    for (RtNode* light : { sky, quad }) {
        RvNodeSetInt(light, "resolution", 16);
        colorByWax(light, light == sky ? "sky colour" : "quad colour");
    }
}

} // namespace

TEST_F(ConcurrentClouds, concurrent_tables_of_lights_whose_shaders_see_wax_end_and_agree)
{
    RtNode* const node = sheet(4, 0.2f);
    setShaderOf(node, makeWax("wax", 0.5f));
    addLightsThatSeeWax();
    prepare();
    const RtShaderGlobals sg = hitAt(0.3f, 0.2f);
    const auto litOn = [&](int thread) {
        RtShadingState state;
        rv::resetState(&state, nullptr);
        RtShaderGlobals own = sg;
        own.state = &state;
        own.thread_index = uint8_t(thread);
        return describe(RvDirectDiffuse(&own.normal, &own));
    };
    const std::string light = litOn(0); // the tables come first
    const std::string scattered = describe(lookUpOn(0, sg));
    EXPECT_NE(scattered, "0 0 0");
    for (int round = 0; round < 10; ++round) {
        RvUniverseCacheFlush(0x2 | 0x8 | 0x10);
        messages().clear();
        std::string got[thread_count];
        asRenderThreads([&](int thread) {
            got[thread] = thread % 2 ? litOn(thread) : describe(lookUpOn(thread, sg));
        });
        for (int thread = 0; thread < thread_count; ++thread)
            EXPECT_EQ(got[thread], thread % 2 ? light : scattered) << thread;
        EXPECT_EQ(cloudsDone(), 1u);
    }
    shader_tools::programs().clear();
}

// ---- Where shapes stand ----

// A procedural that holds an instance of the shape that it is given.
static int loadInstance(RtProcVtable* vtable)
{
    strcpy(vtable->version, RV_VERSION);
    vtable->Init = [](RtNode* proc, void** data) {
        *data = RvNodeGetPtr(proc, "userptr");
        return 1;
    };
    vtable->Cleanup = [](void*) { return 1; };
    vtable->NumNodes = [](void*) { return 300; };
    vtable->GetNode = [](void* source, int i) {
        RtNode* const node = RvNode("ginstance");
        RvNodeSetPtr(node, "node", source);
        RvNodeSetInt(node, "visibility", 65535);
        const RtVector place = { 0, 0, -float(i) };
        RtMatrix matrix;
        RvM4Translation(&matrix, &place);
        RvNodeSetArray(node, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
        return node;
    };
    return 1;
}

TEST_F(ConcurrentClouds, concurrent_loads_of_instances_do_not_show_them_half_made)
{
    RtNode* const source = sheet(2, 0.2f);
    RvNodeSetInt(source, "visibility", 0);
    RtNode* const copy = node_tools::named("ginstance", "visible");
    RvNodeSetPtr(copy, "node", source);
    RvNodeSetInt(copy, "visibility", 65535);
    for (int i = 1; i < thread_count; ++i) {
        RtNode* const proc = node_tools::named("procedural", ("proc " + std::to_string(i)).c_str());
        RvNodeSetPnt(proc, "min", -1, -1, -300);
        RvNodeSetPnt(proc, "max", 1, 1, 0);
        RvNodeSetPtr(proc, "funcptr", reinterpret_cast<void*>(loadInstance));
        RvNodeSetPtr(proc, "userptr", source);
        const RtVector place = { float(10 * i), 0, 0 };
        RtMatrix matrix;
        RvM4Translation(&matrix, &place);
        setMatrix(proc, matrix);
    }
    prepare();
    std::atomic<int> loaded = 0;
    asRenderThreads([&](int thread) {
        if (thread % 2) {
            const RtPoint origin = { float(10 * thread), 0, 10 };
            const RtVector dir = { 0, 0, -1 };
            RtRay ray;
            RvMakeRay(&ray, RV_RAY_CAMERA, &origin, &dir, 1e30, nullptr);
            ray.tid = uint8_t(thread);
            RtShaderGlobals sg;
            EXPECT_TRUE(RvTraceProbe(&ray, &sg));
            ++loaded;
        }
        do
            EXPECT_EQ(rv::placedObject(rv::objectOf(source)), rv::objectOf(copy));
        while (loaded < thread_count / 2);
    });
}

// ---- Renders ----

namespace {

class ConcurrentScattering : public image_tools::Image {
protected:
    void TearDown() override
    {
        Image::TearDown();
        shader_tools::programs().clear();
    }
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
            EXPECT_LT(computed, lookups);
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

TEST_F(ConcurrentScattering, concurrent_renders_make_clouds_and_tables_of_lights_at_once)
{
    std::vector<RtRGBA> image;
    for (const int threads : { 1, 2, 8, 8 }) {
        startAnew();
        makeWaxScene();
        addLightsThatSeeWax();
        set("xres", 16);
        set("yres", 12);
        set("bucket_size", 4);
        const std::vector<RtRGBA> now = imageOf(threads);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
        EXPECT_EQ(sumOf([](const RtStats& s) { return s.sss_stored.objects; }), 2);
    }
}

TEST_F(ConcurrentScattering, a_stop_delivers_no_pixels_that_lack_scattered_light)
{
    makeWaxScene();
    set("AA_samples", 1);
    set("bucket_size", 64);
    const std::vector<RtRGBA> image = imageOf(1);
    RvUniverseCacheFlush(0x2);
    image_tools::onShade() = [](RtShaderGlobals* sg) {
        if (sg->ray_type == RV_RAY_DIFFUSE) // from the points of the first cloud
            RvRenderInterrupt();
    };
    EXPECT_EQ(shoot(), RV_INTERRUPT);
    int same = 0, missing = 0;
    for (size_t i = 0; i < image.size(); ++i) {
        const RtRGBA& pixel = image_tools::film().pixels[i];
        const bool is_missing = pixel.r == 0 && pixel.g == 0 && pixel.b == 0 && pixel.a == 0;
        const bool is_same = memcmp(&pixel, &image[i], sizeof pixel) == 0;
        EXPECT_TRUE(is_missing || is_same) << i % 32 << " " << i / 32;
        missing += is_missing;
        same += is_same;
    }
    EXPECT_GT(missing, 100);
    EXPECT_GT(same, 5); // in front of the first wax of the row
}

TEST_F(ConcurrentScattering, the_report_of_a_render_tells_of_its_clouds)
{
    makeWaxScene();
    for (const char* name : { "left", "right" }) {
        RvNodeSetFlt(RvNodeLookUpByName(name), "sss_sample_spacing", 0.005f);
        RvNodeSetBool(RvNodeLookUpByName(name), "sss_use_gi", false);
    }
    imageOf(2);
    int64_t RtStats::*const counted[] = { &RtStats::sss_distribution_ms,
                                          &RtStats::sss_irradiance_ms, &RtStats::sss_octree_ms,
                                          &RtStats::sss_pool_bytes };
    for (const auto time : counted)
        EXPECT_GT(sumOf([=](const RtStats& s) { return s.*time; }), 0);
    std::string lines;
    for (const std::string& line : takeLines())
        lines += line + "\n";
    for (const char* part : { "sss lookups:", "point clouds                       2\n",
                              "generated points", "stored points", "  sample distribution",
                              "  irradiance caching", "  octree build", "sss memory pools" })
        EXPECT_NE(lines.find(part), std::string::npos) << part;
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
    const auto clouds = [] { return sumOf([](const RtStats& s) { return s.sss_stored.objects; }); };
    const auto bytes = [] { return sumOf([](const RtStats& s) { return s.sss_bytes; }); };
    image_tools::film().on_write = [] { RvUniverseCacheFlush(0x2); };
    EXPECT_TRUE(areSame(imageOf(3), image));
    EXPECT_EQ(clouds(), 2);
    EXPECT_EQ(bytes(), 0); // dropped at its end
    image_tools::film().on_write = {};
    EXPECT_TRUE(areSame(imageOf(3), image));
    EXPECT_EQ(clouds(), 2);
    EXPECT_GT(bytes(), 0);
}
