// Tests of noise: golden numbers, what each family promises, and points that no surface has.
#include "rv_noise.h"

#include "golden.h"

#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using nlohmann::json;

namespace {

using Point = std::array<float, 4>;

RtPoint2 flat(const Point& p) { return { p[0], p[1] }; }
RtPoint spatial(const Point& p) { return { p[0], p[1], p[2] }; }

// A function of as many coordinates as it has dimensions.
template <class Value> struct Function {
    const char* name;
    int dimensions;
    std::function<Value(const Point&)> at;
};
using Scalar = Function<float>;
using Vector = Function<RtVector>;

constexpr int periods[] = { 7, 16, 5, 9 };

const std::vector<Scalar>& perlins()
{
    static const std::vector<Scalar> all = {
        { "RvPerlin2", 2, [](const Point& p) { return RvPerlin2(flat(p)); } },
        { "RvPerlin3", 3,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvPerlin3(&q);
          } },
        { "RvPerlin4", 4,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvPerlin4(&q, p[3]);
          } },
    };
    return all;
}

const std::vector<Scalar>& periodicPerlins()
{
    static const std::vector<Scalar> all = {
        { "RvPeriodicPerlin2", 2,
          [](const Point& p) { return RvPeriodicPerlin2(flat(p), periods[0], periods[1]); } },
        { "RvPeriodicPerlin3", 3,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvPeriodicPerlin3(&q, periods[0], periods[1], periods[2]);
          } },
        { "RvPeriodicPerlin4", 4,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvPeriodicPerlin4(&q, p[3], periods[0], periods[1], periods[2], periods[3]);
          } },
    };
    return all;
}

std::vector<Scalar> gradientNoises()
{
    std::vector<Scalar> all = perlins();
    all.insert(all.end(), periodicPerlins().begin(), periodicPerlins().end());
    return all;
}

const std::vector<Scalar>& cellNoises()
{
    static const std::vector<Scalar> all = {
        { "RvCellNoise2", 2, [](const Point& p) { return RvCellNoise2(flat(p)); } },
        { "RvCellNoise3", 3,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvCellNoise3(&q);
          } },
        { "RvCellNoise4", 4,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvCellNoise4(&q, p[3]);
          } },
    };
    return all;
}

const std::vector<Vector>& cellVectors()
{
    static const std::vector<Vector> all = {
        { "RvVCellNoise2", 2, [](const Point& p) { return RvVCellNoise2(flat(p)); } },
        { "RvVCellNoise3", 3,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvVCellNoise3(&q);
          } },
        { "RvVCellNoise4", 4,
          [](const Point& p) {
              const RtPoint q = spatial(p);
              return RvVCellNoise4(&q, p[3]);
          } },
    };
    return all;
}

// The fractal sums in 2, 3 and 4 dimensions.
float fractal(int dimensions, const Point& p, int octaves, float distortion, float lacunarity)
{
    const RtPoint q = spatial(p);
    switch (dimensions) {
    case 2: return RvNoise2(flat(p), octaves, distortion, lacunarity);
    case 3: return RvNoise3(&q, octaves, distortion, lacunarity);
    default: return RvNoise4(&q, p[3], octaves, distortion, lacunarity);
    }
}

RtVector vectorFractal(int dimensions, const Point& p, int octaves, float distortion,
                       float lacunarity)
{
    const RtPoint q = spatial(p);
    switch (dimensions) {
    case 2: return RvVNoise2(flat(p), octaves, distortion, lacunarity);
    case 3: return RvVNoise3(&q, octaves, distortion, lacunarity);
    default: return RvVNoise4(&q, p[3], octaves, distortion, lacunarity);
    }
}

float cellular(const Point& p)
{
    const RtPoint q = spatial(p);
    return RvCellular(&q);
}

float component(const RtVector& v, int i) { return i == 0 ? v.x : i == 1 ? v.y : v.z; }

