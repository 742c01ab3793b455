// standard: the "standard" shader node, the production surface.
#include "shaders/standard.h"

#include "brdf.h"
#include "brdf_mis.h"
#include "color.h"
#include "nodes.h"
#include "options.h"
#include "rv_aovs.h"
#include "rv_brdf.h"
#include "rv_gi.h"
#include "rv_integrators.h"
#include "rv_lights.h"
#include "rv_messages.h"
#include "rv_rays.h"
#include "shaders/shaders.h"
#include "sss.h"

#include <algorithm>

namespace rv {

static const char* const specular_brdf_names[] = { "stretched_phong", "ward_duer", "cook_torrance",
                                                   nullptr };

// ---- Parameters ----

// kind, name, default
#define RV_STANDARD_PARAMS(X)                                                                      \
    X(FLT, Kd, 0.7f)                                                                               \
    X(RGB, Kd_color, 1, 1, 1)                                                                      \
    X(FLT, diffuse_roughness, 0) /* Oren-Nayar, 0 is Lambert */                                    \
    X(FLT, Ks, 0)                                                                                  \
    X(RGB, Ks_color, 1, 1, 1)                                                                      \
    X(ENUM, specular_brdf, stretched_phong, specular_brdf_names)                                   \
    X(FLT, specular_roughness, 0.047619f) /* squared before use */                                 \
    X(FLT, specular_anisotropy, 0.5f)     /* ward_duer, 0.5 is isotropic */                        \
    X(FLT, specular_rotation, 0)          /* half turns */                                         \
    X(FLT, Phong_exponent, 10)            /* stretched_phong; 10 stands for specular_roughness */  \
    X(FLT, Kr, 0)                                                                                  \
    X(RGB, Kr_color, 1, 1, 1)                                                                      \
    X(RGB, reflection_exit_color, 0, 0, 0) /* where the reflection depth ends */                   \
    X(BOOL, reflection_exit_use_environment, false)                                                \
    X(FLT, Kt, 0)                                                                                  \
    X(RGB, Kt_color, 1, 1, 1)                                                                      \
    X(RGB, transmittance, 1, 1, 1)         /* per unit of distance inside the object */            \
    X(FLT, refraction_roughness, 0)        /* 0 refracts sharply */                                \
    X(RGB, refraction_exit_color, 0, 0, 0) /* where the refraction depth ends */                   \
    X(BOOL, refraction_exit_use_environment, false)                                                \
    X(FLT, IOR, 1)                                                                                 \
    X(FLT, Kb, 0) /* diffuse light from behind */                                                  \
    X(BOOL, Fresnel, false)                                                                        \
    X(FLT, Krn, 0) /* reflectance at normal incidence, of Fresnel */                               \
    X(BOOL, specular_Fresnel, false)                                                               \
    X(FLT, Ksn, 0)                     /* the same of specular_Fresnel */                          \
    X(BOOL, Fresnel_affect_diff, true) /* diffuse loses what the Fresnel terms take */             \
    X(FLT, emission, 0)                                                                            \
    X(RGB, emission_color, 1, 1, 1)                                                                \
    X(FLT, direct_specular, 1)                                                                     \
    X(FLT, indirect_specular, 1)                                                                   \
    X(FLT, direct_diffuse, 1)                                                                      \
    X(FLT, indirect_diffuse, 1)                                                                    \
    X(BOOL, enable_glossy_caustics, false) /* the lobe also on paths that bounced diffusely */     \
    X(BOOL, enable_reflective_caustics, false)                                                     \
    X(BOOL, enable_refractive_caustics, false)                                                     \
    X(BOOL, enable_internal_reflections, true)                                                     \
    X(FLT, Ksss, 0) /* sub-surface scattering */                                                   \
    X(RGB, Ksss_color, 1, 1, 1)                                                                    \
    X(RGB, sss_radius, 0.1f, 0.1f, 0.1f) /* scattering distance per channel */                     \
    X(FLT, bounce_factor, 1)             /* scales what diffuse and glossy rays see */             \
    X(RGB, opacity, 1, 1, 1)                                                                       \
    X(STR, aov_emission, "emission") /* AOV names of the lobes */                                  \
    X(STR, aov_direct_diffuse, "direct_diffuse")                                                   \
    X(STR, aov_direct_specular, "direct_specular")                                                 \
    X(STR, aov_indirect_diffuse, "indirect_diffuse")                                               \
    X(STR, aov_indirect_specular, "indirect_specular")                                             \
    X(STR, aov_reflection, "reflection")                                                           \
    X(STR, aov_refraction, "refraction")                                                           \
    X(STR, aov_sss, "sss")

namespace field {
using FLT = float;
using RGB = RtRGB;
using BOOL = bool;
using ENUM = int;
using STR = const char*;
} // namespace field

struct Standard {
#define RV_STANDARD_FIELD(kind, name, ...) field::kind name;
    RV_STANDARD_PARAMS(RV_STANDARD_FIELD)
    const char* name;
};

enum StandardParam {
#define RV_STANDARD_INDEX(kind, name, ...) p_##name,
    RV_STANDARD_PARAMS(RV_STANDARD_INDEX)
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Standard>(metadata);
#define RV_STANDARD_DECLARE(kind, name, ...)                                                       \
    RvNodeParam##kind(params, RV_FIELD(Standard, name), __VA_ARGS__);
    RV_STANDARD_PARAMS(RV_STANDARD_DECLARE)
    // Distances, not colours: "shader_gamma" must leave them alone.
    declareFlag(metadata, "sss_radius", "always_linear");
}

// A weight of zero needs no Fresnel factor. Required: this writes the node's own parameters.
static void update(RtNode* node, void* params)
{
    auto* const standard = static_cast<Standard*>(params);
    const auto isZero = [&](StandardParam param, float value) {
        return value == 0 && !(node->links && node->links[param].slot[0]);
    };
    if (isZero(p_Kr, standard->Kr))
        standard->Fresnel = false;
    if (isZero(p_Ks, standard->Ks))
        standard->specular_Fresnel = false;
}

static float clampToUnit(float x) { return std::clamp(x, 0.0f, 1.0f); }

// ---- Media ----

// What a medium leaves of light after a distance, which may be 0.
static RtRGB passingThrough(const Absorption& medium, double distance)
{
    return distance > 0 ? medium.over(distance) : RV_RGB_WHITE;
}

static bool isEntering(const RtShaderGlobals* sg)
{
    return dot(sg->ray_dir, sg->geometric_normal) <= 0;
}

// ---- Shadow rays ----

// The medium between the two sides of the object darkens the shadow where the ray leaves.
static void castMediumShadow(const ShaderInputs& in, RtShaderGlobals* sg)
{
    static const char* const message = "s_hit_previous";
    const Absorption medium(clampedToUnit(in.rgb(p_transmittance)));
    if (!medium.isActive())
        return;
    RtPoint entry;
    if (isEntering(sg)) {
        RvMessageSetPntFunc(sg, message, sg->point);
    } else if (RvMessageGetPntFunc(sg, message, &entry)) {
        const RtVector way = sg->point - entry;
        const RtRGB passing = passingThrough(medium, sqrtf(dot(way, way)));
        sg->out_opacity = RV_RGB_WHITE - passing * (RV_RGB_WHITE - sg->out_opacity);
    }
}

static void castShadow(const ShaderInputs& in, RtShaderGlobals* sg)
{
    const float Kt = in.flt(p_Kt);
    if (Kt > negligible)
        sg->out_opacity = sg->out_opacity * (RV_RGB_WHITE - in.rgb(p_Kt_color) * Kt);
    castMediumShadow(in, sg);
}

// ---- The specular lobe ----

LobeRoughness standardRoughness(int specular_brdf, float Phong_exponent, float specular_roughness,
                                float specular_anisotropy)
{
    const float exponent = std::max(0.0f, Phong_exponent);
    const bool by_exponent = specular_brdf == stretched_phong && exponent != 10;
    const float roughness =
        clampToUnit(by_exponent ? sqrtf(sqrtf(0.5f / (exponent + 0.5f))) : specular_roughness);
    LobeRoughness lobe = { roughness * roughness, roughness * roughness };
    if (specular_brdf != ward_duer)
        return lobe;
    const float anisotropy = clampToUnit(specular_anisotropy);
    const float narrowed = (1 - sqrtf(fabsf(2 * anisotropy - 1))) * lobe.x;
    if (anisotropy < 0.5f)
        lobe.y = narrowed;
    else if (anisotropy > 0.5f)
        lobe.x = narrowed;
    return lobe;
}

static const char* const roughness_message = "previous_roughness";

// A lobe seen through a blurred one may be blurred too: it is cheaper, and there is less noise.
static LobeRoughness widened(const LobeRoughness& lobe, const RtShaderGlobals* sg)
{
    float least = 0;
    if (sg->diffuse_depth > 0)
        least = 0.1f;
    else if (sg->glossy_depth > 0 && RvMessageGetFltFunc(sg, roughness_message, &least))
        least *= 0.9f;
    return { std::max(lobe.x, least), std::max(lobe.y, least) };
}

struct Frame {
    RtVector u, v;
};

static bool isDegenerate(const RtVector& v)
{
    return fabsf(v.x) < negligible && fabsf(v.y) < negligible && fabsf(v.z) < negligible;
}

// The tangents that anisotropy follows, turned about the normal by `half_turns`.
static Frame tangentFrame(const RtShaderGlobals* sg, float half_turns)
{
    Frame frame = { sg->dPdu, sg->dPdv };
    if (isDegenerate(frame.u) || isDegenerate(frame.v))
        RvBuildLocalFramePolar(&frame.u, &frame.v, &sg->facing_normal);
    const float c = cosf(half_turns * 3.1415927f);
    const float s = sqrtf(std::max(0.0f, 1 - c * c));
    return { frame.u * c - frame.v * s, frame.v * c + frame.u * s };
}

// ---- One evaluation ----

// The state that the lobes of one evaluation share. Each lobe adds its light to the result and
// writes its AOV.
class StandardShading {
public:
    StandardShading(RtNode* node, RtShaderGlobals* context) : in(node, context), sg(context) {}
    void run();

private:
    bool isBounce() const { return sg->ray_type & (RV_RAY_DIFFUSE | RV_RAY_GLOSSY); }
    bool isCausticAllowed(StandardParam flag) const
    {
        return sg->diffuse_depth == 0 || in.flag(flag);
    }
    bool isInsideAllowed() const
    {
        return sg->refraction_depth == 0 || in.flag(p_enable_internal_reflections);
    }
    void add(const RtRGB& light, StandardParam aov_name);
    RtRGB weight(StandardParam factor, StandardParam color) const
    {
        return in.rgb(color) * in.flt(factor);
    }

