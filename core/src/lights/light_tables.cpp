// light_tables: sample tables that lights share. Declared by light_tables.h.
#include "lights/light_tables.h"

#include "system/memory.h"

#include <algorithm>
#include <mutex>

namespace rv {

static const char* const module_path = "core\\src\\lights\\lights";

// Starts with the table, which stands for the record outside of this file.
struct SharedTable {
    RtSampleTable table;
    LightTableKey key;
    int users;
    SharedTable* next;
};

// A scene knows few different sample counts, so a list will do.
static std::mutex tables_lock;
static SharedTable* tables; // under tables_lock

// Empty after a reported failure.
static RtSampleTable makeTable(const LightTableKey& key)
{
    const int64_t wanted = std::max<int64_t>(int64_t{ key.side } * std::max(key.pixel_side, 1), 1);
    const int side = int(std::min<int64_t>(wanted, INT32_MAX));
    RtPoint2* const points = RvSamplingPattern(key.seed, side, key.pattern);
    if (!points)
        return {};
    if (key.pixel_side && key.side)
        RvShufflePoints(key.seed + 1, key.pixel_side * key.pixel_side, key.side * key.side,
                        key.pattern, points);
    return { points, side * side }; // no larger table is ever made
}

static SharedTable* createTable(const LightTableKey& key)
{
    const RtSampleTable table = makeTable(key);
    if (!table.points)
        return nullptr;
    auto* const shared = static_cast<SharedTable*>(
        RvMalloc_func(sizeof(SharedTable), module_path, __LINE__, "RvLightUpdate"));
    if (!shared) {
        RvFree_func(table.points);
        return nullptr;
    }
    *shared = { table, key, 0, tables };
    tables = shared;
    return shared;
}

const RtSampleTable* acquireLightTable(const LightTableKey& key)
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    SharedTable* shared = tables;
    while (shared && !(shared->key == key))
        shared = shared->next;
    if (!shared)
        shared = createTable(key);
    if (!shared)
        return nullptr;
    ++shared->users;
    return &shared->table;
}

void releaseLightTable(const RtSampleTable* table)
{
    if (!table)
        return;
    const std::lock_guard<std::mutex> guard(tables_lock);
    SharedTable** link = &tables;
    while (*link && &(*link)->table != table)
        link = &(*link)->next;
    SharedTable* const shared = *link;
    if (!shared || --shared->users > 0)
        return;
    *link = shared->next;
    RvFree_func(shared->table.points);
    RvFree_func(shared);
}

int lightTableCount()
{
    const std::lock_guard<std::mutex> guard(tables_lock);
    int count = 0;
    for (const SharedTable* shared = tables; shared; shared = shared->next)
        ++count;
    return count;
}

} // namespace rv