// Points with fixed seeds.
class Points {
public:
    explicit Points(float reach) : coordinate(-reach, reach) {}
    Point next()
    {
        Point p;
        for (float& x : p)
            x = coordinate(random);
        return p;
    }
    // Of whole sixty-fourths, to which whole numbers are added without rounding.
    Point nextDyadic()
    {
        Point p = next();
        for (float& x : p)
            x = std::floor(x * 64) / 64;
        return p;
    }
    Point nextWhole()
    {
        Point p = next();
        for (float& x : p)
            x = std::floor(x);
        return p;
    }

private:
    std::mt19937 random{ 1 };
    std::uniform_real_distribution<float> coordinate;
};

std::string describe(const char* name, const Point& p)
{
    return std::string(name) + " at " + json(p).dump();
}

// ---- Golden numbers ----

Point goldenPoint(const json& v)
{
    Point p = {};
    const std::vector<float> numbers = goldenFloats(v.at("in").at("p"));
    std::copy(numbers.begin(), numbers.end(), p.begin());
    return p;
}

template <class Value> void expectGoldenValues(const Function<Value>& function)
{
    for (const json& v : goldenVectors("shading", function.name)) {
        const Value got = function.at(goldenPoint(v));
        if constexpr (std::is_same_v<Value, float>)
            expectGoldenNumbers(v, "value", { got });
        else
            expectGoldenNumbers(v, "value", { got.x, got.y, got.z });
    }
}

TEST(Noise, gradient_noise_is_that_of_the_golden_numbers)
{
    expectGoldenValues(perlins()[0]);
    expectGoldenValues(perlins()[1]);
}

TEST(Noise, cell_noise_is_that_of_the_golden_numbers)
{
    expectGoldenValues(cellNoises()[1]);
    expectGoldenValues(cellVectors()[1]);
}

TEST(Noise, fractal_noise_is_that_of_the_golden_numbers)
{
    for (const json& v : goldenVectors("shading", "RvNoise3")) {
        const json& in = v.at("in");
        expectGoldenNumbers(
            v, "value",
            { fractal(3, goldenPoint(v), in.at("octaves"), goldenFloat(in.at("distortion")),
                      goldenFloat(in.at("lacunarity"))) });
    }
    for (const json& v : goldenVectors("shading", "RvVNoise3")) {
        const json& in = v.at("in");
        const RtVector got =
            vectorFractal(3, goldenPoint(v), in.at("octaves"), goldenFloat(in.at("distortion")),
                          goldenFloat(in.at("lacunarity")));
        expectGoldenNumbers(v, "value", { got.x, got.y, got.z });
    }
}

// ---- Gradient noise ----

TEST(Noise, gradient_noise_is_0_at_whole_numbers)
{
    for (const Scalar& noise : gradientNoises()) {
        Points points(1000);
        for (int i = 0; i < 2000; ++i) {
            const Point p = points.nextWhole();
            ASSERT_EQ(noise.at(p), 0) << describe(noise.name, p);
        }
    }
}

TEST(Noise, gradient_noise_in_two_dimensions_is_a_plane_of_that_in_three)
{
    Points points(300);
    for (int i = 0; i < 10000; ++i) {
        Point p = points.next();
        p[2] = 0;
        ASSERT_EQ(perlins()[0].at(p), perlins()[1].at(p)) << describe("plane", p);
    }
}

TEST(Noise, gradient_noise_fills_its_range_around_0)
{
    for (const Scalar& noise : gradientNoises()) {
        Points points(128);
        static constexpr int count = 200000;
        double sum = 0, squares = 0;
        float lowest = 0, highest = 0;
        for (int i = 0; i < count; ++i) {
            const float value = noise.at(points.next());
            sum += double(value);
            squares += double(value) * double(value);
            lowest = std::min(lowest, value);
            highest = std::max(highest, value);
        }
        // A periodic noise has few gradients, whose mean is further from 0.
        EXPECT_NEAR(sum / count, 0, 0.02) << noise.name;
        const double deviation = std::sqrt(squares / count);
        EXPECT_GT(deviation, 0.15) << noise.name;
        EXPECT_LT(deviation, 0.35) << noise.name;
        EXPECT_LT(lowest, -0.6f) << noise.name;
        EXPECT_GT(highest, 0.6f) << noise.name;
        EXPECT_GE(lowest, -1.1f) << noise.name;
        EXPECT_LE(highest, 1.1f) << noise.name;
    }
}

