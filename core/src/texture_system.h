// The texture system of the image library: one for the process, made on first use and kept to the
// end, configured by the options of the scene. This header is for the texture modules; the rest of
// the library needs texture.h only.
#ifndef RV_TEXTURE_SYSTEM_H
#define RV_TEXTURE_SYSTEM_H

#include <OpenImageIO/texture.h>
#include <string>

namespace rv {

// Null before the first use.
OIIO::TextureSystem* presentTextureSystem();

// The texture system under the options of the scene. They are fixed while a render runs; between
// renders every call looks at them.
OIIO::TextureSystem& readyTextureSystem();

// What went wrong in calls of this thread since the last time; without a newline at its end.
std::string takeTextureError(OIIO::TextureSystem& system);

} // namespace rv

#endif
