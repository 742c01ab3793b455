// Blocks of scene files: which parameters they hold, links, user parameters and transforms.
#include "write_tools.h"

#include "golden.h"
#include "objects/gobject.h"

using namespace write_tools;

class SceneBlocks : public Universe {};

// ---- Which parameters are written ----

static std::string formerText(const std::string& text, const char* param)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(std::string(" ") + param + " ", 0) == 0)
            return line;
    return "";
}

TEST_F(SceneBlocks, which_parameters_are_written_is_golden)
{
    int serial = 0;
    for (const nlohmann::json& vector : goldenVectors("scenefile", "parameter_written")) {
        const nlohmann::json& in = vector.at("in");
        const int type = typeCode(in.at("type"));
        const nlohmann::json& given = in.at("default");
        const std::string name = formatted("golden_%d", serial++);
        installType(name.c_str(), [&](RtList* params, RtMetaDataStore*) {
            switch (type) {
            case RV_TYPE_FLOAT: RvNodeParamFLT(params, -1, "p", given); break;
            case RV_TYPE_INT: RvNodeParamINT(params, -1, "p", given); break;
            case RV_TYPE_BOOLEAN: RvNodeParamBOOL(params, -1, "p", given); break;
            case RV_TYPE_ENUM: RvNodeParamENUM(params, -1, "p", given, fruit); break;
            case RV_TYPE_RGB: RvNodeParamRGB(params, -1, "p", given[0], given[1], given[2]); break;
            case RV_TYPE_MATRIX: RvNodeParamMTX(params, -1, "p", &RV_M4_IDENTITY); break;
            default: FAIL() << vector;
            }
        });
        RtNode* const node = RvNode(name.c_str());
        const nlohmann::json& value = in.at("set_to");
        switch (type) {
        case RV_TYPE_FLOAT: RvNodeSetFlt(node, "p", value); break;
        case RV_TYPE_BOOLEAN: RvNodeSetBool(node, "p", value); break;
        case RV_TYPE_RGB: RvNodeSetRGB(node, "p", value[0], value[1], value[2]); break;
        case RV_TYPE_MATRIX: RvNodeSetMatrix(node, "p", &RV_M4_IDENTITY); break;
        default: RvNodeSetInt(node, "p", value);
        }
        EXPECT_EQ(!paramsOf(node).empty(), vector.at("out").at("written").get<bool>())
            << vector.at("id");
    }
}

TEST_F(SceneBlocks, a_new_node_is_written_without_parameters)
{
    for (const bool laid_out : { false, true }) {
        const char* const type = laid_out ? "laid_out" : "slots";
        installEveryType(type, laid_out);
        EXPECT_EQ(blockOf(named(type, formatted("n%d", laid_out).c_str())),
                  formatted("%s\n{\n name n%d\n}\n\n", type, laid_out));
    }
}

