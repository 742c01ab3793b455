// The checked heap and the memory pools.
#include "system/memory.h"

#include "frame_fixture.h"

#include <map>

// --------------------------------------------------------------------------- checked heap

class CheckedHeap : public BareFrame {};

TEST_F(CheckedHeap, gives_aligned_memory_that_can_be_written)
{
    for (const unsigned size : { 1u, 7u, 16u, 1000u, 1u << 20 }) {
        void* const block = RvMalloc_func(size, "file", 1, "function");
        ASSERT_NE(block, nullptr) << size;
        EXPECT_EQ(uintptr_t(block) % 16, 0u) << size;
        memset(block, 0x5a, size);
        RvFree_func(block);
    }
}

TEST_F(CheckedHeap, gives_null_for_a_size_of_0_and_logs_nothing)
{
    EXPECT_EQ(RvMalloc_func(0, "file", 1, "function"), nullptr);
    EXPECT_EQ(rv::allocateTable(0, "file", 1, "function"), nullptr);
    EXPECT_TRUE(messages().empty());
}

TEST_F(CheckedHeap, failure_names_size_file_function_and_line)
{
    rv::limitAllocations(0);
    EXPECT_EQ(RvMalloc_func(123, "core\\src\\module", 45, "Caller"), nullptr);
    EXPECT_EQ(takeProblem(), "can't allocate 123 bytes in core\\src\\module:Caller():45");
    EXPECT_EQ(errors_logged, 1);
}

TEST_F(CheckedHeap, failed_resize_is_reported_and_keeps_the_old_block)
{
    char* const block = static_cast<char*>(RvMalloc_func(8, "file", 1, "function"));
    memcpy(block, "content", 8);
    rv::limitAllocations(0);
    EXPECT_EQ(RvRealloc_func(block, 4000000000u, "core\\src\\module", 67, "Caller"), nullptr);
    EXPECT_EQ(takeProblem(), "can't reallocate 4000000000 bytes in core\\src\\module:Caller():67");
    EXPECT_STREQ(block, "content");
    RvFree_func(block);
}

TEST_F(CheckedHeap, resizing_keeps_the_content)
{
    char* block = static_cast<char*>(RvRealloc_func(nullptr, 8, "file", 1, "function"));
    memcpy(block, "content", 8);
    block = static_cast<char*>(RvRealloc_func(block, 100000, "file", 1, "function"));
    EXPECT_STREQ(block, "content");
    RvFree_func(block);
}

