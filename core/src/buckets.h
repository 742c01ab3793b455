// The bucket renderer: divides the region into square buckets and renders them on worker threads.
#ifndef RV_BUCKETS_H
#define RV_BUCKETS_H

struct RtRenderSession;
struct RtBucketRenderer;

namespace rv {

// Null after an allocation error.
RtBucketRenderer* createBucketRenderer(RtRenderSession* session);
void destroyBucketRenderer(RtBucketRenderer* renderer);
// Launches the workers and waits for them, until all buckets are done or a stop is requested.
void runBuckets(RtRenderSession* session);

} // namespace rv

#endif
