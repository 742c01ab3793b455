// The simple hash and the map without removal.
#include "shash.h"

#include "frame_fixture.h"

#include <set>

// Distinct non-null values.
static void* valueOf(int number) { return reinterpret_cast<void*>(intptr_t(number)); }

// ---------------------------------------------------------------------------- simple hash

class SimpleHash : public BareFrame {
protected:
    void SetUp() override
    {
        BareFrame::SetUp();
        table = simpleHash_new();
    }
    void TearDown() override
    {
        simpleHash_destroy(table);
        BareFrame::TearDown();
    }

    // Keys belong to the caller and must outlive their entries.
    const char* key(const std::string& format, int number)
    {
        return keys.insert(numbered(format, number)).first->c_str();
    }

    RtSimpleHash* table = nullptr;
    std::set<std::string> keys;
};

TEST_F(SimpleHash, starts_empty_with_512_slots)
{
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(table->capacity, 512u);
    EXPECT_FALSE(table->intern_keys);
    EXPECT_EQ(simpleHash_lookup(table, "absent"), nullptr);
}

TEST_F(SimpleHash, returns_1999_numbers_and_then_none)
{
    for (int i = 1; i <= 1999; ++i)
        EXPECT_TRUE(simpleHash_insert(table, key("/tmp/myTexture.%04d.tif", i), valueOf(i)));
    EXPECT_EQ(table->count, 1999u);
    for (int i = 1; i <= 1999; ++i)
        EXPECT_EQ(simpleHash_lookup(table, numbered("/tmp/myTexture.%04d.tif", i).c_str()),
                  valueOf(i));
    for (int i = 1; i <= 1999; ++i)
        simpleHash_remove(table, key("/tmp/myTexture.%04d.tif", i));
    EXPECT_EQ(table->count, 0u);
    for (int i = 1; i <= 1999; ++i)
        EXPECT_EQ(simpleHash_lookup(table, key("/tmp/myTexture.%04d.tif", i)), nullptr);
}

TEST_F(SimpleHash, grows_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("foundation", "simple_hash_growth")) {
        std::vector<std::pair<int, unsigned>> changes;
        unsigned capacity = 0;
        const int first = v["in"]["first"], last = v["in"]["last"];
        for (int i = first; i <= last; ++i) {
            simpleHash_insert(table, key(v["in"]["key_format"], i), valueOf(i));
            if (table->capacity != capacity)
                changes.emplace_back(i, capacity = table->capacity);
        }
        EXPECT_EQ(changes,
                  (v["out"]["capacity_changes"].get<std::vector<std::pair<int, unsigned>>>()))
            << v["id"];
        EXPECT_EQ(table->count, v["out"]["final_count"]) << v["id"];
    }
}

TEST_F(SimpleHash, doubles_on_the_257th_entry)
{
    for (int i = 1; i <= 256; ++i)
        simpleHash_insert(table, key("k%d", i), valueOf(i));
    EXPECT_EQ(table->capacity, 512u);
    simpleHash_insert(table, key("k%d", 257), valueOf(257));
    EXPECT_EQ(table->capacity, 1024u);
    for (int i = 1; i <= 257; ++i)
        EXPECT_EQ(simpleHash_lookup(table, key("k%d", i)), valueOf(i));
}

TEST_F(SimpleHash, replaces_the_values_of_known_keys)
{
    for (const auto& v : goldenVectors("foundation", "simple_hash_sequence")) {
        const int last = v["in"]["insert_k0_to"];
        ASSERT_EQ(v["in"]["then_replace_same_keys_with"], "value+1000") << v["id"];
        for (int i = 0; i <= last; ++i)
            simpleHash_insert(table, key("k%d", i), valueOf(i + 1));
        for (int i = 0; i <= last; ++i)
            simpleHash_insert(table, key("k%d", i), valueOf(i + 1000));
        EXPECT_EQ(table->count, v["out"]["count"]) << v["id"];
        EXPECT_EQ(table->capacity, v["out"]["capacity"]) << v["id"];
        EXPECT_EQ(simpleHash_lookup(table, "k17"), valueOf(v["out"]["lookup_k17"])) << v["id"];
        EXPECT_TRUE(v["out"]["lookup_absent"].is_null()) << v["id"];
        EXPECT_EQ(simpleHash_lookup(table, "absent"), nullptr) << v["id"];
    }
}

