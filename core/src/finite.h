// Whether all of a vector is a number.
#ifndef RV_FINITE_H
#define RV_FINITE_H

#include "rv_math.h"

#include <math.h>

namespace rv {

inline bool isFinite(const RtVector& v) { return isfinite(v.x) && isfinite(v.y) && isfinite(v.z); }

} // namespace rv

#endif
