// What render control knows of the texture system; lookups and queries are in rv_textures.h.
#ifndef RV_TEXTURE_H
#define RV_TEXTURE_H

#include <stdint.h>
#include <string>

namespace rv {

// A render starts: the texture system is made if there is none yet, gets the options of the scene,
// counts from zero and reads files again that have changed or could not be read.
void applyTextureOptions();

// The texture system's account of its work, one of every file at level 2; any number of lines.
std::string textureStatistics(int level);

int64_t textureCacheBytes();

} // namespace rv

#endif
