// Private state of a shading context (RtShaderGlobals::state).
#ifndef RV_SHADING_STATE_H
#define RV_SHADING_STATE_H

#include "counters.h"
#include "rv_shaderglobals.h"

struct RtUserDataHit;

// What the contexts of one camera sample share.
struct RtSampleContext {
    int loop_samples; // samples of the enclosing sampler loop, 0 outside of one
    int loop_index;   // the enclosing loop's current position in its point table
};

struct RtShadingState {
    RtUserDataHit* user_data; // the shape's per-hit data, or null
    unsigned vertex_index;    // vertex being displaced, in the displacement stage
    RtSampleContext* sample;  // of the camera sample, or null outside of one
    RtPass pass;              // what the rays of this context are counted as
    bool uncounted;           // sampler iterators and shader calls are not counted
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

} // namespace rv

#endif
