// Tests of the sub-surface term of core/src/shaders/standard.cpp.
#include "aovs/output_tools.h"
#include "sss_tools.h"

using namespace sss_tools;

namespace {

class ScatteringSurfaces : public Clouds {
protected:
    void SetUp() override
    {
        Clouds::SetUp();
        flt("Kd", 0);
        setShaderOf(sheet(8, 0.1f), shader);
        distantLight();
        rgb("sss_radius", 1, 1, 1);
    }
    // What a cloud under light of irradiance 1 scatters.
    static constexpr float full = 0.4f;
    static void expectScattered(const RtRGB& got, const RtRGB& share)
    {
        const float tolerance = 0.05f * full;
        EXPECT_NEAR(got.r, full * share.r, tolerance * share.r);
        EXPECT_NEAR(got.g, full * share.g, tolerance * share.g);
        EXPECT_NEAR(got.b, full * share.b, tolerance * share.b);
    }
};

} // namespace

TEST_F(ScatteringSurfaces, the_weight_and_the_color_scale_scattered_light)
{
    flt("Ksss", 0.5f);
    rgb("Ksss_color", 1, 0.5f, 0);
    prepare();
    expectScattered(seen(), { 0.5f, 0.25f, 0 });
}

TEST_F(ScatteringSurfaces, each_channel_has_its_radius)
{
    flt("Ksss", 1);
    rgb("sss_radius", 1, 0, 0.5f);
    prepare();
    expectScattered(seen(), { 1, 0, 1 });
}

TEST_F(ScatteringSurfaces, without_weight_no_cloud_is_made)
{
    flt("Ksss", 0.00005f);
    prepare();
    expectColor(seen(), RV_RGB_BLACK);
    EXPECT_EQ(cloudsDone(), 0u);
}

TEST_F(ScatteringSurfaces, scattered_light_is_added_to_the_other_lobes)
{
    flt("Ksss", 1);
    flt("Kd", 0.5f);
    flt("emission", 0.25f);
    prepare();
    const float others = 0.5f * one_over_pi + 0.25f;
    expectScattered(seen() - rv::grey(others), RV_RGB_WHITE);
}

TEST_F(ScatteringSurfaces, Fresnel_dims_scattered_light_where_it_affects_diffuse)
{
    flt("Ksss", 1);
    flag("Fresnel", true);
    flt("Kr", 0.5f);
    flt("Krn", 0.3f);
    prepare();
    expectScattered(seen(), rv::grey(0.7f)); // nothing is seen in the mirror
    flag("Fresnel_affect_diff", false);
    expectScattered(seen(), RV_RGB_WHITE);
}

TEST_F(ScatteringSurfaces, bounce_factor_scales_scattered_light_for_diffuse_rays)
{
    flt("Ksss", 1);
    flt("bounce_factor", 0.5f);
    set("GI_diffuse_depth", 1);
    prepare();
    expectScattered(seen(), RV_RGB_WHITE);
    const RtShaderGlobals sg = cameraContext();
    expectScattered(seenFrom(sg, RV_RAY_DIFFUSE), rv::grey(0.5f));
}

TEST_F(ScatteringSurfaces, scattered_light_is_written_to_the_AOV_that_is_named)
{
    using namespace output_tools;
    flt("Ksss", 0.5f);
    RvNodeSetStr(shader, "aov_sss", "wax");
    probe() = {};
    installDriver<takesEverything, initializeLayered>("layered_driver");
    node_tools::named("layered_driver", "drv");
    node_tools::named("box_filter", "box");
    RtNode* const camera = node_tools::named("persp_camera", "camera");
    RvNodeSetArray(camera, "position", RvArray(1, 1, RV_TYPE_POINT, RtPoint{ 0, 0, 2 }));
    RvNodeSetPtr(options(), "camera", camera);
    RtArray* const outputs = RvArrayAllocate(2, 1, RV_TYPE_STRING);
    RvArraySetStr(outputs, 0, "RGB RGB box drv");
    RvArraySetStr(outputs, 1, "wax RGB box drv");
    RvNodeSetArray(options(), "outputs", outputs);
    set("xres", 4);
    set("yres", 4);
    ASSERT_EQ(RvRender(RV_RENDER_MODE_CAMERA), RV_SUCCESS);
    const auto& beauty = probe().layers["RGB"].pixels;
    const auto& wax = probe().layers["wax"].pixels;
    ASSERT_EQ(wax.size(), 16 * sizeof(RtRGB));
    EXPECT_EQ(wax, beauty); // there is no other light
    expectScattered(reinterpret_cast<const RtRGB*>(wax.data())[5], rv::grey(0.5f));
    probe() = {};
}
