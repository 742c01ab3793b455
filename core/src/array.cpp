// array: typed arrays with motion keys: construction, checked element access, maintenance and
// interpolation. Declared by rv_array.h (exported) and array.h.
//
// Nothing here reads or writes outside the nelements * nkeys * size bytes of the storage, whatever
// type and index an accessor is used with. Elements move by memcpy, because the storage of a caller
// need not be aligned for the type that an accessor asks for.
#include "array.h"

#include "msg.h"
#include "strpool.h"

#include <algorithm>
#include <array>
#include <bit>
#include <limits.h>
#include <new>
#include <stdarg.h>
#include <string.h>

// ---- Storage ----

static uint64_t countElements(uint64_t nelements, uint64_t nkeys) { return nelements * nkeys; }

static uint64_t countElements(const RtArray* array)
{
    return countElements(array->nelements, array->nkeys);
}

// Bytes of the storage; 0 for a type without elements of its own.
static uint64_t storageBytes(const RtArray* array)
{
    return countElements(array) * rv::typeSize(array->type);
}

// A record without storage. At least one key and at most 255; an unknown type is none.
static RtArray emptyArray(unsigned nelements, unsigned nkeys, int type, bool owns_data)
{
    const unsigned max_keys = UINT8_MAX;
    return { .data = nullptr,
             .nelements = nelements,
             .type = static_cast<uint8_t>(rv::isStoredType(type) ? type : RV_TYPE_NONE),
             .nkeys = static_cast<uint8_t>(std::clamp(nkeys, 1u, max_keys)),
             .owns_data = owns_data };
}

// A place for `array`, in the pool or (without one) on the heap.
static RtArray* newRecord(const RtArray& array, RtMemPool* pool, const char* location)
{
    void* const memory =
        pool ? RvMemPoolAlloc(sizeof(RtArray), pool)
             : RvMalloc_func(sizeof(RtArray), "core\\src\\array", __LINE__, location);
    return memory ? new (memory) RtArray(array) : nullptr;
}

// Gives the record storage with the given values, or zeros. False when there is none to be had: the
// array is then without elements. Without any bytes to store there is no storage either, and that
// is no failure.
static bool addStorage(RtArray* array, const void* values, RtMemPool* pool, const char* location)
{
    const uint64_t bytes = storageBytes(array);
    if (bytes == 0)
        return true;
    if (bytes <= INT_MAX) {
        const unsigned size = static_cast<unsigned>(bytes);
        array->data = pool ? RvMemPoolAlloc(size, pool)
                           : RvMalloc_func(size, "core\\src\\array", __LINE__, location);
    }
    if (!array->data) {
        array->nelements = 0;
        return false;
    }
    if (values)
        memcpy(array->data, values, bytes);
    else
        memset(array->data, 0, bytes);
    return true;
}

// Gives back the strings and nested arrays that the elements [first, last) hold.
static void releaseElements(const RtArray* array, uint64_t first, uint64_t last)
{
    if (array->type == RV_TYPE_STRING) {
        for (uint64_t i = first; i < last; ++i)
            if (const char* const string = rv::elementsOf<const char*>(array)[i])
                rv::releaseString(string);
    } else if (array->type == RV_TYPE_ARRAY) {
        for (uint64_t i = first; i < last; ++i)
            RvArrayDestroy(rv::elementsOf<RtArray*>(array)[i]);
    }
}

static void releaseStorage(RtArray* array)
{
    if (!array->owns_data || !array->data)
        return;
    releaseElements(array, 0, countElements(array));
    RvFree_func(array->data);
}

// ---- Construction ----

RtArray* RvArrayAllocate(unsigned nelements, unsigned nkeys, int type)
{
    RtArray* const array =
        newRecord(emptyArray(nelements, nkeys, type, true), nullptr, "RvArrayAllocate");
    if (!array)
        RvMsgError("RvArrayAllocate: unable to allocate array");
    else if (!addStorage(array, nullptr, nullptr, "RvArrayAllocate"))
        RvMsgError("RvArrayAllocate: unable to allocate data");
    return array;
}

template <class T> static void store(void* element, const T& value)
{
    memcpy(element, &value, sizeof(T));
}

