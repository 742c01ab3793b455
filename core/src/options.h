// The options node type: the global render settings as one plain record.
#ifndef RV_OPTIONS_H
#define RV_OPTIONS_H

#include "declare.h"

// One field per option, named and ordered like the parameters.
struct RtOptions {
    int AA_samples;
    int AA_pattern;
    int AA_seed;
    int AA_motionblur_pattern;
    float AA_sample_clamp;
    bool AA_sample_clamp_affects_aovs;
    int AA_sampling_dither;
    int threads;
    int thread_priority;
    bool abort_on_error;
    bool flush_buckets_on_halt;
    RtRGB error_color_bad_texture;
    RtRGB error_color_bad_mesh;
    RtRGB error_color_bad_pixel;
    RtRGB error_color_bad_shader;
    RtArray* outputs; // STRING
    int xres;
    int yres;
    int region_min_x;
    int region_min_y;
    int region_max_x;
    int region_max_y;
    float aspect_ratio;
    int bucket_size;
    int bucket_scanning;
    RtArray* buckets; // POINT2
    bool ignore_textures;
    bool ignore_shaders;
    bool ignore_atmosphere;
    bool ignore_lights;
    bool ignore_shadows;
    bool ignore_subdivision;
    bool ignore_displacement;
    bool ignore_motion_blur;
    bool ignore_smoothing;
    bool ignore_sss;
    RtArray* ignore_list; // STRING
    int auto_transparency_mode;
    int auto_transparency_depth;
    float auto_transparency_threshold;
    bool auto_transparency_probabilistic;
    bool trace_opaque_first;
    int texture_max_open_files;
    float texture_max_memory_MB;
    bool texture_per_file_stats;
    const char* texture_searchpath;
    bool texture_automip;
    int texture_autotile;
    bool texture_accept_untiled;
    int texture_failure_retries;
    bool texture_conservative_lookups;
    float texture_glossy_blur;
    float texture_diffuse_blur;
    RtNode* camera;
    RtNode* background;
    int background_visibility; // RV_RAY_* bits
    RtNode* atmosphere;
    float bump_multiplier;
    float luminaire_bias;
    float shadow_bias;
    float low_light_threshold;
    bool shadow_terminator_fix;
    bool shadows_obey_light_linking;
    bool skip_background_atmosphere;
    bool sss_subpixel_cache;
    int show_samples;
    int max_shader_messages;
    bool physically_based;
    int mindist_ulp_count;
    bool enable_hit_refinement;
    bool CCW_points;
    bool mesh_sanity;
    bool shader_nan_checks;
    int max_subdivisions;
    float bad_bounds_slack;
    bool strict_procedural_compatibility;
    const char* procedural_searchpath;
    const char* shader_searchpath;
    bool unload_plugins;
    bool preserve_scene_data;
    float texture_gamma;
    float light_gamma;
    float shader_gamma;
    int GI_diffuse_depth;
    int GI_glossy_depth;
    int GI_reflection_depth;
    int GI_refraction_depth;
    int GI_total_depth;
    int GI_diffuse_samples;
    int GI_sss_hemi_samples;
    int GI_glossy_samples;
    int GI_refraction_samples;
    int GI_hemi_pattern;
    bool GI_Cranley_Patterson;
    bool GI_direct_lighting;
    float GI_falloff_start_dist;
    float GI_falloff_stop_dist;
    bool packet_tracing;
    int packet_shader;
    const char* name;
};

// Values of auto_transparency_mode.
enum { RV_TRANSPARENCY_ALWAYS, RV_TRANSPARENCY_SHADOW_ONLY, RV_TRANSPARENCY_NEVER };

namespace rv {

extern const RtNodeMethods options_methods;

// Names of the sampling patterns by code, null-terminated.
extern const char* const sampling_pattern_names[];

// The values of the options node; null while there is none. Fixed while workers run.
inline RtOptions* render_options = nullptr;

} // namespace rv

#endif
