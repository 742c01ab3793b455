// Tests of message_passing.cpp: the message banks of the render threads.
#include "message_passing.h"

#include "allocation_failures.h"
#include "frame.h"
#include "golden.h"
#include "hash.h"
#include "maths.h"
#include "rv_shaderglobals.h"
#include "thread_slot.h"
#include "universe_fixture.h"

#include <functional>
#include <map>

using nlohmann::json;

// Thread slots, of which the first and the last have a bank, and so have some beyond the last.
class MessageBanks : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        pool = RvMemPoolCreate(4096);
        makeBanks(64);
        rv::the_frame->thread_slots = slots;
    }
    void TearDown() override
    {
        rv::the_frame->thread_slots = nullptr;
        destroyBanks();
        RvMemPoolDestroy(pool);
        Universe::TearDown();
    }

    void makeBanks(unsigned capacity)
    {
        destroyBanks();
        for (int index : { 0, 63, 64, 65, 255 })
            slots[index].messages = RvMessageBank(capacity, pool);
    }
    void destroyBanks()
    {
        for (RtThreadSlot& slot : slots) {
            RvMessageBankDestroy(slot.messages);
            slot.messages = nullptr;
        }
    }
    RtMessageBank* bank() { return slots[0].messages; }

    // Names and types in the order of the iterator.
    std::vector<std::pair<std::string, int>> listed(const RtShaderGlobals* context)
    {
        std::vector<std::pair<std::string, int>> all;
        RtMessageIterator* const it = RvMessageIterator(context);
        const char* name = nullptr;
        int type = 0;
        while (RvMessageIteratorGetNext(it, &name, &type))
            all.push_back({ name, type });
        return all;
    }

    RtMemPool* pool = nullptr;
    RtThreadSlot slots[256] = {};
    RtShaderGlobals globals = {};
    const RtShaderGlobals* const sg = &globals;
};

// ---- Banks ----

TEST_F(MessageBanks, a_bank_has_the_requested_slots_all_free)
{
    RtMessageBank* const b = RvMessageBank(5, pool);
    EXPECT_EQ(5u, b->capacity);
    EXPECT_EQ(0u, b->count);
    EXPECT_EQ(pool, b->pool);
    RvMessageBankDestroy(b);
}

TEST_F(MessageBanks, a_bank_has_at_least_one_slot)
{
    RtMessageBank* const b = RvMessageBank(0, pool);
    EXPECT_EQ(1u, b->capacity);
    RvMessageBankDestroy(b);
}

TEST_F(MessageBanks, a_bank_without_memory_is_null)
{
    const std::string sizes[] = { std::to_string(sizeof(RtMessageBank)),
                                  std::to_string(3 * sizeof(RtMessageBank::Slot)) };
    for (long allowed : { 0, 1 }) {
        withAllocations(allowed, [&] { EXPECT_EQ(nullptr, RvMessageBank(3, pool)); });
        EXPECT_EQ("can't allocate " + sizes[allowed] +
                      " bytes in core\\src\\message_passing:RvMessageBank()",
                  withoutLines(takeProblem()));
    }
}

TEST_F(MessageBanks, a_bank_is_limited_to_the_bytes_that_can_be_allocated)
{
    // The slots are refused, but their size is reported.
    withAllocations(1, [&] { EXPECT_EQ(nullptr, RvMessageBank(4294967295u, pool)); });
    const unsigned long most = 0x7FFFFFFF / sizeof(RtMessageBank::Slot);
    const std::string size = std::to_string(most * sizeof(RtMessageBank::Slot));
    EXPECT_EQ(0u, takeProblem().find("can't allocate " + size + " bytes"));
}

TEST_F(MessageBanks, destruction_and_clearing_ignore_null)
{
    RvMessageBankDestroy(nullptr);
    rv::messageBankClear(nullptr);
}

TEST_F(MessageBanks, a_cleared_bank_forgets_everything_and_takes_new_types)
{
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "a", 1));
    rv::messageBankClear(bank());
    float value = 5;
    EXPECT_FALSE(RvMessageGetFltFunc(sg, "a", &value));
    EXPECT_EQ(5, value);
    EXPECT_TRUE(listed(sg).empty());
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 2));
    EXPECT_EQ("", takeProblem());
}

// ---- Setting and getting ----

