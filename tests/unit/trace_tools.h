// What the tests of rays, traces and hits share: small scenes that are ready to be traced, and a
// stand-in for shaders that gives objects the looks which a test wants and remembers its calls.
#ifndef RV_TRACE_TOOLS_H
#define RV_TRACE_TOOLS_H

#include "golden.h"
#include "mesh_tools.h"
#include "node_tools.h"
#include "objects/gobject.h"
#include "rays.h"
#include "shape_fixture.h"
#include "trace.h"

#include <optional>

namespace trace_tools {

using nlohmann::json;
using Names = std::vector<std::string>;

// What the stand-in shader gives an object.
struct Look {
    RtRGB color = RV_RGB_WHITE;
    RtRGB opacity = RV_RGB_WHITE;
    float alpha = 1; // of an RGBA output
    int type = RV_TYPE_RGB;
};

// A part of a ray that was given to the atmosphere.
struct Segment {
    float origin_z;
    double length;
    float end_z;
};

struct Shading {
    std::map<std::string, Look> looks; // by name of the instance, or else of the object
    Look background;
    std::vector<RtShaderGlobals> contexts; // of surfaces, in order
    std::vector<RtShadingState> states;    // of the same
    std::vector<RtShaderGlobals> background_contexts;
    std::vector<RtShadingState> background_states;
    std::vector<Segment> segments;
};

inline Shading& shading()
{
    static Shading all;
    return all;
}

inline int show(const Look& look, RtShaderGlobals* sg)
{
    switch (look.type) {
    case RV_TYPE_FLOAT: sg->out.FLT = look.color.r; break;
    case RV_TYPE_RGBA:
        sg->out.RGBA = { look.color.r, look.color.g, look.color.b, look.alpha };
        break;
    default: sg->out.RGB = look.color;
    }
    sg->out_opacity = look.opacity;
    return look.type;
}

inline int shadeSurface(RtShaderGlobals* sg)
{
    shading().contexts.push_back(*sg);
    shading().states.push_back(*sg->state);
    return show(shading().looks[RvNodeGetName(sg->instance ? sg->instance : sg->object)], sg);
}

inline int shadeBackground(RtShaderGlobals* sg)
{
    shading().background_contexts.push_back(*sg);
    shading().background_states.push_back(*sg->state);
    return show(shading().background, sg);
}

// Red grows by the length of the way, halved.
inline void applyAtmosphere(const RtRay* ray, RtScrSample* sample)
{
    shading().segments.push_back({ ray->origin.z, sample->z, sample->point.z });
    sample->color.r = (sample->color.r + float(sample->z)) / 2;
}

// A universe with the stand-in, and shapes along the z axis for rays that come down it.
class Traced : public Meshes {
protected:
    void SetUp() override
    {
        Meshes::SetUp();
        shading() = {};
        hooks.emplace();
        hooks->hooks.shadeSurface = shadeSurface;
        hooks->hooks.shadeBackground = shadeBackground;
        hooks->hooks.applyAtmosphere = applyAtmosphere;
        set("threads", 1);
    }
    void TearDown() override
    {
        hooks.reset();
        Meshes::TearDown();
    }
    // Another universe.
    void startAnew()
    {
        TearDown();
        SetUp();
    }

    static RtNode* options() { return RvUniverseGetOptions(); }
    static void set(const char* option, int value) { RvNodeSetInt(options(), option, value); }
    static void set(const char* option, bool value) { RvNodeSetBool(options(), option, value); }
    static void set(const char* option, float value) { RvNodeSetFlt(options(), option, value); }
    static void set(const char* option, const char* value)
    {
        RvNodeSetStr(options(), option, value);
    }
    // Any shader will do: the stand-in takes its place.
    static void setShader(const char* option)
    {
        RvNodeSetPtr(options(), option, node_tools::named("standard", option));
    }

