// flat: the "flat" shader node, a colour without light.
#include "shaders/shaders.h"

namespace rv {

struct Flat {
    RtRGB color;
    RtRGB opacity;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Flat>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Flat, color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Flat, opacity), 1, 1, 1);
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

const RtNodeMethods flat_methods = { &common, &shader };

} // namespace rv
