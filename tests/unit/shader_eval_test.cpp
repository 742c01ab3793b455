// Tests of shader evaluation: the order and counts of calls, results that are no numbers, and the
// values of parameters that are linked to shaders.
#include "shaderglobals.h"

#include "counters.h"
#include "golden.h"
#include "options.h"
#include "rays.h"
#include "shader_tools.h"

#include <limits>

using namespace shader_tools;
using nlohmann::json;
using node_tools::describe;

namespace {

class ShaderEval : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        rv::startReportingNesting();
    }
    static uint64_t calls(RtShaderCallRow row, RtPass pass = RV_PASS_PIXELS)
    {
        return rv::threadStats()->shader_calls[pass][row];
    }

    // A node whose parameter of the shader's own type is linked to the shader.
    static RtNode* linkedTo(RtNode* source, int type, std::string* param)
    {
        static int serial = 0;
        RtNode* const node = shader(("linked " + std::to_string(serial++)).c_str(), RV_TYPE_RGB);
        *param = std::string("p_") + node_tools::type_names[type];
        RvNodeLink(source, param->c_str(), node);
        EXPECT_EQ(RvNodeGetLink(node, param->c_str()), source) << *param;
        return node;
    }
    static int typeNamed(const std::string& name)
    {
        for (int type = 0; type <= RV_TYPE_ENUM; ++type)
            if (name == rv::type_table[type].name)
                return type;
        ADD_FAILURE() << "no type " << name;
        return RV_TYPE_NONE;
    }
    // A node and the index of its parameter that is linked to a shader with this result.
    struct Input {
        RtNode* node;
        int index;
    };
    static Input linkedInput(int output_type, const Program& program)
    {
        static int serial = 0;
        RtNode* const source =
            shader(("source " + std::to_string(serial++)).c_str(), output_type, program);
        std::string param;
        RtNode* const node = linkedTo(source, output_type, &param);
        return { node, indexOf(node, param.c_str()) };
    }

    Context sg;
};

std::vector<float> floatsOf(const RtRGB& c) { return { c.r, c.g, c.b }; }
std::vector<float> floatsOf(const RtRGBA& c) { return { c.r, c.g, c.b, c.a }; }
std::vector<float> floatsOf(const RtVector& v) { return { v.x, v.y, v.z }; }
std::vector<float> floatsOf(const RtPoint2& v) { return { v.x, v.y }; }

std::vector<float> evaluated(int type, RtShaderGlobals* sg, const RtNode* node, int index)
{
    switch (type) {
    case RV_TYPE_FLOAT: return { RvShaderEvalParamFuncFlt(sg, node, index) };
    case RV_TYPE_RGB: return floatsOf(RvShaderEvalParamFuncRGB(sg, node, index));
    case RV_TYPE_RGBA: return floatsOf(RvShaderEvalParamFuncRGBA(sg, node, index));
    case RV_TYPE_VECTOR: return floatsOf(RvShaderEvalParamFuncVec(sg, node, index));
    case RV_TYPE_POINT: return floatsOf(RvShaderEvalParamFuncPnt(sg, node, index));
    case RV_TYPE_POINT2: return floatsOf(RvShaderEvalParamFuncPnt2(sg, node, index));
    default: ADD_FAILURE() << type; return {};
    }
}

int64_t evaluatedInt(int type, RtShaderGlobals* sg, const RtNode* node, int index)
{
    switch (type) {
    case RV_TYPE_BYTE: return RvShaderEvalParamFuncByte(sg, node, index);
    case RV_TYPE_INT: return RvShaderEvalParamFuncInt(sg, node, index);
    case RV_TYPE_UINT: return RvShaderEvalParamFuncUInt(sg, node, index);
    case RV_TYPE_ENUM: return RvShaderEvalParamFuncEnum(sg, node, index);
    default: ADD_FAILURE() << type; return 0;
    }
}

