// mesh_triangulate: the triangles of a whole mesh, and how each is found from its number.
#include "array.h"
#include "objects/mesh_faces.h"
#include "objects/polymesh.h"
#include "objects/triangulate.h"

#include <algorithm>

namespace rv {

namespace {

struct PolygonSizes {
    uint32_t least = 0xFFFFFFFF, most = 0;
    uint64_t triangles = 0; // when every polygon can be cut
};

} // namespace

static PolygonSizes measurePolygons(const RtPolyMesh& mesh)
{
    PolygonSizes sizes;
    for (uint32_t i = 0; i < mesh.npolygons; ++i) {
        const uint32_t sides = mesh.nsides[i];
        sizes.least = std::min(sizes.least, sides);
        sizes.most = std::max(sizes.most, sides);
        sizes.triangles += sides >= 3 ? sides - 2 : 0;
    }
    return sizes;
}

static void freeTriangulation(RtPolyMesh* mesh)
{
    RvPackedTriFree(&mesh->triangulation);
    RvPackedArrayFree(&mesh->base_offsets);
    RvPackedArrayFree(&mesh->polygon_ids);
    mesh->uniform_sides = 0;
    mesh->ntriangles = 0;
}

static bool triangulateQuads(RtPolyMesh* mesh)
{
    const uint32_t triangles = 2 * mesh->npolygons;
    if (!RvPackedTriAllocate(&mesh->triangulation, triangles, 4))
        return false;
    for (uint32_t i = 0; i < mesh->npolygons; ++i) {
        RtPoint points[4];
        uint32_t corners[6];
        for (uint32_t c = 0; c < 4; ++c)
            points[c] = mesh->vertices[mesh->vidxs[4 * i + c]];
        triangulateQuad(points, corners);
        for (uint32_t c = 0; c < 6; ++c)
            mesh->triangulation.setCorner(6 * i + c, corners[c]);
    }
    mesh->ntriangles = triangles;
    return true;
}

// Corner numbers of one polygon, 3 for each triangle, in the scratch; the count of triangles.
static uint32_t triangulatePolygon(const RtPolyMesh& mesh, uint32_t base, uint32_t sides,
                                   TriangulateScratch* scratch)
{
    if (sides < 3)
        return 0;
    if (sides == 3) {
        std::copy_n((const uint32_t[]){ 0, 1, 2 }, 3, scratch->corners);
        return 1;
    }
    for (uint32_t c = 0; c < sides; ++c)
        scratch->points[c] = mesh.vertices[mesh.vidxs[base + c]];
    if (sides == 4)
        triangulateQuad(scratch->points, scratch->corners);
    else if (!triangulate3d(scratch->points, sides, scratch, scratch->corners))
        return 0;
    return sides - 2;
}

static void cutPolygons(RtPolyMesh* mesh, TriangulateScratch* scratch)
{
    uint32_t base = 0, triangle = 0;
    for (uint32_t polygon = 0; polygon < mesh->npolygons; ++polygon) {
        const uint32_t sides = mesh->nsides[polygon];
        const uint32_t count = triangulatePolygon(*mesh, base, sides, scratch);
        for (uint32_t i = 0; i < 3 * count; ++i)
            mesh->triangulation.setCorner(3 * triangle + i, scratch->corners[i]);
        for (uint32_t i = 0; i < count; ++i) {
            mesh->base_offsets.set(triangle + i, base);
            mesh->polygon_ids.set(triangle + i, polygon);
        }
        base += sides;
        triangle += count;
    }
    mesh->ntriangles = triangle;
}

// Polygons that are neither all triangles nor all quads.
static bool triangulatePolygons(RtPolyMesh* mesh)
{
    const PolygonSizes sizes = measurePolygons(*mesh);
    const uint32_t triangles = uint32_t(sizes.triangles); // fewer than corners
    if (triangles == 0)
        return true;
    TriangulateScratch scratch;
    if (!createTriangulateScratch(&scratch, sizes.most))
        return false;
    const uint32_t largest = sizes.most > 3 ? sizes.most : 0; // triangles need no corner numbers
    const bool allocated =
        RvPackedTriAllocate(&mesh->triangulation, triangles, largest) &&
        RvPackedArrayAllocate(&mesh->base_offsets, triangles, mesh->vidxs.count) &&
        RvPackedArrayAllocate(&mesh->polygon_ids, triangles, mesh->npolygons);
    if (allocated)
        cutPolygons(mesh, &scratch);
    freeTriangulateScratch(&scratch);
    if (!allocated)
        return false;
    if (sizes.least == sizes.most && mesh->ntriangles == triangles) {
        mesh->uniform_sides = sizes.most;
        RvPackedArrayFree(&mesh->base_offsets);
        RvPackedArrayFree(&mesh->polygon_ids);
    } else { // polygons that could not be cut leave room at the end
        RvPackedArrayTruncate(&mesh->base_offsets, mesh->ntriangles);
        RvPackedArrayTruncate(&mesh->polygon_ids, mesh->ntriangles);
    }
    return true;
}

static bool triangulate(RtPolyMesh* mesh)
{
    if (mesh->polygon_size == 3) {
        mesh->ntriangles = mesh->npolygons;
        return true;
    }
    return mesh->polygon_size == 4 ? triangulateQuads(mesh) : triangulatePolygons(mesh);
}

} // namespace rv

void RvPolyMeshTriangulate(RtPolyMesh* mesh)
{
    if (const RtArray* const visibility = rv::faceVisibility(mesh->object->node, true))
        RvPolyMeshRemoveInvisibleFaces(mesh, visibility, true);
    rv::freeTriangulation(mesh);
    if (!rv::triangulate(mesh))
        rv::freeTriangulation(mesh);
}
