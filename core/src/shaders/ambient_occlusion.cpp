// ambient_occlusion: the "ambient_occlusion" shader node, two colours blended by occlusion.
#include "shaders/ambient_occlusion.h"

#include "color.h"
#include "maths.h"
#include "rv_gi.h"
#include "rv_rays.h"
#include "shaders/node_sampler.h"
#include "shaders/shaders.h"

namespace rv {

struct AmbientOcclusion {
    int samples;
    float spread; // of the cone, 1 is the hemisphere
    float near_clip;
    float far_clip;
    float falloff;
    RtRGB black;
    RtRGB white;
    bool invert_normals;
    RtRGB opacity;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<AmbientOcclusion>(metadata);
    RvNodeParamINT(params, RV_FIELD(AmbientOcclusion, samples), 3);
    RvNodeParamFLT(params, RV_FIELD(AmbientOcclusion, spread), 1);
    RvNodeParamFLT(params, RV_FIELD(AmbientOcclusion, near_clip), 0);
    RvNodeParamFLT(params, RV_FIELD(AmbientOcclusion, far_clip), 100);
    RvNodeParamFLT(params, RV_FIELD(AmbientOcclusion, falloff), 0);
    RvNodeParamRGB(params, RV_FIELD(AmbientOcclusion, black), 0, 0, 0);
    RvNodeParamRGB(params, RV_FIELD(AmbientOcclusion, white), 1, 1, 1);
    RvNodeParamBOOL(params, RV_FIELD(AmbientOcclusion, invert_normals), false);
    RvNodeParamRGB(params, RV_FIELD(AmbientOcclusion, opacity), 1, 1, 1);
}

// Places in the order of declaration.
enum AmbientOcclusionParam {
    p_samples,
    p_spread,
    p_near_clip,
    p_far_clip,
    p_falloff,
    p_black,
    p_white,
    p_invert_normals,
    p_opacity
};

static void update(RtNode* node, void* params)
{
    updateNodeSampler(node, static_cast<const AmbientOcclusion*>(params)->samples);
}

float occlusionConeAngle(float spread)
{
    return std::clamp(spread, 0.0f, 1.0f) * 90 * 0.017453292f;
}

static RtRGB occlusion(const RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    const float side = in.flag(p_invert_normals) ? -1.0f : 1.0f;
    const RtVector N = sg->facing_normal * side, Ng = sg->facing_geometric_normal * side;
    return RvOcclusion(&N, &Ng, sg, in.flt(p_near_clip), in.flt(p_far_clip),
                       occlusionConeAngle(in.flt(p_spread)), in.flt(p_falloff), nodeSampler(node),
                       nullptr);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    if (!applyOpacity(sg, in.rgb(p_opacity)))
        return;
    sg->out.RGB = RV_RGB_BLACK;
    if (sg->ray_type & RV_RAY_DIFFUSE) // too costly for what it would show
        return;
    const RtRGB blocked = occlusion(node, sg);
    sg->out.RGB = in.rgb(p_black) * blocked + in.rgb(p_white) * (RV_RGB_WHITE - blocked);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = update,
    .Finish = destroyNodeSampler,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods ambient_occlusion_methods = { &common, &shader };

} // namespace rv
