// texture_system: makes and configures the texture system of the process, and reports its work.
#include "texture_system.h"

#include "frame.h"
#include "options.h"
#include "system/machine.h"
#include "texture.h"
#include "texture_flush.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>
#include <algorithm>
#include <filesystem>
#include <mutex>
#include <set>
#include <string.h>

namespace rv {

// What the options say about the texture system.
struct TextureSettings {
    int max_open_files;
    float max_memory_mb;
    std::string searchpath;
    int automip, autotile, accept_untiled;
    int failure_retries;

    bool operator==(const TextureSettings&) const = default;
};

// Tiles beyond this size cost more memory than they save time.
static constexpr int max_autotile = 1024;

// More than any machine has; what the library makes of it in bytes must fit.
static constexpr float max_cache_mb = 1 << 20;

// A file that cannot be read does not become readable by any number of trials.
static constexpr int max_retries = 10;

// Beyond these an image must be made for use as a texture: any lookup in another may reduce all of
// it, and a header of a few bytes claims what it likes.
static constexpr uint64_t max_plain_pixels = 1 << 28, max_plain_values = 1 << 30;

static std::mutex settings_lock;
static TextureSettings settings;                     // in force; under the lock
static std::atomic<OIIO::TextureSystem*> the_system; // set once, under the lock
static bool flush_pending;                           // wanted while a render ran; under the lock

static std::mutex files_lock;
static std::set<std::string> announced_files; // under the lock, like the rest
static std::set<std::string> broken_files;
static int open_file_limit;

// Within the range that the texture system works with.
static TextureSettings settingsOf(const RtOptions& options)
{
    return { .max_open_files = std::max(1, options.texture_max_open_files),
             .max_memory_mb = std::min(std::max(0.0f, options.texture_max_memory_MB), max_cache_mb),
             .searchpath = options.texture_searchpath ? options.texture_searchpath : "",
             .automip = options.texture_automip,
             .autotile = std::clamp(options.texture_autotile, 0, max_autotile),
             .accept_untiled = options.texture_accept_untiled,
             .failure_retries = std::clamp(options.texture_failure_retries, 0, max_retries) };
}

// Raised by steps, not file by file. The lock is held.
static int roomyLimit() { return int(announced_files.size()) * 2 + 16; }

static void limitOpenFiles(OIIO::TextureSystem& system, int wanted)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    const int allowed = allowOpenFiles(wanted);
    const bool is_enough = allowed > int(announced_files.size());
    open_file_limit = is_enough ? allowed : roomyLimit();
    system.attribute("max_open_files", open_file_limit);
}

void announceFile(OIIO::TextureSystem& system, const char* file)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    if (!announced_files.insert(file).second || int(announced_files.size()) < open_file_limit)
        return;
    open_file_limit = roomyLimit();
    allowOpenFiles(open_file_limit);
    system.attribute("max_open_files", open_file_limit);
}

// Whatever was learnt about files counts no more.
static void forgetFiles()
{
    const std::lock_guard<std::mutex> guard(files_lock);
    broken_files.clear();
    ++texture_generation;
}

bool markBroken(const char* file)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    if (!broken_files.insert(file).second)
        return false;
    ++texture_generation; // other threads look again
    return true;
}

bool isBroken(const char* file)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    return broken_files.count(file) != 0;
}

static void configure(OIIO::TextureSystem& system, const TextureSettings& values)
{
    limitOpenFiles(system, values.max_open_files);
    system.attribute("max_memory_MB", values.max_memory_mb);
    system.attribute("searchpath", values.searchpath);
    system.attribute("automip", values.automip);
    system.attribute("autotile", values.autotile);
    system.attribute("accept_untiled", values.accept_untiled);
    system.attribute("failure_retries", values.failure_retries);
    settings = values;
    forgetFiles();
}

