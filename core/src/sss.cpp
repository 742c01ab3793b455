// sss: who owns which point cloud, who builds it, and looking up scattered light (sss.h).
//
// Each object keeps one cloud for each way of showing its points, so that a change of that option
// between renders finds the right one. The first thread that needs a cloud builds it, and all
// others that come to need it meanwhile help. How this ends for any order of events:
// - The owner's lock guards only who builds; nobody holds it while building or waiting. So a build
//   may take the locks of structures, textures and lights, one at a time, like any shading.
// - A thread that builds a cloud, or helps, looks up nothing: its points, and whatever is shaded
//   for them on the same or on other objects, have no scattered light. So it never waits for
//   another cloud, and two clouds never wait for each other.
// - Nor does a thread look up anything that builds a structure for rays or loads a procedural, or
//   that works out the colour of a light: others may need its locks for their clouds. The colour
//   would also depend on which lights its own shaders may ask, and so would a cloud made there.
// Any thread may flush clouds between renders. Those that are being built or looked up then stay
// until all lookups are done, though nobody else finds them (objects/object_cache.h).
//
// A stop of the render ends a build; nothing is kept of it, the waiting threads go on without
// light, what they shade is discarded, and the next render starts anew. A build that runs out of
// memory leaves an empty cloud.
#include "sss.h"

#include "color.h"
#include "hit_context.h"
#include "lights/light_map.h"
#include "options.h"
#include "sss_cloud.h"
#include "system/critical_section.h"

#include <new>
#include <utility>

namespace rv {

// ---- Clouds of an object ----

namespace {

enum CloudState : int { absent, being_built, ready };

struct CloudPlace {
    std::atomic<int> state{ absent }; // CloudState; leaves `absent` under the owner's lock
    JointWork work;                   // announced while being built
    RtSSSPointCloud* cloud = nullptr; // fixed once ready; null when there was no memory at all
};

struct PointClouds final : RtObjectCache, CheckedHeap {
    CloudPlace places[show_samples_count];

