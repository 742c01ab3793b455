// Sample tables of lights. Lights that ask for the same points share one table, so that the tables
// of a scene with many lights take the memory of a few.
#ifndef RV_LIGHT_TABLES_H
#define RV_LIGHT_TABLES_H

#include "sampling.h"

namespace rv {

// What decides about the points of a table.
struct LightTableKey {
    int seed;         // of the pattern; the shuffle has the next one
    int side;         // square root of the points of a block
    int pixel_side;   // square root of the blocks, which are shuffled; 0 for a single block that is
                      // not
    int pattern;      // RtSamplingPattern
    uint32_t aa_seed; // "AA_seed"

    bool operator==(const LightTableKey&) const = default;
};

// The table, which must be released as often as it was acquired; null after a reported failure.
const RtSampleTable* acquireLightTable(const LightTableKey& key);

// Null is ignored.
void releaseLightTable(const RtSampleTable* table);

// For tests: tables that are in use.
int lightTableCount();

} // namespace rv

#endif
