// What the tests of whole renders share: a driver that keeps every number of every output.
#ifndef RV_PLATES_H
#define RV_PLATES_H

#include "image_tools.h"

namespace plates {

// One output of an image; NaN where nothing was written.
struct Plate {
    RtWindow window = {};
    size_t channels = 0;
    std::vector<float> values;

    size_t at(int x, int y) const
    {
        const int width = window.max_x - window.min_x + 1;
        return channels * (size_t(y - window.min_y) * size_t(width) + size_t(x - window.min_x));
    }
    std::vector<float> pixel(int x, int y) const
    {
        const auto first = values.begin() + ptrdiff_t(at(x, y));
        return { first, first + ptrdiff_t(channels) };
    }
    bool isComplete() const
    {
        return !values.empty() && std::none_of(values.begin(), values.end(),
                                               [](float value) { return std::isnan(value); });
    }
    // Also of the signs of zeros.
    bool isSameAs(const Plate& other) const
    {
        return channels == other.channels && values.size() == other.values.size() &&
               memcmp(values.data(), other.values.data(), values.size() * sizeof(float)) == 0;
    }
};

// What the driver "plates" was given since its last DriverOpen. Drivers are called by one thread
// at a time.
struct Exposure {
    RtWindow display = {}, data = {};
    RtMatrix world_to_camera = {}, world_to_screen = {};
    std::map<std::string, Plate> outputs; // by variable
    size_t buckets = 0;
};

inline Exposure& exposure()
{
    static Exposure all;
    return all;
}

inline size_t channelsOf(int type)
{
    switch (type) {
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_RGBA: return 4;
    default: return 3;
    }
}

inline void openPlates(RtNode*, RtOutputIterator* outputs, RtWindow display, RtWindow data, int)
{
    Exposure& e = exposure();
    e = {};
    e.display = display;
    e.data = data;
    RvDriverGetMatrices(&e.world_to_camera, &e.world_to_screen);
    const size_t pixels = size_t(data.max_x - data.min_x + 1) * size_t(data.max_y - data.min_y + 1);
    const char* name;
    int type;
    while (RvOutputIteratorGetNext(outputs, &name, &type, nullptr))
        e.outputs[name] = { data, channelsOf(type),
                            std::vector<float>(pixels * channelsOf(type), std::nanf("")) };
}

inline void exposePlates(RtNode*, RtOutputIterator* outputs, RtAOVSampleIterator*, int x, int y,
                         int width, int height)
{
    ++exposure().buckets;
    const char* name;
    int type;
    const void* pixels;
    while (RvOutputIteratorGetNext(outputs, &name, &type, &pixels)) {
        Plate& plate = exposure().outputs.at(name);
        const size_t row_size = size_t(width) * plate.channels;
        for (int row = 0; row < height; ++row)
            std::copy_n(static_cast<const float*>(pixels) + size_t(row) * row_size, row_size,
                        plate.values.begin() + ptrdiff_t(plate.at(x, y + row)));
    }
}

inline const RtNodeMethods& platesMethods()
{
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode* node, void*) { RvDriverInitialize(node, true, nullptr); },
        .Update = nullptr,
        .Finish = RvDriverDestroy,
    };
    static const RtDriverMethods driver = {
        .DriverSupportsPixelType =
            [](RtNode*, int type) {
                return type == RV_TYPE_FLOAT || type == RV_TYPE_RGB || type == RV_TYPE_RGBA ||
                       type == RV_TYPE_VECTOR || type == RV_TYPE_POINT;
            },
        .DriverExtension = nullptr,
        .DriverOpen = openPlates,
        .DriverPrepareBucket = nullptr,
        .DriverWriteBucket = exposePlates,
        .DriverClose = nullptr,
    };
    static const RtNodeMethods methods = { &common, &driver };
    return methods;
}

// Renders with the built-in shaders onto plates.
class Exposing : public image_tools::Image {
protected:
    void SetUp() override
    {
        Image::SetUp();
        exposure() = {};
        RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, "plates", "", &platesMethods(), RV_VERSION);
    }
    void TearDown() override
    {
        Image::TearDown();
        exposure() = {};
    }

    static void setOutputs(const render_tools::Names& statements)
    {
        RtArray* const array = RvArrayAllocate(unsigned(statements.size()), 1, RV_TYPE_STRING);
        for (unsigned i = 0; i < statements.size(); ++i)
            RvArraySetStr(array, i, statements[i].c_str());
        RvNodeSetArray(options(), "outputs", array);
    }
    static void setSize(int xres, int yres, int bucket_size)
    {
        set("xres", xres);
        set("yres", yres);
        set("bucket_size", bucket_size);
    }
    static void setShader(RtNode* shape, RtNode* shader)
    {
        RvNodeSetArray(shape, "shader", RvArray(1, 1, RV_TYPE_NODE, shader));
    }
    static const Plate& plate(const std::string& variable)
    {
        return exposure().outputs.at(variable);
    }
};

} // namespace plates

#endif
