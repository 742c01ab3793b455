// driver_jpeg: the "driver_jpeg" driver node.
#include "drivers/driver_oiio.h"

#include <algorithm>

namespace rv {

struct DriverJpeg {
    const char* filename;
    int quality;
    IntegerFileParams integers;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DriverJpeg>(metadata);
    RvNodeParamSTR(params, RV_FIELD(DriverJpeg, filename), "output.jpg");
    RvNodeParamINT(params, RV_FIELD(DriverJpeg, quality), 100);
    integerFileParameters(params, offsetof(DriverJpeg, integers));
}

static ImageFileSettings settings(const RtNode* node)
{
    const auto& params = *static_cast<const DriverJpeg*>(node->params);
    ImageFileSettings s =
        integerFileSettings(params.filename, params.integers, ChannelFormat::uint8);
    s.quality = std::clamp(params.quality, 1, 100);
    return s;
}

// The library leaves alpha out: the files have no room for it.
static constexpr ImageFileType type = {
    .extension = "jpg",
    .library_format = "jpeg",
    .pixel_types =
        pixelTypes(RV_TYPE_INT, RV_TYPE_BOOLEAN, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA),
    .multiple_outputs = false,
    .stores_straight_alpha = false,
    .any_tile_order = false,
    .tile_multiple = 1,
    .max_side = 65500,
    .settings = settings,
};

const RtNodeMethods driver_jpeg_methods = { &image_file_common<type, parameters>,
                                            &image_file_driver<type> };

} // namespace rv
