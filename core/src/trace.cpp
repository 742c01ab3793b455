// trace: following rays through the scene.
#include "trace.h"

#include "color.h"
#include "hash.h"
#include "hit_context.h"
#include "message_passing.h"
#include "objects/gobject.h"
#include "options.h"
#include "rays.h"
#include "rv_msg.h"
#include "sample_sink.h"
#include "scene.h"
#include "thread_slot.h"

#include <algorithm>
#include <math.h>

namespace rv {

static const RtPoint nowhere = { 1e30f, 1e30f, 1e30f };

// ---- Settings ----

// Hits are kept in the scratch memory of the thread, at every bounce anew, so their number has an
// end also where the option has none.
static constexpr int most_transparent_hits = 4095;

TransparencySettings transparencySettings()
{
    const RtOptions& options = *render_options;
    return { options.auto_transparency_mode == RV_TRANSPARENCY_ALWAYS,
             std::clamp(options.auto_transparency_depth, 0, most_transparent_hits),
             options.auto_transparency_threshold };
}

bool exceedsDepth(const RtRay& ray)
{
    const RtOptions& options = *render_options;
    const auto exceeds = [&ray](int type, int depth, int limit) {
        return (ray.type & type) && depth > limit;
    };
    // Required: a depth equal to the limit is traced, because the new bounce is already counted.
    return ray.level > options.GI_total_depth ||
           exceeds(RV_RAY_DIFFUSE, ray.diffuse_depth, options.GI_diffuse_depth) ||
           exceeds(RV_RAY_GLOSSY, ray.glossy_depth, options.GI_glossy_depth) ||
           exceeds(RV_RAY_REFLECTED, ray.reflection_depth, options.GI_reflection_depth) ||
           exceeds(RV_RAY_REFRACTED, ray.refraction_depth, options.GI_refraction_depth);
}

// ---- Finding hits ----

// Scratch memory of one trace, given back at its end.
class TraceScratch {
public:
    explicit TraceScratch(int thread)
        : pool(the_frame->thread_slots ? the_frame->thread_slots[thread].pools[0] : nullptr)
    {
        if (pool)
            RvMemPoolPushMark(pool);
    }
    ~TraceScratch()
    {
        if (pool)
            RvMemPoolPopMark(pool);
    }
    TraceScratch(const TraceScratch&) = delete;
    TraceScratch& operator=(const TraceScratch&) = delete;

