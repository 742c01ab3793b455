// utility: the "utility" shader node, which shows what the renderer knows about a point.
#include "shaders/shaders.h"

namespace rv {

static const char* const color_mode_names[] = { "color",       "ng",      "n",          "bary",
                                                "uv",          "u",       "v",          "dpdu",
                                                "dpdv",        "p",       "prims",      "wire",
                                                "polywire",    "obj",     "edgelength", "floatgrid",
                                                "reflectline", "bad_uvs", nullptr };
static const char* const shade_mode_names[] = { "ndoteye", "lambert", "flat", "ambocc", nullptr };

struct Utility {
    int color_mode;
    int shade_mode;
    RtRGB color;
    float opacity;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Utility>(metadata);
    RvNodeParamENUM(params, RV_FIELD(Utility, color_mode), 0, color_mode_names);
    RvNodeParamENUM(params, RV_FIELD(Utility, shade_mode), 0, shade_mode_names);
    RvNodeParamRGB(params, RV_FIELD(Utility, color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Utility, opacity), 1);
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

const RtNodeMethods utility_methods = { &common, &shader };

} // namespace rv
