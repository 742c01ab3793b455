// What the tests of images share: a driver that keeps what it is given, a shader that a test may
// watch, and a scene in front of a camera.
#ifndef RV_IMAGE_TOOLS_H
#define RV_IMAGE_TOOLS_H

#include "counters.h"
#include "render_tools.h"
#include "rv_drivers.h"

#include <climits>

namespace image_tools {

using render_tools::Names;

struct Rect {
    int x, y, width, height;
    bool operator==(const Rect&) const = default;
};

// What the driver "film" was told. Drivers are called by one thread at a time.
struct Film {
    RtWindow display, data;
    int bucket_size;
    std::vector<RtRGBA> pixels;  // of the whole image; -1 where nothing was written
    std::vector<Rect> announced; // in the order of their announcement
    std::vector<int> threads;    // that announced them
    std::vector<Rect> written;
    int opened, closed;
    std::function<void()> on_open, on_announce, on_write;
};

inline Film& film()
{
    static Film all;
    return all;
}

inline void call(const std::function<void()>& action)
{
    if (action)
        action();
}

inline RtRGBA pixelOf(int type, const void* pixels, size_t i)
{
    switch (type) {
    case RV_TYPE_RGBA: return static_cast<const RtRGBA*>(pixels)[i];
    case RV_TYPE_FLOAT: {
        const float value = static_cast<const float*>(pixels)[i];
        return { value, value, value, 1 };
    }
    default: ADD_FAILURE() << "pixels of type " << type; return {};
    }
}

inline const RtNodeMethods& filmMethods()
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode* node, void*) { RvDriverInitialize(node, false, nullptr); },
        .Update = nullptr,
        .Finish = RvDriverDestroy,
    };
    static const RtDriverMethods driver = {
        .DriverSupportsPixelType =
            [](RtNode*, int type) { return type == RV_TYPE_RGBA || type == RV_TYPE_FLOAT; },
        .DriverExtension = nullptr,
        .DriverOpen =
            [](RtNode*, RtOutputIterator*, RtWindow display, RtWindow data, int bucket_size) {
                Film& f = film();
                f.display = display;
                f.data = data;
                f.bucket_size = bucket_size;
                f.pixels.assign(size_t(display.max_x + 1) * size_t(display.max_y + 1),
                                { -1, -1, -1, -1 });
                ++f.opened;
                call(f.on_open);
            },
        .DriverPrepareBucket =
            [](RtNode*, int x, int y, int width, int height, int thread) {
                film().announced.push_back({ x, y, width, height });
                film().threads.push_back(thread);
                call(film().on_announce);
            },
        .DriverWriteBucket =
            [](RtNode*, RtOutputIterator* outputs, RtAOVSampleIterator*, int x, int y, int width,
               int height) {
                Film& f = film();
                f.written.push_back({ x, y, width, height });
                int type;
                const void* pixels;
                if (!RvOutputIteratorGetNext(outputs, nullptr, &type, &pixels))
                    return;
                for (int row = 0; row < height; ++row)
                    for (int column = 0; column < width; ++column)
                        f.pixels[size_t(y + row) * size_t(f.display.max_x + 1) +
                                 size_t(x + column)] =
                            pixelOf(type, pixels, size_t(row) * size_t(width) + size_t(column));
                call(f.on_write);
            },
        .DriverClose = [](RtNode*, RtOutputIterator*) { ++film().closed; },
    };
    static const RtNodeMethods methods = { &common, &driver };
    return methods;
}

// Called by the shader "facing" on every thread; may replace its colour.
inline std::function<void(RtShaderGlobals*)>& onShade()
{
    static std::function<void(RtShaderGlobals*)> all;
    return all;
}

// Shows how much a surface faces the ray, and where it is.
inline const RtNodeMethods& facingMethods()
{
    static const RtCommonMethods common = {};
    static const RtShaderMethods shader = { .Evaluate = [](RtNode*, RtShaderGlobals* sg) {
        const float ratio = -rv::dot(sg->ray_dir, sg->normal);
        sg->out.RGBA = { ratio, std::fabs(sg->point.x), std::fabs(sg->point.y), 1 };
        if (onShade())
            onShade()(sg);
    } };
    static const RtNodeMethods methods = { &common, &shader };
    return methods;
}

