// Inside of the value types of rv_math.h: vector operators, boxes and silent type names.
#ifndef RV_MATHS_H
#define RV_MATHS_H

#include "rv_math.h"

#include <math.h>

namespace rv {

// Name and bytes of one stored element of every type; the index is the type code. The only place
// that knows either.
struct TypeInfo {
    const char* name;
    unsigned size;
};
inline constexpr TypeInfo type_table[] = {
    { "BYTE", sizeof(uint8_t) },    { "INT", sizeof(int) },         { "UINT", sizeof(unsigned) },
    { "BOOL", sizeof(bool) },       { "FLOAT", sizeof(float) },     { "RGB", sizeof(RtRGB) },
    { "RGBA", sizeof(RtRGBA) },     { "VECTOR", sizeof(RtVector) }, { "POINT", sizeof(RtPoint) },
    { "POINT2", sizeof(RtPoint2) }, { "STRING", sizeof(char*) },    { "POINTER", sizeof(void*) },
    { "NODE", sizeof(RtNode*) },    { "ARRAY", sizeof(RtArray*) },  { "MATRIX", sizeof(RtMatrix) },
    { "ENUM", sizeof(int) },
};
static_assert(sizeof(type_table) / sizeof(type_table[0]) == RV_TYPE_ENUM + 1);

inline bool isStoredType(int type) { return type >= RV_TYPE_BYTE && type <= RV_TYPE_ENUM; }

// Bytes of one stored element of the types 0 to 15; 0 for others; no message.
inline unsigned typeSize(int type) { return isStoredType(type) ? type_table[type].size : 0; }

// Names of types 0 to 14, "UNDEFINED" for RV_TYPE_NONE, null for every other value; no message.
const char* silentTypeName(int type);

// A value of the stored type may be read or written as the requested one. Nodes travel as plain
// pointers, because NODE has no accessors of its own.
inline bool typeAccepts(int stored, int requested)
{
    return stored == requested || (stored == RV_TYPE_NODE && requested == RV_TYPE_POINTER);
}

// True when the value is finite and within the range that parameters accept, [-1e30, 1e30]
// compared in single precision.
inline bool isUsableFloat(float x) { return x >= -1e30f && x <= 1e30f; } // false for NaN

inline RtVector operator+(const RtVector& a, const RtVector& b)
{
    return { a.x + b.x, a.y + b.y, a.z + b.z };
}
inline RtVector operator-(const RtVector& a, const RtVector& b)
{
    return { a.x - b.x, a.y - b.y, a.z - b.z };
}
inline RtVector operator*(const RtVector& a, float s) { return { a.x * s, a.y * s, a.z * s }; }
inline float dot(const RtVector& a, const RtVector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline RtVector cross(const RtVector& a, const RtVector& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}

// Of length 1; zero stays zero.
inline RtVector unit(const RtVector& v)
{
    const float length = sqrtf(dot(v, v));
    return length > 0 ? v * (1 / length) : v;
}
// The same for vectors whose squares may have no place in a float.
inline RtVector unitPrecise(const RtVector& v)
{
    const double x = v.x, y = v.y, z = v.z;
    const double length = sqrt(x * x + y * y + z * z);
    return length > 0 ? RtVector{ float(x / length), float(y / length), float(z / length) } : v;
}

} // namespace rv

float RvBBoxArea(const RtBBox& box);
float RvBBoxVolume(const RtBBox& box);
RtPoint RvBBoxCenter(const RtBBox& box);
// min + t * (max - min) per axis.
RtPoint RvBBoxLerp(const RtBBox& box, const RtPoint& t);
RtBBox RvBBoxUnion(const RtBBox& a, const RtBBox& b);
// Boundaries count as inside.
bool RvBBoxInside(const RtBBox& box, const RtPoint& p);

// Slab test. The incoming [t0, t1] only serves to reject. Required: on success t0 and t1 are the
// largest near and the smallest far distance of the box alone; otherwise they are left as given.
bool RvBBoxRayIntersect(const RtPoint& origin, const RtVector& dir, const RtBBox& box, float* t0,
                        float* t1);
bool RvBBoxRayOverlap(const RtPoint& origin, const RtVector& dir, const RtBBox& box, float tmin,
                      float tmax);

#endif
