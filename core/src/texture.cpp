// texture: filtered lookups in image files (rv_textures.h).
//
// The texture system of the image library reads, caches and filters; what is added here is the
// renderer's part: defaults, the translation of parameters and ray type into the library's options,
// coordinates, missing channels, gamma and error colours.
//
// A lookup takes no lock and allocates nothing: every thread remembers the files it has met, and
// finds them by the address of their name. Whatever is remembered is checked against the name
// itself and the generation of the texture system.
#include "msg.h"
#include "options.h"
#include "rv_node.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"
#include "rv_textures.h"
#include "texture_system.h"

#include <algorithm>
#include <exception>
#include <math.h>
#include <string.h>

namespace rv {

using OIIO::TextureOpt;
using OIIO::TextureSystem;

// ---- Files that a thread has met ----

struct KnownTexture {
    const char* address = nullptr; // of the name, as a caller passed it
    const char* name = nullptr;    // a copy that lasts
    unsigned generation = 0;
    TextureSystem::TextureHandle* handle = nullptr;
    bool is_broken = false;
    bool is_reported = false;  // something was said about this file that needs saying once only
    bool is_described = false; // the rest is filled
    bool has_short_integers = false;
    bool has_grey_and_alpha = false;
    bool has_pixels = false;
    int channels = 0, full_width = 0, full_height = 0; // of the display window
};

// Constant-initialised, so that no access pays for a check whether it was constructed.
struct ThreadTextures {
    static constexpr unsigned size_bits = 8;
    TextureSystem::Perthread* perthread = nullptr; // the library's own record of this thread
    KnownTexture known[1 << size_bits];
};
static thread_local constinit ThreadTextures thread_textures = {};

// Fibonacci hashing: the top bits of the product depend on all bits of the address.
static unsigned slotOf(const char* address)
{
    return unsigned(reinterpret_cast<uintptr_t>(address) * 0x9E3779B97F4A7C15u >>
                    (64 - ThreadTextures::size_bits));
}

// Breaks the file for all threads, of which the first says why.
static void refuse(KnownTexture& file, const char* reason)
{
    file.is_broken = true;
    file.is_reported = true;
    if (markBroken(file.name))
        RvMsgError("[%s] \"%s\" %s", texture_prefix, file.name, reason);
}

static KnownTexture& findTexture(TextureSystem& system, const char* filename)
{
    ThreadTextures& mine = thread_textures;
    KnownTexture& file = mine.known[slotOf(filename)];
    const unsigned generation = texture_generation.load(std::memory_order_acquire);
    if (file.address == filename && file.generation == generation && !strcmp(file.name, filename))
        return file;
    if (!mine.perthread)
        mine.perthread = system.get_perthread_info();
    announceFile(system, filename);
    const OIIO::ustring name(filename);
    const char* const reason = refusal(system, name.c_str());
    file = { .address = filename,
             .name = name.c_str(),
             .generation = generation,
             .handle = reason ? nullptr : system.get_texture_handle(name, mine.perthread),
             .is_broken = isBroken(name.c_str()) };
    if (reason)
        refuse(file, reason);
    return file;
}

// Learns what the file holds; false when it cannot be opened, or could not be read before.
static bool describe(TextureSystem& system, KnownTexture& file)
{
    if (file.is_described)
        return !file.is_broken;
    const OIIO::ImageSpec* const spec =
        file.handle ? system.imagespec(file.handle, thread_textures.perthread) : nullptr;
    if (!spec)
        return false;
    file.is_described = true;
    file.has_short_integers = spec->format.size() <= 2 && !spec->format.is_floating_point();
    file.has_grey_and_alpha = spec->nchannels == 2 && spec->alpha_channel == 1;
    file.channels = spec->nchannels;
    file.has_pixels =
        spec->width > 0 && spec->height > 0 && spec->full_width > 0 && spec->full_height > 0;
    file.full_width = spec->full_width;
    file.full_height = spec->full_height;
    if (const char* const reason = refusal(system, file.name, *spec))
        refuse(file, reason);
    return !file.is_broken;
}

// ---- Failures ----

static const char* objectName(const RtShaderGlobals& sg)
{
    return sg.object ? RvNodeGetName(sg.object) : "";
}

static RtRGBA errorColor()
{
    const RtRGB c = render_options ? render_options->error_color_bad_texture : RV_RGB_RED;
    return { c.r, c.g, c.b, 1 };
}

// Once for every thread and file in a render.
template <class... Values>
static void reportOnce(KnownTexture& file, const char* format, Values... values)
{
    if (!file.is_reported)
        RvMsgError(format, texture_prefix, values...);
    file.is_reported = true;
}

// The library says no more after a number of failures with one file.
static RtRGBA failedLookup(TextureSystem& system, KnownTexture& file)
{
    const std::string text = takeTextureError(system);
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        if (end > start)
            RvMsgError("[%s] %s", texture_prefix, text.substr(start, end - start).c_str());
        start = end + 1;
    }
    if (text.empty())
        reportOnce(file, "[%s] \"%s\" failed again; its errors are no longer listed", file.name);
    return errorColor();
}

