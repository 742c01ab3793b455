// A quad as seen from a point: two spherical triangles, whose directions are sampled uniformly
// (Arvo, "Stratified Sampling of Spherical Triangles", 1995).
#ifndef RV_QUAD_SPHERE_H
#define RV_QUAD_SPHERE_H

#include "lights/quad_geometry.h"

namespace rv {

struct SphericalTriangle {
    Vec3d a, b;     // corners on the unit sphere
    Vec3d c_across; // the part of the third one across a, unit
    double angles[3];
    double cos_alpha, sin_alpha; // of the first angle
    double ab_sin_alpha;         // (a . b) sin alpha
    double area;                 // steradians
};

struct SphericalQuad {
    SphericalTriangle triangles[2]; // corners 0, 1, 2 and 0, 2, 3
    double extent() const { return triangles[0].area + triangles[1].area; } // steradians
};

SphericalQuad projectQuad(const QuadGeometry& quad, const RtPoint& point);

// A unit direction for (u, v) in [0, 1) squared, uniform by solid angle.
Vec3d sphericalDirection(const SphericalQuad& quad, float u, float v);

} // namespace rv

#endif
