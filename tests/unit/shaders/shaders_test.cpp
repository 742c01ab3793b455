#include "shaders/shaders.h"

#include "nodes.h"
#include "rv_universe.h"
#include "universe_fixture.h"

#include <math.h>

namespace {

using Shaders = Universe;

// The colour parameters of an installed shader type.
std::vector<const RtParamEntry*> colorsOf(const RtNodeEntry* entry)
{
    std::vector<const RtParamEntry*> colors;
    for (int i = 0; i < RvNodeEntryGetNumParams(entry); ++i) {
        const RtParamEntry* const param = RvNodeEntryGetParameter(entry, i);
        if (RvParamGetType(param) == RV_TYPE_RGB || RvParamGetType(param) == RV_TYPE_RGBA)
            colors.push_back(param);
    }
    return colors;
}

float redAfterSettingHalf(RtNode* node, const RtParamEntry* param)
{
    const char* const name = RvParamGetName(param);
    if (RvParamGetType(param) == RV_TYPE_RGB) {
        RvNodeSetRGB(node, name, 0.5f, 0.5f, 0.5f);
        return RvNodeGetRGB(node, name).r;
    }
    RvNodeSetRGBA(node, name, 0.5f, 0.5f, 0.5f, 0.5f);
    return RvNodeGetRGBA(node, name).r;
}

TEST_F(Shaders, shader_gamma_applies_to_every_color_but_the_scattering_radius)
{
    RvNodeSetFlt(RvUniverseGetOptions(), "shader_gamma", 2.2f);
    int changed = 0, kept = 0;
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(i);
        if (RvNodeEntryGetType(entry) != RV_NODE_SHADER)
            continue;
        RtNode* const node = RvNode(RvNodeEntryGetName(entry));
        ASSERT_TRUE(node);
        for (const RtParamEntry* param : colorsOf(entry)) {
            const bool is_radius = !strcmp(RvParamGetName(param), "sss_radius");
            EXPECT_EQ(redAfterSettingHalf(node, param), is_radius ? 0.5f : powf(0.5f, 2.2f))
                << RvNodeEntryGetName(entry) << "." << RvParamGetName(param);
            ++(is_radius ? kept : changed);
        }
    }
    EXPECT_EQ(kept, 1);
    EXPECT_GT(changed, 30);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Shaders, records_of_built_in_shaders_are_not_for_others_to_store)
{
    int kept = 0;
    char foreign = 0;
    for (int i = 0; i < RvGetNumInstalledNodes(); ++i) {
        const RtNodeEntry* const entry = RvNodeEntryLookUpByIndex(i);
        if (RvNodeEntryGetType(entry) != RV_NODE_SHADER)
            continue;
        RtNode* const node = RvNode(RvNodeEntryGetName(entry));
        RvNodeSetStr(node, "name", "n");
        if (RvNodeIs(node, "utility"))
            RvNodeSetStr(node, "shade_mode", "ambocc"); // the one mode that has a record
        rv::RvNodeInitialize(node);
        entry->methods->Update(node, node->params);
        takeProblems();
        if (void* const own = RvNodeGetLocalData(node)) {
            RvNodeSetLocalData(node, &foreign);
            EXPECT_EQ(takeProblem(), "n: the local data of its type is the library's");
            EXPECT_EQ(RvNodeGetLocalData(node), own) << RvNodeEntryGetName(entry);
            ++kept;
        }
        RvNodeDestroy(node);
    }
    EXPECT_EQ(kept, 8);
}

// Required: the two defaults differ.
TEST_F(Shaders, bump2d_is_flat_and_bump3d_bumps_until_a_height_is_set)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("bump2d"), "bump_height"), 0);
    EXPECT_EQ(RvNodeGetFlt(RvNode("bump3d"), "bump_height"), 1);
}

// Required.
TEST_F(Shaders, a_sky_is_black_until_its_intensity_is_set)
{
    EXPECT_EQ(RvNodeGetFlt(RvNode("sky"), "intensity"), 0);
}

} // namespace
