// Tests of core/src/drivers/driver_oiio.cpp: what the files of a render hold.
#include "drivers/driver_tools.h"
#include "frame_fixture.h"
#include "rv_cameras.h"

#include <fstream>
#include <random>
#include <sstream>

namespace {

using namespace driver_tools;

std::vector<float> ramp(int x, int y)
{
    return { float(x) / 256, float(y) / 256, float(x + y) / 512, 0.5f };
}

Picture rgba() { return { "RGBA", RV_TYPE_RGBA, ramp }; }
Picture rgb(const std::string& name = "RGB")
{
    return { name, RV_TYPE_RGB, [](int x, int y) {
                std::vector<float> color = ramp(x, y);
                color.pop_back();
                return color;
            } };
}
Picture scalar(const std::string& name, int type, std::function<float(int x, int y)> value)
{
    return { name, type, [value](int x, int y) { return std::vector<float>{ value(x, y) }; } };
}

struct FileType {
    const char *node, *file, *format;
    bool keeps_alpha;
};
const FileType file_types[] = { { "driver_exr", "a.exr", "openexr", true },
                                { "driver_tiff", "a.tif", "tiff", true },
                                { "driver_png", "a.png", "png", true },
                                { "driver_jpeg", "a.jpg", "jpeg", false } };

std::vector<Bucket> shuffled(std::vector<Bucket> buckets)
{
    std::shuffle(buckets.begin(), buckets.end(), std::mt19937(7));
    return buckets;
}

class ImageFiles : public Drivers {
protected:
    ImageRead read(const std::string& file)
    {
        ImageRead image = readImage(path(file));
        EXPECT_EQ(image.error, "") << file;
        return image;
    }
    // Of an EXR file, from its header: the byte after the attribute's name, type and size.
    int lineOrder(const std::string& file)
    {
        std::stringstream bytes;
        bytes << std::ifstream(path(file)).rdbuf();
        const std::string attribute("lineOrder\0lineOrder\0\1\0\0\0", 24);
        const size_t at = bytes.str().find(attribute);
        return at == std::string::npos ? -1 : bytes.str()[at + attribute.size()];
    }
    // 8-bit values of the ramp, whole image.
    static int steps(float value) { return RvQuantize8bit(0, 0, 0, value, 0); }
    static void expectRamp(const ImageRead& image, const RtWindow& rendered)
    {
        for (int y = rendered.min_y; y <= rendered.max_y; ++y)
            for (int x = rendered.min_x; x <= rendered.max_x; ++x) {
                const std::vector<double> got = image.pixel(x, y);
                for (size_t c = 0; c < got.size(); ++c) {
                    const float value = ramp(x, y)[c];
                    ASSERT_EQ(got[c], image.type == "uint8" ? double(steps(value)) : double(value))
                        << x << "," << y << " channel " << c;
                }
            }
    }
};

// ---- Whole images ----

TEST_F(ImageFiles, hold_the_image_whatever_the_order_of_its_buckets)
{
    for (const FileType& type : file_types)
        for (int bucket_size : { 16, 20, 64, 500 }) {
            const Frame frame = wholeFrame(150, 90, bucket_size);
            RtNode* const node = driver(type.node, type.file);
            RvNodeSetFlt(node, "dither_amplitude", 0);
            RvNodeSetBool(node, "tiled", bucket_size != 20);
            takeProblems();
            DriverRun run(node, { rgba() }, frame);
            run.writeAll(shuffled(bucketsOf(frame)));
            run.close();
            const ImageRead image = read(type.file);
            EXPECT_EQ(image.format, type.format);
            EXPECT_EQ(corners(image.data_window), corners(frame.region));
            EXPECT_EQ(corners(image.display_window), corners(frame.display));
            EXPECT_EQ(image.channels.size(), type.keeps_alpha ? 4u : 3u);
            EXPECT_EQ(image.alpha_channel, type.keeps_alpha ? 3 : -1);
            if (type.keeps_alpha) // the other loses pixels by compression
                expectRamp(image, frame.region);
            EXPECT_EQ(takeProblem(), "");
            RvNodeDestroy(node);
        }
    EXPECT_EQ(files().size(), std::size(file_types));
}

TEST_F(ImageFiles, jpeg_pixels_are_close)
{
    const Frame frame = wholeFrame(64, 64, 16);
    render(driver("driver_jpeg", "a.jpg"), { rgb() }, frame);
    const ImageRead image = read("a.jpg");
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            for (size_t c = 0; c < 3; ++c)
                ASSERT_NEAR(image.pixel(x, y)[c], 255 * double(ramp(x, y)[c]), 4) << x << "," << y;
}

TEST_F(ImageFiles, the_default_exr_is_tiled_like_the_buckets_and_zipped)
{
    render(driver("driver_exr", "a.exr"), { rgba() }, wholeFrame(100, 70, 40));
    const ImageRead image = read("a.exr");
    EXPECT_EQ(image.type, "float");
    EXPECT_EQ(image.attributes.at("compression"), "zip");
    EXPECT_EQ(image.tile_width, 40);
    EXPECT_EQ(image.tile_height, 40);
    EXPECT_EQ(lineOrder("a.exr"), 2) << "as they come";
}

TEST_F(ImageFiles, the_default_tiff_has_rows_of_bytes_without_compression)
{
    render(driver("driver_tiff", "a.tif"), { rgba() }, wholeFrame(100, 70, 40));
    const ImageRead image = read("a.tif");
    EXPECT_EQ(image.type, "uint8");
    EXPECT_EQ(image.attributes.at("compression"), "none");
    EXPECT_EQ(image.tile_width, 0);
    EXPECT_FALSE(image.attributes.count("tiff:unassociatedalpha"));
}

TEST_F(ImageFiles, tiff_tiles_are_buckets_rounded_to_what_the_format_allows)
{
    static const struct {
        int width, height, bucket, tile_width, tile_height;
    } cases[] = { { 100, 70, 32, 32, 32 },
                  { 100, 70, 40, 48, 48 },
                  { 20, 70, 64, 32, 64 },
                  { 5, 5, 100000, 16, 16 } };
    for (const auto& c : cases) {
        RtNode* const node = driver("driver_tiff", "a.tif");
        RvNodeSetBool(node, "tiled", true);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        const Frame frame = wholeFrame(c.width, c.height, c.bucket);
        DriverRun run(node, { rgb() }, frame);
        run.writeAll(shuffled(bucketsOf(frame)));
        run.close();
        const ImageRead image = read("a.tif");
        EXPECT_EQ(image.tile_width, c.tile_width) << c.bucket;
        EXPECT_EQ(image.tile_height, c.tile_height) << c.bucket;
        expectRamp(image, frame.region);
        RvNodeDestroy(node);
    }
}

TEST_F(ImageFiles, take_buckets_from_many_threads_under_the_lock_of_the_driver)
{
    const Frame frame = wholeFrame(200, 130, 16);
    const std::vector<Bucket> buckets = shuffled(bucketsOf(frame));
    for (bool tiled : { false, true }) {
        RtNode* const node = driver("driver_exr", "a.exr");
        RvNodeSetBool(node, "tiled", tiled);
        DriverRun run(node, { rgba() }, frame);
        onThreads(4, [&](int thread) {
            for (size_t i = size_t(thread); i < buckets.size(); i += 4)
                run.write(buckets[i]);
        });
        run.close();
        expectRamp(read("a.exr"), frame.region);
        RvNodeDestroy(node);
    }
}

// ---- Formats ----

TEST_F(ImageFiles, formats_of_pixels_follow_the_parameters)
{
    static const struct {
        const char *node, *format, *type;
        double scale; // of the value 1
    } cases[] = {
        { "driver_png", "int8", "uint8", 255 },
        { "driver_png", "int16", "uint16", 65535 },
        { "driver_tiff", "int8", "uint8", 255 },
        { "driver_tiff", "int16", "uint16", 65535 },
        { "driver_tiff", "int32", "uint", 4294967295.0 },
        { "driver_tiff", "float32", "float", 1 },
    };
    for (const auto& c : cases) {
        RtNode* const node = driver(c.node, "a");
        RvNodeSetStr(node, "format", c.format);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        render(node, { scalar("Z", RV_TYPE_FLOAT, [](int x, int) { return x ? 1.f : 0.25f; }) },
               wholeFrame(2, 1, 16));
        const ImageRead image = read("a");
        EXPECT_EQ(image.type, c.type) << c.node << " " << c.format;
        EXPECT_EQ(image.pixel(1, 0)[0], c.scale) << c.node << " " << c.format;
        EXPECT_NEAR(image.pixel(0, 0)[0], c.scale / 4, 1) << c.node << " " << c.format;
        RvNodeDestroy(node);
    }
}

TEST_F(ImageFiles, half_precision_rounds_the_pixels_of_an_exr)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    RvNodeSetBool(node, "half_precision", true);
    render(node, { scalar("Z", RV_TYPE_FLOAT, [](int, int) { return 0.1f; }) },
           wholeFrame(40, 40, 16));
    const ImageRead image = read("a.exr");
    EXPECT_EQ(image.type, "half");
    EXPECT_EQ(image.pixel(39, 39)[0], 0.0999755859375);
}

