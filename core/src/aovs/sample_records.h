// How a sample store keeps its samples: flat arrays with a slot for each sample, pixel by pixel,
// and a hash table of deep samples.
//
// A slot has one presence bit for each variable, which is all that is cleared between buckets, and
// the values at the offsets that the output store has laid out. Values are aligned to 4 bytes and
// therefore copied, never dereferenced.
#ifndef RV_SAMPLE_RECORDS_H
#define RV_SAMPLE_RECORDS_H

#include "aovs/output_store.h"
#include "aovs/sample_store.h"

#include <string.h>

// Suffix of the accessors, C type and type code of the types that are written and read by name.
#define RV_AOV_TYPES(X)                                                                            \
    X(Bool, bool, RV_TYPE_BOOLEAN)                                                                 \
    X(Int, int, RV_TYPE_INT)                                                                       \
    X(Flt, float, RV_TYPE_FLOAT)                                                                   \
    X(RGB, RtRGB, RV_TYPE_RGB)                                                                     \
    X(RGBA, RtRGBA, RV_TYPE_RGBA)                                                                  \
    X(Vec, RtVector, RV_TYPE_VECTOR)                                                               \
    X(Pnt, RtPoint, RV_TYPE_POINT)                                                                 \
    X(Pnt2, RtPoint2, RV_TYPE_POINT2)                                                              \
    X(Ptr, void*, RV_TYPE_POINTER)

namespace rv {

template <class T> T loadAs(const char* value)
{
    T copy;
    memcpy(&copy, value, sizeof copy);
    return copy;
}

template <class T> T loadOrZero(const char* value) { return value ? loadAs<T>(value) : T{}; }

// Presence bits, one for each variable.
inline uint32_t presenceWords(const RtAOVOutputStore& store)
{
    return uint32_t(store.aovs.size() + 31) / 32;
}
inline bool isPresent(const uint32_t* presence, const RtAOV& aov)
{
    return presence[aov.index / 32] >> (aov.index % 32) & 1;
}
inline void setPresent(uint32_t* presence, const RtAOV& aov)
{
    presence[aov.index / 32] |= 1u << (aov.index % 32);
}

// The samples behind the first hits, by slot and depth (1 and up). The depths of a slot have no
// gaps. Grows geometrically and keeps its memory.
class DeepSamples {
public:
    struct Record {
        uint32_t slot, depth;
        // Followed by the presence bits and the values.
        uint32_t* presence() { return reinterpret_cast<uint32_t*>(this + 1); }
        const uint32_t* presence() const { return reinterpret_cast<const uint32_t*>(this + 1); }
    };

    // value_bytes: of a record, a multiple of 4. thread: whose statistics count the memory.
    DeepSamples(uint32_t presence_words, uint32_t value_bytes, int thread);
    ~DeepSamples();
    DeepSamples(const DeepSamples&) = delete;
    DeepSamples& operator=(const DeepSamples&) = delete;

    void clear();
    const Record* find(uint32_t slot, uint32_t depth) const;
    // The same, with all records in front of it made where they are missing. Null without memory.
    Record* findOrAdd(uint32_t slot, uint32_t depth);

    char* values(Record* record) const
    {
        return reinterpret_cast<char*>(record->presence() + presence_words_);
    }
    const char* value(const Record& record, const RtAOV& aov) const
    {
        if (!aov.deep || !isPresent(record.presence(), aov))
            return nullptr;
        return reinterpret_cast<const char*>(record.presence() + presence_words_) + aov.deep_offset;
    }

private:
    Record* at(uint32_t index) const
    {
        return reinterpret_cast<Record*>(records_ + size_t(index) * record_bytes_);
    }
    uint32_t* placeOf(uint32_t slot, uint32_t depth) const;
    Record* add(uint32_t slot, uint32_t depth);
    bool grow();

    uint32_t presence_words_, record_bytes_;
    int thread_;
    uint32_t* table_ = nullptr; // twice capacity_ places: index of a record plus 1, 0 unused
    char* records_ = nullptr;
    uint32_t count_ = 0, capacity_ = 0;
    bool exhausted_ = false; // the heap refused more since the last clear
};

// What a worker needs to hand a bucket to the drivers; made at the first delivery and kept.
struct PixelBuffers {
    char* pixels;           // of all outputs of one driver
    size_t bytes;           // allocated
    RtDriverOutput* layers; // as many as the driver with the most outputs has
};

} // namespace rv

struct RtSampleStore {
    RtSampleStore(const RtAOVOutputStore& outputs, int thread);
    ~RtSampleStore();
    RtSampleStore(const RtSampleStore&) = delete;
    RtSampleStore& operator=(const RtSampleStore&) = delete;

    bool allocate(uint64_t slot_count); // false when the heap refuses

    // The first slot of a pixel, which all pixels of a stride share; -1 outside of the window.
    int firstSlot(int x, int y) const
    {
        const uint32_t from_left = uint32_t(x) - uint32_t(window.min_x);
        const uint32_t from_top = uint32_t(y) - uint32_t(window.min_y);
        if (from_left >= uint32_t(window.width) || from_top >= uint32_t(window.height))
            return -1;
        const uint32_t stride = uint32_t(window.stride);
        const uint32_t pixel = stride == 1 ? from_top * columns + from_left
                                           : from_top / stride * columns + from_left / stride;
        return int(pixel * uint32_t(window.samples));
    }
    // -1 for samples that are not kept.
    int slotOf(int x, int y, int sample) const
    {
        if (sample < 0 || sample >= window.samples)
            return -1;
        const int first = firstSlot(x, y);
        return first < 0 ? -1 : first + sample;
    }

    uint32_t* presenceOf(int slot) const { return presence + size_t(slot) * presence_words; }
    char* valuesOf(int slot) const { return values + size_t(slot) * sample_bytes; }
    // Null without a value.
    const char* value(int slot, const RtAOV& aov) const
    {
        return rv::isPresent(presenceOf(slot), aov) ? valuesOf(slot) + aov.offset : nullptr;
    }

    rv::PixelWindow window = {}; // empty until it covers one
    uint32_t columns = 0;        // stored pixels in a row of the window
    uint32_t presence_words, sample_bytes;
    uint32_t slots = 0; // allocated
    uint32_t* presence = nullptr;
    char* values = nullptr;
    rv::DeepSamples deep;
    rv::PixelBuffers buffers = {};
    int thread;

    // The depths that the values of the slot written last come from, by variable: values that are
    // not deep belong to the nearest hit. Other slots count as written by first hits.
    int* value_depths = nullptr;
    int value_depths_slot = -1;
};

namespace rv {

// Stores a value of a slot's first hit, and of a hit behind it; false without memory.
void storeFirst(RtSampleStore* store, int slot, const RtAOV& aov, const void* value, size_t bytes);
bool storeDeep(RtSampleStore* store, int slot, int depth, const RtAOV& aov, const void* value,
               size_t bytes);

} // namespace rv

#endif
