// Tests of the bucket renderer: the geometry of buckets, its workers, stops, messages, statistics
// and what it makes of unusual images.
#include "buckets.h"

#include "golden.h"
#include "image_tools.h"
#include "message_passing.h"
#include "rv_gi.h"
#include "rv_integrators.h"
#include "sampling.h"
#include "system/clock.h"

#include <pthread.h>
#include <set>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace image_tools;
using nlohmann::json;
using render_tools::actions;

namespace {

rv::ImageGeometry regionOf(const json& region)
{
    rv::ImageGeometry image = {};
    image.region_min_x = region[0];
    image.region_min_y = region[1];
    image.region_max_x = region[2];
    image.region_max_y = region[3];
    return image;
}

RtBucket bucketOf(const json& b) { return { 0, 0, b[0], b[1], b[2], b[3] }; }

int scanningOf(const std::string& name)
{
    RtNode* const options = RvUniverseGetOptions();
    RvNodeSetStr(options, "bucket_scanning", name.c_str());
    return RvNodeGetInt(options, "bucket_scanning");
}

// The buckets of a region that have pixels, in order.
std::vector<RtBucket> bucketsOf(const json& in)
{
    const rv::ImageGeometry image = regionOf(in["region"]);
    const int size = in["bucket_size"];
    RtArray* list = nullptr;
    if (in.contains("buckets")) {
        list = RvArrayAllocate(unsigned(in["buckets"].size()), 1, RV_TYPE_POINT2);
        for (unsigned i = 0; i < in["buckets"].size(); ++i)
            RvArraySetPnt2(
                list, i,
                (RtPoint2{ goldenFloat(in["buckets"][i][0]), goldenFloat(in["buckets"][i][1]) }));
    }
    const rv::BucketGrid grid = { image.region_min_x, image.region_min_y, size,
                                  rv::gridCount(image.region_max_x - image.region_min_x + 1, size),
                                  rv::gridCount(image.region_max_y - image.region_min_y + 1,
                                                size) };
    std::vector<RtBucket> buckets;
    rv::BucketOrder order(scanningOf(in["bucket_scanning"]), grid, list);
    RtBucket bucket;
    while (order.next(&bucket)) {
        bucket = rv::clipBucket(bucket, image);
        if (bucket.width && bucket.height)
            buckets.push_back(bucket);
    }
    RvArrayDestroy(list);
    return buckets;
}

class Buckets : public Image {
protected:
    void TearDown() override
    {
        rv::create_worker_thread = RvThreadCreate;
        Image::TearDown();
    }

    // Lines from the bucket phase to the end of the render.
    static Names phaseLines()
    {
        const Names lines = takeLines();
        const auto first = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("bucket workers") != std::string::npos;
        });
        const auto last = std::find(first, lines.end(), "0 render done");
        return { first, last == lines.end() ? last : last + 1 };
    }
};

} // namespace

// ---- Geometry ----

TEST(BucketGeometry, clipping_matches_the_golden_numbers)
{
    for (const json& v : goldenVectors("render", "clip_bucket")) {
        const RtBucket bucket =
            rv::clipBucket(bucketOf(v["in"]["bucket"]), regionOf(v["in"]["region"]));
        expectGolden(v, "x", bucket.x);
        expectGolden(v, "y", bucket.y);
        expectGolden(v, "width", bucket.width);
        expectGolden(v, "height", bucket.height);
    }
}

TEST(BucketGeometry, clipping_never_leaves_less_than_nothing)
{
    static const struct {
        const char* name;
        RtBucket bucket;
        int region[4];
        Rect clipped;
    } cases[] = {
        { "inside", { 0, 0, 64, 64, 64, 64 }, { 0, 0, 199, 199 }, { 64, 64, 64, 64 } },
        { "last column and row", { 0, 0, 64, 64, 64, 64 }, { 0, 0, 99, 99 }, { 64, 64, 36, 36 } },
        { "around the region", { 0, 0, -9, -9, 64, 64 }, { 3, 4, 5, 6 }, { 3, 4, 3, 3 } },
        { "right of it", { 0, 0, 100, 0, 64, 64 }, { 0, 0, 99, 99 }, { 100, 0, 0, 64 } },
        { "below it", { 0, 0, 0, 100, 64, 64 }, { 0, 0, 99, 99 }, { 0, 100, 64, 0 } },
        { "reversed region", { 0, 0, 20, 20, 64, 64 }, { 40, 40, 30, 30 }, { 40, 40, 0, 0 } },
        { "far corner",
          { 0, 0, INT_MAX, INT_MAX, INT_MAX, INT_MAX },
          { 0, 0, INT_MAX - 1, INT_MAX - 1 },
          { INT_MAX, INT_MAX, 0, 0 } },
        { "near corner",
          { 0, 0, INT_MIN, INT_MIN, INT_MAX, INT_MAX },
          { 0, 0, 9, 9 },
          { INT_MIN, INT_MIN, 0, 0 } },
    };
    for (const auto& c : cases) {
        const RtBucket b = rv::clipBucket(
            c.bucket, regionOf(json{ c.region[0], c.region[1], c.region[2], c.region[3] }));
        EXPECT_EQ((Rect{ b.x, b.y, b.width, b.height }), c.clipped) << c.name;
    }
}