TEST_F(ImageFiles, compressions_are_those_of_the_parameter)
{
    for (const char* name : { "none", "rle", "zip", "piz", "pxr24" }) {
        RtNode* const node = driver("driver_exr", "a.exr");
        RvNodeSetStr(node, "compression", name);
        RvNodeSetBool(node, "half_precision", true); // which all of them keep
        render(node, { rgba() }, wholeFrame(64, 64, 16));
        EXPECT_EQ(read("a.exr").attributes.at("compression"), name);
        RvNodeDestroy(node);
    }
    for (const char* name : { "none", "lzw", "zip", "packbits" }) {
        RtNode* const node = driver("driver_tiff", "a.tif");
        RvNodeSetStr(node, "compression", name);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        render(node, { rgba() }, wholeFrame(64, 64, 16));
        const ImageRead image = read("a.tif");
        EXPECT_EQ(image.attributes.at("compression"), name);
        expectRamp(image, { 0, 0, 63, 63 });
        RvNodeDestroy(node);
    }
}

TEST_F(ImageFiles, a_compression_that_needs_bilevel_pixels_is_refused_by_the_library)
{
    RtNode* const node = driver("driver_tiff", "a.tif");
    RvNodeSetStr(node, "compression", "ccittrle");
    render(node, { rgb() }, wholeFrame(64, 64, 16));
    const std::string problem = takeProblem();
    EXPECT_EQ(problem.rfind("[drv] " + path("a.tif") + ": ", 0), 0u) << problem;
    EXPECT_NE(problem.find("Bits/sample must be 1"), std::string::npos) << problem;
    EXPECT_EQ(files(), Texts());
}