// Writes a number the way a shader of that output type does.
Program writing(int type, double value)
{
    return [=](RtNode*, RtShaderGlobals* sg) {
        switch (type) {
        case RV_TYPE_INT: sg->out.INT = int(value); break;
        case RV_TYPE_UINT: sg->out.UINT = unsigned(value); break;
        case RV_TYPE_BYTE:
        case RV_TYPE_BOOLEAN: sg->out.BYTE = uint8_t(value); break;
        case RV_TYPE_FLOAT: sg->out.FLT = float(value); break;
        default: sg->out.RGB = { float(value), float(value), float(value) };
        }
    };
}

} // namespace

// ---- Running shaders ----

TEST_F(ShaderEval, nothing_is_evaluated_without_a_node_or_a_context)
{
    RtNode* const node = floatShader("s", 1);
    sg->out.FLT = 7;
    RvShaderEvaluate(nullptr, sg);
    RvShaderEvaluate(node, nullptr);
    RvShaderEvaluate(node_tools::named("sphere", "no shader"), sg);
    RvShaderEvaluate(node_tools::named("persp_camera", "no shader either"), sg);
    EXPECT_EQ(sg->out.FLT, 7);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 0u);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ShaderEval, a_shader_finds_itself_in_the_context_and_leaves_it_as_it_was)
{
    RtNode* const outer = shader("outer", RV_TYPE_RGB);
    RtNode* seen = nullptr;
    RtNode* const node =
        shader("s", RV_TYPE_RGB, [&](RtNode*, RtShaderGlobals* at) { seen = at->shader; });
    sg->shader = outer;
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(seen, node);
    EXPECT_EQ(sg->shader, outer);
}

TEST_F(ShaderEval, shaders_before_a_shader_run_first_innermost_first)
{
    std::vector<std::string> order;
    const auto note = [&](RtNode* node, RtShaderGlobals* at) {
        EXPECT_EQ(at->shader, node);
        order.push_back(RvNodeGetName(node));
    };
    RtNode* const a = shader("a", RV_TYPE_RGB, note);
    RtNode* const b = shader("b", RV_TYPE_FLOAT, note);
    RtNode* const c = shader("c", RV_TYPE_RGB, note);
    RvNodeLink(b, "@before", a);
    RvNodeLink(c, "@before", b);
    RvShaderEvaluate(a, sg);
    EXPECT_EQ(order, (std::vector<std::string>{ "c", "b", "a" }));
    EXPECT_EQ(sg->shader, nullptr);
    // Each evaluation counts, and those before another one count as that too.
    EXPECT_EQ(calls(RV_CALL_BEFORE), 2u);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 3u);
}

TEST_F(ShaderEval, what_stands_before_a_shader_need_not_be_one)
{
    RtNode* const node = floatShader("s", 3);
    RvNodeLink(node_tools::named("sphere", "ball"), "@before", node);
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(sg->out.FLT, 3);
}

TEST_F(ShaderEval, calls_are_counted_by_ray_type_and_pass)
{
    RtNode* const node = floatShader("s", 1);
    RvShaderEvaluate(node, sg);
    sg->ray_type = RV_RAY_SHADOW | RV_RAY_CAMERA;
    RvShaderEvaluate(node, sg);
    sg->ray_type = RV_RAY_DIFFUSE;
    sg.state.pass = RV_PASS_SSS;
    RvShaderEvaluate(node, sg);
    rv::evaluateShader(node, sg, RV_CALL_QUICKGI);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 1u);
    EXPECT_EQ(calls(RV_CALL_SHADOW), 1u);
    EXPECT_EQ(calls(RV_CALL_PRIMARY, RV_PASS_SSS), 1u);
    EXPECT_EQ(calls(RV_CALL_QUICKGI, RV_PASS_SSS), 1u);
    sg->state = nullptr; // the context of a host
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(calls(RV_CALL_PRIMARY), 2u);
}