// Takes one value from the arguments to an element; false, with nothing taken, for a type that
// cannot be given as an argument.
static bool storeArgument(void* element, int type, va_list* arguments)
{
    switch (type) {
    case RV_TYPE_BYTE:
    case RV_TYPE_BOOLEAN:
        store(element, static_cast<uint8_t>(va_arg(*arguments, int)));
        return true;
    case RV_TYPE_INT:
    case RV_TYPE_UINT: store(element, va_arg(*arguments, int)); return true;
    case RV_TYPE_FLOAT: store(element, static_cast<float>(va_arg(*arguments, double))); return true;
    case RV_TYPE_RGB: store(element, va_arg(*arguments, RtRGB)); return true;
    case RV_TYPE_RGBA: store(element, va_arg(*arguments, RtRGBA)); return true;
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: store(element, va_arg(*arguments, RtPoint)); return true;
    case RV_TYPE_POINT2: store(element, va_arg(*arguments, RtPoint2)); return true;
    case RV_TYPE_STRING:
        store(element, rv::internString(va_arg(*arguments, const char*)));
        return true;
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE:
    case RV_TYPE_ARRAY: store(element, va_arg(*arguments, void*)); return true;
    case RV_TYPE_MATRIX:
        if (const RtMatrix* const matrix = va_arg(*arguments, const RtMatrix*))
            store(element, *matrix);
        return true;
    default: return false;
    }
}

RtArray* RvArray(unsigned nelements, unsigned nkeys, int type, ...)
{
    RtArray* const array = newRecord(emptyArray(nelements, nkeys, type, true), nullptr, "RvArray");
    if (!array || !addStorage(array, nullptr, nullptr, "RvArray")) {
        RvMsgError("RvArray: unable to allocate array");
        RvArrayDestroy(array);
        return nullptr;
    }
    va_list arguments;
    va_start(arguments, type);
    char* const data = static_cast<char*>(array->data);
    const unsigned size = rv::typeSize(type);
    for (uint64_t i = 0, total = countElements(array); i < total; ++i)
        if (!storeArgument(data + i * size, type, &arguments))
            RvMsgError("RvArray: unknown data type");
    va_end(arguments);
    return array;
}

// Replaces the borrowed strings of a STRING array by references of its own.
static void internElements(RtArray* array)
{
    if (array->type != RV_TYPE_STRING)
        return;
    const char** const strings = rv::elementsOf<const char*>(array);
    std::transform(strings, strings + rv::totalElements(array), strings, rv::internString);
}

RtArray* RvArrayConvert(int nelements, int nkeys, int type, void* data, bool copy)
{
    const RtArray shape = emptyArray(static_cast<unsigned>(std::max(nelements, 0)),
                                     static_cast<unsigned>(std::max(nkeys, 1)), type, copy);
    RtArray* const array = newRecord(shape, nullptr, "RvArrayConvert");
    if (!array) {
        RvMsgError("RvArrayConvert: unable to allocate array");
        return nullptr;
    }
    const uint64_t bytes = storageBytes(array);
    if (copy && data) {
        if (addStorage(array, data, nullptr, "RvArrayConvert"))
            internElements(array);
        else
            RvMsgError("RvArrayConvert: unable to allocate local copy of data");
    } else if (bytes > INT_MAX) {
        array->nelements = 0;
    } else if (bytes > 0) {
        array->data = data;
    }
    return array;
}

// The strings and nested arrays of `copy` are still those of its source: gives it its own.
static void copyElements(RtArray* copy, RtMemPool* pool);

static RtArray* copyArray(const RtArray* src, RtMemPool* pool)
{
    if (!src) {
        RvMsgError("RvArrayCopy: input array is NULL");
        return nullptr;
    }
    RtArray* const copy =
        newRecord(emptyArray(src->nelements, src->nkeys, src->type, !pool), pool, "RvArrayCopy");
    if (!copy) {
        RvMsgError("RvArrayCopy: unable to allocate array");
    } else if (!addStorage(copy, src->data, pool, "RvArrayCopy")) {
        RvMsgError("RvArrayCopy: unable to allocate %lu bytes of data",
                   static_cast<unsigned long>(storageBytes(src)));
    } else {
        copyElements(copy, pool);
    }
    return copy;
}

