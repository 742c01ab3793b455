// Tests of core/src/importance.cpp: importance tables.
#include "importance.h"

#include "allocation_failures.h"
#include "frame_fixture.h"
#include "golden.h"
#include "statistics.h"

#include <climits>
#include <numeric>

using statistics::Uniform;

namespace {

constexpr float sphere = 12.566370964050293f;

// A table that is given back at the end of a scope.
struct Table : RtImportanceTable {
    Table() : RtImportanceTable{} {}
    // Of the weights of its cells, row by row.
    explicit Table(const std::vector<float>& weights, float measure = 1) : Table()
    {
        const int side = int(std::lround(std::sqrt(double(weights.size()))));
        rv::JointWork work;
        EXPECT_TRUE(
            rv::RvImportance2DInit(this, side, measure, &work, 0, [&](int, int row, float* out) {
                std::copy_n(weights.begin() + row * side, side, out);
                return true;
            }));
    }
    ~Table() { rv::releaseImportance(this); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    std::vector<float> allCells() const { return { cells, cells + n * n }; }
    std::vector<float> allRows() const { return { rows, rows + n }; }
};

std::vector<float> weightsOf(const nlohmann::json& in)
{
    const std::vector<float> channels = goldenFloats(in["colors"]);
    std::vector<float> weights;
    for (size_t i = 0; i < channels.size(); i += 3)
        weights.push_back(rv::importanceOf({ channels[i], channels[i + 1], channels[i + 2] },
                                           goldenFloat(in["weight"])));
    return weights;
}

// Bright, dark and empty cells, and an empty row.
std::vector<float> roughWeights(int n, unsigned seed)
{
    Uniform uniform(seed);
    std::vector<float> weights;
    for (int i = 0; i < n * n; ++i) {
        const float x = uniform();
        weights.push_back(i / n == n / 3 || x < 0.2f ? 0 : powf(1000, x));
    }
    return weights;
}

} // namespace

class Importance : public BareFrame {};

// ---- Golden vectors ----

TEST_F(Importance, tables_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "importance_table_build")) {
        const Table table(weightsOf(v["in"]), goldenFloat(v["in"]["weight"]));
        expectGoldenNumbers(v, "cells", table.allCells());
        expectGoldenNumbers(v, "rows", table.allRows());
        expectGoldenNumbers(v, "average_energy", { table.average_energy });
        expectGoldenNumbers(v, "variance", { table.variance });
    }
}

TEST_F(Importance, samples_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "importance_table_sample")) {
        const auto& in = v["in"];
        const Table table(weightsOf(in), goldenFloat(in["weight"]));
        const rv::ImportanceSample s =
            rv::sampleImportance(table, goldenFloat(in["u1"]), goldenFloat(in["u2"]));
        expectGoldenNumbers(v, "u", { s.u });
        expectGoldenNumbers(v, "v", { s.v });
        expectGoldenNumbers(v, "density", { s.density / goldenFloat(in["weight"]) });
    }
}

TEST_F(Importance, densities_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "importance_table_density")) {
        const auto& in = v["in"];
        const Table table(weightsOf(in), goldenFloat(in["weight"]));
        const float density =
            rv::importanceDensity(table, goldenFloat(in["u1"]), goldenFloat(in["u2"]));
        expectGoldenNumbers(v, "density", { density / goldenFloat(in["weight"]) });
    }
}

// ---- Samples and densities ----

TEST_F(Importance, samples_follow_the_weights)
{
    constexpr int n = 31, samples = 1000000;
    for (unsigned seed : { 1, 2, 3 }) {
        const std::vector<float> weights = roughWeights(n, seed);
        const Table table(weights);
        double total = 0;
        for (const float weight : weights)
            total += double(weight);
        std::vector<double> expected, observed(weights.size());
        for (const float weight : weights)
            expected.push_back(double(weight) / total * samples);
        Uniform uniform(seed + 10);
        for (int i = 0; i < samples; ++i) {
            const float u1 = uniform(), u2 = uniform();
            const rv::ImportanceSample s = rv::sampleImportance(table, u1, u2);
            const int cell = std::min(int(s.u * n), n - 1), row = std::min(int(s.v * n), n - 1);
            ++observed[size_t(row * n + cell)];
        }
        const statistics::ChiSquare test = statistics::chiSquareTest(observed, expected);
        EXPECT_GT(test.degrees_of_freedom, 500);
        EXPECT_GT(test.p, 0.01 / 3) << statistics::worstCells(observed, expected);
    }
}

