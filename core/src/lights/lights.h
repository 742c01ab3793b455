// What the light node types share: the common parameters and the lists of lights and light filters.
#ifndef RV_LIGHTS_INTERNAL_H
#define RV_LIGHTS_INTERNAL_H

#include "declare.h"
#include "rv_lights.h"
#include "rv_shaderglobals.h"

namespace rv {

// The parameters common to all lights, in order of declaration.
struct LightParams {
    RtArray* matrix; // MATRIX, light to world
    RtRGB color;
    float intensity;
    float exposure; // stops
    bool cast_shadows;
    float shadow_density;
    RtRGB shadow_color;
    int samples; // square root of the samples per shading point
    bool normalize;
    bool affect_diffuse;
    bool affect_specular;
    int bounces;
    float bounce_factor;
    RtArray* filters;      // NODE, in order of evaluation
    RtArray* time_samples; // FLOAT
    int sss_samples;
    bool mis;
};

// Their places in the order of declaration.
enum LightParamIndex : unsigned {
    light_matrix_param,
    light_color_param,
    light_intensity_param,
    light_exposure_param,
    light_cast_shadows_param,
    light_shadow_density_param,
    light_shadow_color_param,
    light_samples_param,
    light_normalize_param,
    light_affect_diffuse_param,
    light_affect_specular_param,
    light_bounces_param,
    light_bounce_factor_param,
    light_filters_param,
    light_time_samples_param,
    light_sss_samples_param,
    light_mis_param
};

// Declares them, with offsets into LightParams.
void lightParameters(RtList* params, RtMetaDataStore* metadata);

// How the lights that reach into volumes do so.
struct LightVolumeParams {
    bool affect_volumetrics;
    bool cast_volumetric_shadows;
    RtNode* volume_density;
};

// Declares them, with offsets into LightVolumeParams added to `offset`.
void lightVolumeParameters(RtList* params, RtMetaDataStore* metadata, int offset);

// Finish of the built-in types, and a hook of the frame (RtHooks): frees the light data of a node
// if it is still there.
void finishLight(RtNode* light);

// A hook of the frame: bit 0x8 of the flags makes skydome lights build their sampling tables anew
// at their next use, bit 0x10 quad lights.
void flushLight(RtNode* light, int flags);

extern const RtNodeMethods point_light_methods, distant_light_methods, quad_light_methods,
    spot_light_methods, ambient_light_methods, skydome_light_methods;

// Light filters are shaders that a light runs on each of its samples.
extern const RtNodeMethods gobo_methods, barndoor_methods, light_blocker_methods,
    light_decay_methods;

} // namespace rv

#endif
