// The planar quadrilateral that "quad_light" shines from.
//
// Its points are Q(u, v) = p0 (1-u)(1-v) + p1 u (1-v) + p2 u v + p3 (1-u) v.
#ifndef RV_QUAD_GEOMETRY_H
#define RV_QUAD_GEOMETRY_H

#include "vec3d.h"

namespace rv {

// Area of the quad for each unit of (u, v), at a place: a u + b v + c.
struct QuadJacobian {
    float a, b, c;
    float at(float u, float v) const { return a * u + b * v + c; }
};

struct QuadGeometry {
    RtPoint p[4];    // in order around the quad
    float area;      // 0 when floats do not hold it and its inverse, or when it is inside out
    RtVector normal; // unit; the quad shines to this side
    RtPoint centre;  // the mean of the corners
    float radius;    // of a sphere around it that holds the quad
    QuadJacobian jacobian;
};

enum QuadFault { quad_is_fine, quad_is_degenerate, quad_is_not_planar };

// The geometry is complete unless the quad is degenerate; one that is not planar may have no area.
QuadFault makeQuad(const RtPoint corners[4], QuadGeometry* quad);

RtPoint quadPoint(const QuadGeometry& quad, float u, float v);

// The distance of a point from the plane, on the side that is lit.
double distanceInFront(const QuadGeometry& quad, const RtPoint& point);

// The solid angle that the whole quad would have if it looked everywhere as it does there.
inline float apparentSize(float area, float cosine, float distance)
{
    return area * cosine / (distance * distance);
}

// A place of the quad that was sampled with that density by area.
struct QuadSample {
    float u, v;
    float density;
};
QuadSample sampleQuadArea(const QuadJacobian& jacobian, float su, float sv);

// The place of a point of the plane; false outside.
bool placeOnQuad(const QuadGeometry& quad, const Vec3d& point, float* u, float* v);

// Where a ray from the lit side meets the quad; false when it misses.
struct QuadHit {
    float u, v;
    float distance;
};
bool intersectQuad(const QuadGeometry& quad, const RtPoint& origin, const RtVector& dir,
                   QuadHit* hit);

} // namespace rv

#endif
