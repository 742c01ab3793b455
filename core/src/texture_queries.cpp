// texture_queries: what image files say about themselves (rv_textures.h), by way of the texture
// system, which keeps them open for the lookups to come.
#include "msg.h"
#include "rv_textures.h"
#include "texture_files.h"
#include "texture_system.h"

#include <exception>
#include <string.h>

namespace rv {

using OIIO::TextureSystem;
using OIIO::TypeDesc;
using OIIO::ustring;

static void reportFailure(const char* function, const char* filename, const std::string& text)
{
    if (!text.empty())
        RvMsgError("[%s] %s / get_texture_info failed on %s: %s", texture_prefix, function,
                   filename, text.c_str());
}

// Asks about a file: ask(system, name) is false when the texture system cannot tell.
template <class Ask> static bool query(const char* function, const char* filename, Ask ask)
{
    if (!filename || !*filename)
        return false;
    try {
        TextureSystem& system = readyTextureSystem();
        const char* const file =
            isTileSet(filename) ? firstTile(system, filename) : filename; // one for all
        const char* const reason = file ? refusal(system, file) : "has no tiles";
        if (reason) {
            reportFailure(function, filename, reason);
            return false;
        }
        textureFile(system, file);
        if (ask(system, ustring(file)))
            return true;
        reportFailure(function, filename, takeTextureError(system));
    } catch (const std::exception& e) {
        reportFailure(function, filename, e.what());
    }
    return false;
}

static bool info(TextureSystem& system, ustring file, const char* key, TypeDesc type, void* value)
{
    return system.get_texture_info(file, 0, ustring(key), type, value);
}

static bool matrixInfo(TextureSystem& system, ustring file, const char* key, const char* older_key,
                       RtMatrix* matrix)
{
    if (info(system, file, key, OIIO::TypeMatrix, matrix))
        return true;
    return !system.has_error() && info(system, file, older_key, OIIO::TypeMatrix, matrix);
}

// The type of the pixels; unknown for files that cannot be read.
static TypeDesc pixelType(const char* function, const char* filename)
{
    TypeDesc type;
    query(function, filename, [&](TextureSystem& system, ustring file) {
        const OIIO::ImageSpec* const spec = system.imagespec(file);
        if (spec)
            type = spec->format;
        return spec != nullptr;
    });
    return type;
}

// What the queries tell of the types that pixels have.
struct PixelTypeRow {
    TypeDesc::BASETYPE type;
    int bits;
    int value_type; // RV_TYPE_*
};

static const PixelTypeRow* pixelTypeRow(const char* function, const char* filename)
{
    static const PixelTypeRow rows[] = {
        { TypeDesc::UINT8, 8, RV_TYPE_UINT },    { TypeDesc::INT8, 8, RV_TYPE_INT },
        { TypeDesc::UINT16, 16, RV_TYPE_UINT },  { TypeDesc::INT16, 16, RV_TYPE_INT },
        { TypeDesc::HALF, 16, RV_TYPE_FLOAT },   { TypeDesc::UINT32, 32, RV_TYPE_UINT },
        { TypeDesc::INT32, 32, RV_TYPE_INT },    { TypeDesc::FLOAT, 32, RV_TYPE_FLOAT },
        { TypeDesc::DOUBLE, 64, RV_TYPE_FLOAT },
    };
    const TypeDesc type = pixelType(function, filename);
    for (const PixelTypeRow& row : rows)
        if (row.type == type.basetype)
            return &row;
    return nullptr;
}

} // namespace rv

bool RvTextureGetResolution(const char* filename, int* width, int* height)
{
    return width && height &&
           rv::query("RvTextureGetResolution", filename, [&](auto& system, rv::ustring file) {
               int size[2];
               if (!rv::info(system, file, "resolution", { rv::TypeDesc::INT, 2 }, size))
                   return false;
               *width = size[0];
               *height = size[1];
               return true;
           });
}

bool RvTextureGetNumChannels(const char* filename, int* nchannels)
{
    return nchannels &&
           rv::query("RvTextureGetNumChannels", filename, [&](auto& system, rv::ustring file) {
               return rv::info(system, file, "channels", OIIO::TypeInt, nchannels);
           });
}

bool RvTextureGetBitDepth(const char* filename, int* bits)
{
    const rv::PixelTypeRow* const row =
        bits ? rv::pixelTypeRow("RvTextureGetBitDepth", filename) : nullptr;
    if (row)
        *bits = row->bits;
    return row != nullptr;
}

bool RvTextureGetFormat(const char* filename, int* type)
{
    const rv::PixelTypeRow* const row =
        type ? rv::pixelTypeRow("RvTextureGetFormat", filename) : nullptr;
    if (row)
        *type = row->value_type;
    return row != nullptr;
}

bool RvTextureGetMatrices(const char* filename, RtMatrix* world_to_screen,
                          RtMatrix* world_to_camera)
{
    return world_to_screen && world_to_camera &&
           rv::query("RvTextureGetMatrices", filename, [&](auto& system, rv::ustring file) {
               RtMatrix screen, camera;
               if (!rv::matrixInfo(system, file, "worldtoscreen", "worldToNDC", &screen) ||
                   !rv::matrixInfo(system, file, "worldtocamera", "worldToCamera", &camera))
                   return false;
               *world_to_screen = screen;
               *world_to_camera = camera;
               return true;
           });
}