static RtRGBA failedRead(TextureSystem& system, KnownTexture& file)
{
    markBroken(file.name);
    return failedLookup(system, file);
}

// ---- Coordinates ----

struct TextureCoords {
    float s, t;
    float dsdx, dtdx, dsdy, dtdy;
};

// Derivatives beyond this cover any texture whole.
static constexpr float max_derivative = 1e6f;

static float usableDerivative(float d)
{
    if (fabsf(d) <= max_derivative)
        return d;
    return d != d ? 0 : copysignf(max_derivative, d);
}

static TextureCoords textureCoords(const RtShaderGlobals& sg, const RtTextureParams& params)
{
    TextureCoords c = { sg.u, sg.v, sg.dudx, sg.dvdx, sg.dudy, sg.dvdy };
    if (params.swap_st)
        c = { c.t, c.s, c.dtdx, c.dsdx, c.dtdy, c.dsdy };
    if (params.flip_s)
        c = { 1 - c.s, c.t, -c.dsdx, c.dtdx, -c.dsdy, c.dtdy };
    if (params.flip_t)
        c = { c.s, 1 - c.t, c.dsdx, -c.dtdx, c.dsdy, -c.dtdy };
    // The t axis of the file runs downwards.
    return { c.s * params.scale_s,     1 - c.t * params.scale_t, c.dsdx * params.scale_s,
             c.dtdx * -params.scale_t, c.dsdy * params.scale_s,  c.dtdy * -params.scale_t };
}

// ---- Options of a lookup ----

// Code of the filter that is taken unless a lookup asks for another.
static constexpr int smart_bicubic = 3;

// By the codes of the parameters; a code that means nothing leaves it to the file.
static TextureOpt::Wrap wrapOf(int code)
{
    static constexpr TextureOpt::Wrap wraps[] = { TextureOpt::WrapPeriodic, TextureOpt::WrapBlack,
                                                  TextureOpt::WrapClamp, TextureOpt::WrapMirror };
    return code >= 0 && code < int(std::size(wraps)) ? wraps[code] : TextureOpt::WrapDefault;
}

static TextureOpt::InterpMode interpolationOf(int filter)
{
    static constexpr TextureOpt::InterpMode modes[] = { TextureOpt::InterpClosest,
                                                        TextureOpt::InterpBilinear,
                                                        TextureOpt::InterpBicubic };
    return filter >= 0 && filter < int(std::size(modes)) ? modes[filter]
                                                         : TextureOpt::InterpSmartBicubic;
}

// Two to the power of the bias, kept within what the filters can be asked for.
static float widthOf(int mipmap_bias)
{
    return mipmap_bias == 0 ? 1 : ldexpf(1, std::clamp(mipmap_bias, -30, 30));
}

// A part of the texture's width, which may be all of it.
static float usableBlur(float blur) { return blur > 0 ? std::min(blur, 1.0f) : 0; }

static void setUpLookup(int ray_type, const RtTextureParams& params, const RtOptions& options,
                        TextureOpt* opt)
{
    opt->swrap = wrapOf(params.wrap_s);
    opt->twrap = wrapOf(params.wrap_t);
    opt->interpmode = interpolationOf(params.filter);
    opt->conservative_filter = options.texture_conservative_lookups;
    opt->swidth = opt->twidth = widthOf(params.mipmap_bias);
    opt->fill = 1; // alpha of images without one
    if (ray_type & RV_RAY_DIFFUSE) {
        opt->mipmode = TextureOpt::MipModeOneLevel;
        opt->interpmode = TextureOpt::InterpClosest;
        opt->sblur = opt->tblur = usableBlur(options.texture_diffuse_blur);
    } else if (ray_type & RV_RAY_GLOSSY) {
        opt->mipmode = TextureOpt::MipModeTrilinear;
        opt->interpmode = TextureOpt::InterpBilinear;
        opt->sblur = opt->tblur = usableBlur(options.texture_glossy_blur);
    }
}

// ---- Colours ----

// What a file with few channels, or a lookup of one, shows.
static RtRGBA completeChannels(const KnownTexture& file, bool single_channel, const float found[4])
{
    const float first = found[0];
    if (single_channel || file.channels == 1)
        return { first, first, first, found[3] };
    if (file.has_grey_and_alpha)
        return { first, first, first, found[1] };
    return { first, found[1], file.channels == 2 ? 0 : found[2], found[3] };
}