    void addEmission();
    void findFresnel();
    void findDiffuse();
    void findSpecular();
    void addDirectDiffuse();
    void addDirectSpecular();
    void addIndirectDiffuse();
    void addIndirectSpecular();
    void addReflection();
    void addRefraction();
    void addSubSurface();

    RtRGB diffuseFromLights(float Kb) const;
    RtRGB diffuseFromBehind() const;
    RtRGB followed(const RtVector& dir, int ray_type, bool may_trace, StandardParam exit_color,
                   StandardParam exit_use_environment, RtScrSample* sample) const;
    RtRGB refracted() const;
    RtRGB refractedSharply(float eta_in, float eta_out) const;

    const ShaderInputs in;
    RtShaderGlobals* const sg;
    RtRGB result = RV_RGB_BLACK;
    float reflected = 0, specular = 0; // Fresnel terms
    float diffuse_share = 1;           // what they leave
    float diffuse_factor = 1;          // diffuse_share where it dims diffuse light
    float specular_factor = 1;         // the specular term where there is one
    RtRGB Kd{}, Ks{};
    float sigma = 0;
    const SpecularFamily* family = nullptr;
    LobeRoughness lobe{};
    void* lobe_data = nullptr;
};

void StandardShading::add(const RtRGB& light, StandardParam aov_name)
{
    result = result + light;
    RvAOVSetRGB(sg, in.text(aov_name), light);
}

void StandardShading::addEmission()
{
    const float emission = in.flt(p_emission);
    if (emission != 0)
        add(in.rgb(p_emission_color) * emission, p_aov_emission);
}

// Schlick: "An inexpensive BRDF model for physically-based rendering", 1994.
void StandardShading::findFresnel()
{
    if (in.flag(p_Fresnel))
        reflected = RvFresnelWeight(&sg->facing_normal, &sg->ray_dir, in.flt(p_Krn));
    if (in.flag(p_specular_Fresnel))
        specular = RvFresnelWeight(&sg->facing_normal, &sg->ray_dir, in.flt(p_Ksn));
    diffuse_share = 1 - reflected - specular;
    diffuse_factor = in.flag(p_Fresnel_affect_diff) ? diffuse_share : 1;
}

void StandardShading::findDiffuse()
{
    Kd = weight(p_Kd, p_Kd_color);
    sigma = in.flt(p_diffuse_roughness);
}

void StandardShading::findSpecular()
{
    Ks = weight(p_Ks, p_Ks_color);
    if (isNegligible(Ks))
        return;
    const int brdf = std::clamp(in.choice(p_specular_brdf), 0, int(cook_torrance));
    family = &specular_families[brdf];
    lobe = widened(standardRoughness(brdf, in.flt(p_Phong_exponent), in.flt(p_specular_roughness),
                                     in.flt(p_specular_anisotropy)),
                   sg);
    const Frame frame = tangentFrame(sg, in.flt(p_specular_rotation));
    lobe_data = family->create(sg, &frame.u, &frame.v, lobe.x, lobe.y);
    if (in.flag(p_specular_Fresnel))
        specular_factor = specular;
}

// ---- Direct light ----

// Light from behind counts by Kb.
RtRGB StandardShading::diffuseFromLights(float Kb) const
{
    const RtVector view = sg->ray_dir * -1.0f;
    const OrenNayar rough(sigma * pi);
    RtRGB sum = RV_RGB_BLACK;
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg)) {
        float c = dot(sg->facing_normal, sg->light_dir);
        if (c < 0)
            c = Kb > 0 ? -c * Kb : 0;
        if (c <= 0 || !RvLightGetAffectDiffuse(sg->light))
            continue;
        const float f =
            sigma > 0 ? orenNayarFromBothSides(rough, sg->light_dir, view, sg->facing_normal) : 1;
        sum = sum + sg->light_radiance * (c * sg->light_weight * f);
    }
    return sum * diffuseScale();
}

