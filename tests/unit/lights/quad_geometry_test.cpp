// Tests of core/src/lights/quad_geometry.cpp: planar quadrilaterals.
#include "quad_tools.h"

#include "statistics.h"

#include <gtest/gtest.h>

using namespace quad_tools;
using nlohmann::json;
using statistics::Uniform;

static json faultText(rv::QuadFault fault)
{
    switch (fault) {
    case rv::quad_is_degenerate: return "degenerate quad area light";
    case rv::quad_is_not_planar: return "non-planar quad area lights are not supported";
    default: return nullptr;
    }
}

static rv::QuadJacobian jacobianOf(const json& in)
{
    const std::vector<float> n = goldenFloats(in["jacobian"]);
    return { n[0], n[1], n[2] };
}

// ---- Golden vectors ----

TEST(QuadGeometry, shapes_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "quad_geometry")) {
        rv::QuadGeometry q;
        const rv::QuadFault fault = rv::makeQuad(cornersOf(v["in"]["vertices"]).data(), &q);
        expectGolden(v, "error", faultText(fault));
        if (fault != rv::quad_is_fine)
            continue;
        expectGoldenNumbers(v, "area", { q.area });
        expectGoldenNumbers(v, "normal", { q.normal.x, q.normal.y, q.normal.z });
        expectGoldenNumbers(v, "plane_d", { float(rv::distanceInFront(q, { 0, 0, 0 })) });
        expectGoldenNumbers(v, "centre", { q.centre.x, q.centre.y, q.centre.z });
        expectGoldenNumbers(v, "radius", { q.radius });
        expectGoldenNumbers(v, "jacobian", { q.jacobian.a, q.jacobian.b, q.jacobian.c });
    }
}

TEST(QuadGeometry, area_samples_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "quad_density_inversion")) {
        const auto& in = v["in"];
        const rv::QuadSample s =
            rv::sampleQuadArea(jacobianOf(in), goldenFloat(in["su"]), goldenFloat(in["sv"]));
        expectGoldenNumbers(v, "u", { s.u });
        expectGoldenNumbers(v, "v", { s.v });
        expectGoldenNumbers(v, "density", { s.density });
    }
}

TEST(QuadGeometry, points_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "quad_point")) {
        const RtPoint p = rv::quadPoint(quadOf(cornersOf(v["in"]["vertices"])),
                                        goldenFloat(v["in"]["u"]), goldenFloat(v["in"]["v"]));
        expectGoldenNumbers(v, "Q", { p.x, p.y, p.z });
    }
}

// ---- Shape ----

TEST(QuadGeometry, the_default_quad_faces_down)
{
    const rv::QuadGeometry q = quadOf(default_corners);
    EXPECT_EQ(q.area, 4);
    EXPECT_EQ(q.normal.z, -1);
    EXPECT_GT(rv::distanceInFront(q, { 5, 5, -1 }), 0);
    EXPECT_LT(rv::distanceInFront(q, { 0, 0, 1 }), 0);
}

TEST(QuadGeometry, what_is_no_quad_is_told_apart)
{
    const float inf = INFINITY;
    const struct {
        const char* name;
        Corners corners;
        rv::QuadFault fault;
    } rows[] = {
        { "a line",
          { { { 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 }, { 3, 0, 0 } } },
          rv::quad_is_degenerate },
        { "a point",
          { { { 1, 2, 3 }, { 1, 2, 3 }, { 1, 2, 3 }, { 1, 2, 3 } } },
          rv::quad_is_degenerate },
        { "an hourglass",
          { { { 0, 0, 0 }, { 0, 1, 0 }, { 1, -2, 0 }, { 1, 0, 0 } } },
          rv::quad_is_not_planar },
        { "a lifted corner",
          { { { 0, 0, 0 }, { 0, 1, 0 }, { 1, 1, 0.1f }, { 1, 0, 0 } } },
          rv::quad_is_not_planar },
        { "a hardly lifted corner",
          { { { 0, 0, 0 }, { 0, 1, 0 }, { 1, 1, 0.005f }, { 1, 0, 0 } } },
          rv::quad_is_fine },
        { "no number",
          { { { 0, 0, 0 }, { 0, NAN, 0 }, { 1, 1, 0 }, { 1, 0, 0 } } },
          rv::quad_is_degenerate },
        { "no number opposite",
          { { { 0, 0, 0 }, { 0, 1, 0 }, { NAN, 1, 0 }, { 1, 0, 0 } } },
          rv::quad_is_not_planar },
        { "endless",
          { { { 0, 0, 0 }, { 0, inf, 0 }, { 1, 1, 0 }, { 1, 0, 0 } } },
          rv::quad_is_degenerate },
        { "tiny",
          { { { 0, 0, 0 }, { 0, 1e-12f, 0 }, { 1e-12f, 1e-12f, 0 }, { 1e-12f, 0, 0 } } },
          rv::quad_is_fine },
        { "huge",
          { { { 0, 0, 0 }, { 0, 1e12f, 0 }, { 1e12f, 1e12f, 0 }, { 1e12f, 0, 0 } } },
          rv::quad_is_fine },
    };
    for (const auto& row : rows) {
        rv::QuadGeometry q;
        EXPECT_EQ(rv::makeQuad(row.corners.data(), &q), row.fault) << row.name;
    }
}

