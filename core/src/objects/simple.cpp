// simple: what the analytic shapes share. Declared by objects/simple.h.
#include "objects/simple.h"

#include "array.h"
#include "system/memory.h"
#include "thread_slot.h"

#include <algorithm>

static const char* const module_path = "core\\src\\objects\\simple";

namespace rv {

// ---- Boxes ----

static void extendAxis(float* low, float* high, double value)
{
    // This way round NaN changes nothing.
    if (value < *low)
        *low = float(value);
    if (value > *high)
        *high = float(value);
}

void extendBox(RtBBox* box, const Vec3d& point)
{
    extendAxis(&box->min.x, &box->max.x, point.x);
    extendAxis(&box->min.y, &box->max.y, point.y);
    extendAxis(&box->min.z, &box->max.z, point.z);
}

// Half the extent, along one axis, of a unit disc whose unit normal has this component there.
static double discExtent(double component)
{
    return sqrt(std::max(0.0, 1 - component * component));
}

void extendByDisc(RtBBox* box, const Vec3d& center, const Vec3d& axis, double radius)
{
    const Vec3d reach =
        Vec3d{ discExtent(axis.x), discExtent(axis.y), discExtent(axis.z) } * radius;
    extendBox(box, center - reach);
    extendBox(box, center + reach);
}

ShapeAxis axisBetween(const RtPoint& top, const RtPoint& bottom)
{
    const Vec3d along = vec3d(bottom) - vec3d(top);
    return { vec3d(top), normalized(along), length(along) };
}

RtBBox boundsAround(const ShapeAxis& axis, double top_radius, double bottom_radius)
{
    static constexpr double margin = 1e-6;
    RtBBox box = empty_bbox;
    extendByDisc(&box, axis.top + axis.dir * axis.length, axis.dir, fabs(bottom_radius) + margin);
    extendByDisc(&box, axis.top, axis.dir, fabs(top_radius) + margin);
    return box;
}

// ---- Normals ----

void bevelNormal(const Vec3d& rim, const Vec3d& surface, double x, double angle, RtVector* normal)
{
    if (x == 0 || x == 1)
        return;
    const double weight = (1 - x) * (1 - angle) + x;
    *normal = single(normalized(rim * (1 - weight) + surface * weight));
}

// ---- Structures ----

void* OnePrimitive::operator new(size_t size) noexcept
{
    return allocate(size, module_path, __LINE__, "ShapePrepareIntersection");
}

RtAccel* countedAccel(OnePrimitive* accel)
{
    if (accel) {
        ++threadStats()->accels[RV_ACCEL_NULL];
        threadStats()->accel_bytes += int64_t(accel->memory());
    }
    return accel;
}

// ---- Objects ----

static int64_t userValueBytes(const RtUserParamEntry& entry)
{
    if (holdsArray(entry)) {
        const RtArray* const array = entry.value.ARRAY;
        return array ? int64_t(totalElements(array)) * typeSize(array->type) : 0;
    }
    const bool is_matrix = entry.type == RV_TYPE_MATRIX && entry.value.pMTX;
    return is_matrix ? int64_t(sizeof(RtMatrix) + sizeof(RtUserParamEntry)) : 0;
}

static int64_t userDataBytes(const RtNode* node)
{
    int64_t sum = 0;
    for (unsigned i = 0; i < node->user_param_count; ++i)
        sum += userValueBytes(node->user_params[i]);
    return sum;
}

RtGObject* createSimpleObject(RtNode* node, RtObjectKind kind, uint32_t nkeys)
{
    RtGObject* const object = RvGObjectInitialize(node, kind, nullptr, nkeys, 1, 0);
    if (object) {
        ++threadStats()->geometry[RV_GEOMETRY_SIMPLE].objects;
        threadStats()->user_data_bytes += userDataBytes(node);
    }
    return object;
}

// ---- Texture coordinates ----

void hitTextureCoordinates(RtGObject*, uint32_t, float hit_u, float hit_v, float* u, float* v)
{
    *u = hit_u;
    *v = hit_v;
}

void noTextureCoordinates(RtGObject*, uint32_t, float, float, float* u, float* v) { *u = *v = 0; }

// ---- User data ----

struct SimpleUserData {
    RtUserDataHit hit; // first: this record is reached through it
    const RtGObject* object;
    uint32_t prim;
    float u, v;
};

// Values of other types are left to the general lookup, which reports them.
static bool readSimpleUserData(const RtUserDataHit*, const RtUserParamEntry* param, int type,
                               void* out)
{
    if (param->category == RV_USERDEF_CONSTANT) {
        if (!typeAccepts(param->type, type))
            return false;
        memcpy(out, static_cast<const void*>(&param->value), typeSize(type));
        return true;
    }
    const RtArray* const array =
        param->category == RV_USERDEF_UNIFORM ? param->value.ARRAY : nullptr;
    if (!array || totalElements(array) == 0 || !typeAccepts(array->type, type))
        return false;
    copyElement(out, array->data, type);
    return true;
}

void* prepareSimpleUserData(RtGObject* object, uint32_t prim, float hit_u, float hit_v, int thread)
{
    if (object->node->user_param_count == 0 || !the_frame->thread_slots)
        return nullptr;
    void* const memory =
        RvMemPoolAlloc(sizeof(SimpleUserData), the_frame->thread_slots[thread].pools[0]);
    if (!memory)
        return nullptr;
    SimpleUserData* const data = static_cast<SimpleUserData*>(memory);
    *data = { { readSimpleUserData, object->node }, object, prim, hit_u, hit_v };
    return data;
}

} // namespace rv
