// Files of whole renders hold what the host's display shows.
#include "drivers/rendered_files.h"
#include "rv_plugins.h"

namespace {

using namespace rendered_files;

// A driver with its parameters, and what its file is to hold.
struct Format {
    const char *node, *extension, *format; // null where there is no choice
    bool tiled, half;
    const char* type; // of the pixels
};
const Format formats[] = {
    { "driver_png", "png", "int8", false, false, "uint8" },
    { "driver_png", "png", "int16", false, false, "uint16" },
    { "driver_tiff", "tif", "int8", false, false, "uint8" },
    { "driver_tiff", "tif", "int8", true, false, "uint8" },
    { "driver_tiff", "tif", "int16", false, false, "uint16" },
    { "driver_tiff", "tif", "int16", true, false, "uint16" },
    { "driver_tiff", "tif", "int32", false, false, "uint" },
    { "driver_tiff", "tif", "int32", true, false, "uint" },
    { "driver_tiff", "tif", "float32", false, false, "float" },
    { "driver_tiff", "tif", "float32", true, false, "float" },
    { "driver_exr", "exr", nullptr, true, false, "float" },
    { "driver_exr", "exr", nullptr, false, false, "float" },
    { "driver_exr", "exr", nullptr, true, true, "half" },
    { "driver_exr", "exr", nullptr, false, true, "half" },
};

// "0.png", "1.png", "2.tif" and so on.
std::string fileOf(const Format& format)
{
    return std::to_string(&format - formats) + "." + format.extension;
}

// A value of the image as the file stores it.
double storedValue(const std::string& type, int x, int y, int channel, float value)
{
    const float clamped = std::clamp(value, 0.0f, 1.0f);
    if (type == "uint8")
        return RvQuantize8bit(x, y, channel, clamped, 0);
    if (type == "uint16")
        return RvQuantize16bit(x, y, channel, clamped, 0);
    if (type == "uint")
        return std::floor(double(clamped) * 4294967295.0 + 0.5);
    return double(value);
}

std::string textOf(const RtMatrix& m)
{
    std::string all;
    for (int i = 0; i < 16; ++i)
        all += node_tools::formatted("%s%g", i ? ", " : "", double(m.m[i / 4][i % 4]));
    return all;
}

class RenderFiles : public RenderedFiles {
protected:
    // All formats at once.
    void makeFiles(bool padded = false)
    {
        Names files = { "a.jpg" };
        setPadded(makeDriver("driver_jpeg", "a.jpg"), padded);
        for (const Format& f : formats) {
            RtNode* const node = makeDriver(f.node, fileOf(f));
            if (f.format)
                RvNodeSetStr(node, "format", f.format);
            if (f.tiled || !strcmp(f.node, "driver_exr"))
                RvNodeSetBool(node, "tiled", f.tiled);
            if (f.half)
                RvNodeSetBool(node, "half_precision", true);
            if (f.format)
                setPadded(node, padded);
            files.push_back(fileOf(f));
        }
        setFiles(files);
        takeProblems();
    }
    static void setPadded(RtNode* node, bool padded)
    {
        RvNodeSetBool(node, "output_padded", padded);
    }

