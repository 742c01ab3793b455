// nodes: the life of nodes (rv_node.h): defaults, names, copying and release. Creation and
// destruction go through the scene; node_access.cpp reads and writes values.
#include "nodes.h"

#include "array.h"
#include "counters.h"
#include "msg.h"
#include "scene.h"
#include "strpool.h"

#include <algorithm>

static const char* const module_path = "core\\src\\nodes";

namespace rv {

// ---- Values ----

unsigned paramStorageSize(const RtNodeEntry* entry)
{
    return entry->struct_size ? static_cast<unsigned>(entry->block_size)
                              : entry->num_params * static_cast<unsigned>(sizeof(RtParamValue));
}

static void releaseParameter(RtNode* node, const RtParamEntry* param)
{
    switch (param->type) {
    case RV_TYPE_STRING: releaseString(loadString(node, param)); break;
    case RV_TYPE_ARRAY: RvArrayDestroy(loadArray(node, param)); break;
    case RV_TYPE_MATRIX:
        if (!node->entry->struct_size)
            RvFree_func(matrixBytes(node, param));
        break;
    default: break;
    }
}

// ---- Defaults ----

// Shapes begin with the scene's default shader rather than without any.
static RtArray* defaultArray(const RtParamEntry* param)
{
    RtNode* const shader = the_frame->scene ? the_frame->scene->default_reflection_shader : nullptr;
    if (shader && !strcmp(param->name, "shader"))
        return RvArray(1, 1, RV_TYPE_NODE, shader);
    return param->default_value.ARRAY ? RvArrayCopy(param->default_value.ARRAY) : nullptr;
}

static void setDefaultMatrix(RtNode* node, const RtParamEntry* param)
{
    void* const storage = paramStorage(node, param);
    void* bytes = storage;
    if (!node->entry->struct_size) {
        bytes = RvMalloc_func(sizeof(RtMatrix), module_path, __LINE__, "RvNodeResetParameter");
        RtParamValue value = {};
        value.PTR = bytes;
        store(storage, RV_TYPE_POINTER, value);
    }
    if (bytes && param->default_value.pMTX)
        memcpy(bytes, param->default_value.pMTX, sizeof(RtMatrix));
}

void resetParameter(RtNode* node, const RtParamEntry* param, bool release)
{
    if (release)
        releaseParameter(node, param);
    RtParamValue value = param->default_value;
    switch (param->type) {
    case RV_TYPE_STRING: value.STR = internString(value.STR); break;
    case RV_TYPE_ARRAY: value.ARRAY = defaultArray(param); break;
    case RV_TYPE_MATRIX: setDefaultMatrix(node, param); return;
    default:
        if (!isStoredType(param->type)) {
            reachedInError(module_path, __LINE__, "RvNodeResetParameter");
            return;
        }
    }
    store(paramStorage(node, param), param->type, value);
}

// ---- Names ----

static constexpr size_t max_name_length = 32768;

bool mayRename(RtNode* node, const char* name)
{
    const size_t length = strlen(name);
    if (length > max_name_length) {
        RvMsgError("string is bigger than %d [%d] characters: %s",
                   static_cast<int>(max_name_length), static_cast<int>(length), name);
        return false;
    }
    const void* const holder = simpleHash_lookup(the_frame->scene->names, name);
    if (holder && holder != node) {
        the_frame->scene->nameByDefault(node); // the message must tell which node it is
        RvMsgWarning("can't rename node \"%s\" to \"%s\": name already in use", RvNodeGetName(node),
                     name);
        return false;
    }
    return true;
}

void forgetName(RtNode* node)
{
    if (!node->registered_name)
        return;
    simpleHash_remove(the_frame->scene->names, node->registered_name);
    releaseString(node->registered_name);
    node->registered_name = nullptr;
}

// The table follows the parameter. The node keeps a reference to the name it stands under, since
// a reset changes the parameter alone.
void registerName(RtNode* node, const RtParamEntry* param)
{
    const char* const name = internString(loadString(node, param));
    if (node->registered_name == name) {
        releaseString(name);
        return;
    }
    forgetName(node);
    if (name && simpleHash_insert(the_frame->scene->names, name, node))
        node->registered_name = name;
    else
        releaseString(name);
}

// ---- Copying and release ----

void copyParameter(RtNode* to, const RtParamEntry* target, const RtNode* from,
                   const RtParamEntry* source)
{
    if (target->type == RV_TYPE_MATRIX) {
        void* const to_bytes = matrixBytes(to, target);
        const void* const from_bytes = matrixBytes(from, source);
        if (to_bytes && from_bytes)
            memcpy(to_bytes, from_bytes, sizeof(RtMatrix));
        return;
    }
    RtParamValue value = load(paramStorage(from, source), source->type);
    if (target->type == RV_TYPE_STRING)
        value.STR = internString(value.STR);
    if (target->type == RV_TYPE_ARRAY && value.ARRAY)
        value.ARRAY = RvArrayCopy(value.ARRAY);
    releaseParameter(to, target);
    store(paramStorage(to, target), target->type, value);
}

void RvNodeCopy(RtNode* to, const RtNode* from, CopyMode mode)
{
    const RtNodeEntry* const entry = from->entry;
    for (unsigned i = 0; i < entry->num_params; ++i) {
        const RtParamEntry* const param = &entry->params[i];
        if (i == from->name_index ||
            (mode == CopyMode::instance &&
             metaDataBool(entry, param->name, "_skip_copy_on_instance", false)))
            continue;
        copyParameter(to, param, from, param);
        to->set_flags[i] = from->set_flags[i];
    }
    copyUserParams(to, from);
}

unsigned nodeOverhead(const RtNode* node)
{
    return static_cast<unsigned>(sizeof(RtNode)) + paramStorageSize(node->entry) +
           node->entry->num_params;
}

void freeNode(RtNode* node)
{
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        releaseParameter(node, &node->entry->params[i]);
    releaseUserParams(node);
    threadStats()->node_overhead_bytes -= nodeOverhead(node);
    freeLinks(node);
    RvFree_func(node);
}

// Nodes that initialise others first: lists their children, instances what they repeat. Chains of
// them must not exhaust the stack.
static constexpr int initialize_depth_limit = 2000;
static thread_local int initialize_depth = 0;

namespace {

// Methods of plug-ins may throw.
struct InitializeDepth {
    InitializeDepth() { ++initialize_depth; }
    ~InitializeDepth() { --initialize_depth; }
    InitializeDepth(const InitializeDepth&) = delete;
    InitializeDepth& operator=(const InitializeDepth&) = delete;
};

} // namespace

void RvNodeInitialize(RtNode* node)
{
    if (!node || node->initialized)
        return;
    if (initialize_depth >= initialize_depth_limit) {
        RvMsgWarning("%s: more than %d nodes refer to each other before it; make it earlier than "
                     "the nodes that need it",
                     RvNodeGetName(node), initialize_depth_limit);
        return;
    }
    node->initialized = true;
    the_frame->hooks->applyOverrides(node);
    if (!node->entry->methods || !node->entry->methods->Initialize)
        return;
    const InitializeDepth depth;
    node->entry->methods->Initialize(node, node->params);
}

void uninitializeNode(RtNode* node)
{
    if (!node->initialized)
        return;
    const bool is_shape = node->entry->type == RV_NODE_SHAPE;
    const bool shares_object = is_shape && node->source;
    if (node->entry->type != RV_NODE_OPTIONS && !shares_object && node->entry->methods &&
        node->entry->methods->Finish)
        node->entry->methods->Finish(node);
    if (is_shape)
        the_frame->hooks->shapeTeardown(node);
    if (node->entry->type == RV_NODE_LIGHT)
        the_frame->hooks->lightTeardown(node);
    node->initialized = false;
}

} // namespace rv

