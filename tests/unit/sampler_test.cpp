// Tests of sampler.cpp: samplers of shaders, their iterators and rotations.
#include "sampler.h"

#include "allocation_failures.h"
#include "counters.h"
#include "rv_shaderglobals.h"
#include "sampling_tools.h"
#include "shading_state.h"
#include "system/memory.h"
#include "thread_slot.h"

#include <array>
#include <cmath>

using nlohmann::json;

using Sample = std::array<double, 2>;

// A universe whose threads 0 and 63 have pools, and a context of thread 63.
class Samplers : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        for (int thread : { 0, 63 })
            slots[thread].shading_pool = RvMemPoolCreate(4096);
        rv::the_frame->thread_slots = slots;
        sg.state = &state;
        sg.thread_index = 63;
        sg.pixel_x = 10;
        sg.pixel_y = 20;
        RvSamplingBeginPixel(63, 10, 20, 4);
    }
    void TearDown() override
    {
        for (RtSampler* sampler : samplers)
            RvSamplerDestroy(sampler);
        rv::releasePixelSampling();
        rv::the_frame->thread_slots = nullptr;
        for (RtThreadSlot& slot : slots)
            RvMemPoolDestroy(slot.shading_pool);
        Universe::TearDown();
    }

    RtSampler* make(int nsamples)
    {
        samplers.push_back(RvSampler(nsamples, 2));
        return samplers.back();
    }
    static RtOptions& options() { return *rv::render_options; }

    // Every sample that an iterator has left.
    static std::vector<Sample> drain(RtSamplerIterator* it)
    {
        std::vector<Sample> all;
        Sample s;
        while (RvSamplerGetSample(it, s.data()))
            all.push_back(s);
        return all;
    }
    std::vector<Sample> samplesOf(const RtSampler* sampler)
    {
        return drain(RvSamplerIterator(sampler, &sg));
    }

    RtThreadSlot slots[rv::worker_slot_count] = {};
    RtShadingState state = {};
    RtShaderGlobals sg = {};
    std::vector<RtSampler*> samplers;
};

// ---- Samplers ----

TEST_F(Samplers, points_and_counts_are_the_golden_ones)
{
    for (const json& v : goldenVectors("sampling", "RvSampler")) {
        const json& in = v.at("in");
        applyOptions(in);
        const RtSampler* const sampler = make(in.at("nsamples"));
        ASSERT_TRUE(sampler);
        expectGolden(v, "count", sampler->count);
        EXPECT_EQ(goldenFloat(v.at("out").at("inv_count")), sampler->inv_count) << goldenId(v);
        expectGoldenBits(v, "points", numbersOf(sampler->points, sampler->total));
    }
}

TEST_F(Samplers, impossible_samplers_are_null_and_only_dimensions_are_reported)
{
    for (const json& v : goldenVectors("sampling", "RvSampler_null")) {
        EXPECT_FALSE(RvSampler(v.at("in").at("nsamples"), v.at("in").at("ndim"))) << goldenId(v);
        const json& warning = v.at("out").at("warning");
        EXPECT_EQ(takeProblem(), warning.is_null() ? "" : warning.get<std::string>());
    }
    EXPECT_FALSE(RvSampler(0, -1));
    EXPECT_EQ(takeProblem(), "unable to create -1-dimensional sampler");
}

TEST_F(Samplers, a_sampler_of_one_has_weight_1)
{
    const RtSampler* const sampler = make(1);
    EXPECT_EQ(sampler->count, 1);
    RtSamplerIterator* const it = RvSamplerIterator(sampler, &sg);
    EXPECT_EQ(RvSamplerGetSampleCount(it), 1);
    EXPECT_EQ(RvSamplerGetSampleInvCount(it), 1);
    EXPECT_EQ(drain(it).size(), 1u);
}

TEST_F(Samplers, camera_samples_below_1_count_as_1)
{
    for (int side : { 0, -1, INT32_MIN }) {
        options().AA_samples = side;
        EXPECT_EQ(make(3)->total, 9) << side;
    }
}

