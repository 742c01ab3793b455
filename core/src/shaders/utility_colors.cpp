// utility_colors: what the colour modes of "utility" show. Declared by utility.h.
#include "shaders/utility.h"

#include "color.h"
#include "finite.h"
#include "hash.h"
#include "maths.h"
#include "objects/polymesh.h"
#include "rv_brdf.h"
#include "sampling.h"

#include <array>
#include <bit>
#include <iterator>
#include <math.h>

namespace rv {

// ---- Directions and places ----

static RtRGB asColor(const RtVector& v) { return { v.x, v.y, v.z }; }

// From [-1, 1] to [0, 1].
static RtRGB directionColor(const RtVector& v) { return asColor(v) * 0.5f + grey(0.5f); }

// Red, green and blue grow through the box of the object. Required: all of them at the pace of red
// along x, so that cubes of colour are cubes.
static RtRGB placeColor(const RtShaderGlobals& sg)
{
    const RtBBox box = RvShaderGlobalsGetBBoxLocal(&sg);
    const float extent = box.max.x - box.min.x;
    if (!(extent > 0 && isfinite(extent)))
        return RV_RGB_BLACK;
    // Not times an inverse, which the smallest extents do not have.
    return perChannel(asColor(sg.object_point - box.min), [extent](float x) { return x / extent; });
}

static bool isBroken(const RtVector& v)
{
    const auto tiny = [](float x) { return fabsf(x) < negligible; };
    return (tiny(v.x) && tiny(v.y) && tiny(v.z)) || !isFinite(v);
}

// ---- Hashes ----

static RtRGB hashColor(uint32_t hash)
{
    const auto byte = [hash](int shift) { return float((hash >> shift) & 255) * 0.003921569f; };
    return { byte(16), byte(8), byte(0) };
}

static uint32_t mixed(uint32_t a, uint32_t b, uint32_t c)
{
    return mix({ point_hash_key + a, point_hash_key + b, point_hash_key + c }).c;
}

static uint32_t nameHash(const RtShaderGlobals& sg)
{
    const RtNode* const carrier = utilityCarrier(sg);
    const char* const name = carrier ? RvNodeGetName(carrier) : nullptr;
    return name ? stringHash(name) : 0;
}

// One colour for each region between powers of two.
static RtRGB floatGridColor(const RtPoint& p)
{
    const auto exponent = [](float x) { return std::bit_cast<uint32_t>(x) & 0xff800000; };
    return hashColor(mixed(exponent(p.x), exponent(p.y), exponent(p.z)));
}

// ---- Stripes ----

// Bands of 10 degrees around the y axis, as the surface mirrors them, with soft borders.
static float reflectedStripes(const RtShaderGlobals& sg)
{
    RtVector R;
    RvReflect(&sg.ray_dir, &sg.normal, &R);
    const float angle = acosf(std::clamp(unit(R).y, -1.0f, 1.0f)) / 0.17453292f;
    const float f = angle - floorf(angle), folded = f <= 0.5f ? f : 1 - f;
    if (!(folded >= 0.2f)) // nor where nothing is mirrored
        return 0;
    if (folded > 0.3f)
        return 1;
    const float t = std::clamp((folded - 0.2f) / 0.10000001f, 0.0f, 1.0f);
    return t * t * (3 - 2 * t);
}

// ---- Edges ----

static RtRGB wireColor(const RtShaderGlobals& sg, int edge_type)
{
    return grey(RvWireframe(&sg, 1, true, edge_type));
}

RtRGB edgeLengthColor(float length, float pixel_error)
{
    static constexpr RtRGB colors[] = {
        { 1, 0, 0 }, { 1, 1, 0 }, { 0, 1, 0 }, { 0, 0.5f, 0.1f }, { 0, 0, 1 }
    };
    static constexpr float factors[] = { 0.25f, 0.5f, 1, 2, 4 };
    const auto threshold = [pixel_error](int i) { return factors[i] * pixel_error; };
    if (length <= threshold(0))
        return colors[0];
    for (int i = 1; i < 5 && length < threshold(4); ++i)
        if (length < threshold(i)) {
            const float start = threshold(i - 1), t = (length - start) / (threshold(i) - start);
            return colors[i - 1] * (1 - t) + colors[i] * t;
        }
    return colors[4];
}

static RtRGB subdivisionColor(const RtShaderGlobals& sg)
{
    static constexpr RtRGB unknown = { 0.7f, 0.7f, 0.7f };
    const RtGObject* const object = shapeObject(sg.object);
    if (!object || object->kind != RV_KIND_POLYMESH)
        return unknown;
    const PolyMesh& mesh = polymeshParams(geometryNode(sg.object));
    if (mesh.subdiv_type == 0 || mesh.subdiv_pixel_error == 0)
        return unknown;
    return edgeLengthColor(RvShaderGlobalsEdgeLength(&sg), mesh.subdiv_pixel_error);
}

// ---- Modes ----

struct ColorMode {
    const char* name;
    RtRGB (*color)(const ShaderInputs& in, const RtShaderGlobals& sg);
};

using In = const ShaderInputs&;
using At = const RtShaderGlobals&;

static constexpr ColorMode modes[] = {
    { "color", [](In in, At) { return in.rgb(p_color); } },
    { "ng", [](In, At sg) { return directionColor(sg.geometric_normal); } },
    { "n", [](In, At sg) { return directionColor(sg.normal); } },
    { "bary",
      [](In, At sg) {
          return RtRGB{ sg.bary_u, sg.bary_v, 0 };
      } },
    { "uv",
      [](In, At sg) {
          return RtRGB{ sg.u, sg.v, 0 };
      } },
    { "u", [](In, At sg) { return grey(sg.u); } },
    { "v", [](In, At sg) { return grey(sg.v); } },
    { "dpdu", [](In, At sg) { return directionColor(unitPrecise(sg.dPdu)); } },
    { "dpdv", [](In, At sg) { return directionColor(unitPrecise(sg.dPdv)); } },
    { "p", [](In, At sg) { return placeColor(sg); } },
    { "prims", [](In, At sg) { return hashColor(mixed(nameHash(sg), sg.prim_index, 0)); } },
    { "wire", [](In, At sg) { return wireColor(sg, 0); } },
    { "polywire", [](In, At sg) { return wireColor(sg, 1); } },
    { "obj", [](In, At sg) { return hashColor(nameHash(sg)); } },
    { "edgelength", [](In, At sg) { return subdivisionColor(sg); } },
    { "floatgrid", [](In, At sg) { return floatGridColor(sg.point); } },
    { "reflectline", [](In, At sg) { return grey(reflectedStripes(sg)); } },
    { "bad_uvs",
      [](In, At sg) {
          return RtRGB{ float(isBroken(sg.dPdu)), 0, float(isBroken(sg.dPdv)) };
      } },
};

static constexpr auto mode_names = [] {
    std::array<const char*, std::size(modes) + 1> names = {};
    for (size_t i = 0; i < std::size(modes); ++i)
        names[i] = modes[i].name;
    return names;
}();

const char* const* const utility_color_modes = mode_names.data();

RtRGB utilityColor(int mode, const ShaderInputs& in, const RtShaderGlobals& sg)
{
    const bool is_known = mode >= 0 && size_t(mode) < std::size(modes);
    return is_known ? modes[mode].color(in, sg) : RV_RGB_50GREY;
}

} // namespace rv