TEST_F(ImageFiles, jpeg_quality_decides_the_size)
{
    const auto size = [&](int quality) {
        RtNode* const node = driver("driver_jpeg", "a.jpg");
        RvNodeSetInt(node, "quality", quality);
        render(node, { rgb() }, wholeFrame(128, 128, 64));
        RvNodeDestroy(node);
        return std::filesystem::file_size(path("a.jpg"));
    };
    EXPECT_LT(size(10), size(60));
    EXPECT_LT(size(60), size(100));
    EXPECT_EQ(size(100), size(3000)) << "there is no better one";
    EXPECT_EQ(size(1), size(-3)) << "nor a worse one";
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ImageFiles, hold_outputs_of_one_number)
{
    static const struct {
        const char* node;
        int type;
    } cases[] = { { "driver_png", RV_TYPE_INT },  { "driver_png", RV_TYPE_BOOLEAN },
                  { "driver_tiff", RV_TYPE_INT }, { "driver_tiff", RV_TYPE_BOOLEAN },
                  { "driver_jpeg", RV_TYPE_INT }, { "driver_jpeg", RV_TYPE_FLOAT } };
    for (const auto& c : cases) {
        RtNode* const node = driver(c.node, "a");
        RvNodeSetFlt(node, "dither_amplitude", 0);
        render(node, { scalar("x", c.type, [](int x, int) { return x < 32 ? 0.f : 1.f; }) },
               wholeFrame(64, 32, 16));
        const ImageRead image = read("a");
        EXPECT_EQ(image.channels, Texts{ "Y" });
        EXPECT_EQ(image.pixel(5, 5)[0], 0) << c.node;
        EXPECT_EQ(image.pixel(60, 5)[0], 255) << c.node;
        RvNodeDestroy(node);
    }
}

