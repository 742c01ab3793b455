// The render session of a universe: what governs which calls are legal when.
#ifndef RV_RENDER_SESSION_H
#define RV_RENDER_SESSION_H

#include "image_geometry.h"
#include "rv_threads.h"
#include "thread_slot.h"

#include <atomic>
#include <stdint.h>

struct RtScene;
struct RtSampleTables;
struct RtBucketRenderer;

// Stop requests; the first of a render wins.
enum RtStopRequest { RV_STOP_NONE = 0, RV_STOP_ABORT = 1, RV_STOP_INTERRUPT = 2 };

// The image geometry is that of the latest camera render, set up by setUpRegion.
struct RtRenderSession : rv::ImageGeometry {
    int region_width, region_height;
    std::atomic<bool> rendering; // from the start of a render until it returns
    std::atomic<int> abort_flag; // RtStopRequest; written under `lock`, polled without it
    RtScene* scene;
    int mode; // of the latest render, as it was asked for
    RtCritSec lock;
    int setup_count;                   // completed renders; 0 before the one-time setup
    RtBucketRenderer* bucket_renderer; // of a running camera render, or null
    uint32_t last_wall_ms;
    uint32_t last_user_ms;
    RtThreadSlot* thread_slots;    // worker_slot_count, or null before the first render
    RtSampleTables* sample_tables; // of the render, or null

    // Builds the sample tables of a render from the options; what the heap refuses stays empty.
    void initSamplers();
    void releaseSamplers();
};

namespace rv {

// Null when the heap is exhausted.
RtRenderSession* sessionCreate(RtScene* scene);
void sessionDestroy(RtRenderSession* session);

// A request to stop may arrive at any time, from any thread.
inline bool isStopPending(const RtRenderSession* session)
{
    return session->abort_flag != RV_STOP_NONE;
}

// What a stop request makes of a phase: the result of the render, after a warning unless the render
// is just interrupted.
int stopResult(const char* phase, int request);

// Repairs the options of a render, which the options node keeps, and hands the error colours to
// the internal shaders.
void checkOptions(const RtScene& scene, RtOptions& options);
// The thread count of a render on a machine with that many processors.
void checkThreads(RtOptions& options, int processors);

// The part of the image to render, from the options: RV_SUCCESS, or RV_ERROR_BAD_REGION with the
// session as it was.
int setUpRegion(RtRenderSession* session, const RtOptions& options);
// Says what is going to be rendered.
void reportImage(const RtRenderSession& session, const RtOptions& options);

// Makes pools and message banks of all worker slots; false when the heap is exhausted.
bool createThreadSlots(RtRenderSession* session, int max_shader_messages);

} // namespace rv

#endif
