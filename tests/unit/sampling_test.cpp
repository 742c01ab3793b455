// Tests of sampling.cpp: hash, patterns, shuffles and camera samples.
#include "sampling.h"

#include "allocation_failures.h"
#include "frame_fixture.h"
#include "sampling_tools.h"

#include <algorithm>
#include <numeric>
#include <set>

using nlohmann::json;
using rv::HashWords;
using rv::PixelHash;
using rv::PointHash;

class Sampling : public Universe {
protected:
    void TearDown() override
    {
        rv::the_frame->session->releaseSamplers();
        Universe::TearDown();
    }
    static RtOptions& options() { return *rv::render_options; }
    static void initSamplers() { rv::the_frame->session->initSamplers(); }

    static std::vector<float> patternOf(int seed, int n, int pattern)
    {
        const Heap<RtPoint2> points(RvSamplingPattern(seed, n, pattern));
        return numbersOf(points.get(), n * n);
    }
    static std::vector<int> permutationOf(int seed, int n)
    {
        const Heap<int> values(RvRandomPermutation(seed, n, nullptr));
        return values ? std::vector<int>(values.get(), values.get() + n) : std::vector<int>();
    }
};

static const int supported_patterns[] = { RV_PATTERN_REGULAR,    RV_PATTERN_RANDOM,
                                          RV_PATTERN_JITTERED,   RV_PATTERN_MULTI_JITTERED,
                                          RV_PATTERN_POISSON_BC, RV_PATTERN_NROOKS,
                                          RV_PATTERN_SCHLICK };

// ---- Hash ----

TEST_F(Sampling, mix_gives_the_golden_words)
{
    for (const json& v : goldenVectors("sampling", "mix")) {
        const json& in = v.at("in");
        const HashWords w = rv::mix({ in.at("a"), in.at("b"), in.at("c") });
        expectGolden(v, "a", w.a);
        expectGolden(v, "b", w.b);
        expectGolden(v, "c", w.c);
    }
}

TEST_F(Sampling, point_hash_gives_the_golden_words)
{
    for (const json& v : goldenVectors("sampling", "point_hash")) {
        applyOptions(v.at("in"));
        const PointHash hash{ rv::samplingSeed(), uint32_t(v.at("in").at("seed").get<int>()) };
        expectGolden(v, "value", hash(v.at("in").at("index").get<uint32_t>()));
    }
}

TEST_F(Sampling, pixel_hash_gives_the_golden_words)
{
    for (const json& v : goldenVectors("sampling", "pixel_hash")) {
        applyOptions(v.at("in"));
        const PixelHash hash(rv::samplingSeed(), v.at("in").at("x"), v.at("in").at("y"));
        expectGolden(v, "abc", json({ hash.words.a, hash.words.b, hash.words.c }));
        expectGolden(v, "P_-1_0", hash(uint32_t(-1), 0));
        expectGolden(v, "P_-1_1", hash(uint32_t(-1), 1));
        expectGolden(v, "P_-1_2", hash(uint32_t(-1), 2));
        expectGolden(v, "P_19_0", hash(19, 0));
        expectGolden(v, "P_31_0", hash(31, 0));
        expectGolden(v, "P_3_6", hash(3, 6));
    }
}

TEST(SamplingNumbers, the_largest_hash_stays_below_1_in_single_precision)
{
    EXPECT_EQ(rv::hashToUnit(0xFFFFFFFF), 1 - 0x1p-32);
    EXPECT_LT(rv::toUnitFloat(rv::hashToUnit(0xFFFFFFFF)), 1.0f);
    EXPECT_EQ(rv::toUnitFloat(0.5), 0.5f);
}

// ---- Patterns ----

TEST_F(Sampling, square_patterns_are_the_golden_ones_to_the_last_bit)
{
    for (const json& v : goldenVectors("sampling", "RvSamplingPattern")) {
        const json& in = v.at("in");
        applyOptions(in);
        const int n = in.at("n").get<int>();
        const Heap<RtPoint2> points(
            RvSamplingPattern(in.at("seed"), n, patternCode(in.at("pattern"))));
        ASSERT_TRUE(points);
        expectGoldenBits(v, "points", numbersOf(points.get(), std::max(n, 1) * std::max(n, 1)));
    }
}

