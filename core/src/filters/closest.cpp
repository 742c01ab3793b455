// closest: the filters that pick one sample by its depth, "closest_filter" and "farthest_filter".
#include "filters/filters.h"

namespace rv {

static const char* const domain_names[] = { "first_hit", "all_hits", nullptr };

struct ClosestFilter {
    const char* name;
};

struct FarthestFilter {
    int domain; // index of domain_names
    const char* name;
};

static void closestParameters(RtList*, RtMetaDataStore* metadata)
{
    declareLayout<ClosestFilter>(metadata);
}

static void farthestParameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<FarthestFilter>(metadata);
    RvNodeParamENUM(params, RV_FIELD(FarthestFilter, domain), 0, domain_names);
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

const RtNodeMethods closest_filter_methods = { &common<closestParameters>, &filter };
const RtNodeMethods farthest_filter_methods = { &common<farthestParameters>, &filter };

} // namespace rv