TEST_F(Samplers, absurd_counts_are_refused_with_the_allocation_error)
{
    static const struct {
        int nsamples, camera_side;
        const char* bytes;
    } rows[] = {
        { 100000, 1, "80000000000" },
        { 100000, 10000, "8000000000000000000" },
        { INT32_MAX, INT32_MAX, "18446744073709551615" },
        { 1, 10000, "800000000" },
    };
    for (const auto& row : rows) {
        options().AA_samples = row.camera_side;
        EXPECT_FALSE(RvSampler(row.nsamples, 2));
        EXPECT_EQ(withoutLines(takeProblem()),
                  "can't allocate " + std::string(row.bytes) +
                      " bytes in core\\src\\sampling:RvSamplingPattern()");
    }
}

TEST_F(Samplers, a_sampler_without_memory_is_null_and_keeps_nothing)
{
    options().GI_hemi_pattern = RV_PATTERN_RANDOM;
    const std::string pattern =
        "can't allocate 32 bytes in core\\src\\sampling:RvSamplingPattern()";
    const std::string record = "can't allocate " + std::to_string(sizeof(RtSampler)) +
                               " bytes in core\\src\\sampler:RvSampler()";
    for (long allowed : { 0, 1 }) {
        RtSampler* sampler = nullptr;
        withAllocations(allowed, [&] { sampler = RvSampler(2, 2); });
        EXPECT_FALSE(sampler);
        EXPECT_EQ(withoutLines(takeProblem()), allowed ? record : pattern);
    }
}

// ---- Iterators ----

TEST_F(Samplers, an_iterator_gives_the_block_of_its_camera_sample_rotated)
{
    options().AA_samples = 2;
    options().GI_Cranley_Patterson = false;
    const RtSampler* const sampler = make(3);
    for (uint16_t s = 0; s < 4; ++s) {
        sg.sample_index = s;
        for (uint8_t depth : std::initializer_list<uint8_t>{ 0, 2 }) {
            sg.ray_depth = depth;
            const RtPoint2 rotation = RvSamplerRotation(&sg);
            const std::vector<Sample> got = samplesOf(sampler);
            ASSERT_EQ(got.size(), 9u);
            for (size_t i = 0; i < 9; ++i) {
                const RtPoint2& p = sampler->points[s * 9 + i];
                const double u = p.x + rotation.x, v = p.y + rotation.y;
                EXPECT_NEAR(got[i][0], u - std::floor(u), 1e-6);
                EXPECT_NEAR(got[i][1], v - std::floor(v), 1e-6);
            }
        }
    }
}

TEST_F(Samplers, every_sample_is_in_the_half_open_square)
{
    const RtSampler* const sampler = make(8);
    for (int x = 0; x < 200; ++x) {
        sg.pixel_x = x;
        sg.ray_depth = 1;
        for (const Sample& s : samplesOf(sampler))
            for (double coordinate : s)
                EXPECT_TRUE(coordinate >= 0 && coordinate < 1) << coordinate;
    }
}

TEST_F(Samplers, an_iterator_without_points_gives_the_rotation)
{
    const RtSampler sampler = { .points = nullptr, .count = 2, .inv_count = 0.5f, .total = 0 };
    sg.ray_depth = 1;
    const RtPoint2 rotation = RvSamplerRotation(&sg);
    const std::vector<Sample> got = samplesOf(&sampler);
    ASSERT_EQ(got.size(), 2u);
    for (const Sample& s : got)
        EXPECT_EQ(s, (Sample{ rotation.x, rotation.y }));
}

TEST_F(Samplers, camera_samples_that_a_sampler_was_not_made_for_start_over)
{
    options().AA_samples = 2;
    const RtSampler* const sampler = make(3);
    sg.sample_index = 1;
    const std::vector<Sample> second = samplesOf(sampler);
    for (uint16_t s : std::initializer_list<uint16_t>{ 5, 65533 }) {
        sg.sample_index = s;
        EXPECT_EQ(samplesOf(sampler), second) << s;
    }
}

TEST_F(Samplers, counts_of_iterators)
{
    const RtSampler* const sampler = make(3);
    RtSamplerIterator* const it = RvSamplerIterator(sampler, &sg);
    EXPECT_EQ(RvSamplerGetSampleCount(it), 9);
    EXPECT_EQ(RvSamplerGetSampleInvCount(it), 1.0f / 9);
    double sample[2];
    RvSamplerGetSample(it, sample);
    EXPECT_EQ(RvSamplerGetSampleCount(it), 9) << "not what is left";
}

