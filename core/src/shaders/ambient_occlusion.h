// The formula of "ambient_occlusion".
#ifndef RV_AMBIENT_OCCLUSION_H
#define RV_AMBIENT_OCCLUSION_H

namespace rv {

// Half the angle of the cone in radians: 1 is the hemisphere, and what is beyond 0 and 1 counts as
// them.
float occlusionConeAngle(float spread);

} // namespace rv

#endif
