// dotrvs_references: references to nodes that do not exist yet, and the record of everything that
// scene files leave waiting.
#include "dotrvs_references.h"

#include "array.h"
#include "dotrvs.h"
#include "dotrvs_parse.h"
#include "msg.h"
#include "node_watch.h"
#include "options.h"
#include "scene.h"
#include "strpool.h"
#include "system/critical_section.h"

#include <new>

static const char* const module_path = "core\\src\\dotrvs";

namespace rv {

// ---- The record of the universe ----

static RtSceneFiles* sceneFiles() { return the_frame ? the_frame->scene_files : nullptr; }

static bool appendReference(RtSceneFiles* files, RtRVSFwdRef* reference)
{
    try {
        unsigned& count = files->waiting[reference->node];
        if (RvListAdd(files->references, reference)) {
            ++count;
            return true;
        }
        if (count == 0)
            files->waiting.erase(reference->node);
    } catch (const std::bad_alloc&) { // reported by the allocator
    }
    return false;
}

// Removes and frees the reference that follows `previous`, or the first one for null.
static void removeReference(RtSceneFiles* files, RtListNode* previous)
{
    RtListNode* const element = previous ? previous->next : RvListHead(files->references);
    auto* const reference = static_cast<RtRVSFwdRef*>(element->data);
    if (const auto count = files->waiting.find(reference->node); --count->second == 0)
        files->waiting.erase(count);
    RvListDeleteAfter(files->references, previous);
    freeReference(reference);
}

static void forgetReferences(RtSceneFiles* files, const RtNode* node)
{
    const CritSecLock guard(&files->lock);
    const auto count = files->waiting.find(node);
    unsigned left = count == files->waiting.end() ? 0 : count->second;
    RtListNode* previous = nullptr;
    for (RtListNode* element = RvListHead(files->references); left > 0;) {
        RtListNode* const next = element->next;
        if (static_cast<const RtRVSFwdRef*>(element->data)->node == node) {
            removeReference(files, previous);
            --left;
        } else {
            previous = element;
        }
        element = next;
    }
}

static void forgetOverrides(RtSimpleHash* overrides, const RtNode* node)
{
    const CritSecLock guard(&overrides->lock);
    for (unsigned i = 0; i < overrides->capacity; ++i)
        if (overrides->slots[i].key && overrides->slots[i].value == node)
            simpleHash_remove(overrides, overrides->slots[i].key);
}

static void forgetNode(const RtNode* node)
{
    RtSceneFiles* const files = sceneFiles();
    if (!files)
        return;
    forgetReferences(files, node);
    if (node->entry->type == RV_NODE_OVERRIDE)
        forgetOverrides(files->overrides, node);
}

bool createSceneFiles(RtFrame* frame)
{
    void* const memory = RvMalloc_func(sizeof(RtSceneFiles), module_path, __LINE__, "RvBegin");
    if (!memory)
        return false;
    auto* const files = new (memory) RtSceneFiles{};
    frame->scene_files = files;
    include_depth = 0;
    node_retired = forgetNode;
    files->references = RvList(nullptr);
    files->old_missing_types = RvList(nullptr);
    files->overrides = simpleHash_new();
    RvCritSecInit(&files->lock);
    if (!files->references || !files->old_missing_types || !files->overrides || !files->lock.handle)
        return false;
    files->overrides->intern_keys = true;
    return true;
}

template <class Data> static void destroyList(RtList* list, void (*destroy)(Data*))
{
    for (RtListNode* element = list ? RvListHead(list) : nullptr; element; element = element->next)
        destroy(static_cast<Data*>(element->data));
    if (list)
        RvListDestroy(list);
}

void destroySceneFiles(RtFrame* frame)
{
    RtSceneFiles* const files = frame->scene_files;
    if (!files)
        return;
    frame->scene_files = nullptr;
    node_retired = nullptr;
    destroyList(files->references, freeReference);
    destroyList(files->old_missing_types, RvArrayDestroy);
    simpleHash_destroy(files->overrides);
    RvCritSecClose(&files->lock);
    files->~RtSceneFiles();
    RvFree_func(files);
}

// ---- Missing types ----

// A list one longer. Its strings are those of the old one, which keeps its own references to them
// when it stays in use.
static RtArray* extendedList(RtArray* old, const char* text, bool stays_in_use)
{
    const unsigned count = old && old->type == RV_TYPE_STRING ? totalElements(old) : 0;
    RtArray* const list = RvArrayAllocate(count + 1, 1, RV_TYPE_STRING);
    if (!list || !list->data) {
        RvArrayDestroy(list);
        return nullptr;
    }
    const char** const strings = elementsOf<const char*>(list);
    if (count > 0)
        memcpy(strings, old->data, count * sizeof(char*));
    strings[count] = internString(text);
    if (stays_in_use) {
        for (unsigned i = 0; i < count; ++i)
            internString(strings[i]);
    } else if (count > 0) {
        RvFree_func(old->data);
        old->data = nullptr;
    }
    return list;
}

void addMissingType(RtScene* scene, const char* type_name)
{
    RtSceneFiles* const files = sceneFiles();
    if (!files)
        return;
    const CritSecLock guard(&files->lock);
    RtArray* const old = scene->missing_types;
    // While threads render they read the list without a lock.
    const bool stays_in_use = old && the_frame->hooks->rendering();
    RtArray* const list = extendedList(old, type_name, stays_in_use);
    if (!list)
        return;
    scene->missing_types = list;
    if (!stays_in_use)
        RvArrayDestroy(old);
    else
        RvListAdd(files->old_missing_types, old);
}

// ---- References ----

void freeReference(RtRVSFwdRef* reference)
{
    if (!reference)
        return;
    if (reference->param)
        releaseString(reference->param);
    if (reference->target)
        releaseString(reference->target);
    RvFree_func(reference);
}

void addReference(RtRVSFwdRef* reference)
{
    RtSceneFiles* const files = sceneFiles();
    if (!reference)
        return;
    if (!files) {
        freeReference(reference);
        return;
    }
    const CritSecLock guard(&files->lock);
    if (!appendReference(files, reference))
        freeReference(reference);
}

bool hasWaitingReferences()
{
    RtSceneFiles* const files = sceneFiles();
    if (!files)
        return false;
    const CritSecLock guard(&files->lock);
    return !RvListEmpty(files->references);
}

// ---- Resolution ----

bool isNullName(const char* name) { return !strcmp(name, "NULL"); }

// The target may still come while files are nested or procedurals have not been loaded, and it may
// be of a type that is missing.
static bool isReported()
{
    const RtArray* const missing = the_frame->scene->missing_types;
    if (missing && missing->nelements > 0)
        return false;
    if (include_depth == 0 && RvNodeEntryGetCount(RvNodeEntryLookUp("procedural")) == 0)
        return true;
    return scene_file_line == -1 && !the_frame->hooks->rendering();
}

// Calls `report` with the reader's line set to that of the reference.
template <class Report> static void reportAtLine(const RtRVSFwdRef& reference, Report report)
{
    const int line = scene_file_line.exchange(reference.line);
    report();
    scene_file_line = line;
}

static void setText(const RtRVSFwdRef& reference)
{
    char text[scene_token_size];
    const size_t length = strnlen(reference.target, sizeof text - 1);
    memcpy(text, reference.target, length);
    text[length] = '\0';
    for (char* c = strchr(text, '\\'); c; c = strchr(c, '\\'))
        *c = '/';
    RvNodeSetStr(reference.node, reference.param, text);
}

static void setElement(const RtRVSFwdRef& reference, RtNode* value)
{
    RtArray* const array = arrayParameter(reference.node, reference.param);
    if (!array || !array->data || array->data != reference.data ||
        (array->type != RV_TYPE_NODE && array->type != RV_TYPE_POINTER) ||
        reference.index >= totalElements(array))
        return;
    elementsOf<void*>(array)[reference.index] = value;
}

static bool isPointerSource(const RtNode* node)
{
    return node->entry->output_type == RV_TYPE_POINTER || node->entry->output_type == RV_TYPE_NODE;
}

static void applyValue(const RtRVSFwdRef& reference, RtNode* value)
{
    if (reference.is_element)
        setElement(reference, value);
    else if (reference.is_link || (value && isPointerSource(value)))
        RvNodeLink(value, reference.param, reference.node);
    else
        RvNodeSetPtr(reference.node, reference.param, value);
}

static bool isDeclaredString(const RtRVSFwdRef& reference)
{
    return RvParamGetType(RvNodeEntryLookUpParameter(reference.node->entry, reference.param)) ==
           RV_TYPE_STRING;
}

// True when the reference is done with.
static bool resolve(const RtRVSFwdRef& reference, bool is_reported)
{
    const bool is_null = isNullName(reference.target);
    RtNode* const target = is_null ? nullptr : RvNodeLookUpByName(reference.target);
    if (target || is_null) {
        applyValue(reference, target);
        return true;
    }
    if (isDeclaredString(reference)) {
        setText(reference);
        return true;
    }
    if (is_reported && parameterType(reference.node, reference.param) == RV_TYPE_BOOLEAN) {
        reportAtLine(reference, [] { RvMsgError("unknown boolean token"); });
        RvNodeSetBool(reference.node, reference.param, false);
        return true;
    }
    if (is_reported)
        reportAtLine(reference, [&] { RvMsgWarning("tag not found: %s", reference.target); });
    if (is_reported || !reference.is_link) // a link to null is nothing but a warning
        applyValue(reference, nullptr);
    return false;
}

// Returns how many references go on waiting.
static unsigned resolveAll(RtSceneFiles* files, bool is_reported)
{
    RtListNode* previous = nullptr;
    for (RtListNode* element = RvListHead(files->references); element;) {
        RtListNode* const next = element->next;
        if (resolve(*static_cast<const RtRVSFwdRef*>(element->data), is_reported))
            removeReference(files, previous);
        else
            previous = element;
        element = next;
    }
    return RvListSize(files->references);
}

} // namespace rv

