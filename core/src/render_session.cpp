// render_session: the state of rendering in one universe, and what each worker slot owns.
#include "render_session.h"

#include "frame.h"
#include "message_passing.h"
#include "system/clock.h"
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

static void destroyThreadSlots(RtRenderSession* session)
{
    if (!session->thread_slots)
        return;
    for (int i = 0; i < worker_slot_count; ++i) {
        RtThreadSlot& slot = session->thread_slots[i];
        if (slot.messages)
            RvMessageBankDestroy(slot.messages);
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
    destroyThreadSlots(session);
    RvCritSecClose(&session->lock);
    session->~RtRenderSession();
    RvFree_func(session);
}

} // namespace rv