TEST_F(Samplers, null_arguments_give_neutral_results)
{
    double sample[2] = { 7, 8 };
    RvSamplerDestroy(nullptr);
    EXPECT_FALSE(RvSamplerIterator(nullptr, &sg));
    EXPECT_FALSE(RvSamplerIterator(make(1), nullptr));
    EXPECT_FALSE(RvSamplerGetSample(nullptr, sample));
    EXPECT_FALSE(RvSamplerGetSample(RvSamplerIterator(make(1), &sg), nullptr));
    EXPECT_EQ(sample[0], 7);
    EXPECT_EQ(RvSamplerGetSampleCount(nullptr), 0);
    EXPECT_EQ(RvSamplerGetSampleInvCount(nullptr), 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Samplers, contexts_of_threads_without_a_pool_get_no_iterator)
{
    const RtSampler* const sampler = make(2);
    for (uint8_t thread : std::initializer_list<uint8_t>{ 1, 64, 255 }) {
        sg.thread_index = thread;
        EXPECT_FALSE(RvSamplerIterator(sampler, &sg)) << int(thread);
    }
    sg.thread_index = 0;
    EXPECT_TRUE(RvSamplerIterator(sampler, &sg));
    rv::the_frame->thread_slots = nullptr;
    EXPECT_FALSE(RvSamplerIterator(sampler, &sg));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Samplers, iterators_take_nothing_but_their_record_from_the_pool)
{
    const RtSampler* const sampler = make(4);
    const RtMemPool& pool = *slots[63].shading_pool;
    const unsigned before = pool.alloc_count;
    withAllocations(0, [&] {
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(samplesOf(sampler).size(), 16u);
    });
    EXPECT_EQ(pool.alloc_count, before + 10);
    EXPECT_EQ(slots[0].shading_pool->alloc_count, 0u);
}

TEST_F(Samplers, an_iterator_without_memory_is_null)
{
    const RtSampler* const sampler = make(1);
    RtSamplerIterator* it = nullptr;
    withAllocations(0, [&] {
        do
            it = RvSamplerIterator(sampler, &sg);
        while (it);
    });
    EXPECT_EQ(withoutLines(takeProblem()),
              "can't allocate 4128 bytes in core\\src\\system\\memory:AllocHdr()");
}

// ---- Nesting ----

TEST_F(Samplers, a_nested_loop_takes_exactly_one_sample_per_iteration)
{
    const RtSampler* const outer = make(2);
    const RtSampler* const inner = make(4);
    RtSamplerIterator* const it = RvSamplerIterator(outer, &sg);
    double sample[2];
    int rounds = 0;
    while (RvSamplerGetSample(it, sample)) {
        RtSamplerIterator* const nested = RvSamplerIterator(inner, &sg);
        EXPECT_EQ(RvSamplerGetSampleCount(nested), 1);
        EXPECT_EQ(RvSamplerGetSampleInvCount(nested), 1);
        EXPECT_EQ(drain(nested).size(), 1u);
        EXPECT_EQ(state.loop_samples, 4) << "the outer loop goes on";
        ++rounds;
    }
    EXPECT_EQ(rounds, 4);
    EXPECT_EQ(samplesOf(inner).size(), 16u) << "after the outer loop";
}

TEST_F(Samplers, an_outermost_loop_shows_its_count_and_place_until_it_ends)
{
    options().AA_samples = 2;
    sg.sample_index = 3;
    RtSamplerIterator* const it = RvSamplerIterator(make(2), &sg);
    EXPECT_EQ(state.loop_samples, 0) << "before the first sample";
    double sample[2];
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(RvSamplerGetSample(it, sample));
        EXPECT_EQ(state.loop_samples, 4);
        EXPECT_EQ(state.loop_index, 12 + i);
    }
    EXPECT_FALSE(RvSamplerGetSample(it, sample));
    EXPECT_EQ(state.loop_samples, 0);
    EXPECT_EQ(state.loop_index, 0);
    EXPECT_FALSE(RvSamplerGetSample(it, sample)) << "again";
}

