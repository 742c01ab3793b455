// Tests of paramentry.cpp: parameter declarations and their names, entries, their iteration, and
// enumerations.
#include "paramentry.h"

#include "allocation_failures.h"
#include "golden.h"
#include "maths.h"
#include "nodeentry.h"
#include "string_references.h"
#include "universe_fixture.h"

using nlohmann::json;

// A list that is being filled by declarations.
class ParamEntries : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        references_at_start = stringReferences();
        params = RvList(nullptr);
        ASSERT_NE(nullptr, params);
    }
    void TearDown() override
    {
        clear();
        RvListDestroy(params);
        EXPECT_EQ(0, heldStrings());
        Universe::TearDown();
    }

    void clear()
    {
        for (const RtListNode* node = RvListHead(params); node; node = node->next) {
            rv::releaseParamEntry(static_cast<RtParamEntry*>(node->data));
            RvFree_func(node->data);
        }
        RvListDestroy(params);
        params = RvList(nullptr);
    }
    unsigned count() const { return RvListSize(params); }
    const RtParamEntry* entry(unsigned index) const
    {
        const RtListNode* node = RvListHead(params);
        for (unsigned i = 0; i < index && node; ++i)
            node = node->next;
        return node ? static_cast<const RtParamEntry*>(node->data) : nullptr;
    }
    const RtParamEntry* last() const
    {
        return static_cast<RtParamEntry*>(RvListTail(params)->data);
    }
    const RtParamValue* lastDefault() const { return RvParamGetDefault(last()); }
    // References to strings that were taken since the test began and not given back.
    int heldStrings() const { return stringReferences() - references_at_start; }

    // The problems of a call during which only `allowed` checked allocations succeed.
    template <class Call> std::string problemWithAllocations(long allowed, Call call)
    {
        withAllocations(allowed, call);
        return withoutLines(takeProblem());
    }

    RtList* params = nullptr;
    int references_at_start = 0;
};

static const char* const decay_types[] = { "constant", "linear", "quadratic", "cubic", nullptr };

// ---- Declarations ----

TEST_F(ParamEntries, integers_of_all_kinds_are_declared_with_their_defaults)
{
    RvNodeParamBYTE(params, 0, "byte", 200);
    EXPECT_EQ(RV_TYPE_BYTE, RvParamGetType(last()));
    EXPECT_EQ(200, lastDefault()->BYTE);
    RvNodeParamINT(params, 4, "int", -7);
    EXPECT_EQ(RV_TYPE_INT, RvParamGetType(last()));
    EXPECT_EQ(-7, lastDefault()->INT);
    RvNodeParamUINT(params, 8, "uint", 4000000000u);
    EXPECT_EQ(RV_TYPE_UINT, RvParamGetType(last()));
    EXPECT_EQ(4000000000u, lastDefault()->UINT);
    RvNodeParamBOOL(params, 12, "bool", true);
    EXPECT_EQ(RV_TYPE_BOOLEAN, RvParamGetType(last()));
    EXPECT_TRUE(lastDefault()->BOOL);
}

TEST_F(ParamEntries, a_float_is_declared_with_its_default)
{
    RvNodeParamFLT(params, 0, "Kd", 0.7f);
    EXPECT_EQ(RV_TYPE_FLOAT, RvParamGetType(last()));
    EXPECT_EQ(0.7f, lastDefault()->FLT);
    EXPECT_STREQ("Kd", RvParamGetName(last()));
}

TEST_F(ParamEntries, colours_are_declared_by_component)
{
    RvNodeParamRGB(params, 0, "rgb", 1, 2, 3);
    EXPECT_EQ(RV_TYPE_RGB, RvParamGetType(last()));
    EXPECT_EQ(1, lastDefault()->RGB.r);
    EXPECT_EQ(2, lastDefault()->RGB.g);
    EXPECT_EQ(3, lastDefault()->RGB.b);
    RvNodeParamRGBA(params, 0, "rgba", 1, 2, 3, 4);
    EXPECT_EQ(RV_TYPE_RGBA, RvParamGetType(last()));
    EXPECT_EQ(1, lastDefault()->RGBA.r);
    EXPECT_EQ(4, lastDefault()->RGBA.a);
}

