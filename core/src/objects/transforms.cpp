// transforms: the motion-keyed matrices of geometric objects, the bounds they lead to and the
// shutter times that select their keys. Declared by objects/gobject.h.
//
// Invariant: nkeys 0 is the identity and has no storage; one key is stored with its inverse behind
// it; several keys differ from each other and stand alone.
#include "array.h"
#include "msg.h"
#include "objects/gobject.h"

#include <algorithm>

static const char* const module_path = "core\\src\\objects\\gobject";

namespace rv {

// ---- Storage ----

static unsigned storedMatrices(unsigned nkeys) { return nkeys == 1 ? 2 : nkeys; }

static int64_t storedBytes(unsigned nkeys)
{
    return int64_t(storedMatrices(nkeys) * sizeof(RtMatrix));
}

static int64_t& memoryCounter(bool is_cloned)
{
    return is_cloned ? threadStats()->node_overhead_bytes : threadStats()->geometry_bytes;
}

void dropMatrices(RtGObject* object)
{
    if (!object->matrices)
        return;
    memoryCounter(object->matrices_are_cloned) -= storedBytes(object->nkeys);
    RvFree_func(object->matrices);
    object->matrices = nullptr;
    object->nkeys = 0;
}

static RtMatrix* newMatrices(unsigned nkeys, const char* location)
{
    return static_cast<RtMatrix*>(
        allocate(size_t(storedBytes(nkeys)), module_path, __LINE__, location));
}

// Takes the matrices in place of the present ones.
static void setMatrices(RtGObject* object, RtMatrix* matrices, unsigned nkeys, bool is_cloned)
{
    dropMatrices(object);
    object->matrices = matrices;
    object->nkeys = static_cast<uint8_t>(nkeys);
    object->matrices_are_cloned = is_cloned;
    memoryCounter(is_cloned) += storedBytes(nkeys);
}

bool copyMatrices(RtGObject* to, const RtGObject& from)
{
    if (from.nkeys == 0) {
        dropMatrices(to);
        return true;
    }
    RtMatrix* const copies = newMatrices(from.nkeys, "RvGObjectClone");
    if (!copies)
        return false;
    std::copy_n(from.matrices, storedMatrices(from.nkeys), copies);
    setMatrices(to, copies, from.nkeys, true);
    return true;
}

// ---- Combining ----

// The transform that an object gets from its present one and an array of keys.
struct CombinedTransform {
    const RtGObject* object;
    const RtArray* given; // MATRIX, with elements
    bool concatenate;

    unsigned keyCount() const { return std::max<unsigned>(object->nkeys, given->nkeys); }

    RtMatrix key(unsigned k) const
    {
        RtMatrix matrix;
        const size_t index = given->nkeys == 1 ? 0 : size_t(k) * given->nelements;
        memcpy(&matrix, static_cast<const char*>(given->data) + index * sizeof matrix,
               sizeof matrix);
        if (concatenate && object->nkeys)
            RvM4Mult(&matrix, &object->matrices[object->nkeys == 1 ? 0 : k], &matrix);
        return matrix;
    }

