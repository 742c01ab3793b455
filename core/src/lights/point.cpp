// point: the "point_light" light node, a point or a sphere.
#include "lights/lights.h"

namespace rv {

struct PointLight {
    RtArray* position; // POINT, one per motion key
    float radius;
    LightVolumeParams volume;
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PointLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(PointLight, position),
                     RvArray(1, 1, RV_TYPE_POINT, RV_P3_ZERO));
    RvNodeParamFLT(params, RV_FIELD(PointLight, radius), 0);
    lightVolumeParameters(params, metadata, offsetof(PointLight, volume));
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtLightMethods light = {
    .LightPrepare = do_nothing,
    .LightSample = do_nothing,
    .LightAmbient = do_nothing,
    .LightIntersect = do_nothing,
    .LightBounds = do_nothing,
};

const RtNodeMethods point_light_methods = { &common, &light };

} // namespace rv