TEST(BucketGeometry, windows_match_the_golden_numbers)
{
    for (const json& v : goldenVectors("render", "pixel_window")) {
        const json& in = v["in"];
        const rv::PixelWindow window =
            rv::pixelWindow(bucketOf(in["bucket"]), in["pad"], in["AA_samples"]);
        expectGolden(v, "start", json{ window.min_x, window.min_y });
        expectGolden(v, "stride", window.stride);
        expectGolden(v, "samples_per_pixel", window.samples);
    }
}

TEST(BucketGeometry, windows_are_widened_to_the_padding_and_the_stride)
{
    static const struct {
        const char* name;
        RtBucket bucket;
        int padding, AA_samples;
        rv::PixelWindow window;
    } cases[] = {
        { "plain", { 0, 0, 64, 0, 64, 36 }, 0, 1, { 64, 0, 64, 36, 1, 1 } },
        { "padded", { 0, 0, 64, 0, 64, 36 }, 3, 4, { 61, -3, 70, 42, 1, 16 } },
        { "aligned stride", { 0, 0, 64, 0, 64, 64 }, 0, -3, { 64, 0, 64, 64, 8, 1 } },
        { "stride", { 0, 0, 5, 7, 64, 64 }, 0, -3, { 0, 0, 72, 72, 8, 1 } },
        { "stride and padding", { 0, 0, 0, 0, 8, 8 }, 1, -2, { -4, -4, 16, 16, 4, 1 } },
        { "stride beyond the image",
          { 0, 0, 5, 7, 64, 64 },
          0,
          -30,
          { 0, 0, 1 << 30, 1 << 30, 1 << 30, 1 } },
        { "the longest stride",
          { 0, 0, 5, 7, 64, 64 },
          0,
          INT_MIN,
          { 0, 0, 1 << 30, 1 << 30, 1 << 30, 1 } },
        { "no more samples than a table holds",
          { 0, 0, 0, 0, 1, 1 },
          0,
          INT_MAX,
          { 0, 0, 1, 1, 1, int(rv::max_table_points) } },
    };
    for (const auto& c : cases) {
        const rv::PixelWindow w = rv::pixelWindow(c.bucket, c.padding, c.AA_samples);
        EXPECT_EQ((Rect{ w.min_x, w.min_y, w.width, w.height }),
                  (Rect{ c.window.min_x, c.window.min_y, c.window.width, c.window.height }))
            << c.name;
        EXPECT_EQ(w.stride, c.window.stride) << c.name;
        EXPECT_EQ(w.samples, c.window.samples) << c.name;
    }
}

TEST(BucketGeometry, packet_tiles_match_the_golden_numbers)
{
    for (const json& v : goldenVectors("render", "packet_tile"))
        expectGolden(v, "t", rv::packetTile(v["in"]["AA_sampling_dither"]));
    EXPECT_EQ(rv::packetTile(1), 2);
    EXPECT_EQ(rv::packetTile(6), 8);
}

TEST(BucketProgress, rays_per_pixel_match_the_golden_numbers)
{
    for (const json& v : goldenVectors("render", "rays_per_pixel"))
        expectGolden(v, "value", rv::raysPerPixel(v["in"]["rays"], v["in"]["pixels"]));
}

TEST_F(Buckets, sequences_match_the_golden_ones)
{
    for (const json& v : goldenVectors("render", "bucket_sequence")) {
        set("AA_seed", v["in"].value("AA_seed", 1));
        json sequence = json::array();
        for (const RtBucket& b : bucketsOf(v["in"]))
            sequence.push_back({ b.x, b.y, b.width, b.height });
        expectGolden(v, "buckets", sequence);
    }
}

TEST_F(Buckets, progress_matches_the_golden_lines)
{
    for (const json& v : goldenVectors("render", "progress_lines")) {
        const rv::ImageGeometry image = regionOf(v["in"]["region"]);
        rv::Progress progress(int64_t{ image.region_max_x - image.region_min_x + 1 } *
                              (image.region_max_y - image.region_min_y + 1));
        json percentages = json::array(), starts = json::array();
        for (const RtBucket& bucket : bucketsOf(v["in"])) {
            const int percentage = progress.add(int64_t{ bucket.width } * bucket.height);
            if (percentage < 0)
                continue;
            percentages.push_back(percentage);
            starts.push_back(node_tools::formatted("%3d%% done - ", percentage));
        }
        expectGolden(v, "percentages", percentages);
        expectGolden(v, "lines_start", starts);
    }
}

TEST(BucketProgress, every_multiple_of_5_comes_at_most_once)
{
    static const struct {
        const char* name;
        int64_t total, step;
        std::vector<int> percentages;
    } cases[] = {
        { "at once", 100, 100, { 100 } },
        { "thirds", 99, 33, { 30, 65, 100 } },
        { "quarters", 100, 25, { 25, 50, 75, 100 } },
        { "an image of 10 million by 1000", 10'000'000'000, 5'000'000'000, { 50, 100 } },
    };
    for (const auto& c : cases) {
        rv::Progress progress(c.total);
        std::vector<int> percentages;
        for (int64_t done = 0; done < c.total; done += c.step)
            if (const int percentage = progress.add(c.step); percentage >= 0)
                percentages.push_back(percentage);
        EXPECT_EQ(percentages, c.percentages) << c.name;
    }
}

TEST(BucketProgress, a_list_that_repeats_buckets_passes_100)
{
    rv::Progress progress(4);
    EXPECT_EQ(progress.add(4), 100);
    EXPECT_EQ(progress.add(4), 200);
    EXPECT_GT(progress.add(INT64_MAX / 4), 200) << "and beyond what an integer holds";
}

// ---- The phase ----

