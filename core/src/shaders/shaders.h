// The built-in shader node types, and how they read their inputs.
#ifndef RV_SHADERS_H
#define RV_SHADERS_H

#include "declare.h"
#include "rv_shaderglobals.h"

namespace rv {

// The inputs of one evaluation, by their place in the order of declaration; each may be linked to
// another shader.
class ShaderInputs {
public:
    ShaderInputs(const RtNode* shader, RtShaderGlobals* context) : node(shader), sg(context) {}
    float flt(int param) const { return RvShaderEvalParamFuncFlt(sg, node, param); }
    RtRGB rgb(int param) const { return RvShaderEvalParamFuncRGB(sg, node, param); }
    RtRGBA rgba(int param) const { return RvShaderEvalParamFuncRGBA(sg, node, param); }
    RtVector vec(int param) const { return RvShaderEvalParamFuncVec(sg, node, param); }
    RtPoint2 pnt2(int param) const { return RvShaderEvalParamFuncPnt2(sg, node, param); }
    int integer(int param) const { return RvShaderEvalParamFuncInt(sg, node, param); }
    bool flag(int param) const { return RvShaderEvalParamFuncBool(sg, node, param); }
    int choice(int param) const { return RvShaderEvalParamFuncEnum(sg, node, param); }
    const char* text(int param) const { return RvShaderEvalParamFuncStr(sg, node, param); }

private:
    const RtNode* node;
    RtShaderGlobals* sg;
};

// Whether the parameter at that place or one of its components is driven by another node.
bool isLinked(const RtNode* node, int param);

// Sets the opacity of the point. False when that is all there is to do: for shadow rays, which ask
// for nothing else, and where there is nothing to see.
bool setOpacity(RtShaderGlobals* sg, const RtRGB& opacity);

// The same for surfaces that chance may let a ray pass altogether.
bool applyOpacity(RtShaderGlobals* sg, const RtRGB& opacity);

extern const RtNodeMethods ray_switch_methods, image_methods, noise_methods, utility_methods,
    wireframe_methods, motion_vector_methods, flat_methods, lambert_methods, standard_methods,
    hair_methods, ambient_occlusion_methods, bump2d_methods, bump3d_methods, sky_methods,
    volume_scattering_methods, fog_methods;

} // namespace rv

#endif
