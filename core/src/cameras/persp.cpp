// persp: the "persp_camera" camera node, a lens in front of a plane.
#include "cameras/camera.h"

namespace rv {

struct PerspCamera {
    RtArray* fov; // FLOAT, degrees, the whole horizontal angle, one per motion key
    bool plane_distance;
    RtArray* focus_distance; // FLOAT, one per motion key
    LensParams lens;
    RtRGBA uv_remap;
    CameraParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PerspCamera>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(PerspCamera, fov), RvArray(1, 1, RV_TYPE_FLOAT, 60.0));
    RvNodeParamBOOL(params, RV_FIELD(PerspCamera, plane_distance), true);
    RvNodeParamARRAY(params, RV_FIELD(PerspCamera, focus_distance),
                     RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    declareSynonym(metadata, "focus_distance", "focal_distance");
    lensParameters(params, metadata, offsetof(PerspCamera, lens));
    RvNodeParamRGBA(params, RV_FIELD(PerspCamera, uv_remap), 0, 0, 0, 0);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtCameraMethods camera = {
    .CreateRay = do_nothing,
};

const RtNodeMethods persp_camera_methods = { &common, &camera };

} // namespace rv