TEST_F(Sampling, patterns_of_any_count_are_the_golden_ones_to_the_last_bit)
{
    for (const json& v : goldenVectors("sampling", "RvSamplingPatternNonSquared")) {
        const json& in = v.at("in");
        applyOptions(in);
        const Heap<RtPoint2> points(RvSamplingPatternNonSquared(
            in.at("seed"), in.at("seed2"), in.at("count"), patternCode(in.at("pattern"))));
        ASSERT_TRUE(points);
        expectGoldenBits(v, "points", numbersOf(points.get(), in.at("count")));
    }
}

TEST_F(Sampling, a_regular_pattern_of_four_lists_the_cell_centres_row_by_row)
{
    EXPECT_EQ(patternOf(1, 2, RV_PATTERN_REGULAR),
              (std::vector<float>{ .25f, .25f, .75f, .25f, .25f, .75f, .75f, .75f }));
}

TEST_F(Sampling, a_side_below_1_counts_as_1)
{
    for (int n : { 0, -1, INT32_MIN })
        for (int pattern : supported_patterns) {
            const Heap<RtPoint2> points(RvSamplingPattern(5, n, pattern));
            ASSERT_TRUE(points);
            EXPECT_EQ(numbersOf(points.get(), 1), patternOf(5, 1, pattern)) << n << " " << pattern;
        }
}

TEST_F(Sampling, a_count_below_1_gives_no_table)
{
    EXPECT_FALSE(RvSamplingPatternNonSquared(1, 2, 0, RV_PATTERN_RANDOM));
    EXPECT_FALSE(RvSamplingPatternNonSquared(1, 2, -4, RV_PATTERN_SCHLICK));
    EXPECT_FALSE(RvHierarchicalSamplingPattern(1, 0, 4));
    EXPECT_FALSE(RvHierarchicalSamplingPattern(1, 4, -1));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Sampling, unsupported_patterns_are_reported_and_give_a_table_of_zeros)
{
    for (const json& v : goldenVectors("sampling", "RvSamplingPattern_error")) {
        const json& in = v.at("in");
        const Heap<RtPoint2> points(
            RvSamplingPattern(in.at("seed"), in.at("n"), patternCode(in.at("pattern"))));
        expectGolden(v, "error", takeProblem());
        ASSERT_TRUE(points);
        EXPECT_EQ(numbersOf(points.get(), 4), std::vector<float>(8, 0.0f));
    }
    for (const json& v : goldenVectors("sampling", "RvSamplingPatternNonSquared_error")) {
        const json& in = v.at("in");
        const Heap<RtPoint2> points(RvSamplingPatternNonSquared(
            in.at("seed"), in.at("seed2"), in.at("count"), patternCode(in.at("pattern"))));
        expectGolden(v, "error", takeProblem());
        ASSERT_TRUE(points);
        EXPECT_EQ(numbersOf(points.get(), 4), std::vector<float>(8, 0.0f));
    }
    for (int code : { 8, 12, 1000, -1 }) {
        const Heap<RtPoint2> points(RvSamplingPattern(1, 2, code));
        EXPECT_EQ(takeProblem(),
                  "unsupported sample pattern: unknown (" + std::to_string(code) + ")");
        EXPECT_TRUE(points);
    }
}

TEST_F(Sampling, every_point_of_every_pattern_is_in_the_half_open_square)
{
    for (int pattern : supported_patterns)
        for (int n : { 1, 2, 7, 16, 33 })
            for (float x : patternOf(n, n, pattern))
                EXPECT_TRUE(x >= 0 && x < 1) << pattern << " " << n << " " << x;
}

TEST_F(Sampling, the_seed_of_the_scene_changes_every_pattern_but_the_regular_one)
{
    for (int pattern : supported_patterns) {
        options().AA_seed = 1;
        const std::vector<float> first = patternOf(79, 4, pattern);
        EXPECT_EQ(first, patternOf(79, 4, pattern)) << pattern;
        options().AA_seed = 2;
        EXPECT_EQ(first == patternOf(79, 4, pattern), pattern == RV_PATTERN_REGULAR) << pattern;
    }
}

