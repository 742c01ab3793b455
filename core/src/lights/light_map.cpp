// light_map: importance tables of lights and the shaders behind them. Declared by light_map.h.
#include "lights/light_map.h"

#include "cache_flags.h"
#include "duration.h"
#include "hit_context.h"
#include "message_passing.h"
#include "msg.h"
#include "objects/gobject.h"
#include "options.h"
#include "point_rotation.h"
#include "rv_msg.h"
#include "shaderglobals.h"
#include "system/clock.h"
#include "thread_slot.h"

#include <algorithm>
#include <new>
#include <string.h>

static const char* const module_path = "core\\src\\lights\\light_map";

RtLightMap::RtLightMap(const RtNode* node, const RtLightMapType& light_type)
    : light(node), type(light_type)
{
    RvCritSecInit(&lock);
}

namespace rv {

// ---- Life of a table ----

static void countBytes(const RtLightMap& map, const RtImportanceTable& table, int sign)
{
    threadStats()->*map.type.bytes += sign * int64_t(importanceBytes(table.n));
}

static void releaseTables(const RtLightMap& map, RtLightTable** list)
{
    while (RtLightTable* const latest = *list) {
        *list = latest->older;
        countBytes(map, latest->table, -1);
        releaseImportance(&latest->table);
        RvFree_func(latest);
    }
}

void invalidateLightMap(RtLightMap* map)
{
    map->tables_built = false;
    map->table = nullptr;
    releaseTables(*map, &map->tables);
}

static bool isFlushed(const RtLightData& light, int flags)
{
    return flags & (light.light_type == RV_LIGHT_QUAD ? flush_quad_tables : flush_skydome_tables);
}

void flushLight(RtNode* light, int flags)
{
    const RtLightData* const data = lightData(light);
    if (!data || !data->map || !isFlushed(*data, flags))
        return;
    if (the_frame->hooks->rendering()) { // one table is enough for a render
        data->map->is_stale = true;
        return;
    }
    ++data->map->flush_count; // before the flag: see publish
    data->map->tables_built = false;
}

// ---- Requests to stop ----

static std::atomic<const std::atomic<int>*> render_stop = nullptr;

void startLightMaps(const std::atomic<int>* stop_request) { render_stop = stop_request; }
void endLightMaps() { render_stop = nullptr; }

static bool isStopped()
{
    const std::atomic<int>* const request = render_stop;
    return request && *request;
}

// ---- Making a table ----

static void reportResult(const RtLightMap& map, const RtImportanceTable& table, const char* type,
                         const char* space, const char* name, uint32_t milliseconds)
{
    // Required: also for lights of one colour, whose tables have no variance at all.
    if (table.variance < 0.1f)
        RvMsgWarning("[%s]%s%s %s, variance = %f", type, space, name, map.type.complaint,
                     double(table.variance));
    if (table.average_energy > 0)
        RvMsgInfo("[%s]%s%s %stable done - %s - average energy %f", type, space, name,
                  map.type.subject, RvDurationString(milliseconds), double(table.average_energy));
    else
        RvMsgInfo("[%s]%s%s %sdisabling light due to null energy", type, space, name,
                  map.type.subject);
}

// Scratch memory, messages and rotation of a thread for the shaders of one row: they find no
// messages, and leave nothing behind. Whoever makes a row, at whatever point of the image, makes
// the same.
class RowScratch {
public:
    RowScratch(int thread, int row)
        : slot(the_frame->thread_slots ? &the_frame->thread_slots[thread] : nullptr),
          rotation(thread, rotation_seed)
    {
        rotation.turn(uint32_t(row));
        if (!slot || !slot->shading_pool)
            return;
        RvMemPoolPushMark(slot->shading_pool);
        outer_messages = slot->messages;
        slot->messages = RvMessageBank(unsigned(std::max(render_options->max_shader_messages, 1)),
                                       slot->shading_pool);
    }
    ~RowScratch()
    {
        if (!slot || !slot->shading_pool)
            return;
        RvMessageBankDestroy(slot->messages);
        slot->messages = outer_messages;
        RvMemPoolPopMark(slot->shading_pool);
    }
    RowScratch(const RowScratch&) = delete;
    RowScratch& operator=(const RowScratch&) = delete;

private:
    static constexpr uint32_t rotation_seed = 614;