TEST_F(CheckedHeap, resizing_to_0_frees_and_never_allocates)
{
    void* const block = RvMalloc_func(8, "file", 1, "function");
    rv::limitAllocations(0);
    EXPECT_EQ(RvRealloc_func(block, 0, "file", 1, "function"), nullptr);
    EXPECT_EQ(RvRealloc_func(nullptr, 0, "file", 1, "function"), nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(CheckedHeap, freeing_null_does_nothing) { RvFree_func(nullptr); }

TEST_F(CheckedHeap, works_without_a_frame)
{
    rv::the_frame = nullptr;
    void* const block = RvMalloc(10);
    EXPECT_NE(block, nullptr);
    rv::limitAllocations(0);
    EXPECT_EQ(RvRealloc(block, 20), nullptr);
    rv::limitAllocations(-1);
    RvFree(block);
    rv::the_frame = &frame;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(CheckedHeap, macros_name_the_place_of_the_call)
{
    rv::limitAllocations(0);
    const std::string line = std::to_string(__LINE__ + 1);
    EXPECT_EQ(RvMalloc(5), nullptr);
    EXPECT_EQ(takeProblem(),
              std::string("can't allocate 5 bytes in ") + __FILE__ + ":" + __func__ + "():" + line);
    const std::string next = std::to_string(__LINE__ + 1);
    EXPECT_EQ(RvRealloc(nullptr, 6), nullptr);
    EXPECT_EQ(takeProblem(), std::string("can't reallocate 6 bytes in ") + __FILE__ + ":" +
                                 __func__ + "():" + next);
}

TEST_F(CheckedHeap, limit_lets_so_many_allocations_succeed)
{
    rv::limitAllocations(2);
    void* const first = RvMalloc(8);
    void* const second = RvRealloc(nullptr, 8);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(RvMalloc(8), nullptr);
    EXPECT_EQ(RvMalloc(8), nullptr);
    rv::limitAllocations(-1);
    void* const third = RvMalloc(8);
    EXPECT_NE(third, nullptr);
    for (void* block : { first, second, third })
        RvFree(block);
}

TEST_F(CheckedHeap, sizes_beyond_32_bits_fail)
{
    const size_t size = size_t{ UINT32_MAX } + 1;
    EXPECT_EQ(rv::allocate(size, "file", 1, "function"), nullptr);
    EXPECT_EQ(takeProblem(), "can't allocate 4294967296 bytes in file:function():1");
    EXPECT_EQ(rv::allocateTable(size, "file", 2, "function"), nullptr);
    EXPECT_EQ(takeProblem(), "can't allocate 4294967296 bytes in file:function():2");
}

TEST_F(CheckedHeap, tables_are_zeroed_whatever_their_size)
{
    for (const size_t size : { size_t{ 16 }, size_t{ 100000 }, size_t{ 9 } << 20 }) {
        // Leave something behind for the table to find.
        void* const dirty = RvMalloc(unsigned(size));
        memset(dirty, 0xff, size);
        RvFree(dirty);
        char* const table = static_cast<char*>(rv::allocateTable(size, "file", 1, "function"));
        EXPECT_EQ(std::count(table, table + size, '\0'), ptrdiff_t(size));
        table[size - 1] = 1;
        RvFree(table);
    }
}

TEST_F(CheckedHeap, serves_containers_and_throws_when_it_cannot)
{
    std::vector<int, rv::CheckedAllocator<int>> numbers(100, 7);
    rv::limitAllocations(0);
    EXPECT_THROW(numbers.resize(100000), std::bad_alloc);
    EXPECT_EQ(numbers.size(), 100u);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 400000 bytes in core\\src\\system\\memory:allocateOrThrow():");
    rv::limitAllocations(-1);
    EXPECT_THROW(rv::CheckedAllocator<int>().allocate(SIZE_MAX / 2), std::bad_alloc);
}

TEST_F(CheckedHeap, concurrent_failures_are_counted_exactly)
{
    rv::limitAllocations(1000);
    std::atomic<int> granted = 0;
    onThreads(4, [&](int) {
        for (int i = 0; i < 500; ++i)
            if (void* const block = RvMalloc(16)) {
                ++granted;
                RvFree(block);
            }
    });
    EXPECT_EQ(granted, 1000);
    EXPECT_EQ(errors_logged, 1000);
}

// ---------------------------------------------------------------------------------- pools

class MemoryPool : public BareFrame {
protected:
    // Number of the block in the chain and offset in its payload.
    static std::pair<int, long> placeOf(const RtMemPool* pool, const void* p)
    {
        const char* const address = static_cast<const char*>(p);
        int number = 0;
        for (const RtMemPoolBlock* b = pool->first; b; b = b->next, ++number)
            if (address >= b->start && address <= b->end)
                return { number, address - b->start };
        return { -1, -1 };
    }

    static std::vector<long> blockSizes(const RtMemPool* pool)
    {
        std::vector<long> sizes;
        for (const RtMemPoolBlock* b = pool->first; b; b = b->next)
            sizes.push_back(b->end - b->start);
        return sizes;
    }
};

TEST_F(MemoryPool, agrees_with_the_golden_sequences)
{
    for (const auto& v : goldenVectors("foundation", "mempool_sequence")) {
        RtMemPool* const pool = RvMemPoolCreate(v["in"]["block_size"]);
        std::vector<std::pair<int, long>> places;
        for (const auto& op : v["in"]["ops"]) {
            if (op[0] == "alloc") {
                const unsigned size = op[1];
                void* const p = RvMemPoolAlloc(size, pool);
                memset(p, 0x5a, size);
                places.push_back(placeOf(pool, p));
            } else if (op[0] == "reset") {
                RvMemPoolReset(pool);
            } else if (op[0] == "push") {
                RvMemPoolPushMark(pool);
            } else if (op[0] == "pop") {
                RvMemPoolPopMark(pool);
            } else {
                FAIL() << op;
            }
        }
        const auto& out = v["out"];
        EXPECT_EQ(places, (out["addresses"].get<std::vector<std::pair<int, long>>>())) << v["id"];
        EXPECT_EQ(blockSizes(pool), out["block_sizes"].get<std::vector<long>>()) << v["id"];
        EXPECT_EQ(pool->block_switches, out["block_switches"]) << v["id"];
        EXPECT_EQ(pool->reset_count, out["reset_count"]) << v["id"];
        EXPECT_EQ(pool->alloc_count, out["alloc_count"]) << v["id"];
        EXPECT_EQ(pool->max_request, out["max_request"]) << v["id"];
        EXPECT_EQ(pool->block_count, out["block_count"]) << v["id"];
        EXPECT_EQ(pool->bytes_total - sizeof(RtMemPool), out["bytes_minus_record"]) << v["id"];
        RvMemPoolDestroy(pool);
    }
}

TEST_F(MemoryPool, starts_with_one_empty_block)
{
    RtMemPool* const pool = RvMemPoolCreate(0x10000);
    EXPECT_EQ(pool->first, pool->current);
    EXPECT_EQ(pool->block_size, 0x10000u);
    EXPECT_EQ(pool->mark_top, -1);
    EXPECT_EQ(pool->block_count, 1u);
    EXPECT_EQ(pool->bytes_total, sizeof(RtMemPool) + 32 + 0x10000);
    EXPECT_EQ(pool->first->end - pool->first->start, 0x10000);
    EXPECT_EQ(pool->alloc_count + pool->max_request + pool->block_switches + pool->reset_count, 0u);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, single_bytes_stand_8_bytes_apart)
{
    RtMemPool* const pool = RvMemPoolCreate(4096);
    char* const first = static_cast<char*>(RvMemPoolAlloc(1, pool));
    char* const second = static_cast<char*>(RvMemPoolAlloc(1, pool));
    EXPECT_EQ(second - first, 8);
    EXPECT_EQ(uintptr_t(first) % 8, 0u);
    RvMemPoolDestroy(pool);
}

// Required: the comparison is strict.
TEST_F(MemoryPool, request_that_would_fill_the_block_exactly_moves_on)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    EXPECT_EQ(placeOf(pool, RvMemPoolAlloc(64, pool)), std::make_pair(1, 0L));
    EXPECT_EQ(pool->block_switches, 1u);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, large_request_gets_its_own_block_and_reuses_it_after_a_reset)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    void* const first = RvMemPoolAlloc(1001, pool);
    EXPECT_EQ(blockSizes(pool), (std::vector<long>{ 64, 1008 }));
    RvMemPoolReset(pool);
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolAlloc(1001, pool), first);
    EXPECT_EQ(takeProblem(), "");
    rv::limitAllocations(-1);
    EXPECT_EQ(pool->block_count, 2u);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, popping_a_mark_frees_what_came_after_it)
{
    RtMemPool* const pool = RvMemPoolCreate(256);
    RvMemPoolAlloc(24, pool);
    RvMemPoolPushMark(pool);
    void* const first = RvMemPoolAlloc(8, pool);
    RvMemPoolAlloc(1000, pool);
    RvMemPoolAlloc(8, pool);
    RvMemPoolPopMark(pool);
    EXPECT_EQ(RvMemPoolAlloc(8, pool), first);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, popping_without_a_mark_does_nothing)
{
    RtMemPool* const pool = RvMemPoolCreate(256);
    char* const first = static_cast<char*>(RvMemPoolAlloc(8, pool));
    RvMemPoolPopMark(pool);
    EXPECT_EQ(pool->mark_top, -1);
    EXPECT_EQ(RvMemPoolAlloc(8, pool), first + 8);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, marks_beyond_the_capacity_are_refused_once_and_keep_the_others_paired)
{
    constexpr int nested = RtMemPool::mark_capacity + 5;
    RtMemPool* const pool = RvMemPoolCreate(1 << 20);
    std::vector<void*> after_push;
    for (int i = 0; i < nested; ++i) {
        RvMemPoolPushMark(pool);
        after_push.push_back(RvMemPoolAlloc(8, pool));
    }
    EXPECT_EQ(takeProblem(), "memory pool: more than 1024 marks are nested");
    EXPECT_EQ(pool->mark_top, RtMemPool::mark_capacity - 1);
    // The pops of refused marks give nothing back.
    for (int i = nested; i-- > RtMemPool::mark_capacity;) {
        RvMemPoolPopMark(pool);
        EXPECT_GT(RvMemPoolAlloc(8, pool), after_push.back()) << i;
    }
    for (int i = RtMemPool::mark_capacity; i-- > 0;) {
        RvMemPoolPopMark(pool);
        EXPECT_EQ(RvMemPoolAlloc(8, pool), after_push[size_t(i)]) << i;
    }
    EXPECT_EQ(pool->mark_top, -1);
    for (int i = 0; i < nested; ++i)
        RvMemPoolPushMark(pool);
    EXPECT_EQ(takeProblem(), "") << "reported once per pool";
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, mark_left_from_before_a_reset_stays_inside_the_pool)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    RvMemPoolAlloc(60, pool);
    RvMemPoolAlloc(40, pool); // in the second block
    RvMemPoolPushMark(pool);
    RvMemPoolReset(pool);
    RvMemPoolAlloc(60, pool);
    RvMemPoolAlloc(1 << 20, pool); // the second block grows and probably moves
    RvMemPoolPopMark(pool);
    for (int i = 0; i < 100; ++i) {
        void* const p = RvMemPoolAlloc(40, pool);
        ASSERT_GE(placeOf(pool, p).first, 0);
        memset(p, 0x5a, 40);
    }
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, blocks_are_kept_over_resets)
{
    RtMemPool* const pool = RvMemPoolCreate(256);
    for (int i = 0; i < 100; ++i)
        RvMemPoolAlloc(100, pool);
    const unsigned blocks = pool->block_count;
    rv::limitAllocations(0);
    for (int round = 0; round < 10; ++round) {
        RvMemPoolReset(pool);
        for (int i = 0; i < 100; ++i)
            ASSERT_NE(RvMemPoolAlloc(100, pool), nullptr);
    }
    rv::limitAllocations(-1);
    EXPECT_EQ(pool->block_count, blocks);
    EXPECT_EQ(pool->reset_count, 10u);
    EXPECT_EQ(pool->alloc_count, 1100u);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, requests_of_any_size_are_aligned_and_share_no_byte)
{
    RtMemPool* const pool = RvMemPoolCreate(1000); // no multiple of a power of two
    std::vector<std::pair<char*, unsigned>> pieces;
    uint32_t state = 1;
    for (int i = 0; i < 3000; ++i) {
        state = state * 1664525 + 1013904223;
        const unsigned size = (state >> 8) % (i % 20 ? 200 : 5000);
        char* const piece = static_cast<char*>(RvMemPoolAlloc(size, pool));
        ASSERT_EQ(uintptr_t(piece) % 8, 0u);
        memset(piece, i % 251, size);
        pieces.emplace_back(piece, size);
    }
    for (size_t i = 0; i < pieces.size(); ++i) {
        const auto [piece, size] = pieces[i];
        EXPECT_EQ(std::count(piece, piece + size, char(i % 251)), ptrdiff_t(size)) << i;
    }
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, reset_of_no_pool_is_ignored)
{
    RvMemPoolReset(nullptr);
    RvMemPoolDestroy(nullptr);
}

