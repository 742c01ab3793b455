// The string pool.
#include "strpool.h"

#include "frame_fixture.h"
#include "hash.h"

#include <set>

class StringPool : public BareFrame {
protected:
    void SetUp() override
    {
        BareFrame::SetUp();
        pool = RtStringPool::create(16);
    }
    void TearDown() override
    {
        if (pool)
            destroyPool();
        BareFrame::TearDown();
    }

    // Destroys the pool and then frees the copies that it leaves to their holders.
    void destroyPool()
    {
        std::set<char*> leaked;
        for (unsigned i = 0; i < pool->capacity; ++i)
            if (pool->slots[i].refs > 0)
                leaked.insert(pool->slots[i].text);
        RtStringPool::destroy(pool);
        for (char* text : leaked)
            RvFree_func(text);
        pool = nullptr;
    }

    const RtStringPool::Slot* slotOf(const std::string& s) const
    {
        for (unsigned i = 0; i < pool->capacity; ++i)
            if (pool->slots[i].refs > 0 && pool->slots[i].text == s)
                return &pool->slots[i];
        return nullptr;
    }

    // What every search relies on: a slot that was never used, and none between a string and its
    // home. The count and the tombstones must be those of the slots.
    void expectSearchable() const
    {
        unsigned live = 0, removed = 0;
        for (unsigned i = 0; i < pool->capacity; ++i) {
            const RtStringPool::Slot& slot = pool->slots[i];
            live += slot.refs > 0;
            removed += slot.refs < 0;
            const unsigned mask = pool->capacity - 1;
            for (unsigned j = slot.hash & mask; slot.refs > 0 && j != i; j = (j + 1) & mask)
                ASSERT_NE(pool->slots[j].refs, 0) << slot.text;
        }
        EXPECT_EQ(pool->count, live);
        EXPECT_EQ(pool->tombstones, removed);
        EXPECT_LT(live + removed, pool->capacity);
    }

    void addMany(const std::string& format, int first, int count)
    {
        for (int i = 0; i < count; ++i)
            pool->Add(numbered(format, first + i).c_str());
    }
    void removeMany(const std::string& format, int first, int count)
    {
        for (int i = 0; i < count; ++i)
            pool->Remove(numbered(format, first + i).c_str());
    }

    RtStringPool* pool = nullptr;
};

TEST_F(StringPool, agrees_with_the_golden_sequences)
{
    for (const auto& v : goldenVectors("foundation", "string_pool_sequence")) {
        RtStringPool::destroy(pool);
        pool = RtStringPool::create(v["in"]["requested_capacity"]);
        for (const auto& op : v["in"]["ops"]) {
            if (op[0] == "add")
                pool->Add(op[1].get<std::string>().c_str());
            else if (op[0] == "addn")
                addMany(op[1], op[2], op[3]);
            else if (op[0] == "removen")
                removeMany(op[1], op[2], op[3]);
            else if (op[0] == "addrep")
                for (int i = 0; i < op[2]; ++i)
                    pool->Add(op[1].get<std::string>().c_str());
            else
                FAIL() << op;
        }
        const auto& out = v["out"];
        EXPECT_EQ(pool->capacity, out["capacity"]) << v["id"];
        EXPECT_EQ(pool->grow_threshold, out["grow_threshold"]) << v["id"];
        EXPECT_EQ(pool->count, out["count"]) << v["id"];
        EXPECT_EQ(pool->max_count, out["max_count"]) << v["id"];
        EXPECT_EQ(pool->resize_count, out["resize_count"]) << v["id"];
        EXPECT_EQ(pool->hits, out["hits"]) << v["id"];
        EXPECT_EQ(pool->Summary(), out["summary"].get<std::string>()) << v["id"];
        EXPECT_EQ(pool->summary, out["summary"].get<std::string>()) << v["id"];
        EXPECT_EQ(takeProblems(), out["warnings"].get<std::vector<std::string>>()) << v["id"];
        destroyPool();
        EXPECT_EQ(takeProblems(), out["destroy_warnings"].get<std::vector<std::string>>())
            << v["id"];
    }
}

TEST_F(StringPool, shares_one_copy_between_equal_strings)
{
    char mine[] = "abc";
    const char* const first = pool->Add(mine);
    EXPECT_STREQ(first, "abc");
    EXPECT_NE(first, mine);
    EXPECT_EQ(pool->Add("abc"), first);
    EXPECT_EQ(pool->Add(first), first);
    EXPECT_EQ(pool->count, 1u);
    EXPECT_EQ(pool->hits, 2u);
    EXPECT_EQ(slotOf("abc")->refs, 3);
    EXPECT_EQ(slotOf("abc")->hash, rv::stringHash("abc"));
    mine[0] = 'x';
    EXPECT_STREQ(first, "abc");
    for (int i = 0; i < 3; ++i)
        pool->Remove("abc");
}