    ~PointClouds() override
    {
        for (const CloudPlace& place : places)
            if (place.cloud) {
                threadStats()->sss_bytes -= int64_t(place.cloud->bytes());
                delete place.cloud;
            }
    }
};

} // namespace

// What asks builds to stop; null outside of renders.
static std::atomic<const std::atomic<int>*> render_stop;

static bool isStopping()
{
    const std::atomic<int>* const request = render_stop;
    return request && *request;
}

static thread_local bool builds_cloud;

// For the length of a scope in which the thread builds a cloud, alone or with others.
class CloudBuilder {
public:
    CloudBuilder() { builds_cloud = true; }
    ~CloudBuilder() { builds_cloud = false; }
    CloudBuilder(const CloudBuilder&) = delete;
    CloudBuilder& operator=(const CloudBuilder&) = delete;
};

// The clouds of an object, made now if need be; null without memory. Under the object's lock.
static PointClouds* cloudsOf(RtGObject* owner)
{
    if (RtObjectCache* const present = owner->extra)
        return static_cast<PointClouds*>(present);
    try {
        PointClouds* const clouds = new PointClouds;
        owner->extra = clouds;
        return clouds;
    } catch (const std::bad_alloc&) { // reported by the allocator
        return nullptr;
    }
}

// Of a work that was announced.
static void build(const SSSBuildOrder& order, CloudPlace& place)
{
    RtSSSPointCloud* cloud = nullptr;
    bool is_finished = true;
    try {
        const CloudBuilder builder;
        cloud = buildPointCloud(order);
        is_finished = cloud;
    } catch (const std::bad_alloc&) { // reported by the allocator
    }
    if (cloud)
        threadStats()->sss_bytes += int64_t(cloud->bytes());
    place.cloud = cloud;
    place.work.cancel(); // before the next build may announce its own
    place.state = is_finished ? ready : absent;
    place.state.notify_all();
}

static void help(CloudPlace& place, int thread)
{
    const CloudBuilder builder;
    place.work.join(thread);
    place.state.wait(being_built);
}

// By worker slot: a cloud was asked for and not waited for any longer.
static bool has_given_up[worker_slot_count];

// The cloud of an owner, once it is there; null when there will be none.
static const RtSSSPointCloud* awaitCloud(RtGObject* owner, int thread, int show_samples)
{
    while (!isStopping()) {
        CloudPlace* place = nullptr;
        bool is_ours = false;
        {
            const CritSecLock guard(&owner->lock);
            PointClouds* const clouds = cloudsOf(owner);
            if (!clouds)
                return nullptr;
            place = &clouds->places[show_samples];
            is_ours = place->state == absent;
            if (is_ours) {
                place->work.announce();
                place->state = being_built;
            }
        }
        if (is_ours)
            build({ owner, show_samples, { thread, &place->work, render_stop } }, *place);
        else
            help(*place, thread);
        if (place->state == ready)
            return place->cloud;
    }
    has_given_up[thread] = true;
    return nullptr;
}

static const RtSSSPointCloud* cloudFor(RtGObject* owner, int thread)
{
    const int show = std::clamp(render_options->show_samples, 0, show_samples_count - 1);
    if (auto* const clouds = static_cast<PointClouds*>(owner->extra.load()))
        if (const CloudPlace& place = clouds->places[show]; place.state == ready)
            return place.cloud;
    return awaitCloud(owner, thread, show);
}

// ---- Points of lookups ----

static RtGObject* meshObject(const RtNode* node)
{
    RtGObject* const object = shapeObject(node);
    return object && object->kind == RV_KIND_POLYMESH && object->data ? object : nullptr;
}

// The node that provides the shaders, when it shows the same mesh, or else the object itself.
static RtGObject* ownerOf(const RtShaderGlobals* sg, RtGObject* object)
{
    RtGObject* const source = meshObject(sg->shader_source);
    return source && source->data == object->data ? source : object;
}

// Contexts that do not come from a ray know no matrix.
static bool isInWorld(const RtShaderGlobals* sg)
{
    return !sg->instance && RvM4IsIdentity(&sg->world_to_object);
}

// Of a mesh that changes its form it is the same place on the surface.
static RtPoint pointOnObject(const RtShaderGlobals* sg, const RtGObject* object, float time)
{
    const RtPolyMesh& mesh = *meshOf(object);
    RtPoint p[3];
    if (mesh.nkeys > 1 && sg->prim_index < mesh.ntriangles) {
        MeshVertices(object, time).ofTriangle(sg->prim_index, p);
        return p[0] * (1 - sg->bary_u - sg->bary_v) + p[1] * sg->bary_u + p[2] * sg->bary_v;
    }
    RtMatrix to_object = sg->world_to_object;
    if (isInWorld(sg)) {
        const RtMatrix to_world = placeInWorld(object, sg->time);
        RvM4Invert(&to_world, &to_object);
    }
    RvM4PointByMatrixMult(&p[0], &to_object, &sg->point);
    return p[0];
}

// In the frame of the cloud. Free points of an object that has one place are there already.
static RtPoint pointInCloud(const RtShaderGlobals* sg, const RtGObject* object,
                            const RtSSSPointCloud& cloud)
{
    if (cloud.has_one_place && isInWorld(sg))
        return sg->point;
    RtPoint point = pointOnObject(sg, object, cloud.time);
    RvM4PointByMatrixMult(&point, &cloud.frame, &point);
    return point;
}

// ---- The cache of camera samples ----

namespace {

// The last result of a render thread.
struct alignas(64) CachedLookup {
    bool valid;
    int x, y;
    uint64_t visit; // of the pixel, counted by the thread: buckets share pixels at their borders
    const RtNode *object, *shader;
    const RtSSSPointCloud* cloud;
    RtPoint point;
    float least_radius;
    RtRGB result;
};

} // namespace

static CachedLookup cached_lookups[worker_slot_count];

static bool isCached(const RtShaderGlobals* sg)
{
    return render_options->sss_subpixel_cache && sg->ray_depth == 0 && render_stop;
}

// Of the channels that scatter at all.
static float leastRadius(const RtRGB& radius)
{
    float least = FLT_MAX;
    for (const float r : { radius.r, radius.g, radius.b })
        if (r > 0)
            least = std::min(least, r);
    return least;
}

static bool isNear(const CachedLookup& known, const CachedLookup& wanted)
{
    static constexpr float tolerance = 0.1f;
    const float reach = tolerance * wanted.least_radius;
    const RtVector way = wanted.point - known.point;
    return dot(way, way) < reach * reach &&
           fabsf(wanted.least_radius - known.least_radius) <
               tolerance * std::max(wanted.least_radius, known.least_radius);
}

static bool matches(const CachedLookup& known, const CachedLookup& wanted)
{
    return known.valid && known.x == wanted.x && known.y == wanted.y &&
           known.visit == wanted.visit && known.object == wanted.object &&
           known.shader == wanted.shader && known.cloud == wanted.cloud && isNear(known, wanted);
}

static RtRGB cachedLight(const RtShaderGlobals* sg, const RtSSSPointCloud& cloud, const RtPoint& P,
                         const RtRGB& radius)
{
    CachedLookup wanted = { .valid = true,
                            .x = sg->pixel_x,
                            .y = sg->pixel_y,
                            .visit = threadStats()->pixels,
                            .object = sg->object,
                            .shader = sg->shader,
                            .cloud = &cloud,
                            .point = P,
                            .least_radius = leastRadius(radius),
                            .result = RV_RGB_BLACK };
    CachedLookup& known = cached_lookups[sg->thread_index];
    if (matches(known, wanted))
        return known.result;
    ++threadStats()->sss_computed;
    wanted.result = scatteredLight(cloud, P, radius);
    known = wanted;
    return known.result;
}

// ---- Renders ----

void startPointClouds(const std::atomic<int>* stop_request)
{
    render_stop = stop_request;
    std::fill_n(has_given_up, worker_slot_count, false);
    for (RtStats* record : the_frame->stats)
        record->sss_pool_bytes = 0; // of earlier renders
    for (CachedLookup& lookup : cached_lookups)
        lookup.valid = false;
}

void endPointClouds() { render_stop = nullptr; }

bool lacksPointCloud(int thread) { return has_given_up[thread]; }

// ---- Lookups ----

static bool mayLookUp(const RtShaderGlobals* sg)
{
    return sg && render_options && !render_options->ignore_sss && the_frame->thread_slots &&
           sg->thread_index < worker_slot_count && !builds_cloud && !isBuildingAccel() &&
           !isColoringLight() && !RvShaderGlobalsFromSSS(sg);
}

} // namespace rv

RtRGB RvSSSPointCloudLookup(RtShaderGlobals* sg, const RtRGB* radius)
{
    using namespace rv;
    RtGObject* const object = radius && mayLookUp(sg) ? meshObject(sg->object) : nullptr;
    if (!object)
        return RV_RGB_BLACK;
    ++threadStats()->sss_lookups;
    const CacheReader reader(sg->thread_index);
    const RtSSSPointCloud* const cloud = cloudFor(ownerOf(sg, object), sg->thread_index);
    if (!cloud || cloud->points.empty())
        return RV_RGB_BLACK;
    const RtPoint P = pointInCloud(sg, object, *cloud);
    if (render_options->show_samples != show_no_samples)
        return nearestIrradiance(*cloud, P, cloud->average_radius / 2);
    return isCached(sg) ? cachedLight(sg, *cloud, P, *radius) : scatteredLight(*cloud, P, *radius);
}
