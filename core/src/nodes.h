// Nodes: the record behind RtNode and the access to its values (rv_node.h).
#ifndef RV_NODES_H
#define RV_NODES_H

#include "links.h"
#include "nodeentry.h"
#include "rv_node.h"
#include "userdefs.h"

struct RtNode {
    RtNodeEntry* entry;
    void* params;                // the type's own record, or one RtParamValue per parameter
    const char* registered_name; // under which the scene's table holds the node; pooled, or null
    uint8_t* set_flags;          // per parameter: set explicitly
    RtLinkRecord* links;         // per parameter; null until the first link
    RtNode* before;              // "@before", or null
    void* local_data;            // of the type's methods; for shapes the RtGObject
    RtNode* source;              // node this one is a copy of, or null
    RtNode* creator;             // procedural that created this node, or null
    RtUserParamEntry* user_params;
    uint16_t own_param_count;
    uint16_t name_index;
    bool initialized;
    uint16_t user_param_count;
};

struct RtNodeIterator {
    struct RtListNode* element;
    unsigned mask;
};

namespace rv {

// Storage of a parameter value inside the node.
inline void* paramStorage(const RtNode* node, const RtParamEntry* param)
{
    char* const base = static_cast<char*>(node->params);
    return node->entry->struct_size ? base + param->offset
                                    : base + param->index * sizeof(RtParamValue);
}

// Bytes of the parameter storage of a type.
unsigned paramStorageSize(const RtNodeEntry* entry);

// Fills one parameter with its default, releasing what it held when `release` is set.
void resetParameter(RtNode* node, const RtParamEntry* param, bool release);

// Bytes of a node without its links: record, parameter storage and flags.
unsigned nodeOverhead(const RtNode* node);

// Takes the node out of the scene's name table.
void forgetName(RtNode* node);

// Releases every value of the node, then the node.
void freeNode(RtNode* node);

// Whether RvNodeCopy leaves out parameters marked "_skip_copy_on_instance".
enum class CopyMode { clone, instance };
// Copies every value except the name, and the user parameters.
void RvNodeCopy(RtNode* to, const RtNode* from, CopyMode mode);

// Runs Finish and the object teardown of an initialised node.
void uninitializeNode(RtNode* node);

} // namespace rv

#endif
