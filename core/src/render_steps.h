// The steps of a render that the subsystems above scene preparation carry out. Each is one row
// here and one function in its subsystem; RvRender and RvEnd call them through this table and know
// nothing else of textures, buckets, outputs and the report.
#ifndef RV_RENDER_STEPS_H
#define RV_RENDER_STEPS_H

struct RtBucketRenderer;
struct RtRenderSession;

namespace rv {

struct RenderSteps {
    // Textures: gives the texture system its options before every render.
    void (*applyTextureOptions)();
    // Buckets: makes what renders the region bucket by bucket; null makes no image.
    RtBucketRenderer* (*createBucketRenderer)(RtRenderSession* session);
    void (*destroyBucketRenderer)(RtBucketRenderer* renderer);
    // Outputs: reads the output statements and opens their drivers; false when nothing can be
    // written.
    bool (*prepareOutputs)(RtRenderSession* session);
    // Buckets: launches the workers and waits for them; adds the elapsed time to the statistics.
    void (*runBuckets)(RtRenderSession* session);
    // Outputs: closes the drivers.
    void (*closeOutputs)(RtRenderSession* session);
    // Statistics: prints the report of the renders so far.
    void (*printStatistics)();
};

// The steps of this build.
extern const RenderSteps present_steps;

// What is in force. Replaced only while nothing renders.
inline const RenderSteps* render_steps = &present_steps;

} // namespace rv

#endif
