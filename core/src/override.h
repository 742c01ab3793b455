// The "override" node type and the override blocks of scene files.
#ifndef RV_OVERRIDE_H
#define RV_OVERRIDE_H

#include "declare.h"

struct RtRVSFile;

namespace rv {

extern const RtNodeMethods override_methods;

class SceneText;

// Whether the node keeps assignments for a node that may still come.
bool keepsOverrides(const RtNode* node);
// Writes such a node as the block that its assignments were read from.
void writeOverrides(SceneText* out, const RtNode* node);

} // namespace rv

// Reads the block of an override statement: assignments to nodes that exist are carried out, those
// to other nodes are kept until RvRVSApplyDelayedOverrides.
void RvRVSParseOverride(RtRVSFile* file);

#endif
