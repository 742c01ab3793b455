// texture_system: makes and configures the texture system of the process, and reports its work.
#include "texture_system.h"

#include "frame.h"
#include "options.h"
#include "texture.h"
#include "texture_files.h"
#include "texture_flush.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string_view>

namespace rv {

// What the options say about the texture system.
struct TextureSettings {
    int max_open_files = 0;
    float max_memory_mb = 0;
    std::string_view searchpath;
    int automip = 0, autotile = 0, accept_untiled = 0;
    int failure_retries = 0;

    bool operator==(const TextureSettings&) const = default;
};

// Tiles beyond this size cost more memory than they save time.
static constexpr int max_autotile = 1024;

// More than any machine has; what the library makes of it in bytes must fit.
static constexpr float max_cache_mb = 1 << 20;

// A file that cannot be read does not become readable by any number of trials.
static constexpr int max_retries = 10;

static std::mutex settings_lock;
static TextureSettings settings;                     // in force; under the lock
static std::atomic<unsigned> settings_number;        // counts what was in force; set under the lock
static std::atomic<OIIO::TextureSystem*> the_system; // set once, under the lock
static std::atomic<bool> flush_pending; // wanted while a render ran; set under the lock

// What a thread found in force, so that it need not take the lock to find it there again.
struct SeenSettings {
    unsigned number = 0;
    TextureSettings settings;
};
static thread_local constinit SeenSettings seen = {};

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

static void configure(OIIO::TextureSystem& system, const TextureSettings& values)
{
    limitOpenFiles(system, values.max_open_files);
    system.attribute("max_memory_MB", values.max_memory_mb);
    const OIIO::ustring searchpath(values.searchpath); // lasts
    system.attribute("searchpath", searchpath.c_str());
    system.attribute("automip", values.automip);
    system.attribute("autotile", values.autotile);
    system.attribute("accept_untiled", values.accept_untiled);
    system.attribute("failure_retries", values.failure_retries);
    settings = values;
    settings.searchpath = searchpath.c_str();
    ++settings_number;
    forgetFiles();
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
        seen = { settings_number, settings };
    }
    the_system = system;
    flush_textures = flushTextures;
    return *system;
}

OIIO::TextureSystem* presentTextureSystem() { return the_system; }

// Whether nothing has to be done to the system before this thread uses it outside of a render.
static bool isSettled()
{
    return !flush_pending && (!render_options || (seen.number == settings_number &&
                                                  seen.settings == settingsOf(*render_options)));
}

OIIO::TextureSystem& readyTextureSystem()
{
    OIIO::TextureSystem* const system = the_system;
    if (system && (isRendering() || isSettled()))
        return *system;
    const std::lock_guard<std::mutex> guard(settings_lock);
    if (!isRendering())
        flushWhatPends();
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
