// driver_jpeg: the "driver_jpeg" driver node.
#include "drivers/driver_oiio.h"

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

const RtNodeMethods driver_jpeg_methods = { &common, &driver };

} // namespace rv