// Sets, gets, and compares with what was set.
template <class T>
static void expectRoundTrip(const RtShaderGlobals* sg,
                            bool (*set)(const RtShaderGlobals*, const char*, T),
                            bool (*get)(const RtShaderGlobals*, const char*, T*), const char* name,
                            const T& value)
{
    EXPECT_TRUE(set(sg, name, value)) << name;
    T out = {};
    EXPECT_TRUE(get(sg, name, &out)) << name;
    EXPECT_EQ(0, memcmp(&value, &out, sizeof(T))) << name;
}

TEST_F(MessageBanks, every_type_comes_back_as_it_was_set)
{
    const RtPoint p = { 1, 2, 3 };
    RtArray array = {};
    expectRoundTrip(sg, RvMessageSetBoolFunc, RvMessageGetBoolFunc, "bool", true);
    expectRoundTrip<uint8_t>(sg, RvMessageSetByteFunc, RvMessageGetByteFunc, "byte", 200);
    expectRoundTrip(sg, RvMessageSetIntFunc, RvMessageGetIntFunc, "int", -7);
    expectRoundTrip(sg, RvMessageSetUIntFunc, RvMessageGetUIntFunc, "uint", 4000000000u);
    expectRoundTrip(sg, RvMessageSetFltFunc, RvMessageGetFltFunc, "flt", 0.1f);
    expectRoundTrip(sg, RvMessageSetRGBFunc, RvMessageGetRGBFunc, "rgb", RtRGB{ 1, 2, 3 });
    expectRoundTrip(sg, RvMessageSetRGBAFunc, RvMessageGetRGBAFunc, "rgba", RtRGBA{ 1, 2, 3, 4 });
    expectRoundTrip(sg, RvMessageSetVecFunc, RvMessageGetVecFunc, "vec", p);
    expectRoundTrip(sg, RvMessageSetPntFunc, RvMessageGetPntFunc, "pnt", p);
    expectRoundTrip(sg, RvMessageSetPnt2Func, RvMessageGetPnt2Func, "pnt2", RtPoint2{ 1, 2 });
    expectRoundTrip<const char*>(sg, RvMessageSetStrFunc, RvMessageGetStrFunc, "str", "text");
    expectRoundTrip<void*>(sg, RvMessageSetPtrFunc, RvMessageGetPtrFunc, "ptr", &array);
    expectRoundTrip(sg, RvMessageSetArrayFunc, RvMessageGetArrayFunc, "array", &array);
    const std::vector<std::pair<std::string, int>> want = {
        { "bool", RV_TYPE_BOOLEAN }, { "byte", RV_TYPE_BYTE },  { "int", RV_TYPE_INT },
        { "uint", RV_TYPE_UINT },    { "flt", RV_TYPE_FLOAT },  { "rgb", RV_TYPE_RGB },
        { "rgba", RV_TYPE_RGBA },    { "vec", RV_TYPE_VECTOR }, { "pnt", RV_TYPE_POINT },
        { "pnt2", RV_TYPE_POINT2 },  { "str", RV_TYPE_STRING }, { "ptr", RV_TYPE_POINTER },
        { "array", RV_TYPE_ARRAY },
    };
    EXPECT_EQ(want, listed(sg));
    EXPECT_EQ("", takeProblem());
}

TEST_F(MessageBanks, a_message_read_as_another_type_is_an_error)
{
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "a", 0.5f));
    int value = 3;
    EXPECT_FALSE(RvMessageGetIntFunc(sg, "a", &value));
    EXPECT_EQ(3, value);
    ASSERT_EQ(1u, messages().size());
    EXPECT_EQ(2, messages()[0].severity);
    EXPECT_EQ("message `a' type mismatch; requested type INT but message is of type FLOAT",
              takeProblem());
}

TEST_F(MessageBanks, a_message_set_as_another_type_is_an_error_and_stays)
{
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "a", 0.5f));
    EXPECT_FALSE(RvMessageSetRGBFunc(sg, "a", RV_RGB_WHITE));
    EXPECT_EQ("message `a' type mismatch; requested type RGB but message is of type FLOAT",
              takeProblem());
    float value = 0;
    EXPECT_TRUE(RvMessageGetFltFunc(sg, "a", &value));
    EXPECT_EQ(0.5f, value);
}

TEST_F(MessageBanks, a_missing_message_is_not_found_and_not_reported)
{
    float value = 3;
    EXPECT_FALSE(RvMessageGetFltFunc(sg, "a", &value));
    EXPECT_EQ(3, value);
    EXPECT_EQ("", takeProblem());
}

