// wireframe: whether a shading point lies on an edge of its triangle or polygon
// (rv_shaderglobals.h). In double precision: lines are thin beside the world.
#include "hit_context.h"
#include "vec3d.h"

namespace rv {

static double squared(const Vec3d& v) { return dot(v, v); }

// Width of a pixel at the point, in world units; 0 for rays that do not know their neighbours.
static double pixelWidth(const RtShaderGlobals& sg)
{
    return 0.5 * (length(vec3d(sg.dDdx)) + length(vec3d(sg.dDdy))) * sg.ray_length;
}

// vertex(i) gives the corners of the outline in object space.
template <class Vertex>
static bool isOnOutline(const RtShaderGlobals& sg, uint32_t corner_count, double half_width,
                        const Vertex& vertex)
{
    const auto inWorld = [&](uint32_t i) {
        const RtPoint local = vertex(i);
        RtPoint p;
        RvM4PointByMatrixMult(&p, &sg.object_to_world, &local);
        return p;
    };
    RtPoint previous = inWorld(corner_count - 1);
    for (uint32_t i = 0; i < corner_count; ++i) {
        const RtPoint corner = inWorld(i);
        const Vec3d edge = vec3d(corner - previous);
        // Required: the distance from the whole line, not from the edge alone.
        if (squared(cross(vec3d(sg.point - corner), edge)) <
            squared(edge) * half_width * half_width)
            return true;
        previous = corner;
    }
    return false;
}

static bool isOnTriangle(const RtShaderGlobals& sg, const MeshHit& hit, double half_width)
{
    RtPoint p[3];
    MeshVertices(hit.object, sg.time).ofTriangle(hit.triangle, p);
    return isOnOutline(sg, 3, half_width, [&p](uint32_t i) { return p[i]; });
}

static bool isOnPolygon(const RtShaderGlobals& sg, const MeshHit& hit, double half_width)
{
    const MeshVertices vertices(hit.object, sg.time);
    const HitPolygon polygon(hit);
    return polygon.sides >= 3 && isOnOutline(sg, polygon.sides, half_width, [&](uint32_t corner) {
               return vertices[polygon.vertex(corner)];
           });
}

} // namespace rv

float RvWireframe(const RtShaderGlobals* sg, float line_width, bool raster_space, int edge_type)
{
    enum { triangles, polygons, patches };
    const rv::MeshHit hit = rv::meshHit(sg);
    if (!hit)
        return 1;
    const double half_width = double(line_width) * 0.5 * (raster_space ? rv::pixelWidth(*sg) : 1);
    switch (edge_type) {
    case triangles: return rv::isOnTriangle(*sg, hit, half_width) ? 0 : 1;
    case polygons:
    case patches: return rv::isOnPolygon(*sg, hit, half_width) ? 0 : 1;
    default: return 1;
    }
}
