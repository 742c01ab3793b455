// motion_vector: the "motion_vector" shader node, screen-space motion as a colour.
#include "shaders/shaders.h"

#include <algorithm>
#include <math.h>

namespace rv {

struct MotionVector {
    float time0;
    float time1;
    float max_displace; // pixels; 0 normalises
    const char* name;
};

enum MotionVectorParam { p_time0, p_time1, p_max_displace };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<MotionVector>(metadata);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, time0), 0);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, time1), 1);
    RvNodeParamFLT(params, RV_FIELD(MotionVector, max_displace), 0);
}

// Half of red and green is no motion; they reach 0 and 1 at the longest motion.
static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    const RtPoint2 motion =
        RvShaderGlobalsGetPixelMotionVector(sg, in.flt(p_time0), in.flt(p_time1));
    const float length = sqrtf(motion.x * motion.x + motion.y * motion.y);
    // Motions whose squares have no place in a float are too short to be seen, or endless.
    if (!(length > 0 && isfinite(length))) {
        sg->out.RGB = { 0.5f, 0.5f, 0 };
        return;
    }
    const float scale = 1 / std::max(length, in.flt(p_max_displace));
    sg->out.RGB = { (motion.x * scale + 1) * 0.5f, (motion.y * scale + 1) * 0.5f, 0 };
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

const RtNodeMethods motion_vector_methods = { &common, &shader };

} // namespace rv
