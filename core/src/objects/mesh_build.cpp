// mesh_build: from the arrays of a "polymesh" node to the packed record, and back.
//
// Arrays are read only where their type and storage are as declared, whatever was done to them
// since they were set. Indices are packed as given, out-of-range ones included: the consistency
// check reports and repairs them.
#include "array.h"
#include "msg.h"
#include "objects/polymesh.h"
#include "options.h"

#include <algorithm>
#include <limits.h>
#include <new>
#include <type_traits>

namespace rv {

// Messages of failed allocations name the module of the node type.
static const char* const module_path = "core\\src\\objects\\polymesh";

static constexpr struct {
    RtArray* PolyMesh::*array;
    int type;
} inputs[] = {
    { &PolyMesh::nsides, RV_TYPE_UINT },      { &PolyMesh::vidxs, RV_TYPE_UINT },
    { &PolyMesh::nidxs, RV_TYPE_UINT },       { &PolyMesh::uvidxs, RV_TYPE_UINT },
    { &PolyMesh::crease_idxs, RV_TYPE_UINT }, { &PolyMesh::shidxs, RV_TYPE_BYTE },
    { &PolyMesh::vlist, RV_TYPE_POINT },      { &PolyMesh::nlist, RV_TYPE_VECTOR },
    { &PolyMesh::uvlist, RV_TYPE_POINT2 },
};

// ---- Reading arrays ----

// What an array holds of an element type; nothing when it is of another type.
template <class T> struct Elements {
    const T* data = nullptr;
    uint32_t count = 0; // per key
    uint8_t keys = 1;
};

template <class T> static Elements<T> readArray(const RtArray* array, int type)
{
    if (!array || array->type != type || !array->data || !array->nelements || !array->nkeys)
        return {};
    return { elementsOf<T>(array), array->nelements, array->nkeys };
}

static Elements<uint32_t> indices(const RtArray* array)
{
    return readArray<uint32_t>(array, RV_TYPE_UINT);
}

static void emptyArray(RtArray* array, int type)
{
    if (!array)
        return;
    RvArrayReset(array);
    array->type = uint8_t(type);
    array->nkeys = 1;
}

bool hasMeshInputs(const PolyMesh& params)
{
    return std::any_of(std::begin(inputs), std::end(inputs),
                       [&](const auto& row) { return hasElements(params.*row.array); });
}

void releaseMeshInputs(PolyMesh* params)
{
    for (const auto& row : inputs)
        emptyArray(params->*row.array, row.type);
}

// ---- Validation ----

// Without "nsides" the polygons are triangles.
static void implyTriangles(PolyMesh* params)
{
    const uint32_t corners = indices(params->vidxs).count;
    if (indices(params->nsides).count || corners == 0 || corners % 3 != 0)
        return;
    RtArray* const nsides = RvArrayAllocate(corners / 3, 1, RV_TYPE_UINT);
    if (!nsides)
        return;
    std::fill_n(elementsOf<uint32_t>(nsides), nsides->nelements, 3u);
    RvArrayDestroy(params->nsides);
    params->nsides = nsides;
}

// Counts in messages, where they exceed what is printed.
static int printable(uint64_t count) { return int(std::min<uint64_t>(count, INT_MAX)); }

static bool keysAgree(const char* name, const PolyMesh& params)
{
    const auto vertices = readArray<RtPoint>(params.vlist, RV_TYPE_POINT);
    const auto normals = readArray<RtVector>(params.nlist, RV_TYPE_VECTOR);
    if (normals.count && normals.keys != vertices.keys) {
        RvMsgError("%s: different number of motion keys in vertex/normal arrays: #normal keys: %d, "
                   "#vertex keys: %d",
                   name, normals.keys, vertices.keys);
        return false;
    }
    for (const RtArray* fixed : { params.vidxs, params.uvlist, params.nidxs, params.uvidxs,
                                  params.crease_idxs, params.shidxs })
        if (fixed && fixed->nkeys > 1) {
            RvMsgError("%s: non-animatable polymesh parameter has more than one motion key", name);
            return false;
        }
    return true;
}

static bool countsAgree(const char* name, const PolyMesh& params)
{
    const auto nsides = indices(params.nsides);
    uint64_t corners = 0;
    for (uint32_t i = 0; i < nsides.count; ++i)
        corners += nsides.data[i];
    const uint32_t nvidxs = indices(params.vidxs).count;
    const uint32_t nnidxs = indices(params.nidxs).count;
    const uint32_t nuvidxs = indices(params.uvidxs).count;
    const uint32_t ncreases = indices(params.crease_idxs).count;
    if (nvidxs != corners)
        RvMsgError("%s: wrong number of vertex indices (%d, should be %d)", name, printable(nvidxs),
                   printable(corners));
    else if (nnidxs && nnidxs != corners)
        RvMsgError("%s: wrong number of normal indices (%d, should be %d)", name, printable(nnidxs),
                   printable(corners));
    else if (nuvidxs && nuvidxs != corners)
        RvMsgError("%s: wrong number of UV indices (%d, should be %d)", name, printable(nuvidxs),
                   printable(corners));
    else if (ncreases % 2)
        RvMsgError("%s: wrong number of crease indices (%d, should be even)", name,
                   printable(ncreases));
    else
        return true;
    return false;
}

// Drops given normals that are incomplete or of no use.
static void settleNormals(const char* name, PolyMesh* params)
{
    const bool has_normals = readArray<RtVector>(params->nlist, RV_TYPE_VECTOR).count > 0;
    const bool has_indices = indices(params->nidxs).count > 0;
    if (!has_normals && !has_indices)
        return;
    const bool complete = has_normals && has_indices;
    const bool subdivided = params->subdiv_type != 0;
    if (!complete)
        RvMsgWarning("%s: incomplete vertex normal specification: ignoring", name);
    else if (subdivided)
        RvMsgWarning("%s: user normals are not supported on subdivision surfaces", name);
    if (complete && !subdivided && params->smoothing && !render_options->ignore_smoothing)
        return;
    emptyArray(params->nlist, RV_TYPE_VECTOR);
    emptyArray(params->nidxs, RV_TYPE_UINT);
}

bool prepareMeshInputs(const RtNode* node, PolyMesh* params)
{
    const char* const name = RvNodeGetName(node);
    implyTriangles(params);
    if (!readArray<RtPoint>(params->vlist, RV_TYPE_POINT).count || !indices(params->vidxs).count ||
        !indices(params->nsides).count) {
        RvMsgWarning("%s: empty polymesh node", name);
        return false;
    }
    if (!keysAgree(name, *params) || !countsAgree(name, *params))
        return false;
    settleNormals(name, params);
    return true;
}

// ---- Packing ----

// Wide enough for every value, also for those that exceed the elements they point to.
static bool packIndices(RtPackedIdxArray* packed, const RtArray* array, uint32_t elements)
{
    const auto from = indices(array);
    uint64_t bound = elements;
    for (uint32_t i = 0; i < from.count; ++i)
        bound = std::max<uint64_t>(bound, uint64_t(from.data[i]) + 1);
    return RvPackedArrayCreate(packed, from.data, from.count, bound);
}

// A heap copy with `padding` zeroed elements more. Null for nothing, and when the heap is
// exhausted.
template <class T> static T* copyElements(const Elements<T>& from, size_t padding)
{
    const size_t total = size_t(from.count) * from.keys;
    if (total == 0)
        return nullptr;
    T* const copy = static_cast<T*>(
        allocate((total + padding) * sizeof(T), module_path, __LINE__, "RvPolyMesh"));
    if (copy) {
        memcpy(static_cast<void*>(copy), from.data, total * sizeof(T));
        memset(static_cast<void*>(copy + total), 0, padding * sizeof(T));
    }
    return copy;
}

void detectPolygonSize(RtPolyMesh* mesh)
{
    const uint32_t size = mesh->npolygons ? mesh->nsides[0] : 0;
    if (size != 3 && size != 4)
        return;
    for (uint32_t i = 1; i < mesh->npolygons; ++i)
        if (mesh->nsides[i] != size)
            return;
    mesh->polygon_size = uint16_t(size);
    RvPackedArrayFree(&mesh->nsides);
}

// Polygons without an index get shader 0.
static bool copyShaderIndices(RtPolyMesh* mesh, const RtArray* array)
{
    const auto from = readArray<uint8_t>(array, RV_TYPE_BYTE);
    if (!from.count)
        return true;
    mesh->shidxs =
        static_cast<uint8_t*>(allocate(mesh->npolygons, module_path, __LINE__, "RvPolyMesh"));
    if (!mesh->shidxs)
        return false;
    const uint32_t given = std::min(from.count, mesh->npolygons);
    memcpy(mesh->shidxs, from.data, given);
    memset(mesh->shidxs + given, 0, mesh->npolygons - given);
    return true;
}

static bool packPolygons(RtPolyMesh* mesh, const PolyMesh& params)
{
    mesh->npolygons = indices(params.nsides).count;
    if (!packIndices(&mesh->nsides, params.nsides, 0))
        return false;
    detectPolygonSize(mesh);
    return packIndices(&mesh->vidxs, params.vidxs, mesh->nvertices) &&
           packIndices(&mesh->nidxs, params.nidxs, mesh->nnormals) &&
           packIndices(&mesh->uvidxs, params.uvidxs, mesh->nuvs) &&
           packIndices(&mesh->crease_idxs, params.crease_idxs, mesh->nvertices) &&
           copyShaderIndices(mesh, params.shidxs);
}

static bool copyGeometry(RtPolyMesh* mesh, const PolyMesh& params)
{
    const auto vertices = readArray<RtPoint>(params.vlist, RV_TYPE_POINT);
    const auto normals = readArray<RtVector>(params.nlist, RV_TYPE_VECTOR);
    const auto uvs = readArray<RtPoint2>(params.uvlist, RV_TYPE_POINT2);
    mesh->nkeys = vertices.keys;
    mesh->nvertices = vertices.count;
    mesh->nnormals = normals.count;
    mesh->nuvs = uvs.count;
    mesh->vertices = copyElements(vertices, 1); // so that four floats can be read at each
    mesh->normals = copyElements(normals, 0);
    mesh->uvs = copyElements(uvs, 0);
    return mesh->vertices && !mesh->normals == !normals.count && !mesh->uvs == !uvs.count;
}

// A mesh that its "nurbs" node made stands in the rows of that node.
static RtGeometryRow meshRow(const RtNode* node, bool subdivided)
{
    const char* const name = RvNodeGetName(node);
    if (name && !strncmp(name, "poly_", 5) && RvNodeIs(RvNodeLookUpByName(name + 5), "nurbs"))
        return RV_GEOMETRY_NURBS;
    return subdivided ? RV_GEOMETRY_SUBDIVS : RV_GEOMETRY_POLYMESHES;
}

bool isSubdivided(const PolyMesh& params)
{
    return params.subdiv_type != 0 && !render_options->ignore_subdivision;
}

RtPolyMesh* createMesh(const RtNode* node, const PolyMesh& params)
{
    void* const memory = allocate(sizeof(RtPolyMesh), module_path, __LINE__, "RvPolyMesh");
    if (!memory)
        return nullptr;
    RtPolyMesh* const mesh = new (memory) RtPolyMesh{};
    const bool subdivided = isSubdivided(params);
    const bool displaced = params.disp_map && !render_options->ignore_displacement;
    const RtArray* const shaders = params.common.shader;
    mesh->subdivide_pending = subdivided || displaced;
    mesh->nshaders = shaders ? std::max(totalElements(shaders), 1u) : 1;
    mesh->row = meshRow(node, subdivided);
    if (copyGeometry(mesh, params) && packPolygons(mesh, params))
        return mesh;
    destroyMesh(mesh);
    return nullptr;
}

// ---- Back to arrays ----

// Fills an empty input array with count * keys elements; element(i) gives each.
template <class Get>
static void restoreArray(RtArray** array, int type, uint32_t count, uint8_t keys, Get element)
{
    using T = std::decay_t<decltype(element(size_t()))>;
    if (count == 0 || hasElements(*array))
        return;
    RtArray* const restored = RvArrayAllocate(count, keys, type);
    if (!restored)
        return;
    T* const out = elementsOf<T>(restored);
    for (size_t i = 0, total = totalElements(restored); i < total; ++i)
        out[i] = element(i);
    RvArrayDestroy(*array);
    *array = restored;
}

static void restoreIndices(RtArray** array, const RtPackedIdxArray& packed)
{
    restoreArray(array, RV_TYPE_UINT, packed.count, 1,
                 [&](size_t i) { return packed[uint32_t(i)]; });
}

void restoreMeshInputs(const RtPolyMesh& mesh, PolyMesh* params)
{
    if (mesh.refined)
        return;
    const bool same_polygons = !indices(params->nsides).count && !indices(params->vidxs).count;
    const bool has_given_normals = mesh.nnormals && !mesh.nidxs.borrowed;
    if (same_polygons) {
        restoreArray(&params->nsides, RV_TYPE_UINT, mesh.npolygons, 1,
                     [&](size_t i) { return polygonSides(mesh, uint32_t(i)); });
        restoreIndices(&params->vidxs, mesh.vidxs);
        restoreIndices(&params->uvidxs, mesh.uvidxs);
        restoreIndices(&params->crease_idxs, mesh.crease_idxs);
        restoreArray(&params->shidxs, RV_TYPE_BYTE, mesh.shidxs ? mesh.npolygons : 0, 1,
                     [&](size_t i) { return mesh.shidxs[i]; });
        if (has_given_normals)
            restoreIndices(&params->nidxs, mesh.nidxs);
    }
    restoreArray(&params->vlist, RV_TYPE_POINT, mesh.nvertices, mesh.nkeys,
                 [&](size_t i) { return mesh.vertices[i]; });
    if (has_given_normals && indices(params->nidxs).count)
        restoreArray(&params->nlist, RV_TYPE_VECTOR, mesh.nnormals, mesh.nkeys, [&](size_t i) {
            return meshNormal(mesh, uint32_t(i % mesh.nnormals), uint32_t(i / mesh.nnormals));
        });
    if (indices(params->uvidxs).count)
        restoreArray(&params->uvlist, RV_TYPE_POINT2, mesh.nuvs, 1,
                     [&](size_t i) { return meshUV(mesh, uint32_t(i)); });
}

} // namespace rv
