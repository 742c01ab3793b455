// Tests of nodes: creation, names, typed access, arrays, reset, copies and destruction.
#include "node_tools.h"

#include <math.h>

using namespace node_tools;

namespace {

using Names = std::vector<std::string>;

constexpr float infinity = HUGE_VALF;

class Nodes : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        methodCalls() = {};
    }

    static RtArray* strings(std::initializer_list<const char*> values)
    {
        RtArray* array = RvArrayAllocate(unsigned(values.size()), 1, RV_TYPE_STRING);
        unsigned i = 0;
        for (const char* value : values)
            RvArraySetStr(array, i++, value);
        return array;
    }

    static void ignore(std::initializer_list<const char*> names)
    {
        RvNodeSetArray(RvUniverseGetOptions(), "ignore_list", strings(names));
    }
};

// A node "n" of a type with parameters of every type, with a layout (true) or in slots (false).
class NodeAccess : public Nodes, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        Nodes::SetUp();
        ASSERT_TRUE(installEveryType("everything", GetParam()));
        node = named("everything", "n");
        ASSERT_TRUE(node);
        ASSERT_EQ(takeProblem(), "");
    }

    static std::string param(int type) { return std::string("p_") + type_names[type]; }
    static std::string array(int type) { return std::string("a_") + type_names[type]; }

    // What the getter of the declared type reads.
    std::string read(int declared) const
    {
        return accessor(accessType(declared)).get(node, param(declared).c_str());
    }

    RtNode* node = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Storage, NodeAccess, ::testing::Values(false, true),
                         [](const auto& row) { return row.param ? "laid_out" : "slots"; });

// How a request by one type ends on a parameter of another.
enum class Outcome { accepted, refused_silently, refused_with_warning };

Outcome outcomeOfAccess(int declared, int element, int requested)
{
    if (declared == requested || (declared == RV_TYPE_NODE && requested == RV_TYPE_POINTER) ||
        (declared == RV_TYPE_ENUM && requested == RV_TYPE_INT))
        return Outcome::accepted;
    if (declared == RV_TYPE_STRING && requested == RV_TYPE_INT)
        return Outcome::refused_silently;
    if (declared == RV_TYPE_ARRAY &&
        (requested == element || (requested == RV_TYPE_INT && element == RV_TYPE_UINT) ||
         (requested == RV_TYPE_POINTER && element == RV_TYPE_NODE)))
        return Outcome::accepted;
    return requested == RV_TYPE_ARRAY ? Outcome::refused_silently : Outcome::refused_with_warning;
}

Names expectedWarnings(Outcome outcome, const std::string& param, int declared, int requested,
                       const char* verb)
{
    Names warnings;
    if (outcome == Outcome::refused_with_warning)
        warnings.push_back(formatted("n.%s: use type %s, not %s", param.c_str(),
                                     type_names[declared], type_names[requested]));
    if (outcome != Outcome::accepted)
        warnings.push_back(formatted("n: could not %s %s parameter \"%s\"", verb,
                                     type_names[requested], param.c_str()));
    return warnings;
}

} // namespace

// ---- Typed access ----

TEST_P(NodeAccess, a_new_node_reads_its_defaults_and_has_nothing_set)
{
    for (int type = 0; type < type_count; ++type) {
        EXPECT_EQ(read(type), everyTypeDefault(type)) << type_names[type];
        EXPECT_FALSE(isSet(node, param(type).c_str())) << type_names[type];
    }
    EXPECT_TRUE(isSet(node, "name"));
    EXPECT_TRUE(messages().empty());
}

TEST_P(NodeAccess, every_setter_stores_what_its_getter_returns)
{
    for (const Accessor& a : accessors()) {
        const std::string name = param(a.type);
        for (int seed : { 1, 2, 0 }) {
            a.set(node, name.c_str(), seed);
            EXPECT_EQ(a.get(node, name.c_str()), a.text(seed)) << name;
        }
        EXPECT_TRUE(isSet(node, name.c_str())) << name;
        EXPECT_EQ(takeProblem(), "") << name;
    }
}

TEST_P(NodeAccess, setting_one_parameter_leaves_all_others_alone)
{
    for (const Accessor& a : accessors()) {
        RtNode* fresh = named("everything", "fresh");
        a.set(fresh, param(a.type).c_str(), 2);
        for (int type = 0; type < type_count; ++type)
            if (type != a.type) {
                EXPECT_EQ(accessor(accessType(type)).get(fresh, param(type).c_str()),
                          everyTypeDefault(type))
                    << type_names[a.type] << " changed " << type_names[type];
                EXPECT_FALSE(isSet(fresh, param(type).c_str())) << type_names[type];
            }
        RvNodeDestroy(fresh);
    }
}

TEST_P(NodeAccess, every_setter_takes_or_refuses_every_type_by_the_rules)
{
    for (int declared = 0; declared < type_count; ++declared)
        for (const Accessor& a : accessors()) {
            if (declared == RV_TYPE_ENUM && a.type == RV_TYPE_STRING)
                continue; // enumerations are set by name as well
            const std::string name = param(declared);
            const std::string before = snapshot(node);
            a.set(node, name.c_str(), 2);
            const Outcome outcome = outcomeOfAccess(declared, RV_TYPE_FLOAT, a.type);
            EXPECT_EQ(takeProblems(), expectedWarnings(outcome, name, declared, a.type, "set"));
            EXPECT_EQ(snapshot(node) == before, outcome != Outcome::accepted)
                << name << " by " << type_names[a.type];
            RvNodeReset(node);
            RvNodeSetStr(node, "name", "n");
        }
}

TEST_P(NodeAccess, every_getter_reads_or_refuses_every_type_by_the_rules)
{
    for (int declared = 0; declared < type_count; ++declared)
        for (const Accessor& a : accessors()) {
            const std::string name = param(declared);
            const std::string got = a.get(node, name.c_str());
            const Outcome outcome = outcomeOfAccess(declared, RV_TYPE_FLOAT, a.type);
            EXPECT_EQ(takeProblems(), expectedWarnings(outcome, name, declared, a.type, "read"));
            if (outcome != Outcome::accepted)
                EXPECT_EQ(got, a.neutral) << name << " by " << type_names[a.type];
            else if (declared != RV_TYPE_ARRAY || a.type == RV_TYPE_ARRAY)
                EXPECT_EQ(got, everyTypeDefault(declared)) << name;
            else
                EXPECT_EQ(got, "0.5") << "the first element";
        }
}

TEST_P(NodeAccess, setters_on_arrays_take_or_refuse_every_element_type_by_the_rules)
{
    for (int element = 0; element < type_count; ++element) {
        if (!isElementType(element))
            continue;
        for (const Accessor& a : accessors()) {
            const std::string name = array(element);
            const Outcome outcome = outcomeOfAccess(RV_TYPE_ARRAY, element, a.type);
            const std::string before = snapshot(node);
            if (a.type == RV_TYPE_ARRAY)
                continue; // conversions: below
            a.set(node, name.c_str(), 2);
            EXPECT_EQ(takeProblems(),
                      expectedWarnings(outcome, name, RV_TYPE_ARRAY, a.type, "set"));
            EXPECT_EQ(snapshot(node) == before, outcome != Outcome::accepted)
                << name << " by " << type_names[a.type];
            RvNodeReset(node);
            RvNodeSetStr(node, "name", "n");
        }
    }
}

