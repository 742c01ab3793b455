// heatmap: the "heatmap_filter" filter node, the mean of the samples as a colour from blue to red.
#include "filters/filters.h"

namespace rv {

struct HeatmapFilter {
    float minimum; // shown blue
    float maximum; // shown red
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<HeatmapFilter>(metadata);
    RvNodeParamFLT(params, RV_FIELD(HeatmapFilter, minimum), 0);
    RvNodeParamFLT(params, RV_FIELD(HeatmapFilter, maximum), 1);
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

const RtNodeMethods heatmap_filter_methods = { &common, &filter };

} // namespace rv
