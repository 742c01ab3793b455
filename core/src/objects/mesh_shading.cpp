// mesh_shading: what a mesh tells about a hit: local geometry, texture coordinates and user data.
//
// A hit carries a triangle and the weights u and v of its second and third corner.
#include "array.h"
#include "objects/polymesh.h"
#include "options.h"
#include "system/memory.h"
#include "thread_slot.h"

#include <algorithm>
#include <math.h>

namespace rv {

// ---- Values at the corners ----

namespace {

struct Corners {
    uint32_t corner[3], vertex[3];

    Corners(const RtPolyMesh& mesh, uint32_t triangle)
    {
        triangleCorners(mesh, triangle, corner);
        for (int i = 0; i < 3; ++i)
            vertex[i] = mesh.vidxs[corner[i]];
    }
};

struct Triple {
    RtVector a, b, c;
};

} // namespace

static RtVector mix(const RtVector& a, const RtVector& b, float weight)
{
    return a * (1 - weight) + b * weight;
}

static KeyPair keysAt(const RtPolyMesh& mesh, float relative_time)
{
    return mesh.nkeys > 1 ? keyPair(mesh.nkeys, relative_time) : KeyPair{ 0, 0 };
}

// get(i, key) at the three corners, between two keys when the mesh moves.
template <class Get>
static Triple atCorners(const RtPolyMesh& mesh, const uint32_t (&index)[3], KeyPair keys, Get get)
{
    const auto value = [&](uint32_t i) {
        const RtVector first = get(i, keys.key);
        return mesh.nkeys > 1 ? mix(first, get(i, keys.key + 1), keys.weight) : first;
    };
    return { value(index[0]), value(index[1]), value(index[2]) };
}

// Of an array with one element for each vertex and key.
static Triple vertexValues(const RtPolyMesh& mesh, const RtVector* values, const Corners& at,
                           KeyPair keys)
{
    return atCorners(mesh, at.vertex, keys, [&](uint32_t i, uint32_t key) {
        return values[i + size_t(key) * mesh.nvertices];
    });
}

static Triple normalValues(const RtPolyMesh& mesh, const Corners& at, KeyPair keys)
{
    uint32_t index[3];
    for (int i = 0; i < 3; ++i)
        index[i] = mesh.nidxs[at.corner[i]];
    return atCorners(mesh, index, keys,
                     [&](uint32_t i, uint32_t key) { return meshNormal(mesh, i, key); });
}

static RtVector interpolate(const Triple& values, float u, float v)
{
    return values.a * (1 - u - v) + values.b * u + values.c * v;
}

// ---- Derivatives ----

namespace {

// How texture coordinates change over a triangle.
struct TextureFrame {
    double ds1 = 0, dt1 = 0, ds2 = 0, dt2 = 0;
    double det = 0; // 0 when they do not span it

    TextureFrame(const RtPolyMesh& mesh, const Corners& at)
    {
        if (!mesh.nuvs)
            return;
        RtPoint2 st[3];
        for (int i = 0; i < 3; ++i)
            st[i] = meshUV(mesh, mesh.uvidxs[at.corner[i]]);
        ds1 = double(st[1].x) - st[0].x;
        dt1 = double(st[1].y) - st[0].y;
        ds2 = double(st[2].x) - st[0].x;
        dt2 = double(st[2].y) - st[0].y;
        det = ds1 * dt2 - ds2 * dt1;
    }

