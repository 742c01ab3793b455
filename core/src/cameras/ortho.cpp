// ortho: the "ortho_camera" camera node, parallel rays.
#include "cameras/camera.h"

namespace rv {

struct OrthoCamera {
    CameraParams common;
    const char* name;
};

static void parameters(RtList*, RtMetaDataStore* metadata) { declareLayout<OrthoCamera>(metadata); }

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtCameraMethods camera = {
    .CreateRay = do_nothing,
};

const RtNodeMethods ortho_camera_methods = { &common, &camera };

} // namespace rv
