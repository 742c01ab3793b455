// plane: the "plane" shape node, an infinite plane.
#include "objects/simple.h"

namespace rv {

struct Plane {
    RtPoint point;
    RtVector normal;
    ShapeParams common;
    const char* name;
    struct Geometry {
        Vec3d normal;  // unit, or zero
        double offset; // points p on the plane have p . normal = -offset
    } geometry;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Plane>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Plane, point), 0, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Plane, normal), 0, 0, 1);
}

static void derive(Plane& plane)
{
    const Vec3d normal = normalized(vec3d(plane.normal));
    plane.geometry = { normal, -dot(normal, vec3d(plane.point)) };
}

static void initialize(RtNode* node, void* params)
{
    derive(*static_cast<Plane*>(params));
    // The bounds of a plane may lie on its other side, so they must not decide whether the
    // structure is built.
    if (createSimpleObject(node, RV_KIND_PLANE))
        RvGObjectBuildAccel(node, 0);
}

// The one coordinate of all points of a plane along an axis, if there is one.
static void flatten(double component, double offset, float* low, float* high)
{
    static constexpr double margin = 1e-6;
    if (fabs(component) != 1)
        return;
    // Required: the same sign for both directions of the normal.
    *low = float(-offset - margin);
    *high = float(-offset + margin);
}

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const auto& [normal, offset] = recordOf<Plane>(object).geometry;
    *box = { { -INFINITY, -INFINITY, -INFINITY }, { INFINITY, INFINITY, INFINITY } };
    flatten(normal.x, offset, &box->min.x, &box->max.x);
    flatten(normal.y, offset, &box->min.y, &box->max.y);
    flatten(normal.z, offset, &box->min.z, &box->max.z);
}

static void intersect(const ShapeRay& ray)
{
    const auto& [normal, offset] = recordOf<Plane>(ray.object).geometry;
    if (ray.leavesFlatShape())
        return;
    const double speed = dot(ray.dir(), normal);
    if (speed == 0)
        return;
    const double t = (-dot(ray.origin(), normal) - offset) / speed;
    if (!(t >= nearest_hit))
        return;
    const Vec3d p = ray.at(t);
    ray.insert(t, p.x, p.z);
}

// A direction within the plane, from the two larger components of its normal.
static Vec3d tangentOf(const Vec3d& n)
{
    if (fabs(n.y) > fabs(n.x) && fabs(n.z) > fabs(n.x))
        return normalized({ 0, n.z, -n.y });
    if (fabs(n.z) <= fabs(n.y))
        return normalized({ n.y, -n.x, 0 });
    return normalized({ n.z, 0, -n.x });
}

static void localGeometry(const RtVector*, float, const RtMatrix*, RtHit* hit, const RtPoint*,
                          RtLocalGeometry* out)
{
    const Vec3d& normal = recordOf<Plane>(hit->object).geometry.normal;
    const Vec3d tangent = tangentOf(normal);
    out->N = out->Ng = single(normal);
    out->dPdu = single(cross(tangent, normal));
    out->dPdv = single(tangent);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateDerived<Plane, derive>,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods plane_methods = { &common, &shape };

} // namespace rv