TEST_F(Sampling, n_rooks_exchanges_do_not_depend_on_the_seed_of_the_caller)
{
    // Required: with the same exchanges, column strata end up in the same places.
    const std::vector<float> a = patternOf(1, 5, RV_PATTERN_NROOKS);
    const std::vector<float> b = patternOf(99, 5, RV_PATTERN_NROOKS);
    EXPECT_NE(a, b);
    for (size_t i = 0; i < a.size(); ++i)
        EXPECT_EQ(int(a[i] * 25), int(b[i] * 25)) << i;
}

// The definition, point by point, over the nine neighbouring squares.
static float nearestByDefinition(const RtPoint2& p, const std::vector<RtPoint2>& others)
{
    float nearest = 2;
    for (const RtPoint2& other : others)
        for (int x = -1; x <= 1; ++x)
            for (int y = -1; y <= 1; ++y) {
                const float dx = p.x - other.x + float(x), dy = p.y - other.y + float(y);
                nearest = std::min(nearest, dx * dx + dy * dy);
            }
    return nearest;
}

TEST_F(Sampling, best_candidates_are_those_of_the_definition)
{
    for (int count : { 1, 2, 3, 8, 9, 400, 1000 }) {
        const PointHash hash{ rv::samplingSeed(), 17 };
        const auto candidate = [&](uint32_t c) {
            return RtPoint2{ rv::toUnitFloat(rv::hashToUnit(hash(2 * c))),
                             rv::toUnitFloat(rv::hashToUnit(hash(2 * c + 1))) };
        };
        std::vector<RtPoint2> want = { candidate(0) };
        for (uint32_t c = 1; int(want.size()) < count;) {
            float best = 0;
            RtPoint2 chosen = {};
            for (int i = 0; i < 10; ++i, ++c) {
                const float distance = nearestByDefinition(candidate(c), want);
                if (distance > best) {
                    best = distance;
                    chosen = candidate(c);
                }
            }
            want.push_back(chosen);
        }
        const Heap<RtPoint2> got(RvSamplingPatternNonSquared(17, 0, count, RV_PATTERN_POISSON_BC));
        EXPECT_EQ(numbersOf(got.get(), count), numbersOf(want.data(), count)) << count;
    }
}

TEST_F(Sampling, best_candidates_keep_more_distance_than_random_points)
{
    const auto nearest = [&](int pattern) {
        const std::vector<float> p = patternOf(3, 16, pattern);
        float least = 2;
        for (size_t i = 0; i < p.size(); i += 2)
            for (size_t j = 0; j < i; j += 2)
                least = std::min(least, std::hypot(p[i] - p[j], p[i + 1] - p[j + 1]));
        return least;
    };
    EXPECT_GT(nearest(RV_PATTERN_POISSON_BC), 0.3f / 16);
    EXPECT_LT(nearest(RV_PATTERN_RANDOM), 0.1f / 16);
}

// How many of `cells` equal intervals the coordinates of every stride-th point reach.
static size_t strataReached(const RtPoint2* points, int count, float RtPoint2::*axis, int cells)
{
    std::set<int> reached;
    for (int i = 0; i < count; ++i)
        reached.insert(int(double(points[i].*axis) * cells));
    return reached.size();
}

TEST_F(Sampling, hierarchical_blocks_and_their_union_are_stratified_on_both_axes)
{
    static const struct {
        int samples, strata;
    } rows[] = { { 1, 1 }, { 1, 9 }, { 5, 1 }, { 5, 4 }, { 16, 9 } };
    for (const auto& row : rows) {
        const Heap<RtPoint2> points(RvHierarchicalSamplingPattern(7, row.samples, row.strata));
        ASSERT_TRUE(points);
        const int total = row.samples * row.strata;
        for (auto axis : { &RtPoint2::x, &RtPoint2::y }) {
            EXPECT_EQ(strataReached(points.get(), total, axis, total), size_t(total));
            for (int block = 0; block < row.strata; ++block)
                EXPECT_EQ(strataReached(points.get() + block * row.samples, row.samples, axis,
                                        row.samples),
                          size_t(row.samples));
        }
        const Heap<RtPoint2> again(RvHierarchicalSamplingPattern(7, row.samples, row.strata));
        EXPECT_EQ(numbersOf(points.get(), total), numbersOf(again.get(), total));
    }
}

// ---- Permutations and shuffles ----

