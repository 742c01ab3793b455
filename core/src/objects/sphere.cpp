// sphere: the "sphere" shape node.
#include "objects/objects.h"

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

const RtNodeMethods sphere_methods = { &common, &shape };

} // namespace rv