// The texts of all types, with and without a layout. Arrays stand for their default.
TEST_F(SceneBlocks, set_values_of_every_type_are_written)
{
    for (const bool laid_out : { false, true }) {
        const char* const type = laid_out ? "laid_out" : "slots";
        installEveryType(type, laid_out);
        RtNode* const node = named(type, laid_out ? "b" : "a");
        RtNode* const other = named("sphere", laid_out ? "ball_b" : "ball_a");
        RvNodeSetByte(node, "p_BYTE", 200);
        RvNodeSetInt(node, "p_INT", -20);
        RvNodeSetUInt(node, "p_UINT", 4000000000u);
        RvNodeSetBool(node, "p_BOOL", false);
        RvNodeSetFlt(node, "p_FLOAT", 0.1f);
        RvNodeSetRGB(node, "p_RGB", 1, 0.1f, 0);
        RvNodeSetRGBA(node, "p_RGBA", 1, 0.1f, 0, 1e-7f);
        RvNodeSetVec(node, "p_VECTOR", 1, 2, 4);
        RvNodeSetPnt(node, "p_POINT", 4, -5, 7);
        RvNodeSetPnt2(node, "p_POINT2", 7, 9);
        RvNodeSetStr(node, "p_STRING", "a \"b\"");
        RvNodeSetPtr(node, "p_POINTER", &pointees[2]);
        RvNodeSetPtr(node, "p_NODE", other);
        RvNodeSetArray(node, "p_ARRAY", RvArray(2, 1, RV_TYPE_FLOAT, 0.5, 0.25));
        RvNodeSetMatrix(node, "p_MATRIX", &RV_M4_IDENTITY);
        RvNodeSetInt(node, "p_ENUM", 2);
        RvNodeSetArray(node, "a_BOOL", RvArray(2, 2, RV_TYPE_BOOLEAN, 1, 0, 0, 1));
        EXPECT_EQ(paramsOf(node),
                  formatted(" p_BYTE 200\n p_INT -20\n p_UINT 4000000000\n p_BOOL off\n"
                            " p_FLOAT 0.1\n p_RGB 1 0.1 0\n p_RGBA 1 0.1 0 1e-07\n"
                            " p_VECTOR 1 2 4\n p_POINT 4 -5 7\n p_POINT2 7 9\n"
                            " p_STRING \"a \\\"b\\\"\"\n p_POINTER %p\n p_NODE %s\n"
                            " p_ARRAY 2 1 FLOAT 0.5 0.25 \n"
                            " p_MATRIX \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  0 0 0 1\n"
                            " p_ENUM \"cherry\"\n a_BOOL 2 2 BOOL on off off on \n",
                            static_cast<void*>(&pointees[2]), RvNodeGetName(other)));
    }
}

TEST_F(SceneBlocks, values_set_to_the_default_are_left_out)
{
    installEveryType("every_type", true);
    RtNode* const node = RvNode("every_type");
    RvNodeSetByte(node, "p_BYTE", 7);
    RvNodeSetUInt(node, "p_UINT", 70);
    RvNodeSetBool(node, "p_BOOL", true);
    RvNodeSetFlt(node, "p_FLOAT", 0.75f);
    RvNodeSetRGB(node, "p_RGB", 0.5f, 0.25f, 0.125f);
    RvNodeSetRGBA(node, "p_RGBA", 0.5f, 0.25f, 0.125f, 0.75f);
    RvNodeSetVec(node, "p_VECTOR", 1, 2, 3);
    RvNodeSetPnt(node, "p_POINT", 4, 5, 6);
    RvNodeSetPnt2(node, "p_POINT2", 7, 8);
    RvNodeSetStr(node, "p_STRING", "default text");
    RvNodeSetPtr(node, "p_POINTER", &pointees[7]);
    RvNodeSetPtr(node, "p_NODE", nullptr);
    RvNodeSetInt(node, "p_ENUM", 1);
    EXPECT_EQ(paramsOf(node), "");
}

TEST_F(SceneBlocks, a_component_that_differs_has_the_value_written)
{
    installEveryType("every_type", true);
    RtNode* const node = RvNode("every_type");
    RvNodeSetRGBA(node, "p_RGBA", 0.5f, 0.25f, 0.125f, 0.5f);
    RvNodeSetPnt2(node, "p_POINT2", 7, 8.5f);
    EXPECT_EQ(paramsOf(node), " p_RGBA 0.5 0.25 0.125 0.5\n p_POINT2 7 8.5\n");
}

// Required: the bits of integers are compared as floats.
TEST_F(SceneBlocks, required_integers_are_compared_as_floats)
{
    installType("integers", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamINT(params, -1, "minus_one", -1);
        RvNodeParamINT(params, -1, "zero", 0);
        RvNodeParamUINT(params, -1, "all_bits", 0xFFFFFFFF);
    });
    RtNode* const node = RvNode("integers");
    RvNodeSetInt(node, "minus_one", -1);
    RvNodeSetInt(node, "zero", -2147483647 - 1);
    RvNodeSetUInt(node, "all_bits", 0xFFFFFFFF);
    EXPECT_EQ(paramsOf(node), " minus_one -1\n all_bits 4294967295\n");
}