TEST_F(ImageFiles, only_what_waits_for_further_buckets_is_kept_in_memory)
{
    const Frame frame = wholeFrame(256, 256, 32);
    const auto heldBytes = [&](const char* type, const std::vector<Bucket>& buckets) {
        RtNode* const node = driver(type, "a");
        const int64_t before = rv::threadStats()->output_bytes;
        DriverRun run(node, { rgba() }, frame);
        run.writeAll(buckets);
        run.close();
        RvNodeDestroy(node);
        return rv::threadStats()->output_bytes - before;
    };
    std::vector<Bucket> rows = bucketsOf(frame);
    EXPECT_EQ(heldBytes("driver_exr", rows), 32 * 32 * 16) << "a tile";
    EXPECT_EQ(heldBytes("driver_png", rows), 256 * 64 * 4) << "a band";
    std::reverse(rows.begin(), rows.end());
    EXPECT_EQ(heldBytes("driver_exr", rows), 32 * 32 * 16);
    EXPECT_EQ(heldBytes("driver_png", rows), 256 * 256 * 4) << "rows leave from the top";
}

// ---- Regions ----

TEST_F(ImageFiles, a_cropped_image_knows_its_place)
{
    const Frame frame = { { 0, 0, 199, 99 }, { 30, 20, 109, 79 }, 32 };
    for (bool tiled : { false, true })
        for (const FileType& type : file_types) {
            RtNode* const node = driver(type.node, type.file);
            RvNodeSetBool(node, "tiled", tiled);
            RvNodeSetFlt(node, "dither_amplitude", 0);
            takeProblems();
            render(node, { rgba() }, frame);
            const ImageRead image = read(type.file);
            EXPECT_EQ(image.width(), 80) << type.file;
            EXPECT_EQ(image.height(), 60) << type.file;
            const bool has_windows =
                !strcmp(type.format, "openexr") || !strcmp(type.format, "tiff");
            if (has_windows) {
                EXPECT_EQ(corners(image.display_window), corners(frame.display)) << type.file;
            }
            if (type.keeps_alpha) {
                EXPECT_EQ(corners(image.data_window), corners(frame.region)) << type.file;
                expectRamp(image, frame.region);
            }
            if (image.tile_width) {
                EXPECT_EQ(image.tile_width, 32) << "tiles lie where the buckets are";
            }
            RvNodeDestroy(node);
        }
}

