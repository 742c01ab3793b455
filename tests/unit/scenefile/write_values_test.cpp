// The text of values and arrays in scene files.
#include "write_tools.h"

#include "golden.h"

using namespace write_tools;

class SceneValues : public Universe {
protected:
    RtNode* owner() { return named("sphere", "owner"); }
};

static std::string valueText(int type, const void* value, const char* const* names = nullptr)
{
    return textOf([&](rv::SceneText* out) { rv::writeValue(out, type, value, names); });
}

// ---- Golden vectors ----

static RtParamValue valueOf(int type, const nlohmann::json& json)
{
    RtParamValue value = {};
    if (type == RV_TYPE_BYTE)
        value.BYTE = json.get<uint8_t>();
    else if (type == RV_TYPE_BOOLEAN)
        value.BOOL = json.get<bool>();
    else if (type == RV_TYPE_UINT)
        value.UINT = json.get<unsigned>();
    else if (type == RV_TYPE_INT || type == RV_TYPE_ENUM)
        value.INT = json.get<int>();
    else if (type == RV_TYPE_FLOAT)
        value.FLT = json.get<float>();
    else if (json.is_array())
        for (size_t i = 0; i < json.size(); ++i)
            (&value.RGBA.r)[i] = json[i].get<float>();
    return value;
}

TEST_F(SceneValues, texts_of_values_are_the_golden_ones)
{
    for (const nlohmann::json& vector : goldenVectors("scenefile", "value_text")) {
        const nlohmann::json& in = vector.at("in");
        const int type = typeCode(in.at("type"));
        RtParamValue value = {};
        std::string text;
        std::vector<std::string> names;
        std::vector<const char*> table;
        if (type == RV_TYPE_STRING)
            value.STR = (text = in.at("value")).c_str();
        else if (type == RV_TYPE_NODE)
            value.NODE = named("sphere", (text = in.at("value")).c_str());
        else
            value = valueOf(type, in.at("value"));
        if (in.contains("enum"))
            names = in.at("enum").get<std::vector<std::string>>();
        for (const std::string& name : names)
            table.push_back(name.c_str());
        table.push_back(nullptr);
        EXPECT_EQ(valueText(type, &value, table.data()), vector.at("out").at("text"))
            << vector.at("id");
    }
}

static RtArray* arrayOf(const nlohmann::json& in)
{
    if (in.at("type").is_null())
        return nullptr;
    const int type = typeCode(in.at("type"));
    RtArray* const array = RvArrayAllocate(in.at("nelements"), in.at("nkeys"), type);
    const unsigned size = rv::typeSize(type);
    char* at = static_cast<char*>(array->data);
    for (const nlohmann::json& element : in.at("values")) {
        const RtParamValue value = valueOf(type, element);
        memcpy(at, &value, size);
        at += size;
    }
    return array;
}

TEST_F(SceneValues, texts_of_arrays_are_the_golden_ones)
{
    RtNode* const node = owner();
    for (const nlohmann::json& vector : goldenVectors("scenefile", "array_text"))
        EXPECT_EQ(arrayText(node, arrayOf(vector.at("in"))), vector.at("out").at("text"))
            << vector.at("id");
}

// ---- Values ----

TEST_F(SceneValues, a_matrix_has_a_line_for_each_row)
{
    const RtMatrix matrix = filledMatrix(0.5f, 1);
    EXPECT_EQ(valueText(RV_TYPE_MATRIX, &matrix), "\n  0.5 1.5 2.5 3.5\n  4.5 5.5 6.5 7.5"
                                                  "\n  8.5 9.5 10.5 11.5\n  12.5 13.5 14.5 15.5");
}

TEST_F(SceneValues, missing_values_are_written_as_NULL)
{
    const RtParamValue none = {};
    EXPECT_EQ(valueText(RV_TYPE_STRING, &none), "NULL");
    EXPECT_EQ(valueText(RV_TYPE_NODE, &none), "NULL");
    const int beyond = 3;
    EXPECT_EQ(valueText(RV_TYPE_ENUM, &beyond, fruit), "NULL");
}

TEST_F(SceneValues, a_pointer_is_its_address)
{
    void* pointer = &pointees[3];
    EXPECT_EQ(valueText(RV_TYPE_POINTER, &pointer), formatted("%p", pointer));
    pointer = nullptr;
    EXPECT_EQ(valueText(RV_TYPE_POINTER, &pointer), formatted("%p", pointer));
}