TEST_F(Samplers, nested_loops_of_different_places_are_rotated_differently)
{
    const RtSampler* const sampler = make(2);
    sg.ray_depth = 1;
    std::vector<Sample> seen;
    for (int index : { 0, 1, 2 }) {
        state.loop_samples = 4;
        state.loop_index = index;
        for (const Sample& s : samplesOf(sampler))
            seen.push_back(s);
    }
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_NE(seen[0], seen[1]);
    EXPECT_NE(seen[1], seen[2]);
}

TEST_F(Samplers, contexts_without_a_state_run_whole_loops)
{
    const RtSampler* const sampler = make(2);
    sg.state = nullptr;
    sg.ray_depth = 1;
    EXPECT_EQ(samplesOf(sampler).size(), 4u);
}

// ---- Rotation ----

TEST_F(Samplers, rotations_behind_the_first_hit_are_the_golden_ones)
{
    for (const json& v : goldenVectors("sampling", "RvSamplerRotation")) {
        const json& in = v.at("in");
        applyOptions(in);
        sg.pixel_x = in.at("x");
        sg.pixel_y = in.at("y");
        state.loop_index = in.at("enclosing_index");
        const unsigned depth = in.at("depth_plus_transparency");
        for (unsigned transparency = 0; transparency <= depth; ++transparency) {
            sg.transparency_index = transparency;
            sg.ray_depth = uint8_t(depth - transparency);
            const RtPoint2 rotation = RvSamplerRotation(&sg);
            expectGoldenNumbers(v, "u", { rotation.x });
            expectGoldenNumbers(v, "v", { rotation.y });
        }
    }
}

TEST_F(Samplers, the_first_hit_takes_the_rotation_of_the_pixel_if_the_option_is_on)
{
    const RtPixelSampling& pixel = rv::pixel_sampling[63];
    EXPECT_EQ(RvSamplerRotation(&sg).x, float(pixel.rotation_u));
    EXPECT_EQ(RvSamplerRotation(&sg).y, float(pixel.rotation_v));
    options().GI_Cranley_Patterson = false;
    EXPECT_EQ(RvSamplerRotation(&sg).x, 0);
    EXPECT_EQ(RvSamplerRotation(&sg).y, 0);
}

TEST_F(Samplers, the_first_hit_of_a_thread_that_does_not_exist_is_not_rotated)
{
    sg.thread_index = 200;
    EXPECT_EQ(RvSamplerRotation(&sg).x, 0);
}

TEST_F(Samplers, the_same_scene_and_seed_give_identical_samples)
{
    const auto scene = [&](int seed) {
        options().AA_seed = seed;
        RvSamplingBeginPixel(63, 10, 20, 4);
        return samplesOf(make(4));
    };
    const std::vector<Sample> first = scene(1);
    EXPECT_NE(first, scene(2));
    EXPECT_EQ(first, scene(1));
}

// ---- Statistics ----

TEST_F(Samplers, iterators_are_counted_as_nested_or_outermost_unless_the_context_is_uncounted)
{
    const RtSampler* const sampler = make(1);
    const RtLightingCount& count = rv::threadStats()->lighting[RV_LIGHTING_CUSTOM];
    const uint64_t nested = count.secondary;
    const uint64_t outermost = count.primary;
    RvSamplerIterator(sampler, &sg);
    RvSamplerIterator(sampler, &sg);
    state.loop_samples = 1;
    RvSamplerIterator(sampler, &sg);
    EXPECT_EQ(count.primary, outermost + 2);
    EXPECT_EQ(count.secondary, nested + 1);
    state.uncounted = true;
    RvSamplerIterator(sampler, &sg);
    state.loop_samples = 0;
    RvSamplerIterator(sampler, &sg);
    EXPECT_EQ(count.primary, outermost + 2);
    EXPECT_EQ(count.secondary, nested + 1);
}

TEST(SamplersWithoutUniverse, nothing_is_made)
{
    EXPECT_FALSE(RvSampler(2, 2));
    EXPECT_FALSE(RvSampler(2, 3));
    const RtSampler sampler = { .points = nullptr, .count = 1, .inv_count = 1, .total = 0 };
    const RtShaderGlobals sg = {};
    EXPECT_FALSE(RvSamplerIterator(&sampler, &sg));
}
