// From a hit to a shading context.
#ifndef RV_HIT_CONTEXT_H
#define RV_HIT_CONTEXT_H

#include "objects/polymesh.h"
#include "rv_rays.h"
#include "shading_state.h"

namespace rv {

// Where contexts seem to be reached from that no ray leads to: points of clouds, colours of lights.
// A shader that waits for them, whose context may have no parent either, is thus not taken for the
// same evaluation.
extern const RtShaderGlobals nowhere_context;

// Everything that a context takes over from the ray that reached it, and a fresh private state if
// there is a place for one.
void fillFromRay(RtShaderGlobals* sg, const RtRay& ray);

// Whether a shape got its shaders explicitly.
bool setsShaders(const RtNode* shape);

// The mesh that a context lies on and the triangle that was hit, or null.
struct MeshHit {
    const RtGObject* object;
    const RtPolyMesh* mesh;
    uint32_t triangle;

    explicit operator bool() const { return mesh; }
};

inline MeshHit meshHit(const RtShaderGlobals* sg)
{
    const RtGObject* const object = sg ? shapeObject(sg->object) : nullptr;
    if (!object || object->kind != RV_KIND_POLYMESH || !object->data)
        return {};
    const RtPolyMesh* const mesh = meshOf(object);
    return sg->prim_index < mesh->ntriangles ? MeshHit{ object, mesh, sg->prim_index } : MeshHit{};
}

// The polygon that the triangle is a part of.
class HitPolygon {
public:
    explicit HitPolygon(const MeshHit& hit)
        : sides(polygonSides(*hit.mesh, trianglePolygon(*hit.mesh, hit.triangle))), mesh(*hit.mesh),
          base(triangleBase(*hit.mesh, hit.triangle))
    {
    }
    // The vertex at a corner, of which there are as many as sides.
    uint32_t vertex(uint32_t corner) const { return mesh.vidxs[base + corner]; }

    const uint32_t sides;

private:
    const RtPolyMesh& mesh;
    const uint32_t base;
};

// Vertices of a mesh at a shutter time, in object space.
class MeshVertices {
public:
    MeshVertices(const RtGObject* object, float time);
    // At one of its keys.
    MeshVertices(const RtPolyMesh& mesh, uint32_t key);
    RtPoint operator[](uint32_t vertex) const;
    void ofTriangle(uint32_t triangle, RtPoint out[3]) const;

private:
    const RtPolyMesh& mesh;
    KeyPair keys;
};

// The lights that may reach the point: the light group of the object, or of the instance it was
// reached through, or else all lights of the scene.
void assignLights(RtShaderGlobals* sg);

// The combination of two vectors of a surface that comes nearest to a step along it; zero when they
// span nothing.
void decompose(const RtVector& a, const RtVector& b, const RtVector& step, float* da, float* db);

// Moves the context of a mesh hit to a point of the same triangle, in object space, that bary_u and
// bary_v were set to: normals, texture coordinates and user data follow.
void moveHit(RtShaderGlobals* sg, RtGObject* mesh, const RtPoint& object_point);

// A context for a hit of the ray, after transparency_index transparent ones. What shaders of the
// point may read of the shape's user data lives in the pool of the thread.
void fillHitContext(RtShaderGlobals* sg, const RtRay& ray, const RtHit& hit,
                    uint32_t transparency_index);

} // namespace rv

#endif
