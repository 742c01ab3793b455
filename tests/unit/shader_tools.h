// What the tests of shading share: shaders that run a function of the test.
#ifndef RV_SHADER_TOOLS_H
#define RV_SHADER_TOOLS_H

#include "node_tools.h"
#include "rv_shaderglobals.h"
#include "shading_state.h"

#include <functional>
#include <map>

namespace shader_tools {

using Program = std::function<void(RtNode*, RtShaderGlobals*)>;

inline std::map<const RtNode*, Program>& programs()
{
    static std::map<const RtNode*, Program> all;
    return all;
}

inline void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const auto found = programs().find(node);
    if (found != programs().end())
        found->second(node, sg);
}

inline const RtNodeMethods& shaderMethods()
{
    static const RtCommonMethods common = {
        .Parameters =
            [](RtList* params, RtMetaDataStore* metadata) {
                node_tools::declareEveryType(params, metadata, true);
            },
        .Initialize = nullptr,
        .Update = nullptr,
        .Finish = nullptr,
    };
    static const RtShaderMethods shader = { .Evaluate = evaluate };
    static const RtNodeMethods methods = { &common, &shader };
    return methods;
}

// A shader of that output type, with one parameter p_<TYPE> of every type. A fresh one of the
// universe does nothing until it gets a program.
inline RtNode* shader(const char* name, int output_type, const Program& program = {})
{
    const std::string type = "test_shader_" + std::to_string(output_type);
    if (!RvNodeEntryLookUp(type.c_str()))
        RvNodeInstall(RV_NODE_SHADER, output_type, type.c_str(), "", &shaderMethods(), RV_VERSION);
    RtNode* const node = node_tools::named(type.c_str(), name);
    programs()[node] = program;
    if (!program)
        programs().erase(node);
    return node;
}

// Shaders that give one value.
inline RtNode* floatShader(const char* name, float value)
{
    return shader(name, RV_TYPE_FLOAT,
                  [value](RtNode*, RtShaderGlobals* sg) { sg->out.FLT = value; });
}
inline RtNode* rgbShader(const char* name, const RtRGB& value)
{
    return shader(name, RV_TYPE_RGB,
                  [value](RtNode*, RtShaderGlobals* sg) { sg->out.RGB = value; });
}

inline int indexOf(const RtNode* node, const char* param)
{
    const RtParamEntry* const entry = RvNodeEntryLookUpParameter(node->entry, param);
    return entry ? entry->index : -1;
}

// A context with a private state, as shaders are called with.
struct Context {
    Context()
    {
        sg.state = &state;
        rv::resetState(&state, nullptr);
        rv::resetContext(&sg);
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    operator RtShaderGlobals*() { return &sg; }
    RtShaderGlobals* operator->() { return &sg; }

    RtShadingState state;
    RtShaderGlobals sg;
};

} // namespace shader_tools

#endif
