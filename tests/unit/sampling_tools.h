// What the tests of sampling share: options from golden vectors, and points as numbers.
#ifndef RV_SAMPLING_TOOLS_H
#define RV_SAMPLING_TOOLS_H

#include "golden.h"
#include "options.h"
#include "render_session.h"
#include "sampling.h"
#include "universe_fixture.h"

#include <memory>

inline int patternCode(const nlohmann::json& name)
{
    const int code = RvEnumGetValue(rv::sampling_pattern_names, name.get<std::string>().c_str());
    EXPECT_GE(code, 0) << name;
    return code;
}

// Sets the options that a vector names among its inputs.
inline void applyOptions(const nlohmann::json& in)
{
    const struct {
        const char* name;
        int RtOptions::*field;
    } rows[] = {
        { "AA_samples", &RtOptions::AA_samples },
        { "AA_pattern", &RtOptions::AA_pattern },
        { "AA_seed", &RtOptions::AA_seed },
        { "AA_motionblur_pattern", &RtOptions::AA_motionblur_pattern },
        { "AA_sampling_dither", &RtOptions::AA_sampling_dither },
        { "GI_diffuse_samples", &RtOptions::GI_diffuse_samples },
        { "GI_sss_hemi_samples", &RtOptions::GI_sss_hemi_samples },
        { "GI_glossy_samples", &RtOptions::GI_glossy_samples },
        { "GI_refraction_samples", &RtOptions::GI_refraction_samples },
        { "GI_hemi_pattern", &RtOptions::GI_hemi_pattern },
    };
    for (const auto& row : rows)
        if (in.contains(row.name)) {
            const nlohmann::json& value = in.at(row.name);
            rv::render_options->*row.field =
                value.is_string() ? patternCode(value) : value.get<int>();
        }
    if (in.contains("sss_subpixel_cache"))
        rv::render_options->sss_subpixel_cache = in.at("sss_subpixel_cache").get<bool>();
}

struct FreeMemory {
    void operator()(void* block) const { RvFree_func(block); }
};
template <class T> using Heap = std::unique_ptr<T[], FreeMemory>;

inline std::vector<float> numbersOf(const RtPoint2* points, int count)
{
    std::vector<float> all;
    for (int i = 0; i < count; ++i)
        for (float x : { points[i].x, points[i].y })
            all.push_back(x);
    return all;
}

// Numbers of a golden vector that must be met to the last bit of single precision.
inline void expectGoldenBits(const nlohmann::json& vector, const char* key,
                             const std::vector<float>& got)
{
    EXPECT_EQ(goldenFloats(vector.at("out").at(key)), got) << goldenId(vector) << " " << key;
}

#endif
