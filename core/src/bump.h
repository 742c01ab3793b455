// Contexts beside a shading point, in which heights are taken.
#ifndef RV_BUMP_H
#define RV_BUMP_H

#include "shading_state.h"

namespace rv {

// A copy of a context with a private state of its own. What is evaluated in it leaves no trace in
// the original.
struct ContextCopy {
    explicit ContextCopy(const RtShaderGlobals& original);
    ContextCopy(const ContextCopy&) = delete;
    ContextCopy& operator=(const ContextCopy&) = delete;

    RtShaderGlobals sg;

private:
    RtShadingState state;
};

} // namespace rv

#endif
