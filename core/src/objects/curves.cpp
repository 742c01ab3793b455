// curves: the "curves" shape node, many cubic curves with a radius.
#include "objects/objects.h"
#include "rv_gi.h"

#include <initializer_list>

namespace rv {

static const char* const basis_names[] = { "bezier",  "b-spline", "catmull-rom",
                                           "hermite", "power",    nullptr };
static const char* const mode_names[] = { "ribbon", "thick", nullptr };

struct Curves {
    RtArray* num_points; // UINT, control points of each curve; one value holds for all
    RtArray* points;     // POINT, curve after curve
    RtArray* radius;     // FLOAT, for all, per curve or per segment end
    int max_subdivs;
    int basis;
    int mode;
    float min_pixel_width; // pixels; 0 leaves the widths alone
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Curves>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamARRAY(params, RV_FIELD(Curves, num_points), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(Curves, points), RvArray(0, 1, RV_TYPE_POINT));
    RvNodeParamARRAY(params, RV_FIELD(Curves, radius), RvArray(0, 1, RV_TYPE_FLOAT));
    RvNodeParamINT(params, RV_FIELD(Curves, max_subdivs), 6);
    RvNodeParamENUM(params, RV_FIELD(Curves, basis), 0, basis_names);
    RvNodeParamENUM(params, RV_FIELD(Curves, mode), 0, mode_names);
    RvNodeParamFLT(params, RV_FIELD(Curves, min_pixel_width), 0);
    for (const char* array : { "num_points", "points", "radius" })
        declareFlag(metadata, array, "_skip_copy_on_instance");
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

const RtNodeMethods curves_methods = { &common, &shape };

} // namespace rv

void RvHairDirectDiffuseCache(RtRGB* result, const RtShaderGlobals*)
{
    // No context lies on curves: they have no geometry that a ray could reach.
    if (result)
        *result = RV_RGB_BLACK;
}
