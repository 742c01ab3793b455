// The inside of samplers, iterators and the rotation of sample loops. Public part: rv_samplers.h.
#ifndef RV_SAMPLER_H
#define RV_SAMPLER_H

#include "rv_math.h"
#include "rv_samplers.h"

// Blocks of points, one block for each camera sample of a pixel. Read-only once made.
struct RtSampler {
    RtPoint2* points; // null makes every sample the rotation itself
    int count;        // points of a block
    float inv_count;  // 1 / count
    int total;        // points of all blocks
};

// A walk over the block of one camera sample. Lives in the shading pool of its thread.
struct RtSamplerIterator {
    const RtSampler* sampler;
    const RtPoint2* points; // the sampler's
    float rotation_u, rotation_v;
    int i;          // samples handed out so far
    int x, y;       // pixel of the context
    int index;      // of the next point
    int n;          // samples in all
    bool outermost; // not within the loop of another sampler
    const RtShaderGlobals* sg;
};

// The rotation (Cranley, Patterson: "Randomization of number theoretic methods for multiple
// integration", 1976), in [0, 1) squared, of the sample loops of a context.
RtPoint2 RvSamplerRotation(const RtShaderGlobals* sg);

#endif
