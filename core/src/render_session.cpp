// render_session: the state of rendering in one universe, and what each worker slot owns.
#include "render_session.h"

#include "counters.h"
#include "message_passing.h"
#include "rv_msg.h"
#include "rv_params.h"
#include "rv_render.h"
#include "scene.h"
#include "system/clock.h"
#include "system/machine.h"
#include "system/memory.h"

#include <new>
#include <string.h>

static const char* const module_path = "core\\src\\render_session";

namespace rv {

RtRenderSession* sessionCreate(RtScene* scene)
{
    void* const memory = RvMalloc_func(sizeof(RtRenderSession), module_path, __LINE__,
                                       "RtRenderSession::RtRenderSession");
    if (!memory)
        return nullptr;
    RtRenderSession* const session = new (memory) RtRenderSession{};
    session->scene = scene;
    session->last_wall_ms = the_frame->start_ms;
    session->last_user_ms = processUserMilliseconds();
    RvCritSecInit(&session->lock);
    if (session->lock.handle)
        return session;
    sessionDestroy(session);
    return nullptr;
}

int stopResult(const char* phase, int request)
{
    if (request == RV_STOP_INTERRUPT)
        return RV_INTERRUPT;
    if (request == RV_STOP_ABORT)
        RvMsgWarning("%s:  received abort signal", phase);
    else
        RvMsgWarning("%s:  unknown reason", phase);
    return RV_ABORT;
}

// ---- Options ----

void checkThreads(RtOptions& options, int processors)
{
    if (options.threads < 1) {
        options.threads = processors;
        RvMsgDebug("auto-detected %d threads", options.threads);
    }
    if (options.threads > worker_slot_count) {
        RvMsgWarning("too many threads, max allowed is %d", worker_slot_count);
        options.threads = worker_slot_count;
    }
}

static void checkAtmosphere(RtOptions& options)
{
    const RtNode* const shader = options.atmosphere;
    if (shader && RvNodeEntryGetOutputType(shader->entry) != RV_TYPE_RGB)
        RvMsgWarning("bad assignment of atmosphere shader");
    if (options.ignore_atmosphere)
        options.atmosphere = nullptr;
}

static void checkTotalDepth(RtOptions& options)
{
    static constexpr int max_depth = 100;
    if (options.GI_total_depth <= max_depth)
        return;
    RvMsgWarning("GI_total_depth is too high (%d), changing to %d to avoid stack-overflow",
                 options.GI_total_depth, max_depth);
    options.GI_total_depth = max_depth;
}

static void setEmission(RtNode* shader, const RtRGB& color)
{
    if (shader)
        RvNodeSetRGB(shader, "emission_color", color.r, color.g, color.b);
}

void checkOptions(const RtScene& scene, RtOptions& options)
{
    checkThreads(options, processorCount());
    if (options.AA_samples == 0)
        options.AA_samples = 1;
    checkAtmosphere(options);
    checkTotalDepth(options);
    setEmission(scene.error_shader, options.error_color_bad_mesh);
    setEmission(scene.bad_shader, options.error_color_bad_shader);
}

// ---- Thread slots ----

static int64_t bankBytes(const RtMessageBank& bank)
{
    return int64_t(sizeof bank + bank.capacity * sizeof *bank.slots);
}

static void destroyThreadSlots(RtRenderSession* session)
{
    if (!session->thread_slots)
        return;
    for (int i = 0; i < worker_slot_count; ++i) {
        RtThreadSlot& slot = session->thread_slots[i];
        if (slot.messages) {
            hostStats()->message_bytes -= bankBytes(*slot.messages);
            RvMessageBankDestroy(slot.messages);
        }
        for (RtMemPool* pool : { slot.shading_pool, slot.pools[0], slot.pools[1] })
            if (pool)
                RvMemPoolDestroy(pool);
    }
    RvFree_func(session->thread_slots);
    session->thread_slots = the_frame->thread_slots = nullptr;
}

static bool fillThreadSlot(RtThreadSlot* slot, unsigned max_shader_messages)
{
    slot->shading_pool = RvMemPoolCreate(thread_pool_block);
    slot->pools[0] = RvMemPoolCreate(thread_pool_block);
    slot->pools[1] = RvMemPoolCreate(thread_pool_block);
    if (!slot->shading_pool || !slot->pools[0] || !slot->pools[1])
        return false;
    slot->messages = RvMessageBank(max_shader_messages, slot->shading_pool);
    if (slot->messages)
        hostStats()->message_bytes += bankBytes(*slot->messages);
    return slot->messages != nullptr;
}

bool createThreadSlots(RtRenderSession* session, int max_shader_messages)
{
    const unsigned bytes = worker_slot_count * static_cast<unsigned>(sizeof(RtThreadSlot));
    session->thread_slots = static_cast<RtThreadSlot*>(
        RvMalloc_func(bytes, module_path, __LINE__, "RtRenderSession::createThreadSlots"));
    if (!session->thread_slots)
        return false;
    memset(session->thread_slots, 0, bytes);
    the_frame->thread_slots = session->thread_slots;
    const unsigned messages = max_shader_messages > 1 ? unsigned(max_shader_messages) : 1;
    for (int i = 0; i < worker_slot_count; ++i)
        if (!fillThreadSlot(&session->thread_slots[i], messages)) {
            destroyThreadSlots(session);
            return false;
        }
    return true;
}

void sessionDestroy(RtRenderSession* session)
{
    if (!session)
        return;
    session->releaseSamplers();
    destroyThreadSlots(session);
    RvCritSecClose(&session->lock);
    session->~RtRenderSession();
    RvFree_func(session);
}

} // namespace rv