// Derivatives at the end of a cell from seven values at its side, exact for the polynomials of
// degree 6 that the noise is made of.
struct Derivatives {
    double first, second;
};

Derivatives oneSided(const Scalar& noise, Point p, int axis, int side)
{
    static constexpr double first[] = { -49.0 / 20, 6,       -15.0 / 2, 20.0 / 3,
                                        -15.0 / 4,  6.0 / 5, -1.0 / 6 };
    static constexpr double second[] = { 203.0 / 45, -87.0 / 5, 117.0 / 4,  -254.0 / 9,
                                         33.0 / 2,   -27.0 / 5, 137.0 / 180 };
    const float face = p[size_t(axis)], width = 0.125f;
    Derivatives d = {};
    for (int i = 0; i < 7; ++i) {
        p[size_t(axis)] = face + float(side * i) * width;
        const double value = double(noise.at(p));
        d.first += first[i] * value * side / double(width);
        d.second += second[i] * value / double(width * width);
    }
    return d;
}

TEST(Noise, gradient_noise_and_its_derivatives_are_continuous_across_cells)
{
    for (const Scalar& noise : gradientNoises()) {
        Points points(20);
        for (int i = 0; i < 600; ++i) {
            Point p = points.next();
            const int axis = i % noise.dimensions;
            float& x = p[size_t(axis)];
            x = std::floor(x); // also below 0, where a whole number ends the cell below
            const Derivatives below = oneSided(noise, p, axis, -1);
            const Derivatives above = oneSided(noise, p, axis, 1);
            ASSERT_NEAR(below.first, above.first, 1e-4) << describe(noise.name, p);
            ASSERT_NEAR(below.second, above.second, 4e-3) << describe(noise.name, p);
            const float there = noise.at(p), face = x;
            for (float side : { -1e-4f, 1e-4f }) {
                x = face + side;
                ASSERT_NEAR(noise.at(p), there, 1e-3f) << describe(noise.name, p);
            }
        }
    }
}

TEST(Noise, gradient_noise_of_more_dimensions_is_another_in_every_plane)
{
    for (int axis : { 2, 3 }) {
        const Scalar& noise = perlins()[size_t(axis - 1)];
        Points points(50);
        int changed = 0;
        for (int i = 0; i < 100; ++i) {
            Point p = points.next();
            const float before = noise.at(p);
            p[size_t(axis)] += 1;
            changed += std::fabs(noise.at(p) - before) > 0.01f;
        }
        EXPECT_GT(changed, 80) << noise.name;
    }
}

// ---- Periods ----

TEST(Noise, periodic_noise_repeats_along_every_axis)
{
    for (const Scalar& noise : periodicPerlins()) {
        Points points(20);
        for (int i = 0; i < 2000; ++i) {
            const Point p = points.nextDyadic();
            const float value = noise.at(p);
            for (size_t axis = 0; axis < size_t(noise.dimensions); ++axis)
                for (int times : { -100, -3, -1, 1, 2, 50 }) {
                    Point q = p;
                    q[axis] += float(times * periods[axis]);
                    ASSERT_NEAR(noise.at(q), value, 2e-6f)
                        << describe(noise.name, p) << " axis " << axis << " times " << times;
                }
        }
    }
}

TEST(Noise, periodic_noise_does_not_repeat_earlier)
{
    for (const Scalar& noise : periodicPerlins())
        for (size_t axis = 0; axis < size_t(noise.dimensions); ++axis)
            for (int shift = 1; shift < periods[axis]; ++shift) {
                Points points(20);
                int changed = 0;
                for (int i = 0; i < 100; ++i) {
                    const Point p = points.nextDyadic();
                    Point q = p;
                    q[axis] += float(shift);
                    changed += std::fabs(noise.at(p) - noise.at(q)) > 0.01f;
                }
                EXPECT_GT(changed, 60) << noise.name << " axis " << axis << " by " << shift;
            }
}

