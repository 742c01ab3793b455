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

const RtNodeMethods driver_png_methods = { &common, &driver };

} // namespace rv
