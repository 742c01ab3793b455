// gobo: the "gobo" light filter, a slide in front of a spot light.
#include "array.h"
#include "lights/light_loop.h"
#include "lights/spot.h"
#include "report_once.h"
#include "rv_msg.h"
#include "shaders/local_record.h"
#include "shaders/shaders.h"
#include "texture_wrap.h"

static const char* const module_path = "core\\src\\lights\\gobo";

namespace rv {

enum FilterMode { mode_blend, mode_replace, mode_add, mode_sub, mode_mix };

static const char* const filter_mode_names[] = { "blend", "replace", "add", "sub", "mix", nullptr };

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
    RvNodeParamENUM(params, RV_FIELD(Gobo, wrap_s), wrap_clamp, wrap_names);
    RvNodeParamENUM(params, RV_FIELD(Gobo, wrap_t), wrap_clamp, wrap_names);
}

// Places in the order of declaration.
enum GoboParam {
    p_slidemap,
    p_rotate,
    p_offset,
    p_density,
    p_filter_mode,
    p_scale_s,
    p_scale_t,
    p_wrap_s,
    p_wrap_t
};

// ---- Local data ----

struct GoboData {
    std::atomic<bool> misuse_is_reported; // since the latest update
};

static void initialize(RtNode* node, void*) { createRecord<GoboData>(node, module_path, __LINE__); }

static void update(RtNode* node, void* params)
{
    const Gobo& gobo = *static_cast<const Gobo*>(params);
    if (auto* const data = record<GoboData>(node))
        data->misuse_is_reported = false;
    if (gobo.scale_s == 0 || gobo.scale_t == 0)
        RvMsgWarning("%s: a scale factor is zero!", RvNodeGetName(node));
    if (!isLinked(node, p_slidemap))
        RvMsgWarning("%s: no slidemap provided!", RvNodeGetName(node));
}

static void reportMisuse(const RtNode* node, const RtNode* light)
{
    auto* const data = record<GoboData>(node);
    if (data && isFirst(data->misuse_is_reported))
        RvMsgWarning("Gobo `%s' hooked up to non-spotlight node `%s'", RvNodeGetName(node),
                     RvNodeGetName(light));
}

// ---- The slide ----

// In degrees.
static float rotation(RtShaderGlobals* sg, const RtNode* node)
{
    const RtArray* const rotate = RvShaderEvalParamFuncArray(sg, node, p_rotate);
    const bool is_usable = rotate && rotate->type == RV_TYPE_FLOAT && totalElements(rotate);
    return is_usable ? *elementsOf<float>(rotate) : 0;
}

// From the image of the light to that of the slide, whose second coordinate runs up. Turned about
// the centre, then scaled, then moved.
static LightProjection placeOnSlide(RtShaderGlobals* sg, const RtNode* node)
{
    const ShaderInputs in(node, sg);
    const float angle = rotation(sg, node) * 0.017453292f;
    const float c = cosf(angle), s = sinf(angle);
    const float scale_s = in.flt(p_scale_s), scale_t = in.flt(p_scale_t);
    const auto across = [=](float u, float v) { return (c * u - s * v) * scale_s; };
    const auto up = [=](float u, float v) { return -(s * u + c * v) * scale_t; };
    const RtPoint2 offset = RvShaderEvalParamFuncPnt2(sg, node, p_offset);
    const float u = sg->u - 0.5f, v = sg->v - 0.5f;
    return { .u = across(u, v) - offset.x + 0.5f,
             .v = 0.5f + up(u, v) - offset.y,
             .dudx = across(sg->dudx, sg->dvdx),
             .dudy = across(sg->dudy, sg->dvdy),
             .dvdx = up(sg->dudx, sg->dvdx),
             .dvdy = up(sg->dudy, sg->dvdy) };
}

// Brings a coordinate back onto the slide. False where it ends in black.
static bool wrap(float* x, int mode)
{
    if (*x >= 0 && *x <= 1)
        return true;
    switch (mode) {
    case wrap_periodic: *x -= floorf(*x); break;
    case wrap_black: return false;
    case wrap_clamp: *x = *x < 0 ? 0 : 1; break;
    default: break; // Required: "mirror" and "file" are left to the slide.
    }
    return true;
}

static RtRGB slideColor(RtShaderGlobals* sg, const RtNode* node)
{
    const ShaderInputs in(node, sg);
    LightProjection at = placeOnSlide(sg, node);
    const int wrap_s = in.choice(p_wrap_s), wrap_t = in.choice(p_wrap_t);
    if (!wrap(&at.u, wrap_s) || !wrap(&at.v, wrap_t))
        return RV_RGB_BLACK;
    const ProjectedContext on_slide(sg, &at);
    return in.rgb(p_slidemap);
}

static RtRGB combined(const RtRGB& light, const RtRGB& slide, float density, int mode)
{
    const float w = 1 - density;
    switch (mode) {
    case mode_replace: return slide * w;
    case mode_add: return light + slide * w;
    case mode_sub: return light - slide * w;
    case mode_mix: return light * (grey(w) + slide * density);
    default: return light * slide * w;
    }
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    if (!sg->light)
        return;
    if (!isSpotLight(sg->light)) {
        reportMisuse(node, sg->light);
        return;
    }
    const ShaderInputs in(node, sg);
    const RtRGB slide = slideColor(sg, node);
    sg->light_unoccluded =
        combined(sg->light_unoccluded, slide, in.flt(p_density), in.choice(p_filter_mode));
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

const RtNodeMethods gobo_methods = { &common, &shader };

} // namespace rv
