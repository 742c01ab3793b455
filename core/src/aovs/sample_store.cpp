// sample_store: the samples of a bucket, and what the renderer itself records of every camera
// sample.
#include "aovs/sample_store.h"

#include "aovs/sample_records.h"
#include "counters.h"
#include "maths.h"
#include "msg.h"
#include "objects/gobject.h"
#include "options.h"
#include "sampling.h"

#include <algorithm>
#include <math.h>
#include <new>

static const char* const module_path = "core\\src\\aovs\\output_store";

namespace rv {

// ---- Deep samples ----

static constexpr uint32_t first_deep_capacity = 1024;

DeepSamples::DeepSamples(uint32_t presence_words, uint32_t value_bytes, int thread)
    : presence_words_(presence_words),
      record_bytes_(uint32_t(sizeof(Record)) + presence_words * 4 + value_bytes), thread_(thread)
{
}

DeepSamples::~DeepSamples()
{
    RvFree_func(table_);
    RvFree_func(records_);
}

void DeepSamples::clear()
{
    if (count_)
        memset(table_, 0, size_t(capacity_) * 2 * sizeof *table_);
    count_ = 0;
    exhausted_ = false;
}

// Where the record stands in the table, or the unused place where its search ends. The table is at
// most half full, so that every search ends.
uint32_t* DeepSamples::placeOf(uint32_t slot, uint32_t depth) const
{
    const uint32_t mask = capacity_ * 2 - 1;
    uint32_t place = mix({ slot, depth, pixel_hash_key }).c & mask;
    for (; table_[place]; place = (place + 1) & mask) {
        const Record* const record = at(table_[place] - 1);
        if (record->slot == slot && record->depth == depth)
            break;
    }
    return &table_[place];
}

const DeepSamples::Record* DeepSamples::find(uint32_t slot, uint32_t depth) const
{
    const uint32_t index = count_ ? *placeOf(slot, depth) : 0;
    return index ? at(index - 1) : nullptr;
}

// Doubles the room. False, with everything as it was, when the heap refuses.
bool DeepSamples::grow()
{
    if (exhausted_)
        return false;
    const size_t capacity = capacity_ ? size_t(capacity_) * 2 : first_deep_capacity;
    const size_t table_bytes = capacity * 2 * sizeof *table_, bytes = capacity * record_bytes_;
    auto* const records = static_cast<char*>(allocate(bytes, module_path, __LINE__, "growDeep"));
    auto* const table =
        records
            ? static_cast<uint32_t*>(allocateTable(table_bytes, module_path, __LINE__, "growDeep"))
            : nullptr;
    if (!table) {
        RvFree_func(records);
        exhausted_ = true;
        return false;
    }
    if (count_)
        memcpy(records, records_, size_t(count_) * record_bytes_);
    RvFree_func(records_);
    RvFree_func(table_);
    the_frame->stats[thread_]->sample_bytes +=
        int64_t((capacity - capacity_) * (record_bytes_ + 2 * sizeof *table_));
    records_ = records;
    table_ = table;
    capacity_ = uint32_t(capacity);
    for (uint32_t i = 0; i < count_; ++i)
        *placeOf(at(i)->slot, at(i)->depth) = i + 1;
    return true;
}

DeepSamples::Record* DeepSamples::add(uint32_t slot, uint32_t depth)
{
    if (count_ == capacity_ && !grow())
        return nullptr;
    Record* const record = at(count_);
    *record = { slot, depth };
    std::fill_n(record->presence(), presence_words_, 0);
    *placeOf(slot, depth) = ++count_;
    return record;
}

DeepSamples::Record* DeepSamples::findOrAdd(uint32_t slot, uint32_t depth)
{
    uint32_t last = depth; // the deepest one that exists
    for (; last > 0; --last)
        if (const Record* const record = find(slot, last)) {
            if (last == depth)
                return const_cast<Record*>(record);
            break;
        }
    Record* record = nullptr;
    while (last < depth && (record = add(slot, last + 1)))
        ++last;
    return record;
}

// ---- The store ----

void storeFirst(RtSampleStore* store, int slot, const RtAOV& aov, const void* value, size_t bytes)
{
    memcpy(store->valuesOf(slot) + aov.offset, value, bytes);
    setPresent(store->presenceOf(slot), aov);
}

bool storeDeep(RtSampleStore* store, int slot, int depth, const RtAOV& aov, const void* value,
               size_t bytes)
{
    DeepSamples::Record* const record = store->deep.findOrAdd(uint32_t(slot), uint32_t(depth));
    if (!record)
        return false;
    memcpy(store->deep.values(record) + aov.deep_offset, value, bytes);
    setPresent(record->presence(), aov);
    return true;
}

RtSampleStore* createSampleStore(int64_t pixels, int samples, int thread)
{
    if (!output_store || pixels < 0 || samples < 0 || thread < 0 || thread >= worker_slot_count)
        return nullptr;
    // Both are at most 2^31 where the product counts, and refused by `allocate` above that.
    const uint64_t slots =
        std::min<uint64_t>(uint64_t(pixels), uint64_t{ INT32_MAX } + 1) * uint64_t(samples);
    void* const memory =
        RvMalloc_func(sizeof(RtSampleStore), module_path, __LINE__, "createSampleStore");
    if (!memory)
        return nullptr;
    auto* const store = new (memory) RtSampleStore(*output_store, thread);
    if (store->allocate(slots))
        return store;
    destroySampleStore(store);
    return nullptr;
}

void destroySampleStore(RtSampleStore* store)
{
    if (!store)
        return;
    store->~RtSampleStore();
    RvFree_func(store);
}

// Stored pixels along a side of a window.
static uint64_t storedAlong(int size, int stride)
{
    return (uint64_t(size) + uint64_t(stride) - 1) / uint64_t(stride);
}

static bool fits(const RtSampleStore& store, const PixelWindow& window)
{
    if (window.width < 1 || window.height < 1 || window.stride < 1 || window.samples < 1)
        return false;
    const uint64_t pixels =
        storedAlong(window.width, window.stride) * storedAlong(window.height, window.stride);
    return pixels <= store.slots && pixels * uint64_t(window.samples) <= store.slots;
}

void coverWindow(RtSampleStore* store, const PixelWindow& window)
{
    if (!store)
        return;
    store->deep.clear();
    store->value_depths_slot = -1;
    store->window = {};
    store->window.stride = 1;
    if (!fits(*store, window))
        return;
    store->window = window;
    store->columns = uint32_t(storedAlong(window.width, window.stride));
    const size_t rows = storedAlong(window.height, window.stride);
    memset(store->presence, 0,
           rows * store->columns * size_t(window.samples) * store->presence_words *
               sizeof *store->presence);
}

// ---- What the renderer fills ----

// Where a variable of the sample is kept; slot is -1 when nothing is to be stored.
struct SamplePlace {
    RtSampleStore* store;
    int slot;
    int depth;
};

static SamplePlace placeOf(const RtSampleSink* sink, int depth)
{
    if (!sink || !sink->store || !output_store || depth < 0)
        return { nullptr, -1, 0 };
    RtSampleStore* const store = sink->store;
    return { store, store->slotOf(sink->x, sink->y, sink->sample_index), depth };
}

static void put(const SamplePlace& place, const RtAOV& aov, const void* value, size_t bytes)
{
    if (place.slot < 0)
        return;
    if (place.depth < 1)
        storeFirst(place.store, place.slot, aov, value, bytes);
    else if (aov.deep)
        storeDeep(place.store, place.slot, place.depth, aov, value, bytes);
}

template <class T> static void put(const SamplePlace& place, RtBuiltInAOV which, const T& value)
{
    if (const RtAOV* const aov = builtInAOV(which))
        put(place, *aov, &value, sizeof value);
}

// A value in each of the types that a statement may declare for it.
struct AnyType {
    float number;
    RtRGBA color; // begins with the shorter ones
};

static AnyType replicated(float value) { return { value, { value, value, value, 1 } }; }

// Declared types that have no number take nothing.
static void putAny(const SamplePlace& place, RtBuiltInAOV which, const AnyType& value)
{
    const RtAOV* const aov = builtInAOV(which);
    if (!aov)
        return;
    switch (aov->type) {
    case RV_TYPE_FLOAT: return put(place, *aov, &value.number, sizeof value.number);
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_RGBA:
    case RV_TYPE_POINT2: return put(place, *aov, &value.color, typeSize(aov->type));
    default: return;
    }
}

static bool isFinite(const RtRGB& c) { return isfinite(c.r) && isfinite(c.g) && isfinite(c.b); }

// Replaces what no image can hold by the error colour.
static void repair(const RtSampleSink& sink, RtRGB& c, float& alpha)
{
    const RtRGB error = render_options->error_color_bad_pixel;
    if (!isFinite(c) || !isfinite(alpha)) {
        RvMsgWarningMasked(
            RV_LOG_NAN, "ignoring infinity/NaN image sample in pixel (%d,%d), rgba=(%f,%f,%f,%f)",
            sink.x, sink.y, double(c.r), double(c.g), double(c.b), double(alpha));
        c = error;
        alpha = 1;
    }
    if (alpha < 0 || alpha > 1) {
        RvMsgWarning("out-of-range sample alpha in pixel (%d,%d), alpha=%f", sink.x, sink.y,
                     double(alpha));
        c = error;
        alpha = 1;
    }
    const float most = render_options->AA_sample_clamp;
    c = { std::min(c.r, most), std::min(c.g, most), std::min(c.b, most) };
}

static void putImage(const SamplePlace& place, const RtRGB& c, float alpha)
{
    const float mean = (c.r + c.g + c.b) / 3;
    putAny(place, RV_AOV_RGB, { mean, { c.r, c.g, c.b, 1 } });
    putAny(place, RV_AOV_RGBA, { mean, { c.r, c.g, c.b, alpha } });
    putAny(place, RV_AOV_A, replicated(alpha));
}

static int idOf(const RtNode* object)
{
    const bool is_shape = object->entry->type == RV_NODE_SHAPE && object->entry->struct_size;
    return is_shape ? shapeParams(object).id : 0;
}

static void putHit(const SamplePlace& place, const RtSampleOutputs& outputs)
{
    put(place, RV_AOV_ID, idOf(outputs.object));
    put(place, RV_AOV_OBJECT, outputs.object);
    put(place, RV_AOV_SHADER, outputs.shader);
    put(place, RV_AOV_P, outputs.point);
    put(place, RV_AOV_N, outputs.normal);
}

void recordSample(RtSampleSink* sink, int depth, const RtSampleOutputs& outputs)
{
    const SamplePlace place = placeOf(sink, depth);
    if (!place.store)
        return;
    RtRGB color = outputs.color;
    float alpha = outputs.alpha;
    repair(*sink, color, alpha);
    putImage(place, color, alpha);
    put(place, RV_AOV_Z, outputs.z);
    put(place, RV_AOV_OPACITY, outputs.opacity);
    if (outputs.object)
        putHit(place, outputs);
}

void recordMeasures(RtSampleSink* sink, const SampleMeasures& measures)
{
    const SamplePlace place = placeOf(sink, 0);
    if (place.slot < 0)
        return;
    // All of it: the iterator reads the first two numbers whatever type is declared.
    const RtAOV& offset = output_store->aovs[0];
    const RtRGBA numbers = { measures.offset.x, measures.offset.y, 0, 1 };
    put(place, offset, &numbers, std::max<size_t>(typeSize(offset.type), sizeof(RtPoint2)));
    putAny(place, RV_AOV_CPUTIME, replicated(measures.microseconds));
    putAny(place, RV_AOV_RAYCOUNT, replicated(measures.rays));
}

bool wantsProcessorTime() { return output_store && builtInAOV(RV_AOV_CPUTIME); }

} // namespace rv

