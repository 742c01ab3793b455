// What is known of image files, the same for all threads: a record for every name that was ever
// looked up, kept to the end of the process like the names themselves. This header is for the
// texture modules.
#ifndef RV_TEXTURE_FILES_H
#define RV_TEXTURE_FILES_H

#include <OpenImageIO/texture.h>
#include <atomic>
#include <mutex>

namespace rv {

// First word of every message about textures.
inline constexpr const char* texture_prefix = "texturesys";

// Moves on whenever files may have changed: what was learnt about them before counts no more.
// Never 0.
inline std::atomic<unsigned> texture_generation = 1;

// What a file holds, as long as the generation stays.
struct TextureContent {
    OIIO::TextureSystem::TextureHandle* handle = nullptr;
    int channels = 0;
    int full_width = 0, full_height = 0; // of the display window
    bool is_tile_set = false;            // the name stands for many files; nothing else is filled
    bool is_missing = false;
    bool is_readable = false; // otherwise nothing below is filled
    bool has_pixels = false;
    bool has_short_integers = false;
    bool has_grey_and_alpha = false;
};

// What is said of a file once in a render, by whichever thread comes first.
enum class TextureNotice {
    refused,
    failed_again,
    missing_tile,
    outside_of_tiles,
    no_pixels,
    infinite_coordinates,
    not_a_number,
    count
};

struct TextureFile {
    explicit TextureFile(const char* lasting_name) : name(lasting_name) {}

    const char* const name;
    std::atomic<const char*> refusal = nullptr; // why it must not be looked up in; null when it may
    std::atomic<unsigned> broken_in = 0;        // generation in which reading it failed
    std::atomic<unsigned> noticed_in[size_t(TextureNotice::count)] = {}; // generations

    std::mutex lock;
    TextureContent content; // under the lock, like its generation
    unsigned known_in = 0;
    unsigned announced_in = 0; // under the lock of all files
};

// The record of a name. The library may wait forever when several threads open files beyond its
// limit, so the limit is kept above the number of files met since the last forgetAnnouncements().
TextureFile& textureFile(OIIO::TextureSystem& system, const char* name);

// What the file holds in a generation. The first thread to ask finds out, the others wait for it.
TextureContent textureContent(OIIO::TextureSystem& system,
                              OIIO::TextureSystem::Perthread* perthread, TextureFile& file,
                              unsigned generation);

// True for the first who asks in a generation.
bool isFirstNotice(TextureFile& file, TextureNotice notice, unsigned generation);

// Why the library must not be given that name, or null when it may have it.
const char* refusal(OIIO::TextureSystem& system, const char* file);

// ---- Sets of tiles ----

// A name with a mark such as <UDIM> in it stands for a file for every square of texture
// coordinates: that many columns, and rows upwards.
inline constexpr int tile_columns = 10, tile_rows = 100;

bool isTileSet(const char* name);

// Name of a tile of the set, to the end of the process.
const char* tileName(const char* set, int column, int row);

// Name of the first tile that exists; null when there is none.
const char* firstTile(OIIO::TextureSystem& system, const char* set);

// ---- Render control ----

// Whatever was learnt about files counts no more.
void forgetFiles();

// No file is open or in use now.
void forgetAnnouncements();

// The option: so many files, or more when more are in use.
void limitOpenFiles(OIIO::TextureSystem& system, int wanted);

} // namespace rv

#endif