TEST_F(Sampling, permutations_are_the_golden_ones_on_the_heap_and_in_a_pool)
{
    RtMemPool* const pool = RvMemPoolCreate(4096);
    for (const json& v : goldenVectors("sampling", "RvRandomPermutation")) {
        const json& in = v.at("in");
        applyOptions(in);
        const int seed = int(uint32_t(in.at("seed").get<int64_t>())), n = in.at("n");
        expectGolden(v, "value", permutationOf(seed, n));
        const int* const pooled = RvRandomPermutation(seed, n, pool);
        EXPECT_EQ(pooled != nullptr, n > 0);
        if (pooled)
            expectGolden(v, "value", std::vector<int>(pooled, pooled + n));
    }
    RvMemPoolDestroy(pool);
    EXPECT_FALSE(RvRandomPermutation(1, -1, nullptr));
}

// Checks that a shuffle of the vector's points puts them in the golden order.
template <class Shuffle> static void expectGoldenOrder(const json& v, Shuffle shuffle)
{
    std::vector<RtPoint2> points;
    for (const json& p : v.at("in").at("points"))
        points.push_back({ goldenFloat(p[0]), goldenFloat(p[1]) });
    const std::vector<RtPoint2> before = points;
    shuffle(points.data(), int(points.size()));
    std::vector<RtPoint2> want;
    for (const json& index : v.at("out").at("order"))
        want.push_back(before.at(index.get<size_t>()));
    EXPECT_EQ(numbersOf(want.data(), int(want.size())),
              numbersOf(points.data(), int(points.size())))
        << goldenId(v);
}

TEST_F(Sampling, spatial_interlace_gives_the_golden_orders)
{
    for (const json& v : goldenVectors("sampling", "RvSpatialInterlaceShufflePoints")) {
        applyOptions(v.at("in"));
        expectGoldenOrder(v, [&](RtPoint2* points, int n) {
            RvSpatialInterlaceShufflePoints(v.at("in").at("seed"), n, points);
        });
    }
}

TEST_F(Sampling, shuffles_of_blocks_give_the_golden_orders)
{
    for (const json& v : goldenVectors("sampling", "RvShufflePoints")) {
        const json& in = v.at("in");
        applyOptions(in);
        expectGoldenOrder(v, [&](RtPoint2* points, int) {
            RvShufflePoints(in.at("seed"), in.at("a"), in.at("b"), patternCode(in.at("pattern")),
                            points);
        });
    }
}

TEST_F(Sampling, spatial_interlace_takes_each_quarter_once_in_every_four)
{
    const Heap<RtPoint2> points(RvSamplingPattern(1, 8, RV_PATTERN_REGULAR));
    RvSpatialInterlaceShufflePoints(4, 64, points.get());
    for (int first = 0; first < 64; first += 4) {
        std::set<int> quarters;
        for (int i = first; i < first + 4; ++i)
            quarters.insert(int(points[size_t(i)].x * 2) + 2 * int(points[size_t(i)].y * 2));
        EXPECT_EQ(quarters.size(), 4u) << first;
    }
}

TEST_F(Sampling, spatial_interlace_survives_points_that_no_box_can_part)
{
    const float nan = std::nanf("");
    std::vector<RtPoint2> points(100, { 0.3f, 0.3f });
    points.insert(points.end(), 10, { nan, nan });
    points.insert(points.end(), 10, { 0, 0 });
    points.insert(points.end(), 10, { 1e-40f, 1e30f });
    points.insert(points.end(), 10, { -5, 1 });
    RvSpatialInterlaceShufflePoints(1, int(points.size()), points.data());
    EXPECT_EQ(std::count_if(points.begin(), points.end(), [](auto& p) { return p.x == 0.3f; }),
              100);
    EXPECT_EQ(std::count_if(points.begin(), points.end(), [](auto& p) { return p.x == -5; }), 10);
    EXPECT_EQ(std::count_if(points.begin(), points.end(), [](auto& p) { return p.x != p.x; }), 10);
}