    // Null when there is no memory, or no thread was prepared.
    template <class T> T* allocate(uint32_t n)
    {
        return pool ? static_cast<T*>(RvMemPoolAlloc(unsigned(n * sizeof(T)), pool)) : nullptr;
    }

private:
    RtMemPool* pool;
};

// What is wanted of the hits of a ray: those nearest to its origin, or only whether light gets
// through, where one opaque hit is as good as another.
enum class Wanted { nearest, light };

static RtTraversal traversalOf(const RtRay& ray, Wanted wanted)
{
    RtTraversal traversal = {};
    traversal.ray_type = ray.type;
    traversal.thread = uint8_t(threadOf(ray));
    traversal.any_hit = (ray.type & RV_RAY_SHADOW) && ray.sg;
    traversal.any_order = traversal.any_hit && wanted == Wanted::light;
    traversal.inclusive_traceset = ray.inclusive_traceset;
    traversal.traceset = ray.traceset;
    if (ray.traceset && *ray.traceset)
        traversal.traceset_hash = stringHash(ray.traceset);
    if (ray.light_sample)
        traversal.light = *static_cast<RtNode* const*>(ray.light_sample);
    traversal.from_prim = rv_no_primitive;
    if (ray.sg && ray.sg->stage == RV_STAGE_SURFACE && ray.sg->object) {
        traversal.from_object = ray.sg->object;
        traversal.from_instance = ray.sg->instance;
        traversal.from_prim = ray.sg->prim_index;
    }
    return traversal;
}

static void traverseScene(RtGObject* root, const RtRay& ray, Wanted wanted, RtHitList& hits)
{
    const RtTraversal traversal = traversalOf(ray, wanted);
    const RtObjectRay object_ray = { ray.origin, ray.dir, float(ray.mindist), ray.time,
                                     rv_no_primitive };
    const bool two_passes = render_options->trace_opaque_first && hits.capacity >= 2;
    hits.pass = two_passes ? RtOpaquePass::opaque : RtOpaquePass::all;
    RvIntersectObject(root, traversal, object_ray, hits);
    if (!hits.non_opaque_skipped || ((ray.type & RV_RAY_SHADOW) && hits.count))
        return;
    hits.pass = RtOpaquePass::non_opaque;
    RvIntersectObject(root, traversal, object_ray, hits);
}

static uint32_t findHits(const RtRay& ray, Wanted wanted, uint32_t capacity, RtHit* hits)
{
    RtNode* const root = the_frame->scene->root;
    RtGObject* const object = shapeObject(root);
    if (!object || !hits || !the_frame->thread_slots)
        return 0;
    RtHitList list = {};
    list.capacity = capacity;
    list.maxdist = float(ray.maxdist);
    list.hits = hits;
    traverseScene(object, ray, wanted, list);
    return list.count;
}

uint32_t findHits(const RtRay& ray, uint32_t capacity, RtHit* hits)
{
    return findHits(ray, Wanted::nearest, capacity, hits);
}

static void noteDepth(const RtRay& ray)
{
    uint64_t& max_depth = the_frame->stats[threadOf(ray)]->rays.max_depth;
    max_depth = std::max<uint64_t>(max_depth, ray.level);
}

// Counts the ray, finds its hits and counts them.
static uint32_t trace(const RtRay& ray, Wanted wanted, uint32_t capacity, RtHit* hits)
{
    countRay(ray);
    const uint32_t count = findHits(ray, wanted, capacity, hits);
    countHits(ray, count);
    for (uint32_t i = 0; i < count; ++i)
        noteHit(hits[i].object, threadOf(ray));
    return count;
}

// ---- Refused rays ----

static const char* stageName(const RtShaderGlobals* sg)
{
    static const char* const names[] = { "surface", "volume", "background", "displacement" };
    return sg && sg->stage <= RV_STAGE_DISPLACEMENT ? names[sg->stage] : "";
}

static const char* nameOf(const RtNode* node) { return node ? RvNodeGetName(node) : ""; }

// False, after a fatal message, for a direction that is not finite.
static bool hasDirection(const RtRay& ray)
{
    if (isfinite(ray.dir.x) && isfinite(ray.dir.y) && isfinite(ray.dir.z))
        return true;
    RvMsgFatal("corrupt ray! type=%d, level=%d, pixel=(%d,%d), node=%s, shader=%s: %s", ray.type,
               ray.level, ray.x, ray.y, nameOf(ray.sg ? ray.sg->object : nullptr),
               nameOf(ray.sg ? ray.sg->shader : nullptr), stageName(ray.sg));
    return false;
}

static bool isReady() { return the_frame && the_frame->scene && render_options; }

// The shaders of one ray tree pass messages to each other; those of earlier ones are forgotten.
static void startRayTree(const RtRay& ray)
{
    if ((ray.type & RV_RAY_CAMERA) && !ray.sg && the_frame->thread_slots)
        messageBankClear(the_frame->thread_slots[threadOf(ray)].messages);
}

// Neither backgrounds nor what is shaded for its shadow alone may trace rays.
static bool mayTrace(const RtShaderGlobals* sg)
{
    return !sg || (sg->stage != RV_STAGE_BACKGROUND && !(sg->ray_type & RV_RAY_SHADOW));
}

// ---- Putting hits together ----

static bool reaches(const RtRGB& color, float limit)
{
    return color.r >= limit && color.g >= limit && color.b >= limit;
}

// NaN counts as visible.
static bool isTransparent(const RtRGB& opacity)
{
    return opacity.r == 0 && opacity.g == 0 && opacity.b == 0;
}

static float under(float accumulated, float opacity)
{
    return accumulated + (1 - accumulated) * opacity;
}

static RtRGB under(const RtRGB& accumulated, const RtRGB& opacity)
{
    return { under(accumulated.r, opacity.r), under(accumulated.g, opacity.g),
             under(accumulated.b, opacity.b) };
}

HitCompositor::Verdict HitCompositor::take(uint32_t index, ShadedHit& hit)
{
    const bool is_last = index >= uint32_t(settings.depth);
    if (!settings.always)
        return terminal;
    if (!hit.opaque && !is_last && isTransparent(hit.opacity))
        return skipped;
    if (!hit.opaque && !reaches(hit.opacity, 1)) {
        accumulated = under(accumulated, hit.opacity);
        if (!reaches(accumulated, settings.threshold) && !is_last)
            return kept;
    }
    hit.opacity = RV_RGB_WHITE;
    return terminal;
}

static bool isAlpha(float alpha) { return isfinite(alpha) && alpha >= 0; }

void compositeOver(RtScrSample* sample, const ShadedHit& hit)
{
    const auto over = [](float color, float opacity, float behind) {
        return color * opacity + behind * (1 - opacity);
    };
    const RtRGB& o = hit.opacity;
    sample->color = { over(hit.color.r, o.r, sample->color.r),
                      over(hit.color.g, o.g, sample->color.g),
                      over(hit.color.b, o.b, sample->color.b) };
    sample->opacity = under(o, sample->opacity);
    sample->alpha = over(isAlpha(hit.alpha) ? hit.alpha : 1, meanOf(o), sample->alpha);
}

bool ShadowOpacity::add(const RtRGB& opacity)
{
    accumulated = under(accumulated, opacity);
    if (!reaches(opacity, 1) && !reaches(accumulated, threshold))
        return false;
    accumulated = RV_RGB_WHITE;
    return true;
}

static void weigh(RtScrSample* sample, float weight)
{
    sample->color = { sample->color.r * weight, sample->color.g * weight,
                      sample->color.b * weight };
}

// ---- Shading ----

static RtRGB colorOf(const RtShaderGlobals& sg, int output_type)
{
    switch (output_type) {
    case RV_TYPE_FLOAT: return { sg.out.FLT, sg.out.FLT, sg.out.FLT };
    case RV_TYPE_RGB: return sg.out.RGB;
    case RV_TYPE_RGBA: return { sg.out.RGBA.r, sg.out.RGBA.g, sg.out.RGBA.b };
    default: return RV_RGB_BLACK;
    }
}

static const ShapeParams& flagsOf(const RtHit& hit)
{
    return shapeParams(hit.instance ? hit.instance : hit.object->node);
}

// A hit that counts, with what its shader left in the context for the outputs.
struct KeptHit {
    const RtHit* hit;
    ShadedHit shaded;
    RtNode* shader;
    RtPoint point;
    RtVector normal;
};

// Where the outputs of a ray go; nowhere for rays that write none.
class RayOutputs {
public:
    explicit RayOutputs(const RtRay& ray)
        : sink(writesOutputs(ray) ? static_cast<RtSampleSink*>(ray.aov_sink) : nullptr),
          first_depth(ray.refraction_depth), weight(ray.weight)
    {
    }
    // What the sample shows, behind `depth` kept hits of the ray; null without a hit.
    void record(uint32_t depth, const RtScrSample& sample, const KeptHit* kept) const
    {
        if (!sink)
            return;
        RtSampleOutputs outputs = {};
        outputs.color = sample.color;
        outputs.alpha = sample.alpha;
        outputs.opacity = sample.opacity;
        outputs.z = float(sample.z);
        outputs.point = sample.point;
        if (kept) {
            const RtHit& hit = *kept->hit;
            outputs.z = hit.t;
            outputs.object = hit.instance ? hit.instance : hit.object->node;
            outputs.shader = kept->shader;
            outputs.point = kept->point;
            outputs.normal = kept->normal;
        }
        the_frame->hooks->recordSample(sink, first_depth + int(depth), outputs);
    }
    // The same for a sample that does not hold the weight of the ray yet.
    void recordWeighed(uint32_t depth, RtScrSample sample, const KeptHit* kept) const
    {
        weigh(&sample, weight);
        record(depth, sample, kept);
    }
    // Shades at a depth.
    template <class Shade> int at(uint32_t depth, const Shade& shade) const
    {
        if (!sink)
            return shade();
        const int outer_depth = sink->depth;
        sink->depth = first_depth + int(depth);
        const int type = shade();
        sink->depth = outer_depth;
        return type;
    }

private:
    RtSampleSink* const sink;
    const int first_depth;
    const float weight;
};

// How far the tracing of a ray has come.
struct RayProgress {
    uint32_t index;      // hits passed
    uint32_t kept_count; // those that count
    RtRGB opacity;       // of all of these
};

static KeptHit shade(const RtRay& ray, const RtHit& hit, const RayProgress& progress,
                     const RayOutputs& outputs)
{
    RtShadingState state;
    RtShaderGlobals sg;
    sg.state = &state;
    fillHitContext(&sg, ray, hit, progress.index);
    state.accumulated_opacity = progress.opacity;
    const int type =
        outputs.at(progress.kept_count, [&sg] { return the_frame->hooks->shadeSurface(&sg); });
    const ShadedHit shaded = { colorOf(sg, type), sg.out_opacity,
                               type == RV_TYPE_RGBA ? sg.out.RGBA.a : -1, flagsOf(hit).opaque };
    return { &hit, shaded, sg.shader, sg.point, sg.normal };
}

static void setFirstHit(const RtRay& ray, const RtHit& hit, RtScrSample* sample)
{
    sample->z = double(hit.t);
    sample->point = ray.origin + ray.dir * hit.t;
    sample->obj = hit.object->node;
    sample->face = hit.prim;
}

// The background as seen from behind the last hit. Where hits are in front of it, its shader has no
// outputs of its own.
static void seeBackground(const RtRay& ray, float t, bool is_first, RtScrSample* sample)
{
    RtRay behind = ray;
    behind.origin = ray.origin + ray.dir * t;
    if (!is_first)
        behind.aov_sink = nullptr;
    RvTraceBackground(&behind, sample);
}

// Brings what the sample holds from one distance along the ray to a nearer one.
static void passAtmosphere(const RtRay& ray, double from, float to, RtScrSample* sample)
{
    if (!render_options->atmosphere || !(double(to) < from))
        return;
    RtRay segment = ray;
    segment.origin = ray.origin + ray.dir * to;
    sample->z = from - double(to);
    sample->point = ray.origin + ray.dir * float(from);
    the_frame->hooks->applyAtmosphere(&segment, sample);
}

static bool shadeNearest(const RtRay& ray, const RtHit& hit, const RayOutputs& outputs,
                         RtScrSample* sample)
{
    const KeptHit kept = shade(ray, hit, {}, outputs);
    sample->color = kept.shaded.color;
    sample->opacity = kept.shaded.opacity;
    sample->alpha = isAlpha(kept.shaded.alpha) ? kept.shaded.alpha : meanOf(kept.shaded.opacity);
    passAtmosphere(ray, double(hit.t), 0, sample);
    setFirstHit(ray, hit, sample);
    weigh(sample, ray.weight);
    outputs.record(0, *sample, &kept);
    return true;
}

static bool shadeThrough(const RtRay& ray, const RtHit* hits, uint32_t count, KeptHit* kept,
                         const RayOutputs& outputs, RtScrSample* sample)
{
    HitCompositor compositor(transparencySettings());
    HitCompositor::Verdict verdict = HitCompositor::skipped;
    RayProgress progress = {};
    for (; progress.index < count && verdict != HitCompositor::terminal; ++progress.index) {
        progress.opacity = compositor.opacity();
        KeptHit& next = kept[progress.kept_count];
        next = shade(ray, hits[progress.index], progress, outputs);
        verdict = compositor.take(progress.index, next.shaded);
        if (verdict != HitCompositor::skipped)
            ++progress.kept_count;
    }
    float t = hits[progress.index - 1].t; // what the sample holds arrives here
    if (verdict != HitCompositor::terminal)
        seeBackground(ray, t, progress.kept_count == 0, sample);
    // Required: the background already carries the ray's weight, and gets it once more below.
    for (uint32_t i = progress.kept_count; i-- > 0; t = kept[i].hit->t) {
        passAtmosphere(ray, double(t), kept[i].hit->t, sample);
        compositeOver(sample, kept[i].shaded);
        if (i > 0)
            outputs.recordWeighed(i, *sample, &kept[i]);
    }
    passAtmosphere(ray, double(t), 0, sample);
    if (progress.kept_count) {
        setFirstHit(ray, *kept[0].hit, sample);
    } else {
        sample->z = ray.maxdist;
        sample->point = nowhere;
    }
    weigh(sample, ray.weight);
    outputs.record(0, *sample, progress.kept_count ? kept : nullptr);
    return true;
}

// Private state for a context that outlives its trace. Only what a render shades has one: the pool
// it comes from is emptied after the camera sample, which never happens to the rays of a host.
static RtShadingState* probeState(const RtRay& ray)
{
    if (!ray.sg || !ray.sg->state || !the_frame->thread_slots)
        return nullptr;
    return static_cast<RtShadingState*>(RvMemPoolAlloc(
        sizeof(RtShadingState), the_frame->thread_slots[threadOf(ray)].shading_pool));
}

// What the atmosphere between two distances along a shadow ray keeps of white light.
static RtRGB atmosphereShadow(const RtRay& ray, float from, double to)
{
    RtScrSample light = {};
    light.color = RV_RGB_WHITE;
    passAtmosphere(ray, to, from, &light);
    const auto kept = [](float color) { return std::clamp(1 - color, 0.0f, 1.0f); };
    return { kept(light.color.r), kept(light.color.g), kept(light.color.b) };
}

RtRGB traceShadow(const RtRay& ray)
{
    if (!isReady() || !hasDirection(ray))
        return RV_RGB_BLACK;
    const TransparencySettings settings = transparencySettings();
    const bool through = render_options->auto_transparency_mode != RV_TRANSPARENCY_NEVER;
    noteDepth(ray);
    TraceScratch scratch(threadOf(ray));
    const uint32_t capacity = through ? uint32_t(settings.depth) + 1 : 1;
    RtHit* const hits = scratch.allocate<RtHit>(capacity);
    const uint32_t count = trace(ray, Wanted::light, capacity, hits);
    const RayOutputs outputs(ray);
    const bool has_atmosphere = render_options->atmosphere;
    ShadowOpacity shadow(settings.threshold);
    float t = 0; // where the light is followed to
    for (uint32_t i = 0; i < count; t = hits[i++].t) {
        if (flagsOf(hits[i]).opaque ||
            (has_atmosphere && shadow.add(atmosphereShadow(ray, t, double(hits[i].t)))) ||
            shadow.add(shade(ray, hits[i], { i, i, shadow.value() }, outputs).shaded.opacity))
            return RV_RGB_WHITE;
    }
    if (has_atmosphere)
        shadow.add(atmosphereShadow(ray, t, ray.maxdist));
    return shadow.value();
}

} // namespace rv