static void copyElements(RtArray* copy, RtMemPool* pool)
{
    const unsigned total = rv::totalElements(copy);
    if (copy->type == RV_TYPE_STRING && pool) {
        const char** const strings = rv::elementsOf<const char*>(copy);
        for (unsigned i = 0; i < total; ++i)
            strings[i] = RvMemPoolStrdup(strings[i], pool);
    } else if (copy->type == RV_TYPE_STRING) {
        internElements(copy);
    } else if (copy->type == RV_TYPE_ARRAY) {
        RtArray** const arrays = rv::elementsOf<RtArray*>(copy);
        for (unsigned i = 0; i < total; ++i)
            arrays[i] = arrays[i] ? copyArray(arrays[i], pool) : nullptr;
    }
}

RtArray* RvArrayCopy(const RtArray* src) { return copyArray(src, nullptr); }

RtArray* RvArrayCopyWithPool(const RtArray* src, RtMemPool* pool) { return copyArray(src, pool); }

void RvArrayDestroy(RtArray* array)
{
    if (!array)
        return;
    releaseStorage(array);
    RvFree_func(array);
}

// ---- Whole-array writes ----

// Gives the array storage of its own in another shape, with what fits of its elements when the type
// stays. False, with nothing changed, when there is no storage to be had. Nested arrays that fall
// away are not destroyed, as in RvArraySetArray.
static bool reshape(RtArray* array, RtArray shape)
{
    if (!addStorage(&shape, nullptr, nullptr, "RvArrayModify"))
        return false;
    const uint64_t total = array->data ? countElements(array) : 0;
    const uint64_t kept = array->type == shape.type ? std::min(total, countElements(&shape)) : 0;
    if (kept > 0)
        memcpy(shape.data, array->data, kept * rv::typeSize(shape.type));
    if (!array->owns_data) {
        internElements(&shape);
    } else {
        if (array->type == RV_TYPE_STRING)
            releaseElements(array, kept, total);
        RvFree_func(array->data);
    }
    *array = shape;
    return true;
}

void RvArrayModify(RtArray* array, unsigned nelements, unsigned nkeys, int type, ...)
{
    const bool matches =
        array && nelements == array->nelements && nkeys == array->nkeys && type == array->type;
    if (!matches)
        RvMsgError("RvArrayModify: input arrays don't match");
    if (!array)
        return;
    // Required: a mismatch is reported, and then the array takes the new shape all the same. It
    // owns its storage afterwards; where it did not before, it leaves that of the caller alone.
    const bool has_storage = array->owns_data && (array->data || storageBytes(array) == 0);
    if (!(matches && has_storage) && !reshape(array, emptyArray(nelements, nkeys, type, true)))
        return;
    va_list arguments;
    va_start(arguments, type);
    char* const data = static_cast<char*>(array->data);
    const unsigned size = rv::typeSize(type);
    for (uint64_t i = 0, total = countElements(array); i < total; ++i) {
        // Required: strings cannot be modified.
        if (type == RV_TYPE_STRING || !storeArgument(data + i * size, type, &arguments))
            RvMsgError("RvArrayModify: unknown data type");
    }
    va_end(arguments);
}

void RvArraySetKey(RtArray* array, unsigned key, const void* values)
{
    if (!array) {
        RvMsgError("RvArraySetKey: target array is null");
        return;
    }
    if (key >= array->nkeys) {
        RvMsgError("RvArraySetKey: trying to write to a non-existing key");
        return;
    }
    if (!array->data || !values)
        return;
    const uint64_t bytes = uint64_t(array->nelements) * rv::typeSize(array->type);
    memmove(static_cast<char*>(array->data) + key * bytes, values, bytes);
}

// ---- Element access ----

// Element i of an array of T, or null where it would leave the storage.
template <class T> static void* elementAt(const RtArray* array, uint64_t i)
{
    if (!array->data || (i + 1) * sizeof(T) > storageBytes(array))
        return nullptr;
    return static_cast<char*>(array->data) + i * sizeof(T);
}

