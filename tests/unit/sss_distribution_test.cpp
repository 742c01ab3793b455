// Tests of core/src/sss_distribution.cpp: points scattered over surfaces.
#include "gather_tools.h"
#include "sss_tools.h"
#include "statistics.h"

#include <numeric>

using node_tools::describe;

namespace {

class Distribution : public Universe {
protected:
    // Triangles, three points each.
    struct Soup final : rv::SSSSurface {
        std::vector<RtPoint> points;

        uint32_t triangleCount() const override { return uint32_t(points.size() / 3); }
        void corners(uint32_t triangle, RtPoint out[3]) const override
        {
            std::copy_n(points.begin() + 3 * triangle, 3, out);
        }
        void add(const RtPoint& a, const RtPoint& b, const RtPoint& c)
        {
            points.insert(points.end(), { a, b, c });
        }
    };

    static Soup randomSoup(unsigned triangles, unsigned seed)
    {
        statistics::Uniform uniform(seed);
        const auto point = [&] { return RtPoint{ uniform(), uniform(), uniform() }; };
        Soup soup;
        for (unsigned i = 0; i < triangles; ++i) {
            const RtPoint a = point();
            const float size = uniform();
            soup.add(a, rv::operator+(a, rv::operator*(point(), size)),
                     rv::operator+(a, rv::operator*(point(), size)));
        }
        return soup;
    }
    static Soup square(float side)
    {
        Soup soup;
        soup.add({ 0, 0, 0 }, { side, 0, 0 }, { side, side, 0 });
        soup.add({ 0, 0, 0 }, { side, side, 0 }, { 0, side, 0 });
        return soup;
    }
    static rv::ScatteredPoints scatter(const Soup& soup, float spacing, int max_samples = 100000)
    {
        const rv::AreaDistribution areas(soup);
        return rv::scatterPoints(soup, areas, rv::pointBudget(areas.total, spacing, max_samples));
    }
    static double distance(const RtPoint& a, const RtPoint& b)
    {
        return std::hypot(double(a.x) - b.x, double(a.y) - b.y, double(a.z) - b.z);
    }
};

} // namespace

// ---- Numbers ----

TEST_F(Distribution, numbers_of_points_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("shading", "sss_count")) {
        const auto& in = v["in"];
        const rv::SSSPointBudget budget =
            rv::pointBudget(in["area"].get<double>(), goldenFloat(in["sss_sample_spacing"]),
                            in["sss_max_samples"].get<int>());
        expectGolden(v, "N", budget.points);
        expectGolden(v, "candidates", budget.candidates);
        expectGoldenNumbers(v, "effective_spacing", { float(budget.spacing) });
    }
}

TEST_F(Distribution, places_in_triangles_agree_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("shading", "sss_triangle_point")) {
        const auto& in = v["in"];
        const auto& w =
            rv::cornerWeights(in["rescaled_first"].get<double>(), in["second"].get<double>()).w;
        expectGoldenNumbers(v, "weights", { float(w[0]), float(w[1]), float(w[2]) });
    }
}

TEST_F(Distribution, the_number_of_points_has_limits_for_all_parameters)
{
    const uint32_t most = (1u << 26) / 10; // what the table of candidates holds
    EXPECT_EQ(rv::most_cloud_points, most);
    const struct {
        const char* name;
        double area;
        float spacing;
        int max_samples;
        uint32_t points;
    } rows[] = {
        { "no spacing", 1, 0, 500, 500 },
        { "negative spacing", 1, -0.1f, 500, 500 },
        { "spacing that is no number", 1, NAN, 500, 500 },
        { "infinite spacing", 1, INFINITY, 500, 1 },
        { "spacing as wide as the surface", 1, 10, 500, 1 },
        { "tiny spacing", 1, 1e-30f, 500, 500 },
        { "tiny spacing without limit", 1e30, 1e-30f, INT_MAX, most },
        { "no samples", 1, 0.1f, 0, 1 },
        { "negative samples", 1, 0.1f, INT_MIN, 1 },
        { "no area", 0, 0.1f, 500, 1 },
    };
    for (const auto& row : rows) {
        const rv::SSSPointBudget budget = rv::pointBudget(row.area, row.spacing, row.max_samples);
        EXPECT_EQ(budget.points, row.points) << row.name;
        EXPECT_EQ(budget.candidates, 10 * row.points) << row.name;
        EXPECT_TRUE(std::isfinite(budget.spacing)) << row.name;
    }
}

