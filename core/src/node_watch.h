// Who must learn that a node goes away: references that wait for other nodes hold its address.
#ifndef RV_NODE_WATCH_H
#define RV_NODE_WATCH_H

#include "rv_base.h"

namespace rv {

// nodes -> dotrvs, or null. Called for every node that is about to be destroyed, without a lock.
// Written by RvBegin and RvEnd alone.
inline void (*node_retired)(const RtNode*) = nullptr;

} // namespace rv

#endif
