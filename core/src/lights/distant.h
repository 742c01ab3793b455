// The local data of "distant_light".
#ifndef RV_DISTANT_H
#define RV_DISTANT_H

#include "lights/cone.h"

namespace rv {

struct DistantLightData {
    Cone cone;       // of the directions towards the light
    float cos_limit; // to surfaces that are turned away from all of the light
    float solid;     // angle of the cone, steradians
};

// For an angular diameter in degrees.
DistantLightData distantLight(const RtVector& to_light, float degrees);

} // namespace rv

#endif