TEST_F(ShaderEval, displacement_and_uncounted_contexts_are_not_counted)
{
    RtNode* const node = floatShader("s", 1);
    RvNodeLink(floatShader("b", 1), "@before", node);
    sg->stage = RV_STAGE_DISPLACEMENT;
    RvShaderEvaluate(node, sg);
    sg->stage = RV_STAGE_SURFACE;
    sg.state.uncounted = true;
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(calls(RV_CALL_PRIMARY) + calls(RV_CALL_BEFORE), 0u);
    EXPECT_EQ(sg->out.FLT, 1);
}

TEST_F(ShaderEval, results_that_are_no_numbers_are_reported_with_shader_and_object)
{
    static const float nan = std::numeric_limits<float>::quiet_NaN();
    static const float infinity = std::numeric_limits<float>::infinity();
    static const struct {
        int type;
        int bad; // float that is not finite
        const char* name;
    } cases[] = {
        { RV_TYPE_FLOAT, 0, "FLOAT" }, { RV_TYPE_FLOAT, 1, nullptr },
        { RV_TYPE_RGB, 2, "RGB" },     { RV_TYPE_RGB, 3, nullptr },
        { RV_TYPE_RGBA, 3, "RGBA" },   { RV_TYPE_VECTOR, 1, "VECTOR" },
        { RV_TYPE_POINT, 0, "POINT" }, { RV_TYPE_POINT2, 0, nullptr },
        { RV_TYPE_INT, 0, nullptr },   { RV_TYPE_NONE, 0, nullptr },
    };
    RvNodeSetBool(RvUniverseGetOptions(), "shader_nan_checks", true);
    RtNode* const object = node_tools::named("sphere", "ball");
    for (const auto& row : cases)
        for (float value : { nan, infinity, -infinity }) {
            RtNode* const node = shader("bad", row.type, [&](RtNode*, RtShaderGlobals* at) {
                (&at->out.RGBA.r)[row.bad] = value;
            });
            sg->out = {};
            sg->object = object;
            RvShaderEvaluate(node, sg);
            const std::string text = row.name ? std::string("found NaN/inf in bad.out.") +
                                                    row.name + " when shading object ball"
                                              : "";
            EXPECT_EQ(takeProblem(), text) << row.type << " " << row.bad;
            EXPECT_FALSE(std::isfinite((&sg->out.RGBA.r)[row.bad])); // left as it is
            RvNodeDestroy(node);
        }
}

TEST_F(ShaderEval, bad_results_without_an_object_or_without_the_check)
{
    RtNode* const node = floatShader("bad", std::numeric_limits<float>::infinity());
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(takeProblem(), "");
    RvNodeSetBool(RvUniverseGetOptions(), "shader_nan_checks", true);
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(takeProblem(), "found NaN/inf in bad.out.FLOAT when shading object (null)");
}

TEST_F(ShaderEval, shaders_that_lead_back_to_themselves_end)
{
    RtNode* const a = shader("a", RV_TYPE_FLOAT);
    RtNode* const b = shader("b", RV_TYPE_FLOAT);
    int evaluations = 0;
    const auto program = [&](RtNode* node, RtShaderGlobals* at) {
        ++evaluations;
        const float input = RvShaderEvalParamFuncFlt(at, node, indexOf(node, "p_FLOAT"));
        at->out.FLT = input + 1;
    };
    programs()[a] = programs()[b] = program;
    RvNodeLink(a, "p_FLOAT", b);
    RvNodeLink(b, "p_FLOAT", a);
    RvShaderEvaluate(a, sg);
    EXPECT_EQ(evaluations, 2);
    EXPECT_EQ(sg->out.FLT, 2); // the circle reads as 0 where it closes
    EXPECT_EQ(takeProblem(), "a: shader leads back to itself and is not evaluated again");
    RvShaderEvaluate(b, sg);
    EXPECT_EQ(takeProblem(), ""); // said once
    rv::startReportingNesting();
    RvNodeUnlink(a, "p_FLOAT");
    RvNodeLink(b, "@before", a);
    RvShaderEvaluate(a, sg);
    EXPECT_EQ(takeProblem(), "a: shader leads back to itself and is not evaluated again");
    RvNodeUnlink(a, "@before");
    RvNodeUnlink(b, "p_FLOAT");
}

