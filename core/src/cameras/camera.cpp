// camera: what all cameras have in common.
#include "cameras/camera.h"

namespace rv {

static const char* const shutter_type_names[] = { "box", "triangle", nullptr };
static const char* const handedness_names[] = { "right", "left", nullptr };

void cameraParameters(RtList* params, RtMetaDataStore*)
{
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, look_at),
                     RvArray(1, 1, RV_TYPE_POINT, RV_V3_NEGZ));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, up), RvArray(1, 1, RV_TYPE_VECTOR, RV_V3_Y));
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, matrix),
                     RvArray(1, 1, RV_TYPE_MATRIX, &RV_M4_IDENTITY));
    RvNodeParamFLT(params, RV_FIELD(CameraParams, near_clip), 0.0001f);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, far_clip), 1e30f);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, shutter_start), 0);
    RvNodeParamFLT(params, RV_FIELD(CameraParams, shutter_end), 0);
    RvNodeParamENUM(params, RV_FIELD(CameraParams, shutter_type), 0, shutter_type_names);
    RvNodeParamNODE(params, RV_FIELD(CameraParams, filtermap), nullptr);
    RvNodeParamENUM(params, RV_FIELD(CameraParams, handedness), 0, handedness_names);
    RvNodeParamARRAY(params, RV_FIELD(CameraParams, time_samples),
                     RvArray(2, 1, RV_TYPE_FLOAT, 0.0, 1.0));
    RvNodeParamPNT2(params, RV_FIELD(CameraParams, screen_window_min), -1, -1);
    RvNodeParamPNT2(params, RV_FIELD(CameraParams, screen_window_max), 1, 1);
}

void lensParameters(RtList* params, RtMetaDataStore* metadata, int offset)
{
    RvNodeParamARRAY(params, offset + RV_FIELD(LensParams, aperture_size),
                     RvArray(1, 1, RV_TYPE_FLOAT, 0.0));
    RvNodeParamINT(params, offset + RV_FIELD(LensParams, aperture_blades), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_rotation), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_blade_curvature), 0);
    RvNodeParamFLT(params, offset + RV_FIELD(LensParams, aperture_aspect_ratio), 1);
    declareSynonym(metadata, "aperture_blades", "aperture_nsides");
    declareSynonym(metadata, "aperture_blade_curvature", "aperture_relax");
    declareSynonym(metadata, "aperture_aspect_ratio", "aperture_ratio");
}

} // namespace rv