void StandardShading::addDirectDiffuse()
{
    if (isNegligible(Kd))
        return;
    const float Kb = in.flt(p_Kb);
    if (Kb > 0)
        sg->front_hemisphere_only = 0;
    const RtRGB light = diffuseFromLights(Kb);
    add(light * Kd * (in.flt(p_direct_diffuse) * diffuse_factor), p_aov_direct_diffuse);
}

void StandardShading::addDirectSpecular()
{
    if (!lobe_data || isNegligible(Ks) || !isCausticAllowed(p_enable_glossy_caustics))
        return;
    RtRGB sum = RV_RGB_BLACK;
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg))
        if (RvLightGetAffectSpecular(sg->light))
            sum = sum + RvEvaluateLightSample(sg, lobe_data, family->sample, family->evaluate,
                                              family->pdf);
    add(sum * Ks * (in.flt(p_direct_specular) * specular_factor), p_aov_direct_specular);
}

// ---- Indirect light ----

RtRGB StandardShading::diffuseFromBehind() const
{
    const auto flip = [this] {
        sg->facing_normal = sg->facing_normal * -1.0f;
        sg->facing_geometric_normal = sg->facing_geometric_normal * -1.0f;
    };
    flip();
    const RtRGB light = RvIndirectDiffuse(&sg->facing_normal, sg);
    flip();
    return light;
}

