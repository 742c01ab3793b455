// Tests of statistics.h: a statistical test is worth something if it accepts what is right and
// rejects what is a little wrong.
#include "statistics.h"

#include <gtest/gtest.h>

using namespace statistics;

// Uniform on the sphere.
static bool drawUniform(float u, float v, Direction* d)
{
    const double z = 1 - 2 * double(u), r = sqrt(1 - z * z), phi = 2 * M_PI * double(v);
    *d = { r * cos(phi), r * sin(phi), z };
    return true;
}

static constexpr int draws = 200000;

TEST(ChiSquare, tails_of_the_chi_square_distribution)
{
    static const struct {
        double statistic, degrees, p;
    } rows[] = {
        { 3.841458820694124, 1, 0.05 },
        { 5.991464547107979, 2, 0.05 },
        { 2.705543454095404, 1, 0.10 },
        { 18.307038053275146, 10, 0.05 },
        { 124.34211340400408, 100, 0.05 },
        { 1106.9690034402258, 1000, 0.0100 },
        { 1, 2, exp(-0.5) },
        { 0, 5, 1 },
    };
    for (const auto& row : rows)
        EXPECT_NEAR(chiSquareTail(row.statistic, row.degrees), row.p, 1e-6)
            << row.statistic << " of " << row.degrees;
}

TEST(ChiSquare, cells_cover_the_sphere_once)
{
    for (const double sharpness : { 1.0, 3.0 }) {
        const SphereCells cells({ 1, 2, -0.5 }, sharpness);
        EXPECT_NEAR(integralOver(
                        cells, [](const Direction&) { return 1; }, 4),
                    4 * M_PI, 1e-9);
        const auto cosine = [&](const Direction& d) { return std::max(0.0, dot(d, cells.axis)); };
        EXPECT_NEAR(integralOver(cells, cosine, 8), M_PI, 1e-3);
    }
}

TEST(ChiSquare, a_direction_falls_into_the_cell_that_integrates_it)
{
    for (const double sharpness : { 1.0, 2.5 }) {
        const SphereCells cells({ 0.3, -0.2, 0.9 }, sharpness);
        for (const int ring : { 0, 7, 20, 39 })
            for (const int sector : { 0, 13, 59 }) {
                const double theta = cells.angleAt(ring + 0.4);
                const double phi = (sector + 0.6) * 2 * M_PI / cells.sectors - M_PI;
                EXPECT_EQ(cells.cellOf(cells.directionAt(theta, phi)),
                          size_t(ring * cells.sectors + sector))
                    << ring << " " << sector;
            }
    }
}

TEST(ChiSquare, a_right_density_is_accepted)
{
    const auto density = [](const Direction&) { return 1 / (4 * M_PI); };
    int rejected = 0;
    for (unsigned seed = 0; seed < 20; ++seed)
        rejected += testSampler(SphereCells({ 0, 0, 1 }), draws, seed, drawUniform, density, 2)
                        .chi_square.p < 0.01;
    EXPECT_LE(rejected, 2);
}

TEST(ChiSquare, a_density_that_is_a_little_wrong_is_rejected)
{
    const auto tilted = [](const Direction& d) { return (1 + 0.15 * d.z) / (4 * M_PI); };
    const auto spotted = [](const Direction& d) { return d.x > 0.95 ? 0 : 1 / (4 * M_PI); };
    const SphereCells cells({ 0, 0, 1 });
    EXPECT_LT(testSampler(cells, draws, 1, drawUniform, tilted, 2).chi_square.p, 1e-6);
    EXPECT_LT(testSampler(cells, draws, 1, drawUniform, spotted, 8).chi_square.p, 1e-6);
}

TEST(ChiSquare, samples_without_a_direction_are_part_of_the_test)
{
    const auto half = [](float u, float v, Direction* d) {
        return drawUniform(u, v, d) && d->z > 0;
    };
    const auto density = [](const Direction& d) { return d.z > 0 ? 1 / (4 * M_PI) : 0; };
    const auto renormalised = [](const Direction& d) { return d.z > 0 ? 1 / (2 * M_PI) : 0; };
    const SphereCells cells({ 0, 0, 1 });
    const SamplerTest right = testSampler(cells, draws, 1, half, density, 2);
    EXPECT_GT(right.chi_square.p, 0.001) << right.describe();
    EXPECT_NEAR(right.density_integral, 0.5, 1e-6);
    EXPECT_NEAR(right.drawn_share, 0.5, 0.01);
    EXPECT_LT(testSampler(cells, draws, 1, half, renormalised, 2).chi_square.p, 1e-6);
}

TEST(ChiSquare, cells_that_expect_little_are_merged)
{
    const ChiSquare merged = chiSquareTest({ 1, 0, 2, 3, 100 }, { 1, 1, 2, 2, 100 });
    EXPECT_EQ(merged.degrees_of_freedom, 1);
    EXPECT_DOUBLE_EQ(merged.statistic, 0);
    const ChiSquare impossible = chiSquareTest({ 50, 100, 100 }, { 0, 100, 100 });
    EXPECT_LT(impossible.p, 1e-6) << "what cannot be drawn was drawn";
}

TEST(ChiSquare, an_estimate_knows_its_error)
{
    const Estimate e = estimate(100000, 1, [](float u, float) { return double(u); });
    EXPECT_NEAR(e.mean, 0.5, 4 * e.standard_error);
    EXPECT_NEAR(e.standard_error, sqrt(1.0 / 12 / 100000), 1e-5);
}