bool RvTrace(const RtRay* ray, RtScrSample* sample)
{
    if (!ray || !sample)
        return false;
    *sample = {};
    if (!rv::isReady() || !rv::hasDirection(*ray))
        return false;
    rv::startRayTree(*ray);
    if (!rv::mayTrace(ray->sg))
        return false;
    const rv::RayOutputs outputs(*ray);
    if (rv::exceedsDepth(*ray)) {
        outputs.record(0, *sample, nullptr);
        return false;
    }
    rv::noteDepth(*ray);
    const rv::TransparencySettings settings = rv::transparencySettings();
    const uint32_t capacity = settings.always ? uint32_t(settings.depth) + 1 : 1;
    rv::TraceScratch scratch(rv::threadOf(*ray));
    RtHit* const hits = scratch.allocate<RtHit>(capacity);
    const uint32_t count = rv::trace(*ray, rv::Wanted::nearest, capacity, hits);
    if (!count) {
        RvTraceBackground(ray, sample);
        outputs.record(0, *sample, nullptr);
        return false;
    }
    if (!settings.always)
        return rv::shadeNearest(*ray, hits[0], outputs, sample);
    rv::KeptHit* const kept = scratch.allocate<rv::KeptHit>(count);
    return kept && rv::shadeThrough(*ray, hits, count, kept, outputs, sample);
}

