// light_decay: the "light_decay" light filter, falloff with distance.
#include "lights/light_data.h"
#include "shaders/shaders.h"

#include <algorithm>
#include <float.h>

namespace rv {

static const char* const decay_type_names[] = { "constant", "linear", "quadratic", "cubic",
                                                nullptr };

struct LightDecay {
    bool use_near_atten;
    bool use_far_atten;
    float near_start;
    float near_end;
    float far_start;
    float far_end;
    int decay_type; // index of decay_type_names and exponent of the falloff
    float decay_radius;
    bool decay_clamp;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<LightDecay>(metadata);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, use_near_atten), false);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, use_far_atten), false);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, near_start), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, near_end), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, far_start), 0);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, far_end), 0);
    RvNodeParamENUM(params, RV_FIELD(LightDecay, decay_type), 0, decay_type_names);
    RvNodeParamFLT(params, RV_FIELD(LightDecay, decay_radius), 1);
    RvNodeParamBOOL(params, RV_FIELD(LightDecay, decay_clamp), false);
}

// Places in the order of declaration.
enum LightDecayParam {
    p_use_near_atten,
    p_use_far_atten,
    p_near_start,
    p_near_end,
    p_far_start,
    p_far_end,
    p_decay_type,
    p_decay_radius,
    p_decay_clamp
};

static float smoothstep(float t) { return t * t * (3 - 2 * t); }

static float nearFactor(const ShaderInputs& in, float d)
{
    const float start = in.flt(p_near_start), end = in.flt(p_near_end);
    if (d < start)
        return 0;
    return d < end ? smoothstep((d - start) / (end - start)) : 1;
}

static float farFactor(const ShaderInputs& in, float d)
{
    const float start = in.flt(p_far_start), end = in.flt(p_far_end);
    if (d <= start)
        return 1;
    // An empty range ends where it starts.
    return d <= end && start < end ? smoothstep((end - d) / (end - start)) : 0;
}

// Far from and close to a light the powers have no place in a float.
static double falloff(const ShaderInputs& in, float d)
{
    const int type = in.choice(p_decay_type), exponent = type >= 0 && type <= 3 ? type : 0;
    double factor = 1;
    if (d != 0 && exponent > 0) {
        const double ratio = double(in.flt(p_decay_radius)) / double(d);
        for (int i = 0; i < exponent; ++i)
            factor *= ratio;
    }
    return factor > 1 && in.flag(p_decay_clamp) ? 1 : factor;
}

// Lights that are sampled over their extent grow fainter with distance by themselves.
static bool fadesByItself(const RtLightData* light)
{
    return light && light->sampled && light->light_type != RV_LIGHT_QUAD && !light->normalize;
}

static double decayFactor(const ShaderInputs& in, const RtLightData* light, float d)
{
    double factor = 1;
    if (in.flag(p_use_near_atten))
        factor *= double(nearFactor(in, d));
    if (in.flag(p_use_far_atten))
        factor *= double(farFactor(in, d));
    if (factor != 0) // where there is no light, the falloff may be infinite
        factor *= falloff(in, d);
    if (factor != 0 && fadesByItself(light)) // neither may the distance undo it
        factor *= double(d) * double(d);
    return factor;
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const double factor = decayFactor({ node, sg }, lightData(sg->light), sg->light_dist);
    sg->light_unoccluded = perChannel(sg->light_unoccluded, [factor](float light) {
        static constexpr double largest = FLT_MAX;
        // Black stays black, and bright light a number, however close the light is.
        return light == 0 ? 0 : float(std::clamp(double(light) * factor, -largest, largest));
    });
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

const RtNodeMethods light_decay_methods = { &common, &shader };

} // namespace rv