TEST(Noise, a_period_below_2_counts_as_1)
{
    Points points(20);
    for (int i = 0; i < 200; ++i) {
        const Point p = points.nextDyadic();
        const RtPoint q = spatial(p), next = { q.x + 1, q.y, q.z };
        const float once = RvPeriodicPerlin3(&q, 1, 4, 4);
        EXPECT_NEAR(RvPeriodicPerlin3(&next, 1, 4, 4), once, 2e-6f);
        for (int period : { 0, -1, -7, INT_MIN })
            EXPECT_EQ(RvPeriodicPerlin3(&q, period, 4, 4), once) << period;
        EXPECT_EQ(RvPeriodicPerlin2(flat(p), 3, -2), RvPeriodicPerlin2(flat(p), 3, 1));
        EXPECT_EQ(RvPeriodicPerlin4(&q, p[3], 3, 4, 5, 0), RvPeriodicPerlin4(&q, p[3], 3, 4, 5, 1));
    }
}

// ---- Fractal sums ----

TEST(Noise, fractal_noise_of_one_octave_is_gradient_noise)
{
    for (const Scalar& noise : perlins()) {
        Points points(100);
        for (int i = 0; i < 500; ++i) {
            const Point p = points.next();
            ASSERT_EQ(fractal(noise.dimensions, p, 1, 0, 1.92f), noise.at(p));
            ASSERT_EQ(fractal(noise.dimensions, p, 1, -3, 1.92f), noise.at(p)); // no distortion
        }
    }
}

TEST(Noise, fractal_noise_without_octaves_is_0)
{
    const Point p = { 0.3f, 0.6f, -0.2f, 0.7f };
    for (int dimensions : { 2, 3, 4 })
        for (int octaves : { 0, -1, INT_MIN }) {
            EXPECT_EQ(fractal(dimensions, p, octaves, 1, 2), 0);
            const RtVector v = vectorFractal(dimensions, p, octaves, 1, 2);
            EXPECT_TRUE(v.x == 0 && v.y == 0 && v.z == 0);
        }
}

Point scaled(Point p, float factor)
{
    for (float& x : p)
        x *= factor;
    return p;
}

TEST(Noise, each_octave_is_finer_and_weaker_by_the_lacunarity)
{
    for (const Scalar& noise : perlins()) {
        Points points(10);
        for (int i = 0; i < 200; ++i) {
            const Point p = points.next();
            const float want =
                noise.at(p) + noise.at(scaled(p, 2.5f)) / 2.5f + noise.at(scaled(p, 6.25f)) / 6.25f;
            ASSERT_NEAR(fractal(noise.dimensions, p, 3, 0, 2.5f), want, 1e-4f) << noise.name;
        }
    }
}

// Required: they are not divided.
TEST(Noise, octaves_of_a_divisor_that_is_not_positive_count_in_full)
{
    const Scalar& noise = perlins()[1];
    const Point p = { 0.3f, 0.6f, -0.2f };
    EXPECT_FLOAT_EQ(fractal(3, p, 3, 0, -2),
                    noise.at(p) + noise.at(scaled(p, -2)) + noise.at(scaled(p, 4)) / 4);
    EXPECT_EQ(fractal(3, p, 5, 0, 0), noise.at(p)); // at the origin there is nothing to add
}

TEST(Noise, distortion_moves_the_point_by_vector_noise)
{
    static constexpr float distortion = 0.75f;
    for (int dimensions : { 2, 3 }) {
        const Scalar& noise = perlins()[size_t(dimensions - 2)];
        Points points(10);
        for (int i = 0; i < 200; ++i) {
            const Point p = points.next();
            const RtVector way = vectorFractal(dimensions, p, 1, 0, 1);
            const Point moved = { p[0] + distortion * way.x, p[1] + distortion * way.y,
                                  p[2] + distortion * way.z };
            ASSERT_NEAR(fractal(dimensions, p, 1, distortion, 2), noise.at(moved), 1e-5f)
                << describe(noise.name, p);
        }
    }
}

