// implicit: the "implicit" shape node, the surface inside a box where a shader's value passes a
// threshold, found by marching along the ray.
//
// The field is a function of the position in object space: it is shaded with that position as both
// the object and the world point, so that the surface moves with its object and the normals belong
// to the surface that the rays meet.
#include "nodes.h"
#include "objects/simple.h"
#include "rv_shaderglobals.h"
#include "shading_state.h"

#include <algorithm>

namespace rv {

enum Solver { solver_uniform, solver_levelset };
static const char* const solver_names[] = { "uniform", "levelset", nullptr };

struct Implicit {
    RtNode* field; // shader whose float output is the field
    float threshold;
    unsigned samples; // steps along a ray
    int solver;
    RtPoint min;
    RtPoint max;
    ShapeParams common;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Implicit>(metadata);
    declareFlag(metadata, nullptr, "_supports_rebuild");
    RvNodeParamNODE(params, RV_FIELD(Implicit, field), nullptr);
    RvNodeParamFLT(params, RV_FIELD(Implicit, threshold), 0);
    RvNodeParamUINT(params, RV_FIELD(Implicit, samples), 10);
    RvNodeParamENUM(params, RV_FIELD(Implicit, solver), 0, solver_names);
    RvNodeParamPNT(params, RV_FIELD(Implicit, min), -0.5f, -0.5f, -0.5f);
    RvNodeParamPNT(params, RV_FIELD(Implicit, max), 0.5f, 0.5f, 0.5f);
}

// ---- The field ----

float evaluateField(RtNode* field, RtShaderGlobals* sg, const RtPoint& point)
{
    if (!field)
        return 0;
    if (field->entry->type != RV_NODE_SHADER || field->entry->output_type != RV_TYPE_FLOAT)
        return 0;
    sg->point = sg->object_point = point;
    sg->out = {};
    RvShaderEvaluate(field, sg);
    return sg->out.FLT;
}

// Evaluates the field of a shape at any number of points. Lives on the stack of the thread.
class FieldProbe {
public:
    FieldProbe(const RtGObject* object, const RtVector& ray_dir, float time)
        : shape(recordOf<Implicit>(object))
    {
        sg.state = &state;
        resetContext(&sg);
        sg.ray_dir = ray_dir;
        sg.thread_index = uint8_t(stats_slot < worker_slot_count ? stats_slot : 0);
        sg.time = time;
        sg.object = object->node;
    }
    FieldProbe(const FieldProbe&) = delete;
    FieldProbe& operator=(const FieldProbe&) = delete;

    // Its value above the threshold.
    float operator()(const RtPoint& point)
    {
        return evaluateField(shape.field, &sg, point) - shape.threshold;
    }

private:
    const Implicit& shape;
    RtShaderGlobals sg;
    RtShadingState state = {};
};

// ---- Methods ----

static void initialize(RtNode* node, void*) { createSimpleObject(node, RV_KIND_IMPLICIT); }

static void bounds(RtGObject* object, RtBBox* box, int)
{
    const Implicit& shape = recordOf<Implicit>(object);
    *box = { shape.min, shape.max };
}

// What keeps a march through a huge box from going on for ever.
static constexpr unsigned most_steps = 1u << 20;

// The first sign change between samples at equal distances.
static void marchUniformly(const ShapeRay& ray, const SlabHit& range, unsigned samples,
                           FieldProbe& field)
{
    const unsigned count = std::min(samples, most_steps);
    const double step = (double(range.tfar) - range.tnear) / count;
    const bool starts_inside = field(single(ray.at(range.tnear))) < 0;
    for (unsigned i = 1; i < count; ++i) {
        const double t = range.tnear + step * i;
        if ((field(single(ray.at(t))) < 0) != starts_inside) {
            ray.insert(t);
            return;
        }
    }
}

// The field bounds the distance from the surface, so a step of that length stays on its side.
static void marchByDistance(const ShapeRay& ray, const SlabHit& range, FieldProbe& field)
{
    static constexpr float close = 1e-5f;
    double t = range.tnear;
    for (unsigned i = 0; t < range.tfar && i < most_steps; ++i) {
        const float distance = field(single(ray.at(t)));
        if (distance < close) {
            ray.insert(t);
            return;
        }
        t += std::min(distance, 1.0f);
    }
}

static void intersect(const ShapeRay& ray)
{
    const Implicit& shape = recordOf<Implicit>(ray.object);
    const SlabHit range = slabTest({ shape.min, shape.max }, ray.ray, ray.hits.maxdist);
    if (!range || !shape.field)
        return;
    FieldProbe field(ray.object, ray.ray.dir, ray.ray.time);
    if (shape.solver == solver_levelset)
        marchByDistance(ray, range, field);
    else
        marchUniformly(ray, range, shape.samples, field);
}

static void localGeometry(const RtVector* ray_dir, float time, const RtMatrix* world_to_object,
                          RtHit* hit, const RtPoint* point, RtLocalGeometry* out)
{
    static constexpr float step = 1e-5f;
    RtVector dir = *ray_dir;
    if (world_to_object)
        RvM4VectorByMatrixMult(&dir, world_to_object, ray_dir);
    FieldProbe field(hit->object, dir, time);
    const float here = field(*point);
    const RtPoint& p = *point;
    const Vec3d gradient = { double(field({ p.x + step, p.y, p.z })) - here,
                             double(field({ p.x, p.y + step, p.z })) - here,
                             double(field({ p.x, p.y, p.z + step })) - here };
    const Vec3d normal = normalized(gradient);
    // Where the field is flat, the surface faces the ray.
    const bool is_flat = dot(normal, normal) == 0;
    out->N = out->Ng = single(is_flat ? -normalized(vec3d(dir)) : normal);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = updateSimple,
    .Finish = do_nothing,
};

static const RtShapeMethods shape = {
    .ShapeLocalGeometry = localGeometry,
    .ShapeBBox = bounds,
    .ShapeTextureCoordinates = noTextureCoordinates,
    .ShapePrepareUserData = prepareSimpleUserData,
    .ShapePrepareIntersection = prepareIntersection<intersect>,
};

const RtNodeMethods implicit_methods = { &common, &shape };

} // namespace rv
