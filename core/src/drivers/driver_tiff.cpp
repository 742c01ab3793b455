// driver_tiff: the "driver_tiff" driver node.
#include "drivers/driver_oiio.h"

#include <limits.h>

namespace rv {

static const char* const compression_names[] = { "none", "lzw",      "ccittrle",
                                                 "zip",  "packbits", nullptr };
static const char* const format_names[] = { "int8", "int16", "int32", "float32", nullptr };

struct DriverTiff {
    const char* filename;
    int compression; // index of compression_names
    int format;      // index of format_names
    bool tiled;
    IntegerFileParams integers;
    bool unpremult_alpha;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DriverTiff>(metadata);
    RvNodeParamSTR(params, RV_FIELD(DriverTiff, filename), "output.tif");
    RvNodeParamENUM(params, RV_FIELD(DriverTiff, compression), 0, compression_names);
    RvNodeParamENUM(params, RV_FIELD(DriverTiff, format), 0, format_names);
    RvNodeParamBOOL(params, RV_FIELD(DriverTiff, tiled), false);
    integerFileParameters(params, offsetof(DriverTiff, integers));
    RvNodeParamBOOL(params, RV_FIELD(DriverTiff, unpremult_alpha), false);
}

// By index of format_names.
static ChannelFormat channelFormat(int format)
{
    switch (format) {
    case 0: return ChannelFormat::uint8;
    case 1: return ChannelFormat::uint16;
    case 2: return ChannelFormat::uint32;
    default: return ChannelFormat::float32;
    }
}

static ImageFileSettings settings(const RtNode* node)
{
    const auto& params = *static_cast<const DriverTiff*>(node->params);
    ImageFileSettings s =
        integerFileSettings(params.filename, params.integers, channelFormat(params.format));
    s.rules.unpremult_alpha = params.unpremult_alpha;
    s.tiled = params.tiled;
    s.compression = RvEnumGetString(compression_names, params.compression);
    return s;
}

static constexpr ImageFileType type = {
    .extension = "tif",
    .library_format = "tiff",
    .pixel_types = pixelTypes(RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB,
                              RV_TYPE_RGBA, RV_TYPE_VECTOR, RV_TYPE_POINT),
    .multiple_outputs = false,
    .stores_straight_alpha = false,
    .any_tile_order = false,
    .tile_multiple = 16,
    .max_side = INT_MAX,
    .settings = settings,
};

const RtNodeMethods driver_tiff_methods = { &image_file_common<type, parameters>,
                                            &image_file_driver<type> };

} // namespace rv
