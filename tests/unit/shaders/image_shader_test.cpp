// Tests of shaders/image.cpp: the shader that looks up an image file.
#include "texture_tools.h"

#include "allocation_failures.h"
#include "image_tools.h"
#include "node_tools.h"

using namespace texture_tools;

namespace {

constexpr OIIO::TypeDesc::BASETYPE u8 = OIIO::TypeDesc::UINT8, f32 = OIIO::TypeDesc::FLOAT;

class ImageShader : public Textures {
protected:
    void SetUp() override
    {
        Textures::SetUp();
        image = node_tools::named("image", "picture");
        file = folder.file("a.exr");
        writeImage(file, 32, 32, 4, f32, pattern);
        RvNodeSetStr(image, "filename", file.c_str());
    }
    void prepare() { RvRender(RV_RENDER_MODE_SETUP); }
    RtRGBA shade(RtShaderGlobals sg) const
    {
        RvShaderEvaluate(image, &sg);
        return sg.out.RGBA;
    }

    RtNode* image = nullptr;
    std::string file;
};

TEST_F(ImageShader, parameters_are_those_of_the_lookup)
{
    RvNodeSetBool(image, "sflip", true);
    RvNodeSetBool(image, "tflip", true);
    RvNodeSetBool(image, "swap_st", true);
    RvNodeSetFlt(image, "sscale", 1.5f);
    RvNodeSetFlt(image, "tscale", 0.75f);
    RvNodeSetInt(image, "mipmap_bias", 1);
    RvNodeSetStr(image, "swrap", "mirror");
    RvNodeSetStr(image, "twrap", "clamp");
    RtTextureParams params = defaults();
    params.flip_s = params.flip_t = params.swap_st = true;
    params.scale_s = 1.5f;
    params.scale_t = 0.75f;
    params.mipmap_bias = 1;
    params.wrap_s = 3;
    params.wrap_t = 2;
    static const char* const filters[] = { "closest", "bilinear", "bicubic", "smart_bicubic" };
    prepare();
    for (bool single : { false, true })
        for (int filter = 0; filter < 4; ++filter) {
            RvNodeSetStr(image, "filter", filters[filter]);
            RvNodeSetBool(image, "single_channel", single);
            params.filter = filter;
            params.single_channel = single;
            const RtShaderGlobals sg = contextAt(0.83f, 1.27f, 0.03f);
            expectColor(shade(sg), RvTextureAccess(&sg, file.c_str(), &params), 0);
        }
}

TEST_F(ImageShader, defaults_are_those_of_a_lookup)
{
    prepare();
    const RtShaderGlobals sg = contextAt(0.3f, 0.4f, 0.02f);
    const RtTextureParams params = defaults();
    expectColor(shade(sg), RvTextureAccess(&sg, file.c_str(), &params), 0);
}

TEST_F(ImageShader, an_empty_file_name_gives_the_error_color_in_silence)
{
    RvNodeSetStr(image, "filename", "");
    prepare();
    messages().clear();
    expectColor(shade(contextAt(0.5f, 0.5f)), error_color, 0);
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ImageShader, without_memory_the_node_says_so_and_sees_the_texture_all_the_same)
{
    withAllocations(0, [&] { rv::RvNodeInitialize(image); });
    const std::string problem = withoutLines(takeProblem());
    EXPECT_EQ(problem.rfind("can't allocate ", 0), 0u) << problem;
    EXPECT_NE(problem.find(" bytes in core\\src\\shaders\\image:Initialize()"), std::string::npos)
        << problem;
    const RtShaderGlobals sg = contextAt(0.3f, 0.4f, 0.02f);
    const RtTextureParams params = defaults();
    expectColor(shade(sg), RvTextureAccess(&sg, file.c_str(), &params), 0);
    prepare();
    expectColor(shade(sg), RvTextureAccess(&sg, file.c_str(), &params), 0);
}

TEST_F(ImageShader, diffuse_rays_do_not_read_the_filter)
{
    // A linked filter would be evaluated.
    static int evaluations;
    evaluations = 0;
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = [](RtNode*, RtShaderGlobals* sg) {
        ++evaluations;
        sg->out.INT = 0;
    } };
    static const RtNodeMethods methods = { &common, &shader };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_INT, "counter", "", &methods, RV_VERSION);
    RtNode* const counter = node_tools::named("counter", "counter");
    RvNodeLink(counter, "filter", image);
    prepare();
    RtShaderGlobals sg = contextAt(0.5f, 0.5f);
    sg.ray_type = RV_RAY_DIFFUSE;
    shade(sg);
    EXPECT_EQ(evaluations, 0);
    sg.ray_type = RV_RAY_CAMERA;
    shade(sg);
    EXPECT_EQ(evaluations, 1);
}

TEST_F(ImageShader, linked_coordinates_replace_those_of_the_context_and_its_footprint)
{
    static RtShaderGlobals seen;
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = [](RtNode*, RtShaderGlobals* sg) {
        seen = *sg;
        sg->out.PNT2 = { 0.2f, 0.9f };
    } };
    static const RtNodeMethods methods = { &common, &shader };
    RvNodeInstall(RV_NODE_SHADER, RV_TYPE_POINT2, "coords", "", &methods, RV_VERSION);
    RtNode* const coords = node_tools::named("coords", "coords");
    RvNodeLink(coords, "uvcoords", image);
    prepare();
    RtShaderGlobals sg = contextAt(0.6f, 0.1f, 0.5f);
    sg.dudy = 0.25f, sg.dvdx = 0.125f;
    const RtShaderGlobals before = sg;
    RvShaderEvaluate(image, &sg);
    expectColor(sg.out.RGBA, look(file, 0.2f, 0.9f), 0);
    EXPECT_EQ(seen.u, before.u); // the link sees the context as it was
    EXPECT_EQ(seen.dudx, before.dudx);
    EXPECT_EQ(sg.u, before.u);
    EXPECT_EQ(sg.v, before.v);
    EXPECT_EQ(sg.dudx, before.dudx);
    EXPECT_EQ(sg.dudy, before.dudy);
    EXPECT_EQ(sg.dvdx, before.dvdx);
    EXPECT_EQ(sg.dvdy, before.dvdy);
    RvNodeUnlink(image, "uvcoords");
    prepare();
    expectColor(
        shade(before),
        [&] {
            const RtTextureParams params = defaults();
            return RvTextureAccess(&before, file.c_str(), &params);
        }(),
        0);
}

