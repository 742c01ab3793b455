// What the tests of textures share: image files made on the spot, and contexts to look from.
#ifndef RV_TEXTURE_TOOLS_H
#define RV_TEXTURE_TOOLS_H

#include "options.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"
#include "rv_textures.h"
#include "universe_fixture.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/texture.h>
#include <atomic>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace texture_tools {

// A folder of its own for every test, gone with it.
class TextureFolder {
public:
    TextureFolder()
    {
        static std::atomic<int> count;
        path_ = std::filesystem::temp_directory_path() /
                ("ruvell_textures_" + std::to_string(getpid()) + "_" + std::to_string(count++));
        std::filesystem::create_directories(path_);
    }
    ~TextureFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }
    TextureFolder(const TextureFolder&) = delete;
    TextureFolder& operator=(const TextureFolder&) = delete;

    std::string file(const char* name) const { return (path_ / name).string(); }
    std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

using PixelFunction = std::function<float(int x, int y, int channel)>;

// Writes an image of that many channels; what the format cannot hold is an error of the test.
inline void writeImage(const std::string& path, int width, int height, int channels,
                       OIIO::TypeDesc type, const PixelFunction& value,
                       const std::function<void(OIIO::ImageSpec&)>& adjust = {})
{
    OIIO::ImageSpec spec(width, height, channels, type);
    if (adjust)
        adjust(spec);
    std::vector<float> pixels;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                pixels.push_back(value(x, y, c));
    // Not by way of an ImageBuf, which tells the shared cache that the file has changed.
    const auto output = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(output && output->open(path, spec) &&
                output->write_image(OIIO::TypeDesc::FLOAT, pixels.data()) && output->close())
        << path;
}

inline PixelFunction constant(std::vector<float> color)
{
    return [=](int, int, int c) { return color[size_t(c)]; };
}

// A format of files without contents, ".invented": what they hold is what a test says.
class InventedInput : public OIIO::ImageInput {
public:
    static OIIO::ImageSpec& contents()
    {
        static OIIO::ImageSpec spec;
        return spec;
    }
    // Writes such a file; there is one kind at a time.
    static void write(const std::string& path, const OIIO::ImageSpec& spec)
    {
        static const char* extensions[] = { "invented", nullptr };
        OIIO::declare_imageio_format(
            "invented", [] { return static_cast<OIIO::ImageInput*>(new InventedInput); },
            extensions, nullptr, nullptr, "of the tests");
        contents() = spec;
        std::ofstream(path) << "invented";
    }

    const char* format_name() const override { return "invented"; }
    bool open(const std::string& path, OIIO::ImageSpec& spec) override
    {
        if (!path.ends_with(".invented")) // the library offers all that it cannot read
            return false;
        spec = m_spec = contents();
        return true;
    }
    bool close() override { return true; }
    bool read_native_scanline(int, int, int, int, void* pixels) override
    {
        memset(pixels, 0, m_spec.scanline_bytes(true));
        return true;
    }
};

// Different in every pixel and channel.
inline float pattern(int x, int y, int c) { return float((x * 37 + y * 91 + c * 53) % 251) / 250; }

inline RtTextureParams defaults()
{
    RtTextureParams params;
    RvTextureParamsSetDefaults(&params);
    return params;
}

// Lookups that move their coordinates, and are otherwise as by default.
inline RtTextureParams moved(bool swap_st, bool flip_s, bool flip_t, float scale_s, float scale_t)
{
    RtTextureParams params = defaults();
    params.swap_st = swap_st;
    params.flip_s = flip_s;
    params.flip_t = flip_t;
    params.scale_s = scale_s;
    params.scale_t = scale_t;
    return params;
}

// A context at texture coordinates, with a footprint as wide as that in both.
inline RtShaderGlobals contextAt(float u, float v, float width = 0)
{
    RtShaderGlobals sg = {};
    sg.ray_type = RV_RAY_CAMERA;
    sg.u = u;
    sg.v = v;
    sg.dudx = sg.dvdy = width;
    return sg;
}

// A universe whose errors stop nothing.
class Textures : public Universe {
protected:
    void SetUp() override
    {
        Universe::SetUp();
        RvUniverseCacheFlush(1);
        messages().clear();
    }

    static RtNode* options() { return RvUniverseGetOptions(); }
    static RtRGBA look(const std::string& file, float u, float v, float width = 0,
                       const RtTextureParams& params = defaults())
    {
        const RtShaderGlobals sg = contextAt(u, v, width);
        return RvTextureAccess(&sg, file.c_str(), &params);
    }

    const TextureFolder folder;
};

inline void expectColor(const RtRGBA& got, const RtRGBA& wanted, float tolerance = 1e-6f,
                        const std::string& where = "")
{
    EXPECT_NEAR(got.r, wanted.r, tolerance) << where;
    EXPECT_NEAR(got.g, wanted.g, tolerance) << where;
    EXPECT_NEAR(got.b, wanted.b, tolerance) << where;
    EXPECT_NEAR(got.a, wanted.a, tolerance) << where;
}

inline const RtRGBA error_color = { 1, 0, 0, 1 };

} // namespace texture_tools

#endif
