// light_map: importance tables of lights and the shaders behind them. Declared by light_map.h.
#include "lights/light_map.h"

#include "duration.h"
#include "msg.h"
#include "rv_msg.h"
#include "shaderglobals.h"
#include "system/clock.h"
#include "thread_slot.h"

#include <string.h>

RtLightMap::RtLightMap(const RtNode* node, const RtLightMapType& light_type)
    : light(node), type(light_type)
{
    RvCritSecInit(&lock);
}

namespace rv {

// ---- Life of a table ----

static void countBytes(const RtLightMap& map, int sign)
{
    threadStats()->*map.type.bytes += sign * int64_t(importanceBytes(map.table.n));
}

static void releaseTable(RtLightMap* map)
{
    countBytes(*map, -1);
    releaseImportance(&map->table);
}

void invalidateLightMap(RtLightMap* map)
{
    map->tables_built = false;
    map->is_dark = false;
    releaseTable(map);
}

static bool isFlushed(const RtLightData& light, int flags)
{
    enum { flush_skydomes = 0x8, flush_quads = 0x10 };
    return flags & (light.light_type == RV_LIGHT_QUAD ? flush_quads : flush_skydomes);
}

void flushLight(RtNode* light, int flags)
{
    const RtLightData* const data = lightData(light);
    if (!data || !data->map || !isFlushed(*data, flags))
        return;
    if (the_frame->hooks->rendering()) // others are reading the table
        data->map->is_flushed = true;
    else
        data->map->tables_built = false;
}

// ---- Making a table ----

static void reportResult(const RtLightMap& map, const char* type, const char* name,
                         uint32_t milliseconds)
{
    const RtImportanceTable& table = map.table;
    if (table.variance < 0.1f)
        RvMsgWarning("[%s]%s %s, variance = %f", type, name, map.type.complaint,
                     double(table.variance));
    if (table.average_energy > 0)
        RvMsgInfo("[%s]%s %stable done - %s - average energy %f", type, name, map.type.subject,
                  RvDurationString(milliseconds), double(table.average_energy));
    else
        RvMsgInfo("[%s]%s %sdisabling light due to null energy", type, name, map.type.subject);
}

// What shaders leave in the pool of a thread goes at the end of a row.
static void fillRow(const RtLightMap& map, int thread, int row, float* cells)
{
    RtMemPool* const pool =
        the_frame->thread_slots ? the_frame->thread_slots[thread].shading_pool : nullptr;
    if (pool)
        RvMemPoolPushMark(pool);
    map.type.fillRow(map.light, thread, row, cells);
    if (pool)
        RvMemPoolPopMark(pool);
}

static void build(RtLightMap* map, int thread)
{
    const char* const type = RvNodeEntryGetName(map->light->entry);
    char name[256] = "";
    if (map->type.names_light)
        snprintf(name, sizeof name, " %s", RvNodeGetName(map->light));
    const int n = map->resolution;
    releaseTable(map);
    RvMsgInfo("[%s]%s initializing sampling tables %dx%d", type, name, n, n);
    const uint32_t start = wallMilliseconds();
    const bool is_made =
        RvImportance2DInit(&map->table, n, map->type.measure(map->light), &map->work, thread,
                           [map](int t, int row, float* cells) { fillRow(*map, t, row, cells); });
    map->is_dark = !(map->table.average_energy > 0);
    if (!is_made)
        return;
    countBytes(*map, 1);
    reportResult(*map, type, name, wallMilliseconds() - start);
}

bool requireLightMap(RtLightMap* map, int thread)
{
    if (!map->lock.handle) // without memory
        return false;
    if (!map->tables_built.load(std::memory_order_acquire)) {
        map->work.join(thread); // of those that came first
        RvCritSecEnter(&map->lock);
        if (!map->tables_built.load(std::memory_order_relaxed)) {
            build(map, thread);
            map->tables_built.store(true, std::memory_order_release);
        }
        RvCritSecLeave(&map->lock);
    }
    return !map->is_dark;
}

// ---- Update ----

static RtLinkRecord colorLink(const RtNode* light)
{
    const int index = lightParamEntry(light, light_color_param).index;
    return light->links ? light->links[index] : RtLinkRecord{};
}

void updateLightMap(RtLightMap* map, int resolution)
{
    const RtLinkRecord link = colorLink(map->light);
    if (map->is_flushed.exchange(false) || resolution != map->resolution ||
        memcmp(&link, &map->link, sizeof link) != 0)
        invalidateLightMap(map);
    map->resolution = resolution;
    map->link = link;
    map->is_linked = link.slot[0] != 0;
}

// ---- Colours ----

static thread_local bool is_coloring = false;

bool isColoringLight() { return is_coloring; }

// Where the contexts of colours seem to be reached from. A shader that is being evaluated at the
// lit point, whose context may have no parent either, is thus not taken for the same evaluation.
static RtShaderGlobals makeNowhere()
{
    RtShaderGlobals sg;
    sg.state = nullptr;
    resetContext(&sg);
    return sg;
}
static const RtShaderGlobals nowhere = makeNowhere();

LightColor::LightColor(const RtLightMap& light_map, int thread, float time) : map(light_map)
{
    resetState(&state, nullptr);
    sg.state = &state;
    resetContext(&sg);
    sg.parent = &nowhere;
    sg.thread_index = uint8_t(thread);
    sg.time = time;
}

static float usable(float channel) { return isfinite(channel) ? channel : 0; }

RtRGB LightColor::evaluate()
{
    if (is_coloring)
        return RV_RGB_BLACK;
    is_coloring = true;
    const RtRGB color = RvShaderEvalParamFuncRGB(
        &sg, map.light, lightParamEntry(map.light, light_color_param).index);
    is_coloring = false;
    return perChannel(color, usable);
}

} // namespace rv

RtLightMap::~RtLightMap()
{
    rv::releaseTable(this);
    RvCritSecClose(&lock);
}
