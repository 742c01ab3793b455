// The texture system of the image library: one for the process, made on first use and kept to the
// end, configured by the options of the scene. This header is for the texture modules; the rest of
// the library needs texture.h only.
#ifndef RV_TEXTURE_SYSTEM_H
#define RV_TEXTURE_SYSTEM_H

#include <OpenImageIO/texture.h>
#include <atomic>
#include <string>

namespace rv {

// First word of every message about textures.
inline constexpr const char* texture_prefix = "texturesys";

// Moves on whenever files may have changed: what was learnt about them before counts no more.
// Never 0.
inline std::atomic<unsigned> texture_generation = 1;

// Null before the first use.
OIIO::TextureSystem* presentTextureSystem();

// The texture system under the options of the scene. They are fixed while a render runs; between
// renders every call looks at them.
OIIO::TextureSystem& readyTextureSystem();

// To be called before a file is first opened. The library may wait forever when several threads
// open files beyond its limit, so the limit stays above the number of files in use.
void announceFile(OIIO::TextureSystem& system, const char* file);

// Why the library must not be given that name, or null when it may have it. To be asked before a
// file is first met.
const char* refusal(OIIO::TextureSystem& system, const char* file);

// Why the library must not look up a file that it has opened, or null when it may.
const char* refusal(OIIO::TextureSystem& system, const char* file, const OIIO::ImageSpec& spec);

// The library shows what it could not read of a file as black from the second lookup on. So a file
// that fails once counts as broken until the generation moves on: these mark and tell it. The mark
// is false when the file had one.
bool markBroken(const char* file);
bool isBroken(const char* file);

// What went wrong in calls of this thread since the last time; without a newline at its end.
std::string takeTextureError(OIIO::TextureSystem& system);

} // namespace rv

#endif
