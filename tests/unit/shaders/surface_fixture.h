// Small scenes whose surfaces are shaded by the built-in shaders.
#ifndef RV_SURFACE_FIXTURE_H
#define RV_SURFACE_FIXTURE_H

#include "color.h"
#include "trace_tools.h"

#include <numbers>

namespace surface_tools {

using namespace trace_tools;

// Shapes along the z axis, lit from above, for rays that come down it.
class Surfaces : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        hooks.reset(); // real shading
        shader = node_tools::named("standard", "surface");
    }

    static void setShaderOf(RtNode* shape, RtNode* node)
    {
        RvNodeSetArray(shape, "shader", RvArray(1, 1, RV_TYPE_NODE, node));
    }
    // A disc across the z axis that carries the shader under test.
    RtNode* surface(const char* name = "wall", float z = 0)
    {
        RtNode* const node = disc(name, z);
        setShaderOf(node, shader);
        return node;
    }
    RtNode* ball(float z, float radius)
    {
        RtNode* const node = sphere("ball", { 0, 0, z }, radius);
        setShaderOf(node, shader);
        RvNodeSetBool(node, "opaque", false);
        return node;
    }
    // Another disc, of one colour whatever the light.
    static RtNode* emitter(const char* name, float z, const RtRGB& color)
    {
        RtNode* const flat = node_tools::named("flat", (std::string(name) + " color").c_str());
        RvNodeSetRGB(flat, "color", color.r, color.g, color.b);
        RtNode* const node = disc(name, z);
        setShaderOf(node, flat);
        return node;
    }
    static RtNode* setBackground(const RtRGB& color)
    {
        RtNode* const flat = node_tools::named("flat", "background");
        RvNodeSetRGB(flat, "color", color.r, color.g, color.b);
        RvNodeSetPtr(options(), "background", flat);
        return flat;
    }
    // Light of radiance 1 that comes down the z axis, tilted by an angle in degrees.
    static RtNode* distantLight(float tilt = 0)
    {
        const float angle = tilt * std::numbers::pi_v<float> / 180;
        RtNode* const light = node_tools::named("distant_light", "sun");
        RvNodeSetVec(light, "direction", sinf(angle), 0, -cosf(angle));
        return light;
    }

    void flt(const char* param, float value) { RvNodeSetFlt(shader, param, value); }
    void rgb(const char* param, float r, float g, float b) { RvNodeSetRGB(shader, param, r, g, b); }
    void flag(const char* param, bool value) { RvNodeSetBool(shader, param, value); }

    // What a ray of that type sees down the axis.
    static RtRGB seen(int type = RV_RAY_CAMERA) { return traced(down(type)).color; }
    // The same, as a continuation of a path.
    static RtRGB seenFrom(const RtShaderGlobals& sg, int type)
    {
        return traced(down(type, &sg)).color;
    }

    static RtRGB shadowOf(const RtRay& ray) { return rv::traceShadow(ray); }

    RtNode* shader = nullptr;
};

inline void expectColor(const RtRGB& got, const RtRGB& want, float tolerance = 1e-5f)
{
    EXPECT_NEAR(got.r, want.r, tolerance);
    EXPECT_NEAR(got.g, want.g, tolerance);
    EXPECT_NEAR(got.b, want.b, tolerance);
}

inline constexpr float one_over_pi = std::numbers::inv_pi_v<float>;

} // namespace surface_tools

#endif
