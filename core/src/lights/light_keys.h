// Motion keys of lights, brought into the world when a light is updated.
#ifndef RV_LIGHT_KEYS_H
#define RV_LIGHT_KEYS_H

#include "lights/light_data.h"

namespace rv {

// One record per motion key. Made by Update; fixed while workers run.
template <class Key> struct LightKeyArray {
    unsigned count; // 0 without memory
    Key* keys;
};

template <class Key> void releaseKeys(LightKeyArray<Key>* array)
{
    RvFree_func(array->keys);
    *array = {};
}

// `count` uninitialised keys in place of the present ones. False without memory.
template <class Key> bool allocateKeys(LightKeyArray<Key>* array, unsigned count, const char* file)
{
    releaseKeys(array);
    array->keys =
        static_cast<Key*>(RvMalloc_func(count * unsigned(sizeof(Key)), file, __LINE__, "Update"));
    array->count = array->keys ? count : 0;
    return array->keys;
}

// Keys of a parameter, at least one.
unsigned keyCount(const RtArray* array);
// Keys of the parameter "matrix".
unsigned matrixKeyCount(const RtNode* light);

// A key of a POINT or VECTOR parameter; beyond the last it is the last. Zero, after an error of the
// accessor, for an array without elements.
RtPoint keyPoint(const RtArray* array, unsigned key, const char* file);
RtVector keyVector(const RtArray* array, unsigned key, const char* file);

// The key of "matrix", of which the last one repeats, and what it does.
const RtMatrix& worldMatrix(const RtNode* light, unsigned key);
RtPoint worldPoint(const RtNode* light, unsigned key, const RtPoint& p);
RtVector worldVector(const RtNode* light, unsigned key, const RtVector& v);

// Two neighbouring keys and the weight of the second, at a shutter time; with one key, that one.
struct LightKeys {
    unsigned key;
    float weight;
};
LightKeys lightKeysAt(const RtNode* light, unsigned key_count, float time);

} // namespace rv

#endif
