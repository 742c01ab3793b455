// accel: the hit list and the entry of rays into objects.
#include "accels/accel.h"

#include "array.h"
#include "objects/polymesh.h"
#include "options.h"
#include "rv_rays.h"
#include "thread_slot.h"

#include <algorithm>
#include <string.h>

namespace rv {

// ---- Hits ----

static RtPoint pointAt(const RtObjectRay& ray, float t)
{
    return { ray.origin.x + ray.dir.x * t, ray.origin.y + ray.dir.y * t,
             ray.origin.z + ray.dir.z * t };
}

// Inversion is a matter of the shape itself; instances have no say in it.
static bool isBackFace(RtHit& hit, const RtObjectRay& ray)
{
    const RtPoint point = pointAt(ray, hit.t);
    RtLocalGeometry geometry = {};
    shapeMethods(hit.object->node)
        .ShapeLocalGeometry(&ray.dir, ray.time, nullptr, &hit, &point, &geometry);
    const float facing = dot(geometry.Ng, ray.dir);
    return shapeParams(hit.object->node).invert_normals ? facing < 0 : facing > 0;
}

static bool sharesVertex(const RtPolyMesh& mesh, uint32_t a, uint32_t b)
{
    uint32_t va[3], vb[3];
    triangleVertices(mesh, a, va);
    triangleVertices(mesh, b, vb);
    return std::any_of(va, va + 3,
                       [&vb](uint32_t v) { return std::find(vb, vb + 3, v) != vb + 3; });
}

// The shading normal of a smooth mesh may see a light that the triangles around the point hide;
// those neighbours cast no shadow on it.
static bool isTerminatorArtifact(const RtHit& hit, const RtTraversal& traversal)
{
    if (!(traversal.ray_type & RV_RAY_SHADOW) || !traversal.light ||
        traversal.from_prim == rv_no_primitive || hit.object->kind != RV_KIND_POLYMESH ||
        traversal.from_object != hit.object->node || traversal.from_instance != hit.instance ||
        !render_options->shadow_terminator_fix)
        return false;
    const RtPolyMesh& mesh = *static_cast<const RtPolyMesh*>(hit.object->data);
    return (mesh.normals || mesh.packed_normals) && traversal.from_prim < mesh.ntriangles &&
           sharesVertex(mesh, hit.prim, traversal.from_prim);
}

static uint32_t positionOf(const RtHitList& hits, float t)
{
    uint32_t position = 0;
    while (position < hits.count && hits.hits[position].t < t)
        ++position;
    return position;
}

// ---- Objects ----

static bool inTraceSet(const RtGObject* object, const ShapeParams& params,
                       const RtTraversal& traversal)
{
    const RtArray* const sets = params.trace_sets;
    for (unsigned i = 0; i < sets->nelements; ++i) {
        if (object->traceset_hashes[i] != traversal.traceset_hash)
            continue;
        const char* const set = RvArrayGetStr(sets, i);
        if (set && !strcmp(set, traversal.traceset))
            return true;
    }
    return false;
}

static bool passesTraceSet(const RtGObject* object, const ShapeParams& params,
                           const RtTraversal& traversal)
{
    if (!traversal.traceset || !*traversal.traceset)
        return true;
    if (!object->traceset_hashes)
        return !traversal.inclusive_traceset || isContainer(object);
    return inTraceSet(object, params, traversal) == traversal.inclusive_traceset;
}

static bool inGroup(const RtArray* group, const RtNode* node)
{
    for (unsigned i = 0; group && i < group->nelements; ++i)
        if (RvArrayGetPtr(group, i) == node)
            return true;
    return false;
}

// The shape in the place where a ray comes from; another instance of it is another object.
static bool isOrigin(const RtGObject* shape, const RtTraversal& traversal, const RtHitList& hits)
{
    return traversal.from_object == shape->node && traversal.from_instance == hits.instance;
}

static bool castsShadow(RtGObject* object, const ShapeParams& params, const RtTraversal& traversal,
                        const RtHitList& hits)
{
    if (params.use_shadow_group && traversal.light &&
        !inGroup(params.shadow_group, traversal.light))
        return false;
    return params.self_shadows || !isOrigin(innermost(object), traversal, hits);
}

// Which pass over the scene an object belongs to. Containers belong to all.
static bool belongsToPass(const RtGObject* object, const ShapeParams& params, RtHitList& hits)
{
    if (hits.pass == RtOpaquePass::all || isContainer(object))
        return true;
    if (hits.pass == RtOpaquePass::non_opaque)
        return !params.opaque;
    hits.non_opaque_skipped = hits.non_opaque_skipped || !params.opaque;
    return params.opaque;
}

// ---- Transforms ----

// Memory of the trace that is going on.
static RtMatrix* scratchMatrix(int thread)
{
    return static_cast<RtMatrix*>(
        RvMemPoolAlloc(sizeof(RtMatrix), the_frame->thread_slots[thread].pools[0]));
}

// What a ray changes in the hit list while it is inside an object.
class ObjectScope {
public:
    explicit ObjectScope(RtHitList& list)
        : hits(list), matrix(list.matrix), instance(list.instance), flags(list.flags)
    {
        ++hits.depth;
    }
    ~ObjectScope()
    {
        --hits.depth;
        hits.matrix = matrix;
        hits.instance = instance;
        hits.flags = flags;
    }
    ObjectScope(const ObjectScope&) = delete;
    ObjectScope& operator=(const ObjectScope&) = delete;

private:
    RtHitList& hits;
    const RtMatrix* const matrix;
    RtNode* const instance;
    const ShapeParams* const flags;
};

struct Transform {
    const RtMatrix* to_parent;
    const RtMatrix* from_parent;
};

// The transform of an object at the ray's time; false when there is no memory for it.
static bool transformAt(const RtGObject* object, float time, int thread, RtMatrix* inverse,
                        Transform* out)
{
    if (object->nkeys == 1) {
        *out = { &object->matrices[0], &object->matrices[1] };
        return true;
    }
    RtMatrix* const matrix = scratchMatrix(thread);
    if (!matrix)
        return false;
    objectToWorldAt(object, time, matrix);
    RvM4Invert(matrix, inverse);
    *out = { matrix, inverse };
    return true;
}

// Brings a ray into the space of the object and tells the hit list; false without memory.
static bool enterSpace(const RtGObject* object, const RtTraversal& traversal, RtObjectRay& ray,
                       RtHitList& hits)
{
    RtMatrix inverse;
    Transform transform;
    if (!transformAt(object, ray.time, traversal.thread, &inverse, &transform))
        return false;
    const RtPoint origin = ray.origin;
    const RtVector dir = ray.dir;
    RvM4PointByMatrixMult(&ray.origin, transform.from_parent, &origin);
    RvM4VectorByMatrixMult(&ray.dir, transform.from_parent, &dir);
    if (!hits.matrix) {
        hits.matrix = transform.to_parent;
        return true;
    }
    RtMatrix* const composed = scratchMatrix(traversal.thread);
    if (!composed)
        return false;
    RvM4Mult(composed, transform.to_parent, hits.matrix);
    hits.matrix = composed;
    return true;
}

// The structure of an object, built now if the ray enters its bounds; null otherwise.
static const RtAccel* accelFor(RtGObject* object, const RtTraversal& traversal,
                               const RtObjectRay& ray, const RtHitList& hits)
{
    const RtAccel* const present = object->accel.load(std::memory_order_acquire);
    if (present || !slabTest(object->local_bbox, ray, hits.maxdist))
        return present;
    RvGObjectBuildAccel(object->node, traversal.thread);
    return object->accel.load(std::memory_order_acquire);
}

SlabHit slabTest(const RtBBox& box, const RtObjectRay& ray, float maxdist)
{
    const float origin[3] = { ray.origin.x, ray.origin.y, ray.origin.z };
    const float dir[3] = { ray.dir.x, ray.dir.y, ray.dir.z };
    const float low[3] = { box.min.x, box.min.y, box.min.z };
    const float high[3] = { box.max.x, box.max.y, box.max.z };
    SlabHit hit = { ray.mindist, maxdist };
    for (int axis = 0; axis < 3; ++axis) {
        if (dir[axis] == 0) { // the ray stays between the two sides, or outside of them
            if (origin[axis] < low[axis] || origin[axis] > high[axis])
                return { 1, 0 };
            continue;
        }
        const float t0 = (low[axis] - origin[axis]) / dir[axis];
        const float t1 = (high[axis] - origin[axis]) / dir[axis];
        hit.tnear = std::max(hit.tnear, std::min(t0, t1));
        hit.tfar = std::min(hit.tfar, std::max(t0, t1));
    }
    return hit;
}

} // namespace rv

