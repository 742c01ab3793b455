// Singly linked lists of pointers, the small ordered collections of the library.
#ifndef RV_LIST_H
#define RV_LIST_H

#include "rv_base.h"
#include "system/memory.h"

struct RtListNode {
    void* data;
    RtListNode* next;
};

struct RtList {
    unsigned count;
    RtListNode* head;
    RtListNode* tail;
    RtMemPool* pool; // source of the elements, null for the heap
};

RtList* RvList(RtMemPool* pool);
// Appends; returns the element, or null after an error.
RtListNode* RvListAdd(RtList* list, void* data);
// Removes the first element that holds data.
bool RvListDelete(RtList* list, const void* data);
// Removes the element that follows `previous`, or the first one for null. It must exist.
void RvListDeleteAfter(RtList* list, RtListNode* previous);
// Same data in the same order, null data left out.
RtList* RvListCopy(RtMemPool* pool, const RtList* list);
bool RvListEmpty(const RtList* list);
unsigned RvListSize(const RtList* list);
RtListNode* RvListHead(const RtList* list);
RtListNode* RvListTail(const RtList* list);
bool RvListMember(const RtList* list, const void* data);
// Required: equal as sets of pointers with equal sizes; order and repetition are ignored.
bool RvListEqual(const RtList* a, const RtList* b);
void RvListDestroy(RtList* list);

#endif
