// Cutting polygons into triangles, and the tree of points that finds what lies inside them.
#include "objects/triangulate.h"

#include "golden.h"
#include "mesh_tools.h"

#include <chrono>
#include <cmath>
#include <random>

using rv::edgeSide;
using rv::Point2d;

namespace {

using Corners = std::vector<uint32_t>;
using Shape2d = std::vector<Point2d>;

struct Random {
    std::mt19937 generator;
    explicit Random(uint32_t seed) : generator(seed) {}
    uint32_t operator()() { return uint32_t(generator()); }
};

struct Scratch : rv::TriangulateScratch {
    explicit Scratch(size_t corners_at_most)
    {
        EXPECT_TRUE(rv::createTriangulateScratch(this, uint32_t(corners_at_most)));
    }
    ~Scratch() { rv::freeTriangulateScratch(this); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
};

// The corner numbers of all triangles, empty for a polygon that cannot be cut.
Corners cut(const Shape2d& points)
{
    Scratch scratch(points.size());
    Corners corners(3 * (points.size() - 2));
    const bool done =
        rv::triangulate2d(points.data(), uint32_t(points.size()), &scratch, corners.data());
    return done ? corners : Corners();
}

Corners cut(const std::vector<RtPoint>& points)
{
    Scratch scratch(points.size());
    Corners corners(3 * (points.size() - 2));
    const bool done =
        rv::triangulate3d(points.data(), uint32_t(points.size()), &scratch, corners.data());
    return done ? corners : Corners();
}

bool isEar(const Shape2d& p, const std::vector<bool>& gone, size_t remaining, uint32_t a,
           uint32_t b, uint32_t c)
{
    if (edgeSide(p[a], p[b], p[c]) < 0)
        return false;
    for (uint32_t i = 0; remaining > 3 && i < p.size(); ++i)
        if (!gone[i] && i != a && i != b && i != c && edgeSide(p[a], p[b], p[i]) >= 0 &&
            edgeSide(p[b], p[c], p[i]) >= 0 && edgeSide(p[c], p[a], p[i]) >= 0)
            return false;
    return true;
}

// The walk in its plain form, with a test of every corner at every step.
Corners plainWalk(const Shape2d& p)
{
    const uint32_t n = uint32_t(p.size());
    std::vector<bool> gone(n);
    const auto step = [&](uint32_t i, uint32_t by) {
        do
            i = (i + by) % n;
        while (gone[i]);
        return i;
    };
    Corners corners;
    size_t remaining = n;
    uint32_t i = 0;
    for (uint64_t steps = 0; steps < uint64_t(n) * n + 1; ++steps) {
        const uint32_t before = step(i, n - 1), after = step(i, 1);
        if (isEar(p, gone, remaining, before, i, after)) {
            corners.insert(corners.end(), { before, i, after });
            gone[i] = true;
            if (--remaining == 2)
                return corners;
        }
        i = after;
    }
    return {};
}

double area(const RtPoint& a, const RtPoint& b, const RtPoint& c)
{
    const double ux = double(b.x) - a.x, uy = double(b.y) - a.y, uz = double(b.z) - a.z;
    const double vx = double(c.x) - a.x, vy = double(c.y) - a.y, vz = double(c.z) - a.z;
    return std::hypot(uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx) / 2;
}

double signedArea(const Shape2d& p)
{
    double sum = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        const Point2d &a = p[i], &b = p[(i + 1) % p.size()];
        sum += a.x * b.y - a.y * b.x;
    }
    return sum / 2;
}

double cutArea(const Shape2d& p, const Corners& corners)
{
    double sum = 0;
    for (size_t i = 0; i + 2 < corners.size(); i += 3)
        sum += edgeSide(p[corners[i]], p[corners[i + 1]], p[corners[i + 2]]) / 2;
    return sum;
}

// A star-shaped polygon around the origin.
template <class Radius> Shape2d radial(uint32_t n, Radius radius)
{
    Shape2d points;
    for (uint32_t i = 0; i < n; ++i) {
        const double angle = 2 * M_PI * i / n, r = radius(i);
        points.push_back({ r * cos(angle), r * sin(angle) });
    }
    return points;
}

// A corridor that winds to the centre; only its ends have ears.
Shape2d spiral(uint32_t n)
{
    Shape2d points;
    const uint32_t half = n / 2;
    for (uint32_t i = 0; i < 2 * half; ++i) {
        const bool outer = i < half;
        const double t = double(outer ? i : 2 * half - 1 - i) / half, angle = 40 * M_PI * t;
        const double r = 1 + 30 * t + (outer ? 0.4 : 0);
        points.push_back({ r * cos(angle), r * sin(angle) });
    }
    if (signedArea(points) < 0)
        std::reverse(points.begin(), points.end());
    return points;
}

} // namespace

