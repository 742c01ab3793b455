// Takes each line of the input as an output statement.
#include "fuzz_tools.h"

#include "aovs/output_statements.h"
#include "nodes.h"
#include "strpool.h"

#include <string>

static RtNode* named(const char* type, const char* name)
{
    RtNode* const node = RvNode(type);
    RvNodeSetStr(node, "name", name);
    rv::RvNodeInitialize(node);
    return node;
}

// Drivers of both kinds and filters of every output type.
static void makeTargets()
{
    named("box_filter", "box");
    named("closest_filter", "closest");
    named("heatmap_filter", "heat");
    named("driver_exr", "exr");
    named("driver_png", "png");
    named("lambert", "shader");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const fuzz::SilentUniverse universe;
    makeTargets();
    RtAOVOutputStore store = {};
    rv::registerAOV(store, "AA_offset", RV_TYPE_POINT2);
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        rv::parseStatement(store, text.substr(begin, end - begin).c_str());
        begin = end + 1;
    }
    for (const RtAOV& aov : store.aovs)
        rv::releaseString(aov.name);
    return 0;
}
