// driver_tiff: the "driver_tiff" driver node.
#include "drivers/driver_oiio.h"

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

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtDriverMethods driver = {
    .DriverSupportsPixelType = do_nothing,
    .DriverExtension = do_nothing,
    .DriverOpen = do_nothing,
    .DriverPrepareBucket = do_nothing,
    .DriverWriteBucket = do_nothing,
    .DriverClose = do_nothing,
};

const RtNodeMethods driver_tiff_methods = { &common, &driver };

} // namespace rv
