// gobject: the life of geometric objects: making, cloning, updating and freeing them, and the
// structure that answers rays, built when the first one needs it.
//
// Invariant: an object with a source shares the structure of the object at the end of the chain of
// sources, which alone owns it. Whoever drops that structure takes it from all clones too.
#include "objects/gobject.h"

#include "array.h"
#include "hash.h"
#include "msg.h"
#include "objects/polymesh.h"
#include "objects/proc.h"
#include "options.h"
#include "scene.h"
#include "system/critical_section.h"

#include <new>

static const char* const module_path = "core\\src\\objects\\gobject";

namespace rv {

RtGObject* shapeObject(const RtNode* node)
{
    const bool is_built_in_shape = node && node->entry->type == RV_NODE_SHAPE &&
                                   node->entry->kind_methods && !*node->entry->filename;
    return is_built_in_shape ? objectOf(node) : nullptr;
}

// ---- Clones ----

// The clone after `at` on a walk over all clones of `root`, clones of clones included; null at the
// end. Starts with at == root.
static RtGObject* nextClone(const RtGObject* root, const RtGObject* at)
{
    if (at->first_clone)
        return at->first_clone;
    while (at != root && !at->next_clone)
        at = at->cloned_from;
    return at == root ? nullptr : at->next_clone;
}

const RtGObject* placedObject(const RtGObject* object)
{
    const SceneGuard guard(the_frame->scene);
    const RtGObject* first = nullptr;
    if (object->visibility)
        return object;
    for (const RtGObject* clone = object; (clone = nextClone(object, clone));) {
        const bool counts = clone->node->creator == object->node->creator && clone->visibility;
        if (counts &&
            (!first || strcmp(RvNodeGetName(clone->node), RvNodeGetName(first->node)) < 0))
            first = clone;
    }
    return first ? first : object;
}

void enterClones(RtGObject* clone)
{
    const SceneGuard guard(the_frame->scene);
    RtGObject* const source = clone->cloned_from;
    clone->next_clone = source->first_clone;
    if (source->first_clone)
        source->first_clone->previous_clone = clone;
    source->first_clone = clone;
}

static void leaveClones(RtGObject* clone)
{
    if (!clone->cloned_from)
        return;
    const SceneGuard guard(the_frame->scene);
    if (clone->previous_clone)
        clone->previous_clone->next_clone = clone->next_clone;
    else if (clone->cloned_from->first_clone == clone)
        clone->cloned_from->first_clone = clone->next_clone;
    if (clone->next_clone)
        clone->next_clone->previous_clone = clone->previous_clone;
    clone->cloned_from = nullptr;
}

// ---- The scene's lists ----

void enterScene(RtGObject* object)
{
    RtNode* const node = object->node;
    if (node->creator || !object->visibility || object->scene_list)
        return;
    RtScene* const scene = the_frame->scene;
    const SceneGuard guard(scene);
    const bool is_unbounded = object->kind == RV_KIND_PLANE || shapeParams(node).unbounded;
    RtList* const list = is_unbounded ? scene->unbounded_objects : scene->bounded_objects;
    RtListNode* const last = RvListTail(list);
    if (!RvListAdd(list, node))
        return;
    object->scene_list = list;
    object->list_previous = last;
}

static void leaveScene(RtGObject* object)
{
    RtScene* const scene = the_frame->scene;
    const SceneGuard guard(scene);
    for (RtNode** root : { &scene->root, &scene->bounded_root, &scene->unbounded_root })
        if (object->node && *root == object->node)
            *root = nullptr;
    if (!object->scene_list)
        return;
    RtListNode* const previous = object->list_previous;
    const RtListNode* const element = previous ? previous->next : RvListHead(object->scene_list);
    if (const RtListNode* const next = element->next)
        objectOf(static_cast<RtNode*>(next->data))->list_previous = previous;
    RvListDeleteAfter(object->scene_list, previous);
    object->scene_list = nullptr;
}

// ---- Making and freeing ----

// A record without contents; null when the heap is exhausted.
static RtGObject* allocateObject(const char* location)
{
    void* const memory = RvMalloc_func(sizeof(RtGObject), module_path, __LINE__, location);
    if (!memory)
        return nullptr;
    RtGObject* const object = new (memory) RtGObject{};
    RvCritSecInit(&object->lock);
    if (!object->lock.handle) {
        RvFree_func(object);
        return nullptr;
    }
    threadStats()->node_overhead_bytes += int64_t(sizeof(RtGObject));
    return object;
}

static void freeRecord(RtGObject* object)
{
    threadStats()->node_overhead_bytes -= int64_t(sizeof(RtGObject));
    RvFree_func(object);
}

void dropAccel(RtGObject* object)
{
    RtAccel* const accel = object->accel.exchange(nullptr);
    if (object->cloned_from || (object->node && object->node->source))
        return;
    for (RtGObject* clone = object; (clone = nextClone(object, clone));)
        clone->accel = nullptr;
    if (!accel)
        return;
    threadStats()->accel_bytes -= int64_t(accel->memory());
    delete accel;
}

void dropCache(RtGObject* object) { retireCache(object->extra.exchange(nullptr)); }

// Takes an object without clones from its node and from everything that holds it.
static void releaseObject(RtGObject* object)
{
    dropAccel(object);
    dropMatrices(object);
    RvFree_func(object->traceset_hashes);
    object->traceset_hashes = nullptr;
    dropCache(object);
    leaveScene(object);
    leaveClones(object);
    RvCritSecClose(&object->lock);
    if (object->node && object->node->local_data == object)
        object->node->local_data = nullptr;
    object->node = nullptr;
    object->data = nullptr;
    object->visibility = 0;
    object->local_bbox = object->world_bbox = empty_bbox;
    if (object->memberships == 0)
        freeRecord(object);
}

// The node of a clone refers to nothing once its source is gone. It counts as not initialised, so
// that the next render says so, or finds another node to refer to.
static void forgetSource(RtNode* node)
{
    const RtParamEntry* const param = RvNodeEntryLookUpParameter(node->entry, "node");
    if (param && param->type == RV_TYPE_NODE &&
        load(paramStorage(node, param), RV_TYPE_NODE).PTR == node->source)
        store(paramStorage(node, param), RV_TYPE_NODE, {});
    node->source = nullptr;
    node->initialized = false;
}

void destroyObject(RtGObject* object)
{
    const SceneGuard guard(the_frame->scene);
    for (RtGObject* at = object;;) {
        if (at->first_clone) {
            at = at->first_clone;
            continue;
        }
        RtGObject* const source = at->cloned_from;
        RtNode* const node = at->node;
        const bool is_last = at == object;
        releaseObject(at);
        if (is_last)
            return;
        if (node && source->node && node->source == source->node)
            forgetSource(node);
        at = source;
    }
}

void addMembership(RtGObject* object) { ++object->memberships; }

void dropMembership(RtGObject* object)
{
    if (--object->memberships == 0 && !object->node)
        freeRecord(object);
}

// ---- Common parameters ----

template <class T> static RtArray* arrayOfDefault(int type, unsigned count, const T* values)
{
    return RvArrayConvert(int(count), 1, type, const_cast<T*>(values), true);
}

// Replaces the array of a parameter unless the heap is exhausted.
static void replaceArray(RtArray** parameter, RtArray* replacement)
{
    if (!replacement)
        return;
    RvArrayDestroy(*parameter);
    *parameter = replacement;
}

static void prepareShaders(ShapeParams& params)
{
    RtNode* const standard = the_frame->scene->default_reflection_shader;
    const unsigned count = params.shader ? totalElements(params.shader) : 0;
    if (count == 0)
        replaceArray(&params.shader, arrayOfDefault(RV_TYPE_NODE, 1, &standard));
    for (unsigned i = 0; i < count; ++i)
        if (RtNode*& shader = elementsOf<RtNode*>(params.shader)[i]; !shader)
            shader = standard;
}

// A group that is not used is dropped; one that is holds no null nodes.
static void prepareGroup(bool is_used, RtArray** group)
{
    if (!is_used) {
        RvArrayDestroy(*group);
        *group = nullptr;
    } else if (*group) {
        RtNode** const nodes = elementsOf<RtNode*>(*group);
        uint32_t kept = 0;
        for (unsigned i = 0, total = totalElements(*group); i < total; ++i)
            if (nodes[i])
                nodes[kept++] = nodes[i];
        (*group)->nelements = kept;
        (*group)->nkeys = 1;
    }
}

static bool checkTimeSamples(RtArray** samples)
{
    if (*samples && (*samples)->type == RV_TYPE_FLOAT &&
        RvTimeSamplesCheck((*samples)->nelements, elementsOf<float>(*samples)))
        return true;
    static const float whole_shutter[] = { 0, 1 };
    replaceArray(samples, arrayOfDefault(RV_TYPE_FLOAT, 2, whole_shutter));
    return false;
}

void prepareCommonParameters(RtNode* node)
{
    ShapeParams& params = shapeParams(node);
    prepareShaders(params);
    prepareGroup(params.use_light_group, &params.light_group);
    prepareGroup(params.use_shadow_group, &params.shadow_group);
    if (!checkTimeSamples(&params.transform_time_samples))
        RvMsgWarning("Invalid transform time sample specification on: %s - resetting to default",
                     RvNodeGetName(node));
    if (!checkTimeSamples(&params.deform_time_samples))
        RvMsgWarning("Invalid deform time sample specification on: %s - resetting to default",
                     RvNodeGetName(node));
}

// Drops user data with the wrong number of elements: lookups at a hit would leave it.
static void checkUserData(const RtGObject* object)
{
    const RtNode* const node = object->node;
    const char* const name = RvNodeGetName(node);
    for (unsigned i = 0; i < node->user_param_count; ++i) {
        RtUserParamEntry& entry = node->user_params[i];
        const bool is_varying = entry.category == RV_USERDEF_VARYING;
        if (!is_varying && entry.category != RV_USERDEF_UNIFORM)
            continue;
        if (entry.type == RV_TYPE_ARRAY && !entry.value.ARRAY)
            RvMsgWarning("%s: could not read %s parameter \"%s\"", name, "ARRAY", entry.name);
        const uint32_t found = entry.value.ARRAY ? entry.value.ARRAY->nelements : 0;
        const uint32_t expected = is_varying ? object->nvarying : object->nuniform;
        if (found == expected)
            continue;
        if (is_varying)
            RvMsgWarning("%s: varying user-data count wrong! (found %d expected %d) -- disabling "
                         "user-data '%s'",
                         name, int(found), int(expected), entry.name);
        else
            RvMsgWarning("%s: uniform user-data count wrong! (found %d expected %d) -- disabling "
                         "user-data '%s'",
                         name, int(found), int(expected), entry.name);
        disableUserParam(&entry);
    }
}

// ---- Trace sets ----

static unsigned tracesetCount(const RtNode* node)
{
    const RtArray* const names = shapeParams(node).trace_sets;
    return names ? totalElements(names) : 0;
}

static uint32_t* allocateHashes(unsigned count, const char* location)
{
    return static_cast<uint32_t*>(
        allocate(count * sizeof(uint32_t), module_path, __LINE__, location));
}

static bool copyTracesets(RtGObject* to, const RtGObject& from)
{
    if (!from.traceset_hashes)
        return true;
    const unsigned count = tracesetCount(from.node);
    to->traceset_hashes = allocateHashes(count, "RvGObjectClone");
    if (to->traceset_hashes)
        memcpy(to->traceset_hashes, from.traceset_hashes, count * sizeof(uint32_t));
    return to->traceset_hashes;
}

// ---- Bounds and visibility ----

static RtParamValue readParameter(const RtNode* node, const char* name)
{
    const RtParamEntry* const param = RvNodeEntryLookUpParameter(node->entry, name);
    return param ? load(paramStorage(node, param), param->type) : RtParamValue{};
}

static float displacementPadding(const RtGObject* object)
{
    const bool may_displace = object->kind == RV_KIND_POLYMESH || object->kind == RV_KIND_NURBS;
    const bool is_ignored = render_options && (render_options->ignore_displacement ||
                                               render_options->ignore_subdivision);
    if (!may_displace || is_ignored || !readParameter(object->node, "disp_map").PTR)
        return 0;
    // Required: the height itself; there is no parameter for the padding alone.
    return readParameter(object->node, "disp_height").FLT;
}

RtBBox localBounds(RtGObject* object, int key)
{
    RtBBox box = empty_bbox;
    if (shapeMethods(object->node).ShapeBBox)
        shapeMethods(object->node).ShapeBBox(object, &box, key);
    const float padding = displacementPadding(object);
    const RtVector margin = { padding, padding, padding };
    return { box.min - margin, box.max + margin };
}

void updateVisibility(RtGObject* object)
{
    object->visibility = static_cast<uint16_t>(shapeParams(object->node).visibility);
    if (object->visibility == 0) // by choice: nothing to report
        return;
    if (isEmpty(object->local_bbox)) {
        RvMsgWarning("%s: shape has empty bounding box (hiding shape)",
                     RvNodeGetName(object->node));
        object->visibility = 0;
    } else if (!isTransformUsable(object)) {
        RvMsgWarning("%s: matrix is singular or not finite (hiding shape)",
                     RvNodeGetName(object->node));
        object->visibility = 0;
    }
}

void releaseMatrixParameter(RtNode* node)
{
    if (!render_options || !render_options->preserve_scene_data)
        replaceArray(&shapeParams(node).matrix, RvArrayAllocate(0, 1, RV_TYPE_MATRIX));
}

// ---- Updates ----

void updateClones(RtGObject* object)
{
    for (RtGObject* clone = object; (clone = nextClone(object, clone));) {
        clone->data = object->data;
        clone->nvarying = object->nvarying;
        clone->nuniform = object->nuniform;
        clone->nkeys_shape = object->nkeys_shape;
        clone->local_bbox = object->local_bbox;
        dropCache(clone);
        ++clone->revision;
        updateWorldBounds(clone);
        updateVisibility(clone);
    }
}

static void bringUpToDate(RtGObject* object)
{
    const bool has_new_geometry =
        object->rebuild == RV_REBUILD_GEOMETRY || object->kind == RV_KIND_LIST;
    if (has_new_geometry) {
        dropAccel(object);
        dropCache(object);
        object->local_bbox =
            object->cloned_from ? object->cloned_from->local_bbox : localBounds(object, -1);
    }
    // The parameter is empty when only the geometry was edited: the present matrices stay.
    updateWorldBounds(object);
    RvGObjectTransform(object, shapeParams(object->node).matrix, false);
    updateVisibility(object);
    object->rebuild = RV_REBUILD_NONE;
    ++object->revision;
    if (has_new_geometry)
        updateClones(object);
}

void updateIfNeeded(RtNode* node)
{
    const RtGObject* const object = shapeObject(node);
    if (!object || object->rebuild == RV_REBUILD_NONE)
        return;
    if (node->entry->methods && node->entry->methods->Update)
        node->entry->methods->Update(node, node->params);
}

// ---- Structures ----

static int64_t meshBytes(const RtPolyMesh* mesh)
{
    int64_t sum = 0;
    for (int row = 0; mesh && row < RV_MESH_MEMORY_ROWS; ++row)
        sum += mesh->bytes[row];
    return sum;
}

static thread_local int accels_in_progress; // of the thread, one inside the other

bool isBuildingAccel() { return accels_in_progress > 0; }

namespace {

struct AccelScope {
    AccelScope() { ++accels_in_progress; }
    ~AccelScope() { --accels_in_progress; }
    AccelScope(const AccelScope&) = delete;
    AccelScope& operator=(const AccelScope&) = delete;
};

} // namespace

static void buildAccel(RtGObject* object, int thread)
{
    const CritSecLock guard(&object->lock);
    // A displacement shader may trace rays while its own object is being built.
    if (object->accel || object->building || !shapeMethods(object->node).ShapePrepareIntersection)
        return;
    object->building = true;
    const AccelScope scope;
    try {
        object->accel = shapeMethods(object->node).ShapePrepareIntersection(object, thread);
    } catch (const std::bad_alloc&) { // reported by the allocator; rays miss the object
    }
    object->building = false;
}

static void shareAccel(RtGObject* object, const RtGObject& original, int thread)
{
    const CritSecLock guard(&object->lock);
    if (object->accel)
        return;
    object->accel = original.accel.load();
    if (original.kind == RV_KIND_POLYMESH)
        the_frame->stats[thread]->instance_overhead_bytes +=
            meshBytes(static_cast<const RtPolyMesh*>(original.data));
}

// ---- Hooks ----

static void askForRebuild(RtGObject* object, RtRebuild reason)
{
    // New geometry needs everything that a new transform needs.
    if (object->rebuild != RV_REBUILD_GEOMETRY)
        object->rebuild = reason;
}

// The list of both root lists, when there is one, is as much out of date as they are.
static void askRootsForRefit()
{
    const RtScene* const scene = the_frame->scene;
    for (const RtNode* root : { scene->bounded_root, scene->unbounded_root, scene->root }) {
        RtGObject* const object = shapeObject(root);
        if (object && object->kind == RV_KIND_LIST)
            askForRebuild(object, RV_REBUILD_TRANSFORM);
    }
}

void requestRebuild(RtGObject* object, RtRebuild reason)
{
    askForRebuild(object, reason);
    askRootsForRefit();
}

// What the object copied from parameters and tracing reads there.
static void refreshCopies(RtGObject* object, const char* param)
{
    if (!strcmp(param, "trace_sets"))
        RvGObjectPrepareTracesets(object);
    if (!strcmp(param, "visibility"))
        updateVisibility(object);
}

void shapeChanged(RtNode* node, const RtParamEntry* param)
{
    RtGObject* const object = shapeObject(node);
    if (object)
        refreshCopies(object, param->name);
    if (!object || !metaDataBool(node->entry, param->name, "_triggers_rebuild", false))
        return;
    RvMsgDebug("[accel] parameter %s on %s was modified - asking for accel rebuild", param->name,
               RvNodeGetName(node));
    requestRebuild(object,
                   strcmp(param->name, "matrix") ? RV_REBUILD_GEOMETRY : RV_REBUILD_TRANSFORM);
}

void shapeTeardown(RtNode* node)
{
    if (RtGObject* const object = shapeObject(node))
        destroyObject(object);
}

unsigned shapeVertexCount(const RtNode* node)
{
    const RtGObject* const object = shapeObject(node);
    return object ? object->nvarying : 0;
}

RtBBox rootBounds(const RtNode* root)
{
    const RtGObject* const object = shapeObject(root);
    return object ? object->world_bbox : RV_BBOX_ZERO;
}

// Flags of flushes during a render, for which one cache of each object is enough.
static std::atomic<int> missed_flushes;

static void dropFlushed(RtGObject* object, int flags)
{
    enum { flush_shapes = 0x2, flush_curves = 0x4 };
    if (object && (flags & (object->kind == RV_KIND_CURVES ? flush_curves : flush_shapes)))
        dropCache(object);
}

void flushShape(RtNode* node, int flags)
{
    if (the_frame->hooks->rendering())
        missed_flushes |= flags;
    else
        dropFlushed(shapeObject(node), flags);
}

void makeUpForFlushes()
{
    const int flags = missed_flushes.exchange(0);
    if (!flags)
        return;
    const SceneGuard guard(the_frame->scene);
    for (const RtListNode* e = RvListHead(the_frame->scene->nodes); e; e = e->next)
        dropFlushed(shapeObject(static_cast<RtNode*>(e->data)), flags);
}

RtGeometryRow geometryRow(RtObjectKind kind)
{
    switch (kind) {
    case RV_KIND_LIST: return RV_GEOMETRY_LISTS;
    case RV_KIND_PROCEDURAL: return RV_GEOMETRY_PROCS;
    case RV_KIND_POLYMESH: return RV_GEOMETRY_POLYMESHES;
    case RV_KIND_NURBS: return RV_GEOMETRY_NURBS;
    case RV_KIND_CURVES: return RV_GEOMETRY_CURVES;
    case RV_KIND_POINTS: return RV_GEOMETRY_POINTS;
    default: return RV_GEOMETRY_SIMPLE;
    }
}

RtGeometryRow geometryRow(const RtGObject* object)
{
    const bool is_mesh = object->kind == RV_KIND_POLYMESH && object->data;
    return is_mesh ? meshOf(object)->row : geometryRow(object->kind);
}

void countFirstHit(RtGObject* object, int thread)
{
    if (!object->was_hit.exchange(true, std::memory_order_relaxed))
        ++the_frame->stats[thread]->geometry[geometryRow(object)].objects_hit;
}

// ---- User bounds ----

static RtBBox enlargedBox(const RtBBox& box, float slack)
{
    static constexpr float min_extent = 0.005f;
    if (!(slack > 0))
        return box;
    const RtVector extent = box.max - box.min;
    const RtVector margin = RtVector{ fmaxf(extent.x, min_extent), fmaxf(extent.y, min_extent),
                                      fmaxf(extent.z, min_extent) } *
                            (slack * 0.5f);
    return { box.min - margin, box.max + margin };
}

static void countPoorBounds(const char* prefix)
{
    if (!strcmp(prefix, "disp"))
        ++threadStats()->poor_bounds_displaced;
    else if (!strcmp(prefix, "proc"))
        ++threadStats()->poor_bounds_procedural;
}

} // namespace rv

