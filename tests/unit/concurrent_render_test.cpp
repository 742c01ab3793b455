// Images rendered by many threads, and stops that arrive from other threads at any time.
#include "image_tools.h"
#include "rv_gi.h"
#include "rv_integrators.h"

#include <random>
#include <thread>

using namespace image_tools;

namespace {

class ConcurrentRender : public Image {
protected:
    // Shapes whose structures are built by the first worker that meets them, an image with
    // several samples for each pixel, and a filter that looks beyond the bucket.
    static void makeRichScene(int xres, int yres)
    {
        makeScene(xres, yres, "RGBA RGBA", "gaussian_filter");
        RtNode* const shader = RvNodeLookUpByName("shader");
        std::mt19937 random(1);
        std::uniform_real_distribution<float> uniform(-2, 2);
        for (int i = 0; i < 20; ++i) {
            RtNode* const sphere = RvNode("sphere");
            const RtPoint center = { uniform(random), uniform(random), -4 };
            RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, center));
            RvNodeSetArray(sphere, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 0.2));
            RvNodeSetArray(sphere, "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
        }
        set("AA_samples", 2);
        set("bucket_size", 16);
    }

    // Stops renders at random moments from another thread. Returns how many of each result came.
    static std::map<int, int> stopAtRandom(int renders, int threads)
    {
        std::map<int, int> results;
        std::mt19937 random(unsigned(threads) * 1000u);
        std::uniform_int_distribution<int> delay(0, 3000);
        for (int i = 0; i < renders; ++i) {
            set("threads", threads);
            const int microseconds = delay(random);
            const bool is_abort = i % 2;
            std::atomic<bool> is_started = false;
            std::thread host([&] {
                while (!is_started)
                    std::this_thread::yield();
                std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
                is_abort ? RvRenderAbort() : RvRenderInterrupt();
            });
            is_started = true;
            const int result = shoot();
            host.join();
            // A stop in the one-time set-up always counts as an abort.
            EXPECT_TRUE(result == RV_SUCCESS || result == RV_ABORT ||
                        (result == RV_INTERRUPT && !is_abort))
                << result;
            EXPECT_FALSE(RvRendering());
            EXPECT_EQ(session()->abort_flag, 0);
            EXPECT_EQ(film().opened, film().closed);
            EXPECT_GE(film().announced.size(), film().written.size());
            if (result == RV_SUCCESS) {
                EXPECT_EQ(missingPixels(), 0u);
            }
            ++results[result];
            takeLines();
        }
        return results;
    }
};

} // namespace

TEST_F(ConcurrentRender, concurrent_workers_give_the_same_image_bit_for_bit)
{
    makeRichScene(75, 61);
    const std::vector<RtRGBA> image = imageOf(1);
    ASSERT_EQ(missingPixels(), 0u);
    RvNodeSetArray(options(), "buckets", RvArrayAllocate(20, 1, RV_TYPE_POINT2));
    RtArray* const list = RvNodeGetArray(options(), "buckets");
    for (unsigned i = 0; i < 20; ++i)
        RvArraySetPnt2(list, i, (RtPoint2{ float(i % 5) * 16, float(i / 5) * 16 }));
    for (const char* order :
         { "top", "bottom", "left", "right", "random", "woven", "spiral", "hilbert", "list" }) {
        setText("bucket_scanning", order);
        for (int threads : { 1, 2, 3, 16 }) {
            EXPECT_TRUE(areSame(imageOf(threads), image)) << order << " " << threads;
            EXPECT_EQ(film().written.size(), 20u) << order << " " << threads;
        }
    }
}

TEST_F(ConcurrentRender, concurrent_workers_agree_on_light_that_bounces)
{
    makeRichScene(48, 40);
    for (const char* option :
         { "GI_diffuse_samples", "GI_glossy_samples", "GI_diffuse_depth", "GI_glossy_depth" })
        set(option, 2);
    onShade() = [](RtShaderGlobals* sg) {
        const RtRGB diffuse = RvIndirectDiffuse(&sg->facing_normal, sg);
        const RtRGB glossy = RvStretchedPhongIntegrate(&sg->facing_normal, sg, 10);
        sg->out.RGBA = { diffuse.r, glossy.g, diffuse.b + sg->bary_u, 1 };
    };
    const std::vector<RtRGBA> image = imageOf(1);
    ASSERT_EQ(missingPixels(), 0u);
    setText("bucket_scanning", "random");
    for (int threads : { 2, 3, 16 })
        EXPECT_TRUE(areSame(imageOf(threads), image)) << threads;
}

TEST_F(ConcurrentRender, concurrent_first_renders_agree_on_structures_that_nobody_has_built)
{
    std::vector<RtRGBA> image;
    for (int threads : { 1, 16, 3 }) {
        startAnew();
        makeRichScene(40, 40);
        const std::vector<RtRGBA> now = imageOf(threads);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
    }
}

TEST_F(ConcurrentRender, concurrent_stops_leave_a_universe_that_renders)
{
    makeRichScene(32, 32);
    const std::vector<RtRGBA> image = imageOf(1);
    std::map<int, int> results;
    for (int threads : { 1, 2, 8, 16 })
        for (const auto& [result, count] : stopAtRandom(250, threads))
            results[result] += count;
    EXPECT_GT(results[RV_ABORT], 0) << "some requests hit their render";
    EXPECT_GT(results[RV_INTERRUPT], 0);
    EXPECT_TRUE(areSame(imageOf(3), image)) << "and no later one";
}

TEST_F(ConcurrentRender, concurrent_stops_reach_first_renders_in_every_phase)
{
    std::map<int, int> results;
    for (int i = 0; i < 40; ++i) {
        startAnew();
        makeRichScene(30, 30);
        for (const auto& [result, count] : stopAtRandom(1, 1 + i % 8))
            results[result] += count;
        EXPECT_EQ(shoot(), RV_SUCCESS) << i;
        EXPECT_EQ(missingPixels(), 0u) << i;
    }
}
