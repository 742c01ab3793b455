// bump_wrapper: the common parts of the "bump2d" and "bump3d" shader nodes.
#include "shaders/bump_wrapper.h"

#include "options.h"

namespace rv {

void updateBumpLinks(RtNode* node, void*)
{
    if (auto* const links = record<BumpLinks>(node))
        *links = { RvNodeGetLink(node, "bump_map"), RvNodeGetLink(node, "shader") };
}

float scaledHeight(const ShaderInputs& in, int param)
{
    return render_options ? in.flt(param) * render_options->bump_multiplier : 0;
}

float bumpMapHeight(RtNode* bump_map, RtShaderGlobals* sg)
{
    sg->out = {};
    RvShaderEvaluate(bump_map, sg);
    return sg->out.RGBA.r;
}

UnbumpedContext::UnbumpedContext(RtShaderGlobals* context)
    : sg(context), normal(context->normal), facing_normal(context->facing_normal)
{
}

void UnbumpedContext::bump(const RtVector& bumped_normal) const
{
    sg->normal = bumped_normal * (dot(bumped_normal, normal) > 0 ? 1.0f : -1.0f);
    sg->facing_normal = sg->normal * (dot(sg->geometric_normal, sg->ray_dir) <= 0 ? 1.0f : -1.0f);
}

void UnbumpedContext::shade(RtNode* wrapped) const
{
    if (!wrapped)
        return;
    RvShaderEvaluate(wrapped, sg);
    if (wrapped->entry->output_type != RV_TYPE_RGBA)
        sg->out.RGBA.a = 1;
    sg->normal = normal;
    sg->facing_normal = facing_normal;
}

} // namespace rv
