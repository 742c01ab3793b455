// The triangles of polygon meshes as primitives of a hierarchy.
#ifndef RV_TRIANGLES_H
#define RV_TRIANGLES_H

#include "accels/bvh4.h"
#include "objects/polymesh.h"

namespace rv {

// Where a line meets the plane of a triangle, and the weights of its second and third vertex there.
template <class Real> struct TriangleHit {
    Real t, u, v;
    bool inside;
};

template <class Real> struct Vec3 {
    Real x, y, z;
};

// Moeller and Trumbore's test, arranged around the vector from the origin to the first vertex. A
// determinant of zero makes the comparisons fail.
template <class Real>
TriangleHit<Real> intersectTriangle(const Vec3<Real>& p0, const Vec3<Real>& p1,
                                    const Vec3<Real>& p2, const Vec3<Real>& origin,
                                    const Vec3<Real>& dir)
{
    const auto minus = [](const Vec3<Real>& a, const Vec3<Real>& b) {
        return Vec3<Real>{ a.x - b.x, a.y - b.y, a.z - b.z };
    };
    const auto cross = [](const Vec3<Real>& a, const Vec3<Real>& b) {
        return Vec3<Real>{ a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
    };
    const auto dot3 = [](const Vec3<Real>& a, const Vec3<Real>& b) {
        return a.x * b.x + a.y * b.y + a.z * b.z;
    };
    const Vec3<Real> e1 = minus(p0, p2), e2 = minus(p1, p0), w = minus(p0, origin);
    const Vec3<Real> n = cross(e2, e1), p = cross(w, dir);
    const Real inverse = 1 / dot3(dir, n);
    const Real u = dot3(e1, p) * inverse, v = dot3(e2, p) * inverse;
    return { dot3(n, w) * inverse, u, v, u >= 0 && v >= 0 && u + v <= 1 };
}

// Four triangles, one a lane.
struct alignas(16) TriangleBlock {
    float p0[3][4];
    float e1[3][4]; // p0 - p2
    float e2[3][4]; // p1 - p0
};

template <class Real> struct TriangleFamily;

// Triangles gathered from the mesh, four to a block. Empty places hold points, which no ray meets.
class TriangleLeaves {
public:
    static constexpr uint32_t alignment = 4;

    void build(const TriangleFamily<float>& family, BuildVector<uint32_t>&& primitives,
               int threads);
    size_t bytes() const { return blocks.bytes() + order.size() * sizeof(uint32_t); }
    template <bool Moving>
    void intersect(const TriangleFamily<float>&, uint32_t first, uint32_t count, const KeyPair&,
                   const Query& query) const;

private:
    void intersectBlock(uint32_t block, unsigned lanes, const Query& query) const;

    LineArray<TriangleBlock> blocks;
    BuildVector<uint32_t> order;
};

template <class Real> struct TriangleFamily {
    const RtPolyMesh* mesh;

    using Leaves = std::conditional_t<std::is_same_v<Real, float>, TriangleLeaves,
                                      IndexLeaves<TriangleFamily>>;

    uint32_t count() const { return mesh->ntriangles; }
    uint32_t keys() const { return mesh->nkeys; }
    RtBBox box(uint32_t prim, uint32_t key) const;
    template <bool Moving>
    void intersect(uint32_t prim, const KeyPair& keys, RtGObject* object,
                   const RtTraversal& traversal, const RtObjectRay& ray, RtHitList& hits) const;

private:
    Vec3<Real> vertex(uint32_t index, uint32_t key) const;
    template <bool Moving> Vec3<Real> vertexAt(uint32_t index, const KeyPair& keys) const;
};

} // namespace rv

#endif
