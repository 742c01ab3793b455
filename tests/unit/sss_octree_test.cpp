// Tests of core/src/sss_octree.cpp: packed light, the octree of a cloud, and lookups in it.
#include "node_tools.h"
#include "sss_cloud.h"
#include "statistics.h"

#include <cfloat>
#include <numbers>

using node_tools::describe;

// ---- Packed light ----

TEST(PackedIrradiance, survives_within_a_hundredth_of_its_largest_channel)
{
    statistics::Uniform uniform(1);
    for (int i = 0; i < 100000; ++i) {
        const float scale = ldexpf(1, int(uniform() * 200) - 100);
        const RtRGB c = { uniform() * scale, uniform() * scale, uniform() * scale };
        const RtRGB back = rv::unpackIrradiance(rv::packIrradiance(c));
        const float tolerance = 0.004f * std::max({ c.r, c.g, c.b });
        ASSERT_NEAR(back.r, c.r, tolerance);
        ASSERT_NEAR(back.g, c.g, tolerance);
        ASSERT_NEAR(back.b, c.b, tolerance);
    }
}

TEST(PackedIrradiance, has_its_mantissas_in_the_low_bytes)
{
    const uint32_t white = rv::packIrradiance({ 1, 1, 1 });
    EXPECT_EQ(white & 0xFFFFFF, 0x808080u);
    EXPECT_EQ(rv::packIrradiance({ 2, 2, 2 }), white + (1u << 24));
    EXPECT_EQ(rv::packIrradiance({ 1, 0.5f, 0.25f }) & 0xFFFFFF, 0x204080u);
}

TEST(PackedIrradiance, takes_any_number)
{
    const float tiny = FLT_TRUE_MIN;
    const struct {
        const char* name;
        RtRGB in, out;
        float tolerance;
    } rows[] = {
        { "black", { 0, 0, 0 }, { 0, 0, 0 }, 0 },
        { "white", { 1, 1, 1 }, { 1, 1, 1 }, 0 },
        { "negative", { -1, -FLT_MAX, -INFINITY }, { 0, 0, 0 }, 0 },
        { "one negative channel", { 1, -1, 0 }, { 1, 0, 0 }, 0 },
        { "not a number", { NAN, NAN, NAN }, { 0, 0, 0 }, 0 },
        { "one channel that is no number", { NAN, 1, 0 }, { 0, 1, 0 }, 0 },
        { "too small", { tiny, tiny, tiny }, { 0, 0, 0 }, 0 },
        { "smallest", { 1e-35f, 0, 0 }, { 1e-35f, 0, 0 }, 1e-37f },
        { "largest", { FLT_MAX, 0, 0 }, { FLT_MAX, 0, 0 }, FLT_MAX * 0.01f },
        { "infinite", { INFINITY, 1, 0 }, { FLT_MAX, 0, 0 }, FLT_MAX * 0.01f },
        { "rounded up to the next power", { 0.9999f, 0, 0 }, { 1, 0, 0 }, 0 },
    };
    for (const auto& row : rows) {
        const RtRGB got = rv::unpackIrradiance(rv::packIrradiance(row.in));
        EXPECT_NEAR(got.r, row.out.r, row.tolerance) << row.name;
        EXPECT_NEAR(got.g, row.out.g, row.tolerance) << row.name;
        EXPECT_NEAR(got.b, row.out.b, row.tolerance) << row.name;
    }
    EXPECT_EQ(rv::packIrradiance({ tiny, tiny, tiny }), 0u);
}

// ---- The kernel ----

TEST(ScatterKernel, agrees_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("shading", "sss_kernel")) {
        const auto& in = v["in"];
        const std::vector<float> r = goldenFloats(in["radius"]), P = goldenFloats(in["P"]);
        rv::ScatterKernel kernel({ r[0], r[1], r[2] });
        for (const auto& point : in["points"]) {
            const std::vector<float> p = goldenFloats(point["p"]), E = goldenFloats(point["E"]);
            kernel.add({ E[0], E[1], E[2], 0 }, std::hypot(p[0] - P[0], p[1] - P[1], p[2] - P[2]));
        }
        const RtRGB total = kernel.total();
        expectGoldenNumbers(v, "value", { total.r, total.g, total.b });
    }
}

