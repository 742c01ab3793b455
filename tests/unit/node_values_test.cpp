// Tests of nodes: typed access, numbers, strings, enumerations and arrays.
#include "nodes_fixture.h"

#include <math.h>

using namespace node_tools;

namespace {

constexpr float infinity = HUGE_VALF;

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