TEST_F(ShaderEval, a_shader_may_be_evaluated_at_another_point_while_it_runs_but_not_for_ever)
{
    int evaluations = 0;
    RtNode* const node = shader("mirror", RV_TYPE_RGB, [&](RtNode* self, RtShaderGlobals*) {
        ++evaluations;
        Context other;
        rv::evaluateShader(self, other, RV_CALL_PRIMARY);
    });
    RvShaderEvaluate(node, sg);
    EXPECT_EQ(evaluations, 512);
    EXPECT_EQ(takeProblem(), "mirror: shader leads back to itself and is not evaluated again");
}

// ---- Linked parameters ----

TEST_F(ShaderEval, linked_results_are_converted_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("shading", "linked_parameter")) {
        const json& in = v.at("in");
        const std::vector<float> out = goldenFloats(in.at("out"));
        const Input input =
            linkedInput(typeNamed(in.at("linked_output")), [&](RtNode*, RtShaderGlobals* at) {
                memcpy(static_cast<void*>(&at->out), out.data(), sizeof(float) * out.size());
            });
        const int requested = typeNamed(in.at("requested"));
        expectGoldenNumbers(v, "value", evaluated(requested, sg, input.node, input.index));
        if (requested == RV_TYPE_VECTOR)
            expectGoldenNumbers(v, "value", evaluated(RV_TYPE_POINT, sg, input.node, input.index));
    }
}

TEST_F(ShaderEval, linked_integers_are_converted_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("shading", "linked_parameter_int")) {
        const json& in = v.at("in");
        const int type = typeNamed(in.at("linked_output"));
        const Input input = linkedInput(type, writing(type, in.at("value").get<double>()));
        expectGolden(v, "value",
                     evaluatedInt(typeNamed(in.at("requested")), sg, input.node, input.index));
    }
}

TEST_F(ShaderEval, linked_booleans_are_converted_as_the_golden_vectors_say)
{
    for (const json& v : goldenVectors("shading", "linked_parameter_bool")) {
        const json& in = v.at("in");
        const int type = typeNamed(in.at("linked_output"));
        const Input input = linkedInput(type, writing(type, in.at("value").get<double>()));
        expectGolden(v, "value", RvShaderEvalParamFuncBool(sg, input.node, input.index));
    }
}

TEST_F(ShaderEval, required_conversions_that_lose_values)
{
    const auto bits = [](RtNode*, RtShaderGlobals* at) { at->out.RGBA = { 1, 2, 3, 4 }; };
    const Input point2 = linkedInput(RV_TYPE_POINT2, bits);
    EXPECT_EQ(evaluated(RV_TYPE_RGB, sg, point2.node, point2.index),
              (std::vector<float>{ 1, 2, 0 }));
    EXPECT_EQ(evaluated(RV_TYPE_RGBA, sg, point2.node, point2.index),
              (std::vector<float>{ 1, 2, 3, 4 })); // the stored bits
    EXPECT_EQ(evaluated(RV_TYPE_VECTOR, sg, point2.node, point2.index),
              (std::vector<float>{ 0, 0, 0 }));
    EXPECT_EQ(evaluated(RV_TYPE_FLOAT, sg, point2.node, point2.index), std::vector<float>{ 1 });
    EXPECT_EQ(evaluated(RV_TYPE_POINT2, sg, point2.node, point2.index),
              (std::vector<float>{ 1, 2 }));
    const Input number = linkedInput(RV_TYPE_FLOAT, bits);
    EXPECT_EQ(evaluated(RV_TYPE_POINT2, sg, number.node, number.index),
              (std::vector<float>{ 1, 1 }));
    const Input text = linkedInput(RV_TYPE_STRING, bits);
    EXPECT_EQ(evaluated(RV_TYPE_RGBA, sg, text.node, text.index),
              (std::vector<float>{ 0, 0, 0, 0 }));
    const Input truth = linkedInput(RV_TYPE_BOOLEAN, writing(RV_TYPE_BOOLEAN, 200));
    EXPECT_EQ(RvShaderEvalParamFuncInt(sg, truth.node, truth.index), 200 - 256); // sign-extended
    EXPECT_EQ(RvShaderEvalParamFuncUInt(sg, truth.node, truth.index), 4294967240u);
}

