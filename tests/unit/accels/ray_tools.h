// What the tests of structures share: rays that are shot at a structure or an object, and what they
// hit.
#ifndef RV_RAY_TOOLS_H
#define RV_RAY_TOOLS_H

#include "accels/accel.h"
#include "objects/gobject.h"
#include "rv_rays.h"
#include "system/memory.h"
#include "thread_slot.h"

#include <random>
#include <vector>

namespace ray_tools {

struct Shot {
    RtPoint origin;
    RtVector dir;
    float mindist = 0;
    float maxdist = 1e30f;
    float time = 0;
    uint32_t ignore = rv_no_primitive;
    uint16_t type = RV_RAY_CAMERA;
    bool any_hit = false;
};

// From inside or around the cube from -1 to 1, in any direction.
inline Shot randomShot(std::mt19937& random)
{
    std::uniform_real_distribution<float> uniform(-1, 1);
    Shot shot;
    shot.origin = { 2 * uniform(random), 2 * uniform(random), 2 * uniform(random) };
    shot.dir = { uniform(random), uniform(random), uniform(random) };
    return shot;
}

// Calls intersect(traversal, ray, hits); what it found.
template <class Intersect>
std::vector<RtHit> shoot(const Shot& shot, uint32_t capacity, bool* found,
                         const Intersect& intersect)
{
    std::vector<RtHit> entries(capacity);
    RtHitList hits = {};
    hits.capacity = capacity;
    hits.maxdist = shot.maxdist;
    hits.hits = entries.data();
    RtTraversal traversal = {};
    traversal.ray_type = shot.type;
    traversal.any_hit = shot.any_hit;
    traversal.from_prim = rv_no_primitive;
    const RtObjectRay ray = { shot.origin, shot.dir, shot.mindist, shot.time, shot.ignore };
    intersect(traversal, ray, hits);
    if (found)
        *found = hits.found;
    entries.resize(hits.count);
    return entries;
}

// Hits of a structure, as that of the object.
inline std::vector<RtHit> hitsOf(const RtGObject* object, const RtAccel& accel, const Shot& shot,
                                 uint32_t capacity = 1, bool* found = nullptr)
{
    return shoot(shot, capacity, found,
                 [&](const RtTraversal& traversal, const RtObjectRay& ray, RtHitList& hits) {
                     hits.flags = &rv::shapeParams(object->node);
                     accel.intersect(const_cast<RtGObject*>(object), traversal, ray, hits);
                 });
}

// Hits of objects that are entered one after another. Their matrices are gone on return.
inline std::vector<RtHit> hitsIn(const std::vector<RtGObject*>& objects, const Shot& shot,
                                 uint32_t capacity = 1, bool* found = nullptr)
{
    RtMemPool* const scratch =
        rv::the_frame->thread_slots ? rv::the_frame->thread_slots[0].pools[0] : nullptr;
    if (scratch)
        RvMemPoolPushMark(scratch);
    const std::vector<RtHit> hits =
        shoot(shot, capacity, found,
              [&](const RtTraversal& traversal, const RtObjectRay& ray, RtHitList& list) {
                  for (RtGObject* object : objects)
                      RvIntersectObject(object, traversal, ray, list);
              });
    if (scratch)
        RvMemPoolPopMark(scratch);
    return hits;
}

} // namespace ray_tools

#endif
