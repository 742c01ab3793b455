// listobj: the "list_aggregate" shape node, a group of shapes that is traced as one object.
#include "objects/listobj.h"

#include "array.h"
#include "list.h"
#include "msg.h"

#include <algorithm>
#include <vector>

static const char* const module_path = "core\\src\\objects\\listobj";

void RtAggrList::permutePrimitives(const uint32_t* order)
{
    const std::vector<RtGObject*, rv::CheckedAllocator<RtGObject*>> before(children,
                                                                           children + count);
    for (uint32_t i = 0; i < count; ++i)
        children[i] = before[order[i]];
}

namespace rv {

struct ListAggregate {
    void* obj_list; // RtList of shape nodes
    ShapeParams common;
    const char* name;
};

// ---- Motion ----

// What the scan over the children of a list found.
struct MotionScan {
    uint32_t keys; // of the moving children; 1 before the first
    int transforming;
    int deforming;
};

struct MotionMessages {
    const char* sample_count;
    const char* sample_times;
    const char* key_count;
};

static const MotionMessages transform_messages = {
    "[obj] unable to optimize object list - found object with %d transformation time samples",
    "[obj] unable to optimize object list - found object with 2 non-default transformation time "
    "samples: [%.2f, %.2f]",
    "[obj] unable to optimize object list - found an object with %d matrices but the list has "
    "another object with %d keys",
};

static const MotionMessages deform_messages = {
    "[obj] unable to optimize object list - found object with deformation %d time samples",
    "[obj] unable to optimize object list - found object with 2 non-default deformation time "
    "samples: [%.2f, %.2f]",
    "[obj] unable to optimize object list - found an object with %d deformation keys but the list "
    "has another object with %d keys",
};

// A moving child must move over the whole shutter, in as many keys as the others.
static bool joinsMotion(MotionScan* scan, uint32_t keys, const RtArray* samples,
                        const MotionMessages& messages)
{
    const int count = samples && samples->type == RV_TYPE_FLOAT ? int(samples->nelements) : 0;
    if (count != 2 || !samples->data) {
        RvMsgWarningMasked(RV_LOG_DEBUG, messages.sample_count, count);
        return false;
    }
    const float* const times = elementsOf<float>(samples);
    if (times[0] != 0 || times[1] != 1) {
        RvMsgWarningMasked(RV_LOG_DEBUG, messages.sample_times, times[0], times[1]);
        return false;
    }
    if (scan->keys > 1 && scan->keys != keys) {
        RvMsgWarningMasked(RV_LOG_DEBUG, messages.key_count, int(keys), int(scan->keys));
        return false;
    }
    scan->keys = keys;
    return true;
}

// Takes a child into account; false when its motion does not fit.
static bool scanChild(MotionScan* scan, const RtGObject* child)
{
    const RtNode* const node = child->node;
    const ShapeParams& params = shapeParams(node);
    if (child->nkeys > 1) {
        ++scan->transforming;
        return joinsMotion(scan, child->nkeys, params.transform_time_samples, transform_messages);
    }
    if (child->nkeys_shape < 2)
        return true;
    ++scan->deforming;
    if (!joinsMotion(scan, child->nkeys_shape, params.deform_time_samples, deform_messages))
        return false;
    if (node->source && geometryNode(node)->creator != node->creator) {
        RvMsgWarningMasked(RV_LOG_DEBUG,
                           "[obj] unable to optimize object list - found an instance which refers "
                           "to an object in a different procedural");
        return false;
    }
    return true;
}

// Bounding every child per key is worth it when all motion has the same keys.
void optimizeMotion(RtAggrList* list)
{
    list->nkeys = 1;
    MotionScan scan = { 1, 0, 0 };
    for (uint32_t i = 0; i < list->count; ++i)
        if (list->children[i]->node && !scanChild(&scan, list->children[i]))
            return;
    list->nkeys = scan.keys;
    if (scan.keys > 1)
        RvMsgInfo("[obj] optimizing motion in object list for %d keys (%d objects transforming, "
                  "%d deforming, %d total)",
                  int(scan.keys), scan.transforming, scan.deforming, int(list->count));
}

// ---- The record ----

static size_t childBytes(uint32_t count) { return count * sizeof(RtGObject*); }

static int64_t listBytes(const RtAggrList& list)
{
    return int64_t(childBytes(list.capacity) + childBytes(list.container_count));
}

// Null when there are none, or when the heap is exhausted.
static RtGObject** allocateChildren(uint32_t count)
{
    void* const children =
        count ? allocate(childBytes(count), module_path, __LINE__, "RtAggrList") : nullptr;
    return static_cast<RtGObject**>(children);
}

static void fillChildren(RtAggrList* list, const RtNode* owner, const RtList* nodes)
{
    for (const RtListNode* element = RvListHead(nodes); element; element = element->next) {
        RtNode* const node = static_cast<RtNode*>(element->data);
        if (!node)
            continue;
        if (node->entry->type != RV_NODE_SHAPE) {
            RvMsgWarning("%s: ignoring %s in the object list (not a shape)", RvNodeGetName(owner),
                         RvNodeGetName(node));
            continue;
        }
        RvNodeInitialize(node);
        if (RtGObject* const object = shapeObject(node)) {
            addMembership(object);
            list->children[list->count++] = object;
        }
    }
}

// False when the heap is exhausted.
static bool gatherContainers(RtAggrList* list)
{
    RtGObject** const end = list->children + list->count;
    const uint32_t count = uint32_t(std::count_if(list->children, end, isContainer));
    list->containers = allocateChildren(count);
    if (count && !list->containers)
        return false;
    for (RtGObject** child = list->children; child != end; ++child)
        if (isContainer(*child)) {
            addMembership(*child);
            list->containers[list->container_count++] = *child;
        }
    return true;
}

static void releaseList(RtAggrList* list)
{
    for (uint32_t i = 0; i < list->count; ++i)
        dropMembership(list->children[i]);
    for (uint32_t i = 0; i < list->container_count; ++i)
        dropMembership(list->containers[i]);
    RvFree_func(list->children);
    RvFree_func(list->containers);
    RvFree_func(list);
}

// Grows whenever a child is brought up to date, by whomever.
static uint64_t sumOfRevisions(const RtAggrList& list)
{
    uint64_t sum = 0;
    for (uint32_t i = 0; i < list.count; ++i)
        sum += list.children[i]->revision;
    return sum;
}

void countAggrList(const RtAggrList& list, RtGeometryRow row)
{
    RtStats& stats = *threadStats();
    ++stats.geometry[row].objects;
    stats.geometry[row].initial_bytes += listBytes(list);
    (row == RV_GEOMETRY_LISTS ? stats.list_children : stats.procedural_children).add(list.count);
}

RtAggrList* createAggrList(const RtNode* owner, const RtList* nodes)
{
    const uint32_t capacity = RvListSize(nodes);
    RtAggrList* const list = static_cast<RtAggrList*>(
        RvMalloc_func(sizeof(RtAggrList), module_path, __LINE__, "RtAggrList"));
    RtGObject** const children = allocateChildren(capacity);
    if (!list || (capacity && !children)) {
        RvFree_func(children);
        RvFree_func(list);
        return nullptr;
    }
    *list = {};
    list->children = children;
    list->capacity = capacity;
    list->nkeys = list->depth = 1;
    fillChildren(list, owner, nodes);
    if (!gatherContainers(list)) {
        releaseList(list);
        return nullptr;
    }
    list->revisions = sumOfRevisions(*list);
    optimizeMotion(list);
    return list;
}

void destroyAggrList(RtAggrList* list, RtGeometryRow row)
{
    if (!list)
        return;
    threadStats()->geometry[row].freed_bytes += listBytes(*list);
    releaseList(list);
}

bool dropLostChildren(RtAggrList* list)
{
    uint32_t kept = 0;
    for (uint32_t i = 0; i < list->count; ++i) {
        RtGObject* const child = list->children[i];
        if (child->node)
            list->children[kept++] = child;
        else
            dropMembership(child);
    }
    const bool had_lost_children = kept < list->count;
    list->count = kept;
    return had_lost_children;
}

// ---- Bounds ----

RtBBox childBounds(const RtAggrList& list, uint32_t child, uint32_t key)
{
    RtGObject* const object = list.children[child];
    if (list.nkeys < 2 || !object->node)
        return object->world_bbox;
    // A child that was edited may have fewer keys than the list has found.
    if (object->nkeys > 1)
        return transformedBox(object->local_bbox,
                              &object->matrices[std::min<uint32_t>(key, object->nkeys - 1)]);
    RtGObject* const shape = innermost(object);
    if (shape->nkeys_shape < 2)
        return object->world_bbox;
    const RtBBox box = localBounds(shape, int(std::min(key, shape->nkeys_shape - 1)));
    return transformedBox(box, object->matrices);
}

RtBBox listBounds(const RtAggrList& list)
{
    RtBBox bounds = empty_bbox;
    for (uint32_t i = 0; i < list.count; ++i)
        bounds = boxUnion(bounds, list.children[i]->world_bbox);
    return bounds;
}

// ---- The node type ----

static RtAggrList* listOf(const RtGObject* object)
{
    return static_cast<RtAggrList*>(object->data);
}

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<ListAggregate>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamPTR(params, RV_FIELD(ListAggregate, obj_list), nullptr);
}