RtRVSFwdRef* RvRVSFwdRef(RtNode* node, const char* param, const char* target, bool is_link,
                         bool is_element, unsigned index, unsigned count, unsigned keys,
                         const void* data)
{
    auto* const reference = static_cast<RtRVSFwdRef*>(
        RvMalloc_func(sizeof(RtRVSFwdRef), module_path, __LINE__, "RvRVSFwdRef"));
    if (!reference) {
        RvMsgError("%s.%s: can't allocate forward reference to %s", RvNodeGetName(node), param,
                   target);
        return nullptr;
    }
    *reference = { .node = node,
                   .param = rv::internString(param),
                   .target = rv::internString(target),
                   .line = rv::scene_file_line,
                   .is_element = is_element,
                   .index = index,
                   .count = count,
                   .keys = keys,
                   .data = data,
                   .is_link = is_link };
    if (reference->param && reference->target)
        return reference;
    RvMsgError("%s.%s: can't allocate strings in forward reference to %s", RvNodeGetName(node),
               param, target);
    rv::freeReference(reference);
    return nullptr;
}

void RvRVSResolveForwardRefs()
{
    RtSceneFiles* const files = rv::sceneFiles();
    if (!files || !rv::the_frame->scene)
        return;
    unsigned waiting = 0;
    bool is_reported = false;
    {
        const rv::CritSecLock guard(&files->lock);
        if (RvListEmpty(files->references))
            return;
        is_reported = rv::isReported();
        waiting = rv::resolveAll(files, is_reported);
    }
    if (waiting > 0 && is_reported)
        RvMsgWarning("%u tags could not be be resolved after parsing", waiting);
}