RtGObject* RvGObjectInitialize(RtNode* node, RtObjectKind kind, void* data, uint32_t nkeys,
                               uint32_t nuniform, uint32_t nvarying)
{
    RtGObject* const object = rv::allocateObject("RvGObjectInitialize");
    if (!object)
        return nullptr;
    const rv::ShapeParams& params = rv::shapeParams(node);
    node->local_data = object;
    object->node = node;
    object->kind = kind;
    object->data = data;
    object->nkeys_shape = nkeys;
    object->nuniform = nuniform;
    object->nvarying = nvarying;
    RvGObjectPrepareTracesets(object);
    rv::prepareCommonParameters(node);
    rv::checkUserData(object);
    object->local_bbox = object->world_bbox = rv::localBounds(object, -1);
    RvGObjectTransform(object, params.matrix, false);
    rv::releaseMatrixParameter(node);
    rv::updateVisibility(object);
    if (kind != RV_KIND_LIST)
        rv::enterScene(object);
    return object;
}

void RvGObjectPrepareTracesets(RtGObject* object)
{
    RvFree_func(object->traceset_hashes);
    object->traceset_hashes = nullptr;
    RtArray*& names = rv::shapeParams(object->node).trace_sets;
    const unsigned count = rv::tracesetCount(object->node);
    if (count == 0) {
        RvArrayDestroy(names);
        names = nullptr;
        return;
    }
    if (object->kind == RV_KIND_LIST || object->kind == RV_KIND_PROCEDURAL) {
        RvMsgWarning("[obj] Ignoring tracesets on object list \"%s\"", RvNodeGetName(object->node));
        return;
    }
    object->traceset_hashes = rv::allocateHashes(count, "RvGObjectPrepareTracesets");
    for (unsigned i = 0; object->traceset_hashes && i < count; ++i) {
        const char* const text = rv::elementsOf<const char*>(names)[i];
        object->traceset_hashes[i] = rv::stringHash(text ? text : "");
    }
}

