// Polygon meshes: the compact record behind a "polymesh" node, and the steps that make it.
#ifndef RV_POLYMESH_H
#define RV_POLYMESH_H

#include "counters.h"
#include "objects/gobject.h"
#include "objects/packedarray.h"

// Texture coordinates in 16 bits each, relative to their bounds.
struct RtPackedUV {
    uint16_t u, v;
};

struct RtPolyMesh {
    RtGObject* object;
    uint32_t npolygons;
    uint32_t nvertices;
    uint32_t nnormals;
    uint32_t nuvs;
    uint32_t nshaders;
    uint8_t nkeys;           // deformation keys
    uint16_t polygon_size;   // 3 or 4 when every polygon has that many corners, else 0
    bool subdivide_pending;  // to be subdivided or displaced before the first use
    RtPackedIdxArray nsides; // empty when polygon_size is not 0
    RtPackedIdxArray vidxs;  // per corner
    RtPackedIdxArray nidxs;  // per corner, empty without normals
    RtPackedIdxArray uvidxs; // per corner, empty without texture coordinates
    RtPackedIdxArray crease_idxs;
    uint8_t* shidxs;      // per polygon, null for one shader
    RtPoint* vertices;    // nvertices of each key, key after key; one more may be read
    RtPoint* p_reference; // autobump: vertices before displacement, or null
    RtVector* n_reference;
    RtVector* normals;        // nnormals of each key, or null
    uint32_t* packed_normals; // the same compressed, or null
    RtPoint2* uvs;            // nuvs, or null
    RtPackedUV* packed_uvs;   // the same compressed, or null
    RtPoint2 uv_min, uv_max;  // bounds of the compressed ones
    uint32_t ntriangles;      // 0 before RvPolyMeshTriangulate
    RtPackedIdxArray
        base_offsets; // per triangle: first corner of its polygon; empty when computable
    RtPackedIdxArray polygon_ids;  // per triangle; empty when computable
    RtPackedIdxArray uniform_idxs; // per polygon: element of uniform user data; empty for identity
    RtPackedTriArray triangulation;
    double* double_vertices; // x, y, z of each vertex and key with double precision, or null
    int64_t bytes[RV_MESH_MEMORY_ROWS]; // counted in the statistics
};

// Checks indices, shaders and faces, repairing what it can; every problem is logged.
void RvPolyMeshConsistencyCheck(RtPolyMesh* mesh);
// Cuts the polygons into triangles, after removing invisible faces.
void RvPolyMeshTriangulate(RtPolyMesh* mesh);
// Computes vertex normals.
void RvPolyMeshSmooth(RtPolyMesh* mesh);
// Removes the faces whose entry of `visibility` is not `flag`.
void RvPolyMeshRemoveInvisibleFaces(RtPolyMesh* mesh, const RtArray* visibility, bool flag);
// Keeps present vertices and normals as the reference of autobump.
void RvPolyMeshCopyReferences(RtPolyMesh* mesh);
void RvCompressNormalsArray(RtPolyMesh* mesh);
void RvUncompressNormalsArray(RtPolyMesh* mesh);
void RvPackedUVCompressArray(RtPolyMesh* mesh);

namespace rv {

// First corner of the polygon of a triangle, in the arrays of corners.
inline uint32_t triangleBase(const RtPolyMesh& mesh, uint32_t triangle)
{
    if (mesh.polygon_size == 3)
        return 3 * triangle;
    if (mesh.polygon_size == 4)
        return (triangle & ~1u) * 2;
    return mesh.base_offsets[triangle];
}

// Corners of a triangle, in the arrays of corners.
inline void triangleCorners(const RtPolyMesh& mesh, uint32_t triangle, uint32_t out[3])
{
    const uint32_t base = triangleBase(mesh, triangle);
    for (uint32_t i = 0; i < 3; ++i)
        out[i] = base + mesh.triangulation.corner(3 * triangle + i);
}

inline void triangleVertices(const RtPolyMesh& mesh, uint32_t triangle, uint32_t out[3])
{
    triangleCorners(mesh, triangle, out);
    for (uint32_t i = 0; i < 3; ++i)
        out[i] = mesh.vidxs[out[i]];
}

// Frees a mesh with all its arrays; null is ignored.
void destroyMesh(RtPolyMesh* mesh);

// The structure over the triangles of a mesh (accels/triangles.cpp).
RtAccel* createMeshAccel(RtPolyMesh* mesh, bool double_precision, bool force_list, int thread);

} // namespace rv

#endif
