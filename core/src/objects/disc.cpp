// disc: the "disc" shape node, a flat disc that may have a hole. A bevel bends the shading normals
// near both edges outwards.
#include "objects/simple.h"

namespace rv {

struct Disc {
    RtPoint center;
    RtVector normal;
    float radius;
    float hole; // radius of the hole
    float bevel_width;
    float bevel_angle;
    ShapeParams common;
    const char* name;
    struct Geometry {
        Vec3d center;
        Vec3d normal;  // unit, or zero
        double offset; // of the plane: points p on it have p . normal = -offset
        double radius2;
        double hole2;
    } geometry;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Disc>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Disc, center), 0, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Disc, normal), 0, 0, 1);
    RvNodeParamFLT(params, RV_FIELD(Disc, radius), 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Disc, hole), 0);
    RvNodeParamFLT(params, RV_FIELD(Disc, bevel_width), 0);
    RvNodeParamFLT(params, RV_FIELD(Disc, bevel_angle), 0.5f);
    declareFlag(metadata, "center", "_triggers_rebuild");
    declareFlag(metadata, "normal", "_triggers_rebuild");
    declareFlag(metadata, "radius", "_triggers_rebuild");
}

static void derive(Disc& disc)
{
    const Vec3d center = vec3d(disc.center), normal = normalized(vec3d(disc.normal));
    const double radius = disc.radius, hole = disc.hole;
    disc.geometry = { center, normal, -dot(normal, center), radius * radius, hole * hole };
}

static void initialize(RtNode* node, void* params)
{
    derive(*static_cast<Disc*>(params));
    createSimpleObject(node, RV_KIND_DISC);
}

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const Disc& disc = recordOf<Disc>(object);
    *box = empty_bbox;
    extendByDisc(box, disc.geometry.center, disc.geometry.normal, disc.radius);
}

static void intersect(const ShapeRay& ray)
{
    const Disc::Geometry& disc = recordOf<Disc>(ray.object).geometry;
    if (ray.leavesFlatShape())
        return;
    const double speed = dot(ray.dir(), disc.normal);
    if (speed == 0)
        return;
    const double t = (-dot(ray.origin(), disc.normal) - disc.offset) / speed;
    if (!(t >= nearest_hit))
        return;
    const Vec3d from_center = ray.at(t) - disc.center;
    const double distance2 = dot(from_center, from_center);
    if (distance2 >= disc.hole2 && distance2 <= disc.radius2)
        ray.insert(t);
}

// Required: on the edges the normal has the length of the distance from the center.
static void bevel(const Disc& disc, const Vec3d& outwards, RtVector* normal)
{
    const Vec3d& n = disc.geometry.normal;
    const double rho = length(outwards);
    const double width = disc.bevel_width, angle = disc.bevel_angle;
    const double hole = disc.hole, radius = disc.radius;
    if (rho < hole)
        *normal = single(-outwards);
    else if (rho < hole + width)
        bevelNormal(-outwards, n, (rho - hole) / width, angle, normal);
    else if (rho < radius - width)
        return;
    else if (rho >= radius)
        *normal = single(outwards);
    else
        bevelNormal(outwards, n, (radius - rho) / width, angle, normal);
}

static void localGeometry(const RtVector*, float, const RtMatrix*, RtHit* hit, const RtPoint* point,
                          RtLocalGeometry* out)
{
    const Disc& disc = recordOf<Disc>(hit->object);
    out->N = out->Ng = single(disc.geometry.normal);
    if (disc.bevel_width > 0)
        bevel(disc, vec3d(*point) - disc.geometry.center, &out->N);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateDerived<Disc, derive>,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods disc_methods = { &common, &shape };

} // namespace rv
