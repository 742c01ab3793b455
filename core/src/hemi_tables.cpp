// hemi_tables: filling the tables.
#include "hemi_tables.h"

#include <math.h>

void RvInitializeHemiTables()
{
    for (int i = 0; i <= rv::hemi_steps; ++i) {
        const float x = float(i) / float(rv::hemi_steps);
        const float phi = 6.283185f * x;
        rv::hemi_tables.radius[i] = { sqrtf(1 - x), sqrtf(x) };
        rv::hemi_tables.angle[i] = { cosf(phi), sinf(phi) };
    }
}
