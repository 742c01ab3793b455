// shaders: what the built-in shaders have in common.
#include "shaders/shaders.h"

#include "color.h"
#include "nodes.h"
#include "rv_rays.h"

#include <algorithm>
#include <iterator>

namespace rv {

bool isLinked(const RtNode* node, int param)
{
    // The marker of links to components stays when the last of them is gone.
    const auto leadsToNode = [](uintptr_t slot) { return (slot & ~component_marker) != 0; };
    return node->links && std::ranges::any_of(node->links[param].slot, leadsToNode);
}

static bool isShaded(const RtShaderGlobals& sg)
{
    return !(sg.ray_type & RV_RAY_SHADOW) && !isNegligible(sg.out_opacity);
}

bool setOpacity(RtShaderGlobals* sg, const RtRGB& opacity)
{
    sg->out_opacity = opacity;
    return isShaded(*sg);
}

bool applyOpacity(RtShaderGlobals* sg, const RtRGB& opacity)
{
    return !RvShaderGlobalsApplyOpacity(sg, opacity) && isShaded(*sg);
}

} // namespace rv
