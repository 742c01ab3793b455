/* A shader plug-in in C: "stripes" shows one of two colours, by the position along an axis of the
   object. Both colours may be linked to other shaders, and only the one that shows is worked out.
   The AOV "stripe" tells which one it is: 0 for color1, 1 for color2. */
#include <math.h>
#include <ruvell/rv.h>
#include <string.h>

/* The position of each parameter in the declaration, by which evaluate asks for it. */
enum { p_color1, p_color2, p_width, p_axis };

static const char* const axis_names[] = { "x", "y", "z", NULL };

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    RvNodeParamRGB(params, -1, "color1", 0.9f, 0.85f, 0.7f);
    RvNodeParamRGB(params, -1, "color2", 0.15f, 0.2f, 0.4f);
    RvNodeParamFLT(params, -1, "width", 0.25f);
    RvNodeParamENUM(params, -1, "axis", 1, axis_names);
    RvMetaDataSetStr(metadata, "width", "desc", "Thickness of a stripe in units of the object");
}

static void update(RtNode* node, void* params)
{
    (void)params;
    if (RvNodeGetFlt(node, "width") <= 0)
        RvMsgWarning("%s: stripes without a width are all one colour", RvNodeGetName(node));
}

static float along(const RtPoint* p, int axis)
{
    return axis == 0 ? p->x : axis == 1 ? p->y : p->z;
}

/* Called from all render threads at once. */
static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const float width = RvShaderEvalParamFuncFlt(sg, node, p_width);
    const int axis = RvShaderEvalParamFuncEnum(sg, node, p_axis);
    const float position = along(&sg->object_point, axis);
    const bool is_second = width > 0 && fmodf(floorf(position / width), 2) != 0;
    sg->out.RGB = RvShaderEvalParamFuncRGB(sg, node, is_second ? p_color2 : p_color1);
    RvAOVSetFlt(sg, "stripe", is_second ? 1.f : 0.f);
}

static const RtCommonMethods common = { parameters, NULL, update, NULL };
static const RtShaderMethods shader = { evaluate };
static const RtNodeMethods stripes = { &common, &shader };

RV_PLUGIN_EXPORT bool NodeLoader(int i, RtNodeLoader* loader)
{
    if (i != 0)
        return false;
    loader->node_type = RV_NODE_SHADER;
    loader->output_type = RV_TYPE_RGB;
    loader->name = "stripes";
    loader->methods = &stripes;
    strcpy(loader->version, RV_VERSION);
    return true;
}
