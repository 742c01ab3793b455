// Tests of what the tracer makes known of camera samples: which rays write outputs, at which depth
// and in which order.
#include "sample_sink.h"
#include "trace.h"
#include "trace_tools.h"

using namespace trace_tools;
using node_tools::describe;

namespace {

struct Recorded {
    int depth;
    RtSampleOutputs outputs;
};

std::vector<Recorded>& recorded()
{
    static std::vector<Recorded> all;
    return all;
}

class TraceOutputs : public Traced {
protected:
    void SetUp() override
    {
        Traced::SetUp();
        recorded().clear();
        depths().clear();
        hooks->hooks.recordSample = [](RtSampleSink*, int depth, const RtSampleOutputs& outputs) {
            recorded().push_back({ depth, outputs });
        };
        hooks->hooks.shadeSurface = [](RtShaderGlobals* sg) {
            const auto* const at = static_cast<const RtSampleSink*>(sg->sample_output);
            depths().push_back(at ? at->depth : -1);
            sg->shader = sg->object; // any node will do
            return shadeSurface(sg);
        };
    }
    // Depths that the sink was at when hits were shaded; -1 where there was none.
    static std::vector<int>& depths()
    {
        static std::vector<int> all;
        return all;
    }
    RtRay sampleRay(int type = RV_RAY_CAMERA, const RtShaderGlobals* sg = nullptr)
    {
        RtRay ray = down(type, sg);
        ray.aov_sink = &sink;
        return ray;
    }
    static Names objects()
    {
        Names names;
        for (const Recorded& r : recorded())
            names.push_back(std::to_string(r.depth) + " " +
                            (r.outputs.object ? RvNodeGetName(r.outputs.object) : "-"));
        return names;
    }

    RtSampleSink sink = {};
};

} // namespace

TEST_F(TraceOutputs, hits_are_recorded_from_back_to_front_and_the_result_last)
{
    glass("near", 4, { 0.5f, 0.5f, 0.5f });
    glass("middle", 2, { 0.25f, 0.25f, 0.25f });
    disc("far", 0);
    shading().looks["near"].color = { 1, 0, 0 };
    shading().looks["middle"].color = { 0, 1, 0 };
    shading().looks["far"].color = { 0, 0, 1 };
    prepare();
    RtRay ray = sampleRay();
    ray.weight = 0.5f;
    const RtScrSample sample = traced(ray);
    EXPECT_EQ(objects(), (Names{ "2 far", "1 middle", "0 near" }));
    static const char* const colors[] = { "0 0 0.5", "0 0.125 0.375", "0.25 0.0625 0.1875" };
    static const float z[] = { 10, 8, 6 };
    for (size_t i = 0; i < 3; ++i) {
        const RtSampleOutputs& o = recorded()[i].outputs;
        EXPECT_EQ(describe(o.color), colors[i]);
        EXPECT_EQ(describe(o.opacity), "1 1 1");
        EXPECT_EQ(o.alpha, 1);
        EXPECT_EQ(o.z, z[i]);
        EXPECT_EQ(o.shader, o.object);
        EXPECT_EQ(describe(o.point), describe(RtPoint{ 0, 0, 10 - z[i] }));
        EXPECT_EQ(describe(o.normal), "0 0 1");
    }
    EXPECT_EQ(describe(sample.color), colors[2]);
    EXPECT_EQ(depths(), (std::vector<int>{ 0, 1, 2 }));
    EXPECT_EQ(sink.depth, 0); // as it was
}

TEST_F(TraceOutputs, clear_hits_take_no_depth)
{
    glass("clear", 6, RV_RGB_BLACK);
    glass("near", 4, { 0.5f, 0.5f, 0.5f });
    glass("clear too", 2, RV_RGB_BLACK);
    disc("far", 0);
    prepare();
    traced(sampleRay());
    EXPECT_EQ(objects(), (Names{ "1 far", "0 near" }));
    EXPECT_EQ(depths(), (std::vector<int>{ 0, 0, 1, 1 }));
}

TEST_F(TraceOutputs, an_escaped_ray_records_the_background)
{
    setShader("background");
    shading().background.color = { 0.25f, 0.5f, 1 };
    prepare();
    RtRay ray = sampleRay();
    ray.maxdist = 1000;
    traced(ray, false);
    EXPECT_EQ(objects(), Names{ "0 -" });
    EXPECT_EQ(describe(recorded()[0].outputs.color), "0.25 0.5 1");
    EXPECT_EQ(recorded()[0].outputs.z, 1000);
    EXPECT_EQ(recorded()[0].outputs.shader, nullptr);
    EXPECT_EQ(shading().background_contexts.at(0).sample_output, &sink);
}

TEST_F(TraceOutputs, a_background_behind_hits_is_not_a_hit_of_its_own)
{
    setShader("background");
    glass("near", 4, { 0.5f, 0.5f, 0.5f });
    prepare();
    traced(sampleRay());
    EXPECT_EQ(objects(), Names{ "0 near" });
    EXPECT_EQ(shading().background_contexts.at(0).sample_output, nullptr);
}

TEST_F(TraceOutputs, clear_objects_alone_record_the_background_without_an_object)
{
    setShader("background");
    shading().background.color = { 0.25f, 0.5f, 1 };
    glass("clear", 4, RV_RGB_BLACK);
    prepare();
    const RtScrSample sample = traced(sampleRay());
    EXPECT_EQ(objects(), Names{ "0 -" });
    EXPECT_EQ(recorded()[0].outputs.z, float(sample.z));
    EXPECT_EQ(describe(recorded()[0].outputs.color), "0.25 0.5 1");
}