    // Every number of a region against the plates, and bytes against the display.
    static void expectImage(const ImageRead& image, const RtWindow& region, const std::string& what)
    {
        const Plate& expected = plate("RGBA");
        ASSERT_EQ(image.channels.size(), 4u) << what;
        for (int y = region.min_y; y <= region.max_y; ++y)
            for (int x = region.min_x; x <= region.max_x; ++x) {
                const std::vector<double> got = image.pixel(x, y);
                const std::vector<float> values = expected.pixel(x, y);
                for (int c = 0; c < 4; ++c) {
                    const double want = storedValue(image.type, x, y, c, values[size_t(c)]);
                    const double tolerance = image.type == "half" ? want * 0x1p-11 + 0x1p-25 : 0;
                    ASSERT_NEAR(got[size_t(c)], want, tolerance) << what << " " << x << "," << y;
                }
                if (image.type == "uint8") {
                    const std::vector<int> shown = display().pixel(x, y);
                    ASSERT_EQ(got, std::vector<double>(shown.begin(), shown.end()))
                        << what << " " << x << "," << y;
                }
            }
    }
    // Within a file of that window, where pixels that were not rendered are another colour.
    static bool isFlat(int x, int y, const RtWindow& window)
    {
        for (int v = std::max(y - 2, window.min_y); v <= std::min(y + 2, window.max_y); ++v)
            for (int u = std::max(x - 2, window.min_x); u <= std::min(x + 2, window.max_x); ++u)
                if (display().pixel(u, v) != display().pixel(x, y))
                    return false;
        return true;
    }
    // Compression shares colours among neighbours, and so loses more along edges than elsewhere.
    static void expectSimilar(const ImageRead& image, const RtWindow& region, int dx, int dy)
    {
        ASSERT_EQ(image.channels.size(), 3u);
        const bool is_padded = image.width() > region.max_x - region.min_x + 1;
        const RtWindow window = is_padded ? image.data_window : region;
        double sum = 0;
        int count = 0, flat = 0;
        for (int y = region.min_y; y <= region.max_y; ++y)
            for (int x = region.min_x; x <= region.max_x; ++x) {
                const bool is_flat = isFlat(x, y, window);
                flat += is_flat;
                for (size_t c = 0; c < 3; ++c, ++count) {
                    const double off =
                        std::fabs(image.pixel(x - dx, y - dy)[c] - display().pixel(x, y)[c]);
                    ASSERT_LE(off, is_flat ? 3 : 100) << x << "," << y;
                    sum += off;
                }
            }
        EXPECT_LT(sum / count, 4);
        EXPECT_GT(flat, count / 3 / 3);
    }
};

TEST_F(RenderFiles, the_picture_is_the_one_that_was_asked_for)
{
    setFiles({});
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), "");
    const Plate& image = plate("RGBA");
    ASSERT_TRUE(image.isComplete());
    const auto expectPixel = [&](int x, int y, const RtRGBA& want) {
        const std::vector<float> got = image.pixel(x, y);
        EXPECT_NEAR(got[0], want.r, 1e-6) << x << "," << y;
        EXPECT_NEAR(got[1], want.g, 1e-6) << x << "," << y;
        EXPECT_NEAR(got[2], want.b, 1e-6) << x << "," << y;
        EXPECT_NEAR(got[3], want.a, 1e-6) << x << "," << y;
    };
    expectPixel(width / 2, height / 2, { 0.802f, 0.402f, 1.5f, 1 });
    expectPixel(10, height / 2, { 0.1f, 0.45f, 0.3f, 0.5f });
    expectPixel(width - 1, 0, { 0, 0, 0, 0 });
    EXPECT_EQ(display().pixel(width / 2, height / 2), (std::vector<int>{ 204, 102, 255, 255 }));
    EXPECT_EQ(display().pixel(width - 1, 0), std::vector<int>(4));
    int edge_pixels = 0;
    for (size_t i = 3; i < image.values.size(); i += 4)
        edge_pixels += image.values[i] > 0.51f && image.values[i] < 0.99f;
    EXPECT_GT(edge_pixels, 50);
}

TEST_F(RenderFiles, every_format_holds_what_the_display_shows)
{
    makeFiles();
    for (int threads : { 1, 3 }) {
        set("threads", threads);
        EXPECT_EQ(renderImage(), RV_SUCCESS);
        EXPECT_EQ(takeProblems(), "");
        ASSERT_TRUE(plate("RGBA").isComplete());
        EXPECT_EQ(filesFound().size(), std::size(formats) + 1);
        for (const Format& f : formats) {
            const std::string file = fileOf(f);
            const ImageRead image = read(file);
            EXPECT_EQ(image.type, f.type) << file;
            EXPECT_EQ(image.tile_width, f.tiled ? bucket_side : 0) << file;
            EXPECT_EQ(corners(image.data_window), wholeImage()) << file;
            EXPECT_EQ(corners(image.display_window), wholeImage()) << file;
            EXPECT_EQ(image.channels, (Names{ "R", "G", "B", "A" })) << file;
            EXPECT_EQ(image.alpha_channel, 3) << file;
            expectImage(image, exposure().data, file);
        }
        const ImageRead image = read("a.jpg");
        EXPECT_EQ(corners(image.data_window), wholeImage());
        EXPECT_EQ(image.channels, (Names{ "R", "G", "B" }));
        expectSimilar(image, exposure().data, 0, 0);
    }
}

