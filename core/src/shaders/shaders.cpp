// shaders: what the built-in shaders have in common.
#include "shaders/shaders.h"

#include "color.h"
#include "rv_rays.h"

namespace rv {

bool setOpacity(RtShaderGlobals* sg, const RtRGB& opacity)
{
    sg->out_opacity = opacity;
    return !(sg->ray_type & RV_RAY_SHADOW) && !isNegligible(opacity);
}

} // namespace rv