TEST_F(Buckets, an_image_is_announced_and_written_bucket_by_bucket_in_order)
{
    makeScene(100, 100);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const std::vector<Rect> buckets = {
        { 64, 0, 36, 64 }, { 0, 0, 64, 64 }, { 0, 64, 64, 36 }, { 64, 64, 36, 36 }
    };
    EXPECT_EQ(film().announced, buckets);
    EXPECT_EQ(film().written, buckets);
    EXPECT_EQ(film().opened, 1);
    EXPECT_EQ(film().closed, 1);
    EXPECT_EQ(missingPixels(), 0u);
}

TEST_F(Buckets, the_phase_reports_its_start_its_progress_and_its_end)
{
    makeScene(100, 100);
    set("bucket_size", 50);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(phaseLines(), (Names{ "1 starting 1 bucket workers of size 50x50 ...",
                                    "2  25% done - 1 rays/pixel", "2  50% done - 1 rays/pixel",
                                    "2  75% done - 1 rays/pixel", "2 100% done - 1 rays/pixel",
                                    "1 bucket workers done in *", "0 render done" }));
}

TEST_F(Buckets, progress_appears_at_multiples_of_5_from_0_on)
{
    makeScene(640, 16);
    set("bucket_size", 16);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    Names percentages;
    for (const std::string& line : takeLines())
        if (const size_t at = line.find("% done"); at != std::string::npos)
            percentages.push_back(line.substr(2, at - 2));
    EXPECT_EQ(percentages,
              (Names{ "  0", "  5", " 10", " 15", " 20", " 25", " 30", " 35", " 40", " 45", " 50",
                      " 55", " 60", " 65", " 70", " 75", " 80", " 85", " 90", " 95", "100" }));
}

TEST_F(Buckets, every_order_gives_every_bucket_once_and_the_same_image)
{
    makeScene(70, 50);
    set("bucket_size", 16);
    const std::vector<RtRGBA> image = imageOf(1);
    std::vector<std::vector<Rect>> orders;
    for (const char* order :
         { "top", "bottom", "left", "right", "random", "woven", "spiral", "hilbert" }) {
        setText("bucket_scanning", order);
        EXPECT_TRUE(areSame(imageOf(1), image)) << order;
        EXPECT_EQ(film().written.size(), 20u) << order;
        for (const std::vector<Rect>& other : orders)
            EXPECT_NE(film().announced, other) << order;
        orders.push_back(film().announced);
    }
}

TEST_F(Buckets, a_list_renders_the_buckets_of_its_points_alone)
{
    makeScene(128, 64);
    setText("bucket_scanning", "list");
    RvNodeSetArray(options(), "buckets",
                   RvArray(2, 1, RV_TYPE_POINT2, RtPoint2{ 500, 10 }, RtPoint2{ 70, 10 }));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(film().written, (std::vector<Rect>{ { 64, 0, 64, 64 } }));
    EXPECT_EQ(missingPixels(), 64u * 64);
    RvNodeSetArray(options(), "buckets", RvArray(0, 1, RV_TYPE_POINT2));
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_TRUE(film().announced.empty());
}

TEST_F(Buckets, a_list_of_another_type_is_reported_before_the_workers_start)
{
    makeScene(32, 32);
    setText("bucket_scanning", "list");
    // What the setters refuse: the array of the node itself.
    RtArray* const mistyped = RvArray(1, 1, RV_TYPE_FLOAT, 0.0);
    RtArray* const list = std::exchange(rv::render_options->buckets, mistyped);
    setFlag("abort_on_error", false);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_NE(takeProblems().find("RvArrayGetPnt2Func: array-type does not match request-type"),
              std::string::npos);
    setFlag("abort_on_error", true);
    EXPECT_EQ(shoot(), RV_ABORT);
    rv::render_options->buckets = list;
    RvArrayDestroy(mistyped);
}

TEST_F(Buckets, a_region_is_all_that_is_rendered)
{
    makeScene(320, 240);
    setRegion(10, 10, 19, 29);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(film().written, (std::vector<Rect>{ { 10, 10, 10, 20 } }));
    EXPECT_EQ(missingPixels(), 320u * 240 - 200);
    EXPECT_EQ(pixelsRendered(), 200);
}

// ---- Pixels and samples ----

TEST_F(Buckets, every_pixel_takes_the_square_of_AA_samples)
{
    static const struct {
        int AA_samples, samples;
    } cases[] = { { 0, 1 }, { 1, 1 }, { 2, 4 }, { 5, 25 } };
    makeScene(20, 10);
    for (const auto& c : cases) {
        set("AA_samples", c.AA_samples);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(pixelsRendered(), 200) << c.AA_samples;
        EXPECT_EQ(samplesRendered(), 200 * c.samples) << c.AA_samples;
        EXPECT_EQ(raysTraced(), 200 * c.samples) << c.AA_samples;
    }
}

TEST_F(Buckets, the_border_that_filters_need_is_rendered_and_counted)
{
    makeScene(40, 16, "RGBA RGBA", "gaussian_filter");
    RvNodeSetFlt(RvNodeLookUpByName("filter"), "width", 4);
    set("bucket_size", 20);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    const int padding = 2;
    EXPECT_EQ(pixelsRendered(), 2 * (20 + 2 * padding) * (16 + 2 * padding));
}

