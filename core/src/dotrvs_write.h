// The blocks of a scene file that is written. RvRVSWrite (rv_scenefile.h) walks the nodes.
#ifndef RV_DOTRVS_WRITE_H
#define RV_DOTRVS_WRITE_H

#include "dotrvs_values.h"
#include "nodes.h"

// Writes the block of a node. Shapes get the transform that is written as their "matrix".
void RvRVSWriteNode(rv::SceneText* out, RtNode* node, bool only_changed);

// Writes the declared parameters but for the name: those that were changed, or all of them. Of a
// copy those that differ from its source.
void RvRVSWriteNodeBuiltinParams(rv::SceneText* out, const RtNode* node, bool only_changed);

#endif
