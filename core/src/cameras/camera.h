// What the camera node types share: the common parameters, the matrices, the way from a pixel
// sample to a ray in the world (rv_cameras.h), and the list of types.
//
// Camera space: the camera is at the origin and looks down -z, y is up, x to the right. Screen
// space: the default window is [-1, 1] in x, y grows upward.
#ifndef RV_CAMERA_H
#define RV_CAMERA_H

#include "camera_data.h"
#include "declare.h"
#include "image_geometry.h"
#include "rv_cameras.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"

namespace rv {

// The parameters common to all cameras, in order of declaration.
struct CameraParams {
    RtArray* position; // POINT, one per motion key
    RtArray* look_at;  // POINT
    RtArray* up;       // VECTOR
    RtArray* matrix;   // MATRIX, camera to world; once set it wins over the three above
    float near_clip;
    float far_clip;
    float shutter_start;
    float shutter_end;
    int shutter_type;
    RtNode* filtermap;
    int handedness;
    RtArray* time_samples; // FLOAT
    RtPoint2 screen_window_min;
    RtPoint2 screen_window_max;
};

// Their places in the order of declaration.
enum CameraParamIndex : unsigned {
    position_param,
    look_at_param,
    up_param,
    matrix_param,
    near_clip_param,
    far_clip_param,
    shutter_start_param,
    shutter_end_param,
    shutter_type_param,
    filtermap_param,
    handedness_param,
    time_samples_param,
    screen_window_min_param,
    screen_window_max_param,
    camera_param_count
};

enum ShutterType { box_shutter, triangle_shutter };
enum Handedness { right_handed, left_handed };

// Declares them, with offsets into CameraParams.
void cameraParameters(RtList* params, RtMetaDataStore* metadata);

// Their values, wherever the type of the camera keeps them.
CameraParams cameraParams(const RtNode* camera);

inline const RtParamEntry& cameraParam(const RtNode* camera, CameraParamIndex index)
{
    return camera->entry->params[camera->entry->own_param_count + index];
}

// The Update and Finish methods of cameras whose clip distances are measured along the ray, and
// which keep no data of their own.
void updateSphericalClip(RtNode* node, void*);
void finishCamera(RtNode* node);

// Initialize of a built-in type: false when the camera did not take the data, because the heap is
// exhausted or it is initialised already.
bool initializeCamera(RtNode* node, RtCameraKind kind, void* type_data);

template <RtCameraKind kind> void initializeKind(RtNode* node, void*)
{
    initializeCamera(node, kind, nullptr);
}

// ---- Matrices ----

// The camera-to-world matrix at a position among the motion keys; one between two keys is put in
// `storage`.
const RtMatrix* cameraToWorld(const RtCameraData& data, const CameraParams& params,
                              float relative_time, RtMatrix* storage);

// The whole horizontal angle of a "persp_camera" in degrees.
float perspectiveFov(const RtNode* camera, float relative_time);

// Half of an angle in degrees, in radians.
inline float halfAngle(float degrees) { return degrees * 0.008726646f; }

// Screen motion, in pixels with y upward, of a point of the world that is at p0 at time0 and at p1
// at time1, seen by the rendering camera.
RtPoint2 pixelMotion(const RtPoint& p0, float time0, const RtPoint& p1, float time1);

// ---- Lens ----

// The lens of the cameras that have a depth of field.
struct LensParams {
    RtArray* aperture_size; // FLOAT, radius of the lens, one per motion key
    int aperture_blades;
    float aperture_rotation; // degrees
    float aperture_blade_curvature;
    float aperture_aspect_ratio;
};

// Declares them, with offsets into LensParams added to `offset`.
void lensParameters(RtList* params, RtMetaDataStore* metadata, int offset);

// The point of the unit disk for a point of the unit square.
RtPoint2 diskPoint(float u, float v);

// Moves a point of the unit disk into a regular polygon. rotation is in degrees; curvature 0 gives
// straight blades, 1 the disk.
RtPoint2 polygonPoint(const RtPoint2& disk, int blades, float rotation, float curvature);

// Where a ray starts on a lens of that radius.
RtPoint lensPoint(const LensParams& lens, float radius, const RtCameraRayInput& input);

// ---- Rays ----

// A camera sample as its worker asks for it.
struct SampleRequest {
    int x, y;         // pixel
    int sample_index; // within the pixel
    int sample_count; // of the pixel
    int thread;       // render thread, which has begun the pixel
    void* aov_sink;   // record for the outputs of the sample
};

} // namespace rv

// A camera sample on its way to the camera.
struct RtPixelSample {
    int32_t x, y;
    float raw_x, raw_y; // in [-1, 1] over the frame, y upward
    int32_t sample_index;
    int32_t sample_count;
    float offset_u, offset_v; // within the pixel
    float time_sample;        // in [0, 1)
    RtCameraRayInput input;
};

// The shutter time of a sample time in [0, 1).
float RvCameraShutterTime(const rv::CameraParams& camera, float u);

// The ray of one camera sample in the world. A camera that cannot make one gives a ray of weight
// 0, which must not be traced. Allocates nothing; runs on all render threads at once.
void RvCameraMakeRay(RtNode* camera, const rv::SampleRequest& request, RtRay* ray);

namespace rv {

// Fills the positions on the screen and the size of a pixel there, from pixel and offset.
void placeOnScreen(const CameraParams& camera, RtPixelSample* sample);

// The ray of a sample whose offset, time and lens point are known.
void rayOfSample(RtNode* camera, RtPixelSample sample, int thread, void* aov_sink, RtRay* ray);

// The result, on a shading context, of the shader that a parameter of a camera is linked to, or,
// for a NODE parameter, of the shader that it names. `neutral` when that has no colour or float to
// give.
RtRGBA cameraShaderResult(const RtNode* camera, const RtParamEntry& param, RtShaderGlobals* sg,
                          const RtRGBA& neutral);

extern const RtNodeMethods persp_camera_methods, ortho_camera_methods, fisheye_camera_methods,
    cyl_camera_methods;

} // namespace rv

#endif