TEST_F(StringPool, last_removal_leaves_a_tombstone)
{
    pool->Add("abc");
    const char* const text = pool->Add("abc");
    const RtStringPool::Slot* const slot = slotOf("abc");
    EXPECT_EQ(slot->refs, 2);
    pool->Remove("abc");
    EXPECT_EQ(slot->refs, 1);
    EXPECT_EQ(slot->text, text);
    EXPECT_EQ(pool->count, 1u);
    pool->Remove(text); // the pool's own copy is as good as any
    EXPECT_EQ(slot->refs, -1);
    EXPECT_EQ(slot->text, nullptr);
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(pool->max_count, 1u);
    EXPECT_EQ(pool->tombstones, 1u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, reuses_the_first_tombstone_on_the_way)
{
    pool->Add("abc");
    const RtStringPool::Slot* const slot = slotOf("abc");
    pool->Remove("abc");
    pool->Add("abc");
    EXPECT_EQ(slotOf("abc"), slot);
    EXPECT_EQ(pool->tombstones, 0u);
    pool->Remove("abc");
}

TEST_F(StringPool, reuses_the_first_tombstone_however_long_the_way)
{
    RtStringPool::destroy(pool);
    pool = RtStringPool::create(256);
    addMany("s%d", 0, 238);
    for (int i = 0; i < 238; i += 20)
        pool->Remove(numbered("s%d", i).c_str());
    for (int i = 0; i < 10; ++i) {
        const std::string name = numbered("new%d", i);
        unsigned expected = rv::stringHash(name.c_str()) & 255;
        while (pool->slots[expected].refs > 0)
            expected = (expected + 1) & 255;
        pool->Add(name.c_str());
        EXPECT_EQ(slotOf(name), &pool->slots[expected]) << name;
    }
    removeMany("new%d", 0, 10);
    for (int i = 0; i < 238; ++i)
        if (i % 20)
            pool->Remove(numbered("s%d", i).c_str());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, finds_strings_behind_tombstones)
{
    addMany("s%d", 0, 14);
    for (int removed = 0; removed < 14; ++removed) {
        pool->Remove(numbered("s%d", removed).c_str());
        for (int i = removed + 1; i < 14; ++i)
            EXPECT_NE(slotOf(numbered("s%d", i)), nullptr);
        for (int i = removed + 1; i < 14; ++i) {
            pool->Add(numbered("s%d", i).c_str());
            EXPECT_EQ(slotOf(numbered("s%d", i))->refs, 2) << i << " after " << removed;
            pool->Remove(numbered("s%d", i).c_str());
        }
    }
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, probes_linearly_from_the_home_slot)
{
    for (const int live : { 1, 12, 15, 16, 29, 200 }) {
        addMany("s%d", 0, live);
        expectSearchable();
        removeMany("s%d", 0, live);
        expectSearchable();
    }
}

TEST_F(StringPool, removing_an_unknown_string_warns_and_changes_nothing)
{
    pool->Add("known");
    pool->Remove("unknown");
    EXPECT_EQ(takeProblem(),
              "RtStringPool: out of sync?  could not find entry `unknown' to remove");
    EXPECT_EQ(pool->count, 1u);
    EXPECT_EQ(pool->tombstones, 0u);
    pool->Remove("known");
    pool->Remove("known");
    EXPECT_EQ(takeProblem(), "RtStringPool: out of sync?  could not find entry `known' to remove");
}

TEST_F(StringPool, null_is_no_string)
{
    EXPECT_EQ(pool->Add(nullptr), nullptr);
    pool->Remove(nullptr);
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, holds_strings_of_every_length)
{
    std::vector<const char*> kept;
    for (size_t length = 0; length < 200; ++length)
        kept.push_back(pool->Add(std::string(length, 'a').c_str()));
    for (size_t length = 0; length < 200; ++length) {
        const std::string text(length, 'a');
        EXPECT_EQ(kept[length], text);
        EXPECT_EQ(pool->Add(text.c_str()), kept[length]);
        pool->Remove(kept[length]);
        pool->Remove(kept[length]);
    }
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, tells_strings_with_the_same_hash_apart)
{
    // Numbered names collide in the hash soon.
    std::map<uint32_t, std::string> seen;
    std::string first, second;
    for (int i = 0; second.empty(); ++i) {
        const std::string name = numbered("node%07d", i);
        const auto [at, is_new] = seen.emplace(rv::stringHash(name.c_str()), name);
        if (!is_new) {
            first = at->second;
            second = name;
        }
        ASSERT_LT(i, 1000000);
    }
    const char* const a = pool->Add(first.c_str());
    const char* const b = pool->Add(second.c_str());
    EXPECT_NE(a, b);
    EXPECT_EQ(a, first);
    EXPECT_EQ(b, second);
    pool->Remove(first.c_str());
    EXPECT_EQ(pool->Add(second.c_str()), b);
    pool->Remove(b);
    pool->Remove(b);
}

TEST_F(StringPool, growth_doubles_the_table_and_drops_tombstones)
{
    addMany("k%d", 0, 5);
    removeMany("k%d", 0, 5);
    EXPECT_GT(pool->tombstones, 0u);
    addMany("s%d", 0, 16);
    EXPECT_EQ(pool->capacity, 32u);
    EXPECT_EQ(pool->grow_threshold, 30u);
    EXPECT_EQ(pool->resize_count, 1u);
    EXPECT_EQ(pool->tombstones, 0u);
    for (unsigned i = 0; i < pool->capacity; ++i)
        EXPECT_GE(pool->slots[i].refs, 0);
    removeMany("s%d", 0, 16);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, finding_a_string_in_a_full_table_does_not_grow_it)
{
    addMany("s%d", 0, 15);
    addMany("s%d", 0, 15);
    EXPECT_EQ(pool->capacity, 16u);
    EXPECT_EQ(pool->resize_count, 0u);
    EXPECT_EQ(pool->hits, 15u);
    for (int round = 0; round < 2; ++round)
        removeMany("s%d", 0, 15);
    EXPECT_EQ(takeProblem(), "");
}

// A table of any fill must keep a slot that was never used, or a search would not end.
TEST_F(StringPool, endless_renaming_neither_grows_the_table_nor_fills_it_with_tombstones)
{
    for (const int live : { 0, 1, 7, 13, 14, 15 }) {
        addMany("live%d", 0, live);
        for (int i = 0; i < 1000; ++i) {
            if (live == 15) { // as many as there may be: one makes room for the next
                pool->Remove(numbered(i ? "renamed%d" : "live%d", i ? i - 1 : 14).c_str());
                pool->Add(numbered("renamed%d", i).c_str());
            } else {
                pool->Add(numbered("renamed%d", i).c_str());
                pool->Remove(numbered("renamed%d", i).c_str());
            }
            ASSERT_LT(pool->count + pool->tombstones, pool->capacity) << live;
        }
        EXPECT_EQ(pool->capacity, 16u) << live;
        EXPECT_EQ(pool->resize_count, 0u) << live;
        for (int i = 0; i < std::min(live, 14); ++i)
            EXPECT_NE(slotOf(numbered("live%d", i)), nullptr) << i << " of " << live;
        removeMany("live%d", 0, std::min(live, 14));
        if (live == 15)
            pool->Remove("renamed999");
        EXPECT_EQ(pool->count, 0u) << live;
        EXPECT_EQ(takeProblem(), "") << live;
    }
}

TEST_F(StringPool, sweeping_keeps_every_string_where_a_search_finds_it)
{
    for (const unsigned capacity : { 16u, 64u, 256u })
        for (const unsigned empty : { 1u, 2u, 5u, 9u }) {
            RtStringPool::destroy(pool);
            pool = RtStringPool::create(capacity);
            const int live = int(capacity / 16 * 15 - empty);
            addMany("live%d", 0, live);
            for (int i = 0; i < 300; ++i) {
                pool->Remove(numbered("live%d", i).c_str());
                pool->Add(numbered("live%d", i + live).c_str());
                expectSearchable();
            }
            EXPECT_EQ(pool->capacity, capacity);
            EXPECT_EQ(pool->hits, 0u);
            for (int i = 300; i < 300 + live; ++i)
                pool->Remove(numbered("live%d", i).c_str());
            EXPECT_EQ(takeProblem(), "") << capacity << " " << empty;
        }
}

TEST_F(StringPool, full_table_is_not_swept_at_every_removal)
{
    RtStringPool::destroy(pool);
    pool = RtStringPool::create(1024);
    addMany("live%d", 0, 959);
    unsigned most_tombstones = 0;
    for (int i = 0; i < 500; ++i) {
        pool->Add(numbered("renamed%d", i).c_str());
        pool->Remove(numbered("renamed%d", i).c_str());
        most_tombstones = std::max(most_tombstones, pool->tombstones);
    }
    EXPECT_GE(most_tombstones, 10u);
    removeMany("live%d", 0, 959);
}

TEST_F(StringPool, agrees_with_a_model_over_a_long_random_history)
{
    std::multiset<std::string> model;
    uint32_t state = 1;
    const auto random = [&state](uint32_t n) {
        state = state * 1664525 + 1013904223;
        return (state >> 8) % n;
    };
    for (int i = 0; i < 60000; ++i) {
        // The range of names swings, so that the table grows, empties and is swept.
        const std::string name = numbered("object%d", int(random(50 + uint32_t(i % 3000))));
        if (random(2)) {
            EXPECT_EQ(pool->Add(name.c_str()), name);
            model.insert(name);
        } else if (const auto at = model.find(name); at != model.end()) {
            pool->Remove(name.c_str());
            model.erase(at);
        }
        for (unsigned k = 0; i % 5000 == 0 && k < pool->capacity; ++k) {
            const RtStringPool::Slot& slot = pool->slots[k];
            const size_t expected = slot.refs > 0 ? model.count(slot.text) : 0;
            ASSERT_EQ(std::max(slot.refs, 0), int(expected));
        }
    }
    EXPECT_EQ(pool->count, (std::set<std::string>(model.begin(), model.end()).size()));
    for (const std::string& name : model)
        pool->Remove(name.c_str());
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, capacity_is_the_power_of_two_not_below_the_request)
{
    static const struct {
        unsigned requested, capacity;
    } cases[] = { { 0, 16 },      { 16, 16 },     { 17, 32 },
                  { 8000, 8192 }, { 8192, 8192 }, { 100000, 131072 } };
    for (const auto& c : cases) {
        RtStringPool* const p = RtStringPool::create(c.requested);
        EXPECT_EQ(p->capacity, c.capacity);
        EXPECT_EQ(p->grow_threshold, c.capacity / 16 * 15);
        RtStringPool::destroy(p);
    }
}

// Required: only the first leaked string is named, and a single one is not counted.
TEST_F(StringPool, names_the_first_leaked_string_and_counts_several)
{
    pool->Add("abc");
    destroyPool();
    EXPECT_EQ(takeProblem(), "[strpool] String \"abc\" still has 1 reference");

    pool = RtStringPool::create(16);
    pool->Add("abc");
    pool->Add("abc");
    destroyPool();
    EXPECT_EQ(takeProblem(), "[strpool] String \"abc\" still has 2 references");

    pool = RtStringPool::create(16);
    addMany("s%d", 0, 3);
    destroyPool();
    const std::string problem = takeProblem();
    EXPECT_EQ(problem.find("[strpool] String \"s"), 0u) << problem;
    EXPECT_NE(problem.find("\" still has 1 reference | [strpool] 3 strings have not been properly "
                           "released"),
              std::string::npos)
        << problem;
}

TEST_F(StringPool, leaves_leaked_copies_to_their_holders)
{
    const char* const text = pool->Add("abc");
    RtStringPool::destroy(pool);
    pool = nullptr;
    EXPECT_STREQ(text, "abc");
    RvFree_func(const_cast<char*>(text));
    takeProblem();
}

TEST_F(StringPool, summary_tells_saving_from_overhead)
{
    const double own_cost = double(16 * 16 + sizeof(RtStringPool)) / 1048576;
    char expected[100];
    snprintf(expected, sizeof expected, "0 unique strings, overhead %.2f mb", own_cost);
    EXPECT_STREQ(pool->Summary(), expected);
    const std::string text(10000, 't');
    for (int i = 0; i < 1001; ++i)
        pool->Add(text.c_str());
    snprintf(expected, sizeof expected, "1 unique strings, saved %.2f mb",
             1000 * 10001 / 1048576.0 - own_cost);
    EXPECT_STREQ(pool->Summary(), expected);
    for (int i = 0; i < 1001; ++i)
        pool->Remove(text.c_str());
}

TEST_F(StringPool, summary_calls_it_saved_from_the_first_byte_on)
{
    const size_t own_cost = 16 * 16 + sizeof(RtStringPool);
    for (const bool saved : { false, true }) {
        const std::string text(own_cost - 1 + saved, 't'); // and its terminator
        pool->Add(text.c_str());
        pool->Add(text.c_str());
        EXPECT_STREQ(pool->Summary(), saved ? "1 unique strings, saved 0.00 mb"
                                            : "1 unique strings, overhead 0.00 mb");
        pool->Remove(text.c_str());
        pool->Remove(text.c_str());
    }
}

TEST_F(StringPool, its_size_is_that_of_the_pool_and_of_each_string_once)
{
    const int64_t empty = pool->bytes();
    EXPECT_EQ(empty, int64_t(sizeof(RtStringPool) + 16 * (sizeof(RtStringPool::Slot) + 1)));
    pool->Add("abc");
    pool->Add("abc");
    EXPECT_EQ(pool->bytes(), empty + 4);
    pool->Remove("abc");
    EXPECT_EQ(pool->bytes(), empty + 4);
    pool->Remove("abc");
    EXPECT_EQ(pool->bytes(), empty);
}

TEST_F(StringPool, creation_reports_an_exhausted_heap_at_every_step)
{
    for (int granted = 0; granted < 3; ++granted) { // the record, the table, the lock
        rv::limitAllocations(granted);
        EXPECT_EQ(RtStringPool::create(16), nullptr) << granted;
        rv::limitAllocations(-1);
        const std::string problem = takeProblem();
        EXPECT_EQ(problem.find("can't allocate "), 0u) << problem;
        EXPECT_NE(problem.find(" | could not allocate string pool"), std::string::npos) << problem;
    }
}

TEST_F(StringPool, creation_refuses_a_table_that_cannot_be_addressed)
{
    rv::limitAllocations(1); // never ask this machine for gigabytes
    EXPECT_EQ(RtStringPool::create(UINT32_MAX), nullptr);
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 73014444048 bytes in core\\src\\strpool:RtStringPool::Resize(): | "
              "could not allocate string pool");
}