TEST_F(MemoryPool, empty_requests_and_empty_blocks_are_harmless)
{
    RtMemPool* const pool = RvMemPoolCreate(0);
    EXPECT_NE(RvMemPoolAlloc(0, pool), nullptr);
    void* const p = RvMemPoolAlloc(8, pool);
    ASSERT_NE(p, nullptr);
    memset(p, 0x5a, 8);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, copies_strings_into_the_pool_or_onto_the_heap)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    char* const in_pool = RvMemPoolStrdup("abc", pool);
    EXPECT_STREQ(in_pool, "abc");
    EXPECT_EQ(placeOf(pool, in_pool), std::make_pair(0, 0L));
    EXPECT_EQ(pool->max_request, 4u);
    char* const on_heap = RvMemPoolStrdup("abc", nullptr);
    EXPECT_STREQ(on_heap, "abc");
    RvFree_func(on_heap);
    EXPECT_EQ(RvMemPoolStrdup(nullptr, pool), nullptr);
    EXPECT_EQ(RvMemPoolStrdup(nullptr, nullptr), nullptr);
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, creation_reports_an_exhausted_heap)
{
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolCreate(64), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(), "can't allocate " + std::to_string(sizeof(RtMemPool)) +
                                             " bytes in core\\src\\system\\memory:AllocInit():");
    rv::limitAllocations(1);
    EXPECT_EQ(RvMemPoolCreate(64), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 96 bytes in core\\src\\system\\memory:AllocHdr():");
}