TEST_F(SimpleHash, removing_what_is_absent_changes_nothing)
{
    simpleHash_insert(table, "a", valueOf(1));
    simpleHash_remove(table, "b");
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(simpleHash_lookup(table, "a"), valueOf(1));
    simpleHash_remove(table, "a");
    simpleHash_remove(table, "a");
    EXPECT_EQ(table->count, 0u);
}

TEST_F(SimpleHash, removed_entry_leaves_its_value_without_a_key)
{
    simpleHash_insert(table, "a", valueOf(1));
    simpleHash_remove(table, "a");
    int removed_entries = 0;
    for (unsigned i = 0; i < table->capacity; ++i)
        if (table->slots[i].value) {
            EXPECT_EQ(table->slots[i].key, nullptr);
            EXPECT_EQ(table->slots[i].value, valueOf(1));
            ++removed_entries;
        }
    EXPECT_EQ(removed_entries, 1);
    EXPECT_EQ(table->tombstones, 1u);
    simpleHash_insert(table, "a", valueOf(2));
    EXPECT_EQ(table->tombstones, 0u);
}

// The slots that a search for the key visits, in order: steps of 1, 2, 3 and so on.
static std::vector<unsigned> wayOf(const RtSimpleHash* table, const char* key, size_t length)
{
    std::vector<unsigned> way;
    unsigned i = rv::stringHash(key) & (table->capacity - 1);
    for (unsigned step = 1; way.size() < length; ++step) {
        way.push_back(i);
        i = (i + step) & (table->capacity - 1);
    }
    return way;
}

TEST_F(SimpleHash, every_entry_takes_the_first_empty_slot_on_its_way)
{
    std::set<unsigned> taken;
    size_t longest_way = 0;
    for (int i = 1; i <= 256; ++i) {
        const char* const name = key("k%d", i);
        simpleHash_insert(table, name, valueOf(i));
        size_t steps = 0;
        const std::vector<unsigned> way = wayOf(table, name, 100);
        while (taken.count(way[steps]))
            ++steps;
        taken.insert(way[steps]);
        longest_way = std::max(longest_way, steps);
        EXPECT_EQ(table->slots[way[steps]].key, name);
        EXPECT_EQ(table->slots[way[steps]].hash, rv::stringHash(name));
        EXPECT_EQ(table->slots[way[steps]].value, valueOf(i));
    }
    EXPECT_GE(longest_way, 3u); // or steps of 1 would do as well
}

TEST_F(SimpleHash, growth_puts_entries_in_slot_order_on_their_new_ways)
{
    for (int i = 1; i <= 256; ++i)
        simpleHash_insert(table, key("k%d", i), valueOf(i));
    simpleHash_remove(table, "k7"); // growth drops what it leaves
    simpleHash_insert(table, "another", valueOf(257));
    std::vector<const char*> old_slots;
    for (unsigned i = 0; i < 512; ++i)
        old_slots.push_back(table->slots[i].key);
    // The last entry takes its old place first and then grows with the others.
    const char last[] = "last";
    for (const unsigned i : wayOf(table, last, 100))
        if (!old_slots[i]) {
            old_slots[i] = last;
            break;
        }
    simpleHash_insert(table, last, valueOf(258));
    ASSERT_EQ(table->capacity, 1024u);
    EXPECT_EQ(table->tombstones, 0u);

    std::map<unsigned, const char*> expected, found;
    for (const char* const name : old_slots)
        if (name)
            for (const unsigned i : wayOf(table, name, 100))
                if (expected.emplace(i, name).second)
                    break;
    for (unsigned i = 0; i < 1024; ++i)
        if (table->slots[i].value)
            found[i] = table->slots[i].key;
    EXPECT_EQ(found, expected);
}

