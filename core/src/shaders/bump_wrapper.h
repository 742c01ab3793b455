// What the shaders that wrap another one under a bumped normal have in common.
#ifndef RV_BUMP_WRAPPER_H
#define RV_BUMP_WRAPPER_H

#include "shaders/local_record.h"
#include "shaders/shaders.h"

namespace rv {

// The shaders linked to "bump_map" and "shader", each of which may be missing. Fixed while workers
// run.
struct BumpLinks {
    RtNode* bump_map;
    RtNode* shader;
};

// For Update.
void updateBumpLinks(RtNode* node, void* params);

// The factor of a bump's heights: its own, which that parameter gives, times that of the options.
float scaledHeight(const ShaderInputs& in, int param);

// The height that a bump map gives in a context, whose result it replaces.
float bumpMapHeight(RtNode* bump_map, RtShaderGlobals* sg);

// What a wrapper changes of a context. Kept from before the bump.
class UnbumpedContext {
public:
    explicit UnbumpedContext(RtShaderGlobals* context);
    // Turns the normals of the context to a bumped one, on the side of the normal before.
    void bump(const RtVector& bumped_normal) const;
    // Evaluates the wrapped shader and takes the bump back.
    // Required: without a wrapped shader the bump stays, for the shader that this one comes before.
    void shade(RtNode* wrapped) const;

private:
    RtShaderGlobals* const sg;
    const RtVector normal, facing_normal;
};

} // namespace rv

#endif
