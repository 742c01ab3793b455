// Geometric objects: what the tracer knows of a shape node, whatever its kind.
#ifndef RV_GOBJECT_H
#define RV_GOBJECT_H

#include "accels/accel.h"
#include "counters.h"
#include "maths.h"
#include "nodes.h"
#include "objects/object_cache.h"
#include "objects/objects.h"
#include "rv_threads.h"

#include <atomic>

enum RtObjectKind : uint8_t {
    RV_KIND_PLANE = 1,
    RV_KIND_DISC = 2,
    RV_KIND_SPHERE = 3,
    RV_KIND_CYLINDER = 4,
    RV_KIND_CONE = 5,
    RV_KIND_POLYMESH = 6,
    RV_KIND_PROCEDURAL = 7,
    RV_KIND_BOX = 8,
    RV_KIND_NURBS = 9,
    RV_KIND_CURVES = 10,
    RV_KIND_POINTS = 11,
    RV_KIND_IMPLICIT = 12,
    RV_KIND_LIST = 16
};

// Why an object must be brought up to date.
enum RtRebuild : uint32_t { RV_REBUILD_NONE, RV_REBUILD_GEOMETRY, RV_REBUILD_TRANSFORM };

// One per shape node; RtNode::local_data points to it.
struct RtGObject {
    RtNode* node;      // null once the node is gone while lists still hold the object
    void* data;        // of the shape; shared by clones, owned by the shape's node
    RtBBox world_bbox; // over all transform keys, in the space around the object
    RtBBox local_bbox; // in object space over all deformation keys, padded for displacement
    std::atomic<RtAccel*> accel; // null until the first ray that needs it
    void* aux;
    uint32_t nvarying;                 // elements that varying user data must have
    uint32_t nuniform;                 // elements that uniform user data must have
    uint32_t* traceset_hashes;         // one per string of "trace_sets", or null
    std::atomic<RtObjectCache*> extra; // per-object cache, not cloned; of meshes, point clouds;
                                       // for CacheReaders
    RtCritSec lock;                    // guards the construction of accel and of the cache
    RtMatrix* matrices; // null: identity; one key: object to world and its inverse; else the keys
    uint8_t nkeys;      // transform keys in matrices, 0 for identity
    RtObjectKind kind;
    uint16_t visibility;  // RV_RAY_*; 0 when the bounds are empty
    uint32_t rebuild;     // RtRebuild
    uint32_t nkeys_shape; // deformation keys

    // The clones of an object form a list, so that none of them outlives it; under the scene lock.
    RtGObject* cloned_from;
    RtGObject* first_clone;
    RtGObject* next_clone;
    RtGObject* previous_clone;
    RtList* scene_list; // the scene's list of top-level objects that holds the node, or null;
    struct RtListNode*
        list_previous;         // the element before the node's, or null; under the scene lock
    uint32_t memberships;      // places in the child arrays of lists
    uint32_t revision;         // how often geometry or transform were brought up to date
    bool matrices_are_cloned;  // and counted as overhead of nodes, not as geometry
    bool building;             // a thread is building accel; under `lock`
    std::atomic<bool> was_hit; // by a ray, which any thread may find first
};

// Makes the object of a shape node, which it becomes the local data of; from the node's Initialize.
// Null when the heap is exhausted.
RtGObject* RvGObjectInitialize(RtNode* node, RtObjectKind kind, void* data, uint32_t nkeys,
                               uint32_t nuniform, uint32_t nvarying);
// Applies motion-keyed matrices (MATRIX, one element a key): in place of the present ones, or on
// top of them when concatenating. Brings world_bbox up to date.
void RvGObjectTransform(RtGObject* object, const RtArray* matrices, bool concatenate);
// A copy that shares data and structure. It is for the caller to complete, who then hands it to
// rv::enterClones(). Null when the heap is exhausted.
RtGObject* RvGObjectClone(const RtGObject* object);
void RvGObjectPrepareTracesets(RtGObject* object);
// The common Update method of shapes.
void RvGObjectUpdate(RtNode* node);
// Builds the structure of the node's object unless it has one; any thread may call this.
void RvGObjectBuildAccel(RtNode* node, int thread);
// Warns about user bounds that miss the generated geometry, or are far too large for it. prefix is
// "proc" or "disp".
void RvCheckUserBounds(const char* prefix, const char* name, const RtBBox* given,
                       const RtBBox* generated);

