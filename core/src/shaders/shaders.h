// The built-in shader node types.
#ifndef RV_SHADERS_H
#define RV_SHADERS_H

#include "declare.h"
#include "rv_shaderglobals.h"

namespace rv {

extern const RtNodeMethods ray_switch_methods, image_methods, noise_methods, utility_methods,
    wireframe_methods, motion_vector_methods, flat_methods, lambert_methods, standard_methods,
    hair_methods, ambient_occlusion_methods, bump2d_methods, bump3d_methods, sky_methods,
    volume_scattering_methods, fog_methods;

} // namespace rv

#endif