TEST_F(ShaderEval, pointers_come_from_results_of_their_own_type_only)
{
    RtMatrix matrix = RV_M4_IDENTITY;
    RtArray* const array = RvArray(1, 1, RV_TYPE_FLOAT, 1.0);
    const Input text =
        linkedInput(RV_TYPE_STRING, [](RtNode*, RtShaderGlobals* at) { at->out.STR = "hello"; });
    const Input pointer =
        linkedInput(RV_TYPE_POINTER, [&](RtNode*, RtShaderGlobals* at) { at->out.PTR = &matrix; });
    const Input arrays =
        linkedInput(RV_TYPE_ARRAY, [&](RtNode*, RtShaderGlobals* at) { at->out.ARRAY = array; });
    const Input matrices =
        linkedInput(RV_TYPE_MATRIX, [&](RtNode*, RtShaderGlobals* at) { at->out.pMTX = &matrix; });
    EXPECT_STREQ(RvShaderEvalParamFuncStr(sg, text.node, text.index), "hello");
    EXPECT_EQ(RvShaderEvalParamFuncPtr(sg, pointer.node, pointer.index), &matrix);
    EXPECT_EQ(RvShaderEvalParamFuncArray(sg, arrays.node, arrays.index), array);
    EXPECT_EQ(RvShaderEvalParamFuncMtx(sg, matrices.node, matrices.index), &matrix);
    for (const Input& other : { pointer, arrays, matrices })
        EXPECT_EQ(RvShaderEvalParamFuncStr(sg, other.node, other.index), nullptr);
    for (const Input& other : { text, arrays, matrices })
        EXPECT_EQ(RvShaderEvalParamFuncPtr(sg, other.node, other.index), nullptr);
    for (const Input& other : { text, pointer, matrices })
        EXPECT_EQ(RvShaderEvalParamFuncArray(sg, other.node, other.index), nullptr);
    for (const Input& other : { text, pointer, arrays })
        EXPECT_EQ(RvShaderEvalParamFuncMtx(sg, other.node, other.index), nullptr);
    RvArrayDestroy(array);
}

