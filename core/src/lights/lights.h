// What the light node types share: the common parameters and the lists of lights and light filters.
#ifndef RV_LIGHTS_INTERNAL_H
#define RV_LIGHTS_INTERNAL_H

#include "declare.h"
#include "rv_lights.h"
#include "rv_shaderglobals.h"

namespace rv {

// Declares the parameters common to all lights, with offsets into LightParams.
void lightParameters(RtList* params, RtMetaDataStore* metadata);

extern const RtNodeMethods point_light_methods, distant_light_methods, quad_light_methods,
    spot_light_methods, ambient_light_methods, skydome_light_methods;

// Light filters are shaders that a light runs on each of its samples.
extern const RtNodeMethods gobo_methods, barndoor_methods, light_blocker_methods,
    light_decay_methods;

} // namespace rv

#endif
