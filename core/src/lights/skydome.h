// How "skydome_light" spreads the unit square over the sphere of directions, equal areas to equal
// solid angles (Shirley, Chiu, "A Low Distortion Map Between Disk and Square", 1997, for each
// half).
#ifndef RV_SKYDOME_H
#define RV_SKYDOME_H

#include "rv_math.h"

namespace rv {

// The unit direction of a place in the unit square. The centre is +z, all corners are -z.
RtVector skyDirection(float u, float v);
// The place of a unit direction.
RtPoint2 skySquare(const RtVector& dir);

} // namespace rv

#endif
