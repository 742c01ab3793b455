// bump3d: the "bump3d" shader node, another shader under a normal bumped along the world axes.
#include "shaders/shaders.h"

namespace rv {

struct Bump3d {
    float bump_map; // to be linked
    float bump_height;
    float epsilon; // distance of the differences
    RtRGBA shader; // to be linked
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Bump3d>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Bump3d, bump_map), 0);
    // Required: 1, unlike bump2d.
    RvNodeParamFLT(params, RV_FIELD(Bump3d, bump_height), 1);
    RvNodeParamFLT(params, RV_FIELD(Bump3d, epsilon), 1e-5f);
    RvNodeParamRGBA(params, RV_FIELD(Bump3d, shader), 0, 0, 0, 0);
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

const RtNodeMethods bump3d_methods = { &common, &shader };

} // namespace rv
