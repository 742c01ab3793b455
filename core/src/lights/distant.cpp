// distant: the "distant_light" light node, a direction or a cone of directions.
#include "lights/lights.h"

namespace rv {

struct DistantLight {
    RtVector direction; // in which the light travels
    float angle;        // degrees, the diameter of the source
    LightParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DistantLight>(metadata);
    RvNodeParamVEC(params, RV_FIELD(DistantLight, direction), 0, 0, -1);
    RvNodeParamFLT(params, RV_FIELD(DistantLight, angle), 0);
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

const RtNodeMethods distant_light_methods = { &common, &light };

} // namespace rv
