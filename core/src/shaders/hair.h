// The lobes of the "hair" shader. Directions are unit vectors; `strand` runs along the hair.
#ifndef RV_HAIR_H
#define RV_HAIR_H

#include "maths.h"

namespace rv {

// 1 across the strand; along it 1 - ambdiff.
float hairDiffuse(const RtVector& strand, const RtVector& light_dir, float ambdiff);

// 1 where the strand lies across the direction between light and viewer.
float hairSpecular(const RtVector& strand, const RtVector& light_dir, const RtVector& view,
                   float gloss);

} // namespace rv

#endif