TEST_F(SceneBlocks, a_value_that_is_no_number_never_equals_its_default)
{
    installType("no_number", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamFLT(params, -1, "f", NAN);
        RvNodeParamRGB(params, -1, "c", 0, NAN, 0);
    });
    RtNode* const node = RvNode("no_number");
    node->set_flags[0] = node->set_flags[1] = 1;
    EXPECT_EQ(paramsOf(node), " f nan\n c 0 nan 0\n");
}

TEST_F(SceneBlocks, all_parameters_are_written_on_demand)
{
    installType("few", [](RtList* params, RtMetaDataStore*) {
        RvNodeParamFLT(params, -1, "f", 0.5f);
        RvNodeParamSTR(params, -1, "s", "");
        RvNodeParamARRAY(params, -1, "a", RvArray(0, 1, RV_TYPE_NODE));
        RvNodeParamARRAY(params, -1, "none", nullptr);
    });
    RtNode* const node = named("few", "n");
    EXPECT_EQ(blockOf(node, false),
              "few\n{\n name n\n f 0.5\n s \"\"\n a 0 1 NODE \n none 0 0 UNDEFINED \n}\n\n");
}

TEST_F(SceneBlocks, an_unknown_type_code_is_fatal)
{
    installType("broken",
                [](RtList* params, RtMetaDataStore*) { RvNodeParamFLT(params, -1, "f", 0.5f); });
    RtNode* const node = RvNode("broken");
    RtParamEntry& param = node->entry->params[0];
    const uint16_t type = param.type;
    param.type = 77;
    RvMsgSetConsoleFlags(0); // nobody wants to see it: then it does not end the process
    EXPECT_EQ(paramsOf(node, false), "");
    RvMsgSetConsoleFlags(RV_LOG_ALL);
    EXPECT_DEATH(
        {
            RvMsgSetCallback([](int, int, const char* text, int) { fprintf(stderr, "%s", text); });
            paramsOf(node, false);
        },
        "reached code line in error: core.src.dotrvs:[0-9]+ "
        "\\(in RvRVSWriteNodeBuiltinParams\\)");
    param.type = type;
}

// Required: quotes alone are escaped.
TEST_F(SceneBlocks, required_texts_ending_in_a_backslash_are_kept_and_warned_about)
{
    RtNode* const image = named("image", "i");
    RvNodeSetStr(image, "filename", "C:\\files\\");
    ASSERT_TRUE(RvNodeDeclare(image, "one", "constant STRING"));
    RvNodeSetStr(image, "one", "\\");
    ASSERT_TRUE(RvNodeDeclare(image, "list", "constant ARRAY STRING"));
    RvNodeSetArray(image, "list", RvArray(3, 1, RV_TYPE_STRING, "a", "b\\", "c\\"));
    ASSERT_TRUE(RvNodeDeclare(image, "nested", "constant ARRAY ARRAY"));
    RvNodeSetArray(image, "nested",
                   RvArray(1, 1, RV_TYPE_ARRAY, RvArray(2, 1, RV_TYPE_STRING, "a", "d\\")));
    ASSERT_TRUE(RvNodeDeclare(image, "fine", "constant ARRAY STRING"));
    RvNodeSetArray(image, "fine", RvArray(3, 1, RV_TYPE_STRING, "", "a\\b", "\\ "));
    const std::string block = blockOf(image);
    for (const char* line :
         { " filename \"C:\\files\\\"\n", " one \"\\\"\n",
           " list 3 1 STRING \n  \"a\" \n  \"b\\\" \n  \"c\\\" \n", " \n  \"d\\\" \n" })
        EXPECT_NE(block.find(line), std::string::npos) << block;
    std::string expected;
    for (const char* param : { "filename", "one", "list", "nested" })
        expected += (expected.empty() ? "i: \"" : " | i: \"") + std::string(param) +
                    "\" has a text that ends in a backslash and will not read back";
    EXPECT_EQ(takeProblem(), expected);
}