// ---- Area sampling ----

TEST(QuadGeometry, a_parallelogram_is_sampled_where_the_numbers_say)
{
    const rv::QuadGeometry q = quadOf({ { { 0, 0, 0 }, { 2, 1, 0 }, { 3, 4, 0 }, { 1, 3, 0 } } });
    for (float su : { 0.0f, 0.125f, 0.7f, 0.999f })
        for (float sv : { 0.0f, 0.25f, 0.9f }) {
            const rv::QuadSample s = rv::sampleQuadArea(q.jacobian, su, sv);
            EXPECT_FLOAT_EQ(s.u, su);
            EXPECT_FLOAT_EQ(s.v, sv);
            EXPECT_FLOAT_EQ(s.density, 1 / q.area);
        }
}

// Samples of an area function are even over the area where the sides of the quad are parallel; u is
// so for every quad.
TEST(QuadGeometry, area_samples_are_even)
{
    constexpr int samples = 1000000, n = 20;
    for (const Corners& corners : { default_corners, kite }) {
        const rv::QuadGeometry q = quadOf(corners);
        const bool is_kite = q.jacobian.a != 0;
        std::vector<double> observed(n * n), expected(n * n);
        Uniform uniform(11);
        for (int i = 0; i < samples; ++i) {
            const float su = uniform(), sv = uniform();
            const rv::QuadSample s = rv::sampleQuadArea(q.jacobian, su, sv);
            const int column = std::min(int(s.u * n), n - 1),
                      row = is_kite ? 0 : std::min(int(s.v * n), n - 1);
            ++observed[size_t(row * n + column)];
        }
        for (int row = 0; row < n; ++row)
            for (int column = 0; column < n; ++column)
                expected[size_t((is_kite ? 0 : row) * n + column)] +=
                    double(q.jacobian.at((float(column) + 0.5f) / n, (float(row) + 0.5f) / n)) /
                    double(q.area) / (n * n) * samples;
        EXPECT_GT(statistics::chiSquareTest(observed, expected).p, 0.005)
            << statistics::worstCells(observed, expected);
    }
}

// And not the density at u.
TEST(QuadGeometry, v_deliberately_follows_the_strip_from_0_to_u)
{
    const rv::QuadGeometry q = quadOf(kite);
    constexpr int steps = 400;
    double farthest = 0; // from where the density at u would lead
    for (const float su : { 0.2f, 0.5f, 0.9f })
        for (const float sv : { 0.1f, 0.6f, 0.95f }) {
            const rv::QuadSample s = rv::sampleQuadArea(q.jacobian, su, sv);
            double whole = 0, below = 0; // area of the strip
            for (int i = 0; i < steps; ++i)
                for (int j = 0; j < steps; ++j) {
                    const float u = s.u * (float(i) + 0.5f) / steps, v = (float(j) + 0.5f) / steps;
                    whole += double(q.jacobian.at(u, v));
                    below += double(q.jacobian.at(u, v * s.v)) * double(s.v);
                }
            EXPECT_NEAR(below / whole, sv, 1e-5) << su << " " << sv;
            const double v = s.v, b = q.jacobian.b,
                         c = double(q.jacobian.a) * double(s.u) + double(q.jacobian.c);
            const double at_u = (c * v + b * v * v / 2) / (c + b / 2);
            farthest = std::max(farthest, std::fabs(at_u - double(sv)));
        }
    EXPECT_GT(farthest, 0.01);
}