TEST_F(ImageShader, coordinates_that_are_set_but_not_linked_are_not_used)
{
    RvNodeSetPnt2(image, "uvcoords", 0.2f, 0.9f);
    prepare();
    expectColor(shade(contextAt(0.6f, 0.1f)), look(file, 0.6f, 0.1f), 0);
}

TEST_F(ImageShader, the_file_may_have_a_synonym)
{
    RvNodeSetStr(image, "image_map", "other.tx");
    EXPECT_STREQ(RvNodeGetStr(image, "filename"), "other.tx");
}

// ---- A receding floor ----

class Floor : public image_tools::Image {
protected:
    static constexpr int side = 32;

    template <class T> static RtArray* arrayOf(int count, int type, const T* values)
    {
        return RvArrayConvert(count, 1, type, const_cast<T*>(values), true);
    }
    // A square that reaches far away, seen from close above it, under a checker of 64 by 64.
    void makeFloor(const std::string& file)
    {
        node_tools::named("film", "film");
        RtNode* const camera = node_tools::named("persp_camera", "camera");
        RvNodeSetPtr(options(), "camera", camera);
        const RtPoint corners[] = {
            { -20, -1, 0 }, { 20, -1, 0 }, { 20, -1, -40 }, { -20, -1, -40 }
        };
        RtNode* const floor = node_tools::named("polymesh", "floor");
        RvNodeSetArray(floor, "vlist", arrayOf(4, RV_TYPE_POINT, corners));
        const unsigned indices[] = { 0, 1, 2, 3 }, count[] = { 4 };
        RvNodeSetArray(floor, "nsides", arrayOf(1, RV_TYPE_UINT, count));
        RvNodeSetArray(floor, "vidxs", arrayOf(4, RV_TYPE_UINT, indices));
        RvNodeSetArray(floor, "uvidxs", arrayOf(4, RV_TYPE_UINT, indices));
        const RtPoint2 uvs[] = { { 0, 0 }, { 1, 0 }, { 1, 1 }, { 0, 1 } };
        RvNodeSetArray(floor, "uvlist", arrayOf(4, RV_TYPE_POINT2, uvs));
        RtNode* const image = node_tools::named("image", "image");
        RvNodeSetStr(image, "filename", file.c_str());
        RtNode* const flat = node_tools::named("flat", "flat");
        RvNodeLink(image, "color", flat);
        RvNodeSetArray(floor, "shader", RvArray(1, 1, RV_TYPE_NODE, flat));
        node_tools::named("box_filter", "filter");
        setOutput("RGBA RGBA");
        set("xres", side);
        set("yres", side);
    }
    // Variation of a row of the picture about its mean.
    static float contrast(int y)
    {
        float sum = 0, squares = 0;
        for (int x = 0; x < side; ++x) {
            const float g = image_tools::film().pixels[size_t(y * side + x)].g;
            sum += g;
            squares += g * g;
        }
        return sqrtf(std::max(0.0f, squares / side - sum / side * (sum / side)));
    }
};

TEST_F(Floor, a_receding_checker_neither_aliases_nor_fades_early)
{
    const TextureFolder folder;
    const std::string file = folder.file("checker.tif");
    writeImage(file, 512, 512, 3, u8, [](int x, int y, int) { return float((x / 8 + y / 8) & 1); });
    makeFloor(file);
    set("AA_samples", 16);
    ASSERT_EQ(shoot(), RV_SUCCESS);
    const std::vector<RtRGBA> reference = image_tools::film().pixels;
    std::vector<float> reference_contrast;
    for (int y = 0; y < side; ++y)
        reference_contrast.push_back(contrast(y));
    set("AA_samples", 2);
    ASSERT_EQ(shoot(), RV_SUCCESS);
    double error = 0;
    int count = 0;
    for (int y = side / 2 + 1; y < side; ++y) {
        for (int x = 0; x < side; ++x, ++count) {
            const size_t i = size_t(y * side + x);
            error += fabs(double(image_tools::film().pixels[i].g - reference[i].g));
        }
        // No row shows more than there is to see, nor much less where squares are large.
        EXPECT_LT(contrast(y), reference_contrast[size_t(y)] + 0.12f) << y;
        if (reference_contrast[size_t(y)] > 0.3f) {
            EXPECT_GT(contrast(y), 0.6f * reference_contrast[size_t(y)]) << y;
        }
    }
    EXPECT_LT(error / count, 0.08);
    EXPECT_EQ(takeProblems(), "");
}

TEST_F(Floor, its_picture_does_not_depend_on_the_number_of_threads)
{
    const TextureFolder folder;
    const std::string file = folder.file("a.tif");
    writeImage(file, 200, 120, 4, u8, pattern);
    makeFloor(file);
    set("AA_samples", 2);
    set("bucket_size", 8);
    const std::vector<RtRGBA> image = imageOf(1);
    EXPECT_GT(contrast(side - 1), 0.05f);
    for (int threads : { 2, 3, 8 })
        EXPECT_TRUE(areSame(imageOf(threads), image)) << threads;
}

} // namespace