namespace rv {

// The object of a built-in shape node, or null.
inline RtGObject* objectOf(const RtNode* node) { return static_cast<RtGObject*>(node->local_data); }

// The same for any node, null included: other nodes, and shapes of plug-ins, keep data of their
// own.
RtGObject* shapeObject(const RtNode* node);

// The common parameters of a built-in shape node.
inline ShapeParams& shapeParams(const RtNode* node)
{
    return *reinterpret_cast<ShapeParams*>(static_cast<char*>(node->params) +
                                           node->entry->base_offset);
}

inline const RtShapeMethods& shapeMethods(const RtNode* node)
{
    return *static_cast<const RtShapeMethods*>(node->entry->kind_methods);
}

// The node whose own type and parameters describe the geometry: the end of the chain of sources.
inline const RtNode* geometryNode(const RtNode* node)
{
    while (node->source)
        node = node->source;
    return node;
}

// The object at that end: the one whose shape is intersected.
inline RtGObject* innermost(RtGObject* object)
{
    return object->node->source ? objectOf(geometryNode(object->node)) : object;
}

// Objects that only hold others.
inline bool isContainer(const RtGObject* object)
{
    return object->kind == RV_KIND_LIST || object->kind == RV_KIND_PROCEDURAL;
}

// The object itself or, where that is hidden and only its clones are seen, the first of these by
// name: where the geometry stands in the scene. Clones that other procedurals make do not count, so
// that it does not depend on which of them were loaded.
const RtGObject* placedObject(const RtGObject* object);

// Has the object that was cloned learn of its clone, which it takes along when it goes: the clone's
// node is then without an object. From here on any thread may look at the clone.
void enterClones(RtGObject* clone);

// The calling thread is building a structure, and holds the lock of its object, or loads what the
// structure is made of, and holds the lock of procedurals: displacement shaders and user code run
// then. It must not wait for threads that may need one of these.
bool isBuildingAccel();

// Frees an object: its structure (unless it belongs to a source), matrices and hashes, not data.
// Its clones go first.
void destroyObject(RtGObject* object);

// Hooks of the frame (RtHooks).
void shapeChanged(RtNode* node, const RtParamEntry* param);
void shapeTeardown(RtNode* node);
unsigned shapeVertexCount(const RtNode* node);
RtBBox rootBounds(const RtNode* root);
void flushShape(RtNode* node, int flags);

// Before and after a render: drops the caches that were flushed while it ran.
void makeUpForFlushes();

// Position of a shutter time among n ascending samples, 0 to 0.999999: 0 at and before the first,
// 0.999999 at and after the last, so that the key index stays inside.
float relativeTime(const RtArray* samples, float time);

// Two neighbouring keys and the weight of the second.
struct KeyPair {
    uint32_t key;
    float weight;
};
// For n >= 2 keys at the relative time f in [0, 1).
inline KeyPair keyPair(uint32_t n, float f)
{
    const float x = float(n - 1) * f;
    const uint32_t key = uint32_t(x);
    return { key, x - float(key) };
}

// The transform at a shutter time, null for identity. `storage` receives it when it lies between
// two keys.
const RtMatrix* objectToWorldAt(const RtGObject* object, float time, RtMatrix* storage);

// ---- For shapes that hold or replace other geometry ----

// Has the next update of the object bring it up to date, and refit the lists at the root.
void requestRebuild(RtGObject* object, RtRebuild reason);
// For Update methods: drops the structure, which no clone keeps either.
void dropAccel(RtGObject* object);
// Drops what is kept with the object for later renders. Threads that read it keep it until they are
// done; where all threads of a render must see the same, it is not for while one is running.
void dropCache(RtGObject* object);
// For Update methods: hands the geometry and bounds of an object on to its clones.
void updateClones(RtGObject* object);
// Runs the Update method of a node whose object is out of date.
void updateIfNeeded(RtNode* node);

// ---- For containers ----

// min > max on an axis, or not a number.
inline bool isEmpty(const RtBBox& box)
{
    return !(box.min.x <= box.max.x && box.min.y <= box.max.y && box.min.z <= box.max.z);
}

// Holds nothing; the neutral element of unions.
inline constexpr RtBBox empty_bbox = { { 3.40282347e38f, 3.40282347e38f, 3.40282347e38f },
                                       { -3.40282347e38f, -3.40282347e38f, -3.40282347e38f } };

// The union where either may be empty.
RtBBox boxUnion(const RtBBox& a, const RtBBox& b);
// The box around the transformed corners; null transforms nothing.
RtBBox transformedBox(const RtBBox& box, const RtMatrix* matrix);
// Object-space bounds of a deformation key, padded for displacement; -1 for all keys.
RtBBox localBounds(RtGObject* object, int key);
// world_bbox from local_bbox and the present matrices.
void updateWorldBounds(RtGObject* object);
// Gives the object the matrices of another one.
bool copyMatrices(RtGObject* to, const RtGObject& from);
void dropMatrices(RtGObject* object);
// False when no ray can be brought into object space, whatever its time.
bool isTransformUsable(const RtGObject* object);
// Repairs the values of the common parameters: shaders, groups and time samples.
void prepareCommonParameters(RtNode* node);
// Empties "matrix", which the object has its own copy of, unless scene data is to be preserved.
void releaseMatrixParameter(RtNode* node);
// Sets the visibility to that of the parameter, or hides what has no extent in the world.
void updateVisibility(RtGObject* object);
// Appends a visible object of a top-level node to the scene's lists.
void enterScene(RtGObject* object);
// Row of the geometry statistics that counts a kind, or an object: meshes that are refined, or
// stand for other surfaces, have rows of their own.
RtGeometryRow geometryRow(RtObjectKind kind);
RtGeometryRow geometryRow(const RtGObject* object);
// Counts an object that a ray of a thread hit, however often that happens once. Instances stand for
// the shape they show.
void countFirstHit(RtGObject* object, int thread);
inline void noteHit(RtGObject* object, int thread)
{
    if (!object->was_hit.load(std::memory_order_relaxed))
        countFirstHit(object, thread);
}

// Places in child arrays keep the record of an object alive, though not its contents, when its
// node goes: the object is then invisible, has no node and an empty box.
void addMembership(RtGObject* object);
void dropMembership(RtGObject* object);

} // namespace rv

#endif
