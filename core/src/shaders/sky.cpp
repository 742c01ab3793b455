// sky: the "sky" shader node, the usual background.
#include "color.h"
#include "environment_formats.h"
#include "maths.h"
#include "rv_rays.h"
#include "shaders/kept_coordinates.h"
#include "shaders/local_record.h"
#include "shaders/shaders.h"

static const char* const module_path = "core\\src\\shaders\\sky";

namespace rv {

struct Sky {
    RtRGB color;
    float intensity;
    int visibility; // RV_RAY_* bits
    bool opaque_alpha;
    int format;    // EnvironmentFormat
    float X_angle; // degrees
    float Y_angle;
    float Z_angle;
    RtVector X; // axes of the frame that the angles turn
    RtVector Y;
    RtVector Z;
    const char* name;
};

// Places in the order of declaration, of those that are evaluated.
enum SkyParam { p_color, p_intensity, p_visibility, p_opaque_alpha, p_format };

// Fixed while workers run.
struct SkyRecord {
    RtMatrix to_map; // from world directions to those of the mapping
    bool is_textured;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Sky>(metadata);
    RvNodeParamRGB(params, RV_FIELD(Sky, color), 1, 1, 1);
    // Required: a sky is black until its intensity is set.
    RvNodeParamFLT(params, RV_FIELD(Sky, intensity), 0);
    RvNodeParamINT(params, RV_FIELD(Sky, visibility), RV_RAY_ALL);
    RvNodeParamBOOL(params, RV_FIELD(Sky, opaque_alpha), true);
    RvNodeParamENUM(params, RV_FIELD(Sky, format), angular, environment_format_names);
    RvNodeParamFLT(params, RV_FIELD(Sky, X_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(Sky, Y_angle), 0);
    RvNodeParamFLT(params, RV_FIELD(Sky, Z_angle), 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, X), 1, 0, 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, Y), 0, 1, 0);
    RvNodeParamVEC(params, RV_FIELD(Sky, Z), 0, 0, 1);
}

// ---- Orientation ----

// Into the frame of the axes, then turned about each of these in order: whatever points up in the
// world, "Y_angle" turns the panorama about its own upright axis.
static RtMatrix orientation(const Sky& sky)
{
    RtMatrix matrix, turn;
    RvM4Frame(&matrix, &RV_V3_ZERO, &sky.X, &sky.Y, &sky.Z);
    RvM4RotationX(&turn, sky.X_angle);
    RvM4Mult(&matrix, &matrix, &turn);
    RvM4RotationY(&turn, sky.Y_angle);
    RvM4Mult(&matrix, &matrix, &turn);
    RvM4RotationZ(&turn, sky.Z_angle);
    RvM4Mult(&matrix, &matrix, &turn);
    return matrix;
}

static void initialize(RtNode* node, void*)
{
    createRecord<SkyRecord>(node, module_path, __LINE__);
}

static void update(RtNode* node, void* params)
{
    if (auto* const sky = record<SkyRecord>(node))
        *sky = { orientation(*static_cast<const Sky*>(params)),
                 isLinked(node, p_color) || isLinked(node, p_intensity) };
}

// ---- Directions ----

// A direction and its screen derivatives.
struct Direction {
    RtVector dir, dx, dy;
};

static RtVector turned(const RtMatrix& matrix, const RtVector& v)
{
    RtVector out;
    RvM4VectorByMatrixMult(&out, &matrix, &v);
    return out;
}

// Derivative of the unit vector along D, of which dD is the derivative: dD / l - D (D . dD) / l^3.
static RtVector unitDerivative(const RtVector& D, const RtVector& dD)
{
    const float square = dot(D, D);
    return (dD - D * (dot(D, dD) / square)) * (1 / sqrtf(square));
}

static Direction mapDirection(const RtShaderGlobals& sg, const RtMatrix& to_map)
{
    const RtVector dir = turned(to_map, sg.ray_dir);
    if (!(dot(dir, dir) > 0))
        return {};
    return { unit(dir), unitDerivative(dir, turned(to_map, sg.dDdx)),
             unitDerivative(dir, turned(to_map, sg.dDdy)) };
}

// ---- Texture coordinates ----

// Moves a context to the place of its ray's direction in the image.
static void mapCoordinates(RtShaderGlobals* sg, int format, const RtMatrix& to_map)
{
    sg->u = sg->v = sg->dudx = sg->dudy = sg->dvdx = sg->dvdy = 0;
    const Direction d = mapDirection(*sg, to_map);
    if (const EnvironmentMapping map = environmentMapping(format))
        map(&d.dir, &d.dx, &d.dy, &sg->u, &sg->v, &sg->dudx, &sg->dudy, &sg->dvdx, &sg->dvdy);
    sg->object_point = { sg->u, sg->v, 0 };
}

// ---- Colour ----

static RtRGB color(const ShaderInputs& in) { return in.rgb(p_color) * in.flt(p_intensity); }

static RtRGB texturedColor(const ShaderInputs& in, RtShaderGlobals* sg, const RtMatrix& to_map)
{
    const KeptCoordinates kept(sg);
    mapCoordinates(sg, in.choice(p_format), to_map);
    return color(in);
}

static void evaluate(RtNode* node, RtShaderGlobals* sg)
{
    const ShaderInputs in(node, sg);
    if (!(in.integer(p_visibility) & sg->ray_type)) {
        sg->out.RGBA = RV_RGBA_BLACK;
        sg->out_opacity = RV_RGB_BLACK;
        return;
    }
    const SkyRecord& sky = recordOrDefault<SkyRecord>(node);
    const RtRGB c = sky.is_textured ? texturedColor(in, sg, sky.to_map) : color(in);
    const bool is_transparent = (sg->ray_type & RV_RAY_CAMERA) && !in.flag(p_opaque_alpha);
    sg->out.RGBA = { c.r, c.g, c.b, is_transparent ? 0.0f : 1.0f };
    sg->out_opacity = is_transparent ? RV_RGB_BLACK : RV_RGB_WHITE;
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = initialize,
    .Update = update,
    .Finish = freeRecord,
};

static const RtShaderMethods shader = {
    .Evaluate = evaluate,
};

const RtNodeMethods sky_methods = { &common, &shader };

} // namespace rv
