// texture_files: what is known of image files, and which of them the image library must not have.
#include "texture_files.h"

#include "system/machine.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>
#include <algorithm>
#include <filesystem>
#include <string.h>
#include <unordered_map>

namespace rv {

using OIIO::TextureSystem;

static std::mutex files_lock; // the rest is under it
static std::unordered_map<std::string_view, TextureFile> files;
static int announced_count;
static unsigned announcement = 1; // moves on whenever the count starts again
static int open_file_limit;

// ---- Names and files that the library must not have ----

// Beyond these an image must be made for use as a texture: any lookup in another may reduce all of
// it, and a header of a few bytes claims what it likes. The library itself stops at 32 GB a size
// (its attribute "limits:imagesize_MB", which is the whole process's), far beyond these.
static constexpr uint64_t max_plain_pixels = 1 << 28, max_plain_values = 1 << 30;

// The library makes images up for names of these kinds.
static bool isMadeUp(const std::string& name)
{
    const std::string path = name.substr(0, name.find('?'));
    return OIIO::Strutil::iends_with(path, ".null") || OIIO::Strutil::iends_with(path, ".nul");
}

static bool isOnSearchPath(TextureSystem& system, const std::string& name)
{
    std::string path;
    system.getattribute("searchpath", path);
    std::vector<std::string> folders;
    OIIO::Filesystem::searchpath_split(path, folders);
    return !OIIO::Filesystem::searchpath_find(name, folders, false, true).empty();
}

static bool isMissing(TextureSystem& system, const char* file)
{
    std::error_code error; // the exceptions are not wanted
    return !std::filesystem::exists(file, error) && !isOnSearchPath(system, file);
}

const char* refusal(TextureSystem& system, const char* file)
{
    if (isMadeUp(file))
        return "is not an image file";
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (std::filesystem::exists(status)) {
        // A pipe may wait forever. Along the search path the library takes regular files only.
        const bool is_safe =
            std::filesystem::is_regular_file(status) || std::filesystem::is_directory(status);
        return is_safe ? nullptr : "is not a regular file";
    }
    // What is no file here could be an address in the network.
    const bool may_be_address = strchr(file, ':') != nullptr;
    return may_be_address && !isOnSearchPath(system, file) ? "does not exist" : nullptr;
}

// Whether lookups read but a part of the file, whatever they cover. What the system itself says of
// a file includes the tiles and sizes that it would make.
static bool isMadeForTextures(const std::string& path)
{
    const auto input = OIIO::ImageInput::open(path);
    return input && input->spec().tile_width > 0 && input->seek_subimage(0, 1);
}

// Why the library must not look up a file that it has opened, or null when it may.
static const char* refusal(TextureSystem& system, const char* file, const OIIO::ImageSpec& spec)
{
    const uint64_t pixels = spec.image_pixels();
    const bool is_small = pixels <= max_plain_pixels &&
                          pixels * uint64_t(std::max(1, spec.nchannels)) <= max_plain_values;
    if (is_small || isMadeForTextures(system.resolve_filename(file)))
        return nullptr;
    return "is too large for a file without tiles and smaller sizes";
}

// ---- Records ----

// Raised by steps, not file by file. The lock is held.
static int roomyLimit() { return announced_count * 2 + 16; }

// The lock is held.
static void announce(TextureSystem& system, TextureFile& file)
{
    if (file.announced_in == announcement)
        return;
    file.announced_in = announcement;
    if (++announced_count < open_file_limit)
        return;
    open_file_limit = roomyLimit();
    allowOpenFiles(open_file_limit);
    system.attribute("max_open_files", open_file_limit);
}

TextureFile& textureFile(TextureSystem& system, const char* name)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    auto found = files.find(name);
    if (found == files.end()) {
        const char* const lasting = OIIO::ustring(name).c_str();
        found = files.try_emplace(lasting, lasting).first;
    }
    announce(system, found->second);
    return found->second;
}