// ---- Links ----

TEST_F(SceneBlocks, a_link_takes_the_place_of_the_value)
{
    RtNode* const lambert = named("lambert", "l");
    RtNode* const image = named("image", "picture");
    RvNodeSetRGB(lambert, "Kd_color", 0.25f, 0.5f, 0.75f);
    RvNodeLink(image, "Kd_color", lambert);
    EXPECT_EQ(paramsOf(lambert), " Kd_color picture\n");
}

TEST_F(SceneBlocks, linked_components_have_a_line_each)
{
    installEveryType("every_type", true);
    RtNode* const node = RvNode("every_type");
    RtNode* const a = named("image", "a");
    RtNode* const b = named("image", "b");
    for (const char* component : { "p_RGB.r", "p_RGB.b", "p_RGBA.a", "p_VECTOR.y", "p_POINT.z" })
        RvNodeLink(a, component, node);
    RvNodeLink(b, "p_RGBA.g", node);
    RvNodeLink(b, "p_POINT2.x", node);
    RvNodeLink(b, "p_POINT2.y", node);
    EXPECT_EQ(paramsOf(node), " p_RGB.r a\n p_RGB.b a\n p_RGBA.g b\n p_RGBA.a a\n p_VECTOR.y a\n"
                              " p_POINT.z a\n p_POINT2.x b\n p_POINT2.y b\n");
}

TEST_F(SceneBlocks, a_component_whose_type_has_none_is_a_question_mark)
{
    installEveryType("every_type", true);
    RtNode* const node = RvNode("every_type");
    RtNode* const image = named("image", "i");
    RvNodeLink(image, "p_FLOAT", node);
    RtLinkRecord& record = node->links[RvNodeEntryLookUpParameter(node->entry, "p_FLOAT")->index];
    record.slot[1] = record.slot[0];
    record.slot[0] |= rv::component_marker;
    EXPECT_EQ(paramsOf(node), " p_FLOAT.? i\n p_FLOAT.? i\n");
}

TEST_F(SceneBlocks, a_parameter_is_written_again_when_its_components_are_unlinked)
{
    RtNode* const lambert = named("lambert", "l");
    RvNodeSetRGB(lambert, "Kd_color", 0.25f, 0.5f, 0.75f);
    RvNodeLink(named("image", "i"), "Kd_color.r", lambert);
    RvNodeUnlink(lambert, "Kd_color.r");
    EXPECT_EQ(paramsOf(lambert), " Kd_color 0.25 0.5 0.75\n");
}

TEST_F(SceneBlocks, the_node_to_evaluate_before_is_the_last_line)
{
    RtNode* const lambert = named("lambert", "l");
    RvNodeSetFlt(lambert, "Kd", 0.125f);
    RvNodeDeclare(lambert, "mine", "constant INT");
    RvNodeLink(named("image", "first"), "@before", lambert);
    EXPECT_EQ(blockOf(lambert), "lambert\n{\n name l\n Kd 0.125\n"
                                "declare mine constant INT\n mine 0\n @before first\n}\n\n");
}

// ---- User parameters ----

