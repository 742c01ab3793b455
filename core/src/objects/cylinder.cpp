// cylinder: the "cylinder" shape node, an open tube.
#include "objects/objects.h"

namespace rv {

struct Cylinder {
    RtPoint bottom;
    RtPoint top;
    float radius;
    float bevel_width;
    float bevel_angle;
    ShapeParams common;
    const char* name;
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

const RtNodeMethods cylinder_methods = { &common, &shape };

} // namespace rv
