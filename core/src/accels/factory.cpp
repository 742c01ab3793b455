// factory: what is counted and said about a new structure.
#include "accels/bvh4.h"

namespace rv {

void reportAccel(const RtAccel& accel, uint32_t elapsed_ms, uint32_t primitives, uint32_t keys,
                 RtAccelRow row, int thread)
{
    RtStats& stats = *the_frame->stats[thread];
    ++stats.accels[row];
    stats.accel_ms += elapsed_ms;
    stats.accel_bytes += int64_t(accel.memory());
    if (primitives > 1)
        RvMsgDebug("[accel] %s done - %s - %d prims, %d key%s", accel.name(),
                   RvDurationString(elapsed_ms), primitives, keys, keys > 1 ? "s" : "");
}

} // namespace rv