TEST_F(Importance, samples_are_spread_evenly_within_their_cell)
{
    const Table table({ 1, 0, 0, 0, 2, 0, 0, 0, 5 });
    Uniform uniform(4);
    std::vector<double> observed(300), expected(300);
    for (int i = 0; i < 100000; ++i) {
        const float u1 = uniform(), u2 = uniform();
        const rv::ImportanceSample s = rv::sampleImportance(table, u1, u2);
        const int cell = int(s.v * 3), x = int((s.u * 3 - float(cell)) * 10),
                  y = int((s.v * 3 - float(cell)) * 10);
        ASSERT_EQ(int(s.u * 3), cell);
        ++observed[size_t(cell * 100 + y * 10 + x)];
        for (int k = 0; k < 100; ++k)
            expected[size_t(cell * 100 + k)] += 0.01;
    }
    EXPECT_GT(statistics::chiSquareTest(observed, expected).p, 0.01);
}

TEST_F(Importance, the_density_of_a_sample_is_that_of_its_place)
{
    constexpr int n = 17;
    const Table table(roughWeights(n, 5));
    Uniform uniform(6);
    for (int i = 0; i < 10000; ++i) {
        const float u1 = uniform(), u2 = uniform();
        const rv::ImportanceSample s = rv::sampleImportance(table, u1, u2);
        ASSERT_GT(s.density, 0);
        const float x = s.u * n, y = s.v * n; // away from the edges, which belong to neighbours
        if (x - floorf(x) > 1e-3f && y - floorf(y) > 1e-3f) {
            ASSERT_EQ(rv::importanceDensity(table, s.u, s.v), s.density) << s.u << " " << s.v;
        }
    }
}

TEST_F(Importance, densities_add_up_to_one)
{
    for (int n : { 1, 2, 7, 50 }) {
        std::vector<float> weights = roughWeights(n, 7);
        weights[0] = 3;
        const Table table(weights);
        double sum = 0;
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                sum += double(rv::importanceDensity(table, rv::cellCenter(table, i),
                                                    rv::cellCenter(table, j))) /
                       (n * n);
        EXPECT_NEAR(sum, 1, 1e-5) << n;
    }
}

TEST_F(Importance, places_beyond_the_square_have_the_density_of_its_edge)
{
    const Table table({ 1, 2, 3, 4 });
    EXPECT_EQ(rv::importanceDensity(table, 1, 1), rv::importanceDensity(table, 0.9f, 0.9f));
    EXPECT_EQ(rv::importanceDensity(table, 1e30f, -5), rv::importanceDensity(table, 0.9f, 0.1f));
    EXPECT_EQ(rv::importanceDensity(table, NAN, NAN), rv::importanceDensity(table, 0.1f, 0.1f));
    EXPECT_EQ(rv::importanceDensity(table, -INFINITY, INFINITY),
              rv::importanceDensity(table, 0.1f, 0.9f));
}

TEST_F(Importance, any_pair_of_numbers_gives_a_place_that_can_be_sampled)
{
    const Table table({ 0, 0, 0, 0, 3, 0, 0, 0, 0 }), last({ 0, 0, 0, 0, 0, 0, 0, 0, 1 });
    for (float u1 : { 0.0f, 0.5f, 0x1.fffffep-1f, 1.0f, 2.0f, -1.0f, NAN, INFINITY })
        for (float u2 : { 0.0f, 0.5f, 0x1.fffffep-1f, 1.0f, -1.0f, NAN, -INFINITY }) {
            const rv::ImportanceSample s = rv::sampleImportance(table, u1, u2);
            EXPECT_TRUE(s.u >= 0.333f && s.u <= 0.667f && s.v >= 0.333f && s.v <= 0.667f) << u1;
            EXPECT_NEAR(s.density, 9, 1e-5) << u1 << " " << u2;
            EXPECT_GE(rv::sampleImportance(last, u1, u2).u, 0.666f) << u1 << " " << u2;
        }
}

// ---- What shaders may return ----

TEST_F(Importance, colours_without_a_sensible_weight_have_no_chance)
{
    const RtRGB bad[] = { { NAN, 1, 1 },  { INFINITY, 1, 1 },         { -INFINITY, 1, 1 },
                          { -1, -1, -1 }, { INFINITY, 0, -INFINITY }, { 1, -3, 1 },
                          { 0, 0, 0 } };
    for (const RtRGB& color : bad)
        EXPECT_EQ(rv::importanceOf(color, 1), 0) << color.r;
    EXPECT_EQ(rv::importanceOf({ 1, 1, 1 }, -1), 0);
    EXPECT_EQ(rv::importanceOf({ 1, 1, 1 }, NAN), 0);
    EXPECT_NEAR(rv::importanceOf({ 1, 2, 3 }, 0.5f), 1, 1e-6);
    EXPECT_EQ(rv::importanceOf({ 1e38f, 1e38f, 1e38f }, 0.5f), 1e30f);
}

TEST_F(Importance, the_largest_weights_do_not_overflow)
{
    const std::vector<float> weights(400, 1e30f);
    const Table table(weights);
    EXPECT_EQ(table.rows[19], 1);
    EXPECT_NEAR(table.variance, 0, 1e-6);
    EXPECT_NEAR(rv::sampleImportance(table, 0.25f, 0.75f).density, 1, 1e-4);
    EXPECT_TRUE(std::isfinite(table.average_energy));
}

