// texture_system: makes and configures the texture system of the process, and reports its work.
#include "texture_system.h"

#include "frame.h"
#include "options.h"
#include "system/machine.h"
#include "texture.h"
#include "texture_flush.h"

#include <algorithm>
#include <mutex>
#include <set>

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

static std::mutex settings_lock;
static TextureSettings settings;                     // in force; under the lock
static std::atomic<OIIO::TextureSystem*> the_system; // set once, under the lock

static std::mutex files_lock;
static std::set<std::string> announced_files; // under the lock, like the rest
static std::set<std::string> broken_files;
static int open_file_limit;

// Within the range that the texture system works with.
static TextureSettings settingsOf(const RtOptions& options)
{
    return { .max_open_files = std::max(1, options.texture_max_open_files),
             .max_memory_mb = std::max(0.0f, options.texture_max_memory_MB),
             .searchpath = options.texture_searchpath ? options.texture_searchpath : "",
             .automip = options.texture_automip,
             .autotile = std::clamp(options.texture_autotile, 0, max_autotile),
             .accept_untiled = options.texture_accept_untiled,
             .failure_retries = std::max(0, options.texture_failure_retries) };
}

// Raised by steps, not file by file. The lock is held.
static int roomyLimit() { return int(announced_files.size()) * 2 + 16; }

static void limitOpenFiles(OIIO::TextureSystem& system, int wanted)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    const bool is_enough = wanted > int(announced_files.size());
    open_file_limit = is_enough ? wanted : roomyLimit();
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

void markBroken(const char* file)
{
    const std::lock_guard<std::mutex> guard(files_lock);
    if (broken_files.insert(file).second)
        ++texture_generation; // other threads look again
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

static void flushTextures()
{
    presentTextureSystem()->invalidate_all(true); // and closes all
    {
        const std::lock_guard<std::mutex> guard(files_lock);
        announced_files.clear();
    }
    forgetFiles();
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
    if (system && the_frame && the_frame->hooks->rendering())
        return *system;
    const std::lock_guard<std::mutex> guard(settings_lock);
    return settle();
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