    // A disc of radius 1 across the z axis, facing upwards.
    static RtNode* disc(const char* name, float z)
    {
        RtNode* const node = node_tools::named("disc", name);
        RvNodeSetPnt(node, "center", 0, 0, z);
        RvNodeSetFlt(node, "radius", 1);
        return node;
    }
    static RtNode* glass(const char* name, float z, const RtRGB& opacity)
    {
        RtNode* const node = disc(name, z);
        RvNodeSetBool(node, "opaque", false);
        shading().looks[name].opacity = opacity;
        return node;
    }
    static RtNode* sphere(const char* name, const RtPoint& center, float radius)
    {
        RtNode* const node = node_tools::named("sphere", name);
        RvNodeSetArray(node, "center", RvArray(1, 1, RV_TYPE_POINT, center));
        RvNodeSetArray(node, "radius", RvArray(1, 1, RV_TYPE_FLOAT, double(radius)));
        return node;
    }
    static RtNode* instanceOf(RtNode* node, const char* name, const RtMatrix& matrix)
    {
        RtNode* const instance = node_tools::named("ginstance", name);
        RvNodeSetPtr(instance, "node", node);
        shape_fixture::setMatrices(instance, { matrix });
        return instance;
    }
    // A group of shapes, which are no longer traced on their own.
    static RtNode* groupOf(const char* name, const std::vector<RtNode*>& nodes)
    {
        RtList* const list = RvList(nullptr);
        for (RtNode* node : nodes)
            RvListAdd(list, node);
        RtNode* const group = node_tools::named("list_aggregate", name);
        RvNodeSetPtr(group, "obj_list", list);
        rv::RvNodeInitialize(group);
        RvListDestroy(list);
        return group;
    }
    static void setTraceSets(RtNode* node, const Names& sets)
    {
        RtArray* const array = RvArrayAllocate(unsigned(sets.size()), 1, RV_TYPE_STRING);
        for (unsigned i = 0; i < sets.size(); ++i)
            RvArraySetStr(array, i, sets[i].c_str());
        RvNodeSetArray(node, "trace_sets", array);
    }
    static void prepare() { ASSERT_EQ(RvRender(RV_RENDER_MODE_SETUP), RV_SUCCESS); }

    // A context as camera rays come from.
    static RtShaderGlobals cameraContext()
    {
        RtShaderGlobals sg;
        sg.state = nullptr;
        rv::resetContext(&sg);
        return sg;
    }
    // A context on a surface, for rays that leave it.
    static RtShaderGlobals contextOn(RtNode* object, RtNode* instance = nullptr, uint32_t prim = 0)
    {
        RtShaderGlobals sg = cameraContext();
        sg.object = object;
        sg.instance = instance;
        sg.prim_index = prim;
        return sg;
    }

    // Down the z axis from a height.
    static RtRay rayFrom(float z, int type = RV_RAY_CAMERA, const RtShaderGlobals* sg = nullptr)
    {
        const RtPoint origin = { 0, 0, z };
        const RtVector dir = { 0, 0, -1 };
        RtRay ray;
        RvMakeRay(&ray, type, &origin, &dir, 1e30, sg);
        return ray;
    }
    static RtRay down(int type = RV_RAY_CAMERA, const RtShaderGlobals* sg = nullptr)
    {
        return rayFrom(10, type, sg);
    }
    static std::vector<RtHit> hitsOf(const RtRay& ray, uint32_t capacity = 11)
    {
        std::vector<RtHit> hits(capacity);
        hits.resize(rv::findHits(ray, capacity, hits.data()));
        return hits;
    }
    // Names of the instances, or else the objects, that were hit.
    static Names namesHit(const RtRay& ray, uint32_t capacity = 11)
    {
        Names names;
        for (const RtHit& hit : hitsOf(ray, capacity))
            names.push_back(RvNodeGetName(hit.instance ? hit.instance : hit.object->node));
        return names;
    }
    static bool isHit(const RtRay& ray) { return RvTraceProbe(&ray, nullptr); }
    static std::string firstHit(const RtRay& ray)
    {
        const Names names = namesHit(ray, 1);
        return names.empty() ? "" : names.front();
    }
    static RtScrSample traced(const RtRay& ray, bool is_hit = true)
    {
        RtScrSample sample;
        memset(static_cast<void*>(&sample), 0xFF, sizeof sample);
        EXPECT_EQ(RvTrace(&ray, &sample), is_hit);
        return sample;
    }
    static Names namesShaded()
    {
        Names names;
        for (const RtShaderGlobals& sg : shading().contexts)
            names.push_back(RvNodeGetName(sg.instance ? sg.instance : sg.object));
        return names;
    }

    static RtRayStats& rayStats(int thread = 0) { return rv::the_frame->stats[thread]->rays; }

    std::optional<node_tools::HookOverride> hooks;
};

inline void expectNear(const RtVector& got, const RtVector& want, float tolerance,
                       const std::string& what)
{
    EXPECT_NEAR(got.x, want.x, tolerance) << what;
    EXPECT_NEAR(got.y, want.y, tolerance) << what;
    EXPECT_NEAR(got.z, want.z, tolerance) << what;
}

} // namespace trace_tools

#endif
