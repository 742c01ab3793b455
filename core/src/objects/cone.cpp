// cone: the "cone" shape node, a cone or truncated cone without end caps.
#include "msg.h"
#include "objects/simple.h"

#include <utility>

namespace rv {

struct Cone {
    RtPoint bottom;
    RtPoint top;
    float bottom_radius;
    float top_radius;
    ShapeParams common;
    const char* name;
    struct Geometry {
        ShapeAxis axis; // from the wide end towards the narrow one and the apex
        double wide_radius;
        double narrow_radius;
        double slope; // how fast the radius shrinks along the axis
    } geometry;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Cone>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Cone, bottom), 0, 0, -0.5f);
    RvNodeParamPNT(params, RV_FIELD(Cone, top), 0, 0, 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Cone, bottom_radius), 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Cone, top_radius), 0);
}

// The wide end plays the top. The parameters stay as the host set them.
static void derive(Cone& cone)
{
    struct End {
        RtPoint center;
        double radius;
    };
    End wide = { cone.top, cone.top_radius }, narrow = { cone.bottom, cone.bottom_radius };
    if (wide.radius < narrow.radius)
        std::swap(wide, narrow);
    const ShapeAxis axis = axisBetween(wide.center, narrow.center);
    const double slope = (wide.radius - narrow.radius) / axis.length;
    cone.geometry = { axis, wide.radius, narrow.radius, slope };
}

static void initialize(RtNode* node, void* params)
{
    Cone& cone = *static_cast<Cone*>(params);
    if (cone.bottom_radius == cone.top_radius) {
        RvMsgError("degenerate cone -- use a cylinder instead");
        return;
    }
    derive(cone);
    createSimpleObject(node, RV_KIND_CONE);
}

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const Cone::Geometry& cone = recordOf<Cone>(object).geometry;
    *box = boundsAround(cone.axis, cone.wide_radius, cone.narrow_radius);
}

// Roots of a t^2 + b t + c = 0 for the squared distance from the axis less the squared radius
// there: p and e are both linear in t.
// Required: the ends are open, and a ray parallel to a straight line of the surface misses it.
static void intersect(const ShapeRay& ray)
{
    const Cone::Geometry& cone = recordOf<Cone>(ray.object).geometry;
    const ShapeAxis& axis = cone.axis;
    const Vec3d d = ray.dir(), v = ray.origin() - axis.top;
    const double h0 = dot(axis.dir, v), hd = dot(axis.dir, d);
    const Vec3d p0 = v - axis.dir * h0, pd = d - axis.dir * hd;
    const double e0 = cone.wide_radius - cone.slope * h0, ed = -cone.slope * hd;
    const double a = dot(pd, pd) - ed * ed;
    const double b = 2 * (dot(pd, p0) - ed * e0);
    const double c = dot(p0, p0) - e0 * e0;
    const double discriminant = b * b - 4 * a * c;
    if (!(discriminant >= 0) || a == 0)
        return;
    // q takes the sign of b, so that no two nearly equal numbers are subtracted.
    const double q = -0.5 * (b + copysign(sqrt(discriminant), b));
    double first = q / a, second = q == 0 ? first : c / q;
    if (first > second)
        std::swap(first, second);
    if (!(second >= nearest_hit))
        return;
    if (first > nearest_hit && axis.isBetweenEnds(ray.at(first)))
        ray.insert(first);
    if (axis.isBetweenEnds(ray.at(second)))
        ray.insert(second);
}

static void localGeometry(const RtVector*, float, const RtMatrix*, RtHit* hit, const RtPoint* point,
                          RtLocalGeometry* out)
{
    const Cone::Geometry& cone = recordOf<Cone>(hit->object).geometry;
    const Vec3d p = vec3d(*point);
    const Vec3d outwards = p - cone.axis.nearestPoint(p);
    const double rho = length(outwards);
    // At the apex the surface faces along the axis.
    const Vec3d n =
        rho > 0 ? normalized(outwards + cone.axis.dir * (rho * cone.slope)) : cone.axis.dir;
    out->N = out->Ng = single(n);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateDerived<Cone, derive>,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods cone_methods = { &common, &shape };

} // namespace rv
