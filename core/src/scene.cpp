// scene: creation and removal of nodes, the name table and the internal shader nodes.
#include "scene.h"

#include "array.h"
#include "counters.h"
#include "node_watch.h"
#include "options.h"
#include "rv_msg.h"
#include "strpool.h"
#include "system/clock.h"

#include <new>
#include <stdio.h>

static const char* const module_path = "core\\src\\scene";

namespace rv {

// ---- Nodes ----

// A node with its defaults, not yet in the scene; null when the heap is exhausted. Its parameters
// and flags follow it in one block.
static RtNode* allocateNode(RtNodeEntry* entry)
{
    const unsigned storage = paramStorageSize(entry);
    const size_t size = sizeof(RtNode) + storage + entry->num_params;
    void* const block = allocate(size, module_path, __LINE__, "RtScene::createNode");
    if (!block)
        return nullptr;
    memset(block, 0, size);
    RtNode* const node = new (block) RtNode{};
    node->entry = entry;
    node->params = node + 1;
    node->set_flags = static_cast<uint8_t*>(node->params) + storage;
    node->own_param_count = entry->own_param_count;
    node->name_index = entry->kind_param_end;
    for (unsigned i = 0; i < entry->num_params; ++i)
        resetParameter(node, &entry->params[i], false);
    return node;
}

// Nodes know the element before theirs, so that a node leaves the longest list at once.
static bool appendNode(RtList* nodes, RtNode* node)
{
    RtListNode* const last = RvListTail(nodes);
    if (!RvListAdd(nodes, node))
        return false;
    node->list_previous = last;
    return true;
}

static void unlinkNode(RtList* nodes, const RtNode* node)
{
    RtListNode* const previous = node->list_previous;
    const RtListNode* const element = previous ? previous->next : RvListHead(nodes);
    if (RtListNode* const next = element->next)
        static_cast<RtNode*>(next->data)->list_previous = previous;
    RvListDeleteAfter(nodes, previous);
}

static bool addLight(RtScene* scene, RtNode* light)
{
    try {
        scene->lights.push_back(light);
        return true;
    } catch (const std::bad_alloc&) { // reported by the allocator
        return false;
    }
}

static void removeLight(RtScene* scene, const RtNode* light)
{
    for (RtScene::NodeVector* lights : { &scene->lights, &scene->render_lights })
        std::erase_if(*lights, [light](const RtNode* other) { return other == light; });
}

// Only nodes of the library's own type hold the record; another of this kind is laid out otherwise.
static void becomeOptions(RtScene* scene, RtNode* node)
{
    scene->options = node;
    if (node->entry->methods == options_methods.common)
        render_options = static_cast<RtOptions*>(node->params);
}

// The first camera becomes the rendering camera unless the host chose for itself.
static void offerCamera(const RtScene* scene, RtNode* camera)
{
    RtNode* const options = render_options ? scene->options : nullptr;
    const RtParamEntry* const param =
        options ? RvNodeEntryLookUpParameter(options->entry, "camera") : nullptr;
    if (param && !options->set_flags[param->index] && !render_options->camera)
        RvNodeSetPtr(options, "camera", camera);
}

// The scene's books by kind. False when the heap is exhausted.
static bool enterByKind(RtScene* scene, RtNode* node)
{
    switch (node->entry->type) {
    case RV_NODE_OPTIONS: becomeOptions(scene, node); break;
    case RV_NODE_CAMERA: offerCamera(scene, node); break;
    case RV_NODE_LIGHT: return addLight(scene, node);
    case RV_NODE_SHAPE: ++scene->shape_count; break;
    case RV_NODE_SHADER: ++scene->shader_count; break;
    default: break;
    }
    return true;
}

// The scene's own nodes may be destroyed like any other, and so may the rendering camera, which
// need not be of that kind.
static void forgetPointersTo(RtScene* scene, const RtNode* node)
{
    for (RtNode** own :
         { &scene->default_reflection_shader, &scene->error_shader, &scene->bad_shader,
           &scene->root, &scene->bounded_root, &scene->unbounded_root })
        if (*own == node)
            *own = nullptr;
    if (render_options && render_options->camera == node) {
        RvNodeSetPtr(scene->options, "camera", nullptr);
        render_options->camera = nullptr; // even when the parameter is ignored
    }
}

static void leaveByKind(RtScene* scene, const RtNode* node)
{
    switch (node->entry->type) {
    case RV_NODE_OPTIONS:
        if (scene->options == node) {
            scene->options = nullptr;
            render_options = nullptr;
        }
        break;
    case RV_NODE_LIGHT: removeLight(scene, node); break;
    case RV_NODE_SHAPE: --scene->shape_count; break;
    case RV_NODE_SHADER: --scene->shader_count; break;
    default: break;
    }
}

static RtNode* createInternalShader(RtScene* scene, const char* type, const char* name)
{
    RtNode* const node = scene->createNode(type);
    if (node)
        RvNodeSetStr(node, "name", name);
    return node;
}

// A node of type "standard" that only emits; renders set its colour.
static RtNode* createEmitter(RtScene* scene, const char* name)
{
    RtNode* const node = createInternalShader(scene, "standard", name);
    if (node) {
        RvNodeSetFlt(node, "Kd", 0);
        RvNodeSetFlt(node, "emission", 1);
    }
    return node;
}

static bool createContainers(RtScene* scene)
{
    scene->bounded_objects = RvList(nullptr);
    scene->unbounded_objects = RvList(nullptr);
    scene->nodes = RvList(nullptr);
    scene->names = simpleHash_new();
    RvCritSecInit(&scene->lock);
    return scene->bounded_objects && scene->unbounded_objects && scene->nodes && scene->names &&
           scene->lock.handle;
}

static bool createInternalShaders(RtScene* scene)
{
    scene->default_reflection_shader =
        createInternalShader(scene, "utility", "rv_default_reflection_shader");
    scene->error_shader = createEmitter(scene, "rv_error_shader");
    scene->bad_shader = createEmitter(scene, "rv_bad_shader");
    return scene->default_reflection_shader && scene->error_shader && scene->bad_shader;
}

RtScene* sceneCreate(RtFrame* frame)
{
    void* const memory = RvMalloc_func(sizeof(RtScene), module_path, __LINE__, "RtScene::RtScene");
    if (!memory)
        return nullptr;
    RtScene* const scene = new (memory) RtScene{};
    scene->frame = frame;
    scene->shading_lights = &scene->lights;
    frame->scene = scene;
    if (createContainers(scene) && createInternalShaders(scene))
        return scene;
    sceneDestroy(scene);
    return nullptr;
}

// The first node, the options node after all others. Looked up anew for every node, because a
// Finish method may destroy nodes as well.
static RtNode* nextToDestroy(const RtScene* scene)
{
    const RtListNode* element = RvListHead(scene->nodes);
    if (element && element->data == scene->options && element->next)
        element = element->next;
    return element ? static_cast<RtNode*>(element->data) : nullptr;
}

void sceneDestroy(RtScene* scene)
{
    if (!scene)
        return;
    for (RtScene::NodeVector* lights : { &scene->lights, &scene->render_lights })
        lights->clear(); // so that none is looked for when it goes
    while (RtNode* const node = scene->nodes ? nextToDestroy(scene) : nullptr)
        scene->removeNode(node);
    RvArrayDestroy(scene->missing_types);
    for (RtList* list : { scene->bounded_objects, scene->unbounded_objects, scene->nodes })
        if (list)
            RvListDestroy(list);
    if (scene->names)
        simpleHash_destroy(scene->names);
    RvCritSecClose(&scene->lock);
    scene->frame->scene = nullptr;
    scene->~RtScene();
    RvFree_func(scene);
}

} // namespace rv