TEST(QuadGeometry, equations_without_a_solution_keep_the_sample)
{
    const rv::QuadSample s = rv::sampleQuadArea({ -4, 0, 0.5f }, 0.25f, 0.75f);
    EXPECT_TRUE(s.u >= 0 && s.u <= 1 && s.v >= 0 && s.v <= 1) << s.u << " " << s.v;
    EXPECT_EQ(rv::sampleQuadArea({ 0, 0, NAN }, 0.25f, 0.75f).u, 0.25f);
    EXPECT_EQ(rv::sampleQuadArea({ 0, 0, NAN }, 0.25f, 0.75f).v, 0.75f);
    EXPECT_EQ(rv::sampleQuadArea({ 0, 0, 0 }, 0.25f, 0.75f).v, 0.75f);
}

// ---- Intersection ----

TEST(QuadGeometry, rays_find_the_place_that_they_were_aimed_at)
{
    const Corners slanted = { { { 0, 0, 0 }, { 0, 1, 1 }, { 2, 1, 1 }, { 2, 0, 0 } } };
    const Corners trapezoid = { { { 0, 0, 0 }, { 0, 0, 2 }, { 0, 1, 1.5f }, { 0, 1, 0.5f } } };
    for (const Corners& corners : { default_corners, kite, slanted, trapezoid }) {
        const rv::QuadGeometry q = quadOf(corners);
        Uniform uniform(12);
        for (int i = 0; i < 2000; ++i) {
            const float u = uniform(), v = uniform();
            const RtPoint place = rv::quadPoint(q, u, v);
            const Vec3d origin = vec3d(q.centre) + vec3d(q.normal) * 3 +
                                 Vec3d{ double(uniform()), double(uniform()), double(uniform()) };
            const Vec3d way = vec3d(place) - origin;
            rv::QuadHit hit;
            const double margin = std::min({ u, v, 1 - u, 1 - v });
            if (margin < 1e-5)
                continue;
            ASSERT_TRUE(
                rv::intersectQuad(q, rv::single(origin), rv::single(rv::normalized(way)), &hit))
                << u << " " << v;
            EXPECT_NEAR(hit.u, u, 1e-5);
            EXPECT_NEAR(hit.v, v, 1e-5);
            EXPECT_NEAR(hit.distance, rv::length(way), 1e-5 * rv::length(way));
        }
    }
}

TEST(QuadGeometry, rays_miss_beside_behind_and_along)
{
    const rv::QuadGeometry q = quadOf(default_corners);
    rv::QuadHit hit;
    EXPECT_TRUE(rv::intersectQuad(q, { 0, 0, -2 }, { 0, 0, 1 }, &hit));
    EXPECT_EQ(hit.distance, 2);
    EXPECT_FALSE(rv::intersectQuad(q, { 1.01f, 0, -2 }, { 0, 0, 1 }, &hit));
    EXPECT_FALSE(rv::intersectQuad(q, { 0, -1.01f, -2 }, { 0, 0, 1 }, &hit));
    EXPECT_FALSE(rv::intersectQuad(q, { 0, 0, -2 }, { 0, 0, -1 }, &hit)); // away
    EXPECT_FALSE(rv::intersectQuad(q, { 0, 0, 2 }, { 0, 0, -1 }, &hit));  // the dark side
    EXPECT_FALSE(rv::intersectQuad(q, { -3, 0, 0 }, { 1, 0, 0 }, &hit));  // within the plane
    EXPECT_FALSE(rv::intersectQuad(q, { 0, 0, -2 }, { NAN, 0, 1 }, &hit));
    EXPECT_FALSE(rv::intersectQuad(q, { NAN, 0, -2 }, { 0, 0, 1 }, &hit));
}