TEST_F(MessageBanks, a_message_set_again_keeps_its_slot)
{
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "b", 2));
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 3));
    EXPECT_EQ(2u, bank()->count);
    int value = 0;
    EXPECT_TRUE(RvMessageGetIntFunc(sg, "a", &value));
    EXPECT_EQ(3, value);
}

TEST_F(MessageBanks, names_are_copied_and_compared_by_text)
{
    std::string name = "a";
    EXPECT_TRUE(RvMessageSetIntFunc(sg, name.c_str(), 1));
    name = "x";
    int value = 0;
    EXPECT_TRUE(RvMessageGetIntFunc(sg, "a", &value));
    EXPECT_FALSE(RvMessageGetIntFunc(sg, "x", &value));
    EXPECT_FALSE(RvMessageGetIntFunc(sg, "A", &value));
}

TEST_F(MessageBanks, names_of_equal_hash_are_told_apart)
{
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    bank()->slots[0].hash = rv::stringHash("b");
    int value = 0;
    EXPECT_FALSE(RvMessageGetIntFunc(sg, "b", &value));
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "b", 2));
    EXPECT_EQ(2u, bank()->count);
}

TEST_F(MessageBanks, a_name_that_cannot_be_kept_is_not_set)
{
    RvMemPoolDestroy(pool);
    pool = RvMemPoolCreate(16);
    makeBanks(4);
    const std::string name(100, 'a');
    withAllocations(0, [&] { EXPECT_FALSE(RvMessageSetIntFunc(sg, name.c_str(), 1)); });
    EXPECT_EQ(0u, bank()->count);
    EXPECT_EQ(0u, takeProblem().find("can't allocate"));
}

TEST_F(MessageBanks, null_arguments_fail_silently)
{
    int value = 3;
    EXPECT_FALSE(RvMessageSetIntFunc(nullptr, "a", 1));
    EXPECT_FALSE(RvMessageSetIntFunc(sg, nullptr, 1));
    EXPECT_FALSE(RvMessageGetIntFunc(nullptr, "a", &value));
    EXPECT_FALSE(RvMessageGetIntFunc(sg, nullptr, &value));
    EXPECT_EQ(3, value);
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    EXPECT_TRUE(RvMessageGetIntFunc(sg, "a", nullptr));
    EXPECT_EQ("", takeProblem());
}

TEST_F(MessageBanks, nodes_are_read_and_written_as_pointers)
{
    int thing, other;
    EXPECT_TRUE(RvMessageSetPtrFunc(sg, "node", &thing));
    bank()->slots[0].type = RV_TYPE_NODE;
    void* value = nullptr;
    EXPECT_TRUE(RvMessageGetPtrFunc(sg, "node", &value));
    EXPECT_EQ(&thing, value);
    EXPECT_TRUE(RvMessageSetPtrFunc(sg, "node", &other));
    EXPECT_EQ(&other, bank()->slots[0].value.PTR);
    EXPECT_EQ(RV_TYPE_NODE, bank()->slots[0].type);
    EXPECT_EQ("", takeProblem());
}

// ---- Threads ----

TEST_F(MessageBanks, every_thread_has_its_own_bank)
{
    RtShaderGlobals last = {};
    last.thread_index = 63;
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    EXPECT_TRUE(RvMessageSetFltFunc(&last, "a", 2));
    int value = 0;
    EXPECT_TRUE(RvMessageGetIntFunc(sg, "a", &value));
    EXPECT_EQ(1, value);
    EXPECT_EQ(RV_TYPE_FLOAT, listed(&last).at(0).second);
    EXPECT_EQ("", takeProblem());
}

// Everything fails, and nothing is reported.
static void expectNoBank(const RtShaderGlobals* sg)
{
    int value = 3;
    EXPECT_FALSE(RvMessageSetIntFunc(sg, "a", 1));
    EXPECT_FALSE(RvMessageGetIntFunc(sg, "a", &value));
    EXPECT_EQ(3, value);
    EXPECT_EQ(nullptr, RvMessageIterator(sg));
}

TEST_F(MessageBanks, a_thread_index_of_64_or_more_has_no_bank)
{
    for (int index : { 64, 65, 255 }) {
        globals.thread_index = static_cast<uint8_t>(index);
        expectNoBank(sg);
    }
    EXPECT_EQ("", takeProblem());
}

TEST_F(MessageBanks, a_thread_without_a_bank_fails_silently)
{
    globals.thread_index = 1;
    expectNoBank(sg);
    EXPECT_EQ("", takeProblem());
}

TEST_F(MessageBanks, before_the_first_render_there_is_no_bank)
{
    rv::the_frame->thread_slots = nullptr;
    expectNoBank(sg);
    EXPECT_EQ("", takeProblem());
}

