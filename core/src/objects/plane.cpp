// plane: the "plane" shape node, an infinite plane.
#include "objects/objects.h"

namespace rv {

struct Plane {
    RtPoint point;
    RtVector normal;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Plane>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPNT(params, RV_FIELD(Plane, point), 0, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Plane, normal), 0, 0, 1);
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

const RtNodeMethods plane_methods = { &common, &shape };

} // namespace rv
