// Inside of RtArray (rv_array.h): maintenance, motion keys and time samples.
#ifndef RV_ARRAY_INTERNAL_H
#define RV_ARRAY_INTERNAL_H

#include "maths.h"
#include "rv_array.h"
#include "system/memory.h"

// A copy whose record and storage live in the pool and are never destroyed one by one.
RtArray* RvArrayCopyWithPool(const RtArray* src, RtMemPool* pool);
// Releases storage and strings (when owned); the record stays, empty, with type RV_TYPE_NONE.
void RvArrayReset(RtArray* array);
// A heap copy of the storage, for RvFree_func; with reset the array is then emptied.
void* RvArrayUnconvert(RtArray* array, bool reset);
// Removes the null elements of a POINTER array in place.
void RvArraySimplify(RtArray* array);
// True when every floating-point component is finite and within 1e30.
bool RvArrayCheckSanity(const RtArray* array);

// Value of element index at t in [0, 1] over the motion keys; exact at and beyond the ends.
float RvArrayInterpolateFlt(const RtArray* array, float t, unsigned index);
RtRGB RvArrayInterpolateRGB(const RtArray* array, float t, unsigned index);
RtRGBA RvArrayInterpolateRGBA(const RtArray* array, float t, unsigned index);
RtVector RvArrayInterpolateVec(const RtArray* array, float t, unsigned index);
RtPoint RvArrayInterpolatePnt(const RtArray* array, float t, unsigned index);
RtPoint2 RvArrayInterpolatePnt2(const RtArray* array, float t, unsigned index);
void RvArrayInterpolateMtx(const RtArray* array, float t, unsigned index, RtMatrix* out);

// Times of n motion keys, strictly increasing.
bool RvTimeSamplesCheck(unsigned n, const float* samples);
// From a key position in [0, 1] to a time, and back. Required: the upper end of Unmap is 0.999999,
// which keeps key indices below the last key.
float RvTimeSamplesMap(float t, unsigned n, const float* samples);
float RvTimeSamplesUnmap(float time, unsigned n, const float* samples);

namespace rv {

inline unsigned totalElements(const RtArray* array) { return array->nelements * array->nkeys; }

// The first element, for arrays whose type and size were checked.
template <class T> const T* elementsOf(const RtArray* array)
{
    return static_cast<const T*>(array->data);
}
template <class T> T* elementsOf(RtArray* array) { return static_cast<T*>(array->data); }

} // namespace rv

#endif
