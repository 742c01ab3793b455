// What the camera node types share: the common parameters and the list of types.
#ifndef RV_CAMERA_H
#define RV_CAMERA_H

#include "declare.h"
#include "rv_cameras.h"

namespace rv {

// Declares the parameters common to all cameras, with offsets into CameraParams.
void cameraParameters(RtList* params, RtMetaDataStore* metadata);

extern const RtNodeMethods persp_camera_methods, ortho_camera_methods, fisheye_camera_methods,
    cyl_camera_methods;

} // namespace rv

#endif
