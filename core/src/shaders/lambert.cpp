// lambert: the "lambert" shader node, an ideal diffuse surface.
#include "shaders/shaders.h"

namespace rv {

struct Lambert {
    float Kd;
    RtRGB Kd_color;
    RtRGB opacity;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Lambert>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Lambert, Kd), 0.7f);
    RvNodeParamRGB(params, RV_FIELD(Lambert, Kd_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Lambert, opacity), 1, 1, 1);
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

const RtNodeMethods lambert_methods = { &common, &shader };

} // namespace rv