void StandardShading::addIndirectDiffuse()
{
    const RtRGB factor = Kd * in.flt(p_indirect_diffuse);
    if (isNegligible(factor))
        return;
    RtRGB light = sigma > 0 ? RvOrenNayarIntegrate(&sg->facing_normal, sg, sigma)
                            : RvIndirectDiffuse(&sg->facing_normal, sg);
    const float Kb = in.flt(p_Kb);
    if (Kb > negligible)
        light = light + diffuseFromBehind() * Kb;
    add(light * factor * diffuse_factor, p_aov_indirect_diffuse);
}

void StandardShading::addIndirectSpecular()
{
    const RtRGB factor = Ks * in.flt(p_indirect_specular);
    if (!lobe_data || isNegligible(factor) || !isCausticAllowed(p_enable_glossy_caustics) ||
        !isInsideAllowed())
        return;
    RvMessageSetFltFunc(sg, roughness_message, std::min(lobe.x, lobe.y));
    add(family->integrate(lobe_data, sg) * factor * specular_factor, p_aov_indirect_specular);
}

// ---- Mirrors and glass ----

static constexpr double trace_distance = 1e12;

// What a ray from the point sees; beyond the depth limit, the exit colour.
RtRGB StandardShading::followed(const RtVector& dir, int ray_type, bool may_trace,
                                StandardParam exit_color, StandardParam exit_use_environment,
                                RtScrSample* sample) const
{
    RtRay ray;
    RvMakeRay(&ray, ray_type, &sg->point, &dir, trace_distance, sg);
    *sample = {};
    if (may_trace) {
        RvTrace(&ray, sample);
        return sample->color;
    }
    const RtRGB color = in.rgb(exit_color);
    if (!in.flag(exit_use_environment))
        return color;
    RtScrSample background;
    RvTraceBackground(&ray, &background);
    return color * background.color;
}