TEST_F(ShaderEval, parameters_without_a_link_read_as_they_are_stored)
{
    RtNode* const linked = shader("linked", RV_TYPE_RGB); // has a table, but other links
    RvNodeLink(floatShader("f", 9), "p_RGB.r", linked);
    for (RtNode* node : { shader("bare", RV_TYPE_RGB), linked })
        for (RtShaderGlobals* at : { &sg.sg, static_cast<RtShaderGlobals*>(nullptr) }) {
            const auto index = [&](const char* param) { return indexOf(node, param); };
            EXPECT_EQ(RvShaderEvalParamFuncByte(at, node, index("p_BYTE")), 7);
            EXPECT_EQ(RvShaderEvalParamFuncInt(at, node, index("p_INT")), -7);
            EXPECT_EQ(RvShaderEvalParamFuncUInt(at, node, index("p_UINT")), 70u);
            EXPECT_TRUE(RvShaderEvalParamFuncBool(at, node, index("p_BOOL")));
            EXPECT_EQ(RvShaderEvalParamFuncFlt(at, node, index("p_FLOAT")), 0.75f);
            EXPECT_EQ(RvShaderEvalParamFuncEnum(at, node, index("p_ENUM")), 1);
            EXPECT_EQ(describe(RvShaderEvalParamFuncRGBA(at, node, index("p_RGBA"))),
                      "0.5 0.25 0.125 0.75");
            EXPECT_EQ(describe(RvShaderEvalParamFuncVec(at, node, index("p_VECTOR"))), "1 2 3");
            EXPECT_EQ(describe(RvShaderEvalParamFuncPnt(at, node, index("p_POINT"))), "4 5 6");
            EXPECT_EQ(describe(RvShaderEvalParamFuncPnt2(at, node, index("p_POINT2"))), "7 8");
            EXPECT_STREQ(RvShaderEvalParamFuncStr(at, node, index("p_STRING")), "default text");
            EXPECT_EQ(RvShaderEvalParamFuncPtr(at, node, index("p_POINTER")),
                      &node_tools::pointees[7]);
            EXPECT_EQ(RvShaderEvalParamFuncArray(at, node, index("p_ARRAY")),
                      RvNodeGetArray(node, "p_ARRAY"));
            EXPECT_EQ(describe(*RvShaderEvalParamFuncMtx(at, node, index("p_MATRIX"))),
                      node_tools::everyTypeDefault(RV_TYPE_MATRIX));
        }
    // Without a context links are not followed.
    EXPECT_EQ(RvShaderEvalParamFuncRGB(nullptr, linked, indexOf(linked, "p_RGB")).r, 0.5f);
}

TEST_F(ShaderEval, what_is_no_parameter_reads_as_nothing)
{
    RtNode* const node = shader("s", RV_TYPE_RGB);
    const int count = RvNodeEntryGetNumParams(node->entry);
    for (int index : { -1, count, 1 << 30 }) {
        EXPECT_EQ(RvShaderEvalParamFuncFlt(sg, node, index), 0);
        EXPECT_EQ(RvShaderEvalParamFuncStr(sg, node, index), nullptr);
    }
    EXPECT_EQ(RvShaderEvalParamFuncInt(sg, nullptr, 0), 0);
    // The bits of a float are no pointer.
    for (const char* param : { "p_FLOAT", "p_RGBA", "p_POINT2", "p_INT" }) {
        EXPECT_EQ(RvShaderEvalParamFuncStr(sg, node, indexOf(node, param)), nullptr);
        EXPECT_EQ(RvShaderEvalParamFuncMtx(sg, node, indexOf(node, param)), nullptr);
    }
}

TEST_F(ShaderEval, an_integer_parameter_cannot_be_driven_by_a_float)
{
    RtNode* const node = shader("s", RV_TYPE_RGB);
    std::string param;
    RtNode* const linked = linkedTo(floatShader("f", 1.5f), RV_TYPE_FLOAT, &param);
    EXPECT_EQ(RvShaderEvalParamFuncInt(sg, linked, indexOf(linked, param.c_str())), 0);
    RvNodeLink(floatShader("g", 1.5f), "p_INT", node);
    EXPECT_EQ(takeProblem(),
              "unable to connect g to s.p_INT - types are not compatible (FLOAT to INT)");
}

TEST_F(ShaderEval, a_float_parameter_reads_the_mean_of_a_colour)
{
    RtNode* const node = shader("s", RV_TYPE_RGB);
    RvNodeLink(rgbShader("c", { 0.2f, 0.4f, 0.6f }), "p_FLOAT", node);
    EXPECT_FLOAT_EQ(RvShaderEvalParamFuncFlt(sg, node, indexOf(node, "p_FLOAT")), 0.4f);
}

