// radiosity: light that does not come straight from the sample of a light: indirect diffuse light,
// occlusion, the ambient term, and irradiance and radiance at free points. Declared by rv_gi.h.
//
// Everything works on the caller's context and on what belongs to its thread. Null arguments give
// black.
#include "brdf_mis.h"
#include "color.h"
#include "hit_context.h"
#include "integrators.h"
#include "message_passing.h"
#include "nodes.h"
#include "options.h"
#include "rv_gi.h"
#include "rv_lights.h"
#include "shaderglobals.h"
#include "system/memory.h"
#include "thread_slot.h"
#include "trace.h"

#include <string.h>

using namespace rv;

// ---- Indirect diffuse light ----

static bool hasSameBits(const RtVector& a, const RtVector& b)
{
    return memcmp(&a, &b, sizeof a) == 0;
}

// What was found here before, or null.
static const RtRGB* knownDiffuse(const RtVector& N, const RtShaderGlobals* sg)
{
    if (!sg->state || !sg->state->indirect.valid)
        return nullptr;
    const RtIndirectDiffuseCache& cache = sg->state->indirect;
    const bool same = hasSameBits(cache.point, sg->point) && hasSameBits(cache.normal, N) &&
                      hasSameBits(cache.facing_geometric_normal, sg->facing_geometric_normal);
    return same ? &cache.color : nullptr;
}

// Whether the context gathers for a sub-surface point cloud, with a loop of its own size.
static bool gathersForCloud(const RtShaderGlobals* sg)
{
    return sg->state && sg->state->pass == RV_PASS_SSS && !isNested(sg);
}

static SampleLoop diffuseLoop(RtShaderGlobals* sg, const RtOptions& options)
{
    if (!gathersForCloud(sg))
        return { sg, &RtSampleTables::diffuse, squaredCount(options.GI_diffuse_samples) };
    const int side =
        options.GI_sss_hemi_samples >= 1 ? options.GI_sss_hemi_samples : options.GI_diffuse_samples;
    return { sg, &RtSampleTables::sss, squaredCount(side) };
}

// The colour along a diffuse ray, which turns into that of the background between two distances.
static RtRGB traceWithFalloff(const RtRay& ray, double start, double stop)
{
    RtScrSample hit;
    if (!RvTrace(&ray, &hit) || !(hit.z > start && hit.z < stop))
        return hit.color;
    const float f = float((hit.z - start) / (stop - start));
    RtScrSample background;
    RvTraceBackground(&ray, &background);
    return hit.color * (1 - f) + background.color * f;
}

RtRGB RvIndirectDiffuse(const RtVector* N, RtShaderGlobals* sg)
{
    const RtOptions* const options = render_options;
    if (!N || !sg || !options || sg->diffuse_depth >= options->GI_diffuse_depth)
        return RV_RGB_BLACK;
    if (const RtRGB* const known = knownDiffuse(*N, sg))
        return *known;
    if (options->GI_diffuse_samples < 1 || !isUsableNormal(N))
        return RV_RGB_BLACK;
    countLighting(sg, RV_LIGHTING_DIFFUSE);
    const TangentFrame frame = polarFrame(*N);
    const double start = double(options->GI_falloff_start_dist);
    const double stop = double(options->GI_falloff_stop_dist);
    int traced = 0;
    const auto lobe = [&](float u, float v, RtVector* d) {
        *d = aroundAxis(*N, frame.U, frame.W, hemiRadius(u), hemiAngle(v));
        return dot(*d, sg->facing_geometric_normal) > 0 ? 1.0f : 0.0f;
    };
    const auto trace = [&](const RtRay& ray) {
        ++traced;
        return traceWithFalloff(ray, start, stop);
    };
    const RtRGB sum =
        gather(diffuseLoop(sg, *options), loopRay(RV_RAY_DIFFUSE, stop, sg), lobe, trace);
    // Required: what lies below the surface is left out instead of counted as black.
    const RtRGB color = traced ? sum * (1 / float(traced)) : RV_RGB_BLACK;
    if (sg->state)
        sg->state->indirect = { true, sg->point, *N, sg->facing_geometric_normal, color };
    return color;
}

// ---- Free calls ----

static RtThreadSlot* threadSlot(const RtShaderGlobals* sg)
{
    if (!the_frame->thread_slots || sg->thread_index >= worker_slot_count)
        return nullptr;
    RtThreadSlot* const slot = &the_frame->thread_slots[sg->thread_index];
    return slot->shading_pool && slot->messages ? slot : nullptr;
}

