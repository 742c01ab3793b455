// aov: shaders write and read the variables of the camera sample they shade (rv_aovs.h).
#include "rv_aovs.h"

#include "aovs/sample_records.h"
#include "maths.h"
#include "msg.h"
#include "options.h"
#include "rv_shaderglobals.h"

#include <algorithm>
#include <math.h>

namespace rv {

// A camera sample that is being shaded.
struct Place {
    RtSampleStore* store; // null: there is none
    const RtSampleSink* sink;
    int slot;
};

static Place placeOf(const RtShaderGlobals* sg)
{
    const auto* const sink = sg ? static_cast<const RtSampleSink*>(sg->sample_output) : nullptr;
    if (!sink || !sink->store || !output_store || sink->depth < 0)
        return {};
    const int slot = sink->store->slotOf(sink->x, sink->y, sink->sample_index);
    return slot < 0 ? Place{} : Place{ sink->store, sink, slot };
}

// ---- Storing ----

// Of the values that are not deep, the one of the nearest hit stays, in whatever order hits are
// shaded.
static bool mayStore(RtSampleStore& store, int slot, const RtAOV& aov, int depth)
{
    const bool is_tracked = store.value_depths_slot == slot;
    if (depth > 0) {
        if (isPresent(store.presenceOf(slot), aov) &&
            (!is_tracked || store.value_depths[aov.index] < depth))
            return false;
        if (!is_tracked) {
            std::fill_n(store.value_depths, output_store->aovs.size(), 0);
            store.value_depths_slot = slot;
        }
    }
    if (store.value_depths_slot == slot)
        store.value_depths[aov.index] = depth;
    return true;
}

static bool store(const Place& place, const RtAOV& aov, const void* value, size_t bytes)
{
    const int depth = place.sink->depth;
    if (depth > 0 && aov.deep)
        return storeDeep(place.store, place.slot, depth, aov, value, bytes);
    if (!mayStore(*place.store, place.slot, aov, depth))
        return false;
    storeFirst(place.store, place.slot, aov, value, bytes);
    return true;
}

// ---- Checks of colours ----

template <class T> static bool isUsable(const T&, const RtSampleSink&, const char*) { return true; }

static bool isUsable(const RtRGB& c, const RtSampleSink& sink, const char* name)
{
    if (isfinite(c.r) && isfinite(c.g) && isfinite(c.b))
        return true;
    RvMsgWarningMasked(
        RV_LOG_NAN, "ignoring infinity/NaN aov sample in pixel (%d,%d), rgb=(%f,%f,%f), aov='%s'",
        sink.x, sink.y, double(c.r), double(c.g), double(c.b), name);
    return false;
}

static bool isUsable(const RtRGBA& c, const RtSampleSink& sink, const char* name)
{
    if (isfinite(c.r) && isfinite(c.g) && isfinite(c.b) && isfinite(c.a))
        return true;
    RvMsgWarningMasked(
        RV_LOG_NAN,
        "ignoring infinity/NaN aov sample in pixel (%d,%d), rgba=(%f,%f,%f,%f), aov='%s'", sink.x,
        sink.y, double(c.r), double(c.g), double(c.b), double(c.a), name);
    return false;
}

template <class T> static T clamped(const T& value) { return value; }

// Alpha is no light and stays.
template <class Color> static Color clampedColor(Color c)
{
    if (render_options->AA_sample_clamp_affects_aovs) {
        const float most = render_options->AA_sample_clamp;
        c.r = std::min(c.r, most);
        c.g = std::min(c.g, most);
        c.b = std::min(c.b, most);
    }
    return c;
}
static RtRGB clamped(const RtRGB& color) { return clampedColor(color); }
static RtRGBA clamped(const RtRGBA& color) { return clampedColor(color); }

// ---- Access by name ----

template <class T> static bool setAOV(RtShaderGlobals* sg, const char* name, int type, T value)
{
    const Place place = placeOf(sg);
    const RtAOV* const aov = place.store ? namedAOV(name, type) : nullptr;
    if (!aov || !isUsable(value, *place.sink, name))
        return false;
    value = clamped(value);
    return store(place, *aov, &value, sizeof value);
}

static const char* storedValue(const Place& place, const RtAOV& aov)
{
    if (!aov.deep || place.sink->depth < 1)
        return place.store->value(place.slot, aov);
    const DeepSamples::Record* const record =
        place.store->deep.find(uint32_t(place.slot), uint32_t(place.sink->depth));
    return record ? place.store->deep.value(*record, aov) : nullptr;
}

template <class T> static bool getAOV(RtShaderGlobals* sg, const char* name, int type, T* value)
{
    const Place place = placeOf(sg);
    const RtAOV* const aov = place.store ? findAOV(name) : nullptr;
    const char* const stored =
        aov && typeAccepts(aov->type, type) ? storedValue(place, *aov) : nullptr;
    if (!stored || !value)
        return false;
    *value = loadAs<T>(stored);
    return true;
}

} // namespace rv

#define RV_DEFINE_ACCESS(Suffix, Type, code)                                                       \
    bool RvAOVSet##Suffix(RtShaderGlobals* sg, const char* name, Type value)                       \
    {                                                                                              \
        return rv::setAOV<Type>(sg, name, code, value);                                            \
    }                                                                                              \
    bool RvAOVGet##Suffix(RtShaderGlobals* sg, const char* name, Type* value)                      \
    {                                                                                              \
        return rv::getAOV<Type>(sg, name, code, value);                                            \
    }
RV_AOV_TYPES(RV_DEFINE_ACCESS)

bool RvAOVEnabled(const char* name, int type)
{
    const RtAOV* const aov = rv::findAOV(name);
    return aov && aov->type == type;
}
