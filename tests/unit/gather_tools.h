// What the tests of loops that gather light share: a context on an otherwise empty place, in an
// environment that remembers the directions it was seen from.
#ifndef RV_GATHER_TOOLS_H
#define RV_GATHER_TOOLS_H

#include "brdf_tools.h"
#include "render_session.h"
#include "sampling.h"
#include "trace_tools.h"

#include <functional>

namespace gather_tools {

using namespace trace_tools;
using brdf_tools::directionAt;
using node_tools::describe;
using rv::dot, rv::operator+, rv::operator-, rv::operator*;

// The light from a direction; white without one.
inline std::function<RtRGB(const RtVector&)>& environment()
{
    static std::function<RtRGB(const RtVector&)> all;
    return all;
}

inline int shadeEnvironment(RtShaderGlobals* sg)
{
    shadeBackground(sg);
    sg->out.RGB = environment() ? environment()(sg->ray_dir) : RV_RGB_WHITE;
    sg->out_opacity = RV_RGB_WHITE;
    return RV_TYPE_RGB;
}

class Gathering : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        environment() = nullptr;
        hooks->hooks.shadeBackground = shadeEnvironment;
        setShader("background");
        for (const char* depth : { "GI_diffuse_depth", "GI_glossy_depth", "GI_refraction_depth" })
            set(depth, 1);
        state = {};
        sg = cameraContext();
        sg.state = &state;
        look(directionAt(30, 25));
    }
    void TearDown() override
    {
        if (rv::sample_tables)
            rv::the_frame->session->releaseSamplers();
        environment() = nullptr;
        Traced::TearDown();
    }

    // Prepares the scene and the tables of samples.
    static void startRender()
    {
        prepare();
        shading().contexts.clear();
        shading().states.clear();
    }
    // From a direction at a surface whose normals point along the z axis.
    void look(const RtVector& V)
    {
        sg.ray_dir = V * -1.0f;
        setNormals({ 0, 0, 1 });
    }
    void setNormals(const RtVector& N)
    {
        sg.normal = sg.facing_normal = sg.smooth_normal = N;
        sg.geometric_normal = sg.facing_geometric_normal = N;
    }
    // The rotation of loops at first hits.
    static void setRotation(double u, double v)
    {
        rv::pixel_sampling[0].rotation_u = u;
        rv::pixel_sampling[0].rotation_v = v;
    }
    void nest(int samples = 4, int index = 0)
    {
        state.loop_samples = samples;
        state.loop_index = index;
    }

    // Of all rays that left into the environment since the last call.
    static std::vector<RtVector> takeDirections()
    {
        std::vector<RtVector> all;
        for (const RtShaderGlobals& context : shading().background_contexts)
            all.push_back(context.ray_dir);
        shading().background_contexts.clear();
        shading().background_states.clear();
        return all;
    }
    static uint64_t rays(RtRayRow row = RV_ROW_TOTAL)
    {
        return rayStats().rows[RV_PASS_PIXELS][row].rays;
    }
    // "primary secondary" counts of lighting calculations.
    static std::string counts(RtLightingRow row)
    {
        const RtLightingCount& count = rv::threadStats()->lighting[row];
        return std::to_string(count.primary) + " " + std::to_string(count.secondary);
    }
    static void expectGrey(const RtRGB& got, double want, double tolerance, const std::string& what)
    {
        for (const float channel : { got.r, got.g, got.b })
            EXPECT_NEAR(channel, want, tolerance) << what;
    }

    RtShadingState state = {};
    RtShaderGlobals sg = {};
};

} // namespace gather_tools

#endif
