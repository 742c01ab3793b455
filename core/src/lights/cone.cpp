// cone: sampling and measuring cones of directions. Declared by cone.h.
#include "lights/cone.h"

#include "hemi_tables.h"
#include "rv_brdf.h"

#include <algorithm>

namespace rv {

void aimCone(Cone* cone, const RtVector& axis)
{
    cone->axis = axis;
    RvBuildLocalFrameShirley(&cone->u, &cone->v, &axis);
}

float solidAngle(const Cone& cone) { return cone.one_minus_cos * 6.283185307f; }

RtVector coneDirection(const Cone& cone, float u, float v)
{
    // sin^2 = 1 - (1 - h)^2, without the difference of nearly equal numbers.
    const float h = u * cone.one_minus_cos;
    const float sine = sqrtf(std::max(0.0f, h * (2 - h)));
    const CosSin& phi = hemiAngle(v);
    return cone.axis * (1 - h) + cone.u * (sine * phi.cos) + cone.v * (sine * phi.sin);
}

float sphereExtent(float ratio)
{
    const double sine_sq = std::min(1.0, double(ratio) * ratio);
    return float(sine_sq / (1 + sqrt(1 - sine_sq)));
}

float diskExtent(float ratio)
{
    const double tangent_sq = double(ratio) * ratio;
    const double secant = sqrt(1 + tangent_sq);
    return float(tangent_sq / (secant * (1 + secant)));
}

bool spanInSphere(const RtVector& from_center, const RtVector& dir, double radius_sq, RaySpan* span)
{
    const auto dotProduct = [](const RtVector& p, const RtVector& q) {
        return double(p.x) * q.x + double(p.y) * q.y + double(p.z) * q.z;
    };
    const double a = dotProduct(dir, dir), b = dotProduct(dir, from_center);
    const double c = dotProduct(from_center, from_center) - radius_sq;
    const double discriminant = b * b - a * c;
    if (!(a > 0) || !(discriminant >= 0))
        return false;
    // No two nearly equal numbers are subtracted (Press et al., Numerical Recipes, 3rd ed., 5.6).
    const double q = -(b + copysign(sqrt(discriminant), b));
    const double near = q != 0 ? c / q : 0, far = q / a;
    *span = { std::min(near, far), std::max(near, far) };
    return true;
}

} // namespace rv
