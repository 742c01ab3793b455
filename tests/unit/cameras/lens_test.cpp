// Points on the aperture.
#include "camera_tools.h"

#include <limits>

using namespace camera_tools;

static float radiusOf(const RtPoint2& p) { return sqrtf(p.x * p.x + p.y * p.y); }

TEST(Lens, golden_disk_points)
{
    for (const json& v : goldenVectors("cameras", "lens_disk")) {
        const RtPoint2 p = rv::diskPoint(goldenFloat(v.at("in").at("lens_u")),
                                         goldenFloat(v.at("in").at("lens_v")));
        expectGoldenNumbers(v, "point", { p.x, p.y });
    }
}

TEST(Lens, golden_polygon_points)
{
    for (const json& v : goldenVectors("cameras", "lens_polygon")) {
        const json& in = v.at("in");
        const RtPoint2 disk =
            rv::diskPoint(goldenFloat(in.at("lens_u")), goldenFloat(in.at("lens_v")));
        const RtPoint2 p = rv::polygonPoint(disk, in.at("blades"), goldenFloat(in.at("rotation")),
                                            goldenFloat(in.at("curvature")));
        expectGoldenNumbers(v, "point", { p.x, p.y });
    }
}

TEST(Lens, disk_points_fill_the_disk_evenly)
{
    // Points that cover the square evenly, from two irrational steps.
    constexpr int count = 100000, rings = 8;
    int inside[rings] = {}, quadrant[4] = {};
    for (int i = 0; i < count; ++i) {
        const RtPoint2 p = rv::diskPoint(float(fmod(i * 0.7548776662466927, 1)),
                                         float(fmod(i * 0.5698402909980532, 1)));
        const float area = p.x * p.x + p.y * p.y; // of the disk inside the point
        ASSERT_LE(area, 1.00001f);
        ++inside[std::min(int(area * rings), rings - 1)];
        ++quadrant[(p.x < 0) + 2 * (p.y < 0)];
    }
    for (int n : inside)
        EXPECT_NEAR(n, count / rings, count / rings / 100);
    for (int n : quadrant)
        EXPECT_NEAR(n, count / 4, count / 4 / 100);
}

TEST(Lens, the_centre_and_the_corners_have_a_place)
{
    EXPECT_EQ(radiusOf(rv::diskPoint(0.5f, 0.5f)), 0);
    for (float u : { 0.0f, 1.0f })
        for (float v : { 0.0f, 1.0f })
            EXPECT_NEAR(radiusOf(rv::diskPoint(u, v)), 1, 1e-6);
}

TEST(Lens, the_radius_of_a_blade_point_follows_its_formula)
{
    // Required: the factor is 1 + cos(half) - cos(local), which is cos(half) in the middle of a
    // blade and 1 at its ends; a curvature of 1 keeps the disk radius everywhere.
    constexpr int blades = 5;
    const float segment = float(2 * M_PI / blades), half = segment / 2;
    for (int blade = 0; blade < blades; ++blade) {
        const float middle = segment * (float(blade) + 0.5f) - float(M_PI);
        const RtPoint2 p = { 0.8f * sinf(middle), 0.8f * cosf(middle) };
        EXPECT_NEAR(radiusOf(rv::polygonPoint(p, blades, 0, 0)), 0.8f * cosf(half), 1e-5);
        EXPECT_NEAR(radiusOf(rv::polygonPoint(p, blades, 0, 1)), 0.8f, 1e-5);
        const float end = middle + half - 1e-4f;
        const RtPoint2 q = { 0.8f * sinf(end), 0.8f * cosf(end) };
        EXPECT_NEAR(radiusOf(rv::polygonPoint(q, blades, 0, 0)), 0.8f, 1e-3);
        EXPECT_NEAR(radiusOf(rv::polygonPoint(q, blades, 0, 1)), 0.8f, 1e-5);
    }
}

TEST(Lens, rotation_turns_the_polygon)
{
    const RtPoint2 p = rv::polygonPoint({ 0.3f, 0.4f }, 6, 0, 0.25f);
    const RtPoint2 turned = rv::polygonPoint({ 0.3f, 0.4f }, 6, 90, 0.25f);
    EXPECT_NEAR(turned.x, -p.y, 1e-6);
    EXPECT_NEAR(turned.y, p.x, 1e-6);
}

TEST(Lens, any_number_of_blades_stays_on_the_lens)
{
    for (int blades : { 3, 4, 7, 1000, 1 << 30, std::numeric_limits<int>::max() })
        for (float u = 0; u < 1; u += 0.1f) {
            const RtPoint2 p = rv::polygonPoint(rv::diskPoint(u, 0.3f), blades, 10, 0.5f);
            EXPECT_LE(radiusOf(p), 1.00001f) << blades;
        }
}

TEST(Lens, two_blades_or_fewer_are_round)
{
    RtCameraRayInput input = {};
    input.lens_u = 0.2f;
    input.lens_v = 0.9f;
    const RtPoint2 disk = rv::diskPoint(input.lens_u, input.lens_v);
    for (int blades : { -5, 0, 1, 2 }) {
        const rv::LensParams lens = { nullptr, blades, 30, 0, 1 };
        const RtPoint p = rv::lensPoint(lens, 2, input);
        EXPECT_EQ(p.x, -2 * disk.x) << blades;
        EXPECT_EQ(p.y, -2 * disk.y) << blades;
        EXPECT_EQ(p.z, 0) << blades;
    }
    const rv::LensParams triangle = { nullptr, 3, 30, 0, 1 };
    EXPECT_NE(rv::lensPoint(triangle, 2, input).x, -2 * disk.x);
}

TEST(Lens, the_lens_is_upside_down_and_may_be_stretched)
{
    // Required: both signs are turned.
    RtCameraRayInput input = {};
    input.lens_u = 0.8f;
    input.lens_v = 0.7f;
    const RtPoint2 disk = rv::diskPoint(input.lens_u, input.lens_v);
    const rv::LensParams lens = { nullptr, 0, 0, 0, 1.5f };
    const RtPoint p = rv::lensPoint(lens, 0.5f, input);
    EXPECT_FLOAT_EQ(p.x, -0.5f * disk.x);
    EXPECT_FLOAT_EQ(p.y, -0.75f * disk.y);
}