TEST_F(ImageFiles, a_padded_image_is_black_around_the_region)
{
    const Frame frame = { { 0, 0, 199, 149 }, { 30, 70, 109, 139 }, 32 };
    for (const FileType& type : { file_types[1], file_types[2], file_types[3] }) {
        RtNode* const node = driver(type.node, type.file);
        RvNodeSetBool(node, "output_padded", true);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        DriverRun run(node, { rgba() }, frame);
        run.writeAll(shuffled(bucketsOf(frame)));
        run.close();
        const ImageRead image = read(type.file);
        EXPECT_EQ(corners(image.data_window), corners(frame.display)) << type.file;
        const std::vector<double> black(image.channels.size());
        EXPECT_EQ(image.pixel(0, 0), black) << type.file;
        EXPECT_EQ(image.pixel(199, 149), black) << type.file;
        EXPECT_EQ(image.pixel(60, 40), black) << type.file;
        if (type.keeps_alpha)
            expectRamp(image, frame.region);
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ImageFiles, a_padded_cropped_tiff_cannot_be_tiled)
{
    RtNode* const node = driver("driver_tiff", "a.tif");
    RvNodeSetBool(node, "output_padded", true);
    RvNodeSetBool(node, "tiled", true);
    render(node, { rgb() }, { { 0, 0, 99, 99 }, { 10, 10, 39, 39 }, 16 });
    EXPECT_EQ(takeProblem(), "[drv] `driver_tiff': cannot write padded cropped-image in "
                             "tiled-format -- disabling tiling on \"" +
                                 path("a.tif") + "\"");
    const ImageRead image = read("a.tif");
    EXPECT_EQ(image.tile_width, 0);
    EXPECT_EQ(image.width(), 100);
    render(node, { rgb() }, wholeFrame(40, 40, 16));
    EXPECT_EQ(takeProblem(), "") << "a whole image needs no padding";
    EXPECT_EQ(read("a.tif").tile_width, 16);
}

// ---- Colours ----

TEST_F(ImageFiles, gamma_brightens_bytes)
{
    for (const char* type : { "driver_png", "driver_tiff" }) {
        RtNode* const node = driver(type, "a");
        RvNodeSetFlt(node, "gamma", 2);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        render(node,
               { { "RGBA", RV_TYPE_RGBA,
                   [](int, int) {
                       return std::vector<float>{ 0.125f, 0.5f, 0, 0.5f };
                   } } },
               wholeFrame(4, 4, 16));
        // 0.25 and 1 before they were multiplied
        EXPECT_EQ(read("a").pixel(1, 1), (std::vector<double>{ 63, 127, 0, 127 })) << type;
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ImageFiles, gamma_is_ignored_beyond_8_bits)
{
    static const struct {
        const char *node, *format;
        double expected;
    } cases[] = { { "driver_png", "int16", 16383 },
                  { "driver_tiff", "int16", 16383 },
                  { "driver_tiff", "int32", 1073741824 },
                  { "driver_tiff", "float32", 0.25 } };
    for (const auto& c : cases) {
        RtNode* const node = driver(c.node, "a");
        RvNodeSetStr(node, "format", c.format);
        RvNodeSetFlt(node, "gamma", 2);
        RvNodeSetFlt(node, "dither_amplitude", 0);
        render(node, { scalar("Z", RV_TYPE_FLOAT, [](int, int) { return 0.25f; }) },
               wholeFrame(2, 2, 16));
        EXPECT_EQ(takeProblem(), std::string("[drv] `") + c.node + "': ignoring gamma on file \"" +
                                     path("a") + "\" (color-depth greater than 8-bit)");
        EXPECT_EQ(read("a").pixel(0, 0)[0], c.expected) << c.node << " " << c.format;
        RvNodeDestroy(node);
    }
}

TEST_F(ImageFiles, straight_colours_are_marked_as_such)
{
    RtNode* const node = driver("driver_tiff", "a.tif");
    RvNodeSetBool(node, "unpremult_alpha", true);
    RvNodeSetFlt(node, "dither_amplitude", 0);
    const Picture picture = { "RGBA", RV_TYPE_RGBA, [](int, int) {
                                 return std::vector<float>{ 0.25f, 0.5f, 0, 0.5f };
                             } };
    render(node, { picture }, wholeFrame(4, 4, 16));
    ImageRead image = read("a.tif");
    EXPECT_EQ(image.pixel(1, 1), (std::vector<double>{ 127, 255, 0, 127 }));
    EXPECT_EQ(image.attributes.at("tiff:unassociatedalpha"), "1");
    RvNodeSetBool(node, "unpremult_alpha", false);
    render(node, { picture }, wholeFrame(4, 4, 16));
    image = read("a.tif");
    EXPECT_EQ(image.pixel(1, 1), (std::vector<double>{ 63, 127, 0, 127 }));
    EXPECT_FALSE(image.attributes.count("tiff:unassociatedalpha"));
}

TEST_F(ImageFiles, dither_follows_the_place_in_the_whole_image)
{
    const Frame frame = { { 0, 0, 99, 99 }, { 30, 40, 69, 89 }, 16 };
    RtNode* const node = driver("driver_png", "a.png");
    RvNodeSetFlt(node, "dither_amplitude", 5);
    const Picture picture = { "RGBA", RV_TYPE_RGBA, [](int, int) {
                                 return std::vector<float>{ 0.5f, 0.5f, 0.5f, 0.5f };
                             } };
    for (const char* format : { "int8", "int16" }) {
        RvNodeSetStr(node, "format", format);
        render(node, { picture }, frame);
        const auto quantize = !strcmp(format, "int8") ? RvQuantize8bit : RvQuantize16bit;
        const ImageRead image = read("a.png");
        for (int y = 40; y < 90; ++y)
            for (int x = 30; x < 70; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(image.pixel(x, y)[size_t(c)], quantize(x, y, c, 0.5f, 5));
    }
}

// ---- Attributes ----

TEST_F(ImageFiles, tell_the_camera_and_the_version)
{
    RtNode* const camera = RvNode("persp_camera");
    RvNodeSetPnt(camera, "position", 1, 2, 3);
    RvNodeSetPtr(RvUniverseGetOptions(), "camera", camera);
    rv::RvNodeInitialize(camera);
    RvCameraUpdate(camera, true);
    RtMatrix to_camera, to_screen;
    RvDriverGetMatrices(&to_camera, &to_screen);
    const auto text = [](const RtMatrix& m) {
        std::string all;
        for (int i = 0; i < 16; ++i) {
            char number[32];
            snprintf(number, sizeof number, "%s%g", i ? ", " : "", double(m.m[i / 4][i % 4]));
            all += number;
        }
        return all;
    };
    EXPECT_NE(text(to_camera), text(RV_M4_IDENTITY));
    for (const FileType& type : { file_types[0], file_types[1] }) {
        render(driver(type.node, type.file), { rgba() }, wholeFrame(20, 20, 16));
        const ImageRead image = read(type.file);
        EXPECT_EQ(image.attributes.at("worldtocamera"), text(to_camera)) << type.file;
        EXPECT_EQ(image.attributes.at("worldtoscreen"), text(to_screen)) << type.file;
    }
    render(driver("driver_png", "a.png"), { rgba() }, wholeFrame(20, 20, 16));
    for (const char* file : { "a.exr", "a.png" })
        EXPECT_EQ(read(file).attributes.at("ruvell"),
                  "3.3.6.0 windows 64-bit icc oiio sse (build date: May 18 2011 12:57:19)")
            << file;
}

// ---- Several outputs ----

TEST_F(ImageFiles, an_exr_holds_several_outputs_as_layers)
{
    const std::vector<Picture> outputs = {
        rgba(), scalar("Z", RV_TYPE_FLOAT, [](int x, int y) { return float(10 * x + y); }),
        rgb("diffuse"), scalar("id", RV_TYPE_INT, [](int x, int) { return float(x); })
    };
    for (bool names : { false, true }) {
        RtNode* const node = driver("driver_exr", "a.exr");
        RvNodeSetBool(node, "preserve_layer_name", names);
        render(node, outputs, wholeFrame(50, 40, 16));
        const ImageRead image = read("a.exr");
        EXPECT_EQ(image.channels.size(), 9u);
        EXPECT_EQ(image.alpha_channel, image.channel("A"));
        for (const auto& [name, value] : { std::pair{ "R", 33 / 256. },
                                           { "A", 0.5 },
                                           { "Z", 350. },
                                           { "id", 33. },
                                           { "diffuse.r", 33 / 256. },
                                           { "diffuse.g", 20 / 256. } }) {
            ASSERT_GE(image.channel(name), 0) << name;
            EXPECT_EQ(image.pixel(33, 20)[size_t(image.channel(name))], value) << name;
        }
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(ImageFiles, a_single_output_is_named_after_its_variable_on_demand)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    render(node, { rgb("diffuse") }, wholeFrame(20, 20, 16));
    EXPECT_EQ(read("a.exr").channels, (Texts{ "R", "G", "B" }));
    RvNodeSetBool(node, "preserve_layer_name", true);
    render(node, { rgb("diffuse") }, wholeFrame(20, 20, 16));
    const ImageRead image = read("a.exr");
    for (const char* name : { "diffuse.r", "diffuse.g", "diffuse.b" })
        EXPECT_GE(image.channel(name), 0) << name;
    render(node, { rgb() }, wholeFrame(20, 20, 16));
    EXPECT_EQ(read("a.exr").channels, (Texts{ "R", "G", "B" })) << "the image itself";
}

TEST_F(ImageFiles, outputs_that_the_file_cannot_hold_are_left_out)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    render(node,
           { rgb("a"),
             { "uv", RV_TYPE_POINT2, [](int, int) { return std::vector<float>(2); } },
             rgb("a"),
             rgb("b"),
             rgb("b") },
           wholeFrame(20, 20, 16));
    const std::string start = "[drv] `" + path("a.exr") + "' -- cannot write ";
    EXPECT_EQ(takeProblems(),
              (Texts{ start + "POINT2 to output `uv'", start + "RGB to output `b'" }));
    EXPECT_EQ(read("a.exr").channels.size(), 9u) << "R, a.r and b.r";

    RvNodeDestroy(node);
    RtNode* const png = driver("driver_png", "a.png");
    RvNodeSetFlt(png, "dither_amplitude", 0);
    takeProblems();
    render(png, { rgb(), rgb("second") }, wholeFrame(20, 20, 16));
    EXPECT_EQ(takeProblem(),
              "[drv] `" + path("a.png") + "' -- cannot write RGB to output `second'");
    expectRamp(read("a.png"), { 0, 0, 19, 19 });
}

TEST_F(ImageFiles, without_an_output_to_hold_there_is_no_file)
{
    RtNode* const node = driver("driver_png", "a.png");
    const Picture points = { "P", RV_TYPE_POINT, [](int, int) { return std::vector<float>(3); } };
    render(node, { points }, wholeFrame(20, 20, 16));
    EXPECT_EQ(takeProblem(), "[drv] `" + path("a.png") + "' -- cannot write POINT to output `P'");
    render(node, {}, wholeFrame(20, 20, 16));
    EXPECT_EQ(takeInfos(), Texts());
    EXPECT_EQ(files(), Texts());
}

} // namespace
