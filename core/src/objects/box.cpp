// box: the "box" shape node, an axis-aligned solid.
#include "objects/objects.h"

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

const RtNodeMethods box_methods = { &common, &shape };

} // namespace rv