TEST(Triangulation, a_quad_is_split_through_its_one_concave_corner)
{
    for (const auto& v : goldenVectors("meshes", "triangulate_quad")) {
        const std::vector<float> f = goldenFloats(v.at("in").at("points"));
        RtPoint points[4];
        memcpy(points, f.data(), sizeof points);
        uint32_t c[6];
        rv::triangulateQuad(points, c);
        expectGolden(v, "triangles", { { c[0], c[1], c[2] }, { c[3], c[4], c[5] } });
    }
}

TEST(Triangulation, every_corner_of_a_quad_may_be_the_concave_one)
{
    const RtPoint dart[4] = { { 0, 0, 1 }, { 2, 0, 1 }, { 0.75f, 0.75f, 1 }, { 0, 2, 1 } };
    for (uint32_t turn = 0; turn < 4; ++turn) {
        RtPoint points[4];
        for (uint32_t i = 0; i < 4; ++i)
            points[(i + turn) % 4] = dart[i];
        uint32_t c[6];
        rv::triangulateQuad(points, c);
        const uint32_t at = (2 + turn) % 4;
        EXPECT_EQ(Corners(c, c + 6),
                  (Corners{ at, (at + 1) % 4, (at + 2) % 4, at, (at + 2) % 4, (at + 3) % 4 }));
    }
}

TEST(Triangulation, quads_without_extent_are_split_like_convex_ones)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const auto& points : std::vector<std::vector<RtPoint>>{
             { { 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 }, { 3, 0, 0 } },
             { { 1, 1, 1 }, { 1, 1, 1 }, { 1, 1, 1 }, { 1, 1, 1 } },
             { { 0, 0, 0 }, { nan, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 } } }) {
        uint32_t c[6];
        rv::triangulateQuad(points.data(), c);
        EXPECT_EQ(Corners(c, c + 6), (Corners{ 0, 1, 2, 0, 2, 3 }));
    }
}

TEST(Triangulation, polygons_are_covered_by_triangles_over_all_their_corners)
{
    for (const auto& v : goldenVectors("meshes", "triangulate_polygon_properties")) {
        const std::vector<float> f = goldenFloats(v.at("in").at("points"));
        std::vector<RtPoint> points(f.size() / 3);
        memcpy(static_cast<void*>(points.data()), f.data(), f.size() * sizeof(float));
        const Corners corners = cut(points);
        double sum = 0;
        for (size_t i = 0; i < corners.size(); i += 3)
            sum += area(points[corners[i]], points[corners[i + 1]], points[corners[i + 2]]);
        expectGolden(v, "count", corners.size() / 3);
        expectGoldenNumbers(v, "area_sum", { float(sum) });
        expectGolden(v, "corners_used", std::set<uint32_t>(corners.begin(), corners.end()));
    }
}

// Required: the most perpendicular pair of edges alone gives the normal.
TEST(Triangulation, a_polygon_whose_normal_comes_from_a_reflex_corner_gives_no_triangles)
{
    EXPECT_EQ(cut(std::vector<RtPoint>{ { 0, -1, 0 },
                                        { 3, -1, 0 },
                                        { 3, -2, 0 },
                                        { 5, -0.5f, 0 },
                                        { 3, 1, 0 },
                                        { 3, 0, 0 },
                                        { 0, 0, 0 } }),
              Corners());
}

TEST(Triangulation, the_walk_starts_at_corner_0_and_goes_on_after_each_ear)
{
    EXPECT_EQ(cut(radial(6, [](uint32_t) { return 1.0; })),
              (Corners{ 5, 0, 1, 5, 1, 2, 5, 2, 3, 5, 3, 4 }));
    // Corner 0 is reflex: the walk begins with the first ear after it.
    const Shape2d notched = { { 1, 0.5 }, { 2, 0 }, { 2, 2 }, { 0, 2 }, { 0, 0 } };
    EXPECT_EQ(cut(notched), (Corners{ 0, 1, 2, 0, 2, 3, 0, 3, 4 }));
}

TEST(Triangulation, clockwise_polygons_give_no_triangles)
{
    for (uint32_t n : { 5u, 50u, 5000u }) {
        Shape2d points = radial(n, [](uint32_t) { return 1.0; });
        std::reverse(points.begin(), points.end());
        EXPECT_EQ(cut(points), Corners()) << n;
    }
}

// On a coarse grid corners coincide and stand in line, and most polygons cross themselves.
TEST(Triangulation, cuts_the_same_ears_as_the_plain_walk)
{
    Random random(7);
    int cut_count = 0;
    for (int round = 0; round < 3000; ++round) {
        const uint32_t n = 4 + random() % (round % 10 ? 12 : 60);
        const int kind = round % 5;
        Shape2d points = radial(n, [&](uint32_t) { return 1 + double(random() % 100) / 30; });
        for (Point2d& p : points) {
            if (kind == 1)
                p = { double(random() % 8), double(random() % 8) };
            if (kind == 2)
                p = { std::round(p.x), std::round(p.y) };
            if (kind == 3)
                p = { std::round(p.x * 8) / 8, std::round(p.y * 2) / 2 };
        }
        const Corners expected = plainWalk(points);
        cut_count += !expected.empty();
        ASSERT_EQ(cut(points), expected) << "round " << round;
    }
    EXPECT_GT(cut_count, 1000);
}

