// mappings: from a direction to the texture coordinates of an environment map (rv_textures.h).
//
// Pure functions of a unit direction. The derivatives are those of the same formulas for a
// direction that moves on the sphere, in double precision: near a pole they are quotients of small
// numbers. Where a formula has no derivative, at the pole of a map that tears there, the result is
// 0.
#include "maths.h"
#include "rv_textures.h"

#include <algorithm>

namespace rv {

// 1 / (2 pi), and the half extents of one face of the cross. Required: rounded like this.
static constexpr double one_over_two_pi = 0.15915494;
static constexpr double face_u = 0.166666, face_v = 0.125;

struct TextureCoords {
    float u, v;
};

// Of the coordinates, along one screen axis.
struct TextureRate {
    double u, v;
};

// Distance from a pole below which a direction counts as the pole itself.
static constexpr double pole_size = 1e-12;

static float angleOf(float cosine) { return acosf(std::clamp(cosine, -1.0f, 1.0f)); }

// ---- Maps around the +z axis ----

// Both round maps place a direction on a ray from the centre of the image towards (x, y), at a
// radius that depends on z alone.
struct RoundMap {
    float (*radius)(float theta);
    // Radius and how it changes with z, for a direction at a distance s from the z axis.
    void (*radiusRate)(double s, double z, double* radius, double* rate);
    double centre_rate; // of the radius with s, at +z
};

static constexpr RoundMap mirrored_ball = {
    [](float theta) { return 0.5f * sinf(theta * 0.5f); },
    [](double s, double z, double* radius, double* rate) {
        // sin(theta/2), by the half-angle formula that subtracts nothing.
        const double half_sine = z > 0 ? s / sqrt(2 * (1 + z)) : sqrt((1 - z) / 2);
        *radius = 0.5 * half_sine;
        *rate = -0.125 / half_sine;
    },
    0.25,
};

static constexpr RoundMap angular_map = {
    [](float theta) { return theta * float(one_over_two_pi); },
    [](double s, double z, double* radius, double* rate) {
        *radius = atan2(s, z) * one_over_two_pi;
        *rate = -one_over_two_pi / s;
    },
    one_over_two_pi,
};

template <const RoundMap& map> static TextureCoords mapRound(const RtVector& dir)
{
    const float phi = atan2f(-dir.y, dir.x);
    const float radius = map.radius(angleOf(dir.z));
    return { 0.5f + radius * cosf(phi), 0.5f - radius * sinf(phi) };
}

template <const RoundMap& map>
static TextureRate mapRoundRate(const RtVector& dir, const RtVector& d)
{
    const double x = dir.x, y = dir.y, z = dir.z, s = hypot(x, y);
    if (s < pole_size) // the far pole becomes a circle
        return z > 0 ? TextureRate{ map.centre_rate * d.x, map.centre_rate * d.y } : TextureRate{};
    double radius, radius_rate;
    map.radiusRate(s, z, &radius, &radius_rate);
    const double cos_phi = x / s, sin_phi = y / s;
    const double outwards = radius_rate * d.z;
    const double around = radius * (cos_phi * d.y - sin_phi * d.x) / s;
    return { outwards * cos_phi - around * sin_phi, outwards * sin_phi + around * cos_phi };
}

// ---- Latitude and longitude ----

static TextureCoords mapLatLong(const RtVector& dir)
{
    const float phi = atan2f(-dir.x, dir.z);
    return { 1 - (phi * float(one_over_two_pi) + 0.5f), 1 - angleOf(dir.y) * RV_ONEOVERPI };
}

static TextureRate mapLatLongRate(const RtVector& dir, const RtVector& d)
{
    const double x = dir.x, z = dir.z, s = hypot(x, z);
    if (s < pole_size) // a pole becomes an edge of the image
        return {};
    return { one_over_two_pi * (z * d.x - x * d.z) / (s * s), d.y * M_1_PI / s };
}

// ---- The cross of six faces ----

// How a face of the cube lies in the image: which component of the direction runs along u and
// which along v, in which sense, and where its centre is.
struct Face {
    int major, along_u, along_v;
    double scale_u, centre_u;
    double scale_v, centre_v;
};

enum { x_axis, y_axis, z_axis };

// By axis, the positive side first.
static const Face faces[3][2] = {
    { { x_axis, z_axis, y_axis, face_u, 0.833333, face_v, 0.625 },
      { x_axis, z_axis, y_axis, -face_u, 0.166666, face_v, 0.625 } },
    { { y_axis, x_axis, z_axis, face_u, 0.5, face_v, 0.875 },
      { y_axis, x_axis, z_axis, face_u, 0.5, -face_v, 0.375 } },
    { { z_axis, x_axis, y_axis, face_u, 0.5, -face_v, 0.125 },
      { z_axis, x_axis, y_axis, face_u, 0.5, face_v, 0.625 } },
};

// Required: an edge between faces belongs to z, whatever z is; but for z = 0, which nothing can be
// divided by, to y.
static const Face& faceOf(const double dir[3])
{
    const double x = fabs(dir[x_axis]), y = fabs(dir[y_axis]), z = fabs(dir[z_axis]);
    int axis = z_axis;
    if (x > y && x > z)
        axis = x_axis;
    else if ((y > x && y > z) || z == 0)
        axis = y_axis;
    return faces[axis][!(dir[axis] > 0)];
}

static TextureCoords mapCubic(const RtVector& dir)
{
    const double d[3] = { dir.x, dir.y, dir.z };
    const Face& face = faceOf(d);
    const double m = fabs(d[face.major]);
    if (m == 0) // no direction at all
        return { float(face.centre_u), float(face.centre_v) };
    return { float(d[face.along_u] / m * face.scale_u + face.centre_u),
             float(d[face.along_v] / m * face.scale_v + face.centre_v) };
}

static TextureRate mapCubicRate(const RtVector& dir, const RtVector& rate)
{
    const double d[3] = { dir.x, dir.y, dir.z }, r[3] = { rate.x, rate.y, rate.z };
    const Face& face = faceOf(d);
    const double m = d[face.major], side = m > 0 ? 1 : -1;
    if (m == 0)
        return {};
    const auto quotientRate = [&](int axis) {
        return side * (r[axis] * m - d[axis] * r[face.major]) / (m * m);
    };
    return { face.scale_u * quotientRate(face.along_u), face.scale_v * quotientRate(face.along_v) };
}

// ---- The exported shells ----

using MapFunction = TextureCoords (*)(const RtVector& dir);
using RateFunction = TextureRate (*)(const RtVector& dir, const RtVector& rate);

template <MapFunction map> static void store(const RtVector* dir, float* u, float* v)
{
    if (!dir || !u || !v)
        return;
    const TextureCoords coords = map(*dir);
    *u = coords.u;
    *v = coords.v;
}

template <RateFunction rate>
static void storeRate(const RtVector* dir, const RtVector* along, float* du, float* dv)
{
    if (!dir || !along || !du || !dv)
        return;
    const TextureRate result = rate(*dir, *along);
    *du = float(result.u);
    *dv = float(result.v);
}

} // namespace rv

