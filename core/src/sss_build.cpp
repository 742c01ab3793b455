// sss_build: makes the point cloud of an object (sss_cloud.h): scatters points over its mesh,
// gathers the light that arrives there and sorts them.
//
// The result depends on the scene alone, not on the threads that share the work. Points are lit in
// contexts that know nothing of the point that is being shaded: their random numbers come from the
// number of the point, their time is the middle of the shutter, and what belongs to the thread
// (rotation of sample loops, scratch memory, messages) is replaced meanwhile.
#include "array.h"
#include "cameras/camera.h"
#include "color.h"
#include "duration.h"
#include "hit_context.h"
#include "message_passing.h"
#include "msg.h"
#include "objects/polymesh.h"
#include "options.h"
#include "point_rotation.h"
#include "rv_gi.h"
#include "sss_cloud.h"
#include "system/clock.h"
#include "thread_slot.h"
#include "userdefs.h"

#include <array>
#include <memory>
#include <new>
#include <numbers>

namespace rv {

// ---- Where and when ----

// The middle of the shutter, in which moving things are on average.
static float referenceTime()
{
    const RtNode* const camera = render_options->camera;
    if (!camera || camera->entry->type != RV_NODE_CAMERA)
        return 0;
    return RvCameraShutterTime(cameraParams(camera), 0.5f);
}

static RtMatrix transformAt(const RtGObject* object, float time)
{
    RtMatrix storage;
    const RtMatrix* const matrix = objectToWorldAt(object, time, &storage);
    return matrix ? *matrix : RV_M4_IDENTITY;
}

// Where an object stands in the scene.
struct Placement {
    RtMatrix to_world; // from object space
    RtNode* instance;  // the outermost one that it is seen through, or null
    bool moves;
};

// The procedurals that made a node carry it. Each of them, like the object, is found where it
// stands itself or, when it is hidden, where its first instance does.
static Placement placementOf(const RtGObject* object, float time)
{
    Placement placement = { RV_M4_IDENTITY, nullptr, false };
    while (object) {
        const RtGObject* const placed = placedObject(object);
        const RtMatrix matrix = transformAt(placed, time);
        RvM4Mult(&placement.to_world, &placement.to_world, &matrix);
        placement.moves |= placed->nkeys > 1;
        if (placed->node->source)
            placement.instance = placed->node;
        object = shapeObject(placed->node->creator);
    }
    return placement;
}

RtMatrix placeInWorld(const RtGObject* object, float time)
{
    return placementOf(object, time).to_world;
}

namespace {

// The mesh as it stands in the world at the time of the cloud.
class PlacedMesh final : public SSSSurface {
public:
    PlacedMesh(const RtGObject* mesh_object, const RtMatrix& object_to_world, float time)
        : mesh(*meshOf(mesh_object)), vertices(mesh_object, time), place(object_to_world)
    {
    }
    uint32_t triangleCount() const override { return mesh.ntriangles; }
    void corners(uint32_t triangle, RtPoint out[3]) const override
    {
        RtPoint p[3];
        vertices.ofTriangle(triangle, p);
        for (int i = 0; i < 3; ++i)
            RvM4PointByMatrixMult(&out[i], &place, &p[i]);
    }

private:
    const RtPolyMesh& mesh;
    const MeshVertices vertices;
    const RtMatrix& place;
};

} // namespace

// ---- What belongs to the thread ----

namespace {

// Gives the thread fresh scratch memory and messages for the length of a scope: what its shaders
// keep there, while they wait for the cloud, stays as it is.
class FreshSlot {
public:
    explicit FreshSlot(int thread) : slot(the_frame->thread_slots[thread]), before(slot)
    {
        static constexpr unsigned block = 0x10000;
        RtThreadSlot fresh = { RvMemPoolCreate(block),
                               { RvMemPoolCreate(block), RvMemPoolCreate(block) },
                               nullptr };
        if (fresh.shading_pool)
            fresh.messages = RvMessageBank(
                unsigned(std::max(render_options->max_shader_messages, 1)), fresh.shading_pool);
        slot = fresh;
    }
    ~FreshSlot()
    {
        RtStats& stats = *threadStats();
        stats.sss_pool_bytes = std::max(stats.sss_pool_bytes, bytes());
        if (slot.messages)
            RvMessageBankDestroy(slot.messages);
        for (RtMemPool* pool : pools())
            if (pool)
                RvMemPoolDestroy(pool);
        slot = before;
    }
    FreshSlot(const FreshSlot&) = delete;
    FreshSlot& operator=(const FreshSlot&) = delete;