TEST_P(NodeAccess, one_value_fills_all_elements_of_all_keys_of_an_array)
{
    for (const Accessor& a : accessors()) {
        if (a.type == RV_TYPE_ARRAY)
            continue;
        const std::string name = array(a.type);
        RtArray* before = RvNodeGetArray(node, name.c_str());
        a.set(node, name.c_str(), 2);
        EXPECT_EQ(takeProblem(), "") << name;
        EXPECT_TRUE(isSet(node, name.c_str())) << name;
        EXPECT_EQ(a.get(node, name.c_str()), a.text(2)) << "the first element of " << name;
        RtArray* after = RvNodeGetArray(node, name.c_str());
        ASSERT_TRUE(after);
        EXPECT_EQ(after, before) << name;
        const std::string value = a.text(2);
        EXPECT_EQ(describe(after),
                  formatted("%s 2x2: %s, %s, %s, %s", type_names[a.type], value.c_str(),
                            value.c_str(), value.c_str(), value.c_str()));
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, one_value_replaces_an_empty_array_by_one_element)
{
    for (const Accessor& a : accessors()) {
        if (a.type == RV_TYPE_ARRAY)
            continue;
        const std::string name = array(a.type);
        RvNodeSetArray(node, name.c_str(), RvArrayAllocate(0, 1, a.type));
        EXPECT_EQ(a.get(node, name.c_str()), a.neutral) << name;
        takeProblems();
        a.set(node, name.c_str(), 2);
        EXPECT_EQ(describe(RvNodeGetArray(node, name.c_str())),
                  formatted("%s 1x1: %s", type_names[a.type], a.text(2).c_str()));
        EXPECT_EQ(takeProblem(), "") << name;
    }
}

TEST_P(NodeAccess, integers_set_unsigned_arrays_and_pointers_set_node_arrays)
{
    RvNodeSetInt(node, "a_UINT", 5);
    EXPECT_EQ(describe(RvNodeGetArray(node, "a_UINT")), "UINT 2x2: 5, 5, 5, 5");
    EXPECT_EQ(RvNodeGetInt(node, "a_UINT"), 5);
    EXPECT_EQ(RvNodeGetUInt(node, "a_UINT"), 5u);
    RvNodeSetPtr(node, "a_NODE", node);
    EXPECT_EQ(RvNodeGetPtr(node, "a_NODE"), node);
    EXPECT_EQ(RvNodeGetArray(node, "a_NODE")->type, RV_TYPE_NODE);
    EXPECT_EQ(takeProblem(), "");

    // The same into empty arrays.
    RvNodeSetArray(node, "a_UINT", RvArrayAllocate(0, 1, RV_TYPE_UINT));
    RvNodeSetInt(node, "a_UINT", 6);
    EXPECT_EQ(describe(RvNodeGetArray(node, "a_UINT")), "UINT 1x1: 6");
    RvNodeSetArray(node, "a_NODE", RvArrayAllocate(0, 1, RV_TYPE_NODE));
    RvNodeSetPtr(node, "a_NODE", node);
    EXPECT_EQ(RvNodeGetArray(node, "a_NODE")->nelements, 1u);
    EXPECT_EQ(RvNodeGetArray(node, "a_NODE")->type, RV_TYPE_NODE);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, a_getter_reads_the_first_element_of_an_array)
{
    RvNodeSetArray(node, "a_INT", RvArray(3, 2, RV_TYPE_INT, 11, 12, 13, 14, 15, 16));
    EXPECT_EQ(RvNodeGetInt(node, "a_INT"), 11);
    RvNodeSetArray(node, "a_STRING", strings({ "first", "second" }));
    EXPECT_STREQ(RvNodeGetStr(node, "a_STRING"), "first");
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, any_byte_of_an_array_but_zero_reads_as_true)
{
    static_assert(sizeof(bool) == 1);
    uint8_t bytes[] = { 0, 1, 2, 255 };
    for (uint8_t& byte : bytes) {
        RvNodeSetArray(node, "a_BOOL", RvArrayConvert(1, 1, RV_TYPE_BOOLEAN, &byte, false));
        const bool value = RvNodeGetBool(node, "a_BOOL");
        uint8_t got = 77;
        memcpy(&got, &value, 1);
        EXPECT_EQ(got, byte != 0) << int(byte);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, unknown_parameters_warn_and_read_as_zero)
{
    const std::string before = snapshot(node);
    for (const Accessor& a : accessors()) {
        a.set(node, "no_such", 1);
        EXPECT_EQ(takeProblem(),
                  formatted("n: could not set %s parameter \"no_such\"", type_names[a.type]));
        EXPECT_EQ(a.get(node, "no_such"), a.neutral);
        EXPECT_EQ(takeProblem(),
                  formatted("n: could not read %s parameter \"no_such\"", type_names[a.type]));
    }
    EXPECT_EQ(snapshot(node), before);
}

TEST_P(NodeAccess, odd_parameter_names_do_no_harm)
{
    const std::string before = snapshot(node);
    const std::string endless(1 << 16, 'x');
    for (const char* name : { "", ".", "p_INT.", "p_INT.x", "@before", "%s%s%n", "\xff\xfe",
                              "p_INT ", endless.c_str(), static_cast<const char*>(nullptr) })
        for (const Accessor& a : accessors()) {
            a.set(node, name, 1);
            EXPECT_EQ(a.get(node, name), a.neutral) << type_names[a.type];
        }
    EXPECT_EQ(snapshot(node), before);
}

TEST_P(NodeAccess, a_null_node_is_reported_and_reads_as_zero)
{
    for (const Accessor& a : accessors()) {
        a.set(nullptr, "p_INT", 1);
        Names problems = takeProblems();
        ASSERT_FALSE(problems.empty()) << type_names[a.type];
        EXPECT_EQ(problems[0], "asking a NULL node for parameter p_INT");
        EXPECT_EQ(a.get(nullptr, "p_FLOAT"), a.neutral);
        problems = takeProblems();
        ASSERT_FALSE(problems.empty()) << type_names[a.type];
        EXPECT_EQ(problems[0], "asking a NULL node for parameter p_FLOAT");
        a.set(nullptr, nullptr, 1);
        EXPECT_EQ(a.get(nullptr, nullptr), a.neutral);
        takeProblems();
    }
}

TEST_P(NodeAccess, a_refused_matrix_leaves_the_callers_matrix_alone)
{
    RtMatrix matrix = filledMatrix(3, 1);
    RvNodeGetMatrix(node, "p_INT", &matrix);
    RvNodeGetMatrix(node, "no_such", &matrix);
    RvNodeGetMatrix(nullptr, "p_MATRIX", &matrix);
    EXPECT_EQ(describe(matrix), describe(filledMatrix(3, 1)));
    takeProblems();
    RvNodeGetMatrix(node, "p_MATRIX", nullptr);
    RvNodeSetMatrix(node, "p_MATRIX", nullptr);
    EXPECT_EQ(read(RV_TYPE_MATRIX), everyTypeDefault(RV_TYPE_MATRIX));
}

TEST_P(NodeAccess, a_stored_matrix_is_a_copy)
{
    RtMatrix matrix = filledMatrix(1, 1);
    RvNodeSetMatrix(node, "p_MATRIX", &matrix);
    matrix.m[0][0] = 77;
    EXPECT_EQ(read(RV_TYPE_MATRIX), describe(filledMatrix(1, 1)));
}

TEST_P(NodeAccess, every_byte_fits_and_booleans_are_kept)
{
    for (int value : { 0, 1, 127, 128, 255 }) {
        RvNodeSetByte(node, "p_BYTE", uint8_t(value));
        EXPECT_EQ(RvNodeGetByte(node, "p_BYTE"), value);
    }
    for (int value : { INT32_MIN, -1, 0, INT32_MAX }) {
        RvNodeSetInt(node, "p_INT", value);
        EXPECT_EQ(RvNodeGetInt(node, "p_INT"), value);
    }
    for (unsigned value : { 0u, 1u, UINT32_MAX }) {
        RvNodeSetUInt(node, "p_UINT", value);
        EXPECT_EQ(RvNodeGetUInt(node, "p_UINT"), value);
    }
    RvNodeSetBool(node, "p_BOOL", false);
    EXPECT_FALSE(RvNodeGetBool(node, "p_BOOL"));
    RvNodeSetPtr(node, "p_POINTER", nullptr);
    EXPECT_EQ(RvNodeGetPtr(node, "p_POINTER"), nullptr);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, setters_accept_exactly_the_known_types)
{
    for (const auto& v : goldenVectors("misc", "setter_type_rule")) {
        const int declared = typeCode(v["in"]["declared"]);
        Names accepted, silent;
        for (const Accessor& a : accessors()) {
            a.set(node, param(declared).c_str(), 1);
            const Names problems = takeProblems();
            if (problems.empty())
                accepted.push_back(type_names[a.type]);
            else if (problems.size() == 1 && problems[0].find("could not set") != std::string::npos)
                silent.push_back(type_names[a.type]);
        }
        EXPECT_EQ(accepted, v["out"]["accepted"].get<Names>()) << v["id"];
        EXPECT_EQ(silent, v["out"]["fails_without_use_type_warning"].get<Names>()) << v["id"];
    }
}

TEST_P(NodeAccess, setters_on_arrays_accept_exactly_the_known_types)
{
    for (const auto& v : goldenVectors("misc", "setter_type_rule_array")) {
        const int element = typeCode(v["in"]["element_type"]);
        std::set<std::string> accepted, expected;
        for (const Accessor& a : accessors()) {
            if (a.type == RV_TYPE_ARRAY)
                continue;
            a.set(node, array(element).c_str(), 1);
            if (takeProblems().empty())
                accepted.insert(type_names[a.type]);
        }
        for (const std::string name : v["out"]["accepted"])
            if (name != "NODE") // no setter asks for NODE
                expected.insert(name);
        EXPECT_EQ(accepted, expected) << v["id"];
    }
}

// ---- Values that are no numbers ----

namespace {

struct FloatSetter {
    int type;
    int components;
    void (*set)(RtNode*, const char*, const float*);
    const char* format; // of the components in the warning, null for a matrix
};

const FloatSetter float_setters[] = {
    { RV_TYPE_FLOAT, 1, [](RtNode* n, const char* p, const float* v) { RvNodeSetFlt(n, p, v[0]); },
      "%f" },
    { RV_TYPE_RGB, 3,
      [](RtNode* n, const char* p, const float* v) { RvNodeSetRGB(n, p, v[0], v[1], v[2]); },
      "%f %f %f" },
    { RV_TYPE_RGBA, 4,
      [](RtNode* n, const char* p, const float* v) { RvNodeSetRGBA(n, p, v[0], v[1], v[2], v[3]); },
      "%f %f %f %f" },
    { RV_TYPE_VECTOR, 3,
      [](RtNode* n, const char* p, const float* v) { RvNodeSetVec(n, p, v[0], v[1], v[2]); },
      "%g %g %g" },
    { RV_TYPE_POINT, 3,
      [](RtNode* n, const char* p, const float* v) { RvNodeSetPnt(n, p, v[0], v[1], v[2]); },
      "%g %g %g" },
    { RV_TYPE_POINT2, 2,
      [](RtNode* n, const char* p, const float* v) { RvNodeSetPnt2(n, p, v[0], v[1]); }, "%f %f" },
    { RV_TYPE_MATRIX, 16,
      [](RtNode* n, const char* p, const float* v) {
          RtMatrix matrix;
          memcpy(&matrix, v, sizeof(matrix));
          RvNodeSetMatrix(n, p, &matrix);
      },
      nullptr },
};

std::string badFloatWarning(const FloatSetter& setter, const std::string& param, const float* v)
{
    std::string found = "bad matrix";
    if (setter.format) {
        found = "bad float:";
        const char* conversion = strchr(setter.format, 'g') ? " %g" : " %f";
        for (int i = 0; i < setter.components; ++i)
            found += formatted(conversion, double(v[i]));
    }
    return "ignoring parameter " + param + " on n (found " + found + ")";
}

float numberOf(const nlohmann::json& value)
{
    if (!value.is_string())
        return value.get<float>();
    return value == "nan" ? NAN : value == "inf" ? infinity : -infinity;
}

} // namespace

TEST_P(NodeAccess, setters_accept_exactly_the_usable_numbers)
{
    for (const auto& v : goldenVectors("maths", "setter_accepts_float")) {
        const int type = typeCode(v["in"]["parameter_type"]);
        for (const FloatSetter& setter : float_setters) {
            if (setter.type != type)
                continue;
            for (int i = 0; i < setter.components; ++i) { // in any component
                float values[16] = {};
                values[i] = numberOf(v["in"]["component"]);
                const std::string before = snapshot(node);
                setter.set(node, param(type).c_str(), values);
                const bool accepted = v["out"]["accepted"];
                EXPECT_EQ(takeProblem(),
                          accepted ? "" : badFloatWarning(setter, param(type), values))
                    << v["id"];
                EXPECT_EQ(snapshot(node) == before, !accepted) << v["id"];
                RvNodeReset(node);
                RvNodeSetStr(node, "name", "n");
            }
        }
    }
}

TEST_P(NodeAccess, bad_numbers_are_refused_on_array_parameters_too)
{
    for (const FloatSetter& setter : float_setters)
        for (float bad : { NAN, infinity, -infinity, 2e30f }) {
            float values[16] = {};
            values[setter.components - 1] = bad;
            const std::string before = snapshot(node);
            setter.set(node, array(setter.type).c_str(), values);
            EXPECT_EQ(takeProblem(), badFloatWarning(setter, array(setter.type), values));
            EXPECT_EQ(snapshot(node), before);
        }
}

TEST_P(NodeAccess, a_float_of_1e30_is_accepted_and_one_of_2e30_refused)
{
    RvNodeSetFlt(node, "p_FLOAT", 1e30f);
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeGetFlt(node, "p_FLOAT"), 1e30f);
    RvNodeSetFlt(node, "p_FLOAT", 2e30f);
    EXPECT_EQ(takeProblem(),
              formatted("ignoring parameter p_FLOAT on n (found bad float: %f)", double(2e30f)));
    EXPECT_EQ(RvNodeGetFlt(node, "p_FLOAT"), 1e30f);
}

// ---- Strings ----

TEST_P(NodeAccess, a_null_string_stores_the_empty_string)
{
    RvNodeSetStr(node, "p_STRING", nullptr);
    EXPECT_STREQ(RvNodeGetStr(node, "p_STRING"), "");
    EXPECT_TRUE(isSet(node, "p_STRING"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, equal_strings_share_one_copy)
{
    RtNode* other = named("everything", "other");
    const std::string text = "shared text";
    RvNodeSetStr(node, "p_STRING", text.c_str());
    RvNodeSetStr(other, "p_STRING", std::string(text).c_str());
    EXPECT_EQ(RvNodeGetStr(node, "p_STRING"), RvNodeGetStr(other, "p_STRING"));
    EXPECT_NE(RvNodeGetStr(node, "p_STRING"), text.c_str());
}

TEST_P(NodeAccess, a_string_may_be_set_to_itself)
{
    RvNodeSetStr(node, "p_STRING", "only holder");
    RvNodeSetStr(node, "p_STRING", RvNodeGetStr(node, "p_STRING"));
    EXPECT_STREQ(RvNodeGetStr(node, "p_STRING"), "only holder");
    RvNodeSetStr(node, "name", RvNodeGetName(node));
    EXPECT_STREQ(RvNodeGetName(node), "n");
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, the_text_NULL_is_refused)
{
    const std::string before = snapshot(node);
    RvNodeSetStr(node, "p_STRING", "NULL");
    EXPECT_EQ(takeProblem(), "parameter \"p_STRING\" set to an invalid string: \"NULL\"");
    RvNodeSetStr(node, "name", "NULL");
    EXPECT_EQ(takeProblem(), "parameter \"name\" set to an invalid string: \"NULL\"");
    EXPECT_EQ(snapshot(node), before);
    EXPECT_FALSE(RvNodeLookUpByName("NULL"));
    for (const char* fine : { "null", "NULL ", " NULL", "NUL", "NULLS" }) {
        RvNodeSetStr(node, "p_STRING", fine);
        EXPECT_STREQ(RvNodeGetStr(node, "p_STRING"), fine);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, long_strings_are_kept_whole)
{
    const std::string text(1 << 20, 'y');
    RvNodeSetStr(node, "p_STRING", text.c_str());
    EXPECT_EQ(RvNodeGetStr(node, "p_STRING"), text);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, any_bytes_may_stand_in_a_string)
{
    std::string text;
    for (int c = 1; c < 256; ++c)
        text += char(c);
    RvNodeSetStr(node, "p_STRING", text.c_str());
    EXPECT_EQ(RvNodeGetStr(node, "p_STRING"), text);
    RvNodeSetStr(node, "name", "%s%n %d");
    EXPECT_STREQ(RvNodeGetName(node), "%s%n %d");
    RvNodeSetFlt(node, "p_INT", 1);
    EXPECT_EQ(takeProblem(), "%s%n %d.p_INT: use type INT, not FLOAT | "
                             "%s%n %d: could not set FLOAT parameter \"p_INT\"");
}

// ---- Enumerations ----

TEST_P(NodeAccess, enumerations_are_set_by_index_and_by_name)
{
    static const struct {
        const char* text;
        int value;
    } cases[] = { { "apple", 0 }, { "cherry", 2 }, { "1", 1 }, { "0", 0 }, { "2", 2 } };
    for (const auto& c : cases) {
        RvNodeSetStr(node, "p_ENUM", c.text);
        EXPECT_EQ(RvNodeGetInt(node, "p_ENUM"), c.value) << c.text;
        EXPECT_TRUE(isSet(node, "p_ENUM"));
    }
    for (int value : { 0, 1, 2 }) {
        RvNodeSetInt(node, "p_ENUM", value);
        EXPECT_EQ(RvNodeGetInt(node, "p_ENUM"), value);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, enumeration_values_out_of_range_are_refused)
{
    for (int value : { 3, 99, -1, INT32_MAX, INT32_MIN }) {
        RvNodeSetInt(node, "p_ENUM", value);
        EXPECT_EQ(takeProblem(), formatted("n.p_ENUM: enumerated value %d is out of range", value));
        EXPECT_EQ(RvNodeGetInt(node, "p_ENUM"), 1) << "the default";
    }
    for (const char* text :
         { "Apple", "grape", "", "3", "99", "-1", " apple", static_cast<const char*>(nullptr) }) {
        RvNodeSetStr(node, "p_ENUM", text);
        EXPECT_EQ(takeProblem(), "n.p_ENUM: enumerated value -1 is out of range")
            << (text ? text : "(null)");
        EXPECT_EQ(RvNodeGetInt(node, "p_ENUM"), 1);
    }
}

TEST_P(NodeAccess, an_enumeration_is_not_read_as_a_string)
{
    EXPECT_FALSE(RvNodeGetStr(node, "p_ENUM"));
    EXPECT_EQ(takeProblem(), "n.p_ENUM: use type ENUM, not STRING | "
                             "n: could not read STRING parameter \"p_ENUM\"");
}

// ---- Arrays ----

TEST_P(NodeAccess, a_stored_array_is_the_callers_own)
{
    RtArray* first = RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.0);
    RvNodeSetArray(node, "p_ARRAY", first);
    EXPECT_EQ(RvNodeGetArray(node, "p_ARRAY"), first);
    EXPECT_TRUE(isSet(node, "p_ARRAY"));
    RvNodeSetArray(node, "p_ARRAY", first); // the same array again
    EXPECT_EQ(describe(RvNodeGetArray(node, "p_ARRAY")), "FLOAT 2x1: 1, 2");
    RtArray* second = RvArray(1, 3, RV_TYPE_FLOAT, 3.0, 4.0, 5.0);
    RvNodeSetArray(node, "p_ARRAY", second); // destroys the first
    EXPECT_EQ(describe(RvNodeGetArray(node, "p_ARRAY")), "FLOAT 1x3: 3, 4, 5");
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, an_array_over_foreign_storage_is_stored_without_copying)
{
    float values[] = { 1, 2, 3 };
    RvNodeSetArray(node, "p_ARRAY", RvArrayConvert(3, 1, RV_TYPE_FLOAT, values, false));
    EXPECT_EQ(RvNodeGetArray(node, "p_ARRAY")->data, values);
    RvNodeReset(node);
    EXPECT_EQ(values[2], 3);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, arrays_of_every_type_are_stored)
{
    for (int element = 0; element < type_count; ++element) {
        if (!isElementType(element))
            continue;
        RtArray* values = RvArrayAllocate(3, 2, element);
        RvNodeSetArray(node, array(element).c_str(), values);
        EXPECT_EQ(RvNodeGetArray(node, array(element).c_str()), values) << type_names[element];
        EXPECT_EQ(takeProblem(), "") << type_names[element];
    }
}

TEST_P(NodeAccess, arrays_are_converted_in_place)
{
    static const struct {
        const char* param;
        const char* stored;
        RtArray* (*make)();
    } cases[] = {
        { "a_BYTE", "BYTE 3x1: 0, 7, 255", [] { return RvArray(3, 1, RV_TYPE_UINT, 0, 7, 255); } },
        { "a_BYTE", "BYTE 2x2: 1, 2, 3, 4",
          [] { return RvArray(2, 2, RV_TYPE_UINT, 1, 2, 3, 4); } },
        { "a_UINT", "UINT 3x1: 0, 7, 2147483647",
          [] { return RvArray(3, 1, RV_TYPE_INT, 0, 7, INT32_MAX); } },
        { "a_UINT", "UINT 3x1: 0, 7, 255", [] { return RvArray(3, 1, RV_TYPE_BYTE, 0, 7, 255); } },
        { "a_UINT", "UINT 1x2: 5, 6", [] { return RvArray(1, 2, RV_TYPE_BYTE, 5, 6); } },
        { "a_POINT", "POINT 2x1: 1 2 3, 4 5 6",
          [] { return RvArray(6, 1, RV_TYPE_FLOAT, 1., 2., 3., 4., 5., 6.); } },
        { "a_POINT", "POINT 1x2: 1 2 3, 4 5 6",
          [] { return RvArray(3, 2, RV_TYPE_FLOAT, 1., 2., 3., 4., 5., 6.); } },
        { "a_VECTOR", "VECTOR 1x1: -1 0 1",
          [] { return RvArray(3, 1, RV_TYPE_FLOAT, -1., 0., 1.); } },
        { "a_POINT2", "POINT2 2x1: 1 2, 3 4",
          [] { return RvArray(4, 1, RV_TYPE_FLOAT, 1., 2., 3., 4.); } },
        { "a_POINT2", "POINT2 1x2: 1 2, 3 4",
          [] { return RvArray(2, 2, RV_TYPE_FLOAT, 1., 2., 3., 4.); } },
        { "a_NODE", "NODE 2x1: null, null",
          [] { return RvArray(2, 1, RV_TYPE_POINTER, nullptr, nullptr); } },
        { "a_BYTE", "BYTE 0x1:", [] { return RvArrayAllocate(0, 1, RV_TYPE_UINT); } },
        { "a_UINT", "UINT 0x1:", [] { return RvArrayAllocate(0, 1, RV_TYPE_BYTE); } },
        { "a_POINT", "POINT 0x1:", [] { return RvArrayAllocate(0, 1, RV_TYPE_FLOAT); } },
    };
    for (const auto& c : cases) {
        RtArray* given = c.make();
        RvNodeSetArray(node, c.param, given);
        EXPECT_EQ(takeProblem(), "") << c.stored;
        EXPECT_EQ(RvNodeGetArray(node, c.param), given) << c.stored;
        EXPECT_EQ(describe(RvNodeGetArray(node, c.param)), c.stored);
        EXPECT_TRUE(isSet(node, c.param));
    }
}

TEST_P(NodeAccess, any_number_of_floats_can_be_regrouped_without_harm)
{
    for (const char* name : { "a_POINT", "a_VECTOR", "a_POINT2" })
        for (unsigned count = 0; count < 10; ++count)
            for (unsigned keys = 1; keys < 4; ++keys) {
                giveArray(node, name, RvArrayAllocate(count, keys, RV_TYPE_FLOAT));
                RtArray* stored = RvNodeGetArray(node, name);
                ASSERT_TRUE(stored);
                for (unsigned i = 0; i < stored->nelements * stored->nkeys; ++i)
                    describeElement(stored->type, static_cast<const char*>(stored->data) +
                                                      i * rv::typeSize(stored->type));
            }
}

TEST_P(NodeAccess, foreign_storage_is_converted_without_harm)
{
    unsigned words[] = { 1, 2, 3 };
    RvNodeSetArray(node, "a_BYTE", RvArrayConvert(3, 1, RV_TYPE_UINT, words, false));
    EXPECT_EQ(describe(RvNodeGetArray(node, "a_BYTE")), "BYTE 3x1: 1, 2, 3");
    uint8_t bytes[] = { 4, 5, 6 };
    RvNodeSetArray(node, "a_UINT", RvArrayConvert(3, 1, RV_TYPE_BYTE, bytes, false));
    EXPECT_EQ(describe(RvNodeGetArray(node, "a_UINT")), "UINT 3x1: 4, 5, 6");
    float floats[] = { 1, 2, 3 };
    RvNodeSetArray(node, "a_POINT", RvArrayConvert(3, 1, RV_TYPE_FLOAT, floats, false));
    EXPECT_EQ(describe(RvNodeGetArray(node, "a_POINT")), "POINT 1x1: 1 2 3");
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, arrays_of_other_types_are_refused_and_stay_the_callers)
{
    static const struct {
        int from, to;
    } conversions[] = {
        { RV_TYPE_UINT, RV_TYPE_BYTE },    { RV_TYPE_INT, RV_TYPE_UINT },
        { RV_TYPE_BYTE, RV_TYPE_UINT },    { RV_TYPE_FLOAT, RV_TYPE_POINT },
        { RV_TYPE_FLOAT, RV_TYPE_VECTOR }, { RV_TYPE_FLOAT, RV_TYPE_POINT2 },
        { RV_TYPE_POINTER, RV_TYPE_NODE },
    };
    for (int declared = 0; declared < type_count; ++declared)
        for (int given = 0; given < type_count; ++given) {
            if (!isElementType(declared) || !isElementType(given) || declared == given)
                continue;
            bool converted = false;
            for (const auto& c : conversions)
                converted |= c.from == given && c.to == declared;
            const std::string before = snapshot(node);
            const bool kept =
                giveArray(node, array(declared).c_str(), RvArrayAllocate(6, 1, given));
            EXPECT_EQ(kept, converted) << type_names[given] << " to " << type_names[declared];
            if (converted) {
                EXPECT_EQ(takeProblem(), "");
            } else {
                const Names problems = takeProblems();
                ASSERT_FALSE(problems.empty());
                EXPECT_EQ(problems[0], formatted("n: parameter %s is an array of type %s, not %s",
                                                 array(declared).c_str(), type_names[declared],
                                                 type_names[given]));
                EXPECT_EQ(snapshot(node), before);
            }
        }
}

TEST_P(NodeAccess, arrays_with_bad_numbers_are_refused_and_the_old_one_stays)
{
    for (int element : { RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_VECTOR, RV_TYPE_POINT,
                         RV_TYPE_POINT2, RV_TYPE_MATRIX })
        for (float bad : { NAN, infinity, -infinity, 2e30f, -2e30f }) {
            RtArray* values = RvArrayAllocate(2, 2, element);
            const size_t size = 4 * rv::typeSize(element);
            memcpy(static_cast<char*>(values->data) + size - sizeof(float), &bad, sizeof(float));
            const std::string before = snapshot(node);
            EXPECT_FALSE(giveArray(node, array(element).c_str(), values));
            EXPECT_EQ(takeProblem(),
                      "ignoring parameter " + array(element) + " on n (found: nans or infs)");
            EXPECT_EQ(snapshot(node), before);
        }
}

TEST_P(NodeAccess, converted_arrays_are_checked_too)
{
    const std::string before = snapshot(node);
    EXPECT_FALSE(giveArray(node, "a_POINT", RvArray(3, 1, RV_TYPE_FLOAT, 0., 1., double(NAN))));
    EXPECT_EQ(takeProblem(), "ignoring parameter a_POINT on n (found: nans or infs)");
    EXPECT_EQ(snapshot(node), before);
}

TEST_P(NodeAccess, an_array_for_an_unknown_or_scalar_parameter_stays_the_callers)
{
    EXPECT_FALSE(giveArray(node, "no_such", RvArray(1, 1, RV_TYPE_INT, 1)));
    EXPECT_EQ(takeProblem(), "n: could not set ARRAY parameter \"no_such\"");
    EXPECT_FALSE(giveArray(node, "p_INT", RvArray(1, 1, RV_TYPE_INT, 1)));
    EXPECT_EQ(takeProblem(), "n: could not set ARRAY parameter \"p_INT\"");
    EXPECT_FALSE(giveArray(nullptr, "p_ARRAY", RvArray(1, 1, RV_TYPE_FLOAT, 1.0)));
}

TEST_P(NodeAccess, a_null_array_does_no_harm)
{
    RvNodeSetArray(node, "p_ARRAY", nullptr);
    RvNodeSetArray(node, "no_such", nullptr);
    RvNodeSetArray(node, "p_INT", nullptr);
    RvNodeGetArray(node, "p_ARRAY");
    RvNodeGetFlt(node, "p_ARRAY");
    RvNodeSetFlt(node, "p_ARRAY", 1);
    RvNodeReset(node);
    EXPECT_EQ(read(RV_TYPE_ARRAY), everyTypeDefault(RV_TYPE_ARRAY));
}

TEST_P(NodeAccess, nested_arrays_and_strings_die_with_the_node)
{
    RtArray* outer = RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.0);
    RvNodeSetArray(node, "p_ARRAY", outer);
    RvNodeSetArray(node, "a_STRING", strings({ "a", "b", "a" }));
    RvNodeSetStr(node, "a_STRING", "all the same");
    RvNodeSetStr(node, "p_STRING", "single");
    RvNodeDestroy(node);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Reset ----

TEST_P(NodeAccess, reset_restores_every_default_and_forgets_what_was_set)
{
    RtNode* source = RvNode("lambert");
    for (const Accessor& a : accessors()) {
        a.set(node, param(a.type).c_str(), 2);
        if (a.type != RV_TYPE_ARRAY)
            a.set(node, array(a.type).c_str(), 2);
    }
    RvNodeLink(source, "p_RGB", node);
    RvNodeLink(source, "@before", node);
    ASSERT_TRUE(RvNodeGetLink(node, "p_RGB"));
    RvNodeDeclare(node, "tag", "constant INT");
    RvNodeSetInt(node, "tag", 5);

    RvNodeReset(node);
    for (int type = 0; type < type_count; ++type)
        EXPECT_EQ(read(type), everyTypeDefault(type)) << type_names[type];
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        EXPECT_EQ(node->set_flags[i], 0) << node->entry->params[i].name;
    EXPECT_FALSE(RvNodeGetLink(node, "p_RGB"));
    EXPECT_TRUE(node->links) << "the emptied table stays";
    EXPECT_EQ(RvNodeGetLink(node, "@before"), source) << "the evaluation order stays";
    EXPECT_EQ(RvNodeGetInt(node, "tag"), 5) << "user parameters are untouched";
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, required_reset_renames_the_node_but_not_in_the_name_table)
{
    RvNodeReset(node);
    EXPECT_STREQ(RvNodeGetStr(node, "name"), "default_name");
    EXPECT_STREQ(RvNodeGetName(node), "default_name");
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    EXPECT_FALSE(RvNodeLookUpByName("default_name"));
}

TEST_P(NodeAccess, a_reset_node_that_is_destroyed_is_found_no_more)
{
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
    EXPECT_FALSE(RvNodeLookUpByName("default_name"));
}

TEST_P(NodeAccess, a_reset_node_that_is_destroyed_leaves_its_namesake_alone)
{
    RtNode* namesake = named("everything", "default_name");
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_EQ(RvNodeLookUpByName("default_name"), namesake);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
}

TEST_P(NodeAccess, a_reset_node_can_be_renamed_and_destroyed)
{
    RvNodeReset(node);
    RvNodeSetStr(node, "name", "again");
    EXPECT_EQ(RvNodeLookUpByName("again"), node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("again"));
    EXPECT_FALSE(RvNodeLookUpByName("n"));
    EXPECT_EQ(takeProblem(), "");
}

// ---- Clone ----

TEST_P(NodeAccess, a_clone_has_copies_of_all_values_but_the_name)
{
    for (const Accessor& a : accessors()) {
        a.set(node, param(a.type).c_str(), 2);
        if (a.type != RV_TYPE_ARRAY)
            a.set(node, array(a.type).c_str(), 2);
    }
    RvNodeSetPtr(node, "p_NODE", node);
    RtNode* clone = RvNodeClone(node);
    ASSERT_TRUE(clone);
    EXPECT_NE(clone, node);
    EXPECT_TRUE(RvNodeIs(clone, "everything"));
    EXPECT_STRNE(RvNodeGetName(clone), "n");
    EXPECT_TRUE(matches(RvNodeGetName(clone), "everything_[0-9A-F]{24,}"));
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(clone)), clone);
    for (const Accessor& a : accessors())
        EXPECT_EQ(a.get(clone, param(a.type).c_str()), a.text(2)) << type_names[a.type];
    EXPECT_EQ(RvNodeGetPtr(clone, "p_NODE"), node);
    for (int element = 0; element < type_count; ++element) {
        if (!isElementType(element))
            continue;
        RtArray* original = RvNodeGetArray(node, array(element).c_str());
        RtArray* copy = RvNodeGetArray(clone, array(element).c_str());
        EXPECT_NE(copy, original) << type_names[element];
        EXPECT_EQ(describe(copy), describe(original)) << type_names[element];
    }
    EXPECT_EQ(RvNodeGetStr(clone, "p_STRING"), RvNodeGetStr(node, "p_STRING"));
    EXPECT_EQ(takeProblem(), "");

    const RtMatrix other = filledMatrix(50, 1);
    RvNodeSetMatrix(clone, "p_MATRIX", &other);
    EXPECT_EQ(read(RV_TYPE_MATRIX), describe(filledMatrix(2, 1))) << "matrices are not shared";
    RvNodeDestroy(node);
    EXPECT_EQ(describe(RvNodeGetStr(clone, "p_STRING")), "\"text 2\"");
}

TEST_P(NodeAccess, a_clone_has_copies_of_the_user_parameters)
{
    RvNodeDeclare(node, "text", "constant STRING");
    RvNodeSetStr(node, "text", "value");
    RvNodeDeclare(node, "matrix", "constant MATRIX");
    const RtMatrix matrix = filledMatrix(1, 1);
    RvNodeSetMatrix(node, "matrix", &matrix);
    RvNodeDeclare(node, "list", "constant ARRAY STRING");
    RvNodeSetArray(node, "list", strings({ "a", "b" }));
    RvNodeDeclare(node, "unset", "varying FLOAT");
    RvNodeDeclare(node, "number", "constant FLOAT");
    RvNodeSetFlt(node, "number", 2.5f);

    RtNode* clone = RvNodeClone(node);
    ASSERT_TRUE(clone);
    RvNodeDestroy(node);
    EXPECT_STREQ(RvNodeGetStr(clone, "text"), "value");
    EXPECT_EQ(RvNodeGetFlt(clone, "number"), 2.5f);
    EXPECT_EQ(describe(RvNodeGetArray(clone, "list")), "STRING 2x1: \"a\", \"b\"");
    RtMatrix copy = {};
    RvNodeGetMatrix(clone, "matrix", &copy);
    EXPECT_EQ(describe(copy), describe(matrix));
    EXPECT_EQ(RvUserParamGetCategory(RvNodeLookUpUserParameter(clone, "unset")),
              RV_USERDEF_VARYING);
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, a_clone_counts_as_set_what_the_original_does)
{
    RvNodeSetInt(node, "p_INT", 3);
    RvNodeSetArray(node, "p_ARRAY", RvArray(1, 1, RV_TYPE_FLOAT, 1.0));
    RtNode* clone = RvNodeClone(node);
    for (unsigned i = 0; i < node->entry->num_params; ++i)
        EXPECT_EQ(clone->set_flags[i], node->set_flags[i]) << node->entry->params[i].name;
    EXPECT_EQ(takeProblem(), "");
}

TEST_P(NodeAccess, a_clone_of_a_new_node_equals_a_new_node)
{
    RtNode* clone = RvNodeClone(node);
    for (int type = 0; type < type_count; ++type)
        EXPECT_EQ(accessor(accessType(type)).get(clone, param(type).c_str()),
                  everyTypeDefault(type))
            << type_names[type];
    EXPECT_FALSE(clone->local_data);
    EXPECT_FALSE(clone->creator);
    EXPECT_FALSE(clone->initialized);
    EXPECT_EQ(takeProblem(), "");
}

// ---- Creation ----

TEST_F(Nodes, a_type_that_does_not_exist_gives_no_node)
{
    EXPECT_FALSE(RvNode("this_doesnt_exist"));
    EXPECT_EQ(takeProblem(), "node \"this_doesnt_exist\" is not installed");
    EXPECT_FALSE(RvNode(""));
    EXPECT_EQ(takeProblem(), "node \"\" is not installed");
    EXPECT_FALSE(RvNode(nullptr));
    takeProblems();
    EXPECT_FALSE(RvNode("Lambert"));
    EXPECT_EQ(takeProblem(), "node \"Lambert\" is not installed");
    EXPECT_FALSE(RvNode("%s%n"));
    EXPECT_EQ(takeProblem(), "node \"%s%n\" is not installed");
}

TEST_F(Nodes, every_call_makes_another_node)
{
    RtNode* sphere = RvNode("sphere");
    RtNode* first = RvNode("lambert");
    RtNode* second = RvNode("lambert");
    ASSERT_TRUE(sphere && first && second);
    EXPECT_NE(sphere, first);
    EXPECT_NE(first, second);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, built_in_nodes_start_with_their_defaults)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("lambert"), "Kd"), 0.7f);
    EXPECT_EQ(RvNodeGetFlt(RvNode("disc"), "radius"), 0.5f);
    RtNode* sphere = RvNode("sphere");
    EXPECT_EQ(RvNodeGetFlt(sphere, "radius"), 0.5f);
    EXPECT_EQ(RvNodeGetInt(sphere, "visibility"), 65535);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, every_built_in_type_makes_a_node_with_its_declared_defaults)
{
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* entry = RvNodeEntryLookUpByIndex(i);
        const std::string type = RvNodeEntryGetName(entry);
        if (type == "options")
            continue;
        RtNode* node = RvNode(type.c_str());
        ASSERT_TRUE(node) << type;
        for (unsigned p = 0; p < entry->num_params; ++p) {
            const RtParamEntry* param = &entry->params[p];
            const std::string where = type + "." + param->name;
            const void* at = rv::paramStorage(node, param);
            if (param->type == RV_TYPE_ARRAY) {
                if (!strcmp(param->name, "shader"))
                    continue; // holds the default shader
                EXPECT_EQ(describe(*static_cast<RtArray* const*>(at)),
                          describe(param->default_value.ARRAY))
                    << where;
            } else if (param->type == RV_TYPE_MATRIX) {
                const void* matrix = entry->struct_size ? at : *static_cast<void* const*>(at);
                EXPECT_EQ(describeElement(param->type, matrix),
                          describe(*param->default_value.pMTX))
                    << where;
            } else if (strcmp(param->name, "name") != 0) {
                EXPECT_EQ(describeElement(param->type, at),
                          describeElement(param->type, &param->default_value))
                    << where;
            }
        }
        EXPECT_EQ(takeProblem(), "") << type;
    }
}

