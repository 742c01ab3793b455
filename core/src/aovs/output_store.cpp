// output_store: prepares the outputs of a camera render and closes them.
#include "aovs/output_store.h"

#include "aovs/output_statements.h"
#include "array.h"
#include "filters/filters.h"
#include "hash.h"
#include "image_geometry.h"
#include "maths.h"
#include "nodes.h"
#include "options.h"
#include "report_once.h"
#include "rv_msg.h"
#include "strpool.h"
#include "system/critical_section.h"

#include <algorithm>
#include <limits.h>
#include <new>
#include <string.h>

namespace rv {

// ---- Variables by name ----

const RtAOV* findAOV(const RtAOVOutputStore& store, const char* name)
{
    for (const RtAOV& aov : store.aovs)
        if (aov.name == name) // interned
            return &aov;
    const uint32_t hash = stringHash(name);
    for (const RtAOV& aov : store.aovs)
        if (aov.hash == hash && !strcmp(aov.name, name))
            return &aov;
    return nullptr;
}

const RtAOV* findAOV(const char* name)
{
    return output_store && name ? findAOV(*output_store, name) : nullptr;
}

void warnAboutType(const char* aov, int expected, int found)
{
    const auto text = [](int type) {
        const char* const name = RvParamGetTypeName(type);
        return name ? name : "";
    };
    const char* const expected_name = text(expected);
    RvMsgWarning("[aov] type mismatch for \"%s\" (expected %s, found %s)", aov, expected_name,
                 text(found));
}

const RtAOV* namedAOV(const char* name, int type)
{
    const RtAOV* const aov = findAOV(name);
    if (!aov || typeAccepts(aov->type, type))
        return aov;
    warnAboutType(name, type, aov->type);
    return nullptr;
}

// ---- Life of the store ----

static RtAOVOutputStore* createStore()
{
    void* const memory = RvMalloc_func(sizeof(RtAOVOutputStore), "core\\src\\aovs\\output_store",
                                       __LINE__, "RtAOVOutputStore");
    return memory ? new (memory) RtAOVOutputStore() : nullptr;
}

static void destroyStore(const RtAOVOutputStore* store)
{
    if (!store)
        return;
    for (const RtAOV& aov : store->aovs)
        releaseString(aov.name);
    store->~RtAOVOutputStore();
    RvFree_func(const_cast<RtAOVOutputStore*>(store));
}

// ---- Reading the statements ----

static bool hasStatements(const RtArray* outputs)
{
    return outputs && outputs->type == RV_TYPE_STRING && outputs->nelements && outputs->nkeys;
}

static bool parseOutputs(RtAOVOutputStore& store, const RtArray* outputs)
{
    if (!hasStatements(outputs)) {
        RvMsgWarning("[aov] no output statements found");
        return false;
    }
    registerAOV(store, "AA_offset", RV_TYPE_POINT2); // tells the filters where the samples are
    const auto* const statements = static_cast<const char* const*>(outputs->data);
    for (size_t i = 0; i < size_t(outputs->nelements) * outputs->nkeys; ++i)
        if (statements[i])
            parseStatement(store, statements[i]);
    if (store.outputs.empty())
        RvMsgError("[aov] no valid outputs - can't continue");
    return !store.outputs.empty();
}

static RtOutputDriver& driverOf(RtAOVOutputStore& store, RtNode* node)
{
    for (RtOutputDriver& driver : store.drivers)
        if (driver.node == node)
            return driver;
    return store.drivers.emplace_back(RtOutputDriver{ .node = node, .outputs = {}, .layers = {} });
}

static bool groupByDriver(RtAOVOutputStore& store)
{
    for (size_t i = 0; i < store.outputs.size(); ++i) {
        const RtAOVOutput& output = store.outputs[i];
        RtOutputDriver& driver = driverOf(store, output.driver);
        driver.outputs.push_back(int(i));
        if (output.aov >= 0)
            driver.layers.push_back({ .name = store.aovs[size_t(output.aov)].name,
                                      .type = output.pixel_type,
                                      .bucket = nullptr });
    }
    for (const RtOutputDriver& driver : store.drivers)
        if (driver.outputs.size() > 1 && !driverData(driver.node)->multiple_outputs) {
            RvMsgError("[aov] more than one output statement was associated with single layer "
                       "driver: %s",
                       RvNodeGetName(driver.node));
            return false;
        }
    return true;
}

// ---- Sizes ----

static int paddingOf(const RtAOVOutputStore& store, int AA_samples)
{
    if (AA_samples < 0)
        return 0;
    float width = 1;
    for (const RtAOVOutput& output : store.outputs)
        if (const RtFilterData* const data = filterData(output.filter))
            width = std::max(width, data->width);
    return filterPadding(width / 2);
}

// Pixels between those that share the offsets of their samples.
static int ditherStep(int AA_sampling_dither)
{
    switch (AA_sampling_dither) {
    case 1:
    case 2: return 2;
    case 4: return 4;
    case 6: return 8;
    default: return 1;
    }
}

// Makes the bucket and its border a whole number of packets, if that is near.
static int alignedBucketSize(int bucket_size, int padding, int step)
{
    const int64_t packet = 16 * step, border = 2 * int64_t{ padding };
    const int64_t size = bucket_size + border;
    const int64_t rest = size % packet;
    if (!rest)
        return bucket_size;
    RvMsgInfo("optimizing bucket size of %dx%d (filter pad=%d) to align to %dx%d packet "
              "boundaries (%d dither step)",
              bucket_size, bucket_size, padding, 16, 16, step);
    const int64_t lower = size - rest, upper = lower + packet;
    if (size - lower < upper - size && border < lower)
        return int(lower - border);
    return border < upper ? int(std::min<int64_t>(upper - border, INT_MAX)) : bucket_size;
}

static void repairBucketSize(RtOptions& options, int padding)
{
    options.bucket_size = std::max(options.bucket_size, 16);
    if (options.packet_tracing)
        options.bucket_size =
            alignedBucketSize(options.bucket_size, padding, ditherStep(options.AA_sampling_dither));
}

// Bytes of a value in a sample record.
static uint32_t recordSize(int type) { return (typeSize(type) + 3) & ~3u; }

static void layOutSamples(RtAOVOutputStore& store)
{
    for (RtAOV& aov : store.aovs) {
        const uint32_t size = aov.index == 0
                                  ? std::max<uint32_t>(recordSize(aov.type), sizeof(RtPoint2))
                                  : recordSize(aov.type);
        aov.offset = store.sample_bytes;
        store.sample_bytes += size;
        if (aov.deep) {
            aov.deep_offset = store.deep_sample_bytes;
            store.deep_sample_bytes += size;
            ++store.deep_count;
        }
    }
}

// ---- Built-in variables ----

static void bindBuiltIns(RtAOVOutputStore& store)
{
    // In the order of RtBuiltInAOV. Those without a type are filled as whatever is declared.
    static const struct {
        const char* name;
        int type;
    } table[RV_AOV_BUILT_IN_COUNT] = {
        { "RGB", RV_TYPE_NONE },      { "RGBA", RV_TYPE_NONE },      { "A", RV_TYPE_NONE },
        { "Z", RV_TYPE_FLOAT },       { "opacity", RV_TYPE_RGB },    { "ID", RV_TYPE_INT },
        { "object", RV_TYPE_NODE },   { "shader", RV_TYPE_NODE },    { "P", RV_TYPE_POINT },
        { "N", RV_TYPE_VECTOR },      { "AA_offset", RV_TYPE_NONE }, { "cputime", RV_TYPE_NONE },
        { "raycount", RV_TYPE_NONE },
    };
    for (size_t i = 0; i < RV_AOV_BUILT_IN_COUNT; ++i) {
        store.built_in[i] = -1;
        const RtAOV* const aov = findAOV(store, table[i].name);
        if (!aov)
            continue;
        if (table[i].type == RV_TYPE_NONE || table[i].type == aov->type)
            store.built_in[i] = int(aov->index);
        else if (isFirst(built_in_mismatch_reported))
            warnAboutType(aov->name, table[i].type, aov->type);
    }
}

// ---- Reports ----

static void reportDrivers(const RtAOVOutputStore& store)
{
    for (const RtOutputDriver& driver : store.drivers) {
        RvMsgInfo("[aov] registered driver: \"%s\" (%s)", RvNodeGetName(driver.node),
                  driver.node->entry->name);
        for (const int index : driver.outputs) {
            const RtAOVOutput& output = store.outputs[size_t(index)];
            if (output.aov < 0)
                RvMsgInfo("[aov]  * raw samples");
            else
                RvMsgInfo("[aov]  * \"%s\" of type %s filtered by \"%s\" (%s)",
                          store.aovs[size_t(output.aov)].name, RvParamGetTypeName(output.type),
                          RvNodeGetName(output.filter), output.filter->entry->name);
        }
    }
}

static void reportPrepared(const RtAOVOutputStore& store)
{
    const auto plural = [](size_t count) { return count > 1 ? "s" : ""; };
    const size_t aovs = store.aovs.size() - 1; // without "AA_offset"
    RvMsgInfo("[aov] done preparing %d AOV%s for %d output%s to %d driver%s (%d deep AOV%s)",
              int(aovs), plural(aovs), int(store.outputs.size()), plural(store.outputs.size()),
              int(store.drivers.size()), plural(store.drivers.size()), store.deep_count,
              store.deep_count == 1 ? "" : "s");
}

// ---- Preparation ----

static bool prepare(RtAOVOutputStore& store, RtOptions& options)
{
    if (!parseOutputs(store, options.outputs) || !groupByDriver(store))
        return false;
    store.padding = paddingOf(store, options.AA_samples);
    repairBucketSize(options, store.padding);
    reportDrivers(store);
    layOutSamples(store);
    bindBuiltIns(store);
    reportPrepared(store);
    return true;
}

// Calls a driver, alone with it.
template <class Call> static void callDriver(const RtOutputDriver& driver, Call call)
{
    const CritSecLock lock(&driverData(driver.node)->lock);
    RtOutputIterator outputs = { driver.layers.data(), int(driver.layers.size()), 0 };
    call(*static_cast<const RtDriverMethods*>(driver.node->entry->kind_methods), driver.node,
         &outputs);
}

static void openDrivers(const RtAOVOutputStore& store, int bucket_size)
{
    const ImageGeometry image = currentImage();
    const RtWindow display = { 0, 0, image.image_width - 1, image.image_height - 1 };
    const RtWindow data = { image.region_min_x, image.region_min_y, image.region_max_x,
                            image.region_max_y };
    for (const RtOutputDriver& driver : store.drivers)
        callDriver(driver,
                   [&](const RtDriverMethods& methods, RtNode* node, RtOutputIterator* outputs) {
                       if (methods.DriverOpen)
                           methods.DriverOpen(node, outputs, display, data, bucket_size);
                   });
}

bool prepareOutputs(RtRenderSession*)
{
    destroyStore(std::exchange(output_store, nullptr));
    RtAOVOutputStore* const store = createStore();
    bool is_prepared = false;
    try {
        is_prepared = store && prepare(*store, *render_options);
    } catch (const std::bad_alloc&) { // the allocator has reported it
    }
    if (!is_prepared) {
        destroyStore(store);
        return false;
    }
    output_store = store;
    openDrivers(*store, render_options->bucket_size);
    return true;
}

void closeOutputs(RtRenderSession*)
{
    if (!output_store)
        return;
    for (const RtOutputDriver& driver : output_store->drivers)
        callDriver(driver,
                   [](const RtDriverMethods& methods, RtNode* node, RtOutputIterator* outputs) {
                       if (methods.DriverClose)
                           methods.DriverClose(node, outputs);
                   });
    destroyStore(std::exchange(output_store, nullptr));
}

} // namespace rv