TEST_F(MemoryPool, exhausted_heap_is_reported_and_leaves_the_pool_usable)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    RvMemPoolAlloc(8, pool);
    const uint64_t bytes = pool->bytes_total;
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolAlloc(100, pool), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 136 bytes in core\\src\\system\\memory:AllocHdr():");
    EXPECT_EQ(pool->bytes_total, bytes);
    EXPECT_EQ(placeOf(pool, RvMemPoolAlloc(8, pool)), std::make_pair(0, 8L));
    rv::limitAllocations(-1);
    EXPECT_EQ(placeOf(pool, RvMemPoolAlloc(100, pool)), std::make_pair(1, 0L));
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, failed_growth_of_a_kept_block_is_reported_and_keeps_it)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    RvMemPoolAlloc(100, pool);
    RvMemPoolReset(pool);
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolAlloc(200, pool), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't reallocate 232 bytes in core\\src\\system\\memory:Alloc():");
    EXPECT_EQ(placeOf(pool, RvMemPoolAlloc(100, pool)), std::make_pair(1, 0L));
    rv::limitAllocations(-1);
    EXPECT_EQ(blockSizes(pool), (std::vector<long>{ 64, 104 }));
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, requests_near_4_gib_do_not_wrap)
{
    RtMemPool* const pool = RvMemPoolCreate(64);
    rv::limitAllocations(0);
    for (const unsigned size : { UINT32_MAX, UINT32_MAX - 6, UINT32_MAX - 7, UINT32_MAX - 39 })
        EXPECT_EQ(RvMemPoolAlloc(size, pool), nullptr) << size;
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 4294967328 bytes in core\\src\\system\\memory:AllocHdr(): | "
              "can't allocate 4294967328 bytes in core\\src\\system\\memory:AllocHdr(): | "
              "can't allocate 4294967320 bytes in core\\src\\system\\memory:AllocHdr(): | "
              "can't allocate 4294967288 bytes in core\\src\\system\\memory:AllocHdr():");
    rv::limitAllocations(-1);
    RvMemPoolAlloc(100, pool); // now the next block is kept and would have to grow
    RvMemPoolReset(pool);
    EXPECT_EQ(RvMemPoolAlloc(UINT32_MAX, pool), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't reallocate 4294967328 bytes in core\\src\\system\\memory:Alloc():");
    RvMemPoolDestroy(pool);
}

TEST_F(MemoryPool, failed_string_copies_are_reported)
{
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolStrdup("abc", nullptr), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 4 bytes in core\\src\\system\\memory:strdup_pool():");
    rv::limitAllocations(-1);
    RtMemPool* const pool = RvMemPoolCreate(8);
    rv::limitAllocations(0);
    EXPECT_EQ(RvMemPoolStrdup("abcdefghi", pool), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 48 bytes in core\\src\\system\\memory:AllocHdr():");
    rv::limitAllocations(-1);
    RvMemPoolDestroy(pool);
}