    RtThreadSlot* slot;
    RtMessageBank* outer_messages = nullptr;
    PointRotation rotation;
};

static bool fillTable(RtLightMap* map, RtImportanceTable* table, int thread)
{
    const auto fillRow = [map, table](int t, int row, float* cells) {
        if (isStopped())
            return false;
        const RowScratch scratch(t, row);
        map->type.fillRow(map->light, t, *table, row, cells);
        return true;
    };
    return RvImportance2DInit(table, map->resolution, map->type.measure(map->light), &map->work,
                              thread, fillRow);
}

// Null after a reported failure, or when the render is to stop.
static RtLightTable* makeTable(RtLightMap* map, int thread)
{
    void* const memory =
        RvMalloc_func(sizeof(RtLightTable), module_path, __LINE__, "RvImportance2DInit");
    if (!memory)
        return nullptr;
    auto* const made = new (memory) RtLightTable{ {}, map->tables };
    if (fillTable(map, &made->table, thread))
        return made;
    RvFree_func(memory);
    return nullptr;
}

// A flush since the table was begun holds for it too. Either it is seen here, or it clears the flag
// after it was set here.
static void publish(RtLightMap* map, unsigned flushes_before)
{
    map->tables_built = true;
    if (map->flush_count != flushes_before)
        map->tables_built = false;
}

static void build(RtLightMap* map, int thread)
{
    const unsigned flushes_before = map->flush_count;
    const AnnouncedWork announced(&map->work); // the log may take its time
    const char* const type = RvNodeEntryGetName(map->light->entry);
    const char* const space = map->type.names_light ? " " : "";
    const char* const name = map->type.names_light ? RvNodeGetName(map->light) : "";
    RvMsgInfo("[%s]%s%s initializing sampling tables %dx%d", type, space, name, map->resolution,
              map->resolution);
    const uint32_t start = wallMilliseconds();
    RtLightTable* const made = makeTable(map, thread);
    if (!made && isStopped())
        return;
    if (!made)
        map->is_stale = true; // to be tried again, but not at the very next point
    map->table = made && made->table.average_energy > 0 ? &made->table : nullptr;
    publish(map, flushes_before);
    if (!made)
        return;
    map->tables = made;
    countBytes(*map, made->table, 1);
    reportResult(*map, made->table, type, space, name, wallMilliseconds() - start);
}

const RtImportanceTable* requireLightMap(RtLightMap* map, int thread)
{
    if (!map->lock.handle) // without memory
        return nullptr;
    if (!map->tables_built.load(std::memory_order_acquire)) {
        map->work.join(thread); // of those that came first
        RvCritSecEnter(&map->lock);
        if (!map->tables_built.load(std::memory_order_relaxed) && !isStopped())
            build(map, thread);
        RvCritSecLeave(&map->lock);
    }
    return map->table;
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
    if (map->is_stale.exchange(false) || !map->tables_built || resolution != map->resolution ||
        memcmp(&link, &map->link, sizeof link) != 0)
        invalidateLightMap(map);
    else if (map->tables)
        releaseTables(*map, &map->tables->older);
    map->resolution = resolution;
    map->link = link;
    map->is_linked = link.slot[0] != 0;
}

// ---- Colours ----

static thread_local bool is_coloring = false;

bool isColoringLight() { return is_coloring; }
bool isHiddenLight(const RtLightMap& map)
{
    return map.is_linked && (is_coloring || isBuildingAccel());
}

LightColor::LightColor(const RtLightMap& light_map, int thread, float time) : map(light_map)
{
    resetState(&state, nullptr);
    sg.state = &state;
    resetContext(&sg);
    sg.parent = &nowhere_context;
    sg.thread_index = uint8_t(thread);
    sg.time = time;
}

LightColor* requireColor(LightColor** color, const RtLightMap& map, const RtShaderGlobals& sg)
{
    void* const memory = *color ? nullptr : RvShaderGlobalsQuickAlloc(&sg, sizeof(LightColor));
    if (memory)
        *color = new (memory) LightColor(map, sg.thread_index, sg.time);
    return *color;
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
    rv::releaseTables(*this, &tables);
    RvCritSecClose(&lock);
}