TEST_F(SceneBlocks, user_parameters_are_declared_and_set)
{
    RtNode* const node = named("lambert", "l");
    const auto declare = [&](const char* name, const char* text) {
        ASSERT_TRUE(RvNodeDeclare(node, name, text));
    };
    declare("one", "constant STRING");
    RvNodeSetStr(node, "one", "text");
    declare("two", "constant ARRAY RGB");
    RvNodeSetArray(node, "two", RvArray(1, 1, RV_TYPE_RGB, RtRGB{ 1, 0, 0.5f }));
    declare("three", "uniform FLOAT");
    RvNodeSetArray(node, "three", RvArray(2, 1, RV_TYPE_FLOAT, 1.0, 2.5));
    declare("four", "varying POINT2");
    declare("five", "constant MATRIX");
    declare("six", "constant NODE");
    RvNodeSetPtr(node, "six", named("image", "i"));
    declare("seven", "constant MATRIX");
    RvNodeSetMatrix(node, "seven", &RV_M4_ZERO);
    declare("eight", "constant STRING");
    EXPECT_EQ(blockOf(node), "lambert\n{\n name l\n"
                             "declare one constant STRING\n one \"text\"\n"
                             "declare two constant ARRAY RGB\n two 1 0 0.5 \n"
                             "declare three uniform FLOAT\n three 2 1 FLOAT 1 2.5 \n"
                             "declare four varying POINT2\n four 0 1 POINT2 \n"
                             "declare five constant MATRIX\n"
                             "declare six constant NODE\n six i\n"
                             "declare seven constant MATRIX\n"
                             " seven \n  0 0 0 0\n  0 0 0 0\n  0 0 0 0\n  0 0 0 0\n"
                             "declare eight constant STRING\n eight NULL\n}\n\n");
}

TEST_F(SceneBlocks, a_disabled_user_parameter_is_an_error_and_left_out)
{
    RtNode* const node = named("lambert", "l");
    ASSERT_TRUE(RvNodeDeclare(node, "gone", "uniform FLOAT"));
    rv::disableUserParam(&node->user_params[0]);
    EXPECT_EQ(blockOf(node), "lambert\n{\n name l\n}\n\n");
    EXPECT_EQ(takeProblem(), "unrecognized user-defined parameter type for parameter !");
}

// ---- Transforms ----

static RtMatrix translation(float x, float y, float z)
{
    const RtVector by = { x, y, z };
    RtMatrix matrix;
    RvM4Translation(&matrix, &by);
    return matrix;
}

static RtMatrix scaling(float x, float y, float z)
{
    const RtVector by = { x, y, z };
    RtMatrix matrix;
    RvM4Scaling(&matrix, &by);
    return matrix;
}

static void setKeys(RtNode* node, const std::vector<RtMatrix>& keys)
{
    RtArray* const array = RvArrayAllocate(1, unsigned(keys.size()), RV_TYPE_MATRIX);
    for (unsigned k = 0; k < keys.size(); ++k)
        RvArraySetMtx(array, k, &keys[k]);
    RvNodeSetArray(node, "matrix", array);
}

// The matrix lines of a written block.
static std::string writtenMatrix(RtNode* node)
{
    const std::string block = blockOf(node);
    const size_t begin = block.find(" matrix ");
    EXPECT_NE(begin, std::string::npos) << block;
    size_t end = begin;
    do
        end = block.find('\n', end + 1);
    while (block.compare(end, 3, "\n  ") == 0);
    return block.substr(begin, end - begin);
}

static const std::string identity_lines = "\n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  0 0 0 1 ";

TEST_F(SceneBlocks, a_shape_without_a_transform_gets_the_identity)
{
    RtNode* const sphere = named("sphere", "s");
    EXPECT_EQ(blockOf(sphere), "sphere\n{\n name s\n matrix " + identity_lines + "\n}\n\n");
    const RtArray* const stored = RvNodeGetArray(sphere, "matrix");
    EXPECT_EQ(describe(stored), "MATRIX 1x1: " + describe(RV_M4_IDENTITY));
    EXPECT_TRUE(isSet(sphere, "matrix"));
}

TEST_F(SceneBlocks, the_keys_of_an_initialised_shape_are_those_of_its_object)
{
    RtNode* const sphere = named("sphere", "s");
    setKeys(sphere, { translation(1, 2, 3), translation(4, 5, 6) });
    rv::RvNodeInitialize(sphere);
    EXPECT_EQ(describe(RvNodeGetArray(sphere, "matrix")), "MATRIX 0x1:");
    EXPECT_EQ(writtenMatrix(sphere), " matrix 1 2 MATRIX \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0"
                                     "\n  1 2 3 1 \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  4 5 6 1 ");
}