TEST_F(Buckets, negative_AA_samples_take_one_sample_for_a_block_of_pixels)
{
    makeScene(40, 24);
    set("bucket_size", 20);
    set("AA_samples", -2);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(pixelsRendered(), 2 * (20 / 4) * (20 / 4) + 2 * (20 / 4) * (4 / 4));
    EXPECT_EQ(missingPixels(), 0u);
    for (size_t y = 0; y < 24; ++y)
        for (size_t x = 0; x < 40; ++x) {
            const RtRGBA& pixel = film().pixels[y * 40 + x];
            const RtRGBA& first = film().pixels[y / 4 * 4 * 40 + x / 4 * 4];
            EXPECT_EQ(memcmp(&pixel, &first, sizeof pixel), 0) << x << " " << y;
        }
    const RtRGBA &a = film().pixels[0], &b = film().pixels[4 * 40];
    EXPECT_NE(memcmp(&a, &b, sizeof a), 0) << "other blocks look different";
}

TEST_F(Buckets, blocks_that_buckets_cut_are_rendered_for_each_of_them)
{
    makeScene(40, 16);
    set("bucket_size", 20);
    set("AA_samples", -3);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(pixelsRendered(), (3 + 3) * 2) << "columns 0 to 23 and 16 to 39";
    EXPECT_EQ(missingPixels(), 0u);
    for (int AA_samples : { -20, -30, -31, INT_MIN }) {
        set("AA_samples", AA_samples);
        EXPECT_EQ(shoot(), RV_SUCCESS) << AA_samples;
        EXPECT_EQ(pixelsRendered(), 2) << AA_samples;
        EXPECT_EQ(missingPixels(), 0u) << AA_samples;
    }
}

TEST_F(Buckets, rays_without_weight_are_not_traced)
{
    makeScene(40, 40);
    RtNode* const fisheye = node_tools::named("fisheye_camera", "fisheye");
    RvNodeSetPtr(options(), "camera", fisheye);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(samplesRendered(), 1600);
    EXPECT_NEAR(double(raysTraced()), 1600 * 3.14159 / 4, 40) << "the image circle";
    const RtRGBA& corner = film().pixels[0];
    EXPECT_TRUE(corner.r == 0 && corner.g == 0 && corner.b == 0);
    EXPECT_EQ(missingPixels(), 0u);
}

TEST_F(Buckets, the_measures_of_samples_reach_the_outputs_that_ask_for_them)
{
    makeScene(16, 16, "raycount FLOAT");
    onShade() = [](RtShaderGlobals* sg) {
        if (!(sg->ray_type & RV_RAY_CAMERA))
            return;
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_REFLECTED, &sg->point, &sg->normal, RV_BIG, sg);
        RtScrSample sample;
        RvTrace(&ray, &sample);
        for (const uint64_t start = rv::threadProcessorNanoseconds();
             rv::threadProcessorNanoseconds() - start < 200'000;) {
        }
    };
    set("GI_reflection_depth", 1);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(film().pixels[0].r, 2);
    setOutput("cputime FLOAT");
    EXPECT_EQ(shoot(), RV_SUCCESS);
    for (const RtRGBA& pixel : film().pixels) {
        EXPECT_GE(pixel.r, 200) << "microseconds";
        EXPECT_LT(pixel.r, 2e6f);
    }
}

TEST_F(Buckets, packets_render_the_same_image_in_tiles)
{
    makeScene(70, 40);
    set("AA_samples", 2);
    set("bucket_size", 32);
    const std::vector<RtRGBA> image = imageOf(1);
    setFlag("packet_tracing", true);
    for (int dither : { 0, 1, 2, 4, 6 }) {
        set("AA_sampling_dither", dither);
        set("bucket_size", 32);
        std::vector<std::pair<int, int>> visited;
        onShade() = [&](RtShaderGlobals* sg) {
            const std::pair<int, int> pixel(sg->pixel_x, sg->pixel_y);
            if (visited.empty() || visited.back() != pixel)
                visited.push_back(pixel);
        };
        EXPECT_TRUE(areSame(imageOf(1), image)) << dither;
        EXPECT_EQ(pixelsRendered(), 70 * 40);
        const int tile = rv::packetTile(dither);
        const Rect& first = film().announced.front();
        for (int i = 0; i < tile * tile && tile <= first.width; ++i)
            EXPECT_EQ(visited[size_t(i)], (std::pair{ first.x + i % tile, first.y + i / tile }))
                << dither;
    }
    onShade() = {}; // which watches one thread
    EXPECT_TRUE(areSame(imageOf(3), image));
    set("AA_samples", -2);
    const std::vector<RtRGBA> coarse = imageOf(1);
    setFlag("packet_tracing", false);
    EXPECT_TRUE(areSame(imageOf(1), coarse));
}

TEST_F(Buckets, packets_do_without_the_tables_of_light_that_they_do_not_make)
{
    makeScene(24, 16);
    set("AA_samples", 2);
    for (const char* samples : { "GI_diffuse_samples", "GI_glossy_samples" })
        set(samples, 2);
    for (const char* depth : { "GI_diffuse_depth", "GI_glossy_depth" })
        set(depth, 1);
    bool is_finite = true;
    onShade() = [&](RtShaderGlobals* sg) {
        if (sg->ray_depth)
            return;
        const RtRGB diffuse = RvIndirectDiffuse(&sg->facing_normal, sg);
        const RtRGB glossy = RvStretchedPhongIntegrate(&sg->facing_normal, sg, 10);
        for (float value : { diffuse.r, diffuse.g, diffuse.b, glossy.r, glossy.g, glossy.b })
            is_finite = is_finite && std::isfinite(value);
    };
    for (bool packet_tracing : { false, true }) {
        setFlag("packet_tracing", packet_tracing);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(session()->sample_tables, nullptr) << "they end with the render";
        EXPECT_GT(raysTraced(), 24 * 16 * 4) << "secondary rays are traced";
        EXPECT_EQ(missingPixels(), 0u);
    }
    EXPECT_TRUE(is_finite);
    EXPECT_EQ(takeProblems(), "");
}

