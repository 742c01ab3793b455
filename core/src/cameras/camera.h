// What the camera node types share: the common parameters and the list of types.
#ifndef RV_CAMERA_H
#define RV_CAMERA_H

#include "declare.h"
#include "rv_cameras.h"

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

// Declares them, with offsets into CameraParams.
void cameraParameters(RtList* params, RtMetaDataStore* metadata);

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

extern const RtNodeMethods persp_camera_methods, ortho_camera_methods, fisheye_camera_methods,
    cyl_camera_methods;

} // namespace rv

#endif