TEST_F(Sampling, nothing_is_shuffled_for_empty_and_impossible_blocks)
{
    RtPoint2 points[] = { { 0.1f, 0.2f }, { 0.3f, 0.4f } };
    for (int pattern : { RV_PATTERN_RANDOM, RV_PATTERN_SCHLICK }) {
        RvShufflePoints(1, -2, -1, pattern, points);
        RvShufflePoints(1, INT32_MAX, INT32_MAX, pattern, points);
        RvShufflePoints(1, 0, 5, pattern, nullptr);
    }
    RvSpatialInterlaceShufflePoints(1, -1, points);
    EXPECT_EQ(points[0].x, 0.1f);
    EXPECT_EQ(points[1].x, 0.3f);
}

// ---- Memory ----

static std::string allocationError(uint64_t bytes, const std::string& function)
{
    return "can't allocate " + std::to_string(bytes) + " bytes in core\\src\\sampling:" + function +
           "()";
}

TEST_F(Sampling, allocation_failures_name_the_function_and_give_nothing)
{
    std::vector<RtPoint2> points(9, { 0.5f, 0.5f });
    const struct {
        std::string want;
        long allowed;
        std::function<const void*()> call;
    } rows[] = {
        { allocationError(72, "RvSamplingPattern"), 0,
          [] { return RvSamplingPattern(1, 3, RV_PATTERN_SCHLICK); } },
        { allocationError(36, "RvSchlickSamples"), 1,
          [] { return RvSamplingPattern(1, 3, RV_PATTERN_SCHLICK); } },
        { allocationError(72, "RvSamplingPattern"), 1,
          [] { return RvSamplingPattern(1, 3, RV_PATTERN_POISSON_BC); } },
        { allocationError(40, "RvSamplingPatternNonSquared"), 0,
          [] { return RvSamplingPatternNonSquared(1, 2, 5, RV_PATTERN_SCHLICK); } },
        { allocationError(20, "RvSchlickSamples"), 1,
          [] { return RvSamplingPatternNonSquared(1, 2, 5, RV_PATTERN_SCHLICK); } },
        { allocationError(96, "RvHierarchicalSamplingPattern"), 0,
          [] { return RvHierarchicalSamplingPattern(1, 3, 4); } },
        { allocationError(28, "RvRandomPermutation"), 0,
          [] { return RvRandomPermutation(1, 7, nullptr); } },
        { allocationError(72, "RvSpatialInterlaceShufflePoints"), 0,
          [&] {
              RvShufflePoints(1, 3, 3, RV_PATTERN_SCHLICK, points.data());
              return nullptr;
          } },
    };
    for (const auto& row : rows) {
        const void* got = nullptr;
        withAllocations(row.allowed, [&] { got = row.call(); });
        EXPECT_FALSE(got) << row.want;
        EXPECT_EQ(withoutLines(takeProblem()), row.want);
    }
}

TEST_F(Sampling, absurd_counts_are_refused_like_an_exhausted_heap)
{
    const struct {
        std::string want;
        std::function<const void*()> call;
    } rows[] = {
        { allocationError(80000000000, "RvSamplingPattern"),
          [] { return RvSamplingPattern(1, 100000, RV_PATTERN_RANDOM); } },
        { allocationError(UINT64_MAX, "RvSamplingPattern"),
          [] { return RvSamplingPattern(1, INT32_MAX, RV_PATTERN_MULTI_JITTERED); } },
        { allocationError(17179869176, "RvSamplingPatternNonSquared"),
          [] { return RvSamplingPatternNonSquared(1, 2, INT32_MAX, RV_PATTERN_NROOKS); } },
        { allocationError(UINT64_MAX, "RvHierarchicalSamplingPattern"),
          [] { return RvHierarchicalSamplingPattern(1, INT32_MAX, INT32_MAX); } },
        { allocationError(8589934588, "RvRandomPermutation"),
          [] { return RvRandomPermutation(1, INT32_MAX, nullptr); } },
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(row.call()) << row.want;
        EXPECT_EQ(withoutLines(takeProblem()), row.want);
    }
    RtMemPool* const pool = RvMemPoolCreate(64);
    EXPECT_FALSE(RvRandomPermutation(1, INT32_MAX, pool));
    EXPECT_EQ(withoutLines(takeProblem()), allocationError(8589934588, "RvRandomPermutation"));
    RvMemPoolDestroy(pool);
}

// ---- State of a pixel ----

