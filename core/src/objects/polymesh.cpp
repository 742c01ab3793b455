// polymesh: the "polymesh" shape node, a mesh of polygons with any number of sides.
#include "objects/objects.h"

#include <initializer_list>

namespace rv {

static const char* const subdiv_type_names[] = { "none", "catclark", "linear", nullptr };
static const char* const adaptive_metric_names[] = { "auto", "edge_length", "flatness", nullptr };
static const char* const uv_smoothing_names[] = { "pin_corners", "pin_borders", "linear", "smooth",
                                                  nullptr };

struct PolyMesh {
    RtArray* nsides;      // UINT, corners of each polygon
    RtArray* vidxs;       // UINT, vertex of each corner, polygon after polygon
    RtArray* nidxs;       // UINT, normal of each corner
    RtArray* uvidxs;      // UINT, texture coordinate of each corner
    RtArray* crease_idxs; // UINT, pairs of vertices: crease edges
    RtArray* shidxs;      // BYTE, index into "shader" of each polygon
    RtArray* vlist;       // POINT, positions, one key per deformation key
    RtArray* nlist;       // VECTOR, normals, as many keys as vlist
    RtArray* uvlist;      // POINT2, texture coordinates
    bool smoothing;
    int subdiv_type;
    int subdiv_iterations;
    float subdiv_pixel_error;
    RtNode* subdiv_dicing_camera;
    int subdiv_adaptive_metric;
    int subdiv_uv_smoothing;
    RtNode* disp_map;      // displacement shader
    float disp_height;     // also pads the bounds
    float disp_zero_value; // value that displaces nothing
    bool double_precision_intersector;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PolyMesh>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nsides), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, vidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, uvidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, crease_idxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, shidxs), RvArray(0, 1, RV_TYPE_BYTE));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, vlist), RvArray(0, 1, RV_TYPE_POINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nlist), RvArray(0, 1, RV_TYPE_VECTOR));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, uvlist), RvArray(0, 1, RV_TYPE_POINT2));
    RvNodeParamBOOL(params, RV_FIELD(PolyMesh, smoothing), false);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_type), 0, subdiv_type_names);
    RvNodeParamINT(params, RV_FIELD(PolyMesh, subdiv_iterations), 1);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, subdiv_pixel_error), 0);
    RvNodeParamNODE(params, RV_FIELD(PolyMesh, subdiv_dicing_camera), nullptr);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_adaptive_metric), 0, adaptive_metric_names);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_uv_smoothing), 0, uv_smoothing_names);
    RvNodeParamNODE(params, RV_FIELD(PolyMesh, disp_map), nullptr);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, disp_height), 1);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, disp_zero_value), 0);
    RvNodeParamBOOL(params, RV_FIELD(PolyMesh, double_precision_intersector), false);
    for (const char* array : { "nsides", "vidxs", "nidxs", "uvidxs", "crease_idxs", "shidxs",
                               "vlist", "nlist", "uvlist" })
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

const RtNodeMethods polymesh_methods = { &common, &shape };

} // namespace rv