TEST_F(Importance, distributions_rise_to_exactly_one)
{
    for (unsigned seed = 1; seed < 20; ++seed) {
        constexpr int n = 29;
        const Table table(roughWeights(n, seed));
        const auto expectRising = [](const float* d, const char* what) {
            for (int i = 1; i < n; ++i)
                ASSERT_GE(d[i], d[i - 1]) << what << i;
            EXPECT_TRUE(d[n - 1] == 1 || d[n - 1] == 0) << what;
        };
        expectRising(table.rows, "row ");
        EXPECT_EQ(table.rows[n - 1], 1);
        for (int j = 0; j < n; ++j)
            expectRising(table.cells + j * n, "cell ");
    }
}

// ---- Building ----

TEST_F(Importance, a_table_without_energy_is_not_normalised)
{
    const Table table(std::vector<float>(9, 0));
    EXPECT_EQ(table.average_energy, 0);
    EXPECT_EQ(table.variance, 0);
    EXPECT_EQ(table.allRows(), (std::vector<float>(3)));
    EXPECT_EQ(table.allCells(), (std::vector<float>(9)));
}

TEST_F(Importance, a_table_of_equal_cells_has_no_variance)
{
    const Table table(std::vector<float>(10000, sphere * 0.3f), sphere);
    EXPECT_LT(table.variance, 1e-12f);
    EXPECT_NEAR(table.average_energy, 0.3f, 1e-6);
}

TEST_F(Importance, concurrent_threads_make_the_same_table_as_one)
{
    constexpr int n = 64;
    const std::vector<float> weights = roughWeights(n, 8);
    const Table alone(weights);
    for (int threads : { 2, 3, 8 }) {
        Table table;
        rv::JointWork work;
        std::atomic<bool> is_led = false;
        std::vector<int> rows(8);
        onThreads(threads, [&](int thread) {
            if (is_led.exchange(true))
                return work.join(thread);
            rv::RvImportance2DInit(&table, n, 1, &work, thread, [&](int t, int row, float* out) {
                ++rows[size_t(t)];
                std::copy_n(weights.begin() + row * n, n, out);
                return true;
            });
        });
        EXPECT_EQ(std::accumulate(rows.begin(), rows.end(), 0), n);
        EXPECT_EQ(table.allCells(), alone.allCells()) << threads;
        EXPECT_EQ(table.allRows(), alone.allRows()) << threads;
        EXPECT_EQ(table.variance, alone.variance) << threads;
        EXPECT_EQ(table.average_energy, alone.average_energy) << threads;
    }
}

TEST_F(Importance, a_table_that_finds_no_memory_is_reported_and_stays_empty)
{
    const auto make = [&](int n) {
        Table table;
        rv::JointWork work;
        EXPECT_FALSE(rv::RvImportance2DInit(&table, n, 1, &work, 0, [](int, int, float*) {
            ADD_FAILURE() << "nothing to fill";
            return true;
        }));
        EXPECT_EQ(table.n, 0);
        EXPECT_EQ(table.cells, nullptr);
        return takeProblemWithoutLines();
    };
    withAllocations(0, [&] {
        EXPECT_EQ(make(10), "can't allocate 440 bytes in core\\src\\importance:"
                            "RvImportance2DInit():");
    });
    // Sizes that neither 32 bits nor any machine hold.
    EXPECT_EQ(make(40000), "can't allocate 6400160000 bytes in core\\src\\importance:"
                           "RvImportance2DInit():");
    EXPECT_EQ(make(INT_MAX), "can't allocate 18446744065119617024 bytes in core\\src\\importance:"
                             "RvImportance2DInit():");
}

TEST_F(Importance, a_table_that_is_given_up_stays_empty)
{
    Table table;
    rv::JointWork work;
    int rows = 0;
    EXPECT_FALSE(rv::RvImportance2DInit(&table, 10, 1, &work, 0, [&](int, int row, float*) {
        ++rows;
        return row < 3;
    }));
    EXPECT_EQ(rows, 4);
    EXPECT_EQ(table.n, 0);
    EXPECT_EQ(table.cells, nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Importance, a_released_table_can_be_made_again)
{
    Table table({ 1, 2, 3, 4 });
    rv::releaseImportance(&table);
    EXPECT_EQ(table.cells, nullptr);
    rv::releaseImportance(&table);
    rv::JointWork work;
    EXPECT_TRUE(rv::RvImportance2DInit(&table, 1, 1, &work, 0, [](int, int, float* out) {
        *out = 5;
        return true;
    }));
    EXPECT_EQ(rv::sampleImportance(table, 0.25f, 0.5f).density, 1);
    EXPECT_EQ(rv::sampleImportance(table, 0.25f, 0.5f).u, 0.25f);
}