TEST(Noise, distortion_reaches_every_coordinate_in_four_dimensions)
{
    // Along a whole plane of the fourth coordinate only a shift of it can change the value.
    Points points(10);
    int changed = 0;
    for (int i = 0; i < 100; ++i) {
        const Point p = points.nextWhole();
        Point q = p;
        q[3] += 0.5f;
        changed += fractal(4, q, 1, 0.5f, 2) != perlins()[2].at(q);
    }
    EXPECT_GT(changed, 90);
}

TEST(Noise, the_components_of_vector_noise_are_independent)
{
    for (int dimensions : { 2, 3, 4 }) {
        Points points(100);
        static constexpr int count = 20000;
        double products[3] = {}, squares[3] = {};
        for (int i = 0; i < count; ++i) {
            const Point p = points.next();
            const RtVector v = vectorFractal(dimensions, p, 1, 0, 2);
            ASSERT_EQ(v.x, fractal(dimensions, p, 1, 0, 2));
            for (int c = 0; c < 3; ++c) {
                products[c] += double(component(v, c)) * double(component(v, (c + 1) % 3));
                squares[c] += double(component(v, c)) * double(component(v, c));
            }
        }
        // In two dimensions all rows of the lattice hold the same 256 gradients, and so a shift by
        // whole cells leaves a correlation of about 1 / sqrt(256).
        for (int c = 0; c < 3; ++c) {
            EXPECT_LT(std::fabs(products[c] / std::sqrt(squares[c] * squares[(c + 1) % 3])), 0.1)
                << dimensions << " component " << c;
            EXPECT_GT(squares[c] / count, 0.02) << dimensions << " component " << c;
        }
    }
}

// ---- Cells ----

TEST(Noise, cell_noise_is_constant_inside_each_cell)
{
    std::mt19937 random(2);
    std::uniform_real_distribution<float> inside(0.01f, 0.99f);
    for (const Scalar& noise : cellNoises()) {
        Points points(50);
        for (int i = 0; i < 500; ++i) {
            const Point cell = points.nextWhole();
            Point p[2] = { cell, cell };
            for (Point& q : p)
                for (float& x : q)
                    x += inside(random);
            ASSERT_EQ(noise.at(p[0]), noise.at(p[1])) << describe(noise.name, cell);
        }
    }
}

TEST(Noise, cell_noise_is_spread_evenly_from_0_to_1)
{
    const auto expectEven = [](const char* name, const std::vector<int>& bins) {
        int count = 0;
        for (int bin : bins)
            count += bin;
        const double expected = double(count) / double(bins.size());
        double chi_square = 0;
        for (int bin : bins)
            chi_square += (bin - expected) * (bin - expected) / expected;
        EXPECT_LT(chi_square, 45) << name; // 15 degrees of freedom: once in ten thousand
    };
    const auto binOf = [](float value) {
        EXPECT_GE(value, 0);
        EXPECT_LT(value, 1);
        return size_t(std::clamp(value, 0.0f, 0.999f) * 16);
    };
    for (const Scalar& noise : cellNoises()) {
        Points points(1e6f); // nearly all of them in cells of their own
        std::vector<int> bins(16);
        for (int i = 0; i < 50000; ++i)
            ++bins[binOf(noise.at(points.next()))];
        expectEven(noise.name, bins);
    }
    for (const Vector& noise : cellVectors())
        for (int c = 0; c < 3; ++c) {
            Points points(1e6f);
            std::vector<int> bins(16);
            for (int i = 0; i < 50000; ++i)
                ++bins[binOf(component(noise.at(points.next()), c))];
            expectEven(noise.name, bins);
        }
}

TEST(Noise, cell_noise_in_two_dimensions_is_a_plane_of_that_in_three)
{
    Points points(300);
    for (int i = 0; i < 1000; ++i) {
        Point p = points.next();
        p[2] = 0.5f;
        ASSERT_EQ(cellNoises()[0].at(p), cellNoises()[1].at(p)) << describe("plane", p);
        const RtVector flat = cellVectors()[0].at(p), plane = cellVectors()[1].at(p);
        for (int c = 0; c < 3; ++c)
            ASSERT_EQ(component(flat, c), component(plane, c)) << describe("plane", p);
    }
}

