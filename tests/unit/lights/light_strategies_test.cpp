// Reflected light by samples of the light, by samples of the lobe and by both together, through
// the built-in shaders: all have the same mean.
#include "color.h"
#include "shaders/surface_fixture.h"
#include "statistics.h"
#include "thread_slot.h"

#include <stdlib.h>

namespace {

using namespace surface_tools;
using node_tools::formatted;
using node_tools::named;
using statistics::Estimate;

// ---- A diffuse lobe ----

// Lambert with samples of its own, which the built-in shaders do without.
RtVector cosineSample(const void*, float u, float v)
{
    const float r = sqrtf(u), phi = 2 * std::numbers::pi_v<float> * v;
    return { r * cosf(phi), r * sinf(phi), sqrtf(std::max(0.0f, 1 - u)) };
}
float cosineValue(const void*, const RtVector* d) { return std::max(0.0f, d->z) * one_over_pi; }

void shadeDiffuse(RtNode*, RtShaderGlobals* sg)
{
    RtRGB sum = RV_RGB_BLACK;
    RvLightsPrepare(sg);
    while (RvLightsGetSample(sg))
        sum = rv::operator+(
            sum, RvEvaluateLightSample(sg, nullptr, cosineSample, cosineValue, cosineValue));
    sg->out.RGB = sum;
}

// ---- A colour of lights ----

// Bright towards one side of a quad, or of a sky.
void shadeGradient(RtNode*, RtShaderGlobals* sg)
{
    const float x = sg->object_point.x != 0 ? sg->u : 0.5f + 0.5f * sg->ray_dir.x;
    sg->out.RGB = rv::grey(0.1f + 2 * x * x);
}

// ---- Lights and surfaces, by name ----

const char* const light_names[] = { "ball",
                                    "setting ball",
                                    "shadowed ball",
                                    "spot",
                                    "shadowed spot",
                                    "quad",
                                    "shadowed quad",
                                    "quad of angles",
                                    "textured quad",
                                    "textured quad of angles",
                                    "sky",
                                    "shadowed sky",
                                    "moving quad of angles",
                                    "moving textured quad",
                                    "moving warped sky" };
const char* const surface_names[] = { "diffuse", "stretched_phong", "ward_duer", "cook_torrance" };

class LightStrategies : public Surfaces {
protected:
    void SetUp() override
    {
        Surfaces::SetUp();
        static const RtCommonMethods common = {};
        static const RtShaderMethods methods = { .Evaluate = shadeDiffuse };
        static const RtNodeMethods all = { &common, &methods };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "diffuse", "", &all, RV_VERSION);
        static const RtShaderMethods gradient = { .Evaluate = shadeGradient };
        static const RtNodeMethods gradient_methods = { &common, &gradient };
        RvNodeInstall(RV_NODE_SHADER, RV_TYPE_RGB, "gradient", "", &gradient_methods, RV_VERSION);
    }

