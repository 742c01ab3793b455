// The built-in driver node types.
#ifndef RV_DRIVERS_INTERNAL_H
#define RV_DRIVERS_INTERNAL_H

#include "declare.h"
#include "rv_drivers.h"

namespace rv {

extern const RtNodeMethods driver_null_methods, driver_display_methods, driver_jpeg_methods,
    driver_png_methods, driver_tiff_methods, driver_exr_methods;

} // namespace rv

#endif