RtSampleStore::RtSampleStore(const RtAOVOutputStore& outputs, int thread_index)
    : presence_words(rv::presenceWords(outputs)), sample_bytes(outputs.sample_bytes),
      deep(presence_words, outputs.deep_sample_bytes, thread_index), thread(thread_index)
{
}

RtSampleStore::~RtSampleStore()
{
    RvFree_func(presence);
    RvFree_func(values);
    RvFree_func(value_depths);
    RvFree_func(buffers.pixels);
    RvFree_func(buffers.layers);
}

static uint32_t mostLayers(const RtAOVOutputStore& store)
{
    size_t most = 1;
    for (const RtOutputDriver& driver : store.drivers)
        most = std::max(most, driver.layers.size());
    return uint32_t(most);
}

bool RtSampleStore::allocate(uint64_t slot_count)
{
    const RtAOVOutputStore& outputs = *rv::output_store;
    const auto make = [](uint64_t bytes) {
        return rv::allocate(std::max<uint64_t>(bytes, 1), module_path, __LINE__, "RtSampleStore");
    };
    if (slot_count > INT32_MAX) {
        rv::reportAllocationFailure(slot_count * sample_bytes, module_path, __LINE__,
                                    "RtSampleStore");
        return false;
    }
    const uint64_t presence_bytes = slot_count * presence_words * sizeof *presence;
    const uint64_t value_bytes = slot_count * sample_bytes;
    const uint64_t depth_bytes = outputs.aovs.size() * sizeof *value_depths;
    const uint64_t layer_bytes = mostLayers(outputs) * sizeof *buffers.layers;
    presence = static_cast<uint32_t*>(make(presence_bytes));
    values = static_cast<char*>(presence ? make(value_bytes) : nullptr);
    value_depths = static_cast<int*>(values ? make(depth_bytes) : nullptr);
    buffers.layers = static_cast<RtDriverOutput*>(value_depths ? make(layer_bytes) : nullptr);
    if (!buffers.layers)
        return false;
    slots = uint32_t(slot_count);
    rv::the_frame->stats[thread]->sample_bytes += int64_t(presence_bytes + value_bytes);
    return true;
}
