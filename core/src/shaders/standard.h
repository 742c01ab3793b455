// Pieces of the "standard" shader that stand for themselves.
#ifndef RV_STANDARD_H
#define RV_STANDARD_H

#include "rv_math.h"

namespace rv {

// Values of "specular_brdf".
enum SpecularBRDF { stretched_phong, ward_duer, cook_torrance };

struct LobeRoughness {
    float x, y; // along the two tangents, squared
};

// What the parameters of those names make of the lobe.
LobeRoughness standardRoughness(int specular_brdf, float Phong_exponent, float specular_roughness,
                                float specular_anisotropy);

// What is left of light after a distance through a medium that lets through `transmittance` of it
// per unit (Beer, Lambert).
RtRGB transmittanceOver(const RtRGB& transmittance, float distance);

} // namespace rv

#endif