TEST_F(ParamEntries, points_and_vectors_are_declared_by_component)
{
    RvNodeParamVEC(params, 0, "vec", 1, 2, 3);
    EXPECT_EQ(RV_TYPE_VECTOR, RvParamGetType(last()));
    EXPECT_EQ(1, lastDefault()->VEC.x);
    EXPECT_EQ(3, lastDefault()->VEC.z);
    RvNodeParamPNT(params, 0, "pnt", 4, 5, 6);
    EXPECT_EQ(RV_TYPE_POINT, RvParamGetType(last()));
    EXPECT_EQ(5, lastDefault()->PNT.y);
    RvNodeParamPNT2(params, 0, "pnt2", 7, 8);
    EXPECT_EQ(RV_TYPE_POINT2, RvParamGetType(last()));
    EXPECT_EQ(7, lastDefault()->PNT2.x);
    EXPECT_EQ(8, lastDefault()->PNT2.y);
}

TEST_F(ParamEntries, a_string_default_is_interned)
{
    std::string text = "hello";
    RvNodeParamSTR(params, 0, "str", text.c_str());
    text = "overwritten";
    EXPECT_EQ(RV_TYPE_STRING, RvParamGetType(last()));
    EXPECT_STREQ("hello", lastDefault()->STR);
    EXPECT_EQ(2, heldStrings());
}

TEST_F(ParamEntries, a_null_string_default_is_the_empty_string)
{
    RvNodeParamSTR(params, 0, "str", nullptr);
    EXPECT_STREQ("", lastDefault()->STR);
}

TEST_F(ParamEntries, pointers_and_nodes_are_declared_as_they_are)
{
    int thing;
    RvNodeParamPTR(params, 0, "ptr", &thing);
    EXPECT_EQ(RV_TYPE_POINTER, RvParamGetType(last()));
    EXPECT_EQ(&thing, lastDefault()->PTR);
    RtNode* const node = reinterpret_cast<RtNode*>(&thing);
    RvNodeParamNODE(params, 0, "node", node);
    EXPECT_EQ(RV_TYPE_NODE, RvParamGetType(last()));
    EXPECT_EQ(node, lastDefault()->NODE);
}

TEST_F(ParamEntries, an_array_default_passes_to_the_entry)
{
    RtArray* const array = RvArray(1, 1, RV_TYPE_STRING, "inside");
    RvNodeParamARRAY(params, 0, "array", array);
    EXPECT_EQ(RV_TYPE_ARRAY, RvParamGetType(last()));
    EXPECT_EQ(array, lastDefault()->ARRAY);
}

TEST_F(ParamEntries, a_matrix_default_is_copied)
{
    RtMatrix m = RV_M4_IDENTITY;
    RvNodeParamMTX(params, 0, "mtx", &m);
    m.m[0][0] = 9;
    EXPECT_EQ(RV_TYPE_MATRIX, RvParamGetType(last()));
    EXPECT_NE(&m, lastDefault()->pMTX);
    EXPECT_TRUE(RvM4IsIdentity(lastDefault()->pMTX));
    RvNodeParamMTX(params, 0, "unset", nullptr);
    EXPECT_NE(nullptr, lastDefault()->pMTX);
}

TEST_F(ParamEntries, an_enumeration_keeps_its_table_and_index)
{
    RvNodeParamENUM(params, 0, "decay_type", 2, decay_types);
    EXPECT_EQ(RV_TYPE_ENUM, RvParamGetType(last()));
    EXPECT_EQ(2, lastDefault()->ENUM);
    EXPECT_EQ(2, lastDefault()->INT);
    EXPECT_EQ(decay_types, RvParamGetEnum(last()));
}

TEST_F(ParamEntries, other_types_have_no_enumeration)
{
    RvNodeParamINT(params, 0, "int", 1);
    EXPECT_EQ(nullptr, RvParamGetEnum(last()));
}

