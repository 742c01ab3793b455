// mesh_faces: which faces of a mesh are hidden, and how faces are taken out of it.
#include "objects/mesh_faces.h"

#include "array.h"
#include "msg.h"

#include <string.h>

static const char* const module_path = "core\\src\\objects\\polymesh";

namespace rv {

const RtArray* faceVisibility(const RtNode* node, bool report)
{
    const RtUserParamEntry* const entry = findUserParam(node, "face_visibility", true);
    if (!entry)
        return nullptr;
    const char* const name = RvNodeGetName(node);
    if (entry->category != RV_USERDEF_UNIFORM) {
        if (report)
            RvMsgWarning("%s: face_visibility must be of uniform type - ignoring", name);
        return nullptr;
    }
    const RtArray* const array = entry->value.ARRAY;
    if (entry->type != RV_TYPE_BOOLEAN || (array && array->type != RV_TYPE_BOOLEAN)) {
        if (report)
            RvMsgWarning("%s: face_visibility attribute must be of type BOOLEAN - ignoring", name);
        return nullptr;
    }
    return array;
}

// Faces beyond the array are visible.
bool isFaceVisible(const RtPolyMesh& mesh, const RtArray* visibility, uint32_t face)
{
    const uint32_t i = uniformIndex(mesh, face);
    return i >= totalElements(visibility) || elementsOf<uint8_t>(visibility)[i] != 0;
}

uint8_t* allocateFaceMarks(const RtPolyMesh& mesh)
{
    void* const marks =
        allocate(mesh.npolygons, module_path, __LINE__, "RvPolyMeshRemoveInvisibleFaces");
    if (marks)
        memset(marks, 0, mesh.npolygons);
    return static_cast<uint8_t*>(marks);
}

// The faces that stay keep their elements of uniform user data, through this table.
static bool ensureUniformIndices(RtPolyMesh* mesh)
{
    if (mesh->uniform_idxs.count)
        return true;
    if (!RvPackedArrayAllocate(&mesh->uniform_idxs, mesh->npolygons, mesh->npolygons))
        return false;
    for (uint32_t face = 0; face < mesh->npolygons; ++face)
        mesh->uniform_idxs.set(face, face);
    return true;
}

// Moves the data of one face to where it belongs now, at or before its present place.
static void moveFace(RtPolyMesh* mesh, uint32_t from, uint32_t to)
{
    mesh->uniform_idxs.set(to, mesh->uniform_idxs[from]);
    if (mesh->nsides.count)
        mesh->nsides.set(to, mesh->nsides[from]);
    if (mesh->shidxs)
        mesh->shidxs[to] = mesh->shidxs[from];
}

static void moveCorners(RtPolyMesh* mesh, uint32_t from, uint32_t to, uint32_t count)
{
    for (RtPackedIdxArray* idxs : { &mesh->vidxs, &mesh->nidxs, &mesh->uvidxs })
        if (idxs->count && !idxs->borrowed)
            for (uint32_t i = 0; i < count; ++i)
                idxs->set(to + i, (*idxs)[from + i]);
}

static void truncateFaces(RtPolyMesh* mesh, uint32_t faces, uint32_t corners)
{
    const bool computed_normals = mesh->nidxs.borrowed;
    mesh->npolygons = faces;
    if (computed_normals)
        mesh->nidxs = {};
    for (RtPackedIdxArray* idxs : { &mesh->vidxs, &mesh->nidxs, &mesh->uvidxs })
        RvPackedArrayTruncate(idxs, corners);
    RvPackedArrayTruncate(&mesh->nsides, faces);
    RvPackedArrayTruncate(&mesh->uniform_idxs, faces);
    if (computed_normals) {
        mesh->nidxs = mesh->vidxs;
        mesh->nidxs.borrowed = true;
    }
}

void keepMarkedFaces(RtPolyMesh* mesh, const uint8_t* marks)
{
    if (!ensureUniformIndices(mesh))
        return;
    uint32_t faces = 0, corners = 0, corner = 0;
    for (uint32_t face = 0; face < mesh->npolygons; ++face) {
        const uint32_t sides = polygonSides(*mesh, face);
        if (marks[face]) {
            moveCorners(mesh, corner, corners, sides);
            moveFace(mesh, face, faces);
            corners += sides;
            ++faces;
        }
        corner += sides;
    }
    truncateFaces(mesh, faces, corners);
    if (!mesh->polygon_size)
        detectPolygonSize(mesh);
}

} // namespace rv

void RvPolyMeshRemoveInvisibleFaces(RtPolyMesh* mesh, const RtArray* visibility, bool flag)
{
    if (visibility && visibility->type == RV_TYPE_BOOLEAN)
        rv::keepFaces(mesh, [&](uint32_t face) {
            return rv::isFaceVisible(*mesh, visibility, face) == flag;
        });
}