    bool keysAreEqual() const
    {
        const RtMatrix first = key(0);
        for (unsigned k = 1; k < keyCount(); ++k) {
            const RtMatrix other = key(k);
            if (memcmp(&other, &first, sizeof first))
                return false;
        }
        return true;
    }
};

static void storeKeys(RtGObject* object, const CombinedTransform& transform, unsigned nkeys)
{
    RtMatrix* const keys = newMatrices(nkeys, "RvGObjectTransform");
    if (!keys)
        return;
    for (unsigned k = 0; k < nkeys; ++k)
        keys[k] = transform.key(k);
    if (nkeys == 1)
        RvM4Invert(&keys[0], &keys[1]);
    setMatrices(object, keys, nkeys, false);
}

static bool isFinite(const RtMatrix& matrix)
{
    for (const auto& row : matrix.m)
        for (float element : row)
            if (!isfinite(element))
                return false;
    return true;
}

static bool hasInverse(const RtMatrix& matrix)
{
    RtMatrix inverse;
    RvM4Invert(&matrix, &inverse);
    return isFinite(inverse);
}

// Several keys may be singular one by one, as those of a shape that grows from nothing are.
bool isTransformUsable(const RtGObject* object)
{
    const RtMatrix* const keys = object->matrices;
    return object->nkeys == 0 || (std::all_of(keys, keys + object->nkeys, isFinite) &&
                                  std::any_of(keys, keys + object->nkeys, hasInverse));
}

// ---- Bounds ----

RtBBox boxUnion(const RtBBox& a, const RtBBox& b)
{
    return isEmpty(a) ? b : isEmpty(b) ? a : RvBBoxUnion(a, b);
}

struct Interval {
    float low, high;
};

// What the eight transformed corners span along an axis: the least and the greatest of each term
// of their coordinates. An axis that takes no part adds nothing even where the box is infinite.
static Interval transformedInterval(const RtBBox& box, const RtMatrix& matrix, int axis)
{
    const float low[3] = { box.min.x, box.min.y, box.min.z };
    const float high[3] = { box.max.x, box.max.y, box.max.z };
    Interval sum = { 0, 0 };
    for (int i = 0; i < 3; ++i) {
        const float factor = matrix.m[i][axis];
        if (factor == 0)
            continue;
        sum.low += fminf(factor * low[i], factor * high[i]);
        sum.high += fmaxf(factor * low[i], factor * high[i]);
    }
    return { sum.low + matrix.m[3][axis], sum.high + matrix.m[3][axis] };
}

RtBBox transformedBox(const RtBBox& box, const RtMatrix* matrix)
{
    if (!matrix || isEmpty(box))
        return box;
    const Interval x = transformedInterval(box, *matrix, 0);
    const Interval y = transformedInterval(box, *matrix, 1);
    const Interval z = transformedInterval(box, *matrix, 2);
    const RtBBox result = { { x.low, y.low, z.low }, { x.high, y.high, z.high } };
    return isEmpty(result) ? empty_bbox : result; // not a number holds nothing
}

void updateWorldBounds(RtGObject* object)
{
    RtBBox bounds = transformedBox(object->local_bbox, object->matrices);
    for (unsigned k = 1; k < object->nkeys; ++k)
        bounds = RvBBoxUnion(bounds, transformedBox(object->local_bbox, &object->matrices[k]));
    object->world_bbox = bounds;
}

// ---- Time ----

float relativeTime(const RtArray* samples, float time)
{
    static constexpr float upper_end = 0.999999f;
    if (!samples || samples->type != RV_TYPE_FLOAT || !samples->data)
        return 0;
    const float f = RvTimeSamplesUnmap(time, samples->nelements, elementsOf<float>(samples));
    return f > 0 ? std::min(f, upper_end) : 0;
}

const RtMatrix* objectToWorldAt(const RtGObject* object, float time, RtMatrix* storage)
{
    if (object->nkeys < 2)
        return object->matrices;
    const KeyPair pair = keyPair(
        object->nkeys, relativeTime(shapeParams(object->node).transform_time_samples, time));
    RvM4Lerp(storage, pair.weight, &object->matrices[pair.key], &object->matrices[pair.key + 1]);
    return storage;
}

} // namespace rv

void RvGObjectTransform(RtGObject* object, const RtArray* matrices, bool concatenate)
{
    if (!matrices || matrices->type != RV_TYPE_MATRIX || rv::totalElements(matrices) == 0)
        return;
    if (object->nkeys > 1 && matrices->nkeys > 1 && object->nkeys != matrices->nkeys) {
        RvMsgError("mismatching number of motion-keyed transformation matrices!  object has %d but "
                   "is sent %d keys",
                   object->nkeys, matrices->nkeys);
        return;
    }
    const rv::CombinedTransform transform = { object, matrices, concatenate };
    unsigned nkeys = transform.keyCount();
    if (nkeys > 1 && transform.keysAreEqual()) {
        ++rv::threadStats()->identical_motion_matrices;
        nkeys = 1;
    }
    const RtMatrix first = transform.key(0);
    if (nkeys == 1 && RvM4IsIdentity(&first)) {
        ++rv::threadStats()->identity_matrices;
        rv::dropMatrices(object);
    } else {
        rv::storeKeys(object, transform, nkeys);
    }
    rv::updateWorldBounds(object);
}
