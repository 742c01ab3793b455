// hair: the "hair" shader node, a simple strand.
#include "shaders/shaders.h"

namespace rv {

struct Hair {
    RtRGB rootcolor;
    RtRGB tipcolor;
    RtRGB opacity;
    float ambdiff;
    float gloss;
    RtRGB spec_color;
    float spec;
    float kd_ind;
    const char* uparam; // user data that replaces u
    const char* vparam; // user data that replaces v
    bool diffuse_cache;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Hair>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Hair, rootcolor), 0.1f, 0.1f, 0.1f);
    RvNodeParamRGB(params, RV_FIELD(Hair, tipcolor), 0.5f, 0.5f, 0.5f);
    RvNodeParamRGB(params, RV_FIELD(Hair, opacity), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, ambdiff), 0.6f);
    RvNodeParamFLT(params, RV_FIELD(Hair, gloss), 10);
    RvNodeParamRGB(params, RV_FIELD(Hair, spec_color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, spec), 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, kd_ind), 0);
    RvNodeParamSTR(params, RV_FIELD(Hair, uparam), "");
    RvNodeParamSTR(params, RV_FIELD(Hair, vparam), "");
    RvNodeParamBOOL(params, RV_FIELD(Hair, diffuse_cache), false);
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

const RtNodeMethods hair_methods = { &common, &shader };

} // namespace rv
