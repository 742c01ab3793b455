// driver_png: the "driver_png" driver node.
#include "drivers/driver_oiio.h"

namespace rv {

static const char* const format_names[] = { "int8", "int16", nullptr };

struct DriverPng {
    const char* filename;
    int format; // index of format_names
    IntegerFileParams integers;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DriverPng>(metadata);
    RvNodeParamSTR(params, RV_FIELD(DriverPng, filename), "output.png");
    RvNodeParamENUM(params, RV_FIELD(DriverPng, format), 0, format_names);
    integerFileParameters(params, offsetof(DriverPng, integers));
}

static ImageFileSettings settings(const RtNode* node)
{
    const auto& params = *static_cast<const DriverPng*>(node->params);
    const ChannelFormat format = params.format == 0 ? ChannelFormat::uint8 : ChannelFormat::uint16;
    return integerFileSettings(params.filename, params.integers, format);
}

static constexpr ImageFileType type = {
    .extension = "png",
    .library_format = "png",
    .pixel_types =
        pixelTypes(RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA),
    .multiple_outputs = false,
    .stores_straight_alpha = true,
    .any_tile_order = false,
    .tile_multiple = 1,
    .max_side = 1000000,
    .settings = settings,
};

const RtNodeMethods driver_png_methods = { &image_file_common<type, parameters>,
                                           &image_file_driver<type> };

} // namespace rv
