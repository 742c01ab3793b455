// utility: the "utility" shader node, which shows what the renderer knows about a point.
#include "shaders/utility.h"

#include "color.h"
#include "maths.h"
#include "objects/gobject.h"
#include "options.h"
#include "rv_gi.h"
#include "rv_rays.h"
#include "shaders/node_sampler.h"

#include <math.h>

namespace rv {

static const char* const shade_mode_names[] = { "ndoteye", "lambert", "flat", "ambocc", nullptr };

enum ShadeMode { shade_ndoteye, shade_lambert, shade_flat, shade_ambocc };

struct Utility {
    int color_mode; // index of utility_color_modes
    int shade_mode; // ShadeMode
    RtRGB color;
    float opacity;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Utility>(metadata);
    RvNodeParamENUM(params, RV_FIELD(Utility, color_mode), 0, utility_color_modes);
    RvNodeParamENUM(params, RV_FIELD(Utility, shade_mode), 0, shade_mode_names);
    RvNodeParamRGB(params, RV_FIELD(Utility, color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Utility, opacity), 1);
}

static void update(RtNode* node, void* params)
{
    const bool is_sampled = static_cast<const Utility*>(params)->shade_mode == shade_ambocc;
    const int samples = render_options ? std::max(1, render_options->GI_diffuse_samples) : 0;
    updateNodeSampler(node, is_sampled ? samples : 0);
}

// ---- Opacity ----

// Only objects that say so may be seen through, and the last hit of a ray never is.
static bool isTransparent(const RtShaderGlobals& sg)
{
    const RtNode* const carrier = utilityCarrier(sg);
    return sg.object && shapeObject(carrier) && render_options &&
           int64_t{ sg.transparency_index } != render_options->auto_transparency_depth &&
           !shapeParams(carrier).opaque;
}

// ---- Shading ----

static RtRGB lambert(RtShaderGlobals* sg)
{
    const RtRGB direct = RvDirectDiffuse(&sg->facing_normal, sg);
    return (direct + RvIndirectDiffuse(&sg->facing_normal, sg)) * 0.7f;
}

static RtRGB openness(const RtNode* node, RtShaderGlobals* sg)
{
    constexpr float hemisphere = 1.5707964f, far_clip = 100;
    return RV_RGB_WHITE - RvOcclusion(&sg->facing_normal, &sg->facing_geometric_normal, sg, 0,
                                      far_clip, hemisphere, 0, nodeSampler(node), nullptr);
}

static RtRGB shaded(const RtRGB& color, int mode, const RtNode* node, RtShaderGlobals* sg)
{
    switch (mode) {
    case shade_ndoteye: return color * fabsf(dot(sg->ray_dir, sg->normal));
    case shade_lambert: return isNegligible(color) ? color : lambert(sg) * color;
    case shade_ambocc: return isNegligible(color) ? color : openness(node, sg) * color;
    default: return color;
    }
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    const int shade_mode = in.choice(p_shade_mode);
    float opacity = 1;
    if (isTransparent(*sg)) {
        opacity = in.flt(p_opacity);
        sg->out_opacity = grey(opacity);
    }
    const bool is_lit = shade_mode == shade_lambert || shade_mode == shade_ambocc;
    if (is_lit && (sg->ray_type & RV_RAY_SHADOW))
        return;
    const RtRGB color = utilityColor(in.choice(p_color_mode), in, *sg) * opacity;
    sg->out.RGB = shaded(color, shade_mode, node, sg);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = update,
    .Finish = destroyNodeSampler,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods utility_methods = { &common, &shader };

} // namespace rv
