// How an image can hold all directions, as parameters of nodes name it; the mappings themselves are
// in rv_textures.h.
#ifndef RV_ENVIRONMENT_FORMATS_H
#define RV_ENVIRONMENT_FORMATS_H

#include "rv_textures.h"

namespace rv {

enum EnvironmentFormat { mirrored_ball, angular, latlong, cubic };

// By EnvironmentFormat.
inline constexpr const char* environment_format_names[] = { "mirrored_ball", "angular", "latlong",
                                                            "cubic", nullptr };

using EnvironmentMapping = decltype(&RvMappingAngularMapDerivs);

// Null for what is no format.
inline EnvironmentMapping environmentMapping(int format)
{
    static constexpr EnvironmentMapping mappings[] = { RvMappingMirroredBallDerivs,
                                                       RvMappingAngularMapDerivs,
                                                       RvMappingLatLongDerivs,
                                                       RvMappingCubicMapDerivs };
    const bool is_format = format >= mirrored_ball && format <= cubic;
    return is_format ? mappings[format] : nullptr;
}

} // namespace rv

#endif
