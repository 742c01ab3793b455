// hair: the "hair" shader node, a simple strand: diffuse light by its angle with the strand and a
// highlight around it (after Kajiya, Kay: "Rendering fur with three dimensional textures", 1989,
// with the half vector in the highlight).
#include "shaders/hair.h"

#include "color.h"
#include "nodes.h"
#include "options.h"
#include "rv_gi.h"
#include "rv_lights.h"
#include "rv_rays.h"
#include "shaders/kept_coordinates.h"
#include "shaders/shaders.h"
#include "userdefs.h"

#include <algorithm>
#include <math.h>

namespace rv {

struct Hair {
    RtRGB rootcolor;
    RtRGB tipcolor;
    RtRGB opacity;
    float ambdiff;
    float gloss;
    RtRGB spec_color;
    float spec;
    float kd_ind;
    const char* uparam; // user data that replaces u
    const char* vparam; // user data that replaces v
    bool diffuse_cache;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Hair>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Hair, rootcolor), 0.1f, 0.1f, 0.1f);
    RvNodeParamRGB(params, RV_FIELD(Hair, tipcolor), 0.5f, 0.5f, 0.5f);
    RvNodeParamRGB(params, RV_FIELD(Hair, opacity), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, ambdiff), 0.6f);
    RvNodeParamFLT(params, RV_FIELD(Hair, gloss), 10);
    RvNodeParamRGB(params, RV_FIELD(Hair, spec_color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, spec), 1);
    RvNodeParamFLT(params, RV_FIELD(Hair, kd_ind), 0);
    RvNodeParamSTR(params, RV_FIELD(Hair, uparam), "");
    RvNodeParamSTR(params, RV_FIELD(Hair, vparam), "");
    RvNodeParamBOOL(params, RV_FIELD(Hair, diffuse_cache), false);
}

// Places in the order of declaration.
enum HairParam {
    p_rootcolor,
    p_tipcolor,
    p_opacity,
    p_ambdiff,
    p_gloss,
    p_spec_color,
    p_spec,
    p_kd_ind,
    p_uparam,
    p_vparam,
    p_diffuse_cache
};

// ---- Inputs ----

// Replaces a value by float user data of that name, where there is any. Data of other types is not
// read: that would be logged at every sample.
static void readUserFloat(const char* name, const RtShaderGlobals* sg, float* value)
{
    for (const RtNode* node : { sg->object, sg->instance })
        if (const RtUserParamEntry* const entry = findUserParam(node, name, true)) {
            if (userElementType(*entry) == RV_TYPE_FLOAT)
                RvUserGetFltFunc(name, sg, value);
            return;
        }
}

static float userOpacity(const RtShaderGlobals* sg)
{
    float opacity = 1;
    readUserFloat("geo_opacity", sg, &opacity);
    return opacity;
}

// The inputs whose textures see user data in place of u and v.
struct HairLook {
    float ambdiff, gloss, spec;
    RtRGB spec_color, rootcolor, tipcolor;
};

static HairLook lookAt(const RtNode* node, RtShaderGlobals* sg)
{
    const Hair& hair = *static_cast<const Hair*>(node->params);
    const KeptCoordinates kept(sg);
    readUserFloat(hair.uparam, sg, &sg->u);
    readUserFloat(hair.vparam, sg, &sg->v);
    const ShaderInputs in(node, sg);
    return { .ambdiff = in.flt(p_ambdiff),
             .gloss = in.flt(p_gloss),
             .spec = in.flt(p_spec),
             .spec_color = in.rgb(p_spec_color),
             .rootcolor = in.rgb(p_rootcolor),
             .tipcolor = in.rgb(p_tipcolor) };
}

// ---- Lobes ----

float hairDiffuse(const RtVector& strand, const RtVector& light_dir, float ambdiff)
{
    const float along = dot(light_dir, strand);
    return sqrtf(std::max(0.0f, 1 - along * along)) * ambdiff + (1 - ambdiff);
}

float hairSpecular(const RtVector& strand, const RtVector& light_dir, const RtVector& view,
                   float gloss)
{
    const float along = dot(unit(view + light_dir), strand);
    const float across = 1 - along * along;
    // A negative gloss may lead beyond all numbers.
    return across > 0 ? std::min(powf(across, gloss * 0.5f), RV_BIG) : 0;
}

// ---- Light ----

struct HairLight {
    RtRGB diffuse, specular;
};

static HairLight lightFrom(RtShaderGlobals* sg, const HairLook& look, const RtVector& strand,
                           const RtVector& view)
{
    HairLight sum = {};
    sg->front_hemisphere_only = 0; // strands are lit from all sides
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg)) {
        const RtRGB light = sg->light_radiance * sg->light_weight;
        if (RvLightGetAffectDiffuse(sg->light))
            sum.diffuse = sum.diffuse + light * hairDiffuse(strand, sg->light_dir, look.ambdiff);
        if (look.spec > 0 && RvLightGetAffectSpecular(sg->light))
            sum.specular =
                sum.specular + light * hairSpecular(strand, sg->light_dir, view, look.gloss);
    }
    return sum;
}

static RtRGB indirectLight(const RtNode* node, RtShaderGlobals* sg, const RtVector& view)
{
    if (!render_options || sg->diffuse_depth >= render_options->GI_diffuse_depth)
        return RV_RGB_BLACK;
    const float kd_ind = ShaderInputs(node, sg).flt(p_kd_ind);
    // Required: around the direction of the view, because a strand has no normal.
    return kd_ind > 0 ? RvIndirectDiffuse(&view, sg) * kd_ind : RV_RGB_BLACK;
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    if (!applyOpacity(sg, in.rgb(p_opacity) * userOpacity(sg)))
        return;
    const HairLook look = lookAt(node, sg);
    // Required: by the context's own v, whatever stands in for it in textures.
    const RtRGB albedo = look.rootcolor * (1 - sg->v) + look.tipcolor * sg->v;
    if ((sg->ray_type & RV_RAY_DIFFUSE) && in.flag(p_diffuse_cache)) {
        RvHairDirectDiffuseCache(&sg->out.RGB, sg);
        sg->out.RGB = sg->out.RGB * albedo;
        return;
    }
    const RtVector view = sg->ray_dir * -1.0f, strand = unitPrecise(sg->dPdv);
    const HairLight light = lightFrom(sg, look, strand, view);
    const RtRGB diffuse = light.diffuse + indirectLight(node, sg, view);
    sg->out.RGB = light.specular * look.spec_color * look.spec + albedo * diffuse;
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

const RtNodeMethods hair_methods = { &common, &shader };

} // namespace rv