    SurfaceDerivatives derive(const Triple& values) const
    {
        if (det == 0)
            return {};
        const RtVector e1 = values.b - values.a, e2 = values.c - values.a;
        const auto combine = [this](double f, const RtVector& a, double g, const RtVector& b) {
            return RtVector{ float((f * a.x - g * b.x) / det), float((f * a.y - g * b.y) / det),
                             float((f * a.z - g * b.z) / det) };
        };
        return { combine(dt2, e1, dt1, e2), combine(ds1, e2, ds2, e1) };
    }
};

} // namespace

MeshDerivatives meshDerivatives(const RtPolyMesh& mesh, uint32_t triangle, float relative_time)
{
    const Corners at(mesh, triangle);
    const KeyPair keys = keysAt(mesh, relative_time);
    const TextureFrame frame(mesh, at);
    MeshDerivatives d = {};
    d.position = frame.derive(vertexValues(mesh, mesh.vertices, at, keys));
    d.reference_position = mesh.p_reference
                               ? frame.derive(vertexValues(mesh, mesh.p_reference, at, keys))
                               : d.position;
    if (mesh.nnormals)
        d.normal = frame.derive(normalValues(mesh, at, keys));
    if (mesh.n_reference)
        d.reference_normal = frame.derive(vertexValues(mesh, mesh.n_reference, at, keys));
    return d;
}

// ---- Shape methods ----

static float relativeDeformTime(const RtGObject* object, float time)
{
    return meshOf(object)->nkeys > 1
               ? relativeTime(shapeParams(object->node).deform_time_samples, time)
               : 0;
}

static void localGeometry(const RtVector*, float time, const RtMatrix*, RtHit* hit, const RtPoint*,
                          RtLocalGeometry* out)
{
    const RtPolyMesh& mesh = *meshOf(hit->object);
    const Corners at(mesh, hit->prim);
    const KeyPair keys = keysAt(mesh, relativeDeformTime(hit->object, time));
    const Triple p = vertexValues(mesh, mesh.vertices, at, keys);
    out->Ng = cross(p.b - p.a, p.c - p.a);
    if (!render_options->CCW_points)
        out->Ng = cross(p.c - p.a, p.b - p.a);
    out->N = RV_V3_ZERO;
    if (mesh.nnormals && !render_options->ignore_smoothing)
        out->N = interpolate(normalValues(mesh, at, keys), hit->u, hit->v);
    if (out->N.x == 0 && out->N.y == 0 && out->N.z == 0)
        out->N = out->Ng;
    const SurfaceDerivatives d = TextureFrame(mesh, at).derive(p);
    out->dPdu = d.du;
    out->dPdv = d.dv;
}

// Grows a box by points; those that are not finite are no part of it.
static void growBox(RtBBox* box, const RtPoint* points, size_t count)
{
    RtPoint min = box->min, max = box->max;
    for (const RtPoint* p = points; p < points + count; ++p) {
        if (!isUsableFloat(p->x) || !isUsableFloat(p->y) || !isUsableFloat(p->z))
            continue;
        min = { std::min(min.x, p->x), std::min(min.y, p->y), std::min(min.z, p->z) };
        max = { std::max(max.x, p->x), std::max(max.y, p->y), std::max(max.z, p->z) };
    }
    *box = { min, max };
}

static void boundMesh(RtGObject* object, RtBBox* bbox, int key)
{
    const RtPolyMesh& mesh = *meshOf(object);
    const size_t count = mesh.nvertices;
    constexpr float far = 3.40282347e38f;
    *bbox = { { far, far, far }, { -far, -far, -far } };
    if (key < 0)
        growBox(bbox, mesh.vertices, count * mesh.nkeys);
    else
        growBox(bbox, mesh.vertices + std::min(size_t(key), size_t(mesh.nkeys) - 1) * count, count);
}

static void textureCoordinates(RtGObject* object, uint32_t triangle, float hit_u, float hit_v,
                               float* u, float* v)
{
    const RtPolyMesh& mesh = *meshOf(object);
    if (!mesh.nuvs) {
        *u = hit_u;
        *v = hit_v;
        return;
    }
    const float weights[3] = { 1 - hit_u - hit_v, hit_u, hit_v };
    uint32_t corners[3];
    triangleCorners(mesh, triangle, corners);
    RtPoint2 sum = RV_P2_ZERO;
    for (int i = 0; i < 3; ++i) {
        const RtPoint2 uv = meshUV(mesh, mesh.uvidxs[corners[i]]);
        sum = { sum.x + weights[i] * uv.x, sum.y + weights[i] * uv.y };
    }
    *u = sum.x;
    *v = sum.y;
}

// ---- User data ----

namespace {

struct MeshUserData : RtUserDataHit {
    uint32_t uniform_index;
    uint32_t count; // of the elements below
    uint32_t index[3];
    float weight[3];
};

} // namespace

// Floats that values of a type consist of; 0 for types that are not made of floats.
static int floatCount(int type)
{
    switch (type) {
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    case RV_TYPE_MATRIX: return 16;
    default: return 0;
    }
}

static void interpolateFloats(const MeshUserData& hit, const RtArray* array, int floats, void* out)
{
    const float* const values = elementsOf<float>(array);
    float sum[16] = {};
    for (uint32_t corner = 0; corner < hit.count; ++corner)
        for (int i = 0; i < floats; ++i)
            sum[i] += hit.weight[corner] *
                      values[size_t(hit.index[corner]) * unsigned(floats) + unsigned(i)];
    memcpy(out, sum, unsigned(floats) * sizeof(float));
}

// Whole numbers are rounded.
template <class T>
static void interpolateWhole(const MeshUserData& hit, const RtArray* array, void* out)
{
    double sum = 0;
    for (uint32_t corner = 0; corner < hit.count; ++corner)
        sum += double(hit.weight[corner]) * elementsOf<T>(array)[hit.index[corner]];
    const double rounded = std::clamp(floor(sum + 0.5), double(std::numeric_limits<T>::min()),
                                      double(std::numeric_limits<T>::max()));
    const T value = T(rounded);
    memcpy(out, &value, sizeof value);
}

static void copyElement(const RtArray* array, uint32_t index, void* out)
{
    const size_t size = typeSize(array->type);
    memcpy(out, static_cast<const char*>(array->data) + size * index, size);
}

// Values that cannot be mixed are those of the nearest corner.
static void interpolateVarying(const MeshUserData& hit, const RtArray* array, void* out)
{
    if (const int floats = floatCount(array->type)) {
        interpolateFloats(hit, array, floats, out);
        return;
    }
    switch (array->type) {
    case RV_TYPE_BYTE: interpolateWhole<uint8_t>(hit, array, out); break;
    case RV_TYPE_INT: interpolateWhole<int>(hit, array, out); break;
    case RV_TYPE_UINT: interpolateWhole<unsigned>(hit, array, out); break;
    default: {
        const float* const nearest = std::max_element(hit.weight, hit.weight + hit.count);
        copyElement(array, hit.index[nearest - hit.weight], out);
    }
    }
}

// What it declines, constants among others, is read as on any node.
static bool readUserData(const RtUserDataHit* base, const RtUserParamEntry* param, int type,
                         void* out)
{
    const MeshUserData& hit = *static_cast<const MeshUserData*>(base);
    const bool varying = param->category == RV_USERDEF_VARYING;
    if (!varying && param->category != RV_USERDEF_UNIFORM)
        return false;
    const RtArray* const array = param->value.ARRAY;
    if (!array || !typeAccepts(array->type, type))
        return false;
    const uint32_t last =
        varying ? *std::max_element(hit.index, hit.index + hit.count) : hit.uniform_index;
    if (last >= totalElements(array))
        return false;
    if (varying)
        interpolateVarying(hit, array, out);
    else
        copyElement(array, hit.uniform_index, out);
    return true;
}

static void* prepareUserData(RtGObject* object, uint32_t triangle, float hit_u, float hit_v,
                             int thread)
{
    const RtNode* const node = object->node;
    const bool has_data =
        node->user_param_count || (node->source && node->source->user_param_count);
    if (!has_data || !the_frame->thread_slots)
        return nullptr;
    RtMemPool* const pool = the_frame->thread_slots[thread].shading_pool;
    MeshUserData* const hit =
        static_cast<MeshUserData*>(RvMemPoolAlloc(unsigned(sizeof(MeshUserData)), pool));
    if (!hit)
        return nullptr;
    const RtPolyMesh& mesh = *meshOf(object);
    hit->read = readUserData;
    hit->node = node;
    hit->uniform_index = uniformIndex(mesh, trianglePolygon(mesh, triangle));
    hit->count = 3;
    triangleVertices(mesh, triangle, hit->index);
    hit->weight[0] = 1 - hit_u - hit_v;
    hit->weight[1] = hit_u;
    hit->weight[2] = hit_v;
    return static_cast<RtUserDataHit*>(hit);
}

// ---- Intersection ----

// On the first ray that needs the mesh, under the lock of its object.
static RtAccel* prepareIntersection(RtGObject* object, int thread)
{
    RtPolyMesh* const mesh = meshOf(object);
    const PolyMesh& params = polymeshParams(object->node);
    if (mesh->subdivide_pending && mesh->ntriangles == 0)
        RvPolyMeshTriangulate(mesh);
    mesh->subdivide_pending = false;
    if (params.smoothing && !mesh->nnormals && !render_options->ignore_smoothing)
        RvPolyMeshSmooth(mesh);
    if (params.double_precision_intersector)
        createDoubleVertices(mesh);
    countMeshMemory(mesh);
    return createMeshAccel(mesh, mesh->double_vertices, params.common.unbounded, thread);
}

const RtShapeMethods polymesh_shape_methods = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = boundMesh,
    .ShapeTextureCoordinates = textureCoordinates,
    .ShapePrepareUserData = prepareUserData,
    .ShapePrepareIntersection = prepareIntersection,
};

} // namespace rv
