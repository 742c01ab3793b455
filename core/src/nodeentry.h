// Node types: the record behind RtNodeEntry (rv_nodeentry.h).
#ifndef RV_NODEENTRY_INTERNAL_H
#define RV_NODEENTRY_INTERNAL_H

#include "metadata.h"
#include "paramentry.h"
#include "rv_nodeentry.h"
#include "shash.h"

#include <atomic>

struct RtNodeEntry {
    static constexpr unsigned recent_size = 16; // a power of two

    int16_t type;         // RV_NODE_*
    uint16_t output_type; // RV_TYPE_*, NONE for everything but shaders
    unsigned num_params;
    RtParamEntry* params; // contiguous, in order of declaration
    const RtCommonMethods* methods;
    const void* kind_methods;
    RtMetaDataStore* metadata; // of the type and of its parameters
    RtSimpleHash* param_hash;  // from name to entry; null up to 10 parameters
    char name[33];
    char filename[1024]; // "" for a built-in type
    char version[33];
    uint16_t own_param_count; // declared by the type's own Parameters method
    uint16_t kind_param_end;  // one past the last kind-common parameter: the index of "name"
    unsigned count;           // nodes of this type in the scene; under the scene lock
    int struct_size;          // bytes of the parameter block, 0 without a layout
    int base_offset;          // added to the offsets of the kind-common parameters
    int block_size;           // struct_size, and the places of parameters that did not fit

    // Parameters found lately, by the address of the text that named them. Only a hint: any thread
    // may overwrite it, and whoever uses it compares the names.
    mutable std::atomic<const RtParamEntry*> recent[recent_size];
};

namespace rv {

// How a name was found.
struct EntryMatch {
    RtNodeEntry* entry;
    bool by_synonym;
};
EntryMatch findNodeEntry(const char* name);

struct ParamMatch {
    const RtParamEntry* param;
    bool by_synonym;
};
ParamMatch findParameter(const RtNodeEntry* entry, const char* name);

// Where a parameter found under this text is remembered. Programs name parameters with literals,
// so the address tells them apart faster than a hash of the characters.
inline std::atomic<const RtParamEntry*>& recentSlot(const RtNodeEntry* entry, const char* name)
{
    const uintptr_t address = reinterpret_cast<uintptr_t>(name);
    return entry->recent[(address ^ address >> 4) & (RtNodeEntry::recent_size - 1)];
}

// The parameter of that name if it was found lately, or null. A name must be given.
inline const RtParamEntry* recentParameter(const RtNodeEntry* entry, const char* name)
{
    const RtParamEntry* const param = recentSlot(entry, name).load(std::memory_order_relaxed);
    return param && !strcmp(param->name, name) ? param : nullptr;
}

// Frees a node type that no node uses any more, and everything it holds.
void destroyNodeEntry(RtNodeEntry* entry);

} // namespace rv

#endif