void StandardShading::addReflection()
{
    const RtRGB Kr = weight(p_Kr, p_Kr_color);
    if (isNegligible(Kr) || !isCausticAllowed(p_enable_reflective_caustics) || !isInsideAllowed())
        return;
    RtVector dir;
    RvReflectSafe(&sg->ray_dir, &sg->facing_normal, &sg->geometric_normal, &dir);
    RtScrSample sample;
    const RtRGB light =
        followed(dir, RV_RAY_REFLECTED, sg->reflection_depth < render_options->GI_reflection_depth,
                 p_reflection_exit_color, p_reflection_exit_use_environment, &sample);
    add(light * Kr * (in.flag(p_Fresnel) ? reflected : 1), p_aov_reflection);
}

RtRGB StandardShading::refractedSharply(float eta_in, float eta_out) const
{
    RtVector dir;
    if (!RvRefract(&sg->ray_dir, &sg->facing_normal, eta_in, eta_out, &dir))
        RvReflectSafe(&sg->ray_dir, &sg->facing_normal, &sg->geometric_normal, &dir);
    RtScrSample sample;
    const RtRGB light =
        followed(dir, RV_RAY_REFRACTED, sg->refraction_depth < render_options->GI_refraction_depth,
                 p_refraction_exit_color, p_refraction_exit_use_environment, &sample);
    const Absorption medium(clampedToUnit(in.rgb(p_transmittance)));
    if (!medium.isActive() || !isEntering(sg))
        return light;
    return light * passingThrough(medium, sample.z);
}

RtRGB StandardShading::refracted() const
{
    const bool entering = dot(sg->normal, sg->ray_dir) < 0;
    const float ior = in.flt(p_IOR);
    const float eta_in = entering ? 1 : ior, eta_out = entering ? ior : 1;
    const float roughness = clampToUnit(in.flt(p_refraction_roughness));
    if (!(roughness > 0))
        return refractedSharply(eta_in, eta_out);
    const RtRGB transmittance = in.rgb(p_transmittance);
    const float alpha = roughness * roughness;
    return RvMicrofacetBTDFIntegrate(&sg->facing_normal, sg, nullptr, nullptr, alpha, alpha, eta_in,
                                     eta_out, &transmittance);
}

// Required: always dimmed by the Fresnel terms, whatever Fresnel_affect_diff says.
void StandardShading::addRefraction()
{
    const RtRGB Kt = weight(p_Kt, p_Kt_color);
    if (!isNegligible(Kt) && isCausticAllowed(p_enable_refractive_caustics))
        add(refracted() * Kt * diffuse_share, p_aov_refraction);
}

// ---- Light below the surface ----

void StandardShading::addSubSurface()
{
    const RtRGB Ksss = weight(p_Ksss, p_Ksss_color);
    if (isNegligible(Ksss))
        return;
    const RtRGB radius = in.rgb(p_sss_radius);
    add(RvSSSPointCloudLookup(sg, &radius) * Ksss * diffuse_factor, p_aov_sss);
}

// ---- The whole ----

void StandardShading::run()
{
    if (!setOpacity(sg, in.rgb(p_opacity))) {
        if (sg->ray_type & RV_RAY_SHADOW)
            castShadow(in, sg);
        return;
    }
    sg->out.RGB = RV_RGB_BLACK;
    const float bounce_factor = isBounce() ? in.flt(p_bounce_factor) : 1;
    if (bounce_factor == 0)
        return;
    addEmission();
    findFresnel();
    findDiffuse();
    findSpecular();
    addDirectDiffuse();
    addDirectSpecular();
    addIndirectDiffuse();
    addIndirectSpecular();
    addReflection();
    addRefraction();
    addSubSurface();
    sg->out.RGB = result * bounce_factor;
}

static void evaluate(RtNode* node, RtShaderGlobals* sg) { StandardShading(node, sg).run(); }

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = update,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods standard_methods = { &common, &shader };

} // namespace rv