TEST_F(TraceOutputs, a_refused_ray_records_a_cleared_sample)
{
    disc("d", 0);
    prepare();
    RtRay ray = sampleRay();
    ray.level = 200;
    traced(ray, false);
    EXPECT_EQ(objects(), Names{ "0 -" });
    EXPECT_EQ(describe(recorded()[0].outputs.color), "0 0 0");
    EXPECT_EQ(recorded()[0].outputs.z, 0);
}

TEST_F(TraceOutputs, other_rays_write_nothing_and_hide_the_sink_from_their_shaders)
{
    disc("d", 0);
    prepare();
    for (int type : { RV_RAY_REFLECTED, RV_RAY_REFRACTED, RV_RAY_DIFFUSE, RV_RAY_GLOSSY, 0x80 }) {
        set("GI_diffuse_depth", 5);
        set("GI_glossy_depth", 5);
        RtShaderGlobals sg = cameraContext();
        traced(sampleRay(type, &sg));
    }
    rv::traceShadow(sampleRay(RV_RAY_SHADOW));
    EXPECT_TRUE(recorded().empty());
    for (const RtShaderGlobals& sg : shading().contexts)
        EXPECT_EQ(sg.sample_output, nullptr) << sg.ray_type;
}

TEST_F(TraceOutputs, chains_of_refractions_are_depths_unless_rays_pass_through_by_themselves)
{
    disc("d", 0);
    prepare();
    for (const char* mode : { "never", "shadow_only", "always" }) {
        set("auto_transparency_mode", mode);
        recorded().clear();
        depths().clear();
        RtRay ray = sampleRay(RV_RAY_REFRACTED);
        ray.level = ray.refraction_depth = 2;
        traced(ray);
        const bool writes = strcmp(mode, "always") != 0;
        EXPECT_EQ(objects(), writes ? Names{ "2 d" } : Names{}) << mode;
        EXPECT_EQ(depths(), std::vector<int>{ writes ? 2 : -1 }) << mode;
        recorded().clear();
        ray.level = 3; // another bounce was among them
        set("GI_total_depth", 10);
        traced(ray);
        EXPECT_TRUE(recorded().empty()) << mode;
    }
}

TEST_F(TraceOutputs, without_compositing_the_single_hit_is_recorded)
{
    set("auto_transparency_mode", "never");
    glass("near", 4, { 0.25f, 0.5f, 0.75f });
    shading().looks["near"].color = { 1, 0.5f, 0 };
    prepare();
    RtRay ray = sampleRay();
    ray.weight = 0.5f;
    traced(ray);
    EXPECT_EQ(objects(), Names{ "0 near" });
    EXPECT_EQ(describe(recorded()[0].outputs.color), "0.5 0.25 0");
    EXPECT_EQ(describe(recorded()[0].outputs.opacity), "0.25 0.5 0.75");
    EXPECT_EQ(recorded()[0].outputs.alpha, 0.5f);
}

TEST_F(TraceOutputs, an_instance_stands_for_its_object)
{
    RtNode* const node = disc("d", -100);
    const RtVector up = { 0, 0, 100 };
    RtMatrix matrix;
    RvM4Translation(&matrix, &up);
    instanceOf(node, "i", matrix);
    prepare();
    traced(sampleRay());
    EXPECT_EQ(objects(), Names{ "0 i" });
}

// ---- What the hits of a ray share ----

TEST_F(TraceOutputs, hits_share_the_random_numbers_of_their_ray)
{
    glass("near", 4, { 0.5f, 0.5f, 0.5f });
    disc("far", 0);
    prepare();
    traced(down());
    ASSERT_EQ(shading().states.size(), 2u);
    const RtShadingState &near = shading().states[0], &far = shading().states[1];
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(near.random[i], far.random[i]);
        EXPECT_TRUE(near.random[i] > 0 && near.random[i] < 1);
    }
    EXPECT_NE(near.random[0], near.random[1]);
}

TEST_F(TraceOutputs, hits_know_the_opacity_in_front_of_them)
{
    glass("near", 4, { 0.5f, 0.25f, 0 });
    glass("clear", 3, RV_RGB_BLACK);
    glass("middle", 2, { 0.5f, 0, 0 });
    disc("far", 0);
    prepare();
    static const char* const opacities[] = { "0 0 0", "0.5 0.25 0", "0.5 0.25 0", "0.75 0.25 0" };
    for (bool shadow : { false, true }) {
        shading().states.clear();
        if (shadow) {
            RtNode* const last = RvNodeLookUpByName("far");
            RvNodeSetBool(last, "opaque", false); // else the shadow ends the trace before shading
            rv::traceShadow(down(RV_RAY_SHADOW));
        } else {
            traced(down());
        }
        ASSERT_EQ(shading().states.size(), 4u);
        for (size_t i = 0; i < 4; ++i)
            EXPECT_EQ(describe(shading().states[i].accumulated_opacity), opacities[i]) << i;
    }
}

TEST_F(TraceOutputs, messages_of_one_camera_sample_are_forgotten_by_the_next)
{
    disc("d", 0);
    prepare();
    RtShaderGlobals sg = cameraContext();
    int value = 0;
    ASSERT_TRUE(RvMessageSetIntFunc(&sg, "n", 5));
    traced(down(RV_RAY_REFLECTED, &sg));
    EXPECT_TRUE(RvMessageGetIntFunc(&sg, "n", &value)); // the same ray tree
    traced(down());
    EXPECT_FALSE(RvMessageGetIntFunc(&sg, "n", &value));
}
