// listobj: the "list_aggregate" shape node, a group of shapes that is traced as one object.
#include "objects/objects.h"

namespace rv {

struct ListAggregate {
    void* obj_list; // RtList of shape nodes
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<ListAggregate>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPTR(params, RV_FIELD(ListAggregate, obj_list), nullptr);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = do_nothing,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = do_nothing,
};

const RtNodeMethods list_aggregate_methods = { &common, &shape };

} // namespace rv