    static void setPoint(RtNode* node, const char* param, const RtPoint& p)
    {
        RvNodeSetArray(node, param, RvArray(1, 1, RV_TYPE_POINT, p));
    }
    // Of radiance 1.
    RtNode* ballLight(const RtPoint& center, float radius)
    {
        RtNode* const node = named("point_light", "light");
        setPoint(node, "position", center);
        RvNodeSetFlt(node, "radius", radius);
        RvNodeSetBool(node, "normalize", false);
        return node;
    }
    RtNode* spotLight()
    {
        RtNode* const node = named("spot_light", "light");
        setPoint(node, "position", { 1, 0.5f, 2 });
        setPoint(node, "look_at", { 0.2f, -0.8f, 0 });
        RvNodeSetFlt(node, "radius", 0.8f);
        RvNodeSetFlt(node, "cone_angle", 100);
        RvNodeSetFlt(node, "penumbra_angle", 30);
        return node;
    }
    void linkGradient(RtNode* node)
    {
        RvNodeLink(named("gradient", "gradient"), "color", node);
        RvNodeSetInt(node, "resolution", 24);
    }
    static void setVertices(RtNode* node, const std::vector<std::array<RtPoint, 4>>& keys)
    {
        RtArray* const array = RvArrayAllocate(4, uint8_t(keys.size()), RV_TYPE_POINT);
        for (unsigned k = 0; k < keys.size(); ++k)
            RvArraySetKey(array, k, keys[k].data());
        RvNodeSetArray(node, "vertices", array);
    }
    // Leans over the surface.
    RtNode* quadLight(bool by_angle, bool is_textured, bool is_moving)
    {
        RtNode* const node = named("quad_light", "light");
        const std::array<RtPoint, 4> still = {
            RtPoint{ 0.4f, -1, 2 }, { 0.4f, 1, 2 }, { 2, 1, 1 }, { 2, -1, 1 }
        };
        // An irregular one, by angles, or one that is only moved.
        std::array<RtPoint, 4> last = still;
        for (RtPoint& p : last)
            p = rv::operator+(p, { -0.3f, 0.2f, 0.3f });
        if (by_angle)
            last[2].y = 2;
        setVertices(node, is_moving ? std::vector{ still, last } : std::vector{ still });
        RvNodeSetBool(node, "umbrate", by_angle);
        if (is_textured)
            linkGradient(node);
        return node;
    }
    RtNode* skyLight(bool is_moving)
    {
        RtNode* const node = named("skydome_light", "light");
        RtMatrix turn, warp;
        RvM4RotationY(&turn, 25);
        const RtVector scale = { 1, 1.6f, 0.7f };
        RvM4Scaling(&warp, &scale);
        RvNodeSetArray(node, "matrix",
                       is_moving ? RvArray(1, 2, RV_TYPE_MATRIX, &turn, &warp)
                                 : RvArray(1, 1, RV_TYPE_MATRIX, &turn));
        linkGradient(node);
        return node;
    }
    void makeLight(const std::string& name)
    {
        const auto says = [&](const char* word) { return name.find(word) != std::string::npos; };
        light = says("quad")     ? quadLight(says("angles"), says("textured"), says("moving"))
                : says("sky")    ? skyLight(says("moving"))
                : name == "ball" ? ballLight({ 1.5f, 0, 2 }, 1)
                : name == "setting ball"  ? ballLight({ 1.5f, 0.2f, 0.3f }, 1)
                : name == "shadowed ball" ? ballLight({ 1.2f, -0.2f, 2 }, 0.9f)
                                          : spotLight();
        RvNodeSetInt(light, "samples", says("sky") ? 3 * samples / 2 : samples);
        if (name.starts_with("shadowed")) {
            RtNode* const screen = disc("screen", 1);
            RvNodeSetPnt(screen, "center", 0.1f, 0, 1);
            RvNodeSetFlt(screen, "radius", 0.5f);
            RvNodeSetInt(screen, "visibility", RV_RAY_SHADOW);
        }
    }
    void makeSurface(const std::string& name)
    {
        if (name == "diffuse") {
            shader = named("diffuse", "cosine");
        } else {
            flt("Kd", 0);
            flt("Ks", 1);
            RvNodeSetStr(shader, "specular_brdf", name.c_str());
            flt("specular_roughness", 0.5f);
            flt("specular_anisotropy", 0.35f);
        }
        surface();
    }
    void makeScene(const std::string& light_name, const std::string& surface_name)
    {
        startAnew();
        makeLight(light_name);
        makeSurface(surface_name);
        prepare();
    }
    void useMIS(bool mis)
    {
        RvNodeSetBool(light, "mis", mis);
        prepare();
    }

    // What a slanted camera ray sees, over the rotations that many pixels give to all samples.
    static Estimate seenLight(unsigned seed, int rounds = 800)
    {
        const RtPoint eye = { -2.4f, 0.3f, 3 };
        const RtVector dir = rv::unitPrecise({ 2.4f, -0.3f, -3 });
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_CAMERA, &eye, &dir, 1e30, nullptr);
        ray.x = 0;
        ray.y = int(seed);
        ray.time = 0.4f; // within the motion of lights that move
        return statistics::estimate(rounds, 0, [&ray](float, float) {
            ++ray.x;
            RtRay next = ray;
            const double value = double(traced(next).color.g);
            RvMemPoolReset(rv::the_frame->thread_slots[0].shading_pool);
            return value;
        });
    }

    // "" when two estimates agree within four standard errors, which must be so small that 2 %
    // would show.
    static std::string difference(const Estimate& a, const Estimate& b)
    {
        const double sigma = std::hypot(a.standard_error, b.standard_error);
        const double mean = (a.mean + b.mean) / 2, off = a.mean - b.mean;
        const bool is_sharp = 4 * sigma < 0.02 * mean;
        if (is_sharp && std::fabs(off) <= 4 * sigma)
            return "";
        return formatted("%g against %g, off by %.2f %%, %.1f standard errors%s", a.mean, b.mean,
                         100 * off / mean, off / sigma, is_sharp ? "" : " (too much noise)");
    }

    static constexpr int samples = 8; // squared
    RtNode* light = nullptr;
};

