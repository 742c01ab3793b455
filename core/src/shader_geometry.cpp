// shader_geometry: what shaders may ask about the geometry around a shading point
// (rv_shaderglobals.h).
#include "array.h"
#include "cameras/camera.h"
#include "finite.h"
#include "hit_context.h"
#include "maths.h"
#include "options.h"

#include <algorithm>
#include <math.h>

namespace rv {

static RtVector product(void (*multiply)(RtVector*, const RtMatrix*, const RtVector*),
                        const RtMatrix& matrix, const RtVector& v)
{
    RtVector out;
    multiply(&out, &matrix, &v);
    return out;
}

// The bounds of no object.
static constexpr RtBBox nowhere = { { RV_BIG, RV_BIG, RV_BIG }, { -RV_BIG, -RV_BIG, -RV_BIG } };

// The normal of the triangle of a context's point and two others; the context's own where that is
// degenerate.
static RtVector faceNormal(const RtShaderGlobals& sg, const RtPoint& p1, const RtPoint& p2)
{
    static constexpr float degenerate = 1e-11f;
    const RtVector e1 = p1 - sg.point, e2 = p2 - sg.point;
    const bool is_turned = render_options && render_options->CCW_points;
    const RtVector n = is_turned ? cross(e2, e1) : cross(e1, e2);
    if (!isFinite(n) ||
        (fabsf(n.x) < degenerate && fabsf(n.y) < degenerate && fabsf(n.z) < degenerate))
        return sg.normal;
    return unit(n);
}

// ---- Meshes ----

// The vertices at a motion key, or with -1 at a time. Keys that do not exist read the last one.
static MeshVertices verticesAt(const MeshHit& hit, int key, float time)
{
    if (key < 0)
        return MeshVertices(hit.object, time);
    return MeshVertices(*hit.mesh, uint32_t(std::min<int>(key, hit.mesh->nkeys - 1)));
}

// ---- Edges in pixels ----

static float distanceFromOrigin(const RtPoint& a, const RtVector& edge, float squared_length)
{
    const float along =
        squared_length > 0 ? std::clamp(-dot(a, edge) / squared_length, 0.0f, 1.0f) : 0;
    const RtPoint nearest = a + edge * along;
    return sqrtf(dot(nearest, nearest));
}

// Length over distance.
static float apparentLength(const RtPoint& a, const RtPoint& b)
{
    const RtVector edge = b - a;
    const float squared_length = dot(edge, edge);
    return sqrtf(squared_length) / distanceFromOrigin(a, edge, squared_length);
}

// Pixels of an apparent length of 1; 0 of cameras without perspective.
static float pixelScale(float time)
{
    const RtNode* const camera = render_options ? render_options->camera : nullptr;
    const RtCameraData* const data = cameraData(camera);
    if (!data || data->kind != RV_CAMERA_PERSPECTIVE)
        return 0;
    static constexpr float radians = 0.017453292f;
    const float fov = perspectiveFov(camera, relativeTime(cameraParams(camera).time_samples, time));
    return 1 / (fov * radians * (1 / float(currentImage().image_width)));
}

static float longestEdge(const MeshHit& hit, const HitPolygon& polygon, const RtShaderGlobals& sg)
{
    RtMatrix to_camera;
    RvWorldToCameraMatrix(render_options->camera, sg.time, &to_camera);
    RvM4Mult(&to_camera, &sg.object_to_world, &to_camera);
    const MeshVertices vertices(hit.object, sg.time);
    const auto inCamera = [&](uint32_t corner) {
        return product(RvM4PointByMatrixMult, to_camera, vertices[polygon.vertex(corner)]);
    };
    RtPoint previous = inCamera(polygon.sides - 1);
    float longest = 0;
    for (uint32_t corner = 0; corner < polygon.sides; ++corner) {
        const RtPoint here = inCamera(corner);
        longest = std::max(longest, apparentLength(previous, here));
        previous = here;
    }
    return longest;
}

// ---- Another time ----

static RtMatrix placeAt(const RtGObject* object, float time)
{
    RtMatrix storage;
    const RtMatrix* const matrix = objectToWorldAt(object, time, &storage);
    return matrix ? *matrix : RV_M4_IDENTITY;
}

static RtMatrix inversePlaceAt(const RtGObject* object, float time)
{
    const RtMatrix matrix = placeAt(object, time);
    RtMatrix inverse;
    RvM4Invert(&matrix, &inverse);
    return inverse;
}

static bool isMoving(const RtGObject* object) { return object && object->nkeys > 1; }

// The matrix of the hit at another time. The context knows what surrounds the object and the
// instance it was reached through only as a part of its present matrix; that part counts as still.
static RtMatrix objectToWorld(const RtShaderGlobals& sg, float time)
{
    RtMatrix matrix = sg.object_to_world;
    const auto multiply = [&matrix](const RtMatrix& a, const RtMatrix& b) {
        RvM4Mult(&matrix, &a, &b);
    };
    // The matrix of an instance takes the place of that of the shape itself.
    const bool is_replaced = sg.instance && geometryNode(sg.instance) == sg.object;
    const RtGObject* const object = is_replaced ? nullptr : shapeObject(sg.object);
    if (isMoving(object)) {
        multiply(inversePlaceAt(object, sg.time), matrix);
        multiply(placeAt(object, time), matrix);
    }
    const RtGObject* const instance = shapeObject(sg.instance);
    if (isMoving(instance)) {
        multiply(matrix, inversePlaceAt(instance, sg.time));
        multiply(matrix, placeAt(instance, time));
    }
    return matrix;
}

// A normal by the transpose of the inverse.
static RtVector normalBy(const RtMatrix& to_object, const RtVector& n)
{
    return unit(product(RvM4VectorByMatrixTMult, to_object, n));
}

// The place and the normals of a hit at another time, in object space.
struct TimedHit {
    RtPoint point;
    RtVector normal, geometric_normal;
};

static TimedHit rigidHit(const RtShaderGlobals& sg)
{
    return { sg.object_point,
             product(RvM4VectorByMatrixTMult, sg.object_to_world, sg.smooth_normal),
             product(RvM4VectorByMatrixTMult, sg.object_to_world, sg.geometric_normal) };
}

static TimedHit deformedHit(const RtShaderGlobals& sg, const MeshHit& mesh, float time)
{
    RtPoint p[3];
    MeshVertices(mesh.object, time).ofTriangle(mesh.triangle, p);
    const float u = sg.bary_u, v = sg.bary_v;
    RtHit hit = {};
    hit.object = const_cast<RtGObject*>(mesh.object);
    hit.prim = mesh.triangle;
    hit.u = u;
    hit.v = v;
    RtLocalGeometry local = {};
    const RtPoint point = p[0] * (1 - u - v) + p[1] * u + p[2] * v;
    shapeMethods(mesh.object->node)
        .ShapeLocalGeometry(&sg.ray_dir, time, &sg.world_to_object, &hit, &point, &local);
    const float sign = shapeParams(mesh.object->node).invert_normals ? -1.0f : 1.0f;
    return { point, local.N * sign, local.Ng * sign };
}

} // namespace rv

