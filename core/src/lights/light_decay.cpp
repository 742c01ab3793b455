// light_decay: the "light_decay" light filter, falloff with distance.
#include "lights/lights.h"

namespace rv {

static const char* const decay_type_names[] = { "constant", "linear", "quadratic", "cubic",
                                                nullptr };

struct LightDecay {
    bool use_near_atten;
    bool use_far_atten;
    float near_start;
    float near_end;
    float far_start;
    float far_end;
    int decay_type; // index of decay_type_names and exponent of the falloff
    float decay_radius;
    bool decay_clamp;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<LightDecay>(metadata);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, use_near_atten), false);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, use_far_atten), false);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, near_start), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, near_end), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, far_start), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, far_end), 0);
    RvNodeParamENUM(params, RV_FIELD(LightDecay, decay_type), 0, decay_type_names);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, decay_radius), 1);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, decay_clamp), false);
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

const RtNodeMethods light_decay_methods = { &common, &shader };

} // namespace rv
