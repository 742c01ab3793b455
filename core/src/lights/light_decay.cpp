// light_decay: the "light_decay" light filter, falloff with distance.
#include "lights/light_data.h"

#include <algorithm>

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
enum Param {
    use_near_atten,
    use_far_atten,
    near_start,
    near_end,
    far_start,
    far_end,
    decay_type,
    decay_radius,
    decay_clamp
};

struct DecaySettings {
    bool use_near, use_far;
    float near_start, near_end;
    float far_start, far_end;
    int exponent;
    float radius;
    bool is_clamped;
};

static float smoothstep(float t) { return t * t * (3 - 2 * t); }

static float nearFactor(const DecaySettings& s, float d)
{
    if (d < s.near_start)
        return 0;
    return d < s.near_end ? smoothstep((d - s.near_start) / (s.near_end - s.near_start)) : 1;
}

static float farFactor(const DecaySettings& s, float d)
{
    if (d <= s.far_start)
        return 1;
    // An empty range ends where it starts.
    const bool within = d <= s.far_end && s.far_start < s.far_end;
    return within ? smoothstep((s.far_end - d) / (s.far_end - s.far_start)) : 0;
}

static float falloff(const DecaySettings& s, float d)
{
    float factor = 1;
    if (d != 0)
        for (int i = 0; i < s.exponent; ++i)
            factor *= s.radius / d;
    return s.is_clamped ? std::min(factor, 1.0f) : factor;
}

static float decayFactor(const DecaySettings& s, float d)
{
    const float near = s.use_near ? nearFactor(s, d) : 1;
    const float attenuation = s.use_far ? near * farFactor(s, d) : near;
    return attenuation == 0 ? 0 : falloff(s, d) * attenuation; // the falloff may be infinite
}

// Lights that are sampled over their extent grow fainter with distance by themselves.
static bool fadesByItself(const RtLightData& light)
{
    return light.sampled && light.light_type != RV_LIGHT_QUAD && !light.normalize;
}

static DecaySettings settings(const RtNode* node, RtShaderGlobals* sg)
{
    const auto number = [&](Param p) { return RvShaderEvalParamFuncFlt(sg, node, p); };
    const auto flag = [&](Param p) { return RvShaderEvalParamFuncBool(sg, node, p); };
    const int type = RvShaderEvalParamFuncEnum(sg, node, decay_type);
    return { .use_near = flag(use_near_atten),
             .use_far = flag(use_far_atten),
             .near_start = number(near_start),
             .near_end = number(near_end),
             .far_start = number(far_start),
             .far_end = number(far_end),
             .exponent = type >= 0 && type <= 3 ? type : 0,
             .radius = number(decay_radius),
             .is_clamped = flag(decay_clamp) };
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const float d = sg->light_dist;
    float factor = decayFactor(settings(node, sg), d);
    const RtLightData* const light = lightData(sg->light);
    if (light && fadesByItself(*light))
        factor *= d * d;
    sg->light_unoccluded = sg->light_unoccluded * factor;
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
