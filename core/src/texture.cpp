// texture: filtered lookups in image files (rv_textures.h).
//
// The texture system of the image library reads, caches and filters; what is added here is the
// renderer's part: defaults, the translation of parameters and ray type into the library's options,
// coordinates, missing channels, gamma and error colours.
//
// A lookup takes no lock and allocates nothing: every thread remembers the files it has met, and
// finds them by the address of their name. Whatever is remembered is checked against the name
// itself and the generation of the texture system.
//
// What the library could not read of a file it shows as black from the second lookup on, and to
// threads that wait for the first, without a word. So a file that fails once counts as broken for
// the rest of the render. Which lookups come before the first failure depends on the threads, and
// so does the picture, if errors do not stop the render. Better is not to be had at the price: the
// library does not tell which of its tiles are black; reading every file whole before its first use
// costs more than the render's lookups; and making it read a tile anew by forgetting the file takes
// the time of opening it for every lookup, with files without tiles that of decoding it.
#include "msg.h"
#include "options.h"
#include "rv_node.h"
#include "rv_rays.h"
#include "rv_shaderglobals.h"
#include "rv_textures.h"
#include "texture_files.h"
#include "texture_system.h"

#include <algorithm>
#include <exception>
#include <math.h>
#include <string.h>

namespace rv {

using OIIO::TextureOpt;
using OIIO::TextureSystem;

// ---- Files that a thread has met ----

// Instead of the number of a tile. With 0 a table of empty places costs no memory before it is
// used.
static constexpr int whole_name = 0;

static int tileNumber(int column, int row) { return 1 + row * tile_columns + column; }

// A line of the processor's cache.
struct KnownTexture {
    const char* address = nullptr; // of the name, as a caller passed it
    const char* name = nullptr;    // a copy that lasts
    unsigned generation = 0;
    int tile = whole_name; // of the set that the name stands for
    TextureFile* file = nullptr;
    TextureContent content;

