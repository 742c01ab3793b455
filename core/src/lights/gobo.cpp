// gobo: the "gobo" light filter, a slide in front of a spot light.
#include "lights/lights.h"

namespace rv {

static const char* const filter_mode_names[] = { "blend", "replace", "add", "sub", "mix", nullptr };
static const char* const wrap_names[] = { "periodic", "black", "clamp", "mirror", "file", nullptr };

struct Gobo {
    RtRGB slidemap;
    RtArray* rotate; // FLOAT, degrees
    RtPoint2 offset;
    float density;
    int filter_mode; // index of filter_mode_names
    float scale_s;
    float scale_t;
    int wrap_s; // index of wrap_names
    int wrap_t;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Gobo>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Gobo, slidemap), 1, 1, 1);
    RvNodeParamARRAY(params, RV_FIELD(Gobo, rotate), RvArray(1, 1, RV_TYPE_FLOAT, 0.0));
    RvNodeParamPNT2(params, RV_FIELD(Gobo, offset), 0, 0);
    RvNodeParamFLT(params, RV_FIELD(Gobo, density), 0);
    RvNodeParamENUM(params, RV_FIELD(Gobo, filter_mode), 0, filter_mode_names);
    RvNodeParamFLT(params, RV_FIELD(Gobo, scale_s), 1);
    RvNodeParamFLT(params, RV_FIELD(Gobo, scale_t), 1);
    const int clamp = RvEnumGetValue(wrap_names, "clamp");
    RvNodeParamENUM(params, RV_FIELD(Gobo, wrap_s), clamp, wrap_names);
    RvNodeParamENUM(params, RV_FIELD(Gobo, wrap_t), clamp, wrap_names);
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

const RtNodeMethods gobo_methods = { &common, &shader };

} // namespace rv