TEST(Noise, neighbouring_cells_have_nothing_in_common)
{
    for (const Scalar& noise : cellNoises())
        for (size_t axis = 0; axis < size_t(noise.dimensions); ++axis) {
            Points points(500);
            static constexpr int count = 20000;
            double covariance = 0;
            for (int i = 0; i < count; ++i) {
                Point p = points.next();
                const double here = double(noise.at(p)) - 0.5;
                p[axis] += 1;
                covariance += here * (double(noise.at(p)) - 0.5);
            }
            EXPECT_NEAR(covariance / count * 12, 0, 0.03) << noise.name << " axis " << axis;
        }
}

// Required: as in gradient noise.
TEST(Noise, a_negative_whole_number_belongs_to_the_cell_below)
{
    for (const Scalar& noise : cellNoises())
        for (size_t axis = 0; axis < size_t(noise.dimensions); ++axis) {
            Point on = { 0.5f, 0.5f, 0.5f, 0.5f }, below = on, above = on;
            on[axis] = -2;
            below[axis] = -2.5f;
            above[axis] = -1.5f;
            EXPECT_EQ(noise.at(on), noise.at(below)) << noise.name;
            EXPECT_NE(noise.at(on), noise.at(above)) << noise.name;
            on[axis] = 2; // others to the one above
            above[axis] = 2.5f;
            EXPECT_EQ(noise.at(on), noise.at(above)) << noise.name;
        }
}

// ---- Cellular noise ----

// The distance to the nearest point of all cells up to some cells away, in double precision.
double nearestPoint(const Point& p, int reach)
{
    double nearest = 1e30;
    for (int z = -reach; z <= reach; ++z)
        for (int y = -reach; y <= reach; ++y)
            for (int x = -reach; x <= reach; ++x) {
                const int steps[] = { x, y, z };
                float middle[3];
                double way[3];
                for (size_t axis = 0; axis < 3; ++axis) {
                    const float corner = std::floor(p[axis]) + float(steps[axis]);
                    middle[axis] = corner + 0.5f;
                    way[axis] = double(corner) - double(p[axis]);
                }
                const RtPoint cell = { middle[0], middle[1], middle[2] };
                const RtVector at = RvVCellNoise3(&cell);
                nearest = std::min(nearest, std::hypot(way[0] + double(at.x), way[1] + double(at.y),
                                                       way[2] + double(at.z)));
            }
    return nearest;
}

TEST(Noise, cellular_noise_is_the_distance_to_the_nearest_point)
{
    Points points(30);
    for (int i = 0; i < 3000; ++i) {
        const Point p = points.next();
        const float distance = cellular(p);
        ASSERT_NEAR(distance, nearestPoint(p, 2), 1e-5f) << describe("RvCellular", p);
        ASSERT_GE(distance, 0);
        ASSERT_LT(distance, std::sqrt(3.0f));
    }
    for (int i = 0; i < 200; ++i) {
        const Point p = points.next();
        ASSERT_NEAR(cellular(p), nearestPoint(p, 4), 1e-5f) << describe("RvCellular", p);
    }
}

// Rare, and overlooked by a search of the neighbouring cells alone.
TEST(Noise, cellular_noise_finds_a_point_two_cells_away)
{
    static constexpr Point far_from_all[] = { { 90.0199966f, 183.240448f, -138.995224f },
                                              { -52.0200005f, -15.8188171f, 251.651733f },
                                              { -281.980011f, -211.107544f, 73.4577026f } };
    for (const Point& p : far_from_all) {
        ASSERT_LT(nearestPoint(p, 2), nearestPoint(p, 1) - 0.01f);
        EXPECT_NEAR(cellular(p), nearestPoint(p, 2), 1e-5f);
    }
}

