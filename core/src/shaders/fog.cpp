// fog: the "fog" shader node, an exponential fog above a ground plane.
#include "shaders/shaders.h"

namespace rv {

struct Fog {
    float distance; // mean free path; 0 switches the fog off
    float height;   // of the fall-off; 0 or less is uniform
    RtRGB color;
    RtPoint ground_point;
    RtVector ground_normal;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Fog>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Fog, distance), 0.02f);
    RvNodeParamFLT(params, RV_FIELD(Fog, height), 5);
    RvNodeParamRGB(params, RV_FIELD(Fog, color), 1, 1, 1);
    RvNodeParamPNT(params, RV_FIELD(Fog, ground_point), 0, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Fog, ground_normal), 0, 0, 1);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = do_nothing,
};

const RtNodeMethods fog_methods = { &common, &shader };

} // namespace rv