TEST(MessageBanksAlone, without_a_universe_there_is_no_bank)
{
    const RtShaderGlobals globals = {};
    expectNoBank(&globals);
}

// ---- A full bank ----

// Prints what is logged where a death test sees it.
static void printMessage(int, int severity, const char* text, int)
{
    fprintf(stderr, "severity %d: %s\n", severity, text);
}

TEST_F(MessageBanks, a_full_bank_is_fatal_and_lists_its_contents)
{
    makeBanks(0);
    EXPECT_TRUE(RvMessageSetRGBFunc(sg, "first", RV_RGB_WHITE));
    EXPECT_DEATH(
        {
            RvMsgSetCallback(printMessage);
            RvMessageSetFltFunc(sg, "second", 1);
        },
        "severity 3: Could not create new message named second of type FLOAT - not enough slots "
        "allocated\nMessage bank contents:\n\\[  0\\] RGB first\n");
}

// The text of the fatal message of a full bank; errors reach the recorder, but not abort().
class FullBank : public MessageBanks {
protected:
    static void keepText(int, int, const char* text, int)
    {
        fprintf(stderr, "<%s>", text);
        fflush(stderr);
    }
};

TEST_F(FullBank, shows_every_slot_with_its_index_type_and_name)
{
    makeBanks(3);
    EXPECT_TRUE(RvMessageSetBoolFunc(sg, "one", true));
    EXPECT_TRUE(RvMessageSetStrFunc(sg, "two", "x"));
    EXPECT_TRUE(RvMessageSetPnt2Func(sg, "three", RV_P2_ZERO));
    EXPECT_DEATH(
        {
            RvMsgSetCallback(keepText);
            RvMessageSetArrayFunc(sg, "four", nullptr);
        },
        "<Could not create new message named four of type ARRAY - not enough slots allocated\n"
        "Message bank contents:\n"
        "\\[  0\\] BOOL one\n\\[  1\\] STRING two\n\\[  2\\] POINT2 three\n>");
}

TEST_F(FullBank, cuts_the_listing_at_2047_characters)
{
    makeBanks(40);
    std::string listing;
    for (int i = 0; i < 40; ++i) {
        const std::string name = "message_" + std::to_string(i) + std::string(60, 'x');
        EXPECT_TRUE(RvMessageSetIntFunc(sg, name.c_str(), i));
        char line[128];
        snprintf(line, sizeof(line), "\\[%3d\\] INT %s\n", i, name.c_str());
        listing += line;
    }
    // 40 lines of more than 70 characters; two backslashes a line are not in the text itself.
    size_t cut = 0;
    for (size_t shown = 0; shown < 2047; ++cut)
        shown += listing[cut] != '\\';
    EXPECT_DEATH(
        {
            RvMsgSetCallback(keepText);
            RvMessageSetIntFunc(sg, "more", 1);
        },
        "contents:\n" + listing.substr(0, cut) + ">");
}

TEST_F(FullBank, survives_a_name_longer_than_the_listing)
{
    makeBanks(1);
    EXPECT_TRUE(RvMessageSetIntFunc(sg, std::string(5000, 'n').c_str(), 1));
    EXPECT_DEATH(
        {
            RvMsgSetCallback(keepText);
            RvMessageSetIntFunc(sg, "more", 1);
        },
        "contents:\n\\[  0\\] INT n+>");
}

TEST_F(FullBank, refuses_the_message_where_a_fatal_error_is_shown_nowhere)
{
    makeBanks(1);
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    RvMsgSetConsoleFlags(0);
    RvMsgSetLogFileFlags(0);
    EXPECT_FALSE(RvMessageSetIntFunc(sg, "b", 2));
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 3));
    EXPECT_EQ(1u, bank()->count);
}

// ---- Iteration ----

TEST_F(MessageBanks, are_listed_in_the_order_in_which_they_were_first_set)
{
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "z", 1));
    EXPECT_TRUE(RvMessageSetBoolFunc(sg, "y", true));
    EXPECT_TRUE(RvMessageSetStrFunc(sg, "x", "s"));
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "z", 2));
    const std::vector<std::pair<std::string, int>> want = { { "z", RV_TYPE_FLOAT },
                                                            { "y", RV_TYPE_BOOLEAN },
                                                            { "x", RV_TYPE_STRING } };
    EXPECT_EQ(want, listed(sg));
}

