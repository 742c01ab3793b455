// barndoor: the "barndoor" light filter, four soft-edged flaps in front of a spot light.
#include "lights/lights.h"

namespace rv {

// Positions in the projection square of the light: 0 is left or top, 1 right or bottom.
struct Barndoor {
    float barndoor_top_left;
    float barndoor_top_right;
    float barndoor_top_edge;
    float barndoor_right_top;
    float barndoor_right_bottom;
    float barndoor_right_edge;
    float barndoor_bottom_left;
    float barndoor_bottom_right;
    float barndoor_bottom_edge;
    float barndoor_left_top;
    float barndoor_left_bottom;
    float barndoor_left_edge;
    const char* name;
};

// The defaults are fully open.
static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Barndoor>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_left), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_right), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_top_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_top), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_bottom), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_right_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_left), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_right), 1);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_bottom_edge), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_top), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_bottom), 0);
    RvNodeParamFLT(params, RV_FIELD(Barndoor, barndoor_left_edge), 0);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = do_nothing,
};

const RtNodeMethods barndoor_methods = { &common, &shader };

} // namespace rv
