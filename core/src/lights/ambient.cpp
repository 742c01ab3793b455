// ambient: the "ambient_light" light node, a constant or direction-weighted ambient term.
#include "lights/lights.h"

namespace rv {

struct AmbientLight {
    bool use_direction;
    RtVector direction; // in which the light travels
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<AmbientLight>(metadata);
    RvNodeParamBOOL(params, RV_FIELD(AmbientLight, use_direction), false);
    RvNodeParamVEC(params, RV_FIELD(AmbientLight, direction), 0, 0, -1);
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

const RtNodeMethods ambient_light_methods = { &common, &light };

} // namespace rv
