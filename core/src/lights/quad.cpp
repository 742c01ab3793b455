// quad: the "quad_light" light node, a planar four-sided emitter.
#include "lights/lights.h"

namespace rv {

struct QuadLight {
    RtArray* vertices; // POINT, four corners in order around the quad, per motion key
    LightVolumeParams volume;
    bool umbrate;
    int resolution; // side of the importance table; 0 and below for none
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<QuadLight>(metadata);
    RvNodeParamARRAY(params, RV_FIELD(QuadLight, vertices),
                     RvArray(4, 1, RV_TYPE_POINT, RtPoint{ -1, -1, 0 }, RtPoint{ -1, 1, 0 },
                             RtPoint{ 1, 1, 0 }, RtPoint{ 1, -1, 0 }));
    lightVolumeParameters(params, metadata, offsetof(QuadLight, volume));
    RvNodeParamBOOL(params, RV_FIELD(QuadLight, umbrate), false);
    RvNodeParamINT(params, RV_FIELD(QuadLight, resolution), 512);
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

const RtNodeMethods quad_light_methods = { &common, &light };

} // namespace rv
