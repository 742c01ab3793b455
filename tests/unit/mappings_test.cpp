// Tests of mappings.cpp: environment mappings and their derivatives.
#include "maths.h"
#include "rv_textures.h"
#include "universe_fixture.h"

#include <cmath>
#include <random>

namespace {

using rv::operator+;
using rv::operator*;

using Map = void (*)(const RtVector*, float*, float*);
using MapDerivs = void (*)(const RtVector*, const RtVector*, const RtVector*, float*, float*,
                           float*, float*, float*, float*);

struct Mapping {
    const char* name;
    Map map;
    MapDerivs derivs;
};

const Mapping mappings[] = {
    { "RvMappingMirroredBall", RvMappingMirroredBall, RvMappingMirroredBallDerivs },
    { "RvMappingAngularMap", RvMappingAngularMap, RvMappingAngularMapDerivs },
    { "RvMappingLatLong", RvMappingLatLong, RvMappingLatLongDerivs },
    { "RvMappingCubicMap", RvMappingCubicMap, RvMappingCubicMapDerivs },
};

struct Derivs {
    float u, v, dudx, dudy, dvdx, dvdy;

    Derivs(const Mapping& mapping, const RtVector& dir, const RtVector& dx, const RtVector& dy)
    {
        mapping.derivs(&dir, &dx, &dy, &u, &v, &dudx, &dudy, &dvdx, &dvdy);
    }
};

RtPoint2 mapped(const Mapping& mapping, const RtVector& dir)
{
    RtPoint2 uv;
    mapping.map(&dir, &uv.x, &uv.y);
    return uv;
}

// The formulas once more, in the precision that central differences need.
struct Uv {
    double u, v;
};
struct Dir {
    double x, y, z;
};
Uv mirroredBall(const Dir& d)
{
    const double phi = atan2(-d.y, d.x), r = sin(acos(d.z) / 2);
    return { 0.5 + 0.5 * r * cos(phi), 0.5 - 0.5 * r * sin(phi) };
}
Uv angularMap(const Dir& d)
{
    const double phi = atan2(-d.y, d.x), r = acos(d.z) * 0.15915494;
    return { 0.5 + r * cos(phi), 0.5 - r * sin(phi) };
}
Uv latLong(const Dir& d)
{
    return { 1 - (atan2(-d.x, d.z) * 0.15915494 + 0.5), 1 - acos(d.y) / M_PI };
}
Uv cubicMap(const Dir& d)
{
    const double x = fabs(d.x), y = fabs(d.y), z = fabs(d.z), a = 0.166666, b = 0.125;
    if (x > y && x > z)
        return { (d.x > 0 ? d.z : -d.z) / x * a + (d.x > 0 ? 0.833333 : 0.166666),
                 d.y / x * b + 0.625 };
    if (y > x && y > z)
        return { d.x / y * a + 0.5, d.y > 0 ? d.z / y * b + 0.875 : -d.z / y * b + 0.375 };
    return { d.x / z * a + 0.5, d.z > 0 ? -d.y / z * b + 0.125 : d.y / z * b + 0.625 };
}
Uv (*const formulas[])(const Dir&) = { mirroredBall, angularMap, latLong, cubicMap };

Dir moved(const RtVector& dir, const RtVector& d, double step)
{
    const double x = dir.x + step * d.x, y = dir.y + step * d.y, z = dir.z + step * d.z;
    const double length = sqrt(x * x + y * y + z * z);
    return { x / length, y / length, z / length };
}

RtVector randomVector(std::mt19937& random)
{
    std::normal_distribution<float> normal;
    return { normal(random), normal(random), normal(random) };
}

// Along the sphere of directions.
RtVector tangentAt(const RtVector& dir, const RtVector& v) { return v + dir * -rv::dot(dir, v); }

TEST(Mappings, golden_vectors)
{
    for (const Mapping& mapping : mappings)
        for (const auto& vector : goldenVectors("shading", mapping.name)) {
            const auto dir = goldenFloats(vector.at("in").at("dir"));
            const RtPoint2 uv = mapped(mapping, { dir[0], dir[1], dir[2] });
            expectGoldenNumbers(vector, "u", { uv.x });
            expectGoldenNumbers(vector, "v", { uv.y });
        }
}

TEST(Mappings, derivatives_are_those_of_central_differences)
{
    std::mt19937 random(7);
    for (size_t i = 0; i < std::size(mappings); ++i)
        for (int n = 0; n < 500; ++n) {
            const RtVector dir = rv::unit(randomVector(random));
            const RtVector d[2] = { tangentAt(dir, randomVector(random)),
                                    tangentAt(dir, randomVector(random)) };
            const Derivs got(mappings[i], dir, d[0], d[1]);
            const RtPoint2 uv = mapped(mappings[i], dir);
            EXPECT_EQ(got.u, uv.x);
            EXPECT_EQ(got.v, uv.y);
            for (int axis = 0; axis < 2; ++axis) {
                constexpr double h = 1e-6;
                const Uv ahead = formulas[i](moved(dir, d[axis], h));
                const Uv behind = formulas[i](moved(dir, d[axis], -h));
                if (fabs(ahead.u - behind.u) > 0.1 || fabs(ahead.v - behind.v) > 0.1)
                    continue; // across a seam of the map
                const double du = (ahead.u - behind.u) / (2 * h);
                const double dv = (ahead.v - behind.v) / (2 * h);
                const std::string where =
                    std::string(mappings[i].name) + " " + ::testing::PrintToString(n);
                EXPECT_NEAR(axis ? got.dudy : got.dudx, du, 1e-5 + 1e-4 * fabs(du)) << where;
                EXPECT_NEAR(axis ? got.dvdy : got.dvdx, dv, 1e-5 + 1e-4 * fabs(dv)) << where;
            }
        }
}

TEST(Mappings, derivatives_at_the_poles_are_finite)
{
    static const RtVector axes[] = { { 1, 0, 0 },  { -1, 0, 0 }, { 0, 1, 0 },
                                     { 0, -1, 0 }, { 0, 0, 1 },  { 0, 0, -1 } };
    for (const Mapping& mapping : mappings)
        for (const RtVector& dir : axes) {
            const Derivs got(mapping, dir, tangentAt(dir, { 1, 2, 3 }),
                             tangentAt(dir, { 3, 1, 2 }));
            for (float d : { got.dudx, got.dudy, got.dvdx, got.dvdy })
                EXPECT_TRUE(std::isfinite(d)) << mapping.name;
        }
}

TEST(Mappings, the_centre_of_a_round_map_has_a_derivative)
{
    const RtVector centre = { 0, 0, 1 };
    for (const Mapping& mapping : { mappings[0], mappings[1] }) {
        const float slope = mapping.map == RvMappingAngularMap ? 0.15915494f : 0.25f;
        const Derivs got(mapping, centre, { 2, 0, 0 }, { 0, 3, 0 });
        EXPECT_FLOAT_EQ(got.dudx, 2 * slope) << mapping.name;
        EXPECT_FLOAT_EQ(got.dudy, 0) << mapping.name;
        EXPECT_FLOAT_EQ(got.dvdx, 0) << mapping.name;
        EXPECT_FLOAT_EQ(got.dvdy, 3 * slope) << mapping.name;
        const RtVector near = rv::unit({ 3e-4f, -4e-4f, 1 });
        const Derivs beside(mapping, near, tangentAt(near, { 2, 0, 0 }),
                            tangentAt(near, { 0, 3, 0 }));
        EXPECT_NEAR(beside.dudx, 2 * slope, 1e-3) << mapping.name;
        EXPECT_NEAR(beside.dvdy, 3 * slope, 1e-3) << mapping.name;
    }
}

TEST(Mappings, latitude_runs_from_the_bottom_to_the_top)
{
    const Mapping& lat_long = mappings[2];
    EXPECT_FLOAT_EQ(mapped(lat_long, { 0, 1, 0 }).y, 1);
    EXPECT_FLOAT_EQ(mapped(lat_long, { 0, -1, 0 }).y, 0);
    EXPECT_FLOAT_EQ(mapped(lat_long, { 0, 0, 1 }).x, 0.5f);
    EXPECT_FLOAT_EQ(mapped(lat_long, { 1, 0, 0 }).x, 0.75f);
    EXPECT_FLOAT_EQ(mapped(lat_long, { -1, 0, 0 }).x, 0.25f);
}

TEST(Mappings, cosines_beyond_one_are_poles)
{
    EXPECT_EQ(mapped(mappings[2], { 0, 1.0001f, 0 }).y, 1);
    EXPECT_NEAR(mapped(mappings[2], { 0, -1.0001f, 0 }).y, 0, 1e-6);
    EXPECT_EQ(mapped(mappings[0], { 0, 0, 1.0001f }).x, 0.5f);
    EXPECT_NEAR(mapped(mappings[1], { 0, 0, -1.0001f }).x, 1, 1e-6);
}

TEST(Mappings, faces_of_the_cross_are_centred)
{
    static const struct {
        RtVector dir;
        RtPoint2 uv;
    } cases[] = {
        { { 1, 0, 0 }, { 0.833333f, 0.625f } }, { { -1, 0, 0 }, { 0.166666f, 0.625f } },
        { { 0, 1, 0 }, { 0.5f, 0.875f } },      { { 0, -1, 0 }, { 0.5f, 0.375f } },
        { { 0, 0, 1 }, { 0.5f, 0.125f } },      { { 0, 0, -1 }, { 0.5f, 0.625f } },
    };
    for (const auto& c : cases) {
        EXPECT_FLOAT_EQ(mapped(mappings[3], c.dir).x, c.uv.x);
        EXPECT_FLOAT_EQ(mapped(mappings[3], c.dir).y, c.uv.y);
    }
}

TEST(Mappings, an_edge_of_the_cube_belongs_to_the_z_face)
{
    // The formula of the face +z, which leaves its face here.
    const RtPoint2 uv = mapped(mappings[3], { 0.8f, 0.8f, 0.4f });
    EXPECT_FLOAT_EQ(uv.x, 2 * 0.166666f + 0.5f);
    EXPECT_FLOAT_EQ(uv.y, -2 * 0.125f + 0.125f);
}

TEST(Mappings, an_edge_without_z_belongs_to_the_y_face)
{
    const RtPoint2 uv = mapped(mappings[3], { -0.7f, 0.7f, 0 });
    EXPECT_FLOAT_EQ(uv.x, 0.5f - 0.166666f);
    EXPECT_FLOAT_EQ(uv.y, 0.875f);
}

TEST(Mappings, any_direction_is_survived)
{
    const float inf = INFINITY, nan = NAN;
    static const RtVector odd[] = { { 0, 0, 0 },     { inf, 0, 0 },        { 0, -inf, inf },
                                    { nan, 0, 0 },   { 1e-40f, 0, 0 },     { 0, nan, 1 },
                                    { 3e38f, 0, 1 }, { 1e-30f, 0, 1e-30f } };
    for (const Mapping& mapping : mappings) {
        for (const RtVector& dir : odd)
            Derivs(mapping, dir, { inf, 1, 0 }, { 0, nan, 0 });
        const RtPoint2 uv = mapped(mapping, { 0, 0, 0 });
        EXPECT_TRUE(std::isfinite(uv.x) && std::isfinite(uv.y)) << mapping.name;
        float u = 7, v = 8;
        mapping.map(nullptr, &u, &v);
        mapping.derivs(nullptr, nullptr, nullptr, &u, &v, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(u, 7);
        EXPECT_EQ(v, 8);
    }
}

} // namespace
