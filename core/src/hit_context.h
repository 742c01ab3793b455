// From a hit to a shading context.
#ifndef RV_HIT_CONTEXT_H
#define RV_HIT_CONTEXT_H

#include "accels/accel.h"
#include "rv_rays.h"
#include "shading_state.h"

namespace rv {

// Everything that a context takes over from the ray that reached it.
void fillFromRay(RtShaderGlobals* sg, const RtRay& ray);

// A context for a hit of the ray, after transparency_index transparent ones. What shaders of the
// point may read of the shape's user data lives in the pool of the thread.
void fillHitContext(RtShaderGlobals* sg, const RtRay& ray, const RtHit& hit,
                    uint32_t transparency_index);

} // namespace rv

#endif
