// hit_context: shading contexts for the hits of a ray.
#include "hit_context.h"

#include "maths.h"
#include "objects/polymesh.h"
#include "options.h"
#include "rays.h"

#include <math.h>

namespace rv {

// Zero stays zero. Double precision, because the squares of the smallest triangles' normals have no
// place in a float.
static RtVector normalized(const RtVector& v)
{
    const double x = v.x, y = v.y, z = v.z;
    const double length = sqrt(x * x + y * y + z * z);
    return length > 0 ? RtVector{ float(x / length), float(y / length), float(z / length) } : v;
}

void fillFromRay(RtShaderGlobals* sg, const RtRay& ray)
{
    if (sg->state)
        resetState(sg->state, ray.sg);
    sg->pixel_x = ray.x;
    sg->pixel_y = ray.y;
    sg->screen_x = ray.sx;
    sg->screen_y = ray.sy;
    sg->sample_index = ray.sample_index;
    sg->ray_type = ray.type;
    sg->ray_origin = ray.origin;
    sg->ray_dir = ray.dir;
    sg->thread_index = uint8_t(threadOf(ray));
    sg->ray_depth = ray.level;
    sg->reflection_depth = ray.reflection_depth;
    sg->refraction_depth = ray.refraction_depth;
    sg->diffuse_depth = ray.diffuse_depth;
    sg->glossy_depth = ray.glossy_depth;
    sg->time = ray.time;
    sg->parent = ray.sg;
    sg->sample_output = ray.aov_sink;
    sg->traceset = ray.traceset;
    sg->traceset_inclusive = ray.inclusive_traceset;
    sg->dDdx = ray.dDdx;
    sg->dDdy = ray.dDdy;
}

// ---- Geometry ----

static void fillTransform(RtShaderGlobals* sg, const RtHit& hit)
{
    if (!hit.matrix)
        return;
    sg->object_to_world = *hit.matrix;
    // Of an object that is reached directly and does not move, the inverse stands beside it.
    if (hit.object->nkeys == 1 && hit.matrix == hit.object->matrices)
        sg->world_to_object = hit.object->matrices[1];
    else
        RvM4Invert(hit.matrix, &sg->world_to_object);
}

// Normals go by the transpose of the inverse.
static RtVector normalToWorld(const RtShaderGlobals& sg, const RtVector& n)
{
    RtVector out;
    RvM4VectorByMatrixTMult(&out, &sg.world_to_object, &n);
    return normalized(out);
}

static RtVector facing(const RtVector& normal, const RtVector& ray_dir)
{
    return dot(normal, ray_dir) > 0 ? normal * -1.0f : normal;
}

static RtLocalGeometry localGeometry(const RtShaderGlobals& sg, const RtHit& hit)
{
    RtHit own = hit;
    RtLocalGeometry local = {};
    shapeMethods(hit.object->node)
        .ShapeLocalGeometry(&sg.ray_dir, sg.time, &sg.world_to_object, &own, &sg.object_point,
                            &local);
    return local;
}

static void fillGeometry(RtShaderGlobals* sg, const RtHit& hit, const RtLocalGeometry& local)
{
    // An instance has no say in this.
    const float sign = shapeParams(hit.object->node).invert_normals ? -1.0f : 1.0f;
    sg->geometric_normal = normalToWorld(*sg, local.Ng) * sign;
    sg->normal = sg->smooth_normal = normalToWorld(*sg, local.N) * sign;
    sg->facing_normal = facing(sg->normal, sg->ray_dir);
    sg->facing_geometric_normal = facing(sg->geometric_normal, sg->ray_dir);
    RvM4VectorByMatrixMult(&sg->dPdu, &sg->object_to_world, &local.dPdu);
    RvM4VectorByMatrixMult(&sg->dPdv, &sg->object_to_world, &local.dPdv);
}

// ---- Refinement ----

// First vertex of the triangle at the time of the context, in object space.
static RtPoint firstVertex(const RtShaderGlobals& sg, const RtHit& hit)
{
    const RtPolyMesh& mesh = *meshOf(hit.object);
    uint32_t vertices[3];
    triangleVertices(mesh, hit.prim, vertices);
    const RtPoint* const keys = mesh.vertices + vertices[0];
    if (mesh.nkeys < 2)
        return *keys;
    const RtArray* const samples = shapeParams(hit.object->node).deform_time_samples;
    const KeyPair pair = keyPair(mesh.nkeys, relativeTime(samples, sg.time));
    const RtPoint &a = keys[size_t(pair.key) * mesh.nvertices],
                  &b = keys[size_t(pair.key + 1) * mesh.nvertices];
    return a * (1 - pair.weight) + b * pair.weight;
}

// Moves the point of a mesh hit along the ray into the plane of its triangle, which it missed by
// the rounding of its distance.
static void refine(RtShaderGlobals* sg, const RtHit& hit, const RtLocalGeometry& local)
{
    RtVector dir;
    RvM4VectorByMatrixMult(&dir, &sg->world_to_object, &sg->ray_dir);
    const float slope = dot(dir, local.Ng);
    if (!(fabsf(slope) > 0))
        return;
    const float step = -dot(sg->object_point - firstVertex(*sg, hit), local.Ng) / slope;
    sg->point = sg->point + sg->ray_dir * step;
    sg->object_point = sg->object_point + dir * step;
    sg->ray_length += double(step);
}

static bool isRefined(const RtHit& hit)
{
    return render_options->enable_hit_refinement && hit.object->kind == RV_KIND_POLYMESH;
}

// ---- Differentials (Igehy, "Tracing Ray Differentials", 1999) ----

static RtVector transferred(const RtVector& dO, const RtVector& dD, const RtShaderGlobals& sg)
{
    const RtVector moved = dO + dD * float(sg.ray_length);
    const float slope = dot(sg.ray_dir, sg.geometric_normal);
    if (slope == 0)
        return moved;
    return moved - sg.ray_dir * (dot(moved, sg.geometric_normal) / slope);
}

// The combination of dPdu and dPdv nearest to a step along the surface.
static void surfaceStep(const RtShaderGlobals& sg, const RtVector& step, float* du, float* dv)
{
    const float uu = dot(sg.dPdu, sg.dPdu), uv = dot(sg.dPdu, sg.dPdv), vv = dot(sg.dPdv, sg.dPdv);
    const float su = dot(sg.dPdu, step), sv = dot(sg.dPdv, step);
    const float determinant = uu * vv - uv * uv;
    if (!(fabsf(determinant) > 0)) {
        *du = *dv = 0;
        return;
    }
    *du = (su * vv - sv * uv) / determinant;
    *dv = (sv * uu - su * uv) / determinant;
}

static void fillDifferentials(RtShaderGlobals* sg, const RtRay& ray)
{
    sg->dPdx = transferred(ray.dOdx, ray.dDdx, *sg);
    sg->dPdy = transferred(ray.dOdy, ray.dDdy, *sg);
    surfaceStep(*sg, sg->dPdx, &sg->dudx, &sg->dvdx);
    surfaceStep(*sg, sg->dPdy, &sg->dudy, &sg->dvdy);
}

// ---- The whole ----

static RtPoint hitPoint(const RtRay& ray, float t) { return ray.origin + ray.dir * t; }

// What shaders may read of the shape's user data.
static RtUserDataHit* userData(const RtRay& ray, const RtHit& hit)
{
    return static_cast<RtUserDataHit*>(
        shapeMethods(hit.object->node)
            .ShapePrepareUserData(hit.object, hit.prim, hit.u, hit.v, threadOf(ray)));
}

void fillHitContext(RtShaderGlobals* sg, const RtRay& ray, const RtHit& hit,
                    uint32_t transparency_index)
{
    resetContext(sg);
    fillFromRay(sg, ray);
    sg->transparency_index = transparency_index;
    sg->ray_length = double(hit.t);
    sg->prim_index = hit.prim;
    sg->object = hit.object->node;
    sg->instance = hit.instance;
    fillTransform(sg, hit);
    sg->point = hitPoint(ray, hit.t);
    RvM4PointByMatrixMult(&sg->object_point, &sg->world_to_object, &sg->point);
    sg->bary_u = hit.u;
    sg->bary_v = hit.v;
    const RtLocalGeometry local = localGeometry(*sg, hit);
    if (isRefined(hit))
        refine(sg, hit, local);
    fillGeometry(sg, hit, local);
    shapeMethods(hit.object->node)
        .ShapeTextureCoordinates(hit.object, hit.prim, hit.u, hit.v, &sg->u, &sg->v);
    fillDifferentials(sg, ray);
    if (sg->state)
        sg->state->user_data = userData(ray, hit);
}

} // namespace rv
