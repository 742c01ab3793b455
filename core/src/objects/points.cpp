// points: the "points" shape node, particles drawn as discs, spheres or quads.
#include "objects/objects.h"

#include <initializer_list>

namespace rv {

static const char* const mode_names[] = { "disk", "sphere", "quad", nullptr };

struct Points {
    RtArray* points;   // POINT
    RtArray* radius;   // FLOAT, for all or per point
    RtArray* aspect;   // FLOAT, width over height of a quad
    RtArray* rotation; // FLOAT, degrees, of a quad
    int mode;
    float min_pixel_width; // pixels; 0 leaves the widths alone
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Points>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamARRAY(params, RV_FIELD(Points, points), RvArray(0, 1, RV_TYPE_POINT));
    RvNodeParamARRAY(params, RV_FIELD(Points, radius), RvArray(0, 1, RV_TYPE_FLOAT));
    RvNodeParamARRAY(params, RV_FIELD(Points, aspect), RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    RvNodeParamARRAY(params, RV_FIELD(Points, rotation), RvArray(1, 1, RV_TYPE_FLOAT, 0.0));
    RvNodeParamENUM(params, RV_FIELD(Points, mode), 0, mode_names);
    RvNodeParamFLT(params, RV_FIELD(Points, min_pixel_width), 0);
    for (const char* array : { "points", "radius", "aspect", "rotation" })
        declareFlag(metadata, array, "_skip_copy_on_instance");
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
    .ShapeTextureCoordinates = do_nothing,
    .ShapePrepareUserData = do_nothing,
    .ShapePrepareIntersection = do_nothing,
};

const RtNodeMethods points_methods = { &common, &shape };

} // namespace rv
