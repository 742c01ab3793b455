// What the tests of light filters share: a spot light over a floor, and filters that are run on
// their own.
#ifndef RV_FILTER_TOOLS_H
#define RV_FILTER_TOOLS_H

#include "light_tools.h"
#include "shader_tools.h"

namespace filter_tools {

using namespace light_tools;

inline void updateNode(RtNode* node)
{
    rv::RvNodeInitialize(node);
    node->entry->methods->Update(node, node->params);
}

class Filtered : public Lit {
protected:
    void TearDown() override
    {
        shader_tools::programs().clear();
        Lit::TearDown();
    }

    // At height 10 over the origin, looking down: its image covers [-10, 10] of the floor. Right
    // in it is -y, up is +x.
    RtNode* lamp()
    {
        RtNode* const node = spotLight({ 0, 0, 10 }, { 0, 0, 0 });
        RvNodeSetFlt(node, "cone_angle", 90);
        RvNodeSetBool(node, "cast_shadows", false);
        return node;
    }
    static RtPoint onFloor(float u, float v) { return { 10 - 20 * v, 10 - 20 * u, 0 }; }

    // A point that is lit by light 1 of that node, as filters find it.
    RtShaderGlobals litBy(RtNode* light)
    {
        RtShaderGlobals sg = surface();
        sg.light = light;
        sg.light_dir = { 0, 0, 1 };
        sg.light_dist = 10;
        sg.light_unoccluded = RV_RGB_WHITE;
        return sg;
    }
};

} // namespace filter_tools

#endif