TEST_F(Nodes, default_names_have_their_form_and_end_with_the_count_of_the_type)
{
    for (unsigned i = 1; i <= 20; ++i) {
        const std::string name = RvNodeGetName(RvNode("lambert"));
        EXPECT_TRUE(matches(name, "lambert_[0-9A-F]{24,}")) << name;
        EXPECT_EQ(name.substr(name.size() - 8), formatted("%08X", i));
    }
}

TEST_F(Nodes, default_names_of_living_nodes_are_unique_and_found)
{
    std::set<std::string> names;
    for (int i = 0; i < 1500; ++i) {
        // Destroying the first gives the third the count, and perhaps the time, of the second.
        RtNode* first = RvNode("lambert");
        RtNode* second = RvNode("lambert");
        RvNodeDestroy(first);
        RtNode* third = RvNode("lambert");
        for (RtNode* node : { second, third }) {
            ASSERT_TRUE(node);
            EXPECT_TRUE(names.insert(RvNodeGetName(node)).second) << RvNodeGetName(node);
            EXPECT_EQ(RvNodeLookUpByName(RvNodeGetName(node)), node);
        }
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_second_options_node_is_the_first)
{
    RtNode* options = RvUniverseGetOptions();
    EXPECT_EQ(RvNode("options"), options);
    EXPECT_EQ(RvNode("options"), options);
    EXPECT_STREQ(RvNodeGetName(options), "options");
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("options")), 1);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, no_options_node_is_made_while_rendering)
{
    RtNode* lambert = nullptr;
    {
        HookOverride override;
        override.hooks.rendering = [] { return true; };
        EXPECT_FALSE(RvNode("options"));
        lambert = RvNode("lambert");
    }
    EXPECT_TRUE(lambert);
    EXPECT_EQ(RvNode("options"), RvUniverseGetOptions());
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_older_name_of_a_type_warns)
{
    installType("newer", [](RtList*, RtMetaDataStore* metadata) {
        RvMetaDataSetStr(metadata, nullptr, "synonym", "older");
    });
    RtNode* node = RvNode("older");
    EXPECT_EQ(takeProblem(), "node entry \"older\" is deprecated, use \"newer\"");
    ASSERT_TRUE(node);
    EXPECT_TRUE(RvNodeIs(node, "newer"));
    EXPECT_FALSE(RvNodeIs(node, "older"));
    EXPECT_TRUE(RvNode("newer"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_new_node_has_cleared_fields)
{
    RtNode* node = RvNode("lambert");
    EXPECT_FALSE(node->links);
    EXPECT_FALSE(node->before);
    EXPECT_FALSE(node->local_data);
    EXPECT_FALSE(node->source);
    EXPECT_FALSE(node->creator);
    EXPECT_FALSE(node->initialized);
    EXPECT_EQ(node->user_param_count, 0);
    EXPECT_EQ(node->own_param_count, node->entry->own_param_count);
    EXPECT_EQ(node->name_index, node->entry->kind_param_end);
    EXPECT_STREQ(node->entry->params[node->name_index].name, "name");
}

TEST_F(Nodes, the_overhead_of_nodes_is_counted_and_given_back)
{
    for (bool laid_out : { false, true }) {
        const RtNodeEntry* entry = installEveryType(laid_out ? "laid_out" : "slots", laid_out);
        const int64_t before = rv::hostStats()->node_overhead_bytes;
        RtNode* node = RvNode(entry->name);
        const int64_t storage = laid_out ? int64_t(sizeof(EveryType))
                                         : int64_t(entry->num_params * sizeof(RtParamValue));
        EXPECT_EQ(rv::hostStats()->node_overhead_bytes - before,
                  int64_t(sizeof(RtNode)) + storage + entry->num_params);
        RvNodeDestroy(node);
        EXPECT_EQ(rv::hostStats()->node_overhead_bytes, before);
    }
}

TEST_F(Nodes, creating_a_node_calls_none_of_its_methods)
{
    installType("quiet");
    RtNode* node = RvNode("quiet");
    RvNodeDestroy(RvNodeClone(node));
    RvNodeReset(node);
    RvNodeDestroy(node);
    EXPECT_EQ(methodCalls().initialized, 0);
    EXPECT_EQ(methodCalls().updated, 0);
    EXPECT_TRUE(methodCalls().finished.empty());
}

// ---- Ignored types and parameters ----

TEST_F(Nodes, an_ignored_type_gives_no_node_and_no_message)
{
    ignore({ "lambert", "sphere" });
    EXPECT_FALSE(RvNode("lambert"));
    EXPECT_FALSE(RvNode("sphere"));
    EXPECT_TRUE(RvNode("disc"));
    EXPECT_TRUE(messages().empty());
    ignore({ "disc" });
    EXPECT_TRUE(RvNode("lambert"));
    EXPECT_FALSE(RvNode("disc"));
    EXPECT_TRUE(messages().empty());
    ignore({});
    EXPECT_TRUE(RvNode("disc"));
}

TEST_F(Nodes, an_ignored_type_stays_ignored_when_it_is_installed_later)
{
    ignore({ "later_type" });
    EXPECT_FALSE(RvNode("later_type"));
    EXPECT_EQ(takeProblem(), "");
    installType("later_type");
    EXPECT_FALSE(RvNode("later_type"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, an_ignored_parameter_is_not_found)
{
    RtNode* lambert = named("lambert", "n");
    RtNode* disc = named("disc", "d");
    RvNodeSetFlt(lambert, "Kd", 0.25f);
    ignore({ "lambert.Kd", "disc.name", "disc.ignore_list" });
    const std::string before = snapshot(lambert);
    RvNodeSetFlt(lambert, "Kd", 0.5f);
    EXPECT_EQ(takeProblem(), "n: could not set FLOAT parameter \"Kd\"");
    EXPECT_EQ(RvNodeGetFlt(lambert, "Kd"), 0);
    EXPECT_EQ(takeProblem(), "n: could not read FLOAT parameter \"Kd\"");
    RvNodeSetInt(lambert, "Kd", 1); // no use-type warning either
    EXPECT_EQ(takeProblem(), "n: could not set INT parameter \"Kd\"");
    EXPECT_EQ(snapshot(lambert), before);

    RvNodeSetRGB(lambert, "Kd_color", 0, 1, 0);
    RvNodeSetFlt(disc, "radius", 2);
    RvNodeSetStr(disc, "name", "renamed");
    EXPECT_STREQ(RvNodeGetName(disc), "renamed");
    EXPECT_EQ(takeProblem(), "");
    ignore({});
    EXPECT_EQ(RvNodeGetFlt(lambert, "Kd"), 0.25f);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, an_ignored_ignore_list_can_still_be_set)
{
    ignore({ "options.ignore_list", "options.name", "options.xres", "lambert" });
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetInt(options, "xres", 7);
    EXPECT_EQ(takeProblem(), "options: could not set INT parameter \"xres\"");
    EXPECT_FALSE(RvNode("lambert"));
    ignore({});
    EXPECT_EQ(takeProblem(), "");
    EXPECT_TRUE(RvNode("lambert"));
    EXPECT_EQ(RvNodeGetInt(options, "xres"), 320);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_scene_keeps_a_copy_of_the_ignore_list)
{
    RtArray* list = strings({ "lambert" });
    RvNodeSetArray(RvUniverseGetOptions(), "ignore_list", list);
    const RtArray* copy = rv::the_frame->scene->missing_types;
    ASSERT_TRUE(copy);
    EXPECT_NE(copy, list);
    EXPECT_EQ(describe(copy), describe(list));
    EXPECT_TRUE(rv::the_frame->scene->isIgnored("lambert"));
    EXPECT_FALSE(rv::the_frame->scene->isIgnored("lamber"));
    RvArraySetStr(list, 0, "sphere");
    EXPECT_TRUE(rv::the_frame->scene->isIgnored("lambert"));
    EXPECT_FALSE(rv::the_frame->scene->isIgnored("sphere"));
}

TEST_F(Nodes, an_ignore_list_with_odd_entries_does_no_harm)
{
    ignore({ "", ".", "lambert.", ".Kd", nullptr, "%s", "lambert.Kd_color.r" });
    RtNode* node = named("lambert", "n");
    ASSERT_TRUE(node);
    RvNodeSetFlt(node, "Kd", 0.5f);
    RvNodeSetFlt(node, "", 0.5f);
    EXPECT_EQ(RvNodeGetFlt(node, "Kd"), 0.5f);
    const std::string long_name(100000, 'p');
    RvNodeSetFlt(node, long_name.c_str(), 1);
}

// ---- Older parameter names ----

TEST_F(Nodes, the_older_name_of_a_parameter_warns_and_works)
{
    installType("synonyms", [](RtList* params, RtMetaDataStore* metadata) {
        RvNodeParamINT(params, -1, "number", 1);
        RvNodeParamARRAY(params, -1, "list", RvArray(1, 1, RV_TYPE_INT, 1));
        RvNodeParamENUM(params, -1, "choice", 0, fruit);
        RvNodeParamSTR(params, -1, "text", "");
        for (const char* name : { "number", "list", "choice", "text" })
            RvMetaDataSetStr(metadata, name, "synonym", (std::string("old_") + name).c_str());
    });
    RtNode* node = named("synonyms", "n");
    const auto warning = [](const char* name) {
        return formatted("n: parameter \"old_%s\" is deprecated, use \"%s\"", name, name);
    };
    RvNodeSetInt(node, "old_number", 5);
    EXPECT_EQ(takeProblem(), warning("number"));
    EXPECT_EQ(RvNodeGetInt(node, "number"), 5);
    EXPECT_TRUE(isSet(node, "number"));
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeGetInt(node, "old_number"), 5);
    EXPECT_EQ(takeProblem(), warning("number"));
    RvNodeSetArray(node, "old_list", RvArray(1, 1, RV_TYPE_INT, 9));
    EXPECT_EQ(takeProblem(), warning("list"));
    EXPECT_EQ(RvNodeGetInt(node, "list"), 9);
    RvNodeSetStr(node, "old_text", "t");
    EXPECT_EQ(takeProblem(), warning("text"));
    EXPECT_STREQ(RvNodeGetStr(node, "text"), "t");
    RvNodeSetInt(node, "old_choice", 2);
    EXPECT_EQ(takeProblem(), warning("choice"));
    EXPECT_EQ(RvNodeGetInt(node, "choice"), 2);
}

TEST_F(Nodes, a_wrong_type_by_the_older_name_warns_of_both)
{
    RtNode* image = named("image", "n");
    RvNodeSetInt(image, "image_map", 1);
    EXPECT_EQ(takeProblem(), "n: parameter \"image_map\" is deprecated, use \"filename\" | "
                             "n: could not set INT parameter \"image_map\"");
}

// ---- Names ----

TEST_F(Nodes, names_that_nobody_has_find_nothing)
{
    for (const char* name : { static_cast<const char*>(nullptr), "", "a", "123" })
        EXPECT_FALSE(RvNodeLookUpByName(name));
    EXPECT_TRUE(messages().empty());
}

TEST_F(Nodes, a_renamed_node_is_found_by_its_new_name_only)
{
    RtNode* node = RvNode("lambert");
    const std::string old_name = RvNodeGetName(node);
    RvNodeSetStr(node, "name", "fresh");
    EXPECT_STREQ(RvNodeGetName(node), "fresh");
    EXPECT_STREQ(RvNodeGetStr(node, "name"), "fresh");
    EXPECT_EQ(RvNodeLookUpByName("fresh"), node);
    EXPECT_FALSE(RvNodeLookUpByName(old_name.c_str()));
    EXPECT_TRUE(isSet(node, "name"));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_name_in_use_is_refused)
{
    RtNode* first = named("lambert", "first");
    RtNode* second = named("sphere", "second");
    RvNodeSetStr(second, "name", "first");
    EXPECT_EQ(takeProblem(), "can't rename node \"second\" to \"first\": name already in use");
    EXPECT_STREQ(RvNodeGetName(second), "second");
    EXPECT_EQ(RvNodeLookUpByName("first"), first);
    EXPECT_EQ(RvNodeLookUpByName("second"), second);
    RvNodeSetStr(second, "name", "options");
    EXPECT_EQ(takeProblem(), "can't rename node \"second\" to \"options\": name already in use");
    RvNodeDestroy(first);
    RvNodeSetStr(second, "name", "first");
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeLookUpByName("first"), second);
}

TEST_F(Nodes, a_name_of_32768_characters_is_the_longest)
{
    RtNode* node = named("lambert", "n");
    const std::string longest(32768, 'a');
    RvNodeSetStr(node, "name", longest.c_str());
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(RvNodeGetName(node), longest);
    EXPECT_EQ(RvNodeLookUpByName(longest.c_str()), node);

    const std::string too_long(32769, 'b');
    RvNodeSetStr(node, "name", too_long.c_str());
    EXPECT_EQ(takeProblem(), "string is bigger than 32768 [32769] characters: " + too_long);
    EXPECT_EQ(RvNodeGetName(node), longest);
    EXPECT_FALSE(RvNodeLookUpByName(too_long.c_str()));

    const std::string endless(1 << 22, 'c');
    RvNodeSetStr(node, "name", endless.c_str());
    EXPECT_EQ(takeProblem().rfind("string is bigger than 32768 [4194304] characters: ccc", 0), 0u);
    EXPECT_EQ(RvNodeGetName(node), longest);
}

TEST_F(Nodes, an_empty_name_does_no_harm)
{
    RtNode* first = named("lambert", "first");
    RtNode* second = named("lambert", "second");
    RvNodeSetStr(first, "name", "");
    RvNodeSetStr(second, "name", nullptr);
    EXPECT_FALSE(RvNodeLookUpByName(""));
    RvNodeDestroy(first);
    RvNodeSetStr(second, "name", "third");
    EXPECT_EQ(RvNodeLookUpByName("third"), second);
}

TEST_F(Nodes, a_destroyed_node_is_found_no_more)
{
    RtNode* disc = named("disc", "doomed_disc");
    const int count = RvNodeEntryGetCount(RvNodeEntryLookUp("disc"));
    RvNodeDestroy(disc);
    EXPECT_FALSE(RvNodeLookUpByName("doomed_disc"));
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("disc")), count - 1);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, queries_of_a_null_node_are_neutral)
{
    RtNode* node = RvNode("lambert");
    EXPECT_FALSE(RvNodeGetName(nullptr));
    EXPECT_FALSE(RvNodeIs(nullptr, "lambert"));
    EXPECT_FALSE(RvNodeIs(node, nullptr));
    EXPECT_FALSE(RvNodeIs(nullptr, nullptr));
    EXPECT_FALSE(RvNodeGetNodeEntry(nullptr));
    EXPECT_FALSE(RvNodeGetLocalData(nullptr));
    RvNodeSetLocalData(nullptr, &pointees[0]);
    EXPECT_FALSE(RvNodeClone(nullptr));
    RvNodeReset(nullptr);
    EXPECT_TRUE(messages().empty());
    RvNodeDestroy(nullptr);
}

