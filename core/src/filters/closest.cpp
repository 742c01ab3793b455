// closest: the filters that pick one sample by its depth, "closest_filter" and "farthest_filter".
#include "aovs/sample_iterator.h"
#include "filters/filters.h"
#include "maths.h"

namespace rv {

static const char* const domain_names[] = { "first_hit", "all_hits", nullptr };
enum { domain_first_hit, domain_all_hits };

struct ClosestFilter {
    const char* name;
};

struct FarthestFilter {
    int domain; // index of domain_names
    const char* name;
};

static const char* depth_aov[] = { "FLOAT Z", nullptr };

static void closestParameters(RtList*, RtMetaDataStore* metadata)
{
    declareLayout<ClosestFilter>(metadata);
}

static void farthestParameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<FarthestFilter>(metadata);
    RvNodeParamENUM(params, RV_FIELD(FarthestFilter, domain), domain_first_hit, domain_names);
}

static bool seesAllHits(const void* params)
{
    return static_cast<const FarthestFilter*>(params)->domain != domain_first_hit;
}

static void initializeClosest(RtNode* node, void*)
{
    RvFilterInitialize(node, false, depth_aov, nullptr);
}

static void initializeFarthest(RtNode* node, void* params)
{
    RvFilterInitialize(node, seesAllHits(params), depth_aov, nullptr);
}

// The domain may change from render to render.
static void updateFarthest(RtNode* node, void* params)
{
    updateToOnePixel(node, params);
    if (RtFilterData* const data = filterData(node))
        data->requires_depth = seesAllHits(params);
}

static int sameType(RtNode*, int input_type) { return input_type; }

static bool isCloser(float z, float best) { return z < best; }
static bool isFarther(float z, float best) { return z > best; }

// Keeps the value of the sample whose z wins; of equals, the earlier one.
template <bool (*wins)(float z, float best)> class Pick {
public:
    Pick(int type, void* output)
        : type_(type), output_(output), depth_(namedAOV("Z", RV_TYPE_FLOAT))
    {
    }

    void offer(const RtAOVSampleIterator& samples)
    {
        const float z = loadOrZero<float>(samples.value(depth_));
        if (any_ && !wins(z, best_))
            return;
        any_ = true;
        best_ = z;
        if (const char* const value = samples.ownValue(type_))
            memcpy(output_, value, typeSize(type_));
        else
            memset(output_, 0, typeSize(type_));
    }

private:
    int type_;
    void* output_;
    const RtAOV* depth_; // null reads as 0
    bool any_ = false;
    float best_ = 0;
};

static void closestPixel(RtNode*, void*, RtAOVSampleIterator* samples, void* output, int type)
{
    Pick<isCloser> pick(type, output);
    while (samples->next())
        pick.offer(*samples);
}

static void farthestPixel(RtNode*, void* params, RtAOVSampleIterator* samples, void* output,
                          int type)
{
    const bool all_hits = seesAllHits(params);
    Pick<isFarther> pick(type, output);
    while (samples->next())
        do
            pick.offer(*samples);
        while (all_hits && samples->nextDepth());
}

static const RtCommonMethods closest_common = {
    .Parameters = closestParameters,
    .Initialize = initializeClosest,
    .Update = updateToOnePixel,
    .Finish = finishFilter,
};

static const RtCommonMethods farthest_common = {
    .Parameters = farthestParameters,
    .Initialize = initializeFarthest,
    .Update = updateFarthest,
    .Finish = finishFilter,
};

static const RtFilterMethods closest = {
    .FilterOutputType = sameType,
    .FilterPixel = closestPixel,
};

static const RtFilterMethods farthest = {
    .FilterOutputType = sameType,
    .FilterPixel = farthestPixel,
};

const RtNodeMethods closest_filter_methods = { &closest_common, &closest };
const RtNodeMethods farthest_filter_methods = { &farthest_common, &farthest };

} // namespace rv
