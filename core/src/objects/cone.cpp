// cone: the "cone" shape node, an open cone or truncated cone.
#include "objects/objects.h"

namespace rv {

struct Cone {
    RtPoint bottom;
    RtPoint top;
    float bottom_radius;
    float top_radius;
    ShapeParams common;
    const char* name;
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

const RtNodeMethods cone_methods = { &common, &shape };

} // namespace rv