TEST_F(Nodes, a_node_is_of_its_exact_type)
{
    RtNode* node = RvNode("lambert");
    EXPECT_TRUE(RvNodeIs(node, "lambert"));
    EXPECT_FALSE(RvNodeIs(node, "Lambert"));
    EXPECT_FALSE(RvNodeIs(node, "lamber"));
    EXPECT_FALSE(RvNodeIs(node, ""));
    EXPECT_EQ(RvNodeGetNodeEntry(node), RvNodeEntryLookUp("lambert"));
}

TEST_F(Nodes, local_data_is_what_was_stored)
{
    installType("keeper");
    RtNode* node = RvNode("keeper");
    EXPECT_FALSE(RvNodeGetLocalData(node));
    RvNodeSetLocalData(node, &pointees[1]);
    EXPECT_EQ(RvNodeGetLocalData(node), &pointees[1]);
    RtNode* clone = RvNodeClone(node);
    EXPECT_FALSE(RvNodeGetLocalData(clone));
    RvNodeReset(node);
    EXPECT_EQ(RvNodeGetLocalData(node), &pointees[1]);
    RvNodeSetLocalData(node, nullptr);
    EXPECT_FALSE(RvNodeGetLocalData(node));
}

TEST_F(Nodes, local_data_that_the_library_uses_is_not_for_others_to_store)
{
    for (const char* type :
         { "persp_camera", "point_light", "sphere", "box_filter", "driver_null" }) {
        RtNode* const node = named(type, "n");
        rv::RvNodeInitialize(node);
        void* const own = RvNodeGetLocalData(node);
        RvNodeSetLocalData(node, &pointees[0]);
        EXPECT_EQ(takeProblem(), "n: the local data of its kind is the library's");
        EXPECT_EQ(RvNodeGetLocalData(node), own) << type;
        RvNodeDestroy(node);
    }
}

