// drivers: the local data of driver nodes, the walk over their outputs and the search for driver
// types (rv_drivers.h), and the "driver_null" driver node, which discards what it is given.
#include "drivers/drivers.h"

#include "frame.h"
#include "list.h"
#include "nodes.h"
#include "rv_cameras.h"
#include "rv_universe.h"
#include "system/memory.h"

#include <string.h>

static const char* const module_path = "core\\src\\drivers\\drivers";

namespace rv {

RtDriverData* driverData(const RtNode* node)
{
    return node && node->entry->type == RV_NODE_DRIVER
               ? static_cast<RtDriverData*>(node->local_data)
               : nullptr;
}

// That of the node, made when there is none yet. Null after an error, and for other nodes.
static RtDriverData* makeDriverData(RtNode* node, int line, const char* function)
{
    RtDriverData* data = driverData(node);
    if (data || !node || node->entry->type != RV_NODE_DRIVER)
        return data;
    data = static_cast<RtDriverData*>(
        RvMalloc_func(sizeof(RtDriverData), module_path, line, function));
    if (!data)
        return nullptr;
    *data = {};
    RvCritSecInit(&data->lock);
    if (!data->lock.handle) { // no memory; workers must not share a driver without a lock
        RvFree_func(data);
        return nullptr;
    }
    node->local_data = data;
    return data;
}

// ---- driver_null ----

struct DriverNull {
    const char* name;
};

static void parameters(RtList*, RtMetaDataStore* metadata) { declareLayout<DriverNull>(metadata); }

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = [](RtNode* node, void*) { RvDriverInitialize(node, true, nullptr); },
    .Update = do_nothing,
    .Finish = RvDriverDestroy,
};

static const RtDriverMethods driver = {
    .DriverSupportsPixelType = [](RtNode*, int) { return true; },
    .DriverExtension = do_nothing,
    .DriverOpen = do_nothing,
    .DriverPrepareBucket = do_nothing,
    .DriverWriteBucket = do_nothing,
    .DriverClose = do_nothing,
};

const RtNodeMethods driver_null_methods = { &common, &driver };

} // namespace rv

// ---- Local data ----

void RvDriverInitialize(RtNode* node, bool multiple_outputs, void* user_data)
{
    RtDriverData* const data = rv::makeDriverData(node, __LINE__, "RvDriverInitialize");
    if (!data)
        return;
    data->user_data = user_data;
    data->required_aovs = nullptr;
    data->requires_depth = false;
    data->multiple_outputs = multiple_outputs;
}

void RvRawDriverInitialize(RtNode* node, const char** required_aovs, bool requires_depth,
                           void* user_data)
{
    RtDriverData* const data = rv::makeDriverData(node, __LINE__, "RvRawDriverInitialize");
    if (!data)
        return;
    data->user_data = user_data;
    data->required_aovs = required_aovs;
    data->requires_depth = requires_depth;
    data->multiple_outputs = false;
}

void* RvDriverGetLocalData(const RtNode* node)
{
    const RtDriverData* const data = rv::driverData(node);
    return data ? data->user_data : nullptr;
}

void RvDriverDestroy(RtNode* node)
{
    RtDriverData* const data = rv::driverData(node);
    if (!data)
        return;
    RvCritSecClose(&data->lock);
    RvFree_func(data);
    node->local_data = nullptr;
}

// ---- Driver types ----

const char** RvDriverExtension(const RtNodeEntry* type)
{
    if (!type || type->type != RV_NODE_DRIVER || !type->kind_methods)
        return nullptr;
    const auto* const methods = static_cast<const RtDriverMethods*>(type->kind_methods);
    return methods->DriverExtension ? methods->DriverExtension() : nullptr;
}

static bool writesExtension(const RtNodeEntry* type, const char* extension)
{
    const char** known = RvDriverExtension(type);
    while (known && *known && strcmp(*known, extension) != 0)
        ++known;
    return known && *known;
}

const RtNodeEntry* RvFindDriverType(const char* extension)
{
    if (!extension || !rv::the_frame || !rv::the_frame->node_entries)
        return nullptr;
    for (RtListNode* e = RvListHead(rv::the_frame->node_entries); e; e = e->next)
        if (const auto* type = static_cast<const RtNodeEntry*>(e->data);
            writesExtension(type, extension))
            return type;
    return nullptr;
}

// ---- What a driver may ask for while it is open ----

bool RvOutputIteratorGetNext(RtOutputIterator* it, const char** name, int* type,
                             const void** bucket)
{
    if (!it || it->next >= it->count)
        return false;
    const RtDriverOutput& output = it->outputs[it->next++];
    if (name)
        *name = output.name;
    if (type)
        *type = output.type;
    if (bucket)
        *bucket = output.bucket;
    return true;
}

void RvOutputIteratorReset(RtOutputIterator* it)
{
    if (it)
        it->next = 0;
}

// A moving camera is stored as it stands when the shutter opens.
void RvDriverGetMatrices(RtMatrix* world_to_camera, RtMatrix* world_to_screen)
{
    const RtNode* const camera = RvUniverseGetCamera();
    const float time = RvCameraGetShutterStart();
    RvWorldToCameraMatrix(camera, time, world_to_camera);
    RvWorldToScreenMatrix(camera, time, world_to_screen);
}
