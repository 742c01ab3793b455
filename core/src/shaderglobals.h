// Shading contexts and the evaluation of shaders on them (rv_shaderglobals.h).
#ifndef RV_SHADERGLOBALS_INTERNAL_H
#define RV_SHADERGLOBALS_INTERNAL_H

#include "counters.h"
#include "rv_shaderglobals.h"

// The shader of a hit by the rules for instances, sources of shaders and faces; of an object that
// has none, the default one.
RtNode* RvShaderSelect(const RtShaderGlobals* sg);

namespace rv {

// ---- Evaluation ----

// The row that the shader of a point counts in.
RtShaderCallRow callRow(const RtShaderGlobals* sg);

// RvShaderEvaluate for a shader that counts in that row of the statistics. Unlike there, it may be
// one that is being evaluated already, at another point; but not a light filter, which belongs to
// the point that is being lit.
void evaluateShader(RtNode* node, RtShaderGlobals* sg, RtShaderCallRow row);

// Let the problems that are reported once in a render be reported again.
void startReportingSelection();
void startReportingNesting();

// ---- Hooks of the frame (RtHooks) ----

int shadeSurface(RtShaderGlobals* sg);
int shadeBackground(RtShaderGlobals* sg);

// Replaces the colour of the sample by that colour seen through the atmosphere, along the ray from
// its origin over the distance sample->z. The atmosphere's shader finds the arriving colour in
// out.RGB of a volume context of that segment and leaves what becomes of it in out. For shadow rays
// the colour is that of the light, and nothing happens unless both the light and the messages of
// the spawning shader allow shadows of volumes.
void applyAtmosphere(const RtRay* ray, RtScrSample* sample);

} // namespace rv

#endif