// ---- Colours of shaders ----

TEST_F(Nodes, shader_gamma_applies_to_colours_of_shaders)
{
    installType("colours", [](RtList* params, RtMetaDataStore* metadata) {
        RvNodeParamRGB(params, -1, "color", 0, 0, 0);
        RvNodeParamRGB(params, -1, "linear", 0, 0, 0);
        RvNodeParamRGBA(params, -1, "color_a", 0, 0, 0, 0);
        RvMetaDataSetBool(metadata, "linear", "always_linear", true);
        RvMetaDataSetBool(metadata, "color_a", "always_linear", false);
    });
    for (const auto& v : goldenVectors("misc", "shader_gamma")) {
        RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", v["in"]["shader_gamma"]);
        RtNode* node = v["in"]["node_kind"] == "shader" ? RvNode("colours") : RvNode("point_light");
        const char* name = v["in"]["always_linear"].get<bool>() ? "linear" : "color";
        const auto color = v["in"]["color"].get<std::vector<float>>();
        RvNodeSetRGB(node, name, color[0], color[1], color[2]);
        const RtRGB stored = RvNodeGetRGB(node, name);
        const float channels[] = { stored.r, stored.g, stored.b };
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(channels[i], v["out"]["stored"][i].get<float>(), 2e-6f) << v["id"];
    }

    RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", 2.2f);
    RtNode* shader = RvNode("colours");
    RvNodeSetRGB(shader, "color", 0.5f, 0.25f, 1);
    EXPECT_EQ(describe(RvNodeGetRGB(shader, "color")),
              describe(RtRGB{ powf(0.5f, 2.2f), powf(0.25f, 2.2f), 1 }));
    RvNodeSetRGB(shader, "linear", 0.5f, 0.25f, 1);
    EXPECT_EQ(describe(RvNodeGetRGB(shader, "linear")), "0.5 0.25 1");
    RvNodeSetRGBA(shader, "color_a", 0.5f, 0.25f, 1, 0.5f);
    EXPECT_EQ(describe(RvNodeGetRGBA(shader, "color_a")),
              describe(RtRGBA{ powf(0.5f, 2.2f), powf(0.25f, 2.2f), 1, 0.5f }));

    RtNode* lambert = RvNode("lambert");
    RvNodeSetRGB(lambert, "Kd_color", 0.5f, 0.5f, 0.5f);
    EXPECT_EQ(RvNodeGetRGB(lambert, "Kd_color").r, powf(0.5f, 2.2f));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, shader_gamma_leaves_other_kinds_and_arrays_alone)
{
    RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", 2.2f);
    RtNode* light = RvNode("point_light");
    RvNodeSetRGB(light, "color", 0.5f, 0.5f, 0.5f);
    EXPECT_EQ(describe(RvNodeGetRGB(light, "color")), "0.5 0.5 0.5");
    RtNode* options = RvUniverseGetOptions();
    RvNodeSetRGB(options, "error_color_bad_mesh", 0.5f, 0.25f, 0.125f);
    EXPECT_EQ(describe(RvNodeGetRGB(options, "error_color_bad_mesh")), "0.5 0.25 0.125");

    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RvNodeSetArray(node, "a_RGB", RvArray(1, 1, RV_TYPE_RGB, RtRGB{ 0.5f, 0.5f, 0.5f }));
    EXPECT_EQ(describe(RvNodeGetRGB(node, "a_RGB")), "0.5 0.5 0.5");
    EXPECT_EQ(takeProblem(), "");
}

