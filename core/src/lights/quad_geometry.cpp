// quad_geometry: area, sampling and intersection of planar quadrilaterals. Declared by
// quad_geometry.h.
#include "lights/quad_geometry.h"

#include <algorithm>

namespace rv {

// ---- Shape ----

static Vec3d difference(const RtPoint& a, const RtPoint& b) { return vec3d(a) - vec3d(b); }

// The length of the cross product, negative when it points against the normal.
static double signedArea(const Vec3d& a, const Vec3d& b, const Vec3d& normal)
{
    const Vec3d n = cross(a, b);
    return copysign(length(n), dot(n, normal));
}

// Samples divide by the area.
static float usableArea(double area)
{
    const float a = float(area), inverse = float(1 / area);
    return a > 0 && a < HUGE_VALF && inverse > 0 && inverse < HUGE_VALF ? a : 0;
}

static bool isFinite(const QuadJacobian& j)
{
    return isfinite(j.a) && isfinite(j.b) && isfinite(j.c);
}

static void setSphere(QuadGeometry* quad)
{
    const RtPoint* const p = quad->p;
    const Vec3d centre = (vec3d(p[0]) + vec3d(p[1]) + vec3d(p[2]) + vec3d(p[3])) * 0.25;
    double radius = 0;
    for (int i = 0; i < 4; ++i)
        radius = std::max(radius, length(vec3d(p[i]) - centre));
    quad->centre = single(centre);
    quad->radius = float(radius);
}

QuadFault makeQuad(const RtPoint corners[4], QuadGeometry* quad)
{
    const RtPoint* const p = corners;
    std::copy_n(corners, 4, quad->p);
    const Vec3d e1 = difference(p[1], p[0]), e3 = difference(p[3], p[0]);
    const Vec3d d1 = difference(p[2], p[1]), d2 = difference(p[2], p[3]);
    const Vec3d n = cross(e1, e3);
    const double l = length(n);
    const Vec3d normal = normalized(n);
    if (!(dot(normal, normal) > 0)) // nor for NaN
        return quad_is_degenerate;
    constexpr double planarity = 0.0001;
    const bool is_planar = fabs(1 - dot(normalized(cross(d2, d1)), normal)) <= planarity;

    const Vec3d g = d2 - e1;
    const double a = signedArea(e1, g, normal), b = signedArea(g, e3, normal);
    quad->jacobian = { float(a), float(b), float(l) };
    quad->area = isFinite(quad->jacobian) ? usableArea((a + b) / 2 + l) : 0;
    if (is_planar && quad->area == 0)
        return quad_is_degenerate;
    quad->normal = single(normal);
    setSphere(quad);
    return is_planar ? quad_is_fine : quad_is_not_planar;
}

RtPoint quadPoint(const QuadGeometry& quad, float u, float v)
{
    const RtPoint* const p = quad.p;
    return single(vec3d(p[0]) * ((1 - double(u)) * (1 - double(v))) +
                  vec3d(p[1]) * (double(u) * (1 - double(v))) +
                  vec3d(p[2]) * (double(u) * double(v)) +
                  vec3d(p[3]) * ((1 - double(u)) * double(v)));
}

double distanceInFront(const QuadGeometry& quad, const RtPoint& point)
{
    return dot(difference(point, quad.p[0]), vec3d(quad.normal));
}

// ---- Quadratic equations ----

// Roots of A x^2 + B x + C = 0; returns how many. q takes the sign of B, so that no two nearly
// equal numbers are subtracted (Press et al., Numerical Recipes, 3rd ed., 5.6).
static int solveQuadratic(double A, double B, double C, double roots[2])
{
    const double discriminant = B * B - 4 * A * C;
    if (!(discriminant >= 0))
        return 0;
    const double q = -(B + copysign(sqrt(discriminant), B)) / 2;
    int count = 0;
    if (A != 0)
        roots[count++] = q / A;
    if (q != 0)
        roots[count++] = C / q;
    return count;
}

static bool isInUnit(double x) { return x >= 0 && x <= 1; }

// The first root in [0, 1], or `otherwise`.
static double rootInUnit(double A, double B, double C, double otherwise)
{
    double roots[2];
    const int count = solveQuadratic(A, B, C, roots);
    for (int i = 0; i < count; ++i)
        if (isInUnit(roots[i]))
            return roots[i];
    return otherwise;
}

// ---- Sampling ----

QuadSample sampleQuadArea(const QuadJacobian& jacobian, float su, float sv)
{
    const double a = jacobian.a, b = jacobian.b, c = jacobian.c;
    const double area = (a + b) / 2 + c;
    const double u = rootInUnit(a / 2, c + b / 2, -double(su) * area, double(su));
    // Required: v follows its distribution over the strip from 0 to u, not that at u.
    const double v = rootInUnit(b / 2 * u, c * u + a / 2 * u * u,
                                -double(sv) * ((b * u + a * u * u) / 2 + c * u), double(sv));
    return { float(u), float(v), float(1 / area) };
}

// ---- Intersection ----

struct Plane2 {
    double x, y;
};
static double cross(const Plane2& a, const Plane2& b) { return a.x * b.y - a.y * b.x; }
static Plane2 operator-(const Plane2& a, const Plane2& b) { return { a.x - b.x, a.y - b.y }; }
static Plane2 operator+(const Plane2& a, const Plane2& b) { return { a.x + b.x, a.y + b.y }; }
static Plane2 operator*(const Plane2& a, double s) { return { a.x * s, a.y * s }; }

// Drops the axis that the plane faces most.
static Plane2 flattened(const Vec3d& v, const RtVector& normal)
{
    const float x = fabsf(normal.x), y = fabsf(normal.y), z = fabsf(normal.z);
    if (z >= x && z >= y)
        return { v.x, v.y };
    return y >= x ? Plane2{ v.z, v.x } : Plane2{ v.y, v.z };
}

bool placeOnQuad(const QuadGeometry& quad, const Vec3d& point, float* u, float* v)
{
    const auto flat = [&](const Vec3d& x) { return flattened(x, quad.normal); };
    const Plane2 e1 = flat(difference(quad.p[1], quad.p[0]));
    const Plane2 e3 = flat(difference(quad.p[3], quad.p[0]));
    const Plane2 g = flat(difference(quad.p[2], quad.p[3])) - e1;
    const Plane2 h = flat(point - vec3d(quad.p[0]));
    // h = u e1 + v e3 + u v g, so that h - v e3 is parallel to e1 + v g.
    double roots[2];
    const int count =
        solveQuadratic(-cross(e3, g), cross(h, g) - cross(e3, e1), cross(h, e1), roots);
    for (int i = 0; i < count; ++i) {
        const Plane2 along = e1 + g * roots[i], rest = h - e3 * roots[i];
        const double at = fabs(along.x) > fabs(along.y) ? rest.x / along.x : rest.y / along.y;
        if (!isInUnit(roots[i]) || !isInUnit(at))
            continue;
        *u = float(at);
        *v = float(roots[i]);
        return true;
    }
    return false;
}

bool intersectQuad(const QuadGeometry& quad, const RtPoint& origin, const RtVector& dir,
                   QuadHit* hit)
{
    const double approach = -dot(vec3d(dir), vec3d(quad.normal));
    const double t = distanceInFront(quad, origin) / approach;
    if (!(approach > 0) || !(t > 0))
        return false;
    hit->distance = float(t);
    return placeOnQuad(quad, vec3d(origin) + vec3d(dir) * t, &hit->u, &hit->v);
}

} // namespace rv
