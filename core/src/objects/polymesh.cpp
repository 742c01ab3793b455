// polymesh: the "polymesh" shape node, a mesh of polygons with any number of sides.
//
// Initialize turns the arrays of the node into the packed record and empties them. So an array that
// holds elements later was set again: Update then makes the record anew, and takes what was not set
// from the present one. Setting "vlist" alone moves the vertices.
#include "objects/polymesh.h"

#include <initializer_list>
#include <utility>

namespace rv {

static const char* const subdiv_type_names[] = { "none", "catclark", "linear", nullptr };
static const char* const adaptive_metric_names[] = { "auto", "edge_length", "flatness", nullptr };
static const char* const uv_smoothing_names[] = { "pin_corners", "pin_borders", "linear", "smooth",
                                                  nullptr };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<PolyMesh>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nsides), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, vidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, uvidxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, crease_idxs), RvArray(0, 1, RV_TYPE_UINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, shidxs), RvArray(0, 1, RV_TYPE_BYTE));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, vlist), RvArray(0, 1, RV_TYPE_POINT));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, nlist), RvArray(0, 1, RV_TYPE_VECTOR));
    RvNodeParamARRAY(params, RV_FIELD(PolyMesh, uvlist), RvArray(0, 1, RV_TYPE_POINT2));
    RvNodeParamBOOL(params, RV_FIELD(PolyMesh, smoothing), false);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_type), 0, subdiv_type_names);
    RvNodeParamINT(params, RV_FIELD(PolyMesh, subdiv_iterations), 1);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, subdiv_pixel_error), 0);
    RvNodeParamNODE(params, RV_FIELD(PolyMesh, subdiv_dicing_camera), nullptr);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_adaptive_metric), 0, adaptive_metric_names);
    RvNodeParamENUM(params, RV_FIELD(PolyMesh, subdiv_uv_smoothing), 0, uv_smoothing_names);
    RvNodeParamNODE(params, RV_FIELD(PolyMesh, disp_map), nullptr);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, disp_height), 1);
    RvNodeParamFLT(params, RV_FIELD(PolyMesh, disp_zero_value), 0);
    RvNodeParamBOOL(params, RV_FIELD(PolyMesh, double_precision_intersector), false);
    for (const char* array : { "nsides", "vidxs", "nidxs", "uvidxs", "crease_idxs", "shidxs",
                               "vlist", "nlist", "uvlist" })
        declareFlag(metadata, array, "_skip_copy_on_instance");
}

// All keys hold the same positions, bit for bit.
static bool isStatic(const RtPolyMesh& mesh)
{
    const size_t key_bytes = mesh.nvertices * sizeof(RtPoint);
    for (unsigned key = 1; key < mesh.nkeys; ++key)
        if (memcmp(mesh.vertices, mesh.vertices + size_t(key) * mesh.nvertices, key_bytes) != 0)
            return false;
    return true;
}

// What follows once a mesh has its object. Refined meshes are cut into triangles afterwards.
static void finishMesh(RtPolyMesh* mesh, PolyMesh* params)
{
    RvPolyMeshConsistencyCheck(mesh);
    if (mesh->nkeys > 1 && isStatic(*mesh))
        ++threadStats()->static_motion_meshes;
    releaseMeshInputs(params);
    if (!isSubdivided(*params))
        RvPolyMeshTriangulate(mesh);
    countMeshMemory(mesh);
}

static void countMesh(const RtPolyMesh& mesh)
{
    RtStats* const stats = threadStats();
    ++stats->geometry[mesh.row].objects;
    stats->unique_triangles += mesh.ntriangles;
    if (mesh.object->visibility)
        stats->visible_triangles += mesh.ntriangles;
    if (mesh.row != RV_GEOMETRY_POLYMESHES)
        return;
    stats->polygons.add(mesh.npolygons);
    stats->triangles.add(mesh.ntriangles);
}

static void initialize(RtNode* node, void*)
{
    PolyMesh* const params = &polymeshParams(node);
    if (!prepareMeshInputs(node, params))
        return;
    RtPolyMesh* const mesh = createMesh(node, *params);
    if (!mesh)
        return;
    mesh->object = RvGObjectInitialize(node, RV_KIND_POLYMESH, mesh, mesh->nkeys, mesh->npolygons,
                                       mesh->nvertices);
    if (!mesh->object) {
        destroyMesh(mesh);
        return;
    }
    finishMesh(mesh, params);
    countMesh(*mesh);
}

// Makes the record anew from what was set again. When that is not possible it stays as it is.
static void recreateMesh(RtNode* node, PolyMesh* params, RtGObject* object)
{
    RtPolyMesh* const mesh = meshOf(object);
    const bool same_faces = !hasElements(params->nsides) && !hasElements(params->vidxs);
    restoreMeshInputs(*mesh, params);
    RtPolyMesh* const fresh = prepareMeshInputs(node, params) ? createMesh(node, *params) : nullptr;
    if (!fresh) {
        releaseMeshInputs(params);
        return;
    }
    fresh->object = object;
    if (same_faces) // faces that were removed before do not come back
        std::swap(fresh->uniform_idxs, mesh->uniform_idxs);
    dropAccel(object);
    std::swap(*fresh, *mesh); // instances refer to the record in its place
    destroyMesh(fresh);
    object->nkeys_shape = mesh->nkeys;
    object->nvarying = mesh->nvertices;
    if (!same_faces)
        object->nuniform = mesh->npolygons;
    finishMesh(mesh, params);
    requestRebuild(object, RV_REBUILD_GEOMETRY);
}

static void update(RtNode* node, void*)
{
    PolyMesh* const params = &polymeshParams(node);
    RtGObject* const object = objectOf(node);
    if (object && !node->source && hasMeshInputs(*params))
        recreateMesh(node, params, object);
    RvGObjectUpdate(node);
}

static void finish(RtNode* node)
{
    RtGObject* const object = objectOf(node);
    if (!object)
        return;
    dropAccel(object); // which refers to the mesh
    destroyMesh(meshOf(object));
    object->data = nullptr;
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = finish,
};

const RtNodeMethods polymesh_methods = { &common, &polymesh_shape_methods };

} // namespace rv