    bool isComplete() const
    {
        return slot.messages && slot.shading_pool && slot.pools[0] && slot.pools[1];
    }
    // Between points. The names of messages stand in the pool, so messages go first.
    void reset()
    {
        messageBankClear(slot.messages);
        for (RtMemPool* pool : pools())
            RvMemPoolReset(pool);
    }

private:
    std::array<RtMemPool*, 3> pools() const
    {
        return { slot.shading_pool, slot.pools[0], slot.pools[1] };
    }
    int64_t bytes() const
    {
        int64_t sum = 0;
        for (const RtMemPool* pool : pools())
            sum += pool ? int64_t(pool->bytes_total) : 0;
        return sum;
    }

    RtThreadSlot& slot;
    const RtThreadSlot before;
};

} // namespace

// ---- Light ----

namespace {

// The faces that take part, by the user data "sss_faceset": a BOOL for each face, or one for all.
class FaceSet {
public:
    FaceSet(const RtGObject* owner, const RtGObject* mesh_object) : mesh(*meshOf(mesh_object))
    {
        const RtUserParamEntry* const entry = findUserParam(owner->node, "sss_faceset", true);
        if (!entry || userElementType(*entry) != RV_TYPE_BOOLEAN)
            return;
        if (entry->category == RV_USERDEF_UNIFORM)
            flags = entry->value.ARRAY;
        else if (entry->category == RV_USERDEF_CONSTANT && entry->type == RV_TYPE_BOOLEAN)
            has_all = entry->value.BOOL;
    }
    // Faces beyond the array take part.
    bool has(uint32_t triangle) const
    {
        if (!flags)
            return has_all;
        const uint32_t i = uniformIndex(mesh, trianglePolygon(mesh, triangle));
        return i >= totalElements(flags) || elementsOf<uint8_t>(flags)[i] != 0;
    }

private:
    const RtPolyMesh& mesh;
    const RtArray* flags = nullptr;
    bool has_all = true;
};

// Lights the points of one cloud.
class PointLighting {
public:
    PointLighting(const SSSBuildOrder& build_order, const RtSSSPointCloud& the_cloud,
                  RtNode* seen_through)
        : order(build_order), cloud(the_cloud), instance(seen_through),
          shape(innermost(order.owner)), faces(order.owner, shape)
    {
    }
    // Of the point with that number, as a thread sees it.
    RtRGB irradianceAt(const RtSSSPoint& point, uint32_t index, int thread) const;

private:
    void fillContext(RtShaderGlobals* sg, const RtSSSPoint& point, uint32_t index,
                     int thread) const;

