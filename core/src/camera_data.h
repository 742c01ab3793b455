// The local data of camera nodes, for everything that asks what kind of camera it deals with.
#ifndef RV_CAMERA_DATA_H
#define RV_CAMERA_DATA_H

#include "nodes.h"

enum RtCameraKind : int32_t {
    RV_CAMERA_PERSPECTIVE = 0,
    RV_CAMERA_ORTHOGRAPHIC = 1,
    RV_CAMERA_CYLINDRICAL = 2,
    RV_CAMERA_FISHEYE = 3,
    RV_CAMERA_OTHER = 4 // of a plug-in
};

// Made by RvCameraInitialize, changed by RvCameraUpdate; fixed while workers run.
struct RtCameraData {
    RtNode* node;
    void* type_data; // of the camera type, or null
    RtCameraKind kind;
    bool planar_clip;   // near and far are planes across the camera axis
    uint8_t num_keys;   // of matrices
    bool owns_matrices; // else they are the values of the parameter "matrix"
    RtMatrix* matrices; // camera to world, one per motion key
};

namespace rv {

inline bool isCamera(const RtNode* node) { return node && node->entry->type == RV_NODE_CAMERA; }

// Null for anything but a camera between its Initialize and Finish.
inline RtCameraData* cameraData(const RtNode* node)
{
    return isCamera(node) ? static_cast<RtCameraData*>(node->local_data) : nullptr;
}

// Straight lines in the world are straight in the image.
inline bool hasLinearProjection(const RtNode* camera)
{
    const RtCameraData* const data = cameraData(camera);
    return data && (data->kind == RV_CAMERA_PERSPECTIVE || data->kind == RV_CAMERA_ORTHOGRAPHIC);
}

} // namespace rv

#endif
