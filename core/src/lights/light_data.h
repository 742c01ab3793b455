// The local data of light nodes, what a light knows of a point while it lights it, and what the
// light types call of each other's common parts.
#ifndef RV_LIGHT_DATA_H
#define RV_LIGHT_DATA_H

#include "color.h"
#include "lights/lights.h"
#include "nodes.h"
#include "rv_memory.h"
#include "sampling.h"
#include "shading_state.h"

#include <math.h>

struct RtLightMap; // lights/light_map.h

// Codes of the light types.
enum RtLightType : uint8_t {
    RV_LIGHT_DISTANT = 0,
    RV_LIGHT_POINT = 1,
    RV_LIGHT_SPOT = 2,
    RV_LIGHT_QUAD = 3,
    RV_LIGHT_SKYDOME = 5,
    RV_LIGHT_AMBIENT = 6
};

// Made by RvLightInitialize, changed by RvLightUpdate; fixed while workers run.
struct RtLightData {
    RtNode* node; // stays first: shadow rays point at the record to name their light
    uint8_t light_type;
    void* type_data;      // of the light type, or null
    float decay_exponent; // 0 constant to 3 cubic, from a "light_decay" filter
    float intensity;      // exposure included
    bool enabled;
    bool sampled; // takes "samples" squared samples per point instead of one
    bool shadow_colored;
    RtRGB shadow_color;
    bool volumetric_shadows; // casts shadows in volumes; set by the type after the update

    // Points of the loops over this light, shared with other lights; null without memory.
    const RtSampleTable* pixel_table; // one block for each camera sample
    const RtSampleTable* sss_table;   // one block for all
    const RtSampleTable* cache_table; // one block for all
    const RtSampleTable* mis_table;   // of the BRDF; one block for each camera sample

    uint8_t samples;     // square root of the samples per point; below 2 there is one
    uint8_t sss_samples; // the same in the sub-surface pass
    bool affect_diffuse;
    bool affect_specular;
    bool affect_volumetrics;
    RtNode* volume_density; // shader, or null; set by the type
    bool mis;
    int bounces; // deepest diffuse depth that is lit
    bool direct; // lights points that the camera or mirrors see, too
    bool cast_shadows;
    RtRGB color;     // linear
    float cutoff_sq; // squared distance beyond which the light is too weak to count
    const RtLightMethods* methods;

    float shadow_density;
    float bounce_factor;
    bool normalize;
    void (*destroy_type_data)(void*); // null when the type keeps none or frees it itself
    unsigned point_size;              // bytes of the type's RtLightPoint
    RtLightMap* map;                  // part of the type's data, or null

    // What the latest information line said.
    bool is_reported, reported_enabled, reported_shadows;
    int reported_samples;
};

// What a light knows of one point while it lights it; lives in the shading pool of the thread.
// Types derive theirs from it.
struct RtLightPoint {
    const RtLightData* light;
    bool casts_shadows;
    const RtPoint2* points; // of the sample table, or null
    int point_count;
    RtPoint2 rotation;
    RtPoint2 sample; // the current one, in [0, 1) squared
};

namespace rv {

inline bool isLight(const RtNode* node) { return node && node->entry->type == RV_NODE_LIGHT; }

// Null for anything but a light between its Initialize and Finish.
inline RtLightData* lightData(const RtNode* node)
{
    return isLight(node) ? static_cast<RtLightData*>(node->local_data) : nullptr;
}

template <class T> T* lightTypeData(const RtNode* light)
{
    const RtLightData* const data = lightData(light);
    return data ? static_cast<T*>(data->type_data) : nullptr;
}

inline const RtParamEntry& lightParamEntry(const RtNode* light, LightParamIndex index)
{
    return light->entry->params[light->entry->own_param_count + index];
}

// The value of a common parameter, wherever the type of the light keeps it.
template <class T> T lightParam(const RtNode* light, LightParamIndex index)
{
    T value;
    memcpy(&value, paramStorage(light, &lightParamEntry(light, index)), sizeof value);
    return value;
}

// Light filters in order of evaluation, or null when there are none.
inline const RtArray* lightFilters(const RtNode* light)
{
    const RtArray* const filters = lightParam<RtArray*>(light, light_filters_param);
    return filters && filters->nelements ? filters : nullptr;
}

// ---- For the methods of light types ----

// Initialize of a built-in type, whose data starts out zeroed and is freed with the light. False
// when the heap is exhausted or the light is initialised already.
struct LightTypeSizes {
    unsigned type_data, point;
};
bool initializeLight(RtNode* light, RtLightType type, const LightTypeSizes& sizes, const char* file,
                     void (*destroy_type_data)(void*) = RvFree_func);

// How the light reaches into volumes; after RvLightUpdate.
void setVolume(RtNode* light, const LightVolumeParams& volume);
// Volumes are lit at all.
inline bool reachesVolumes(const RtNode* light)
{
    const RtLightData* const data = lightData(light);
    return data && data->affect_volumetrics && data->enabled;
}

// An exponent that falloff can have: 0, after a warning, for negative ones.
float usableDecay(const RtNode* light, float exponent);

// The direction towards a light that shines along `direction` in its own space.
RtVector directionToLight(const RtNode* light, const RtVector& direction);

// Culls the light at this point.
inline void refuseSamples(RtShaderGlobals* sg) { sg->light_sample_count = 0; }

} // namespace rv

#endif
