// Tests of render_session: what each worker slot owns.
#include "render_session.h"

#include "allocation_failures.h"
#include "frame.h"
#include "message_passing.h"
#include "universe_fixture.h"

using RenderSession = Universe;

TEST_F(RenderSession, every_worker_slot_gets_its_pools_and_a_message_bank)
{
    static const struct {
        int max_shader_messages;
        unsigned capacity;
    } cases[] = { { 64, 64 }, { 1, 1 }, { 0, 1 }, { -5, 1 } };
    for (const auto& c : cases) {
        RtRenderSession* const session = rv::the_frame->session;
        ASSERT_TRUE(rv::createThreadSlots(session, c.max_shader_messages));
        EXPECT_EQ(session->thread_slots, rv::the_frame->thread_slots);
        for (int i = 0; i < rv::worker_slot_count; ++i) {
            const RtThreadSlot& slot = session->thread_slots[i];
            EXPECT_EQ(slot.messages->capacity, c.capacity) << i;
            EXPECT_EQ(slot.messages->pool, slot.shading_pool) << i;
            for (const RtMemPool* pool : { slot.shading_pool, slot.pools[0], slot.pools[1] })
                EXPECT_EQ(pool->block_size, 524288u) << i;
        }
        TearDown(); // frees the slots
        SetUp();
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(RenderSession, slots_that_find_no_memory_are_missing_as_a_whole)
{
    RtRenderSession* const session = rv::the_frame->session;
    for (long allowed : { 0, 1, 2, 7, 40, 300 }) {
        bool created = true;
        withAllocations(allowed, [&] { created = rv::createThreadSlots(session, 4); });
        EXPECT_FALSE(created) << allowed;
        EXPECT_FALSE(session->thread_slots) << allowed;
        EXPECT_FALSE(rv::the_frame->thread_slots) << allowed;
        EXPECT_EQ(takeProblem().find("can't allocate"), 0u) << allowed;
    }
    EXPECT_TRUE(rv::createThreadSlots(session, 4));
}