TEST(ScatterKernel, its_integral_over_the_plane_is_two_fifths_of_pi)
{
    // Rings of a disc of radius R: the integral of 2 pi d (R - d)^3 4 / R^5 is 8 pi / 20.
    for (const float R : { 1e-6f, 0.1f, 1.0f, 70.0f }) {
        rv::ScatterKernel kernel({ R, R, R });
        const int rings = 10000;
        const double width = double(R) / rings;
        for (int i = 0; i < rings; ++i) {
            const double d = (i + 0.5) * width;
            const float area = float(2 * std::numbers::pi * d * width);
            kernel.add(rv::Float4(area), float(d));
            kernel.fold();
        }
        EXPECT_NEAR(kernel.total().g, 0.4 * std::numbers::pi, 1e-4) << R;
    }
}

TEST(ScatterKernel, channels_without_a_positive_radius_get_nothing)
{
    for (const float radius : { 0.0f, -1.0f, NAN, INFINITY, -INFINITY }) {
        rv::ScatterKernel kernel({ 1, radius, 1 });
        kernel.add(rv::Float4(1), 0.5f);
        kernel.add(rv::Float4(1), 0);
        EXPECT_EQ(describe(kernel.total()), "4.5 0 4.5") << radius;
        EXPECT_EQ(kernel.reach(), 1) << radius;
    }
}

TEST(ScatterKernel, extreme_radii_stay_within_the_range_of_numbers)
{
    for (const float radius : { FLT_TRUE_MIN, FLT_MIN, 1e-20f, 1e20f, FLT_MAX }) {
        rv::ScatterKernel kernel({ radius, radius, radius });
        kernel.add({ 1, FLT_MAX, 0, 0 }, 0);
        kernel.add({ 1, FLT_MAX, 0, 0 }, radius / 2);
        const RtRGB total = kernel.total();
        EXPECT_TRUE(std::isfinite(total.r) && total.r >= 0) << radius;
        EXPECT_TRUE(std::isfinite(total.g) && total.g >= total.r) << radius;
        EXPECT_EQ(total.b, 0) << radius;
    }
}

// ---- The octree ----

namespace {

class Octree : public Universe {
protected:
    using Points = std::vector<RtPoint>;

    static rv::RtSSSPointCloud cloudOf(const Points& positions)
    {
        rv::RtSSSPointCloud cloud;
        for (size_t i = 0; i < positions.size(); ++i) {
            RtSSSPoint point = {};
            point.position = positions[i];
            point.face = uint32_t(i);
            const float grey = float(i % 7);
            point.irradiance = rv::packIrradiance({ grey, 1, 1 / (1 + grey) });
            cloud.points.push_back(point);
        }
        rv::buildOctree(&cloud.points, &cloud.nodes);
        return cloud;
    }

    static std::map<std::string, Points> pointSets()
    {
        std::map<std::string, Points> sets;
        statistics::Uniform uniform(3);
        const auto random = [&](size_t n, float scale) {
            Points points;
            for (size_t i = 0; i < n; ++i)
                points.push_back({ uniform() * scale, uniform() * scale, uniform() * scale });
            return points;
        };
        sets["none"] = {};
        sets["one"] = { { 1, 2, 3 } };
        sets["a few"] = random(12, 1);
        sets["one more"] = random(13, 1);
        sets["many"] = random(5000, 1);
        sets["in one place"] = Points(3000, { 0.5f, 0.5f, 0.5f });
        sets["on a line"] = random(700, 1);
        for (RtPoint& p : sets["on a line"])
            p.y = p.z = 0.25f;
        sets["cluster and outlier"] = random(500, 1e-3f);
        sets["cluster and outlier"].push_back({ 1e30f, -1e30f, 1e30f });
        for (int i = -140; i < 126; ++i) // each half as far as the one before
            for (int j = 0; j < 3; ++j)
                sets["halving"].push_back({ ldexpf(1, i), 0, ldexpf(1, i) * float(j) });
        sets["neighbouring floats"] = { 40, { 1, 1, 1 } };
        for (float x = 1; RtPoint & p : sets["neighbouring floats"])
            p.x = x = nextafterf(x, 2);
        return sets;
    }

    static float distance(const RtPoint& a, const RtPoint& b)
    {
        const RtVector way = rv::operator-(a, b);
        return sqrtf(rv::dot(way, way));
    }
    // Places to look from, for a set: its points, between them and elsewhere.
    static Points placesFor(const Points& set)
    {
        Points places = { { 0.5f, 0.5f, 0.5f }, { 0, 0, 0 }, { 3, -1, 0.5f } };
        for (size_t i = 0; i < set.size(); i += set.size() / 20 + 1)
            places.push_back(set[i]);
        return places;
    }
};

} // namespace

