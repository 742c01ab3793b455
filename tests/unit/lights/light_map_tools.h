// What the tests of lights with colours from shaders share.
#ifndef RV_LIGHT_MAP_TOOLS_H
#define RV_LIGHT_MAP_TOOLS_H

#include "lights/light_map.h"

#include "allocation_failures.h"
#include "light_tools.h"
#include "shader_tools.h"
#include "statistics.h"

#include <atomic>

namespace light_map_tools {

using namespace light_tools;
using shader_tools::Program;
using statistics::Uniform;

class MappedLights : public Lit {
protected:
    void SetUp() override
    {
        Lit::SetUp();
        evaluations = 0;
    }
    void TearDown() override
    {
        shader_tools::programs().clear();
        Lit::TearDown();
    }

    RtNode* skydome(int resolution = 32, const char* name = "sky")
    {
        node = light("skydome_light", name);
        RvNodeSetInt(node, "resolution", resolution);
        return node;
    }
    RtNode* quadLight(int resolution = 32, const char* name = "quad")
    {
        node = light("quad_light", name);
        RvNodeSetInt(node, "resolution", resolution);
        return node;
    }
    // The colour of a light from a function of the context.
    void colorBy(RtNode* target, const std::function<RtRGB(RtShaderGlobals*)>& color,
                 const char* name = "colour")
    {
        RtNode* const source =
            shader_tools::shader(name, RV_TYPE_RGB, [this, color](RtNode*, RtShaderGlobals* sg) {
                ++evaluations;
                sg->out.RGB = color(sg);
            });
        RvNodeLink(source, "color", target);
    }
    void colorBy(const std::function<RtRGB(RtShaderGlobals*)>& color) { colorBy(node, color); }
    static void setMatrices(RtNode* target, const std::vector<RtMatrix>& matrices)
    {
        RtArray* const array = RvArrayAllocate(1, uint8_t(matrices.size()), RV_TYPE_MATRIX);
        for (unsigned k = 0; k < matrices.size(); ++k)
            RvArraySetMtx(array, k, &matrices[k]);
        RvNodeSetArray(target, "matrix", array);
    }
    static RtMatrix rotation(float x, float y, float z)
    {
        RtMatrix m, r;
        RvM4RotationX(&m, x);
        RvM4RotationY(&r, y);
        RvM4Mult(&m, &m, &r);
        RvM4RotationZ(&r, z);
        RvM4Mult(&m, &m, &r);
        return m;
    }
    static RtMatrix scaling(float x, float y, float z)
    {
        RtMatrix m;
        const RtVector v = { x, y, z };
        RvM4Scaling(&m, &v);
        return m;
    }

    // Evaluations of the shader since the last call.
    int takeEvaluations() { return evaluations.exchange(0); }
    static const RtLightMap& mapOf(const RtNode* light) { return *rv::lightData(light)->map; }
    static const RtLightMethods& methods(const RtNode* light)
    {
        return *static_cast<const RtLightMethods*>(light->entry->kind_methods);
    }

    // The texts of all messages since the last call that speak of tables; durations are "*".
    static Names takeTexts()
    {
        Names texts;
        for (const LoggedMessage& m : messages()) {
            std::string text = (m.severity == 0 ? "" : m.severity == 1 ? "W " : "E ") + m.text;
            const size_t at = text.find("done - ");
            if (at != std::string::npos)
                text.replace(at + 7, text.find(" - ", at + 7) - at - 7, "*");
            if (m.severity > 0 || text.find("[quad_light]") == 0 ||
                text.find("[skydome_light]") == 0)
                texts.push_back(withoutLines(text));
        }
        messages().clear();
        return texts;
    }

    // A point whose only light is ready to be sampled, or to be asked, again and again.
    RtShaderGlobals ready(const RtPoint& at = { 0, 0, 0 }, const RtVector& normal = { 0, 0, 1 })
    {
        RtShaderGlobals sg = surface(at, normal);
        RvLightsPrepare(&sg);
        EXPECT_GT(sg.state->lights.count, 0);
        RvLightsGetSample(&sg);
        return sg;
    }
    // Draws the sample for a pair of numbers.
    static bool draw(RtShaderGlobals& sg, float u, float v)
    {
        sg.state->lights.point->sample = { u, v };
        return methods(sg.light).LightSample(sg.light, &sg);
    }
    static bool ask(RtShaderGlobals& sg, const RtVector& dir)
    {
        RtRay ray;
        RvMakeRay(&ray, RV_RAY_GLOSSY, &sg.point, &dir, 1e12, &sg);
        return methods(sg.light).LightIntersect(sg.light, &sg, &ray);
    }

    RtNode* node = nullptr;
    std::atomic<int> evaluations = 0;
};

} // namespace light_map_tools

#endif
