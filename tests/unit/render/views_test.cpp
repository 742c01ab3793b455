// Whole images of light filters and of the shaders that show what the renderer knows.
#include "render/plates.h"

namespace {

using namespace plates;
using node_tools::named;

class Views : public Exposing {
protected:
    static RtNode* view(const char* name, const char* color_mode, const char* shade_mode)
    {
        RtNode* const node = named("utility", name);
        RvNodeSetStr(node, "color_mode", color_mode);
        RvNodeSetStr(node, "shade_mode", shade_mode);
        return node;
    }
    // A square across the view, of two triangles.
    static void makeCard(const char* name, float x, float y, RtNode* shader)
    {
        const float s = 0.4f, z = -3;
        RtNode* const mesh = named("polymesh", name);
        RvNodeSetArray(mesh, "vlist",
                       RvArray(4, 1, RV_TYPE_POINT, RtPoint{ x - s, y - s, z },
                               RtPoint{ x + s, y - s, z }, RtPoint{ x + s, y + s, z },
                               RtPoint{ x - s, y + s, z }));
        RvNodeSetArray(mesh, "nsides", RvArray(1, 1, RV_TYPE_UINT, 4u));
        RvNodeSetArray(mesh, "vidxs", RvArray(4, 1, RV_TYPE_UINT, 0u, 1u, 2u, 3u));
        setShader(mesh, shader);
    }
    static void makeStage()
    {
        RtNode* const floor = named("plane", "floor");
        RvNodeSetPnt(floor, "point", 0, -1, 0);
        RvNodeSetVec(floor, "normal", 0, 1, 0);
        setShader(floor, named("lambert", "paint"));
        RtNode* const spot = named("spot_light", "spot");
        RvNodeSetArray(spot, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 3, -4 }));
        RvNodeSetArray(spot, "look_at", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, -1, -4.5f }));
        RvNodeSetFlt(spot, "intensity", 4);
        RtNode* const gobo = named("gobo", "gobo");
        RvNodeLink(view("slide", "uv", "flat"), "slidemap", gobo);
        RtNode* const doors = named("barndoor", "doors");
        RvNodeSetFlt(doors, "barndoor_left_top", 0.3f);
        RvNodeSetFlt(doors, "barndoor_left_edge", 0.1f);
        RtNode* const blocker = named("light_blocker", "blocker");
        RvNodeSetStr(blocker, "geometry_type", "sphere");
        RvNodeSetFlt(blocker, "density", 0.5f);
        const RtVector place = { 0.3f, -1, -4 };
        RtMatrix matrix;
        RvM4Translation(&matrix, &place);
        RvNodeSetMatrix(blocker, "geometry_matrix", &matrix);
        RvNodeSetArray(spot, "filters", RvArray(3, 1, RV_TYPE_NODE, doors, gobo, blocker));
    }
    static void makeScene()
    {
        RvNodeSetPtr(options(), "camera", named("persp_camera", "camera"));
        makeStage();
        RtNode* const wires = named("wireframe", "wires");
        RvNodeSetRGB(wires, "fill_color", 0, 0, 1);
        RvNodeSetRGB(wires, "line_color", 1, 0, 0);
        RvNodeSetFlt(wires, "line_width", 2);
        makeCard("wire card", -0.5f, 0.5f, wires);
        makeCard("occluded card", 0.5f, 0.5f, named("ambient_occlusion", "occlusion"));
        makeCard("hair card", -0.5f, -0.5f, named("hair", "strand"));
        makeCard("named card", 0.5f, -0.5f, view("names", "obj", "ambocc"));
        set("AA_samples", 1);
        set("GI_diffuse_samples", 2);
        setSize(32, 32, 8);
        named("box_filter", "box");
        named("plates", "plates");
        setOutputs({ "RGB RGB box plates" });
    }
    static Plate render(int threads)
    {
        set("threads", threads);
        EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
        EXPECT_EQ(takeProblems(), "");
        return plate("RGB");
    }
};

TEST_F(Views, concurrent_workers_show_the_same_image_bit_for_bit)
{
    makeScene();
    const Plate image = render(1);
    EXPECT_TRUE(image.isComplete());
    int lines = 0, fills = 0, lit = 0;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            const std::vector<float> c = image.pixel(x, y);
            lines += c[0] == 1 && c[1] == 0 && c[2] == 0;
            fills += c[0] == 0 && c[1] == 0 && c[2] == 1;
            lit += y > 16 && c[0] > 0 && c[1] > 0 && c[2] == 0; // the slide has no blue
            for (float channel : c)
                EXPECT_TRUE(std::isfinite(channel)) << x << " " << y;
        }
    // The card has 7 by 7 pixels. Lines of two pixels cover its border and three of its diagonals.
    EXPECT_EQ(fills, 5 * 5 - (5 + 4 + 4));
    EXPECT_EQ(lines, 7 * 7 - fills);
    EXPECT_GT(lit, 30);
    for (int threads : { 7, 2 })
        EXPECT_TRUE(render(threads).isSameAs(image)) << threads;
}

} // namespace