TEST_F(SceneBlocks, the_transform_of_the_creator_stands_on_the_left)
{
    RtNode* const creator = named("procedural", "maker");
    RtNode* const sphere = named("sphere", "s");
    setKeys(creator, { translation(1, 2, 3) });
    setKeys(sphere, { scaling(2, 2, 2) });
    sphere->creator = creator;
    EXPECT_EQ(writtenMatrix(sphere), " matrix \n  2 0 0 0\n  0 2 0 0\n  0 0 2 0\n  2 4 6 1 ");
    EXPECT_EQ(blockOf(sphere).substr(0, 22), "### created by maker\ns");
    sphere->creator = nullptr;
}

TEST_F(SceneBlocks, transforms_of_all_outer_creators_are_applied)
{
    RtNode* const outer = named("procedural", "outer");
    RtNode* const inner = named("procedural", "inner");
    RtNode* const sphere = named("sphere", "s");
    setKeys(outer, { translation(0, 0, 7) });
    setKeys(inner, { scaling(1, 1, 2) });
    sphere->creator = inner;
    inner->creator = outer;
    EXPECT_EQ(writtenMatrix(sphere), " matrix \n  1 0 0 0\n  0 1 0 0\n  0 0 2 0\n  0 0 14 1 ");
    inner->creator = inner; // as user code might have it
    writtenMatrix(sphere);
    sphere->creator = inner->creator = nullptr;
}

TEST_F(SceneBlocks, creator_and_node_may_have_one_key_or_several)
{
    const RtMatrix one = translation(1, 0, 0), two = translation(2, 0, 0);
    const RtMatrix three = translation(3, 0, 0);
    static const auto row = [](float x) {
        return formatted("\n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  %g 0 0 1 ", double(x));
    };
    const struct {
        std::vector<RtMatrix> creator, node;
        std::string text, problem;
    } rows[] = {
        { { one }, { one, two }, " matrix 1 2 MATRIX " + row(2) + row(3), "" },
        { { one, three }, { two }, " matrix " + row(3), "" },
        { { one, two }, { one, three }, " matrix 1 2 MATRIX " + row(2) + row(5), "" },
        { { one, two },
          { one, two, three },
          " matrix 1 3 MATRIX " + row(2) + row(4) + row(5),
          "writing rvs: node s has different number of matrix keys than its parent maker "
          "(3 versus 2)" },
    };
    RtNode* const creator = named("procedural", "maker");
    RtNode* const sphere = named("sphere", "s");
    sphere->creator = creator;
    for (const auto& r : rows) {
        setKeys(creator, r.creator);
        setKeys(sphere, r.node);
        EXPECT_EQ(writtenMatrix(sphere), r.text);
        EXPECT_EQ(takeProblem(), r.problem);
    }
    sphere->creator = nullptr;
}

// A sphere and an instance of it, initialised.
static RtNode* instanceOf(const std::vector<RtMatrix>& source, const std::vector<RtMatrix>& copy)
{
    RtNode* const sphere = named("sphere", "ball");
    RtNode* const instance = named("ginstance", "again");
    setKeys(sphere, source);
    setKeys(instance, copy);
    RvNodeSetPtr(instance, "node", sphere);
    rv::RvNodeInitialize(instance);
    return instance;
}

TEST_F(SceneBlocks, a_copy_is_an_instance_of_its_source)
{
    RtNode* const instance = instanceOf({ translation(1, 2, 3) }, { translation(10, 0, 0) });
    RvNodeSetInt(instance, "id", 5);
    RvNodeSetInt(instance, "visibility", 255);
    RvNodeSetInt(instance->source, "visibility", 255);
    RvNodeSetBool(instance, "inherit_xform", true);
    EXPECT_EQ(blockOf(instance), "ginstance\n{\n name again\n node ball\n matrix "
                                 "\n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  10 0 0 1 \n id 5\n}\n\n");
}