TEST_F(SimpleHash, new_entry_takes_the_first_removed_slot_on_its_way)
{
    for (int i = 1; i <= 200; ++i)
        simpleHash_insert(table, key("k%d", i), valueOf(i));
    // A key that meets two entries before an empty slot.
    for (int i = 1; i <= 1000; ++i) {
        const char* const name = key("new%d", i);
        const std::vector<unsigned> way = wayOf(table, name, 3);
        const RtSimpleHash::Slot& second = table->slots[way[1]];
        if (!table->slots[way[0]].key || !second.key || table->slots[way[2]].value)
            continue;
        simpleHash_remove(table, second.key);
        EXPECT_EQ(simpleHash_lookup(table, name), nullptr);
        simpleHash_insert(table, name, valueOf(i));
        EXPECT_EQ(second.key, name);
        EXPECT_EQ(second.value, valueOf(i));
        EXPECT_FALSE(table->slots[way[2]].value);
        EXPECT_EQ(table->count, 200u);
        return;
    }
    ADD_FAILURE() << "no such key";
}

TEST_F(SimpleHash, refuses_null_arguments)
{
    EXPECT_FALSE(simpleHash_insert(table, "a", nullptr));
    EXPECT_FALSE(simpleHash_insert(table, nullptr, valueOf(1)));
    EXPECT_FALSE(simpleHash_insert(nullptr, "a", valueOf(1)));
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(simpleHash_lookup(table, nullptr), nullptr);
    EXPECT_EQ(simpleHash_lookup(nullptr, "a"), nullptr);
    EXPECT_EQ(simpleHash_lookupFrozen(nullptr, "a"), nullptr);
    simpleHash_remove(table, nullptr);
    simpleHash_remove(nullptr, "a");
    simpleHash_destroy(nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SimpleHash, keeps_the_callers_key_unless_it_interns)
{
    const char mine[] = "key";
    simpleHash_insert(table, mine, valueOf(1));
    for (unsigned i = 0; i < table->capacity; ++i)
        EXPECT_TRUE(!table->slots[i].value || table->slots[i].key == mine);
    EXPECT_EQ(frame.strings->count, 0u);
}

TEST_F(SimpleHash, interned_keys_outlive_the_callers_text)
{
    table->intern_keys = true;
    {
        char temporary[] = "key";
        simpleHash_insert(table, temporary, valueOf(1));
        simpleHash_insert(table, temporary, valueOf(2)); // replaces, takes no second reference
        temporary[0] = 'x';
    }
    EXPECT_EQ(simpleHash_lookup(table, "key"), valueOf(2));
    EXPECT_EQ(frame.strings->count, 1u);
    EXPECT_EQ(frame.strings->hits, 0u);
    simpleHash_remove(table, "key");
    EXPECT_EQ(frame.strings->count, 0u);
}

TEST_F(SimpleHash, destruction_releases_interned_keys)
{
    table->intern_keys = true;
    for (int i = 1; i <= 600; ++i)
        simpleHash_insert(table, numbered("k%d", i).c_str(), valueOf(i));
    EXPECT_EQ(frame.strings->count, 600u);
    simpleHash_destroy(table);
    table = nullptr;
    EXPECT_EQ(frame.strings->count, 0u);
}

TEST_F(SimpleHash, frozen_lookup_finds_the_same)
{
    for (int i = 1; i <= 100; ++i)
        simpleHash_insert(table, key("k%d", i), valueOf(i));
    for (int i = 1; i <= 110; ++i)
        EXPECT_EQ(simpleHash_lookupFrozen(table, key("k%d", i)),
                  simpleHash_lookup(table, key("k%d", i)));
}

// A table of any fill must keep an empty slot, or a search would not end.
TEST_F(SimpleHash, endless_renaming_neither_grows_the_table_nor_fills_it_with_tombstones)
{
    for (int i = 1; i <= 255; ++i)
        simpleHash_insert(table, key("live%d", i), valueOf(i));
    for (int i = 1; i <= 5000; ++i) {
        simpleHash_insert(table, key("renamed%d", i), valueOf(i));
        simpleHash_remove(table, key("renamed%d", i));
        ASSERT_LE(table->count + table->tombstones, 512u / 4 * 3 + 1);
    }
    EXPECT_EQ(table->capacity, 512u);
    EXPECT_EQ(table->count, 255u);
    for (int i = 1; i <= 255; ++i)
        EXPECT_EQ(simpleHash_lookup(table, key("live%d", i)), valueOf(i));
    EXPECT_EQ(simpleHash_lookup(table, "renamed1"), nullptr);
}

TEST_F(SimpleHash, agrees_with_a_model_over_a_long_random_history)
{
    std::map<std::string, void*> model;
    uint32_t state = 7;
    const auto random = [&state](uint32_t n) {
        state = state * 1664525 + 1013904223;
        return (state >> 8) % n;
    };
    for (int i = 1; i <= 40000; ++i) {
        const char* const name = key("object%d", int(random(20 + uint32_t(i % 2000))));
        if (random(2)) {
            EXPECT_TRUE(simpleHash_insert(table, name, valueOf(i)));
            model[name] = valueOf(i);
        } else {
            simpleHash_remove(table, name);
            model.erase(name);
        }
        const char* const other = key("object%d", int(random(2100)));
        const auto at = model.find(other);
        ASSERT_EQ(simpleHash_lookup(table, other), at == model.end() ? nullptr : at->second) << i;
    }
    EXPECT_EQ(table->count, model.size());
}

TEST_F(SimpleHash, creation_reports_an_exhausted_heap_at_every_step)
{
    static const char* const problems[] = {
        "can't allocate %zu bytes in core\\src\\shash:simpleHash_new():",
        "can't allocate 12288 bytes in core\\src\\shash:simpleHash_new():",
        "can't allocate 40 bytes in core\\src\\system\\critical_section:RvCritSecInit():",
    };
    for (int granted = 0; granted < 3; ++granted) {
        rv::limitAllocations(granted);
        EXPECT_EQ(simpleHash_new(), nullptr);
        rv::limitAllocations(-1);
        std::string expected = problems[granted];
        if (const size_t at = expected.find("%zu"); at != std::string::npos)
            expected.replace(at, 3, std::to_string(sizeof(RtSimpleHash)));
        EXPECT_EQ(takeProblemWithoutLines(), expected);
    }
}

TEST_F(SimpleHash, failed_growth_leaves_the_table_whole)
{
    for (int i = 1; i <= 256; ++i)
        simpleHash_insert(table, key("k%d", i), valueOf(i));
    rv::limitAllocations(0);
    EXPECT_FALSE(simpleHash_insert(table, "one more", valueOf(1)));
    EXPECT_TRUE(simpleHash_insert(table, "k1", valueOf(1001))); // present: needs no memory
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 24576 bytes in core\\src\\shash:resize():");
    EXPECT_EQ(table->capacity, 512u);
    EXPECT_EQ(table->count, 256u);
    EXPECT_EQ(simpleHash_lookup(table, "one more"), nullptr);
    EXPECT_EQ(simpleHash_lookup(table, "k1"), valueOf(1001));
    EXPECT_TRUE(simpleHash_insert(table, "one more", valueOf(1)));
    EXPECT_EQ(table->capacity, 1024u);
}

TEST_F(SimpleHash, key_that_cannot_be_interned_is_not_inserted)
{
    table->intern_keys = true;
    for (int i = 1; i <= 256; ++i)
        simpleHash_insert(table, numbered("k%d", i).c_str(), valueOf(i));
    rv::limitAllocations(1); // enough for the bigger table, not for the key
    EXPECT_FALSE(simpleHash_insert(table, "one more", valueOf(1)));
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 9 bytes in core\\src\\strpool:RtStringPool::Add():");
    EXPECT_EQ(table->count, 256u);
    EXPECT_EQ(table->capacity, 512u);
}

TEST_F(SimpleHash, concurrent_use_keeps_every_entry)
{
    table->intern_keys = true;
    onThreads(4, [this](int thread) {
        for (int round = 0; round < 10; ++round) {
            for (int i = 1; i <= 150; ++i)
                simpleHash_insert(table, numbered("k%d", i * 4 + thread).c_str(), valueOf(i));
            for (int i = 1; i <= 150; ++i)
                EXPECT_EQ(simpleHash_lookup(table, numbered("k%d", i * 4 + thread).c_str()),
                          valueOf(i));
            simpleHash_lookup(table, "somebody else's");
            for (int i = 1; i <= 100; ++i)
                simpleHash_remove(table, numbered("k%d", i * 4 + thread).c_str());
        }
    });
    EXPECT_EQ(table->count, 200u);
    EXPECT_EQ(frame.strings->count, 200u);
}

// ---------------------------------------------------------------- the map without removal

class NoDeleteMap : public BareFrame {
protected:
    using Map = RtHashNoDel<void*>;

    static std::vector<std::string> keysOf(const Map& map)
    {
        std::vector<std::string> keys;
        for (const auto& [key, value] : map)
            keys.push_back(key);
        return keys;
    }
};

TEST_F(NoDeleteMap, is_empty_at_first)
{
    Map map;
    EXPECT_EQ(map.size(), 0u);
    EXPECT_EQ(map.capacity(), 0u);
    EXPECT_TRUE(map.find("a") == map.end());
    EXPECT_FALSE(map.contains("a"));
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_TRUE(keysOf(map).empty());
}

TEST_F(NoDeleteMap, grows_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("foundation", "hash_nodel_growth")) {
        Map map;
        std::vector<std::pair<int, uint64_t>> changes;
        uint64_t capacity = 0;
        const int first = v["in"]["first"], count = v["in"]["count"];
        for (int i = 0; i < count; ++i) {
            map[numbered(v["in"]["key_format"], first + i).c_str()] = valueOf(i);
            if (map.capacity() != capacity)
                changes.emplace_back(i + 1, capacity = map.capacity());
        }
        EXPECT_EQ(changes,
                  (v["out"]["capacity_changes"].get<std::vector<std::pair<int, uint64_t>>>()))
            << v["id"];
        EXPECT_EQ(map.size(), v["out"]["size"]) << v["id"];
    }
}

