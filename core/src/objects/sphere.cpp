// sphere: the "sphere" shape node, whose center and radius may move. u runs around the y axis and
// v from the bottom pole to the top one.
#include "array.h"
#include "msg.h"
#include "objects/simple.h"

#include <algorithm>

namespace rv {

struct Sphere {
    RtArray* center; // POINT, one per deformation key
    RtArray* radius; // FLOAT, one per deformation key
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Sphere>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamARRAY(params, RV_FIELD(Sphere, center), RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamARRAY(params, RV_FIELD(Sphere, radius), RvArray(1, 1, RV_TYPE_FLOAT, 0.5));
    declareFlag(metadata, "center", "_triggers_rebuild");
    declareFlag(metadata, "radius", "_triggers_rebuild");
}

// ---- Keys ----

static bool isMissing(const RtArray* keys, int type)
{
    return !keys || totalElements(keys) == 0 || typeSize(keys->type) != typeSize(type);
}

static bool isEmpty(const Sphere& sphere)
{
    return isMissing(sphere.center, RV_TYPE_POINT) || isMissing(sphere.radius, RV_TYPE_FLOAT);
}

// The last key stands for those that are missing behind it.
template <class T> static T keyOf(const RtArray* keys, uint32_t key)
{
    return elementsOf<T>(keys)[std::min(key, keys->nkeys - 1u) * size_t(keys->nelements)];
}

static uint32_t keyCount(const Sphere& sphere)
{
    return std::max(sphere.center->nkeys, sphere.radius->nkeys);
}

// The sphere at one moment.
struct Ball {
    Vec3d center;
    double radius;
};

static Ball ballAt(const Sphere& sphere, float time)
{
    if (isEmpty(sphere))
        return { {}, NAN };
    const bool is_moving = keyCount(sphere) > 1;
    const float f = is_moving ? relativeTime(sphere.common.deform_time_samples, time) : 0;
    return { vec3d(RvArrayInterpolatePnt(sphere.center, f, 0)),
             RvArrayInterpolateFlt(sphere.radius, f, 0) };
}

// ---- Methods ----

static void initialize(RtNode* node, void* params)
{
    const Sphere& sphere = *static_cast<const Sphere*>(params);
    if (isEmpty(sphere)) {
        RvMsgError("empty sphere object");
        return;
    }
    const unsigned centers = sphere.center->nkeys, radii = sphere.radius->nkeys;
    if (centers != radii && centers != 1 && radii != 1)
        RvMsgError("[%s] %s:  sphere parameters don't have the same number of motion keys",
                   node->entry->name, RvNodeGetName(node));
    createSimpleObject(node, RV_KIND_SPHERE, keyCount(sphere));
}

static void bounds(RtGObject* object, RtBBox* box, int key)
{
    const Sphere& sphere = recordOf<Sphere>(object);
    *box = empty_bbox;
    if (isEmpty(sphere))
        return;
    const uint32_t first = key < 0 ? 0 : uint32_t(key);
    const uint32_t end = key < 0 ? keyCount(sphere) : first + 1;
    for (uint32_t k = first; k < end; ++k) {
        const Vec3d center = vec3d(keyOf<RtPoint>(sphere.center, k));
        const double radius = keyOf<float>(sphere.radius, k);
        extendBox(box, center - Vec3d{ radius, radius, radius });
        extendBox(box, center + Vec3d{ radius, radius, radius });
    }
}

// u and v of a point given from the center.
static RtPoint2 sphericalPosition(const Vec3d& p)
{
    const double turn = atan2(-p.z, p.x) / (2 * M_PI);
    const double distance = length(p);
    const double cosine = distance > 0 ? std::clamp(-p.y / distance, -1.0, 1.0) : 0;
    return { float(turn < 0 ? turn + 1 : turn), float(acos(cosine) / M_PI) };
}

// Roots of a t^2 + 2 b t + c = 0. q takes the sign of b, so that no two nearly equal numbers are
// subtracted (Press et al., Numerical Recipes, 3rd ed., 5.6).
static void intersect(const ShapeRay& ray)
{
    const Ball ball = ballAt(recordOf<Sphere>(ray.object), ray.ray.time);
    const Vec3d d = ray.dir(), v = ray.origin() - ball.center;
    const double a = dot(d, d), b = dot(d, v), c = dot(v, v) - ball.radius * ball.radius;
    const double discriminant = b * b - a * c;
    if (!(discriminant >= 0)) // this way round it also rejects NaN
        return;
    const double q = -(b + copysign(sqrt(discriminant), b));
    ray.insertBoth(c / q, q / a, [&](double t) {
        if (!ray.reaches(t))
            return;
        const RtPoint2 position = sphericalPosition(v + d * t);
        ray.insert(t, position.x, position.y);
    });
}

static void localGeometry(const RtVector*, float time, const RtMatrix*, RtHit* hit,
                          const RtPoint* point, RtLocalGeometry* out)
{
    const Ball ball = ballAt(recordOf<Sphere>(hit->object), time);
    const Vec3d n = normalized(vec3d(*point) - ball.center);
    out->N = out->Ng = single(n);
    const double rho = sqrt(n.x * n.x + n.z * n.z);
    // At a pole u has no direction; that of u = 0 will do.
    const double cosine = rho > 0 ? n.x / rho : 1, sine = rho > 0 ? n.z / rho : 0;
    out->dPdu = single({ sine, 0, -cosine });
    out->dPdv = single({ -cosine * n.y, rho, -sine * n.y });
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateSimple,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = hitTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods sphere_methods = { &common, &shape };

} // namespace rv
