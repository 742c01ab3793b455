// Tables for sampling directions around an axis without trigonometric functions. Directions are
// quantised to 5000 steps: speed matters more there than continuity.
#ifndef RV_HEMI_TABLES_H
#define RV_HEMI_TABLES_H

#include <stdint.h>

namespace rv {

inline constexpr int hemi_steps = 5000;

struct CosSin {
    float cos, sin;
};

struct HemiTables {
    CosSin radius[hemi_steps + 1]; // (sqrt(1 - x), sqrt(x)) for x = i / hemi_steps
    CosSin angle[hemi_steps + 1];  // (cos, sin) of 2 pi x
};

// Filled by RvInitializeHemiTables when a universe opens; read-only from then on.
inline HemiTables hemi_tables;

// Entry for a number in [0, 1].
inline uint16_t hemiStep(float x) { return static_cast<uint16_t>(x * float(hemi_steps)); }
// Elevation of a cosine-weighted direction.
inline const CosSin& hemiRadius(float u) { return hemi_tables.radius[hemiStep(u)]; }
// Azimuth.
inline const CosSin& hemiAngle(float v) { return hemi_tables.angle[hemiStep(v)]; }

} // namespace rv

void RvInitializeHemiTables();

#endif