TEST_F(NoDeleteMap, iterates_in_the_slot_order_of_the_golden_vectors)
{
    for (const auto& v : goldenVectors("foundation", "hash_nodel_iteration")) {
        std::vector<std::string> keys;
        if (v["in"].contains("keys"))
            keys = v["in"]["keys"].get<std::vector<std::string>>();
        else
            for (int i = 0; i < v["in"]["count"]; ++i)
                keys.push_back(numbered(v["in"]["key_format"], v["in"]["first"].get<int>() + i));
        Map map;
        for (const std::string& key : keys)
            map.insert(key.c_str(), nullptr);
        EXPECT_EQ(map.capacity(), v["out"]["capacity"]) << v["id"];
        EXPECT_EQ(keysOf(map), v["out"]["iteration_keys"].get<std::vector<std::string>>())
            << v["id"];
    }
}

TEST_F(NoDeleteMap, capacity_is_always_a_power_of_two_and_a_quarter_empty)
{
    Map map;
    for (int i = 0; i < 3000; ++i) {
        map[numbered("k%d", i).c_str()] = valueOf(i);
        ASSERT_EQ(map.capacity() & (map.capacity() - 1), 0u);
        ASSERT_LE(4 * map.size(), 3 * map.capacity());
    }
}

TEST_F(NoDeleteMap, finds_what_was_inserted)
{
    Map map;
    for (int i = 0; i < 1000; ++i) {
        const auto [at, is_new] = map.insert(numbered("k%d", i).c_str(), valueOf(i));
        EXPECT_TRUE(is_new);
        EXPECT_EQ(at.value(), valueOf(i));
    }
    for (int i = 0; i < 1000; ++i) {
        const std::string name = numbered("k%d", i);
        ASSERT_TRUE(map.contains(name.c_str()));
        EXPECT_EQ(map.find(name.c_str()).key(), name);
        EXPECT_EQ(map.find(name.c_str()).value(), valueOf(i));
    }
    EXPECT_FALSE(map.contains("k1000"));
    EXPECT_EQ(map.size(), 1000u);
}