// Gives back what a call took from the memory of its thread, which outside of renders nobody else
// does. Messages of the call go with it, because the memory holds their names.
class ThreadScratch {
public:
    explicit ThreadScratch(const RtShaderGlobals* sg) : slot(threadSlot(sg))
    {
        if (!slot)
            return;
        message_count = slot->messages->count;
        RvMemPoolPushMark(slot->shading_pool);
    }
    ~ThreadScratch()
    {
        if (!slot)
            return;
        slot->messages->count = message_count;
        RvMemPoolPopMark(slot->shading_pool);
    }
    ThreadScratch(const ThreadScratch&) = delete;
    ThreadScratch& operator=(const ThreadScratch&) = delete;

private:
    RtThreadSlot* slot;
    unsigned message_count = 0;
};

// A private state of its own for a context, for the length of a scope.
class FreshState {
public:
    explicit FreshState(RtShaderGlobals* context) : sg(context), before(context->state)
    {
        resetState(&state, sg->parent);
        sg->state = &state;
    }
    ~FreshState() { sg->state = before; }
    FreshState(const FreshState&) = delete;
    FreshState& operator=(const FreshState&) = delete;

    RtShadingState state;

private:
    RtShaderGlobals* sg;
    RtShadingState* before;
};

// The rotation of sample loops at first hits, which otherwise changes from pixel to pixel.
static void setRotation(int thread, uint32_t u, uint32_t v)
{
    if (RtPixelSampling* const pixel = pixelSampling(thread)) {
        pixel->rotation_u = hashToUnit(u);
        pixel->rotation_v = hashToUnit(v);
    }
}

// A rotation for the pixel and the camera sample that a context stands for.
static void rotateForSample(const RtShaderGlobals* sg, uint32_t seed)
{
    const PixelHash hash(seed, sg->pixel_x, sg->pixel_y);
    setRotation(sg->thread_index, hash(sg->sample_index, 1), hash(sg->sample_index, 2));
}

static void setNormals(RtShaderGlobals* sg, const RtVector& N)
{
    sg->normal = sg->facing_normal = sg->smooth_normal = N;
    sg->geometric_normal = sg->facing_geometric_normal = N;
}

// ---- Occlusion ----

static bool isDegenerate(const RtVector& v)
{
    constexpr float least = 0.0001f;
    return fabsf(v.x) < least && fabsf(v.y) < least && fabsf(v.z) < least;
}

static bool isDirectional(const RtVector* N) { return isUsableNormal(N) && !isDegenerate(*N); }

// Cosine-weighted within a cone: the squared sine of the angle from the axis is uniform up to that
// of the cone, s.
static CosSin coneElevation(float s, float u)
{
    return { rootOfPositive(1 - s * s * (1 - u)), rootOfPositive(1 - u) * s };
}

// Whether something is in the way of a ray. It blocks its shadow or, with a falloff, a grey that
// fades with the distance.
static bool isBlocked(const RtRay& ray, float falloff, RtRGB* blocked)
{
    if (!(falloff > 0)) {
        *blocked = traceShadow(ray);
        return blocked->r > 0 || blocked->g > 0 || blocked->b > 0;
    }
    RtShaderGlobals hit;
    hit.state = nullptr;
    if (!RvTraceProbe(&ray, &hit))
        return false;
    const float grey = expf(-float(hit.ray_length) * falloff);
    *blocked = { grey, grey, grey };
    return true;
}

struct Occlusion {
    RtRGB blocked;      // sum
    RtVector unblocked; // sum of the open directions
};

static Occlusion occlusionOf(RtRay ray, const RtVector& N, const RtVector& Ng, float spread,
                             float falloff, RtSamplerIterator* it)
{
    Occlusion sum = {};
    const TangentFrame frame = shirleyFrame(N);
    const float s = sinf(spread);
    double sample[2];
    while (RvSamplerGetSample(it, sample)) {
        const float u = float(sample[0]), v = float(sample[1]);
        ray.dir = aroundAxis(N, frame.U, frame.W, coneElevation(s, u), hemiAngle(v));
        RtRGB blocked = RV_RGB_WHITE; // what is below the surface
        const bool above = dot(ray.dir, Ng) > 0 && isFinite(ray.dir);
        if (!above || isBlocked(ray, falloff, &blocked))
            sum.blocked = sum.blocked + blocked;
        else
            sum.unblocked = sum.unblocked + ray.dir;
    }
    return sum;
}