// No file is open or in use now.
static void forgetAnnouncements()
{
    const std::lock_guard<std::mutex> guard(files_lock);
    announced_files.clear();
}

static bool isRendering() { return the_frame && the_frame->hooks->rendering(); }

// The lock is held, and nothing renders.
static void flushWhatPends()
{
    if (!flush_pending)
        return;
    flush_pending = false;
    presentTextureSystem()->invalidate_all(true); // and closes all
    forgetAnnouncements();
    forgetFiles();
}

// Workers hold on to what they know of files, so a flush waits for the end of the render.
static void flushTextures()
{
    const std::lock_guard<std::mutex> guard(settings_lock);
    flush_pending = true;
    if (!isRendering())
        flushWhatPends();
}

// The system, made and configured where that is still to be done. The lock is held.
static OIIO::TextureSystem& settle()
{
    OIIO::TextureSystem* system = the_system;
    const bool is_new = !system;
    if (is_new)
        system = OIIO::TextureSystem::create(true);
    if (render_options) {
        const TextureSettings wanted = settingsOf(*render_options);
        if (is_new || wanted != settings)
            configure(*system, wanted);
    }
    the_system = system;
    flush_textures = flushTextures;
    return *system;
}

OIIO::TextureSystem* presentTextureSystem() { return the_system; }

OIIO::TextureSystem& readyTextureSystem()
{
    OIIO::TextureSystem* const system = the_system;
    if (system && isRendering())
        return *system;
    const std::lock_guard<std::mutex> guard(settings_lock);
    if (!isRendering())
        flushWhatPends();
    return settle();
}

// ---- Names and files that the library must not have ----

// The library makes images up for names of these kinds.
static bool isMadeUp(const std::string& name)
{
    const std::string path = name.substr(0, name.find('?'));
    return OIIO::Strutil::iends_with(path, ".null") || OIIO::Strutil::iends_with(path, ".nul");
}

static bool isOnSearchPath(OIIO::TextureSystem& system, const std::string& name)
{
    std::string path;
    system.getattribute("searchpath", path);
    std::vector<std::string> folders;
    OIIO::Filesystem::searchpath_split(path, folders);
    return !OIIO::Filesystem::searchpath_find(name, folders, false, true).empty();
}

const char* refusal(OIIO::TextureSystem& system, const char* file)
{
    if (isMadeUp(file))
        return "is not an image file";
    std::error_code error; // the exceptions are not wanted
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

const char* refusal(OIIO::TextureSystem& system, const char* file, const OIIO::ImageSpec& spec)
{
    const uint64_t pixels = spec.image_pixels();
    const bool is_small = pixels <= max_plain_pixels &&
                          pixels * uint64_t(std::max(1, spec.nchannels)) <= max_plain_values;
    if (is_small || isMadeForTextures(system.resolve_filename(file)))
        return nullptr;
    return "is too large for a file without tiles and smaller sizes";
}

std::string takeTextureError(OIIO::TextureSystem& system)
{
    std::string text = system.geterror();
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

// ---- Render control ----

void applyTextureOptions()
{
    const std::lock_guard<std::mutex> guard(settings_lock);
    OIIO::TextureSystem& system = settle();
    flushWhatPends();
    // Everything is closed, so that the limit counts the files of this render alone.
    system.close_all();
    forgetAnnouncements();
    // Others in the process may have changed what is in force.
    if (render_options)
        configure(system, settingsOf(*render_options));
    system.invalidate_all(false);
    system.reset_stats();
    forgetFiles();
}

std::string textureStatistics(int level)
{
    OIIO::TextureSystem* const system = the_system;
    return system ? system->getstats(level) : std::string();
}

int64_t textureCacheBytes()
{
    long long bytes = 0;
    OIIO::TextureSystem* const system = the_system;
    if (system)
        system->getattribute("stat:cache_memory_used", OIIO::TypeDesc::INT64, &bytes);
    return bytes;
}

} // namespace rv