TEST_F(Distribution, corner_weights_are_uniform_over_the_triangle)
{
    constexpr int n = 12, samples = 200000; // n * n small triangles of the same shape and size
    std::vector<double> observed(2 * n * n), expected(2 * n * n);
    const auto cellAt = [](int i, int j, bool upside_down) {
        return size_t(2 * (i * n + j) + upside_down);
    };
    for (int i = 0; i < n; ++i)
        for (int j = 0; i + j < n; ++j)
            for (const bool upside_down : { false, true })
                if (i + j + upside_down < n)
                    expected[cellAt(i, j, upside_down)] = double(samples) / (n * n);
    statistics::Uniform uniform(11);
    for (int s = 0; s < samples; ++s) {
        const double a = double(uniform()), b = double(uniform());
        const auto& w = rv::cornerWeights(a, b).w;
        ASSERT_NEAR(w[0] + w[1] + w[2], 1, 1e-12);
        const int i = int(w[1] * n), j = int(w[2] * n), k = int(w[0] * n);
        ++observed[cellAt(i, j, i + j + k < n - 1)];
    }
    const statistics::ChiSquare test = statistics::chiSquareTest(observed, expected);
    EXPECT_EQ(test.degrees_of_freedom, n * n - 1);
    EXPECT_GT(test.p, 0.01) << test.statistic << "\n" << statistics::worstCells(observed, expected);
}

// ---- Choosing triangles ----

TEST_F(Distribution, triangles_are_chosen_in_proportion_to_their_area_and_leave_uniform_numbers)
{
    constexpr unsigned parts = 4; // of the number that is left
    constexpr int samples = 400000;
    const Soup soup = randomSoup(100, 12);
    const rv::AreaDistribution areas(soup);
    std::vector<double> observed(100 * parts), expected;
    for (unsigned i = 0; i < 100; ++i) {
        RtPoint p[3];
        soup.corners(i, p);
        const double a = distance(p[0], p[1]), b = distance(p[1], p[2]), c = distance(p[2], p[0]);
        const double s = (a + b + c) / 2; // Heron's formula
        const double share = sqrt(s * (s - a) * (s - b) * (s - c)) / areas.total;
        expected.insert(expected.end(), parts, share * samples / parts);
    }
    statistics::Uniform uniform(13);
    for (int i = 0; i < samples; ++i) {
        // The last bits are those of the number that is left.
        double u = double(uniform()) + double(uniform()) * 0x1p-24;
        const uint32_t triangle = areas.pick(&u);
        ASSERT_LT(triangle, 100u);
        ++observed[triangle * parts + unsigned(u * parts)];
    }
    const statistics::ChiSquare test = statistics::chiSquareTest(observed, expected);
    EXPECT_GT(test.degrees_of_freedom, 300);
    EXPECT_GT(test.p, 0.01) << test.statistic << "\n" << statistics::worstCells(observed, expected);
}

TEST_F(Distribution, triangles_are_chosen_by_area)
{
    Soup soup;
    soup.add({ 0, 0, 0 }, { 1, 0, 0 }, { 2, 0, 0 });               // without area
    soup.add({ 0, 0, 0 }, { 2, 0, 0 }, { 0, 1, 0 });               // 1
    soup.add({ 0, 0, 0 }, { NAN, 0, 0 }, { 0, 1, 0 });             // no place
    soup.add({ 0, 0, 0 }, { 0, 6, 0 }, { 0, 0, 1 });               // 3
    soup.add({ 0, 0, 0 }, { INFINITY, 0, 0 }, { 0, INFINITY, 0 }); // no end
    const rv::AreaDistribution areas(soup);
    EXPECT_EQ(areas.total, 4);
    const struct {
        double u;
        uint32_t triangle;
        double rest;
    } rows[] = {
        { 0, 1, 0 }, { 0.125, 1, 0.5 }, { 0.25, 3, 0 }, { 0.625, 3, 0.5 }, { 1 - 0x1p-53, 3, 1 },
    };
    for (const auto& row : rows) {
        double u = row.u;
        EXPECT_EQ(areas.pick(&u), row.triangle) << row.u;
        EXPECT_NEAR(u, row.rest, 1e-12) << row.u;
        EXPECT_LT(u, 1) << row.u;
    }
}

