// list: singly linked lists of pointers. Declared by list.h.
#include "list.h"

#include "rv_msg.h"

RtList* RvList(RtMemPool* pool)
{
    auto* const list =
        static_cast<RtList*>(RvMalloc_func(sizeof(RtList), "core\\src\\list", __LINE__, "RvList"));
    if (!list) {
        RvMsgError("RvList: can't allocate RtList");
        return nullptr;
    }
    *list = { .count = 0, .head = nullptr, .tail = nullptr, .pool = pool };
    return list;
}

static RtListNode* allocateElement(RtMemPool* pool)
{
    void* const memory =
        pool ? RvMemPoolAlloc(sizeof(RtListNode), pool)
             : RvMalloc_func(sizeof(RtListNode), "core\\src\\list", __LINE__, "RvListAdd");
    return static_cast<RtListNode*>(memory);
}

RtListNode* RvListAdd(RtList* list, void* data)
{
    if (!list) {
        RvMsgError("RvListAdd: no list");
        return nullptr;
    }
    RtListNode* const element = allocateElement(list->pool);
    if (!element) {
        RvMsgError("RvListAdd: can't allocate RtListNode");
        return nullptr;
    }
    *element = { .data = data, .next = nullptr };
    if (list->tail)
        list->tail->next = element;
    else
        list->head = element;
    list->tail = element;
    ++list->count;
    return element;
}

void RvListDeleteAfter(RtList* list, RtListNode* previous)
{
    RtListNode*& link = previous ? previous->next : list->head;
    RtListNode* const element = link;
    link = element->next;
    if (list->tail == element)
        list->tail = previous;
    --list->count;
    if (!list->pool)
        RvFree_func(element);
}

bool RvListDelete(RtList* list, const void* data)
{
    if (!list) {
        RvMsgError("RvListDelete: no list");
        return false;
    }
    RtListNode* previous = nullptr;
    RtListNode* element = data ? list->head : nullptr;
    while (element && element->data != data) {
        previous = element;
        element = element->next;
    }
    if (element)
        RvListDeleteAfter(list, previous);
    return element != nullptr;
}

RtList* RvListCopy(RtMemPool* pool, const RtList* list)
{
    RtList* copy = RvList(pool);
    for (const RtListNode* element = RvListHead(list); copy && element; element = element->next)
        if (element->data && !RvListAdd(copy, element->data)) {
            RvListDestroy(copy);
            copy = nullptr;
        }
    if (!copy)
        RvMsgError("RvListCopy: can't create list");
    return copy;
}

bool RvListEmpty(const RtList* list) { return RvListSize(list) == 0; }

unsigned RvListSize(const RtList* list) { return list ? list->count : 0; }

RtListNode* RvListHead(const RtList* list) { return list ? list->head : nullptr; }

RtListNode* RvListTail(const RtList* list) { return list ? list->tail : nullptr; }

bool RvListMember(const RtList* list, const void* data)
{
    for (const RtListNode* element = RvListHead(list); element; element = element->next)
        if (element->data == data)
            return true;
    return false;
}

bool RvListEqual(const RtList* a, const RtList* b)
{
    if (RvListSize(a) != RvListSize(b))
        return false;
    for (const RtListNode* element = RvListHead(a); element; element = element->next)
        if (!RvListMember(b, element->data))
            return false;
    return true;
}

void RvListDestroy(RtList* list)
{
    if (!list)
        return;
    for (RtListNode* element = list->pool ? nullptr : list->head; element;) {
        RtListNode* const next = element->next;
        RvFree_func(element);
        element = next;
    }
    RvFree_func(list);
}