TEST_F(Sampling, a_pixel_begins_with_the_golden_state)
{
    for (const json& v : goldenVectors("sampling", "RvSamplingBeginPixel")) {
        const json& in = v.at("in");
        applyOptions(in);
        const int n = in.at("N");
        RvSamplingBeginPixel(63, in.at("x"), in.at("y"), n);
        const RtPixelSampling& state = rv::pixel_sampling[63];
        const json& out = v.at("out");
        EXPECT_EQ(out.at("extra_rotation").get<double>(), state.extra_rotation) << goldenId(v);
        EXPECT_EQ(out.at("rotation_u").get<double>(), state.rotation_u) << goldenId(v);
        EXPECT_EQ(out.at("rotation_v").get<double>(), state.rotation_v) << goldenId(v);
        const auto list = [n](const int* values) { return std::vector<int>(values, values + n); };
        expectGolden(v, "time_permutation", list(state.time_permutation));
        expectGolden(v, "lens_permutation", list(state.lens_permutation));
        expectGolden(v, "third_permutation", list(state.third_permutation));
    }
}

TEST(SamplingNumbers, each_thread_has_a_cache_line_of_its_own)
{
    EXPECT_EQ(sizeof(RtPixelSampling), 64u);
    EXPECT_EQ(uintptr_t(&rv::pixel_sampling[1]) % 64, 0u);
}

TEST_F(Sampling, pixels_after_the_first_allocate_nothing)
{
    RvSamplingBeginPixel(0, 0, 0, 256);
    withAllocations(0, [] {
        for (int x = 1; x < 1000; ++x)
            RvSamplingBeginPixel(0, x, 7, 256);
    });
    EXPECT_EQ(takeProblem(), "");
    EXPECT_TRUE(rv::pixel_sampling[0].third_permutation);
}

TEST_F(Sampling, a_pixel_without_memory_takes_its_samples_in_order)
{
    options().AA_motionblur_pattern = RV_PATTERN_REGULAR;
    withAllocations(0, [] { RvSamplingBeginPixel(2, 3, 4, 4); });
    EXPECT_EQ(withoutLines(takeProblem()), "can't allocate " + std::to_string(sizeof(RtMemPool)) +
                                               " bytes in core\\src\\system\\memory:AllocInit()");
    EXPECT_FALSE(rv::pixel_sampling[2].time_permutation);
    for (int i = 0; i < 4; ++i) {
        RtPoint2 offset;
        float time;
        RvPixelSampleOffset(3, 4, i, 2, 4, &offset, &time);
        EXPECT_EQ(time, (float(i) + 0.5f) / 4);
    }
}

