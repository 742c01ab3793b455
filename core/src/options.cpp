// options: the "options" node type, the global render settings.
#include "options.h"
#include "rv_rays.h"

namespace rv {

const char* const sampling_pattern_names[] = { "regular",        "random",     "jittered",
                                               "multi_jittered", "poisson_bc", "dithered",
                                               "nrooks",         "schlick",    nullptr };
static const char* const priority_names[] = { "lowest", "low", "normal", "high", nullptr };
static const char* const scanning_names[] = { "top",   "bottom", "left",    "right", "random",
                                              "woven", "spiral", "hilbert", "list",  nullptr };
static const char* const transparency_names[] = { "always", "shadow-only", "never", nullptr };
static const char* const show_samples_names[] = { "off", "sss_points", "sss_irradiance", nullptr };
static const char* const packet_shader_names[] = { "depth",  "normal",  "ao",
                                                   "glossy", "shadows", nullptr };

static void antialiasingOptions(RtList* params)
{
    RvNodeParamINT(params, RV_FIELD(RtOptions, AA_samples), 1);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, AA_pattern),
                    RvEnumGetValue(sampling_pattern_names, "multi_jittered"),
                    sampling_pattern_names);
    RvNodeParamINT(params, RV_FIELD(RtOptions, AA_seed), 1);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, AA_motionblur_pattern),
                    RvEnumGetValue(sampling_pattern_names, "jittered"), sampling_pattern_names);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, AA_sample_clamp), 1e30f);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, AA_sample_clamp_affects_aovs), false);
    RvNodeParamINT(params, RV_FIELD(RtOptions, AA_sampling_dither), 4);
}

static void sessionOptions(RtList* params)
{
    RvNodeParamINT(params, RV_FIELD(RtOptions, threads), 0);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, thread_priority), 0, priority_names);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, abort_on_error), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, flush_buckets_on_halt), true);
    RvNodeParamRGB(params, RV_FIELD(RtOptions, error_color_bad_texture), 1, 0, 0);
    RvNodeParamRGB(params, RV_FIELD(RtOptions, error_color_bad_mesh), 0, 1, 0);
    RvNodeParamRGB(params, RV_FIELD(RtOptions, error_color_bad_pixel), 0, 0, 1);
    RvNodeParamRGB(params, RV_FIELD(RtOptions, error_color_bad_shader), 1, 0, 1);
}

static void imageOptions(RtList* params)
{
    RvNodeParamARRAY(params, RV_FIELD(RtOptions, outputs), RvArray(0, 1, RV_TYPE_STRING));
    RvNodeParamINT(params, RV_FIELD(RtOptions, xres), 320);
    RvNodeParamINT(params, RV_FIELD(RtOptions, yres), 240);
    RvNodeParamINT(params, RV_FIELD(RtOptions, region_min_x), -1);
    RvNodeParamINT(params, RV_FIELD(RtOptions, region_min_y), -1);
    RvNodeParamINT(params, RV_FIELD(RtOptions, region_max_x), -1);
    RvNodeParamINT(params, RV_FIELD(RtOptions, region_max_y), -1);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, aspect_ratio), 1);
    RvNodeParamINT(params, RV_FIELD(RtOptions, bucket_size), 64);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, bucket_scanning), 0, scanning_names);
    RvNodeParamARRAY(params, RV_FIELD(RtOptions, buckets), RvArray(0, 1, RV_TYPE_POINT2));
}

static void ignoreOptions(RtList* params)
{
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_textures), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_shaders), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_atmosphere), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_lights), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_shadows), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_subdivision), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_displacement), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_motion_blur), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_smoothing), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, ignore_sss), false);
    RvNodeParamARRAY(params, RV_FIELD(RtOptions, ignore_list), RvArray(0, 1, RV_TYPE_STRING));
}

static void transparencyOptions(RtList* params)
{
    RvNodeParamENUM(params, RV_FIELD(RtOptions, auto_transparency_mode), 0, transparency_names);
    RvNodeParamINT(params, RV_FIELD(RtOptions, auto_transparency_depth), 10);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, auto_transparency_threshold), 0.99f);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, auto_transparency_probabilistic), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, trace_opaque_first), false);
}

static void textureOptions(RtList* params)
{
    RvNodeParamINT(params, RV_FIELD(RtOptions, texture_max_open_files), 100);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, texture_max_memory_MB), 512);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, texture_per_file_stats), false);
    RvNodeParamSTR(params, RV_FIELD(RtOptions, texture_searchpath), "");
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, texture_automip), true);
    RvNodeParamINT(params, RV_FIELD(RtOptions, texture_autotile), 64);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, texture_accept_untiled), true);
    RvNodeParamINT(params, RV_FIELD(RtOptions, texture_failure_retries), 0);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, texture_conservative_lookups), true);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, texture_glossy_blur), 0.015625f);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, texture_diffuse_blur), 0.03125f);
}