TEST_F(Distribution, surfaces_without_area_get_no_points)
{
    const RtPoint origin = { 0, 0, 0 };
    const RtPoint places[] = { origin, { NAN, NAN, NAN }, { INFINITY, 0, 0 } };
    EXPECT_TRUE(scatter({}, 0.1f).points.empty());
    for (const RtPoint& place : places) {
        Soup soup;
        soup.add(origin, { 1, 0, 0 }, place);
        EXPECT_TRUE(scatter(soup, 0.1f).points.empty()) << describe(place);
    }
}

// ---- Scattering ----

TEST_F(Distribution, no_two_points_are_closer_than_the_spacing_and_the_area_is_kept)
{
    const Soup soups[] = { randomSoup(1, 1), randomSoup(50, 2), randomSoup(3000, 3), square(2) };
    for (const Soup& soup : soups)
        for (const float spacing : { 0.02f, 0.1f, 0.0f }) {
            const rv::AreaDistribution areas(soup);
            const rv::SSSPointBudget budget = rv::pointBudget(areas.total, spacing, 2000);
            const rv::ScatteredPoints scattered = rv::scatterPoints(soup, areas, budget);
            const auto& points = scattered.points;
            EXPECT_EQ(points.size() + scattered.rejected, budget.candidates);
            double area = 0, nearest = INFINITY;
            for (size_t i = 0; i < points.size(); ++i) {
                area += double(points[i].area);
                for (size_t j = 0; j < i; ++j)
                    nearest = std::min(nearest, distance(points[i].position, points[j].position));
            }
            EXPECT_NEAR(area, areas.total, 1e-4 * areas.total);
            EXPECT_GE(nearest, budget.spacing);
        }
}

TEST_F(Distribution, every_candidate_is_near_a_point)
{
    const Soup soup = square(1);
    const rv::AreaDistribution areas(soup);
    const rv::SSSPointBudget budget = rv::pointBudget(areas.total, 0.05f, 100000);
    const auto points = rv::scatterPoints(soup, areas, budget).points;
    // The whole surface is covered, up to the gaps that ten candidates for each point leave.
    statistics::Uniform uniform(5);
    for (int i = 0; i < 2000; ++i) {
        const RtPoint place = { uniform(), uniform(), 0 };
        double nearest = INFINITY;
        for (const RtSSSPoint& point : points)
            nearest = std::min(nearest, distance(point.position, place));
        EXPECT_LT(nearest, 1.5 * budget.spacing) << describe(place);
    }
}

TEST_F(Distribution, points_lie_where_their_triangle_and_weights_say)
{
    const Soup soup = randomSoup(40, 6);
    for (const RtSSSPoint& point : scatter(soup, 0.05f).points) {
        RtPoint p[3];
        ASSERT_LT(point.face, soup.triangleCount());
        soup.corners(point.face, p);
        EXPECT_GE(point.u, 0);
        EXPECT_GE(point.v, 0);
        EXPECT_LE(point.u + point.v, 1.000001f);
        const RtPoint place = rv::operator+(
            rv::operator+(rv::operator*(p[0], 1 - point.u - point.v), rv::operator*(p[1], point.u)),
            rv::operator*(p[2], point.v));
        EXPECT_LT(distance(place, point.position), 1e-6);
    }
}

TEST_F(Distribution, areas_say_how_much_surface_points_stand_for)
{
    // Ten by ten cells of a square, each as large as the discs of many points.
    const Soup soup = square(1);
    const auto points = scatter(soup, 0, 20000).points;
    double cells[10][10] = {};
    for (const RtSSSPoint& point : points)
        cells[std::min(int(point.position.y * 10), 9)][std::min(int(point.position.x * 10), 9)] +=
            double(point.area);
    for (const auto& row : cells)
        for (const double area : row)
            EXPECT_NEAR(area, 0.01, 0.0006);
}

