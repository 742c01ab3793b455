// Where the outputs of one camera sample go: the record behind RtShaderGlobals::sample_output and
// RtRay::aov_sink. The tracer says at which depth it is; shaders and tracer write through it.
#ifndef RV_SAMPLE_SINK_H
#define RV_SAMPLE_SINK_H

#include "rv_math.h"

struct RtSampleStore; // aovs/sample_store.h

struct RtSampleSink {
    RtSampleStore* store; // of the worker's bucket
    int x, y;             // pixel
    int sample_index;     // within the pixel
    int depth;            // visible hits in front of the one being shaded; 0 for the first
};

// What the tracer makes known of a camera sample at one depth.
struct RtSampleOutputs {
    RtRGB color;     // seen from there, weighted
    float alpha;     // the same
    RtRGB opacity;   // the same
    float z;         // distance of the hit; the length of the ray without one
    RtNode* object;  // null without a hit, and then there is nothing below
    RtNode* shader;  // that shaded it, or null
    RtPoint point;   // world space
    RtVector normal; // shading normal
};

#endif