TEST_F(ShaderEval, a_linked_component_leaves_the_others_as_they_are_stored)
{
    RtNode* const node = shader("s", RV_TYPE_RGB);
    const int index = indexOf(node, "p_RGB");
    RvNodeLink(floatShader("f", 2), "p_RGB.g", node);
    EXPECT_EQ(describe(RvShaderEvalParamFuncRGB(sg, node, index)), "0.5 2 0.125");
    RvNodeLink(rgbShader("c", { 3, 6, 9 }), "p_RGB.r", node);
    EXPECT_EQ(describe(RvShaderEvalParamFuncRGB(sg, node, index)), "6 2 0.125");
    EXPECT_EQ(RvShaderEvalParamFuncFlt(sg, node, index), 6); // the first component alone
    RvNodeUnlink(node, "p_RGB.r");
    EXPECT_EQ(describe(RvShaderEvalParamFuncRGB(sg, node, index)), "0.5 2 0.125");
}

TEST_F(ShaderEval, components_take_the_first_float_of_vectors_and_the_mean_of_colours)
{
    static const struct {
        int type;
        float expected;
    } cases[] = { { RV_TYPE_FLOAT, 3 },  { RV_TYPE_VECTOR, 3 }, { RV_TYPE_POINT, 3 },
                  { RV_TYPE_POINT2, 3 }, { RV_TYPE_RGB, 5 },    { RV_TYPE_RGBA, 5 } };
    for (const auto& row : cases) {
        RtNode* const node = shader("s", RV_TYPE_RGB);
        RvNodeLink(shader("source", row.type,
                          [](RtNode*, RtShaderGlobals* at) {
                              at->out.RGBA = { 3, 5, 7, 11 };
                          }),
                   "p_RGBA.a", node);
        EXPECT_EQ(RvShaderEvalParamFuncRGBA(sg, node, indexOf(node, "p_RGBA")).a, row.expected)
            << row.type;
        RvNodeDestroy(RvNodeLookUpByName("source"));
        RvNodeDestroy(node);
    }
}

TEST_F(ShaderEval, evaluating_an_input_leaves_the_result_of_the_shader_alone)
{
    RtNode* const node = shader("s", RV_TYPE_RGB);
    RtRGBA found = { 9, 9, 9, 9 };
    RvNodeLink(shader("source", RV_TYPE_RGB,
                      [&](RtNode*, RtShaderGlobals* at) {
                          found = at->out.RGBA;
                          at->out.RGBA = { 5, 5, 5, 5 };
                      }),
               "p_RGB", node);
    RvNodeLink(floatShader("component", 4), "p_RGBA.g", node);
    sg->out.RGBA = { 1, 2, 3, 4 };
    RvShaderEvalParamFuncRGB(sg, node, indexOf(node, "p_RGB"));
    EXPECT_EQ(describe(found), "0 0 0 0"); // it starts from nothing
    EXPECT_EQ(describe(sg->out.RGBA), "1 2 3 4");
    RvShaderEvalParamFuncRGBA(sg, node, indexOf(node, "p_RGBA"));
    EXPECT_EQ(describe(sg->out.RGBA), "1 2 3 4");
}

TEST_F(ShaderEval, linked_shaders_run_what_stands_before_them_are_counted_and_checked)
{
    RvNodeSetBool(RvUniverseGetOptions(), "shader_nan_checks", true);
    RtNode* const source = floatShader("bad", std::numeric_limits<float>::infinity());
    RvNodeLink(floatShader("b", 1), "@before", source);
    RtNode* const node = shader("s", RV_TYPE_RGB);
    sg->shader = node;
    for (const char* param : { "p_FLOAT", "p_RGB.b" }) {
        rv::threadStats()->shader_calls[0][RV_CALL_BEFORE] = 0;
        RvNodeLink(source, param, node);
        RvShaderEvalParamFuncRGB(
            sg, node, indexOf(node, std::string(param, 5) == "p_RGB" ? "p_RGB" : "p_FLOAT"));
        EXPECT_EQ(calls(RV_CALL_BEFORE), 1u) << param;
        EXPECT_EQ(takeProblem(), "found NaN/inf in bad.out.FLOAT when shading object (null)")
            << param;
        EXPECT_EQ(sg->shader, node);
    }
}
