// variance: the "variance_filter" filter node, how much the samples of a pixel differ.
#include "filters/filters.h"

namespace rv {

struct VarianceFilter {
    float width; // pixels, the whole footprint
    bool scalar_mode;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<VarianceFilter>(metadata);
    RvNodeParamFLT(params, RV_FIELD(VarianceFilter, width), 2);
    RvNodeParamBOOL(params, RV_FIELD(VarianceFilter, scalar_mode), false);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtFilterMethods filter = {
    .FilterOutputType = do_nothing,
    .FilterPixel = do_nothing,
};

const RtNodeMethods variance_filter_methods = { &common, &filter };

} // namespace rv
