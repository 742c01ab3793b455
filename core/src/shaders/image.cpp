// image: the "image" shader node, a filtered lookup in an image file.
#include "shaders/shaders.h"

namespace rv {

static const char* const filter_names[] = { "closest", "bilinear", "bicubic", "smart_bicubic",
                                            nullptr };
static const char* const wrap_names[] = { "periodic", "black", "clamp", "mirror", "file", nullptr };

struct Image {
    enum Filter { closest, bilinear, bicubic, smart_bicubic };
    const char* filename;
    bool sflip;
    bool tflip;
    bool swap_st; // before the flips
    float sscale;
    float tscale;
    int filter; // Filter
    bool single_channel;
    int mipmap_bias; // filter width times two to this power
    int swrap;
    int twrap;
    RtPoint2 uvcoords; // used when linked
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Image>(metadata);
    RvNodeParamSTR(params, RV_FIELD(Image, filename), "");
    RvNodeParamBOOL(params, RV_FIELD(Image, sflip), false);
    RvNodeParamBOOL(params, RV_FIELD(Image, tflip), false);
    RvNodeParamBOOL(params, RV_FIELD(Image, swap_st), false);
    RvNodeParamFLT(params, RV_FIELD(Image, sscale), 1);
    RvNodeParamFLT(params, RV_FIELD(Image, tscale), 1);
    RvNodeParamENUM(params, RV_FIELD(Image, filter), Image::smart_bicubic, filter_names);
    RvNodeParamBOOL(params, RV_FIELD(Image, single_channel), false);
    RvNodeParamINT(params, RV_FIELD(Image, mipmap_bias), 0);
    RvNodeParamENUM(params, RV_FIELD(Image, swrap), 0, wrap_names);
    RvNodeParamENUM(params, RV_FIELD(Image, twrap), 0, wrap_names);
    RvNodeParamPNT2(params, RV_FIELD(Image, uvcoords), 0, 0);
    declareSynonym(metadata, "filename", "image_map");
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

const RtNodeMethods image_methods = { &common, &shader };

} // namespace rv
