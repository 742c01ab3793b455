// What the tests of quads share: quads, and the light that closed forms say they give.
#ifndef RV_QUAD_TOOLS_H
#define RV_QUAD_TOOLS_H

#include "golden.h"
#include "lights/quad_geometry.h"

#include <array>

namespace quad_tools {

using rv::Vec3d, rv::vec3d, rv::operator+, rv::operator-, rv::operator*;
using Corners = std::array<RtPoint, 4>;

inline constexpr Corners default_corners = { RtPoint{ -1, -1, 0 }, RtPoint{ -1, 1, 0 },
                                             RtPoint{ 1, 1, 0 }, RtPoint{ 1, -1, 0 } };
// No two sides are parallel.
inline constexpr Corners kite = { RtPoint{ 0, 0, 1 }, RtPoint{ 1, 0, 1 }, RtPoint{ 1.5f, 2, 1 },
                                  RtPoint{ -1, 1, 1 } };

inline Corners cornersOf(const nlohmann::json& vertices)
{
    const std::vector<float> n = goldenFloats(vertices);
    Corners corners;
    for (size_t i = 0; i < 4; ++i)
        corners[i] = { n[3 * i], n[3 * i + 1], n[3 * i + 2] };
    return corners;
}

inline rv::QuadGeometry quadOf(const Corners& corners)
{
    rv::QuadGeometry quad = {};
    rv::makeQuad(corners.data(), &quad);
    return quad;
}

inline Vec3d directionTo(const RtPoint& corner, const RtPoint& p)
{
    return rv::normalized(vec3d(corner) - vec3d(p));
}

// Steradians of a triangle seen from a point (Van Oosterom, Strackee, "The Solid Angle of a Plane
// Triangle", 1983).
inline double solidAngle(const RtPoint& a, const RtPoint& b, const RtPoint& c, const RtPoint& p)
{
    const Vec3d x = directionTo(a, p), y = directionTo(b, p), z = directionTo(c, p);
    return 2 * std::fabs(atan2(rv::dot(x, rv::cross(y, z)),
                               1 + rv::dot(x, y) + rv::dot(y, z) + rv::dot(z, x)));
}
inline double solidAngle(const Corners& q, const RtPoint& p)
{
    return solidAngle(q[0], q[1], q[2], p) + solidAngle(q[0], q[2], q[3], p);
}

// Irradiance from a polygon of radiance 1 that is above the horizon (Lambert, "Photometria", 1760).
inline double irradianceFrom(const Corners& q, const RtPoint& p, const RtVector& normal)
{
    double sum = 0;
    for (size_t i = 0; i < 4; ++i) {
        const Vec3d a = directionTo(q[i], p), b = directionTo(q[(i + 1) % 4], p);
        const Vec3d across = rv::cross(a, b);
        sum += atan2(rv::length(across), rv::dot(a, b)) *
               rv::dot(rv::normalized(across), vec3d(normal));
    }
    return std::fabs(sum) / 2;
}

} // namespace quad_tools

#endif