TEST_F(SceneValues, any_byte_but_zero_is_on)
{
    const uint8_t odd = 4;
    EXPECT_EQ(valueText(RV_TYPE_BOOLEAN, &odd), "on");
}

TEST_F(SceneValues, only_quotes_of_a_string_are_escaped)
{
    const char* text = "\"a\\\"\nb#\t\"";
    EXPECT_EQ(valueText(RV_TYPE_STRING, &text), "\"\\\"a\\\\\"\nb#\t\\\"\"");
}

// The reader accepts 32,767 characters.
TEST_F(SceneValues, a_string_is_cut_to_what_can_be_read)
{
    static const struct {
        size_t letters;
        const char* end;
        size_t length;
        bool is_cut;
    } rows[] = {
        { 32764, "", 32766, false },   { 32765, "", 32766, true },   { 100000, "", 32766, true },
        { 32762, "\"", 32766, false }, { 32763, "\"", 32765, true }, // no backslash without its
                                                                     // quote
        { 32764, "\"", 32766, true },
    };
    for (const auto& row : rows) {
        const std::string value = std::string(row.letters, 'x') + row.end;
        const char* const text = value.c_str();
        const std::string written = valueText(RV_TYPE_STRING, &text);
        EXPECT_EQ(written.size(), row.length) << row.letters << row.end;
        EXPECT_EQ(written.back(), '"');
        EXPECT_EQ(takeProblem(), row.is_cut ? "string longer than 32768 characters" : "");
    }
}

// ---- Arrays ----

TEST_F(SceneValues, one_element_of_one_key_is_written_bare)
{
    RtNode* const node = owner();
    EXPECT_EQ(arrayText(node, RvArray(1, 1, RV_TYPE_FLOAT, 0.5)), "0.5 ");
    EXPECT_EQ(arrayText(node, RvArray(3, 1, RV_TYPE_FLOAT, 0.5, 1.0, -2.0)), "3 1 FLOAT 0.5 1 -2 ");
    EXPECT_EQ(arrayText(node, RvArray(1, 2, RV_TYPE_FLOAT, 0.5, 1.0)), "1 2 FLOAT 0.5 1 ");
    EXPECT_EQ(arrayText(node, RvArrayAllocate(0, 1, RV_TYPE_NODE)), "0 1 NODE ");
}

TEST_F(SceneValues, more_than_eight_values_begin_on_a_new_line)
{
    const auto bytes = [](unsigned count) {
        RtArray* const array = RvArrayAllocate(count, 1, RV_TYPE_BYTE);
        return arrayText(nullptr, array);
    };
    EXPECT_EQ(bytes(8), "8 1 BYTE 0 0 0 0 0 0 0 0 ");
    EXPECT_EQ(bytes(9), "9 1 BYTE \n  0 0 0 0 0 0 0 0 0 ");
}

// A value is written as long as the line holds no more than 79 characters.
TEST_F(SceneValues, lines_are_wrapped_after_79_characters)
{
    RtArray* const array = RvArrayAllocate(60, 1, RV_TYPE_INT);
    for (unsigned i = 0; i < 60; ++i)
        RvArraySetInt(array, i, i < 30 ? 10 : 100);
    std::istringstream lines(arrayText(owner(), array));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "60 1 INT ");
    std::getline(lines, line);
    EXPECT_EQ(line.size(), 2u + 26 * 3); // 80 characters end it
    std::getline(lines, line);
    EXPECT_EQ(line.size(), 2u + 4 * 3 + 17 * 4);
}

TEST_F(SceneValues, what_stands_before_an_array_counts_for_the_wrap)
{
    const std::string text = textOf([](rv::SceneText* out) {
        out->write(std::string(75, 'x').c_str());
        RtArray* const array = RvArray(2, 1, RV_TYPE_INT, 1, 2);
        rv::writeArray(out, nullptr, array);
        RvArrayDestroy(array);
    });
    EXPECT_EQ(text, std::string(75, 'x') + "2 1 INT \n  1 2 ");
}

TEST_F(SceneValues, each_string_of_an_array_has_a_line)
{
    RtNode* const node = owner();
    EXPECT_EQ(arrayText(node, RvArray(1, 1, RV_TYPE_STRING, "one")), "\n  \"one\" ");
    EXPECT_EQ(arrayText(node, RvArray(2, 1, RV_TYPE_STRING, "one", nullptr)),
              "2 1 STRING \n  \"one\" \n  NULL ");
    RtArray* const nine = RvArrayAllocate(9, 1, RV_TYPE_STRING);
    EXPECT_EQ(arrayText(node, nine).substr(0, 22), "9 1 STRING \n  \n  NULL ");
}

