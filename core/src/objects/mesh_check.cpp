// mesh_check: finds what is wrong with a mesh, reports it, and repairs what would harm.
//
// Whatever the option "mesh_sanity" says, no index of the mesh points beyond its elements when the
// check is done; without the option they are repaired in silence.
#include "array.h"
#include "msg.h"
#include "objects/mesh_faces.h"
#include "objects/polymesh.h"
#include "options.h"
#include "scene.h"
#include "system/clock.h"

#include <algorithm>

namespace rv {

// One report for each bad index of a mesh, but not millions of them.
static constexpr uint32_t max_reports = 100;

// ---- Definitions that lack a part ----

static void dropUVs(RtPolyMesh* mesh)
{
    RvFree_func(mesh->uvs);
    RvFree_func(mesh->packed_uvs);
    mesh->uvs = nullptr;
    mesh->packed_uvs = nullptr;
    mesh->nuvs = 0;
    RvPackedArrayFree(&mesh->uvidxs);
}

static void useOneShader(RtPolyMesh* mesh)
{
    mesh->nshaders = 1;
    RvFree_func(mesh->shidxs);
    mesh->shidxs = nullptr;
}

static void checkDefinitions(RtPolyMesh* mesh, const char* name)
{
    if (!mesh->nnormals != !mesh->nidxs.count) {
        RvMsgError("%s: incorrectly defined normals", name);
        freeNormals(mesh);
    }
    if (!mesh->nuvs != !mesh->uvidxs.count) {
        RvMsgError("%s: incorrectly defined uv coordinates", name);
        dropUVs(mesh);
    }
    if (mesh->nshaders >= 2 && !mesh->shidxs) {
        RvMsgError("%s: incorrectly defined shaders", name);
        useOneShader(mesh);
    }
    if (mesh->nshaders > 255) {
        RvMsgError("%s: too many shaders (%d), max per-mesh is 255", name, int(mesh->nshaders));
        useOneShader(mesh);
    }
}

// ---- Indices ----

// Replaces indices that are not below `limit` by 0. With a name each is reported. True when there
// were any.
static bool repairIndices(RtPackedIdxArray* idxs, uint32_t limit, const char* name,
                          const char* kind)
{
    uint32_t bad = 0;
    for (uint32_t i = 0; i < idxs->count; ++i) {
        const uint32_t index = (*idxs)[i];
        if (index < limit)
            continue;
        if (name && bad < max_reports)
            RvMsgError("%s: out-of-range %s index (%d/%d)", name, kind, int(index), int(limit));
        idxs->set(i, 0);
        ++bad;
    }
    return bad > 0;
}

static bool repairShaderIndices(RtPolyMesh* mesh, const char* name)
{
    uint32_t bad = 0;
    for (uint32_t i = 0; mesh->shidxs && i < mesh->npolygons; ++i) {
        if (mesh->shidxs[i] < mesh->nshaders)
            continue;
        if (name && bad < max_reports)
            RvMsgError("%s: out-of-range shader index (%d/%d)", name, mesh->shidxs[i],
                       int(mesh->nshaders));
        mesh->shidxs[i] = 0;
        ++bad;
    }
    return bad > 0;
}

// With a null name nothing is reported.
static bool repairAllIndices(RtPolyMesh* mesh, const char* name)
{
    bool repaired = repairIndices(&mesh->vidxs, mesh->nvertices, name, "vertex");
    repaired |= repairIndices(&mesh->nidxs, mesh->nnormals, name, "normal");
    repaired |= repairIndices(&mesh->uvidxs, mesh->nuvs, name, "UV");
    repaired |= repairIndices(&mesh->crease_idxs, mesh->nvertices, name, "crease");
    repaired |= repairShaderIndices(mesh, name);
    return repaired;
}

// Makes the fault visible: the whole mesh gets the scene's shader for bad meshes.
static void useErrorShader(RtPolyMesh* mesh)
{
    RtArray* const shader = RvArray(1, 1, RV_TYPE_NODE, the_frame->scene->error_shader);
    if (!shader)
        return;
    ShapeParams& params = shapeParams(mesh->object->node);
    RvArrayDestroy(params.shader);
    params.shader = shader;
    useOneShader(mesh);
}

// ---- Faces ----

static void checkVisibility(const RtPolyMesh& mesh, const char* name)
{
    const RtArray* const visibility = faceVisibility(mesh.object->node, false);
    if (!visibility || mesh.npolygons == 0)
        return;
    for (uint32_t face = 0; face < mesh.npolygons; ++face)
        if (isFaceVisible(mesh, visibility, face))
            return;
    RvMsgWarning("%s: all faces are invisible (ignoring mesh)", name);
    mesh.object->visibility = 0;
}

static void removeFewSidedFaces(RtPolyMesh* mesh, const char* name)
{
    if (mesh->polygon_size)
        return;
    bool found = false;
    for (uint32_t face = 0; face < mesh->npolygons; ++face)
        if (const uint32_t sides = polygonSides(*mesh, face); sides < 3) {
            RvMsgWarning("%s: face %d has only %d sides", name, int(face), int(sides));
            found = true;
        }
    if (!found)
        return;
    RvMsgWarning("%s: removing degenerate faces ...", name);
    keepFaces(mesh, [&](uint32_t face) { return polygonSides(*mesh, face) >= 3; });
}

// No three neighbouring corners span a triangle.
static bool isDegenerate(const RtPolyMesh& mesh, uint32_t first_corner, uint32_t sides)
{
    const auto corner = [&](uint32_t c) {
        return mesh.vertices[mesh.vidxs[first_corner + (c < sides ? c : c - sides)]];
    };
    RtPoint a = corner(0), b = corner(1);
    for (uint32_t c = 0; c < sides; ++c) {
        const RtPoint next = corner(c + 2);
        const RtVector n = cross(a - b, b - next);
        if (dot(n, n) > 1e-12f)
            return false;
        a = b;
        b = next;
    }
    return true;
}

static void countDegenerate(const RtPolyMesh& mesh, const char* name)
{
    uint32_t count = 0, corner = 0;
    for (uint32_t face = 0; face < mesh.npolygons; ++face) {
        const uint32_t sides = polygonSides(mesh, face);
        count += sides >= 3 && isDegenerate(mesh, corner, sides);
        corner += sides;
    }
    if (count == 0)
        return;
    threadStats()->degenerate_polygons += count;
    RvMsgWarningMasked(RV_LOG_DEBUG, "%s: %d degenerate polygons", name, int(count));
}

// ---- Normals and texture coordinates ----

static void countZeroNormals(const RtPolyMesh& mesh, const char* name)
{
    const size_t total = mesh.normals ? size_t(mesh.nnormals) * mesh.nkeys : 0;
    const auto count = std::count_if(mesh.normals, mesh.normals + total, [](const RtVector& n) {
        return n.x == 0 && n.y == 0 && n.z == 0;
    });
    if (count > 0)
        RvMsgWarningMasked(RV_LOG_DEBUG, "%s: mesh references %d zero-length vertex normals", name,
                           int(count));
}

// Shading could not use such coordinates either: they become 0.
static void repairUVs(RtPolyMesh* mesh, const char* name)
{
    const auto isUsable = [](float x) { return fabsf(x) < 1e30f; }; // false for NaN
    for (uint32_t i = 0; mesh->uvs && i < mesh->nuvs; ++i) {
        RtPoint2& uv = mesh->uvs[i];
        if (isUsable(uv.x) && isUsable(uv.y))
            continue;
        RvMsgWarning("%s: bad UV coordinate, u=%f v=%f", name, double(uv.x), double(uv.y));
        uv = RV_P2_ZERO;
    }
}

} // namespace rv

void RvPolyMeshConsistencyCheck(RtPolyMesh* mesh)
{
    const uint32_t start = rv::wallMilliseconds();
    const char* const name = RvNodeGetName(mesh->object->node);
    rv::checkDefinitions(mesh, name);
    if (!rv::render_options->mesh_sanity) {
        rv::repairAllIndices(mesh, nullptr);
        return;
    }
    if (rv::repairAllIndices(mesh, name))
        rv::useErrorShader(mesh);
    rv::checkVisibility(*mesh, name);
    rv::removeFewSidedFaces(mesh, name);
    rv::countDegenerate(*mesh, name);
    rv::countZeroNormals(*mesh, name);
    rv::repairUVs(mesh, name);
    rv::threadStats()->sanity_ms += rv::wallMilliseconds() - start;
}
