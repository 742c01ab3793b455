// lambert: the "lambert" shader node, an ideal diffuse surface.
#include "color.h"
#include "rv_aovs.h"
#include "rv_gi.h"
#include "shaders/shaders.h"

namespace rv {

struct Lambert {
    float Kd;
    RtRGB Kd_color;
    RtRGB opacity;
    const char* name;
};

enum LambertParam { p_Kd, p_Kd_color, p_opacity };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Lambert>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Lambert, Kd), 0.7f);
    RvNodeParamRGB(params, RV_FIELD(Lambert, Kd_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Lambert, opacity), 1, 1, 1);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    if (!setOpacity(sg, in.rgb(p_opacity)))
        return;
    sg->out.RGB = RV_RGB_BLACK;
    const RtRGB albedo = in.rgb(p_Kd_color) * in.flt(p_Kd);
    if (isNegligible(albedo))
        return;
    const RtRGB direct = RvDirectDiffuse(&sg->facing_normal, sg);
    const RtRGB indirect = RvIndirectDiffuse(&sg->facing_normal, sg);
    sg->out.RGB = albedo * (direct + indirect);
    RvAOVSetRGB(sg, "diffuse", sg->out.RGB);
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

const RtNodeMethods lambert_methods = { &common, &shader };

} // namespace rv