TEST_F(Distribution, far_and_large_surfaces_get_their_points_too)
{
    const struct {
        const char* name;
        float size;
        RtPoint place;
    } rows[] = {
        { "tiny", 1e-18f, { 0, 0, 0 } },
        { "huge", 1e18f, { 0, 0, 0 } },
        { "far away", 1, { 1e4f, -1e4f, 1e4f } },
    };
    for (const auto& row : rows) {
        Soup soup;
        const RtPoint p = row.place;
        soup.add(p, { p.x + row.size, p.y, p.z }, { p.x, p.y + row.size, p.z });
        const auto points = scatter(soup, 0, 300).points;
        EXPECT_GT(points.size(), 200u) << row.name;
        for (const RtSSSPoint& point : points)
            EXPECT_TRUE(point.area > 0) << row.name;
    }
    Soup apart; // two triangles with nothing between them
    apart.add({ 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 });
    apart.add({ 1e30f, 0, 0 }, { 1e30f, 1, 0 }, { 1e30f, 0, 1 });
    EXPECT_GT(scatter(apart, 0.1f).points.size(), 30u);
}

TEST_F(Distribution, points_depend_on_the_seed_alone)
{
    const Soup soup = randomSoup(100, 7);
    const auto positions = [&] {
        std::string all;
        for (const RtSSSPoint& point : scatter(soup, 0.1f).points)
            all += describe(point.position) + "\n";
        return all;
    };
    const std::string first = positions();
    EXPECT_EQ(positions(), first);
    RvNodeSetInt(RvUniverseGetOptions(), "AA_seed", 2);
    EXPECT_NE(positions(), first);
}

// Images stay the same from version to version.
TEST_F(Distribution, points_are_the_same_to_the_last_bit_as_ever)
{
    Soup coarse; // whose coordinates are so few that many distances are equal
    coarse.add({ 30000, 30000, 30000 }, { 30001, 30000, 30000 }, { 30000, 30001, 30000 });
    Soup sheets; // many in one place
    for (int i = 0; i < 200; ++i)
        sheets.add({ 0, 0, 0 }, { 1, 0, 0 }, { 0, 1, 0 });
    Soup ribbon = randomSoup(20, 3); // one large triangle after many that are tiny
    for (RtPoint& p : ribbon.points)
        p = rv::operator*(p, 1e-3f);
    ribbon.add({ -20, 0, 0 }, { 20, 0, 0 }, { 20, 0.1f, 0 });
    const struct {
        const char* name;
        Soup soup;
        int max_samples;
        uint64_t hash;
    } rows[] = {
        { "one triangle", randomSoup(1, 1), 1000, 0x5130BE4E8DE061D9 },
        { "triangles of all sizes", randomSoup(3000, 3), 20000, 0xBEA16D25CCAE4B62 },
        { "a square", square(2), 10000, 0xFF9B97CB001837A2 },
        { "coarse", coarse, 5000, 0x5F32F47716412E99 },
        { "sheets", sheets, 3000, 0x36459190075EAE66 },
        { "ribbon", ribbon, 2000, 0x05A28F4192C831EE },
    };
    for (const auto& row : rows)
        EXPECT_EQ(sss_tools::hashOf(scatter(row.soup, 0, row.max_samples).points), row.hash)
            << row.name;
}

TEST_F(Distribution, a_stop_ends_it_at_once)
{
    const Soup soup = square(1);
    const rv::AreaDistribution areas(soup);
    const std::atomic<int> stop = 1;
    const node_tools::AllocationLimit limit(0); // not even candidates are made
    EXPECT_TRUE(rv::scatterPoints(soup, areas, rv::pointBudget(areas.total, 0.1f, 100),
                                  { .stop_request = &stop })
                    .points.empty());
}

TEST_F(Distribution, an_exhausted_heap_is_reported)
{
    const Soup soup = square(1);
    const rv::AreaDistribution areas(soup);
    const rv::SSSPointBudget budget = rv::pointBudget(areas.total, 0.1f, 100);
    for (long allowed = 0; allowed < 4; ++allowed) {
        const node_tools::AllocationLimit limit(allowed);
        EXPECT_THROW(rv::scatterPoints(soup, areas, budget), std::bad_alloc) << allowed;
        EXPECT_NE(takeProblem(), "") << allowed;
    }
}
