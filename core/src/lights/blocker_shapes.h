// The shapes of the "light_blocker" filter, in the space where each is one unit wide.
#ifndef RV_BLOCKER_SHAPES_H
#define RV_BLOCKER_SHAPES_H

#include "maths.h"

namespace rv {

enum BlockerGeometry { blocker_box, blocker_sphere, blocker_plane, blocker_cylinder };

// As the parameters have them.
struct BlockerSettings {
    int geometry_type; // BlockerGeometry
    float roundness;
    float width_edge, height_edge;
    float ramp;
    int ramp_axis; // 0 to 2 for x to z, 3 to 5 for X to Z
};

struct Blocking {
    double outside; // 0 in the core of the shape, 1 beyond its soft edge
    double ramp;    // share of the density that is left there
};

// For light from Q that arrives at P. Only a plane looks at the way between them: the others ask
// where P is.
Blocking blockingAt(const BlockerSettings& settings, const RtPoint& P, const RtPoint& Q);

// What a blocker of that density leaves of the light.
double blockerPassing(const Blocking& at, double density);

} // namespace rv

#endif
