// The render session of a universe: what governs which calls are legal when.
#ifndef RV_RENDER_SESSION_H
#define RV_RENDER_SESSION_H

#include "rv_threads.h"
#include "thread_slot.h"

#include <atomic>
#include <stdint.h>

struct RtScene;
struct RtSampleTables;
struct RtBucketRenderer;

// Stop requests; the first of a render wins.
enum RtStopRequest { RV_STOP_NONE = 0, RV_STOP_ABORT = 1, RV_STOP_INTERRUPT = 2 };

struct RtRenderSession {
    int region_min_x, region_min_y, region_max_x, region_max_y; // pixels to render, inclusive
    int image_width, image_height;                              // of the whole image
    int region_width, region_height;
    float inv_width, inv_height; // 1 / image_width, 1 / image_height
    float frame_aspect;          // image_height / image_width
    std::atomic<bool> rendering; // from the start of a render until it returns
    std::atomic<int> abort_flag; // RtStopRequest; written under `lock`, polled without it
    RtScene* scene;
    int mode; // of the latest render
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

// Makes pools and message banks of all worker slots; false when the heap is exhausted.
bool createThreadSlots(RtRenderSession* session, int max_shader_messages);

} // namespace rv

#endif
