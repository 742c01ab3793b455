// Tests of core/src/lights/cone.cpp: cones of directions and the reach of lights.
#include "lights/cone.h"

#include "hemi_tables.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

using rv::Cone;
using rv::RaySpan;

static Cone coneOf(double half_angle, const RtVector& axis = { 0, 0, 1 })
{
    RvInitializeHemiTables();
    Cone cone;
    cone.one_minus_cos = float(2 * sin(half_angle / 2) * sin(half_angle / 2));
    rv::aimCone(&cone, axis);
    return cone;
}

TEST(LightCone, directions_are_unit_and_inside)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> unit(0, std::nextafter(1.0f, 0.0f));
    for (double half : { 1e-4, 0.0044, 0.3, 1.5, 3.0 })
        for (const RtVector& axis : { RtVector{ 0, 0, 1 }, { 0.6f, 0, -0.8f }, { -1, 0, 0 } }) {
            const Cone cone = coneOf(half, axis);
            for (int i = 0; i < 2000; ++i) {
                const RtVector d = rv::coneDirection(cone, unit(random), unit(random));
                EXPECT_NEAR(rv::dot(d, d), 1, 2e-6);
                EXPECT_LE(1 - rv::dot(d, axis), cone.one_minus_cos + 2e-7);
            }
        }
}

TEST(LightCone, the_ends_of_the_unit_interval_are_axis_and_rim)
{
    const Cone cone = coneOf(0.5);
    EXPECT_EQ(rv::coneDirection(cone, 0, 0.3f).z, 1);
    EXPECT_NEAR(rv::coneDirection(cone, 1, 0.3f).z, cos(0.5), 1e-6);
}

// Required: speed matters more than continuity.
TEST(LightCone, azimuths_are_quantised_to_5000_steps)
{
    const Cone cone = coneOf(0.5);
    const RtVector a = rv::coneDirection(cone, 0.5f, 0.40001f),
                   b = rv::coneDirection(cone, 0.5f, 0.40019f),
                   c = rv::coneDirection(cone, 0.5f, 0.40021f);
    EXPECT_EQ(a.x, b.x);
    EXPECT_EQ(a.y, b.y);
    EXPECT_NE(b.x, c.x);
}

// Statistic of a chi-square test of counts that are all equally likely.
static double chiSquare(const std::vector<int>& counts, double total)
{
    const double expected = total / double(counts.size());
    double sum = 0;
    for (int count : counts)
        sum += (count - expected) * (count - expected) / expected;
    return sum;
}

TEST(LightCone, directions_are_uniform_by_solid_angle)
{
    // 20 rings by 40 sectors, each a whole number of the 5000 steps around the axis.
    constexpr int rings = 20, sectors = 40, n = 1000000;
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0, std::nextafter(1.0f, 0.0f));
    for (double half : { 0.02, 0.5, 1.5, 3.0 }) {
        const Cone cone = coneOf(half);
        std::vector<int> counts(rings * sectors);
        for (int i = 0; i < n; ++i) {
            const RtVector d = rv::coneDirection(cone, unit(random), unit(random));
            // 1 - z by way of the sine, which is precise also in narrow cones.
            const double sine_sq = double(d.x) * d.x + double(d.y) * d.y;
            const double cosine = sqrt(std::max(0.0, 1 - sine_sq));
            const double h = d.z > 0 ? sine_sq / (1 + cosine) : 1 + cosine;
            const double u = rv::dot(d, cone.u), v = rv::dot(d, cone.v);
            double turn = atan2(v, u) / (2 * M_PI) + 1e-5; // steps lie at the edges of sectors
            turn -= std::floor(turn);
            const int ring = std::min(rings - 1, int(h / double(cone.one_minus_cos) * rings));
            ++counts[size_t(ring * sectors + std::min(sectors - 1, int(turn * sectors)))];
        }
        // 799 degrees of freedom: mean 799, standard deviation 40; 0.01 % lie above 955.
        EXPECT_LT(chiSquare(counts, n), 955) << half;
        EXPECT_GT(chiSquare(counts, n), 640) << half;
    }
}

TEST(LightCone, extents_are_precise_far_away)
{
    const struct {
        double ratio;
    } rows[] = { { 0 }, { 1e-6 }, { 1e-3 }, { 0.1 }, { 0.5 }, { 0.999 }, { 1 } };
    for (const auto& row : rows) {
        const double angle = asin(row.ratio), want = 2 * sin(angle / 2) * sin(angle / 2);
        EXPECT_NEAR(rv::sphereExtent(float(row.ratio)), want, want * 1e-5) << row.ratio;
        const double disk = atan(row.ratio), disk_want = 2 * sin(disk / 2) * sin(disk / 2);
        EXPECT_NEAR(rv::diskExtent(float(row.ratio)), disk_want, disk_want * 1e-5) << row.ratio;
    }
}

TEST(LightCone, from_inside_a_sphere_is_a_half_space)
{
    EXPECT_EQ(rv::sphereExtent(1.5f), 1);
    EXPECT_EQ(rv::sphereExtent(INFINITY), 1);
}

TEST(LightCone, a_ray_crosses_a_sphere_where_the_closed_form_says)
{
    const struct {
        const char* name;
        RtVector from_center, dir;
        bool hit;
        double t0, t1;
    } rows[] = {
        { "through the centre", { 0, 0, -5 }, { 0, 0, 1 }, true, 3, 7 },
        { "from inside", { 0, 0, 0 }, { 0, 0, 1 }, true, -2, 2 },
        { "away from it", { 0, 0, 5 }, { 0, 0, 1 }, true, -7, -3 },
        { "long direction", { 0, 0, -5 }, { 0, 0, 2 }, true, 1.5, 3.5 },
        { "touching", { 0, 2, -5 }, { 0, 0, 1 }, true, 5, 5 },
        { "past it", { 0, 2.1f, -5 }, { 0, 0, 1 }, false, 0, 0 },
        { "no direction", { 0, 0, 0 }, { 0, 0, 0 }, false, 0, 0 },
        { "not a number", { NAN, 0, 0 }, { 0, 0, 1 }, false, 0, 0 },
    };
    for (const auto& row : rows) {
        RaySpan span;
        ASSERT_EQ(rv::spanInSphere(row.from_center, row.dir, 4, &span), row.hit) << row.name;
        if (row.hit) {
            EXPECT_NEAR(span.t0, row.t0, 1e-9) << row.name;
            EXPECT_NEAR(span.t1, row.t1, 1e-9) << row.name;
        }
    }
}
