// list: singly linked lists of pointers.
#include "list.h"

#include "rv_msg.h"

static const char* const module_path = "core\\src\\list";

RtList* RvList(RtMemPool* pool)
{
    RtList* const list =
        static_cast<RtList*>(RvMalloc_func(sizeof(RtList), module_path, __LINE__, "RvList"));
    if (!list) {
        RvMsgError("RvList: can't allocate RtList");
        return nullptr;
    }
    *list = { 0, nullptr, nullptr, pool };
    return list;
}

RtListNode* RvListAdd(RtList* list, void* data)
{
    if (!list) {
        RvMsgError("RvListAdd: no list");
        return nullptr;
    }
    RtListNode* const element = static_cast<RtListNode*>(
        list->pool ? RvMemPoolAlloc(sizeof(RtListNode), list->pool)
                   : RvMalloc_func(sizeof(RtListNode), module_path, __LINE__, "RvListAdd"));
    if (!element) {
        RvMsgError("RvListAdd: can't allocate RtListNode");
        return nullptr;
    }
    *element = { data, nullptr };
    (list->tail ? list->tail->next : list->head) = element;
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
    for (RtListNode* e = data ? list->head : nullptr; e; previous = e, e = e->next)
        if (e->data == data) {
            RvListDeleteAfter(list, previous);
            return true;
        }
    return false;
}

RtList* RvListCopy(RtMemPool* pool, const RtList* list)
{
    RtList* const copy = RvList(pool);
    if (!copy) {
        RvMsgError("RvListCopy: can't create list");
        return nullptr;
    }
    for (const RtListNode* e = RvListHead(list); e; e = e->next)
        if (e->data)
            RvListAdd(copy, e->data);
    return copy;
}

bool RvListEmpty(const RtList* list) { return RvListSize(list) == 0; }

unsigned RvListSize(const RtList* list) { return list ? list->count : 0; }

RtListNode* RvListHead(const RtList* list) { return list ? list->head : nullptr; }

RtListNode* RvListTail(const RtList* list) { return list ? list->tail : nullptr; }

bool RvListMember(const RtList* list, const void* data)
{
    for (const RtListNode* e = RvListHead(list); e; e = e->next)
        if (e->data == data)
            return true;
    return false;
}

bool RvListEqual(const RtList* a, const RtList* b)
{
    if (RvListSize(a) != RvListSize(b))
        return false;
    for (const RtListNode* e = RvListHead(a); e; e = e->next)
        if (!RvListMember(b, e->data))
            return false;
    return true;
}

void RvListDestroy(RtList* list)
{
    if (!list)
        return;
    for (RtListNode* e = list->pool ? nullptr : list->head; e;) {
        RtListNode* const next = e->next;
        RvFree_func(e);
        e = next;
    }
    RvFree_func(list);
}
