// ortho: the "ortho_camera" camera node, parallel rays.
#include "cameras/camera.h"

namespace rv {

struct OrthoCamera {
    CameraParams common;
    const char* name;
};

static void parameters(RtList*, RtMetaDataStore* metadata) { declareLayout<OrthoCamera>(metadata); }

static void update(RtNode* node, void*) { RvCameraUpdate(node, true); }

static void createRay(RtNode*, const RtCameraRayInput* input, RtCameraRayOutput* output)
{
    output->origin = { input->screen_x, input->screen_y, 0 };
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initializeKind<RV_CAMERA_ORTHOGRAPHIC>,
    .Update = update,
    .Finish = finishCamera,
};

static const RtCameraMethods camera = {
    .CreateRay = createRay,
};

const RtNodeMethods ortho_camera_methods = { &common, &camera };

} // namespace rv