// ---- What a sample leaves behind ----

TEST_F(Buckets, scratch_memory_is_given_back_after_every_sample)
{
    makeScene(16, 16);
    set("AA_samples", 2);
    std::set<void*> places;
    bool is_aligned = true;
    onShade() = [&](RtShaderGlobals* sg) {
        void* const memory = RvShaderGlobalsQuickAlloc(sg, 1000);
        is_aligned = is_aligned && memory;
        places.insert(memory);
        RvMemPoolAlloc(100, rv::the_frame->thread_slots[sg->thread_index].pools[1]);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_TRUE(is_aligned);
    EXPECT_EQ(places.size(), 1u) << "every sample starts at the same place";
    const RtThreadSlot& slot = session()->thread_slots[0];
    EXPECT_EQ(slot.shading_pool->reset_count, 16u * 16 * 4 + 1) << "and every bucket";
    EXPECT_EQ(slot.pools[1]->block_count, 1u);
    EXPECT_EQ(stats(0).pool_bytes,
              int64_t(slot.shading_pool->bytes_total + slot.pools[0]->bytes_total +
                      slot.pools[1]->bytes_total));
}

TEST_F(Buckets, messages_of_shaders_do_not_outlive_their_sample)
{
    makeScene(16, 16);
    set("AA_samples", 2);
    int found = 0, set_count = 0;
    onShade() = [&](RtShaderGlobals* sg) {
        int value;
        found += RvMessageGetIntFunc(sg, "seen", &value);
        set_count += RvMessageSetIntFunc(sg, "seen", 1);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(set_count, 16 * 16 * 4);
    EXPECT_EQ(session()->thread_slots[0].messages->count, 0u);
}

TEST_F(Buckets, samples_take_nothing_from_the_heap)
{
    makeScene(16, 16);
    set("AA_samples", 3);
    setFlag("abort_on_error", false);
    int shaded = 0;
    onShade() = [&](RtShaderGlobals*) {
        ++shaded;
        if (shaded == 16 * 12 * 9) // all structures are built by then
            rv::limitAllocations(0);
        if (shaded == 16 * 16 * 9)
            rv::limitAllocations(-1);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(shaded, 16 * 16 * 9);
    EXPECT_EQ(takeProblems(), "");
    EXPECT_EQ(missingPixels(), 0u);
}

// ---- Statistics ----

TEST_F(Buckets, the_phase_is_timed_and_the_memory_is_noted)
{
    makeScene(16, 16);
    onShade() = [](RtShaderGlobals* sg) {
        if (sg->pixel_x == 0 && sg->pixel_y == 0)
            usleep(30000);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_GE(rv::hostStats()->bucket_ms, 25);
    EXPECT_LT(rv::hostStats()->bucket_ms, 60000);
    EXPECT_GT(stats(0).peak_bytes, int64_t{ 1 } << 20);
    EXPECT_EQ(rv::hostStats()->pixels, 0u) << "a worker slot counts them";
}

TEST_F(Buckets, counts_are_those_of_the_latest_render)
{
    makeScene(16, 16);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(pixelsRendered(), 256);
    }
}

// ---- Threads ----

TEST_F(Buckets, one_thread_is_the_calling_one)
{
    makeScene(16, 16);
    const std::thread::id caller = std::this_thread::get_id();
    std::set<int> slots;
    onShade() = [&](RtShaderGlobals* sg) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        slots.insert(sg->thread_index);
        slots.insert(rv::stats_slot);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(slots, std::set{ 0 });
    EXPECT_EQ(rv::stats_slot, rv::host_stats_slot) << "the caller is the host again";
    EXPECT_EQ(film().threads, std::vector{ 0 });
}

TEST_F(Buckets, workers_are_other_threads_with_slots_of_their_own)
{
    makeScene(256, 64);
    set("bucket_size", 16);
    set("threads", 4);
    const std::thread::id caller = std::this_thread::get_id();
    std::mutex lock;
    std::map<int, std::set<std::thread::id>> threads;
    std::atomic<int> waiting = 4;
    onShade() = [&](RtShaderGlobals* sg) {
        if (sg->pixel_x % 16 || sg->pixel_y % 16)
            return;
        EXPECT_EQ(int(sg->thread_index), rv::stats_slot);
        for (--waiting; waiting > 0;) // until all of them work
            std::this_thread::yield();
        const std::lock_guard<std::mutex> guard(lock);
        threads[sg->thread_index].insert(std::this_thread::get_id());
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    ASSERT_EQ(threads.size(), 4u);
    for (const auto& [slot, ids] : threads) {
        EXPECT_LT(slot, 4);
        EXPECT_EQ(ids.size(), 1u) << slot;
        EXPECT_FALSE(ids.count(caller)) << slot;
        EXPECT_GT(stats(slot).pixels, 0u);
    }
    EXPECT_EQ(missingPixels(), 0u);
    EXPECT_TRUE(contains(takeLines(), "1 starting 4 bucket workers of size 16x16 ..."));
}

TEST_F(Buckets, workers_have_the_priority_that_the_option_asks_for)
{
    static const struct {
        const char* name;
        int nice_value;
    } cases[] = { { "lowest", 19 }, { "low", 10 }, { "normal", 0 } };
    makeScene(32, 16);
    set("bucket_size", 16);
    set("threads", 2);
    const int before = getpriority(PRIO_PROCESS, 0);
    for (const auto& c : cases) {
        std::atomic<int> found = INT_MIN;
        onShade() = [&](RtShaderGlobals*) { found = getpriority(PRIO_PROCESS, id_t(gettid())); };
        setText("thread_priority", c.name);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(found, std::max(c.nice_value, before)) << c.name;
    }
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before) << "the caller keeps its own";
}

TEST_F(Buckets, threads_that_cannot_be_created_leave_the_work_to_the_others)
{
    static int created;
    const auto createSome = [](unsigned (*function)(void*), void* data, int priority) {
        // The platform's own refusal: no function to run.
        return RvThreadCreate(created++ % 2 ? function : nullptr, data, priority);
    };
    makeScene(64, 64);
    const std::vector<RtRGBA> image = imageOf(1);
    set("bucket_size", 16);
    setFlag("abort_on_error", false);
    rv::create_worker_thread = createSome;
    created = 0;
    EXPECT_TRUE(areSame(imageOf(4), image));
    EXPECT_EQ(takeProblems(), "E thread creation failed | E thread creation failed");
    for (int thread : film().threads)
        EXPECT_TRUE(thread == 1 || thread == 3) << thread;
}

TEST_F(Buckets, without_any_thread_nothing_is_rendered)
{
    makeScene(32, 32);
    set("threads", 2);
    rv::create_worker_thread = [](unsigned (*)(void*), void* data, int priority) {
        return RvThreadCreate(nullptr, data, priority);
    };
    setFlag("abort_on_error", false);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), "E thread creation failed | E thread creation failed");
    EXPECT_TRUE(film().announced.empty());
    EXPECT_EQ(film().closed, 1);
    setFlag("abort_on_error", true);
    EXPECT_EQ(shoot(), RV_ABORT) << "the error stops the render";
    EXPECT_EQ(takeProblems(),
              "E thread creation failed | E thread creation failed | W render terminating early:  "
              "received abort signal");
}

TEST_F(Buckets, samples_that_no_store_can_hold_are_reported)
{
    makeScene(32, 32, "RGBA RGBA", "gaussian_filter");
    // 60,032 by 60,032 pixels with the border that the filter reaches.
    RvNodeSetFlt(RvNodeLookUpByName("filter"), "width", 60000);
    set("AA_samples", 1);
    setFlag("abort_on_error", false);
    for (int threads : { 1, 2 }) {
        set("threads", threads);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        const std::string problems = takeProblems();
        EXPECT_NE(problems.find("E no bucket was rendered: its samples do not fit into memory; use "
                                "smaller buckets, narrower filters or fewer AA samples"),
                  std::string::npos)
            << problems;
        EXPECT_TRUE(film().announced.empty());
    }
    setFlag("abort_on_error", true);
    EXPECT_EQ(shoot(), RV_ABORT);
    takeProblems();
}

// Procedurals bring lights while other threads walk the list.
TEST_F(Buckets, lights_made_while_buckets_render_shine_from_the_next_render_on)
{
    makeScene(32, 32);
    RvNode("point_light");
    std::vector<int> counts;
    onShade() = [&counts](RtShaderGlobals* sg) {
        if (counts.empty())
            for (int i = 0; i < 100; ++i)
                RvNode("point_light");
        counts.push_back(sg->light_count);
    };
    set("threads", 1);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(std::set<int>(counts.begin(), counts.end()), std::set<int>{ 1 });
    onShade() = [&counts](RtShaderGlobals* sg) { counts.push_back(sg->light_count); };
    counts.clear();
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(std::set<int>(counts.begin(), counts.end()), std::set<int>{ 101 });
}

TEST_F(Buckets, options_that_change_while_nodes_are_prepared_never_exceed_the_slots)
{
    makeScene(64, 64);
    installActor();
    RvNode("actor");
    actions().update = [](RtNode*) {
        set("threads", 1000);
        set("bucket_size", -5);
        set("bucket_scanning", 77);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(missingPixels(), 0u);
    for (int thread : film().threads)
        EXPECT_LT(thread, 64);
    actions().update = [](RtNode*) { RvNodeSetPtr(options(), "camera", nullptr); };
    EXPECT_EQ(shoot(), RV_SUCCESS) << "no camera makes no rays";
    EXPECT_EQ(raysTraced(), 0);
}

TEST_F(Buckets, a_room_of_mirrors_fits_the_stack_of_a_worker)
{
    makeScene(64, 16);
    RtNode* const room = node_tools::named("sphere", "room");
    RvNodeSetArray(room, "radius", RvArray(1, 1, RV_TYPE_FLOAT, 50.0));
    RvNodeSetArray(room, "shader", RvArray(1, 1, RV_TYPE_NODE, RvNodeLookUpByName("shader")));
    set("bucket_size", 16);
    set("threads", 2);
    for (const char* option : { "GI_total_depth", "GI_reflection_depth" })
        set(option, 100);
    std::atomic<int> deepest = 0;
    std::atomic<size_t> stack_used = 0, least_stack = SIZE_MAX;
    static thread_local const char* outermost; // a local of the first shader of a ray tree
    onShade() = [&](RtShaderGlobals* sg) {
        const char here = 0;
        if (sg->ray_depth == 0) {
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            size_t bytes = 0;
            pthread_attr_getstacksize(&attributes, &bytes);
            pthread_attr_destroy(&attributes);
            least_stack = std::min(least_stack.load(), bytes);
            outermost = &here;
        }
        deepest = std::max<int>(deepest, sg->ray_depth);
        stack_used = std::max(stack_used.load(), size_t(outermost - &here));
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_REFLECTED, &sg->point, &sg->facing_normal, RV_BIG, sg);
        RtScrSample sample;
        RvTrace(&ray, &sample);
    };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(missingPixels(), 0u);
    EXPECT_GE(deepest, 99);
    EXPECT_GE(least_stack, size_t{ 8 } << 20);
    EXPECT_LT(stack_used * 4, least_stack) << "and three quarters stay free";
    RecordProperty("stack_bytes_of_100_bounces", int(stack_used));
}

// ---- Stops ----

TEST_F(Buckets, a_stop_before_the_launch_starts_no_worker)
{
    makeScene(32, 32);
    film().on_open = RvRenderAbort;
    EXPECT_EQ(shoot(), RV_ABORT);
    EXPECT_EQ(takeProblems(), "W failed to launch bucket workers:  received abort signal");
    EXPECT_TRUE(film().announced.empty());
    EXPECT_EQ(film().closed, 1);
    film().on_open = RvRenderInterrupt;
    EXPECT_EQ(shoot(), RV_INTERRUPT);
    const Names lines = takeLines();
    EXPECT_TRUE(contains(lines, "0 render done"));
    for (const std::string& line : lines)
        EXPECT_EQ(line.find("bucket workers"), std::string::npos) << line;
    EXPECT_TRUE(film().announced.empty());
    film().on_open = {};
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(missingPixels(), 0u);
}

TEST_F(Buckets, a_stop_ends_the_workers_after_their_bucket)
{
    static const struct {
        void (*request)();
        int result;
        const char* problem;
    } cases[] = {
        { RvRenderAbort, RV_ABORT, "W render terminating early:  received abort signal" },
        { RvRenderInterrupt, RV_INTERRUPT, "" },
    };
    makeScene(64, 64);
    set("bucket_size", 16);
    for (const auto& c : cases) {
        film().on_write = [&] {
            if (film().written.size() == 3)
                c.request();
        };
        EXPECT_EQ(shoot(), c.result);
        EXPECT_EQ(takeProblems(), c.problem);
        EXPECT_EQ(film().written.size(), 3u);
        EXPECT_EQ(film().announced.size(), 3u);
        EXPECT_EQ(film().closed, 1);
    }
    film().on_write = {};
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(missingPixels(), 0u);
}

TEST_F(Buckets, the_pixel_loop_stops_at_the_next_row)
{
    makeScene(64, 64);
    int shaded = 0;
    onShade() = [&](RtShaderGlobals* sg) {
        ++shaded;
        if (sg->pixel_y == 9 && sg->pixel_x == 5)
            RvRenderInterrupt();
    };
    EXPECT_EQ(shoot(), RV_INTERRUPT);
    EXPECT_EQ(shaded, 10 * 64);
    EXPECT_EQ(pixelsRendered(), 10 * 64);
}

TEST_F(Buckets, partial_buckets_are_delivered_unless_the_option_forbids_it)
{
    makeScene(64, 64);
    onShade() = [&](RtShaderGlobals* sg) {
        if (sg->pixel_y == 9)
            RvRenderAbort();
    };
    EXPECT_EQ(shoot(), RV_ABORT);
    EXPECT_EQ(film().written.size(), 1u);
    EXPECT_EQ(missingPixels(), 0u);
    EXPECT_GT(film().pixels[9 * 64].a, 0);
    EXPECT_EQ(film().pixels[10 * 64].a, 0) << "rows that were not rendered are black";
    setFlag("flush_buckets_on_halt", false);
    EXPECT_EQ(shoot(), RV_ABORT);
    EXPECT_EQ(film().announced.size(), 1u);
    EXPECT_TRUE(film().written.empty());
    EXPECT_EQ(missingPixels(), 64u * 64);
}

TEST_F(Buckets, an_error_stops_the_render_when_the_option_says_so)
{
    makeScene(64, 64);
    set("bucket_size", 16);
    onShade() = [&](RtShaderGlobals* sg) {
        if (sg->pixel_x == 0 && sg->pixel_y == 0)
            RvMsgError("broken");
    };
    EXPECT_EQ(shoot(), RV_ABORT);
    EXPECT_EQ(takeProblems(), "E broken | W render terminating early:  received abort signal");
    setFlag("abort_on_error", false);
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), "E broken");
}