TEST_F(SceneValues, matrices_of_an_array_keep_their_lines)
{
    EXPECT_EQ(arrayText(owner(), RvArray(1, 2, RV_TYPE_MATRIX, &RV_M4_IDENTITY, &RV_M4_ZERO)),
              "1 2 MATRIX \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  0 0 0 1 "
              "\n  0 0 0 0\n  0 0 0 0\n  0 0 0 0\n  0 0 0 0 ");
}

TEST_F(SceneValues, arrays_of_arrays_have_a_line_for_each)
{
    RtArray* const outer = RvArray(2, 1, RV_TYPE_ARRAY, RvArray(2, 1, RV_TYPE_INT, 1, 2), nullptr);
    EXPECT_EQ(arrayText(owner(), outer), "2 1 ARRAY \n  2 1 INT 1 2 \n  0 0 UNDEFINED ");
}

TEST_F(SceneValues, an_emptied_array_is_undefined)
{
    RtArray* const array = RvArray(2, 1, RV_TYPE_INT, 1, 2);
    RvArrayReset(array);
    EXPECT_EQ(arrayText(owner(), array), "0 0 UNDEFINED ");
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(SceneValues, elements_without_data_are_warned_about)
{
    RtNode* const node = owner();
    EXPECT_EQ(arrayText(node, RvArrayConvert(3, 1, RV_TYPE_RGB, nullptr, false)), "0 0 RGB ");
    EXPECT_EQ(takeProblem(), "owner - bad array of type RGB");
    EXPECT_EQ(arrayText(node, RvArrayAllocate(2, 1, RV_TYPE_ENUM)), "0 0 UNDEFINED ");
    EXPECT_EQ(takeProblem(), "owner - bad array of type UNDEFINED");
}

TEST_F(SceneValues, bad_floats_of_arrays_become_zero_with_a_warning)
{
    RtNode* const node = owner();
    EXPECT_EQ(arrayText(node, RvArray(3, 1, RV_TYPE_FLOAT, double(INFINITY), 1.0, double(NAN))),
              "3 1 FLOAT 0 1 0 ");
    std::vector<std::string> texts;
    for (const LoggedMessage& m : messages())
        if (m.severity == 1 && (m.mask & RV_LOG_NAN))
            texts.push_back(m.text);
    EXPECT_EQ(texts, (std::vector<std::string>{ "owner: array contains bad float (inf)",
                                                "owner: array contains bad float (nan)" }));
}

TEST_F(SceneValues, floats_next_to_integers_are_written_as_such_in_arrays_alone)
{
    const float tiny = 3e-10f;
    EXPECT_EQ(valueText(RV_TYPE_FLOAT, &tiny), "3e-10");
    EXPECT_EQ(arrayText(owner(), RvArray(2, 1, RV_TYPE_FLOAT, double(tiny), 123456789.0)),
              "2 1 FLOAT 0 123456792 ");
    EXPECT_EQ(arrayText(owner(), RvArray(1, 1, RV_TYPE_RGB, RtRGB{ tiny, 1, 123456789.0f })),
              "3e-10 1 1.2345679e+08 ");
}

// ---- The text as a whole ----

TEST_F(SceneValues, every_newline_is_counted_as_a_line)
{
    rv::scene_file_line = 5;
    textOf([](rv::SceneText* out) {
        out->write("a\nb\n\n");
        out->newline();
        const char* const text = "x\ny";
        rv::writeValue(out, RV_TYPE_STRING, &text, nullptr);
    });
    EXPECT_EQ(rv::scene_file_line, 10);
    rv::scene_file_line = -1;
}

TEST_F(SceneValues, text_larger_than_the_buffer_arrives_whole)
{
    std::string expected;
    for (int i = 0; i < 200000; ++i)
        expected += std::to_string(i) + (i % 50 ? " " : "\n");
    EXPECT_EQ(textOf([&](rv::SceneText* out) {
                  for (size_t at = 0; at < expected.size(); at += 99991)
                      out->write(expected.c_str() + at,
                                 std::min<size_t>(99991, expected.size() - at));
              }),
              expected);
    rv::scene_file_line = -1;
}
