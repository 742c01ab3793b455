// What waits for nodes that scene files name before they exist: references and overrides.
#ifndef RV_DOTRVS_REFERENCES_H
#define RV_DOTRVS_REFERENCES_H

#include "frame.h"
#include "list.h"
#include "nodes.h"
#include "rv_threads.h"
#include "shash.h"
#include "system/memory.h"

#include <functional>
#include <unordered_map>

// A parameter, or an element of an array parameter, that refers to a node by name.
struct RtRVSFwdRef {
    RtNode* node;
    const char* param;  // as written; pooled
    const char* target; // pooled
    int line;           // of the scene file, from 0
    bool is_element;    // of an array; the next four describe it
    uint32_t index;     // over all keys
    uint32_t count;
    uint32_t keys;
    const void* data; // its storage when the reference was made; compared, never read
    bool is_link;     // becomes a link, not a value
};

// How many references of each node wait; nodes without any are left out.
using RtReferenceCounts =
    std::unordered_map<const RtNode*, unsigned, std::hash<const RtNode*>, std::equal_to<>,
                       rv::CheckedAllocator<std::pair<const RtNode* const, unsigned>>>;

struct RtSceneFiles {
    RtCritSec lock;            // guards all but overrides
    RtList* references;        // RtRVSFwdRef, in order of reading
    RtReferenceCounts waiting; // of these, so that most nodes can go without a look at the list
    RtList* old_missing_types; // RtArrays that render threads may still read
    RtSimpleHash* overrides;   // node name to "override" node; its own lock guards those nodes too
};

// A record for that line of the scene file; null after an error.
RtRVSFwdRef* RvRVSFwdRef(RtNode* node, const char* param, const char* target, bool is_link,
                         bool is_element, unsigned index, unsigned count, unsigned keys,
                         const void* data);

// Gives their nodes to the references whose targets exist by now; the others go on waiting.
void RvRVSResolveForwardRefs();

namespace rv {

// Whether there are references that a file which is read next may resolve.
bool hasWaitingReferences();

// Makes or frees the record of the frame.
bool createSceneFiles(RtFrame* frame);
void destroySceneFiles(RtFrame* frame);

// Lets a reference wait for its target; takes it over. Null is ignored.
void addReference(RtRVSFwdRef* reference);
void freeReference(RtRVSFwdRef* reference);

// Whether a word stands for no node. Required: it does so even where a node has that name.
bool isNullName(const char* name);

// Adds a node type to the scene's list of missing types.
void addMissingType(RtScene* scene, const char* type_name);

} // namespace rv

#endif
