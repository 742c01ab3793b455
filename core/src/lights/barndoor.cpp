// barndoor: the "barndoor" light filter, four soft-edged flaps in front of a spot light.
#include "lights/light_data.h"
#include "lights/spot.h"
#include "report_once.h"
#include "rv_msg.h"
#include "shaders/shaders.h"

namespace rv {

// Positions in the projection square of the light: 0 is left or top, 1 right or bottom.
struct Barndoor {
    float barndoor_top_left;
    float barndoor_top_right;
    float barndoor_top_edge;
    float barndoor_right_top;
    float barndoor_right_bottom;
    float barndoor_right_edge;
    float barndoor_bottom_left;
    float barndoor_bottom_right;
    float barndoor_bottom_edge;
    float barndoor_left_top;
    float barndoor_left_bottom;
    float barndoor_left_edge;
    const char* name;
};

// The defaults are fully open.
static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Barndoor>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_left), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_right), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_top), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_bottom), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_left), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_right), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_top), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_bottom), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_edge), 0);
}

// Places in the order of declaration.
enum BarndoorParam {
    p_top_left,
    p_top_right,
    p_top_edge,
    p_right_top,
    p_right_bottom,
    p_right_edge,
    p_bottom_left,
    p_bottom_right,
    p_bottom_edge,
    p_left_top,
    p_left_bottom,
    p_left_edge
};

// Required: said once for the whole life of the process, whatever filters and lights follow.
static std::atomic<bool> misuse_is_reported;

static void reportMisuse(const RtNode* node, const RtNode* light)
{
    if (isFirst(misuse_is_reported))
        RvMsgWarning("[%s] `%s' hooked up to non-spotlight node `%s'",
                     RvNodeEntryGetName(node->entry), RvNodeGetName(node), RvNodeGetName(light));
}

// From 0 at and before a place to 1 behind another; a step where that is no later.
static float rise(float x, float from, float to)
{
    if (!(x > from))
        return 0;
    if (!(x < to))
        return 1;
    const float t = (x - from) / (to - from);
    return isnan(t) ? 1 : t; // far behind an edge without end
}

// How far the doors are open at a point of the image; v runs down.
static float opening(const ShaderInputs& in, float u, float v)
{
    const auto line = [&in](BarndoorParam start, BarndoorParam end, float t) {
        return in.flt(start) * (1 - t) + in.flt(end) * t;
    };
    const float top = line(p_top_left, p_top_right, u);
    const float bottom = line(p_bottom_left, p_bottom_right, u);
    const float left = line(p_left_top, p_left_bottom, v);
    const float right = line(p_right_top, p_right_bottom, v);
    return rise(u, left - in.flt(p_left_edge), left) *
           (1 - rise(u, right, right + in.flt(p_right_edge))) *
           rise(v, top - in.flt(p_top_edge), top) *
           (1 - rise(v, bottom, bottom + in.flt(p_bottom_edge)));
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    if (!sg->light)
        return;
    if (!isSpotLight(sg->light)) {
        reportMisuse(node, sg->light);
        return;
    }
    // Required: in place of the shadow of filters before this one.
    sg->light_shadow = grey(1 - opening({ node, sg }, sg->u, sg->v));
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

const RtNodeMethods barndoor_methods = { &common, &shader };

} // namespace rv
