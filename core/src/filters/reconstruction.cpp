// reconstruction: the thirteen filter node types that average samples by weight. They differ in
// their weight (filters/weights.h) and in where their width comes from.
#include "aovs/sample_iterator.h"
#include "filters/filters.h"
#include "filters/weights.h"

namespace rv {

template <int pixels> struct FixedWidth {
    struct Params {
        const char* name;
    };
    static void parameters(RtList*, RtMetaDataStore* metadata) { declareLayout<Params>(metadata); }
    static float of(const void*) { return pixels; }
};

template <int default_pixels> struct WidthParam {
    struct Params {
        float width; // pixels, the whole footprint
        const char* name;
    };
    static void parameters(RtList* params, RtMetaDataStore* metadata)
    {
        declareLayout<Params>(metadata);
        RvNodeParamFLT(params, RV_FIELD(Params, width), default_pixels);
    }
    static float of(const void* params) { return static_cast<const Params*>(params)->width; }
};

static int averagedType(RtNode*, int input_type)
{
    if (numberCount(input_type) == 1)
        return RV_TYPE_FLOAT;
    return numberCount(input_type) ? input_type : RV_TYPE_NONE;
}

// Values as the numbers that are averaged.
template <int count> struct Numbers {
    float values[count];
};
static Numbers<1> asNumbers(int value) { return { { float(value) } }; }
static Numbers<1> asNumbers(bool value) { return { { value ? 1.0f : 0.0f } }; }
template <int count> static Numbers<count> asNumbers(const Numbers<count>& value) { return value; }

using Weight = float (*)(float x, float y, float width);

// The average of the samples of one pixel. Samples without a value pull it towards zero.
template <Weight weight, class Value, int count>
static void average(RtAOVSampleIterator samples, int type, float width, float* out)
{
    float sums[count] = {}, total = 0;
    while (samples.next()) {
        const float w = weight(samples.offset_x, samples.offset_y, width);
        total += w;
        if (const char* const value = samples.ownValue(type)) {
            const Numbers<count> numbers = asNumbers(loadAs<Value>(value));
            for (int i = 0; i < count; ++i)
                sums[i] += numbers.values[i] * w;
        }
    }
    const float factor = total == 0 ? 1 : 1 / total;
    for (int i = 0; i < count; ++i)
        out[i] = sums[i] * factor;
}

template <Weight weight>
static void averagePixel(const RtAOVSampleIterator& samples, int type, float width, float* out)
{
    switch (type) {
    case RV_TYPE_INT: return average<weight, int, 1>(samples, type, width, out);
    case RV_TYPE_BOOLEAN: return average<weight, bool, 1>(samples, type, width, out);
    case RV_TYPE_FLOAT: return average<weight, Numbers<1>, 1>(samples, type, width, out);
    case RV_TYPE_POINT2: return average<weight, Numbers<2>, 2>(samples, type, width, out);
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return average<weight, Numbers<3>, 3>(samples, type, width, out);
    case RV_TYPE_RGBA: return average<weight, Numbers<4>, 4>(samples, type, width, out);
    default: return;
    }
}

template <class Width, Weight weight> struct Reconstruction {
    static void update(RtNode* node, void* params) { RvFilterUpdate(node, Width::of(params)); }
    static void filterPixel(RtNode*, void* params, RtAOVSampleIterator* samples, void* out,
                            int type)
    {
        averagePixel<weight>(*samples, type, Width::of(params), static_cast<float*>(out));
    }
    static constexpr RtCommonMethods common = {
        .Parameters = Width::parameters,
        .Initialize = initializeFilter,
        .Update = update,
        .Finish = finishFilter,
    };
    static constexpr RtFilterMethods filter = {
        .FilterOutputType = averagedType,
        .FilterPixel = filterPixel,
    };
    static constexpr RtNodeMethods methods = { &common, &filter };
};

const RtNodeMethods box_filter_methods = Reconstruction<FixedWidth<1>, boxWeight>::methods;
const RtNodeMethods catrom_filter_methods = Reconstruction<FixedWidth<4>, catromWeight>::methods;
const RtNodeMethods catrom2d_filter_methods =
    Reconstruction<FixedWidth<4>, catrom2dWeight>::methods;
const RtNodeMethods cubic_filter_methods = Reconstruction<FixedWidth<4>, cubicWeight>::methods;
const RtNodeMethods mitnet_filter_methods = Reconstruction<FixedWidth<4>, mitnetWeight>::methods;
const RtNodeMethods video_filter_methods = Reconstruction<FixedWidth<4>, videoWeight>::methods;
const RtNodeMethods triangle_filter_methods =
    Reconstruction<WidthParam<2>, triangleWeight>::methods;
const RtNodeMethods gaussian_filter_methods =
    Reconstruction<WidthParam<2>, gaussianWeight>::methods;
const RtNodeMethods cook_filter_methods = Reconstruction<WidthParam<2>, cookWeight>::methods;
const RtNodeMethods cone_filter_methods = Reconstruction<WidthParam<2>, coneWeight>::methods;
const RtNodeMethods disk_filter_methods = Reconstruction<WidthParam<2>, diskWeight>::methods;
const RtNodeMethods blackman_harris_filter_methods =
    Reconstruction<WidthParam<3>, blackmanHarrisWeight>::methods;
const RtNodeMethods sinc_filter_methods = Reconstruction<WidthParam<6>, sincWeight>::methods;

} // namespace rv