RtNode* RtScene::createNode(const char* type_name)
{
    RtNode* const node = createUnnamedNode(type_name);
    if (node)
        nameByDefault(node);
    return node;
}

// A node created within the same microsecond as one of the same count counts on from there.
void RtScene::nameByDefault(RtNode* node)
{
    if (node->registered_name)
        return;
    const rv::SceneGuard guard(this);
    const uint64_t ticks_per_microsecond = rv::counterFrequency() / 1000000;
    unsigned long long microseconds =
        rv::highResolutionCounter() / (ticks_per_microsecond ? ticks_per_microsecond : 1);
    char name[96]; // 32 characters of the type and at most 34 more
    do
        snprintf(name, sizeof name, "%s_%08X%08llX%08X", node->entry->name, rv::wallMilliseconds(),
                 microseconds++, node->entry->count);
    while (simpleHash_lookup(names, name));
    RvNodeSetStr(node, "name", name);
}

RtNode* RtScene::createUnnamedNode(const char* type_name)
{
    if (isIgnored(type_name))
        return nullptr;
    const rv::EntryMatch match = rv::findNodeEntry(type_name);
    if (!match.entry) {
        RvMsgWarning("node \"%s\" is not installed", type_name);
        return nullptr;
    }
    if (match.by_synonym)
        RvMsgWarning("node entry \"%s\" is deprecated, use \"%s\"", type_name, match.entry->name);
    if (match.entry->type == RV_NODE_OPTIONS) {
        if (frame->hooks->rendering())
            return nullptr;
        if (options)
            return options;
    }
    RtNode* const node = rv::allocateNode(match.entry);
    if (!node)
        return nullptr;
    const rv::SceneGuard guard(this);
    rv::threadStats()->node_overhead_bytes += rv::nodeOverhead(node);
    if (!rv::appendNode(nodes, node)) {
        rv::freeNode(node);
        return nullptr;
    }
    ++node->entry->count;
    if (rv::enterByKind(this, node))
        return node;
    removeNode(node);
    return nullptr;
}

void RtScene::removeNode(RtNode* node)
{
    retireNode(node);
    releaseNode(node);
}

void RtScene::retireNode(RtNode* node)
{
    {
        const rv::SceneGuard guard(this);
        rv::leaveByKind(this, node);
        rv::forgetPointersTo(this, node);
    }
    if (rv::node_retired)
        rv::node_retired(node);
    rv::uninitializeNode(node); // without the lock: it may wait for threads that make nodes
}

void RtScene::releaseNode(RtNode* node)
{
    const rv::SceneGuard guard(this);
    --node->entry->count;
    rv::forgetName(node);
    rv::unlinkNode(nodes, node);
    rv::freeNode(node);
}

void RtScene::holdLights()
{
    const rv::SceneGuard guard(this);
    shading_lights = &render_lights;
    try {
        render_lights = lights;
    } catch (const std::bad_alloc&) { // reported by the allocator
        render_lights.clear();
    }
}

void RtScene::releaseLights() { shading_lights = &lights; }

void RtScene::setIgnored(const RtArray* names_to_ignore)
{
    RtArray* const copy = names_to_ignore ? RvArrayCopy(names_to_ignore) : nullptr;
    RvArrayDestroy(missing_types);
    missing_types = copy;
}

bool RtScene::isIgnored(const char* text) const
{
    if (!missing_types || missing_types->type != RV_TYPE_STRING || !missing_types->data)
        return false;
    const char* const* const ignored = rv::elementsOf<const char*>(missing_types);
    for (unsigned i = 0; i < rv::totalElements(missing_types); ++i)
        if (ignored[i] && !strcmp(ignored[i], text))
            return true;
    return false;
}
