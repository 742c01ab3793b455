// image: the "image" shader node, a filtered lookup in an image file.
#include "rv_rays.h"
#include "rv_textures.h"
#include "shaders/kept_coordinates.h"
#include "shaders/local_record.h"
#include "shaders/shaders.h"
#include "texture_wrap.h"

static const char* const module_path = "core\\src\\shaders\\image";

namespace rv {

static const char* const filter_names[] = { "closest", "bilinear", "bicubic", "smart_bicubic",
                                            nullptr };

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

// ---- Preparation ----

struct ImageData {
    bool is_uv_linked = false;
};

static void initialize(RtNode* node, void*)
{
    createRecord<ImageData>(node, module_path, __LINE__);
}

static void update(RtNode* node, void*)
{
    if (ImageData* const data = record<ImageData>(node))
        data->is_uv_linked = RvNodeGetLink(node, "uvcoords") != nullptr;
}

// ---- Evaluation ----

enum ImageParam {
    p_filename,
    p_sflip,
    p_tflip,
    p_swap_st,
    p_sscale,
    p_tscale,
    p_filter,
    p_single_channel,
    p_mipmap_bias,
    p_swrap,
    p_twrap,
    p_uvcoords,
};

static RtTextureParams textureParams(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    RtTextureParams params;
    RvTextureParamsSetDefaults(&params);
    params.single_channel = in.flag(p_single_channel);
    params.flip_s = in.flag(p_sflip);
    params.flip_t = in.flag(p_tflip);
    params.swap_st = in.flag(p_swap_st);
    params.scale_s = in.flt(p_sscale);
    params.scale_t = in.flt(p_tscale);
    params.mipmap_bias = in.integer(p_mipmap_bias);
    params.wrap_s = in.choice(p_swrap);
    params.wrap_t = in.choice(p_twrap);
    // Required: diffuse rays do not read the parameter.
    params.filter = sg->ray_type & RV_RAY_DIFFUSE ? int(Image::bilinear) : in.choice(p_filter);
    return params;
}

static RtRGBA lookUp(RtNode* node, RtShaderGlobals* sg, const RtTextureParams& params)
{
    return RvTextureAccess(sg, ShaderInputs(node, sg).text(p_filename), &params);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const RtTextureParams params = textureParams(node, sg);
    if (!recordOrDefault<ImageData>(node).is_uv_linked) {
        sg->out.RGBA = lookUp(node, sg, params);
        return;
    }
    const RtPoint2 uv = RvShaderEvalParamFuncPnt2(sg, node, p_uvcoords);
    const KeptCoordinates kept(sg);
    sg->u = uv.x;
    sg->v = uv.y;
    sg->dudx = sg->dudy = sg->dvdx = sg->dvdy = 0; // a footprint that nobody knows
    sg->out.RGBA = lookUp(node, sg, params);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = freeRecord,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods image_methods = { &common, &shader };

} // namespace rv
