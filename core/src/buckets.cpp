// buckets: the workers of a camera render. Each takes the next bucket, renders its pixels into a
// store of samples of its own, has them delivered to the drivers, and goes on until no bucket is
// left or a stop is requested.
//
// Shared while workers run: the order of buckets and the progress, each under its lock. Whatever
// else a worker writes to is its own or belongs to its thread slot, so that a camera sample takes
// no lock and nothing from the heap.
#include "buckets.h"

#include "aovs/output_store.h"
#include "cameras/camera.h"
#include "counters.h"
#include "duration.h"
#include "message_passing.h"
#include "msg.h"
#include "render_session.h"
#include "sampling.h"
#include "sss.h"
#include "system/clock.h"
#include "system/critical_section.h"
#include "system/machine.h"
#include "system/memory.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <new>
#include <optional>
#include <utility>

static const char* const module_path = "core\\src\\buckets";

namespace rv {

// ---- Geometry of buckets ----

struct Span {
    int64_t start, length;
};

static Span clipSpan(Span span, int min, int max)
{
    const int64_t end = span.start + span.length;
    if (span.start > max || end - 1 < min)
        return { span.start, 0 };
    const int64_t start = std::max<int64_t>(span.start, min);
    return { start, std::max<int64_t>(std::min<int64_t>(end, int64_t{ max } + 1) - start, 0) };
}

RtBucket clipBucket(RtBucket bucket, const ImageGeometry& image)
{
    const Span x = clipSpan({ bucket.x, bucket.width }, image.region_min_x, image.region_max_x);
    const Span y = clipSpan({ bucket.y, bucket.height }, image.region_min_y, image.region_max_y);
    bucket.x = int(x.start);
    bucket.y = int(y.start);
    bucket.width = int(x.length);
    bucket.height = int(y.length);
    return bucket;
}

int pixelStride(int AA_samples)
{
    static constexpr int least = -30; // of what a stride can express
    return AA_samples < 0 ? 1 << -std::max(AA_samples, least) : 1;
}

static Span windowSpan(Span bucket, int padding, int stride)
{
    const auto roundDown = [stride](int64_t x) { return x - ((x % stride) + stride) % stride; };
    const int64_t start = roundDown(bucket.start - padding);
    const int64_t end = roundDown(bucket.start + bucket.length + padding + stride - 1);
    return { start, std::min<int64_t>(end - start, INT_MAX) };
}

// Of a pixel. A table of more points is never made.
static int sampleCount(int AA_samples)
{
    static constexpr int most = 8192;
    static_assert(unsigned(most) * most == max_table_points);
    const int side = std::min(pixelSampleSide(AA_samples), most);
    return side * side;
}

PixelWindow pixelWindow(const RtBucket& bucket, int padding, int AA_samples)
{
    const int stride = pixelStride(AA_samples);
    const Span x = windowSpan({ bucket.x, bucket.width }, padding, stride);
    const Span y = windowSpan({ bucket.y, bucket.height }, padding, stride);
    return { .min_x = int(x.start),
             .min_y = int(y.start),
             .width = int(x.length),
             .height = int(y.length),
             .stride = stride,
             .samples = sampleCount(AA_samples) };
}

// The most pixels that the window of a bucket of that size can hold along an axis.
static int64_t mostWindowPixels(int bucket_size, int region, int padding, int stride)
{
    const int64_t size = std::min(bucket_size, region);
    return (size + 2 * int64_t{ padding } + 2 * (int64_t{ stride } - 1)) / stride;
}

int packetTile(int AA_sampling_dither)
{
    switch (AA_sampling_dither) {
    case 1:
    case 2: return 2;
    case 4: return 4;
    case 6: return 8;
    default: return 1;
    }
}

// ---- Progress ----

// Required: in single precision. A list that names buckets more than once goes beyond 100.
int Progress::add(int64_t pixels)
{
    static constexpr float most = 1e9f; // of what an integer can hold
    finished += pixels;
    const int percentage = static_cast<int>(
        std::min(static_cast<float>(finished) * 100 / static_cast<float>(total), most));
    if (percentage - last_percentage < 5)
        return -1;
    last_percentage = percentage / 5 * 5;
    return last_percentage;
}

} // namespace rv

