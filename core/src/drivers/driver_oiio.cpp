// driver_oiio: what the drivers that write image files share.
#include "drivers/driver_oiio.h"

namespace rv {

void integerFileParameters(RtList* params, int offset)
{
    RvNodeParamBOOL(params, offset + RV_FIELD(IntegerFileParams, output_padded), false);
    RvNodeParamFLT(params, offset + RV_FIELD(IntegerFileParams, gamma), 1);
    RvNodeParamFLT(params, offset + RV_FIELD(IntegerFileParams, dither_amplitude), 1);
}

} // namespace rv
