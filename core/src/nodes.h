// Nodes: the record behind RtNode and the access to its values (rv_node.h).
#ifndef RV_NODES_H
#define RV_NODES_H

#include "links.h"
#include "maths.h"
#include "nodeentry.h"
#include "rv_node.h"
#include "userdefs.h"

// Aligned like heap memory, because the parameters follow it in the same block.
struct alignas(16) RtNode {
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
    struct RtListNode* list_previous; // the element before this node's in the scene's list, or null
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

// Values travel as RtParamValue: inline, except that a matrix is reached through pMTX. Storage may
// lie at any offset that a plug-in chose, so it is copied and never dereferenced.
inline RtParamValue load(const void* storage, int type)
{
    RtParamValue value = {};
    memcpy(static_cast<void*>(&value), storage, typeSize(type));
    return value;
}

inline void store(void* storage, int type, const RtParamValue& value)
{
    memcpy(storage, static_cast<const void*>(&value), typeSize(type));
}

inline RtArray* loadArray(const RtNode* node, const RtParamEntry* param)
{
    return load(paramStorage(node, param), RV_TYPE_ARRAY).ARRAY;
}

inline const char* loadString(const RtNode* node, const RtParamEntry* param)
{
    return load(paramStorage(node, param), RV_TYPE_STRING).STR;
}

// Where the 64 bytes of a matrix parameter are: in the record, or in a heap block of the node's
// when the type has no layout. Null when that block could not be allocated.
inline void* matrixBytes(const RtNode* node, const RtParamEntry* param)
{
    void* const storage = paramStorage(node, param);
    return node->entry->struct_size ? storage : load(storage, RV_TYPE_POINTER).PTR;
}

inline const RtParamEntry* nameParam(const RtNode* node)
{
    return &node->entry->params[node->name_index];
}

// Bytes of the parameter storage of a type.
unsigned paramStorageSize(const RtNodeEntry* entry);

// Fills one parameter with its default, releasing what it held when `release` is set.
void resetParameter(RtNode* node, const RtParamEntry* param, bool release);

// Bytes of a node without its links: record, parameter storage and flags.
unsigned nodeOverhead(const RtNode* node);

// True when the node may take this name; otherwise the reason is logged.
bool mayRename(RtNode* node, const char* name);

// Enters the node into the scene's name table under its present name, in place of an older one.
void registerName(RtNode* node, const RtParamEntry* param);

// Takes the node out of the scene's name table.
void forgetName(RtNode* node);

// Releases every value of the node, then the node.
void freeNode(RtNode* node);

// Copies the value of one parameter to another of the same type.
void copyParameter(RtNode* to, const RtParamEntry* target, const RtNode* from,
                   const RtParamEntry* source);

// Whether RvNodeCopy leaves out parameters marked "_skip_copy_on_instance".
enum class CopyMode { clone, instance };
// Copies every value except the name, and the user parameters.
void RvNodeCopy(RtNode* to, const RtNode* from, CopyMode mode);

// Runs Initialize unless the node is initialised or just being so, which ends rings of nodes that
// initialise each other. Null is ignored.
void RvNodeInitialize(RtNode* node);

// Runs Finish and the object teardown of an initialised node.
void uninitializeNode(RtNode* node);

} // namespace rv

#endif