TEST(Triangulation, large_polygons_are_cut_like_the_plain_walk_cuts_them)
{
    Random random(3);
    const auto rough = [&](uint32_t i) {
        return i % 2 ? 1.0 : 0.2 + double(random() % 1000) / 2000;
    };
    Shape2d square;
    for (int side = 0; side < 4; ++side)
        for (int i = 0; i < 75; ++i) {
            const double t = i / 75.0;
            const Point2d p[] = { { t, 0 }, { 1, t }, { 1 - t, 1 }, { 0, 1 - t } };
            square.push_back(p[side]);
        }
    for (const Shape2d& points :
         { radial(300, rough), spiral(300), square, radial(300, [](uint32_t) { return 1.0; }) }) {
        const Corners corners = cut(points);
        EXPECT_EQ(corners, plainWalk(points));
        EXPECT_EQ(corners.size(), 3 * (points.size() - 2));
        EXPECT_NEAR(cutArea(points, corners), signedArea(points), 1e-9 * signedArea(points));
    }
}

TEST(Triangulation, a_hundred_thousand_corners_take_seconds_not_hours)
{
    const uint32_t n = 100000;
    Random random(5);
    const struct {
        const char* name;
        Shape2d points;
    } cases[] = {
        { "teeth", radial(n, [](uint32_t i) { return i % 2 ? 1.0 : 0.5; }) },
        { "noise", radial(n, [&](uint32_t) { return 1 + double(random() % 1000) / 1e6; }) },
        { "waves", radial(n, [](uint32_t i) { return 2 + sin(i * 0.01); }) },
        { "spiral", spiral(n) },
        { "circle", radial(n, [](uint32_t) { return 1.0; }) },
    };
    for (const auto& c : cases) {
        const auto start = std::chrono::steady_clock::now();
        const Corners corners = cut(c.points);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_EQ(corners.size(), 3 * (size_t(n) - 2)) << c.name;
        EXPECT_NEAR(cutArea(c.points, corners), signedArea(c.points), 1e-6) << c.name;
        EXPECT_LT(seconds, 20) << c.name;
        RecordProperty(c.name, std::to_string(seconds));
    }
}

TEST(Triangulation, polygons_that_are_not_finite_give_no_triangles)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    for (float bad : { nan, inf, -inf })
        for (size_t at = 0; at < 40; ++at) {
            std::vector<RtPoint> points;
            for (const Point2d& p : radial(40, [](uint32_t) { return 1.0; }))
                points.push_back({ float(p.x), float(p.y), 0 });
            points[at].y = bad;
            EXPECT_EQ(cut(points), Corners());
        }
}

TEST(Triangulation, huge_coordinates_are_cut_like_small_ones)
{
    const Shape2d flat = { { 0, 0 }, { 2, 0 }, { 2, 1 }, { 1, 1 }, { 1, 2 }, { 0, 2 } };
    std::vector<RtPoint> small, huge;
    for (const Point2d& p : flat) {
        small.push_back({ float(p.x), float(p.y), 0 });
        huge.push_back({ std::ldexp(float(p.x), 96), std::ldexp(float(p.y), 96), 0 });
    }
    EXPECT_EQ(cut(huge), cut(small));
    EXPECT_EQ(cut(huge).size(), 12u);
}

TEST(PointTree, finds_a_point_exactly_where_a_search_over_all_points_does)
{
    Random random(11);
    for (uint32_t n : { 1u, 8u, 9u, 100u, 1000u }) {
        Shape2d points(n);
        for (Point2d& p : points)
            p = { double(random() % 30), double(random() % 30) * 0.1 };
        Scratch scratch(std::max(n, 3u));
        scratch.tree.build(points.data(), n);
        std::vector<bool> gone(n);
        for (int round = 0; round < 3000; ++round) {
            const uint32_t a = random() % n, b = random() % n, c = random() % n;
            bool expected = false;
            const auto isInside = [&](uint32_t i) {
                return !gone[i] && i != a && i != b && i != c &&
                       edgeSide(points[a], points[b], points[i]) >= 0 &&
                       edgeSide(points[b], points[c], points[i]) >= 0 &&
                       edgeSide(points[c], points[a], points[i]) >= 0;
            };
            for (uint32_t i = 0; i < n; ++i)
                expected |= isInside(i);
            const uint32_t found = scratch.tree.findInside(a, b, c);
            ASSERT_EQ(found != rv::PointTree::no_point, expected);
            if (expected) {
                ASSERT_TRUE(isInside(found));
            }
            const uint32_t victim = random() % n;
            if (round % 4 == 0 && !gone[victim]) {
                scratch.tree.remove(victim);
                gone[victim] = true;
            }
        }
    }
}
