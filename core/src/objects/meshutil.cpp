// meshutil: vertex normals, reference copies, and the memory of meshes.
#include "array.h"
#include "msg.h"
#include "objects/polymesh.h"
#include "options.h"

#include <algorithm>

static const char* const module_path = "core\\src\\objects\\meshutil";

namespace rv {

// ---- Smoothing ----

// Adds to each vertex the normals of its triangles, which are as long as twice their area.
static void sumNormals(const RtPolyMesh& mesh, const RtPoint* points, RtVector* normals)
{
    const float sign = render_options->CCW_points ? 1.0f : -1.0f;
    for (uint32_t triangle = 0; triangle < mesh.ntriangles; ++triangle) {
        uint32_t v[3];
        triangleVertices(mesh, triangle, v);
        const RtPoint &p0 = points[v[0]], &p1 = points[v[1]], &p2 = points[v[2]];
        const RtVector n = cross(p2 - p1, p0 - p1) * sign;
        for (uint32_t vertex : v)
            normals[vertex] = normals[vertex] + n;
    }
}

// Number of vectors that have no direction; these become (1, 0, 0).
static uint32_t normalizeAll(RtVector* normals, size_t count)
{
    uint32_t patched = 0;
    for (RtVector* n = normals; n < normals + count; ++n) {
        // Double precision, so that neither small nor large triangles lose their normals.
        const double x = n->x, y = n->y, z = n->z;
        const double length = sqrt(x * x + y * y + z * z);
        if (length > 0 && std::isfinite(length)) {
            *n = { float(x / length), float(y / length), float(z / length) };
        } else {
            *n = RV_V3_X;
            ++patched;
        }
    }
    return patched;
}

void freeNormals(RtPolyMesh* mesh)
{
    RvFree_func(mesh->normals);
    RvFree_func(mesh->packed_normals);
    mesh->normals = nullptr;
    mesh->packed_normals = nullptr;
    mesh->nnormals = 0;
    RvPackedArrayFree(&mesh->nidxs);
}

// ---- Copies ----

template <class T> static T* allocateElements(size_t count, const char* function)
{
    return static_cast<T*>(allocate(count * sizeof(T), module_path, __LINE__, function));
}

// The normals of each vertex and key, whatever corner they come from: the ones of the mesh may be
// computed anew later, with other indices. Null without normals.
static RtVector* normalsByVertex(const RtPolyMesh& mesh)
{
    const size_t count = size_t(mesh.nvertices) * mesh.nkeys;
    if (!mesh.nnormals)
        return nullptr;
    RtVector* const normals = allocateElements<RtVector>(count, "RvPolyMeshCopyReferences");
    if (!normals)
        return nullptr;
    std::fill_n(normals, count, RV_V3_ZERO);
    for (uint32_t key = 0; key < mesh.nkeys; ++key)
        for (uint32_t corner = 0; corner < mesh.nidxs.count; ++corner)
            normals[mesh.vidxs[corner] + size_t(key) * mesh.nvertices] =
                meshNormal(mesh, mesh.nidxs[corner], key);
    return normals;
}

void createDoubleVertices(RtPolyMesh* mesh)
{
    const size_t floats = 3 * size_t(mesh->nvertices) * mesh->nkeys;
    const float* const from = &mesh->vertices->x;
    RvFree_func(mesh->double_vertices);
    mesh->double_vertices = allocateElements<double>(floats, "RvPolyMesh");
    if (mesh->double_vertices)
        std::copy_n(from, floats, mesh->double_vertices);
}

// ---- Memory ----

// User data of a node that varies over its surface.
static size_t userDataBytes(const RtNode* node)
{
    size_t bytes = 0;
    for (unsigned i = 0; i < node->user_param_count; ++i) {
        const RtUserParamEntry& entry = node->user_params[i];
        const RtArray* const array = entry.value.ARRAY;
        const bool varies =
            entry.category == RV_USERDEF_UNIFORM || entry.category == RV_USERDEF_VARYING;
        if (varies && array)
            bytes += size_t(totalElements(array)) * typeSize(array->type);
    }
    return bytes;
}

static void measureMesh(const RtPolyMesh& mesh, size_t (&bytes)[RV_MESH_MEMORY_ROWS])
{
    const size_t keys = mesh.nkeys;
    const size_t vertices = mesh.nvertices * keys, normals = mesh.nnormals * keys;
    const auto owned = [](const RtPackedIdxArray& array) {
        return array.borrowed ? 0 : array.bytes();
    };
    const size_t corner_bits = 3 * size_t(mesh.ntriangles) * mesh.triangulation.bits;
    bytes[RV_MESH_VERTICES] =
        vertices * (sizeof(RtPoint) + (mesh.double_vertices ? 3 * sizeof(double) : 0));
    bytes[RV_MESH_VERTEX_INDICES] = owned(mesh.vidxs) + owned(mesh.nsides);
    bytes[RV_MESH_BASE_OFFSETS] = owned(mesh.base_offsets);
    bytes[RV_MESH_POLYGON_IDS] = owned(mesh.polygon_ids);
    bytes[RV_MESH_TRIANGULATION] = (corner_bits + 7) / 8;
    bytes[RV_MESH_NORMALS] = mesh.normals ? normals * sizeof(RtVector) : 0;
    bytes[RV_MESH_PACKED_NORMALS] = mesh.packed_normals ? normals * sizeof(uint32_t) : 0;
    bytes[RV_MESH_NORMAL_INDICES] = owned(mesh.nidxs);
    bytes[RV_MESH_SHADER_INDICES] = mesh.shidxs ? mesh.npolygons : 0;
    bytes[RV_MESH_UVS] = mesh.nuvs * (mesh.uvs          ? sizeof(RtPoint2)
                                      : mesh.packed_uvs ? sizeof(RtPackedUV)
                                                        : size_t(0));
    bytes[RV_MESH_UV_INDICES] = owned(mesh.uvidxs);
    bytes[RV_MESH_P_REFERENCE] = mesh.p_reference ? vertices * sizeof(RtPoint) : 0;
    bytes[RV_MESH_N_REFERENCE] = mesh.n_reference ? vertices * sizeof(RtVector) : 0;
    bytes[RV_MESH_CREASES] = owned(mesh.crease_idxs);
    bytes[RV_MESH_UNIFORM_INDICES] = owned(mesh.uniform_idxs);
    bytes[RV_MESH_USER_DATA] = mesh.object ? userDataBytes(mesh.object->node) : 0;
}

// Moves the counters from what was counted for the mesh to the given bytes.
static void recordBytes(RtPolyMesh* mesh, const size_t (&bytes)[RV_MESH_MEMORY_ROWS])
{
    RtStats* const stats = threadStats();
    int64_t before = 0, after = 0;
    for (int i = 0; i < RV_MESH_MEMORY_ROWS; ++i) {
        stats->mesh_bytes[i] += int64_t(bytes[i]) - mesh->bytes[i];
        before += mesh->bytes[i];
        mesh->bytes[i] = int64_t(bytes[i]);
        after += mesh->bytes[i];
    }
    RtGeometryCount& row = stats->geometry[mesh->row];
    stats->geometry_bytes += after - before;
    if (before == 0)
        row.initial_bytes += after;
    else
        (after > before ? row.added_bytes : row.freed_bytes) += std::abs(after - before);
}

void countMeshMemory(RtPolyMesh* mesh)
{
    size_t bytes[RV_MESH_MEMORY_ROWS];
    measureMesh(*mesh, bytes);
    recordBytes(mesh, bytes);
}

void destroyMesh(RtPolyMesh* mesh)
{
    if (!mesh)
        return;
    recordBytes(mesh, {});
    for (RtPackedIdxArray* array :
         { &mesh->nsides, &mesh->nidxs, &mesh->vidxs, &mesh->uvidxs, &mesh->crease_idxs,
           &mesh->base_offsets, &mesh->polygon_ids, &mesh->uniform_idxs })
        RvPackedArrayFree(array);
    RvPackedTriFree(&mesh->triangulation);
    for (void* block :
         { static_cast<void*>(mesh->shidxs), static_cast<void*>(mesh->vertices),
           static_cast<void*>(mesh->p_reference), static_cast<void*>(mesh->n_reference),
           static_cast<void*>(mesh->normals), static_cast<void*>(mesh->packed_normals),
           static_cast<void*>(mesh->uvs), static_cast<void*>(mesh->packed_uvs),
           static_cast<void*>(mesh->double_vertices) })
        RvFree_func(block);
    RvFree_func(mesh);
}

} // namespace rv

