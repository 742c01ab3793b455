// flat: the "flat" shader node, a colour without light.
#include "shaders/shaders.h"

namespace rv {

struct Flat {
    RtRGB color;
    RtRGB opacity;
    const char* name;
};

enum FlatParam { p_color, p_opacity };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Flat>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Flat, color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Flat, opacity), 1, 1, 1);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    if (setOpacity(sg, in.rgb(p_opacity)))
        sg->out.RGB = in.rgb(p_color);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods flat_methods = { &common, &shader };

} // namespace rv
