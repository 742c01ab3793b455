// cylinder: the "cylinder" shape node, a tube without end caps. A bevel bends the shading normals
// near the ends towards the caps that are not there.
#include "msg.h"
#include "objects/simple.h"

namespace rv {

struct Cylinder {
    RtPoint bottom;
    RtPoint top;
    float radius;
    float bevel_width;
    float bevel_angle;
    ShapeParams common;
    const char* name;
    struct Geometry {
        ShapeAxis axis;
        double radius;
    } geometry;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Cylinder>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Cylinder, bottom), 0, 0, -0.5f);
    RvNodeParamPNT(params, RV_FIELD(Cylinder, top), 0, 0, 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Cylinder, radius), 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Cylinder, bevel_width), 0);
    RvNodeParamFLT(params, RV_FIELD(Cylinder, bevel_angle), 0.5f);
}

static bool hasNoLength(const Cylinder& cylinder)
{
    static constexpr float shortest = 1e-6f;
    const RtVector along = cylinder.bottom - cylinder.top;
    return fabsf(along.x) < shortest && fabsf(along.y) < shortest && fabsf(along.z) < shortest;
}

static void derive(Cylinder& cylinder)
{
    ShapeAxis axis = axisBetween(cylinder.top, cylinder.bottom);
    if (hasNoLength(cylinder))
        axis.dir = {};
    cylinder.geometry = { axis, cylinder.radius };
}

static void initialize(RtNode* node, void* params)
{
    Cylinder& cylinder = *static_cast<Cylinder*>(params);
    if (hasNoLength(cylinder))
        RvMsgWarning("%s: zero-length cylinder", RvNodeGetName(node));
    derive(cylinder);
    createSimpleObject(node, RV_KIND_CYLINDER);
}

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const Cylinder::Geometry& tube = recordOf<Cylinder>(object).geometry;
    *box = boundsAround(tube.axis, tube.radius, tube.radius);
}

// Ray against infinite cylinder by the common normal of the two lines (Cychosz and Waggenspack,
// Intersecting a ray with a cylinder, Graphics Gems IV), then cut to the two ends.
// Required: the ends are open.
static void intersect(const ShapeRay& ray)
{
    const auto& [axis, radius] = recordOf<Cylinder>(ray.object).geometry;
    const Vec3d across = cross(ray.dir(), axis.dir);
    const double speed = length(across); // at which the ray moves away from the axis
    if (speed == 0)
        return;
    const Vec3d normal = across * (1 / speed);
    const Vec3d from_top = ray.origin() - axis.top;
    const double distance = fabs(dot(from_top, normal)); // between the two lines
    if (!(distance <= radius))
        return;
    const double nearest = -dot(cross(from_top, axis.dir), normal) / speed;
    const double half = sqrt(radius * radius - distance * distance) / speed;
    const double entry = nearest - half, exit = nearest + half;
    if (!(exit >= nearest_hit))
        return;
    if (entry > nearest_hit && axis.isBetweenEnds(ray.at(entry)))
        ray.insert(entry);
    if (axis.isBetweenEnds(ray.at(exit)))
        ray.insert(exit);
}

static void bevel(const Cylinder& cylinder, double depth, const Vec3d& side, RtVector* normal)
{
    const ShapeAxis& axis = cylinder.geometry.axis;
    const double width = cylinder.bevel_width, angle = cylinder.bevel_angle;
    const double height = axis.length - depth; // above the bottom
    if (depth < 0)
        *normal = single(-axis.dir);
    else if (depth < width)
        bevelNormal(-axis.dir, side, depth / width, angle, normal);
    else if (depth <= axis.length - width)
        return;
    else if (height > 0)
        bevelNormal(axis.dir, side, height / width, angle, normal);
    else
        *normal = single(axis.dir);
}

static void localGeometry(const RtVector*, float, const RtMatrix*, RtHit* hit, const RtPoint* point,
                          RtLocalGeometry* out)
{
    const Cylinder& cylinder = recordOf<Cylinder>(hit->object);
    const ShapeAxis& axis = cylinder.geometry.axis;
    const Vec3d p = vec3d(*point);
    const Vec3d side = normalized(p - axis.nearestPoint(p));
    out->N = out->Ng = single(side);
    if (cylinder.bevel_width > 0)
        bevel(cylinder, axis.depthOf(p), side, &out->N);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateDerived<Cylinder, derive>,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods cylinder_methods = { &common, &shape };

} // namespace rv