void RvMappingMirroredBall(const RtVector* dir, float* u, float* v)
{
    rv::store<rv::mapRound<rv::mirrored_ball>>(dir, u, v);
}

void RvMappingAngularMap(const RtVector* dir, float* u, float* v)
{
    rv::store<rv::mapRound<rv::angular_map>>(dir, u, v);
}

void RvMappingLatLong(const RtVector* dir, float* u, float* v)
{
    rv::store<rv::mapLatLong>(dir, u, v);
}

void RvMappingCubicMap(const RtVector* dir, float* u, float* v)
{
    rv::store<rv::mapCubic>(dir, u, v);
}

void RvMappingMirroredBallDerivs(const RtVector* dir, const RtVector* dDdx, const RtVector* dDdy,
                                 float* u, float* v, float* dudx, float* dudy, float* dvdx,
                                 float* dvdy)
{
    RvMappingMirroredBall(dir, u, v);
    rv::storeRate<rv::mapRoundRate<rv::mirrored_ball>>(dir, dDdx, dudx, dvdx);
    rv::storeRate<rv::mapRoundRate<rv::mirrored_ball>>(dir, dDdy, dudy, dvdy);
}

void RvMappingAngularMapDerivs(const RtVector* dir, const RtVector* dDdx, const RtVector* dDdy,
                               float* u, float* v, float* dudx, float* dudy, float* dvdx,
                               float* dvdy)
{
    RvMappingAngularMap(dir, u, v);
    rv::storeRate<rv::mapRoundRate<rv::angular_map>>(dir, dDdx, dudx, dvdx);
    rv::storeRate<rv::mapRoundRate<rv::angular_map>>(dir, dDdy, dudy, dvdy);
}

void RvMappingLatLongDerivs(const RtVector* dir, const RtVector* dDdx, const RtVector* dDdy,
                            float* u, float* v, float* dudx, float* dudy, float* dvdx, float* dvdy)
{
    RvMappingLatLong(dir, u, v);
    rv::storeRate<rv::mapLatLongRate>(dir, dDdx, dudx, dvdx);
    rv::storeRate<rv::mapLatLongRate>(dir, dDdy, dudy, dvdy);
}

void RvMappingCubicMapDerivs(const RtVector* dir, const RtVector* dDdx, const RtVector* dDdy,
                             float* u, float* v, float* dudx, float* dudy, float* dvdx, float* dvdy)
{
    RvMappingCubicMap(dir, u, v);
    rv::storeRate<rv::mapCubicRate>(dir, dDdx, dudx, dvdx);
    rv::storeRate<rv::mapCubicRate>(dir, dDdy, dudy, dvdy);
}
