// Object lists: the data of "list_aggregate" nodes and of expanded procedurals.
#ifndef RV_LISTOBJ_H
#define RV_LISTOBJ_H

#include "objects/gobject.h"

// Objects that are traced as one. A child whose node is destroyed stays as an invisible object with
// an empty box until the list is next updated.
struct RtAggrList {
    uint32_t count;
    uint32_t capacity; // of the child array
    RtGObject** children;
    uint32_t nkeys; // motion keys at which children are bounded; 1: over their whole motion
    uint32_t depth; // lists inside each other, this one included
    // The children, lost ones too, that hold others themselves. In an order of its own and never
    // changed, so that it may be read while the structure permutes the children.
    RtGObject** containers;
    uint32_t container_count;
    uint64_t revisions; // sum of those of the children when the list was last up to date

    // Puts the children into an order of the structure's: child i becomes the one at order[i].
    void permutePrimitives(const uint32_t* order);
};

namespace rv {

// The objects of the nodes, initialised where they are not yet; null nodes and shapes that got no
// object are left out. Null when the heap is exhausted. `owner` is named in messages.
RtAggrList* createAggrList(const RtNode* owner, const RtList* nodes);
// Counts a list in the statistics, as one of lists or of procedurals.
void countAggrList(const RtAggrList& list, RtGeometryRow row);
// Of a list that was counted there.
void destroyAggrList(RtAggrList* list, RtGeometryRow row);

// For Update methods. The first brings the children up to date: true when one has changed or is
// gone. The second finds the motion keys anew.
bool updateChildren(RtAggrList* list);
void optimizeMotion(RtAggrList* list);

// Bounds of a child in the space of the list at one of the list's keys. Boxes interpolated between
// keys bound the child in between. Empty for children without extent.
RtBBox childBounds(const RtAggrList& list, uint32_t child, uint32_t key);
// Of all children over the whole motion.
RtBBox listBounds(const RtAggrList& list);

// Removes the children whose nodes are gone; true when there were any. Positions change: the
// structure over the list must not be used any more.
bool dropLostChildren(RtAggrList* list);

// The structure of an object that holds the children of a list; those that are gone leave first.
RtAccel* createChildAccel(const RtGObject* object, RtAggrList* list, int thread);

// The structure over the children of a list (accels/).
RtAccel* createListAccel(RtAggrList* list, bool force_list, int thread);

} // namespace rv

#endif
