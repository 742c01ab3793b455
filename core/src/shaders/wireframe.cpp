// wireframe: the "wireframe" shader node, edges drawn over a fill colour.
#include "shaders/shaders.h"

namespace rv {

static const char* const edge_type_names[] = { "triangles", "polygons", "patches", nullptr };

struct Wireframe {
    float line_width; // pixels with raster_space, else world units
    RtRGB fill_color;
    RtRGB line_color;
    bool raster_space;
    int edge_type;
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Wireframe>(metadata);
    RvNodeParamFLT(params, RV_FIELD(Wireframe, line_width), 1);
    RvNodeParamRGB(params, RV_FIELD(Wireframe, fill_color), 1, 1, 1);
    RvNodeParamRGB(params, RV_FIELD(Wireframe, line_color), 0, 0, 0);
    RvNodeParamBOOL(params, RV_FIELD(Wireframe, raster_space), true);
    RvNodeParamENUM(params, RV_FIELD(Wireframe, edge_type), 0, edge_type_names);
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

const RtNodeMethods wireframe_methods = { &common, &shader };

} // namespace rv
