// delivery: finished buckets on their way from the samples through the filters to the drivers.
#include "aovs/output_store.h"

#include "aovs/sample_iterator.h"
#include "counters.h"
#include "filters/filters.h"
#include "nodes.h"
#include "render_session.h"
#include "system/critical_section.h"

namespace rv {

struct Bucket {
    int x, y, width, height;

    size_t pixels() const { return size_t(width) * size_t(height); }
};

static const RtDriverMethods& methodsOf(const RtOutputDriver& driver)
{
    return *static_cast<const RtDriverMethods*>(driver.node->entry->kind_methods);
}

void announceBucket(int x, int y, int width, int height, int thread)
{
    if (!output_store)
        return;
    for (const RtOutputDriver& driver : output_store->drivers)
        if (const auto prepare = methodsOf(driver).DriverPrepareBucket) {
            const CritSecLock lock(&driverData(driver.node)->lock);
            prepare(driver.node, x, y, width, height, thread);
        }
}

// ---- Filtering ----

static RtAOVSampleIterator samplesOf(const RtSampleStore& store, const RtAOVOutput& output)
{
    RtAOVSampleIterator samples = {};
    samples.store = &store;
    samples.radius = 0.5f; // raw samples: those of the pixel
    samples.slot = samples.first_slot = samples.sample_index = -1;
    if (output.aov < 0)
        return samples;
    const RtFilterData* const filter = filterData(output.filter);
    samples.aov = &output_store->aovs[size_t(output.aov)];
    samples.radius = filter ? filter->radius : 0;
    samples.radius_pixels = filter ? filter->padding : 0;
    return samples;
}

// Fills cleared pixels.
static void filterBucket(const RtSampleStore& store, const RtAOVOutput& output,
                         const Bucket& bucket, char* pixels)
{
    RtNode* const node = output.filter;
    const auto filterPixel =
        static_cast<const RtFilterMethods*>(node->entry->kind_methods)->FilterPixel;
    if (!filterPixel)
        return;
    RtAOVSampleIterator samples = samplesOf(store, output);
    const size_t pixel_bytes = typeSize(output.pixel_type);
    for (int y = bucket.y; y < bucket.y + bucket.height; ++y)
        for (int x = bucket.x; x < bucket.x + bucket.width; ++x, pixels += pixel_bytes) {
            samples.initPixel(x, y);
            filterPixel(node, node->params, &samples, pixels, output.type);
        }
}

// ---- Buffers ----

// Bytes of an output's pixels, with what aligns the next output.
static size_t bufferBytes(const RtAOVOutput& output, const Bucket& bucket)
{
    return (bucket.pixels() * typeSize(output.pixel_type) + 15) & ~size_t{ 15 };
}

static bool reserve(RtSampleStore& store, size_t bytes)
{
    PixelBuffers& buffers = store.buffers;
    if (bytes <= buffers.bytes)
        return true;
    RvFree_func(buffers.pixels);
    buffers.bytes = 0;
    buffers.pixels = static_cast<char*>(
        allocate(bytes, "core\\src\\aovs\\output_store", __LINE__, "deliverBucket"));
    if (!buffers.pixels)
        return false;
    buffers.bytes = bytes;
    int64_t& output_bytes = the_frame->stats[store.thread]->output_bytes;
    output_bytes = std::max(output_bytes, int64_t(bytes));
    return true;
}

// ---- Delivery ----

static void write(const RtOutputDriver& driver, RtOutputIterator* outputs,
                  RtAOVSampleIterator* samples, const Bucket& bucket)
{
    const CritSecLock lock(&driverData(driver.node)->lock);
    methodsOf(driver).DriverWriteBucket(driver.node, outputs, samples, bucket.x, bucket.y,
                                        bucket.width, bucket.height);
}

// Workers filter side by side, before they queue for the driver.
static void deliverPixels(RtSampleStore& store, const RtOutputDriver& driver, const Bucket& bucket)
{
    size_t bytes = 0;
    for (const int index : driver.outputs)
        bytes += bufferBytes(output_store->outputs[size_t(index)], bucket);
    if (!reserve(store, bytes))
        return;
    char* pixels = store.buffers.pixels;
    memset(pixels, 0, bytes);
    RtDriverOutput* const layers = store.buffers.layers;
    for (size_t i = 0; i < driver.layers.size(); ++i) {
        const RtAOVOutput& output = output_store->outputs[size_t(driver.outputs[i])];
        filterBucket(store, output, bucket, pixels);
        layers[i] = driver.layers[i];
        layers[i].bucket = pixels;
        pixels += bufferBytes(output, bucket);
    }
    RtOutputIterator outputs = { layers, int(driver.layers.size()), 0 };
    write(driver, &outputs, nullptr, bucket);
}

static bool isInterrupted()
{
    return the_frame->session && the_frame->session->abort_flag == RV_STOP_INTERRUPT;
}

static void deliverSamples(RtSampleStore& store, const RtOutputDriver& driver, const Bucket& bucket)
{
    if (isInterrupted())
        return;
    RtAOVSampleIterator samples =
        samplesOf(store, output_store->outputs[size_t(driver.outputs[0])]);
    samples.initPixel(bucket.x, bucket.y);
    RtOutputIterator outputs = { nullptr, 0, 0 };
    write(driver, &outputs, &samples, bucket);
}

void deliverBucket(RtSampleStore* samples, int x, int y, int width, int height)
{
    if (!output_store || !samples || width < 1 || height < 1)
        return;
    const Bucket bucket = { x, y, width, height };
    for (const RtOutputDriver& driver : output_store->drivers) {
        if (!methodsOf(driver).DriverWriteBucket)
            continue;
        if (output_store->outputs[size_t(driver.outputs[0])].aov < 0)
            deliverSamples(*samples, driver, bucket);
        else
            deliverPixels(*samples, driver, bucket);
    }
}

} // namespace rv
