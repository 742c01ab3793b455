// Private state of a shading context (RtShaderGlobals::state).
#ifndef RV_SHADING_STATE_H
#define RV_SHADING_STATE_H

#include "counters.h"
#include "rv_shaderglobals.h"

struct RtUserDataHit;
struct RtLightSample; // lights/light_loop.h
struct RtLightPoint;  // lights/light_data.h

// What multiple importance sampling needs to know of a light sample.
struct RtLightMIS {
    uint32_t sample_index; // of the light's loop
    bool active;           // the sample wants to be combined with samples of the BRDF
    RtRGB radiance;        // of the light along the sample, shadows included
    float pdf;             // of the sample by solid angle, times the number of samples
};

// The samples of all lights at a point, which every loop over them walks again.
struct RtLightLoop {
    RtLightSample* samples; // in the thread's shading pool; null before the first preparation
    int capacity;           // of samples
    int count;
    int index;           // of the sample that comes next
    RtLightMIS mis;      // of the current sample
    RtLightPoint* point; // what the current light knows of the point
    RtRGB shadow_matte;
    bool busy; // samples are being taken, which light filters may not start anew

    // What the samples were taken for; a surface that still looks the same takes them again.
    bool has_key;
    RtPoint key_point;
    RtVector key_normal, key_facing_normal;
    uint32_t key_traceset; // hash of the name, 0 without one
    bool key_traceset_inclusive;
    uint8_t key_front_hemisphere_only, key_skip_shadows;
};

// The indirect diffuse light that was found last.
struct RtIndirectDiffuseCache {
    bool valid;
    RtPoint point;
    RtVector normal, facing_geometric_normal;
    RtRGB color;
};

struct RtShadingState {
    RtUserDataHit* user_data;  // the shape's per-hit data, or null
    unsigned vertex_index;     // vertex being displaced, in the displacement stage
    int loop_samples;          // samples of the enclosing sampler loop, 0 outside of one
    int loop_index;            // the enclosing loop's current position in its point table
    RtPass pass;               // what the rays of this context are counted as
    bool uncounted;            // sampler iterators and shader calls are not counted
    float random[2];           // of the ray, the same for all its hits
    RtRGB accumulated_opacity; // of the hits in front of this one
    RtLightLoop lights;
    RtIndirectDiffuseCache indirect;
};

namespace rv {

// What every context starts from. The private state is kept.
inline void resetContext(RtShaderGlobals* sg)
{
    RtShadingState* const state = sg->state;
    *sg = {};
    sg->object_to_world = sg->world_to_object = RV_M4_IDENTITY;
    sg->out_opacity = RV_RGB_WHITE;
    sg->front_hemisphere_only = 1;
    sg->state = state;
}

// A fresh state with what a context takes over from the one that spawned its ray, which may be
// null.
inline void resetState(RtShadingState* state, const RtShaderGlobals* parent)
{
    *state = {};
    if (const RtShadingState* const from = parent ? parent->state : nullptr) {
        state->loop_samples = from->loop_samples;
        state->loop_index = from->loop_index;
        state->pass = from->pass;
    }
}

// Within the loop of another sampler, where loops take one sample so that they do not multiply.
inline bool isNested(const RtShaderGlobals* sg) { return sg->state && sg->state->loop_samples > 0; }

} // namespace rv

#endif
