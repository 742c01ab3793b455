// wireframe: the "wireframe" shader node, edges drawn over a fill colour.
#include "color.h"
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

// Places in the order of declaration.
enum WireframeParam { p_line_width, p_fill_color, p_line_color, p_raster_space, p_edge_type };

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    const float fill =
        RvWireframe(sg, in.flt(p_line_width), in.flag(p_raster_space), in.choice(p_edge_type));
    sg->out.RGB = in.rgb(fill == 0 ? p_line_color : p_fill_color);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods wireframe_methods = { &common, &shader };

} // namespace rv
