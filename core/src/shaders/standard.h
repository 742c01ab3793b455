// Pieces of the "standard" shader that stand for themselves.
#ifndef RV_STANDARD_H
#define RV_STANDARD_H

namespace rv {

// Values of "specular_brdf".
enum SpecularBRDF { stretched_phong, ward_duer, cook_torrance };

struct LobeRoughness {
    float x, y; // along the two tangents, squared
};

// What the parameters of those names make of the lobe.
LobeRoughness standardRoughness(int specular_brdf, float Phong_exponent, float specular_roughness,
                                float specular_anisotropy);

} // namespace rv

#endif