// ---- Exports: identity and life ----

RtNode* RvNode(const char* type_name)
{
    RtScene* const scene = rv::the_frame ? rv::the_frame->scene : nullptr;
    return scene && type_name ? scene->createNode(type_name) : nullptr;
}

void RvNodeDestroy(RtNode* node)
{
    if (!node || !rv::the_frame)
        return;
    if (rv::the_frame->hooks->rendering()) {
        RvMsgWarning("cannot destroy node \"%s\" while rendering; ignoring call to RvNodeDestroy()",
                     RvNodeGetName(node));
        return;
    }
    rv::the_frame->scene->removeNode(node);
}

void RvNodeReset(RtNode* node)
{
    if (!node)
        return;
    // Required: the scene goes on finding the node under the name it had.
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        rv::resetParameter(node, &node->entry->params[i], true);
    memset(node->set_flags, 0, node->entry->num_params);
    rv::clearLinks(node);
}

RtNode* RvNodeClone(const RtNode* node)
{
    if (!node || node->entry->type == RV_NODE_OPTIONS)
        return nullptr;
    RtNode* const clone = RvNode(node->entry->name);
    if (clone)
        rv::RvNodeCopy(clone, node, rv::CopyMode::clone);
    return clone;
}

RtNode* RvNodeLookUpByName(const char* name)
{
    if (!name || !*name || !rv::the_frame || !rv::the_frame->scene)
        return nullptr;
    return static_cast<RtNode*>(simpleHash_lookup(rv::the_frame->scene->names, name));
}

const char* RvNodeGetName(const RtNode* node)
{
    return node ? rv::loadString(node, rv::nameParam(node)) : nullptr;
}

bool RvNodeIs(const RtNode* node, const char* type_name)
{
    return node && type_name && !strcmp(node->entry->name, type_name);
}

const RtNodeEntry* RvNodeGetNodeEntry(const RtNode* node) { return node ? node->entry : nullptr; }

void* RvNodeGetLocalData(const RtNode* node) { return node ? node->local_data : nullptr; }

namespace rv {

// The library takes what it finds in the local data of these for its own record.
static bool keepsOwnRecord(const RtNodeEntry& entry)
{
    if (entry.type &
        (RV_NODE_CAMERA | RV_NODE_LIGHT | RV_NODE_SHAPE | RV_NODE_DRIVER | RV_NODE_FILTER))
        return true;
    // Hosts, too, install types without a file.
    static const char* const built_in_shaders[] = { "image",  "utility",      "ambient_occlusion",
                                                    "bump2d", "bump3d",       "sky",
                                                    "gobo",   "light_blocker" };
    return !*entry.filename && std::ranges::any_of(built_in_shaders, [&entry](const char* name) {
        return !strcmp(entry.name, name);
    });
}

} // namespace rv

void RvNodeSetLocalData(RtNode* node, void* data)
{
    if (!node)
        return;
    if (rv::keepsOwnRecord(*node->entry))
        RvMsgWarning("%s: the local data of its type is the library's", RvNodeGetName(node));
    else
        node->local_data = data;
}
