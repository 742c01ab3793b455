// Parameter entries: the descriptors that a node type declares (rv_params.h).
#ifndef RV_PARAMENTRY_H
#define RV_PARAMENTRY_H

#include "list.h"
#include "rv_params.h"

struct RtParamEntry {
    uint16_t type;
    uint16_t index;                // position among the parameters of the node type
    const char* const* enum_names; // ENUM only; static data of the node type
    const char* name;              // pooled
    RtParamValue default_value;
    int offset; // bytes into the parameter block, -1 without a layout
};

struct RtParamIterator {
    const RtNodeEntry* entry;
    unsigned position;
};

namespace rv {

// Gives back what an entry holds: name, STRING, ARRAY and MATRIX defaults. The record stays.
void releaseParamEntry(RtParamEntry* entry);

// True for a non-empty name of letters, digits, '_' and the characters of `more`, that does not
// begin with a digit or '-'.
bool isValidName(const char* name, const char* more);

} // namespace rv

#endif
