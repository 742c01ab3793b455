// What the analytic shapes (sphere, cylinder, cone, disc, plane, box, implicit) share: their life
// as geometric objects of one primitive, and the double precision in which they are intersected.
//
// A shape lays its record out as its parameters, the common ones, the name and then `geometry`:
// values that its intersector needs, derived from the parameters by Initialize and again when the
// geometry is rebuilt, and only read while rendering.
#ifndef RV_SIMPLE_H
#define RV_SIMPLE_H

#include "objects/gobject.h"
#include "rv_rays.h"
#include "vec3d.h"

#include <math.h>

struct RtShaderGlobals;

namespace rv {

// Makes the box hold a point; NaN extends nothing.
void extendBox(RtBBox* box, const Vec3d& point);

// ---- Intersectors ----

// Nearer hits belong to the surface that the ray leaves.
inline constexpr double nearest_hit = 1e-6;

// A ray that is tested against one shape, both in object space.
struct ShapeRay {
    RtGObject* object;
    const RtTraversal& traversal;
    const RtObjectRay& ray;
    RtHitList& hits;

    Vec3d origin() const { return vec3d(ray.origin); }
    Vec3d dir() const { return vec3d(ray.dir); }
    Vec3d at(double t) const { return origin() + dir() * t; }

    // It was spawned from this shape, reached through the same instance.
    bool leavesShape() const { return ray.ignore_prim == 0; }
    // Flat shapes cannot be hit again by what leaves them; cameras may stand on them.
    bool leavesFlatShape() const { return leavesShape() && !(traversal.ray_type & RV_RAY_CAMERA); }
    // Whether a hit there could be accepted: spares the computation of u and v.
    bool reaches(double t) const { return t > ray.mindist && t < hits.maxdist; }

    void insert(double t, double u = 0, double v = 0) const
    {
        RvAccelInsertHit(hits, float(t), float(u), float(v), traversal, ray, object, 0);
    }
    // Both hits of a closed shape. A ray that leaves the shape gets the one farther from its
    // origin, because the other is that origin.
    template <class Insert> void insertBoth(double first, double second, Insert insertOne) const
    {
        if (leavesShape()) {
            insertOne(fabs(first) > fabs(second) ? first : second);
            return;
        }
        insertOne(first);
        insertOne(second);
    }
};

// The parameter record of an object's shape.
template <class Record> const Record& recordOf(const RtGObject* object)
{
    return *static_cast<const Record*>(object->node->params);
}

// The structure of one analytic primitive.
struct OnePrimitive : SimpleAccel {
    // From the checked heap; null after a report when it is exhausted.
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* memory) { RvFree_func(memory); }
    size_t memory() const override { return sizeof *this; }
};

// Counts a new structure, which may be null.
RtAccel* countedAccel(OnePrimitive* accel);

// The ShapePrepareIntersection method of a shape with this intersector.
template <void (*intersectShape)(const ShapeRay& ray)> RtAccel* prepareIntersection(RtGObject*, int)
{
    struct Accel final : OnePrimitive {
        void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                       RtHitList& hits) const override
        {
            intersectShape({ object, traversal, ray, hits });
        }
    };
    return countedAccel(new Accel);
}

// ---- Methods ----

// Makes and counts the object; null when the heap is exhausted.
RtGObject* createSimpleObject(RtNode* node, RtObjectKind kind, uint32_t nkeys = 1);

// The Update method of a shape whose record derives values from its parameters.
template <class Record, void (*derive)(Record& record)>
void updateDerived(RtNode* node, void* params)
{
    const RtGObject* const object = objectOf(node);
    if (object && object->rebuild == RV_REBUILD_GEOMETRY)
        derive(*static_cast<Record*>(params));
    RvGObjectUpdate(node);
}

// The Update method of all others.
inline void updateSimple(RtNode* node, void*) { RvGObjectUpdate(node); }

// ShapeTextureCoordinates: those of the hit itself, and none.
void hitTextureCoordinates(RtGObject* object, uint32_t prim, float hit_u, float hit_v, float* u,
                           float* v);
void noTextureCoordinates(RtGObject* object, uint32_t prim, float hit_u, float hit_v, float* u,
                          float* v);

// ShapePrepareUserData: constant data, and the one element of uniform data.
void* prepareSimpleUserData(RtGObject* object, uint32_t prim, float hit_u, float hit_v, int thread);

// ---- Solids of revolution ----

// The axis of a cylinder or cone.
struct ShapeAxis {
    Vec3d top;
    Vec3d dir; // unit, from top to bottom; zero when they coincide
    double length;

    // Distance below the top.
    double depthOf(const Vec3d& p) const { return dot(p - top, dir); }
    Vec3d nearestPoint(const Vec3d& p) const { return top + dir * depthOf(p); }
    // Beyond the end plane of the top and not beyond that of the bottom.
    bool isBetweenEnds(const Vec3d& p) const
    {
        static constexpr double slack = 1e-6;
        const double depth = depthOf(p);
        return depth > slack && !(depth - length > slack);
    }
};
ShapeAxis axisBetween(const RtPoint& top, const RtPoint& bottom);

// Makes the box hold a disc around an axis.
void extendByDisc(RtBBox* box, const Vec3d& center, const Vec3d& axis, double radius);
// The box of a tube or cone. A little wider, so that rounding keeps the surface inside.
RtBBox boundsAround(const ShapeAxis& axis, double top_radius, double bottom_radius);

// ---- Bevels ----

// The normal within a bevel, from that of the rim at x = 0 to that of the surface at x = 1. The
// angle 0 bends nothing and 1 all the way to the rim's normal.
void bevelNormal(const Vec3d& rim, const Vec3d& surface, double x, double angle, RtVector* normal);

// ---- Fields ----

// Value of a shader at a point: its float output, or 0 when it has none.
float evaluateField(RtNode* field, RtShaderGlobals* sg, const RtPoint& point);

} // namespace rv

#endif
