// Cones of directions, which the lights that look like disks are sampled in, and the spheres and
// cones that lights reach.
#ifndef RV_LIGHT_CONE_H
#define RV_LIGHT_CONE_H

#include "maths.h"

namespace rv {

// Directions around an axis, uniform by solid angle.
struct Cone {
    RtVector axis;       // unit
    RtVector u, v;       // across the axis
    float one_minus_cos; // 1 - cosine of the half angle; precise where the cosine itself is not
};

// The frame around the axis is only needed to sample the cone.
void aimCone(Cone* cone, const RtVector& axis);

// Steradians.
float solidAngle(const Cone& cone);

// The direction for (u, v) in [0, 1) squared.
RtVector coneDirection(const Cone& cone, float u, float v);

inline bool isInside(const Cone& cone, const RtVector& dir)
{
    return 1 - dot(dir, cone.axis) <= cone.one_minus_cos;
}

// 1 - cosine of the cone of a sphere, given radius / distance; a half space from inside.
float sphereExtent(float ratio);
// The same of a disk that faces the point.
float diskExtent(float ratio);

// An interval of a ray, in units of its direction.
struct RaySpan {
    double t0, t1;
};

// Where a ray is inside of a sphere; false when nowhere.
bool spanInSphere(const RtVector& from_center, const RtVector& dir, double radius_sq,
                  RaySpan* span);

} // namespace rv

#endif
