// Polygon meshes: the "polymesh" node, the compact record behind it, and the steps that make it.
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
    uint32_t uniform_sides;  // corners of each polygon when triangles are located by them, else 0
    bool subdivide_pending;  // to be subdivided or displaced before the first use
    bool refined;            // was subdivided or displaced: no longer the geometry of the node
    RtPackedIdxArray nsides; // empty when polygon_size is not 0
    RtPackedIdxArray vidxs;  // per corner
    RtPackedIdxArray nidxs;  // per corner, empty without normals; borrows vidxs when computed
    RtPackedIdxArray uvidxs; // per corner, empty without texture coordinates
    RtPackedIdxArray crease_idxs;
    uint8_t* shidxs;          // per polygon, null for one shader
    RtPoint* vertices;        // nvertices of each key, key after key; one more may be read
    RtPoint* p_reference;     // autobump: vertices before displacement, or null
    RtVector* n_reference;    // normals before displacement, one per vertex, or null
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
    RtGeometryRow row;                  // that they are counted in
};

// Checks indices, shaders and faces, repairing what it can; every problem is logged. Afterwards
// every index is in range, also where the option "mesh_sanity" is off.
void RvPolyMeshConsistencyCheck(RtPolyMesh* mesh);
// Cuts the polygons into triangles, after removing invisible faces. May be called again.
void RvPolyMeshTriangulate(RtPolyMesh* mesh);
// Replaces the normals by ones computed from the triangles.
void RvPolyMeshSmooth(RtPolyMesh* mesh);
// Removes the faces whose entry of `visibility` is not `flag`.
void RvPolyMeshRemoveInvisibleFaces(RtPolyMesh* mesh, const RtArray* visibility, bool flag);
// Keeps present vertices and normals as the reference of autobump.
void RvPolyMeshCopyReferences(RtPolyMesh* mesh);
void RvCompressNormalsArray(RtPolyMesh* mesh);
void RvUncompressNormalsArray(RtPolyMesh* mesh);
void RvPackedUVCompressArray(RtPolyMesh* mesh);

