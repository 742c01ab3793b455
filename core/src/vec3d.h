// Vectors in double precision, for differences of products of world-sized numbers, which are more
// than a float holds.
#ifndef RV_VEC3D_H
#define RV_VEC3D_H

#include "rv_math.h"

#include <math.h>

namespace rv {

struct Vec3d {
    double x, y, z;
};
inline Vec3d vec3d(const RtVector& v) { return { v.x, v.y, v.z }; }
inline RtVector single(const Vec3d& v) { return { float(v.x), float(v.y), float(v.z) }; }
inline Vec3d operator+(const Vec3d& a, const Vec3d& b)
{
    return { a.x + b.x, a.y + b.y, a.z + b.z };
}
inline Vec3d operator-(const Vec3d& a, const Vec3d& b)
{
    return { a.x - b.x, a.y - b.y, a.z - b.z };
}
inline Vec3d operator-(const Vec3d& v) { return { -v.x, -v.y, -v.z }; }
inline Vec3d operator*(const Vec3d& v, double s) { return { v.x * s, v.y * s, v.z * s }; }
inline double dot(const Vec3d& a, const Vec3d& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3d cross(const Vec3d& a, const Vec3d& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}
inline double length(const Vec3d& v) { return sqrt(dot(v, v)); }

// Zero for what has no direction: zero, infinity and NaN.
inline Vec3d normalized(const Vec3d& v)
{
    const double l = length(v);
    return l > 0 && l < HUGE_VAL ? Vec3d{ v.x / l, v.y / l, v.z / l } : Vec3d{};
}

} // namespace rv

#endif
