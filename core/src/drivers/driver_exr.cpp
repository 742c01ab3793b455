// driver_exr: the "driver_exr" driver node.
#include "drivers/driver_oiio.h"

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

const RtNodeMethods driver_exr_methods = { &common, &driver };

} // namespace rv
