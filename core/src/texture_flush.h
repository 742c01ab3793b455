// How the universe reaches the texture cache, which lives on the floor above and longer than any
// universe.
#ifndef RV_TEXTURE_FLUSH_H
#define RV_TEXTURE_FLUSH_H

#include <atomic>

namespace rv {

// universe -> texture_system: forgets what was read from every file. Null while there is no texture
// system.
inline std::atomic<void (*)()> flush_textures = nullptr;

} // namespace rv

#endif