static void measureDepth(RtAggrList* list)
{
    list->depth = 1;
    for (uint32_t i = 0; i < list->count; ++i)
        if (list->children[i]->kind == RV_KIND_LIST && list->children[i]->data)
            list->depth = std::max(list->depth, listOf(list->children[i])->depth + 1);
}

static void initialize(RtNode* node, void* params)
{
    ListAggregate& self = *static_cast<ListAggregate*>(params);
    RtAggrList* const list = createAggrList(node, static_cast<const RtList*>(self.obj_list));
    self.obj_list = nullptr;
    if (!list)
        return;
    countAggrList(*list, RV_GEOMETRY_LISTS);
    measureDepth(list);
    if (list->depth == rv_nesting_limit + 1)
        RvMsgWarning("%s: more than %u object lists are inside each other; the innermost are not "
                     "rendered",
                     RvNodeGetName(node), rv_nesting_limit);
    if (!RvGObjectInitialize(node, RV_KIND_LIST, list, 1, 0, 0))
        destroyAggrList(list, RV_GEOMETRY_LISTS);
}

// Procedurals find out themselves whether what they hold has changed.
static bool isProcedural(const RtNode* node)
{
    return node->entry->kind_methods == procedural_methods.kind_methods;
}

// By the child's own method, which may derive more from its parameters than a box; then what that
// method leaves to do.
static void updateChild(RtNode* node)
{
    if (isProcedural(node))
        node->entry->methods->Update(node, node->params);
    else
        updateIfNeeded(node);
    RvGObjectUpdate(node);
}