RtGObject* RvGObjectClone(const RtGObject* object)
{
    RtGObject* const clone = object ? rv::allocateObject("RvGObjectClone") : nullptr;
    if (!clone)
        return nullptr;
    clone->node = object->node;
    clone->data = object->data;
    clone->world_bbox = object->world_bbox;
    clone->local_bbox = object->local_bbox;
    clone->accel = object->accel.load();
    clone->aux = object->aux;
    clone->nvarying = object->nvarying;
    clone->nuniform = object->nuniform;
    clone->kind = object->kind;
    clone->visibility = object->visibility;
    clone->rebuild = object->rebuild;
    clone->nkeys_shape = object->nkeys_shape;
    clone->cloned_from = const_cast<RtGObject*>(object);
    if (rv::copyMatrices(clone, *object) && rv::copyTracesets(clone, *object))
        return clone;
    clone->node = nullptr; // it is that of the object
    rv::destroyObject(clone);
    return nullptr;
}

void RvGObjectUpdate(RtNode* node)
{
    RtGObject* const object = rv::shapeObject(node);
    if (object && object->rebuild &&
        rv::metaDataBool(node->entry, nullptr, "_supports_rebuild", false))
        rv::bringUpToDate(object);
}

void RvGObjectBuildAccel(RtNode* node, int thread)
{
    const RtNode* const owner = rv::geometryNode(node);
    RtGObject* const original = rv::shapeObject(owner);
    if (!original)
        return;
    if (original->kind == RV_KIND_PROCEDURAL) { // without the lock: loading takes one of its own
        const rv::AccelScope scope;
        rv::loadProcedural(original, rv::LoadedFor::ray);
    }
    rv::buildAccel(original, thread);
    if (!original->accel)
        return;
    for (; node != owner; node = node->source)
        if (RtGObject* const clone = rv::shapeObject(node))
            rv::shareAccel(clone, *original, thread);
}

void RvCheckUserBounds(const char* prefix, const char* name, const RtBBox* given,
                       const RtBBox* generated)
{
    if (!given || !generated || rv::isEmpty(*generated))
        return;
    const float slack = rv::render_options ? rv::render_options->bad_bounds_slack : 0.02f;
    const RtBBox allowed = rv::enlargedBox(*given, slack);
    if (!RvBBoxInside(allowed, generated->min) || !RvBBoxInside(allowed, generated->max)) {
        RvMsgWarning("[%s] %s: incorrect user bounds! given: (%g, %g, %g) to (%g, %g, %g), "
                     "generated: (%g, %g, %g) to (%g, %g, %g)",
                     prefix, name, given->min.x, given->min.y, given->min.z, given->max.x,
                     given->max.y, given->max.z, generated->min.x, generated->min.y,
                     generated->min.z, generated->max.x, generated->max.y, generated->max.z);
        return;
    }
    const float probability = RvBBoxArea(*generated) / RvBBoxArea(*given);
    if (probability < 0.5f) {
        RvMsgWarningMasked(RV_LOG_DEBUG, "[%s] %s: poor user bounds! hit probability = %.3f",
                           prefix, name, probability);
        rv::countPoorBounds(prefix);
    }
}
