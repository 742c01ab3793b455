// Acceleration structures: what answers ray queries against the primitives of one object, the
// records that a query carries, and the list its hits go into.
#ifndef RV_ACCEL_H
#define RV_ACCEL_H

#include "rv_math.h"
#include "rv_node.h"
#include "rv_shapes.h"
#include "system/checked_heap.h"

#include <stddef.h>
#include <stdint.h>

namespace rv {
struct ShapeParams;
}

inline constexpr uint32_t rv_no_primitive = 0xFFFFFFFF;

// Objects inside each other that a ray enters; deeper ones are left out. Each takes some kilobytes
// of the thread's stack.
inline constexpr uint32_t rv_nesting_limit = 1024;

// One entry of the hit list: where a ray meets a primitive.
struct RtHit {
    float t;
    float u, v;             // position on the primitive
    RtGObject* object;      // the innermost shape
    const RtMatrix* matrix; // object to world, null for identity
    RtNode* instance;       // the outermost instance it was reached through, or null
    uint32_t prim;
};

// What a ray carries through all objects.
struct RtTraversal {
    uint16_t ray_type;         // RV_RAY_*
    uint8_t thread;            // render thread
    bool any_hit;              // shadow ray from a shading context: the first opaque hit ends it
    bool any_order;            // with any_hit: which opaque hit ends it makes no difference
    bool inclusive_traceset;   // hit only the trace set, instead of avoiding it
    const char* traceset;      // null or "" for none
    uint32_t traceset_hash;    // of that name
    const RtNode* light;       // whose shadow is tested, or null
    const RtNode* from_object; // what spawned the ray, when that was a surface; else null
    const RtNode* from_instance;
    uint32_t from_prim; // rv_no_primitive when no surface spawned the ray
};

// The ray in the space of the object being intersected. dir keeps the length it gets from the
// transform, so distances are those of the world ray.
struct RtObjectRay {
    RtPoint origin;
    RtVector dir;
    float mindist;
    float time;           // shutter time
    uint32_t ignore_prim; // the primitive the ray leaves, when it belongs to this object and
                          // instance; else rv_no_primitive
};

// Which objects a pass over the scene tests, by their "opaque" flag.
enum class RtOpaquePass : uint8_t { all, opaque, non_opaque };

// Hits in order of distance, nearest first.
struct RtHitList {
    uint32_t capacity; // 1 or more
    uint32_t count;
    bool found; // an any-hit ray is done
    RtOpaquePass pass;
    bool non_opaque_skipped; // in the pass over opaque objects
    float maxdist;           // farther hits are of no interest
    const RtMatrix* matrix;  // object to world of the object being intersected, null for identity
    RtNode* instance;        // the outermost instance being descended through, or null
    const rv::ShapeParams* flags; // of that instance, or of the object being intersected
    RtHit* hits;                  // capacity entries
    uint32_t depth;               // objects that the ray is inside of
    uint32_t inserted;            // hits so far, those that nearer ones drove out again included
};

// One structure, built once and then read by all threads.
struct RtAccel : rv::CheckedHeap {
    RtAccel() = default;
    RtAccel(const RtAccel&) = delete;
    RtAccel& operator=(const RtAccel&) = delete;
    virtual ~RtAccel() = default;
    virtual const char* name() const = 0;
    virtual size_t memory() const { return 0; }
    virtual void intersect(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                           RtHitList& hits) const = 0;
};

// The one way into a hit list: drops what is too near, too far, a back face that the ray ignores,
// or behind an opaque hit.
void RvAccelInsertHit(RtHitList& hits, float t, float u, float v, const RtTraversal& traversal,
                      const RtObjectRay& ray, RtGObject* object, uint32_t prim);

// Tests an object with a ray of the space around it: visibility, trace sets, groups, transform,
// then its structure, built now if this is the first ray to enter the object's bounds.
void RvIntersectObject(RtGObject* object, const RtTraversal& traversal, const RtObjectRay& ray,
                       RtHitList& hits);

namespace rv {

// Enters the box between tnear and tfar within the ray's mindist and maxdist.
struct SlabHit {
    float tnear, tfar;
    explicit operator bool() const { return tnear <= tfar; }
};
SlabHit slabTest(const RtBBox& box, const RtObjectRay& ray, float maxdist);

// A structure of one primitive, or of none: intersect() is the primitive test itself.
struct SimpleAccel : RtAccel {
    const char* name() const override { return "simple"; }
};

} // namespace rv

#endif