// ---- Reset and clone of built-in types ----

TEST_F(Nodes, an_array_called_shader_starts_with_the_default_shader)
{
    installType("shaded", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamARRAY(params, -1, "shader", RvArrayAllocate(0, 1, RV_TYPE_NODE));
        RvNodeParamARRAY(params, -1, "other", RvArrayAllocate(0, 1, RV_TYPE_NODE));
    });
    for (const char* type : { "shaded", "sphere" }) {
        RtNode* node = RvNode(type);
        for (int round = 0; round < 2; ++round) {
            RtArray* shader = RvNodeGetArray(node, "shader");
            ASSERT_TRUE(shader) << type;
            EXPECT_EQ(shader->type, RV_TYPE_NODE);
            EXPECT_EQ(shader->nelements, 1u) << type;
            EXPECT_EQ(shader->nkeys, 1);
            EXPECT_EQ(RvArrayGetPtr(shader, 0), RvNodeLookUpByName("rv_default_reflection_shader"));
            RvNodeSetArray(node, "shader", RvArrayAllocate(3, 1, RV_TYPE_NODE));
            RvNodeReset(node);
        }
    }
    EXPECT_EQ(RvNodeGetArray(RvNode("shaded"), "other")->nelements, 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, the_options_node_has_no_clone)
{
    EXPECT_FALSE(RvNodeClone(RvUniverseGetOptions()));
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_cloned_light_is_a_light_of_the_scene)
{
    RtNode* light = RvNode("point_light");
    RtNode* clone = RvNodeClone(light);
    ASSERT_EQ(RvUniverseGetNumLights(), 2);
    EXPECT_EQ(RvUniverseGetLights()[1], clone);
}

