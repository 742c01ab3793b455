// hit_context: shading contexts for the hits of a ray.
#include "hit_context.h"

#include "maths.h"
#include "objects/gobject.h"
#include "rays.h"

#include <math.h>

namespace rv {

// Zero stays zero.
static RtVector normalized(const RtVector& v)
{
    const float length = sqrtf(dot(v, v));
    return length > 0 ? v * (1 / length) : v;
}

void fillFromRay(RtShaderGlobals* sg, const RtRay& ray)
{
    sg->pixel_x = ray.x;
    sg->pixel_y = ray.y;
    sg->screen_x = ray.sx;
    sg->screen_y = ray.sy;
    sg->sample_index = ray.sample_index;
    sg->ray_type = ray.type;
    sg->ray_origin = ray.origin;
    sg->ray_dir = ray.dir;
    sg->thread_index = ray.tid;
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

static void fillGeometry(RtShaderGlobals* sg, const RtHit& hit)
{
    RtHit own = hit;
    RtLocalGeometry local = {};
    shapeMethods(hit.object->node)
        .ShapeLocalGeometry(&sg->ray_dir, sg->time, &sg->world_to_object, &own, &sg->object_point,
                            &local);
    const RtNode* const flags_of = hit.instance ? hit.instance : hit.object->node;
    const float sign = shapeParams(flags_of).invert_normals ? -1.0f : 1.0f;
    sg->geometric_normal = normalToWorld(*sg, local.Ng) * sign;
    sg->normal = sg->smooth_normal = normalToWorld(*sg, local.N) * sign;
    sg->facing_normal = facing(sg->normal, sg->ray_dir);
    sg->facing_geometric_normal = facing(sg->geometric_normal, sg->ray_dir);
    RvM4VectorByMatrixMult(&sg->dPdu, &sg->object_to_world, &local.dPdu);
    RvM4VectorByMatrixMult(&sg->dPdv, &sg->object_to_world, &local.dPdv);
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

static void fillState(RtShaderGlobals* sg, const RtRay& ray, const RtHit& hit)
{
    if (!sg->state)
        return;
    *sg->state = {};
    if (const RtShadingState* const parent = ray.sg ? ray.sg->state : nullptr) {
        sg->state->sample = parent->sample;
        sg->state->pass = parent->pass;
    }
    sg->state->user_data = static_cast<RtUserDataHit*>(
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
    fillGeometry(sg, hit);
    shapeMethods(hit.object->node)
        .ShapeTextureCoordinates(hit.object, hit.prim, hit.u, hit.v, &sg->u, &sg->v);
    fillDifferentials(sg, ray);
    fillState(sg, ray, hit);
}

} // namespace rv
