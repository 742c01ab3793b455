// The built-in filter node types, and what the filter helpers keep.
#ifndef RV_FILTERS_INTERNAL_H
#define RV_FILTERS_INTERNAL_H

#include "declare.h"
#include "rv_filters.h"

// Local data of a filter node.
struct RtFilterData {
    void* user_data;
    float width;                // pixels, the whole footprint
    float radius;               // half of it
    int32_t padding;            // pixels needed on each side of a bucket
    const char** required_aovs; // further variables, "TYPE name" each, or null
    bool requires_depth;        // wants the samples behind the first hit
};

namespace rv {

// Null for anything but a filter that was initialised.
RtFilterData* filterData(const RtNode* node);

// Pixels needed around a bucket for a footprint of that radius.
int filterPadding(float radius);

// Numbers that a value of a filtered type consists of; 0 for types that are none.
int numberCount(int type);
// The numbers of the current sample's value, 0 without one.
void readNumbers(const RtAOVSampleIterator& samples, int type, float numbers[4]);

// What the Initialize and Finish methods of most filters do.
void initializeFilter(RtNode* node, void* params);
void finishFilter(RtNode* node);
// The Update method of filters that look at nothing but their own pixel.
void updateToOnePixel(RtNode* node, void* params);

extern const RtNodeMethods box_filter_methods, catrom_filter_methods, catrom2d_filter_methods,
    closest_filter_methods, farthest_filter_methods, cook_filter_methods, cone_filter_methods,
    cubic_filter_methods, disk_filter_methods, mitnet_filter_methods, sinc_filter_methods,
    blackman_harris_filter_methods, triangle_filter_methods, video_filter_methods,
    gaussian_filter_methods, variance_filter_methods, heatmap_filter_methods;

} // namespace rv

#endif