TEST_F(Sampling, calls_for_threads_and_samples_that_do_not_exist_are_harmless)
{
    options().AA_samples = 2;
    initSamplers();
    for (int thread : { -1, 64, INT32_MAX }) {
        RvSamplingBeginPixel(thread, 1, 2, 4);
        EXPECT_FALSE(rv::pixelSampling(thread));
    }
    RvSamplingBeginPixel(0, 1, 2, 4);
    for (int thread : { -1, 0, 64 })
        for (int i : { -1, 4, INT32_MAX, INT32_MIN }) {
            RtPoint2 offset;
            float time;
            RvPixelSampleOffset(1, 2, i, thread, 4, &offset, &time);
            EXPECT_TRUE(offset.x >= 0 && offset.x < 1);
            const RtPoint2 lens = RvPixelLensSample(1, 2, i, thread, 4);
            EXPECT_TRUE(lens.x >= 0 && lens.x < 1);
        }
    RvSamplingBeginPixel(0, 1, 2, -5);
    EXPECT_FALSE(rv::pixel_sampling[0].time_permutation);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Camera samples ----

// The samples of one pixel, as the golden vectors list them.
struct PixelSamples {
    std::vector<float> offsets, times, lens;
};

static void append(std::vector<float>* all, const RtPoint2& p)
{
    all->push_back(p.x);
    all->push_back(p.y);
}

static PixelSamples samplesOf(int x, int y, int count)
{
    PixelSamples all;
    RvSamplingBeginPixel(0, x, y, count);
    for (int i = 0; i < count; ++i) {
        RtPoint2 offset;
        float time;
        RvPixelSampleOffset(x, y, i, 0, count, &offset, &time);
        const RtPoint2 lens = RvPixelLensSample(x, y, i, 0, count);
        append(&all.offsets, offset);
        all.times.push_back(time);
        append(&all.lens, lens);
    }
    return all;
}

TEST_F(Sampling, camera_samples_are_the_golden_ones)
{
    for (const json& v : goldenVectors("sampling", "pixel_samples")) {
        const json& in = v.at("in");
        options().AA_motionblur_pattern = RV_PATTERN_JITTERED;
        applyOptions(in);
        initSamplers();
        const int side = in.at("AA_samples");
        const PixelSamples got = samplesOf(in.at("x"), in.at("y"), side * side);
        expectGoldenNumbers(v, "offsets", got.offsets);
        if (v.at("out").contains("times"))
            expectGoldenNumbers(v, "times", got.times);
        if (v.at("out").contains("lens"))
            expectGoldenNumbers(v, "lens", got.lens);
    }
}

TEST_F(Sampling, dither_values_are_the_golden_ones)
{
    for (const json& v : goldenVectors("sampling", "dither_value")) {
        const json& in = v.at("in");
        std::vector<float> got;
        for (int x = 0; x <= in.at("x_from_0_to").get<int>(); ++x)
            for (int y = 0; y <= in.at("y_from_0_to").get<int>(); ++y)
                got.push_back(float(rv::ditherValue(in.at("AA_sampling_dither"), x, y)));
        expectGoldenNumbers(v, "rows_x_then_y", got);
    }
}

TEST_F(Sampling, dither_values_cover_their_square_and_repeat_to_the_left_of_the_image)
{
    static const struct {
        int dither, side, levels;
    } rows[] = { { 1, 2, 2 }, { 2, 2, 4 }, { 4, 4, 16 }, { 6, 8, 64 }, { 3, 8, 1 }, { 0, 8, 1 } };
    for (const auto& row : rows) {
        std::set<double> values;
        for (int x = 0; x < row.side; ++x)
            for (int y = 0; y < row.side; ++y) {
                const double value = rv::ditherValue(row.dither, x, y);
                values.insert(value);
                EXPECT_EQ(rv::ditherValue(row.dither, x - 8, y - 16), value);
            }
        EXPECT_EQ(values.size(), size_t(row.levels)) << row.dither;
    }
    EXPECT_EQ(rv::ditherValue(1, 3, 4), 0.5);
    EXPECT_EQ(rv::ditherValue(1, 3, 5), 0);
    EXPECT_EQ(rv::ditherValue(2, 1, 0), 0.25);
    EXPECT_EQ(rv::ditherValue(6, 1, 0), 32 / 64.0);
}

TEST_F(Sampling, a_single_sample_lies_in_the_middle_of_the_pixel)
{
    options().sss_subpixel_cache = true;
    initSamplers();
    const PixelSamples got = samplesOf(12, 34, 1);
    EXPECT_EQ(got.offsets, (std::vector<float>{ 0.5f, 0.5f }));
}

TEST_F(Sampling, patterns_other_than_the_first_three_and_dithering_give_time_0)
{
    for (int pattern : { RV_PATTERN_MULTI_JITTERED, RV_PATTERN_POISSON_BC, RV_PATTERN_NROOKS,
                         RV_PATTERN_SCHLICK }) {
        options().AA_samples = 3;
        options().AA_motionblur_pattern = pattern;
        initSamplers();
        EXPECT_EQ(samplesOf(5, 6, 9).times, std::vector<float>(9, 0.0f)) << pattern;
    }
}

TEST_F(Sampling, the_subsurface_cache_shifts_offsets_by_half_a_pixel)
{
    options().AA_samples = 4;
    initSamplers();
    const PixelSamples plain = samplesOf(1, 1, 16);
    options().sss_subpixel_cache = true;
    const PixelSamples shifted = samplesOf(1, 1, 16);
    for (size_t i = 0; i < plain.offsets.size(); ++i) {
        const double want = plain.offsets[i] + 0.5;
        EXPECT_EQ(shifted.offsets[i], float(want >= 1 ? want - 1 : want));
    }
    EXPECT_EQ(plain.times, shifted.times);
}

TEST_F(Sampling, jittered_times_take_one_sample_from_every_part_of_the_shutter)
{
    options().AA_samples = 4;
    initSamplers();
    for (int x = 0; x < 50; ++x) {
        std::set<int> parts;
        for (float time : samplesOf(x, -x, 16).times)
            parts.insert(int(time * 16));
        EXPECT_EQ(parts.size(), 16u) << x;
    }
}

TEST_F(Sampling, without_tables_samples_lie_in_the_middle)
{
    const PixelSamples got = samplesOf(1, 2, 4);
    EXPECT_EQ(got.offsets, std::vector<float>(8, 0.5f));
    for (float x : got.lens)
        EXPECT_TRUE(x >= 0 && x < 1);
}

// ---- Space and time ----

// How many pairs (a, b) of thirds, quarters, ... of two coordinates occur.
static size_t pairsOf(const rv::SpaceTimePoint* points, int n, uint16_t rv::SpaceTimePoint::*a,
                      uint16_t rv::SpaceTimePoint::*b)
{
    std::set<std::pair<int, int>> pairs;
    for (int i = 0; i < n * n; ++i)
        pairs.insert({ points[i].*a / n, points[i].*b / n });
    return pairs.size();
}

TEST(SpaceTime, every_table_is_stratified_in_each_coordinate_and_each_pair)
{
    using Point = rv::SpaceTimePoint;
    for (int n = rv::min_space_time_side; n <= rv::max_space_time_side; ++n) {
        const Point* const points = rv::spaceTimePoints(n);
        const size_t count = size_t(n) * size_t(n);
        for (auto axis : { &Point::x, &Point::y, &Point::time }) {
            std::set<int> values;
            for (size_t i = 0; i < count; ++i)
                values.insert(points[i].*axis);
            EXPECT_EQ(values.size(), count) << n;
            EXPECT_LT(*values.rbegin(), int(count)) << n;
        }
        EXPECT_EQ(pairsOf(points, n, &Point::x, &Point::y), count) << n;
        EXPECT_EQ(pairsOf(points, n, &Point::x, &Point::time), count) << n;
        EXPECT_EQ(pairsOf(points, n, &Point::y, &Point::time), count) << n;
    }
}

TEST(SpaceTime, threads_that_ask_at_once_get_the_same_tables)
{
    const rv::SpaceTimePoint* seen[8] = {};
    onThreads(8, [&](int i) { seen[i] = rv::spaceTimePoints(2); });
    EXPECT_EQ(std::set<const rv::SpaceTimePoint*>(seen, seen + 8).size(), 1u);
}

TEST_F(Sampling, pattern_12_takes_offsets_and_rotated_times_from_the_tables)
{
    options().AA_motionblur_pattern = 12;
    options().sss_subpixel_cache = true; // does not shift these
    const int x = 10, y = 20, n = 3, count = n * n;
    const uint32_t key = rv::point_hash_key, seed = rv::samplingSeed();
    const double rotation =
        rv::hashToUnit(rv::mix({ uint32_t(x) + key, uint32_t(y) + key, 13 * seed + key }).c);
    const PixelSamples got = samplesOf(x, y, count);
    const rv::SpaceTimePoint* const points = rv::spaceTimePoints(n);
    for (size_t i = 0; i < size_t(count); ++i) {
        EXPECT_FLOAT_EQ(got.offsets[2 * i], float(points[i].x) / count);
        EXPECT_FLOAT_EQ(got.offsets[2 * i + 1], float(points[i].y) / count);
        const double time = points[i].time / double(count) + rotation;
        EXPECT_FLOAT_EQ(got.times[i], float(time - std::floor(time)));
    }
}

TEST_F(Sampling, pattern_12_serves_2_to_289_samples)
{
    options().AA_motionblur_pattern = 12;
    for (int count : { 2, 3, 4, 5, 8, 288, 289 })
        for (float t : samplesOf(1, 2, count).times)
            EXPECT_TRUE(t >= 0 && t < 1) << count;
    EXPECT_EQ(samplesOf(1, 2, 290).times.at(0), 0) << "as for the patterns that spread no times";
    EXPECT_EQ(samplesOf(1, 2, 1).offsets, (std::vector<float>{ 0.5f, 0.5f }));
    EXPECT_NE(samplesOf(1, 2, 289).times, std::vector<float>(289, 0.0f));
}