    const SSSBuildOrder& order;
    const RtSSSPointCloud& cloud;
    RtNode* const instance;
    RtGObject* const shape;
    const FaceSet faces;
};

} // namespace

// As if a ray had come down onto the outside of the surface. Like a camera ray's hit it has no
// depth; the number of the point is its pixel, so that bounces differ from point to point.
void PointLighting::fillContext(RtShaderGlobals* sg, const RtSSSPoint& point, uint32_t index,
                                int thread) const
{
    RtHit hit = {};
    hit.object = shape;
    hit.matrix = RvM4IsIdentity(&cloud.frame) ? nullptr : &cloud.frame;
    hit.instance = instance;
    hit.prim = point.face;
    hit.u = point.u;
    hit.v = point.v;
    RtRay ray = {};
    ray.type = RV_RAY_CAMERA;
    ray.tid = uint8_t(thread);
    ray.x = int(index);
    ray.time = cloud.time;
    ray.origin = point.position;
    fillHitContext(sg, ray, hit, 0);
    sg->parent = &nowhere_context;
    sg->state->pass = RV_PASS_SSS;
    sg->ray_dir = sg->normal * -1.0f;
    sg->facing_normal = sg->normal;
    sg->facing_geometric_normal =
        sg->geometric_normal * (dot(sg->geometric_normal, sg->normal) < 0 ? -1.0f : 1.0f);
}

RtRGB PointLighting::irradianceAt(const RtSSSPoint& point, uint32_t index, int thread) const
{
    if (!faces.has(point.face))
        return RV_RGB_BLACK;
    if (order.show_samples == show_sss_points)
        return RV_RGB_WHITE;
    RtShadingState state;
    RtShaderGlobals sg;
    sg.state = &state;
    fillContext(&sg, point, index, thread);
    RtRGB light = RvDirectDiffuse(&sg.normal, &sg);
    if (cloud.gi)
        light = light + RvIndirectDiffuse(&sg.normal, &sg);
    return order.show_samples == show_no_samples ? light * point.area : light;
}

// ---- Steps ----

namespace {

// Adds the time of a scope to a counter.
class StepTime {
public:
    explicit StepTime(int64_t RtStats::*counter) : time(counter), start(wallMilliseconds()) {}
    ~StepTime() { threadStats()->*time += uint32_t(wallMilliseconds() - start); }
    StepTime(const StepTime&) = delete;
    StepTime& operator=(const StepTime&) = delete;

private:
    int64_t RtStats::*const time;
    const uint32_t start;
};

class CloudBuild {
public:
    CloudBuild(const SSSBuildOrder& build_order, RtSSSPointCloud* empty_cloud)
        : order(build_order), cloud(*empty_cloud), name(RvNodeGetName(order.owner->node)),
          start(wallMilliseconds())
    {
    }
    // False when a stop was requested.
    bool run();

private:
    void scatter();
    void light();
    bool lightPiece(const PointLighting& lighting, int thread, int piece);
    void lightPoints(const PointLighting& lighting, int thread, uint32_t first, uint32_t last);
    void measureLit();
    void leaveOutBlack();
    void sort();
    void finish() const;
    void reportProgress();
    bool isStopped() const { return order.crew.isStopped(); }

