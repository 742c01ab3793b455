// Images under lights with filters.
#include "image_tools.h"

using namespace image_tools;

namespace {

class LightFilterImages : public Image {
protected:
    static RtNode* spot(const char* name, const RtPoint& position)
    {
        RtNode* const light = node_tools::named("spot_light", name);
        RvNodeSetArray(light, "position", RvArray(1, 1, RV_TYPE_POINT, position));
        RvNodeSetArray(light, "look_at", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, -4 }));
        RvNodeSetFlt(light, "cone_angle", 60);
        RvNodeSetFlt(light, "radius", 0.3f);
        RvNodeSetInt(light, "samples", 2);
        return light;
    }
    static RtNode* filter(const char* type) { return node_tools::named(type, type); }
    static void setFilters(RtNode* light, const std::vector<RtNode*>& filters)
    {
        RtArray* const array = RvArrayAllocate(unsigned(filters.size()), 1, RV_TYPE_NODE);
        for (unsigned i = 0; i < filters.size(); ++i)
            RvArraySetPtr(array, i, filters[i]);
        RvNodeSetArray(light, "filters", array);
    }
    // One filter of each type in front of a sphere and a wall, two of them over a point light, too.
    static void makeLitScene()
    {
        makeScene(32, 32);
        RtNode* const plaster = node_tools::named("lambert", "plaster");
        for (const char* shape : { "sphere", "wall" })
            RvNodeSetArray(RvNodeLookUpByName(shape), "shader",
                           RvArray(1, 1, RV_TYPE_NODE, plaster));
        RtNode* const doors = filter("barndoor");
        for (const char* param : { "barndoor_left_top", "barndoor_left_bottom" })
            RvNodeSetFlt(doors, param, 0.3f);
        RvNodeSetFlt(doors, "barndoor_left_edge", 0.2f);
        RtNode* const gobo = filter("gobo");
        RvNodeLink(node_tools::named("noise", "clouds"), "slidemap", gobo);
        RvNodeSetStr(RvNodeLookUpByName("clouds"), "coord_space", "world");
        RvNodeSetVec(RvNodeLookUpByName("clouds"), "scale", 3.3f, 3.3f, 3.3f);
        RvNodeSetArray(gobo, "rotate", RvArray(1, 1, RV_TYPE_FLOAT, 30.0));
        RtNode* const decay = filter("light_decay");
        RvNodeSetStr(decay, "decay_type", "linear");
        RvNodeSetFlt(decay, "decay_radius", 3);
        RtNode* const blocker = filter("light_blocker");
        RvNodeSetStr(blocker, "geometry_type", "sphere");
        RvNodeSetFlt(blocker, "density", 0.8f);
        RvNodeSetFlt(blocker, "width_edge", 0.5f);
        RtMatrix matrix;
        const RtVector place = { 0.2f, 0.3f, -2.6f };
        RvM4Translation(&matrix, &place);
        RvNodeSetMatrix(blocker, "geometry_matrix", &matrix);
        setFilters(spot("spot", { 1, 2, 1 }), { doors, gobo, decay, blocker });
        RtNode* const bulb = node_tools::named("point_light", "bulb");
        RvNodeSetArray(bulb, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ -2, 1, 0 }));
        setFilters(bulb, { decay, blocker });
        set("AA_samples", 2);
        set("bucket_size", 8);
    }
    static double brightness(const std::vector<RtRGBA>& image)
    {
        double sum = 0;
        for (const RtRGBA& pixel : image)
            sum += double(pixel.r + pixel.g + pixel.b);
        return sum;
    }
};

} // namespace

TEST_F(LightFilterImages, concurrent_workers_give_the_same_image_bit_for_bit)
{
    makeLitScene();
    const std::vector<RtRGBA> image = imageOf(1);
    ASSERT_EQ(missingPixels(), 0u);
    for (int threads : { 2, 3, 8 })
        EXPECT_TRUE(areSame(imageOf(threads), image)) << threads;
    // Without any one of the filters it is another image.
    const double all = brightness(image);
    EXPECT_GT(all, 32 * 32 * 0.1);
    RtNode* const light = RvNodeLookUpByName("spot");
    const std::vector<const char*> types = { "barndoor", "gobo", "light_decay", "light_blocker" };
    for (const char* missing : types) {
        std::vector<RtNode*> others;
        for (const char* type : types)
            if (type != missing)
                others.push_back(RvNodeLookUpByName(type));
        setFilters(light, others);
        EXPECT_GT(std::fabs(brightness(imageOf(2)) - all), 0.005 * all) << missing;
    }
}