TEST_F(StringPool, failed_copy_is_reported_and_leaves_the_pool_as_it_was)
{
    pool->Add("kept");
    rv::limitAllocations(0);
    EXPECT_EQ(pool->Add("refused"), nullptr);
    EXPECT_STREQ(pool->Add("kept"), "kept"); // present: needs no memory
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 8 bytes in core\\src\\strpool:RtStringPool::Add():");
    EXPECT_EQ(pool->count, 1u);
    EXPECT_STREQ(pool->Add("refused"), "refused");
    pool->Remove("refused");
    pool->Remove("kept");
    pool->Remove("kept");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, failed_growth_leaves_the_table_whole)
{
    addMany("s%d", 0, 15);
    for (int granted = 0; granted < 2; ++granted) { // the new table, the copy
        rv::limitAllocations(granted);
        EXPECT_EQ(pool->Add("sixteenth"), nullptr);
        rv::limitAllocations(-1);
        EXPECT_EQ(takeProblemWithoutLines(),
                  granted == 0
                      ? "can't allocate 560 bytes in core\\src\\strpool:RtStringPool::Resize():"
                      : "can't allocate 10 bytes in core\\src\\strpool:RtStringPool::Add():");
        EXPECT_EQ(pool->capacity, 16u);
        EXPECT_EQ(pool->count, 15u);
        EXPECT_EQ(pool->resize_count, 0u);
    }
    EXPECT_STREQ(pool->Add("sixteenth"), "sixteenth");
    EXPECT_EQ(pool->capacity, 32u);
    removeMany("s%d", 0, 15);
    pool->Remove("sixteenth");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, of_the_universe_is_reached_by_interning)
{
    const char* const text = rv::internString("abc");
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(frame.strings->count, 1u);
    EXPECT_EQ(rv::internString("abc"), text);
    rv::releaseString(text);
    rv::releaseString(text);
    EXPECT_EQ(frame.strings->count, 0u);
}

TEST_F(StringPool, interning_without_a_pool_keeps_nothing)
{
    RtStringPool* const kept = frame.strings;
    frame.strings = nullptr;
    EXPECT_EQ(rv::internString("abc"), nullptr);
    rv::releaseString("abc");
    frame.strings = kept;
    rv::the_frame = nullptr;
    EXPECT_EQ(rv::internString("abc"), nullptr);
    rv::releaseString("abc");
    rv::the_frame = &frame;
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(StringPool, concurrent_adding_and_removing_keeps_every_reference)
{
    onThreads(4, [this](int thread) {
        for (int round = 0; round < 20; ++round) {
            std::vector<const char*> kept;
            for (int i = 0; i < 200; ++i) {
                const std::string name = numbered("shared%d", (i * (thread + 1)) % 150);
                kept.push_back(pool->Add(name.c_str()));
                EXPECT_EQ(kept.back(), name);
            }
            for (const char* text : kept)
                pool->Remove(text);
        }
    });
    EXPECT_EQ(pool->count, 0u);
    EXPECT_EQ(takeProblem(), "");
}