RtRGB RvOcclusion(const RtVector* N, const RtVector* Ng, RtShaderGlobals* sg, float mint,
                  float maxt, float spread, float falloff, RtSampler* sampler,
                  RtVector* bent_normal)
{
    if (!sg || !render_options || !isDirectional(N) || !isDirectional(Ng))
        return RV_RGB_BLACK;
    // Without a render no pixel has chosen a rotation.
    if (sg->ray_depth == 0 && !the_frame->hooks->rendering())
        rotateForSample(sg, samplingSeed());
    const ThreadScratch scratch(sg);
    RtRay ray = loopRay(RV_RAY_SHADOW, double(maxt), sg);
    ray.mindist = std::max(double(mint), ray.mindist);
    RtSamplerIterator* const it = RvSamplerIterator(sampler, sg);
    const Occlusion sum = occlusionOf(ray, *N, *Ng, spread, falloff, it);
    if (bent_normal)
        *bent_normal = unit(sum.unblocked);
    return sum.blocked * RvSamplerGetSampleInvCount(it);
}

// ---- Lights ----

RtRGB RvDirectDiffuse(const RtVector* N, RtShaderGlobals* sg)
{
    RtRGB sum = RV_RGB_BLACK;
    if (!N || !sg || !render_options)
        return sum;
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg)) {
        const float cosine = dot(*N, sg->light_dir);
        if (cosine > 0 && RvLightGetAffectDiffuse(sg->light))
            sum = sum + sg->light_radiance * (cosine * sg->light_weight);
    }
    return sum * diffuseScale();
}

RtRGB RvAmbient(RtShaderGlobals* sg)
{
    RtRGB sum = RV_RGB_BLACK;
    if (!sg || !render_options)
        return sum;
    RtShaderGlobals chosen = *sg; // whatever lights the context walks at present
    assignLights(&chosen);
    for (int i = 0; i < chosen.light_count; ++i) {
        RtNode* const light = chosen.lights[i];
        const auto* const methods = static_cast<const RtLightMethods*>(light->entry->kind_methods);
        if (methods && methods->LightAmbient)
            sum = sum + methods->LightAmbient(light, sg);
    }
    return sum;
}

// ---- Irradiance and radiance ----

RtRGB RvIrradianceSG(RtShaderGlobals* sg, uint32_t seed)
{
    if (!sg || !render_options)
        return RV_RGB_BLACK;
    const PixelHash hash(seed, 0, 0);
    setRotation(sg->thread_index, hash(0, 0), hash(0, 1));
    const ThreadScratch scratch(sg);
    const FreshState fresh(sg);
    const RtRGB direct = RvDirectDiffuse(&sg->normal, sg);
    if (render_options->GI_diffuse_depth <= 0)
        return direct;
    // Required: only the indirect part is scaled to an irradiance.
    return direct + RvIndirectDiffuse(&sg->normal, sg) * pi;
}

RtRGB RvIrradiance(const RtPoint* P, const RtVector* N)
{
    if (!P || !N || !render_options)
        return RV_RGB_BLACK;
    RtShaderGlobals sg;
    sg.state = nullptr;
    resetContext(&sg);
    sg.point = sg.object_point = *P;
    setNormals(&sg, *N);
    assignLights(&sg);
    return RvIrradianceSG(&sg, samplingSeed());
}

RtRGB RvRadianceSG(RtShaderGlobals* sg, uint32_t seed)
{
    if (!sg || !sg->shader || !render_options)
        return RV_RGB_BLACK;
    sg->object_point = sg->point;
    setNormals(sg, sg->normal);
    sg->bary_u = sg->u;
    sg->bary_v = sg->v;
    sg->ray_depth = 0;
    sg->transparency_index = 0;
    rotateForSample(sg, seed);
    const ThreadScratch scratch(sg);
    FreshState fresh(sg);
    fresh.state.pass = RV_PASS_PIXELS;
    assignLights(sg);
    evaluateShader(sg->shader, sg, callRow(sg));
    return sg->out.RGB;
}

RtRGB RvRadiance(const RtPoint* P, const RtVector* D, const RtVector* N, RtNode* object,
                 uint32_t prim_index, float u, float v, RtNode* shader)
{
    if (!P || !D || !N || !render_options)
        return RV_RGB_BLACK;
    RtShaderGlobals sg;
    sg.state = nullptr;
    resetContext(&sg);
    sg.ray_origin = *P + *D;
    sg.ray_dir = *D * -1.0f;
    sg.point = *P;
    sg.normal = *N;
    sg.object = object;
    sg.prim_index = prim_index;
    sg.u = u;
    sg.v = v;
    sg.shader = shader;
    return RvRadianceSG(&sg, samplingSeed());
}
