// The rotation of sample loops at first hits, where what is shaded belongs to no pixel.
#ifndef RV_POINT_ROTATION_H
#define RV_POINT_ROTATION_H

#include "sampling.h"

namespace rv {

// For the length of a scope, in which numbered points take the place of the pixel that a thread is
// at: what is shaded for them does not depend on who does it, and when.
class PointRotation {
public:
    // The seed tells one kind of points from another.
    PointRotation(int thread, uint32_t point_seed)
        : pixel(pixel_sampling[thread]), u(pixel.rotation_u), v(pixel.rotation_v), seed(point_seed)
    {
    }
    ~PointRotation()
    {
        pixel.rotation_u = u;
        pixel.rotation_v = v;
    }
    PointRotation(const PointRotation&) = delete;
    PointRotation& operator=(const PointRotation&) = delete;

    void turn(uint32_t index)
    {
        const PointHash hash{ samplingSeed(), seed };
        pixel.rotation_u = hashToUnit(hash(2 * index));
        pixel.rotation_v = hashToUnit(hash(2 * index + 1));
    }

private:
    RtPixelSampling& pixel;
    const double u, v;
    const uint32_t seed;
};

} // namespace rv

#endif
