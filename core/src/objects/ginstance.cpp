// ginstance: the "ginstance" shape node, another shape in a second place.
//
// Its object is a clone of the other shape's: geometry and structure are shared, the transform and
// the common parameters are its own.
#include "array.h"
#include "objects/polymesh.h"
#include "rv_msg.h"

namespace rv {

struct GInstance {
    RtNode* node;       // the shape
    bool inherit_xform; // "matrix" is applied after the transform of the shape, else instead of it
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<GInstance>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamNODE(params, RV_FIELD(GInstance, node), nullptr);
    RvNodeParamBOOL(params, RV_FIELD(GInstance, inherit_xform), true);
}

// ---- The referenced node ----

static bool isUntouchedInstance(const RtNode* node)
{
    return node && !node->initialized &&
           node->entry->kind_methods == ginstance_methods.kind_methods;
}

// Initialises a node and, before it, the instances it refers to through each other, innermost
// first: a recursion over a long chain would exhaust the stack. On the way in the nodes are marked
// initialised, so that a ring ends, and `source` holds the way back.
static void initializeChain(RtNode* node)
{
    RtNode* outer = nullptr;
    while (isUntouchedInstance(node)) {
        node->initialized = true;
        node->source = outer;
        outer = node;
        node = static_cast<GInstance*>(node->params)->node;
    }
    if (node && node->entry->type == RV_NODE_SHAPE)
        RvNodeInitialize(node);
    while (outer) {
        RtNode* const next = outer->source;
        outer->source = nullptr;
        outer->initialized = false;
        RvNodeInitialize(outer);
        outer = next;
    }
}

static void applyTransform(RtGObject* clone, const GInstance& self)
{
    const RtArray* const matrix = self.common.matrix;
    if (matrix && totalElements(matrix)) {
        RvGObjectTransform(clone, matrix, self.inherit_xform);
    } else if (!self.inherit_xform) {
        dropMatrices(clone);
        updateWorldBounds(clone);
    }
}

// ---- Parameters ----

// What an instance may have otherwise than the shape.
static const char* const overridable[] = {
    "shader",
    "visibility",
    "opaque",
    "trace_sets",
    "transform_time_samples",
    "sss_sample_spacing",
    "sss_max_samples",
    "sss_use_gi",
    "use_light_group",
    "light_group",
    "use_shadow_group",
    "shadow_group",
    "id",
    "sidedness",
};

static bool isOverridden(const RtNode* node, const RtParamEntry& param)
{
    if (!node->set_flags[param.index])
        return false;
    for (const char* name : overridable)
        if (!strcmp(param.name, name))
            return true;
    return false;
}

// Copies the common parameters of the shape that the instance does not override. The matrix stays:
// it has its own meaning here.
static void inheritParameters(RtNode* node)
{
    const RtNode* const source = node->source;
    const RtParamEntry* from = source->entry->params + source->own_param_count;
    const RtNodeEntry* const entry = node->entry;
    for (unsigned i = node->own_param_count; i < entry->kind_param_end; ++i, ++from) {
        const RtParamEntry& param = entry->params[i];
        if (!isOverridden(node, param) && strcmp(param.name, "matrix"))
            copyParameter(node, &param, source, from);
    }
}

static bool overridesTracesets(const RtNode* node)
{
    return isOverridden(node, *RvNodeEntryLookUpParameter(node->entry, "trace_sets"));
}

static void countInstance(const RtGObject* clone)
{
    RtStats* const stats = threadStats();
    ++stats->geometry[geometryRow(clone)].instances;
    if (clone->kind == RV_KIND_POLYMESH && clone->data && clone->visibility)
        stats->visible_triangles += meshOf(clone)->ntriangles;
}

// ---- The node type ----

static void initialize(RtNode* node, void* params)
{
    GInstance& self = *static_cast<GInstance*>(params);
    if (!self.node) {
        RvMsgWarning("%s: %s needs to reference an object", self.name, node->entry->name);
        return;
    }
    initializeChain(self.node);
    // An edited shape first: the copy of its state would have the next update lose "matrix", which
    // is released below.
    updateIfNeeded(self.node);
    RtGObject* const clone = RvGObjectClone(shapeObject(self.node));
    if (!clone) {
        RvMsgWarning("%s: trying to clone a NULL object", self.name);
        return;
    }
    clone->node = node;
    clone->rebuild = RV_REBUILD_NONE;
    node->local_data = clone;
    node->source = self.node;
    applyTransform(clone, self);
    inheritParameters(node);
    prepareCommonParameters(node);
    if (overridesTracesets(node))
        RvGObjectPrepareTracesets(clone);
    releaseMatrixParameter(node);
    updateVisibility(clone);
    enterClones(clone); // complete: threads that look for where a shape stands see it now
    enterScene(clone);
    countInstance(clone);
}

// A new matrix takes effect as it would have from the start.
static void update(RtNode* node, void* params)
{
    RtGObject* const clone = objectOf(node);
    if (!clone || clone->rebuild == RV_REBUILD_NONE || !node->source ||
        !copyMatrices(clone, *objectOf(node->source)))
        return;
    updateWorldBounds(clone);
    applyTransform(clone, *static_cast<GInstance*>(params));
    updateVisibility(clone);
    clone->rebuild = RV_REBUILD_NONE;
    ++clone->revision;
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = unreachable::ShapeLocalGeometry,
    .ShapeBBox = unreachable::ShapeBBox,
    .ShapeTextureCoordinates = unreachable::ShapeTextureCoordinates,
    .ShapePrepareUserData = unreachable::ShapePrepareUserData,
    .ShapePrepareIntersection = unreachable::ShapePrepareIntersection,
};

const RtNodeMethods ginstance_methods = { &common, &shape };

} // namespace rv