TEST_F(Nodes, an_instanced_copy_leaves_out_marked_parameters)
{
    for (bool laid_out : { false, true }) {
        const std::string type = laid_out ? "laid_out" : "slots";
        installType(type.c_str(), [laid_out](RtList* params, RtMetaDataStore* metadata) {
            declareEveryType(params, metadata, laid_out);
            for (const char* name : { "p_INT", "p_STRING", "p_MATRIX", "a_FLOAT" })
                RvMetaDataSetBool(metadata, name, "_skip_copy_on_instance", true);
            RvMetaDataSetBool(metadata, "p_UINT", "_skip_copy_on_instance", false);
        });
        RtNode* node = named(type.c_str(), "n");
        for (const Accessor& a : accessors())
            a.set(node, (std::string("p_") + type_names[a.type]).c_str(), 2);
        RvNodeSetFlt(node, "a_FLOAT", 4);
        RvNodeSetFlt(node, "a_INT", 4);
        RtNode* copy = RvNode(type.c_str());
        rv::RvNodeCopy(copy, node, rv::CopyMode::instance);
        for (int code : { RV_TYPE_INT, RV_TYPE_STRING, RV_TYPE_MATRIX })
            EXPECT_EQ(accessor(code).get(copy, (std::string("p_") + type_names[code]).c_str()),
                      everyTypeDefault(code))
                << type_names[code];
        for (int code : { RV_TYPE_UINT, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_ARRAY })
            EXPECT_EQ(accessor(code).get(copy, (std::string("p_") + type_names[code]).c_str()),
                      accessor(code).text(2))
                << type_names[code];
        EXPECT_EQ(RvNodeGetFlt(copy, "a_FLOAT"), 0);
        RtNode* clone = RvNodeClone(node);
        EXPECT_EQ(RvNodeGetInt(clone, "p_INT"), 2) << "a clone gets everything";
        EXPECT_EQ(RvNodeGetFlt(clone, "a_FLOAT"), 4);
        RvNodeDestroy(node);
        takeProblems();
    }
}

// ---- Destruction ----

TEST_F(Nodes, nodes_are_not_destroyed_while_rendering)
{
    RtNode* node = named("lambert", "n");
    {
        HookOverride override;
        override.hooks.rendering = [] { return true; };
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "cannot destroy node \"n\" while rendering; ignoring call to "
                             "RvNodeDestroy()");
    EXPECT_EQ(RvNodeLookUpByName("n"), node);
    RvNodeDestroy(node);
    EXPECT_FALSE(RvNodeLookUpByName("n"));
}

TEST_F(Nodes, only_an_initialised_node_is_finished)
{
    installType("finisher");
    RtNode* idle = named("finisher", "idle");
    RtNode* ready = named("finisher", "ready");
    ready->initialized = true;
    RvNodeDestroy(idle);
    EXPECT_TRUE(methodCalls().finished.empty());
    RvNodeDestroy(ready);
    EXPECT_EQ(methodCalls().finished, Names{ "ready" }) << "with its name still there";
}

TEST_F(Nodes, a_shape_with_a_source_is_not_finished)
{
    installType("own_shape", {}, RV_NODE_SHAPE, RV_TYPE_NONE);
    RtNode* source = named("own_shape", "source");
    RtNode* copy = named("own_shape", "copy");
    copy->source = source;
    copy->initialized = source->initialized = true;
    RvNodeDestroy(copy);
    EXPECT_TRUE(methodCalls().finished.empty());
    RvNodeDestroy(source);
    EXPECT_EQ(methodCalls().finished, Names{ "source" });
}

TEST_F(Nodes, a_node_of_another_kind_with_a_source_is_finished)
{
    installType("own_shader");
    RtNode* source = named("own_shader", "source");
    RtNode* copy = named("own_shader", "copy");
    copy->source = source;
    copy->initialized = true;
    RvNodeDestroy(copy);
    EXPECT_EQ(methodCalls().finished, Names{ "copy" });
}

TEST_F(Nodes, the_options_node_is_never_finished)
{
    RtNode* options = RvUniverseGetOptions();
    RtNodeEntry* entry = options->entry;
    const RtCommonMethods* methods = entry->methods;
    entry->methods = throwawayMethods().common;
    options->initialized = true;
    RvNodeDestroy(options);
    EXPECT_TRUE(methodCalls().finished.empty());
    entry->methods = methods;
}

TEST_F(Nodes, the_object_of_an_initialised_shape_is_torn_down_after_its_finish)
{
    static std::vector<std::string> torn;
    torn.clear();
    installType("own_shape", {}, RV_NODE_SHAPE, RV_TYPE_NONE);
    installType("own_shader");
    RtNode* source = named("own_shape", "source");
    RtNode* copy = named("own_shape", "copy");
    RtNode* idle = named("own_shape", "idle");
    RtNode* shader = named("own_shader", "shader");
    copy->source = source;
    source->initialized = copy->initialized = shader->initialized = true;
    HookOverride override;
    override.hooks.shapeTeardown = [](RtNode* node) {
        torn.push_back(
            formatted("%s after %d", RvNodeGetName(node), int(methodCalls().finished.size())));
    };
    for (RtNode* node : { idle, shader, copy, source })
        RvNodeDestroy(node);
    EXPECT_EQ(torn, (Names{ "copy after 1", "source after 2" }));
    EXPECT_EQ(methodCalls().finished, (Names{ "shader", "source" }));
}

TEST_F(Nodes, uninitialising_finishes_a_node_once)
{
    installType("finisher");
    RtNode* node = named("finisher", "n");
    node->initialized = true;
    rv::uninitializeNode(node);
    EXPECT_FALSE(node->initialized);
    RvNodeDestroy(node);
    EXPECT_EQ(methodCalls().finished, Names{ "n" });
}