bool updateChildren(RtAggrList* list)
{
    const bool had_lost_children = dropLostChildren(list);
    for (uint32_t i = 0; i < list->count; ++i)
        updateChild(list->children[i]->node);
    const uint64_t revisions = sumOfRevisions(*list);
    const bool is_changed = had_lost_children || revisions != list->revisions;
    list->revisions = revisions;
    return is_changed;
}

static void update(RtNode* node, void*)
{
    RtGObject* const object = objectOf(node);
    if (!object)
        return;
    RtAggrList* const list = listOf(object);
    if (updateChildren(list) && object->rebuild == RV_REBUILD_NONE)
        object->rebuild = RV_REBUILD_TRANSFORM;
    if (object->rebuild != RV_REBUILD_NONE)
        optimizeMotion(list);
    RvGObjectUpdate(node);
}

static void finish(RtNode* node)
{
    RtGObject* const object = objectOf(node);
    if (!object)
        return;
    destroyAggrList(listOf(object), RV_GEOMETRY_LISTS);
    object->data = nullptr;
}

static void boundList(RtGObject* object, RtBBox* bbox, int) { *bbox = listBounds(*listOf(object)); }

static bool spansShutter(const RtArray* samples)
{
    return samples && samples->type == RV_TYPE_FLOAT && samples->nelements == 2 && samples->data &&
           elementsOf<float>(samples)[0] == 0 && elementsOf<float>(samples)[1] == 1;
}

RtAccel* createChildAccel(const RtGObject* object, RtAggrList* list, int thread)
{
    dropLostChildren(list);
    // The keys of a list are those of its children, which move over the whole shutter.
    if (!spansShutter(shapeParams(object->node).deform_time_samples))
        list->nkeys = 1;
    return createListAccel(list, shapeParams(object->node).unbounded, thread);
}

static RtAccel* prepareIntersection(RtGObject* object, int thread)
{
    return createChildAccel(object, listOf(object), thread);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finish,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = boundList,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = prepareIntersection,
};

const RtNodeMethods list_aggregate_methods = { &common, &shape };

} // namespace rv