TEST_F(NoDeleteMap, inserting_a_known_key_keeps_its_value)
{
    Map map;
    map.insert("a", valueOf(1));
    const auto [at, is_new] = map.insert("a", valueOf(2));
    EXPECT_FALSE(is_new);
    EXPECT_EQ(at.value(), valueOf(1));
    EXPECT_EQ(map.size(), 1u);
}

TEST_F(NoDeleteMap, subscript_adds_a_zero_value_or_finds_the_old_one)
{
    Map map;
    EXPECT_EQ(map["a"], nullptr);
    map["a"] = valueOf(5);
    EXPECT_EQ(map["a"], valueOf(5));
    EXPECT_EQ(map.size(), 1u);
    map.find("a").value() = valueOf(6);
    EXPECT_EQ(map["a"], valueOf(6));
}

TEST_F(NoDeleteMap, owns_its_keys)
{
    Map map;
    char text[] = "key";
    map[text] = valueOf(1);
    text[0] = 'x';
    EXPECT_TRUE(map.contains("key"));
    EXPECT_FALSE(map.contains(text));
}

TEST_F(NoDeleteMap, accepts_a_value_from_inside_itself)
{
    RtHashNoDel<int> map;
    map["a"] = 42;
    for (int i = 0; i < 200; ++i)
        map.insert(numbered("k%d", i).c_str(), map.find("a").value());
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(map[numbered("k%d", i).c_str()], 42);
}