    const SSSBuildOrder& order;
    RtSSSPointCloud& cloud;
    const char* const name;
    RtNode* instance = nullptr; // that the points are seen through
    const uint32_t start;
    // While points are lit.
    std::atomic<uint32_t> last_report = start;
    std::atomic<uint32_t> done_count = 0;
    std::atomic<bool> lacks_memory = false;
};

} // namespace

void CloudBuild::scatter()
{
    const StepTime timed(&RtStats::sss_distribution_ms);
    const ShapeParams& params = shapeParams(order.owner->node);
    const PlacedMesh mesh(innermost(order.owner), cloud.frame, cloud.time);
    const AreaDistribution distribution(mesh);
    const SSSPointBudget budget =
        pointBudget(distribution.total, params.sss_sample_spacing, params.sss_max_samples);
    if (budget.points == most_cloud_points && params.sss_max_samples > int(budget.points))
        RvMsgWarning("[sss] %s: limiting the point cloud to %d samples", name, int(budget.points));
    RvMsgDebug("[sss] generating ~%d sample points (spacing=%.2f, gi=%s) - %s", int(budget.points),
               budget.spacing, cloud.gi ? "on" : "off", name);
    ScatteredPoints scattered = scatterPoints(mesh, distribution, budget, order.crew);
    const size_t accepted = scattered.points.size(), all = accepted + scattered.rejected;
    RvMsgDebug("[sss] found %d samples, rejected %d - acceptance rate: %.2f%%", int(accepted),
               int(scattered.rejected), all ? double(accepted) * 100 / double(all) : 0);
    cloud.points = std::move(scattered.points);
    cloud.points.shrink_to_fit();
    cloud.generated_count = uint32_t(accepted);
}

// For the next point.
void CloudBuild::reportProgress()
{
    const uint32_t done = done_count++, now = wallMilliseconds();
    uint32_t before = last_report;
    if (uint32_t(now - before) < order.progress_interval ||
        !last_report.compare_exchange_strong(before, now)) // another thread reports
        return;
    RvMsgInfoMasked(RV_LOG_PROGRESS, "[sss] %3d%% of %d samples lit - %s",
                    int(uint64_t{ done } * 100 / cloud.points.size()), int(cloud.points.size()),
                    name);
}

void CloudBuild::lightPoints(const PointLighting& lighting, int thread, uint32_t first,
                             uint32_t last)
{
    FreshSlot slot(thread);
    if (!slot.isComplete())
        throw std::bad_alloc();
    static constexpr uint32_t seed = 613;
    PointRotation rotation(thread, seed);
    for (uint32_t i = first; i < last && !isStopped(); ++i) {
        rotation.turn(i);
        cloud.points[i].irradiance =
            packIrradiance(lighting.irradianceAt(cloud.points[i], i, thread));
        slot.reset();
        reportProgress();
    }
}

static constexpr uint32_t points_per_piece = 256;

bool CloudBuild::lightPiece(const PointLighting& lighting, int thread, int piece)
{
    const uint32_t first = uint32_t(piece) * points_per_piece;
    const uint32_t last = std::min(first + points_per_piece, uint32_t(cloud.points.size()));
    try {
        lightPoints(lighting, thread, first, last);
    } catch (const std::bad_alloc&) { // reported by the allocator
        lacks_memory = true;
    }
    return !isStopped() && !lacks_memory;
}

void CloudBuild::measureLit()
{
    double radius_sum = 0;
    for (const RtSSSPoint& point : cloud.points) {
        if (!point.irradiance)
            continue;
        ++cloud.lit_count;
        radius_sum += sqrt(double(point.area) / std::numbers::pi);
    }
    if (cloud.lit_count)
        cloud.average_radius = float(radius_sum / cloud.lit_count);
}

void CloudBuild::light()
{
    const StepTime timed(&RtStats::sss_irradiance_ms);
    const PointLighting lighting(order, cloud, instance);
    const size_t pieces = (cloud.points.size() + points_per_piece - 1) / points_per_piece;
    order.crew.lead(int(pieces),
                    [&](int thread, int piece) { return lightPiece(lighting, thread, piece); });
    if (lacks_memory)
        throw std::bad_alloc();
    measureLit();
}

// They scatter nothing, though they count where points themselves are shown.
void CloudBuild::leaveOutBlack()
{
    std::erase_if(cloud.points, [](const RtSSSPoint& point) { return !point.irradiance; });
    cloud.points.shrink_to_fit();
}

void CloudBuild::sort()
{
    const StepTime timed(&RtStats::sss_octree_ms);
    if (order.show_samples == show_no_samples)
        leaveOutBlack();
    buildOctree(&cloud.points, &cloud.nodes);
    cloud.nodes.shrink_to_fit();
}

void CloudBuild::finish() const
{
    RtStats& stats = *threadStats();
    stats.sss_generated += cloud.generated_count;
    stats.sss_stored.add(cloud.lit_count);
    RvMsgInfo("[sss] point cloud done - %d samples, %d octree nodes (%.2fmb) - %s - %s",
              int(cloud.generated_count), int(cloud.nodes.size()),
              double(cloud.bytes()) * 9.536743e-07, name,
              RvDurationString(uint32_t(wallMilliseconds() - start)));
}

bool CloudBuild::run()
{
    const RtNode* const node = order.owner->node;
    cloud.gi = shapeParams(node).sss_use_gi;
    cloud.time = referenceTime();
    const Placement placement = placementOf(order.owner, cloud.time);
    cloud.frame = placement.to_world;
    cloud.has_one_place =
        !placement.instance && !placement.moves && meshOf(innermost(order.owner))->nkeys == 1;
    instance = placement.instance;
    scatter();
    if (!isStopped())
        light();
    if (isStopped()) {
        RvMsgDebug("[sss] point cloud given up, because the render is to stop - %s", name);
        return false;
    }
    sort();
    finish();
    return true;
}

RtSSSPointCloud* buildPointCloud(const SSSBuildOrder& order)
{
    // A mesh has its triangles once rays may hit it.
    RvGObjectBuildAccel(order.owner->node, order.crew.thread);
    try {
        std::unique_ptr<RtSSSPointCloud> cloud(new RtSSSPointCloud);
        return CloudBuild(order, cloud.get()).run() ? cloud.release() : nullptr;
    } catch (const std::bad_alloc&) { // reported by the allocator
        return new RtSSSPointCloud;
    }
}

} // namespace rv
