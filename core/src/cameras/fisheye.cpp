// fisheye: the "fisheye_camera" camera node, the angle to the axis grows with the distance from
// the centre of the image.
#include "cameras/camera.h"

namespace rv {

struct FisheyeCamera {
    RtArray* fov; // FLOAT, degrees, across the image circle, one per motion key
    bool autocrop;
    RtArray* focal_distance; // FLOAT, one per motion key
    LensParams lens;
    CameraParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<FisheyeCamera>(metadata);
    // Required: 90 degrees, where a perspective camera opens to 60.
    RvNodeParamARRAY(params, RV_FIELD(FisheyeCamera, fov), RvArray(1, 1, RV_TYPE_FLOAT, 90.0));
    RvNodeParamBOOL(params, RV_FIELD(FisheyeCamera, autocrop), false);
    RvNodeParamARRAY(params, RV_FIELD(FisheyeCamera, focal_distance),
                     RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    lensParameters(params, metadata, offsetof(FisheyeCamera, lens));
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

const RtNodeMethods fisheye_camera_methods = { &common, &camera };

} // namespace rv