TEST_F(ParamEntries, entries_are_numbered_in_order_of_declaration)
{
    RvNodeParamINT(params, 4, "a", 1);
    RvNodeParamINT(params, -1, "bad name", 1);
    RvNodeParamFLT(params, -1, "b", 1);
    RvNodeParamSTR(params, 80, "c", "x");
    ASSERT_EQ(3u, count());
    const char* const names[] = { "a", "b", "c" };
    const int offsets[] = { 4, -1, 80 };
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_STREQ(names[i], entry(i)->name);
        EXPECT_EQ(i, entry(i)->index);
        EXPECT_EQ(offsets[i], entry(i)->offset);
    }
    takeProblems();
}

TEST_F(ParamEntries, names_are_interned)
{
    std::string name = "Kd";
    RvNodeParamFLT(params, 0, name.c_str(), 1);
    name = "xx";
    EXPECT_STREQ("Kd", RvParamGetName(last()));
    EXPECT_EQ(1, heldStrings());
}

TEST_F(ParamEntries, a_declaration_without_a_list_is_ignored)
{
    RvNodeParamINT(nullptr, 0, "int", 1);
    RvNodeParamMTX(nullptr, 0, "mtx", &RV_M4_IDENTITY);
    EXPECT_EQ("", takeProblem());
}

// ---- Names ----

TEST_F(ParamEntries, letters_digits_and_underscores_make_a_name)
{
    for (const char* name : { "_x1", "abc_DEF", "K", "_", "a9", "AA_samples" })
        RvNodeParamINT(params, 0, name, 1);
    EXPECT_EQ(6u, count());
    EXPECT_EQ("", takeProblem());
}

TEST_F(ParamEntries, anything_else_in_a_name_is_refused)
{
    for (const char* name :
         { "1x", "-x", "a b", "a.b", "", "a-b", "a:b", "a/b", "\xC3\xA4", "a\n" }) {
        RvNodeParamINT(params, 0, name, 1);
        ASSERT_EQ(1u, messages().size()) << name;
        EXPECT_EQ(2, messages()[0].severity);
        EXPECT_EQ("parameter name contains invalid characters: \"" + std::string(name) + "\"",
                  takeProblem());
    }
    EXPECT_EQ(0u, count());
}

TEST_F(ParamEntries, a_null_name_is_refused_silently)
{
    RvNodeParamINT(params, 0, nullptr, 1);
    EXPECT_EQ(0u, count());
    EXPECT_EQ("", takeProblem());
}

TEST_F(ParamEntries, a_name_of_4095_characters_is_accepted)
{
    RvNodeParamINT(params, 0, std::string(4095, 'a').c_str(), 1);
    EXPECT_EQ(1u, count());
    EXPECT_EQ("", takeProblem());
}

TEST_F(ParamEntries, a_name_of_4096_characters_is_refused)
{
    const std::string name(4096, 'a');
    RvNodeParamINT(params, 0, name.c_str(), 1);
    EXPECT_EQ(0u, count());
    EXPECT_EQ("parameter name is bigger than 4095 characters: \"" + name + "\"", takeProblem());
}

TEST_F(ParamEntries, the_second_declaration_of_a_name_is_ignored_with_a_warning)
{
    RvNodeParamFLT(params, 0, "Kd", 0.25f);
    RvNodeParamINT(params, 4, "Kd", 7);
    ASSERT_EQ(1u, messages().size());
    EXPECT_EQ(1, messages()[0].severity);
    EXPECT_EQ("parameter \"Kd\" is declared already", takeProblem());
    ASSERT_EQ(1u, count());
    EXPECT_EQ(RV_TYPE_FLOAT, RvParamGetType(last()));
    EXPECT_EQ(0.25f, lastDefault()->FLT);
}

TEST_F(ParamEntries, names_differ_by_case)
{
    RvNodeParamFLT(params, 0, "Kd", 1);
    RvNodeParamFLT(params, 0, "kd", 1);
    EXPECT_EQ(2u, count());
    EXPECT_EQ("", takeProblem());
}

