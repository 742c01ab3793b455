// box: the "box" shape node, an axis-aligned solid that rays enter and leave.
#include "objects/simple.h"

namespace rv {

struct Box {
    RtPoint min;
    RtPoint max;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Box>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Box, min), -0.5f, -0.5f, -0.5f);
    RvNodeParamPNT(params, RV_FIELD(Box, max), 0.5f, 0.5f, 0.5f);
}

static void initialize(RtNode* node, void*) { createSimpleObject(node, RV_KIND_BOX); }

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const Box& solid = recordOf<Box>(object);
    *box = { solid.min, solid.max };
}

static void intersect(const ShapeRay& ray)
{
    const Box& box = recordOf<Box>(ray.object);
    if (const SlabHit hit = slabTest({ box.min, box.max }, ray.ray, ray.hits.maxdist))
        ray.insertBoth(hit.tnear, hit.tfar, [&](double t) { ray.insert(t); });
}

// The nearest face; of faces at the same distance, the first in the table.
static void localGeometry(const RtVector*, float, const RtMatrix*, RtHit* hit, const RtPoint* point,
                          RtLocalGeometry* out)
{
    const Box& box = recordOf<Box>(hit->object);
    const struct {
        float distance;
        RtVector normal;
    } faces[] = {
        { fabsf(box.min.x - point->x), RV_V3_NEGX }, { fabsf(box.max.x - point->x), RV_V3_X },
        { fabsf(box.min.y - point->y), RV_V3_NEGY }, { fabsf(box.max.y - point->y), RV_V3_Y },
        { fabsf(box.min.z - point->z), RV_V3_NEGZ }, { fabsf(box.max.z - point->z), RV_V3_Z },
    };
    const auto* nearest = faces;
    for (const auto& face : faces)
        if (face.distance < nearest->distance)
            nearest = &face;
    out->N = out->Ng = nearest->normal;
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
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods box_methods = { &common, &shape };

} // namespace rv
