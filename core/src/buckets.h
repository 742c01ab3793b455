// The bucket renderer: divides the region into square buckets and renders them on worker threads.
#ifndef RV_BUCKETS_H
#define RV_BUCKETS_H

#include "aovs/sample_store.h"
#include "bucket_order.h"
#include "image_geometry.h"
#include "rv_threads.h"

struct RtRenderSession;
struct RtBucketRenderer;

namespace rv {

// Null after an allocation error.
RtBucketRenderer* createBucketRenderer(RtRenderSession* session);
void destroyBucketRenderer(RtBucketRenderer* renderer);
// Launches the workers and waits for them, until all buckets are done or a stop is requested.
void runBuckets(RtRenderSession* session);

// Starts worker threads. Replaced only by tests of threads that cannot be created.
inline void* (*create_worker_thread)(unsigned (*function)(void*), void* data,
                                     int priority) = RvThreadCreate;

// ---- Geometry of buckets ----

// The part of a bucket within the region of an image; empty when its width or height is 0.
RtBucket clipBucket(RtBucket bucket, const ImageGeometry& image);

// Pixels between rendered ones, for the option "AA_samples".
int pixelStride(int AA_samples);
// The pixels to render for a bucket, `padding` around it, widened to multiples of the stride.
PixelWindow pixelWindow(const RtBucket& bucket, int padding, int AA_samples);

// Side of the tiles in which pixels are rendered with "packet_tracing", for the option
// "AA_sampling_dither".
int packetTile(int AA_sampling_dither);

// ---- Progress ----

// Rounded; 0 without pixels.
inline uint64_t raysPerPixel(uint64_t rays, uint64_t pixels)
{
    return pixels ? (rays + pixels / 2) / pixels : 0;
}

// Which percentages of an image to report. Every multiple of 5 comes at most once.
class Progress {
public:
    explicit Progress(int64_t pixels) : total(pixels) {}
    // That many more pixels are done: the percentage to report, or -1 for none.
    int add(int64_t pixels);

private:
    int64_t total;
    int64_t finished = 0;
    int last_percentage = -5;
};

} // namespace rv

#endif
