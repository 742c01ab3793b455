// shader_eval: running shaders, and the values of shader parameters that may be linked to other
// shaders (rv_shaderglobals.h). Runs on all render threads at once, each on its own contexts.
#include "maths.h"
#include "nodes.h"
#include "options.h"
#include "rays.h"
#include "report_once.h"
#include "rv_msg.h"
#include "shaderglobals.h"
#include "shading_state.h"

namespace rv {

// ---- Nesting ----

// Shaders that are being evaluated, innermost first. Links that lead back into them would never
// end.
struct Evaluation {
    const RtNode* node;
    const RtShaderGlobals* parent; // of the context: points that one ray reached have the same
    const Evaluation* outer;       // null below the first of a thread
    int depth;
    bool is_root; // evaluated at a point of its own, not as a part of the one outside of it
};
static thread_local const Evaluation* innermost = nullptr;

// Each takes some kilobytes of the thread's stack.
static constexpr int nesting_limit = 512;

static std::atomic<bool> nesting_is_reported;

void startReportingNesting() { nesting_is_reported = false; }

static void reportNesting(const RtNode* node)
{
    if (isFirst(nesting_is_reported))
        RvMsgWarning("%s: shader leads back to itself and is not evaluated again",
                     RvNodeGetName(node));
}

// The result of the shader is already being worked out at this point, or at one beside it: the
// contexts of bump are copies. A context that a shader got from a ray of its own is another point.
static bool isCircular(const RtNode* node, const RtShaderGlobals* parent)
{
    for (const Evaluation* e = innermost; e; e = e->is_root ? nullptr : e->outer)
        if (e->node == node && e->parent == parent)
            return true;
    return false;
}

// ---- Evaluation ----

static void (*methodOf(const RtNode* node))(RtNode*, RtShaderGlobals*)
{
    if (node->entry->type != RV_NODE_SHADER || !node->entry->kind_methods)
        return nullptr;
    return static_cast<const RtShaderMethods*>(node->entry->kind_methods)->Evaluate;
}

static void countCall(const RtShaderGlobals* sg, RtShaderCallRow row)
{
    const RtShadingState* const state = sg->state;
    if (sg->stage == RV_STAGE_DISPLACEMENT || (state && state->uncounted))
        return;
    ++threadStats()->shader_calls[state ? state->pass : RV_PASS_PIXELS][row];
}

static int testedFloats(int output_type)
{
    switch (output_type) {
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    default: return 0;
    }
}

static void checkResult(const RtNode* node, const RtShaderGlobals& sg)
{
    const int type = node->entry->output_type;
    float values[4];
    memcpy(values, static_cast<const void*>(&sg.out), sizeof values);
    for (int i = 0; i < testedFloats(type); ++i)
        if (!RvIsFinite(values[i])) {
            RvMsgWarning("found NaN/inf in %s.out.%s when shading object %s", RvNodeGetName(node),
                         silentTypeName(type), sg.object ? RvNodeGetName(sg.object) : "(null)");
            return;
        }
}

static void evaluate(RtNode* node, RtShaderGlobals* sg, RtShaderCallRow row, bool is_root)
{
    const auto method = methodOf(node);
    if (!method)
        return;
    const int depth = innermost ? innermost->depth + 1 : 0;
    if (depth >= nesting_limit || (!is_root && isCircular(node, sg->parent))) {
        reportNesting(node);
        return;
    }
    const Evaluation evaluation = { node, sg->parent, innermost, depth, is_root };
    innermost = &evaluation;
    RtNode* const outer_shader = sg->shader;
    if (RtNode* const before = node->before) {
        sg->shader = before;
        countCall(sg, RV_CALL_BEFORE);
        evaluate(before, sg, row, false);
    }
    countCall(sg, row);
    sg->shader = node;
    method(node, sg);
    sg->shader = outer_shader;
    if (render_options && render_options->shader_nan_checks)
        checkResult(node, *sg);
    innermost = evaluation.outer;
}

RtShaderCallRow callRow(const RtShaderGlobals* sg)
{
    return sg->ray_type & RV_RAY_SHADOW ? RV_CALL_SHADOW : RV_CALL_PRIMARY;
}

void evaluateShader(RtNode* node, RtShaderGlobals* sg, RtShaderCallRow row)
{
    if (node && sg)
        evaluate(node, sg, row, row != RV_CALL_LIGHT_FILTER);
}

} // namespace rv

void RvShaderEvaluate(RtNode* node, RtShaderGlobals* sg)
{
    if (node && sg)
        rv::evaluate(node, sg, rv::callRow(sg), false);
}

