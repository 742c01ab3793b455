// The built-in filter node types.
#ifndef RV_FILTERS_INTERNAL_H
#define RV_FILTERS_INTERNAL_H

#include "declare.h"
#include "rv_filters.h"

namespace rv {

extern const RtNodeMethods box_filter_methods, catrom_filter_methods, catrom2d_filter_methods,
    closest_filter_methods, farthest_filter_methods, cook_filter_methods, cone_filter_methods,
    cubic_filter_methods, disk_filter_methods, mitnet_filter_methods, sinc_filter_methods,
    blackman_harris_filter_methods, triangle_filter_methods, video_filter_methods,
    gaussian_filter_methods, variance_filter_methods, heatmap_filter_methods;

} // namespace rv

#endif
