// variance: the "variance_filter" filter node, how much the samples of a pixel differ.
#include "aovs/sample_iterator.h"
#include "filters/filters.h"
#include "nodes.h"

#include <math.h>

namespace rv {

struct VarianceFilter {
    float width; // pixels, the whole footprint; every sample in it counts the same
    bool scalar_mode;
    const char* name;
};

static const VarianceFilter& paramsOf(const void* params)
{
    return *static_cast<const VarianceFilter*>(params);
}

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<VarianceFilter>(metadata);
    RvNodeParamFLT(params, RV_FIELD(VarianceFilter, width), 2);
    RvNodeParamBOOL(params, RV_FIELD(VarianceFilter, scalar_mode), false);
}

static void update(RtNode* node, void* params) { RvFilterUpdate(node, paramsOf(params).width); }

static int outputType(RtNode* node, int input_type)
{
    if (paramsOf(node->params).scalar_mode || numberCount(input_type) == 1)
        return RV_TYPE_FLOAT;
    return numberCount(input_type) ? input_type : RV_TYPE_NONE;
}

// Sums of squared deviations from the mean, updated sample by sample (B. P. Welford, Note on a
// method for calculating corrected sums of squares and products, Technometrics 4(3), 1962).
struct Deviations {
    int count = 0;
    float means[4] = {}, sums[4] = {};

    void add(const float numbers[4])
    {
        ++count;
        for (int i = 0; i < 4; ++i) {
            const float d = numbers[i] - means[i];
            means[i] += d / float(count);
            sums[i] += d * (numbers[i] - means[i]);
        }
    }

    float length() const
    {
        return sqrtf(sums[0] * sums[0] + sums[1] * sums[1] + sums[2] * sums[2] + sums[3] * sums[3]);
    }
};

static void filterPixel(RtNode*, void* params, RtAOVSampleIterator* samples, void* output, int type)
{
    Deviations deviations;
    while (samples->next()) {
        float numbers[4];
        readNumbers(*samples, type, numbers);
        deviations.add(numbers);
    }
    // Required: one sample divides zero by zero, none gives minus zero.
    const float divisor = float(deviations.count - 1);
    float* const variance = static_cast<float*>(output);
    const int count = numberCount(type);
    if (paramsOf(params).scalar_mode && count != 1) {
        *variance = deviations.length() / divisor;
        return;
    }
    for (int i = 0; i < count; ++i)
        variance[i] = deviations.sums[i] / divisor;
    if (type == RV_TYPE_RGBA)
        variance[3] = 1;
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initializeFilter,
    .Update = update,
    .Finish = finishFilter,
};

static const RtFilterMethods filter = {
    .FilterOutputType = outputType,
    .FilterPixel = filterPixel,
};

const RtNodeMethods variance_filter_methods = { &common, &filter };

} // namespace rv
