// filters: the helpers that give a filter node its local data (rv_filters.h), and what the
// built-in filters share.
#include "filters/filters.h"

#include "aovs/sample_iterator.h"
#include "nodes.h"
#include "system/memory.h"

#include <math.h>

namespace rv {

// More than any image is wide; keeps sums of pixels from overflowing.
static constexpr float most_padding = 1 << 20;

static bool isFilter(const RtNode* node) { return node && node->entry->type == RV_NODE_FILTER; }

RtFilterData* filterData(const RtNode* node)
{
    return isFilter(node) ? static_cast<RtFilterData*>(node->local_data) : nullptr;
}

int filterPadding(float radius)
{
    const float excess = radius - 0.5f; // beyond the pixel's own edge
    if (!(fabsf(excess) <= most_padding))
        return excess > 0 ? int(most_padding) : 0;
    return excess > 0 ? int(ceilf(excess)) : int(excess);
}

int numberCount(int type)
{
    switch (type) {
    case RV_TYPE_INT:
    case RV_TYPE_BOOLEAN:
    case RV_TYPE_FLOAT: return 1;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    default: return 0;
    }
}

void readNumbers(const RtAOVSampleIterator& samples, int type, float numbers[4])
{
    numbers[0] = numbers[1] = numbers[2] = numbers[3] = 0;
    const char* const value = samples.ownValue(type);
    if (!value)
        return;
    if (type == RV_TYPE_INT)
        numbers[0] = float(loadAs<int>(value));
    else if (type == RV_TYPE_BOOLEAN)
        numbers[0] = loadAs<bool>(value);
    else
        memcpy(numbers, value, size_t(numberCount(type)) * sizeof(float));
}

void initializeFilter(RtNode* node, void*) { RvFilterInitialize(node, false, nullptr, nullptr); }

void finishFilter(RtNode* node) { RvFilterDestroy(node); }

void updateToOnePixel(RtNode* node, void*) { RvFilterUpdate(node, 1); }

} // namespace rv

void RvFilterInitialize(RtNode* node, bool requires_depth, const char** required_aovs,
                        void* user_data)
{
    if (!rv::isFilter(node) || node->local_data)
        return;
    auto* const data = static_cast<RtFilterData*>(RvMalloc_func(
        sizeof(RtFilterData), "core\\src\\filters\\filters", __LINE__, "RvFilterInitialize"));
    if (!data)
        return;
    *data = {};
    data->user_data = user_data;
    data->required_aovs = required_aovs;
    data->requires_depth = requires_depth;
    node->local_data = data;
}

void RvFilterUpdate(RtNode* node, float width)
{
    RtFilterData* const data = rv::filterData(node);
    if (!data)
        return;
    data->width = width;
    data->radius = width * 0.5f;
    data->padding = rv::filterPadding(data->radius);
}

void* RvFilterGetLocalData(const RtNode* node)
{
    const RtFilterData* const data = rv::filterData(node);
    return data ? data->user_data : nullptr;
}

void RvFilterDestroy(RtNode* node)
{
    RtFilterData* const data = rv::filterData(node);
    if (!data)
        return;
    RvFree_func(data);
    node->local_data = nullptr;
}
