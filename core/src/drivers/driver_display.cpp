// driver_display: the "driver_display" driver node, which hands 8-bit buckets to the host.
#include "drivers/drivers.h"

#include "drivers/image_pixels.h"
#include "nodes.h"
#include "system/memory.h"

namespace rv {

struct DriverDisplay {
    void* callback; // RtDisplayCallback
    void* callback_data;
    float gamma;
    float dither_amplitude;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DriverDisplay>(metadata);
    RvNodeParamPTR(params, RV_FIELD(DriverDisplay, callback), nullptr);
    RvNodeParamPTR(params, RV_FIELD(DriverDisplay, callback_data), nullptr);
    RvNodeParamFLT(params, RV_FIELD(DriverDisplay, gamma), 1);
    RvNodeParamFLT(params, RV_FIELD(DriverDisplay, dither_amplitude), 0);
}

static const char* const module_path = "core\\src\\drivers\\driver_display";

static const DriverDisplay& paramsOf(const RtNode* node)
{
    return *static_cast<const DriverDisplay*>(node->params);
}

static void callHost(const DriverDisplay& params, int x, int y, int width, int height,
                     uint8_t* buffer)
{
    if (params.callback)
        reinterpret_cast<RtDisplayCallback>(params.callback)(x, y, width, height, buffer,
                                                             params.callback_data);
}

// Red, green, blue and alpha of a pixel of the image. Alpha knows no gamma.
static void quantize(const DriverDisplay& params, int x, int y, const RtRGBA& pixel, uint8_t* bytes)
{
    const float colors[] = { pixel.r, pixel.g, pixel.b };
    const auto byte = [&](int channel, float value) {
        return static_cast<uint8_t>(RvQuantize8bit(x, y, channel, value, params.dither_amplitude));
    };
    for (int i = 0; i < 3; ++i)
        bytes[i] = byte(i, applyGamma(clampToUnit(colors[i]), params.gamma));
    bytes[3] = byte(3, clampToUnit(pixel.a));
}

static void quantizeOpaque(const DriverDisplay& params, int x, int y, const RtRGB& pixel,
                           uint8_t* bytes)
{
    quantize(params, x, y, { pixel.r, pixel.g, pixel.b, 1 }, bytes);
    bytes[3] = 255; // whatever the dither says
}

static bool supportsPixelType(RtNode*, int type)
{
    return type == RV_TYPE_RGB || type == RV_TYPE_RGBA;
}

static void prepareBucket(RtNode* node, int x, int y, int width, int height, int)
{
    callHost(paramsOf(node), x, y, width, height, nullptr);
}

static void writeBucket(RtNode* node, RtOutputIterator* outputs, RtAOVSampleIterator*, int x, int y,
                        int width, int height)
{
    const DriverDisplay& params = paramsOf(node);
    int type = RV_TYPE_NONE;
    const void* pixels = nullptr;
    RvOutputIteratorReset(outputs);
    if (!params.callback || width < 1 || height < 1 ||
        !RvOutputIteratorGetNext(outputs, nullptr, &type, &pixels) || !pixels ||
        !supportsPixelType(node, type))
        return;
    auto* const buffer = static_cast<uint8_t*>(
        allocate(size_t(width) * size_t(height) * 4, module_path, __LINE__, "DriverWriteBucket"));
    if (!buffer)
        return;
    size_t i = 0;
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column, ++i)
            if (type == RV_TYPE_RGB)
                quantizeOpaque(params, x + column, y + row, static_cast<const RtRGB*>(pixels)[i],
                               buffer + 4 * i);
            else
                quantize(params, x + column, y + row, static_cast<const RtRGBA*>(pixels)[i],
                         buffer + 4 * i);
    callHost(params, x, y, width, height, buffer);
    RvFree_func(buffer);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = [](RtNode* node, void*) { RvDriverInitialize(node, false, nullptr); },
    .Update = do_nothing,
    .Finish = RvDriverDestroy,
};

static const RtDriverMethods driver = {
    .DriverSupportsPixelType = supportsPixelType,
    .DriverExtension = do_nothing,
    .DriverOpen = do_nothing,
    .DriverPrepareBucket = prepareBucket,
    .DriverWriteBucket = writeBucket,
    .DriverClose = do_nothing,
};

const RtNodeMethods driver_display_methods = { &common, &driver };

} // namespace rv
