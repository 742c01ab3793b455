// motion_vector: the "motion_vector" shader node, screen-space motion as a colour.
#include "shaders/shaders.h"

namespace rv {

struct MotionVector {
    float time0;
    float time1;
    float max_displace; // pixels; 0 normalises
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<MotionVector>(metadata);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, time0), 0);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, time1), 1);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, max_displace), 0);
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

const RtNodeMethods motion_vector_methods = { &common, &shader };

} // namespace rv
