// fisheye: the "fisheye_camera" camera node, the angle to the axis grows with the distance from
// the centre of the image.
#include "array.h"
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

// Turns a ray of the lens centre into one of a point on the lens that meets it at the focus.
static void applyLens(const FisheyeCamera& camera, float radius, const RtCameraRayInput& input,
                      RtCameraRayOutput* output)
{
    const float focus = RvArrayInterpolateFlt(camera.focal_distance, input.relative_time, 0);
    output->origin = lensPoint(camera.lens, radius, input);
    output->dir = unit(output->dir * focus - output->origin);
}

static void createRay(RtNode* node, const RtCameraRayInput* input, RtCameraRayOutput* output)
{
    const FisheyeCamera& camera = *static_cast<const FisheyeCamera*>(node->params);
    float x = input->screen_x, y = input->screen_y;
    if (camera.autocrop) { // the circle passes through the corners of the frame
        const float height = frameHeight(currentImage());
        const float scale = 1 / sqrtf(1 + height * height);
        x *= scale;
        y *= scale;
    }
    const float half_fov = halfAngle(RvArrayInterpolateFlt(camera.fov, input->relative_time, 0));
    const float theta = sqrtf(x * x + y * y) * half_fov; // from the camera axis
    if (theta > half_fov) {
        output->weight = 0;
        return;
    }
    const float phi = atan2f(x, y); // from the +y axis
    output->dir = { sinf(phi) * sinf(theta), sinf(theta) * cosf(phi), -cosf(theta) };
    const float radius = RvArrayInterpolateFlt(camera.lens.aperture_size, input->relative_time, 0);
    if (radius > 0)
        applyLens(camera, radius, *input, output);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initializeKind<RV_CAMERA_FISHEYE>,
    .Update = updateSphericalClip,
    .Finish = finishCamera,
};

static const RtCameraMethods camera = {
    .CreateRay = createRay,
};

const RtNodeMethods fisheye_camera_methods = { &common, &camera };

} // namespace rv
