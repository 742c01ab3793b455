// cyl: the "cyl_camera" camera node, the image on a cylinder around the vertical axis.
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

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtCameraMethods camera = {
    .CreateRay = do_nothing,
};

const RtNodeMethods cyl_camera_methods = { &common, &camera };

} // namespace rv