// ---- The renderer ----

// What the workers of a render share. Where nothing else is said, fixed while they run.
struct RtBucketRenderer {
    const RtRenderSession* session;
    RtCritSec lock, progress_lock;
    std::optional<rv::BucketOrder> order; // guarded by `lock`
    std::optional<rv::Progress> progress; // guarded by `progress_lock`
    int padding;                          // of buckets, for the filters
    int64_t store_pixels;                 // most stored pixels of a bucket
    std::atomic<int> ready_workers;       // workers that have memory for the samples of a bucket
    std::atomic<int> failed_workers;      // and those that have not
};

namespace rv {

RtBucketRenderer* createBucketRenderer(RtRenderSession* session)
{
    void* const memory =
        RvMalloc_func(sizeof(RtBucketRenderer), module_path, __LINE__, "RvBucketSchedulerInit");
    if (!memory)
        return nullptr;
    RtBucketRenderer* const renderer = new (memory) RtBucketRenderer{};
    renderer->session = session;
    RvCritSecInit(&renderer->lock);
    RvCritSecInit(&renderer->progress_lock);
    if (renderer->lock.handle && renderer->progress_lock.handle)
        return renderer;
    destroyBucketRenderer(renderer);
    return nullptr;
}

void destroyBucketRenderer(RtBucketRenderer* renderer)
{
    if (!renderer)
        return;
    RvCritSecClose(&renderer->lock);
    RvCritSecClose(&renderer->progress_lock);
    renderer->~RtBucketRenderer();
    RvFree_func(renderer);
}

// The next bucket that has pixels; false when there is none left.
static bool takeBucket(RtBucketRenderer& renderer, RtBucket* bucket)
{
    do {
        const CritSecLock guard(&renderer.lock);
        if (!renderer.order->next(bucket))
            return false;
        *bucket = clipBucket(*bucket, *renderer.session);
    } while (bucket->width == 0 || bucket->height == 0);
    return true;
}

static void reportProgress(RtBucketRenderer& renderer, const RtBucket& bucket,
                           const RtRenderCounters& counters)
{
    const CritSecLock guard(&renderer.progress_lock);
    const int percentage = renderer.progress->add(int64_t{ bucket.width } * bucket.height);
    if (percentage < 0)
        return;
    const uint64_t rays = counters.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays;
    RvMsgInfoMasked(RV_LOG_PROGRESS, "%3d%% done - %llu rays/pixel", percentage,
                    static_cast<unsigned long long>(raysPerPixel(rays, counters.pixels)));
}

// ---- Workers ----

namespace {

// Makes the calling thread count for a worker slot.
class SlotScope {
public:
    explicit SlotScope(int slot) : before(std::exchange(stats_slot, slot)) {}
    ~SlotScope() { stats_slot = before; }
    SlotScope(const SlotScope&) = delete;
    SlotScope& operator=(const SlotScope&) = delete;

private:
    int before;
};

class Worker {
public:
    Worker(RtBucketRenderer& bucket_renderer, int slot);
    ~Worker() { destroySampleStore(samples); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void run();

private:
    // Pixels from the first up to, but without, the last.
    struct Rows {
        int64_t min_x, min_y, max_x, max_y;
    };
    void renderBucket(const RtBucket& bucket);
    void renderRows(const Rows& rows, int stride, int sample_count);
    void renderTiles(const Rows& rows, int stride, int sample_count);
    void renderPixel(int x, int y, int sample_count);
    void renderSample(const SampleRequest& request, RtSampleSink* sink);
    void releaseScratch();
    void finishBucket();
    bool isStopped() const { return isStopPending(renderer.session); }

    RtBucketRenderer& renderer;
    const SlotScope scope;
    const int thread;
    const RtThreadSlot& slot;
    RtStats& stats;
    RtSampleStore* const samples;
    const bool measures_time;
};

} // namespace

Worker::Worker(RtBucketRenderer& bucket_renderer, int slot_index)
    : renderer(bucket_renderer), scope(slot_index), thread(slot_index),
      slot(renderer.session->thread_slots[slot_index]), stats(*threadStats()),
      samples(createSampleStore(renderer.store_pixels, sampleCount(render_options->AA_samples),
                                slot_index)),
      measures_time(wantsProcessorTime())
{
}

void Worker::run()
{
    ++(samples ? renderer.ready_workers : renderer.failed_workers);
    if (!samples)
        return;
    RtBucket bucket = {};
    bucket.thread = thread;
    while (takeBucket(renderer, &bucket)) {
        announceBucket(bucket.x, bucket.y, bucket.width, bucket.height, thread);
        renderBucket(bucket);
        if (!isStopped() || render_options->flush_buckets_on_halt)
            deliverBucket(samples, bucket.x, bucket.y, bucket.width, bucket.height);
        stats.peak_bytes = std::max(stats.peak_bytes, int64_t(residentMemory()));
        reportProgress(renderer, bucket, stats);
        finishBucket();
        if (isStopped())
            return;
    }
}

void Worker::renderBucket(const RtBucket& bucket)
{
    const PixelWindow window = pixelWindow(bucket, renderer.padding, render_options->AA_samples);
    coverWindow(samples, window);
    const Rows rows = { window.min_x, window.min_y, int64_t{ window.min_x } + window.width,
                        int64_t{ window.min_y } + window.height };
    if (render_options->packet_tracing)
        renderTiles(rows, window.stride, window.samples);
    else
        renderRows(rows, window.stride, window.samples);
}

void Worker::renderRows(const Rows& rows, int stride, int sample_count)
{
    for (int64_t y = rows.min_y; y < rows.max_y && !isStopped(); y += stride)
        for (int64_t x = rows.min_x; x < rows.max_x; x += stride)
            renderPixel(int(x), int(y), sample_count);
}

// Calls visit(part) for squares of that size, row by row.
template <class Rows, class Visit>
static void forEachSquare(const Rows& rows, int64_t size, Visit visit)
{
    for (int64_t y = rows.min_y; y < rows.max_y; y += size)
        for (int64_t x = rows.min_x; x < rows.max_x; x += size)
            visit(Rows{ x, y, std::min(x + size, rows.max_x), std::min(y + size, rows.max_y) });
}

// Tile by tile, in blocks of 16 by 16 tiles.
void Worker::renderTiles(const Rows& rows, int stride, int sample_count)
{
    const int64_t tile = int64_t{ stride } * packetTile(render_options->AA_sampling_dither);
    forEachSquare(rows, 16 * tile, [&](const Rows& block) {
        forEachSquare(block, tile,
                      [&](const Rows& pixels) { renderRows(pixels, stride, sample_count); });
    });
}

void Worker::renderPixel(int x, int y, int sample_count)
{
    RvSamplingBeginPixel(thread, x, y, sample_count);
    for (int i = 0; i < sample_count; ++i) {
        RtSampleSink sink = { .store = samples, .x = x, .y = y, .sample_index = i, .depth = 0 };
        renderSample({ x, y, i, sample_count, thread, &sink }, &sink);
    }
    ++stats.pixels;
}

void Worker::renderSample(const SampleRequest& request, RtSampleSink* sink)
{
    const uint64_t start = measures_time ? threadProcessorNanoseconds() : 0;
    const uint64_t& ray_count = stats.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays;
    const uint64_t rays_before = ray_count;
    RtRay ray;
    RvCameraMakeRay(render_options->camera, request, &ray);
    if (ray.weight > 0) {
        RtScrSample sample;
        RvTrace(&ray, &sample);
    }
    const uint64_t elapsed = measures_time ? threadProcessorNanoseconds() - start : 0;
    if (lacksPointCloud(thread)) // without measures a sample does not count
        return releaseScratch();
    sink->depth = 0; // where the tracer may have left it deeper
    recordMeasures(sink, { .offset = { ray.offset_u, ray.offset_v },
                           .microseconds = static_cast<float>(elapsed) * 1e-3f,
                           .rays = static_cast<float>(ray_count - rays_before) });
    ++stats.samples;
    releaseScratch();
}

// The names of messages stand in the shading pool, so messages go first.
void Worker::releaseScratch()
{
    messageBankClear(slot.messages);
    for (RtMemPool* pool : { slot.shading_pool, slot.pools[0], slot.pools[1] })
        RvMemPoolReset(pool);
}

void Worker::finishBucket()
{
    releaseScratch();
    int64_t bytes = 0;
    for (const RtMemPool* pool : { slot.shading_pool, slot.pools[0], slot.pools[1] })
        bytes += int64_t(pool->bytes_total);
    stats.pool_bytes = std::max(stats.pool_bytes, bytes);
}

// ---- Launch ----

struct WorkerOrders {
    RtBucketRenderer* renderer;
    int slot;
};

static unsigned workerMain(void* data)
{
    const auto* const orders = static_cast<const WorkerOrders*>(data);
    Worker(*orders->renderer, orders->slot).run();
    return 0;
}

// A thread that cannot be created was reported, and the others do its work.
static void runWorkers(RtBucketRenderer* renderer, int count)
{
    WorkerOrders orders[worker_slot_count];
    void* threads[worker_slot_count];
    for (int i = 0; i < count; ++i) {
        orders[i] = { renderer, i };
        threads[i] = create_worker_thread(workerMain, &orders[i], render_options->thread_priority);
    }
    for (int i = 0; i < count; ++i) {
        RvThreadWait(threads[i]);
        RvThreadClose(threads[i]);
    }
}

static void startSchedule(RtBucketRenderer* renderer, int bucket_size)
{
    const RtRenderSession& session = *renderer->session;
    const RtOptions& options = *render_options;
    const int stride = pixelStride(options.AA_samples);
    renderer->padding = output_store ? output_store->padding : 0;
    const int64_t columns =
        mostWindowPixels(bucket_size, session.region_width, renderer->padding, stride);
    const int64_t rows =
        mostWindowPixels(bucket_size, session.region_height, renderer->padding, stride);
    if (__builtin_mul_overflow(columns, rows, &renderer->store_pixels))
        renderer->store_pixels = INT64_MAX; // which no store can hold
    const BucketGrid grid = { session.region_min_x, session.region_min_y, bucket_size,
                              gridCount(session.region_width, bucket_size),
                              gridCount(session.region_height, bucket_size) };
    renderer->order.emplace(options.bucket_scanning, grid, options.buckets);
    renderer->progress.emplace(int64_t{ session.region_width } * session.region_height);
}

void runBuckets(RtRenderSession* session)
{
    if (isStopPending(session)) {
        stopResult("failed to launch bucket workers", session->abort_flag);
        return;
    }
    RtBucketRenderer* const renderer = session->bucket_renderer;
    if (!renderer)
        return;
    const int bucket_size = std::max(render_options->bucket_size, 1);
    const int threads = std::min(render_options->threads, worker_slot_count);
    RvMsgInfo("starting %d bucket workers of size %dx%d ...", threads, bucket_size, bucket_size);
    RvMsgTab(1);
    const uint32_t start = wallMilliseconds();
    startSchedule(renderer, bucket_size);
    if (threads < 2)
        Worker(*renderer, 0).run();
    else
        runWorkers(renderer, threads);
    if (renderer->failed_workers && !renderer->ready_workers)
        RvMsgError("no bucket was rendered: its samples do not fit into memory; use smaller "
                   "buckets, narrower filters or fewer AA samples");
    renderer->order.reset();
    hostStats()->bucket_ms += uint32_t(wallMilliseconds() - start);
    if (isStopPending(session))
        stopResult("render terminating early", session->abort_flag);
    RvMsgTab(-1);
    RvMsgInfo("bucket workers done in %s", RvDurationString(uint32_t(hostStats()->bucket_ms)));
}

} // namespace rv
