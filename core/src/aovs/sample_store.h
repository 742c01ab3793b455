// The samples of the bucket that a worker renders. Owned by that worker: nothing here takes a lock
// and, once made, nothing allocates from the heap, except that deep samples may outgrow their
// store.
#ifndef RV_SAMPLE_STORE_H
#define RV_SAMPLE_STORE_H

#include "sample_sink.h"

struct RtSampleStore;

namespace rv {

// The pixels of a bucket with the border that filters need.
struct PixelWindow {
    int min_x, min_y;
    int width, height;
    int stride;  // pixels between rendered ones, along both axes; above 1 for coarse previews
    int samples; // of a rendered pixel
};

// For windows of up to that many stored pixels, with that many samples each, of the variables of
// the present output store. Null after an allocation error, also when there are more samples than
// a store can hold.
RtSampleStore* createSampleStore(int64_t pixels, int samples, int thread);
void destroySampleStore(RtSampleStore* store);

// Forgets all samples and covers that window from now on.
void coverWindow(RtSampleStore* store, const PixelWindow& window);

// What a camera sample shows at a depth: 0 fills the sample record, every other depth a deep one,
// of deep variables only. Repairs colours and alphas that no image can hold.
void recordSample(RtSampleSink* sink, int depth, const RtSampleOutputs& outputs);

// What the worker measured of a sample. `offset` is its place within the pixel.
struct SampleMeasures {
    RtPoint2 offset;
    float microseconds; // of processor time
    float rays;
};
void recordMeasures(RtSampleSink* sink, const SampleMeasures& measures);
// False when nobody asked for the processor time of samples.
bool wantsProcessorTime();

} // namespace rv

#endif