// ---- Unusual images ----

TEST_F(Buckets, images_of_every_shape_are_complete)
{
    static const struct {
        int xres, yres, bucket_size;
    } cases[] = { { 1, 1, 64 },       { 1, 1, 16 },        { 1, 1000, 16 },
                  { 1000, 1, 16 },    { 17, 17, 16 },      { 33, 15, 16 },
                  { 100, 7, 100000 }, { 100, 7, INT_MAX }, { 100, 7, -1 } };
    makeScene(1, 1);
    for (const char* order : { "top", "spiral", "hilbert", "random" })
        for (const auto& c : cases) {
            setText("bucket_scanning", order);
            set("xres", c.xres);
            set("yres", c.yres);
            set("bucket_size", c.bucket_size);
            EXPECT_EQ(shoot(), RV_SUCCESS) << c.xres << "x" << c.yres << " " << c.bucket_size;
            EXPECT_EQ(missingPixels(), 0u) << c.xres << "x" << c.yres << " " << c.bucket_size;
            EXPECT_EQ(pixelsRendered(), int64_t{ c.xres } * c.yres);
        }
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(Buckets, images_without_pixels_are_refused)
{
    makeScene(0, 10);
    EXPECT_EQ(shoot(), RV_ERROR_BAD_REGION);
    EXPECT_EQ(film().opened, 0);
}

TEST_F(Buckets, required_a_region_whose_ends_are_swapped_renders_nothing)
{
    makeScene(320, 240);
    setRegion(300, 200, 10, 10);
    for (const char* order :
         { "top", "bottom", "left", "right", "random", "woven", "spiral", "hilbert", "list" }) {
        setText("bucket_scanning", order);
        RvNodeSetArray(options(), "buckets", RvArray(1, 1, RV_TYPE_POINT2, RtPoint2{ 290, 20 }));
        EXPECT_EQ(shoot(), RV_SUCCESS) << order;
        EXPECT_TRUE(film().announced.empty()) << order;
    }
}

TEST_F(Buckets, a_line_of_a_million_pixels_renders_in_walking_orders_too)
{
    makeScene(1000000, 1);
    set("bucket_size", 16);
    set("threads", 2);
    for (const char* order : { "spiral", "hilbert" }) {
        setText("bucket_scanning", order);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(film().written.size(), 62500u) << order;
        EXPECT_EQ(missingPixels(), 0u) << order;
    }
}

TEST_F(Buckets, a_region_in_the_last_corner_of_the_largest_image_is_rendered)
{
    makeScene(10, 10);
    const RtNode* const film_node = RvNodeLookUpByName("film");
    ASSERT_TRUE(film_node);
    RvNodeSetArray(options(), "outputs", RvArray(1, 1, RV_TYPE_STRING, "RGBA RGBA filter nowhere"));
    node_tools::named("driver_null", "nowhere");
    for (const char* name : { "xres", "yres" })
        set(name, INT_MAX);
    setRegion(INT_MAX - 5, INT_MAX - 7, INT_MAX - 1, INT_MAX - 1);
    for (int AA_samples : { 1, -4, -30 }) {
        set("AA_samples", AA_samples);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        EXPECT_GT(pixelsRendered(), 0) << AA_samples;
    }
}

// ---- The exhausted heap ----

TEST_F(Buckets, any_refused_allocation_leaves_a_universe_that_renders)
{
    bool ran_through = false;
    int complete = 0;
    for (long n = 0; !ran_through && n < 5000; n += n < 400 ? 7 : 31) {
        startAnew();
        makeScene(32, 16);
        set("bucket_size", 16);
        set("threads", n % 2 ? 1 : 2);
        setFlag("abort_on_error", n % 3 == 0);
        setText("bucket_scanning", n % 5 ? "random" : "hilbert");
        const auto isExpected = [](int result) {
            return result == RV_SUCCESS || result == RV_ABORT || result == RV_ERROR_NO_OUTPUTS;
        };
        {
            const node_tools::AllocationLimit limit(n);
            EXPECT_TRUE(isExpected(shoot())) << n;
            ran_through = node_tools::heapIsOpen();
        }
        // A node that could not be initialised stays useless, so there may be no output at all.
        const int result = shoot();
        EXPECT_TRUE(result == RV_SUCCESS || result == RV_ERROR_NO_OUTPUTS) << n << ": " << result;
        if (result != RV_SUCCESS)
            continue;
        EXPECT_EQ(missingPixels(), 0u) << n;
        ++complete;
    }
    EXPECT_TRUE(ran_through);
    EXPECT_GT(complete, 10);
}

TEST_F(Buckets, a_renderer_without_memory_renders_nothing)
{
    rv::limitAllocations(0);
    EXPECT_FALSE(rv::createBucketRenderer(session()));
    rv::limitAllocations(1);
    EXPECT_FALSE(rv::createBucketRenderer(session())) << "a lock is missing";
    rv::limitAllocations(-1);
    EXPECT_NE(takeProblems().find("RvBucketSchedulerInit"), std::string::npos);
    RtBucketRenderer* const renderer = rv::createBucketRenderer(session());
    EXPECT_TRUE(renderer);
    rv::destroyBucketRenderer(renderer);
    rv::destroyBucketRenderer(nullptr);
    rv::runBuckets(session());
    EXPECT_TRUE(takeLines().empty());
}

TEST_F(Buckets, workers_without_memory_take_no_buckets)
{
    makeScene(32, 32);
    setFlag("abort_on_error", false);
    film().on_open = [] { rv::limitAllocations(0); };
    EXPECT_EQ(shoot(), RV_SUCCESS);
    rv::limitAllocations(-1);
    EXPECT_NE(takeProblems(), "");
    EXPECT_TRUE(film().announced.empty());
    EXPECT_EQ(film().closed, 1);
    film().on_open = {};
    EXPECT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(missingPixels(), 0u);
}

TEST_F(Buckets, a_stop_of_unknown_reason_says_so)
{
    // In a process of its own, because an unknown reason is also reported once in the process.
    EXPECT_EXIT(
        {
            makeScene(32, 32);
            film().on_write = [] { session()->abort_flag = 5; };
            const int result = shoot();
            const std::string problems = takeProblems();
            fprintf(stderr, "%s.", problems.c_str());
            _exit(result == RV_ERROR ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "W render terminating early:  unknown reason \\| W unknown");
}
