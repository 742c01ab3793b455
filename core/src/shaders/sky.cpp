// sky: the "sky" shader node, the usual background.
#include "shaders/shaders.h"

#include "rv_rays.h"

namespace rv {

static const char* const format_names[] = { "mirrored_ball", "angular", "latlong", "cubic",
                                            nullptr };

struct Sky {
    enum Format { mirrored_ball, angular, latlong, cubic };
    RtRGB color;
    float intensity;
    int visibility; // RV_RAY_* bits
    bool opaque_alpha;
    int format;    // Format
    float X_angle; // degrees
    float Y_angle;
    float Z_angle;
    RtVector X; // axes of the frame that the angles turn
    RtVector Y;
    RtVector Z;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Sky>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Sky, color), 1, 1, 1);
    // Required: a sky is black until its intensity is set.
    RvNodeParamFLT(params, RV_FIELD(Sky, intensity), 0);
    RvNodeParamINT(params, RV_FIELD(Sky, visibility), RV_RAY_ALL);
    RvNodeParamBOOL(params, RV_FIELD(Sky, opaque_alpha), true);
    RvNodeParamENUM(params, RV_FIELD(Sky, format), Sky::angular, format_names);
    RvNodeParamFLT(params, RV_FIELD(Sky, X_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(Sky, Y_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(Sky, Z_angle), 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, X), 1, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, Y), 0, 1, 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, Z), 0, 0, 1);
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

const RtNodeMethods sky_methods = { &common, &shader };

} // namespace rv