void RvPolyMeshSmooth(RtPolyMesh* mesh)
{
    rv::freeNormals(mesh);
    const size_t count = size_t(mesh->nvertices) * mesh->nkeys;
    RtVector* const normals = rv::allocateElements<RtVector>(count, "RvPolyMeshSmooth");
    if (!normals)
        return;
    std::fill_n(normals, count, RV_V3_ZERO);
    for (size_t first = 0; first < count; first += mesh->nvertices)
        rv::sumNormals(*mesh, mesh->vertices + first, normals + first);
    const uint32_t patched = rv::normalizeAll(normals, count);
    if (patched)
        RvMsgWarning("%s: %d zero vertex normals patched to (1 0 0) to avoid problems",
                     RvNodeGetName(mesh->object->node), int(patched));
    mesh->normals = normals;
    mesh->nnormals = mesh->nvertices;
    mesh->nidxs = mesh->vidxs;
    mesh->nidxs.borrowed = true;
}

void RvPolyMeshCopyReferences(RtPolyMesh* mesh)
{
    const size_t count = size_t(mesh->nvertices) * mesh->nkeys;
    RvFree_func(mesh->p_reference);
    RvFree_func(mesh->n_reference);
    mesh->p_reference = rv::allocateElements<RtPoint>(count, "RvPolyMeshCopyReferences");
    if (mesh->p_reference)
        std::copy_n(mesh->vertices, count, mesh->p_reference);
    mesh->n_reference = rv::normalsByVertex(*mesh);
}