TEST_F(RenderFiles, every_format_holds_the_region_that_was_rendered)
{
    makeFiles();
    setRegion(13, 9, 52, 40);
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), "");
    const RtWindow region = exposure().data;
    EXPECT_EQ(corners(region), (std::vector<int>{ 13, 9, 52, 40 }));
    EXPECT_EQ(display().pixel(12, 20)[0], -1) << "nothing was rendered there";
    for (const Format& f : formats) {
        const std::string file = fileOf(f);
        const ImageRead image = read(file);
        EXPECT_EQ(corners(image.data_window), corners(region)) << file;
        if (strcmp(f.extension, "png")) { // which has no display window
            EXPECT_EQ(corners(image.display_window), wholeImage()) << file;
        }
        expectImage(image, region, file);
    }
    const ImageRead image = read("a.jpg");
    EXPECT_EQ(corners(image.data_window), (std::vector<int>{ 0, 0, 39, 31 }));
    expectSimilar(image, region, region.min_x, region.min_y);
}

TEST_F(RenderFiles, padded_files_hold_the_region_and_black_around_it)
{
    makeFiles(true);
    setFlag("abort_on_error", false);
    setRegion(13, 9, 52, 40);
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    const RtWindow region = exposure().data;
    for (const Format& f : formats) {
        if (!f.format)
            continue; // EXR files know where they belong
        const std::string file = fileOf(f);
        const ImageRead image = read(file);
        EXPECT_EQ(corners(image.data_window), wholeImage()) << file;
        EXPECT_EQ(corners(image.display_window), wholeImage()) << file;
        EXPECT_EQ(image.tile_width, 0) << file;
        expectImage(image, region, file);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                if (x < region.min_x || x > region.max_x || y < region.min_y || y > region.max_y) {
                    ASSERT_EQ(image.pixel(x, y), std::vector<double>(4))
                        << file << " " << x << "," << y;
                }
    }
    const ImageRead image = read("a.jpg");
    EXPECT_EQ(corners(image.data_window), wholeImage());
    expectSimilar(image, region, 0, 0);
    EXPECT_LT(image.pixel(2, 2)[0], 4);
}

TEST_F(RenderFiles, a_region_beyond_the_image_is_refused_and_leaves_the_files_alone)
{
    makeFiles();
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    const auto before = std::filesystem::last_write_time(path("a.jpg"));
    setRegion(0, -8, width + 7, height + 7);
    takeProblems();
    EXPECT_EQ(renderImage(), RV_ERROR_BAD_REGION);
    EXPECT_EQ(takeProblems(),
              "E invalid render region (0,-8)-->(77,57) for image resolution 70x50");
    EXPECT_EQ(std::filesystem::last_write_time(path("a.jpg")), before);
    EXPECT_EQ(filesFound().size(), std::size(formats) + 1);
}

TEST_F(RenderFiles, dither_and_gamma_make_the_bytes_that_the_display_shows)
{
    RtNode* const shown = RvNodeLookUpByName("display");
    const Names files = { "a.png", "a.tif" };
    makeDriver("driver_png", "a.png");
    makeDriver("driver_tiff", "a.tif");
    setFiles(files);
    for (float gamma : { 1.0f, 2.2f })
        for (float dither : { 0.0f, 1.0f, 3.0f }) {
            for (RtNode* node :
                 { shown, RvNodeLookUpByName("a.png"), RvNodeLookUpByName("a.tif") }) {
                RvNodeSetFlt(node, "gamma", gamma);
                RvNodeSetFlt(node, "dither_amplitude", dither);
            }
            EXPECT_EQ(renderImage(), RV_SUCCESS);
            EXPECT_EQ(takeProblems(), "");
            for (const std::string& file : files) {
                const ImageRead image = read(file);
                size_t compared = 0;
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x) {
                        // Files divide colours by their alpha before gamma, the display does not.
                        const float alpha = plate("RGBA").pixel(x, y)[3];
                        const bool is_clamped = plate("RGBA").pixel(x, y)[2] > 1;
                        if (gamma != 1 && alpha != 0 && (alpha != 1 || is_clamped))
                            continue;
                        const std::vector<int> bytes = display().pixel(x, y);
                        ASSERT_EQ(image.pixel(x, y),
                                  std::vector<double>(bytes.begin(), bytes.end()))
                            << file << " " << x << "," << y << " " << gamma << " " << dither;
                        ++compared;
                    }
                EXPECT_GT(compared, size_t(width * height) / 2) << gamma;
            }
        }
}

