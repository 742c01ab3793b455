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

// RvShaderEvaluate for a shader that counts in that row of the statistics, and which nothing that
// is being evaluated led to by a link.
void evaluateShader(RtNode* node, RtShaderGlobals* sg, RtShaderCallRow row);

// Let the problems that are reported once in a render be reported again.
void startReportingSelection();
void startReportingNesting();

// ---- Hooks of the frame (RtHooks) ----

int shadeSurface(RtShaderGlobals* sg);
int shadeBackground(RtShaderGlobals* sg);

} // namespace rv

#endif