static void shadingOptions(RtList* params)
{
    RvNodeParamNODE(params, RV_FIELD(RtOptions, camera), nullptr);
    RvNodeParamNODE(params, RV_FIELD(RtOptions, background), nullptr);
    RvNodeParamINT(params, RV_FIELD(RtOptions, background_visibility), RV_RAY_ALL);
    RvNodeParamNODE(params, RV_FIELD(RtOptions, atmosphere), nullptr);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, bump_multiplier), 1);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, luminaire_bias), 1e-6f);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, shadow_bias), 1e-6f);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, low_light_threshold), 0.001f);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, shadow_terminator_fix), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, shadows_obey_light_linking), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, skip_background_atmosphere), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, sss_subpixel_cache), false);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, show_samples), 0, show_samples_names);
    RvNodeParamINT(params, RV_FIELD(RtOptions, max_shader_messages), 64);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, physically_based), true);
}

static void geometryOptions(RtList* params)
{
    RvNodeParamINT(params, RV_FIELD(RtOptions, mindist_ulp_count), 1);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, enable_hit_refinement), false);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, CCW_points), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, mesh_sanity), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, shader_nan_checks), false);
    RvNodeParamINT(params, RV_FIELD(RtOptions, max_subdivisions), 999);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, bad_bounds_slack), 0.02f);
}

static void pluginOptions(RtList* params)
{
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, strict_procedural_compatibility), true);
    RvNodeParamSTR(params, RV_FIELD(RtOptions, procedural_searchpath), "");
    RvNodeParamSTR(params, RV_FIELD(RtOptions, shader_searchpath), "");
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, unload_plugins), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, preserve_scene_data), false);
}

static void gammaOptions(RtList* params)
{
    RvNodeParamFLT(params, RV_FIELD(RtOptions, texture_gamma), 1);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, light_gamma), 1);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, shader_gamma), 1);
}

static void indirectOptions(RtList* params)
{
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_diffuse_depth), 0);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_glossy_depth), 0);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_reflection_depth), 2);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_refraction_depth), 2);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_total_depth), 10);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_diffuse_samples), 2);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_sss_hemi_samples), -1);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_glossy_samples), 2);
    RvNodeParamINT(params, RV_FIELD(RtOptions, GI_refraction_samples), 2);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, GI_hemi_pattern),
                    RvEnumGetValue(sampling_pattern_names, "schlick"), sampling_pattern_names);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, GI_Cranley_Patterson), true);
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, GI_direct_lighting), true);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, GI_falloff_start_dist), RV_BIG);
    RvNodeParamFLT(params, RV_FIELD(RtOptions, GI_falloff_stop_dist), RV_BIG);
}

static void packetOptions(RtList* params)
{
    RvNodeParamBOOL(params, RV_FIELD(RtOptions, packet_tracing), false);
    RvNodeParamENUM(params, RV_FIELD(RtOptions, packet_shader), 0, packet_shader_names);
}

static const struct {
    const char* param;
    const char* older_name;
} synonyms[] = {
    { "AA_motionblur_pattern", "AA_mblur_pattern" },
    { "AA_sampling_dither", "sampling_dither" },
    { "error_color_bad_texture", "error_color_bad_map" },
    { "error_color_bad_pixel", "error_color_bad_pix" },
    { "ignore_textures", "ignore_tmaps" },
    { "ignore_atmosphere", "ignore_atm_shaders" },
    { "auto_transparency_depth", "GI_transparency_depth" },
    { "auto_transparency_threshold", "GI_opacity_threshold" },
    { "luminaire_bias", "fixture_threshold" },
    { "shadow_terminator_fix", "shadow_term_fix" },
    { "max_shader_messages", "message_num" },
    { "texture_gamma", "TM_tgamma" },
    { "light_gamma", "TM_lgamma" },
    { "shader_gamma", "TM_sgamma" },
    { "GI_diffuse_samples", "GI_hemi_samples" },
    { "GI_glossy_samples", "GI_specular_samples" },
    // Required: the metadata exists and the parameter does not, so the old name leads nowhere.
    { "error_on_bad_bounds", "error_on_bad_procs" },
};

// Declares in the order of the record.
static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<RtOptions>(metadata);
    antialiasingOptions(params);
    sessionOptions(params);
    imageOptions(params);
    ignoreOptions(params);
    transparencyOptions(params);
    textureOptions(params);
    shadingOptions(params);
    geometryOptions(params);
    pluginOptions(params);
    gammaOptions(params);
    indirectOptions(params);
    packetOptions(params);
    for (const auto& row : synonyms)
        declareSynonym(metadata, row.param, row.older_name);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

const RtNodeMethods options_methods = { &common, nullptr };

} // namespace rv