// ---- Spaces ----

RtPoint RvShaderGlobalsTransformPoint(const RtShaderGlobals* sg, RtPoint p, int space)
{
    if (sg && space == RV_WORLD_TO_OBJECT)
        return rv::product(RvM4PointByMatrixMult, sg->world_to_object, p);
    if (sg && space == RV_OBJECT_TO_WORLD)
        return rv::product(RvM4PointByMatrixMult, sg->object_to_world, p);
    return p;
}

RtVector RvShaderGlobalsTransformVector(const RtShaderGlobals* sg, RtVector v, int space)
{
    if (sg && space == RV_WORLD_TO_OBJECT)
        return rv::product(RvM4VectorByMatrixMult, sg->world_to_object, v);
    if (sg && space == RV_OBJECT_TO_WORLD)
        return rv::product(RvM4VectorByMatrixMult, sg->object_to_world, v);
    return v;
}

RtVector RvShaderGlobalsTransformNormal(const RtShaderGlobals* sg, RtVector n, int space)
{
    if (sg && space == RV_WORLD_TO_OBJECT)
        return rv::product(RvM4VectorByMatrixTMult, sg->object_to_world, n);
    if (sg && space == RV_OBJECT_TO_WORLD)
        return rv::product(RvM4VectorByMatrixTMult, sg->world_to_object, n);
    return n;
}