static float encoded(float value, float gamma) { return value > 0 ? powf(value, gamma) : value; }

static RtRGBA textureColor(const KnownTexture& file, bool single_channel, float gamma,
                           const float found[4])
{
    RtRGBA c = completeChannels(file, single_channel, found);
    if (gamma != 1 && file.has_short_integers) {
        c.r = encoded(c.r, gamma);
        c.g = encoded(c.g, gamma);
        c.b = encoded(c.b, gamma);
    }
    return c;
}

static bool hasNaN(const RtRGBA& c) { return c.r != c.r || c.g != c.g || c.b != c.b || c.a != c.a; }

// ---- The lookup ----

// An image of these pixels lies in the top left corner of the file's display window, to which the
// library's coordinates refer; as large as that when the size is not positive.
struct ImageSize {
    int width, height;
};

static void placeImage(const KnownTexture& file, const ImageSize& image, TextureCoords* c)
{
    if (image.width <= 0 || image.height <= 0)
        return;
    const float x = float(image.width) / float(file.full_width);
    const float y = float(image.height) / float(file.full_height);
    *c = { c->s * x, c->t * y, c->dsdx * x, c->dtdx * y, c->dsdy * x, c->dtdy * y };
}

static RtRGBA lookUp(const RtShaderGlobals& sg, const char* filename, const RtTextureParams& params,
                     const ImageSize& image)
{
    TextureSystem& system = readyTextureSystem();
    KnownTexture& file = findTexture(system, filename);
    if (!describe(system, file))
        return failedLookup(system, file);
    if (!file.has_pixels) { // the library would divide by their number
        reportOnce(file, "[%s] \"%s\" has no pixels", file.name);
        return errorColor();
    }
    TextureCoords c = textureCoords(sg, params);
    placeImage(file, image, &c);
    if (!isfinite(c.s) || !isfinite(c.t)) {
        reportOnce(file, "[%s] %s infinite texture coords: %f %f", objectName(sg), double(c.s),
                   double(c.t));
        return errorColor();
    }
    const RtOptions& options = *render_options;
    TextureOpt opt;
    setUpLookup(sg.ray_type, params, options, &opt);
    float found[4] = { 0, 0, 0, 1 };
    if (!system.texture(file.handle, thread_textures.perthread, opt, c.s, c.t,
                        usableDerivative(c.dsdx), usableDerivative(c.dtdx),
                        usableDerivative(c.dsdy), usableDerivative(c.dtdy),
                        params.single_channel ? 1 : 4, found))
        return failedRead(system, file);
    const RtRGBA color = textureColor(file, params.single_channel, options.texture_gamma, found);
    if (!hasNaN(color))
        return color;
    reportOnce(file, "[%s] \"%s\" holds pixels that are not a number", file.name);
    return errorColor();
}

static RtRGBA textureAccess(const RtShaderGlobals* sg, const char* filename,
                            const RtTextureParams* params, const ImageSize& image)
{
    const bool is_named = filename && *filename;
    if (!sg || !is_named || !params) {
        if (is_named)
            RvMsgError("[%s] missing arguments in texture lookup (filename = \"%s\")",
                       texture_prefix, filename);
        return errorColor();
    }
    if (sg->u != sg->u || sg->v != sg->v) {
        // Required: the end of the process, for a mesh or shader is broken.
        RvMsgFatal("[%s] %s invalid texture coords: %f %f", texture_prefix, objectName(*sg),
                   double(sg->u), double(sg->v));
        return errorColor();
    }
    if (!render_options)
        return errorColor(); // nothing says how to look
    if (render_options->ignore_textures)
        return { 0.5f, 0.5f, 0.5f, 1 };
    try {
        return lookUp(*sg, filename, *params, image);
    } catch (const std::exception& e) {
        RvMsgError("[%s] %s: %s", texture_prefix, filename, e.what());
        return errorColor();
    }
}

} // namespace rv

void RvTextureParamsSetDefaults(RtTextureParams* params)
{
    if (!params)
        return;
    *params = {};
    params->scale_s = params->scale_t = 1;
    params->filter = rv::smart_bicubic;
}

RtRGBA RvTextureAccess(const RtShaderGlobals* sg, const char* filename,
                       const RtTextureParams* params)
{
    return rv::textureAccess(sg, filename, params, {});
}

RtRGBA RvTextureAccessResized(const RtShaderGlobals* sg, const char* filename,
                              const RtTextureParams* params, int width, int height)
{
    return rv::textureAccess(sg, filename, params, { width, height });
}