class Image : public render_tools::RenderLog {
protected:
    void SetUp() override
    {
        RenderLog::SetUp();
        film() = {};
        onShade() = {};
        RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, "film", "", &filmMethods(), RV_VERSION);
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGBA, "facing", "", &facingMethods(), RV_VERSION);
        setText("thread_priority", "normal"); // so that busy machines do not starve the workers
    }
    void TearDown() override
    {
        RenderLog::TearDown();
        film() = {};
        onShade() = {};
    }
    void startAnew()
    {
        TearDown();
        SetUp();
    }

    static RtNode* options() { return RvUniverseGetOptions(); }
    static void setText(const char* option, const char* value)
    {
        RvNodeSetStr(options(), option, value);
    }

    // A sphere in front of a wall, seen by a camera, and an output of that variable and type.
    static void makeScene(int xres, int yres, const char* variable = "RGBA RGBA",
                          const char* filter = "box_filter")
    {
        RtNode* const camera = node_tools::named("persp_camera", "camera");
        RvNodeSetPtr(options(), "camera", camera);
        RtNode* const shader = node_tools::named("facing", "shader");
        RtNode* const sphere = node_tools::named("sphere", "sphere");
        RvNodeSetArray(sphere, "center", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, -3 }));
        RtNode* const wall = node_tools::named("plane", "wall");
        RvNodeSetPnt(wall, "point", 0, 0, -5);
        RvNodeSetVec(wall, "normal", 0, 0.1f, 1);
        for (RtNode* shape : { sphere, wall })
            RvNodeSetArray(shape, "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
        node_tools::named(filter, "filter");
        node_tools::named("film", "film");
        setOutput(variable);
        set("xres", xres);
        set("yres", yres);
        takeLines();
    }
    static void setOutput(const char* variable)
    {
        const std::string statement = std::string(variable) + " filter film";
        RvNodeSetArray(options(), "outputs", RvArray(1, 1, RV_TYPE_STRING, statement.c_str()));
    }
    static void setRegion(int min_x, int min_y, int max_x, int max_y)
    {
        set("region_min_x", min_x);
        set("region_min_y", min_y);
        set("region_max_x", max_x);
        set("region_max_y", max_y);
    }

    // Renders, forgetting what was on the film.
    static int shoot()
    {
        Film& f = film();
        f.announced.clear();
        f.threads.clear();
        f.written.clear();
        f.opened = f.closed = 0;
        return RvRender(RV_RENDER_MODE_CAMERA);
    }
    static std::vector<RtRGBA> imageOf(int threads)
    {
        set("threads", threads);
        EXPECT_EQ(shoot(), RV_SUCCESS);
        return film().pixels;
    }
    static bool areSame(const std::vector<RtRGBA>& a, const std::vector<RtRGBA>& b)
    {
        return a.size() == b.size() && memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0;
    }
    static size_t missingPixels()
    {
        const auto is_missing = [](const RtRGBA& pixel) { return pixel.a == -1; };
        return size_t(std::count_if(film().pixels.begin(), film().pixels.end(), is_missing));
    }

    static const RtStats& stats(int slot) { return *rv::the_frame->stats[slot]; }
    template <class Value> static int64_t sumOf(Value value)
    {
        int64_t sum = 0;
        for (const RtStats* record : rv::the_frame->stats)
            sum += int64_t(value(*record));
        return sum;
    }
    static int64_t pixelsRendered()
    {
        return sumOf([](const RtStats& s) { return s.pixels; });
    }
    static int64_t samplesRendered()
    {
        return sumOf([](const RtStats& s) { return s.samples; });
    }
    static int64_t raysTraced()
    {
        return sumOf(
            [](const RtStats& s) { return s.rays.rows[RV_PASS_PIXELS][RV_ROW_TOTAL].rays; });
    }
};

} // namespace image_tools

#endif