TEST(ValidNames, may_have_more_characters_where_the_caller_allows_them)
{
    EXPECT_TRUE(rv::isValidName("ColMap-foo|bar/baz.bam", ":./|-"));
    EXPECT_FALSE(rv::isValidName("ColMap-foo|bar/baz.bam", ""));
    EXPECT_FALSE(rv::isValidName("-a", "-"));
    EXPECT_FALSE(rv::isValidName("1a", "1"));
    EXPECT_FALSE(rv::isValidName("", "-"));
    EXPECT_FALSE(rv::isValidName(nullptr, "-"));
}

TEST_F(ParamEntries, golden_names)
{
    for (const json& v : goldenVectors("maths", "param_name_valid")) {
        const json& in = v["in"];
        std::string name;
        for (int i = 0; i < in["repeat"].get<int>(); ++i)
            name += in["name"].get<std::string>();
        ASSERT_EQ(in["length"].get<size_t>(), name.size()) << goldenId(v);
        RvNodeParamINT(params, 0, name.c_str(), 1);
        expectGolden(v, "accepted", count() == 1);
        const std::string problem = takeProblem();
        const json& prefix = v["out"]["error_prefix"];
        if (prefix.is_null())
            EXPECT_EQ("", problem) << goldenId(v);
        else
            EXPECT_EQ(0u, problem.find(prefix.get<std::string>())) << goldenId(v) << problem;
        clear();
    }
}

// ---- Ownership and failures ----

TEST_F(ParamEntries, a_refused_declaration_releases_what_it_made)
{
    RvNodeParamINT(params, 0, "taken", 1);
    for (const char* name : { "bad name", "taken", static_cast<const char*>(nullptr) }) {
        RvNodeParamMTX(params, 0, name, &RV_M4_IDENTITY);
        RvNodeParamSTR(params, 0, name, "default");
    }
    EXPECT_EQ(1u, count());
    EXPECT_EQ(1, heldStrings()); // and the leak check sees matrices
    takeProblems();
}

// Required: nothing is taken over, so the array is still there for its owner.
TEST_F(ParamEntries, a_refused_declaration_leaves_its_array_to_the_caller)
{
    RtArray* const array = RvArray(1, 1, RV_TYPE_STRING, "inside");
    RvNodeParamARRAY(params, 0, "bad name", array);
    RvNodeParamARRAY(params, 0, nullptr, array);
    RvNodeParamARRAY(nullptr, 0, "array", array);
    EXPECT_STREQ("inside", RvArrayGetStr(array, 0));
    RvNodeParamARRAY(params, 0, "array", array);
    RvNodeParamARRAY(params, 0, "array", array); // the first one keeps it
    ASSERT_EQ(1u, count());
    EXPECT_EQ(array, lastDefault()->ARRAY);
    EXPECT_STREQ("inside", RvArrayGetStr(array, 0));
    EXPECT_EQ("parameter name contains invalid characters: \"bad name\" | "
              "parameter \"array\" is declared already",
              takeProblem());
}

TEST_F(ParamEntries, an_entry_gives_back_its_name_and_default)
{
    RvNodeParamSTR(params, 0, "str", "default");
    RvNodeParamARRAY(params, 0, "array", RvArray(1, 1, RV_TYPE_STRING, "inside"));
    RvNodeParamMTX(params, 0, "mtx", &RV_M4_IDENTITY);
    EXPECT_EQ(5, heldStrings());
    clear();
    EXPECT_EQ(0, heldStrings());
    EXPECT_EQ("", takeProblem());
}

TEST_F(ParamEntries, an_entry_without_memory_is_not_added)
{
    const std::string problem =
        problemWithAllocations(0, [&] { RvNodeParamINT(params, 0, "int", 1); });
    EXPECT_EQ("can't allocate " + std::to_string(sizeof(RtParamEntry)) +
                  " bytes in core\\src\\paramentry:RvParamEntry()",
              problem);
    EXPECT_EQ(0u, count());
}

TEST_F(ParamEntries, a_matrix_default_without_memory_is_not_added)
{
    const std::string problem =
        problemWithAllocations(0, [&] { RvNodeParamMTX(params, 0, "mtx", &RV_M4_IDENTITY); });
    EXPECT_EQ("can't allocate 64 bytes in core\\src\\paramentry:RvNodeParamMTX()", problem);
    EXPECT_EQ(0u, count());
}

