// drivers: the "driver_null" driver node, which discards what it is given.
#include "drivers/drivers.h"

namespace rv {

struct DriverNull {
    const char* name;
};

static void parameters(RtList*, RtMetaDataStore* metadata) { declareLayout<DriverNull>(metadata); }

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

const RtNodeMethods driver_null_methods = { &common, &driver };

} // namespace rv
