// Links between nodes (declared in rv_node.h): one record per parameter.
#ifndef RV_LINKS_H
#define RV_LINKS_H

#include "rv_node.h"

#include <stdint.h>

// Whole link: slot 0 is the source, bit 0 clear. Component links: bit 0 of slot 0 is the marker
// and slot k the source of component k, or null.
struct RtLinkRecord {
    uintptr_t slot[4];
};

namespace rv {

inline constexpr uintptr_t component_marker = 1;

// A parameter name with its optional component suffix, resolved on a node type.
struct LinkTarget {
    const RtParamEntry* param; // null when not recognised
    int component;             // -1 for the whole parameter
};
LinkTarget resolveLinkTarget(const RtNodeEntry* entry, const char* name);

// Drops every parameter link of a node; "@before" stays.
void clearLinks(RtNode* node);
void freeLinks(RtNode* node);

// True when an output of type `source` may drive an input of type `target`.
bool linkTypesCompatible(int source, int target);

} // namespace rv

#endif