TEST_F(ParamEntries, a_failure_at_any_allocation_adds_nothing_and_leaks_nothing)
{
    for (long allowed = 0; allowed < 3; ++allowed) {
        RtArray* const array = RvArray(1, 1, RV_TYPE_INT, 1);
        const std::string problem =
            problemWithAllocations(allowed, [&] { RvNodeParamARRAY(params, 0, "a", array); });
        EXPECT_NE("", problem) << allowed;
        EXPECT_EQ(0u, count()) << allowed;
        EXPECT_EQ(0, heldStrings()) << allowed;
    }
}

// ---- Accessors and iteration ----

TEST_F(ParamEntries, a_null_entry_is_accepted_by_every_accessor)
{
    EXPECT_EQ(nullptr, RvParamGetName(nullptr));
    EXPECT_EQ(RV_TYPE_NONE, RvParamGetType(nullptr));
    EXPECT_EQ(nullptr, RvParamGetDefault(nullptr));
    EXPECT_EQ(nullptr, RvParamGetEnum(nullptr));
    EXPECT_EQ("", takeProblem());
}

TEST_F(ParamEntries, the_registry_hands_out_iterators_over_a_type)
{
    const RtNodeEntry* const type = RvNodeEntryLookUp("light_decay");
    RtParamIterator* const it = RvNodeEntryGetParamIterator(type);
    unsigned seen = 0;
    while (const RtParamEntry* const param = RvParamIteratorGetNext(it))
        EXPECT_EQ(seen++, param->index);
    EXPECT_EQ(type->num_params, seen);
    EXPECT_TRUE(RvParamIteratorFinished(it));
    RvParamIteratorDestroy(it);
}

// An iterator as the registry hands it out.
static RtParamIterator* iterate(const RtNodeEntry* entry)
{
    void* const memory = RvMalloc(sizeof(RtParamIterator));
    return new (memory) RtParamIterator{ entry, 0 };
}

TEST_F(ParamEntries, an_iterator_yields_the_entries_in_order_and_then_null)
{
    RtParamEntry entries[3] = {};
    RtNodeEntry type = {};
    type.params = entries;
    type.num_params = 3;
    RtParamIterator* const it = iterate(&type);
    for (const RtParamEntry& e : entries) {
        EXPECT_FALSE(RvParamIteratorFinished(it));
        EXPECT_EQ(&e, RvParamIteratorGetNext(it));
    }
    EXPECT_TRUE(RvParamIteratorFinished(it));
    EXPECT_EQ(nullptr, RvParamIteratorGetNext(it));
    RvParamIteratorDestroy(it);
}

TEST_F(ParamEntries, an_iterator_over_no_parameters_is_finished_at_once)
{
    const RtNodeEntry type = {};
    RtParamIterator* const it = iterate(&type);
    EXPECT_TRUE(RvParamIteratorFinished(it));
    EXPECT_EQ(nullptr, RvParamIteratorGetNext(it));
    RvParamIteratorDestroy(it);
}

TEST_F(ParamEntries, a_null_iterator_is_finished)
{
    EXPECT_TRUE(RvParamIteratorFinished(nullptr));
    EXPECT_EQ(nullptr, RvParamIteratorGetNext(nullptr));
    RvParamIteratorDestroy(nullptr);
}

// ---- Enumerations ----

TEST(Enumerations, a_value_is_valid_up_to_the_end_of_the_table)
{
    for (int value : { 0, 3 })
        EXPECT_TRUE(RvEnumValueIsValid(decay_types, value)) << value;
    for (int value : { 4, 5, 99, -1, 2147483647, -2147483647 - 1 })
        EXPECT_FALSE(RvEnumValueIsValid(decay_types, value)) << value;
}

TEST_F(ParamEntries, the_decay_type_of_light_decay_is_such_a_table)
{
    const RtParamEntry* const param =
        RvNodeEntryLookUpParameter(RvNodeEntryLookUp("light_decay"), "decay_type");
    const char* const* const names = RvParamGetEnum(param);
    EXPECT_EQ(RV_TYPE_ENUM, RvParamGetType(param));
    EXPECT_EQ(0, RvEnumGetValue(names, "constant"));
    EXPECT_EQ(2, RvEnumGetValue(names, "quadratic"));
    EXPECT_STREQ("constant", RvEnumGetString(names, 0));
    EXPECT_TRUE(RvEnumValueIsValid(names, 3));
    EXPECT_FALSE(RvEnumValueIsValid(names, 4));
}

