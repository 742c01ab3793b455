// ray_switch: the "ray_switch" shader node, a colour for each kind of ray.
#include "rv_rays.h"
#include "shaders/shaders.h"

namespace rv {

struct RaySwitch {
    RtRGBA camera;
    RtRGBA shadow;
    RtRGBA reflection;
    RtRGBA refraction;
    RtRGBA diffuse;
    RtRGBA glossy;
    const char* name;
};

enum RaySwitchParam { p_camera, p_shadow, p_reflection, p_refraction, p_diffuse, p_glossy, p_none };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<RaySwitch>(metadata);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, camera), 1, 1, 1, 1);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, shadow), 1, 1, 1, 1);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, reflection), 1, 1, 1, 1);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, refraction), 1, 1, 1, 1);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, diffuse), 1, 1, 1, 1);
    RvNodeParamRGBA(params, RV_FIELD(RaySwitch, glossy), 1, 1, 1, 1);
}

// Required: the whole type is compared, so that a combination of types is none of them.
static RaySwitchParam paramOf(uint16_t ray_type)
{
    switch (ray_type) {
    case RV_RAY_CAMERA: return p_camera;
    case RV_RAY_SHADOW: return p_shadow;
    case RV_RAY_REFLECTED: return p_reflection;
    case RV_RAY_REFRACTED: return p_refraction;
    case RV_RAY_DIFFUSE: return p_diffuse;
    case RV_RAY_GLOSSY: return p_glossy;
    default: return p_none;
    }
}

// Only the input that is asked for is evaluated.
static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const RaySwitchParam param = paramOf(sg->ray_type);
    sg->out.RGBA = param == p_none ? RV_RGBA_BLACK : ShaderInputs(node, sg).rgba(param);
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

const RtNodeMethods ray_switch_methods = { &common, &shader };

} // namespace rv
