// driver_exr: the "driver_exr" driver node.
#include "drivers/driver_oiio.h"

#include <limits.h>

namespace rv {

static const char* const compression_names[] = { "none", "rle", "zip", "piz", "pxr24", nullptr };

struct DriverExr {
    const char* filename;
    int compression; // index of compression_names
    bool half_precision;
    bool tiled;
    bool preserve_layer_name;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<DriverExr>(metadata);
    RvNodeParamSTR(params, RV_FIELD(DriverExr, filename), "output.exr");
    RvNodeParamENUM(params, RV_FIELD(DriverExr, compression),
                    RvEnumGetValue(compression_names, "zip"), compression_names);
    RvNodeParamBOOL(params, RV_FIELD(DriverExr, half_precision), false);
    RvNodeParamBOOL(params, RV_FIELD(DriverExr, tiled), true);
    RvNodeParamBOOL(params, RV_FIELD(DriverExr, preserve_layer_name), false);
}

static ImageFileSettings settings(const RtNode* node)
{
    const auto& params = *static_cast<const DriverExr*>(node->params);
    const ChannelFormat format =
        params.half_precision ? ChannelFormat::float16 : ChannelFormat::float32;
    return { .filename = params.filename,
             .rules = { format, 1, 0, false },
             .tiled = params.tiled,
             .layer_names = params.preserve_layer_name,
             .compression = RvEnumGetString(compression_names, params.compression) };
}

static constexpr ImageFileType type = {
    .extension = "exr",
    .library_format = "openexr",
    .pixel_types = pixelTypes(RV_TYPE_INT, RV_TYPE_FLOAT, RV_TYPE_RGB, RV_TYPE_RGBA, RV_TYPE_VECTOR,
                              RV_TYPE_POINT),
    .multiple_outputs = true,
    .stores_straight_alpha = false,
    .any_tile_order = true,
    .tile_multiple = 1,
    .max_side = INT_MAX,
    .settings = settings,
};

const RtNodeMethods driver_exr_methods = { &image_file_common<type, parameters>,
                                           &image_file_driver<type> };

} // namespace rv