template <class T> static T load(const RtArray* array, uint64_t i)
{
    T value = {};
    if (const void* const element = elementAt<T>(array, i))
        memcpy(&value, element, sizeof(T));
    return value;
}

// Any non-zero byte is true.
template <> bool load<bool>(const RtArray* array, uint64_t i) { return load<uint8_t>(array, i); }

namespace {

// Where an accessor was called, and the name it reports with.
struct Access {
    const char* name;
    const char* file;
    int line;
};

} // namespace

static void reportNull(const Access& access)
{
    RvMsgError("%s: accessing NULL array in %s at line %d", access.name, access.file, access.line);
}

static void checkType(const RtArray* array, int type, const Access& access)
{
    if (!rv::typeAccepts(array->type, type))
        RvMsgError("%s: array-type does not match request-type in %s at line %d", access.name,
                   access.file, access.line);
}

static bool checkIndex(const RtArray* array, unsigned index, const Access& access)
{
    const uint64_t total = countElements(array);
    if (index < total)
        return true;
    RvMsgError("%s: out-of-range error (%d out of %d) in %s at line %d", access.name,
               static_cast<int>(index), static_cast<int>(total), access.file, access.line);
    return false;
}

static bool checkMatrixIndex(const RtArray* array, unsigned index, const Access& access)
{
    if (index < countElements(array))
        return true;
    RvMsgError("%s: out-of-range error in %s at line %d", access.name, access.file, access.line);
    return false;
}

// Required: reading from a null array is reported and then not survived. The volatile read keeps
// the fault where it belongs.
static void reportAndFault(const RtArray* array, const Access& access)
{
    reportNull(access);
    static_cast<void>(static_cast<const volatile RtArray*>(array)->type);
}

template <class T>
static T getElement(const RtArray* array, unsigned index, int type, const Access& access)
{
    if (!array)
        reportAndFault(array, access);
    checkType(array, type, access);
    return load<T>(array, checkIndex(array, index, access) ? index : 0);
}

static bool maySetElement(const RtArray* array, unsigned index, int type, const Access& access)
{
    if (!array) {
        reportNull(access);
        return false;
    }
    checkType(array, type, access);
    return checkIndex(array, index, access);
}

template <class T>
static void setElement(RtArray* array, unsigned index, int type, const T& value,
                       const Access& access)
{
    if (!maySetElement(array, index, type, access))
        return;
    if (void* const element = elementAt<T>(array, index))
        store(element, value);
}

#define RV_PLAIN_TYPES(X) /* accessor suffix, type code, C type */                                 \
    X(Byte, RV_TYPE_BYTE, uint8_t)                                                                 \
    X(Int, RV_TYPE_INT, int)                                                                       \
    X(UInt, RV_TYPE_UINT, unsigned)                                                                \
    X(Bool, RV_TYPE_BOOLEAN, bool)                                                                 \
    X(Flt, RV_TYPE_FLOAT, float)                                                                   \
    X(RGB, RV_TYPE_RGB, RtRGB)                                                                     \
    X(RGBA, RV_TYPE_RGBA, RtRGBA)                                                                  \
    X(Vec, RV_TYPE_VECTOR, RtVector)                                                               \
    X(Pnt, RV_TYPE_POINT, RtPoint)                                                                 \
    X(Pnt2, RV_TYPE_POINT2, RtPoint2)                                                              \
    X(Ptr, RV_TYPE_POINTER, void*)                                                                 \
    X(Array, RV_TYPE_ARRAY, RtArray*)

