// Rays: how they are made and counted (rv_rays.h).
#ifndef RV_RAYS_INTERNAL_H
#define RV_RAYS_INTERNAL_H

#include "counters.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"
#include "shading_state.h"

// Stages of a shading context (RtShaderGlobals::stage).
enum RtShadingStage : uint8_t {
    RV_STAGE_SURFACE,
    RV_STAGE_VOLUME,
    RV_STAGE_BACKGROUND,
    RV_STAGE_DISPLACEMENT
};

namespace rv {

// Render threads have numbers below the number of slots; others, which only a host can make, share
// the last one.
inline int threadOf(const RtRay& ray)
{
    return ray.tid < worker_slot_count ? ray.tid : worker_slot_count - 1;
}

// The least distance of a ray from `origin`: at least the difference between the distance of the
// origin from the centre of the world and the float `ulps` above it.
double guardedMindist(const RtPoint& origin, double mindist, int ulps);

// Bit i: the ray counts in row i of the statistics.
unsigned rayRows(unsigned type, bool from_volume);

// True for the rays of a camera sample whose hits it shows: those of the camera and, where rays do
// not pass through surfaces by themselves, chains of refractions from there.
bool writesOutputs(const RtRay& ray);

// Two numbers in [0, 1) that all hits of the ray share.
void randomNumbers(const RtRay& ray, float numbers[2]);

void countRay(const RtRay& ray);
void countHits(const RtRay& ray, uint32_t hits);

} // namespace rv

#endif
