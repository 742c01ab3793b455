// Tests of core/src/lights/quad_sphere.cpp: directions towards quads.
#include "lights/quad_sphere.h"

#include "quad_tools.h"
#include "statistics.h"

#include <gtest/gtest.h>

using namespace quad_tools;
using statistics::Uniform;

TEST(QuadSphere, directions_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("lights", "quad_spherical_sample")) {
        const auto& in = v["in"];
        const std::vector<float> p = goldenFloats(in["P"]);
        const float u = goldenFloat(in["u"]);
        const rv::SphericalQuad s =
            rv::projectQuad(quadOf(cornersOf(in["vertices"])), { p[0], p[1], p[2] });
        const auto& [first, second] = s.triangles;
        const Vec3d d = rv::sphericalDirection(s, u, goldenFloat(in["v"]));
        expectGoldenNumbers(v, "area0", { float(first.area) });
        expectGoldenNumbers(v, "area1", { float(second.area) });
        expectGoldenNumbers(
            v, "angles0",
            { float(first.angles[0]), float(first.angles[1]), float(first.angles[2]) });
        expectGoldenNumbers(v, "Omega", { float(s.extent()) });
        expectGolden(v, "chosen", double(u) * s.extent() >= first.area ? 1 : 0);
        expectGoldenNumbers(v, "dir", { float(d.x), float(d.y), float(d.z) });
    }
}

TEST(QuadSphere, the_extent_is_the_solid_angle)
{
    for (const Corners& corners : { default_corners, kite }) {
        const rv::QuadGeometry q = quadOf(corners);
        for (const double distance : { 0.01, 0.3, 1.0, 10.0, 300.0, 1000.0 })
            for (const double aside : { 0.0, 0.7, 5.0 }) {
                const RtPoint p = rv::single(vec3d(q.centre) + vec3d(q.normal) * distance +
                                             Vec3d{ aside, aside / 3, 0 });
                const double want = solidAngle(corners, p);
                EXPECT_NEAR(rv::projectQuad(q, p).extent(), want, want * 1e-4)
                    << distance << " " << aside;
            }
    }
}

TEST(QuadSphere, a_far_unit_square_is_seen_slightly_smaller_than_its_flat_image)
{
    const rv::QuadGeometry q = quadOf(
        { { { -0.5f, -0.5f, 0 }, { -0.5f, 0.5f, 0 }, { 0.5f, 0.5f, 0 }, { 0.5f, -0.5f, 0 } } });
    for (const float d : { 10.0f, 30.0f, 100.0f }) {
        const double extent = rv::projectQuad(q, { 0, 0, -d }).extent() * double(d) * double(d);
        EXPECT_LT(extent, 1) << d;
        EXPECT_GT(extent, 1 - 1 / double(d * d)) << d;
    }
}

// Cells are small quads of their own, whose solid angles are known.
TEST(QuadSphere, directions_are_even_over_the_solid_angle)
{
    constexpr int samples = 1000000, n = 12;
    const RtPoint points[] = { { 0.3f, 0.1f, -0.2f }, { -2, 0.5f, -1 }, { 4, 3, -30 } };
    for (const Corners& corners : { default_corners, kite })
        for (RtPoint p : points) {
            rv::QuadGeometry q = quadOf(corners);
            if (q.normal.z > 0)
                p.z = 1 - p.z; // in front of the kite
            const rv::SphericalQuad s = rv::projectQuad(q, p);
            const double extent = solidAngle(corners, p);
            std::vector<double> observed(n * n), expected;
            for (int row = 0; row < n; ++row)
                for (int column = 0; column < n; ++column) {
                    const auto at = [&](int i, int j) {
                        return rv::quadPoint(q, float(i) / n, float(j) / n);
                    };
                    const Corners cell = { at(column, row), at(column + 1, row),
                                           at(column + 1, row + 1), at(column, row + 1) };
                    expected.push_back(solidAngle(cell, p) / extent * samples);
                }
            Uniform uniform(13);
            int first = 0, outside = 0;
            for (int i = 0; i < samples; ++i) {
                const float su = uniform(), sv = uniform();
                const Vec3d d = rv::sphericalDirection(s, su, sv);
                ASSERT_NEAR(rv::length(d), 1, 1e-9);
                first += double(su) * s.extent() < s.triangles[0].area;
                const double t = -rv::distanceInFront(q, p) / rv::dot(d, vec3d(q.normal));
                float u, v;
                if (!rv::placeOnQuad(q, vec3d(p) + d * t, &u, &v)) {
                    ++outside;
                    continue;
                }
                const int column = std::min(int(u * n), n - 1), row = std::min(int(v * n), n - 1);
                ++observed[size_t(row * n + column)];
            }
            EXPECT_LT(outside, samples / 10000) << "only by rounding, at the edges";
            EXPECT_NEAR(first, s.triangles[0].area / s.extent() * samples, 4 * sqrt(samples) / 2);
            EXPECT_GT(statistics::chiSquareTest(observed, expected).p, 0.01 / 6)
                << p.z << "\n"
                << statistics::worstCells(observed, expected);
        }
}

TEST(QuadSphere, points_on_the_quad_and_beyond_numbers_do_no_harm)
{
    const rv::QuadGeometry q = quadOf(default_corners);
    for (const RtPoint& p : { RtPoint{ 0, 0, 0 }, RtPoint{ -1, -1, 0 }, RtPoint{ 5, 0, 0 },
                              RtPoint{ NAN, 0, 0 }, RtPoint{ 1e38f, 1e38f, -1e38f } }) {
        const rv::SphericalQuad s = rv::projectQuad(q, p);
        rv::sphericalDirection(s, 0.5f, 0.5f);
        EXPECT_GE(s.extent(), 0);
    }
}
