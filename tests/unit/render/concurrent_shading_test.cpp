// Images of the built-in shaders and lights, rendered by many threads.
#include "render/plates.h"

namespace {

using namespace plates;
using node_tools::named;

class ConcurrentShading : public Exposing {
protected:
    static constexpr int side = 50, bucket_side = 16;

    static RtNode* diffuse(const char* name, const RtRGB& color)
    {
        RtNode* const shader = named("lambert", name);
        RvNodeSetRGB(shader, "Kd_color", color.r, color.g, color.b);
        return shader;
    }
    static RtNode* ball(const char* name, const std::vector<RtPoint>& keys, double radius,
                        RtNode* shader)
    {
        RtNode* const node = named("sphere", name);
        RvNodeSetArray(node, "center",
                       RvArrayConvert(1, int(keys.size()), RV_TYPE_POINT,
                                      const_cast<RtPoint*>(keys.data()), true));
        RvNodeSetArray(node, "radius", RvArray(1, 1, RV_TYPE_FLOAT, radius));
        setShader(node, shader);
        return node;
    }
    static void makeWall(const char* name, const RtPoint& point, const RtVector& normal,
                         RtNode* shader)
    {
        RtNode* const node = named("plane", name);
        RvNodeSetPnt(node, "point", point.x, point.y, point.z);
        RvNodeSetVec(node, "normal", normal.x, normal.y, normal.z);
        setShader(node, shader);
    }
    static void makeRoom()
    {
        RtNode* const white = diffuse("white", { 0.9f, 0.9f, 0.9f });
        makeWall("floor", { 0, -1, 0 }, { 0, 1, 0 }, white);
        makeWall("back", { 0, 0, -6 }, { 0, 0, 1 }, white);
        RtNode* const red = named("standard", "red");
        RvNodeSetFlt(red, "diffuse_roughness", 0.5f);
        RtNode* const paint = named("flat", "paint");
        RvNodeSetRGB(paint, "color", 0.8f, 0.1f, 0.1f);
        RvNodeLink(paint, "Kd_color", red);
        makeWall("left", { -2, 0, 0 }, { 1, 0, 0 }, red);
    }
    // A pyramid, and the same once more: turned, smaller and elsewhere.
    static void makePyramids()
    {
        RtNode* const mesh = named("polymesh", "pyramid");
        RvNodeSetArray(mesh, "vlist",
                       RvArray(5, 1, RV_TYPE_POINT, RtPoint{ -1, -1, -4 }, RtPoint{ 0.4f, -1, -4 },
                               RtPoint{ 0.4f, -1, -5.4f }, RtPoint{ -1, -1, -5.4f },
                               RtPoint{ -0.3f, 0.7f, -4.7f }));
        RvNodeSetArray(mesh, "nsides", RvArray(5, 1, RV_TYPE_UINT, 4u, 3u, 3u, 3u, 3u));
        RvNodeSetArray(mesh, "vidxs",
                       RvArray(16, 1, RV_TYPE_UINT, 3u, 2u, 1u, 0u, 0u, 1u, 4u, 1u, 2u, 4u, 2u, 3u,
                               4u, 3u, 0u, 4u));
        RvNodeSetBool(mesh, "smoothing", true);
        setShader(mesh, diffuse("clay", { 0.3f, 0.5f, 0.9f }));
        const RtVector size = { 0.7f, 0.7f, 0.7f }, place = { 1.2f, 0.6f, -1.6f };
        RtMatrix matrix, move;
        RvM4Scaling(&matrix, &size);
        RvM4Translation(&move, &place);
        RvM4Mult(&matrix, &matrix, &move);
        RtNode* const instance = named("ginstance", "pyramid again");
        RvNodeSetPtr(instance, "node", mesh);
        RvNodeSetArray(instance, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
    }
    static void makeBalls()
    {
        RtNode* const brass = named("standard", "brass");
        RvNodeSetFlt(brass, "Kd", 0.2f);
        RvNodeSetFlt(brass, "Ks", 0.6f);
        RvNodeSetFlt(brass, "Kr", 0.2f);
        RvNodeSetStr(brass, "specular_brdf", "cook_torrance");
        RvNodeSetFlt(brass, "specular_roughness", 0.4f);
        ball("moving", { { -1, -0.5f, -3.2f }, { -0.8f, -0.4f, -3.2f } }, 0.5, brass);
        RtNode* const glass = named("standard", "glass");
        RvNodeSetFlt(glass, "Kd", 0);
        RvNodeSetFlt(glass, "Kr", 1);
        RvNodeSetFlt(glass, "Kt", 1);
        RvNodeSetBool(glass, "Fresnel", true);
        RvNodeSetFlt(glass, "Krn", 0.04f);
        RvNodeSetFlt(glass, "IOR", 1.5f);
        RvNodeSetRGB(glass, "transmittance", 0.8f, 0.95f, 0.9f);
        RvNodeSetBool(ball("glass ball", { { 0.1f, -0.5f, -3 } }, 0.45, glass), "opaque", false);
        RtNode* const tinted = diffuse("tinted", { 0.9f, 0.8f, 0.2f });
        RvNodeSetRGB(tinted, "opacity", 0.3f, 0.5f, 0.8f);
        RtNode* const pane = named("disc", "pane");
        RvNodeSetPnt(pane, "center", 0.9f, -0.2f, -2.6f);
        RvNodeSetVec(pane, "normal", -0.4f, 0, 1);
        RvNodeSetFlt(pane, "radius", 0.6f);
        RvNodeSetBool(pane, "opaque", false);
        setShader(pane, tinted);
    }
    static void makeLights()
    {
        RtNode* const lamp = named("point_light", "lamp");
        RvNodeSetArray(lamp, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ -0.5f, 1.5f, -3 }));
        RvNodeSetFlt(lamp, "radius", 0.3f);
        RvNodeSetFlt(lamp, "intensity", 6);
        RvNodeSetInt(lamp, "samples", 2);
        RtNode* const decay = named("light_decay", "decay");
        RvNodeSetStr(decay, "decay_type", "quadratic");
        RvNodeSetArray(lamp, "filters", RvArray(1, 1, RV_TYPE_NODE, decay));
        RtNode* const spot = named("spot_light", "spot");
        RvNodeSetArray(spot, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 2, 2, -1 }));
        RvNodeSetArray(spot, "look_at", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, -0.5f, -4 }));
        RvNodeSetFlt(spot, "radius", 0.2f);
        RvNodeSetFlt(spot, "cone_angle", 50);
        RvNodeSetFlt(spot, "penumbra_angle", 10);
        RtNode* const sun = named("distant_light", "sun");
        RvNodeSetVec(sun, "direction", 0.3f, -1, -0.6f);
        RvNodeSetFlt(sun, "angle", 3);
        RvNodeSetFlt(sun, "intensity", 0.4f);
        RvNodeSetRGB(sun, "shadow_color", 0.05f, 0.05f, 0.1f);
        RvNodeSetFlt(named("ambient_light", "ambient"), "intensity", 0.05f);
    }
    static void makeShadedScene(int AA_samples)
    {
        RtNode* const camera = named("persp_camera", "camera");
        RvNodeSetFlt(camera, "shutter_end", 1);
        RvNodeSetArray(camera, "aperture_size", RvArray(1, 1, RV_TYPE_FLOAT, 0.02));
        RvNodeSetArray(camera, "focus_distance", RvArray(1, 1, RV_TYPE_FLOAT, 3.0));
        RvNodeSetPtr(options(), "camera", camera);
        makeRoom();
        makePyramids();
        makeBalls();
        makeLights();
        const struct {
            const char* option;
            int value;
        } numbers[] = {
            { "AA_samples", AA_samples }, { "GI_diffuse_depth", 2 },  { "GI_diffuse_samples", 2 },
            { "GI_glossy_depth", 1 },     { "GI_glossy_samples", 2 }, { "GI_reflection_depth", 2 },
            { "GI_refraction_depth", 3 },
        };
        for (const auto& n : numbers)
            set(n.option, n.value);
        setSize(side, side, bucket_side);
        named("gaussian_filter", "smooth");
        named("closest_filter", "nearest");
        named("plates", "plates");
        setOutputs({ "RGBA RGBA smooth plates", "Z FLOAT nearest plates",
                     "indirect_diffuse RGB smooth plates", "direct_specular RGB smooth plates",
                     "refraction RGB smooth plates" });
    }

    using Outputs = std::map<std::string, Plate>;
    static Outputs render(int threads)
    {
        set("threads", threads);
        EXPECT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
        EXPECT_EQ(takeProblems(), "");
        for (const auto& [name, plate] : exposure().outputs)
            EXPECT_TRUE(plate.isComplete()) << name;
        return exposure().outputs;
    }
    static void expectSame(const Outputs& got, const Outputs& want, const std::string& what)
    {
        for (const auto& [name, plate] : want)
            EXPECT_TRUE(got.at(name).isSameAs(plate)) << name << ", " << what;
    }
    static int64_t rays(RtRayRow row)
    {
        return sumOf([row](const RtStats& s) { return s.rays.rows[RV_PASS_PIXELS][row].rays; });
    }
    // Rays of all kinds, which depend on the scene alone.
    static std::vector<int64_t> rayCounts()
    {
        std::vector<int64_t> counts;
        for (int row = 0; row < RV_ROW_COUNT; ++row)
            counts.push_back(rays(RtRayRow(row)));
        return counts;
    }
    static float greatest(const Plate& plate)
    {
        return *std::max_element(plate.values.begin(), plate.values.end());
    }
};