TEST(Enumerations, names_are_found_by_value)
{
    EXPECT_STREQ("constant", RvEnumGetString(decay_types, 0));
    EXPECT_STREQ("cubic", RvEnumGetString(decay_types, 3));
    for (int value : { 4, 5, 99, -1 })
        EXPECT_EQ(nullptr, RvEnumGetString(decay_types, value)) << value;
}

TEST(Enumerations, values_are_found_by_name_or_index)
{
    EXPECT_EQ(0, RvEnumGetValue(decay_types, "constant"));
    EXPECT_EQ(2, RvEnumGetValue(decay_types, "quadratic"));
    EXPECT_EQ(0, RvEnumGetValue(decay_types, "0"));
    EXPECT_EQ(2, RvEnumGetValue(decay_types, "2"));
    EXPECT_EQ(2, RvEnumGetValue(decay_types, "2nd"));
    for (const char* text : { "this is invalid", "7", "4", "Constant", "", "-1", " 2", "+1" })
        EXPECT_EQ(-1, RvEnumGetValue(decay_types, text)) << text;
}

TEST(Enumerations, an_index_beyond_all_integers_is_not_found)
{
    for (const char* text : { "2147483648", "4294967296", "99999999999999999999999" })
        EXPECT_EQ(-1, RvEnumGetValue(decay_types, text)) << text;
}

TEST(Enumerations, a_null_table_and_a_null_text_are_accepted)
{
    EXPECT_EQ(nullptr, RvEnumGetString(nullptr, 0));
    EXPECT_EQ(-1, RvEnumGetValue(nullptr, "constant"));
    EXPECT_EQ(-1, RvEnumGetValue(nullptr, "0"));
    EXPECT_EQ(-1, RvEnumGetValue(decay_types, nullptr));
    EXPECT_FALSE(RvEnumValueIsValid(nullptr, 0));
}

TEST(Enumerations, an_empty_table_has_no_values)
{
    const char* const none[] = { nullptr };
    EXPECT_EQ(-1, RvEnumGetValue(none, "0"));
    EXPECT_EQ(-1, RvEnumGetValue(none, "x"));
    EXPECT_EQ(nullptr, RvEnumGetString(none, 0));
}

namespace {

// The table of a golden vector.
class GoldenTable {
public:
    explicit GoldenTable(const json& in) : is_null(in["names"].is_null())
    {
        if (is_null)
            return;
        texts = in["names"].get<std::vector<std::string>>();
        for (const std::string& text : texts)
            names.push_back(text.c_str());
        names.push_back(nullptr);
    }
    const char* const* get() const { return is_null ? nullptr : names.data(); }

private:
    bool is_null;
    std::vector<std::string> texts;
    std::vector<const char*> names;
};

} // namespace

TEST(Enumerations, golden_values)
{
    for (const json& v : goldenVectors("maths", "RvEnumGetValue")) {
        const GoldenTable table(v["in"]);
        const json& text = v["in"]["text"];
        const std::string given = text.is_null() ? "" : text.get<std::string>();
        expectGolden(v, "value",
                     RvEnumGetValue(table.get(), text.is_null() ? nullptr : given.c_str()));
    }
}

TEST(Enumerations, golden_names)
{
    for (const json& v : goldenVectors("maths", "RvEnumGetString")) {
        const GoldenTable table(v["in"]);
        const char* const name = RvEnumGetString(table.get(), v["in"]["value"]);
        expectGolden(v, "value", name ? json(name) : json());
    }
}

TEST(Enumerations, golden_validity)
{
    for (const json& v : goldenVectors("maths", "RvEnumValueIsValid")) {
        const GoldenTable table(v["in"]);
        expectGolden(v, "value", RvEnumValueIsValid(table.get(), v["in"]["value"]));
    }
}