TEST_F(SceneBlocks, the_inverse_transform_of_the_source_stands_on_the_right)
{
    RtNode* const instance = instanceOf({ scaling(2, 2, 2) }, { translation(1, 2, 3) });
    RtMatrix world, inverse, expected;
    const RtMatrix source = scaling(2, 2, 2), own = translation(1, 2, 3);
    RvM4Mult(&world, &source, &own);
    RvM4Invert(&source, &inverse);
    RvM4Mult(&expected, &world, &inverse);
    EXPECT_EQ(expected.m[3][0], 0.5f); // not the matrix of the instance, which has 1
    EXPECT_EQ(writtenMatrix(instance), " matrix \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  0.5 1 1.5 1 ");
}

TEST_F(SceneBlocks, keys_that_the_source_lacks_repeat_its_last_one)
{
    RtNode* const instance =
        instanceOf({ translation(1, 0, 0) }, { translation(5, 0, 0), translation(7, 0, 0) });
    EXPECT_EQ(writtenMatrix(instance), " matrix 1 2 MATRIX \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0"
                                       "\n  5 0 0 1 \n  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  7 0 0 1 ");
    EXPECT_EQ(takeProblem(),
              "writing rvs: ginstance node again has different number of matrix keys than its "
              "reference ball (2 versus 1)");
}

TEST_F(SceneBlocks, arrays_of_a_copy_are_written_when_set_and_not_empty)
{
    RtNode* const instance = instanceOf({ translation(1, 0, 0) }, { RV_M4_IDENTITY });
    RvNodeSetArray(instance, "trace_sets", RvArray(1, 1, RV_TYPE_STRING, "set"));
    RvNodeSetArray(instance, "light_group", RvArray(0, 1, RV_TYPE_NODE));
    EXPECT_EQ(blockOf(instance), "ginstance\n{\n name again\n node ball\n matrix " +
                                     identity_lines + "\n trace_sets \n  \"set\" \n}\n\n");
}

TEST_F(SceneBlocks, links_of_a_copy_are_written)
{
    installType("holder", {}, RV_NODE_SHADER, RV_TYPE_INT);
    RtNode* const instance = instanceOf({ RV_M4_IDENTITY }, { RV_M4_IDENTITY });
    RvNodeLink(named("holder", "h"), "visibility", instance);
    EXPECT_EQ(formerText(blockOf(instance), "visibility"), " visibility h");
}

TEST_F(SceneBlocks, a_transform_that_cannot_be_stored_leaves_the_former_one)
{
    RtNode* const instance = instanceOf({ RV_M4_IDENTITY }, { translation(1, 0, 0) });
    setKeys(instance->source, { RV_M4_ZERO });
    EXPECT_EQ(blockOf(instance), "ginstance\n{\n name again\n node ball\n}\n\n");
    EXPECT_EQ(takeProblem(), "ignoring parameter matrix on again (found: nans or infs)");
}

TEST_F(SceneBlocks, preserved_scenes_keep_the_transforms_of_created_nodes)
{
    RvNodeSetBool(RvUniverseGetOptions(), "preserve_scene_data", true);
    RtNode* const creator = named("procedural", "maker");
    RtNode* const sphere = named("sphere", "s");
    setKeys(creator, { translation(1, 2, 3) });
    setKeys(sphere, { scaling(2, 2, 2) });
    sphere->creator = creator;
    const std::string text = writtenMatrix(sphere);
    EXPECT_EQ(describe(RvNodeGetArray(sphere, "matrix")),
              "MATRIX 1x1: " + describe(scaling(2, 2, 2)));
    EXPECT_EQ(writtenMatrix(sphere), text); // and is written the same again
    sphere->creator = nullptr;
}

TEST_F(SceneBlocks, an_exhausted_heap_loses_no_memory)
{
    RtNode* const sphere = named("sphere", "s");
    const TemporaryFile file("");
    RtRVSFile* const record = RvRVSOpenFile(file.path.c_str(), "w");
    rv::SceneText text(record);
    problemsOfFailingHeap([&] { RvRVSWriteNode(&text, sphere, true); },
                          [] { return takeProblems(); });
    text.finish();
    RvRVSCloseFile(record, "w");
}
