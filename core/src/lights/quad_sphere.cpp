// quad_sphere: uniform sampling of the directions towards a quad. Declared by quad_sphere.h.
#include "lights/quad_sphere.h"

#include <algorithm>

namespace rv {

static constexpr double pi = 3.14159265358979323846;

// Between two planes through the centre, given their normals. By arc tangent, which unlike the arc
// cosine keeps its digits near 0 and pi: areas of small triangles are what is left of a sum of
// angles that is nearly pi.
static double angleBetween(const Vec3d& a, const Vec3d& b)
{
    return atan2(length(cross(a, b)), dot(a, b));
}

static SphericalTriangle makeTriangle(const Vec3d& a, const Vec3d& b, const Vec3d& c)
{
    const Vec3d ab = normalized(cross(a, b)), bc = normalized(cross(b, c)),
                ca = normalized(cross(c, a));
    SphericalTriangle t;
    t.a = a;
    t.b = b;
    t.angles[0] = angleBetween(ca, -ab);
    t.angles[1] = angleBetween(ab, -bc);
    t.angles[2] = angleBetween(bc, -ca);
    t.area = std::max(0.0, t.angles[0] + t.angles[1] + t.angles[2] - pi);
    t.cos_alpha = cos(t.angles[0]);
    t.sin_alpha = sin(t.angles[0]);
    t.ab_sin_alpha = dot(a, b) * t.sin_alpha;
    t.c_across = normalized(dot(a, a) > 0 ? c - a * (dot(c, a) / dot(a, a)) : c);
    return t;
}

SphericalQuad projectQuad(const QuadGeometry& quad, const RtPoint& point)
{
    Vec3d c[4];
    for (int i = 0; i < 4; ++i)
        c[i] = normalized(vec3d(quad.p[i]) - vec3d(point));
    return { { makeTriangle(c[0], c[1], c[2]), makeTriangle(c[0], c[2], c[3]) } };
}

// u moves the third corner so far towards the first that it cuts off that share of the area; v goes
// from the second corner to the place so found.
static Vec3d triangleDirection(const SphericalTriangle& triangle, double u, double v)
{
    const double phi = u * triangle.area - triangle.angles[0];
    const double s = sin(phi), t = cos(phi), cos_alpha = triangle.cos_alpha;
    const double p = t - cos_alpha, q = s + triangle.ab_sin_alpha;
    const double k = std::clamp(
        ((q * t - p * s) * cos_alpha - q) / ((q * s + p * t) * triangle.sin_alpha), -1.0, 1.0);
    const Vec3d c = triangle.a * k + triangle.c_across * sqrt(1 - k * k);
    const Vec3d& b = triangle.b;
    const double z = 1 - v * (1 - dot(c, b));
    const Vec3d across = normalized(c - b * (dot(c, b) / dot(b, b)));
    return b * z + across * sqrt(std::max(0.0, 1 - z * z));
}

Vec3d sphericalDirection(const SphericalQuad& quad, float u, float v)
{
    const double x = double(u) * quad.extent(), first = quad.triangles[0].area;
    const bool in_second = x >= first;
    const SphericalTriangle& triangle = quad.triangles[in_second];
    return triangleDirection(triangle, (in_second ? x - first : x) / triangle.area, double(v));
}

} // namespace rv
