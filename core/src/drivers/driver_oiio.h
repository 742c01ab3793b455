// What the drivers that write image files share.
#ifndef RV_DRIVER_OIIO_H
#define RV_DRIVER_OIIO_H

#include "drivers/drivers.h"

namespace rv {

// The parameters of the drivers whose files hold integers.
struct IntegerFileParams {
    bool output_padded; // the file holds the padded region
    float gamma;
    float dither_amplitude; // steps of the file's depth
};

// Declares them, with offsets into IntegerFileParams added to `offset`.
void integerFileParameters(RtList* params, int offset);

} // namespace rv

#endif