#define DEFINE_GET(Suffix, code, Type)                                                             \
    Type RvArrayGet##Suffix##Func(const RtArray* array, unsigned index, const char* file,          \
                                  int line)                                                        \
    {                                                                                              \
        return getElement<Type>(array, index, code, { "RvArrayGet" #Suffix "Func", file, line });  \
    }
#define DEFINE_SET(Suffix, code, Type)                                                             \
    void RvArraySet##Suffix##Func(RtArray* array, unsigned index, Type value, const char* file,    \
                                  int line)                                                        \
    {                                                                                              \
        setElement<Type>(array, index, code, value, { "RvArraySet" #Suffix "Func", file, line });  \
    }

RV_PLAIN_TYPES(DEFINE_GET)
RV_PLAIN_TYPES(DEFINE_SET)
DEFINE_GET(Str, RV_TYPE_STRING, const char*)

void RvArraySetStrFunc(RtArray* array, unsigned index, const char* value, const char* file,
                       int line)
{
    // Required: the message has the name without Func.
    if (!maySetElement(array, index, RV_TYPE_STRING, { "RvArraySetStr", file, line }))
        return;
    void* const element = elementAt<const char*>(array, index);
    if (!element)
        return;
    if (array->owns_data && array->type == RV_TYPE_STRING) {
        const char* const replaced = load<const char*>(array, index);
        value = rv::internString(value); // first, because both may be the same string
        if (replaced)
            rv::releaseString(replaced);
    }
    store(element, value);
}

// Required: matrices are accessed without a check of the type, and reported without Func.
void RvArrayGetMtxFunc(const RtArray* array, unsigned index, RtMatrix* out, const char* file,
                       int line)
{
    const Access access = { "RvArrayGetMtx", file, line };
    if (!array)
        reportAndFault(array, access);
    const unsigned i = checkMatrixIndex(array, index, access) ? index : 0;
    if (out && out != elementAt<RtMatrix>(array, i))
        *out = load<RtMatrix>(array, i);
}

void RvArraySetMtxFunc(RtArray* array, unsigned index, const RtMatrix* value, const char* file,
                       int line)
{
    const Access access = { "RvArraySetMtx", file, line };
    if (!array)
        reportNull(access);
    else if (checkMatrixIndex(array, index, access) && value)
        if (void* const element = elementAt<RtMatrix>(array, index))
            memmove(element, value, sizeof(RtMatrix));
}

// ---- Maintenance ----

void RvArrayReset(RtArray* array)
{
    if (!array)
        return;
    releaseStorage(array);
    *array = { .data = nullptr,
               .nelements = 0,
               .type = RV_TYPE_NONE,
               .nkeys = 0,
               .owns_data = array->owns_data };
}

void* RvArrayUnconvert(RtArray* array, bool reset)
{
    if (!array)
        return nullptr;
    void* block = nullptr;
    const unsigned nkeys = std::max<unsigned>(array->nkeys, 1); // a record of the caller may say 0
    const uint64_t bytes = countElements(array->nelements, nkeys) * rv::typeSize(array->type);
    if (array->data && bytes > 0 && bytes <= INT_MAX) {
        block = RvMalloc_func(static_cast<unsigned>(bytes), "core\\src\\array", __LINE__,
                              "RvArrayUnconvert");
        if (block)
            memcpy(block, array->data, bytes);
    }
    if (reset)
        RvArrayReset(array);
    return block;
}

void RvArraySimplify(RtArray* array)
{
    if (!array || array->type != RV_TYPE_POINTER || array->nkeys != 1 || !array->data)
        return;
    void** const elements = rv::elementsOf<void*>(array);
    const unsigned before = array->nelements;
    void** const end = std::remove(elements, elements + before, nullptr);
    array->nelements = static_cast<uint32_t>(end - elements);
    // Required: a single null element leaves the storage in place.
    if (array->nelements == 0 && before > 1) {
        releaseStorage(array);
        array->data = nullptr;
    }
}

static unsigned floatComponents(int type)
{
    switch (type) {
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_POINT2:
    case RV_TYPE_MATRIX: return rv::typeSize(type) / static_cast<unsigned>(sizeof(float));
    default: return 0;
    }
}

static bool isUsableCoordinate(float x) { return x >= -1e30 && x <= 1e30; } // false for NaN

// Looks at all of them: bad values are rare, and a loop without a way out runs on vectors.
template <class Test> static bool allUsable(const float* values, uint64_t count, Test isUsable)
{
    bool usable = true;
    for (uint64_t i = 0; i < count; ++i)
        usable &= isUsable(values[i]);
    return usable;
}

bool RvArrayCheckSanity(const RtArray* array)
{
    if (!array || storageBytes(array) == 0)
        return true;
    if (!array->data)
        return false;
    const float* const values = rv::elementsOf<float>(array);
    const uint64_t count = countElements(array) * floatComponents(array->type);
    // Required: coordinates are compared in double precision, everything else in single.
    if (array->type == RV_TYPE_VECTOR || array->type == RV_TYPE_POINT)
        return allUsable(values, count, isUsableCoordinate);
    return allUsable(values, count, rv::isUsableFloat);
}

// ---- Motion keys and time samples ----

// (1 - f) a + f b, component by component.
template <class T> static T blend(const T& a, const T& b, float f)
{
    using Floats = std::array<float, sizeof(T) / sizeof(float)>;
    Floats x = std::bit_cast<Floats>(a);
    const Floats y = std::bit_cast<Floats>(b);
    for (size_t i = 0; i < x.size(); ++i)
        x[i] = (1 - f) * x[i] + f * y[i];
    return std::bit_cast<T>(x);
}

template <class T> static T interpolate(const RtArray* array, float t, unsigned index)
{
    if (!array || rv::totalElements(array) == 0 || index >= array->nelements ||
        rv::typeSize(array->type) != sizeof(T))
        return {};
    const T* const first = rv::elementsOf<T>(array) + index;
    const size_t stride = array->nelements;
    const unsigned last = array->nkeys - 1u;
    if (last == 0 || !(t > 0))
        return first[0];
    if (t >= 1)
        return first[last * stride];
    const float x = static_cast<float>(last) * t; // below last, after rounding too
    const unsigned k = static_cast<unsigned>(x);
    return blend(first[k * stride], first[(k + 1) * stride], x - static_cast<float>(k));
}

float RvArrayInterpolateFlt(const RtArray* array, float t, unsigned index)
{
    return interpolate<float>(array, t, index);
}

RtRGB RvArrayInterpolateRGB(const RtArray* array, float t, unsigned index)
{
    return interpolate<RtRGB>(array, t, index);
}

RtRGBA RvArrayInterpolateRGBA(const RtArray* array, float t, unsigned index)
{
    return interpolate<RtRGBA>(array, t, index);
}

RtVector RvArrayInterpolateVec(const RtArray* array, float t, unsigned index)
{
    return interpolate<RtVector>(array, t, index);
}

RtPoint RvArrayInterpolatePnt(const RtArray* array, float t, unsigned index)
{
    return interpolate<RtPoint>(array, t, index);
}

RtPoint2 RvArrayInterpolatePnt2(const RtArray* array, float t, unsigned index)
{
    return interpolate<RtPoint2>(array, t, index);
}

void RvArrayInterpolateMtx(const RtArray* array, float t, unsigned index, RtMatrix* out)
{
    *out = interpolate<RtMatrix>(array, t, index);
}

bool RvTimeSamplesCheck(unsigned n, const float* samples)
{
    if (n < 2 || !samples)
        return false;
    for (unsigned i = 1; i < n; ++i)
        if (!(samples[i] > samples[i - 1]))
            return false;
    return true;
}

float RvTimeSamplesMap(float t, unsigned n, const float* samples)
{
    if (n == 0 || !samples)
        return 0;
    if (n == 1 || !(t > 0))
        return samples[0];
    if (t >= 1)
        return samples[n - 1];
    const float x = t * static_cast<float>(n - 1);
    const unsigned k = std::min(static_cast<unsigned>(x), n - 2); // a large n is rounded
    return samples[k] + (x - static_cast<float>(k)) * (samples[k + 1] - samples[k]);
}

float RvTimeSamplesUnmap(float time, unsigned n, const float* samples)
{
    const float upper_end = 0.999999f;
    if (n == 0 || !samples)
        return 0;
    if (n == 2) // Required: negative before the first sample
        return time < samples[1] ? (time - samples[0]) / (samples[1] - samples[0]) : upper_end;
    if (time <= samples[0])
        return 0;
    const float* const after = std::upper_bound(samples, samples + n, time);
    if (after == samples + n)
        return upper_end;
    const float* const before = after - 1;
    return ((time - *before) / (*after - *before) + static_cast<float>(before - samples)) /
           static_cast<float>(n - 1);
}
