// filters: the node types of the filters that average samples by weight. They have either a fixed
// width or a "width" parameter.
#include "filters/filters.h"

namespace rv {

struct FixedFilter {
    const char* name;
};

struct WidthFilter {
    float width; // pixels, the whole footprint
    const char* name;
};

static void noParameters(RtList*, RtMetaDataStore* metadata)
{
    declareLayout<FixedFilter>(metadata);
}

template <int default_width> static void widthParameter(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<WidthFilter>(metadata);
    RvNodeParamFLT(params, RV_FIELD(WidthFilter, width), default_width);
}

template <void (*declare)(RtList*, RtMetaDataStore*)>
static const RtCommonMethods common = {
    .Parameters = declare,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtFilterMethods filter = {
    .FilterOutputType = do_nothing,
    .FilterPixel = do_nothing,
};

const RtNodeMethods box_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods catrom_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods catrom2d_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods cubic_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods mitnet_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods video_filter_methods = { &common<noParameters>, &filter };
const RtNodeMethods triangle_filter_methods = { &common<widthParameter<2>>, &filter };
const RtNodeMethods gaussian_filter_methods = { &common<widthParameter<2>>, &filter };
const RtNodeMethods cook_filter_methods = { &common<widthParameter<2>>, &filter };
const RtNodeMethods cone_filter_methods = { &common<widthParameter<2>>, &filter };
const RtNodeMethods disk_filter_methods = { &common<widthParameter<2>>, &filter };
const RtNodeMethods blackman_harris_filter_methods = { &common<widthParameter<3>>, &filter };
const RtNodeMethods sinc_filter_methods = { &common<widthParameter<6>>, &filter };

} // namespace rv
