// triangles: intersecting rays with the triangles of polygon meshes.
#include "accels/triangles.h"

namespace rv {

static constexpr float mesh_traversal_cost = 1.5f;

// ---- One triangle ----

template <class Real> Vec3<Real> TriangleFamily<Real>::vertex(uint32_t index, uint32_t key) const
{
    const size_t i = size_t(mesh->nvertices) * key + index;
    if constexpr (std::is_same_v<Real, double>)
        return { mesh->double_vertices[3 * i], mesh->double_vertices[3 * i + 1],
                 mesh->double_vertices[3 * i + 2] };
    else
        return { mesh->vertices[i].x, mesh->vertices[i].y, mesh->vertices[i].z };
}

template <class Real>
template <bool Moving>
Vec3<Real> TriangleFamily<Real>::vertexAt(uint32_t index, const KeyPair& keys) const
{
    const Vec3<Real> a = vertex(index, keys.key);
    if constexpr (!Moving)
        return a;
    const Vec3<Real> b = vertex(index, keys.key + 1);
    const Real w1 = keys.weight, w0 = 1 - w1;
    return { w0 * a.x + w1 * b.x, w0 * a.y + w1 * b.y, w0 * a.z + w1 * b.z };
}

template <class Real> RtBBox TriangleFamily<Real>::box(uint32_t prim, uint32_t key) const
{
    uint32_t corners[3];
    triangleVertices(*mesh, prim, corners);
    const RtPoint* const points = mesh->vertices + size_t(mesh->nvertices) * key;
    const RtPoint &a = points[corners[0]], &b = points[corners[1]], &c = points[corners[2]];
    return {
        { std::min({ a.x, b.x, c.x }), std::min({ a.y, b.y, c.y }), std::min({ a.z, b.z, c.z }) },
        { std::max({ a.x, b.x, c.x }), std::max({ a.y, b.y, c.y }), std::max({ a.z, b.z, c.z }) }
    };
}

template <class Real>
template <bool Moving>
void TriangleFamily<Real>::intersect(uint32_t prim, const KeyPair& keys, RtGObject* object,
                                     const RtTraversal& traversal, const RtObjectRay& ray,
                                     RtHitList& hits) const
{
    if (prim == ray.ignore_prim)
        return;
    uint32_t corners[3];
    triangleVertices(*mesh, prim, corners);
    const TriangleHit<Real> hit = intersectTriangle<Real>(
        vertexAt<Moving>(corners[0], keys), vertexAt<Moving>(corners[1], keys),
        vertexAt<Moving>(corners[2], keys), { ray.origin.x, ray.origin.y, ray.origin.z },
        { ray.dir.x, ray.dir.y, ray.dir.z });
    if (hit.inside)
        RvAccelInsertHit(hits, float(hit.t), float(hit.u), float(hit.v), traversal, ray, object,
                         prim);
}

// ---- Four triangles ----

// Puts a triangle into a lane of its block.
static void gather(const RtPolyMesh& mesh, uint32_t triangle, TriangleBlock& block, size_t lane)
{
    uint32_t corners[3];
    triangleVertices(mesh, triangle, corners);
    const RtPoint &a = mesh.vertices[corners[0]], &b = mesh.vertices[corners[1]],
                  &c = mesh.vertices[corners[2]];
    const auto set = [lane](float row[3][4], const RtVector& v) {
        row[0][lane] = v.x;
        row[1][lane] = v.y;
        row[2][lane] = v.z;
    };
    set(block.p0, a);
    set(block.e1, a - c);
    set(block.e2, b - a);
}

void TriangleLeaves::build(const TriangleFamily<float>& family, BuildVector<uint32_t>&& primitives,
                           int threads)
{
    order = std::move(primitives);
    blocks.allocate(order.size() / 4);
    inParts(threads, blocks.size(), [&](size_t begin, size_t end) {
        for (size_t i = 4 * begin; i < 4 * end; ++i)
            if (order[i] != no_child)
                gather(*family.mesh, order[i], blocks[i / 4], i % 4);
    });
}

struct Vec3x4 {
    Float4 x, y, z;
    static Vec3x4 load(const float rows[3][4])
    {
        return { Float4::load(rows[0]), Float4::load(rows[1]), Float4::load(rows[2]) };
    }
};

static Vec3x4 cross(const Vec3x4& a, const Vec3x4& b)
{
    return { a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x };
}

static Float4 dot(const Vec3x4& a, const Vec3x4& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The same operations as intersectTriangle(), so the same numbers. Kept out of the traversal, whose
// loop over nodes needs the registers.
[[gnu::noinline]] void TriangleLeaves::intersectBlock(uint32_t index, unsigned lanes,
                                                      const Query& query) const
{
    const RtObjectRay& ray = query.ray;
    const TriangleBlock& block = blocks[index];
    const Vec3x4 origin = { Float4(ray.origin.x), Float4(ray.origin.y), Float4(ray.origin.z) };
    const Vec3x4 dir = { Float4(ray.dir.x), Float4(ray.dir.y), Float4(ray.dir.z) };
    const Vec3x4 p0 = Vec3x4::load(block.p0), e1 = Vec3x4::load(block.e1),
                 e2 = Vec3x4::load(block.e2);
    const Vec3x4 w = { p0.x - origin.x, p0.y - origin.y, p0.z - origin.z };
    const Vec3x4 n = cross(e2, e1), p = cross(w, dir);
    const Float4 inverse = Float4(1.0f) / dot(dir, n);
    const Float4 u = dot(e1, p) * inverse, v = dot(e2, p) * inverse, t = dot(n, w) * inverse;
    const Float4 zero(0.0f);
    const Mask4 inside = (u >= zero) & (v >= zero) & (u + v <= Float4(1.0f)) &
                         (t > Float4(ray.mindist)) & (t < Float4(query.hits.maxdist));
    unsigned mask = inside.bits() & lanes;
    if (!mask)
        return;
    alignas(16) float ts[4], us[4], vs[4];
    t.store(ts);
    u.store(us);
    v.store(vs);
    for (; mask && !query.hits.found; mask &= mask - 1) {
        const unsigned lane = unsigned(std::countr_zero(mask));
        const uint32_t prim = order[4 * size_t(index) + lane];
        if (prim != ray.ignore_prim)
            RvAccelInsertHit(query.hits, ts[lane], us[lane], vs[lane], query.traversal, ray,
                             query.object, prim);
    }
}

template <bool Moving>
inline void TriangleLeaves::intersect(const TriangleFamily<float>&, uint32_t first, uint32_t count,
                                      const KeyPair&, const Query& query) const
{
    for (uint32_t begin = first; begin < first + count && !query.hits.found;) {
        const uint32_t lane = begin % 4;
        const uint32_t here = std::min(4 - lane, first + count - begin);
        intersectBlock(begin / 4, ((1u << here) - 1) << lane, query);
        begin += here;
    }
}

RtAccel* createMeshAccel(RtPolyMesh* mesh, bool double_precision, bool force_list, int thread)
{
    if (double_precision)
        return RvAccelCreate(TriangleFamily<double>{ mesh }, mesh_traversal_cost, force_list,
                             thread);
    return RvAccelCreate(TriangleFamily<float>{ mesh }, mesh_traversal_cost, force_list, thread);
}

} // namespace rv