TEST_F(LightStrategies, both_techniques_together_agree_with_samples_of_the_light)
{
    for (const char* light_name : light_names)
        for (const char* surface_name : surface_names) {
            makeScene(light_name, surface_name);
            const Estimate combined = seenLight(1);
            useMIS(false);
            const Estimate of_light = seenLight(2);
            EXPECT_EQ(difference(combined, of_light), "") << light_name << ", " << surface_name;
        }
}

// ---- Samples of the lobe alone, which a process asks for once ----

class LobeStrategy : public LightStrategies {
protected:
    void SetUp() override
    {
        style = GTEST_FLAG_GET(death_test_style);
        GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a process of its own
        LightStrategies::SetUp();
    }
    void TearDown() override
    {
        LightStrategies::TearDown();
        GTEST_FLAG_SET(death_test_style, style);
    }
    // Ends the process with a report of all disagreements.
    void compareAll()
    {
        setenv("RUVELL_BRDF_SAMPLES_ONLY", "1", 1);
        std::string differences;
        for (const char* light_name : light_names)
            for (const char* surface_name : surface_names) {
                makeScene(light_name, surface_name);
                const Estimate of_lobe = seenLight(3, 4000);
                useMIS(false);
                const Estimate of_light = seenLight(4);
                const std::string found = difference(of_lobe, of_light);
                if (!found.empty())
                    differences +=
                        std::string(light_name) + ", " + surface_name + ": " + found + "\n";
            }
        fprintf(stderr, "%s", differences.empty() ? "all agree" : differences.c_str());
        _exit(0);
    }
    std::string style; // of death tests before
};

TEST_F(LobeStrategy, samples_of_the_lobe_alone_agree_with_samples_of_the_light)
{
    EXPECT_EXIT(compareAll(), ::testing::ExitedWithCode(0), "all agree");
}

// ---- Rays that find a glowing ball in place of the light ----

class GlowingBalls : public LightStrategies {
protected:
    void makeGlowingBall(const RtPoint& center, float radius)
    {
        RtNode* const glow = named("flat", "glow");
        RtNode* const node = sphere("glowing", center, radius);
        setShaderOf(node, glow);
    }
    // The same surface under a light, and below a ball of that radiance.
    std::string compare(const std::string& surface_name, const RtPoint& center, float radius)
    {
        const auto makeGround = [&] {
            startAnew();
            if (surface_name == "diffuse")
                surface();
            else
                makeSurface(surface_name);
            set("GI_diffuse_samples", samples);
            set("GI_glossy_samples", samples);
        };
        makeGround();
        light = ballLight(center, radius);
        RvNodeSetInt(light, "samples", samples);
        prepare();
        const Estimate of_light = seenLight(5);
        makeGround();
        makeGlowingBall(center, radius);
        set("GI_diffuse_depth", 1);
        set("GI_glossy_depth", 1);
        prepare();
        const Estimate of_rays = seenLight(6, 1600);
        return difference(of_rays, of_light);
    }
};

TEST_F(GlowingBalls, light_a_surface_like_a_light_of_their_size)
{
    for (const char* surface_name : surface_names)
        for (const auto& [center, radius] :
             { std::pair{ RtPoint{ 1.5f, 0, 2 }, 1.0f }, { { 1.5f, 0.2f, 0.3f }, 1.0f } })
            EXPECT_EQ(compare(surface_name, center, radius), "") << surface_name << " " << center.z;
}

} // namespace
