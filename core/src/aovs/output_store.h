// The outputs of a camera render: the variables that the output statements ask for, the filter and
// driver of each, and the delivery of finished buckets.
#ifndef RV_OUTPUT_STORE_H
#define RV_OUTPUT_STORE_H

#include "drivers/drivers.h"
#include "system/memory.h"

#include <atomic>
#include <stdint.h>
#include <vector>

struct RtNode;
struct RtRenderSession;
struct RtSampleStore;

// A variable, one for each name.
struct RtAOV {
    const char* name;     // pooled
    uint32_t hash;        // of the name
    uint8_t type;         // RV_TYPE_*
    bool deep;            // keeps its values at all depths
    uint32_t offset;      // of its value in a sample record
    uint32_t deep_offset; // the same in a deep sample record
    uint32_t index;       // in the list
};

// One accepted statement.
struct RtAOVOutput {
    int aov;        // index of the variable; -1 for raw samples
    int type;       // RV_TYPE_* of the variable; RV_TYPE_NONE for raw samples
    int pixel_type; // RV_TYPE_* that the filter makes of it
    RtNode* filter; // null for raw samples
    RtNode* driver;
};

template <class T> using RtOutputVector = std::vector<T, rv::CheckedAllocator<T>>;

struct RtOutputDriver {
    RtNode* node;
    RtOutputVector<int> outputs;           // indices of its outputs, in order of the statements
    RtOutputVector<RtDriverOutput> layers; // filtered ones as the driver sees them, without buckets
};

// The variables that the renderer fills itself.
enum RtBuiltInAOV {
    RV_AOV_RGB,
    RV_AOV_RGBA,
    RV_AOV_A,
    RV_AOV_Z,
    RV_AOV_OPACITY,
    RV_AOV_ID,
    RV_AOV_OBJECT,
    RV_AOV_SHADER,
    RV_AOV_P,
    RV_AOV_N,
    RV_AOV_AA_OFFSET,
    RV_AOV_CPUTIME,
    RV_AOV_RAYCOUNT,
    RV_AOV_BUILT_IN_COUNT
};

// Made at the start of a camera render and fixed while workers run. The first variable is always
// "AA_offset", whose value begins with the two numbers of a POINT2 whatever its type is.
struct RtAOVOutputStore {
    uint32_t sample_bytes;      // of the values of a sample
    uint32_t deep_sample_bytes; // of the values of a deep sample
    int deep_count;             // deep variables
    int padding;                // pixels that the filters need around a bucket
    RtOutputVector<RtAOV> aovs; // in order of registration
    RtOutputVector<RtAOVOutput> outputs;
    RtOutputVector<RtOutputDriver> drivers;
    int built_in[RV_AOV_BUILT_IN_COUNT]; // indices of variables; -1 where there is nothing to fill
    bool offset_declared;                // a statement has given "AA_offset" its type
};

namespace rv {

// That of the running camera render, or null.
inline const RtAOVOutputStore* output_store = nullptr;

// A built-in variable of the wrong type was reported, which happens once in the process.
inline std::atomic<bool> built_in_mismatch_reported = false;

// Reads the option "outputs", lays out the samples and opens the drivers; false, after a message,
// when nothing can be written. Repairs the option "bucket_size".
bool prepareOutputs(RtRenderSession* session);
// Closes the drivers, and forgets the store.
void closeOutputs(RtRenderSession* session);

// Tells every driver, under its lock, that a worker starts on a bucket.
void announceBucket(int x, int y, int width, int height, int thread);
// Filters the samples of a bucket and hands the pixels to the drivers, each under its lock.
void deliverBucket(RtSampleStore* samples, int x, int y, int width, int height);

// The variable of that name, or null.
const RtAOV* findAOV(const char* name);
const RtAOV* findAOV(const RtAOVOutputStore& store, const char* name);
// The same, if it may be read or written as that type; otherwise null, after a warning when there
// is such a variable.
const RtAOV* namedAOV(const char* name, int type);

void warnAboutType(const char* aov, int expected, int found);

// Filled by the renderer, or null.
inline const RtAOV* builtInAOV(RtBuiltInAOV which)
{
    const int index = output_store->built_in[which];
    return index < 0 ? nullptr : &output_store->aovs[size_t(index)];
}

} // namespace rv

#endif
