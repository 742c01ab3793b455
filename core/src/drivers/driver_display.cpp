// driver_display: the "driver_display" driver node, which hands 8-bit buckets to the host.
#include "drivers/drivers.h"

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

const RtNodeMethods driver_display_methods = { &common, &driver };

} // namespace rv
