// The bits of RvUniverseCacheFlush.
#ifndef RV_CACHE_FLAGS_H
#define RV_CACHE_FLAGS_H

namespace rv {

enum CacheFlags {
    flush_texture_cache = 0x1,
    flush_shape_caches = 0x2 | 0x4,
    flush_skydome_tables = 0x8,
    flush_quad_tables = 0x10,
};

} // namespace rv

#endif