TEST_F(ConcurrentShading, concurrent_workers_shade_the_same_image_bit_for_bit)
{
    makeShadedScene(2);
    const Outputs image = render(1);
    const std::vector<int64_t> counts = rayCounts();
    for (const auto& [name, plate] : image)
        EXPECT_GT(greatest(plate), 0) << name;
    for (RtRayRow row :
         { RV_ROW_SHADOW, RV_ROW_REFLECTION, RV_ROW_REFRACTION, RV_ROW_DIFFUSE, RV_ROW_GLOSSY })
        EXPECT_GT(counts[row], 1000) << row;
    EXPECT_EQ(exposure().buckets, 16u);
    for (int threads : { 8, 2, 3, 16 }) {
        expectSame(render(threads), image, std::to_string(threads) + " threads");
        EXPECT_EQ(rayCounts(), counts) << threads;
    }
}

TEST_F(ConcurrentShading, concurrent_workers_shade_the_same_image_in_every_order_of_buckets)
{
    makeShadedScene(1);
    const Outputs image = render(1);
    RtArray* const list = RvArrayAllocate(16, 1, RV_TYPE_POINT2);
    for (unsigned i = 0; i < 16; ++i)
        RvArraySetPnt2(list, i,
                       (RtPoint2{ float(i % 4) * bucket_side, float(i / 4) * bucket_side }));
    RvNodeSetArray(options(), "buckets", list);
    for (const char* order :
         { "top", "bottom", "left", "right", "random", "woven", "spiral", "hilbert", "list" }) {
        setText("bucket_scanning", order);
        expectSame(render(8), image, order);
        EXPECT_EQ(exposure().buckets, 16u) << order;
    }
}

TEST_F(ConcurrentShading, concurrent_first_renders_shade_the_same_image)
{
    Outputs image;
    for (int threads : { 1, 8, 3 }) {
        startAnew();
        makeShadedScene(1);
        const Outputs now = render(threads);
        if (image.empty())
            image = now;
        expectSame(now, image, std::to_string(threads) + " threads");
    }
}

} // namespace
