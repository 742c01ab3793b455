// The statistics records: one for each worker slot and one for the host thread. Every thread
// writes its own record only, so counting takes no lock. Subsystems add their counters here; the
// report sums the records.
#ifndef RV_COUNTERS_H
#define RV_COUNTERS_H

#include "frame.h"

struct RtStats {
    int64_t node_overhead_bytes; // node records, parameter storage, flags and link tables
};

namespace rv {

// Slot of the calling thread: workers set theirs when they start, everybody else is the host.
inline thread_local int stats_slot = host_stats_slot;

// The bytes of nodes change under the scene lock only: all threads of the host share one record,
// and link tables always count for the host.
inline RtStats* hostStats() { return the_frame->stats[host_stats_slot]; }
inline RtStats* threadStats() { return the_frame->stats[stats_slot]; }

} // namespace rv

#endif