namespace rv {

// The parameters of a "polymesh" node.
struct PolyMesh {
    RtArray* nsides;      // UINT, corners of each polygon
    RtArray* vidxs;       // UINT, vertex of each corner, polygon after polygon
    RtArray* nidxs;       // UINT, normal of each corner
    RtArray* uvidxs;      // UINT, texture coordinate of each corner
    RtArray* crease_idxs; // UINT, pairs of vertices: crease edges
    RtArray* shidxs;      // BYTE, index into "shader" of each polygon
    RtArray* vlist;       // POINT, positions, one key per deformation key
    RtArray* nlist;       // VECTOR, normals, as many keys as vlist
    RtArray* uvlist;      // POINT2, texture coordinates
    bool smoothing;
    int subdiv_type; // 0 for none
    int subdiv_iterations;
    float subdiv_pixel_error;
    RtNode* subdiv_dicing_camera;
    int subdiv_adaptive_metric;
    int subdiv_uv_smoothing;
    RtNode* disp_map;      // displacement shader
    float disp_height;     // also pads the bounds
    float disp_zero_value; // value that displaces nothing
    bool double_precision_intersector;
    ShapeParams common;
    const char* name;
};

// The node's own parameters; the node is of type "polymesh".
inline PolyMesh& polymeshParams(const RtNode* node)
{
    return *static_cast<PolyMesh*>(node->params);
}

inline RtPolyMesh* meshOf(const RtGObject* object)
{
    return static_cast<RtPolyMesh*>(object->data);
}

// ---- Locating polygons and triangles ----

inline uint32_t polygonSides(const RtPolyMesh& mesh, uint32_t polygon)
{
    return mesh.polygon_size ? mesh.polygon_size : mesh.nsides[polygon];
}

// First corner of the polygon of a triangle, in the arrays of corners.
inline uint32_t triangleBase(const RtPolyMesh& mesh, uint32_t triangle)
{
    if (mesh.polygon_size == 3)
        return 3 * triangle;
    if (mesh.polygon_size == 4)
        return (triangle & ~1u) * 2;
    if (mesh.uniform_sides)
        return triangle / (mesh.uniform_sides - 2) * mesh.uniform_sides;
    return mesh.base_offsets[triangle];
}

// The polygon of a triangle.
inline uint32_t trianglePolygon(const RtPolyMesh& mesh, uint32_t triangle)
{
    if (mesh.polygon_size == 3)
        return triangle;
    if (mesh.polygon_size == 4)
        return triangle / 2;
    if (mesh.uniform_sides)
        return triangle / (mesh.uniform_sides - 2);
    return mesh.polygon_ids[triangle];
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

// Element of uniform user data that belongs to a polygon.
inline uint32_t uniformIndex(const RtPolyMesh& mesh, uint32_t polygon)
{
    return mesh.uniform_idxs.count ? mesh.uniform_idxs[polygon] : polygon;
}

// ---- Elements ----

// A compressed direction, as RvCompressNormalsArray makes it.
RtVector unpackNormal(uint32_t packed);

// Normal i of a key of a mesh that has normals.
inline RtVector meshNormal(const RtPolyMesh& mesh, uint32_t i, uint32_t key)
{
    const size_t at = i + size_t(key) * mesh.nnormals;
    return mesh.normals ? mesh.normals[at] : unpackNormal(mesh.packed_normals[at]);
}

RtPoint2 unpackUV(const RtPolyMesh& mesh, RtPackedUV packed);

// Texture coordinates i of a mesh that has some.
inline RtPoint2 meshUV(const RtPolyMesh& mesh, uint32_t i)
{
    return mesh.uvs ? mesh.uvs[i] : unpackUV(mesh, mesh.packed_uvs[i]);
}

// ---- Shading ----

// Derivatives of a quantity along the two texture coordinates.
struct SurfaceDerivatives {
    RtVector du, dv;
};
struct MeshDerivatives {
    SurfaceDerivatives position;
    SurfaceDerivatives reference_position; // those of the position without references
    SurfaceDerivatives normal;             // zero without normals
    SurfaceDerivatives reference_normal;   // zero without references
};
// On a triangle at a relative deformation time, in object space; all zero where the texture
// coordinates do not span the triangle.
MeshDerivatives meshDerivatives(const RtPolyMesh& mesh, uint32_t triangle, float relative_time);

extern const RtShapeMethods polymesh_shape_methods;

// ---- Making a mesh ----

// Logs what is wrong with the arrays of a node, and completes them; false when no mesh can be made.
bool prepareMeshInputs(const RtNode* node, PolyMesh* params);
// A mesh of prepared arrays, without object; null when the heap is exhausted.
RtPolyMesh* createMesh(const RtNode* node, const PolyMesh& params);
// Gives the arrays that are empty what the present mesh still knows of them.
void restoreMeshInputs(const RtPolyMesh& mesh, PolyMesh* params);
// The node asks for subdivision, and the options allow it.
bool isSubdivided(const PolyMesh& params);
// Frees what the input arrays hold; the arrays stay, empty.
void releaseMeshInputs(PolyMesh* params);
inline bool hasElements(const RtArray* array) { return array && array->nelements > 0; }
// True when some input array holds elements.
bool hasMeshInputs(const PolyMesh& params);

// Sets polygon_size, dropping `nsides`, when all polygons are triangles or all are quads.
void detectPolygonSize(RtPolyMesh* mesh);
void freeNormals(RtPolyMesh* mesh);
// Replaces double_vertices by a copy of the vertices; null when the heap is exhausted.
void createDoubleVertices(RtPolyMesh* mesh);
// Brings the memory statistics of the calling thread up to date with the mesh.
void countMeshMemory(RtPolyMesh* mesh);
// Frees a mesh with all its arrays; null is ignored.
void destroyMesh(RtPolyMesh* mesh);

// The structure over the triangles of a mesh (accels/triangles.cpp).
RtAccel* createMeshAccel(RtPolyMesh* mesh, bool double_precision, bool force_list, int thread);

} // namespace rv

#endif
