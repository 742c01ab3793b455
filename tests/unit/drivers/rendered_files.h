// What the tests of rendered files share: a flat picture with edges, the host's display beside the
// files, and a folder of their own.
#ifndef RV_RENDERED_FILES_H
#define RV_RENDERED_FILES_H

#include "drivers/image_reader.h"
#include "render/plates.h"

#include <fstream>

namespace rendered_files {

using namespace plates;
using image_tools::Rect;
using node_tools::named;
using render_tools::Names;

// What the callback of the display was given since the last render began.
struct Display {
    int width = 0;
    std::vector<int> bytes; // of the whole image, four for a pixel; -1 where nothing came
    std::vector<Rect> announced, delivered;
    std::function<void()> on_announce, on_delivery;

    std::vector<int> pixel(int x, int y) const
    {
        const auto first = bytes.begin() + 4 * (ptrdiff_t(y) * width + x);
        return { first, first + 4 };
    }
};

inline Display& display()
{
    static Display all;
    return all;
}

// Drivers are called by one thread at a time.
inline void show(int x, int y, int width, int height, uint8_t* buffer, void*)
{
    Display& d = display();
    (buffer ? d.delivered : d.announced).push_back({ x, y, width, height });
    for (int row = 0; buffer && row < height; ++row)
        std::copy_n(buffer + 4 * row * width, 4 * width,
                    d.bytes.begin() + 4 * (ptrdiff_t(y + row) * d.width + x));
    image_tools::call(buffer ? d.on_delivery : d.on_announce);
}

struct FileType {
    const char *node, *file;
};
inline const FileType file_types[] = { { "driver_exr", "a.exr" },
                                       { "driver_tiff", "a.tif" },
                                       { "driver_png", "a.png" },
                                       { "driver_jpeg", "a.jpg" } };

class RenderedFiles : public Exposing {
protected:
    static constexpr int width = 70, height = 50, bucket_side = 16;

    void SetUp() override
    {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        folder = std::filesystem::path(::testing::TempDir()) /
                 (std::string("rendered.") + test->name() + "." + std::to_string(getpid()));
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        Exposing::SetUp();
        display() = {};
        makePicture();
    }
    void TearDown() override
    {
        Exposing::TearDown();
        display() = {};
        std::filesystem::remove_all(folder);
    }

    // An opaque disc in the middle, a pane of half the opacity at its left, and nothing around
    // them. Blue is brighter than any file of integers can tell.
    static constexpr RtRGB disc_color = { 0.802f, 0.402f, 1.5f }, pane_color = { 0.2f, 0.9f, 0.6f };
    static void makeFlatDisc(const char* name, float x, float z, float radius, const RtRGB& color,
                             float opacity)
    {
        RtNode* const shader = named("flat", (std::string(name) + " color").c_str());
        RvNodeSetRGB(shader, "color", color.r, color.g, color.b);
        RvNodeSetRGB(shader, "opacity", opacity, opacity, opacity);
        RtNode* const node = named("disc", name);
        RvNodeSetPnt(node, "center", x, 0, z);
        RvNodeSetFlt(node, "radius", radius);
        RvNodeSetBool(node, "opaque", opacity == 1);
        setShader(node, shader);
    }
    static void makePicture()
    {
        RtNode* const camera = named("ortho_camera", "camera");
        RvNodeSetPtr(options(), "camera", camera);
        makeFlatDisc("disc", 0, -3, 0.4f, disc_color, 1);
        makeFlatDisc("pane", -0.7f, -2, 0.2f, pane_color, 0.5f);
        setSize(width, height, bucket_side);
        set("AA_samples", 3);
        named("gaussian_filter", "filter");
        named("closest_filter", "nearest");
        named("plates", "plates");
        RvNodeSetPtr(named("driver_display", "display"), "callback", reinterpret_cast<void*>(show));
    }

    // A driver named after its file.
    RtNode* makeDriver(const std::string& type, const std::string& file) const
    {
        RtNode* const node = named(type.c_str(), file.c_str());
        RvNodeSetStr(node, "filename", path(file).c_str());
        if (type != "driver_exr")
            RvNodeSetFlt(node, "dither_amplitude", 0);
        return node;
    }
    // The image goes to the plates, to the display and to the files, in this order.
    static void setFiles(const Names& files)
    {
        Names statements = { "RGBA RGBA filter plates", "RGBA RGBA filter display" };
        for (const std::string& file : files)
            statements.push_back("RGBA RGBA filter " + file);
        setOutputs(statements);
    }
    static int renderImage()
    {
        Display& d = display();
        d.width = width;
        d.bytes.assign(size_t(4 * width * height), -1);
        d.announced.clear();
        d.delivered.clear();
        return RvRender(RV_RENDER_MODE_CAMERA);
    }

    std::string path(const std::string& file) const { return (folder / file).string(); }
    Names filesFound() const // hidden ones too
    {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    ImageRead read(const std::string& file) const
    {
        ImageRead image = readImage(path(file));
        EXPECT_EQ(image.error, "") << file;
        return image;
    }
    static std::vector<int> corners(const RtWindow& w)
    {
        return { w.min_x, w.min_y, w.max_x, w.max_y };
    }
    static const std::vector<int>& wholeImage()
    {
        static const std::vector<int> all = { 0, 0, width - 1, height - 1 };
        return all;
    }

    std::filesystem::path folder;
};

} // namespace rendered_files

#endif
