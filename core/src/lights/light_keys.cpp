// light_keys: motion keys of lights. Declared by light_keys.h.
#include "lights/light_keys.h"

#include "array.h"
#include "objects/gobject.h"

#include <algorithm>

namespace rv {

unsigned keyCount(const RtArray* array) { return array && array->nkeys ? array->nkeys : 1; }

static const RtArray* matrices(const RtNode* light)
{
    const RtArray* const array = lightParam<RtArray*>(light, light_matrix_param);
    return array && array->type == RV_TYPE_MATRIX && totalElements(array) ? array : nullptr;
}

unsigned matrixKeyCount(const RtNode* light) { return keyCount(matrices(light)); }

// The first element of a key, or of the last one.
static unsigned elementOf(const RtArray* array, unsigned key)
{
    return std::min(key, keyCount(array) - 1) * array->nelements;
}

RtPoint keyPoint(const RtArray* array, unsigned key, const char* file)
{
    return array ? RvArrayGetPntFunc(array, elementOf(array, key), file, __LINE__) : RV_P3_ZERO;
}

RtVector keyVector(const RtArray* array, unsigned key, const char* file)
{
    return array ? RvArrayGetVecFunc(array, elementOf(array, key), file, __LINE__) : RV_V3_ZERO;
}

const RtMatrix& worldMatrix(const RtNode* light, unsigned key)
{
    const RtArray* const array = matrices(light);
    return array ? elementsOf<RtMatrix>(array)[elementOf(array, key)] : RV_M4_IDENTITY;
}

RtPoint worldPoint(const RtNode* light, unsigned key, const RtPoint& p)
{
    RtPoint world;
    RvM4PointByMatrixMult(&world, &worldMatrix(light, key), &p);
    return world;
}

RtVector worldVector(const RtNode* light, unsigned key, const RtVector& v)
{
    RtVector world;
    RvM4VectorByMatrixMult(&world, &worldMatrix(light, key), &v);
    return world;
}

LightKeys lightKeysAt(const RtNode* light, unsigned key_count, float time)
{
    if (key_count < 2)
        return { 0, 0 };
    const RtArray* const samples = lightParam<RtArray*>(light, light_time_samples_param);
    const KeyPair pair = keyPair(key_count, relativeTime(samples, time));
    return { pair.key, pair.weight };
}

} // namespace rv