TEST_F(NoDeleteMap, null_is_no_key)
{
    Map map;
    EXPECT_FALSE(map.insert(nullptr, valueOf(1)).second);
    EXPECT_TRUE(map.find(nullptr) == map.end());
    EXPECT_FALSE(map.contains(nullptr));
    EXPECT_EQ(map.size(), 0u);
}

TEST_F(NoDeleteMap, exhausted_heap_leaves_the_map_as_it_was)
{
    Map map;
    for (int i = 0; i < 24; ++i)
        map[numbered("k%d", i).c_str()] = valueOf(i);
    for (int granted = 0; granted < 2; ++granted) { // slots, flags
        rv::limitAllocations(granted);
        const auto [at, is_new] = map.insert("one more", valueOf(1));
        rv::limitAllocations(-1);
        EXPECT_FALSE(is_new);
        EXPECT_TRUE(at == map.end());
        EXPECT_EQ(map.capacity(), 32u);
        EXPECT_NE(takeProblem(), "");
    }
    rv::limitAllocations(2); // the key
    map["one more"] = valueOf(7);
    rv::limitAllocations(-1);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 9 bytes in core\\src\\shash:RtHashNoDel::insert():");
    EXPECT_FALSE(map.contains("one more"));
    EXPECT_EQ(map.size(), 24u);
    for (int i = 0; i < 24; ++i)
        EXPECT_EQ(map[numbered("k%d", i).c_str()], valueOf(i));
    EXPECT_EQ(map["one more"], nullptr);
}
