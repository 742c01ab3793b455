// What a texture shows beyond its borders.
#ifndef RV_TEXTURE_WRAP_H
#define RV_TEXTURE_WRAP_H

namespace rv {

// As RtTextureParams counts them.
enum TextureWrap { wrap_periodic, wrap_black, wrap_clamp, wrap_mirror, wrap_file };

// Their names in the parameters of nodes.
inline constexpr const char* wrap_names[] = { "periodic", "black", "clamp",
                                              "mirror",   "file",  nullptr };

} // namespace rv

#endif
