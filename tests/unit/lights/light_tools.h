// What the tests of lights share: lights, points that they light, and what arrives there.
#ifndef RV_LIGHT_TOOLS_H
#define RV_LIGHT_TOOLS_H

#include "lights/light_loop.h"
#include "options.h"
#include "thread_slot.h"
#include "trace_tools.h"

namespace light_tools {

using node_tools::named;
using rv::operator+;
using rv::operator-;
using rv::operator*;
using trace_tools::Names;
using trace_tools::shading;

inline constexpr float pi = 3.14159265f;

// One sample of the loop as a shader sees it.
struct Sample {
    RtRGB radiance, unoccluded, shadow;
    RtVector dir;
    float dist, weight;
    RtNode* light;
    int count;
};

inline void updateLight(RtNode* node)
{
    rv::RvNodeInitialize(node);
    node->entry->methods->Update(node, node->params);
}

class Lit : public trace_tools::Traced {
protected:
    void TearDown() override
    {
        states.clear();
        Traced::TearDown();
    }

    static RtNode* light(const char* type, const char* name = "light") { return named(type, name); }
    static RtNode* pointLight(const RtPoint& position, float radius = 0, const char* name = "light")
    {
        RtNode* const node = light("point_light", name);
        RvNodeSetArray(node, "position", RvArray(1, 1, RV_TYPE_POINT, position));
        RvNodeSetFlt(node, "radius", radius);
        return node;
    }
    static RtNode* spotLight(const RtPoint& position, const RtPoint& look_at)
    {
        RtNode* const node = light("spot_light");
        RvNodeSetArray(node, "position", RvArray(1, 1, RV_TYPE_POINT, position));
        RvNodeSetArray(node, "look_at", RvArray(1, 1, RV_TYPE_POINT, look_at));
        RvNodeSetArray(node, "up", RvArray(1, 1, RV_TYPE_VECTOR, RtVector{ 1, 0, 0 }));
        return node;
    }
    static RtNode* distantLight(const RtVector& direction, float angle = 0)
    {
        RtNode* const node = light("distant_light");
        RvNodeSetVec(node, "direction", direction.x, direction.y, direction.z);
        RvNodeSetFlt(node, "angle", angle);
        return node;
    }
    static void setFilters(RtNode* node, const std::vector<RtNode*>& filters)
    {
        RtArray* const array = RvArrayAllocate(unsigned(filters.size()), 1, RV_TYPE_NODE);
        for (unsigned i = 0; i < filters.size(); ++i)
            RvArraySetPtr(array, i, filters[i]);
        RvNodeSetArray(node, "filters", array);
    }
    static RtLightData& dataOf(RtNode* node) { return *rv::lightData(node); }

    // A surface at the point, with its normal, lit by all lights of the scene.
    RtShaderGlobals surface(const RtPoint& point = { 0, 0, 0 },
                            const RtVector& normal = { 0, 0, 1 })
    {
        RtShaderGlobals sg = cameraContext();
        states.push_back(std::make_unique<RtShadingState>());
        sg.state = states.back().get();
        *sg.state = {};
        sg.point = point;
        sg.normal = sg.facing_normal = sg.geometric_normal = sg.facing_geometric_normal = normal;
        sg.ray_dir = normal * -1.0f;
        sg.lights = RvUniverseGetLights();
        sg.light_count = RvUniverseGetNumLights();
        return sg;
    }

    // What the loop goes on to hand out.
    static std::vector<Sample> walk(RtShaderGlobals& sg)
    {
        std::vector<Sample> all;
        while (RvLightsGetSample(&sg))
            all.push_back({ sg.light_radiance, sg.light_unoccluded, sg.light_shadow, sg.light_dir,
                            sg.light_dist, sg.light_weight, sg.light, sg.light_sample_count });
        return all;
    }
    static std::vector<Sample> samplesAt(RtShaderGlobals& sg)
    {
        RvLightsPrepare(&sg);
        return walk(sg);
    }
    std::vector<Sample> samples(const RtPoint& point = { 0, 0, 0 },
                                const RtVector& normal = { 0, 0, 1 })
    {
        RtShaderGlobals sg = surface(point, normal);
        return samplesAt(sg);
    }
    // Arriving light times cosine, which a white diffuse surface shows.
    double irradiance(const RtPoint& point = { 0, 0, 0 }, const RtVector& normal = { 0, 0, 1 })
    {
        double sum = 0;
        for (const Sample& s : samples(point, normal))
            sum += double(s.radiance.r) * s.weight * std::max(0.0f, rv::dot(s.dir, normal));
        return sum;
    }
    static std::vector<std::string> namesOf(const std::vector<Sample>& samples)
    {
        Names names;
        for (const Sample& s : samples)
            names.push_back(RvNodeGetName(s.light));
        return names;
    }

    // Gives the samples of a thread back, as the end of a camera sample does.
    static void endSample(int thread = 0)
    {
        RvMemPoolReset(rv::the_frame->thread_slots[thread].shading_pool);
    }

    std::vector<std::unique_ptr<RtShadingState>> states;
};

inline std::string text(const RtRGB& c) { return node_tools::describe(c); }
inline std::string text(const RtVector& v) { return node_tools::describe(v); }

} // namespace light_tools

#endif
