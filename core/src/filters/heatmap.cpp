// heatmap: the "heatmap_filter" filter node, the mean of the samples as a colour from blue to red.
#include "aovs/sample_iterator.h"
#include "filters/filters.h"

#include <algorithm>
#include <math.h>

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

static int outputType(RtNode*, int input_type)
{
    switch (input_type) {
    case RV_TYPE_INT:
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA:
    case RV_TYPE_VECTOR: return RV_TYPE_RGBA;
    default: return RV_TYPE_NONE;
    }
}

// How much a value is; the alpha of colours does not count.
static float magnitude(const float numbers[4], int type)
{
    if (numberCount(type) == 1)
        return numbers[0];
    return sqrtf(numbers[0] * numbers[0] + numbers[1] * numbers[1] + numbers[2] * numbers[2]);
}

static float meanMagnitude(RtAOVSampleIterator* samples, int type)
{
    float sum = 0;
    int count = 0;
    for (; samples->next(); ++count) {
        float numbers[4];
        readNumbers(*samples, type, numbers);
        sum += magnitude(numbers, type);
    }
    return count ? sum / float(count) : 0;
}

static RtRGBA heatColor(float mean, float minimum, float maximum)
{
    const float clamped = std::min(std::max(mean, minimum), maximum);
    // Required: equal bounds divide by zero.
    const float t = (clamped - minimum) / (maximum - minimum);
    return { t * t, (4 - 4 * t) * t, (1 - t) * (1 - t), 1 };
}

static void filterPixel(RtNode*, void* params, RtAOVSampleIterator* samples, void* output, int type)
{
    const auto& heatmap = *static_cast<const HeatmapFilter*>(params);
    *static_cast<RtRGBA*>(output) =
        heatColor(meanMagnitude(samples, type), heatmap.minimum, heatmap.maximum);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initializeFilter,
    .Update = updateToOnePixel,
    .Finish = finishFilter,
};

static const RtFilterMethods filter = {
    .FilterOutputType = outputType,
    .FilterPixel = filterPixel,
};

const RtNodeMethods heatmap_filter_methods = { &common, &filter };

} // namespace rv