void RvAccelInsertHit(RtHitList& hits, float t, float u, float v, const RtTraversal& traversal,
                      const RtObjectRay& ray, RtGObject* object, uint32_t prim)
{
    if (!(t > ray.mindist && t < hits.maxdist))
        return;
    RtHit hit = { t, u, v, object, hits.matrix, hits.instance, prim };
    const rv::ShapeParams& flags = *hits.flags;
    if (!(traversal.ray_type & flags.sidedness) && rv::isBackFace(hit, ray))
        return;
    if (rv::isTerminatorArtifact(hit, traversal))
        return;
    const uint32_t position = rv::positionOf(hits, t);
    if (position == hits.capacity)
        return;
    ++hits.inserted;
    if (flags.opaque) {
        hits.count = position + 1;
        hits.maxdist = t;
        hits.found = traversal.any_hit;
    } else {
        hits.count = std::min(hits.count + 1, hits.capacity);
        std::move_backward(hits.hits + position, hits.hits + hits.count - 1,
                           hits.hits + hits.count);
    }
    hits.hits[position] = hit;
    if (hits.count == hits.capacity) {
        hits.maxdist = hits.hits[hits.count - 1].t;
        hits.found = traversal.any_hit;
    }
}

void RvIntersectObject(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                       RtHitList& hits)
{
    if (!(traversal.ray_type & object->visibility) || hits.depth >= rv_nesting_limit)
        return;
    const rv::ShapeParams& own = rv::shapeParams(object->node);
    const rv::ObjectScope scope(hits);
    if (!hits.instance) {
        hits.flags = &own;
        hits.instance = object->node->source ? object->node : nullptr;
    }
    if (!rv::belongsToPass(object, *hits.flags, hits) ||
        !rv::passesTraceSet(object, own, traversal) ||
        ((traversal.ray_type & RV_RAY_SHADOW) && !rv::castsShadow(object, own, traversal, hits)))
        return;
    RtObjectRay local = ray;
    if (object->nkeys && !rv::enterSpace(object, traversal, local, hits))
        return;
    const RtAccel* const accel = rv::accelFor(object, traversal, local, hits);
    if (!accel)
        return;
    RtGObject* const shape = rv::innermost(object);
    local.ignore_prim =
        rv::isOrigin(shape, traversal, hits) ? traversal.from_prim : rv_no_primitive;
    const uint32_t inserted = hits.inserted;
    accel->intersect(shape, traversal, local, hits);
    if (hits.inserted != inserted && rv::isContainer(shape))
        rv::noteHit(shape, traversal.thread);
}