TEST_F(MessageBanks, iteration_accepts_null_for_what_is_not_wanted)
{
    EXPECT_TRUE(RvMessageSetIntFunc(sg, "a", 1));
    EXPECT_TRUE(RvMessageSetFltFunc(sg, "b", 1));
    RtMessageIterator* const it = RvMessageIterator(sg);
    EXPECT_TRUE(RvMessageIteratorGetNext(it, nullptr, nullptr));
    const char* name = nullptr;
    EXPECT_TRUE(RvMessageIteratorGetNext(it, &name, nullptr));
    EXPECT_STREQ("b", name);
    int type = 77;
    EXPECT_FALSE(RvMessageIteratorGetNext(it, &name, &type));
    EXPECT_EQ(77, type);
    EXPECT_FALSE(RvMessageIteratorGetNext(it, &name, &type));
}

TEST_F(MessageBanks, iteration_over_an_empty_bank_or_null_ends_at_once)
{
    EXPECT_FALSE(RvMessageIteratorGetNext(RvMessageIterator(sg), nullptr, nullptr));
    EXPECT_FALSE(RvMessageIteratorGetNext(nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, RvMessageIterator(nullptr));
}

TEST_F(MessageBanks, an_iterator_comes_from_the_pool_of_the_thread)
{
    const unsigned before = pool->alloc_count;
    EXPECT_NE(nullptr, RvMessageIterator(sg));
    EXPECT_EQ(before + 1, pool->alloc_count);
}

// ---- Golden sequences ----

namespace {

// One type of the golden sequences: sets and gets values in their notation.
struct GoldenType {
    std::function<bool(const RtShaderGlobals*, const char*, const json&)> set;
    std::function<bool(const RtShaderGlobals*, const char*, json*)> get;
};

} // namespace

template <class T>
static GoldenType goldenType(bool (*set)(const RtShaderGlobals*, const char*, T),
                             bool (*get)(const RtShaderGlobals*, const char*, T*))
{
    return { [set](const RtShaderGlobals* sg, const char* name, const json& value) {
                return set(sg, name, value.get<T>());
            },
             [get](const RtShaderGlobals* sg, const char* name, json* value) {
                 T out = {};
                 const bool found = get(sg, name, &out);
                 *value = found ? json(out) : json();
                 return found;
             } };
}

static bool setText(const RtShaderGlobals* sg, const char* name, const json& value)
{
    return RvMessageSetStrFunc(sg, name, value.get_ref<const std::string&>().c_str());
}

static bool getText(const RtShaderGlobals* sg, const char* name, json* value)
{
    const char* text = nullptr;
    const bool found = RvMessageGetStrFunc(sg, name, &text);
    *value = found ? json(text) : json();
    return found;
}

static const std::map<std::string, GoldenType>& goldenTypes()
{
    static const std::map<std::string, GoldenType> types = {
        { "BOOL", goldenType(RvMessageSetBoolFunc, RvMessageGetBoolFunc) },
        { "BYTE", goldenType(RvMessageSetByteFunc, RvMessageGetByteFunc) },
        { "INT", goldenType(RvMessageSetIntFunc, RvMessageGetIntFunc) },
        { "UINT", goldenType(RvMessageSetUIntFunc, RvMessageGetUIntFunc) },
        { "FLOAT", goldenType(RvMessageSetFltFunc, RvMessageGetFltFunc) },
        { "STRING", { setText, getText } },
    };
    return types;
}

TEST_F(MessageBanks, golden_sequences)
{
    for (const json& v : goldenVectors("datamodel", "message_bank")) {
        makeBanks(v["in"]["max_shader_messages"]);
        expectGolden(v, "capacity", bank()->capacity);
        const json& steps = v["in"]["ops"];
        for (size_t i = 0; i < steps.size(); ++i) {
            const json& step = steps[i];
            const std::string name = step[1];
            const GoldenType& type = goldenTypes().at(step[2]);
            json got;
            if (step[0] == "set") {
                got["ok"] = type.set(sg, name.c_str(), step[3]);
            } else {
                json value;
                got["ok"] = type.get(sg, name.c_str(), &value);
                got["value"] = value;
            }
            const std::string problem = takeProblem();
            got["message"] = problem.empty() ? json() : json(problem);
            EXPECT_EQ(v["out"]["results"][i], got) << goldenId(v) << " step " << i;
        }
        json iteration = json::array();
        for (const auto& [name, type] : listed(sg))
            iteration.push_back({ name, rv::silentTypeName(type) });
        expectGolden(v, "iteration", iteration);
    }
}