    bool isBroken() const { return file->broken_in == generation; }
};

// Constant-initialised, so that no access pays for a check whether it was constructed.
struct ThreadTextures {
    static constexpr unsigned set_bits = 9, ways = 4;
    TextureSystem::Perthread* perthread = nullptr; // the library's own record of this thread
    unsigned next_victim = 0;
    KnownTexture known[1 << set_bits][ways];
};
static thread_local constinit ThreadTextures thread_textures = {};

// Where a name may be remembered. Fibonacci hashing: the top bits of the product depend on all bits
// of the address.
static KnownTexture* placesOf(const char* address, int tile)
{
    const uint64_t key = reinterpret_cast<uintptr_t>(address) + unsigned(tile);
    const uint64_t hash = key * 0x9E3779B97F4A7C15u;
    return thread_textures.known[hash >> (64 - ThreadTextures::set_bits)];
}

// What counts no more goes first.
static KnownTexture& placeToForget(KnownTexture* places, unsigned generation)
{
    for (unsigned i = 0; i < ThreadTextures::ways; ++i)
        if (places[i].generation != generation)
            return places[i];
    return places[thread_textures.next_victim++ % ThreadTextures::ways];
}

static KnownTexture& learnTexture(TextureSystem& system, const char* filename, int tile,
                                  unsigned generation)
{
    TextureSystem::Perthread*& perthread = thread_textures.perthread;
    if (!perthread)
        perthread = system.get_perthread_info();
    const char* const name = OIIO::ustring(filename).c_str();
    TextureFile& file =
        textureFile(system, tile == whole_name ? name
                                               : tileName(name, (tile - 1) % tile_columns,
                                                          (tile - 1) / tile_columns));
    const TextureContent content = textureContent(system, perthread, file, generation);
    KnownTexture& place = placeToForget(placesOf(filename, tile), generation);
    place = { .address = filename,
              .name = name,
              .generation = generation,
              .tile = tile,
              .file = &file,
              .content = content };
    return place;
}

static KnownTexture& findTexture(TextureSystem& system, const char* filename, int tile)
{
    const unsigned generation = texture_generation.load(std::memory_order_acquire);
    KnownTexture* const places = placesOf(filename, tile);
    for (unsigned i = 0; i < ThreadTextures::ways; ++i) {
        KnownTexture& known = places[i];
        if (known.address == filename && known.tile == tile && known.generation == generation &&
            !strcmp(known.name, filename))
            return known;
    }
    return learnTexture(system, filename, tile, generation);
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

template <class... Values>
static void reportOnce(const KnownTexture& known, TextureNotice notice, const char* format,
                       Values... values)
{
    if (isFirstNotice(*known.file, notice, known.generation))
        RvMsgError(format, texture_prefix, values...);
}

// The library says no more after a number of failures with one file.
static RtRGBA failedLookup(TextureSystem& system, const KnownTexture& known)
{
    const std::string text = takeTextureError(system);
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        if (end > start)
            RvMsgError("[%s] %s", texture_prefix, text.substr(start, end - start).c_str());
        start = end + 1;
    }
    if (text.empty())
        reportOnce(known, TextureNotice::failed_again,
                   "[%s] \"%s\" failed again; its errors are no longer listed", known.file->name);
    return errorColor();
}

static RtRGBA failedRead(TextureSystem& system, const KnownTexture& known)
{
    known.file->broken_in = known.generation;
    return failedLookup(system, known);
}

// For files that must not be looked up in, or cannot be opened.
static RtRGBA unusable(TextureSystem& system, const KnownTexture& known)
{
    if (const char* const reason = known.file->refusal) {
        reportOnce(known, TextureNotice::refused, "[%s] \"%s\" %s", known.file->name, reason);
        return errorColor();
    }
    if (!known.content.is_readable && known.content.handle)
        system.imagespec(known.content.handle, thread_textures.perthread); // says why
    return failedLookup(system, known);
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

// ---- Tiles ----

// The squares in which a coordinate may lie: its own, and those beside it when rounding may have
// taken it there. In order of preference.
struct TilePlaces {
    int at[3];
};

// Of a tile. Interpolation errs by far less.
static constexpr float edge_width = 1e-4f;

static TilePlaces placesAround(float x, int count)
{
    const auto placeOf = [count](float y) { return std::clamp(int(floorf(y)), 0, count - 1); };
    return { { placeOf(x), placeOf(x - edge_width), placeOf(x + edge_width) } };
}

static bool isWithin(float x, int count)
{
    return x >= -edge_width && x <= float(count) + edge_width;
}

// The tile that the coordinates lie in, or null when there is none; the coordinates become those
// within it. On the edge between a tile and none it is the tile.
static const KnownTexture* enterTile(TextureSystem& system, const KnownTexture& set,
                                     const char* filename, TextureCoords* c)
{
    const float s = c->s, up = 1 - c->t; // tiles are counted upwards
    if (!isWithin(s, tile_columns) || !isWithin(up, tile_rows)) {
        reportOnce(set, TextureNotice::outside_of_tiles,
                   "[%s] \"%s\" has no tile for the coordinates %f %f", set.name, double(s),
                   double(up));
        return nullptr;
    }
    const TilePlaces columns = placesAround(s, tile_columns), rows = placesAround(up, tile_rows);
    for (const int row : rows.at)
        for (const int column : columns.at) {
            const KnownTexture& tile = findTexture(system, filename, tileNumber(column, row));
            if (tile.content.is_missing)
                continue;
            c->s -= float(column);
            c->t += float(row);
            return &tile;
        }
    const KnownTexture& missing =
        findTexture(system, filename, tileNumber(columns.at[0], rows.at[0]));
    reportOnce(missing, TextureNotice::missing_tile, "[%s] \"%s\" does not exist",
               missing.file->name);
    return nullptr;
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
static RtRGBA completeChannels(const TextureContent& content, bool single_channel,
                               const float found[4])
{
    const float first = found[0];
    if (single_channel || content.channels == 1)
        return { first, first, first, found[3] };
    if (content.has_grey_and_alpha)
        return { first, first, first, found[1] };
    return { first, found[1], content.channels == 2 ? 0 : found[2], found[3] };
}

static float encoded(float value, float gamma) { return value > 0 ? powf(value, gamma) : value; }

static RtRGBA textureColor(const TextureContent& content, bool single_channel, float gamma,
                           const float found[4])
{
    RtRGBA c = completeChannels(content, single_channel, found);
    if (gamma != 1 && content.has_short_integers) {
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

static void placeImage(const TextureContent& content, const ImageSize& image, TextureCoords* c)
{
    if (image.width <= 0 || image.height <= 0)
        return;
    const float x = float(image.width) / float(content.full_width);
    const float y = float(image.height) / float(content.full_height);
    *c = { c->s * x, c->t * y, c->dsdx * x, c->dtdx * y, c->dsdy * x, c->dtdy * y };
}

static RtRGBA lookUp(const RtShaderGlobals& sg, const char* filename, const RtTextureParams& params,
                     const ImageSize& image)
{
    TextureSystem& system = readyTextureSystem();
    const KnownTexture* known = &findTexture(system, filename, whole_name);
    TextureCoords c = textureCoords(sg, params);
    const bool is_tile = known->content.is_tile_set;
    if (is_tile) {
        known = enterTile(system, *known, filename, &c);
        if (!known)
            return errorColor();
    }
    const TextureContent& content = known->content;
    if (!content.is_readable || known->isBroken())
        return unusable(system, *known);
    if (!content.has_pixels) { // the library would divide by their number
        reportOnce(*known, TextureNotice::no_pixels, "[%s] \"%s\" has no pixels",
                   known->file->name);
        return errorColor();
    }
    placeImage(content, image, &c);
    if (!isfinite(c.s) || !isfinite(c.t)) {
        reportOnce(*known, TextureNotice::infinite_coordinates,
                   "[%s] %s infinite texture coords: %f %f", objectName(sg), double(c.s),
                   double(c.t));
        return errorColor();
    }
    const RtOptions& options = *render_options;
    TextureOpt opt;
    setUpLookup(sg.ray_type, params, options, &opt);
    if (is_tile) // beyond its edges lies another tile, not this one again
        opt.swrap = opt.twrap = TextureOpt::WrapClamp;
    float found[4] = { 0, 0, 0, 1 };
    if (!system.texture(content.handle, thread_textures.perthread, opt, c.s, c.t,
                        usableDerivative(c.dsdx), usableDerivative(c.dtdx),
                        usableDerivative(c.dsdy), usableDerivative(c.dtdy),
                        params.single_channel ? 1 : 4, found))
        return failedRead(system, *known);
    const RtRGBA color = textureColor(content, params.single_channel, options.texture_gamma, found);
    if (!hasNaN(color))
        return color;
    reportOnce(*known, TextureNotice::not_a_number,
               "[%s] \"%s\" holds pixels that are not a number", known->file->name);
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
