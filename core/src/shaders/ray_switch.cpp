// ray_switch: the "ray_switch" shader node, a colour for each kind of ray.
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

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = do_nothing,
};

const RtNodeMethods ray_switch_methods = { &common, &shader };

} // namespace rv
