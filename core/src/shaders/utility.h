// The colours of "utility".
#ifndef RV_UTILITY_H
#define RV_UTILITY_H

#include "nodes.h"
#include "shaders/shaders.h"

namespace rv {

// Places of the parameters in the order of declaration.
enum UtilityParam { p_color_mode, p_shade_mode, p_color, p_opacity };

// Names of the colour modes, null-terminated.
extern const char* const* const utility_color_modes;

// The colour of a mode by its index; grey for an index without a mode.
RtRGB utilityColor(int mode, const ShaderInputs& in, const RtShaderGlobals& sg);

// For an edge of that many pixels where edges of pixel_error are wanted: green where it is right,
// towards red where it is shorter and towards blue where it is longer.
RtRGB edgeLengthColor(float length, float pixel_error);

// The node that carries the shaders and the name of the point, or null.
inline const RtNode* utilityCarrier(const RtShaderGlobals& sg)
{
    return sg.shader_source ? sg.shader_source : sg.object;
}

} // namespace rv

#endif