TEST(Noise, cellular_noise_is_0_at_the_points)
{
    Points points(30);
    for (int i = 0; i < 200; ++i) {
        Point p = points.nextWhole();
        const RtPoint middle = { p[0] + 0.5f, p[1] + 0.5f, p[2] + 0.5f };
        const RtVector at = RvVCellNoise3(&middle);
        EXPECT_NEAR(cellular({ p[0] + at.x, p[1] + at.y, p[2] + at.z }), 0, 5e-6f);
    }
}

TEST(Noise, cellular_noise_is_continuous_across_cells)
{
    static constexpr float step = 1e-3f;
    Points points(30);
    for (size_t i = 0; i < 3000; ++i) {
        Point below = points.next();
        below[i % 3] = std::floor(below[i % 3]) - step / 2;
        Point above = below;
        above[i % 3] += step;
        ASSERT_LE(std::fabs(cellular(above) - cellular(below)), step + 1e-5f);
    }
}

// ---- Odd points ----

constexpr float odd_numbers[] = { 1e9f,       -1e9f,    2147483648.0f, -2147483648.0f,
                                  8388607.5f, -8388609, 1e30f,         -1e30f,
                                  FLT_MAX,    -FLT_MAX, INFINITY,      -INFINITY,
                                  NAN,        1e-45f,   -1e-45f,       -0.0f,
                                  0.5f,       -1 };

// Calls use(point) with every pair of odd numbers in each pair of neighbouring coordinates.
template <class Use> void forOddPoints(const Use& use)
{
    for (float a : odd_numbers)
        for (float b : odd_numbers)
            for (size_t axis = 0; axis < 4; ++axis) {
                Point p = { 0.25f, -0.5f, 7.75f, 0.125f };
                p[axis] = a;
                p[(axis + 1) % 4] = b;
                use(p);
            }
}

TEST(Noise, every_function_is_bounded_wherever_the_point_lies)
{
    forOddPoints([](const Point& p) {
        for (const Scalar& noise : gradientNoises())
            ASSERT_LE(std::fabs(noise.at(p)), 1.25f) << describe(noise.name, p);
        for (const Scalar& noise : cellNoises()) {
            const float value = noise.at(p);
            ASSERT_TRUE(value >= 0 && value < 1) << describe(noise.name, p);
        }
        for (const Vector& noise : cellVectors())
            for (int c = 0; c < 3; ++c) {
                const float value = component(noise.at(p), c);
                ASSERT_TRUE(value >= 0 && value < 1) << describe(noise.name, p);
            }
        ASSERT_LT(cellular(p), std::sqrt(3.0f) + 1e-5f) << describe("RvCellular", p);
        ASSERT_GE(cellular(p), 0) << describe("RvCellular", p);
        for (int dimensions : { 2, 3, 4 }) {
            ASSERT_LE(std::fabs(fractal(dimensions, p, 8, 2, 2)), 2.5f) << describe("fractal", p);
            ASSERT_LE(std::fabs(vectorFractal(dimensions, p, 8, 2, 2).z), 2.5f);
        }
    });
}

TEST(Noise, gradient_noise_is_0_where_there_are_only_whole_numbers)
{
    for (const Scalar& noise : gradientNoises())
        for (float far : { 8388608.0f, 16777218.0f, 1e9f, 1e30f, INFINITY })
            for (float sign : { 1.0f, -1.0f }) {
                const float x = far * sign;
                EXPECT_EQ(noise.at({ x, x, x, x }), 0) << noise.name << " " << x;
            }
}

TEST(Noise, any_period_will_do)
{
    forOddPoints([](const Point& p) {
        const RtPoint q = spatial(p);
        for (int period : { INT_MAX, INT_MAX - 1, 1 << 30, 2, 0, INT_MIN }) {
            ASSERT_LE(std::fabs(RvPeriodicPerlin2(flat(p), period, 3)), 1.25f);
            ASSERT_LE(std::fabs(RvPeriodicPerlin3(&q, 3, period, period)), 1.25f);
            ASSERT_LE(std::fabs(RvPeriodicPerlin4(&q, p[3], 3, 5, period, period)), 1.25f);
        }
    });
}

