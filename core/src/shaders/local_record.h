// The private record that a shader node keeps from Initialize to Finish.
#ifndef RV_LOCAL_RECORD_H
#define RV_LOCAL_RECORD_H

#include "nodes.h"
#include "rv_memory.h"

#include <new>

namespace rv {

// For Initialize: a record with default contents. Without memory the node stays without one.
template <class Record> void createRecord(RtNode* node, const char* module_path, int line)
{
    if (node->local_data)
        return;
    if (void* const memory = RvMalloc_func(sizeof(Record), module_path, line, "Initialize"))
        node->local_data = new (memory) Record();
}

// The record, or null.
template <class Record> Record* record(const RtNode* node)
{
    return static_cast<Record*>(node->local_data);
}

// For Evaluate: the contents of the record, or default contents without one.
template <class Record> const Record& recordOrDefault(const RtNode* node)
{
    static constexpr Record contents = {};
    return node->local_data ? *record<Record>(node) : contents;
}

// For Finish.
inline void freeRecord(RtNode* node)
{
    RvFree_func(node->local_data);
    node->local_data = nullptr;
}

} // namespace rv

#endif