TEST_F(Nodes, destroying_the_camera_of_the_options_empties_them)
{
    RtNode* camera = RvNode("persp_camera");
    EXPECT_EQ(RvUniverseGetCamera(), camera);
    RvNodeDestroy(camera);
    EXPECT_FALSE(RvUniverseGetCamera());
    EXPECT_FALSE(RvNodeGetPtr(RvUniverseGetOptions(), "camera"));
    EXPECT_TRUE(isSet(RvUniverseGetOptions(), "camera"));
    RtNode* later = RvNode("persp_camera");
    EXPECT_TRUE(later);
    EXPECT_FALSE(RvUniverseGetCamera()) << "the parameter was set explicitly";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Nodes, a_destroyed_camera_is_gone_whatever_it_was)
{
    RtNode* options = RvUniverseGetOptions();
    RtNode* lambert = RvNode("lambert");
    RvNodeSetPtr(options, "camera", lambert);
    RvNodeDestroy(lambert);
    EXPECT_FALSE(RvUniverseGetCamera()) << "it was no camera";
    EXPECT_EQ(takeProblem(), "");

    RtNode* camera = RvNode("persp_camera");
    RvNodeSetPtr(options, "camera", camera);
    ignore({ "options.camera" });
    RvNodeDestroy(camera);
    EXPECT_FALSE(RvUniverseGetCamera()) << "the parameter is ignored";
    EXPECT_EQ(takeProblem(), "options: could not set POINTER parameter \"camera\"");
}

TEST_F(Nodes, destroying_another_camera_keeps_the_rendering_one)
{
    RtNode* first = RvNode("persp_camera");
    RtNode* second = RvNode("ortho_camera");
    RvNodeDestroy(second);
    EXPECT_EQ(RvUniverseGetCamera(), first);
}

TEST_F(Nodes, destroying_nodes_in_any_order_leaves_the_scene_empty)
{
    installEveryType("everything", true);
    std::vector<RtNode*> nodes;
    static const char* const types[] = { "everything",   "lambert",    "sphere",     "point_light",
                                         "persp_camera", "box_filter", "driver_null" };
    for (int i = 0; i < 140; ++i)
        nodes.push_back(RvNode(types[i % 7]));
    const unsigned scene_nodes = 3 + 1; // internal shaders and options
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), scene_nodes + 140);
    for (size_t i = 0, at = 0; i < nodes.size(); ++i) {
        at = (at + 37) % nodes.size();
        RvNodeDestroy(nodes[at]);
    }
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), scene_nodes);
    EXPECT_EQ(RvUniverseGetNumLights(), 0);
    EXPECT_EQ(RvUniverseGetNumGObjects(), 0);
    EXPECT_EQ(takeProblem(), "");
}

// ---- The shape's hook ----

TEST_F(Nodes, a_shape_with_local_data_hears_of_its_changed_parameters)
{
    static std::vector<std::string> changed;
    changed.clear();
    installType(
        "own_shape",
        [](RtList* params, RtMetaDataStore* metadata) {
            declareEveryType(params, metadata, false);
            for (const char* type : type_names)
                RvMetaDataSetBool(metadata, (std::string("p_") + type).c_str(), "_triggers_rebuild",
                                  true);
        },
        RV_NODE_SHAPE, RV_TYPE_NONE);
    RtNode* shape = named("own_shape", "n");
    installEveryType("shader", false);
    RtNode* shader = named("shader", "s");
    HookOverride override;
    override.hooks.shapeChanged = [](RtNode* node, const RtParamEntry* param) {
        changed.push_back(std::string(RvNodeGetName(node)) + "." + RvParamGetName(param));
    };
    RvNodeSetInt(shape, "p_INT", 1);
    EXPECT_TRUE(changed.empty()) << "no local data yet";
    shape->local_data = shader->local_data = &pointees[0];
    RvNodeSetInt(shader, "p_INT", 1);
    EXPECT_TRUE(changed.empty()) << "a shader is no shape";

    Names expected;
    for (const Accessor& a : accessors()) {
        const std::string name = std::string("p_") + type_names[a.type];
        a.set(shape, name.c_str(), 2);
        if (a.type != RV_TYPE_STRING) // the setter of strings has steps of its own
            expected.push_back("n." + name);
    }
    std::erase(changed, "n.p_STRING");
    EXPECT_EQ(changed, expected);
    changed.clear();
    RvNodeSetFlt(shape, "p_INT", 1);
    RvNodeSetFlt(shape, "p_FLOAT", NAN);
    RvNodeSetInt(shape, "no_such", 1);
    giveArray(shape, "p_ARRAY", RvArrayAllocate(1, 1, RV_TYPE_STRING));
    EXPECT_TRUE(changed.empty()) << "refused";
    shape->local_data = shader->local_data = nullptr;
}

// ---- Broken invariants ----

namespace {

// Prints every message where a death test looks for it.
void printMessage(int, int, const char* text, int) { fprintf(stderr, "%s\n", text); }

} // namespace

TEST_F(Nodes, a_parameter_of_a_type_that_cannot_be_is_fatal)
{
    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RtParamEntry* param =
        const_cast<RtParamEntry*>(RvNodeEntryLookUpParameter(node->entry, "p_INT"));
    for (uint16_t type : { uint16_t(RV_TYPE_NONE), uint16_t(16), uint16_t(200) })
        EXPECT_DEATH(
            {
                RvMsgSetCallback(printMessage);
                param->type = type;
                RvNodeReset(node);
            },
            "reached code line in error: core.src.nodes:[0-9]+ \\(in RvNodeReset[A-Za-z]*\\)")
            << type;
}

TEST_F(Nodes, required_a_fatal_message_that_nobody_wants_returns)
{
    installEveryType("everything", true);
    RtNode* node = RvNode("everything");
    RtParamEntry* param =
        const_cast<RtParamEntry*>(RvNodeEntryLookUpParameter(node->entry, "p_INT"));
    RvMsgSetConsoleFlags(0);
    param->type = RV_TYPE_NONE;
    RvNodeReset(node);
    param->type = RV_TYPE_INT;
    EXPECT_TRUE(messages().empty());
}

// ---- The exhausted heap ----

TEST_F(Nodes, a_node_that_finds_no_memory_is_reported_and_missing)
{
    const unsigned before = RvListSize(rv::the_frame->scene->nodes);
    {
        AllocationLimit limit(0);
        EXPECT_FALSE(RvNode("lambert"));
    }
    const Names problems = takeProblems();
    ASSERT_FALSE(problems.empty());
    EXPECT_TRUE(reportsFailure(problems[0], "core\\src\\scene", "RtScene::createNode"))
        << problems[0];
    EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), before);
    EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp("lambert")), 0);
}

TEST_F(Nodes, creation_without_memory_leaves_no_trace)
{
    installEveryType("slots", false);
    installEveryType("laid_out", true);
    for (const char* type : { "slots", "laid_out", "sphere", "point_light", "persp_camera" }) {
        const unsigned nodes = RvListSize(rv::the_frame->scene->nodes);
        const int64_t overhead = rv::hostStats()->node_overhead_bytes;
        RtNode* node = nullptr;
        const auto problems = problemsOfFailingHeap(
            [&] {
                if (node)
                    RvNodeDestroy(node);
                EXPECT_EQ(RvListSize(rv::the_frame->scene->nodes), nodes);
                EXPECT_EQ(rv::hostStats()->node_overhead_bytes, overhead);
                EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp(type)), 0);
                EXPECT_EQ(RvUniverseGetNumLights(), 0);
                EXPECT_FALSE(RvUniverseGetCamera());
                node = RvNode(type);
                EXPECT_EQ(RvNodeEntryGetCount(RvNodeEntryLookUp(type)), node ? 1 : 0);
            },
            takeProblems);
        EXPECT_TRUE(anyReportsFailure(problems, "core\\src\\scene", "RtScene::createNode")) << type;
        ASSERT_TRUE(node) << type;
        RvNodeDestroy(node);
        // A destroyed camera counts as an explicit choice; forget it.
        RvNodeReset(RvUniverseGetOptions());
        RvNodeSetStr(RvUniverseGetOptions(), "name", "options");
        takeProblems();
    }
}

TEST_F(Nodes, a_matrix_default_that_finds_no_memory_names_its_location)
{
    installEveryType("slots", false);
    RtNode* node = RvNode("slots");
    const auto problems = problemsOfFailingHeap(
        [&] {
            RvNodeReset(node);
            if (RtNode* other = RvNode("slots"))
                RvNodeDestroy(other);
        },
        takeProblems);
    EXPECT_TRUE(anyReportsFailure(problems, "core\\src\\nodes", "RvNodeResetParameter"));
    for (const Accessor& a : accessors())
        a.get(node, (std::string("p_") + type_names[a.type]).c_str());
}

TEST_F(Nodes, setters_without_memory_keep_a_usable_node)
{
    for (bool laid_out : { false, true }) {
        const char* type = laid_out ? "laid_out" : "slots";
        installEveryType(type, laid_out);
        RtNode* node = named(type, type);
        problemsOfFailingHeap(
            [&] {
                for (const Accessor& a : accessors()) {
                    a.set(node, (std::string("p_") + type_names[a.type]).c_str(), 2);
                    if (a.type != RV_TYPE_ARRAY)
                        a.set(node, (std::string("a_") + type_names[a.type]).c_str(), 1);
                }
                giveArray(node, "a_UINT", RvArrayAllocate(0, 1, RV_TYPE_UINT));
                RvNodeSetInt(node, "a_UINT", 1);
                giveArray(node, "a_UINT", RvArrayAllocate(4, 1, RV_TYPE_BYTE));
                giveArray(node, "a_STRING", RvArrayAllocate(0, 1, RV_TYPE_STRING));
                RvNodeSetStr(node, "a_STRING", "one more");
                RvNodeSetStr(node, "name", "renamed");
                RvNodeSetStr(node, "name", type);
                EXPECT_TRUE(RvNodeGetName(node));
                RvNodeGetStr(node, "p_STRING");
                RvNodeGetArray(node, "p_ARRAY");
            },
            takeProblems);
        EXPECT_STREQ(RvNodeGetName(node), type);
        EXPECT_EQ(RvNodeLookUpByName(type), node);
        for (const Accessor& a : accessors())
            EXPECT_EQ(a.get(node, (std::string("p_") + type_names[a.type]).c_str()), a.text(2))
                << type_names[a.type];
        EXPECT_EQ(takeProblem(), "");
    }
}

TEST_F(Nodes, clones_without_memory_are_whole_or_missing_and_can_be_destroyed)
{
    installEveryType("slots", false);
    RtNode* node = RvNode("slots");
    RvNodeSetStr(node, "a_STRING", "element");
    RvNodeDeclare(node, "text", "constant STRING");
    RvNodeSetStr(node, "text", "user text");
    RvNodeDeclare(node, "list", "uniform FLOAT");
    RvNodeSetFlt(node, "list", 1);
    RtNode* last = nullptr;
    problemsOfFailingHeap(
        [&] {
            if (last)
                RvNodeDestroy(last);
            last = RvNodeClone(node);
            if (last) {
                EXPECT_TRUE(RvNodeGetName(last));
                RvNodeGetArray(last, "a_STRING");
                RvNodeLookUpUserParameter(last, "text");
            }
        },
        takeProblems);
    ASSERT_TRUE(last);
    EXPECT_STREQ(RvNodeGetStr(last, "text"), "user text");
    EXPECT_STREQ(RvNodeGetStr(last, "a_STRING"), "element");
}