TEST(Noise, the_time_of_a_fractal_sum_is_bounded)
{
    const Point p = { 0.3f, 0.6f, -0.2f, 0.9f };
    for (int dimensions : { 2, 3, 4 }) {
        // Octaves all alike, so that each would count.
        EXPECT_EQ(fractal(dimensions, p, INT_MAX, 0, 1), fractal(dimensions, p, 256, 0, 1));
        EXPECT_NE(fractal(dimensions, p, 256, 0, 1), fractal(dimensions, p, 255, 0, 1));
        EXPECT_TRUE(std::isfinite(fractal(dimensions, p, INT_MAX, 1, 2)));
    }
}

TEST(Noise, odd_parameters_of_a_fractal_sum_do_no_harm)
{
    const Point p = { 0.3f, 0.6f, -0.2f, 0.9f };
    for (float distortion : odd_numbers)
        for (float lacunarity : odd_numbers)
            for (int dimensions : { 2, 3, 4 })
                for (int octaves : { 1, 40 }) {
                    const float value = fractal(dimensions, p, octaves, distortion, lacunarity);
                    if (octaves == 1 || lacunarity >= 1) {
                        ASSERT_LE(std::fabs(value), 1.25f * 40)
                            << dimensions << " " << distortion << " " << lacunarity;
                    }
                }
}

TEST(Noise, a_null_point_is_the_origin)
{
    const RtPoint origin = {};
    EXPECT_EQ(RvPerlin3(nullptr), 0);
    EXPECT_EQ(RvPerlin4(nullptr, 0.5f), RvPerlin4(&origin, 0.5f));
    EXPECT_EQ(RvPeriodicPerlin3(nullptr, 2, 2, 2), 0);
    EXPECT_EQ(RvPeriodicPerlin4(nullptr, 0.5f, 2, 2, 2, 2),
              RvPeriodicPerlin4(&origin, 0.5f, 2, 2, 2, 2));
    EXPECT_EQ(RvNoise3(nullptr, 4, 0, 2), 0);
    EXPECT_EQ(RvNoise4(nullptr, 0.5f, 4, 0, 2), RvNoise4(&origin, 0.5f, 4, 0, 2));
    EXPECT_EQ(RvVNoise3(nullptr, 4, 0, 2).z, RvVNoise3(&origin, 4, 0, 2).z);
    EXPECT_EQ(RvVNoise4(nullptr, 0.5f, 4, 0, 2).z, RvVNoise4(&origin, 0.5f, 4, 0, 2).z);
    EXPECT_EQ(RvCellNoise3(nullptr), RvCellNoise3(&origin));
    EXPECT_EQ(RvCellNoise4(nullptr, 3), RvCellNoise4(&origin, 3));
    EXPECT_EQ(RvVCellNoise3(nullptr).z, RvVCellNoise3(&origin).z);
    EXPECT_EQ(RvVCellNoise4(nullptr, 3).z, RvVCellNoise4(&origin, 3).z);
    EXPECT_EQ(RvCellular(nullptr), RvCellular(&origin));
}

// ---- Threads ----

std::vector<float> valuesOfEveryFunction()
{
    std::vector<float> values;
    Points points(300);
    for (int i = 0; i < 500; ++i) {
        const Point p = points.next();
        for (const auto& family : { gradientNoises(), cellNoises() })
            for (const Scalar& noise : family)
                values.push_back(noise.at(p));
        for (const Vector& noise : cellVectors())
            values.push_back(noise.at(p).y);
        for (int dimensions : { 2, 3, 4 })
            values.push_back(vectorFractal(dimensions, p, 3, 0.5f, 1.92f).z);
        values.push_back(cellular(p));
    }
    return values;
}

TEST(Noise, concurrent_calls_give_the_same_values)
{
    const std::vector<float> expected = valuesOfEveryFunction();
    std::vector<std::vector<float>> got(4);
    std::vector<std::thread> threads;
    for (std::vector<float>& values : got)
        threads.emplace_back([&values] { values = valuesOfEveryFunction(); });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::vector<float>& values : got)
        EXPECT_EQ(values, expected);
}

} // namespace
