// ambient_occlusion: the "ambient_occlusion" shader node, two colours blended by occlusion.
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

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = do_nothing,
};

const RtNodeMethods ambient_occlusion_methods = { &common, &shader };

} // namespace rv
