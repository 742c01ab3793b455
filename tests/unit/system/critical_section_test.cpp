// Critical sections.
#include "system/critical_section.h"

#include "frame_fixture.h"

class CriticalSections : public BareFrame {};

TEST_F(CriticalSections, are_open_between_init_and_close)
{
    for (void (*init)(RtCritSec*) : { RvCritSecInit, RvCritSecInitRecursive }) {
        RtCritSec cs = {};
        init(&cs);
        EXPECT_NE(cs.handle, nullptr);
        RvCritSecClose(&cs);
        EXPECT_EQ(cs.handle, nullptr);
    }
}

TEST_F(CriticalSections, may_be_closed_twice)
{
    RtCritSec cs;
    RvCritSecInit(&cs);
    RvCritSecClose(&cs);
    RvCritSecClose(&cs);
    EXPECT_EQ(cs.handle, nullptr);
}

TEST_F(CriticalSections, may_be_opened_again)
{
    RtCritSec cs;
    for (int i = 0; i < 3; ++i) {
        RvCritSecInit(&cs);
        EXPECT_NE(cs.handle, nullptr);
        RvCritSecClose(&cs);
    }
}

TEST_F(CriticalSections, are_always_recursive)
{
    for (void (*init)(RtCritSec*) : { RvCritSecInit, RvCritSecInitRecursive }) {
        RtCritSec cs;
        init(&cs);
        for (int i = 0; i < 3; ++i)
            RvCritSecEnter(&cs);
        for (int i = 0; i < 3; ++i)
            RvCritSecLeave(&cs);
        std::thread([&] { // free again, or this thread would hang
            RvCritSecEnter(&cs);
            RvCritSecLeave(&cs);
        })
            .join();
        RvCritSecClose(&cs);
    }
}

TEST_F(CriticalSections, closed_or_null_ones_hold_nobody_up)
{
    RtCritSec closed = {};
    for (RtCritSec* cs : { &closed, static_cast<RtCritSec*>(nullptr) }) {
        RvCritSecEnter(cs);
        RvCritSecLeave(cs);
        RvCritSecClose(cs);
    }
    RvCritSecInit(nullptr);
}

TEST_F(CriticalSections, report_an_exhausted_heap_and_stay_closed)
{
    RtCritSec cs;
    for (void (*init)(RtCritSec*) : { RvCritSecInit, RvCritSecInitRecursive }) {
        rv::limitAllocations(0);
        init(&cs);
        rv::limitAllocations(-1);
        EXPECT_EQ(cs.handle, nullptr);
        EXPECT_EQ(takeProblemWithoutLines(),
                  "can't allocate " + std::to_string(sizeof(std::recursive_mutex)) +
                      " bytes in core\\src\\system\\critical_section:RvCritSecInit():");
        RvCritSecEnter(&cs);
        RvCritSecLeave(&cs);
    }
}

TEST_F(CriticalSections, concurrent_entries_exclude_each_other)
{
    RtCritSec cs;
    RvCritSecInit(&cs);
    int counter = 0;
    onThreads(4, [&](int) {
        for (int i = 0; i < 1000; ++i) {
            const rv::CritSecLock outer(&cs);
            const rv::CritSecLock inner(&cs);
            ++counter;
        }
    });
    EXPECT_EQ(counter, 4000);
    RvCritSecClose(&cs);
}
