// User parameters: values declared on single nodes at run time (rv_userdata.h).
#ifndef RV_USERDEFS_H
#define RV_USERDEFS_H

#include "rv_params.h"
#include "rv_userdata.h"

#include <stdint.h>

struct RtUserParamEntry {
    uint32_t hash;      // string hash of the name
    int8_t category;    // RV_USERDEF_*, 0 for a disabled entry
    uint8_t type;       // RV_TYPE_*
    uint8_t array_type; // element type of an ARRAY value, RV_TYPE_NONE otherwise
    const char* name;   // pooled
    RtParamValue value; // an array for uniform, varying and ARRAY values; else the value itself
};

struct RtUserParamIterator {
    const RtNode* node;
    unsigned position;
};

// What a shape prepares at a hit, so that user data can be read there. The shape embeds this as
// the first member of its own record.
struct RtUserDataHit {
    // Writes the value interpolated at the hit; false when there is no such data.
    bool (*read)(const RtUserDataHit* hit, const RtUserParamEntry* param, int type, void* out);
    const RtNode* node; // whose user parameters it answers for
};

namespace rv {

struct UserDeclaration {
    int category;
    int type;
    int array_type;
};
// Parses "constant ARRAY FLOAT" and the like; false after an error.
bool UserDefParseDeclaration(const char* name, const char* declaration, UserDeclaration* out);

// The value of this parameter is an RtArray.
inline bool holdsArray(const RtUserParamEntry& entry)
{
    return entry.type == RV_TYPE_ARRAY || entry.category == RV_USERDEF_UNIFORM ||
           entry.category == RV_USERDEF_VARYING;
}

// Element type of the array that such a parameter holds; the type of the value otherwise.
int userElementType(const RtUserParamEntry& entry);

// The entry in the node's own table or, with sources, along its chain of sources.
RtUserParamEntry* findUserParam(const RtNode* node, const char* name, bool with_sources);

// Releases the value and the name; lookups no longer find the entry.
void disableUserParam(RtUserParamEntry* entry);

// Copies the table of one node to another that has none; false when the heap is exhausted.
bool copyUserParams(RtNode* to, const RtNode* from);
void releaseUserParams(RtNode* node);

} // namespace rv

#endif
