// Images under quad and skydome lights whose colours come from shaders.
#include "image_tools.h"

#include "lights/light_data.h"

using namespace image_tools;

namespace {

std::atomic<int> evaluations;
std::function<void()>& onStripes()
{
    static std::function<void()> action;
    return action;
}

// A sky, or a texture, with detail.
void shadeStripes(RtNode*, RtShaderGlobals* sg)
{
    ++evaluations;
    if (onStripes())
        onStripes()();
    const RtVector& d = sg->ray_dir;
    sg->out.RGB = { 0.2f + sg->u, 1 + sinf(15 * sg->v), expf(2 * d.x) };
}

class AreaLightImages : public Image {
protected:
    void SetUp() override
    {
        Image::SetUp();
        onStripes() = {};
        static const RtCommonMethods common = {};
        static const RtShaderMethods shader = { .Evaluate = shadeStripes };
        static const RtNodeMethods methods = { &common, &shader };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "stripes", "", &methods, RV_VERSION);
    }

    static void setShader(const char* shape, RtNode* shader)
    {
        RvNodeSetArray(RvNodeLookUpByName(shape), "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
    }
    static RtNode* mappedLight(const char* type, const char* name, int resolution)
    {
        RtNode* const light = node_tools::named(type, name);
        RvNodeSetInt(light, "resolution", resolution);
        RvNodeSetInt(light, "samples", 2);
        RvNodeLink(RvNodeLookUpByName("stripes"), "color", light);
        return light;
    }
    // A glossy sphere in front of a wall, under a sky, a quad that moves and one behind a matrix.
    static void makeLitScene()
    {
        makeScene(32, 32);
        node_tools::named("stripes", "stripes");
        setShader("wall", node_tools::named("lambert", "plaster"));
        RtNode* const varnish = node_tools::named("standard", "varnish");
        RvNodeSetFlt(varnish, "Ks", 0.5f);
        setShader("sphere", varnish);
        mappedLight("skydome_light", "sky", 40);
        RtNode* const quad = mappedLight("quad_light", "quad", 30);
        RtArray* const keys = RvArrayCopy(RvNodeGetArray(quad, "vertices"));
        for (unsigned i = 0; i < 4; ++i)
            RvArraySetPnt(keys, i, rv::operator+(RvArrayGetPnt(keys, i), RtPoint{ 0, 2, -1 }));
        RvNodeSetArray(quad, "vertices", keys);
        RtNode* const second = mappedLight("quad_light", "second", 20);
        RvNodeSetBool(second, "umbrate", true);
        RtMatrix matrix;
        const RtVector offset = { 2, 0, 0 };
        RvM4Translation(&matrix, &offset);
        RvNodeSetArray(second, "matrix", RvArray(1, 1, RV_TYPE_MATRIX, &matrix));
        set("AA_samples", 2);
        set("bucket_size", 8);
    }
};

} // namespace

TEST_F(AreaLightImages, concurrent_workers_give_the_same_image_bit_for_bit)
{
    std::vector<RtRGBA> image;
    for (int threads : { 1, 2, 3, 8 }) {
        startAnew(); // so that the tables are made anew, by all workers at once
        makeLitScene();
        const std::vector<RtRGBA> now = imageOf(threads);
        ASSERT_EQ(missingPixels(), 0u);
        if (image.empty())
            image = now;
        EXPECT_TRUE(areSame(now, image)) << threads;
    }
    double sum = 0;
    for (const RtRGBA& pixel : image) {
        EXPECT_TRUE(std::isfinite(pixel.r) && std::isfinite(pixel.g) && std::isfinite(pixel.b));
        sum += double(pixel.g);
    }
    EXPECT_GT(sum, 32 * 32 * 0.1);
}

TEST_F(AreaLightImages, concurrent_flushes_change_nothing_in_a_render)
{
    makeLitScene();
    const std::vector<RtRGBA> image = imageOf(1);
    startAnew();
    makeLitScene();
    onStripes() = [] {
        if (evaluations % 500 == 0)
            RvUniverseCacheFlush(0x18);
    };
    EXPECT_TRUE(areSame(imageOf(4), image));
    EXPECT_TRUE(areSame(imageOf(4), image)) << "with tables made anew";
}

TEST_F(AreaLightImages, concurrent_aborts_end_the_making_of_tables)
{
    constexpr int resolution = 300, threads = 4;
    makeLitScene();
    const std::vector<RtRGBA> image = imageOf(2);
    startAnew();
    for (const char* light : { "sky", "quad" }) {
        makeLitScene();
        const int usual = RvNodeGetInt(RvNodeLookUpByName(light), "resolution");
        RvNodeSetInt(RvNodeLookUpByName(light), "resolution", resolution);
        evaluations = 0;
        onStripes() = [] {
            if (evaluations >= 3 * resolution)
                RvRenderAbort();
        };
        set("threads", threads);
        EXPECT_NE(shoot(), RV_SUCCESS) << light;
        // Rows that were begun, and the samples of the points that were being lit.
        EXPECT_LT(evaluations, (3 + threads) * resolution + 3000) << light;
        onStripes() = {};
        RvNodeSetInt(RvNodeLookUpByName(light), "resolution", usual);
        EXPECT_TRUE(areSame(imageOf(threads), image)) << light << ": nothing is left of it";
        startAnew();
    }
}

TEST_F(AreaLightImages, a_sphere_in_a_white_room_of_sky_cannot_be_seen)
{
    makeScene(16, 16);
    RtNode* const white = node_tools::named("lambert", "white");
    RvNodeSetFlt(white, "Kd", 1);
    RvNodeSetRGB(white, "Kd_color", 1, 1, 1);
    setShader("sphere", white);
    RvNodeSetPtr(options(), "background", nullptr);
    RvNodeDestroy(RvNodeLookUpByName("wall"));
    RtNode* const sky = node_tools::named("skydome_light", "sky");
    RvNodeSetInt(sky, "samples", 30);
    RvNodeSetFlt(sky, "intensity", 0.25f);
    int seen = 0;
    for (const RtRGBA& pixel : imageOf(2))
        if (pixel.a == 1) {
            ++seen;
            EXPECT_NEAR(pixel.r, 0.25f, 0.25f * 0.005f);
        }
    EXPECT_GT(seen, 10);
}