namespace rv {

// ---- Parameters ----

// Evaluating an input leaves the result of the shader that asks for it alone.
class SavedOutput {
public:
    explicit SavedOutput(RtShaderGlobals* context) : sg(context), out(context->out)
    {
        sg->out = {};
    }
    ~SavedOutput() { sg->out = out; }
    SavedOutput(const SavedOutput&) = delete;
    SavedOutput& operator=(const SavedOutput&) = delete;

private:
    RtShaderGlobals* sg;
    RtParamValue out;
};

static RtParamValue storedValue(const RtNode* node, const RtParamEntry* param)
{
    if (param->type != RV_TYPE_MATRIX)
        return load(paramStorage(node, param), param->type);
    RtParamValue value = {};
    value.PTR = matrixBytes(node, param);
    return value;
}

// A value whose type is that of T.
template <class T> static RtParamValue loadAs(const RtNode* node, const RtParamEntry* param)
{
    RtParamValue value;
    memcpy(static_cast<void*>(&value), paramStorage(node, param), sizeof(T));
    return value;
}

static float mean(const RtRGB& color) { return (color.r + color.g + color.b) / 3; }

// What an output amounts to as one float.
static float asFloat(const RtParamValue& out, int type)
{
    switch (type) {
    case RV_TYPE_FLOAT:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_POINT2: return out.FLT;
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA: return mean(out.RGB);
    default: return 0;
    }
}

static RtRGB asRGB(const RtParamValue& out, int type)
{
    switch (type) {
    case RV_TYPE_FLOAT: return { out.FLT, out.FLT, out.FLT };
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return out.RGB;
    case RV_TYPE_POINT2: return { out.PNT2.x, out.PNT2.y, 0 };
    default: return RV_RGB_BLACK;
    }
}

static RtRGBA asRGBA(const RtParamValue& out, int type)
{
    switch (type) {
    case RV_TYPE_RGBA:
    // Required: of a POINT2 the stored bits, with whatever the shader left beyond y.
    case RV_TYPE_POINT2: return out.RGBA;
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: {
        const RtRGB color = asRGB(out, type);
        return { color.r, color.g, color.b, 1 };
    }
    default: return RV_RGBA_BLACK;
    }
}

// Required: zero of a POINT2.
static RtVector asVector(const RtParamValue& out, int type)
{
    const RtRGB color = type == RV_TYPE_POINT2 ? RV_RGB_BLACK : asRGB(out, type);
    return { color.r, color.g, color.b };
}

// Required: zero of vectors and points.
static RtPoint2 asPoint2(const RtParamValue& out, int type)
{
    if (type == RV_TYPE_VECTOR || type == RV_TYPE_POINT)
        return {};
    const RtRGB color = asRGB(out, type);
    return { color.r, color.g };
}

// Required: 0 of floats and colours, which are not converted.
static int asInt(const RtParamValue& out, int type)
{
    switch (type) {
    case RV_TYPE_BOOLEAN: return static_cast<int8_t>(out.BYTE);
    case RV_TYPE_BYTE: return out.BYTE;
    case RV_TYPE_INT:
    case RV_TYPE_UINT: return out.INT;
    default: return 0;
    }
}

static unsigned asUInt(const RtParamValue& out, int type) { return unsigned(asInt(out, type)); }
static uint8_t asByte(const RtParamValue& out, int type) { return uint8_t(asInt(out, type)); }
static bool asBool(const RtParamValue& out, int type) { return asInt(out, type) != 0; }

static RtNode* linkedNode(uintptr_t slot)
{
    return reinterpret_cast<RtNode*>(slot & ~component_marker); // NOLINT: tagged pointer
}

// The stored value with the floats of the shaders that its components are linked to.
static RtParamValue withComponents(RtParamValue value, const RtLinkRecord& link,
                                   RtShaderGlobals* sg)
{
    float* const components = &value.RGBA.r;
    for (int c = 0; c < 4; ++c)
        if (RtNode* const source = linkedNode(link.slot[c])) {
            sg->out = {};
            RvShaderEvaluate(source, sg);
            components[c] = asFloat(sg->out, source->entry->output_type);
        }
    return value;
}

static const RtParamEntry* paramAt(const RtNode* node, int index)
{
    const bool exists = node && index >= 0 && unsigned(index) < node->entry->num_params;
    return exists ? &node->entry->params[index] : nullptr;
}

static const RtLinkRecord* linkOf(const RtNode* node, int index)
{
    return node->links && node->links[index].slot[0] ? &node->links[index] : nullptr;
}

// What a function of the family returns: `stored` takes it out of a value of the parameter's own
// type, `convert` out of the result of a linked shader.
template <class T, int type, class Stored>
static T evalParam(RtShaderGlobals* sg, const RtNode* node, int index, Stored stored,
                   T (*convert)(const RtParamValue&, int))
{
    const RtParamEntry* const param = paramAt(node, index);
    if (!param)
        return T{};
    const RtLinkRecord* const link = linkOf(node, index);
    if (!link || !sg) {
        if (param->type == type) // nearly always, and a copy of known size is much faster
            return stored(loadAs<T>(node, param), param->type);
        return stored(storedValue(node, param), param->type);
    }
    const SavedOutput saved(sg);
    if (link->slot[0] & component_marker)
        return stored(withComponents(storedValue(node, param), *link, sg), param->type);
    RtNode* const source = linkedNode(link->slot[0]);
    RvShaderEvaluate(source, sg);
    return convert(sg->out, source->entry->output_type);
}

// Pointers are taken from values of their own type only: of others the bits are no pointer. Nodes
// travel as plain pointers.
template <int type> static void* pointerOf(const RtParamValue& value, int value_type)
{
    return typeAccepts(value_type, type) ? value.PTR : nullptr;
}

template <int type> static void* evalPointer(RtShaderGlobals* sg, const RtNode* node, int index)
{
    // Matrices lie elsewhere.
    constexpr int direct = type == RV_TYPE_MATRIX ? RV_TYPE_NONE : type;
    return evalParam<void*, direct>(sg, node, index, pointerOf<type>, pointerOf<type>);
}

} // namespace rv

