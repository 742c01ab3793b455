// disc: the "disc" shape node, a flat disc that may have a hole.
#include "objects/objects.h"

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

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = do_nothing,
    .ShapeBBox = do_nothing,
    .ShapeTextureCoordinates = do_nothing,
    .ShapePrepareUserData = do_nothing,
    .ShapePrepareIntersection = do_nothing,
};

const RtNodeMethods disc_methods = { &common, &shape };

} // namespace rv
