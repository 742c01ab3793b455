// standard: the "standard" shader node, the production surface.
#include "shaders/shaders.h"

namespace rv {

static const char* const specular_brdf_names[] = { "stretched_phong", "ward_duer", "cook_torrance",
                                                   nullptr };

struct Standard {
    float Kd;
    RtRGB Kd_color;
    float diffuse_roughness; // Oren-Nayar, 0 is Lambert
    float Ks;
    RtRGB Ks_color;
    int specular_brdf;
    float specular_roughness;  // squared before use
    float specular_anisotropy; // ward_duer, 0.5 is isotropic
    float specular_rotation;   // half turns
    float Phong_exponent;      // stretched_phong; 10 stands for specular_roughness
    float Kr;
    RtRGB Kr_color;
    RtRGB reflection_exit_color; // where the reflection depth ends
    bool reflection_exit_use_environment;
    float Kt;
    RtRGB Kt_color;
    RtRGB transmittance;         // per unit of distance inside the object
    float refraction_roughness;  // 0 refracts sharply
    RtRGB refraction_exit_color; // where the refraction depth ends
    bool refraction_exit_use_environment;
    float IOR;
    float Kb; // diffuse light from behind
    bool Fresnel;
    float Krn; // reflectance at normal incidence, of Fresnel
    bool specular_Fresnel;
    float Ksn;                // the same of specular_Fresnel
    bool Fresnel_affect_diff; // diffuse loses what the Fresnel terms take
    float emission;
    RtRGB emission_color;
    float direct_specular;
    float indirect_specular;
    float direct_diffuse;
    float indirect_diffuse;
    bool enable_glossy_caustics; // the lobe also on paths that bounced diffusely
    bool enable_reflective_caustics;
    bool enable_refractive_caustics;
    bool enable_internal_reflections;
    float Ksss; // sub-surface scattering
    RtRGB Ksss_color;
    RtRGB sss_radius;    // scattering distance per channel
    float bounce_factor; // scales what diffuse and glossy rays see
    RtRGB opacity;
    const char* aov_emission; // AOV names of the lobes
    const char* aov_direct_diffuse;
    const char* aov_direct_specular;
    const char* aov_indirect_diffuse;
    const char* aov_indirect_specular;
    const char* aov_reflection;
    const char* aov_refraction;
    const char* aov_sss;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Standard>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Standard, Kd), 0.7f);
    RvNodeParamRGB(params, RV_FIELD(Standard, Kd_color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, diffuse_roughness), 0);
    RvNodeParamFLT(params, RV_FIELD(Standard, Ks), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, Ks_color), 1, 1, 1);
    RvNodeParamENUM(params, RV_FIELD(Standard, specular_brdf), 0, specular_brdf_names);
    RvNodeParamFLT(params, RV_FIELD(Standard, specular_roughness), 0.047619f);
    RvNodeParamFLT(params, RV_FIELD(Standard, specular_anisotropy), 0.5f);
    RvNodeParamFLT(params, RV_FIELD(Standard, specular_rotation), 0);
    RvNodeParamFLT(params, RV_FIELD(Standard, Phong_exponent), 10);
    RvNodeParamFLT(params, RV_FIELD(Standard, Kr), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, Kr_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Standard, reflection_exit_color), 0, 0, 0);
    RvNodeParamBOOL(params, RV_FIELD(Standard, reflection_exit_use_environment), false);
    RvNodeParamFLT(params, RV_FIELD(Standard, Kt), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, Kt_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Standard, transmittance), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, refraction_roughness), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, refraction_exit_color), 0, 0, 0);
    RvNodeParamBOOL(params, RV_FIELD(Standard, refraction_exit_use_environment), false);
    RvNodeParamFLT(params, RV_FIELD(Standard, IOR), 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, Kb), 0);
    RvNodeParamBOOL(params, RV_FIELD(Standard, Fresnel), false);
    RvNodeParamFLT(params, RV_FIELD(Standard, Krn), 0);
    RvNodeParamBOOL(params, RV_FIELD(Standard, specular_Fresnel), false);
    RvNodeParamFLT(params, RV_FIELD(Standard, Ksn), 0);
    RvNodeParamBOOL(params, RV_FIELD(Standard, Fresnel_affect_diff), true);
    RvNodeParamFLT(params, RV_FIELD(Standard, emission), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, emission_color), 1, 1, 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, direct_specular), 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, indirect_specular), 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, direct_diffuse), 1);
    RvNodeParamFLT(params, RV_FIELD(Standard, indirect_diffuse), 1);
    RvNodeParamBOOL(params, RV_FIELD(Standard, enable_glossy_caustics), false);
    RvNodeParamBOOL(params, RV_FIELD(Standard, enable_reflective_caustics), false);
    RvNodeParamBOOL(params, RV_FIELD(Standard, enable_refractive_caustics), false);
    RvNodeParamBOOL(params, RV_FIELD(Standard, enable_internal_reflections), true);
    RvNodeParamFLT(params, RV_FIELD(Standard, Ksss), 0);
    RvNodeParamRGB(params, RV_FIELD(Standard, Ksss_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Standard, sss_radius), 0.1f, 0.1f, 0.1f);
    RvNodeParamFLT(params, RV_FIELD(Standard, bounce_factor), 1);
    RvNodeParamRGB(params, RV_FIELD(Standard, opacity), 1, 1, 1);
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_emission), "emission");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_direct_diffuse), "direct_diffuse");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_direct_specular), "direct_specular");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_indirect_diffuse), "indirect_diffuse");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_indirect_specular), "indirect_specular");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_reflection), "reflection");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_refraction), "refraction");
    RvNodeParamSTR(params, RV_FIELD(Standard, aov_sss), "sss");
    // Distances, not colours: "shader_gamma" must leave them alone.
    declareFlag(metadata, "sss_radius", "always_linear");
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

const RtNodeMethods standard_methods = { &common, &shader };

} // namespace rv
