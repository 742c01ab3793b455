// cyl: the "cyl_camera" camera node, the image on a cylinder around the vertical axis.
#include "array.h"
#include "cameras/camera.h"

namespace rv {

struct CylCamera {
    RtArray* horizontal_fov; // FLOAT, degrees, one per motion key
    RtArray* vertical_fov;   // FLOAT, degrees, one per motion key
    bool projective;
    CameraParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<CylCamera>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(CylCamera, horizontal_fov),
                     RvArray(1, 1, RV_TYPE_FLOAT, 60.0));
    RvNodeParamARRAY(params, RV_FIELD(CylCamera, vertical_fov), RvArray(1, 1, RV_TYPE_FLOAT, 90.0));
    RvNodeParamBOOL(params, RV_FIELD(CylCamera, projective), true);
    declareSynonym(metadata, "horizontal_fov", "fov");
}

static void createRay(RtNode* node, const RtCameraRayInput* input, RtCameraRayOutput* output)
{
    const CylCamera& camera = *static_cast<const CylCamera*>(node->params);
    const float half_width =
        halfAngle(RvArrayInterpolateFlt(camera.horizontal_fov, input->relative_time, 0));
    const float half_height =
        halfAngle(RvArrayInterpolateFlt(camera.vertical_fov, input->relative_time, 0));
    const float phi = half_width * input->screen_x;
    if (camera.projective) {
        output->dir = unit({ sinf(phi), input->screen_y * tanf(half_height), -cosf(phi) });
        return;
    }
    const float theta = half_height * input->screen_y;
    output->dir = { sinf(phi) * cosf(theta), sinf(theta), -cosf(phi) * cosf(theta) };
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initializeKind<RV_CAMERA_CYLINDRICAL>,
    .Update = updateSphericalClip,
    .Finish = finishCamera,
};

static const RtCameraMethods camera = {
    .CreateRay = createRay,
};

const RtNodeMethods cyl_camera_methods = { &common, &camera };

} // namespace rv