static void describe(const OIIO::ImageSpec& spec, TextureContent* content)
{
    content->channels = spec.nchannels;
    content->full_width = spec.full_width;
    content->full_height = spec.full_height;
    content->is_readable = true;
    content->has_pixels =
        spec.width > 0 && spec.height > 0 && spec.full_width > 0 && spec.full_height > 0;
    content->has_short_integers = spec.format.size() <= 2 && !spec.format.is_floating_point();
    content->has_grey_and_alpha = spec.nchannels == 2 && spec.alpha_channel == 1;
}

static TextureContent findOut(TextureSystem& system, TextureSystem::Perthread* perthread,
                              TextureFile& file)
{
    TextureContent content;
    content.is_tile_set = isTileSet(file.name);
    if (content.is_tile_set)
        return content;
    file.refusal = refusal(system, file.name);
    if (!file.refusal)
        content.handle = system.get_texture_handle(OIIO::ustring(file.name), perthread);
    const OIIO::ImageSpec* const spec =
        content.handle ? system.imagespec(content.handle, perthread) : nullptr;
    if (!spec) {
        content.is_missing = isMissing(system, file.name);
        system.geterror(); // whoever looks up asks again, and is told
        return content;
    }
    file.refusal = refusal(system, file.name, *spec);
    if (!file.refusal)
        describe(*spec, &content);
    return content;
}

TextureContent textureContent(TextureSystem& system, TextureSystem::Perthread* perthread,
                              TextureFile& file, unsigned generation)
{
    const std::lock_guard<std::mutex> guard(file.lock);
    if (file.known_in != generation) {
        file.content = findOut(system, perthread, file);
        file.known_in = generation;
    }
    return file.content;
}

bool isFirstNotice(TextureFile& file, TextureNotice notice, unsigned generation)
{
    // Read before it is written, for threads that meet it at every sample.
    std::atomic<unsigned>& noticed_in = file.noticed_in[size_t(notice)];
    return noticed_in != generation && noticed_in.exchange(generation) != generation;
}

// ---- Sets of tiles ----

static std::string udim(int column, int row) { return std::to_string(1001 + column + 10 * row); }

static std::string uvTile(int column, int row)
{
    return OIIO::Strutil::sprintf("u%d_v%d", column, row);
}

static std::string uvTileFromOne(int column, int row) { return uvTile(column + 1, row + 1); }

// The marks of the image library. Its own sets are not used: it finds them in no search path, never
// sees a tile that comes later, and counts rows downwards from coordinates that run downwards.
struct TileMark {
    const char* text;
    std::string (*number)(int column, int row);
};
static const TileMark tile_marks[] = {
    { "<UDIM>", udim },
    { "%(UDIM)d", udim },
    { "<UVTILE>", uvTileFromOne },
    { "<uvtile>", uvTile },
};

bool isTileSet(const char* name)
{
    return std::any_of(std::begin(tile_marks), std::end(tile_marks),
                       [&](const TileMark& mark) { return strstr(name, mark.text) != nullptr; });
}

const char* tileName(const char* set, int column, int row)
{
    std::string name = set;
    for (const TileMark& mark : tile_marks)
        name = OIIO::Strutil::replace(name, mark.text, mark.number(column, row), true);
    return OIIO::ustring(name).c_str();
}

const char* firstTile(TextureSystem& system, const char* set)
{
    for (int tile = 0; tile < tile_columns * tile_rows; ++tile) {
        const char* const name = tileName(set, tile % tile_columns, tile / tile_columns);
        if (!isMissing(system, name))
            return name;
    }
    return nullptr;
}

// ---- Render control ----

void forgetFiles() { ++texture_generation; }

void forgetAnnouncements()
{
    const std::lock_guard<std::mutex> guard(files_lock);
    announced_count = 0;
    ++announcement;
}

void limitOpenFiles(TextureSystem& system, int wanted)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    const int allowed = allowOpenFiles(wanted);
    open_file_limit = allowed > announced_count ? allowed : roomyLimit();
    system.attribute("max_open_files", open_file_limit);
}

} // namespace rv
