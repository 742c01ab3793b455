// hit_context: shading contexts for the hits of a ray.
#include "hit_context.h"

#include "array.h"
#include "maths.h"
#include "options.h"
#include "rays.h"
#include "scene.h"

#include <algorithm>
#include <math.h>

namespace rv {

static RtShaderGlobals makeNowhere()
{
    RtShaderGlobals sg;
    sg.state = nullptr;
    resetContext(&sg);
    return sg;
}
const RtShaderGlobals nowhere_context = makeNowhere();

void fillFromRay(RtShaderGlobals* sg, const RtRay& ray)
{
    if (sg->state) {
        resetState(sg->state, ray.sg);
        randomNumbers(ray, sg->state->random);
    }
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
    sg->sample_output = writesOutputs(ray) ? ray.aov_sink : nullptr;
    sg->traceset = ray.traceset;
    sg->traceset_inclusive = ray.inclusive_traceset;
    sg->dDdx = ray.dDdx;
    sg->dDdy = ray.dDdy;
}

// ---- Shaders ----

bool setsShaders(const RtNode* shape)
{
    static constexpr unsigned place = 7; // of "shader" among the common parameters of shapes
    return shape->set_flags[shape->entry->own_param_count + place];
}

// Of an instance of an instance the first that got shaders; without one they are the shape's own.
static RtNode* shaderSource(const RtNode* instance)
{
    for (RtNode* node = instance->source; node && node->source; node = node->source)
        if (setsShaders(node))
            return node;
    return nullptr;
}

// ---- Lights ----

static bool isLight(const RtNode* node) { return node && node->entry->type == RV_NODE_LIGHT; }

// A group is made of lights when its object is prepared, but a host may put anything into it later.
static void assignGroup(RtShaderGlobals* sg, const RtArray* group)
{
    const bool holds_nodes = group && typeAccepts(group->type, RV_TYPE_POINTER);
    const unsigned count = holds_nodes ? totalElements(group) : 0;
    if (!count)
        return;
    RtNode* const* const nodes = elementsOf<RtNode*>(group);
    sg->lights = nodes;
    sg->light_count = int(count);
    if (std::all_of(nodes, nodes + count, isLight))
        return;
    auto* const lights =
        static_cast<RtNode**>(RvShaderGlobalsQuickAlloc(sg, count * unsigned(sizeof(RtNode*))));
    sg->lights = lights;
    sg->light_count =
        lights ? int(std::copy_if(nodes, nodes + count, lights, isLight) - lights) : 0;
}

void assignLights(RtShaderGlobals* sg)
{
    sg->lights = nullptr;
    sg->light_count = 0;
    if (render_options->ignore_lights)
        return;
    // Hosts and shaders may name any node as the object of a context of their own.
    const RtNode* const shape = sg->instance ? sg->instance : sg->object;
    if (shapeObject(shape) && shapeParams(shape).use_light_group) {
        assignGroup(sg, shapeParams(shape).light_group);
        return;
    }
    const RtScene::NodeVector& lights = *the_frame->scene->shading_lights;
    sg->lights = lights.empty() ? nullptr : lights.data();
    sg->light_count = int(lights.size());
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
    return unitPrecise(out);
}

static RtVector facing(const RtVector& normal, const RtVector& ray_dir)
{
    return dot(normal, ray_dir) > 0 ? normal * -1.0f : normal;
}

static RtLocalGeometry localGeometry(const RtShaderGlobals& sg, const RtHit& hit,
                                     const RtPoint& point)
{
    RtHit own = hit;
    RtLocalGeometry local = {};
    shapeMethods(hit.object->node)
        .ShapeLocalGeometry(&sg.ray_dir, sg.time, &sg.world_to_object, &own, &point, &local);
    return local;
}

// A normal of the shape in the world, turned around if the shape asks for it. An instance has no
// say in this.
static RtVector worldNormal(const RtShaderGlobals& sg, const RtHit& hit, const RtVector& n)
{
    return normalToWorld(sg, n) * (shapeParams(hit.object->node).invert_normals ? -1.0f : 1.0f);
}

static void fillGeometry(RtShaderGlobals* sg, const RtHit& hit, const RtLocalGeometry& local)
{
    sg->geometric_normal = worldNormal(*sg, hit, local.Ng);
    sg->normal = sg->smooth_normal = worldNormal(*sg, hit, local.N);
    sg->facing_normal = facing(sg->normal, sg->ray_dir);
    sg->facing_geometric_normal = facing(sg->geometric_normal, sg->ray_dir);
    RvM4VectorByMatrixMult(&sg->dPdu, &sg->object_to_world, &local.dPdu);
    RvM4VectorByMatrixMult(&sg->dPdv, &sg->object_to_world, &local.dPdv);
}

// ---- Refinement ----

MeshVertices::MeshVertices(const RtGObject* object, float time) : mesh(*meshOf(object)), keys()
{
    if (mesh.nkeys > 1)
        keys =
            keyPair(mesh.nkeys, relativeTime(shapeParams(object->node).deform_time_samples, time));
}

MeshVertices::MeshVertices(const RtPolyMesh& of, uint32_t key) : mesh(of), keys{ key, 0 } {}

RtPoint MeshVertices::operator[](uint32_t vertex) const
{
    const RtPoint* const at = mesh.vertices + size_t(keys.key) * mesh.nvertices + vertex;
    return keys.weight == 0 ? *at : *at * (1 - keys.weight) + at[mesh.nvertices] * keys.weight;
}

void MeshVertices::ofTriangle(uint32_t triangle, RtPoint out[3]) const
{
    uint32_t vertices[3];
    triangleVertices(mesh, triangle, vertices);
    for (int i = 0; i < 3; ++i)
        out[i] = (*this)[vertices[i]];
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
    RtPoint vertices[3];
    MeshVertices(hit.object, sg->time).ofTriangle(hit.prim, vertices);
    const float step = -dot(sg->object_point - vertices[0], local.Ng) / slope;
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

void decompose(const RtVector& a, const RtVector& b, const RtVector& step, float* da, float* db)
{
    const float aa = dot(a, a), ab = dot(a, b), bb = dot(b, b);
    const float sa = dot(a, step), sb = dot(b, step);
    const float determinant = aa * bb - ab * ab;
    if (!(fabsf(determinant) > 0)) {
        *da = *db = 0;
        return;
    }
    *da = (sa * bb - sb * ab) / determinant;
    *db = (sb * aa - sa * ab) / determinant;
}

static void fillDifferentials(RtShaderGlobals* sg, const RtRay& ray)
{
    sg->dPdx = transferred(ray.dOdx, ray.dDdx, *sg);
    sg->dPdy = transferred(ray.dOdy, ray.dDdy, *sg);
    decompose(sg->dPdu, sg->dPdv, sg->dPdx, &sg->dudx, &sg->dvdx);
    decompose(sg->dPdu, sg->dPdv, sg->dPdy, &sg->dudy, &sg->dvdy);
}

// ---- Differentials of the normal ----

// A step away from a hit, on the same smooth surface; the other steps are proportional to it.
struct SurfaceStep {
    RtPoint point;  // object space
    float u, v;     // on the primitive
    float fraction; // of the derivative that was asked for
};

// A fraction of a derivative that stays so near that the normal changes linearly.
static float smallFraction(float size, float reach) { return size > reach ? reach / size : 1; }

// On a triangle the normal is a function of u and v.
static SurfaceStep stepOnTriangle(const RtShaderGlobals& sg, const RtHit& hit, const RtVector& step)
{
    static constexpr float reach = 1e-2f; // of u and v
    RtPoint p[3];
    MeshVertices(hit.object, sg.time).ofTriangle(hit.prim, p);
    float du, dv;
    decompose(p[1] - p[0], p[2] - p[0], step, &du, &dv);
    const float fraction = smallFraction(std::max(fabsf(du), fabsf(dv)), reach);
    return { sg.object_point, hit.u + du * fraction, hit.v + dv * fraction, fraction };
}

// On an analytic shape it is a function of the point.
static SurfaceStep stepOnShape(const RtShaderGlobals& sg, const RtHit& hit, const RtVector& step)
{
    const RtBBox& box = hit.object->local_bbox;
    const RtVector extent = box.max - box.min;
    const float reach = 1e-3f * sqrtf(dot(extent, extent));
    const float fraction = smallFraction(sqrtf(dot(step, step)), reach);
    return { sg.object_point + step * fraction, hit.u, hit.v, fraction };
}

static bool hasSmoothNormals(const RtHit& hit)
{
    switch (hit.object->kind) {
    case RV_KIND_SPHERE:
    case RV_KIND_CYLINDER:
    case RV_KIND_CONE: return true;
    case RV_KIND_POLYMESH:
        return meshOf(hit.object)->nnormals > 0 && !render_options->ignore_smoothing;
    default: return false; // flat, or without a smooth normal at other points
    }
}

static RtVector normalDerivative(const RtShaderGlobals& sg, const RtHit& hit,
                                 const RtVector& derivative)
{
    RtVector step;
    RvM4VectorByMatrixMult(&step, &sg.world_to_object, &derivative);
    const SurfaceStep there = hit.object->kind == RV_KIND_POLYMESH ? stepOnTriangle(sg, hit, step)
                                                                   : stepOnShape(sg, hit, step);
    if (!(there.fraction > 0))
        return {};
    RtHit moved = hit;
    moved.u = there.u;
    moved.v = there.v;
    const RtLocalGeometry local = localGeometry(sg, moved, there.point);
    return (worldNormal(sg, hit, local.N) - sg.smooth_normal) * (1 / there.fraction);
}

static void fillNormalDifferentials(RtShaderGlobals* sg, const RtHit& hit)
{
    if (!hasSmoothNormals(hit))
        return;
    sg->dNdx = normalDerivative(*sg, hit, sg->dPdx);
    sg->dNdy = normalDerivative(*sg, hit, sg->dPdy);
}

// ---- The whole ----

static RtPoint hitPoint(const RtRay& ray, float t) { return ray.origin + ray.dir * t; }

// What shaders may read of the shape's user data.
static RtUserDataHit* userData(int thread, const RtHit& hit)
{
    return static_cast<RtUserDataHit*>(
        shapeMethods(hit.object->node)
            .ShapePrepareUserData(hit.object, hit.prim, hit.u, hit.v, thread));
}

void moveHit(RtShaderGlobals* sg, RtGObject* mesh, const RtPoint& object_point)
{
    RtHit hit = {};
    hit.object = mesh;
    hit.prim = sg->prim_index;
    hit.u = sg->bary_u;
    hit.v = sg->bary_v;
    sg->object_point = object_point;
    RvM4PointByMatrixMult(&sg->point, &sg->object_to_world, &object_point);
    fillGeometry(sg, hit, localGeometry(*sg, hit, object_point));
    shapeMethods(mesh->node).ShapeTextureCoordinates(mesh, hit.prim, hit.u, hit.v, &sg->u, &sg->v);
    if (sg->state && sg->state->user_data)
        sg->state->user_data = userData(sg->thread_index, hit);
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
    sg->shader_source = hit.instance ? shaderSource(hit.instance) : nullptr;
    fillTransform(sg, hit);
    sg->point = hitPoint(ray, hit.t);
    RvM4PointByMatrixMult(&sg->object_point, &sg->world_to_object, &sg->point);
    sg->bary_u = hit.u;
    sg->bary_v = hit.v;
    const RtLocalGeometry local = localGeometry(*sg, hit, sg->object_point);
    if (isRefined(hit))
        refine(sg, hit, local);
    fillGeometry(sg, hit, local);
    shapeMethods(hit.object->node)
        .ShapeTextureCoordinates(hit.object, hit.prim, hit.u, hit.v, &sg->u, &sg->v);
    fillDifferentials(sg, ray);
    fillNormalDifferentials(sg, hit);
    assignLights(sg);
    if (sg->state)
        sg->state->user_data = userData(threadOf(ray), hit);
}

} // namespace rv
