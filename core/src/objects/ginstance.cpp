// ginstance: the "ginstance" shape node, another shape in a second place.
#include "objects/objects.h"

namespace rv {

struct GInstance {
    RtNode* node;       // the shape
    bool inherit_xform; // "matrix" is applied after the transform of the shape, else instead of it
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<GInstance>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamNODE(params, RV_FIELD(GInstance, node), nullptr);
    RvNodeParamBOOL(params, RV_FIELD(GInstance, inherit_xform), true);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = unreachable::ShapeBBox,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = unreachable::ShapePrepareIntersection,
};

const RtNodeMethods ginstance_methods = { &common, &shape };

} // namespace rv
