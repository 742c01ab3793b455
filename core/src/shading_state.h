// Private state of a shading context (RtShaderGlobals::state).
#ifndef RV_SHADING_STATE_H
#define RV_SHADING_STATE_H

#include "rv_shaderglobals.h"

struct RtUserDataHit;

struct RtShadingState {
    RtUserDataHit* user_data; // the shape's per-hit data, or null
    unsigned vertex_index;    // vertex being displaced, in the displacement stage
};

#endif