/* suffix, type, its code, member of the value, conversion of the result of a linked shader */
#define RV_EVALUATED_TYPES(X)                                                                      \
    X(Byte, uint8_t, RV_TYPE_BYTE, BYTE, asByte)                                                   \
    X(Int, int, RV_TYPE_INT, INT, asInt)                                                           \
    X(UInt, unsigned, RV_TYPE_UINT, UINT, asUInt)                                                  \
    X(Flt, float, RV_TYPE_FLOAT, FLT, asFloat)                                                     \
    X(Enum, int, RV_TYPE_ENUM, ENUM, asInt)                                                        \
    X(RGB, RtRGB, RV_TYPE_RGB, RGB, asRGB)                                                         \
    X(RGBA, RtRGBA, RV_TYPE_RGBA, RGBA, asRGBA)                                                    \
    X(Vec, RtVector, RV_TYPE_VECTOR, VEC, asVector)                                                \
    X(Pnt, RtPoint, RV_TYPE_POINT, PNT, asVector)                                                  \
    X(Pnt2, RtPoint2, RV_TYPE_POINT2, PNT2, asPoint2)

#define RV_DEFINE_EVAL(Suffix, Type, code, member, convert)                                        \
    Type RvShaderEvalParamFunc##Suffix(RtShaderGlobals* sg, const RtNode* node, int index)         \
    {                                                                                              \
        const auto stored = [](const RtParamValue& value, int) { return value.member; };           \
        return rv::evalParam<Type, code>(sg, node, index, stored, rv::convert);                    \
    }

RV_EVALUATED_TYPES(RV_DEFINE_EVAL)

bool RvShaderEvalParamFuncBool(RtShaderGlobals* sg, const RtNode* node, int index)
{
    const auto stored = [](const RtParamValue& value, int) { return value.BYTE != 0; };
    return rv::evalParam<bool, RV_TYPE_BOOLEAN>(sg, node, index, stored, rv::asBool);
}

const char* RvShaderEvalParamFuncStr(RtShaderGlobals* sg, const RtNode* node, int index)
{
    return static_cast<const char*>(rv::evalPointer<RV_TYPE_STRING>(sg, node, index));
}

void* RvShaderEvalParamFuncPtr(RtShaderGlobals* sg, const RtNode* node, int index)
{
    return rv::evalPointer<RV_TYPE_POINTER>(sg, node, index);
}

RtArray* RvShaderEvalParamFuncArray(RtShaderGlobals* sg, const RtNode* node, int index)
{
    return static_cast<RtArray*>(rv::evalPointer<RV_TYPE_ARRAY>(sg, node, index));
}

RtMatrix* RvShaderEvalParamFuncMtx(RtShaderGlobals* sg, const RtNode* node, int index)
{
    return static_cast<RtMatrix*>(rv::evalPointer<RV_TYPE_MATRIX>(sg, node, index));
}
