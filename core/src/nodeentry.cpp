// nodeentry: the registry of node types (rv_nodeentry.h): installation with the kind-common
// parameters and the layout of parameter blocks, lookup, iteration and uninstallation.
#include "nodeentry.h"

#include "frame.h"
#include "maths.h"
#include "rv_msg.h"
#include "rv_plugins.h"
#include "rv_universe.h"
#include "scene.h"
#include "strpool.h"

#include <new>

static const char* const module_path = "core\\src\\nodeentry";

namespace rv {

// More parameters than this are looked up through a hash table.
static constexpr unsigned scanned_params = 10;
static constexpr size_t max_type_name = sizeof(RtNodeEntry::name) - 1;

template <size_t size> static void copyText(char (&to)[size], const char* from)
{
    const size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

// ---- Installation ----

static bool mayInstall(const char* name)
{
    if (strlen(name) > max_type_name) {
        RvMsgError("node name is bigger than %d characters: \"%s\"",
                   static_cast<int>(max_type_name), name);
        return false;
    }
    if (!isValidName(name, "")) {
        RvMsgError("node name contains invalid characters: \"%s\"", name);
        return false;
    }
    if (RvNodeEntryLookUp(name)) {
        RvMsgWarning("node \"%s\" is already installed", name);
        return false;
    }
    return true;
}

static void declareKindParameters(const RtNodeEntry* entry, RtList* params)
{
    switch (entry->type) {
    case RV_NODE_CAMERA: the_frame->hooks->cameraParameters(params, entry->metadata); break;
    case RV_NODE_LIGHT: the_frame->hooks->lightParameters(params, entry->metadata); break;
    case RV_NODE_SHAPE: the_frame->hooks->shapeParameters(params, entry->metadata); break;
    case RV_NODE_OPTIONS:
    case RV_NODE_SHADER:
    case RV_NODE_OVERRIDE:
    case RV_NODE_DRIVER:
    case RV_NODE_FILTER: break;
    default: RvMsgError("%s: unknown node type (%d)", entry->name, entry->type);
    }
}

// Every type ends with the library's own "name": one that a type declares itself is taken out, so
// that nodes can be named and found whatever a plug-in does.
static void dropDeclaredName(RtList* params)
{
    for (RtListNode* element = RvListHead(params); element; element = element->next) {
        RtParamEntry* const param = static_cast<RtParamEntry*>(element->data);
        if (strcmp(param->name, "name") != 0)
            continue;
        RvMsgWarning("parameter \"%s\" is declared already", param->name);
        RvListDelete(params, param);
        releaseParamEntry(param);
        RvFree_func(param);
        return;
    }
}

// Moves the declared entries into the contiguous table; the list is left empty of entries.
static bool buildTable(RtNodeEntry* entry, RtList* params)
{
    const unsigned count = RvListSize(params);
    entry->params = static_cast<RtParamEntry*>(
        RvMalloc_func(count * static_cast<unsigned>(sizeof(RtParamEntry)), module_path, __LINE__,
                      "RvNodeInstall"));
    if (!entry->params)
        return false;
    for (RtListNode* element = RvListHead(params); element; element = element->next) {
        RtParamEntry* const param = static_cast<RtParamEntry*>(element->data);
        param->index = static_cast<uint16_t>(entry->num_params);
        entry->params[entry->num_params++] = *param;
        RvFree_func(param);
        element->data = nullptr;
    }
    return true;
}

// Resolves the offset of one parameter. One that does not fit the record is reported and gets a
// place of its own behind it, so that no access ever leaves the block.
static void placeParameter(RtNodeEntry* entry, RtParamEntry* param, int base, int* end)
{
    if (param->offset < 0)
        RvMsgError("node type %s varoffset for param %s is negative! (offset=%d)", entry->name,
                   param->name, param->offset);
    const int64_t offset = int64_t(param->offset) + base;
    const int size = RvParamGetTypeSize(param->type);
    if (offset >= 0 && offset + size <= entry->struct_size) {
        param->offset = static_cast<int>(offset);
        return;
    }
    RvMsgError("node type %s varoffset for param %s is outside struct size "
               "(offset=%d, param size=%d, struct size=%d)",
               entry->name, param->name, static_cast<int>(offset), size, entry->struct_size);
    param->offset = *end;
    *end += static_cast<int>(sizeof(RtMatrix)); // the largest value
}

static void layOutParameters(RtNodeEntry* entry)
{
    const int name_offset = metaDataInt(entry->metadata, "_baseoffset2", 0);
    entry->block_size = entry->struct_size;
    if (!entry->struct_size)
        return;
    int end = (entry->struct_size + 7) & ~7;
    for (unsigned i = 0; i < entry->num_params; ++i) {
        const int base = i < entry->own_param_count  ? 0
                         : i < entry->kind_param_end ? entry->base_offset
                                                     : name_offset;
        placeParameter(entry, &entry->params[i], base, &end);
    }
    if (end > ((entry->struct_size + 7) & ~7))
        entry->block_size = end;
}

static bool hashParameters(RtNodeEntry* entry)
{
    if (entry->num_params <= scanned_params)
        return true;
    entry->param_hash = simpleHash_new();
    if (!entry->param_hash)
        return false;
    for (unsigned i = 0; i < entry->num_params; ++i)
        if (!simpleHash_insert(entry->param_hash, entry->params[i].name, &entry->params[i]))
            return false;
    return true;
}

// Layouts come from plug-ins: sizes beyond this are refused as nonsense.
static constexpr int max_struct_size = 1 << 24;

static bool declareParameters(RtNodeEntry* entry, RtList* params)
{
    if (entry->methods && entry->methods->Parameters)
        entry->methods->Parameters(params, entry->metadata);
    dropDeclaredName(params);
    entry->own_param_count = static_cast<uint16_t>(RvListSize(params));
    const int struct_size = metaDataInt(entry->metadata, "_struct_size", 0);
    entry->struct_size = struct_size < 0 || struct_size > max_struct_size ? 0 : struct_size;
    entry->base_offset = metaDataInt(entry->metadata, "_baseoffset", 0);
    declareKindParameters(entry, params);
    entry->kind_param_end = static_cast<uint16_t>(RvListSize(params));
    RvNodeParamSTR(params, 0, "name", "default_name");
    return RvListSize(params) == entry->kind_param_end + 1u; // else the heap is exhausted
}

static void destroyParamList(RtList* params)
{
    for (RtListNode* element = RvListHead(params); element; element = element->next) {
        RtParamEntry* const param = static_cast<RtParamEntry*>(element->data);
        if (param) {
            releaseParamEntry(param);
            RvFree_func(param);
        }
    }
    RvListDestroy(params);
}

static bool fillEntry(RtNodeEntry* entry)
{
    entry->metadata = metaDataCreate();
    RtList* const params = RvList(nullptr);
    const bool ok =
        entry->metadata && params && declareParameters(entry, params) && buildTable(entry, params);
    if (params)
        destroyParamList(params);
    if (!ok)
        return false;
    layOutParameters(entry);
    return hashParameters(entry);
}

static bool registerEntry(RtNodeEntry* entry)
{
    if (!simpleHash_insert(the_frame->entry_names, entry->name, entry))
        return false;
    if (RvListAdd(the_frame->node_entries, entry))
        return true;
    simpleHash_remove(the_frame->entry_names, entry->name);
    return false;
}

void destroyNodeEntry(RtNodeEntry* entry)
{
    for (unsigned i = 0; i < entry->num_params; ++i)
        releaseParamEntry(&entry->params[i]);
    RvFree_func(entry->params);
    if (entry->param_hash)
        simpleHash_destroy(entry->param_hash);
    metaDataDestroy(entry->metadata);
    RvFree_func(entry);
}

// ---- Lookup ----

static bool hasSynonym(const RtNodeEntry* entry, const char* name)
{
    const RtMetaDataEntry* found =
        metaDataFind(entry->metadata, nullptr, "synonym", RV_TYPE_STRING);
    return found && !strcmp(found->value.STR, name);
}

EntryMatch findNodeEntry(const char* name)
{
    if (!name || !the_frame || !the_frame->node_entries)
        return { nullptr, false };
    if (void* const found = simpleHash_lookupFrozen(the_frame->entry_names, name))
        return { static_cast<RtNodeEntry*>(found), false };
    for (RtListNode* e = RvListHead(the_frame->node_entries); e; e = e->next) {
        RtNodeEntry* const entry = static_cast<RtNodeEntry*>(e->data);
        if (hasSynonym(entry, name))
            return { entry, true };
    }
    return { nullptr, false };
}

static const RtParamEntry* scanParameters(const RtNodeEntry* entry, const char* name)
{
    for (unsigned i = 0; i < entry->num_params; ++i)
        if (!strcmp(entry->params[i].name, name))
            return &entry->params[i];
    return nullptr;
}

static const RtParamEntry* exactParameter(const RtNodeEntry* entry, const char* name)
{
    return entry->param_hash
               ? static_cast<const RtParamEntry*>(simpleHash_lookupFrozen(entry->param_hash, name))
               : scanParameters(entry, name);
}

ParamMatch findParameter(const RtNodeEntry* entry, const char* name)
{
    if (!entry || !name)
        return { nullptr, false };
    if (const RtParamEntry* const param = recentParameter(entry, name))
        return { param, false };
    if (const RtParamEntry* const param = exactParameter(entry, name)) {
        recentSlot(entry, name).store(param, std::memory_order_relaxed);
        return { param, false };
    }
    for (const auto& [key, annotation] : entry->metadata->entries) {
        if (key.type != RV_TYPE_STRING || !*key.param || strcmp(key.name, "synonym") != 0 ||
            strcmp(annotation.value.STR, name) != 0)
            continue;
        // Annotations of parameters that do not exist have no effect.
        if (const RtParamEntry* const param = exactParameter(entry, key.param))
            return { param, true };
    }
    return { nullptr, false };
}

static void destroyNodesOfType(const RtNodeEntry* entry)
{
    RtScene* const scene = the_frame->scene;
    const RtListNode* element = scene ? RvListHead(scene->nodes) : nullptr;
    while (element) {
        RtNode* const node = static_cast<RtNode*>(element->data);
        const bool is_doomed = node->entry == entry;
        if (is_doomed)
            scene->retireNode(node);
        element = element->next; // not sooner: retiring a node may destroy others
        if (is_doomed)
            scene->releaseNode(node);
    }
}

} // namespace rv

void RvNodeInstall(int type, int output_type, const char* name, const char* filename,
                   const RtNodeMethods* methods, const char* version)
{
    if (!methods || !name || !rv::the_frame || !rv::mayInstall(name))
        return;
    void* const memory = RvMalloc_func(sizeof(RtNodeEntry), module_path, __LINE__, "RvNodeInstall");
    if (!memory)
        return;
    RtNodeEntry* const entry = new (memory) RtNodeEntry{};
    entry->type = static_cast<int16_t>(type);
    entry->output_type = static_cast<uint16_t>(output_type);
    entry->methods = methods->common;
    entry->kind_methods = methods->kind_methods;
    rv::copyText(entry->name, name);
    rv::copyText(entry->filename, filename ? filename : "");
    rv::copyText(entry->version, version ? version : RvGetVersionInfo());
    if (!rv::fillEntry(entry) || !rv::registerEntry(entry))
        rv::destroyNodeEntry(entry);
}

void RvNodeUninstall(const char* name)
{
    RtNodeEntry* const entry = rv::findNodeEntry(name).entry;
    if (!entry) {
        RvMsgError("trying to uninstall non-existent node: \"%s\"", name ? name : "");
        return;
    }
    rv::destroyNodesOfType(entry);
    simpleHash_remove(rv::the_frame->entry_names, entry->name);
    RvListDelete(rv::the_frame->node_entries, entry);
    rv::destroyNodeEntry(entry);
}

const RtNodeEntry* RvNodeEntryLookUp(const char* name) { return rv::findNodeEntry(name).entry; }

const RtNodeEntry* RvNodeEntryLookUpByIndex(int i)
{
    if (!rv::the_frame || i < 0)
        return nullptr;
    RtListNode* element = RvListHead(rv::the_frame->node_entries);
    while (element && i-- > 0)
        element = element->next;
    return element ? static_cast<const RtNodeEntry*>(element->data) : nullptr;
}

int RvGetNumInstalledNodes(void)
{
    return rv::the_frame ? static_cast<int>(RvListSize(rv::the_frame->node_entries)) : 0;
}

// ---- Queries ----

const char* RvNodeEntryGetName(const RtNodeEntry* entry) { return entry ? entry->name : nullptr; }

const char* RvNodeEntryGetFilename(const RtNodeEntry* entry)
{
    return entry ? entry->filename : nullptr;
}

const char* RvNodeEntryGetVersion(const RtNodeEntry* entry)
{
    return entry ? entry->version : nullptr;
}

int RvNodeEntryGetType(const RtNodeEntry* entry) { return entry ? entry->type : 0; }

const char* RvNodeEntryGetTypeName(const RtNodeEntry* entry)
{
    static const struct {
        int kind;
        const char* name;
    } kinds[] = {
        { 0, "undefined" },
        { RV_NODE_OPTIONS, "options" },
        { RV_NODE_CAMERA, "camera" },
        { RV_NODE_LIGHT, "light" },
        { RV_NODE_SHAPE, "shape" },
        { RV_NODE_SHADER, "shader" },
        { RV_NODE_OVERRIDE, "override" },
        { RV_NODE_DRIVER, "driver" },
        { RV_NODE_FILTER, "filter" },
    };
    if (!entry)
        return nullptr;
    for (const auto& row : kinds)
        if (row.kind == entry->type)
            return row.name;
    return "unknown";
}

int RvNodeEntryGetOutputType(const RtNodeEntry* entry)
{
    return entry ? entry->output_type : RV_TYPE_NONE;
}

int RvNodeEntryGetNumParams(const RtNodeEntry* entry)
{
    return entry ? static_cast<int>(entry->num_params) : 0;
}

const RtParamEntry* RvNodeEntryGetParameter(const RtNodeEntry* entry, int i)
{
    return entry && i >= 0 && static_cast<unsigned>(i) < entry->num_params ? &entry->params[i]
                                                                           : nullptr;
}

const RtParamEntry* RvNodeEntryLookUpParameter(const RtNodeEntry* entry, const char* name)
{
    return rv::findParameter(entry, name).param;
}

int RvNodeEntryGetCount(const RtNodeEntry* entry)
{
    return entry ? static_cast<int>(entry->count) : 0;
}

// ---- Iterators ----

RtParamIterator* RvNodeEntryGetParamIterator(const RtNodeEntry* entry)
{
    if (!entry)
        return nullptr;
    RtParamIterator* const it = static_cast<RtParamIterator*>(RvMalloc_func(
        sizeof(RtParamIterator), module_path, __LINE__, "RvNodeEntryGetParamIterator"));
    if (it)
        *it = { entry, 0 };
    return it;
}

struct RtNodeEntryIterator {
    RtListNode* element; // the current match, null at the end
    unsigned mask;
};

static RtListNode* nextMatch(RtListNode* element, unsigned mask)
{
    while (element &&
           !(static_cast<unsigned>(static_cast<RtNodeEntry*>(element->data)->type) & mask))
        element = element->next;
    return element;
}

RtNodeEntryIterator* RvUniverseGetNodeEntryIterator(unsigned int mask)
{
    if (!rv::the_frame)
        return nullptr;
    RtNodeEntryIterator* const it = static_cast<RtNodeEntryIterator*>(RvMalloc_func(
        sizeof(RtNodeEntryIterator), module_path, __LINE__, "RvUniverseGetNodeEntryIterator"));
    if (it)
        *it = { nextMatch(RvListHead(rv::the_frame->node_entries), mask), mask };
    return it;
}

const RtNodeEntry* RvNodeEntryIteratorGetNext(RtNodeEntryIterator* it)
{
    if (RvNodeEntryIteratorFinished(it))
        return nullptr;
    const RtNodeEntry* const entry = static_cast<const RtNodeEntry*>(it->element->data);
    it->element = nextMatch(it->element->next, it->mask);
    return entry;
}

bool RvNodeEntryIteratorFinished(const RtNodeEntryIterator* it) { return !it || !it->element; }

void RvNodeEntryIteratorDestroy(RtNodeEntryIterator* it) { RvFree_func(it); }