TEST_F(Octree, every_point_is_in_one_leaf_and_boxes_are_tight)
{
    for (const auto& [name, set] : pointSets()) {
        const rv::RtSSSPointCloud cloud = cloudOf(set);
        std::vector<int> leaves(set.size());
        size_t reached = cloud.nodes.empty() ? 0 : 1;
        // The points below a node.
        const std::function<std::vector<uint32_t>(size_t)> below = [&](size_t n) {
            const RtSSSNode& node = cloud.nodes[n];
            std::vector<uint32_t> points;
            for (uint32_t i = 0; i < node.child_count; ++i, ++reached)
                for (const uint32_t point : below(node.first_child + i))
                    points.push_back(point);
            for (uint32_t i = 0; i < node.point_count; ++i) {
                points.push_back(node.first_point + i);
                ++leaves[cloud.points[node.first_point + i].face];
            }
            EXPECT_TRUE(node.child_count == 0 || node.point_count == 0) << name;
            EXPECT_FALSE(points.empty()) << name;
            float bounds[6] = { FLT_MAX, -FLT_MAX, FLT_MAX, -FLT_MAX, FLT_MAX, -FLT_MAX };
            for (const uint32_t i : points) {
                const RtPoint& p = cloud.points[i].position;
                const float x[3] = { p.x, p.y, p.z };
                for (int axis = 0; axis < 3; ++axis) {
                    bounds[2 * axis] = std::min(bounds[2 * axis], x[axis]);
                    bounds[2 * axis + 1] = std::max(bounds[2 * axis + 1], x[axis]);
                }
            }
            EXPECT_EQ(memcmp(bounds, node.bounds, sizeof bounds), 0) << name;
            return points;
        };
        if (!cloud.nodes.empty())
            below(0);
        EXPECT_EQ(reached, cloud.nodes.size()) << name;
        EXPECT_TRUE(std::all_of(leaves.begin(), leaves.end(), [](int n) { return n == 1; }))
            << name;
    }
}

TEST_F(Octree, scattered_light_is_that_of_a_search_through_all_points)
{
    for (const auto& [name, set] : pointSets()) {
        const rv::RtSSSPointCloud cloud = cloudOf(set);
        for (const RtPoint& P : placesFor(set))
            for (const RtRGB& radius : { RtRGB{ 0.1f, 0.2f, 0.05f }, RtRGB{ 10, 0, 1 },
                                         RtRGB{ 1e-6f, 1e-3f, 0 }, RtRGB{ 1e10f, 1e30f, 3 } }) {
                rv::ScatterKernel kernel(radius);
                for (const RtSSSPoint& point : cloud.points)
                    if (const float d = distance(point.position, P); d < kernel.reach()) {
                        kernel.add(rv::unpackLanes(point.irradiance), d);
                        kernel.fold();
                    }
                const RtRGB want = kernel.total(), got = rv::scatteredLight(cloud, P, radius);
                EXPECT_NEAR(got.r, want.r, 1e-5f * want.r) << name;
                EXPECT_NEAR(got.g, want.g, 1e-5f * want.g) << name;
                EXPECT_NEAR(got.b, want.b, 1e-5f * want.b) << name;
            }
    }
}

TEST_F(Octree, the_nearest_point_is_that_of_a_search_through_all_points)
{
    for (const auto& [name, set] : pointSets()) {
        const rv::RtSSSPointCloud cloud = cloudOf(set);
        for (const RtPoint& P : placesFor(set))
            for (const float reach : { 1e-6f, 0.03f, 0.3f, 1e20f }) {
                float least = reach;
                for (const RtSSSPoint& point : cloud.points)
                    least = std::min(least, distance(point.position, P));
                std::vector<std::string> candidates; // there may be several at that distance
                for (const RtSSSPoint& point : cloud.points)
                    if (least < reach && distance(point.position, P) == least)
                        candidates.push_back(describe(rv::unpackIrradiance(point.irradiance)));
                if (candidates.empty())
                    candidates.push_back("0 0 0");
                const std::string got = describe(rv::nearestIrradiance(cloud, P, reach));
                EXPECT_TRUE(std::find(candidates.begin(), candidates.end(), got) !=
                            candidates.end())
                    << name << " " << describe(P) << " " << reach << ": " << got;
            }
    }
}

TEST_F(Octree, places_that_are_no_numbers_find_nothing)
{
    const rv::RtSSSPointCloud cloud = cloudOf(pointSets()["many"]);
    for (const float x : { NAN, INFINITY, -INFINITY }) {
        EXPECT_EQ(describe(rv::scatteredLight(cloud, { x, 0, 0 }, { 1, 1, 1 })), "0 0 0") << x;
        EXPECT_EQ(describe(rv::nearestIrradiance(cloud, { x, 0, 0 }, 1)), "0 0 0") << x;
    }
}