RtVector RvShaderGlobalsCalculateNormal(const RtShaderGlobals* sg0, const RtShaderGlobals* sg1,
                                        const RtShaderGlobals* sg2)
{
    return sg0 && sg1 && sg2 ? rv::faceNormal(*sg0, sg1->point, sg2->point) : RV_V3_ZERO;
}

// ---- Bounds ----

RtBBox RvShaderGlobalsGetBBoxLocal(const RtShaderGlobals* sg)
{
    const RtGObject* const object = sg ? rv::shapeObject(sg->object) : nullptr;
    return object ? object->local_bbox : rv::nowhere;
}

RtBBox RvShaderGlobalsGetBBoxWorld(const RtShaderGlobals* sg)
{
    const RtGObject* const object = sg ? rv::shapeObject(sg->object) : nullptr;
    return object ? rv::transformedBox(object->local_bbox, &sg->object_to_world) : rv::nowhere;
}

// ---- Meshes ----

int RvShaderGlobalsGetPolygon(const RtShaderGlobals* sg, int key, RtPoint* out)
{
    const rv::MeshHit hit = rv::meshHit(sg);
    if (!hit)
        return 0;
    const rv::HitPolygon polygon(hit);
    if (out) {
        const rv::MeshVertices vertices = rv::verticesAt(hit, key, sg->time);
        for (uint32_t corner = 0; corner < polygon.sides; ++corner)
            out[corner] = vertices[polygon.vertex(corner)];
    }
    return int(polygon.sides);
}

bool RvShaderGlobalsGetTriangle(const RtShaderGlobals* sg, int key, RtPoint out[3])
{
    const rv::MeshHit hit = rv::meshHit(sg);
    if (hit && out)
        rv::verticesAt(hit, key, sg->time).ofTriangle(hit.triangle, out);
    return bool(hit);
}

float RvShaderGlobalsEdgeLength(const RtShaderGlobals* sg)
{
    const rv::MeshHit hit = rv::meshHit(sg);
    if (!hit)
        return 0;
    const rv::HitPolygon polygon(hit);
    const float scale = polygon.sides >= 3 ? rv::pixelScale(sg->time) : 0;
    return scale > 0 ? rv::longestEdge(hit, polygon, *sg) * scale : 0;
}

// ---- Another time ----

RtPoint RvShaderGlobalsGetPositionAtTime(const RtShaderGlobals* sg, float time, RtVector* normal,
                                         RtVector* geometric_normal)
{
    if (!sg)
        return RV_V3_ZERO;
    const rv::MeshHit mesh = rv::meshHit(sg);
    const rv::TimedHit hit =
        mesh && mesh.mesh->nkeys > 1 ? rv::deformedHit(*sg, mesh, time) : rv::rigidHit(*sg);
    const RtMatrix to_world = rv::objectToWorld(*sg, time);
    RtMatrix to_object;
    RvM4Invert(&to_world, &to_object);
    if (normal)
        *normal = rv::normalBy(to_object, hit.normal);
    if (geometric_normal)
        *geometric_normal = rv::normalBy(to_object, hit.geometric_normal);
    return rv::product(RvM4PointByMatrixMult, to_world, hit.point);
}

RtPoint2 RvShaderGlobalsGetPixelMotionVector(const RtShaderGlobals* sg, float time0, float time1)
{
    if (!sg)
        return {};
    return rv::pixelMotion(RvShaderGlobalsGetPositionAtTime(sg, time0, nullptr, nullptr), time0,
                           RvShaderGlobalsGetPositionAtTime(sg, time1, nullptr, nullptr), time1);
}
