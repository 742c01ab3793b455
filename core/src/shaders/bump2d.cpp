// bump2d: the "bump2d" shader node, another shader under a normal bumped in u and v.
#include "shaders/shaders.h"

namespace rv {

struct Bump2d {
    float bump_map; // to be linked
    float bump_height;
    RtRGBA shader; // to be linked
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Bump2d>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Bump2d, bump_map), 0);
    // Required: no bump until the height is set, unlike bump3d.
    RvNodeParamFLT(params, RV_FIELD(Bump2d, bump_height), 0);
    RvNodeParamRGBA(params, RV_FIELD(Bump2d, shader), 0, 0, 0, 0);
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

const RtNodeMethods bump2d_methods = { &common, &shader };

} // namespace rv