bool RvTraceProbe(const RtRay* ray, RtShaderGlobals* sgout)
{
    if (!ray || !rv::isReady() || !rv::hasDirection(*ray))
        return false;
    RtHit hit;
    RtMatrix matrix;
    {
        rv::TraceScratch scratch(rv::threadOf(*ray));
        if (!rv::trace(*ray, rv::Wanted::nearest, 1, &hit))
            return false;
        if (hit.matrix)
            matrix = *hit.matrix;
    }
    if (!sgout)
        return true;
    // What the context refers to must outlive this call.
    hit.matrix = hit.matrix ? &matrix : nullptr;
    RtShaderGlobals sg;
    sg.state = rv::probeState(*ray);
    rv::fillHitContext(&sg, *ray, hit, 0);
    if (sg.parent == sgout) // nothing may be its own parent
        sg.parent = sgout->parent;
    *sgout = sg;
    return true;
}

void RvTraceBackground(const RtRay* ray, RtScrSample* sample)
{
    if (!ray || !sample)
        return;
    *sample = {};
    sample->point = rv::nowhere;
    sample->z = ray->maxdist;
    if (!rv::isReady())
        return;
    const RtOptions& options = *rv::render_options;
    int type = RV_TYPE_NONE;
    if (options.background && (ray->type & options.background_visibility)) {
        RtShadingState state;
        RtShaderGlobals sg;
        sg.state = &state;
        rv::resetContext(&sg);
        rv::fillFromRay(&sg, *ray);
        sg.stage = RV_STAGE_BACKGROUND;
        rv::assignLights(&sg);
        type = rv::the_frame->hooks->shadeBackground(&sg);
        const RtRGB color = rv::colorOf(sg, type);
        sample->opacity = sg.out_opacity;
        sample->color = { color.r * sg.out_opacity.r, color.g * sg.out_opacity.g,
                          color.b * sg.out_opacity.b };
        sample->alpha = type == RV_TYPE_RGBA ? sg.out.RGBA.a : 0;
    }
    if (options.atmosphere && !options.skip_background_atmosphere)
        rv::the_frame->hooks->applyAtmosphere(ray, sample);
    rv::weigh(sample, ray->weight);
    if (options.auto_transparency_mode == RV_TRANSPARENCY_ALWAYS && type != RV_TYPE_RGBA)
        sample->alpha = rv::meanOf(sample->opacity);
}
