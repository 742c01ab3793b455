// Inside of RtArray (rv_array.h): maintenance, motion keys and time samples.
//
// An array never stores more than 2^31 - 1 bytes. Where storage cannot be had, its nelements is 0,
// so that code that checks the counts never reads through null; only an array wrapped around a null
// pointer has elements without storage, and RvArrayCheckSanity refuses that one. BOOLEAN elements
// are bytes of any value: read them as uint8_t.
#ifndef RV_ARRAY_INTERNAL_H
#define RV_ARRAY_INTERNAL_H

#include "maths.h"
#include "rv_array.h"
#include "system/memory.h"

#include <string.h>

// A copy whose record, storage, strings and nested arrays live in the pool. It is never destroyed.
RtArray* RvArrayCopyWithPool(const RtArray* src, RtMemPool* pool);
// Releases what the array owns; the record stays, empty, with type RV_TYPE_NONE.
void RvArrayReset(RtArray* array);
// A heap copy of the storage, for RvFree_func; with reset the array is then emptied, and strings
// and nested arrays that the copy points to are gone with it.
void* RvArrayUnconvert(RtArray* array, bool reset);
// Removes the null elements of a POINTER array of one key in place.
void RvArraySimplify(RtArray* array);
// True when every element can be read and every floating-point component is finite and within
// 1e30. Required: for VECTOR and POINT the bound is 1e30 itself, for the other types 1e30 rounded
// to float, which is a little more.
bool RvArrayCheckSanity(const RtArray* array);

// Value of element index at t in [0, 1] over the motion keys; exact at and beyond the ends. Zero
// for a null array, an index that does not exist and a type of another size.
float RvArrayInterpolateFlt(const RtArray* array, float t, unsigned index);
RtRGB RvArrayInterpolateRGB(const RtArray* array, float t, unsigned index);
RtRGBA RvArrayInterpolateRGBA(const RtArray* array, float t, unsigned index);
RtVector RvArrayInterpolateVec(const RtArray* array, float t, unsigned index);
RtPoint RvArrayInterpolatePnt(const RtArray* array, float t, unsigned index);
RtPoint2 RvArrayInterpolatePnt2(const RtArray* array, float t, unsigned index);
void RvArrayInterpolateMtx(const RtArray* array, float t, unsigned index, RtMatrix* out);

// True for at least two times that are strictly increasing.
bool RvTimeSamplesCheck(unsigned n, const float* samples);
// From a key position in [0, 1] to a time, and back; 0 without samples. Required: the upper end of
// Unmap is 0.999999, which keeps key indices below the last key.
float RvTimeSamplesMap(float t, unsigned n, const float* samples);
float RvTimeSamplesUnmap(float time, unsigned n, const float* samples);

namespace rv {

// Elements of all keys; 0 without storage.
inline unsigned totalElements(const RtArray* array)
{
    return array->data ? array->nelements * array->nkeys : 0;
}

// The first element, for arrays whose type and size were checked.
template <class T> const T* elementsOf(const RtArray* array)
{
    return static_cast<const T*>(array->data);
}
template <class T> T* elementsOf(RtArray* array) { return static_cast<T*>(array->data); }

// Copies one element into a value of its type; of a BOOLEAN any non-zero byte is true.
inline void copyElement(void* out, const void* element, int type)
{
    memcpy(out, element, typeSize(type));
    if (type == RV_TYPE_BOOLEAN)
        *static_cast<bool*>(out) = *static_cast<const uint8_t*>(element) != 0;
}

} // namespace rv

#endif
