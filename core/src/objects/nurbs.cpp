// nurbs: the "nurbs" shape node, a B-spline surface that becomes a polymesh when it is first hit.
#include "objects/objects.h"

namespace rv {

struct Nurbs {
    int degree_u;
    int degree_v;
    RtArray* knots_u; // FLOAT, non-decreasing
    RtArray* knots_v; // FLOAT, non-decreasing
    RtArray* cvs;     // FLOAT, 3 or 4 per control point, u fastest
    int tesselate_u;  // grid samples per span
    int tesselate_v;
    RtNode* disp_map; // displacement shader of the mesh
    float disp_height;
    float disp_zero_value;
    bool smoothing;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Nurbs>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamINT(params, RV_FIELD(Nurbs, degree_u), 3);
    RvNodeParamINT(params, RV_FIELD(Nurbs, degree_v), 3);
    RvNodeParamARRAY(params, RV_FIELD(Nurbs, knots_u), RvArray(0, 1, RV_TYPE_FLOAT));
    RvNodeParamARRAY(params, RV_FIELD(Nurbs, knots_v), RvArray(0, 1, RV_TYPE_FLOAT));
    RvNodeParamARRAY(params, RV_FIELD(Nurbs, cvs), RvArray(0, 1, RV_TYPE_FLOAT));
    RvNodeParamINT(params, RV_FIELD(Nurbs, tesselate_u), 5);
    RvNodeParamINT(params, RV_FIELD(Nurbs, tesselate_v), 5);
    RvNodeParamNODE(params, RV_FIELD(Nurbs, disp_map), nullptr);
    // Required: 0, unlike polymesh.
    RvNodeParamFLT(params, RV_FIELD(Nurbs, disp_height), 0);
    RvNodeParamFLT(params, RV_FIELD(Nurbs, disp_zero_value), 0);
    RvNodeParamBOOL(params, RV_FIELD(Nurbs, smoothing), false);
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

const RtNodeMethods nurbs_methods = { &common, &shape };

} // namespace rv