TEST_F(RenderFiles, tell_the_camera_of_the_render)
{
    RtNode* const camera = RvNodeLookUpByName("camera");
    RvNodeSetArray(camera, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0.25f, 0.5f, 2 }));
    RvNodeSetArray(camera, "look_at", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, -3 }));
    makeFiles();
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    EXPECT_NE(textOf(exposure().world_to_camera), textOf(RV_M4_IDENTITY));
    for (const Format& f : formats) {
        const auto attributes = read(fileOf(f)).attributes;
        if (strcmp(f.extension, "png")) {
            EXPECT_EQ(attributes.at("worldtocamera"), textOf(exposure().world_to_camera));
            EXPECT_EQ(attributes.at("worldtoscreen"), textOf(exposure().world_to_screen));
        }
        if (strcmp(f.extension, "tif")) {
            EXPECT_EQ(attributes.at("ruvell"), std::string(RV_VERSION " ") + RvGetCompileOptions());
        }
    }
}

TEST_F(RenderFiles, an_exr_holds_every_output_as_a_layer)
{
    static const struct {
        const char* variable;
        const char* type;
        Names channels;
    } layers[] = {
        { "RGBA", "RGBA", { "R", "G", "B", "A" } },
        { "Z", "FLOAT", { "Z" } },
        { "N", "VECTOR", { "N.r", "N.g", "N.b" } },
        { "P", "POINT", { "P.r", "P.g", "P.b" } },
        { "opacity", "RGB", { "opacity.r", "opacity.g", "opacity.b" } },
    };
    makeDriver("driver_exr", "layers.exr");
    Names statements;
    for (const auto& layer : layers)
        for (const char* driver : { "plates", "layers.exr" }) {
            const char* const filter = strcmp(layer.variable, "RGBA") ? "nearest" : "filter";
            statements.push_back(std::string(layer.variable) + " " + layer.type + " " + filter +
                                 " " + driver);
        }
    setOutputs(statements);
    for (bool tiled : { true, false })
        for (bool cropped : { false, true }) {
            RvNodeSetBool(RvNodeLookUpByName("layers.exr"), "tiled", tiled);
            cropped ? setRegion(20, 3, 63, 36) : setRegion(-1, -1, -1, -1);
            EXPECT_EQ(renderImage(), RV_SUCCESS);
            EXPECT_EQ(takeProblems(), "");
            const ImageRead image = read("layers.exr");
            EXPECT_EQ(image.channels.size(), 14u);
            EXPECT_EQ(image.tile_width, tiled ? bucket_side : 0);
            EXPECT_EQ(corners(image.data_window), corners(exposure().data));
            EXPECT_EQ(corners(image.display_window), wholeImage());
            for (const auto& layer : layers) {
                const Plate& expected = plate(layer.variable);
                ASSERT_EQ(expected.channels, layer.channels.size());
                for (size_t c = 0; c < expected.channels; ++c) {
                    const int channel = image.channel(layer.channels[c]);
                    ASSERT_GE(channel, 0) << layer.channels[c];
                    for (int y = image.data_window.min_y; y <= image.data_window.max_y; ++y)
                        for (int x = image.data_window.min_x; x <= image.data_window.max_x; ++x)
                            ASSERT_EQ(image.pixel(x, y)[size_t(channel)],
                                      double(expected.pixel(x, y)[c]))
                                << layer.channels[c] << " " << x << "," << y;
                }
            }
            EXPECT_NEAR(plate("Z").pixel(width / 2, height / 2)[0], 3, 1e-5);
            EXPECT_NEAR(plate("N").pixel(width / 2, height / 2)[2], 1, 1e-6);
        }
}

} // namespace
