// builtin: the table of the built-in node types, in order of installation. A new type is one file
// in the folder of its family, one line in that family's header and one row here.
#include "builtin.h"

#include "cameras/camera.h"
#include "drivers/drivers.h"
#include "filters/filters.h"
#include "lights/lights.h"
#include "objects/objects.h"
#include "options.h"
#include "override.h"
#include "shaders/shaders.h"

namespace rv {

struct BuiltIn {
    const char* name;
    int kind;
    int output_type;
    const RtNodeMethods* methods;
};

static const BuiltIn built_in[] = {
    { "options", RV_NODE_OPTIONS, RV_TYPE_NONE, &options_methods },
    { "persp_camera", RV_NODE_CAMERA, RV_TYPE_NONE, &persp_camera_methods },
    { "ortho_camera", RV_NODE_CAMERA, RV_TYPE_NONE, &ortho_camera_methods },
    { "fisheye_camera", RV_NODE_CAMERA, RV_TYPE_NONE, &fisheye_camera_methods },
    { "cyl_camera", RV_NODE_CAMERA, RV_TYPE_NONE, &cyl_camera_methods },
    { "point_light", RV_NODE_LIGHT, RV_TYPE_NONE, &point_light_methods },
    { "distant_light", RV_NODE_LIGHT, RV_TYPE_NONE, &distant_light_methods },
    { "quad_light", RV_NODE_LIGHT, RV_TYPE_NONE, &quad_light_methods },
    { "spot_light", RV_NODE_LIGHT, RV_TYPE_NONE, &spot_light_methods },
    { "ambient_light", RV_NODE_LIGHT, RV_TYPE_NONE, &ambient_light_methods },
    { "skydome_light", RV_NODE_LIGHT, RV_TYPE_NONE, &skydome_light_methods },
    { "ray_switch", RV_NODE_SHADER, RV_TYPE_RGBA, &ray_switch_methods },
    { "image", RV_NODE_SHADER, RV_TYPE_RGBA, &image_methods },
    { "noise", RV_NODE_SHADER, RV_TYPE_FLOAT, &noise_methods },
    { "utility", RV_NODE_SHADER, RV_TYPE_RGB, &utility_methods },
    { "wireframe", RV_NODE_SHADER, RV_TYPE_RGB, &wireframe_methods },
    { "motion_vector", RV_NODE_SHADER, RV_TYPE_RGB, &motion_vector_methods },
    { "gobo", RV_NODE_SHADER, RV_TYPE_NONE, &gobo_methods },
    { "barndoor", RV_NODE_SHADER, RV_TYPE_NONE, &barndoor_methods },
    { "light_blocker", RV_NODE_SHADER, RV_TYPE_NONE, &light_blocker_methods },
    { "light_decay", RV_NODE_SHADER, RV_TYPE_FLOAT, &light_decay_methods },
    { "flat", RV_NODE_SHADER, RV_TYPE_RGB, &flat_methods },
    { "lambert", RV_NODE_SHADER, RV_TYPE_RGB, &lambert_methods },
    { "standard", RV_NODE_SHADER, RV_TYPE_RGB, &standard_methods },
    { "hair", RV_NODE_SHADER, RV_TYPE_RGB, &hair_methods },
    { "ambient_occlusion", RV_NODE_SHADER, RV_TYPE_RGB, &ambient_occlusion_methods },
    { "bump2d", RV_NODE_SHADER, RV_TYPE_RGBA, &bump2d_methods },
    { "bump3d", RV_NODE_SHADER, RV_TYPE_RGBA, &bump3d_methods },
    { "sky", RV_NODE_SHADER, RV_TYPE_RGBA, &sky_methods },
    { "volume_scattering", RV_NODE_SHADER, RV_TYPE_RGB, &volume_scattering_methods },
    { "fog", RV_NODE_SHADER, RV_TYPE_RGB, &fog_methods },
    { "driver_null", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_null_methods },
    { "driver_display", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_display_methods },
    { "driver_jpeg", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_jpeg_methods },
    { "driver_png", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_png_methods },
    { "driver_tiff", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_tiff_methods },
    { "driver_exr", RV_NODE_DRIVER, RV_TYPE_NONE, &driver_exr_methods },
    { "box_filter", RV_NODE_FILTER, RV_TYPE_NONE, &box_filter_methods },
    { "catrom_filter", RV_NODE_FILTER, RV_TYPE_NONE, &catrom_filter_methods },
    { "catrom2d_filter", RV_NODE_FILTER, RV_TYPE_NONE, &catrom2d_filter_methods },
    { "closest_filter", RV_NODE_FILTER, RV_TYPE_NONE, &closest_filter_methods },
    { "farthest_filter", RV_NODE_FILTER, RV_TYPE_NONE, &farthest_filter_methods },
    { "cook_filter", RV_NODE_FILTER, RV_TYPE_NONE, &cook_filter_methods },
    { "cone_filter", RV_NODE_FILTER, RV_TYPE_NONE, &cone_filter_methods },
    { "cubic_filter", RV_NODE_FILTER, RV_TYPE_NONE, &cubic_filter_methods },
    { "disk_filter", RV_NODE_FILTER, RV_TYPE_NONE, &disk_filter_methods },
    { "mitnet_filter", RV_NODE_FILTER, RV_TYPE_NONE, &mitnet_filter_methods },
    { "sinc_filter", RV_NODE_FILTER, RV_TYPE_NONE, &sinc_filter_methods },
    { "blackman_harris_filter", RV_NODE_FILTER, RV_TYPE_NONE, &blackman_harris_filter_methods },
    { "triangle_filter", RV_NODE_FILTER, RV_TYPE_NONE, &triangle_filter_methods },
    { "video_filter", RV_NODE_FILTER, RV_TYPE_NONE, &video_filter_methods },
    { "gaussian_filter", RV_NODE_FILTER, RV_TYPE_NONE, &gaussian_filter_methods },
    { "variance_filter", RV_NODE_FILTER, RV_TYPE_NONE, &variance_filter_methods },
    { "heatmap_filter", RV_NODE_FILTER, RV_TYPE_NONE, &heatmap_filter_methods },
    { "sphere", RV_NODE_SHAPE, RV_TYPE_NONE, &sphere_methods },
    { "cylinder", RV_NODE_SHAPE, RV_TYPE_NONE, &cylinder_methods },
    { "cone", RV_NODE_SHAPE, RV_TYPE_NONE, &cone_methods },
    { "disc", RV_NODE_SHAPE, RV_TYPE_NONE, &disc_methods },
    { "plane", RV_NODE_SHAPE, RV_TYPE_NONE, &plane_methods },
    { "polymesh", RV_NODE_SHAPE, RV_TYPE_NONE, &polymesh_methods },
    { "nurbs", RV_NODE_SHAPE, RV_TYPE_NONE, &nurbs_methods },
    { "box", RV_NODE_SHAPE, RV_TYPE_NONE, &box_methods },
    { "curves", RV_NODE_SHAPE, RV_TYPE_NONE, &curves_methods },
    { "points", RV_NODE_SHAPE, RV_TYPE_NONE, &points_methods },
    { "implicit", RV_NODE_SHAPE, RV_TYPE_NONE, &implicit_methods },
    { "ginstance", RV_NODE_SHAPE, RV_TYPE_NONE, &ginstance_methods },
    { "procedural", RV_NODE_SHAPE, RV_TYPE_NONE, &procedural_methods },
    { "list_aggregate", RV_NODE_SHAPE, RV_TYPE_NONE, &list_aggregate_methods },
    { "override", RV_NODE_OVERRIDE, RV_TYPE_NONE, &override_methods },
};
static_assert(sizeof(built_in) / sizeof(built_in[0]) == 69);

bool installBuiltInTypes()
{
    bool complete = true;
    for (const BuiltIn& row : built_in) {
        RvNodeInstall(row.kind, row.output_type, row.name, "", row.methods, RV_VERSION);
        complete = complete && RvNodeEntryLookUp(row.name);
    }
    return complete;
}

} // namespace rv
